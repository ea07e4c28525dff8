#include <Zint/Trace.h>

#include <Zint/Clock.h>
#include <Zint/Exception.h>
#include <Zint/Strep.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

namespace Zint {
namespace {

class StandardErrorSink : public TraceSink {
 public:
  void traceLine(const TraceLine& line) override {
    (void)std::fprintf(stderr, "%.6f %s %u %s:%d %s: %s\n", now(), line.handle,
                       static_cast<unsigned>(line.level), line.source, line.line, line.function,
                       line.text);
  }
};

// A thread inside a sink, on its stack.
struct SinkCall {
  TraceSink* sink;
  std::thread::id thread;
  SinkCall* next;
};

// Leaked on purpose: objects trace from static destructors.
struct TraceState {
  std::mutex mutex;  // for the list of handles and for changes of the levels
  TraceHandle* handles = nullptr;
  StandardErrorSink standardError;
  std::atomic<std::ostream*> coverage{nullptr};

  std::mutex sinkMutex;  // for the members below; never held while a sink is called
  std::condition_variable sinkLeft;
  TraceSink* sink = &standardError;
  SinkCall* sinkCalls = nullptr;
};

TraceState& traceState() {
  static TraceState* const shared = new TraceState;
  return *shared;
}

// Enters the present sink and leaves it at the end of the scope.
class InSink {
 public:
  InSink() {
    TraceState& state = traceState();
    const std::lock_guard guard(state.sinkMutex);
    call_ = {state.sink, std::this_thread::get_id(), state.sinkCalls};
    state.sinkCalls = &call_;
  }
  ~InSink() {
    TraceState& state = traceState();
    const std::lock_guard guard(state.sinkMutex);
    SinkCall** link = &state.sinkCalls;
    while (*link != &call_) link = &(*link)->next;
    *link = call_.next;
    state.sinkLeft.notify_all();
  }
  InSink(const InSink&) = delete;
  InSink& operator=(const InSink&) = delete;

  TraceSink& sink() const { return *call_.sink; }

