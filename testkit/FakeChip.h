// A chip in memory: registers that do what real ones do, faults, and a log of the accesses.
//
//   auto chip = TestKit::fakeChipFactory("asic");
//   chip->registerIs({.name = "ctrl", .address = 0x0, .resetValue = 3});
//   chip->registerIs({.name = "mac", .address = 0x1000, .count = 128});
//   chip->registerIs({.name = "drops", .address = 0x2000, .clearOnRead = TestKit::allBits});
//   auto ham = Hardware::genericChipHamFactory("asic", chip);  // or ChipBus.h, 8 to 64 bits
//
//   chip->flip("mac[7]", 4);                     // damage that no access sees
//   const auto gone = chip->absent();            // until the end of the scope
//   const auto never = chip->expectNeverRead("drops");
//   chip->value("mac[7]"), chip->writes("mac")   // what it holds, what was accessed
//
// A register is named "ctrl", "mac[7]", "mac" (all of an array: where that makes sense), or by its
// address "0x1000". An unknown name is a range exception. What is random depends on seed() alone,
// which every failing message names.
//
// Belongs to one thread at a time. It calls out only beforeAccess, which may do anything.
#pragma once

#include <Fru/HamImpl.h>
#include <Zint/Clock.h>
#include <Zint/Exception.h>
#include <Zint/Ptr.h>
#include <testkit/Expectation.h>
#include <testkit/Fault.h>
#include <testkit/Register.h>

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string_view>
#include <unordered_map>

namespace TestKit {

// What an access throws that gets no answer.
class NoAnswer : public Zint::Exception {
 public:
  using Exception::Exception;
};

// Addresses without a register: an access is a range exception that names the address, or finds a
// plain register of 4 bytes that holds 0.
enum class Unnamed : U8 { refused, plain };

class FakeChip : public Fru::HamImpl {
 public:
  using Ptr = Zint::Ptr<FakeChip>;

  explicit FakeChip(std::string name, Unnamed unnamed = Unnamed::refused);

 protected:
  ~FakeChip() override;

 public:
  // Adds a register, or an array of them, with the reset value. A name that is in use or empty,
  // another width than 1, 2, 4 or 8, bytes that belong to another register: a range exception.
  void registerIs(const Register& shape);

  // --- The driver's side
  // --------------------------------------------------------------------------
  void read(U32 address, U32* value) override { *value = static_cast<U32>(doRead(address, 4)); }
  void write(U32 address, U32 value) override { doWrite(address, 4, value); }
  // An access within one register, of its width or less. Others: a range exception; not counted.
  U64 doRead(U64 address, U32 width);
  void doWrite(U64 address, U32 width, U64 value);
  // Runs before each access has any effect; may throw, which leaves it undone and unlogged.
  void beforeAccessIs(std::function<void(const Access&)> before);
  // The time of the log and of slow(); none: 0.
  void clockIs(const Zint::Ptr<Zint::ManualClock>& clock) { clock_ = clock; }

  // --- The test's side: no access, no side effect
  // -------------------------------------------------
  const std::string& name() const { return name_; }
  U64 value(std::string_view name) const;
  void valueIs(std::string_view name, U64 value);  // all of an array
  // The bytes from an address on, as accesses of one byte would find them; 0 without a register.
  void bytesAt(U64 address, U8* bytes, U32 size) const;
  // Accesses since the construction; of one register, or of an array.
  U64 reads() const { return reads_; }
  U64 writes() const { return writes_; }
  U64 reads(std::string_view name) const { return countOf(name, Kind::read); }
  U64 writes(std::string_view name) const { return countOf(name, Kind::write); }
  // The accesses since the last call, at most the last 65,536 of them.
  std::vector<Access> taken();
  // The last `count` accesses, at most 20: "  #17 write mac[7] 0x12 valid=0 port=9 @12.5ms" each.
  std::string lastAccesses(std::size_t count = 20) const;
  // Whether some of these bytes belong to a register.
  bool hasBytes(U64 address, U32 size) const;
  // In bytes, of the register at this address; 4 where no register is.
  U32 widthAt(U64 address) const;
  // "mac[7]", or the address where no register is.
  std::string registerName(U64 address) const;
  // "mac[7] 0x12 valid=0 port=9"
  std::string valueText(U64 address, U64 value) const;

  // --- Expectations: see Expectation.h
  // ------------------------------------------------------------ Accesses that `step` names must
  // come as it says, until the result ends; others are free.
  Expectation expect(const Step& step, const char* file = __builtin_FILE(),
                     int line = __builtin_LINE());
  // No other access may come.
  Expectation expectOnly(const Step& step, const char* file = __builtin_FILE(),
                         int line = __builtin_LINE());
  Expectation expectNeverRead(const std::string& name, const char* file = __builtin_FILE(),
                              int line = __builtin_LINE());
  Expectation expectNeverWritten(const std::string& name, const char* file = __builtin_FILE(),
                                 int line = __builtin_LINE());

