// The texts of a replay.
#include <Driver/ReplayPlan.h>

#include <Zint/Enumeration.h>
#include <algorithm>

namespace Driver {
namespace {

constexpr const char* replayNotes[] = {"held", "skipped", "interrupted", "unsettled"};

Zint::String8 entriesText(U32 first, U32 entries) {
  if (entries == 1) return Zint::format("entry %u", first);
  return Zint::format("entries %u to %u", first, first + entries - 1);
}

Zint::String8 bytesText(const std::vector<U8>& bytes) {
  Zint::String8 text;
  const std::size_t shown = std::min<std::size_t>(bytes.size(), 32);
  for (std::size_t i = 0; i < shown; ++i) text += Zint::format("x%02X", bytes[i]);
  if (shown < bytes.size()) text += "...";
  return text;
}

// "1 access", "2 accesses"
Zint::String8 countText(U64 count, const char* one, const char* many) {
  return Zint::format("%ju %s", count, count == 1 ? one : many);
}

template <class Elements>
Zint::String8 linesOf(const Elements& elements) {
  Zint::String8 text;
  for (const auto& element : elements) {
    if (!text.empty()) text += "\n";
    text += element.stringValue();
  }
  return text;
}

}  // namespace

Zint::String8 stringValue(ReplayNote note) {
  const auto number = static_cast<U32>(note);
  if (number < std::size(replayNotes)) return replayNotes[number];
  return Zint::format("Driver::ReplayNote(%d)", static_cast<S32>(note));
}

Zint::String8 ReplayRemark::stringValue() const {
  Zint::String8 text = Driver::stringValue(note) + ": ";
  text += chipMemory == nullptr ? Zint::String8("no region") : chipMemory->name();
  if (entries != 0) text += " " + entriesText(first, entries);
  if (reason[0] != '\0') text += Zint::String8(", ") + reason;
  return text;
}

Zint::String8 ChipDifference::stringValue() const {
  return (chipMemory == nullptr ? Zint::String8("no region") : chipMemory->name()) +
         Zint::format(" entry %u: expected ", entry) + bytesText(expected) + ", actual " +
         bytesText(actual);
}

Zint::String8 ReplayPlan::stringValue() const {
  Zint::String8 text =
      countText(runs.size() + U64{reads}, "access", "accesses") + ", " +
      countText(entries, "entry", "entries") + ", " + countText(bytes, "byte", "bytes") + ", " +
      countText(slices, "slice", "slices") + ", " + Zint::valueToStrep(time) + " s";
  for (std::size_t i = 0; i < runs.size();) {
    const ReplayRun& begin = runs[i];
    U64 written = 0;
    U32 last = 0;
    U64 accesses = 0;
    for (;
         i < runs.size() && runs[i].chipMemory == begin.chipMemory && runs[i].group == begin.group;
         ++i) {
      written += runs[i].entries;
      last = runs[i].first + runs[i].entries - 1;
      accesses += runs[i].isRead ? 2 : 1;
    }
    text += Zint::format("\ngroup %u: ", begin.group) + begin.chipMemory->name() + ", " +
            countText(written, "entry", "entries") +
            (written == 1 ? Zint::format(" (%u)", last)
                          : Zint::format(" (%u to %u)", begin.first, last)) +
            ", " + countText(accesses, "access", "accesses");
  }
  if (!remarks.empty()) text += "\n" + linesOf(remarks);
  return text;
}

Zint::String8 stringValue(const std::vector<ReplayRemark>& remarks) { return linesOf(remarks); }
Zint::String8 stringValue(const std::vector<ChipDifference>& differences) {
  return linesOf(differences);
}

}  // namespace Driver
