// What can be seen of an audited shadow from outside, in order: accesses, questions, and what it
// tells.
#pragma once

#include <Driver/Finding.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace DriverLockstep {

using Bytes = std::vector<U8>;

enum class What : U8 { read, write, present, wasReset, veto, finding, begin, pass, client };

struct Event {
  What what = What::read;
  U32 region = 0;  // of present and wasReset: the chip
  U32 entry = 0;
  U32 count = 0;
  bool answer = false;  // of a question; of an access: it threw
  bool isLost = false;  // a write that an absent chip did not take
  // Written; of a read: what was answered, if that is not what the chip holds; of a finding and a
  // veto: what the chip held.
  Bytes data{};
  Bytes expected{};  // of a finding and a veto
  Driver::Verdict verdict = Driver::Verdict::repaired;
  Driver::Nature nature = Driver::Nature::unverified;
  Driver::PassResult pass{};

  std::string text() const;
  // Without the times of a pass.
  bool equals(const Event& other) const;
};

using Events = std::vector<Event>;

// How a chip that is absent behaves.
enum class Absence : U8 { none, throws, ones, zeros };

}  // namespace DriverLockstep
