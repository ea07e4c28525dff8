// What will go wrong with a shadow and its regions as they are set up, each with its remedy.
//
//   for (const auto& complaint : Driver::check(shadow)) std::cerr << complaint->stringValue() <<
//   "\n";
//
// By name, the operation `check` of an audited shadow returns the same as text.
//
// Call it when the shadow is configured and its reader is there: before that, the index of the
// look-up and the request of the audit cannot be looked at.
#pragma once

// Before check(): its id of that name shadows a function that is declared already.
#include <Driver/AuditedShadow.h>
#include <Hardware/HardwareShadow.h>
#include <vector>

namespace Driver {

enum class ComplaintKind : S32 {
  overlap,          // two regions contain one address: the answer depends on what was asked before
  replaced,         // a region gave way to another one at its address, or the index is out of date
  wrappingSpan,     // the region reaches beyond what its addresses can count
  stride,           // entries have gaps, and the access method reads packed words
  wordSize,         // entries are no whole words, and the access method accesses words
  zeroSize,         // entries, entrySize or stride is 0
  smallBuffer,      // the hardware buffer is smaller than the entries
  neverRead,        // under audit, but nothing reads it
  neverCompared,    // under audit, but without a shadow
  auditedTwice,     // under the audit of two shadows
  bufferedAudit,    // under audit while buffered
  skippedVolatile,  // entries that change by themselves, served or skipped as all others are
  overriddenAudit,  // overrideHardware is set while auditing
  zeroInterval,     // the audit never pauses
  longSlice,        // slices take more than the share of the thread that was asked
  unmatchedRun      // a policy says something of entries that the region does not have
};

class UMBRA_API Complaint : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<const Complaint>;

  struct Id {
    enum : Zint::AttributeId { kind = Zint::firstAttributeId, subject, text, remedy };
  };

  Complaint(ComplaintKind kind, Zint::String8 subject, Zint::String8 text, Zint::String8 remedy);

  const Zint::Type* fwkType() const override;

 protected:
  ~Complaint() override;

 public:
  ComplaintKind kind() const { return kind_; }
  // The region's name, or "shadow".
  const Zint::String8& subject() const { return subject_; }
  const Zint::String8& text() const { return text_; }
  const Zint::String8& remedy() const { return remedy_; }
  // "subject: text. remedy."
  Zint::String8 stringValue() const;

 private:
  const ComplaintKind kind_;
  const Zint::String8 subject_;
  const Zint::String8 text_;
  const Zint::String8 remedy_;
};

// What a check may look at besides the shadow.
struct CheckWith {
  // Other shadows of the process. The checked one may be among them.
  std::vector<Zint::Ptr<const Hardware::HardwareShadow>> shadows = {};
  // The regions that the driver means to have, for those that were replaced.
  std::vector<Hardware::ChipMemory::Ptr> regions = {};
  // How long a slice takes, and which part of the thread's time slices may take. For an audited
  // shadow without a governor: a governor has measured it.
  Zint::Seconds sliceTime = 0;
  double share = 1;
};

// First those of the shadow, then those of its regions in ascending order of addresses, then those
// of other regions. Looks only: no chip is accessed, nothing is called that a client can override.
// Takes time in proportion to the number of regions, of runs of policies and of volatile entries.
// Null: a range exception.
UMBRA_API std::vector<Complaint::Ptr> check(const Zint::Ptr<const Hardware::HardwareShadow>& shadow,
                                            const CheckWith& with = {});

// The enumerator's name; another number as ComplaintKind(number).
UMBRA_API Zint::String8 stringValue(ComplaintKind kind);
UMBRA_API Zint::String8 valueToStrep(const ComplaintKind& kind);
UMBRA_API std::ostream& operator<<(std::ostream& out, const ComplaintKind& kind);

// The names under which reflection shows them.
constexpr const char* zintTypeName(const Complaint*) { return "Driver::Complaint"; }
constexpr const char* zintTypeName(const ComplaintKind*) { return "Driver::ComplaintKind"; }

}  // namespace Driver
