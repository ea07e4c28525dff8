// What a policy says of entries, for people.
#include <Driver/Policy.h>

#include <Zint/Bytes.h>

namespace Driver {
namespace {

constexpr U32 mostRunsListed = 8;

Zint::String8 policyBytesText(const std::vector<U8>& bytes) {
  return Zint::valueToStrep(Zint::Bytes{bytes});
}

Zint::String8 policyRunText(U32 first, U64 end) {
  return end - first == 1 ? Zint::format(" (entry %u)", first)
                          : Zint::format(" (entries %u to %u)", first, static_cast<U32>(end - 1));
}

// The run that holds the entry, "" if that is the whole region. Of a run that leaves the region,
// the part within.
template <class T>
Zint::String8 policyRunAt(const Runs<T>& runs, U32 entry, U32 entries) {
  U64 end = runs.endOf(entry);
  if (entry < entries) end = std::min(end, U64{entries});
  if (runs.firstOf(entry) == 0 && end == entries) return "";
  return policyRunText(runs.firstOf(entry), end);
}

// Calls `use` for each run beyond `entries` whose value is not the default.
template <class T, class Use>
void eachUnmatchedRun(const Runs<T>& runs, U32 entries, Use use) {
  const auto& all = runs.runs();
  for (auto run = all.rbegin(); run != all.rend() && run->first >= entries; ++run) {
    if (run->value != T{}) use(*run, policyRunText(run->first, runs.endOf(run->first)));
  }
}

}  // namespace

Zint::String8 Policy::textOfMask(const Mask& mask) {
  if (mask.bits.empty()) return "no mask";
  return "mask " + policyBytesText(mask.bits) + " " + stringValue(mask.rewrite);
}

Zint::String8 Policy::text(U32 entry) const {
  const U32 entries = chipMemory_->entries();
  Zint::String8 text = stringValue(rule(entry)) + policyRunAt(rules_, entry, entries);
  if (const auto& own = masks_.at(entry); own.value != nullptr) {
    text += "; " + textOfMask(*own.value) + policyRunAt(masks_, entry, entries);
  } else if (mask_.value != nullptr) {
    text += "; " + textOfMask(*mask_.value) + " of the region";
  }
  if (isOnce(entry)) text += "; once" + policyRunAt(once_, entry, entries);
  if (unwritten_ != Unwritten::adopted) text += "; unwritten: " + stringValue(unwritten_);
  if (const auto& reset = resets_.at(entry); reset.value != nullptr) {
    text += "; reset value " + policyBytesText(*reset.value) + policyRunAt(resets_, entry, entries);
  }
  if (auditEvery_ != 1) text += Zint::format("; read in one of %u passes", auditEvery_);
  if (!isInForce_) text += "; not in force";
  if (entry >= entries) text += Zint::format("; beyond the region's %u entries", entries);
  return text;
}

bool Policy::hasUnmatchedRun() const {
  bool has = false;
  const U32 entries = chipMemory_->entries();
  const auto found = [&has](const auto&, const auto&) { has = true; };
  eachUnmatchedRun(rules_, entries, found);
  eachUnmatchedRun(masks_, entries, found);
  eachUnmatchedRun(once_, entries, found);
  eachUnmatchedRun(resets_, entries, found);
  return has;
}

Zint::String8 Policy::unmatchedRuns() const {
  Zint::String8 text;
  U32 listed = 0;
  const auto add = [&](const Zint::String8& what, const Zint::String8& run) {
    if (++listed > mostRunsListed) return;
    text += (listed == 1 ? "" : ", ") + what + run;
  };
  const U32 entries = chipMemory_->entries();
  eachUnmatchedRun(rules_, entries,
                   [&](const auto& run, const auto& at) { add(stringValue(run.value), at); });
  eachUnmatchedRun(masks_, entries,
                   [&](const auto& run, const auto& at) { add(textOfMask(*run.value.value), at); });
  eachUnmatchedRun(once_, entries, [&](const auto&, const auto& at) { add("once", at); });
  eachUnmatchedRun(resets_, entries, [&](const auto& run, const auto& at) {
    add("reset value " + policyBytesText(*run.value.value), at);
  });
  if (listed > mostRunsListed) text += Zint::format(" and %u more", listed - mostRunsListed);
  return text;
}

}  // namespace Driver
