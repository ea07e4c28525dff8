#include "fuzz/Fuzz.h"

#include <cstdlib>
#include <iostream>

namespace Fuzz {

std::vector<Target>& targets() {
  static std::vector<Target> entered;
  return entered;
}

void failed(const std::string& what) {
#ifdef UMBRA_FUZZ
  std::cerr << what << std::endl;
  std::abort();
#else
  throw Failure(what);
#endif
}

}  // namespace Fuzz
