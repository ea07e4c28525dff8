// What changes of mode, entries and flags do to a region's buffers, and the write-back.
#include <Hardware/ChipMemory.h>
#include <Zint/Activity.h>

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <sstream>
#include <utility>
#include <vector>

#include "support/Buffers.h"
#include "support/Death.h"
#include "support/RecordingHam.h"
#include "support/TraceCapture.h"

namespace Hardware {
namespace {

using Support::bytes;
using Support::HamAccess;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// Notes the virtual operations through which the buffers are installed, and what held meanwhile.
class NotingRegion : public ChipMemory {
 public:
  using ChipMemory::ChipMemory;
  void handleShadowStoreNeeded() override {
    std::ostringstream note;
    note << "store(" << mode() << "," << entries() << "," << shadowEnabled() << ")";
    notes.push_back(note.str());
    ChipMemory::handleShadowStoreNeeded();
  }
  void shadowIs(const Hal::BufBase::Ptr& buffer) override {
    notes.push_back(buffer == nullptr ? "shadow null" : "shadow");
    ChipMemory::shadowIs(buffer);
  }
  void dirtyIs(const Hal::BufBase::Ptr& buffer) override {
    notes.push_back(buffer == nullptr ? "dirty null" : "dirty");
    ChipMemory::dirtyIs(buffer);
  }
  void initializedIs(const Hal::BufBase::Ptr& buffer) override {
    notes.push_back(buffer == nullptr ? "initialized null" : "initialized");
    ChipMemory::initializedIs(buffer);
  }
  void hardwareIs(const Hal::Buf::Ptr& buffer) override {
    notes.push_back("hardware");
    ChipMemory::hardwareIs(buffer);
  }
  std::vector<std::string> taken() { return std::exchange(notes, {}); }
  std::vector<std::string> notes;
};

class ModesObserver : public ChipMemory::NotifieeConst {
 public:
  explicit ModesObserver(const ChipMemory::Ptr& region)
      : NotifieeConst(nullptr, Zint::Ptr<const ChipMemory>(region)) {}
  void handleNotification(Zint::ActivityConfig*) override { told.push_back(attribute()); }
  std::vector<Zint::AttributeId> told;
};

class ChipMemoryModes : public testing::Test {
 protected:
  const Zint::Ptr<Support::RecordingHam> ham = Zint::makePtr<Support::RecordingHam>();
  Zint::Ptr<NotingRegion> table =
      Zint::makePtr<NotingRegion>("table", ChipAddress(1, 0x100), 10, 4, 0x10, ham);
};

// --- The table of modes ------------------------------------------------------------------------

struct Store {
  ChipMemory::ChipMemoryMode mode;
  bool shadowEnabled;
  bool present;
};

class ChipMemoryStore : public ChipMemoryModes, public testing::WithParamInterface<Store> {
 protected:
  void expectStore() const {
    EXPECT_EQ(table->shadowStoreNeeded(), GetParam().present);
    EXPECT_EQ(table->shadow() != nullptr, GetParam().present);
    EXPECT_EQ(table->dirty() != nullptr, GetParam().present);
    EXPECT_EQ(table->initialized() != nullptr, GetParam().present);
  }
};

TEST_P(ChipMemoryStore, isPresentExactlyWhileNeeded_modeSetLast) {
  table->shadowEnabledIs(GetParam().shadowEnabled);
  table->modeIs(GetParam().mode);
  expectStore();
}

TEST_P(ChipMemoryStore, isPresentExactlyWhileNeeded_flagSetLast) {
  table->shadowEnabledIs(!GetParam().shadowEnabled);
  table->modeIs(GetParam().mode);
  table->shadowEnabledIs(GetParam().shadowEnabled);
  expectStore();
}

TEST_P(ChipMemoryStore, isPresentExactlyWhileNeeded_afterAChangeOfEntries) {
  table->shadowEnabledIs(GetParam().shadowEnabled);
  table->modeIs(GetParam().mode);
  table->entriesIs(33);
  expectStore();
  if (GetParam().present) {
    EXPECT_EQ(table->shadow()->size(), 132u);
    EXPECT_EQ(table->dirty()->size(), 5u);
    EXPECT_EQ(table->initialized()->size(), 5u);
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, ChipMemoryStore,
                         testing::Values(Store{ChipMemory::normal_, false, false},
                                         Store{ChipMemory::normal_, true, true},
                                         Store{ChipMemory::override_, false, false},
                                         Store{ChipMemory::override_, true, false},
                                         Store{ChipMemory::buffered_, false, false},
                                         Store{ChipMemory::buffered_, true, true}));

// --- Triggers and their order ------------------------------------------------------------------

TEST_F(ChipMemoryModes, buffersAreInstalledThroughTheVirtualSettersInOrder) {
  table->shadowEnabledIs(true);
  EXPECT_THAT(table->taken(), ElementsAre("store(normal,10,1)", "shadow", "dirty", "initialized"));
  table->shadowEnabledIs(false);
  EXPECT_THAT(table->taken(),
              ElementsAre("store(normal,10,0)", "shadow null", "dirty null", "initialized null"));
}

TEST_F(ChipMemoryModes, valueIsStoredBeforeTheReaction) {
  table->entriesIs(11);
  EXPECT_EQ(table->taken().front(), "store(normal,11,0)");
  table->modeIs(ChipMemory::buffered());
  EXPECT_EQ(table->taken().front(), "store(buffered,11,0)");
}

TEST_F(ChipMemoryModes, notifieesAreToldAfterTheReaction) {
  const auto observer = Zint::makePtr<ModesObserver>(table);
  table->shadowEnabledIs(true);
  using Id = ChipMemory::Id;
  EXPECT_THAT(observer->told,
              ElementsAre(Id::shadow, Id::dirty, Id::initialized, Id::shadowEnabled));
}

TEST_F(ChipMemoryModes, notifieesHearOfTheAuditWhenItsBufferIsThere) {
  table->hardwareIs(nullptr);
  const auto observer = Zint::makePtr<ModesObserver>(table);
  table->auditEnabledIs(true);
  EXPECT_THAT(observer->told, ElementsAre(ChipMemory::Id::hardware, ChipMemory::Id::auditEnabled));
}

TEST_F(ChipMemoryModes, everyChangeIsAnnouncedBehindTheStoreItMade) {
  const auto observer = Zint::makePtr<ModesObserver>(table);
  using Id = ChipMemory::Id;
  table->shadowEnabledIs(true);
  observer->told.clear();
  table->entriesIs(12);
  EXPECT_THAT(observer->told, ElementsAre(Id::shadow, Id::dirty, Id::initialized, Id::entries));
  observer->told.clear();
  table->modeIs(ChipMemory::override());
  EXPECT_THAT(observer->told, ElementsAre(Id::shadow, Id::dirty, Id::initialized, Id::mode));
  observer->told.clear();
  table->modeIs(ChipMemory::buffered());
  EXPECT_THAT(observer->told, ElementsAre(Id::shadow, Id::dirty, Id::initialized, Id::mode));
}

TEST_F(ChipMemoryModes, equalValuesDoNothing) {
  table->shadowEnabledIs(true);
  table->taken();
  const auto observer = Zint::makePtr<ModesObserver>(table);
  Support::TraceCapture trace;
  table->entriesIs(10);
  table->shadowEnabledIs(true);
  table->auditEnabledIs(false);
  table->modeIs(ChipMemory::normal());
  EXPECT_THAT(table->taken(), IsEmpty());
  EXPECT_THAT(observer->told, IsEmpty());
  EXPECT_THAT(ham->log, IsEmpty());
  EXPECT_THAT(trace.taken(), IsEmpty());
}

TEST_F(ChipMemoryModes, returnToNormalWritesTheOldStoreAndThenMakesAFreshOne) {
  table->shadowEnabledIs(true);
  table->modeIs(ChipMemory::buffered());
  const Hal::BufBase::Ptr buffered = table->shadow();
  std::memset(buffered->data(), 0x77, buffered->size());
  table->entryInitializedIs(3);
  table->taken();
  ham->onAccess = [&](const HamAccess&, U8* buffer) {
    EXPECT_EQ(table->mode(), ChipMemory::normal());
    EXPECT_EQ(buffer, buffered->data());
    EXPECT_THAT(table->taken(), IsEmpty());
    EXPECT_TRUE(table->entryInitialized(3));
  };
  table->modeIs(ChipMemory::normal());
  EXPECT_THAT(ham->log, ElementsAre(HamAccess{HamAccess::write, 0x100000100, 4, 10}));
  EXPECT_THAT(table->taken(), ElementsAre("store(normal,10,1)", "shadow", "dirty", "initialized"));
  EXPECT_THAT(bytes(table->shadow()), Each(0));
  EXPECT_THAT(bytes(table->initialized()), Each(0));
}

using Change = void (*)(ChipMemory&);

class ChipMemoryFresh : public ChipMemoryModes, public testing::WithParamInterface<Change> {};

TEST_P(ChipMemoryFresh, storeIsMadeAfreshAndZeroed) {
  table->shadowEnabledIs(true);
  table->doClear();
  std::memset(table->shadow()->data(), 0x77, table->shadow()->size());
  const Hal::BufBase::Ptr shadow = table->shadow(), dirty = table->dirty(),
                          initialized = table->initialized();
  GetParam()(*table);
  EXPECT_NE(table->shadow(), shadow);
  EXPECT_NE(table->dirty(), dirty);
  EXPECT_NE(table->initialized(), initialized);
  EXPECT_THAT(bytes(table->shadow()), Each(0));
  EXPECT_THAT(bytes(table->dirty()), Each(0));
  EXPECT_THAT(bytes(table->initialized()), Each(0));
  EXPECT_EQ(shadow->references(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, ChipMemoryFresh,
    testing::Values(Change{[](ChipMemory& m) { m.entriesIs(11); }},
                    Change{[](ChipMemory& m) { m.entriesIs(9); }},
                    Change{[](ChipMemory& m) { m.modeIs(ChipMemory::buffered()); }},
                    Change{[](ChipMemory& m) {
                      m.modeIs(ChipMemory::override());
                      m.modeIs(ChipMemory::normal());
                    }},
                    Change{[](ChipMemory& m) {
                      m.shadowEnabledIs(false);
                      m.shadowEnabledIs(true);
                    }},
                    Change{[](ChipMemory& m) { m.handleShadowStoreNeeded(); }}));

TEST_F(ChipMemoryModes, entriesIs_dropsAllInitializedMarks) {
  table->shadowEnabledIs(true);
  for (U32 entry = 0; entry < 10; ++entry) table->entryInitializedIs(entry);
  table->entriesIs(20);
  for (U32 entry = 0; entry < 20; ++entry) EXPECT_FALSE(table->entryInitialized(entry));
}

TEST_F(ChipMemoryModes, enteringBufferedOrOverrideWritesAndTracesNothing) {
  table->shadowEnabledIs(true);
  Support::TraceCapture trace;
  table->modeIs(ChipMemory::buffered());
  table->modeIs(ChipMemory::override());
  table->modeIs(ChipMemory::buffered());
  EXPECT_THAT(ham->log, IsEmpty());
  EXPECT_THAT(trace.taken(), IsEmpty());
}

// --- The audit flag and the hardware buffer ------------------------------------------------------

TEST_F(ChipMemoryModes, auditEnabledIs_inOverrideModeIsFatal) {
  table->modeIs(ChipMemory::override());
  EXPECT_ASSERTION(table->auditEnabledIs(true), 233,
                   "void Hardware::ChipMemory::handleAuditEnabled()",
                   "!auditEnabled() || (mode() != override())");
}

TEST_F(ChipMemoryModes, override_isNotRefusedWhileTheAuditIsOn) {
  table->auditEnabledIs(true);
  table->modeIs(ChipMemory::override());
  EXPECT_EQ(table->mode(), ChipMemory::override());
  EXPECT_TRUE(table->auditEnabled());
  table->auditEnabledIs(false);
  EXPECT_ASSERTION(table->auditEnabledIs(true), 233,
                   "void Hardware::ChipMemory::handleAuditEnabled()",
                   "!auditEnabled() || (mode() != override())");
}

TEST_F(ChipMemoryModes, auditEnabledIs_keepsAnExistingHardwareBuffer) {
  const Hal::Buf::Ptr before = table->hardware();
  table->auditEnabledIs(true);
  table->auditEnabledIs(false);
  EXPECT_EQ(table->hardware(), before);
  EXPECT_THAT(table->taken(), IsEmpty());
}

TEST_F(ChipMemoryModes, auditEnabledIs_makesAnAbsentHardwareBufferInEitherDirection) {
  for (bool enabled : {true, false}) {
    table->hardwareIs(nullptr);
    table->taken();
    table->auditEnabledIs(enabled);
    EXPECT_THAT(table->taken(), ElementsAre("hardware"));
    EXPECT_EQ(table->hardware()->size(), 40u);
    EXPECT_THAT(bytes(table->hardware()), Each(0));
  }
}

TEST_F(ChipMemoryModes, auditEnabledIs_makesNoHardwareBufferInOverrideMode) {
  table->auditEnabledIs(true);
  table->modeIs(ChipMemory::override());
  table->hardwareIs(nullptr);
  table->auditEnabledIs(false);
  EXPECT_EQ(table->hardware(), nullptr);
}

TEST_F(ChipMemoryModes, modesLeaveTheHardwareBufferAlone) {
  const Hal::Buf::Ptr before = table->hardware();
  for (auto mode : {ChipMemory::override_, ChipMemory::buffered_, ChipMemory::normal_}) {
    table->modeIs(mode);
    EXPECT_EQ(table->hardware(), before);
  }
}

// --- What notifiees may do -----------------------------------------------------------------------

class ActingObserver : public ChipMemory::NotifieeConst {
 public:
  explicit ActingObserver(const ChipMemory::Ptr& region)
      : NotifieeConst(nullptr, Zint::Ptr<const ChipMemory>(region)) {}
  void handleNotification(Zint::ActivityConfig*) override {
    if (act && (when == any || attribute() == when)) std::exchange(act, nullptr)();
  }
  static constexpr Zint::AttributeId any = 0;
  Zint::AttributeId when = any;
  std::function<void()> act;
};

class ChipMemoryDropped : public ChipMemoryModes, public testing::WithParamInterface<Change> {};

TEST_P(ChipMemoryDropped, aNotifieeMayDropTheLastReference) {
  table->shadowEnabledIs(true);
  const auto observer = Zint::makePtr<ActingObserver>(table);
  observer->isNonReferencingIs(true);
  ChipMemory::Ptr last = table;
  observer->act = [&] { last = nullptr; };
  table = nullptr;
  GetParam()(*last);
  EXPECT_EQ(last, nullptr);
  EXPECT_EQ(observer->notifier(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, ChipMemoryDropped,
    testing::Values(Change{[](ChipMemory& m) { m.entriesIs(11); }},
                    Change{[](ChipMemory& m) { m.shadowEnabledIs(false); }},
                    Change{[](ChipMemory& m) { m.auditEnabledIs(true); }},
                    Change{[](ChipMemory& m) { m.modeIs(ChipMemory::override()); }},
                    Change{[](ChipMemory& m) { m.readFromCacheIs(true); }},
                    Change{[](ChipMemory& m) { m.registersFixedInc(1); }},
                    Change{[](ChipMemory& m) { m.handleShadowStoreNeeded(); }}));

TEST_F(ChipMemoryModes, aNotifieeOfTheShadowMayChangeTheEntries) {
  const auto observer = Zint::makePtr<ActingObserver>(table);
  observer->when = ChipMemory::Id::shadow;
  observer->act = [&] { table->entriesIs(1000); };
  table->shadowEnabledIs(true);
  EXPECT_EQ(table->shadow()->size(), 4000u);
  EXPECT_EQ(table->dirty()->size(), 126u);
  EXPECT_EQ(table->initialized()->size(), 126u);
}

TEST_F(ChipMemoryModes, aNotifieeOfTheShadowMayReleaseTheStore) {
  const auto observer = Zint::makePtr<ActingObserver>(table);
  observer->when = ChipMemory::Id::shadow;
  observer->act = [&] { table->modeIs(ChipMemory::override()); };
  table->shadowEnabledIs(true);
  EXPECT_EQ(table->shadow(), nullptr);
  EXPECT_EQ(table->dirty(), nullptr);
  EXPECT_EQ(table->initialized(), nullptr);
}

}  // namespace
}  // namespace Hardware
