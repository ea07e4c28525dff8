#include <platform/bus/SigbusGuard.h>

#include <Zint/Types.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>

namespace Platform::SigbusGuard {
namespace {

// Read by the handler, in any thread and at any moment: `end` is 0 while a place is free, and set
// last.
struct GuardedMapping {
  std::atomic<std::uintptr_t> begin;
  std::atomic<std::uintptr_t> end;
  std::atomic<bool> hasFaulted;
};
static_assert(std::atomic<std::uintptr_t>::is_always_lock_free);

GuardedMapping guarded[mappings];
struct sigaction before;
std::uintptr_t pageSize;
std::mutex changes;

std::uintptr_t addressOf(const void* mapping) { return reinterpret_cast<std::uintptr_t>(mapping); }

GuardedMapping* find(std::uintptr_t address) {
  for (GuardedMapping& mapping : guarded) {
    const std::uintptr_t end = mapping.end.load(std::memory_order_acquire);
    if (end != 0 && address >= mapping.begin.load(std::memory_order_relaxed) && address < end) {
      return &mapping;
    }
  }
  return nullptr;
}

// What the process would have done without this.
void passOn(int signal, siginfo_t* info, void* context) {
  if ((before.sa_flags & SA_SIGINFO) != 0) return before.sa_sigaction(signal, info, context);
  const bool isFault = info->si_code > 0;  // not of a process that sends the signal
  if (before.sa_handler == SIG_IGN && !isFault) return;
  if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN)
    return before.sa_handler(signal);
  // The access is made again, and ends the process.
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigaction(signal, &action, nullptr);
  if (!isFault) (void)raise(signal);
}

// Only system calls, which a handler may make. The page is replaced; the access is made again.
void handle(int signal, siginfo_t* info, void* context) {
  const std::uintptr_t address = addressOf(info->si_addr);
  GuardedMapping* mapping = find(address);
  if (mapping == nullptr || info->si_code <= 0) return passOn(signal, info, context);
  const int error = errno;
  const std::uintptr_t page = address & ~(pageSize - 1);
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the page of an address
  void* const place = reinterpret_cast<void*>(page);
  mapping->hasFaulted.store(true, std::memory_order_release);
  void* const made =
      mmap(place, pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
  if (made == MAP_FAILED) return passOn(signal, info, context);
  std::memset(place, 0xff, pageSize);
  errno = error;
}

}  // namespace

void install() {
  static const bool isInstalled = [] {
    pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    return sigaction(SIGBUS, &action, &before) == 0;
  }();
  static_cast<void>(isInstalled);
}

int add(void* mapping, std::size_t size) {
  const std::lock_guard lock(changes);
  for (std::size_t i = 0; i < mappings; ++i) {
    GuardedMapping& place = guarded[i];
    if (place.end.load(std::memory_order_relaxed) != 0) continue;
    place.begin.store(addressOf(mapping), std::memory_order_relaxed);
    place.hasFaulted.store(false, std::memory_order_relaxed);
    place.end.store(addressOf(mapping) + size, std::memory_order_release);
    return static_cast<int>(i);
  }
  return -1;
}

void remove(int place) {
  const std::lock_guard lock(changes);
  guarded[place].end.store(0, std::memory_order_release);
}

bool hasFaulted(int place) { return guarded[place].hasFaulted.load(std::memory_order_acquire); }

}  // namespace Platform::SigbusGuard
