#include "demo/driver/Interrupts.h"

#include <signal.h>

#include <atomic>

namespace Demo {
namespace {

constexpr int endingSignals[] = {SIGINT, SIGTERM, SIGHUP};

// What the handler touches.
std::atomic<Zint::ActivityConfig*> stopped{nullptr};
std::atomic<int> signals{0};

void onSignal(int) {
  ++signals;
  if (Zint::ActivityConfig* activity = stopped; activity != nullptr) activity->stop();
}

void handlerIs(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  for (const int each : endingSignals) sigaction(each, &action, nullptr);
}

}  // namespace

Interrupts::Interrupts(Zint::ActivityConfig& activity) {
  stopped = &activity;
  handlerIs(onSignal);
}

Interrupts::~Interrupts() {
  handlerIs(SIG_DFL);
  stopped = nullptr;
}

int Interrupts::count() { return signals; }

}  // namespace Demo
