// The shadow is dropped at every step of a running audit: nothing stray reaches anybody, and what
// it held goes exactly once.
#include <Hardware/ChipReader.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "support/ShadowTest.h"

namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::ChipReader;
using Hardware::ChipReadRequest;
using Hardware::HardwareShadow;
using Step = std::function<void()>;

// Calls a step for whatever its notifier announces; does not keep it.
template <class Base>
class StepWatch : public Base {
 public:
  template <class Notifier>
  StepWatch(const Zint::Ptr<Zint::ActivityConfig>& activity, const Notifier& notifier, Step step)
      : Base(activity, notifier), step_(std::move(step)) {
    this->isNonReferencingIs(true);
  }
  void handleNotification(Zint::ActivityConfig*) override { step_(); }

 private:
  Step step_;
};

template <class C, class Held>
Zint::Ptr<Zint::NotifieeConst> watched(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                       const Zint::Ptr<Held>& notifier, Step step) {
  return Zint::makePtr<StepWatch<typename C::NotifieeConst>>(activity, Zint::Ptr<const C>(notifier),
                                                             std::move(step));
}

enum What { theShadow, theReader, everything };

// Two regions on two memory ids, of which one entry is damaged, audited in slices of three entries.
// `step` numbers everything that happens; at the chosen one `dropped` is let go.
class World {
 public:
  World(What dropped, int at) : dropped_(dropped), at_(at) {
    shadow->chipMemoryIs(region("mac", 0x1000, 4));
    shadow->chipMemoryIs(region("acl", 0x100002000, 3));
    shadow->stateIs(HardwareShadow::configured());
    reader =
        Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock, 3, 0.5);
    for (U16 i = 0; i < shadow->nextIndex(); ++i) {
      watches_.push_back(watched<Zint::Entity>(loop.activity, shadow->chipMemoryChunkArray(i),
                                               [this] { ++chunksEnded; }));
    }
    const auto passed = [this] { stepPassed(); };
    watches_.push_back(watched<HardwareShadow>(loop.activity, shadow, passed));
    watches_.push_back(watched<ChipReader>(loop.activity, reader, passed));
    watches_.push_back(watched<ChipReadRequest>(loop.activity, shadow->auditReadRequest(), passed));
    for (auto it = shadow->chipMemoryIterator(); it; ++it) {
      watches_.push_back(watched<ChipMemory>(loop.activity, it->chipMemory(), passed));
    }
    chip->beforeAccess = [passed](Support::Access::Kind, U32) { passed(); };
  }

  // Eight turns: two passes and the half of a third.
  void run() {
    chip->registers[0x1004] = 0xbad;
    shadow->stateIs(HardwareShadow::auditing());
    stepPassed();
    for (int turn = 1; turn <= 8; ++turn) {
      loop.turnAt(0.5 * turn);
      if (isDropped && shadowLinesAtDrop < 0) shadowLinesAtDrop = shadowLines();
      stepPassed();
      if (isDropped && shadowLinesAtDrop < 0) shadowLinesAtDrop = shadowLines();
    }
  }
  int shadowLines() const {
    return static_cast<int>(
        std::count_if(trace.full.begin(), trace.full.end(),
                      [](const auto& line) { return line.text.starts_with("HardwareShadow::"); }));
  }

  Support::TraceCapture trace{0};
  Support::ManualLoop loop;
  Zint::Ptr<Support::RecordingRegisters> chip = Zint::makePtr<Support::RecordingRegisters>();
  HardwareShadow::Ptr shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
  ChipReader::Ptr reader;
  int steps = 0;
  int chunksEnded = 0;
  bool isDropped = false;
  int shadowLinesAtDrop = -1;  // traced by the end of the turn in which it was dropped

 private:
  ChipMemory::Ptr region(const char* name, U64 address, U32 entries) {
    const auto cm = Hardware::chipMemoryFactory(name, ChipAddress(address), entries, 4, 4,
                                                Hardware::genericChipHamFactory(name, chip));
    cm->shadowEnabledIs(true);
    cm->auditEnabledIs(true);
    cm->doClear();
    return cm;
  }
  void stepPassed() {
    if (steps++ != at_) return;
    isDropped = true;
    if (dropped_ != theReader) shadow = nullptr;
    if (dropped_ != theShadow) reader = nullptr;
    if (dropped_ == everything) {
      watches_.erase(watches_.begin() + 2, watches_.end());  // those of the chunks stay
      chip = nullptr;
    }
  }

  const What dropped_;
  const int at_;
  std::vector<Zint::Ptr<Zint::NotifieeConst>> watches_;
};