 private:
  SinkCall call_;
};

}  // namespace

void TraceHandle::registerHandle() {
  std::lock_guard guard(traceState().mutex);
  updateLevels(recorded_);
  next_ = std::exchange(traceState().handles, this);
}

TraceHandle::~TraceHandle() {
  std::lock_guard guard(traceState().mutex);
  TraceHandle** link = &traceState().handles;
  while (*link != nullptr && *link != this) link = &(*link)->next_;
  if (*link == this) *link = next_;
}

// REQUIRES: the mutex is held.
void TraceHandle::updateLevels(U32 levels) {
  recorded_ = levels;
  built_ = traceState().coverage.load() != nullptr ? everyLevelBits : levels;
}

void TraceHandle::levelIs(U32 level, bool on) {
  if (level >= traceLevels || (level == 0 && !on)) {
    throwRangeException(String8("trace level ") + std::to_string(level) +
                        (on ? " is above 9" : " cannot be switched off"));
  }
  std::lock_guard guard(traceState().mutex);
  updateLevels(on ? recorded_ | (1u << level) : recorded_ & ~(1u << level));
}

void TraceHandle::levelUpToIs(U32 level) {
  if (level >= traceLevels) {
    throwRangeException(String8("trace level ") + std::to_string(level) + " is above 9");
  }
  std::lock_guard guard(traceState().mutex);
  updateLevels((2u << level) - 1);
}

TraceHandle* TraceHandle::find(const String8& name) {
  (void)zintTrace();  // made by its first use, which may be this one
  std::lock_guard guard(traceState().mutex);
  TraceHandle* handle = traceState().handles;
  while (handle != nullptr && name != handle->name_) handle = handle->next_;
  return handle;
}

TraceSink::~TraceSink() = default;

TraceSink* traceSinkIs(TraceSink* sink) {
  TraceState& state = traceState();
  TraceSink* own = &state.standardError;
  std::unique_lock lock(state.sinkMutex);
  TraceSink* old = std::exchange(state.sink, sink == nullptr ? own : sink);
  bool isInside = false;
  for (SinkCall* call = state.sinkCalls; call != nullptr; call = call->next) {
    isInside = isInside || call->thread == std::this_thread::get_id();
  }
  if (old != own && !isInside) {
    state.sinkLeft.wait(lock, [&state, old] {
      SinkCall* call = state.sink == old ? nullptr : state.sinkCalls;
      while (call != nullptr && call->sink != old) call = call->next;
      return call == nullptr;
    });
  }
  return old == own ? nullptr : old;
}

void coverageStreamIs(std::ostream* stream) {
  std::lock_guard guard(traceState().mutex);
  traceState().coverage = stream;
  for (TraceHandle* handle = traceState().handles; handle != nullptr; handle = handle->next_) {
    handle->updateLevels(handle->recorded_);
  }
}

namespace {

// `text` has a NUL after it.
void traceLine(const TraceHandle& handle, std::string_view text, U32 level, const char* context,
               const char* source, int line, const char* function) {
  if (traceState().coverage.load() != nullptr) {
    std::lock_guard guard(traceState().mutex);
    // Read again: once coverageStreamIs() has returned, the old stream may be destroyed.
    if (std::ostream* coverage = traceState().coverage.load(); coverage != nullptr)
      *coverage << source << ':' << line << ' ' << text << '\n';
  }
  if (!handle.level(level)) return;
  const bool hasNul = text.find('\0') != std::string_view::npos;
  const String8 escaped = hasNul ? escapeNuls(String8(text)) : String8();
  const InSink inSink;
  inSink.sink().traceLine({handle.name(), level, hasNul ? escaped.c_str() : text.data(), context,
                           source, line, function});
}

}  // namespace

void traceHelper(const TraceHandle& handle, const String8& text, U32 level, const char* context,
                 const char* source, int line, const char* function) {
  traceLine(handle, text.bytes(), level, context, source, line, function);
}

void TraceHandle::trace(std::string_view text, U32 level, const char* context, const char* source,
                        int line, const char* function) const {
  if (!isBuilt(level)) return;
  try {
    traceLine(*this, text, level, context, source, line, function);
  } catch (abi::__forced_unwind&) {
    throw;
  } catch (...) {
  }
}

TraceText::TraceText() : std::ostream(nullptr) {
  rdbuf(&buffer_);
  imbue(std::locale::classic());
}

TraceText::~TraceText() = default;

std::string_view TraceText::Buffer::bytes() {
  if (!isComplete_) throw std::bad_alloc();
  *pptr() = '\0';
  return {pbase(), static_cast<std::size_t>(pptr() - pbase())};
}

// Doubles the room. Without memory the stream goes bad and what follows is lost.
TraceText::Buffer::int_type TraceText::Buffer::overflow(int_type character) {
  if (!isComplete_) return traits_type::eof();
  const std::size_t size = static_cast<std::size_t>(pptr() - pbase());
  isComplete_ = false;
  std::string more(2 * size + 2, '\0');
  isComplete_ = true;
  more.replace(0, size, pbase(), size);
  many_.swap(more);
  setp(many_.data(), many_.data() + many_.size() - 1);
  pbump(static_cast<int>(size));
  if (traits_type::eq_int_type(character, traits_type::eof())) return 0;
  return sputc(traits_type::to_char_type(character));
}

TraceHandle& zintTrace() {
  // Never destroyed, because handlers run in static destructors. In static memory: a block that is
  // taken by the first exception of a handler would look like a leak.
  alignas(TraceHandle) static unsigned char memory[sizeof(TraceHandle)];
  static TraceHandle* const handle = new (memory) TraceHandle("Zint", false);
  return *handle;
}

}  // namespace Zint
