// How a buffered region returns to normal.
#include <Driver/ChipWriter.h>
#include <Hardware/ChipReader.h>

#include <stdexcept>

#include "ReplayTest.h"

namespace {

using Driver::Rule;
using Replay::Accesses;
using Replay::writeOf;
using Support::HamAccess;

class LeaveBuffered : public Replay::ReplayTest {
 protected:
  LeaveBuffered() {
    cm = table("mac", 0x1000, 16);
    configured();
    for (U32 i = 0; i < 16; ++i) memory->wordIs(0x1000 + 4 * i, 0xdead0000 + i);
    cm->modeIs(ChipMemory::buffered());
    writerIs(8, 64);
    memory->taken();
  }
  void fill(const std::vector<U32>& entries) {
    for (const U32 entry : entries) EXPECT_TRUE(clientWrites(cm, entry, 100 + entry));
  }

  ChipMemory::Ptr cm;
};

// Does something at each change of one attribute of a region.
class RegionWatch : public Hardware::ChipMemory::NotifieeConst {
 public:
  RegionWatch(const Zint::Ptr<Zint::ActivityConfig>& activity,
              const Zint::Ptr<const Hardware::ChipMemory>& region,
              std::function<void(Zint::AttributeId)> changed)
      : NotifieeConst(activity, region), changed_(std::move(changed)) {}
  void handleNotification(Zint::ActivityConfig*) override { changed_(attribute()); }

 private:
  std::function<void(Zint::AttributeId)> changed_;
};

TEST_F(LeaveBuffered, plainLibrary_writesTheWholeStoreWithItsZerosAndForgetsIt) {
  fill({3, 4});
  cm->modeIs(ChipMemory::normal());
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1000, 16)}));
  EXPECT_EQ(onChip(cm, 3), 103u);
  EXPECT_EQ(onChip(cm, 5), 0u);  // nobody wrote it
  EXPECT_EQ(Support::marked(cm->initialized()), std::vector<U32>{});
  EXPECT_EQ(inShadow(cm, 3), 0u);
}

TEST_F(LeaveBuffered, writesTheChangedRunsAloneAndKeepsTheStore) {
  fill({3, 4, 9});
  const auto shadowBuf = cm->shadow(), dirtyBuf = cm->dirty(), initializedBuf = cm->initialized();
  EXPECT_TRUE(writer->doLeaveBuffered(cm));
  EXPECT_EQ(cm->mode(), ChipMemory::normal());
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x100c, 2), writeOf(0x1024, 1)}));
  EXPECT_EQ(onChip(cm, 5), 0xdead0005);
  EXPECT_EQ(onChip(cm, 4), 104u);
  EXPECT_EQ(cm->shadow(), shadowBuf);
  EXPECT_EQ(cm->dirty(), dirtyBuf);
  EXPECT_EQ(cm->initialized(), initializedBuf);
  EXPECT_EQ(Support::marked(cm->initialized()), (std::vector<U32>{3, 4, 9}));
  EXPECT_EQ(inShadow(cm, 4), 104u);
  for (U32 i = 0; i < 16; ++i) EXPECT_EQ(own->isWritten(cm, i), i == 3 || i == 4 || i == 9) << i;
}

TEST_F(LeaveBuffered, aResetAfterItCanBeReplayed) {
  fill({3, 4});
  std::fill_n(cm->dirty()->data(), cm->dirty()->size(), U8{0});  // visited by a patrol
  own->writtenIs(cm, 3, true);
  own->writtenIs(cm, 4, true);
  EXPECT_TRUE(writer->doLeaveBuffered(cm));
  resetChip();
  EXPECT_EQ(run(), (Accesses{writeOf(0x100c, 2)}));
  EXPECT_EQ(onChip(cm, 3), 103u);
}

