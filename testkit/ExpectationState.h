// How far an expectation has come. Not installed.
#pragma once

#include <testkit/FakeChip.h>

namespace TestKit {

struct StepState {
  StepState(const FakeChip& chip, const Step& step);

  // The single access that takes it; null: none does.
  const StepState* offer(const FakeChip::Cell& cell, const Access& access);
  // Nothing more has to come.
  bool isSatisfied() const;
  // Whether some access of this kind to the register is named.
  bool names(const FakeChip::Cell& cell, Kind kind) const;
  // What would be taken now, and what is missing: one line each.
  void addNext(std::vector<std::string>& lines) const;
  void addMissing(std::vector<std::string>& lines) const;

  Step step;  // its own steps have moved to `parts`
  FakeChip::Target target = {};
  std::vector<StepState> parts;
  std::size_t next = 0;  // in order: what comes before it is behind
  U64 taken = 0;
};

struct ExpectationState {
  ExpectationState(const FakeChip& chip, const Step& step, bool only, const char* itsFile,
                   int itsLine)
      : root(chip, step), isOnly(only), file(itsFile), line(itsLine) {}

  bool guards(const FakeChip::Cell& cell, Kind kind) const {
    return isOnly || root.names(cell, kind);
  }
  void noteUnexpected(const FakeChip& chip, const Access& access);

  StepState root;
  bool isOnly;  // no other access may come
  std::string file;
  int line;
  std::string unexpected;  // told of the first one; empty: there was none
  U64 moreUnexpected = 0;
};

}  // namespace TestKit
