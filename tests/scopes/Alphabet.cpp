#include "scopes/Alphabet.h"

#include <cstring>

namespace Scopes {
namespace {

using Lockstep::Operation;
using Model::System;

constexpr U32 someValue = 0x11223344, otherValue = 0x55667788;

void writeEntries(const System& model, Call& call, int region, U32 entry, U32 entries, U32 value,
                  bool throughToChip) {
  const Model::Region& target = model.region(region);
  call.operation = Operation::write;
  call.region = region;
  call.entry = entry;
  call.entries = entries;
  call.entrySize = target.entrySize;
  call.size = entries * target.entrySize;
  call.address = target.address + entry * target.stride;
  call.method = target.method;
  call.on = throughToChip;
  for (U32 i = 0; i < entries; ++i) {
    U8 bytes[4];
    std::memcpy(bytes, &value, 4);
    call.data.insert(call.data.end(), bytes, bytes + 4);
  }
}
void flipInChip(const System& model, Call& call, U64 address) {
  call.operation = Operation::poke;
  call.address = address;
  call.value = model.chipPeek(Lockstep::chip, address) ^ 1;
}
void setMode(Call& call, int region, Model::Mode mode) {
  call.operation = Operation::mode;
  call.region = region;
  call.variant = static_cast<U32>(mode);
}
void setState(Call& call, Model::State state) {
  call.operation = Operation::state;
  call.value = static_cast<U32>(state);
}
void runTurns(const System& model, Call& call, U32 turns) {
  call.operation = Operation::turn;
  call.seconds = model.now() + 0.5;
  call.turns = turns;
}

}  // namespace

const std::vector<Letter>& alphabet() {
  static const std::vector<Letter> letters = {
      {"write-first",
       [](const System& m, Call& c) { writeEntries(m, c, first, 0, 1, someValue, true); }},
      {"write-first-cache",
       [](const System& m, Call& c) { writeEntries(m, c, first, 0, 2, otherValue, false); }},
      {"write-second-address",
       [](const System&, Call& c) {
         c.operation = Operation::writeByAddress;
         c.variant = 1;
         c.region = second;
         c.address = 0x100c;
         c.value = someValue;
       }},
      {"write-second-zero",
       [](const System& m, Call& c) { writeEntries(m, c, second, 0, 1, 0, true); }},
      {"read-first",
       [](const System&, Call& c) {
         c.operation = Operation::read;
         c.region = first;
         c.size = 8;
       }},
      {"read-second-address",
       [](const System&, Call& c) {
         c.operation = Operation::readByAddress;
         c.variant = 1;
         c.region = second;
         c.address = 0x100c;
       }},
      {"flip-first", [](const System& m, Call& c) { flipInChip(m, c, 0x1004); }},
      {"flip-second", [](const System& m, Call& c) { flipInChip(m, c, 0x1008); }},
      {"fail-access",
       [](const System&, Call& c) {
         c.operation = Operation::accessFailure;
         c.value = 1;
       }},
      {"next-mode-first",
       [](const System& m, Call& c) {
         setMode(c, first,
                 static_cast<Model::Mode>((static_cast<int>(m.region(first).mode) + 1) % 3));
       }},
      {"buffer-second",
       [](const System& m, Call& c) {
         const bool isNormal = m.region(second).mode == Model::Mode::normal;
         setMode(c, second, isNormal ? Model::Mode::buffered : Model::Mode::normal);
       }},
      {"toggle-shadow-first",
       [](const System& m, Call& c) {
         c.operation = Operation::flag;
         c.region = first;
         c.on = !m.region(first).shadowEnabled;
       }},
      {"toggle-audit-first",
       [](const System& m, Call& c) {
         c.operation = Operation::auditEnabled;
         c.region = first;
         c.on = !m.region(first).auditEnabled;
       }},
      {"clear-first",
       [](const System&, Call& c) {
         c.operation = Operation::doClearRange;
         c.region = first;
         c.entry = 0;
         c.value = 1;
         c.on = true;
       }},
      {"forget-first",
       [](const System&, Call& c) {
         c.operation = Operation::initializedBit;
         c.region = first;
         c.variant = 2;
       }},
      {"resize-second",
       [](const System& m, Call& c) {
         c.operation = Operation::entries;
         c.region = second;
         c.entries = 3 - m.region(second).entries;
       }},
      {"toggle-registered-second",
       [](const System& m, Call& c) {
         const bool isRegistered = m.shadow(Lockstep::shadow).registry.contains(0x1008);
         c.operation = isRegistered ? Operation::registryDel : Operation::registryAdd;
         c.region = second;
         c.address = 0x1008;
       }},
      {"unconfigure", [](const System&, Call& c) { setState(c, Model::State::unconfigured); }},
      {"configure", [](const System&, Call& c) { setState(c, Model::State::configured); }},
      {"stop", [](const System&, Call& c) { setState(c, Model::State::idle); }},
      {"audit", [](const System&, Call& c) { setState(c, Model::State::auditing); }},
      {"toggle-override",
       [](const System& m, Call& c) {
         c.operation = Operation::overrideHardware;
         c.on = !m.shadow(Lockstep::shadow).overrideHardware;
       }},
      {"turn", [](const System& m, Call& c) { runTurns(m, c, 1); }},
      // A pass of two regions of two entries: it begins, and four slices are read.
      {"pass", [](const System& m, Call& c) { runTurns(m, c, 5); }},
  };
  return letters;
}

Call callOf(U8 letter, const System& model) {
  Call call;
  call.possible = true;
  alphabet()[letter].resolve(model, call);
  return call;
}

std::string text(const Word& word) {
  std::string words;
  for (U8 letter : word) words += std::string(words.empty() ? "" : " ") + alphabet()[letter].name;
  return words;
}

namespace {
Word wordOf(std::initializer_list<const char*> names) {
  Word word;
  for (const char* name : names) {
    U8 letter = 0;
    while (std::strcmp(alphabet().at(letter).name, name) != 0) ++letter;
    word.push_back(letter);
  }
  return word;
}
}  // namespace

const std::vector<Start>& starts() {
  using Lockstep::comparing, Lockstep::copying, Lockstep::generic;
  using Kind = Model::Notification::Kind;
  static const std::vector<Start> all = {
      {"unconfigured", generic, copying, 9, {}},
      {"idle", generic, comparing, 0, wordOf({"configure", "write-first", "write-second-address"})},
      {"auditing", comparing, generic, 0,
       wordOf({"clear-first", "configure", "write-second-zero", "audit", "turn", "turn"})},
      // A reaction must come to rest: auditing an empty request is answered with idle, so no
      // notification of that may set auditing.
      {"auditOnMembers",
       generic,
       comparing,
       0,
       {},
       Model::Reaction{Kind::requestMember, Model::State::auditing}},
      {"idleOnCommands",
       generic,
       comparing,
       0,
       {},
       Model::Reaction{Kind::requestState, Model::State::idle}},
      {"idleOnStates",
       generic,
       comparing,
       0,
       {},
       Model::Reaction{Kind::shadowState, Model::State::idle}},
  };
  return all;
}

System modelOf(const Start& start) {
  System model;
  model.chipCreate();
  model.genericMethodCreate("generic", Lockstep::chip);
  model.sparseMethodCreate("sparse", Lockstep::chip, Lockstep::sparseStride);
  for (const char* name : {"refusing", "comparing", "copying"}) {
    model.genericMethodCreate(name, Lockstep::chip);
  }
  model.baseMethodCreate("unreachable");
  model.directoryCreate();
  model.shadowCreate();
  build(model, start);
  return model;
}

}  // namespace Scopes
