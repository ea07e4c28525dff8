// A directory with an observer: what the tests of the directory share.
#pragma once

#include <Hardware/ChipMemoryBogon.h>
#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/RecordingHam.h"

namespace Support {

using Names = std::vector<std::string>;

class DirectoryObserver : public Hardware::ChipMemoryBogon::NotifieeConst {
 public:
  explicit DirectoryObserver(const Hardware::ChipMemoryBogon::Ptr& directory)
      : NotifieeConst(nullptr, Zint::Ptr<const Hardware::ChipMemoryBogon>(directory)) {}
  void onChipMemory(Zint::String8 name) override {
    told.push_back(name.bytes());
    if (notifier() != nullptr) present.push_back(notifier()->chipMemory(name) != nullptr);
    if (also) also();
  }
  void onIsNondestructing() override { told.emplace_back("(going)"); }
  void onNotificationException(Zint::AttributeId attribute) override {
    reported.push_back(attribute);
  }

  Names told;
  std::vector<bool> present;  // whether the name was in the directory when it was told
  std::vector<Zint::AttributeId> reported;
  std::function<void()> also;
};

class DirectoryTest : public testing::Test {
 protected:
  using ChipAddress = Hardware::ChipAddress;
  using ChipHam = Hardware::ChipHam;
  using ChipMemory = Hardware::ChipMemory;
  using ChipMemoryBogon = Hardware::ChipMemoryBogon;
  using Observer = DirectoryObserver;

  ChipMemory::Ptr asked(const char* name, U64 address = 0x1000, U32 entries = 8, U32 entrySize = 4,
                        U32 stride = 4) {
    return directory->chipMemoryIs(name, ChipAddress(address), entries, entrySize, stride, ham);
  }
  // The message of the name-in-use exception; "" for none.
  template <class Ask>
  static std::string nameInUse(Ask ask) {
    try {
      ask();
    } catch (const Zint::NameInUseException& exception) {
      return exception.what();
    }
    return "";
  }
  static std::string refusal(const std::string& attribute, const std::string& passed,
                             const std::string& held) {
    return "Reinstantiating the pointer interface where constructor parameter attribute " +
           attribute + " has a different value of " + passed + " than the current value of " +
           held + " not allowed";
  }
  Names walked() const {
    Names names;
    for (auto it = directory->chipMemoryIteratorConst(); it; ++it) {
      names.push_back(it->name().bytes());
    }
    return names;
  }

  const ChipHam::Ptr ham = Zint::makePtr<RecordingHam>("ham");
  ChipMemoryBogon::Ptr directory = Hardware::chipMemoryBogonFactory("switch");
  Zint::Ptr<Observer> observer = Zint::makePtr<Observer>(directory);
};

}  // namespace Support
