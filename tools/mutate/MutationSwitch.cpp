#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace {

constexpr unsigned mutants = 16384;
unsigned char unrecorded[mutants];

}  // namespace

int umbraMutant = 0;
unsigned char* umbraReached = unrecorded;

// Before every other constructor of the library and of programs.
__attribute__((constructor(101))) static void umbraMutationStart() {
  if (const char* mutant = std::getenv("UMBRA_MUTANT")) umbraMutant = std::atoi(mutant);
  const char* name = std::getenv("UMBRA_REACH");
  if (name == nullptr) return;
  const int file = open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0 || ftruncate(file, mutants) != 0) abort();
  void* place = mmap(nullptr, mutants, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (place == MAP_FAILED) abort();
  umbraReached = static_cast<unsigned char*>(place);
}
