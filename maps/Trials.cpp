// Reset values, bit-bash, access rights.
#include <maps/Trials.h>

#include <Driver/RegisterTable.h>
#include <algorithm>
#include <numeric>

namespace Maps {
namespace {

constexpr std::size_t failuresKept = 1'000;

// What differs, by fields.
std::string trialDifference(const Layout& layout, U64 expected, U64 actual, U64 compared) {
  std::string text;
  const U64 differs = (expected ^ actual) & compared;
  for (const Field& field : layout.fields) {
    if ((differs & field.mask()) == 0) continue;
    const auto of = [&](U64 value) { return hexText((value & field.mask()) >> field.low); };
    text += (text.empty() ? "" : ", ") + field.name + " expected " + of(expected) + " actual " +
            of(actual);
  }
  if (!text.empty()) return text;
  return "expected " + hexText(expected & compared) + " actual " + hexText(actual & compared);
}

class Trial {
 public:
  Trial(const Plan& plan, RegisterAccess& access) : plan_(plan), access_(access) {}

  // Calls tried(register, choice) for each decided register; it says whether it tried anything.
  template <class Tried>
  TrialResult each(Tried tried) {
    std::vector<U32> order(plan_.choices.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](U32 a, U32 b) {
      return plan_.map.registers[a].address < plan_.map.registers[b].address;
    });
    for (const U32 which : order) {
      const Choice& choice = plan_.choices[which];
      if (!choice.rule) continue;
      if (tried(plan_.map.registers[which], choice)) {
        ++result_.registers;
      } else {
        ++result_.skipped;
      }
    }
    return std::move(result_);
  }

  U64 read(const Register& r) { return access_.read(r.address, r.layout->width); }
  void write(const Register& r, U64 value) { access_.write(r.address, r.layout->width, value); }
  // True if they are equal in the compared bits.
  bool expect(const Register& r, const std::string& when, U64 expected, U64 actual, U64 compared) {
    if (((expected ^ actual) & compared) == 0) return true;
    ++result_.failed;
    if (result_.failures.size() < failuresKept) {
      const std::string name = plan_.map.nameOf(r);
      result_.failures.push_back(
          {name,
           name + " " + when + ": " + trialDifference(*r.layout, expected, actual, compared)});
    }
    return false;
  }

 private:
  const Plan& plan_;
  RegisterAccess& access_;
  TrialResult result_;
};

// One register under trial: masked bits are written as its policy says, and what it held is written
// again at the end, also where an access throws.
class TriedRegister {
 public:
  TriedRegister(Trial& trial, const Register& r, const Choice& choice)
      : trial_(trial),
        r_(r),
        compared(r.layout->bits() & ~choice.mask),
        before(trial.read(r)),
        masked_(choice.rewrite == Driver::Rewrite::kept ? before & ~compared : 0) {}
  ~TriedRegister() {
    try {
      write(before);
    } catch (...) {  // NOLINT(bugprone-empty-catch): the exception that is under way says it
    }
  }
  TriedRegister(const TriedRegister&) = delete;
  TriedRegister& operator=(const TriedRegister&) = delete;

  void write(U64 value) { trial_.write(r_, (value & compared) | masked_); }
  bool expect(const std::string& when, U64 expected) {
    return trial_.expect(r_, when, expected, trial_.read(r_), compared);
  }

 private:
  Trial& trial_;
  const Register& r_;

 public:
  const U64 compared;
  const U64 before;

 private:
  const U64 masked_;
};

}  // namespace

RegisterAccess::~RegisterAccess() = default;

TrialResult tryResetValues(const Plan& plan, RegisterAccess& access) {
  Trial trial(plan, access);
  return trial.each([&](const Register& r, const Choice& choice) {
    const U64 known = r.layout->resetMask & r.layout->bits() & ~choice.mask;
    if (!Driver::isCompared(*choice.rule) || !r.layout->resetValue || known == 0) return false;
    trial.expect(r, "after a reset", *r.layout->resetValue, trial.read(r), known);
    return true;
  });
}

TrialResult tryBitBash(const Plan& plan, RegisterAccess& access) {
  Trial trial(plan, access);
  return trial.each([&](const Register& r, const Choice& choice) {
    const U64 compared = r.layout->bits() & ~choice.mask;
    if (*choice.rule != Driver::Rule::repaired || compared == 0) return false;
    TriedRegister tried(trial, r, choice);
    for (U32 bit = 0; bit < r.layout->width; ++bit) {
      const U64 one = U64{1} << bit;
      if ((compared & one) == 0) continue;
      const std::string which = "bit " + std::to_string(bit);
      tried.write(one);
      if (!tried.expect(which + " set alone", one)) break;
      tried.write(~one);
      if (!tried.expect(which + " cleared alone", ~one)) break;
    }
    return true;
  });
}

