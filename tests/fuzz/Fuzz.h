// What the fuzz targets share. A target is one file that turns bytes into operations, checks every
// answer against something simpler, and ends with
//
//   FUZZ_TARGET("text", run)        // void run(const U8* bytes, std::size_t size)
//
// In a fuzzer's build that is the function the fuzzer calls; in the tests' build it enters the
// target into a list, and the kept inputs in corpus/<target>/ are replayed through it.
#pragma once

#include <Zint/Assert.h>
#include <Zint/Trace.h>
#include <Zint/Types.h>

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Fuzz {

using Run = void (*)(const U8* bytes, std::size_t size);

struct Target {
  const char* name;
  Run run;
};
std::vector<Target>& targets();

// A check that did not hold: ends a fuzzer's process, which makes it keep the input; in a test it
// is thrown.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};
[[noreturn]] void failed(const std::string& what);

// The operations so far, in words, for the report of a failure.
class Story {
 public:
  template <class... Parts>
  void add(const Parts&... parts) {
    std::ostringstream line;
    (line << ... << parts);
    lines_ += "  " + line.str() + "\n";
  }
  const std::string& lines() const { return lines_; }

 private:
  std::string lines_;
};

template <class T, class U>
void same(const std::string& what, const T& expected, const U& actual, const Story& story = {}) {
  if (expected == actual) return;
  std::ostringstream text;
  text << story.lines() << what << ": expected " << expected << ", is " << actual;
  failed(text.str());
}

// While one lives: no trace is written, and a fatal assertion is thrown, with the operation left
// half done.
struct Asserted {
  Zint::AssertionFailure failure;
};
class Quiet : private Zint::TraceSink {
 public:
  Quiet() : sink_(Zint::traceSinkIs(this)), hook_(Zint::assertionHookIs(thrown)) {}
  ~Quiet() override {
    Zint::assertionHookIs(hook_);
    Zint::traceSinkIs(sink_);
  }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

 private:
  static void thrown(const Zint::AssertionFailure& failure) { throw Asserted{failure}; }
  void traceLine(const Zint::TraceLine&) override {}

  Zint::TraceSink* sink_;
  Zint::AssertionHook hook_;
};

// The bytes of an input, taken from the front; zeros when they are used up.
class Input {
 public:
  Input(const U8* bytes, std::size_t size) : at_(bytes), end_(bytes + size) {}

  bool empty() const { return at_ == end_; }
  U8 byte() { return empty() ? U8{0} : *at_++; }
  U32 below(U32 bound) { return byte() % bound; }  // at most 256
  bool coin() { return (byte() & 1) != 0; }
  U32 word() {
    U32 value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | byte();
    return value;
  }
  U64 doubleWord() {
    const U64 high = word();
    return high << 32 | word();
  }
  // A length byte and as many bytes, `most` of them and what is left of the input at the most.
  std::string text(U32 most) {
    const std::size_t wanted = byte() % (most + 1);
    const std::size_t length = std::min(wanted, left());
    std::string text(at_, at_ + length);
    at_ += length;
    return text;
  }
  std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }

 private:
  const U8* at_;
  const U8* end_;
};

}  // namespace Fuzz

#ifdef UMBRA_FUZZ
#define FUZZ_TARGET(name, function)                                          \
  extern "C" int LLVMFuzzerTestOneInput(const U8* bytes, std::size_t size) { \
    function(bytes, size);                                                   \
    return 0;                                                                \
  }
#else
#define FUZZ_TARGET(name, function) \
  [[maybe_unused]] static const bool entered = (Fuzz::targets().push_back({name, function}), true);
#endif
