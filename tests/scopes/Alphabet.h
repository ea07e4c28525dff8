// The small world that is explored exhaustively: two regions of two entries, a reader that reads
// one entry at a time, and the operations that are tried in every order.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lockstep/Call.h"

namespace Scopes {

using Lockstep::Answer;
using Lockstep::Call;

// One operation. What exactly it asks for depends on the model alone, so both sides are asked for
// the same.
struct Letter {
  const char* name;
  void (*resolve)(const Model::System& model, Call& call);
};
using Word = std::vector<U8>;  // letters by their index

const std::vector<Letter>& alphabet();
Call callOf(U8 letter, const Model::System& model);
std::string text(const Word& word);

// Where an exploration begins, and on which paths of the library it runs.
struct Start {
  const char* name;
  Lockstep::Method firstMethod, secondMethod;
  int traceLevel;
  Word prefix;                                             // performed before the explored words
  std::optional<Model::Reaction> reaction = std::nullopt;  // of a client's notifiee
};
const std::vector<Start>& starts();

constexpr int first = 0, second = 1;  // the regions' handles
constexpr int request = 0, reader = 0;

// Builds the world of the start, without its prefix. Side is Model::System or Lockstep::Subject.
template <class Side>
void build(Side& side, const Start& start) {
  side.requestCreate("audit");
  side.auditReadRequestIs(Lockstep::shadow, request);
  side.readerCreate(request, 1, 0.0);
  side.regionCreate("first", 0x1000, 2, 4, 4, start.firstMethod);
  side.regionCreate("second", 0x1008, 2, 4, 4, start.secondMethod);
  for (int region : {first, second}) {
    side.shadowEnabledIs(region, true);
    side.auditEnabledIs(region, true);
    side.readFromCacheIs(region, true);
    side.chipMemoryIs(Lockstep::shadow, region);
  }
  side.skipWriteIfMatchesCacheIs(first, true);
  side.traceLevelIs(start.traceLevel);
  if (start.reaction) side.reactionIs(*start.reaction);
}
// The model of the start, without its prefix.
Model::System modelOf(const Start& start);

}  // namespace Scopes
