#include <demo/chip/Injector.h>
#include <demo/common/Ledger.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <ostream>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace Demo {

void PrintTo(const Account& a, std::ostream* out) {
  *out << "injected " << a.injected << " repaired " << a.repaired << " overwritten "
       << a.overwritten << " undone " << a.undone << " remaining " << a.remaining << " unexplained "
       << a.unexplained << " without damage " << a.repairsWithoutDamage << " lost " << a.lost
       << " forgotten " << a.forgotten << " stuck " << a.stuck << " restored " << a.restored;
}

}  // namespace Demo

namespace {

using Demo::Account;

constexpr U32 size = 64;

// Registers, and who changes them; each change is entered into the ledger.
struct Story {
  // The chip's flip, logged at once.
  void flip(U32 address, U32 bits) { ledger.recordFlip(unlogged(address, bits)); }
  // The same, logged later.
  Demo::Flip unlogged(U32 address, U32 bits) {
    const U32 before = registers[address / 4];
    registers[address / 4] ^= bits;
    return {address, before, before ^ bits, sequence++};
  }
  void write(U32 address, U32 value) {
    ledger.recordWrite(address, registers[address / 4], value);
    registers[address / 4] = value;
  }
  // Rewrites the entry of two registers at `address`.
  void repair(U32 address, U32 first, U32 second) {
    ledger.beginRepair(address, 8);
    write(address, first);
    write(address + 4, second);
    ledger.endRepair();
  }
  void lost(U32 address, U32 value) { ledger.recordLostWrite(address, value); }
  void reset(U32 address) {
    ledger.recordReset(address, registers[address / 4], 0);
    registers[address / 4] = 0;
  }
  void stick(U32 address, U32 bits) {
    ledger.recordStuck(address, registers[address / 4], bits);
    registers[address / 4] &= ~bits;
  }
  // To a register with these stuck bits.
  void writeStuck(U32 address, U32 value, U32 bits) {
    ledger.recordWrite(address, registers[address / 4], value, value & ~bits);
    registers[address / 4] = value & ~bits;
  }
  void restore(U32 address, U32 value) {
    ledger.isRestoringIs(true);
    write(address, value);
    ledger.isRestoringIs(false);
  }
  Account account() const { return ledger.account(registers); }

  U32 registers[size / 4] = {};
  U32 sequence = 0;
  Demo::Ledger ledger{size};
};

TEST(LedgerTest, nothingHappened_everythingIsZero) {
  EXPECT_EQ(Story().account(), Account());
  EXPECT_TRUE(Story().account().isGood());
}

TEST(LedgerTest, flipInARegisterThatIsRepaired) {
  Story story;
  story.write(8, 5);
  story.flip(8, 0x10);
  story.repair(8, 5, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .repaired = 1}));
}

TEST(LedgerTest, flipThatANewerWriteMeets) {
  Story story;
  story.write(8, 5);
  story.flip(8, 0x10);
  story.write(8, 6);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .overwritten = 1}));
}

TEST(LedgerTest, newerWriteMayMakeTheBytesThatTheFlipMade) {
  Story story;
  story.write(8, 5);
  story.flip(8, 0x10);
  story.write(8, 0x15);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .overwritten = 1}));
}

TEST(LedgerTest, flipThatNothingMet_remains) {
  Story story;
  story.write(8, 5);
  story.flip(8, 0x80000000);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .remaining = 1}));
  EXPECT_FALSE(story.account().isGood());
}

TEST(LedgerTest, flipAfterTheRepair_remains) {
  Story story;
  story.flip(8, 1);
  story.repair(8, 0, 0);
  story.flip(8, 1);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .repaired = 1, .remaining = 1}));
}

TEST(LedgerTest, secondFlipOfTheSameBitUndoesTheFirst) {
  Story story;
  story.flip(8, 4);
  story.flip(8, 4);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .undone = 2}));
  EXPECT_TRUE(story.account().isGood());
}

TEST(LedgerTest, ofThreeFlipsOfOneBitOneIsRepaired) {
  Story story;
  for (int i = 0; i < 3; ++i) story.flip(8, 4);
  story.repair(8, 0, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 3, .repaired = 1, .undone = 2}));
}

TEST(LedgerTest, flipsOfSeveralBitsOfARegisterAreCountedEach) {
  Story story;
  story.flip(8, 1);
  story.flip(8, 2);
  story.flip(8, 4);
  story.repair(8, 0, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 3, .repaired = 3}));
}

