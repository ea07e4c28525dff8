#include <testkit/Recording.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace TestKit {
namespace {

constexpr std::size_t longestLine = 4'096;
constexpr std::size_t longestWord = 1'024;

// One word, without blanks and control characters; "-" for none.
std::string wordOf(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; }, '_');
  return text.empty() ? "-" : text.substr(0, longestWord);
}

std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, ' ');
  return text.substr(std::min(text.find_first_not_of(' '), text.size()), longestLine / 2);
}

class LineReader {
 public:
  LineReader(const std::string& source, U32 number, std::string_view text)
      : place_(source + ":" + std::to_string(number)), rest_(text) {}

  [[noreturn]] void refuse(const std::string& what) const {
    Zint::throwRangeException(Zint::String8(place_ + ": " + what));
  }
  std::string_view word() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r"), rest_.size()));
    const std::string_view word = rest_.substr(0, rest_.find_first_of(" \t\r"));
    rest_.remove_prefix(word.size());
    return word;
  }
  U64 hexWord(const char* what) {
    const std::string_view text = word();
    U64 number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = text.starts_with("0x")
                            ? std::from_chars(text.data() + 2, end, number, 16)
                            : std::from_chars_result{text.data(), std::errc::invalid_argument};
    if (parsed.ec != std::errc() || parsed.ptr != end) {
      refuse(std::string("no ") + what + ": \"" + std::string(text) + "\"");
    }
    return number;
  }
  // "@12.5ms" in seconds.
  Zint::Seconds timeWord() {
    const std::string_view text = word();
    double milliseconds = 0;
    const char* end = text.data() + text.size();
    const auto parsed =
        text.size() > 3 && text.starts_with("@") && text.ends_with("ms")
            ? std::from_chars(text.data() + 1, end - 2, milliseconds, std::chars_format::fixed)
            : std::from_chars_result{text.data(), std::errc::invalid_argument};
    if (parsed.ec != std::errc() || parsed.ptr != end - 2 || !std::isfinite(milliseconds)) {
      refuse("no time: \"" + std::string(text) + "\"");
    }
    return milliseconds / 1e3;
  }
  std::string rest() {
    const std::size_t begin = std::min(rest_.find_first_not_of(" \t\r"), rest_.size());
    return std::string(rest_.substr(begin));
  }
  // The next word is "!", and is behind.
  bool takeBang() {
    const std::string_view before = rest_;
    if (word() == "!") return true;
    rest_ = before;
    return false;
  }

 private:
  std::string place_;
  std::string_view rest_;
};

RecordedAccess accessOfLine(LineReader& in, U32 number) {
  RecordedAccess one;
  one.line = number;
  const std::string_view what = in.word();
  const bool isKnown = what.size() == 2 && (what[0] == 'r' || what[0] == 'w') &&
                       std::string_view("1248").find(what[1]) != std::string_view::npos;
  if (!isKnown) in.refuse("neither r1 to r8 nor w1 to w8: \"" + std::string(what) + "\"");
  one.access.kind = what[0] == 'r' ? Kind::read : Kind::write;
  one.access.width = static_cast<U32>(what[1] - '0');
  one.access.address = in.hexWord("address");
  one.name = in.word();
  if (one.name.empty()) in.refuse("no name");
  if (one.name == "-") one.name.clear();
  const bool isReadThatFailed = one.access.kind == Kind::read && in.takeBang();
  if (!isReadThatFailed) one.access.value = in.hexWord("value");
  one.time = in.timeWord();
  one.hasFailed = isReadThatFailed || in.takeBang();
  one.reason = in.rest();
  if (!one.hasFailed && !one.reason.empty())
    in.refuse("more than an access: \"" + one.reason + "\"");
  const U32 bits = one.access.width * 8;
  if (bits < 64 && (one.access.value >> bits) != 0) in.refuse("a value wider than its register");
  if (one.access.address > allBits - one.access.width) in.refuse("an address beyond all addresses");
  return one;
}

}  // namespace

std::string RecordedAccess::text() const {
  const bool isRead = access.kind == Kind::read;
  std::string text = (isRead ? "r" : "w") + std::to_string(access.width) + " " +
                     hexText(access.address) + " " + wordOf(name) + " " +
                     (isRead && hasFailed ? "!" : hexText(access.value)) + " @" + timeText(time);
  if (!hasFailed) return text;
  return text + (isRead ? " " : " ! ") + oneLine(reason);
}

Recording Recording::fromFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  if (in.peek() != std::ifstream::traits_type::eof()) text << in.rdbuf();
  if (!in.is_open() || in.bad())
    Zint::throwRangeException(Zint::String8(path + ": cannot be read"));
  return fromText(text.str(), path);
}

