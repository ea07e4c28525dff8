#include <time/Kit.h>

#include <poll.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr unsigned unlimited = std::numeric_limits<unsigned>::max();
std::atomic<unsigned> timerCalls_{0};
std::atomic<unsigned> allocations_{0};
std::atomic<unsigned> left_{unlimited};

bool pollIn(int descriptor, int milliseconds) {
  pollfd poll{descriptor, POLLIN, 0};
  return ::poll(&poll, 1, milliseconds) == 1 && poll.revents == POLLIN;
}

}  // namespace

// In place of the system's: the library in this program calls them.
extern "C" int timerfd_settime(int descriptor, int flags, const itimerspec* value,
                               itimerspec* old) noexcept {
  ++timerCalls_;
  return static_cast<int>(syscall(SYS_timerfd_settime, descriptor, flags, value, old));
}

void* operator new(std::size_t size) {
  ++allocations_;
  if (left_ != unlimited && (left_ == 0 || left_-- == 0)) throw std::bad_alloc();
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace Time {

bool isReadable(Zint::ActivityConfig& activity) { return pollIn(activity.descriptor(), 0); }
bool becomesReadable(Zint::ActivityConfig& activity) {
  return pollIn(activity.descriptor(), 30'000);
}
unsigned timerCalls() { return timerCalls_; }
unsigned allocations() { return allocations_; }
NoMemoryAfter::NoMemoryAfter(unsigned count) { left_ = count; }
NoMemoryAfter::~NoMemoryAfter() { left_ = unlimited; }

}  // namespace Time
