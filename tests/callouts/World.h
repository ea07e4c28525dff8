// A driver at work: two chips, four tables with policies, an audited shadow, a writer, alarms and
// clients. Every call into the code of this world is counted.
#pragma once

#include <Driver/AlarmWatch.h>
#include <Driver/AuditedShadow.h>
#include <Driver/ChipAccess.h>
#include <Driver/ChipWriter.h>
#include <Driver/Governor.h>
#include <Zint/Trace.h>

#include <array>
#include <string>

#include "callouts/Calls.h"

namespace CallOuts {

using Driver::AuditedShadow;
using Driver::Chip;
using Driver::ChipAccess;
using Driver::ChipWriter;
using Driver::ChipWriteRequest;
using Driver::Policy;
using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

class World;

class CountedClock : public Zint::ManualClock {
 public:
  CountedClock(Zint::Name name, Calls& calls) : ManualClock(std::move(name)), calls_(calls) {}
  Zint::Seconds timeRead() const override {
    if (calls_.countsClock) calls_.out("the clock");
    return ManualClock::timeRead();
  }
  Zint::Seconds uncounted() const { return ManualClock::timeRead(); }

 private:
  Calls& calls_;
};

// Registers that need no memory, behind an access method.
class CountedHam : public Hardware::ChipHam {
 public:
  static constexpr U32 size = 0x2000;

  CountedHam(Zint::Name name, Calls& calls) : ChipHam(std::move(name)), calls_(calls) {}
  void doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;
  void doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;

  U32& word(U64 address) { return words_[static_cast<std::size_t>(address / 4)]; }
  void clear() { words_ = {}; }

  bool isAway = false;      // every access throws
  U64 stuck = ~U64{0};      // no write changes the entry at this address
  U64 transient = ~U64{0};  // the next read of the entry at this address is wrong

 protected:
  Calls& calls_;

 private:
  void requireAnswer() const;

  std::array<U32, size / 4> words_{};
};

// Its own comparison, and its own form in the cache.
class ComparingHam : public CountedHam {
 public:
  using CountedHam::CountedHam;
  bool doCompare(U8* a, U8* b, U32 bytes) const override;
  bool doReadToCache(U8* destination, U8* source, U32 bytes) const override;
  bool doWriteToCache(U8* destination, U8* source, U32 bytes) override;
  bool doReadFromCache(U8* destination, U8* source, U32 bytes) const override;
};

// A chip whose reset is found by a register that is cleared by the question.
class CountedChip : public Chip {
 public:
  CountedChip(Zint::Name name, const Hardware::ChipHam::Ptr& ham, World& world)
      : Chip(std::move(name), ham), world_(world) {}
  bool holds(const ChipMemory& region) const override;
  bool isPresent() override;
  bool wasReset() override;

 private:
  World& world_;
};

// Counts the exceptions that the runtime has caught, and keeps the first. Allocates nothing.
class QuietTrace : public Zint::TraceSink {
 public:
  QuietTrace() : before_(Zint::traceSinkIs(this)) {}
  ~QuietTrace() override { Zint::traceSinkIs(before_); }
  void traceLine(const Zint::TraceLine& line) override;

  U32 exceptions = 0;
  char first[160] = "";

 private:
  Zint::TraceSink* before_;
};

class World {
 public:
  static constexpr U32 entries = 16;
  static constexpr U32 tables = 4;
  // Masks, volatile entries and a baseline; no policy; an own comparison; buffered at times.
  enum Table { masked, plain, compared, held };

  World() = default;
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // --- What a driver does. Each can be repeated after an exception. ---
  void bringUp();
  // As clients: what they write is what the chip has to hold in the end.
  void write(Table table, U32 first, U32 count, U32 value);
  void read(Table table, U32 first, U32 count);
  // Turns until that many more passes are complete; not for ever.
  void pass(U32 passes = 1);
  // Moves the time to the next wake-up and turns.
  void turn();
  // Damages an entry on the chip.
  void damage(Table table, U32 entry, U32 bits);

  // --- What has to hold ---
  // The first broken rule; "" when all hold.
  std::string broken() const;
  // Whether the patrol works by itself, as it is.
  std::string patrolsByItself();
  // Takes back what was done to the regions and the shadow, so that all is audited again.
  void repairSetUp();
  // Lets the patrol work, and compares chips, shadows and what clients wrote.
  std::string differs(bool comparesClients);

  void addWatches();
  // Lets a governor set the pace.
  void addGovernor();
  Hardware::ChipHam::Ptr hamOf(U32 table) const;
  CountedHam& registersOf(U32 table) const;

  Calls calls;
  QuietTrace trace;
  bool isResetPending = false;
  std::array<std::array<U32, entries>, tables> written{};
  std::array<std::array<bool, entries>, tables> isWritten{};

  // Destroyed from the last to the first.
  Zint::Ptr<CountedClock> clock = Zint::makePtr<CountedClock>("clock", calls);
  Zint::Ptr<CountedClock> otherClock;
  Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  Zint::Ptr<Zint::ActivityConfig> otherActivity;
  Zint::Ptr<CountedHam> hams[2];  // kept; the layer's references are its own
  ChipMemory::Ptr regions[tables];
  Zint::Ptr<CountedChip> chip;
  Zint::Ptr<Policy> policies[2];
  Driver::AuditedShadow::Ptr shadow;
  Zint::Ptr<ChipAccess> accesses[tables];
  ChipWriteRequest::Ptr request;
  ChipWriter::Ptr writer;
  Driver::AlarmBoard::Ptr board;
  Zint::Ptr<Driver::AlarmWatch> alarms;
  Driver::Governor::Ptr governor;  // since a late step
  std::array<Zint::Ptr<Zint::NotifieeConst>, 10> watches;

 private:
  void makeRegions();
  void makeShadow();
  void makeRest();
};

}  // namespace CallOuts
