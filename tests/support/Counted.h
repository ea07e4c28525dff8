// Counts the living objects of a class.
#pragma once

namespace Support {

// A base of T. T::living is the number of its objects, 0 after a test that leaks none.
template <class T>
struct Counted {
  Counted() { ++living; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
  ~Counted() { --living; }
  static inline int living = 0;
};

}  // namespace Support
