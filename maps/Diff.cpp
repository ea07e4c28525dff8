// Two plans compared.
#include <maps/Diff.h>

#include <unordered_map>

namespace Maps {
namespace {

std::string placeOfRegister(const Register& r) {
  return hexText(r.address) + ", " + std::to_string(r.layout->width) + " bits";
}

std::string resetOfRegister(const Register& r) {
  const U64 known = r.layout->resetMask & r.layout->bits();
  if (!r.layout->resetValue || known == 0) return "not known";
  std::string text = hexText(*r.layout->resetValue & known);
  if (known != r.layout->bits()) text += " of the bits " + hexText(known);
  return text;
}

// Without the place of the line that decided.
std::string treatmentOf(const Choice& choice) {
  return choice.rule ? textOf(choice) : std::string("undecided");
}

class Differ {
 public:
  Differ(const Plan& before, const Plan& after) : before_(before), after_(after) {}

  std::vector<Change> result() {
    std::unordered_map<std::string, std::size_t> old;
    std::vector<bool> isFound(before_.choices.size());
    for (std::size_t i = 0; i < before_.choices.size(); ++i) {
      old.emplace(before_.map.nameOf(before_.map.registers[i]), i);
    }
    for (std::size_t i = 0; i < after_.choices.size(); ++i) {
      const std::string name = after_.map.nameOf(after_.map.registers[i]);
      const auto found = old.find(name);
      if (found == old.end()) {
        appeared(name, after_.choices[i]);
        continue;
      }
      isFound[found->second] = true;
      compare(name, found->second, i);
    }
    for (std::size_t i = 0; i < before_.choices.size(); ++i) {
      if (!isFound[i]) {
        vanished(before_.map.nameOf(before_.map.registers[i]), before_.choices[i]);
      }
    }
    return std::move(changes_);
  }

 private:
  void appeared(const std::string& name, const Choice& choice) {
    changes_.push_back({choice.isAudited() ? ChangeKind::newlyAudited
                        : choice.rule      ? ChangeKind::newlyDecided
                                           : ChangeKind::added,
                        name, "", textOf(choice)});
  }
  void vanished(const std::string& name, const Choice& choice) {
    changes_.push_back({choice.isAudited() ? ChangeKind::noLongerAudited
                        : choice.rule      ? ChangeKind::noLongerDecided
                                           : ChangeKind::removed,
                        name, textOf(choice), ""});
  }
  void compare(const std::string& name, std::size_t i, std::size_t j) {
    const Choice &was = before_.choices[i], &is = after_.choices[j];
    const Register &left = before_.map.registers[i], &right = after_.map.registers[j];
    const auto add = [&](ChangeKind kind, std::string before, std::string after) {
      changes_.push_back({kind, name, std::move(before), std::move(after)});
    };
    if (was.isAudited() != is.isAudited()) {
      add(is.isAudited() ? ChangeKind::newlyAudited : ChangeKind::noLongerAudited, textOf(was),
          textOf(is));
    } else if (was.rule.has_value() != is.rule.has_value()) {
      add(is.rule ? ChangeKind::newlyDecided : ChangeKind::noLongerDecided, textOf(was),
          textOf(is));
    } else if (treatmentOf(was) != treatmentOf(is)) {
      add(ChangeKind::rule, textOf(was), textOf(is));
    }
    if (placeOfRegister(left) != placeOfRegister(right)) {
      add(ChangeKind::moved, placeOfRegister(left), placeOfRegister(right));
    }
    if (resetOfRegister(left) != resetOfRegister(right)) {
      add(ChangeKind::resetValue, resetOfRegister(left), resetOfRegister(right));
    }
  }

  const Plan& before_;
  const Plan& after_;
  std::vector<Change> changes_;
};

}  // namespace

std::vector<Change> differences(const Plan& before, const Plan& after) {
  return Differ(before, after).result();
}

const char* textOf(ChangeKind kind) {
  constexpr const char* texts[] = {"newly audited", "no longer audited",
                                   "newly decided", "no longer decided",
                                   "rule",          "moved",
                                   "reset value",   "added",
                                   "removed"};
  return texts[static_cast<int>(kind)];
}

std::string textOf(const Choice& choice) {
  if (!choice.rule) return "undecided (" + choice.reason + ")";
  std::string text = *choice.rule == Driver::Rule::volatile_
                         ? std::string("volatile")
                         : Driver::stringValue(*choice.rule).bytes();
  if (choice.mask != 0) {
    text += " mask " + hexText(choice.mask) + " " + Driver::stringValue(choice.rewrite).bytes();
  }
  return choice.isOnce ? text + " once" : text;
}

}  // namespace Maps
