// Registers that were read together with others, until somebody asks for them. Used by RegisterHam
// alone.
#pragma once

#include <Zint/Types.h>
#include <platform/bus/RegisterBus.h>

#include <chrono>
#include <map>
#include <optional>
#include <vector>

namespace Platform {

class GatheredWindows {
 public:
  using Clock = std::chrono::steady_clock;

  explicit GatheredWindows(U32 width) : width_(width) {}

  void rangeIs(U32 begin, U32 end, U32 bytes, Zint::Seconds maxAge);

  // The part of the run that one window holds, from its beginning on; nothing where the first
  // register is in no range, or not aligned to one.
  struct Piece {
    RegisterRun wanted;
    RegisterRun window;
  };
  std::optional<Piece> pieceOf(const RegisterRun& run) const;

  // Hands up what is wanted, each register once. False: the window is to be read.
  bool take(const Piece& piece, U8* bytes, Clock::time_point now);
  // The bytes of the piece's window, of which the wanted ones have been handed up.
  void windowIs(const Piece& piece, std::vector<U8> bytes, Clock::time_point now);
  // What overlaps the run is not handed up any more.
  void drop(const RegisterRun& run);
  void dropAll();
  // How often a window was made, or dropped. Wraps.
  U32 changes() const { return changes_; }

 private:
  struct Range {
    U32 end;
    U32 bytes;
    Clock::duration maxAge;
  };
  struct Window {
    std::vector<U8> bytes;
    std::vector<bool> isTaken;  // of each register
    Clock::time_point read;
    Clock::duration maxAge;
  };

  const Range* rangeOf(U32 address) const;

  const U32 width_;
  std::map<U32, Range> ranges_;    // by their begin; they do not overlap
  std::map<U32, Window> windows_;  // by their begin
  U32 changes_ = 0;
};

}  // namespace Platform
