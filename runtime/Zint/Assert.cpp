#include <Zint/Assert.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Zint {
namespace {

std::atomic<AssertionHook> assertionHook{nullptr};

}  // namespace

AssertionHook assertionHookIs(AssertionHook hook) { return assertionHook.exchange(hook); }

void assertionFailed(const char* condition, const char* source, int line, const char* function,
                     const char* detail) {
  if (AssertionHook hook = assertionHook.load(); hook != nullptr) {
    hook({condition, source, line, function, detail});
  }
  (void)std::fprintf(stderr, "%s:%d: %s: assertion \"%s\" failed%s%s\n", source, line, function,
                     condition, *detail == '\0' ? "" : ": ", detail);
  std::abort();
}

}  // namespace Zint