// The flip lands before the write, its entry in the log comes long after.
TEST(LedgerTest, logMayComeAfterTheWriteThatMetTheFlip) {
  Story story;
  story.write(8, 5);
  const Demo::Flip flip = story.unlogged(8, 0x10);
  story.repair(8, 5, 0);
  story.write(8, 7);
  story.ledger.recordFlip(flip);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .repaired = 1}));
}

// The flip lands after the write, though its entry is read before the write is entered: the write
// met no damage, so the flip is still there.
TEST(LedgerTest, logMayComeBeforeAWriteThatTheFlipFollowed) {
  Story story;
  story.write(8, 5);
  story.flip(8, 0x10);
  story.ledger.recordWrite(8, 5, 5);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .remaining = 1}));
}

TEST(LedgerTest, repairThatMetNoDamageIsCounted) {
  Story story;
  story.write(8, 5);
  story.repair(8, 5, 0);
  EXPECT_EQ(story.account(), (Account{.repairsWithoutDamage = 1}));
  EXPECT_FALSE(story.account().isGood());
}

TEST(LedgerTest, damageInOneRegisterOfTheEntryIsReasonEnough) {
  Story story;
  story.flip(12, 1);
  story.repair(8, 0, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .repaired = 1}));
}

TEST(LedgerTest, damageElsewhereIsNoReason) {
  Story story;
  story.flip(16, 1);
  story.repair(8, 0, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .remaining = 1, .repairsWithoutDamage = 1}));
}

// The audit saw the damage, and a second flip undid it before the repair.
TEST(LedgerTest, undonePairExcusesOneRepair) {
  Story story;
  story.flip(12, 1);
  story.flip(12, 1);
  story.repair(8, 0, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .undone = 2}));
  story.repair(8, 0, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .undone = 2, .repairsWithoutDamage = 1}));
}

TEST(LedgerTest, changeThatNobodyLoggedIsUnexplained_whereItRemains) {
  Story story;
  story.registers[2] = 1;
  EXPECT_EQ(story.account(), (Account{.remaining = 1, .unexplained = 1}));
}

TEST(LedgerTest, changeThatNobodyLoggedIsUnexplained_whereItIsRepaired) {
  Story story;
  story.registers[2] = 1;
  story.repair(8, 0, 0);
  EXPECT_EQ(story.account(), (Account{.repaired = 1, .unexplained = 1}));
}

TEST(LedgerTest, flipThatVanishedWithoutAWriteIsUnexplained) {
  Story story;
  story.flip(8, 1);
  story.registers[2] = 0;
  EXPECT_EQ(story.account(), (Account{.injected = 1, .unexplained = 1}));
}

TEST(LedgerTest, gapInTheLogIsUnexplained) {
  Story story;
  story.unlogged(8, 1);
  story.unlogged(8, 1);
  story.flip(12, 2);
  EXPECT_EQ(story.account().unexplained, 2u);
}

TEST(LedgerTest, damageOfSomeoneElseTakesNoPlaceInTheLog) {
  Story story;
  story.registers[2] = 6;
  story.ledger.recordDamage(8, 0, 6);
  story.flip(12, 1);
  EXPECT_EQ(story.account(), (Account{.injected = 3, .remaining = 3}));
}

TEST(LedgerTest, accountOfARangeCountsItsRegistersAlone) {
  Story story;
  story.flip(8, 1);
  story.flip(12, 1);
  story.flip(16, 1);
  story.repair(16, 0, 0);
  EXPECT_EQ(story.ledger.account(story.registers, 12, 16),
            (Account{.injected = 1, .remaining = 1}));
  EXPECT_EQ(story.ledger.account(story.registers, 16, 24), (Account{.injected = 1, .repaired = 1}));
}

TEST(LedgerTest, lostWrite_everyBitThatDidNotLandIsAnErrorUntilItIsRepaired) {
  Story story;
  story.write(8, 5);
  story.lost(8, 6);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .lost = 2, .remaining = 2}));
  story.repair(8, 6, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .lost = 2, .repaired = 2}));
}

TEST(LedgerTest, lostWrite_ofTheValueThatIsThereIsNoError) {
  Story story;
  story.write(8, 5);
  story.lost(8, 5);
  EXPECT_EQ(story.account(), Account());
}

