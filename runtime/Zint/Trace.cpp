#include <Zint/Clock.h>
#include <Zint/Exception.h>
#include <Zint/Trace.h>
#include <cstdio>
#include <mutex>

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

// All of it lives until the process is gone: objects may trace from static destructors.
struct TraceState {
  std::mutex mutex;  // for the list of handles and for changes of the levels
  TraceHandle* handles = nullptr;
  StandardErrorSink standardError;
  std::atomic<TraceSink*> sink{&standardError};
  std::atomic<std::ostream*> coverage{nullptr};
};

TraceState& state() {
  static TraceState* state = new TraceState;
  return *state;
}

}  // namespace

void TraceHandle::registered() {
  std::lock_guard guard(state().mutex);
  recordedIs(recorded_);
  next_ = std::exchange(state().handles, this);
}

TraceHandle::~TraceHandle() {
  std::lock_guard guard(state().mutex);
  TraceHandle** link = &state().handles;
  while (*link != nullptr && *link != this) link = &(*link)->next_;
  if (*link == this) *link = next_;
}

// REQUIRES: the mutex is held.
void TraceHandle::recordedIs(U32 levels) {
  recorded_ = levels;
  built_ = state().coverage.load() != nullptr ? everyLevelBits : levels;
}

void TraceHandle::levelIs(U32 level, bool on) {
  if (level >= traceLevels || (level == 0 && !on)) {
    throwRangeException(String8("trace level ") + std::to_string(level) +
                        (on ? " is above 9" : " cannot be switched off"));
  }
  std::lock_guard guard(state().mutex);
  recordedIs(on ? recorded_ | (1u << level) : recorded_ & ~(1u << level));
}

void TraceHandle::levelUpToIs(U32 level) {
  if (level >= traceLevels) {
    throwRangeException(String8("trace level ") + std::to_string(level) + " is above 9");
  }
  std::lock_guard guard(state().mutex);
  recordedIs((2u << level) - 1);
}

TraceHandle* TraceHandle::find(const String8& name) {
  std::lock_guard guard(state().mutex);
  TraceHandle* handle = state().handles;
  while (handle != nullptr && name != handle->name_) handle = handle->next_;
  return handle;
}

TraceSink::~TraceSink() = default;

TraceSink* traceSinkIs(TraceSink* sink) {
  TraceSink* own = &state().standardError;
  TraceSink* old = state().sink.exchange(sink == nullptr ? own : sink);
  return old == own ? nullptr : old;
}

void coverageStreamIs(std::ostream* stream) {
  std::lock_guard guard(state().mutex);
  state().coverage = stream;
  for (TraceHandle* handle = state().handles; handle != nullptr; handle = handle->next_) {
    handle->recordedIs(handle->recorded_);
  }
}

void traceHelper(const TraceHandle& handle, const String8& text, U32 level, const char* context,
                 const char* source, int line, const char* function) {
  if (state().coverage.load() != nullptr) {
    std::lock_guard guard(state().mutex);
    // Read again: once coverageStreamIs() has returned, the old stream may be gone.
    if (std::ostream* coverage = state().coverage.load(); coverage != nullptr)
      *coverage << source << ':' << line << ' ' << text << '\n';
  }
  if (!handle.level(level)) return;
  state().sink.load()->traceLine(
      {handle.name(), level, text.c_str(), context, source, line, function});
}

TraceHandle& zintTrace() {
  static TraceHandle handle("Zint", false);
  return handle;
}

}  // namespace Zint
