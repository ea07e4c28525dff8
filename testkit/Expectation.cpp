// Steps, how accesses are matched, and what is told at the end.
#include <testkit/Expectation.h>

#include <testkit/ExpectationState.h>
#include <testkit/Failure.h>

#include <algorithm>
#include <exception>

namespace TestKit {
namespace {

constexpr std::size_t linesTold = 10;

void addLines(std::string& text, const std::vector<std::string>& lines) {
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i == linesTold) {
      text += "    and " + std::to_string(lines.size() - i) + " more\n";
      return;
    }
    text += "    " + lines[i] + "\n";
  }
}

}  // namespace

// ---- steps --------------------------------------------------------------------------------------

Step Step::ofAccess() const {
  if (type_ != Type::access) Zint::throwRangeException("a group of steps is no access");
  return *this;
}

Step Step::returns(U64 value) const {
  Step step = ofAccess();
  if (kind_ != Kind::read) Zint::throwRangeException("a write returns nothing");
  step.value_ = value;
  return step;
}

Step Step::fails() const {
  Step step = ofAccess();
  step.fails_ = true;
  return step;
}

Step Step::ofBits(U64 bits) const {
  Step step = ofAccess();
  step.bits_ = bits;
  return step;
}

Step Step::at(U64 address, U32 width) const {
  Step step = ofAccess();
  step.address_ = address;
  step.width_ = width;
  return step;
}

Step Step::between(U64 least, U64 most) const {
  Step step = ofAccess();
  step.least_ = least;
  step.most_ = most;
  return step;
}

Step Step::from(std::string place) const {
  Step step = ofAccess();
  step.place_ = std::move(place);
  return step;
}

std::string Step::text() const {
  std::string text = kind_ == Kind::read ? "read " : "write ";
  text += name_.empty() ? "any register" : name_;
  if (kind_ == Kind::write && value_) {
    text += " " + hexText(*value_);
    if (bits_ != allBits) text += " (bits " + hexText(bits_) + ")";
  }
  if (most_ == 0) text += ", never";
  if (!place_.empty()) text += " (" + place_ + ")";
  return text;
}

Step read(std::string name) { return {Kind::read, std::move(name)}; }
Step write(std::string name) { return {Kind::write, std::move(name)}; }
Step write(std::string name, U64 value) {
  Step step = write(std::move(name));
  step.value_ = value;
  return step;
}
Step inOrder(std::vector<Step> steps) { return {Step::Type::inOrder, std::move(steps)}; }
Step anyOrder(std::vector<Step> steps) { return {Step::Type::anyOrder, std::move(steps)}; }

Step perRegister(std::vector<Step> steps) {
  std::vector<std::pair<std::string, std::vector<Step>>> groups;
  for (Step& step : steps) {
    if (step.type() != Step::Type::access) {
      Zint::throwRangeException("perRegister() takes single accesses");
    }
    auto group = std::find_if(groups.begin(), groups.end(),
                              [&](const auto& each) { return each.first == step.name(); });
    if (group == groups.end()) group = groups.insert(groups.end(), {step.name(), {}});
    group->second.push_back(std::move(step));
  }
  std::vector<Step> sequences;
  sequences.reserve(groups.size());
  for (auto& group : groups) sequences.push_back(inOrder(std::move(group.second)));
  return anyOrder(std::move(sequences));
}

// ---- matching -----------------------------------------------------------------------------------

StepState::StepState(const FakeChip& chip, const Step& its) : step(its) {
  if (its.type() == Step::Type::access) {
    target = chip.target(its.name());
    return;
  }
  parts.reserve(its.steps().size());
  for (const Step& part : its.steps()) parts.emplace_back(chip, part);
  step = Step(its.type(), std::vector<Step>{});
}

const StepState* StepState::offer(const FakeChip::Cell& cell, const Access& access) {
  switch (step.type()) {
    case Step::Type::access: {
      if (access.kind != step.kind() || taken >= step.most() || !cell.isIn(target)) return nullptr;
      const bool isOther = access.kind == Kind::write && step.value() &&
                           ((access.value ^ *step.value()) & step.bits()) != 0;
      if (isOther || !step.isAt(access)) return nullptr;
      ++taken;
      return this;
    }
    case Step::Type::inOrder:
      for (std::size_t i = next; i < parts.size(); ++i) {
        if (const StepState* taker = parts[i].offer(cell, access)) {
          next = i;
          return taker;
        }
        if (!parts[i].isSatisfied()) return nullptr;
      }
      return nullptr;
    case Step::Type::anyOrder:
      for (StepState& part : parts) {
        if (const StepState* taker = part.offer(cell, access)) return taker;
      }
      return nullptr;
  }
  return nullptr;
}