TEST(LedgerTest, lostWrite_takenBackByAnotherLostOneIsOverwritten) {
  Story story;
  story.write(8, 5);
  story.lost(8, 4);
  story.lost(8, 5);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .lost = 1, .overwritten = 1}));
}

TEST(LedgerTest, lostWrite_flipInTheRegisterIsAnotherError) {
  Story story;
  story.write(8, 5);
  story.lost(8, 4);
  story.flip(8, 0x10);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .lost = 1, .remaining = 2}));
  story.repair(8, 4, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .lost = 1, .repaired = 2}));
}

TEST(LedgerTest, reset_everyBitThatIsForgottenIsAnErrorUntilItIsRestored) {
  Story story;
  story.write(8, 7);
  story.write(12, 1);
  story.reset(8);
  story.reset(12);
  story.reset(16);
  EXPECT_EQ(story.account(), (Account{.injected = 4, .forgotten = 4, .remaining = 4}));
  story.restore(8, 7);
  story.write(12, 3);
  EXPECT_EQ(story.account(),
            (Account{.injected = 4, .forgotten = 4, .restored = 3, .overwritten = 1}));
}

TEST(LedgerTest, reset_endsFlips) {
  Story story;
  story.write(8, 1);
  story.flip(8, 0x10);
  story.reset(8);
  EXPECT_EQ(story.account(),
            (Account{.injected = 2, .forgotten = 1, .overwritten = 1, .remaining = 1}));
}

TEST(LedgerTest, reset_undoesALostWriteOfZeros) {
  Story story;
  story.write(8, 1);
  story.lost(8, 0);
  story.reset(8);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .lost = 1, .undone = 1}));
}

TEST(LedgerTest, replayMayMeetFlips) {
  Story story;
  story.write(8, 5);
  story.flip(8, 0x10);
  story.restore(8, 5);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .restored = 1}));
}

TEST(LedgerTest, stuckBit_isOneErrorHoweverOftenItIsRewritten) {
  Story story;
  story.write(8, 5);
  story.stick(8, 1);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .stuck = 1, .remaining = 1}));
  story.ledger.beginRepair(8, 4);
  story.writeStuck(8, 5, 1);
  story.ledger.endRepair();
  story.writeStuck(8, 7, 1);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .stuck = 1, .remaining = 1}));
  story.repair(8, 7, 0);
  EXPECT_EQ(story.account(), (Account{.injected = 1, .stuck = 1, .repaired = 1}));
}

TEST(LedgerTest, stuckBit_flipsOfOtherBitsAreLeftAlone) {
  Story story;
  story.write(8, 5);
  story.flip(8, 0x10);
  story.stick(8, 1);
  EXPECT_EQ(story.account(), (Account{.injected = 2, .stuck = 1, .remaining = 2}));
}

TEST(LedgerTest, repairThatWroteNothingNeedsNoDamage) {
  Story story;
  story.ledger.beginRepair(8, 4);
  story.ledger.endRepair(false);
  EXPECT_EQ(story.account(), Account());
}

TEST(LedgerTest, registerThatHoldsAValueFromTheStartIsNoError) {
  Story story;
  story.registers[2] = 7;
  story.ledger.valueIs(8, 7);
  EXPECT_EQ(story.account(), Account());
}

TEST(LedgerTest, soFar_countsBeforeTheSettlement) {
  Story story;
  story.flip(8, 3);
  story.flip(12, 1);
  story.repair(8, 0, 0);
  story.flip(8, 1);
  story.write(8, 9);
  EXPECT_EQ(story.ledger.soFar(), (Account{.injected = 4, .repaired = 3, .overwritten = 1}));
}

