// The audit, with the activity, the shadow and the reader each on a clock of its own kind.
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <gmock/gmock.h>
#include <support/RecordingHam.h>
#include <time/Kit.h>

#include <tuple>

namespace {

using namespace Time;
using Hardware::ChipMemory;
using Hardware::ChipReader;
using Hardware::HardwareShadow;

constexpr Seconds interval = 0.2;

enum class Kind { manual, ahead, belowZero, jumpsBack };

class PassStarts : public HardwareShadow::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onLastAuditStartTime() override { starts.push_back(notifier()->clock()->time()); }
  std::vector<Seconds> starts;
};

// A test's clock of any kind.
struct AnyClock {
  explicit AnyClock(Kind of)
      : kind(of),
        manual(Zint::manualClockFactory("manual")),
        settable(makePtr<SettableClock>(of == Kind::belowZero ? -1000.0 : 5000.0)) {}
  ClockPtr clock() const { return kind == Kind::manual ? ClockPtr(manual) : ClockPtr(settable); }
  void pass(Seconds seconds) const {
    kind == Kind::manual ? manual->timeIs(manual->time() + seconds)
                         : settable->passTo(settable->time() + seconds);
  }
  void jump() const {
    if (kind == Kind::jumpsBack) settable->jumpTo(settable->time() - 1.0);
  }

  Kind kind;
  Ptr<Zint::ManualClock> manual;
  Ptr<SettableClock> settable;
};

struct World {
  World(Kind own, Kind shadows, Kind readers)
      : clocks{AnyClock(own), AnyClock(shadows), AnyClock(readers)} {
    shadow->minIntervalBetweenAuditsIs(interval);
    region->shadowEnabledIs(true);
    region->auditEnabledIs(true);
    shadow->chipMemoryIs(region);
    shadow->stateIs(HardwareShadow::configured());
    reader->requestIs(shadow->auditReadRequest());
  }
  void pass(Seconds seconds) const {
    for (const AnyClock& clock : clocks) clock.pass(seconds);
  }

  std::vector<AnyClock> clocks;  // the activity's, the shadow's, the reader's
  Ptr<Zint::ActivityConfig> activity = Zint::activityFactory("activity", clocks[0].clock());
  Ptr<Support::RecordingHam> ham = makePtr<Support::RecordingHam>();
  ChipMemory::Ptr region =
      Hardware::chipMemoryFactory("region", Hardware::ChipAddress(0x1000), 4, 4, 4, ham);
  HardwareShadow::Ptr shadow = Hardware::hardwareShadowFactory(activity, clocks[1].clock());
  ChipReader::Ptr reader =
      Hardware::chipReaderFactory(activity, nullptr, clocks[2].clock(), 1, 0.01);
};

struct AuditOnClocks : testing::TestWithParam<std::tuple<Kind, Kind, Kind>> {};

TEST_P(AuditOnClocks, passesAreCompletedAndNoneStartsBeforeTheInterval) {
  const auto [own, shadows, readers] = GetParam();
  const World w(own, shadows, readers);
  const auto passes = makePtr<PassStarts>(w.activity, w.shadow);
  // Comes first in each turn, and takes its time.
  const Ptr<Sleeper> slow = sleeper(w.activity, w.clocks[0].clock());
  slow->reaction = [&] {
    w.pass(0.15);
    slow->timeMinIs(0.0);
  };
  slow->timeMinIs(0.0);
  w.shadow->stateIs(HardwareShadow::auditing());
  unsigned turns = 0;
  for (; w.shadow->audits() < 4 && turns < 1000; ++turns) {
    if (turns == 20) {
      for (const AnyClock& clock : w.clocks) clock.jump();
    }
    ASSERT_EQ(w.shadow->state(), HardwareShadow::auditing());
    ASSERT_LE(w.activity->wakeTime(), w.clocks[0].clock()->time()) << "the slow one is due";
    w.activity->turn();
    w.pass(0.005);
  }
  EXPECT_EQ(w.shadow->audits(), 4u) << "after " << turns << " turns";
  ASSERT_GE(passes->starts.size(), 4u);
  for (std::size_t i = 1; i < passes->starts.size(); ++i) {
    EXPECT_GE(passes->starts[i], passes->starts[i - 1] + interval) << i;
  }
}