bool StepState::isSatisfied() const {
  if (step.type() == Step::Type::access) return taken >= step.least();
  return std::all_of(parts.begin() + static_cast<std::ptrdiff_t>(next), parts.end(),
                     [](const StepState& part) { return part.isSatisfied(); });
}

bool StepState::names(const FakeChip::Cell& cell, Kind kind) const {
  if (step.type() == Step::Type::access) return step.kind() == kind && cell.isIn(target);
  return std::any_of(parts.begin(), parts.end(),
                     [&](const StepState& part) { return part.names(cell, kind); });
}

void StepState::addNext(std::vector<std::string>& lines) const {
  if (step.type() == Step::Type::access) {
    if (taken < step.most() || step.most() == 0) lines.push_back(step.text());
    return;
  }
  for (std::size_t i = next; i < parts.size(); ++i) {
    parts[i].addNext(lines);
    if (step.type() == Step::Type::inOrder && !parts[i].isSatisfied()) return;
  }
}

void StepState::addMissing(std::vector<std::string>& lines) const {
  if (step.type() == Step::Type::access) {
    if (taken >= step.least()) return;
    std::string line = step.text();
    if (step.least() != 1) {
      line += ": " + std::to_string(taken) + " of " + std::to_string(step.least());
    }
    lines.push_back(std::move(line));
    return;
  }
  for (std::size_t i = next; i < parts.size(); ++i) parts[i].addMissing(lines);
}

void ExpectationState::noteUnexpected(const FakeChip& chip, const Access& access) {
  if (!unexpected.empty()) {
    ++moreUnexpected;
    return;
  }
  unexpected = std::string("  out of turn: ") + (access.kind == Kind::read ? "read " : "write ") +
               (access.kind == Kind::read ? chip.registerName(access.address)
                                          : chip.valueText(access.address, access.value)) +
               "\n";
  std::vector<std::string> lines;
  root.addNext(lines);
  unexpected += lines.empty() ? "  expected: nothing more\n" : "  expected:\n";
  addLines(unexpected, lines);
  unexpected += "  the accesses before it:\n" + chip.lastAccesses();
}

// ---- the scope ----------------------------------------------------------------------------------

Expectation::Expectation(Zint::Ptr<FakeChip> chip, std::shared_ptr<ExpectationState> state)
    : chip_(std::move(chip)), state_(std::move(state)), exceptions_(std::uncaught_exceptions()) {
  chip_->expectations_.push_back(state_);
}

Expectation::Expectation(Expectation&& other) noexcept
    : chip_(std::move(other.chip_)),
      state_(std::move(other.state_)),
      exceptions_(other.exceptions_) {}

Expectation::~Expectation() noexcept(false) { end(std::uncaught_exceptions() > exceptions_); }

bool Expectation::isMet() const {
  return !state_ || (state_->unexpected.empty() && state_->root.isSatisfied());
}

void Expectation::verify() { end(false); }

void Expectation::end(bool isUnwinding) {
  const auto chip = std::exchange(chip_, nullptr);
  if (!chip) return;
  std::erase(chip->expectations_, state_);
  if (isMet()) return;
  std::string text = "chip \"" + chip->name() + "\", seed " + std::to_string(chip->seed()) + ", " +
                     std::to_string(chip->reads() + chip->writes()) + " accesses\n";
  text += state_->unexpected;
  if (state_->moreUnexpected != 0) {
    text += "  and " + std::to_string(state_->moreUnexpected) + " more out of turn\n";
  }
  if (!state_->root.isSatisfied()) {
    std::vector<std::string> lines;
    state_->root.addMissing(lines);
    text += "  missing at the end:\n";
    addLines(text, lines);
    if (state_->unexpected.empty()) text += "  the last accesses:\n" + chip->lastAccesses();
  }
  text.pop_back();
  report({std::move(text), state_->file, state_->line, isUnwinding});
}

// ---- of the chip --------------------------------------------------------------------------------

Expectation FakeChip::expect(const Step& step, const char* file, int line) {
  return {Ptr(this), std::make_shared<ExpectationState>(*this, step, false, file, line)};
}

Expectation FakeChip::expectOnly(const Step& step, const char* file, int line) {
  return {Ptr(this), std::make_shared<ExpectationState>(*this, step, true, file, line)};
}

Expectation FakeChip::expectNeverRead(const std::string& name, const char* file, int line) {
  return expect(TestKit::read(name).never(), file, line);
}

Expectation FakeChip::expectNeverWritten(const std::string& name, const char* file, int line) {
  return expect(TestKit::write(name).never(), file, line);
}

}  // namespace TestKit
