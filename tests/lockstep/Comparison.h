// Compares the library with the model: answers, logs and every attribute that can be read.
#pragma once

#include <optional>
#include <string>

#include "lockstep/Call.h"

namespace Lockstep {

// Every operation returns false when the two sides differ; difference() then says in what.
// Comparing the logs empties them on both sides.
class Comparison {
 public:
  Comparison(Model::System& model, Subject& subject) : model_(model), subject_(subject) {}

  // Everything that compareShadow, compareRequest and compareReader leave out.
  bool compareAll();
  // The assertion that ended the library's operation is `expected`. An empty condition: none was
  // expected.
  bool compareFatal(const Model::Fatal& expected);
  bool compareAnswers(const Answer& expected, const Answer& actual);
  // `requestNew`: the library made a request in this call, so nothing observed it from its start.
  bool compareLogs(const Call& call, bool requestNew);
  bool compareRegion(int handle);
  bool compareShadow();
  bool compareRequest();
  bool compareReader(int handle);

  const std::string& difference() const { return difference_; }
  void differenceIs(std::string difference) { difference_ = std::move(difference); }

 private:
  bool compareTrace();
  bool compareRecords();
  bool compareNotifications(const Call& call, bool requestNew);
  bool compareBuffer(const char* name, int region, const std::optional<Bytes>& expected,
                     const Hal::BufBase* actual);
  bool compareRegistry();
  bool compareIndex();
  bool compareRegisters();
  template <class T, class U>
  bool same(const char* what, const T& expected, const U& actual);

  Model::System& model_;
  Subject& subject_;
  std::string difference_;
};

}  // namespace Lockstep
