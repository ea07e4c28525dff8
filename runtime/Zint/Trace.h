// Text trace: one handle per library, a switch per level, one sink per process.
//
//   ZINT_TRACE_CONTEXT(myTrace(), 7, "", "Chips/Mine", __LINE__, "write to " << name);
//
// Levels run from 0 (operational events and real faults, always recorded) to 9 (finest detail). A
// text is built only when its level is switched on, or while a coverage stream is set.
//
// Handles, the sink and the coverage stream may be used from several threads.
#pragma once

#include <Zint/Api.h>
#include <Zint/String8.h>
#include <Zint/Types.h>
#include <cxxabi.h>

#include <atomic>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace Zint {

constexpr U32 traceLevels = 10;
constexpr U32 everyLevelBits = (1u << traceLevels) - 1;

struct TraceLine {
  const char* handle;
  U32 level;
  const char* text;     // a NUL in it is written \x00
  const char* context;  // "" unless the line states one
  const char* source;
  int line;
  const char* function;
};

class UMBRA_API TraceHandle {
 public:
  // Level 0 is on from the start, the others if `everyLevel`. `name` must outlive the handle.
  TraceHandle(const char* name, bool everyLevel) : TraceHandle(constant, name, everyLevel) {
    registerHandle();
  }
  // One that is initialised as a constant, for use at any time. find() finds it after
  // registerHandle().
  enum Constant { constant };
  constexpr TraceHandle(Constant, const char* name, bool everyLevel)
      : name_(name),
        recorded_(everyLevel ? everyLevelBits : 1u),
        built_(everyLevel ? everyLevelBits : 1u) {}
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const char* name() const { return name_; }
  bool level(U32 level) const { return (recorded_.load(std::memory_order_relaxed) >> level) & 1; }
  // Switches one level. Level 0 is always recorded: switching it off raises a range exception, as
  // does a level above 9.
  void levelIs(U32 level, bool on);
  // Switches on the levels up to and including `level`, and off those above it.
  void levelUpToIs(U32 level);

  // Whether a text of this level is to be built.
  bool isBuilt(U32 level) const { return (built_.load(std::memory_order_relaxed) >> level) & 1; }

  // Whether a text of this level, or of a finer one, is to be built.
  bool isBuiltFrom(U32 level) const { return built_.load(std::memory_order_relaxed) >> level != 0; }

  // Traces a text that has a NUL after it, if its level is to be built. What the sink throws is
  // swallowed, and the line is lost.
  void trace(std::string_view text, U32 level, const char* context, const char* source, int line,
             const char* function) const;

  void registerHandle();
  // The handle of that name, null when there is none.
  static TraceHandle* find(const String8& name);

 private:
  friend UMBRA_API void coverageStreamIs(std::ostream* stream);

  void updateLevels(U32 levels);

  const char* name_;
  std::atomic<U32> recorded_;  // bit n: level n is switched on
  std::atomic<U32> built_;     // the same, and all bits while a coverage stream is set
  TraceHandle* next_ = nullptr;
};

// Receives every recorded line, on the thread that traced it. REQUIRES: it does not trace. An
// exception is swallowed, and the line is lost.
class UMBRA_API TraceSink {
 public:
  virtual ~TraceSink();
  virtual void traceLine(const TraceLine& line) = 0;
};

// Replaces the sink (not owned; null for the one that writes lines to standard error) and returns
// the one before (null for that one). When it returns, no other thread is inside the old sink,
// which may be destroyed. It waits for those threads: call it without holding what a sink may wait
// for. Called from within a sink it does not wait, and the old sink is in use until its last
// traceLine() has returned.
UMBRA_API TraceSink* traceSinkIs(TraceSink* sink);

// While set, every trace statement that is reached builds its text and writes it there, whether or
// not its level is on. Not owned; null for none.
UMBRA_API void coverageStreamIs(std::ostream* stream);

// Hands a built text to the sink (if the level is on) and to the coverage stream.
UMBRA_API void traceHelper(const TraceHandle& handle, const String8& text, U32 level,
                           const char* context, const char* source, int line, const char* function);

// A text under construction, on the caller's stack. A text of up to 255 bytes allocates nothing.
class UMBRA_API TraceText : public std::ostream {
 public:
  TraceText();
  ~TraceText() override;

  // With a NUL after it. std::bad_alloc where memory ran out while it was built.
  std::string_view bytes() { return buffer_.bytes(); }

 private:
  class UMBRA_API Buffer : public std::streambuf {
   public:
    Buffer() { setp(few_, few_ + sizeof few_ - 1); }
    std::string_view bytes();

   protected:
    int_type overflow(int_type character) override;

   private:
    char few_[256];
    std::string many_;
    bool isComplete_ = true;
  };

  Buffer buffer_;
};

// The runtime's own handle, "Zint".
UMBRA_API TraceHandle& zintTrace();

}  // namespace Zint

// `text` is the right-hand side of `stream <<`. A line whose text or sink throws is dropped:
// tracing never changes what is traced. Only a cancellation of the thread passes through.
#define ZINT_TRACE_IN(function, handle, level, context, source, line, text)            \
  do {                                                                                 \
    if ((handle).isBuilt(level)) [[unlikely]] {                                        \
      try {                                                                            \
        ::Zint::TraceText zintTraceText;                                               \
        zintTraceText << text; /* NOLINT(bugprone-macro-parentheses) */                \
        (handle).trace(zintTraceText.bytes(), level, context, source, line, function); \
      } catch (abi::__forced_unwind&) {                                                \
        throw;                                                                         \
      } catch (...) {                                                                  \
      }                                                                                \
    }                                                                                  \
  } while (0)

// The same, with the name of the function that contains it.
#define ZINT_TRACE_CONTEXT(handle, level, context, source, line, text) \
  ZINT_TRACE_IN(__func__, handle, level, context, source, line, text)

#define ZINT_TRACE(level, text) \
  ZINT_TRACE_CONTEXT(::Zint::zintTrace(), level, "", "Zint", __LINE__, text)