TEST_P(AuditOnClocks, everyWakeUpOfThePassesIsReported) {
  const auto [own, shadows, readers] = GetParam();
  const World w(own, shadows, readers);
  w.shadow->stateIs(HardwareShadow::auditing());
  for (unsigned turns = 0; w.shadow->audits() < 2 && turns < 10'000; ++turns) {
    const Seconds time = w.clocks[0].clock()->time();
    const bool isDue = w.activity->wakeTime() <= time;
    if (isDue) {
      ASSERT_TRUE(becomesReadable(*w.activity));
    }
    ASSERT_EQ(w.activity->turn() > 0, isDue) << "turn " << turns;
    w.pass(0.004);
  }
  EXPECT_EQ(w.shadow->audits(), 2u);
}

TEST_P(AuditOnClocks, lastFixTime_isNotBeforeTheRepair) {
  const auto [own, shadows, readers] = GetParam();
  const World w(own, shadows, readers);
  U8 value[4] = {1, 2, 3, 4};
  w.shadow->shadowWriteAndCompareWithCache(w.region, 2, value, 4);
  Seconds read = 0;
  w.ham->onAccess = [&](const Support::HamAccess& access, U8* buffer) {
    if (access.kind != Support::HamAccess::read) return;
    std::fill(buffer, buffer + 4, U8{0});
    w.pass(0.5);
    read = w.clocks[2].clock()->time();
  };
  w.shadow->stateIs(HardwareShadow::auditing());
  for (unsigned turns = 0; w.region->registersFixed() == 0 && turns < 100; ++turns) {
    w.activity->turn();
    w.pass(0.05);
    if (w.shadow->audits() == 0) continue;
  }
  ASSERT_EQ(w.region->registersFixed(), 1u);
  EXPECT_EQ(w.region->lastFixTime(), read) << "the reader's clock was served";
}

TEST_P(AuditOnClocks, replacingTheClocksGoesOn) {
  const auto [own, shadows, readers] = GetParam();
  World w(Kind::manual, Kind::manual, Kind::manual);
  w.shadow->stateIs(HardwareShadow::auditing());
  w.activity->turn();
  w.clocks[2] = AnyClock(readers);
  w.reader->clockIs(w.clocks[2].clock());
  w.clocks[1] = AnyClock(shadows);
  w.shadow->clockIs(w.clocks[1].clock());
  for (unsigned turns = 0; w.shadow->audits() == 0 && turns < 100; ++turns) {
    w.pass(0.01);
    w.activity->turn();
  }
  EXPECT_EQ(w.shadow->audits(), 1u);
}

constexpr Kind kinds[] = {Kind::manual, Kind::ahead, Kind::belowZero, Kind::jumpsBack};
INSTANTIATE_TEST_SUITE_P(Kinds, AuditOnClocks,
                         testing::Combine(testing::ValuesIn(kinds), testing::ValuesIn(kinds),
                                          testing::ValuesIn(kinds)));

// A shadow and a reader that a client has derived.
class CountingShadow : public HardwareShadow {
 public:
  using HardwareShadow::HardwareShadow;
  void doFixBadRegister(const ChipMemory::Ptr&, U32, U8*) override { ++repairs; }
  unsigned repairs = 0;
};
class CountingReader : public ChipReader {
 public:
  using ChipReader::ChipReader;
  void doRead() override {
    ++slices;
    ChipReader::doRead();
  }
  unsigned slices = 0;
};

TEST(FactoryOf, aDerivedShadowAndReaderAudit) {
  const auto clock = Zint::manualClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", ClockPtr(clock));
  const auto ham = makePtr<Support::RecordingHam>();
  const auto region =
      Hardware::chipMemoryFactory("region", Hardware::ChipAddress(0x1000), 4, 4, 4, ham);
  region->shadowEnabledIs(true);
  region->auditEnabledIs(true);
  const Ptr<CountingShadow> shadow =
      Hardware::hardwareShadowFactoryOf<CountingShadow>(activity, ClockPtr(clock));
  shadow->chipMemoryIs(region);
  shadow->stateIs(HardwareShadow::configured());
  const Ptr<CountingReader> reader = Hardware::chipReaderFactoryOf<CountingReader>(
      activity, shadow->auditReadRequest(), ClockPtr(clock), 2u, 0.5);
  U8 value[4] = {1, 2, 3, 4};
  shadow->shadowWriteAndCompareWithCache(region, 2, value, 4);
  shadow->stateIs(HardwareShadow::auditing());
  for (int i = 0; i < 4; ++i) {
    activity->turn();
    clock->timeIs(clock->time() + 0.5);
  }
  EXPECT_EQ(shadow->audits(), 1u);
  EXPECT_EQ(shadow->repairs, 1u);
  EXPECT_EQ(reader->slices, 2u);
}

}  // namespace
