// Loads the plugin, and the library with it; threads use both, and end before or after they are
// unloaded.
#include <dlfcn.h>

#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

std::mutex mutex;
std::condition_variable changed;
bool hasChecked = false;
bool mayEnd = false;

void checkAndWait(void (*check)(const char*)) {
  check("thread");
  std::unique_lock lock(mutex);
  hasChecked = true;
  changed.notify_all();
  changed.wait(lock, [] { return mayEnd; });
}

}  // namespace

// With an argument the thread ends after the library has been unloaded.
int main(int count, char**) {
  void* plugin = dlopen(ENDING_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) {
    (void)std::printf("%s\n", dlerror());
    return 1;
  }
  void (*check)(const char*) = nullptr;
  void* symbol = dlsym(plugin, "pluginCheck");
  std::memcpy(&check, &symbol, sizeof check);
  std::thread thread(checkAndWait, check);
  {
    std::unique_lock lock(mutex);
    changed.wait(lock, [] { return hasChecked; });
  }
  if (count > 1) dlclose(plugin);
  {
    const std::lock_guard lock(mutex);
    mayEnd = true;
  }
  changed.notify_all();
  thread.join();
  if (count == 1) dlclose(plugin);
  (void)std::printf("ended\n");
  return 0;
}
