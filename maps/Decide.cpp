// An overlay's decisions on a plan.
#include <maps/Overlay.h>

#include <algorithm>
#include <numeric>

namespace Maps {
namespace {

using OverlayLine = Overlay::Line;

class Decider {
 public:
  Decider(const Plan& plan, const Overlay& overlay)
      : plan_(plan), overlay_(overlay), choices_(plan.choices) {
    names_.reserve(plan.map.registers.size());
    for (const Register& r : plan.map.registers) names_.push_back(plan.map.nameOf(r));
  }

  std::vector<Choice> result() {
    for (const OverlayLine& line : overlay_.lines) {
      const bool isOfField =
          line.kind == OverlayLine::Kind::masked || line.kind == OverlayLine::Kind::compared;
      const bool isFound = isOfField ? decideFields(line) : decideRegisters(line);
      if (!isFound) {
        fail(line.number, "'" + line.pattern + "' matches no " +
                              (isOfField ? "field of a decided register" : "register"));
      }
    }
    checkOverlaps();
    return std::move(choices_);
  }
  std::vector<std::string> notes() { return std::move(notes_); }

 private:
  [[noreturn]] void fail(U32 line, const std::string& text) const {
    throw Error(overlay_.file, line, text);
  }
  std::string place(U32 line) const { return overlay_.file + ":" + std::to_string(line); }
  void note(U32 line, const std::string& text) {
    if (notes_.size() < 1000) notes_.push_back(place(line) + ": " + text);
  }

  bool decideRegisters(const OverlayLine& line);
  bool decideFields(const OverlayLine& line);
  void decide(std::size_t which, const OverlayLine& line);
  void checkPlace(const Register& r, const std::string& name, U32 line) const;
  void checkOverlaps() const;

  const Plan& plan_;
  const Overlay& overlay_;
  std::vector<Choice> choices_;
  std::vector<std::string> names_;
  std::vector<std::string> notes_;
};

bool Decider::decideRegisters(const OverlayLine& line) {
  bool isFound = false;
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (!matches(line.pattern, names_[i])) continue;
    isFound = true;
    decide(i, line);
  }
  return isFound;
}

void Decider::checkPlace(const Register& r, const std::string& name, U32 line) const {
  const U32 width = r.layout->width;
  if (width != 8 && width != 16 && width != 32 && width != 64) {
    fail(line, name + " has " + std::to_string(width) + " bits: no region can hold it");
  }
  if (r.address % r.layout->bytes() != 0) {
    fail(line, name + " lies at " + hexText(r.address) + ", which is not aligned");
  }
}

void Decider::decide(std::size_t which, const OverlayLine& line) {
  const Register& r = plan_.map.registers[which];
  const Layout& layout = *r.layout;
  Choice& choice = choices_[which];
  choice.line = line.number;
  choice.reason = place(line.number);
  if (line.kind == OverlayLine::Kind::undecided) {
    choice.rule = std::nullopt;
    return;
  }
  checkPlace(r, names_[which], line.number);
  if (line.mask && (*line.mask & ~layout.bits()) != 0) {
    fail(line.number, "the mask has bits beyond the " + std::to_string(layout.width) + " bits of " +
                          names_[which]);
  }
  using Driver::Rule;
  if (layout.access == Access::readOnly &&
      (line.rule == Rule::repaired || line.rule == Rule::writeOnly)) {
    note(line.number, names_[which] + " is read-only: a rewrite has no effect");
  }
  if (layout.access == Access::writeOnly && Driver::isRead(line.rule)) {
    note(line.number, names_[which] + " is write-only: what is read means nothing");
  }
  if (layout.readAction != ReadAction::none && Driver::isRead(line.rule)) {
    note(line.number, names_[which] + ": the map says that a read has effects");
  }
  choice.rule = line.rule;
  choice.isOnce = line.isOnce;
  if (line.mask) {
    choice.mask = *line.mask;
    choice.rewrite = line.rewrite;
  }
}

bool Decider::decideFields(const OverlayLine& line) {
  bool isFound = false;
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (!choices_[i].rule) continue;
    for (const Field& field : plan_.map.registers[i].layout->fields) {
      if (!matches(line.pattern, names_[i] + "." + field.name)) continue;
      isFound = true;
      Choice& choice = choices_[i];
      if (line.kind == OverlayLine::Kind::masked) {
        if (choice.mask != 0 && choice.rewrite != line.rewrite) {
          note(line.number, "all masked bits of " + names_[i] + " are rewritten as said here");
        }
        choice.mask |= field.mask();
        choice.rewrite = line.rewrite;
      } else {
        choice.mask &= ~field.mask();
      }
      choice.line = line.number;
      choice.reason = place(line.number);
    }
  }
  return isFound;
}

void Decider::checkOverlaps() const {
  const std::vector<Register>& all = plan_.map.registers;
  std::vector<std::size_t> order;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (choices_[i].rule) order.push_back(i);
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return all[a].address < all[b].address; });
  for (std::size_t i = 1; i < order.size(); ++i) {
    const std::size_t a = order[i - 1], b = order[i];
    if (all[b].address >= all[a].end()) continue;
    fail(std::max(choices_[a].line, choices_[b].line),
         names_[a] + " and " + names_[b] + " share bytes: only one of them can be decided");
  }
}

}  // namespace

std::vector<std::string> decide(Plan& plan, const Overlay& overlay) {
  Decider decider(plan, overlay);
  plan.choices = decider.result();
  return decider.notes();
}

}  // namespace Maps
