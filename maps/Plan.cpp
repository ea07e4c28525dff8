// What is proposed for the registers of a map.
#include <maps/Plan.h>
#include <maps/SideEffects.h>

#include <algorithm>
#include <numeric>
#include <unordered_map>

namespace Maps {
namespace {

std::string hintText(const FoundHint& found, const std::string& where) {
  return std::string(textOf(found.hint)) + ": '" + found.words + "' in " + where;
}

std::string reasonOfAccess(const Layout& layout) {
  if (layout.access && *layout.access != Access::readWrite) {
    return std::string("it is ") + textOf(*layout.access);
  }
  bool isKnown = !layout.fields.empty();
  for (const Field& field : layout.fields) {
    if (field.isReserved) continue;
    if (field.access && *field.access != Access::readWrite) {
      return "the field " + field.name + " is " + textOf(*field.access);
    }
    if (!field.access) isKnown = false;
  }
  return layout.access || isKnown ? "" : "its access is not given";
}

std::string reasonOfTags(const Layout& layout) {
  const auto reasonOf = [](const std::string& what, ReadAction read, WriteEffect write) {
    if (read != ReadAction::none) return what + "readAction is " + textOf(read);
    if (write != WriteEffect::modify) return what + "modifiedWriteValues is " + textOf(write);
    return std::string();
  };
  std::string reason = reasonOf("", layout.readAction, layout.writeEffect);
  if (reason.empty() && layout.isVolatile) reason = "it is volatile";
  for (const Field& field : layout.fields) {
    if (!reason.empty()) break;
    const std::string what = "the field " + field.name;
    reason = reasonOf(what + ": ", field.readAction, field.writeEffect);
    if (reason.empty() && field.isVolatile) reason = what + " is volatile";
    if (reason.empty() && field.hasTwoMeanings) {
      reason = what + " has values for reading and others for writing";
    }
  }
  return reason;
}

std::string reasonOfFields(const Layout& layout) {
  U64 taken = 0;
  for (const Field& field : layout.fields) {
    if ((taken & field.mask()) != 0) {
      return "the field " + field.name + " shares bits with another one";
    }
    taken |= field.mask();
  }
  return "";
}

std::string reasonOfWords(const Layout& layout) {
  if (const FoundHint found = hintOfText(layout.text); found.hint != Hint::none) {
    return hintText(found, "its description");
  }
  for (const Field& field : layout.fields) {
    if (field.isReserved) continue;
    if (const FoundHint found = hintOfText(field.text); found.hint != Hint::none) {
      return hintText(found, "the field " + field.name);
    }
    if (const FoundHint found = hintOfName(field.name); found.hint != Hint::none) {
      return hintText(found, "the field's name " + field.name);
    }
  }
  return "";
}

bool hasRegionWidth(const Layout& layout) {
  return layout.width == 8 || layout.width == 16 || layout.width == 32 || layout.width == 64;
}

// Why a register with this layout is undecided; empty if nothing speaks against it.
std::string reasonOf(const Layout& layout) {
  if (!hasRegionWidth(layout)) return "it has " + std::to_string(layout.width) + " bits";
  if (layout.isAlternate) return "it is another view of a register";
  for (const auto& reason : {reasonOfAccess(layout), reasonOfTags(layout), reasonOfFields(layout),
                             reasonOfWords(layout)}) {
    if (!reason.empty()) return reason;
  }
  return "";
}

U64 unnamedBits(const Layout& layout) {
  if (layout.fields.empty()) return 0;
  U64 named = 0;
  for (const Field& field : layout.fields) {
    if (!field.isReserved) named |= field.mask();
  }
  return layout.bits() & ~named;
}

std::string reasonOfPlace(const Map& map, const Register& r) {
  const Block& block = map.blocks[r.block];
  if (block.isAlternate) return "its block is another view of a block";
  if (r.address % r.layout->bytes() != 0) return "its address is not aligned";
  for (const auto& [begin, end] : block.reserved) {
    if (r.address < end && r.end() > begin) return "it lies in a reserved address block";
  }
  if (r.address >> 32 != (r.end() - 1) >> 32) return "it crosses a limit of 4 GiB";
  return "";
}

// Registers that share bytes with another one.
void markOverlaps(Plan& plan) {
  const std::vector<Register>& all = plan.map.registers;
  std::vector<U32> order(all.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](U32 a, U32 b) { return all[a].address < all[b].address; });
  // Of those before, the one that reaches farthest.
  U32 farthest = order.empty() ? 0 : order.front();
  for (std::size_t i = 1; i < order.size(); ++i) {
    const U32 own = order[i];
    if (all[own].address < all[farthest].end()) {
      const auto mark = [&](U32 which, U32 other) {
        plan.choices[which].rule = std::nullopt;
        plan.choices[which].reason = "it shares bytes with " + plan.map.nameOf(all[other]);
      };
      mark(own, farthest);
      mark(farthest, own);
    }
    if (all[own].end() > all[farthest].end()) farthest = own;
  }
}

}  // namespace

U32 Plan::decided() const {
  return static_cast<U32>(std::count_if(choices.begin(), choices.end(),
                                        [](const Choice& c) { return c.rule.has_value(); }));
}

U32 Plan::audited() const {
  return static_cast<U32>(
      std::count_if(choices.begin(), choices.end(), [](const Choice& c) { return c.isAudited(); }));
}

Plan proposed(Map map) {
  Plan plan{std::move(map), {}};
  // Elements of an array share their layout, and names that differ in numbers alone.
  std::unordered_map<const Layout*, std::string> reasons;
  plan.choices.reserve(plan.map.registers.size());
  for (const Register& r : plan.map.registers) {
    auto [found, isNew] = reasons.try_emplace(r.layout.get());
    if (isNew) {
      found->second = reasonOf(*r.layout);
      if (found->second.empty()) {
        const std::size_t dot = r.name.rfind('.');
        const FoundHint hint =
            hintOfName(std::string_view(r.name).substr(dot == std::string::npos ? 0 : dot + 1));
        if (hint.hint != Hint::none) found->second = hintText(hint, "its name");
      }
    }
    Choice choice;
    choice.reason = found->second.empty() ? reasonOfPlace(plan.map, r) : found->second;
    choice.mask = unnamedBits(*r.layout);
    if (choice.reason.empty()) {
      choice.rule = Driver::Rule::repaired;
      choice.reason = "proposed";
    }
    plan.choices.push_back(std::move(choice));
  }
  markOverlaps(plan);
  return plan;
}

}  // namespace Maps
