// Which sanitizer a test program was built with, for the few tests that one disturbs.
#pragma once

extern "C" [[gnu::weak]] void __asan_init();  // there when the address sanitizer is

namespace Support {

inline bool addressesAreSanitized() { return &__asan_init != nullptr; }

}  // namespace Support