int stepsOfAnAudit() {
  World whole(theShadow, -1);
  whole.run();
  EXPECT_EQ(whole.shadow->audits(), 2u);
  EXPECT_EQ(whole.shadow->chipMemory(ChipAddress(0x1000))->registersFixed(), 1u);
  return whole.steps;
}

TEST(TeardownAtEveryStep, theShadow_isHeardOfNoMoreAndReleasesItsChunksOnce) {
  const int steps = stepsOfAnAudit();
  ASSERT_GT(steps, 40);
  for (int at = 0; at < steps; ++at) {
    SCOPED_TRACE(at);
    World world(theShadow, at);
    world.run();
    ASSERT_TRUE(world.isDropped);
    EXPECT_EQ(world.chunksEnded, 2);
    EXPECT_EQ(world.shadowLines(), world.shadowLinesAtDrop);
    // The reader ends what it has begun and asks for no more.
    EXPECT_EQ(world.reader->currentChipMemory(), nullptr);
    EXPECT_EQ(world.loop.activity->wakeTime(), Zint::never);
  }
}

TEST(TeardownAtEveryStep, theReader_leavesAShadowThatCanStartAgain) {
  const int steps = stepsOfAnAudit();
  for (int at = 0; at < steps; ++at) {
    SCOPED_TRACE(at);
    World world(theReader, at);
    world.run();
    ASSERT_TRUE(world.isDropped);
    EXPECT_EQ(world.chunksEnded, 0);
    const U32 audits = world.shadow->audits();
    world.shadow->stateIs(HardwareShadow::idle());
    world.reader = Hardware::chipReaderFactory(
        world.loop.activity, world.shadow->auditReadRequest(), world.loop.clock, 100, 0.5);
    world.shadow->stateIs(HardwareShadow::auditing());
    world.loop.turn();
    world.loop.turn();
    EXPECT_EQ(world.shadow->audits(), audits + 1);
    EXPECT_EQ(world.chip->registers[0x1004], 0u);
  }
}

TEST(TeardownAtEveryStep, everything_goesWithoutATrace) {
  const int steps = stepsOfAnAudit();
  for (int at = 0; at < steps; ++at) {
    SCOPED_TRACE(at);
    World world(everything, at);
    world.run();
    ASSERT_TRUE(world.isDropped);
    EXPECT_EQ(world.chunksEnded, 2);
    EXPECT_EQ(world.shadowLines(), world.shadowLinesAtDrop);
    EXPECT_EQ(world.loop.activity->wakeTime(), Zint::never);
  }
}

// --- The steps one by one ---

class TeardownDuringAudit : public Support::ShadowTest {
 protected:
  class Watch : public HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onState() override {
      if (onStateStep) onStateStep();
    }
    void onAudits() override {
      if (onAuditsStep) onAuditsStep();
    }
    Step onStateStep, onAuditsStep;
  };

  void SetUp() override {
    mac->doClear();
    configure({mac});
    request = shadow->auditReadRequest();
    reader = Hardware::chipReaderFactory(loop.activity, request, loop.clock, 2, 1);
  }
  // The lines of the shadow since the last call.
  std::vector<std::string> shadowLines() {
    std::vector<std::string> lines;
    for (const Support::Line& line : trace.taken()) {
      if (line.text.starts_with("HardwareShadow::")) lines.push_back(line.text);
    }
    return lines;
  }
  void turns(int count) {
    for (int i = 0; i < count; ++i) loop.turnAt(loop.clock->time() + 1);
  }

  ChipMemory::Ptr mac = audited("mac", 0x1000, 6);
  ChipReadRequest::Ptr request;
  ChipReader::Ptr reader;
};

TEST_F(TeardownDuringAudit, withTheClockArmed) {
  shadow->stateIs(HardwareShadow::auditing());
  EXPECT_EQ(loop.activity->wakeTime(), 0.0);
  shadowLines();
  shadow = nullptr;
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  turns(3);
  EXPECT_THAT(shadowLines(), testing::IsEmpty());
  EXPECT_THAT(chip->taken(), testing::IsEmpty());
}

