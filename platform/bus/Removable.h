// A bus whose kernel asks before a device is removed, and waits until it is let go.
#pragma once

#include <Zint/Api.h>

namespace Platform {

class UMBRA_API Removable {
 public:
  // Readable once the removal is asked for, for a loop that waits for descriptors; -1: there is
  // none now.
  virtual int removalDescriptor() const = 0;
  // Whether it was asked for since the device was opened. Does not wait.
  virtual bool isRemovalRequested() = 0;
  // Gives the device back. Accesses fail with ChipAbsent until it has returned.
  virtual void letGo() = 0;

 protected:
  ~Removable() = default;
};

}  // namespace Platform
