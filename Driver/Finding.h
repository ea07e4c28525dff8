// What the patrol of an audited shadow tells: one difference, and the end of a pass.
#pragma once

#include <Driver/Chip.h>
#include <Driver/Policy.h>
#include <Driver/RegisterNames.h>
#include <Hardware/ChipMemory.h>
#include <span>

namespace Driver {

// What was done with an entry that differs.
enum class Verdict : S32 {
  repaired,          // rewritten from the shadow
  adopted,           // nobody wrote it yet: its value is known now
  writtenMeanwhile,  // a client wrote it since the last visit: the difference proves nothing
  detectOnly,        // its rule, or its region's, forbids to rewrite it
  deferred,          // rewritten later: the region is buffered, or a limit of the pass is reached
  refused,           // a notifiee vetoed the repair
  transient,         // equal at the second look
  quarantined,       // repaired too often: reported, not rewritten
  failed,            // the access method threw at the repair
  reset              // the chip lost its state: the chip is restored, not this entry
};

// What a repair has shown. `unverified` where the entry was not read again.
enum class Nature : S32 {
  unverified,
  soft,       // the repair holds
  recurring,  // it holds, but the entry was repaired not long ago
  stuck       // the write has no effect
};

// One difference. Valid during the call that tells it; the bytes lie in buffers that the caller
// holds.
struct UMBRA_API Finding {
  Chip::Ptr chip;
  Hardware::ChipMemory::Ptr chipMemory;
  U32 entry = 0;
  std::span<const U8> expected;  // entrySize bytes: what the shadow holds
  std::span<const U8> actual;    // what the chip held
  Verdict verdict = Verdict::repaired;
  Nature nature = Nature::unverified;
  Zint::Seconds time = 0;         // of the shadow's clock
  Policy::Ptr policy = {};        // of the region; null where there is none
  RegisterNames::Ptr names = {};  // the shadow's; null where there are none

  // "mac entry 17: expected x00x01, actual x00x00: repaired (soft)". At most 32 bytes of each. With
  // names, byName() stands behind it: "...: repaired (soft); mac[17].valid expected 1 actual 0".
  Zint::String8 stringValue() const;
  // "mac[17].valid expected 1 actual 0": what differs in bits that are compared; empty without
  // names, or where they throw.
  Zint::String8 byName() const;
};

// One pass over all regions under audit.
struct UMBRA_API PassResult {
  bool isComplete = false;
  Zint::String8 reason;        // why it ended early; empty when it is complete
  Zint::Seconds start = 0;     // of the shadow's clock
  Zint::Seconds duration = 0;  // from its start to its end
  Zint::Seconds longestTurn = 0;
  U64 entries = 0;      // read and judged
  U64 differences = 0;  // all verdicts but adopted and writtenMeanwhile
  U64 repairs = 0;
  U64 adopted = 0;

  Zint::String8 stringValue() const;
};

// One turn of the patrol, or its work outside a pass: an audit on demand, a look whether an absent
// chip answers. What it took of the thread.
struct UMBRA_API TurnResult {
  Zint::Seconds start = 0;  // of the shadow's clock
  Zint::Seconds duration = 0;
  // Of all its accesses, and of the longest one; 0 unless turns have a bound.
  Zint::Seconds accessTime = 0;
  Zint::Seconds longestAccess = 0;
  U64 entries = 0;       // judged or passed over
  bool isFirst = false;  // of a pass
  bool isLast = false;   // of a pass that is not ended early
  bool isOutsidePass = false;
};

// "repaired", "adopted", "writtenMeanwhile", ...; another number as Driver::Verdict(number).
UMBRA_API Zint::String8 stringValue(Verdict verdict);
UMBRA_API Zint::String8 stringValue(Nature nature);
UMBRA_API std::ostream& operator<<(std::ostream& out, Verdict verdict);
UMBRA_API std::ostream& operator<<(std::ostream& out, Nature nature);

}  // namespace Driver
