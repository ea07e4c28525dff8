// One simulated chip: a flat memory with faults. It notifies a watcher of every access.
#pragma once

#include <Zint/Types.h>

#include <vector>

namespace Simulation {

class Chip {
 public:
  // Sees what really reaches the chip, before the memory changes, and what the chip answers.
  class Watcher {
   public:
    virtual void onChipRead(U32 chip, U32 offset, const U8* data, U32 size, bool glitched) = 0;
    virtual void onChipWrite(U32 chip, U32 offset, const U8* data, U32 size, bool lost) = 0;
    // An access that leaves the chip's memory; it has no effect.
    virtual void onChipMiss(U32 chip, U32 offset, U32 size) = 0;

   protected:
    ~Watcher() = default;
  };

  Chip(U32 number, U32 bytes, Watcher& watcher)
      : number_(number), memory_(bytes), watcher_(watcher) {}

  void read(U32 offset, U8* data, U32 size);
  void write(U32 offset, const U8* data, U32 size);

  const U8* memory() const { return memory_.data(); }
  U8* memory() { return memory_.data(); }

  // --- Faults; a stuck bit resists them all ---
  void flip(U32 offset, U32 bit);
  void stick(U32 offset, U32 bit);  // at the value that it does not have now
  bool isStuck(U32 offset, U32 size) const;
  // The next write that touches the offset has no effect.
  void loseNextWrite(U32 offset) { lost_ = offset; }
  // The next read that touches the offset answers with that bit changed.
  void glitchNextRead(U32 offset, U32 bit);
  // Frees the stuck bits, which keep their values until they are written.
  void releaseStuckBits() { stuck_.clear(); }
  bool hasStuck() const { return !stuck_.empty(); }
  // No fault is pending any more, and no bit is stuck.
  void endFaults();

 private:
  static constexpr U32 none = ~U32{0};
  struct Stuck {
    U32 offset;
    U8 mask;
    U8 value;
  };
  bool holds(U32 offset, U32 size);

  const U32 number_;
  std::vector<U8> memory_;
  Watcher& watcher_;
  std::vector<Stuck> stuck_;
  U32 lost_ = none;
  U32 glitch_ = none;
  U8 glitchMask_ = 0;
};

}  // namespace Simulation