TEST_F(LeaveBuffered, rulesAndFindingsAreKept) {
  const auto policy = Driver::policyFactory(cm);
  policy->ruleIs(0, 1, Rule::readOnly);
  own->policyIs(policy);
  fill({0, 1});
  own->openFindingIs(cm, 7, true);
  own->openFindingIs(cm, 1, true);
  EXPECT_TRUE(writer->doLeaveBuffered(cm));
  EXPECT_EQ(memory->taken(), (Accesses{writeOf(0x1004, 1)}));
  EXPECT_TRUE(own->hasOpenFinding(cm, 7));
  EXPECT_FALSE(own->hasOpenFinding(cm, 1));
}

TEST_F(LeaveBuffered, nothingChangedWritesNothing) {
  EXPECT_TRUE(writer->doLeaveBuffered(cm));
  EXPECT_TRUE(memory->taken().empty());
  EXPECT_EQ(cm->mode(), ChipMemory::normal());
}

TEST_F(LeaveBuffered, anExceptionLeavesTheRegionBuffered) {
  fill({3});
  memory->onAccess = [](const HamAccess&, U8*) { throw std::runtime_error("bus"); };
  EXPECT_THROW(writer->doLeaveBuffered(cm), std::runtime_error);
  EXPECT_EQ(cm->mode(), ChipMemory::buffered());
  EXPECT_EQ(inShadow(cm, 3), 103u);
  memory->onAccess = nullptr;
  EXPECT_TRUE(writer->doLeaveBuffered(cm));
  EXPECT_EQ(onChip(cm, 3), 103u);
}

TEST_F(LeaveBuffered, whatAClientChangesDuringAnAccessIsWrittenToo) {
  fill({3, 9});
  int nested = 0;
  memory->onAccess = [&](const HamAccess&, U8*) {
    if (++nested == 2) {
      clientWrites(cm, 3, 1);  // written already
      clientWrites(cm, 9, 2);  // being written
      clientWrites(cm, 5, 3);  // new
    }
  };
  EXPECT_TRUE(writer->doLeaveBuffered(cm));
  EXPECT_EQ(onChip(cm, 3), 1u);
  EXPECT_EQ(onChip(cm, 9), 2u);
  EXPECT_EQ(onChip(cm, 5), 3u);
}

TEST_F(LeaveBuffered, aRegionThatChangesAtEachAccessStaysBuffered) {
  fill({3});
  U32 value = 0;
  memory->onAccess = [&](const HamAccess&, U8*) { clientWrites(cm, 3, ++value); };
  EXPECT_FALSE(writer->doLeaveBuffered(cm));
  EXPECT_EQ(cm->mode(), ChipMemory::buffered());
}

TEST_F(LeaveBuffered, notifieesSeeASoundStoreAndMayWrite) {
  fill({3, 4});
  const auto access = Driver::chipAccessFactory(own, cm);
  using Id = ChipMemory::Id;
  U32 value = 1000;
  int refused = 0;
  const auto watch =
      Zint::makePtr<RegionWatch>(loop.activity, cm, [&](Zint::AttributeId attribute) {
        if (attribute != Id::shadow && attribute != Id::dirty && attribute != Id::initialized &&
            attribute != Id::mode) {
          return;
        }
        if (cm->shadow() == nullptr) {
          EXPECT_EQ(Support::exceptionText([&] { access->write<U32>(0, 1); }),
                    "the store of mac is being exchanged");
          ++refused;
          return;
        }
        if (cm->mode() != ChipMemory::normal()) {  // held back until the end
          clientWrites(cm, value % 8 + 8, value);
          ++value;
          return;
        }
        // What is served is what the chip holds, except what was held back in this turn.
        for (U32 i = 0; i < 8; ++i) EXPECT_EQ(access->read<U32>(i), onChip(cm, i));
        const U32 entry = value % 8;
        access->write<U32>(entry, value);
        ++value;
      });
  EXPECT_TRUE(writer->doLeaveBuffered(cm));
  EXPECT_GT(value, 1006u);
  EXPECT_EQ(refused, 1);
  for (U32 i = 0; i < 16; ++i) {
    EXPECT_TRUE(!cm->entryInitialized(i) || inShadow(cm, i) == onChip(cm, i)) << i;
    EXPECT_EQ(access->read<U32>(i), onChip(cm, i)) << i;
  }
}

