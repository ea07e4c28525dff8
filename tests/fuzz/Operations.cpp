// Operations of the lockstep runs, eight bytes each, on the library and on the independent model,
// everything compared after each.
#include "fuzz/Fuzz.h"
#include "lockstep/Driver.h"

namespace {

void run(const U8* bytes, std::size_t size) {
  if (const auto divergence = Lockstep::Driver::runBytes(bytes, size)) {
    Fuzz::failed(Lockstep::report(*divergence));
  }
}

}  // namespace

FUZZ_TARGET("operations", run)
