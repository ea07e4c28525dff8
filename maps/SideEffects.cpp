// The table of words, and how they are found.
#include <maps/SideEffects.h>

#include <maps/Ascii.h>
#include <unordered_map>
#include <vector>

namespace Maps {
namespace {

// Words in lower case. "clear*" is every word that begins so; "<3" stands for up to three words.
struct HintPhrase {
  Hint hint;
  const char* words;
};

constexpr HintPhrase phrases[] = {
    // A read has effects.
    {Hint::read, "clear* <4 read"},
    {Hint::read, "clear* <4 reading"},
    {Hint::read, "reset* <3 read"},
    {Hint::read, "reset* <3 reading"},
    {Hint::read, "read <5 clear*"},
    {Hint::read, "reading <5 clear*"},
    {Hint::read, "reads <5 clear*"},
    {Hint::read, "read <4 reset*"},
    {Hint::read, "reading <4 reset*"},
    {Hint::read, "on read*"},
    {Hint::read, "upon read*"},
    {Hint::read, "after read*"},
    {Hint::read, "when read"},
    {Hint::read, "each read"},
    {Hint::read, "every read"},
    {Hint::read, "read* <5 increment*"},
    {Hint::read, "read* <5 advance*"},
    {Hint::read, "read* <5 remove*"},
    {Hint::read, "read* <5 acknowledg*"},
    {Hint::read, "read* <5 next"},
    {Hint::read, "read* <5 latch*"},
    {Hint::read, "read* <5 trigger*"},
    {Hint::read, "read* <5 claim*"},
    {Hint::read, "claim*"},
    {Hint::read, "pop"},
    {Hint::read, "pops"},
    {Hint::read, "popped"},
    {Hint::read, "fifo*"},
    {Hint::read, "queue*"},
    {Hint::read, "destructive*"},
    {Hint::read, "side effect*"},
    {Hint::read, "rc"},
    {Hint::read, "rclr"},
    {Hint::read, "cor"},
    {Hint::read, "receive* <4 data"},
    {Hint::read, "received"},
    {Hint::read, "receive* <2 buffer"},
    {Hint::read, "receive* <2 register"},
    {Hint::read, "data <3 received"},
    // A write has effects.
    {Hint::write, "writ* <3 1"},
    {Hint::write, "writ* <3 one*"},
    {Hint::write, "writ* <3 0"},
    {Hint::write, "writ* <3 zero*"},
    {Hint::write, "writ* <3 1b"},
    {Hint::write, "writ* <2 any"},
    {Hint::write, "any write"},
    {Hint::write, "a write"},
    {Hint::write, "on write"},
    {Hint::write, "on writing"},
    {Hint::write, "when written"},
    {Hint::write, "writing to"},
    {Hint::write, "writing a"},
    {Hint::write, "writing the"},
    {Hint::write, "writing this"},
    {Hint::write, "writ* <6 clear*"},
    {Hint::write, "writ* <6 start*"},
    {Hint::write, "writ* <6 trigger*"},
    {Hint::write, "writ* <6 reset*"},
    {Hint::write, "writ* <6 toggle*"},
    {Hint::write, "writ* <6 ignored"},
    {Hint::write, "writ* <6 complet*"},
    {Hint::write, "writ* once"},
    {Hint::write, "write* <4 effect"},
    {Hint::write, "1 to clear"},
    {Hint::write, "1 to set"},
    {Hint::write, "one to clear"},
    {Hint::write, "one to set"},
    {Hint::write, "setting this bit"},
    {Hint::write, "set this bit to"},
    {Hint::write, "w1c"},
    {Hint::write, "w1s"},
    {Hint::write, "w1t"},
    {Hint::write, "w0c"},
    {Hint::write, "w1p"},
    {Hint::write, "rw1c"},
    {Hint::write, "rwc"},
    {Hint::write, "woclr"},
    {Hint::write, "woset"},
    {Hint::write, "strobe*"},
    {Hint::write, "trigger*"},
    {Hint::write, "pulse"},
    {Hint::write, "pulsed"},
    {Hint::write, "self clear*"},
    {Hint::write, "selfclear*"},
    {Hint::write, "self reset*"},
    {Hint::write, "auto* clear*"},
    {Hint::write, "auto* reset*"},
    {Hint::write, "auto* disabl*"},
    {Hint::write, "clear* <4 auto*"},
    {Hint::write, "clear* itself"},
    {Hint::write, "is cleared"},
    {Hint::write, "gets cleared"},
    {Hint::write, "returns to"},
    {Hint::write, "return to 0"},
    {Hint::write, "clear* <5 interrupt*"},
    {Hint::write, "interrupt* <3 clear*"},
    {Hint::write, "clear register"},
    {Hint::write, "set register"},
    {Hint::write, "clear bit*"},
    {Hint::write, "flush*"},
    {Hint::write, "abort*"},
    {Hint::write, "soft* reset*"},
    {Hint::write, "reset <3 module"},
    {Hint::write, "reset <3 counter*"},
    {Hint::write, "start* <4 conversion"},
    {Hint::write, "start* <4 transfer*"},
    {Hint::write, "start* <4 transmission"},
    {Hint::write, "start* <4 transaction"},
    {Hint::write, "start* <4 operation"},
    {Hint::write, "initiat*"},
    {Hint::write, "command*"},
    {Hint::write, "transmit* <4 data"},
    {Hint::write, "transmit* <2 buffer"},
    {Hint::write, "transmit* <2 register"},
    {Hint::write, "toggle* <4 output*"},
    {Hint::write, "unlock*"},
    {Hint::write, "watchdog"},
    {Hint::write, "semaphore*"},
    {Hint::write, "mutex*"},
    {Hint::write, "spinlock*"},
    {Hint::write, "doorbell*"},
    {Hint::write, "mailbox*"},
    {Hint::write, "erase*"},
    {Hint::write, "write only"},
    {Hint::write, "hardware reset"},
    {Hint::write, "resume*"},
    {Hint::write, "handshak*"},
    {Hint::write, "software <2 request*"},
    {Hint::write, "request bit*"},
    {Hint::write, "forc*"},
    {Hint::write, "edge on this"},
    {Hint::write, "test register"},
    // It changes by itself.
    {Hint::change, "by <2 hardware"},
    {Hint::change, "by <2 hw"},
    {Hint::change, "hardware <3 clear*"},
    {Hint::change, "hardware <3 set*"},
    {Hint::change, "hardware <3 updat*"},
    {Hint::change, "status"},
    {Hint::change, "pending"},
    {Hint::change, "flag"},
    {Hint::change, "flags"},
    {Hint::change, "busy"},
    {Hint::change, "occurred"},
    {Hint::change, "detected"},
    {Hint::change, "captur*"},
    {Hint::change, "sampled"},
    {Hint::change, "measured"},
    {Hint::change, "counter*"},
    {Hint::change, "count"},
    {Hint::change, "counts"},
    {Hint::change, "counted"},
    {Hint::change, "current <2 value"},
    {Hint::change, "current <2 state"},
    {Hint::change, "current <2 address"},
    {Hint::change, "current <2 time"},
    {Hint::change, "timestamp*"},
    {Hint::change, "time stamp*"},
    {Hint::change, "elapsed"},
    {Hint::change, "remaining"},
    {Hint::change, "random*"},
    {Hint::change, "increment*"},
    {Hint::change, "decrement*"},
    {Hint::change, "progress"},
    {Hint::change, "result*"},
    {Hint::change, "volatile"},
    {Hint::change, "updated"},
    {Hint::change, "indicates"},
    {Hint::change, "reports"},
    {Hint::change, "write pointer"},
    {Hint::change, "read pointer"},
    {Hint::change, "head pointer"},
    {Hint::change, "tail pointer"},
    {Hint::change, "calendar"},
    {Hint::change, "conversion data"},
    {Hint::change, "input value"},
    {Hint::change, "raw interrupt*"},
    {Hint::change, "last <3 transfer*"},
    {Hint::change, "data byte*"},
    {Hint::change, "message data"},
    {Hint::change, "message length"},
    {Hint::change, "list pointer"},
    {Hint::change, "crc register"},
    {Hint::change, "crc check"},
    {Hint::change, "input register"},
    {Hint::change, "port input"},
    {Hint::change, "read only"},
};

// Words of names. They are looked for as wholes, without trailing digits.
constexpr HintPhrase nameWords[] = {
    {Hint::read, "fifo"},      {Hint::read, "rxd"},        {Hint::read, "rbr"},
    {Hint::read, "rxdata"},    {Hint::read, "rdr"},        {Hint::read, "dr"},
    {Hint::read, "data"},      {Hint::read, "rxfifo"},     {Hint::read, "pop"},
    {Hint::read, "claim"},     {Hint::read, "rbuf"},       {Hint::read, "iar"},
    {Hint::write, "txd"},      {Hint::write, "txdata"},    {Hint::write, "thr"},
    {Hint::write, "tdr"},      {Hint::write, "txfifo"},    {Hint::write, "tbuf"},
    {Hint::write, "cmd"},      {Hint::write, "command"},   {Hint::write, "clr"},
    {Hint::write, "clear"},    {Hint::write, "ack"},       {Hint::write, "eoi"},
    {Hint::write, "set"},      {Hint::write, "tog"},       {Hint::write, "toggle"},
    {Hint::write, "xor"},      {Hint::write, "trig"},      {Hint::write, "trigger"},
    {Hint::write, "start"},    {Hint::write, "stop"},      {Hint::write, "abort"},
    {Hint::write, "swrst"},    {Hint::write, "srst"},      {Hint::write, "key"},
    {Hint::write, "unlock"},   {Hint::write, "kick"},      {Hint::write, "tasks"},
    {Hint::write, "intenset"}, {Hint::write, "intenclr"},  {Hint::write, "complete"},
    {Hint::write, "swreset"},  {Hint::write, "flush"},     {Hint::write, "reload"},
    {Hint::write, "req"},      {Hint::write, "request"},   {Hint::write, "nudge"},
    {Hint::change, "sar"},     {Hint::change, "dar"},      {Hint::change, "llp"},
    {Hint::change, "status"},  {Hint::change, "stat"},     {Hint::change, "sr"},
    {Hint::change, "sts"},     {Hint::change, "isr"},      {Hint::change, "ris"},
    {Hint::change, "mis"},     {Hint::change, "intr"},     {Hint::change, "ip"},
    {Hint::change, "cnt"},     {Hint::change, "count"},    {Hint::change, "counter"},
    {Hint::change, "pend"},    {Hint::change, "pending"},  {Hint::change, "busy"},
    {Hint::change, "flag"},    {Hint::change, "flags"},    {Hint::change, "events"},
    {Hint::change, "tim"},     {Hint::change, "time"},     {Hint::change, "timer"},
    {Hint::change, "capture"}, {Hint::change, "captured"}, {Hint::change, "rnd"},
    {Hint::change, "mtime"},   {Hint::change, "value"},    {Hint::change, "cur"},
    {Hint::change, "in"},      {Hint::change, "rng"},      {Hint::change, "tick"},
    {Hint::change, "lock"},    {Hint::change, "locked"},   {Hint::change, "ready"},
    {Hint::change, "rdy"},     {Hint::change, "done"},     {Hint::change, "result"},
    {Hint::change, "reason"},  {Hint::change, "level"},
};

using HintWords = std::vector<std::string>;

// The words of a text, in lower case: letters and digits. Others only divide.
HintWords wordsOf(std::string_view text) {
  HintWords words;
  bool isWord = false;
  for (const char c : text) {
    if (!isLetterOrDigit(c)) {
      isWord = false;
      continue;
    }
    if (!isWord) words.emplace_back();
    isWord = true;
    words.back() += toLower(c);
  }
  return words;
}

// The words of a name: "RX_FIFO" and "rxFifo" have two. Trailing digits are left out.
HintWords wordsOfName(std::string_view name) {
  std::string spaced;
  char before = ' ';
  for (const char c : name) {
    if (isUpper(c) && isLower(before)) spaced += ' ';
    spaced += c;
    before = c;
  }
  HintWords words = wordsOf(spaced);
  for (std::string& word : words) {
    while (!word.empty() && isDigit(word.back())) {
      word.pop_back();
    }
  }
  return words;
}

struct HintPattern {
  struct Part {
    std::string word;
    bool isBeginning = false;
    std::size_t gap = 0;  // words that may stand before it
  };
  Hint hint;
  std::vector<Part> parts;
};

HintPattern patternOf(const HintPhrase& phrase) {
  HintPattern pattern{phrase.hint, {}};
  std::size_t gap = 0;
  std::string_view rest = phrase.words;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(' '), rest.size());
    std::string word(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (word[0] == '<') {
      gap = static_cast<std::size_t>(word[1] - '0');
      continue;
    }
    const bool isBeginning = word.back() == '*';
    if (isBeginning) word.pop_back();
    pattern.parts.push_back({std::move(word), isBeginning, gap});
    gap = 0;
  }
  return pattern;
}

// In the order of the table, by the first letter of their first word.
using HintIndex = std::unordered_map<char, std::vector<std::pair<std::size_t, HintPattern>>>;

const HintIndex& hintIndex() {
  static const HintIndex index = [] {
    HintIndex made;
    std::size_t place = 0;
    for (const HintPhrase& phrase : phrases) {
      made[phrase.words[0]].emplace_back(place++, patternOf(phrase));
    }
    return made;
  }();
  return index;
}

// The end of the match that begins at `at`; 0 if there is none.
std::size_t matchEnd(const HintPattern& pattern, const HintWords& words, std::size_t at,
                     std::size_t part = 0) {
  if (part == pattern.parts.size()) return at;
  const auto& wanted = pattern.parts[part];
  for (std::size_t i = at; i <= at + wanted.gap && i < words.size(); ++i) {
    if (wanted.isBeginning ? !words[i].starts_with(wanted.word) : words[i] != wanted.word) continue;
    if (const std::size_t end = matchEnd(pattern, words, i + 1, part + 1)) return end;
  }
  return 0;
}

}  // namespace

FoundHint hintOfText(std::string_view text) {
  const HintWords words = wordsOf(text);
  const HintIndex& index = hintIndex();
  FoundHint found;
  std::size_t best = std::size(phrases);
  for (std::size_t at = 0; at < words.size(); ++at) {
    const auto patterns = index.find(words[at][0]);
    if (patterns == index.end()) continue;
    for (const auto& [place, pattern] : patterns->second) {
      if (place >= best) break;
      const std::size_t end = matchEnd(pattern, words, at);
      if (end == 0) continue;
      best = place;
      found = {pattern.hint, words[at]};
      for (std::size_t i = at + 1; i < end; ++i) found.words += " " + words[i];
      break;
    }
  }
  return found;
}

FoundHint hintOfName(std::string_view name) {
  for (const std::string& word : wordsOfName(name)) {
    for (const HintPhrase& known : nameWords) {
      if (word == known.words) return {known.hint, word};
    }
  }
  return {};
}

const char* textOf(Hint hint) {
  constexpr const char* texts[] = {"no hint", "a read has effects", "a write has effects",
                                   "it changes by itself"};
  return texts[static_cast<int>(hint)];
}

}  // namespace Maps
