#include "tools/console/LineEditor.h"

#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "tools/console/Completion.h"

namespace Console {

LineEditor::LineEditor(Session& session)
    : session_(session),
      editor_(el_init("umbra-console", stdin, stdout, stderr)),
      history_(history_init()) {
  if (editor_ == nullptr || history_ == nullptr) {
    throw std::runtime_error("the line editor does not start");
  }
  HistEvent event;
  history(history_, &event, H_SETSIZE, 1000);
  history(history_, &event, H_SETUNIQUE, 1);
  el_set(editor_, EL_CLIENTDATA, this);
  el_set(editor_, EL_PROMPT, promptOf);
  el_set(editor_, EL_EDITOR, "emacs");
  el_set(editor_, EL_HIST, history, history_);
  el_set(editor_, EL_GETCFN, characterRead);
  el_set(editor_, EL_ADDFN, "complete-name", "completes a name", completed);
  el_set(editor_, EL_BIND, "^I", "complete-name", nullptr);
  el_set(editor_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  session_.tellIs([this](const std::string& line) { told(line); });
}

LineEditor::~LineEditor() {
  session_.tellIs([](const std::string&) {});
  el_end(editor_);
  history_end(history_);
}

bool LineEditor::next(const std::string& prompt, std::string& line) {
  prompt_ = prompt;
  isTyping_ = true;
  isCancelled_ = false;
  int size = 0;
  const char* text = el_gets(editor_, &size);
  isTyping_ = false;
  if (text == nullptr || size <= 0) {
    std::fputs("\n", stdout);
    return false;
  }
  line.assign(text, static_cast<std::size_t>(size));
  while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
  if (isCancelled_) line.clear();
  if (!line.empty()) {
    HistEvent event;
    history(history_, &event, H_ENTER, line.c_str());
  }
  return true;
}

LineEditor& LineEditor::of(EditLine* editor) {
  void* data = nullptr;
  el_get(editor, EL_CLIENTDATA, &data);
  return *static_cast<LineEditor*>(data);
}

char* LineEditor::promptOf(EditLine* editor) { return of(editor).prompt_.data(); }

// The one place where the editor waits. Ctrl-C gives up the line.
int LineEditor::characterRead(EditLine* editor, wchar_t* character) {
  LineEditor& self = of(editor);
  std::mbstate_t state{};
  for (;;) {
    // No exception may pass through the editor, which is C; what handlers raise ends in theirs.
    if (!workedUntilReadable(*self.session_.world().activity, STDIN_FILENO)) {
      self.isCancelled_ = true;
      std::fputs("^C", stdout);
      *character = L'\n';
      return 1;
    }
    char byte;
    const ssize_t size = ::read(STDIN_FILENO, &byte, 1);
    if (size <= 0) return static_cast<int>(size);
    const std::size_t used = std::mbrtowc(character, &byte, 1, &state);
    if (used == static_cast<std::size_t>(-2)) continue;
    if (used == static_cast<std::size_t>(-1)) {
      state = {};
      *character = static_cast<unsigned char>(byte);
    }
    return 1;
  }
}

unsigned char LineEditor::completed(EditLine* editor, int) {
  const LineInfo* info = el_line(editor);
  const std::string before(info->buffer, info->cursor);
  const Completion found = completion(of(editor).session_, before);
  const std::string common = found.common();
  const std::size_t typed = before.size() - found.begin;
  if (common.size() > typed) {
    if (el_insertstr(editor, common.c_str() + typed) < 0) return CC_ERROR;
    return CC_REFRESH;
  }
  if (found.candidates.size() < 2) return CC_REFRESH_BEEP;
  std::fputs("\n", stdout);
  for (const std::string& each : found.candidates) std::fprintf(stdout, "%s  ", each.c_str());
  std::fputs("\n", stdout);
  std::fflush(stdout);
  return CC_REDISPLAY;
}

void LineEditor::told(const std::string& line) {
  session_.out().flush();
  if (isTyping_) std::fputs("\r\x1b[K", stdout);
  std::fprintf(stdout, "%s\n", line.c_str());
  std::fflush(stdout);
  if (isTyping_) el_set(editor_, EL_REFRESH);
}

}  // namespace Console
