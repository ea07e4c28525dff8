// Registers, names, and what one access does.
#include <testkit/FakeChip.h>

#include <testkit/ExpectationState.h>
#include <testkit/FaultState.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <ostream>

namespace TestKit {
namespace {

constexpr std::size_t logLimit = 65'536;
constexpr std::size_t recentLimit = 20;
constexpr U32 mostElements = 1u << 24;

U64 bitsOfBytes(U32 bytes) { return bytes >= 8 ? allBits : (U64{1} << (bytes * 8)) - 1; }

U32 strideOf(const Register& shape) { return shape.stride == 0 ? shape.width : shape.stride; }

// The whole text as a number of this base; nothing: it is none.
std::optional<U64> numberOf(std::string_view text, int base) {
  U64 number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

std::string hexText(U64 value) {
  char text[17];
  return "0x" + std::string(text, std::to_chars(text, text + sizeof text, value, 16).ptr);
}

std::string timeText(Zint::Seconds time) {
  char buffer[400];  // the largest number has 316 digits
  const auto end =
      std::to_chars(buffer, buffer + sizeof buffer, time * 1e3, std::chars_format::fixed, 6).ptr;
  std::string text(buffer, end);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text + "ms";
}

std::ostream& operator<<(std::ostream& out, const Access& access) {
  return out << (access.kind == Kind::read ? "read " : "write ") << hexText(access.address) << " "
             << hexText(access.value) << " width " << access.width;
}

FakeChip::FakeChip(std::string name, Unnamed unnamed)
    : name_(std::move(name)),
      unnamed_(unnamed),
      plain_{{.name = "", .width = 4}, {.name = "", .width = 8}} {}

FakeChip::~FakeChip() = default;

void FakeChip::refuse(const std::string& what) const {
  Zint::throwRangeException(Zint::String8("chip \"" + name_ + "\": " + what));
}

void FakeChip::registerIs(const Register& shape) {
  const std::string which = "register \"" + shape.name + "\"";
  if (shape.name.empty()) refuse("a register without a name");
  if (names_.contains(shape.name)) refuse(which + " is there already");
  if (!std::has_single_bit(shape.width) || shape.width > 8) refuse(which + " has no such width");
  if (strideOf(shape) < shape.width) refuse(which + " is wider than its stride");
  if (shape.count > mostElements) refuse(which + " has too many elements");
  const U32 elements = shape.count == 0 ? 1 : shape.count;
  const U64 span = U64{strideOf(shape)} * (elements - 1) + shape.width;
  if (shape.address > allBits - span) refuse(which + " ends beyond all addresses");
  for (U32 i = 0; i < elements; ++i) {
    const U64 address = shape.address + U64{strideOf(shape)} * i;
    if (!hasBytes(address, shape.width)) continue;
    refuse(which + " shares bytes with " +
           registerName(find(address) != nullptr ? address : cells_.lower_bound(address)->first));
  }
  const Register& own = shapes_.emplace_back(shape);
  names_[own.name] = &own;
  for (U32 i = 0; i < elements; ++i) {
    const U64 address = own.address + U64{strideOf(own)} * i;
    Cell& cell = cells_.try_emplace(address, Cell{&own, address, i}).first->second;
    settle(cell, own.resetValue);
  }
}

// ---- names --------------------------------------------------------------------------------------

FakeChip::Cell* FakeChip::find(U64 address) const {
  auto place = cells_.upper_bound(address);
  if (place == cells_.begin()) return nullptr;
  Cell& cell = (--place)->second;
  return address - cell.address < cell.shape->width ? &cell : nullptr;
}

FakeChip::Cell* FakeChip::findOrMake(U64 address, U32 width) const {
  if (Cell* cell = find(address)) return cell;
  if (unnamed_ == Unnamed::refused) return nullptr;
  const Register& shape = plain_[width == 8];
  const U64 begin = address / shape.width * shape.width;
  if (hasBytes(begin, shape.width)) return nullptr;
  const Cell cell{&shape, begin, static_cast<U32>(begin / shape.width)};
  return &cells_.try_emplace(begin, cell).first->second;
}

FakeChip::Touched FakeChip::touch(U64 address, U32 width) const {
  if (!std::has_single_bit(width) || width > 8)
    refuse("an access of " + std::to_string(width) + " bytes");
  Cell* const cell = findOrMake(address, width);
  if (cell == nullptr) refuse("no register at " + hexText(address));
  const U64 offset = address - cell->address;
  if (offset + width > cell->shape->width) {
    refuse("an access of " + std::to_string(width) + " bytes at " + hexText(address) +
           " reaches beyond " + cellName(*cell));
  }
  return {cell, static_cast<U32>(offset * 8), bitsOfBytes(width)};
}

FakeChip::Target FakeChip::target(std::string_view name) const {
  if (name.empty()) return {};
  if (const auto found = names_.find(std::string(name)); found != names_.end()) {
    return {found->second, Target::allElements};
  }
  if (const std::size_t open = name.rfind('['); open != name.npos && name.back() == ']') {
    const auto found = names_.find(std::string(name.substr(0, open)));
    const auto index = numberOf(name.substr(open + 1, name.size() - open - 2), 10);
    if (found != names_.end() && index && *index < found->second->count) {
      return {found->second, static_cast<U32>(*index)};
    }
  }
  if (name.starts_with("0x")) {
    const auto address = numberOf(name.substr(2), 16);
    const Cell* cell = address ? findOrMake(*address, 4) : nullptr;
    if (cell != nullptr) return {cell->shape, cell->index};
  }
  refuse("no register \"" + std::string(name) + "\"");
}

FakeChip::Cell& FakeChip::cellOf(std::string_view name) const {
  const Target one = target(name);
  if (one.shape == nullptr) refuse("a register without a name");
  if (one.shape->count != 0 && one.index == Target::allElements) {
    refuse("\"" + std::string(name) + "\" is an array: name one of its registers");
  }
  Cell* const cell = cellsOf(one)[0];
  return *cell;
}

std::vector<FakeChip::Cell*> FakeChip::cellsOf(const Target& which) const {
  std::vector<Cell*> cells;
  if (which.shape == nullptr) {
    for (auto& [address, cell] : cells_) cells.push_back(&cell);
    return cells;
  }
  const bool isAll = which.index == Target::allElements;
  const U32 first = isAll ? 0 : which.index;
  const U32 count = isAll ? std::max(which.shape->count, U32{1}) : 1;
  for (U32 i = first; i < first + count; ++i) {
    Cell& cell = cells_.at(which.shape->address + U64{strideOf(*which.shape)} * i);
    cells.push_back(&cell);
  }
  return cells;
}

std::string FakeChip::cellName(const Cell& cell) const {
  if (cell.shape->name.empty()) return hexText(cell.address);
  return cell.shape->name + (cell.shape->count == 0 ? "" : "[" + std::to_string(cell.index) + "]");
}

std::string FakeChip::registerName(U64 address) const {
  const Cell* cell = find(address);
  return cell == nullptr ? hexText(address) : cellName(*cell);
}

bool FakeChip::hasBytes(U64 address, U32 size) const {
  const auto next = cells_.lower_bound(address);
  return find(address) != nullptr || (next != cells_.end() && next->first - address < size);
}

U32 FakeChip::widthAt(U64 address) const {
  const Cell* cell = find(address);
  return cell == nullptr ? 4 : cell->shape->width;
}

std::string FakeChip::valueText(U64 address, U64 value) const {
  std::string text = registerName(address);
  const Cell* cell = find(address);
  const U64 offset = cell == nullptr ? 0 : address - cell->address;
  if (offset != 0) text += "+" + std::to_string(offset);
  text += " " + hexText(value);
  if (cell == nullptr || offset != 0) return text;
  for (const Field& field : cell->shape->fields) {
    const U64 bits = field.bits > 63 ? allBits : (U64{1} << field.bits) - 1;
    const U64 held = field.low > 63 ? 0 : (value >> field.low) & bits;
    text += " " + field.name + "=" + (held < 10 ? std::to_string(held) : hexText(held));
  }
  return text;
}

// ---- one access ---------------------------------------------------------------------------------

U64 FakeChip::doRead(U64 address, U32 width) { return access({Kind::read, address, width, 0}); }

void FakeChip::doWrite(U64 address, U32 width, U64 value) {
  access({Kind::write, address, width, value});
}

void FakeChip::beforeAccessIs(std::function<void(const Access&)> before) {
  before_ = std::move(before);
}

U64 FakeChip::access(Access access) {
  const Ptr held(this);
  const Touched touched = touch(access.address, access.width);
  Cell& cell = *touched.cell;
  const bool isRead = access.kind == Kind::read;
  access.value &= touched.mask;
  if (before_) {
    const auto before = before_;
    before(access);
  }
  const FaultsMet met = meetFaults(cell, access.kind);
  const StepState* taken = offer(cell, access);
  ++(isRead ? reads_ : writes_);
  ++(isRead ? cell.reads : cell.writes);
  if (met.fails || (taken != nullptr && taken->step.hasToFail())) {
    log(access, true);
    throw NoAnswer(
        Zint::String8("chip \"" + name_ + "\": no answer at " + registerName(access.address)));
  }
  if (!isRead) {
    if (!met.isLost) happen(touched, access.value);
  } else if (met.answer) {
    access.value = *met.answer & touched.mask;
  } else if (taken != nullptr && taken->step.value()) {
    access.value = *taken->step.value() & touched.mask;
  } else {
    access.value = answer(touched);
  }
  log(access, false);
  return access.value;
}

void FakeChip::happen(const Touched& touched, U64 value) {
  Cell& cell = *touched.cell;
  const Register& r = *cell.shape;
  const U64 held = cell.value;
  const U64 given = value << touched.shift;
  const U64 once = r.writeOnce & cell.written;
  U64 next = given;
  const auto rule = [&](U64 bits, U64 result) { next = (next & ~bits) | (result & bits); };
  rule(r.oneToClear, held & ~given);
  rule(r.oneToSet, held | given);
  rule(r.oneToToggle, held ^ given);
  rule(r.zeroToClear, held & given);
  rule(r.zeroToSet, held | ~given);
  rule(r.zeroToToggle, held ^ ~given);
  rule(r.clearOnWrite, 0);
  rule(r.setOnWrite, allBits);
  const U64 bytes = touched.mask << touched.shift;
  rule(r.readOnly | once | ~bytes, held);
  cell.written |= bytes;
  settle(cell, next);
}

U64 FakeChip::answer(const Touched& touched) {
  Cell& cell = *touched.cell;
  const Register& r = *cell.shape;
  const U64 held = cell.value;
  const U64 bytes = touched.mask << touched.shift;
  const U64 next = (held & ~(r.clearOnRead & bytes)) | (r.setOnRead & bytes);
  if (next != held) settle(cell, next);
  return ((held & ~r.writeOnly) >> touched.shift) & touched.mask;
}

const StepState* FakeChip::offer(const Cell& cell, const Access& access) {
  if (expectations_.empty()) return nullptr;
  for (const auto& expectation : expectations_) {
    if (const StepState* taken = expectation->root.offer(cell, access)) return taken;
  }
  for (const auto& expectation : expectations_) {
    if (expectation->guards(cell, access.kind)) expectation->noteUnexpected(*this, access);
  }
  return nullptr;
}

// ---- the test's side ----------------------------------------------------------------------------

U64 FakeChip::value(std::string_view name) const { return cellOf(name).value; }

void FakeChip::valueIs(std::string_view name, U64 value) {
  for (Cell* cell : cellsOf(target(name))) settle(*cell, value);
}

void FakeChip::bytesAt(U64 address, U8* bytes, U32 size) const {
  for (U32 i = 0; i < size; ++i) {
    const Cell* cell = find(address + i);
    bytes[i] = 0;
    if (cell != nullptr) bytes[i] = (cell->value >> (8 * (address + i - cell->address))) & 0xff;
  }
}

U64 FakeChip::countOf(std::string_view name, Kind kind) const {
  U64 count = 0;
  for (const Cell* cell : cellsOf(target(name))) {
    count += kind == Kind::read ? cell->reads : cell->writes;
  }
  return count;
}

void FakeChip::log(const Access& access, bool hasFailed) {
  const Logged logged{access, reads_ + writes_, clock_ ? clock_->time() : Zint::never, hasFailed};
  log_.push_back(logged);
  if (log_.size() > logLimit) log_.pop_front();
  recent_.push_back(logged);
  if (recent_.size() > recentLimit) recent_.pop_front();
}

std::string FakeChip::logText(const Logged& logged) const {
  const Access& access = logged.access;
  const bool isRead = access.kind == Kind::read;
  std::string text = "    #" + std::to_string(logged.number) + (isRead ? " read " : " write ");
  text += isRead && logged.hasFailed ? registerName(access.address)
                                     : valueText(access.address, access.value);
  if (logged.time != Zint::never) text += " @" + timeText(logged.time);
  return text + (logged.hasFailed ? " failed\n" : "\n");
}

std::vector<Access> FakeChip::taken() {
  std::vector<Access> taken;
  for (const Logged& logged : std::exchange(log_, {})) taken.push_back(logged.access);
  return taken;
}

std::string FakeChip::lastAccesses(std::size_t count) const {
  std::string text;
  const std::size_t shown = std::min(count, recent_.size());
  for (auto logged = recent_.end() - static_cast<std::ptrdiff_t>(shown); logged != recent_.end();
       ++logged) {
    text += logText(*logged);
  }
  return text;
}

Zint::ValidPtr<FakeChip> fakeChipFactory(std::string name, Unnamed unnamed) {
  return Zint::makePtr<FakeChip>(std::move(name), unnamed);
}

}  // namespace TestKit
