#include <time/Kit.h>

#include <poll.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <new>

namespace {

constexpr unsigned unlimited = std::numeric_limits<unsigned>::max();
std::atomic<unsigned> timerCalls_{0};
std::atomic<unsigned> allocations_{0};
std::atomic<unsigned> left_{unlimited};
std::atomic<Time::SimulatedSystem*> simulated_{nullptr};

constexpr S64 nanosecondsOfSecond = 1'000'000'000;

bool pollIn(int descriptor, int milliseconds) {
  pollfd poll{descriptor, POLLIN, 0};
  return ::poll(&poll, 1, milliseconds) == 1 && poll.revents == POLLIN;
}

}  // namespace

// In place of the system's: the library in this program calls them.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const Time::SimulatedSystem* system = simulated_;
  if (system == nullptr || clock != CLOCK_MONOTONIC) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  }
  time->tv_sec = static_cast<time_t>(system->time / nanosecondsOfSecond);
  time->tv_nsec = static_cast<long>(system->time % nanosecondsOfSecond);
  return 0;
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
  Time::SimulatedSystem* system = simulated_;
  if (system == nullptr) {
    return static_cast<int>(syscall(SYS_poll, descriptors, count, milliseconds));
  }
  if (milliseconds == 0) {
    system->polls.push_back(system->time);
    return 0;
  }
  system->waits.push_back(system->time);
  system->time = std::max(system->time, system->deadline);
  return 1;
}

extern "C" int timerfd_settime(int descriptor, int flags, const itimerspec* value,
                               itimerspec* old) noexcept {
  ++timerCalls_;
  if (Time::SimulatedSystem* system = simulated_) {
    system->timers.push_back(system->time);
    system->deadline = value->it_value.tv_sec * nanosecondsOfSecond + value->it_value.tv_nsec;
    return 0;
  }
  return static_cast<int>(syscall(SYS_timerfd_settime, descriptor, flags, value, old));
}

void* operator new(std::size_t size) {
  ++allocations_;
  if (left_ != unlimited && (left_ == 0 || left_-- == 0)) throw std::bad_alloc();
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace Time {

bool isReadable(Zint::ActivityConfig& activity) { return pollIn(activity.descriptor(), 0); }
bool becomesReadable(Zint::ActivityConfig& activity) {
  return pollIn(activity.descriptor(), 30'000);
}
unsigned timerCalls() { return timerCalls_; }
unsigned allocations() { return allocations_; }
SimulatedSystem::SimulatedSystem() { simulated_ = this; }
SimulatedSystem::~SimulatedSystem() { simulated_ = nullptr; }
NoMemoryAfter::NoMemoryAfter(unsigned count) { left_ = count; }
NoMemoryAfter::~NoMemoryAfter() { left_ = unlimited; }

}  // namespace Time
