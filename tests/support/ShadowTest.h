// The base of the shadow's and the reader's tests: a shadow on a manual clock, a chip of recording
// registers, and regions on it.
#pragma once

#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Assert.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/Buffers.h"
#include "support/Death.h"
#include "support/ManualLoop.h"
#include "support/RecordingRegisters.h"
#include "support/ScriptedHam.h"
#include "support/TraceCapture.h"

namespace Support {

// The shadow's states and a region's modes, in words short enough for tables.
constexpr auto unconfiguredState = Hardware::HardwareShadow::unconfigured();
constexpr auto configuredState = Hardware::HardwareShadow::configured();
constexpr auto idleState = Hardware::HardwareShadow::idle();
constexpr auto auditingState = Hardware::HardwareShadow::auditing();
constexpr auto normalMode = Hardware::ChipMemory::normal();
constexpr auto overrideMode = Hardware::ChipMemory::override();
constexpr auto bufferedMode = Hardware::ChipMemory::buffered();

// Runs the statement until an assertion fails in it, and returns the condition; "" for none. The
// operation is left half done: for looking at what happened before.
inline std::string assertedCondition(const std::function<void()>& statement) {
  const Zint::AssertionHook before = Zint::assertionHookIs(
      [](const Zint::AssertionFailure& failure) { throw std::string(failure.condition); });
  std::string condition;
  try {
    statement();
  } catch (const std::string& failed) {
    condition = failed;
  }
  Zint::assertionHookIs(before);
  return condition;
}

// The text of the exception that the statement raises; "" for none.
inline std::string exceptionText(const std::function<void()>& statement) {
  try {
    statement();
  } catch (const Zint::RangeException& exception) {
    return exception.what();
  }
  return "";
}

class ShadowTest : public testing::Test {
 protected:
  using ChipAddress = Hardware::ChipAddress;
  using ChipMemory = Hardware::ChipMemory;
  using ChipReadRequest = Hardware::ChipReadRequest;
  using HardwareShadow = Hardware::HardwareShadow;

  // A stride of 0 stands for the entry size.
  ChipMemory::Ptr region(const char* name, U64 address, U32 entries, U32 entrySize = 4,
                         U32 stride = 0) {
    return Hardware::chipMemoryFactory(name, ChipAddress(address), entries, entrySize,
                                       stride == 0 ? entrySize : stride, ham);
  }
  ChipMemory::Ptr shadowed(const char* name, U64 address, U32 entries, U32 entrySize = 4,
                           U32 stride = 0) {
    const ChipMemory::Ptr cm = region(name, address, entries, entrySize, stride);
    cm->shadowEnabledIs(true);
    return cm;
  }
  ChipMemory::Ptr audited(const char* name, U64 address, U32 entries, U32 entrySize = 4,
                          U32 stride = 0) {
    const ChipMemory::Ptr cm = shadowed(name, address, entries, entrySize, stride);
    cm->auditEnabledIs(true);
    return cm;
  }
  // Registers the regions, configures the shadow and forgets the trace of it.
  void configure(const std::vector<ChipMemory::Ptr>& regions) {
    for (const ChipMemory::Ptr& cm : regions) shadow->chipMemoryIs(cm);
    shadow->stateIs(HardwareShadow::configured());
    trace.full.clear();
  }
  bool write(const ChipMemory::Ptr& cm, U32 entry, U32 value) {
    return shadow->shadowWriteAndCompareWithCache(cm, entry, reinterpret_cast<U8*>(&value), 4);
  }
  ChipMemory::Ptr found(U64 address, U32 size = 4) {
    return shadow->findChipMemory(ChipAddress(address), size);
  }

  TraceCapture trace;
  ManualLoop loop;
  Zint::Ptr<RecordingRegisters> chip = Zint::makePtr<RecordingRegisters>();
  Hardware::ChipHam::Ptr ham = Hardware::genericChipHamFactory("ham", chip);
  ScriptedHam::Ptr scripted = Zint::makePtr<ScriptedHam>();
  HardwareShadow::Ptr shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
};

using Lines = std::vector<Line>;
using Entries = std::vector<U32>;

}  // namespace Support
