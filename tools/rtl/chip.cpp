// The chip's process: umbra-rtl-chip DESCRIPTOR PARENT. The descriptor is a file that holds the
// mailbox; the process ends with its parent.
#include <Vswitch_chip.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include <cstdlib>

#include "Mailbox.h"

namespace {

constexpr std::uint32_t tableAddress = 0x1000, tableEnd = 0x2000, registersEnd = 0x100;

// Nowhere for an address that has no word.
std::uint32_t* counterOf(std::uint32_t* counters, std::uint32_t address) {
  if (address < registersEnd) return counters + address / 4;
  if (address < tableAddress || address >= tableEnd) return nullptr;
  return counters + 64 + (address - tableAddress) / 4;
}

class Simulation {
 public:
  explicit Simulation(Rtl::Mailbox& mailbox) : mailbox_(mailbox) { chip_.eval(); }

  void obey() {
    switch (mailbox_.order) {
      case Rtl::Order::read:
      case Rtl::Order::write:
        access(mailbox_.order == Rtl::Order::write);
        break;
      case Rtl::Order::clocks:
        for (std::uint32_t i = 0; i < mailbox_.value; ++i) clock();
        break;
      case Rtl::Order::flip:
        chip_.address = static_cast<std::uint16_t>(mailbox_.address / 4);
        chip_.fault = 1;
        chip_.faultBits = mailbox_.bits;
        clock();
        chip_.fault = 0;
        break;
      case Rtl::Order::probe:
        probe();
        break;
    }
  }

 private:
  void clock() {
    chip_.clock = 0;
    chip_.eval();
    chip_.clock = 1;
    chip_.eval();
  }

  void access(bool isWrite) {
    std::uint32_t* const counter =
        counterOf(isWrite ? mailbox_.writes : mailbox_.reads, mailbox_.address);
    if (counter != nullptr) ++*counter;
    chip_.address = static_cast<std::uint16_t>(mailbox_.address / 4);
    chip_.writeData = mailbox_.value;
    chip_.write = isWrite;
    chip_.access = 1;
    clock();
    chip_.access = 0;
    if (!isWrite) mailbox_.value = chip_.readData;
  }

  void probe() {
    for (std::uint32_t i = 0; i < 1024; ++i) {
      chip_.address = static_cast<std::uint16_t>(tableAddress / 4 + i);
      chip_.eval();
      mailbox_.table[i] = chip_.probeTable;
      if (i < 64) mailbox_.registers[i] = chip_.probeRegister;
      if (i < 8) mailbox_.totals[i] = chip_.probeTotal;
    }
  }

  Rtl::Mailbox& mailbox_;
  Vswitch_chip chip_;
};

}  // namespace

int main(int count, char** arguments) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (count != 3) return 2;
  void* const memory = mmap(nullptr, sizeof(Rtl::Mailbox), PROT_READ | PROT_WRITE, MAP_SHARED,
                            std::atoi(arguments[1]), 0);
  if (memory == MAP_FAILED) return 2;
  auto& mailbox = *static_cast<Rtl::Mailbox*>(memory);
  Simulation simulation(mailbox);
  const pid_t parent = std::atoi(arguments[2]);
  while (getppid() == parent) {
    if (!Rtl::doWait(mailbox, 1)) continue;
    simulation.obey();
    Rtl::doPass(mailbox, 0);
  }
}
