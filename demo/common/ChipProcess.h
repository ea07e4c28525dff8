// The chip: a process of its own, started and ended from here, that shares its registers.
//
//   ChipProcess chip(1);                        // errors come from this seed
//   chip.control().flipsPerSecond = 50;
//   ...
//   const bool orderly = chip.end();            // the log of errors is complete now
#pragma once

#include <sys/types.h>

#include <string>

#include "demo/common/ControlBlock.h"
#include "demo/common/SharedMemory.h"
#include "demo/common/SwitchLayout.h"

namespace Demo {

class ChipProcess {
 public:
  // Starts the program and waits until it has its registers. Raises std::runtime_error
  // (std::system_error where a call failed).
  explicit ChipProcess(U32 seed, std::string program = besideThisProgram());
  ~ChipProcess() { end(); }
  ChipProcess(const ChipProcess&) = delete;
  ChipProcess& operator=(const ChipProcess&) = delete;

  // umbra-chip in the folder of the program that is running.
  static std::string besideThisProgram();

  const SharedFolder& folder() const { return folder_; }
  // Call it when everything that maps the files has done so.
  void folderDel() { folder_.remove(); }
  ControlBlock& control() { return *static_cast<ControlBlock*>(control_.data()); }
  // The registers as they are in the file, by index: another way to them than the library's.
  const volatile U32* registers() const {
    return static_cast<const volatile U32*>(registers_.data());
  }

  pid_t id() const { return id_; }
  bool isRunning();
  // No flip happens afterwards. True when the process ended by itself and in order, so that each
  // flip it made is in the log.
  bool end();

 private:
  void reap(int status);

  SharedFolder folder_;
  SharedMemory registers_;
  SharedMemory control_;
  pid_t id_ = -1;
  bool isEnded_ = false;
  bool isOrderly_ = false;
};

}  // namespace Demo
