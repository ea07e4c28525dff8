// Which planted mistake is active, and which ones a run passes by.
//
// UMBRA_MUTANT=<number> switches one on for the life of the process. UMBRA_REACH=<file> names a
// file that is mapped: byte n becomes 1 where the place of mutant n is passed, in this process, its
// forks and the programs it starts.
#pragma once

extern "C" __attribute__((visibility("default"))) int umbraMutant;
extern "C" __attribute__((visibility("default"))) unsigned char* umbraReached;

inline bool umbraMutantIs(int mutant) {
  umbraReached[mutant] = 1;
  return umbraMutant == mutant;
}

// For functions that may also run while compiling, where no mistake is active.
constexpr bool umbraMutantIsOrConstant(int mutant) {
  if (__builtin_is_constant_evaluated()) return false;
  return umbraMutantIs(mutant);
}
