#include "scopes/Explorer.h"

#include <Mirl/Mirl.h>

#include <bit>
#include <utility>

#include "lockstep/Comparison.h"

namespace Scopes {
namespace {

using Lockstep::Subject;
using Model::System;

class Hash {
 public:
  void add(U64 value) {
    state_ = (state_ ^ value) * 0x9fb21c651e98df25u;
    state_ ^= state_ >> 32;
  }
  void add(double value) { add(std::bit_cast<U64>(value)); }
  void add(const std::optional<Model::Bytes>& bytes) {
    add(bytes ? U64{bytes->size()} : ~U64{0});
    if (!bytes) return;
    for (U8 byte : *bytes) add(U64{byte});
  }
  U64 value() const { return state_; }

 private:
  U64 state_ = 0x9e3779b97f4a7c15u;
};

void addRegion(Hash& hash, const Model::Region& region) {
  hash.add(U64{region.entries});
  hash.add(U64{region.shadowEnabled} | U64{region.auditEnabled} << 1 |
           U64{region.readFromCache} << 2 | U64{region.skipWriteIfMatchesCache} << 3 |
           U64{region.allowsLogicalViews} << 4 | static_cast<U64>(region.mode) << 5);
  hash.add(region.readCacheHits);
  hash.add(region.writeCacheHits);
  hash.add(U64{region.registersFixed});
  hash.add(region.lastFixTime);
  hash.add(region.hardware);
  hash.add(region.shadow);
  hash.add(region.initialized);
  hash.add(region.dirty);
}

U64 handleValue(int handle) { return static_cast<U64>(static_cast<S64>(handle)); }

}  // namespace

U64 fingerprint(const System& model) {
  Hash hash;
  for (int region = 0; region < model.regions(); ++region) addRegion(hash, model.region(region));
  const Model::Shadow& shadow = model.shadow(Lockstep::shadow);
  hash.add(static_cast<U64>(shadow.state) | U64{shadow.overrideHardware} << 8);
  hash.add(shadow.lastAuditStartTime);
  hash.add(U64{shadow.audits});
  hash.add(U64{shadow.entriesUnderAudit});
  hash.add(handleValue(shadow.last));
  hash.add(U64{shadow.registry.size()});
  for (const auto& [address, region] : shadow.registry) hash.add(handleValue(region));
  hash.add(U64{shadow.index.size()});
  for (const auto& [id, regions] : shadow.index) {
    hash.add(U64{regions.size()});
    for (const auto& [offset, region] : regions) hash.add(handleValue(region));
  }
  const Model::Request& asked = model.request(request);
  hash.add(U64{asked.state} | U64{asked.status} << 8 | asked.generation << 16);
  hash.add(U64{asked.members.size()});
  for (const Model::RequestMember& member : asked.members) hash.add(handleValue(member.region));
  const Model::Reader& reading = model.reader(reader);
  hash.add(handleValue(reading.current));
  hash.add(U64{reading.entriesRead});
  hash.add(U64{reading.queue.size()});
  for (int region : reading.queue) hash.add(handleValue(region));
  // Of the order in which the two wake-ups were armed, only who is first matters.
  hash.add(shadow.alarm.due);
  hash.add(reading.alarm.due);
  hash.add(U64{shadow.alarm.order < reading.alarm.order});
  hash.add(model.now());
  const Model::Chip& chip = model.chip(Lockstep::chip);
  hash.add(chip.failIn);
  for (const auto& [page, values] : chip.pages) {
    for (U32 value : values) hash.add(U64{value});
  }
  return hash.value();
}

Explorer::Branch Explorer::branchOf(const Word& word) const {
  Branch branch{modelOf(start_), {}};
  Word whole = start_.prefix;
  whole.insert(whole.end(), word.begin(), word.end());
  Answer answer;
  for (U8 letter : whole) {
    branch.calls.push_back(callOf(letter, branch.model));
    perform(branch.model, branch.calls.back(), answer);
  }
  System& model = branch.model;
  model.trace().clear();
  model.records().clear();
  model.accesses().clear();
  model.notifications().clear();
  return branch;
}

Explorer::End Explorer::runLetter(const Branch& branch, U8 letter, System& model) {
  const Call call = callOf(letter, model);
  Answer expected, actual;
  std::optional<Model::Fatal> fatal;
  try {
    perform(model, call, expected);
  } catch (const Model::Fatal& caught) {
    fatal = caught;
  }

  // The library has no copies of itself: it is led to the branch from the start.
  Subject subject;
  build(subject, start_);
  for (const Call& before : branch.calls) perform(subject, before, actual);
  subject.trace().clear();
  subject.accesses().clear();
  subject.notifications().clear();
  Mirl::theTraceFile.clear();
  try {
    perform(subject, call, actual);
  } catch (...) {
    if (!subject.failure()) throw;
  }
  ++figures_.sequences;
  figures_.letters += branch.calls.size() + 1;

  Lockstep::Comparison comparison(model, subject);
  bool same;
  if (fatal || subject.failure()) {
    same = comparison.compareFatal(fatal ? *fatal : Model::Fatal{});
    if (same) ++figures_.endings;
  } else {
    same = comparison.compareAnswers(expected, actual) && comparison.compareLogs(call, false) &&
           comparison.compareShadow() && comparison.compareRequest() &&
           comparison.compareReader(reader) && comparison.compareAll();
  }
  if (!same) {
    what_ = comparison.difference();
    return End::differs;
  }
  return fatal ? End::fatal : End::goesOn;
}

std::optional<Difference> Explorer::explore(U32 depth, Merge merge) {
  const U8 letters = static_cast<U8>(alphabet().size());
  std::vector<Word> words = {{}}, longer;
  for (U32 length = 1; length <= depth; ++length) {
    for (const Word& word : words) {
      const Branch branch = branchOf(word);
      for (U8 letter = 0; letter < letters; ++letter) {
        System model = branch.model;
        const End end = runLetter(branch, letter, model);
        if (end == End::fatal) continue;
        if (end == End::differs) {
          Word shown = word;
          shown.push_back(letter);
          return Difference{shown, what_};
        }
        const bool isNew = states_.insert(fingerprint(model)).second;
        if (length == depth || (merge == Merge::states && !isNew)) continue;
        longer.push_back(word);
        longer.back().push_back(letter);
      }
    }
    words = std::exchange(longer, {});
  }
  figures_.states = states_.size();
  return std::nullopt;
}

}  // namespace Scopes
