// Which accesses a chip expects, and in which order.
//
//   using namespace TestKit;
//   const auto expected = chip->expect(inOrder(
//       write("lock", 1),
//       anyOrder(write("mac[0]", 0x11), write("mac[1]", 0x22)),   // either may come first
//       read("status").returns(1).atLeast(1),
//       write("lock", 0)));
//   driver.doUpdate();
//   // The end of the scope fails if something is missing, or something came out of turn.
//
// The first access that comes out of turn is told in full, with the accesses before it. It is told
// at the end, not thrown into the driver: that may take an exception of its chip for an absence.
// Where an exception is under way at the end, the failure is reported beside it and does not hide
// it. Without the result of expect() nothing is expected.
//
// What an expectation does not name is free: a register that it names in writes alone may be read.
// Several may be in force; an access belongs to the first that takes it. A step takes an access as
// soon as it can and keeps it.
#pragma once

#include <Zint/Ptr.h>
#include <Zint/Types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <testkit/Register.h>

namespace TestKit {

class FakeChip;
struct ExpectationState;
struct StepState;

// A value: one access that is expected, or a group of steps.
class Step {
 public:
  enum class Type : U8 { access, inOrder, anyOrder };

  Step(Kind kind, std::string name) : kind_(kind), name_(std::move(name)) {}
  Step(Type type, std::vector<Step> steps) : type_(type), steps_(std::move(steps)) {}

  // --- Of one access; of a group: a range exception ---
  // The read is answered by this, and the register keeps its value and has no side effect.
  Step returns(U64 value) const;
  // The access throws NoAnswer.
  Step fails() const;
  // Only these bits of what is written count.
  Step ofBits(U64 bits) const;
  // Only an access of this width at this address counts: of a register that is accessed in parts.
  Step at(U64 address, U32 width) const;
  // How often; once where nothing is said.
  Step times(U64 times) const { return between(times, times); }
  Step atLeast(U64 times) const { return between(times, allBits); }
  Step anyTimes() const { return between(0, allBits); }
  Step never() const { return between(0, 0); }
  // Said in messages.
  Step from(std::string place) const;

  Type type() const { return type_; }
  Kind kind() const { return kind_; }
  const std::string& name() const { return name_; }
  // To be written, or to be answered.
  const std::optional<U64>& value() const { return value_; }
  U64 bits() const { return bits_; }
  bool isAt(const Access& access) const {
    return width_ == 0 || (access.address == address_ && access.width == width_);
  }
  U64 least() const { return least_; }
  U64 most() const { return most_; }
  bool hasToFail() const { return fails_; }
  const std::vector<Step>& steps() const { return steps_; }
  // "write mac[0] 0x11"
  std::string text() const;

 private:
  friend Step write(std::string name, U64 value);
  Step between(U64 least, U64 most) const;
  Step ofAccess() const;

  Type type_ = Type::access;
  Kind kind_ = Kind::read;
  std::string name_;
  std::optional<U64> value_;
  U64 bits_ = allBits;
  U64 least_ = 1;
  U64 most_ = 1;
  bool fails_ = false;
  U64 address_ = 0;
  U32 width_ = 0;  // 0: any, wherever it is within the register
  std::string place_;
  std::vector<Step> steps_;
};

// Names as in FakeChip: "mac" takes an access to any register of the array, "" to any of the chip.
Step read(std::string name);
Step write(std::string name);  // of any value
Step write(std::string name, U64 value);
// One after the other. Steps may be groups.
Step inOrder(std::vector<Step> steps);
// All of them, whichever comes first. Of steps that are sequences, each keeps its own order.
Step anyOrder(std::vector<Step> steps);
// The accesses to each register in order, in any order between registers. Of single accesses only.
Step perRegister(std::vector<Step> steps);

// With expectOnly(): no access may come.
inline Step nothing() { return inOrder(std::vector<Step>()); }

template <class... Steps>
Step inOrder(Step first, Steps... more) {
  return inOrder(std::vector<Step>{std::move(first), std::move(more)...});
}
template <class... Steps>
Step anyOrder(Step first, Steps... more) {
  return anyOrder(std::vector<Step>{std::move(first), std::move(more)...});
}
template <class... Steps>
Step perRegister(Step first, Steps... more) {
  return perRegister(std::vector<Step>{std::move(first), std::move(more)...});
}

// What is in force until this object ends.
class [[nodiscard]] Expectation {
 public:
  Expectation(Zint::Ptr<FakeChip> chip, std::shared_ptr<ExpectationState> state);
  Expectation(Expectation&& other) noexcept;
  Expectation& operator=(Expectation&&) = delete;
  ~Expectation() noexcept(false);

  // Everything that has to come has come, and nothing out of turn.
  bool isMet() const;
  // The end, now: reports a failure, once; nothing is expected afterwards.
  void verify();

 private:
  void end(bool isUnwinding);

  Zint::Ptr<FakeChip> chip_;  // null: has ended
  std::shared_ptr<ExpectationState> state_;
  int exceptions_;  // under way when it was made
};

}  // namespace TestKit