// The real thing: one thread flips, the other writes the same few registers all the time. Whatever
// the interleaving, the account must come out even.
TEST(LedgerTest, accountIsEvenWhileFlipsAndWritesRace) {
  constexpr U32 flips = 200'000;
  constexpr U32 registers = 4;  // few of them, so that writes and flips meet all the time
  alignas(4) static U32 chip[registers] = {};
  const auto log = std::make_unique<Demo::FlipLog>();
  std::atomic<bool> isDone{false};
  std::thread flipper([&] {
    std::mt19937 random(7);
    for (U32 i = 0; i < flips;) {
      if (log->isFull()) {
        std::this_thread::yield();
        continue;
      }
      const U32 address = random() % registers * 4;
      const U32 bit = U32{1} << random() % 32;
      const U32 before = std::atomic_ref<U32>(chip[address / 4]).fetch_xor(bit);
      log->append({address, before, before ^ bit, i++});
    }
    isDone = true;
  });

  Demo::Ledger ledger(sizeof chip);
  std::mt19937 random(11);
  const auto exchange = [&](U32 address, U32 value) {
    ledger.recordWrite(address, std::atomic_ref<U32>(chip[address / 4]).exchange(value), value);
  };
  const auto taken = [&] {
    for (Demo::Flip flip; log->take(flip);) ledger.recordFlip(flip);
  };
  U32 held[registers] = {};
  while (!isDone) {
    const U32 r = random() % registers;
    if (random() % 2 == 0) {
      exchange(r * 4, held[r] = static_cast<U32>(random() % 4));
    } else if (std::atomic_ref<U32>(chip[r]).load() != held[r]) {
      ledger.beginRepair(r * 4, 4);
      exchange(r * 4, held[r]);
      ledger.endRepair();
    }
    if (random() % 64 == 0) taken();
  }
  flipper.join();
  taken();

  const Account account = ledger.account(chip);
  EXPECT_EQ(account.injected, flips);
  EXPECT_EQ(account.unexplained, 0u);
  EXPECT_EQ(account.repairsWithoutDamage, 0u);
  EXPECT_EQ(account.injected,
            account.repaired + account.overwritten + account.undone + account.remaining);
  U32 remaining = 0;
  for (U32 r = 0; r < registers; ++r) {
    remaining += static_cast<U32>(__builtin_popcount(chip[r] ^ held[r]));
  }
  EXPECT_EQ(account.remaining, remaining);
}

// The same while writes are lost, registers are reset and a bit is stuck.
TEST(LedgerTest, accountIsEvenWhateverBefallsTheRegistersWhileFlipsRace) {
  constexpr U32 flips = 100'000;
  constexpr U32 registers = 4;
  alignas(4) static U32 chip[registers] = {};
  const auto log = std::make_unique<Demo::FlipLog>();
  std::atomic<bool> isDone{false};
  std::thread flipper([&] {
    std::mt19937 random(5);
    for (U32 i = 0; i < flips;) {
      if (log->isFull()) {
        std::this_thread::yield();
        continue;
      }
      const U32 address = random() % registers * 4;
      const U32 bit = U32{1} << random() % 32;
      const U32 before = std::atomic_ref<U32>(chip[address / 4]).fetch_xor(bit);
      log->append({address, before, before ^ bit, i++});
    }
    isDone = true;
  });

  Demo::Ledger ledger(sizeof chip);
  std::mt19937 random(13);
  U32 written[registers] = {};
  U32 stuck[registers] = {};
  while (!isDone) {
    const U32 r = random() % registers;
    std::atomic_ref<U32> held(chip[r]);
    const U32 value = static_cast<U32>(random());
    ledger.isRestoringIs(random() % 4 == 0);
    switch (random() % 8) {
      case 0:
        ledger.recordLostWrite(r * 4, written[r] = value);
        break;
      case 1:
        ledger.recordReset(r * 4, held.exchange(0), 0);
        break;
      case 2:
        stuck[r] = U32{1} << random() % 32;
        ledger.recordStuck(r * 4, held.fetch_and(~stuck[r]), stuck[r]);
        break;
      case 3:
        stuck[r] = 0;
        break;
      default:
        written[r] = value;
        ledger.recordWrite(r * 4, held.exchange(value & ~stuck[r]), value, value & ~stuck[r]);
    }
    for (Demo::Flip flip; random() % 64 == 0 && log->take(flip);) ledger.recordFlip(flip);
  }
  flipper.join();
  for (Demo::Flip flip; log->take(flip);) ledger.recordFlip(flip);
  for (U32 r = 0; r < registers; ++r) {
    ledger.recordWrite(r * 4, std::exchange(chip[r], written[r]), written[r]);
  }

  const Account account = ledger.account(chip);
  EXPECT_EQ(account.flips(), flips);
  EXPECT_GT(account.lost, 0u);
  EXPECT_GT(account.forgotten, 0u);
  EXPECT_GT(account.stuck, 0u);
  EXPECT_EQ(account.unexplained, 0u);
  EXPECT_EQ(account.remaining, 0u);
  EXPECT_EQ(account.injected,
            account.repaired + account.restored + account.overwritten + account.undone);
}

}  // namespace
