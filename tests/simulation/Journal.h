// What happened in one run, in order: a hash over all of it, a count of each kind of event, and, on
// demand, the last lines as text. Also takes down the rules that were broken.
#pragma once

#include <Zint/Types.h>

#include <array>
#include <cstddef>
#include <deque>
#include <iosfwd>
#include <string>

namespace Simulation {

// clang-format off
#define SIMULATION_EVENTS(X)                                                           \
  /* traffic: what the shadow said of a write or a read */                             \
  X(writeNeeded) X(writeHit) X(writeBuffered) X(writeOverridden) X(writeDropped)       \
  X(writeLazy) X(writeWithoutShadow) X(readServed) X(readPartial) X(readUnknownServed) \
  X(readOfOverride) X(readMissed) X(clear) X(clearRange) X(writebackKnown)             \
  X(writebackAll)                                                                      \
  /* faults */                                                                         \
  X(flip) X(flipDuringPass) X(flipOfIgnoredBit) X(bitStuck) X(bitsReleased)            \
  X(writeLost) X(repairLost) X(faultRepaired) X(readGlitch)                            \
  /* the audit */                                                                      \
  X(interruption) X(passStarted) X(passDone) X(passAbandoned) X(repair) X(learnt)      \
  X(recentWriteLeftAlone)                                                              \
  /* control */                                                                        \
  X(toIdle) X(toAuditing) X(nothingToAudit) X(toUnconfigured) X(toConfigured)          \
  X(regionRemoved) X(regionAdded) X(modeNormal) X(modeOverride) X(modeBuffered)        \
  X(auditOn) X(auditOff) X(shadowOn) X(shadowOff) X(overrideHardwareOn)                \
  X(overrideHardwareOff) X(sliceChanged) X(intervalChanged) X(clockJump)
// clang-format on

enum class Event : U32 {
#define X(name) name,
  SIMULATION_EVENTS(X)
#undef X
      count
};
constexpr std::size_t eventKinds = static_cast<std::size_t>(Event::count);
const char* eventName(std::size_t kind);

// What a run proves.
enum class Rule : U32 {
  attributed,  // every write that reaches a chip has a cause, and carries the right value
  repaired,    // every fault in a known, clean entry is repaired within two passes
  settled,     // when the faults end, chip and shadow are equal after two passes
  answered,    // what the shadow answers is right
  paced        // passes and slices come when they are due, and not earlier
};
const char* ruleName(Rule rule);

class Journal {
 public:
  static constexpr U32 nowhere = ~U32{0};

  // `keptLines`: how many of the last lines to keep as text; each also goes to `echo` unless null.
  explicit Journal(std::size_t keptLines = 0, std::ostream* echo = nullptr, bool goesOn = false)
      : keptLines_(keptLines), echo_(echo), goesOn_(goesOn) {}

  void timeIs(Zint::Seconds time);
  Zint::Seconds time() const { return time_; }

  void record(Event event, U32 region = nowhere, U32 entry = 0, U64 value = 0);
  void recordAccess(const char* kind, U32 chip, U32 offset, const U8* data, U32 size);
  void recordAnswer(bool answer, const U8* data, U32 size);
  void recordTrace(U32 level, const char* text);
  void broken(Rule rule, const std::string& text);

  U64 hash() const { return hash_; }
  U64 count(Event event) const { return counts_[static_cast<std::size_t>(event)]; }
  const std::array<U64, eventKinds>& counts() const { return counts_; }
  const std::deque<std::string>& lines() const { return lines_; }
  // The first one that was broken; empty for none.
  const std::string& failure() const { return failure_; }
  U32 broken() const { return broken_; }  // bit n: rule n
  // Whether the run is to end here: a rule was broken, and it does not go on to show what else is.
  bool isOver() const { return broken_ != 0 && !goesOn_; }

 private:
  void mix(U64 value) {
    hash_ = (hash_ ^ value) * 0x9e3779b97f4a7c15u;
    hash_ ^= hash_ >> 29;
  }
  void mix(const U8* data, std::size_t size);
  void line(const std::string& text);

  const std::size_t keptLines_;
  std::ostream* const echo_;
  const bool goesOn_;
  Zint::Seconds time_ = 0;
  U64 hash_ = 0xcbf29ce484222325u;
  std::array<U64, eventKinds> counts_{};
  std::deque<std::string> lines_;
  std::string failure_;
  bool closed_ = false;  // to further lines: the run is over
  U32 broken_ = 0;
};

// As printf.
[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);
std::string hexadecimal(const U8* data, std::size_t size);

}  // namespace Simulation
