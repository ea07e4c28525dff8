// Where a session's lines come from. While one is awaited, the system goes on working.
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

// Lines as they come from a file descriptor, without editing; a prompt is shown on standard output
// when asked for. The descriptor stays the caller's.
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

// Runs what the activity has to do until the descriptor can be read. False when a signal came.
bool workedUntilReadable(Zint::ActivityConfig& activity, int descriptor);

}  // namespace Console
