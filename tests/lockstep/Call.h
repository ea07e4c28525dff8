// A step worked out: what exactly is asked of both sides. The same for both, because it is made
// from the model alone.
#pragma once

#include <string>

#include "lockstep/Operation.h"
#include "lockstep/Subject.h"
#include "support/model/Model.h"

namespace Lockstep {

// The handles of a scenario's only chip, shadow and directory.
constexpr int chip = 0;
constexpr int shadow = 0;
constexpr int directory = 0;

constexpr int maxRegions = 12;

struct Call {
  Operation operation = Operation::turn;
  bool possible = false;  // false: nothing to do
  U32 variant = 0;
  int region = Model::none;
  int request = Model::none;
  int reader = Model::none;
  U64 address = 0;
  U32 entry = 0;
  U32 entries = 0;
  U32 size = 0;  // of an access, in bytes
  U32 entrySize = 0;
  U32 stride = 0;
  U32 value = 0;
  U32 flags = 0;
  int method = 0;
  bool on = false;
  double seconds = 0;
  U32 turns = 1;  // run one after the other by Operation::turn
  std::string name;
  Bytes data;
};

// What the caller got.
struct Answer {
  U64 value = 0;
  Bytes data;
  std::string error;  // the text of an exception, with its kind
};

// Works the step out. `reader` is the model's present one.
void resolve(const Step& step, const Model::System& model, int reader, Call& call);
// The call in words, for reports.
std::string text(const Call& call);

// Where a region of that slot of addresses begins.
U64 slotAddress(U32 slot);

// Does what the call says. Side is Model::System or Subject.
template <class Side>
void perform(Side& side, const Call& call, Answer& answer);

extern template void perform(Model::System&, const Call&, Answer&);
extern template void perform(Subject&, const Call&, Answer&);

}  // namespace Lockstep
