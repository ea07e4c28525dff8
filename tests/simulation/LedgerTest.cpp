// The ledger by itself: a region of four entries of two bytes, four address units apart.
#include "simulation/Ledger.h"

#include <gtest/gtest.h>

namespace Simulation {
namespace {

class LedgerTest : public testing::Test {
 protected:
  LedgerTest() {
    ledger.addRegion({"region", 0, 8, 4, 2, 4, Way::chipAccess, 0});
    ledger.addChip(&chip);
    Book& book = ledger.book(0);
    book.shadowEnabled = book.auditEnabled = true;
    ledger.sliceIs(4);
    ledger.intervalIs(10);
    ledger.stateIs(State::configured_, 0);
    ledger.stateIs(State::auditing_, 0);
  }
  bool isBroken(Rule rule) const { return journal.broken() == 1u << static_cast<U32>(rule); }
  bool isFaultless() const { return journal.broken() == 0; }

  // Every entry is written through the shadow, and by the driver.
  void programmed() {
    for (U32 entry = 0; entry < 4; ++entry) {
      EXPECT_FALSE(ledger.offerWrite(0, entry, data, 1));
      ledger.expectWrite(0, entry, data, 1);
      chip.write(8 + 4 * entry, data, 2);
    }
    ledger.checkNothingDue();
  }
  void passStarts(Zint::Seconds time) {
    turn(time, [this, time] { ledger.startPass(time); });
  }
  void chipIsRead(Zint::Seconds time) {
    turn(time, [this] {
      for (U32 entry = 0; entry < 4; ++entry) chip.read(8 + 4 * entry, answer, 2);
    });
  }
  template <class Work>
  void turn(Zint::Seconds time, Work work) {
    journal.timeIs(time);
    ledger.beginTurn();
    work();
    ledger.endTurn(time);
  }

  Journal journal;
  Ledger ledger{journal};
  Chip chip{0, 64, ledger};
  U8 data[2] = {0x12, 0x34};
  U8 answer[2] = {};
};

TEST_F(LedgerTest, aDriversWriteThatWasOfferedHasACause) {
  programmed();
  EXPECT_TRUE(isFaultless());
}

TEST_F(LedgerTest, aWriteThatNobodyAskedForHasNone) {
  chip.write(8, data, 2);
  EXPECT_TRUE(isBroken(Rule::attributed));
}

TEST_F(LedgerTest, aWriteOfAnotherValueIsWrong) {
  ledger.expectWrite(0, 1, data, 1);
  const U8 other[2] = {0x12, 0x35};
  chip.write(12, other, 2);
  EXPECT_TRUE(isBroken(Rule::attributed));
}

TEST_F(LedgerTest, aWriteThatWasDueMustCome) {
  ledger.expectWrite(0, 1, data, 1);
  ledger.checkNothingDue();
  EXPECT_TRUE(isBroken(Rule::attributed));
}

TEST_F(LedgerTest, anAccessBetweenTwoEntriesIsWrong) {
  chip.write(10, data, 2);
  EXPECT_TRUE(isBroken(Rule::attributed));
}

TEST_F(LedgerTest, anAccessBehindTheChipIsWrong) {
  chip.read(63, answer, 2);
  EXPECT_TRUE(isBroken(Rule::attributed));
}

TEST_F(LedgerTest, aDifferenceMustBeReportedAndRepaired) {
  programmed();
  chip.flip(12, 0);
  passStarts(0);
  chipIsRead(1);
  turn(2, [this] {
    ledger.comparePass();
    ledger.countDifference();
    chip.write(12, data, 2);
  });
  EXPECT_TRUE(isFaultless());
  EXPECT_EQ(ledger.book(0).repairs, 1u);
}

TEST_F(LedgerTest, aPassThatRepairsNothingIsSeen) {
  programmed();
  chip.flip(12, 0);
  passStarts(0);
  chipIsRead(1);
  turn(2, [this] {
    ledger.comparePass();
    ledger.countDifference();
  });
  EXPECT_TRUE(isBroken(Rule::attributed));
}

TEST_F(LedgerTest, aFaultBehindTheReaderMayWaitForTheNextPass) {
  programmed();
  passStarts(0);
  chipIsRead(1);
  chip.flip(12, 0);
  turn(2, [this] { ledger.comparePass(); });
  EXPECT_TRUE(isFaultless());
}

// As if each of two passes had been answered rightly by a chip that is wrong.
TEST_F(LedgerTest, aFaultThatOutlivesTwoPassesIsSeen) {
  programmed();
  for (const Zint::Seconds start : {0.0, 10.0}) {
    passStarts(start);
    chipIsRead(start + 1);
    chip.flip(12, 0);
    turn(start + 2, [this] { ledger.comparePass(); });
    chip.flip(12, 0);
    EXPECT_EQ(isBroken(Rule::repaired), start == 10.0);
  }
}

TEST_F(LedgerTest, theSettledChipHoldsEveryValue) {
  programmed();
  ledger.checkSettled();
  EXPECT_TRUE(isFaultless());
  chip.flip(12, 0);
  ledger.checkSettled();
  EXPECT_TRUE(isBroken(Rule::settled));
}

TEST_F(LedgerTest, aPassMustNotComeTooEarly) {
  passStarts(0);
  chipIsRead(1);
  turn(2, [this] { ledger.comparePass(); });
  EXPECT_TRUE(isFaultless());
  passStarts(9.5);
  EXPECT_TRUE(isBroken(Rule::paced));
}

TEST_F(LedgerTest, aPassMustComeWhenItIsDue) {
  turn(0, [] {});
  EXPECT_TRUE(isBroken(Rule::paced));
}

TEST_F(LedgerTest, noPassMayComeWhileIdle) {
  ledger.stateIs(State::idle_, 0);
  passStarts(0);
  EXPECT_TRUE(isBroken(Rule::paced));
}

TEST_F(LedgerTest, aSliceHasItsLimit) {
  ledger.sliceIs(3);
  passStarts(0);
  chipIsRead(1);
  EXPECT_TRUE(isBroken(Rule::paced));
}

TEST_F(LedgerTest, aComparisonNeedsTheWholeRegion) {
  passStarts(0);
  turn(1, [this] { ledger.comparePass(); });
  EXPECT_TRUE(isBroken(Rule::paced));
}

}  // namespace
}  // namespace Simulation
