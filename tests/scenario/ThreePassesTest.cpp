// Three whole passes of the audit over two regions, checked by every register access and every line
// of the trace. The first pass finds a sound chip and learns an entry that nobody wrote; before the
// second the chip is damaged in two places, one of which a client overwrites while the pass reads;
// before the third the learned entry is damaged.
#include <Hardware/ChipReader.h>
#include <Mirl/Mirl.h>

#include <algorithm>

#include "support/Client.h"
#include "support/ShadowTest.h"

namespace {

using Support::Access;
using Support::Lines;

class ThreePasses : public Support::ShadowTest {
 protected:
  ThreePasses() {
    shadow->chipMemoryIs(mac);
    shadow->chipMemoryIs(acl);
    shadow->stateIs(HardwareShadow::configured());
    shadow->minIntervalBetweenAuditsIs(10);
    reader =
        Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock, 3, 0.5);
    Mirl::theTraceFile.clear();
  }

  void written(const ChipMemory::Ptr& cm, U32 entry, std::vector<U32> words) {
    U8* data = reinterpret_cast<U8*>(words.data());
    const U32 size = static_cast<U32>(words.size() * 4);
    Support::clientWrite(*shadow, cm, entry, data, size);
  }
  // Moves the time on to the next wake-up and runs its turn.
  void nextTurn() {
    loop.turnAt(std::max(loop.clock->time(), loop.activity->wakeTime()));
    turnTimes.push_back(loop.clock->time());
  }

  void firstPass() {
    chip->registers[0x100c] = 7;
    written(mac, 0, {0x11, 0x22});
    written(acl, 0, {0xa0, 0xa1});
    shadow->stateIs(HardwareShadow::auditing());
    nextTurn();
    nextTurn();
    nextTurn();
  }
  void secondPass() {
    chip->registers[0x2004] = 0xb1;
    chip->registers[0x1000] = 0x13;
    nextTurn();
    nextTurn();
    written(mac, 0, {0x44});
    nextTurn();
  }
  void thirdPass() {
    chip->registers[0x100c] = 8;
    nextTurn();
    nextTurn();
    nextTurn();
  }

  ChipMemory::Ptr mac = audited("mac", 0x1000, 4);
  ChipMemory::Ptr acl = audited("acl", 0x100002000, 2, 8);
  Zint::Ptr<Hardware::ChipReader> reader;
  std::vector<Zint::Seconds> turnTimes;
};

TEST_F(ThreePasses, everyAccessAndEveryLineComeInTheirOrder) {
  firstPass();
  secondPass();
  thirdPass();
  shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(loop.turnAt(100), 0u);

  constexpr auto read = Access::read, write = Access::write;
  EXPECT_EQ(chip->log, (std::vector<Access>{
                           // The client's writes.
                           {write, 0x1000, 0x11},
                           {write, 0x1004, 0x22},
                           {write, 0x2000, 0xa0},
                           {write, 0x2004, 0xa1},
                           // First pass: three entries, then the other three.
                           {read, 0x2000, 0xa0},
                           {read, 0x2004, 0xa1},
                           {read, 0x2008, 0},
                           {read, 0x200c, 0},
                           {read, 0x1000, 0x11},
                           {read, 0x1004, 0x22},
                           {read, 0x1008, 0},
                           {read, 0x100c, 7},
                           // Second pass, with a client's write between the slices, and a repair.
                           {read, 0x2000, 0xa0},
                           {read, 0x2004, 0xb1},
                           {read, 0x2008, 0},
                           {read, 0x200c, 0},
                           {read, 0x1000, 0x13},
                           {write, 0x1000, 0x44},
                           {read, 0x1004, 0x22},
                           {read, 0x1008, 0},
                           {read, 0x100c, 7},
                           {write, 0x2000, 0xa0},
                           {write, 0x2004, 0xa1},
                           // Third pass, with the repair of the learned entry.
                           {read, 0x2000, 0xa0},
                           {read, 0x2004, 0xa1},
                           {read, 0x2008, 0},
                           {read, 0x200c, 0},
                           {read, 0x1000, 0x44},
                           {read, 0x1004, 0x22},
                           {read, 0x1008, 0},
                           {read, 0x100c, 8},
                           {write, 0x100c, 7},
                       }));

  EXPECT_EQ(trace.taken(),
            (Lines{
                {0,
                 "ChipMemory: mac address=0x0:00001000 entries=4 entrySize=4 stride=4 "
                 "indirectAddress=0x0"},
                {0,
                 "ChipMemory: acl address=0x1:00002000 entries=2 entrySize=8 stride=8 "
                 "indirectAddress=0x0"},
                {0, "HardwareShadow::handleState( configured )"},
                {0, "HardwareShadow::handleState( idle )"},
                {9, "HardwareShadow::shadowWrite mac entry 0x0 size 0x8"},
                {9, "HardwareShadow::shadowWrite acl entry 0x0 size 0x8"},
                {0, "HardwareShadow::handleState( auditing )"},
                // First pass.
                {0, "HardwareShadow::doStartAudit"},
                {0, "handleReadRequest 1"},
                {9, "ChipReader::handleTimeout"},
                {6, "ChipReader::doRead acl 0x100002000 0x2 entries"},
                {6, "ChipReader::doRead mac 0x1000 0x1 entries"},
                {9, "ChipReader::handleTimeout"},
                {6, "ChipReader::doRead mac 0x1004 0x3 entries"},
                {0, "HardwareShadow::handleAuditReadRequestStatus 3"},
                {0, "HardwareShadow::doAuditChips"},
                {8, "Difference found in uninitialized entry 3 of memory mac"},
                // Second pass.
                {0, "HardwareShadow::doStartAudit"},
                {0, "handleReadRequest 1"},
                {9, "ChipReader::handleTimeout"},
                {6, "ChipReader::doRead acl 0x100002000 0x2 entries"},
                {6, "ChipReader::doRead mac 0x1000 0x1 entries"},
                {9, "HardwareShadow::shadowWrite mac entry 0x0 size 0x4"},
                {9, "ChipReader::handleTimeout"},
                {6, "ChipReader::doRead mac 0x1004 0x3 entries"},
                {0, "HardwareShadow::handleAuditReadRequestStatus 3"},
                {0, "HardwareShadow::doAuditChips"},
                {0, "Difference found in entry 0 of memory acl"},
                {0, "Expected: xA0x00x00x00xA1x00x00x00 Actual: xA0x00x00x00xB1x00x00x00"},
                {8, "Difference found in entry 0 but it was written since the audit began"},
                // Third pass.
                {0, "HardwareShadow::doStartAudit"},
                {0, "handleReadRequest 1"},
                {9, "ChipReader::handleTimeout"},
                {6, "ChipReader::doRead acl 0x100002000 0x2 entries"},
                {6, "ChipReader::doRead mac 0x1000 0x1 entries"},
                {9, "ChipReader::handleTimeout"},
                {6, "ChipReader::doRead mac 0x1004 0x3 entries"},
                {0, "HardwareShadow::handleAuditReadRequestStatus 3"},
                {0, "HardwareShadow::doAuditChips"},
                {0, "Difference found in entry 3 of memory mac"},
                {0, "Expected: x07x00x00x00 Actual: x08x00x00x00"},
                {0, "HardwareShadow::handleState( idle )"},
                {0, "handleReadRequest 2"},
            }));
}