Recording Recording::fromText(const std::string& text, std::string source) {
  Recording recording;
  recording.source_ = std::move(source);
  std::string_view rest = text;
  for (U32 number = 1; !rest.empty(); ++number) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    LineReader in(recording.source_, number, line);
    if (line.size() > longestLine) in.refuse("a line of more than 4,096 bytes");
    LineReader look = in;
    const std::string_view first = look.word();
    if (first.empty() || first.starts_with("#")) continue;
    recording.accesses_.push_back(accessOfLine(in, number));
  }
  return recording;
}

FakeChip::Ptr Recording::chip() const {
  FakeChip::Ptr chip = fakeChipFactory(source_);
  std::vector<const RecordedAccess*> order;
  for (const RecordedAccess& one : accesses_) order.push_back(&one);
  std::stable_sort(order.begin(), order.end(),
                   [](const auto* a, const auto* b) { return a->access.width > b->access.width; });
  std::unordered_map<std::string, U32> uses;
  for (const RecordedAccess* one : order) {
    const Access& access = one->access;
    if (chip->hasBytes(access.address, access.width)) continue;
    std::string name = one->name.empty() ? hexText(access.address) : one->name;
    if (uses[name]++ != 0) name += "@" + hexText(access.address);
    chip->registerIs({.name = name, .address = access.address, .width = access.width});
  }
  return chip;
}

Step Recording::steps(Within within) const {
  std::vector<Step> all, turn;
  Zint::Seconds turnTime = 0;
  const auto endTurn = [&] {
    if (!turn.empty()) all.push_back(turn.size() == 1 ? turn[0] : anyOrder(std::move(turn)));
    turn.clear();
  };
  for (const RecordedAccess& one : accesses_) {
    const Access& access = one.access;
    const bool isRead = access.kind == Kind::read;
    const std::string where = hexText(access.address);  // names need not be unique
    Step step = isRead ? read(where) : write(where, access.value);
    step = step.at(access.address, access.width);
    if (one.hasFailed) {
      step = step.fails();
    } else if (isRead) {
      step = step.returns(access.value);
    }
    if (within == Within::nothing || one.time != turnTime) endTurn();
    turnTime = one.time;
    turn.push_back(step.from((one.name.empty() ? "" : one.name + ", ") + source_ + ":" +
                             std::to_string(one.line)));
  }
  endTurn();
  return inOrder(std::move(all));
}

// ---- writing ------------------------------------------------------------------------------------

RecordingWriter::RecordingWriter(const std::string& path, const std::string& chip, NameOf names,
                                 Zint::Ptr<const Zint::Clock> clock)
    : file_(std::make_unique<std::ofstream>(path, std::ios::binary | std::ios::trunc)),
      out_(*file_),
      names_(std::move(names)),
      clock_(std::move(clock)) {
  if (!out_) Zint::throwRangeException(Zint::String8(path + ": cannot be written"));
  out_ << "# accesses of " << oneLine(chip) << std::endl;
}

RecordingWriter::RecordingWriter(std::ostream& out, const std::string& chip, NameOf names,
                                 Zint::Ptr<const Zint::Clock> clock)
    : out_(out), names_(std::move(names)), clock_(std::move(clock)) {
  out_ << "# accesses of " << oneLine(chip) << std::endl;
}

void RecordingWriter::write(const Access& access, const char* reason) {
  RecordedAccess one;
  one.access = access;
  if (names_) one.name = names_(access.address);
  one.time = clock_ ? clock_->turnTime() : 0;
  one.hasFailed = reason != nullptr;
  if (reason != nullptr) one.reason = reason;
  out_ << one.text() << std::endl;
}

Recorder::~Recorder() = default;

void Recorder::read(U32 address, U32* value) {
  const Ptr held(this);
  writer_->record({Kind::read, address, 4, 0}, [&](U64& recorded) {
    recorded_->read(address, value);
    recorded = *value;
  });
}

void Recorder::write(U32 address, U32 value) {
  const Ptr held(this);
  writer_->record({Kind::write, address, 4, value},
                  [&](U64&) { recorded_->write(address, value); });
}

Zint::ValidPtr<Recorder> recorderFactory(const Zint::Ptr<Fru::HamImpl>& recorded,
                                         const std::string& path,
                                         const Zint::Ptr<const Zint::Clock>& clock, NameOf names) {
  return Zint::makePtr<Recorder>(
      recorded, std::make_unique<RecordingWriter>(path, "the chip", std::move(names), clock));
}

Zint::ValidPtr<Recorder> recorderFactory(const Zint::Ptr<Fru::HamImpl>& recorded, std::ostream& out,
                                         const Zint::Ptr<const Zint::Clock>& clock, NameOf names) {
  return Zint::makePtr<Recorder>(
      recorded, std::make_unique<RecordingWriter>(out, "the chip", std::move(names), clock));
}

}  // namespace TestKit
