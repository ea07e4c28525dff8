// Lines typed on a terminal, with editing, history and completion.
#pragma once

#include <histedit.h>

#include <cwchar>
#include <string>

#include "tools/console/Lines.h"
#include "tools/console/Session.h"
#include "tools/console/Terminal.h"

namespace Console {

// One at a time. What happens without a command is printed above the line that is being typed.
class LineEditor : public Lines {
 public:
  // The session must outlive this.
  explicit LineEditor(Session& session);
  ~LineEditor() override;
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  bool next(const std::string& prompt, std::string& line) override;

 private:
  static LineEditor& of(EditLine* editor);
  static char* promptOf(EditLine* editor);
  static int readCharacter(EditLine* editor, wchar_t* character);
  static unsigned char completeWord(EditLine* editor, int);
  void printAbove(const std::string& line);
  EditedLine editedLine() const;

  Session& session_;
  EditLine* editor_;
  History* history_;
  std::string prompt_;
  bool isTyping_ = false;
  bool isCancelled_ = false;
};

}  // namespace Console
