// Where a session's lines come from. The system goes on running while one is awaited.
#pragma once

#include <Zint/Activity.h>

#include <string>

namespace Console {

class Lines {
 public:
  virtual ~Lines() = default;
  // False at the end.
  virtual bool next(const std::string& prompt, std::string& line) = 0;
};

// Lines from a file descriptor, without editing, with a prompt on standard output where it is
// wanted. The caller owns the descriptor.
class PlainLines : public Lines {
 public:
  PlainLines(int descriptor, Zint::Ptr<Zint::ActivityConfig> activity, bool showsPrompt)
      : descriptor_(descriptor), activity_(std::move(activity)), showsPrompt_(showsPrompt) {}
  // A last line without its newline counts too.
  bool next(const std::string& prompt, std::string& line) override;

 private:
  const int descriptor_;
  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const bool showsPrompt_;
  std::string read_;
  bool isEnd_ = false;
};

// Runs the activity until the descriptor can be read. False when a signal came.
bool workUntilReadable(Zint::ActivityConfig& activity, int descriptor);

}  // namespace Console
