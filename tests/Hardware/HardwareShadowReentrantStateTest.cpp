// States that are set while another state is announced or acted on. The rule: each action finds
// what the one before it left, as if the states had been set one after the other.
#include <Hardware/ChipReader.h>

#include <array>
#include <sstream>

#include "support/ShadowTest.h"

namespace {

using ShadowState = Hardware::HardwareShadow::State;

using Support::auditingState;
using Support::configuredState;
using Support::idleState;
using Support::unconfiguredState;
constexpr std::array allStates{unconfiguredState, configuredState, idleState, auditingState};

// Whose notification sets the states.
enum class Place { state, entriesUnderAudit, command, members };
constexpr std::array statePlaces{Place::state, Place::entriesUnderAudit, Place::command,
                                 Place::members};

std::string placeName(Place place) {
  constexpr std::array names{"state", "entriesUnderAudit", "command", "members"};
  return names.at(static_cast<std::size_t>(place));
}

class HardwareShadowReentrantState : public Support::ShadowTest {
 protected:
  using Handler = std::function<void(Place)>;

  class ShadowWatch : public HardwareShadow::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onState() override { handler(Place::state); }
    void onChipMemoryEntriesUnderAudit() override { handler(Place::entriesUnderAudit); }
    Handler handler;
  };
  class RequestWatch : public ChipReadRequest::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onState() override { handler(Place::command); }
    void onChipMemory() override { handler(Place::members); }
    Handler handler;
  };

  // One shadow with a reader, three regions of which two are audited, and watches.
  struct System {
    explicit System(HardwareShadowReentrantState& test)
        : shadow(Hardware::hardwareShadowFactory(loop.activity, loop.clock)),
          first(test.audited("first", 0x1000, 16)),
          second(test.audited("second", 0x2000, 5)),
          third(test.shadowed("third", 0x3000, 3)) {
      for (const auto& cm : {first, second, third}) shadow->chipMemoryIs(cm);
      shadow->stateIs(configuredState);
      reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock, 4,
                                           0.0);
    }
    void watch(const Handler& handler) {
      shadowWatch = Zint::makePtr<ShadowWatch>(loop.activity, shadow);
      shadowWatch->handler = handler;
      requestWatch = Zint::makePtr<RequestWatch>(loop.activity, shadow->auditReadRequest());
      requestWatch->handler = handler;
    }
    void unwatch() {
      if (shadowWatch) shadowWatch->handler = [](Place) {};
      if (requestWatch) requestWatch->handler = [](Place) {};
    }
    // What can be seen of it, as text.
    std::string seen() const {
      std::ostringstream text;
      text << shadow->state() << " chunks " << shadow->nextIndex() << " members "
           << shadow->auditReadRequest()->chipMemorys() << " entries "
           << shadow->chipMemoryEntriesUnderAudit() << " audits " << shadow->audits() << " last "
           << (shadow->lastChipMemory() != nullptr) << " found "
           << (shadow->findChipMemory(ChipAddress(0x2004), 4) != nullptr);
      shadow->lastChipMemoryIs(nullptr);
      // unconfigured leaves the clock as it is: a wake-up starts no pass then.
      if (shadow->state() != unconfiguredState) text << " wake " << loop.activity->wakeTime();
      return text.str();
    }
    U32 entriesOfMembers() const {
      U32 entries = 0;
      const auto request = shadow->auditReadRequest();
      for (auto m = request->chipMemoryIterator(); m; ++m) entries += m->chipMemory()->entries();
      return entries;
    }
    void turns() {
      for (int i = 0; i < 12; ++i) loop.turn();
    }

    Support::ManualLoop loop;
    HardwareShadow::Ptr shadow;
    ChipMemory::Ptr first, second, third;
    Hardware::ChipReader::Ptr reader;
    Zint::Ptr<ShadowWatch> shadowWatch;
    Zint::Ptr<RequestWatch> requestWatch;
  };

  static void reach(System& system, ShadowState state) {
    if (state == unconfiguredState) system.shadow->stateIs(unconfiguredState);
    if (state == auditingState) system.shadow->stateIs(auditingState);
  }

  // `start` -> `action`, with the states of `commands` set by the first notification of `place`.
  // Compared with a second system where they are set afterwards. Returns whether any was set.
  bool check(ShadowState start, ShadowState action, Place place,
             const std::vector<ShadowState>& commands) {
    System reentrant(*this), sequential(*this);
    reach(reentrant, start);
    reach(sequential, start);
    std::vector<ShadowState> set;
    bool isDone = false;
    reentrant.watch([&](Place notified) {
      if (notified != place || isDone) return;
      isDone = true;
      for (const ShadowState command : commands) {
        if (reentrant.shadow->state() != command) set.push_back(command);
        reentrant.shadow->stateIs(command);
      }
    });
    const std::string failed =
        Support::assertedCondition([&] { reentrant.shadow->stateIs(action); });
    reentrant.unwatch();
    const std::string expected = Support::assertedCondition([&] {
      sequential.shadow->stateIs(action);
      for (const ShadowState command : set) sequential.shadow->stateIs(command);
    });

    std::ostringstream what;
    what << start << " -> " << action << " with";
    for (const ShadowState command : commands) what << " " << command;
    what << " set by " << placeName(place);
    EXPECT_EQ(failed, expected) << what.str();
    if (!failed.empty() || failed != expected) return !set.empty();
    EXPECT_EQ(reentrant.seen(), sequential.seen()) << what.str();
    EXPECT_EQ(reentrant.shadow->chipMemoryEntriesUnderAudit(), reentrant.entriesOfMembers())
        << what.str();
    const auto later = [](System& system) {
      return Support::assertedCondition([&] {
        system.turns();
        system.shadow->stateIs(unconfiguredState);
        system.shadow->stateIs(configuredState);
        system.shadow->stateIs(auditingState);
        system.turns();
      });
    };
    EXPECT_EQ(later(reentrant), "") << what.str();
    EXPECT_EQ(later(sequential), "") << what.str();
    EXPECT_EQ(reentrant.seen(), sequential.seen()) << what.str();
    return !set.empty();
  }
};

