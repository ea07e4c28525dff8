// Every text form: what is read, how much of the text it takes, that a refusal leaves everything as
// it was, and that a value comes back from its own text.
//
// The first byte chooses the form. The rest is a text; for the forms of values also the bits of
// one.
#include <Hardware/ChipMemoryArrayIndex.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/ObjectText.h>
#include <Zint/Reflect.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>

#include "fuzz/Fuzz.h"

namespace {

using Hardware::ChipAddress;
using Hardware::ChipHam;
using Hardware::ChipMemory;
using Hardware::ChipMemoryArrayIndex;
using Hardware::HardwareShadow;
using Zint::sequenceToValue;
using Zint::String8;
using Zint::valueToStrep;

template <class T>
bool equal(const T& a, const T& b) {
  return a == b;
}
bool equal(const Zint::Bytes& a, const Zint::Bytes& b) { return a.bytes == b.bytes; }
bool equal(const ChipMemoryArrayIndex& a, const ChipMemoryArrayIndex& b) {
  return a.value() == b.value();
}

void expect(bool held, const char* what, const String8& text) {
  if (!held) Fuzz::failed(std::string(what) + ": " + Zint::valueToStrep(text).c_str());
}

// The value of the whole text; null when it is refused.
template <class T>
std::optional<T> wholeValue(const String8& text, std::string* refusal = nullptr) {
  try {
    return Zint::strepToValue<T>(text);
  } catch (const Zint::RangeException& exception) {
    if (refusal != nullptr) *refusal = exception.what();
    return std::nullopt;
  }
}

template <class T>
void comesBack(const T& value) {
  const String8 text = valueToStrep(value);
  const std::optional<T> read = wholeValue<T>(text);
  expect(read && equal(*read, value), "a value's own text gives another value", text);
  expect(valueToStrep(*read) == text, "the value that was read has another text", text);
}

// Reads a value at the front of the text; how many characters it took, null when it was refused.
template <class T>
std::optional<std::size_t> taken(const String8& text, T& value) {
  auto pos = text.begin();
  const T before = value;
  bool read = true;
  try {
    sequenceToValue(pos, text.end(), value);
  } catch (const Zint::RangeException& refusal) {
    read = false;
    expect(refusal.message().size() > 0, "a refusal without a message", text);
    expect(pos == text.begin(), "a refusal moved the position", text);
    expect(equal(value, before), "a refusal changed the value", text);
  }
  const auto characters = static_cast<std::size_t>(pos - text.begin());
  std::string refusal;
  const std::optional<T> whole = wholeValue<T>(text, &refusal);
  expect(whole.has_value() == (read && pos == text.end()), "the whole text is taken otherwise",
         text);
  if (!read) return std::nullopt;
  expect(characters <= text.size(), "more was taken than there is", text);
  if (whole) {
    expect(equal(*whole, value), "the whole text gives another value", text);
  } else {
    const std::string junk = "junk at column " + std::to_string(characters) + " deserializing ";
    expect(refusal.starts_with(junk), "junk is reported otherwise", refusal);
  }
  const std::optional<T> alone = wholeValue<T>(String8(std::string(text.begin(), pos)));
  expect(alone && equal(*alone, value), "what was taken gives another value alone", text);
  comesBack(value);
  return characters;
}

// An integer at the front of a text, read digit by digit.
struct Number {
  bool negative = false;
  U64 magnitude = 0;
  std::size_t characters = 0;
};
std::optional<Number> naiveNumber(const std::string& text) {
  Number number;
  std::size_t at = 0;
  if (at < text.size() && text[at] == '-') {
    number.negative = true;
    ++at;
  }
  const auto digit = [&](std::size_t place) {
    constexpr const char* digits = "0123456789abcdef";
    if (place >= text.size() || text[place] == '\0') return 16u;
    const int c = std::tolower(static_cast<unsigned char>(text[place]));
    const char* found = std::strchr(digits, c);
    return found == nullptr ? 16u : static_cast<U32>(found - digits);
  };
  U32 base = 10;
  if (text.compare(at, 2, "0x") == 0 && digit(at + 2) < 16) {
    base = 16;
    at += 2;
  }
  if (digit(at) >= base) return std::nullopt;
  for (; digit(at) < base; ++at) {
    const U64 most = number.negative ? U64{1} << 63 : std::numeric_limits<U64>::max();
    if (number.magnitude > (most - digit(at)) / base) return std::nullopt;
    number.magnitude = number.magnitude * base + digit(at);
  }
  number.characters = at;
  return number;
}

template <class T>
void integer(const String8& text) {
  std::optional<Number> number = naiveNumber(text.bytes());
  if (number && !std::same_as<T, S64>) {
    // A number of any other type has to fit; 64 signed bits are read as two's complement too.
    const U64 most = static_cast<U64>(std::numeric_limits<T>::max());
    const U64 least = std::is_signed_v<T> ? most + 1 : 0;
    if (number->magnitude > (number->negative ? least : most)) number = std::nullopt;
  }
  T value = 77;
  const std::optional<std::size_t> characters = taken(text, value);
  expect(characters.has_value() == number.has_value(), "an integer is read or refused", text);
  if (!number) return;
  expect(*characters == number->characters, "an integer has another length", text);
  const U64 bits = number->negative ? U64{0} - number->magnitude : number->magnitude;
  expect(value == static_cast<T>(bits), "an integer has another value", text);
}

void realNumber(const String8& text, U64 bits) {
  double value = 0.25;
  if (const std::optional<std::size_t> characters = taken(text, value)) {
    const std::string number = text.bytes().substr(0, *characters);
    expect(value == std::strtod(number.c_str(), nullptr), "a number has another value", text);
  }
  double any = 0;
  std::memcpy(&any, &bits, sizeof any);
  if (!std::isnan(any)) comesBack(any);
}

void address(const String8& text, U64 bits) {
  ChipAddress value{77};
  taken(text, value);
  const ChipAddress any{bits};
  comesBack(any);
  char expected[32];
  std::snprintf(expected, sizeof expected, "0x%x:%08x", static_cast<U32>(bits >> 32),
                static_cast<U32>(bits));
  Fuzz::same<String8>("address text", expected, any.stringValue());
  std::ostringstream out;
  out << any;
  Fuzz::same("address in a stream", std::to_string(bits), out.str());
}

void index(const String8& text, U64 bits) {
  ChipMemoryArrayIndex value = 77;
  const std::optional<std::size_t> characters = taken(text, value);
  S64 wide = 0;
  expect(characters == taken(text, wide), "an index is read as a number is", text);
  if (characters) expect(value.value() == static_cast<U16>(wide), "an index is cut", text);
  comesBack(ChipMemoryArrayIndex(static_cast<U16>(bits)));
}

template <class E, class Instance>
void enumeration(const String8& text, U64 bits, const char* shortName, const char* qualifiedName,
                 const std::vector<std::string>& names, Instance instance) {
  E value{};
  taken(text, value);
  const auto number = static_cast<U32>(bits);
  std::ostringstream out;
  out << static_cast<E>(static_cast<S32>(number));
  if (number < names.size()) {
    Fuzz::same<String8>("name", names[number], stringValue(static_cast<E>(number)));
    Fuzz::same("number", number, static_cast<U32>(instance(number)));
    comesBack(static_cast<E>(number));
  } else {
    const std::string unknown =
        qualifiedName + ("(" + std::to_string(static_cast<S32>(number)) + ")");
    Fuzz::same("unknown number", unknown, out.str());
  }
  try {
    const E named = instance(text);
    Fuzz::same<String8>("named", names.at(static_cast<std::size_t>(named)), text);
  } catch (const Zint::RangeException& exception) {
    Fuzz::same<String8>("unknown name", shortName, exception.message());
  }
}

// The text of an object, spoilt in one place, and any other text.
void objectText(const String8& text, U64 bits) {
  const ChipHam::Ptr ham = Zint::makePtr<ChipHam>(text);
  const ChipMemory::Ptr cm = Hardware::chipMemoryFactory(text, ChipAddress(0), 1, 4, 4, ham);
  comesBack(ham);
  comesBack(cm);
  comesBack(ChipMemory::Ptr());
  std::string refusal;
  expect(!wholeValue<ChipHam::Ptr>(valueToStrep(cm), &refusal), "of another type", text);
  std::string spoilt = valueToStrep(cm).bytes();
  spoilt[static_cast<std::size_t>(bits >> 8) % spoilt.size()] = static_cast<char>(bits);
  for (const String8& any : {String8(spoilt), text}) {
    Zint::Ptr<Zint::PtrInterface> object;
    if (!taken(any, object) || object == nullptr) continue;
    const std::string own = valueToStrep(object).bytes();
    const std::string label = own.substr(0, own.rfind('#') + 1);
    expect(any.bytes().starts_with(label), "an object of another name", any);
  }
}

void flags(U64 bits) {
  const auto number = static_cast<U32>(bits);
  try {
    Fuzz::same("flags", number, Zint::ZintAttrIntrospectionFlags(number).value());
    expect(number <= 0x3f, "more than six bits", "");
  } catch (const Zint::RangeException& exception) {
    expect(number > 0x3f, "six bits", "");
    Fuzz::same<String8>("refusal", "ZintAttrIntrospectionFlags::value > 0x3f not allowed",
                        exception.message());
  }
}

void string(const String8& text) {
  String8 value = "before";
  taken(text, value);
  comesBack(text);
  if (text.empty()) return;
  Zint::Bytes bytes;
  taken(text, bytes);
  comesBack(Zint::Bytes{{text.begin(), text.end()}});
}

void run(const U8* bytes, std::size_t size) {
  Fuzz::Quiet quiet;
  Fuzz::Input input(bytes, size);
  const U32 form = input.below(15);
  const String8 text(std::string(bytes + (size == 0 ? 0 : 1), bytes + size));
  const U64 bits = input.doubleWord();
  switch (form) {
    case 0:
      comesBack(static_cast<S64>(bits));
      return integer<S64>(text);
    case 1:
      comesBack(bits);
      return integer<U64>(text);
    case 2:
      return integer<U32>(text);
    case 3:
      return integer<U16>(text);
    case 4:
      return integer<U8>(text);
    case 5:
      return integer<S32>(text);
    case 6:
      return realNumber(text, bits);
    case 7: {
      bool value = (bits & 1) != 0;
      taken(text, value);
      return;
    }
    case 8:
      return string(text);
    case 9:
      return address(text, bits);
    case 10:
      return index(text, bits);
    case 11:
      return enumeration<ChipMemory::ChipMemoryMode>(
          text, bits, "ChipMemoryMode", "ChipMemory::ChipMemoryMode",
          {"normal", "override", "buffered"},
          [](const auto& of) { return ChipMemory::ChipMemoryModeInstance(of); });
    case 12:
      return enumeration<HardwareShadow::State>(
          text, bits, "State", "HardwareShadow::State",
          {"unconfigured", "configured", "idle", "auditing"},
          [](const auto& of) { return HardwareShadow::StateInstance(of); });
    case 13:
      return objectText(text, bits);
    default:
      return flags(bits);
  }
}

}  // namespace

FUZZ_TARGET("text", run)