TEST_F(LeaveBuffered, aNotifieeThatChangesTheModeWins) {
  fill({3});
  for (const auto wanted : {ChipMemory::buffered(), ChipMemory::override()}) {
    cm->modeIs(ChipMemory::buffered());
    clientWrites(cm, 3, 5);
    const auto watch = Zint::makePtr<RegionWatch>(
        loop.activity, cm, [&, isFirst = true](Zint::AttributeId attribute) mutable {
          if (attribute == ChipMemory::Id::mode && std::exchange(isFirst, false))
            cm->modeIs(wanted);
        });
    EXPECT_FALSE(writer->doLeaveBuffered(cm));
    EXPECT_EQ(cm->mode(), wanted);
  }
}

TEST_F(LeaveBuffered, refusesWhatCannotLeave) {
  EXPECT_EQ(Support::exceptionText([&] { writer->doLeaveBuffered(nullptr); }),
            "null region parameter to Driver::ChipWriter::doLeaveBuffered not allowed");
  own->overrideHardwareIs(true);
  EXPECT_EQ(Support::exceptionText([&] { writer->doLeaveBuffered(cm); }),
            "overrideHardware is set");
  own->overrideHardwareIs(false);
  cm->shadowEnabledIs(false);
  EXPECT_EQ(Support::exceptionText([&] { writer->doLeaveBuffered(cm); }),
            "mac cannot be written: without a store");
  cm->modeIs(ChipMemory::normal());
  EXPECT_EQ(Support::exceptionText([&] { writer->doLeaveBuffered(cm); }), "mac is not buffered");
  writer->shadowIs(nullptr);
  EXPECT_EQ(Support::exceptionText([&] { writer->doLeaveBuffered(cm); }), "the shadow is gone");
}

TEST_F(LeaveBuffered, aRequestMayLetItsBufferedRegionsLeave) {
  fill({3, 4});
  const auto other = shadowed("other", 0x3000, 4);
  request->chipMemoryIs(other);
  clientWrites(other, 1, 5);
  memory->taken();
  request->leavesBufferedIs(true);
  const auto plan = writer->plan();
  EXPECT_EQ(plan.entries, 3u);
  EXPECT_EQ(run(), (Accesses{writeOf(0x100c, 2), writeOf(0x3004, 1)}));
  EXPECT_EQ(cm->mode(), ChipMemory::normal());
  EXPECT_EQ(writer->entriesWritten(), 3u);
  EXPECT_EQ(remarksText(), "");
}

TEST_F(LeaveBuffered, aRequestListsARegionThatCouldNotLeave) {
  fill({3});
  U32 value = 0;
  memory->onAccess = [&](const HamAccess&, U8*) { clientWrites(cm, 3, ++value); };
  request->leavesBufferedIs(true);
  run();
  EXPECT_EQ(request->status(), done);
  EXPECT_EQ(remarksText(), "held: mac, a client changes it again and again");
}

TEST_F(LeaveBuffered, aFailureInTheMiddleIsResumed) {
  fill({3, 9});
  int accesses = 0;
  memory->onAccess = [&](const HamAccess&, U8*) {
    if (++accesses == 2) throw std::runtime_error("bus");
  };
  request->leavesBufferedIs(true);
  run();
  EXPECT_EQ(request->status(), failed);
  EXPECT_EQ(writer->reason(), "mac entry 9: bus");
  EXPECT_EQ(cm->mode(), ChipMemory::buffered());
  writer->doResume();
  tick();
  EXPECT_EQ(request->status(), done);
  EXPECT_EQ(cm->mode(), ChipMemory::normal());
  EXPECT_EQ(onChip(cm, 9), 109u);
}

}  // namespace