TEST_F(TeardownDuringAudit, inTheMiddleOfASlice_theReaderEndsItAlone) {
  shadow->stateIs(HardwareShadow::auditing());
  turns(1);
  shadowLines();
  chip->beforeAccess = [&](Support::Access::Kind, U32 address) {
    if (address == 0x100c) shadow = nullptr;
  };
  turns(5);
  EXPECT_EQ(shadow, nullptr);
  EXPECT_EQ(chip->taken().size(), 6u);
  EXPECT_EQ(request->status(), 3);
  EXPECT_EQ(request->notifiees(), 1u);  // the reader's
  EXPECT_THAT(shadowLines(), testing::IsEmpty());
}

TEST_F(TeardownDuringAudit, insideAHandlerOfAudits_theClockStaysDisarmed) {
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->isNonReferencingIs(true);
  watch->onAuditsStep = [&] { shadow = nullptr; };
  shadow->stateIs(HardwareShadow::auditing());
  turns(5);
  EXPECT_EQ(watch->notifier(), nullptr);
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
  EXPECT_EQ(mac->references(), 2u);  // this test's and the request's
}

TEST_F(TeardownDuringAudit, insideAHandlerOfState_theChangeIsCarriedOut) {
  shadow->stateIs(HardwareShadow::auditing());
  turns(2);
  const auto watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->isNonReferencingIs(true);
  watch->onStateStep = [&] { shadow = nullptr; };
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(watch->notifier(), nullptr);
  EXPECT_EQ(request->state(), 2);
  EXPECT_EQ(reader->currentChipMemory(), nullptr);
}

TEST_F(TeardownDuringAudit, insideAHandler_thatHoldsTheLastReferenceAndDropsItself) {
  Zint::Ptr<Watch> watch = Zint::makePtr<Watch>(loop.activity, shadow);
  watch->onAuditsStep = [&] { watch = nullptr; };
  shadow->stateIs(HardwareShadow::auditing());
  shadow = nullptr;  // the watch holds it
  turns(5);
  EXPECT_EQ(watch, nullptr);
  EXPECT_EQ(mac->references(), 2u);  // this test's and the request's
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(TeardownDuringAudit, insideARepair_thePassIsCarriedOut) {
  chip->registers = {{0x1004, 7}, {0x1010, 8}};
  chip->beforeAccess = [&](Support::Access::Kind kind, U32) {
    if (kind == Support::Access::write) shadow = nullptr;
  };
  shadow->stateIs(HardwareShadow::auditing());
  turns(5);
  EXPECT_EQ(shadow, nullptr);
  EXPECT_EQ(mac->registersFixed(), 2u);
  EXPECT_EQ(chip->registers[0x1004], 0u);
  EXPECT_EQ(chip->registers[0x1010], 0u);
  EXPECT_EQ(mac->references(), 2u);  // this test's and the request's
  EXPECT_EQ(loop.activity->wakeTime(), Zint::never);
}

TEST_F(TeardownDuringAudit, insideARepair_toUnconfigured) {
  chip->registers = {{0x1004, 7}, {0x1010, 8}};
  chip->beforeAccess = [&](Support::Access::Kind kind, U32) {
    if (kind == Support::Access::write) shadow->stateIs(HardwareShadow::unconfigured());
  };
  shadow->stateIs(HardwareShadow::auditing());
  turns(5);
  EXPECT_EQ(shadow->state(), HardwareShadow::unconfigured());
  EXPECT_EQ(shadow->chipMemoryChunks(), 0u);
  EXPECT_EQ(request->chipMemorys(), 0u);
}

TEST_F(TeardownDuringAudit, insideARepair_everyRegionLeavesTheRegistry) {
  chip->registers = {{0x1004, 7}};
  chip->beforeAccess = [&](Support::Access::Kind kind, U32) {
    if (kind == Support::Access::write) shadow->chipMemoryDelAll();
  };
  shadow->stateIs(HardwareShadow::auditing());
  turns(4);
  EXPECT_EQ(shadow->chipMemorys(), 0u);
  EXPECT_EQ(shadow->audits(), 1u);
  EXPECT_EQ(found(0x1000), mac);
}

}  // namespace
