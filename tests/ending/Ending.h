// What is asked of the library at each moment of a process's end, and by whom.
#pragma once

#include <Hardware/ChipMemoryBogon.h>

namespace Ending {

// A directory with one region and two access methods, made once for the process. What it holds
// lives until the process is gone, unless end() is called.
class Subject {
 public:
  Subject();
  // Makes the text of the first access method, for the first time or again.
  // Prints "<who>: ok" when the text is the one that was made first, reads back as the same object,
  // stands in the message of a name in use and in what reflection shows, and when an object made
  // now has a text that reads back, too; else what is wrong.
  void check(const char* who);
  // Destroys all of it, and prints whether the text finds nothing any more.
  void end(const char* who);

 private:
  Hardware::ChipMemoryBogon::Ptr directory_;
  Hardware::ChipHam::Ptr ham_, other_;
  char text_[64] = "";  // as it was made first
};

// Leaked on purpose: checks are made until the process is gone.
Subject& subject();

// Checks when it is destroyed.
struct CheckAtEnd {
  explicit CheckAtEnd(const char* who) : who_(who) { subject(); }
  ~CheckAtEnd() { subject().check(who_); }
  CheckAtEnd(const CheckAtEnd&) = delete;
  CheckAtEnd& operator=(const CheckAtEnd&) = delete;

 private:
  const char* who_;
};

}  // namespace Ending