  // --- Faults that happen at once
  // ----------------------------------------------------------------- Flips a bit; of an array, in
  // one of its registers; without `bit`, any. Returns what was flipped: "mac[7] bit 4".
  std::string flip(std::string_view name, std::optional<U32> bit = {});
  // All registers as after power-on.
  void resetNow();

  // --- Faults that last
  // --------------------------------------------------------------------------- Reads are answered
  // as told or throw NoAnswer, writes are lost. No register changes.
  Fault absent(Absence absence = Absence::allOnes);
  // These bits have their value in `value`, whatever is written. Afterwards they keep it until
  // somebody writes them.
  Fault stuckAt(std::string_view name, U64 bits, U64 value);
  // Each write is lost with this chance.
  Fault lostWrite(std::string_view name, double chance = 1);
  // Each access throws NoAnswer with this chance, and has no effect.
  Fault failing(std::string_view name, double chance = 1);
  // Before each read, a bit flips with this chance: that bit, or any. With 1: an error that recurs
  // after each repair.
  Fault flipping(std::string_view name, double chance = 1, std::optional<U32> bit = {});
  // Each access moves the clock on. Without a clock: a range exception.
  Fault slow(Zint::Seconds perAccess);
  // The chip is reset right before the n-th access from now on, 1 being the next.
  Fault resetAfter(U64 accesses);

  U64 seed() const { return seed_; }
  void seedIs(U64 seed);

  // --- For those that match accesses
  // -------------------------------------------------------------- Which registers a name means:
  // all of the chip, all of an array, or one.
  struct Target {
    const Register* shape = nullptr;  // null: all
    U32 index = allElements;
    static constexpr U32 allElements = ~U32{0};
  };
  struct Cell {
    const Register* shape;
    U64 address;
    U32 index;
    U64 value = 0;
    U64 written = 0;  // bits, since the reset
    U64 reads = 0, writes = 0;
    bool isIn(const Target& target) const {
      return target.shape == nullptr ||
             (target.shape == shape &&
              (target.index == Target::allElements || target.index == index));
    }
  };
  // "" is the whole chip.
  Target target(std::string_view name) const;

 private:
  friend class Expectation;
  struct Logged {
    Access access;
    U64 number;
    Zint::Seconds time;
    bool hasFailed;
  };
  struct Touched {
    Cell* cell;
    U32 shift;  // of the access within the register, in bits
    U64 mask;   // the bits of the access, at 0
  };

  [[noreturn]] void refuse(const std::string& what) const;
  // The register that has this byte; null: none.
  Cell* find(U64 address) const;
  // The same; where there may be a plain register, it is made.
  Cell* findOrMake(U64 address, U32 width) const;
  Touched touch(U64 address, U32 width) const;
  Cell& cellOf(std::string_view name) const;
  std::vector<Cell*> cellsOf(const Target& which) const;
  struct FaultsMet {
    bool fails = false;
    bool isLost = false;        // a write
    std::optional<U64> answer;  // of a read
  };

  U64 access(Access access);
  FaultsMet meetFaults(Cell& cell, Kind kind);
  const StepState* offer(const Cell& cell, const Access& access);
  void happen(const Touched& touched, U64 value);
  U64 answer(const Touched& touched);
  void settle(Cell& cell, U64 value);
  void log(const Access& access, bool hasFailed);
  std::string logText(const Logged& logged) const;
  U64 countOf(std::string_view name, Kind kind) const;
  bool happens(double chance);
  U32 flipBit(Cell& cell, std::optional<U32> bit);
  std::string cellName(const Cell& cell) const;
  void requireBit(const Target& which, std::optional<U32> bit) const;
  Fault faultIs(const FaultState& state);

  const std::string name_;
  const Unnamed unnamed_;
  const Register plain_[2];  // of 4 and of 8 bytes
  std::deque<Register> shapes_;
  // By address. Plain ones are made also by const operations that name them.
  mutable std::map<U64, Cell> cells_;
  std::unordered_map<std::string, const Register*> names_;
  std::vector<std::shared_ptr<FaultState>> faults_;
  std::vector<std::shared_ptr<ExpectationState>> expectations_;
  std::deque<Logged> log_;
  std::deque<Logged> recent_;
  U64 reads_ = 0, writes_ = 0;
  U64 seed_ = 1;
  std::mt19937_64 random_{1};
  std::function<void(const Access&)> before_;
  Zint::Ptr<Zint::ManualClock> clock_;
};

Zint::ValidPtr<FakeChip> fakeChipFactory(std::string name, Unnamed unnamed = Unnamed::refused);

}  // namespace TestKit