TEST_F(ThreePasses, passesBeginAnIntervalApartAndReadInSlices) {
  firstPass();
  secondPass();
  thirdPass();
  EXPECT_EQ(turnTimes, (std::vector<Zint::Seconds>{0, 0, 0.5, 10, 10, 10.5, 20, 20, 20.5}));
  EXPECT_EQ(loop.activity->wakeTime(), 30.0);
}

TEST_F(ThreePasses, countersAndBuffersTellTheSameStory) {
  firstPass();
  EXPECT_EQ(Support::marked(mac->initialized()), (Support::Entries{0, 1, 3}));
  EXPECT_EQ(mac->registersFixed() + acl->registersFixed(), 0u);
  secondPass();
  EXPECT_EQ(acl->registersFixed(), 1u);
  EXPECT_EQ(acl->lastFixTime(), 10.5);
  EXPECT_EQ(mac->registersFixed(), 0u);
  thirdPass();
  EXPECT_EQ(mac->registersFixed(), 1u);
  EXPECT_EQ(mac->lastFixTime(), 20.5);
  EXPECT_EQ(shadow->audits(), 3u);
  EXPECT_EQ(shadow->lastAuditStartTime(), 20.0);
  EXPECT_EQ(shadow->chipMemoryEntriesUnderAudit(), 6u);
  for (U32 i = 0; i < 4; ++i) {
    EXPECT_EQ(chip->registers[0x1000 + 4 * i], Support::word(mac->shadow(), i));
    EXPECT_EQ(chip->registers[0x2000 + 4 * i], Support::word(acl->shadow(), i));
  }
}

TEST_F(ThreePasses, recordsNameTheDifferences) {
  firstPass();
  secondPass();
  thirdPass();
  const auto texts = [](U32 level) {
    std::vector<std::string> all;
    for (const Mirl::Record& record : Mirl::theTraceFile.records(level)) {
      all.emplace_back(record.text);
    }
    return all;
  };
  EXPECT_EQ(texts(0), (std::vector<std::string>{
                          "Difference found in entry 0 of memory acl",
                          "Byte 4 expected a1 actual b1",
                          "Expected: xA0x00x00x00xA1x00x00x00 Actual: xA0x00x00x00xB1x00x00x00",
                          "Difference found in entry 3 of memory mac",
                          "Byte 0 expected 7 actual 8",
                          "Expected: x07x00x00x00 Actual: x08x00x00x00",
                      }));
  EXPECT_EQ(texts(8), (std::vector<std::string>{
                          "Difference found in entry 0 but it was written since the audit began"}));
}

}  // namespace
