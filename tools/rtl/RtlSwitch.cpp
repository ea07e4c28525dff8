#include "RtlSwitch.h"

#include <platform/bus/BusError.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace Rtl {
namespace {

constexpr int patience = 10;  // seconds

[[noreturn]] void throwSystemError(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

U32 wordOf(U32 address) {
  return address < tableAddress ? address / 4 : registerCount + (address - tableAddress) / 4;
}

}  // namespace

RtlSwitch::RtlSwitch(const std::string& program) {
  const int file = memfd_create("umbra-rtl", 0);
  if (file < 0 || ftruncate(file, sizeof(Mailbox)) != 0) throwSystemError("the mailbox");
  void* const memory = mmap(nullptr, sizeof(Mailbox), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (memory == MAP_FAILED) throwSystemError("the mailbox");
  mailbox_ = static_cast<Mailbox*>(memory);
  const std::string descriptor = std::to_string(file), parent = std::to_string(getpid());
  process_ = fork();
  if (process_ == 0) {
    execl(program.c_str(), program.c_str(), descriptor.c_str(), parent.c_str(), nullptr);
    _exit(127);
  }
  close(file);
  if (process_ < 0) throwSystemError("the chip's process");
}

RtlSwitch::~RtlSwitch() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  munmap(mailbox_, sizeof(Mailbox));
}

void RtlSwitch::order(Order order, U32 address, U32 value, U64 bits) {
  mailbox_->order = order;
  mailbox_->address = address;
  mailbox_->value = value;
  mailbox_->bits = bits;
  doPass(*mailbox_, 1);
  // Interrupted waits end early, so the bound is one of times without an answer.
  for (int waits = 0; !doWait(*mailbox_, 0);) {
    if (process_ < 0 || waitpid(process_, nullptr, WNOHANG) == process_) {
      process_ = -1;
      throw Platform::BusError("rtl", address, ENXIO, "the chip's process has ended");
    }
    if (mailbox_->turn.load() == 1 && ++waits > patience) {
      throw Platform::BusError("rtl", address, ETIMEDOUT, "the chip does not answer");
    }
  }
}

U32 RtlSwitch::read(U32 address) {
  order(Order::read, address, 0, 0);
  return mailbox_->value;
}

void RtlSwitch::write(U32 address, U32 value) { order(Order::write, address, value, 0); }

void RtlSwitch::doClocks(U32 clocks) { order(Order::clocks, 0, clocks, 0); }

void RtlSwitch::doFlip(U32 address, U64 bits) { order(Order::flip, address, 0, bits); }

State RtlSwitch::state() {
  order(Order::probe, 0, 0, 0);
  State state;
  std::copy_n(mailbox_->table, tableWords, state.table.begin());
  std::copy_n(mailbox_->registers, registerCount, state.registers.begin());
  std::copy_n(mailbox_->totals, state.totals.size(), state.totals.begin());
  return state;
}

U32 RtlSwitch::readsOf(U32 address) const { return mailbox_->reads[wordOf(address)]; }
U32 RtlSwitch::writesOf(U32 address) const { return mailbox_->writes[wordOf(address)]; }

}  // namespace Rtl