struct StateChange {
  ShadowState from, to;
};
constexpr std::array transitions{
    StateChange{unconfiguredState, configuredState}, StateChange{idleState, auditingState},
    StateChange{idleState, unconfiguredState}, StateChange{auditingState, idleState},
    StateChange{auditingState, unconfiguredState}};

TEST_F(HardwareShadowReentrantState, oneStateActsAsIfItWereSetAfterwards) {
  int set = 0;
  for (const auto& [from, to] : transitions) {
    for (const Place place : statePlaces) {
      for (const ShadowState command : allStates) set += check(from, to, place, {command});
    }
  }
  EXPECT_EQ(set, 45);
}

TEST_F(HardwareShadowReentrantState, twoStatesActAsIfTheyWereSetAfterwards) {
  for (const auto& [from, to] : transitions) {
    for (const Place place : statePlaces) {
      for (const ShadowState first : allStates) {
        for (const ShadowState second : allStates) check(from, to, place, {first, second});
      }
    }
  }
}

TEST_F(HardwareShadowReentrantState, threeStatesActAsIfTheyWereSetAfterwards) {
  for (const Place place : statePlaces) {
    for (const auto& [from, to] : transitions) {
      check(from, to, place, {unconfiguredState, configuredState, auditingState});
      check(from, to, place, {auditingState, unconfiguredState, configuredState});
      check(from, to, place, {idleState, auditingState, unconfiguredState});
    }
  }
}

// The first configured has no request yet.
TEST_F(HardwareShadowReentrantState, theFirstConfiguredIsActedOnBeforeTheStateThatANotifieeSets) {
  for (const ShadowState command : {unconfiguredState, idleState, auditingState}) {
    shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
    shadow->chipMemoryIs(audited("mac", 0x1000, 16));
    const auto watch = Zint::makePtr<ShadowWatch>(loop.activity, shadow);
    watch->handler = [&](Place place) {
      if (place == Place::state && shadow->state() == configuredState) shadow->stateIs(command);
    };
    shadow->stateIs(configuredState);
    EXPECT_EQ(shadow->state(), command);
    EXPECT_EQ(shadow->nextIndex() != 0, command != unconfiguredState) << command;
    EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), command == unconfiguredState ? 0u : 16u);
  }
}

TEST_F(HardwareShadowReentrantState, auditingSetWhileTheRequestIsEmptiedEndsIdleWithNothingArmed) {
  for (const Place place : statePlaces) {
    System system(*this);
    reach(system, auditingState);
    system.turns();
    bool isDone = false;
    system.watch([&](Place notified) {
      if (notified != place || isDone) return;
      isDone = true;
      system.shadow->stateIs(auditingState);
    });
    system.shadow->stateIs(unconfiguredState);
    EXPECT_TRUE(isDone);
    EXPECT_EQ(system.shadow->state(), idleState) << placeName(place);
    EXPECT_EQ(system.shadow->nextIndex(), 0) << placeName(place);
    EXPECT_EQ(system.shadow->auditReadRequest()->chipMemorys(), 0u) << placeName(place);
    EXPECT_EQ(system.loop.activity->wakeTime(), Zint::never) << placeName(place);
    system.turns();
    EXPECT_EQ(system.shadow->state(), idleState) << placeName(place);
  }
}

TEST_F(HardwareShadowReentrantState, theIndexIsCompleteWhenTheRequestIsFilled) {
  System system(*this);
  reach(system, unconfiguredState);
  std::vector<bool> found;
  system.watch([&](Place place) {
    if (place != Place::members) return;
    found.push_back(system.shadow->findChipMemory(ChipAddress(0x3000), 4) != nullptr);
  });
  system.shadow->stateIs(configuredState);
  EXPECT_EQ(found, (std::vector<bool>{true, true}));
}