TrialResult tryAccessRights(const Plan& plan, RegisterAccess& access) {
  Trial trial(plan, access);
  return trial.each([&](const Register& r, const Choice& choice) {
    const U64 compared = r.layout->bits() & ~choice.mask;
    if (!Driver::isCompared(*choice.rule) || compared == 0) return false;
    const bool isWritable = *choice.rule != Driver::Rule::readOnly;
    TriedRegister tried(trial, r, choice);
    tried.write(~tried.before);
    tried.expect(isWritable ? "after a write" : "which is read-only, after a write",
                 isWritable ? ~tried.before : tried.before);
    return true;
  });
}

// ---- a chip in memory ---------------------------------------------------------------------------

ScratchChip::ScratchChip(const Map& map) {
  for (const Register& r : map.registers) cells_.try_emplace(r.address, Cell{&r, 0, false});
  doReset();
}

void ScratchChip::doReset() {
  for (auto& [address, cell] : cells_) {
    const Layout& layout = *cell.shape->layout;
    cell.value = layout.resetValue.value_or(0) & layout.resetMask & layout.bits();
    cell.isWritten = false;
  }
}

ScratchChip::Cell& ScratchChip::cell(U64 address, U32 width) {
  const auto found = cells_.find(address);
  const bool isThere = found != cells_.end();
  if (!isThere || found->second.shape->layout->width != width) {
    Zint::throwRangeException(Zint::String8("the scratch chip has no register of " +
                                            std::to_string(width) + " bits at " +
                                            hexText(address)));
  }
  return found->second;
}

U64 ScratchChip::read(U64 address, U32 width) {
  Cell& own = cell(address, width);
  const Layout& layout = *own.shape->layout;
  U64 hidden = 0;
  const U64 held = own.value;
  const Access whole = layout.access.value_or(Access::readWrite);
  const auto act = [&](U64 bits, Access access, ReadAction action) {
    if (access == Access::writeOnly || access == Access::writeOnce) hidden |= bits;
    if (action == ReadAction::clear) own.value &= ~bits;
    if (action == ReadAction::set) own.value |= bits;
  };
  act(layout.fields.empty() ? layout.bits() : 0, whole, ReadAction::none);
  act(layout.bits(), Access::readWrite, layout.readAction);
  for (const Field& field : layout.fields) {
    act(field.mask(), field.access.value_or(whole), field.readAction);
  }
  return held & ~hidden;
}

void ScratchChip::write(U64 address, U32 width, U64 value) {
  Cell& own = cell(address, width);
  const Layout& layout = *own.shape->layout;
  const U64 held = own.value;
  U64 next = held;
  const auto act = [&](U64 bits, const std::optional<Access>& access, WriteEffect effect) {
    if (access == Access::readOnly) return;
    const bool isOnce = access == Access::writeOnce || access == Access::readWriteOnce;
    if (isOnce && own.isWritten) return;
    U64 result = value;
    switch (effect) {
      case WriteEffect::modify:
      case WriteEffect::user:
        break;
      case WriteEffect::oneToClear:
        result = held & ~value;
        break;
      case WriteEffect::oneToSet:
        result = held | value;
        break;
      case WriteEffect::oneToToggle:
        result = held ^ value;
        break;
      case WriteEffect::zeroToClear:
        result = held & value;
        break;
      case WriteEffect::zeroToSet:
        result = held | ~value;
        break;
      case WriteEffect::zeroToToggle:
        result = held ^ ~value;
        break;
      case WriteEffect::clear:
        result = 0;
        break;
      case WriteEffect::set:
        result = ~U64{0};
        break;
    }
    next = (next & ~bits) | (result & bits);
  };
  for (const Field& field : layout.fields) {
    act(field.mask() & layout.bits(), field.access ? field.access : layout.access,
        field.writeEffect != WriteEffect::modify ? field.writeEffect : layout.writeEffect);
  }
  // Bits that no field names hold nothing.
  if (layout.fields.empty()) act(layout.bits(), layout.access, layout.writeEffect);
  own.value = next;
  own.isWritten = true;
}

U64 ScratchChip::value(U64 address) const {
  const auto found = cells_.find(address);
  return found == cells_.end() ? 0 : found->second.value;
}

void ScratchChip::valueIs(U64 address, U64 value) {
  const auto found = cells_.find(address);
  if (found != cells_.end()) found->second.value = value & found->second.shape->layout->bits();
}

}  // namespace Maps
