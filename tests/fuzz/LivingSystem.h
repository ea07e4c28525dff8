// A small living system, every object of which can be reached by name, and its state as text.
#pragma once

#include <Fru/HamImpl.h>
#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/GenericIf.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "support/ManualLoop.h"

namespace Fuzz {

class LivingSystem {
 public:
  using Object = Zint::Ptr<Zint::PtrInterface>;

  LivingSystem();

  const std::vector<Object>& objects() const { return objects_; }
  const Zint::Ptr<Zint::ActivityConfig>& activity() const { return loop_.activity; }
  Fru::HamImpl& chip() const { return *chip_; }
  // One made by name joins the others; only so many are kept.
  void joined(const Object& object);
  // Every attribute and every member of a collection of every object.
  std::string state() const;
  // Moves the time on and runs what is due.
  void turn(Zint::Seconds time);

 private:
  // A register that was never written holds 0.
  class Registers : public Fru::HamImpl {
   public:
    void read(U32 address, U32* value) override {
      const auto place = registers_.find(address);
      *value = place == registers_.end() ? 0 : place->second;
    }
    void write(U32 address, U32 value) override { registers_[address] = value; }

   private:
    std::unordered_map<U32, U32> registers_;
  };

  Support::ManualLoop loop_;
  Support::ManualLoop otherLoop_;
  const Zint::Ptr<Fru::HamImpl> chip_ = Zint::makePtr<Registers>();
  std::vector<Object> objects_;
};

// The type's members, those of its bases first.
std::vector<const Zint::Member*> membersOf(const Zint::Type& type);

}  // namespace Fuzz