TEST_F(HardwareShadowReentrantState, aStateIsAnnouncedAtOnceAndActedOnLater) {
  System system(*this);
  std::vector<std::string> log;
  system.watch([&](Place place) {
    std::ostringstream entry;
    entry << placeName(place) << " " << system.shadow->state() << " "
          << system.shadow->auditReadRequest()->chipMemorys();
    log.push_back(entry.str());
    if (place == Place::command && log.size() == 2) system.shadow->stateIs(configuredState);
  });
  system.shadow->stateIs(unconfiguredState);
  EXPECT_EQ(log,
            (std::vector<std::string>{
                "state unconfigured 2", "command unconfigured 2", "state configured 2",
                "members configured 1", "members configured 0", "entriesUnderAudit configured 0",
                "members configured 1", "members configured 2", "entriesUnderAudit configured 2",
                "state idle 2", "command idle 2"}));
}

TEST_F(HardwareShadowReentrantState, anActionThatThrowsLeavesTheNextStateToBeSet) {
  System system(*this);
  reach(system, auditingState);
  EXPECT_NE(Support::assertedCondition([&] { system.shadow->stateIs(configuredState); }), "");
  EXPECT_EQ(system.shadow->state(), configuredState);
  system.shadow->stateIs(unconfiguredState);
  EXPECT_EQ(system.shadow->auditReadRequest()->chipMemorys(), 0u);
  EXPECT_EQ(system.shadow->nextIndex(), 0);
}

TEST_F(HardwareShadowReentrantState, handleStateByHandActsOnTheState) {
  System system(*this);
  system.shadow->stateIs(auditingState);
  system.turns();
  system.reader = nullptr;
  system.shadow->auditReadRequest()->chipMemoryDelAll();
  trace.full.clear();
  system.shadow->handleState();
  EXPECT_EQ(system.shadow->state(), idleState);
  EXPECT_EQ(trace.taken().front(), (Support::Line{0, "HardwareShadow::handleState( auditing )"}));
}

// --- chipMemoryAuditEnabledIs -------------------------------------------------------------------

TEST_F(HardwareShadowReentrantState, theEntriesUnderAuditAgreeWithTheRequestWhateverANotifieeSets) {
  for (const Place place : {Place::members, Place::entriesUnderAudit}) {
    for (const bool enable : {false, true}) {
      for (const ShadowState first : allStates) {
        for (const ShadowState second : allStates) {
          System system(*this);
          bool isDone = false;
          std::string failed;
          system.watch([&](Place notified) {
            if (notified != place || isDone) return;
            isDone = true;
            failed = Support::assertedCondition([&] {
              system.shadow->stateIs(first);
              system.shadow->stateIs(second);
            });
          });
          system.shadow->chipMemoryAuditEnabledIs(enable ? system.third : system.first, enable);
          EXPECT_TRUE(isDone);
          if (!failed.empty()) continue;  // configured over a filled request
          EXPECT_EQ(system.shadow->chipMemoryEntriesUnderAudit(), system.entriesOfMembers())
              << placeName(place) << " " << enable << " " << first << " " << second;
        }
      }
    }
  }
}

TEST_F(HardwareShadowReentrantState, auditSwitchedWhileTheRequestIsEmptiedLeavesItEmpty) {
  System system(*this);
  bool isDone = false;
  system.watch([&](Place place) {
    if (place != Place::members || isDone) return;
    isDone = true;
    system.shadow->stateIs(idleState);
    system.shadow->chipMemoryAuditEnabledIs(system.third, true);
  });
  system.shadow->stateIs(unconfiguredState);
  EXPECT_TRUE(isDone);
  EXPECT_EQ(system.shadow->auditReadRequest()->chipMemorys(), 0u);
  EXPECT_EQ(system.shadow->chipMemoryEntriesUnderAudit(), 0u);
  system.shadow->stateIs(configuredState);
  EXPECT_EQ(system.shadow->chipMemoryEntriesUnderAudit(), 16u + 5 + 3);
}

TEST_F(HardwareShadowReentrantState, auditSwitchedWhileTheRequestIsFilledIsCountedOnce) {
  for (const bool enable : {false, true}) {
    System system(*this);
    reach(system, unconfiguredState);
    std::vector<U32> counted;
    bool isDone = false;
    system.watch([&](Place place) {
      if (place == Place::entriesUnderAudit) {
        counted.push_back(system.shadow->chipMemoryEntriesUnderAudit());
      }
      if (place != Place::members || isDone) return;
      isDone = true;
      system.shadow->stateIs(idleState);
      system.shadow->chipMemoryAuditEnabledIs(enable ? system.third : system.first, enable);
    });
    system.shadow->stateIs(configuredState);
    EXPECT_EQ(counted, std::vector<U32>{enable ? 16u + 5 + 3 : 5u});
    EXPECT_EQ(system.entriesOfMembers(), counted.front());
  }
}

}  // namespace
