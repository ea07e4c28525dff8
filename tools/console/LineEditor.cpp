#include "tools/console/LineEditor.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "tools/console/Completion.h"

namespace Console {
namespace {

// Of UTF-8: bytes that begin one.
std::size_t characters(const char* begin, const char* end) {
  return static_cast<std::size_t>(std::count_if(
      begin, end, [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

}  // namespace

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
  el_set(editor_, EL_GETCFN, readCharacter);
  el_set(editor_, EL_ADDFN, "complete-name", "completes a name", completeWord);
  el_set(editor_, EL_BIND, "^I", "complete-name", nullptr);
  el_set(editor_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  session_.printIs([this](const std::string& line) { printAbove(line); });
}

LineEditor::~LineEditor() {
  session_.printIs([](const std::string&) {});
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

// The one place where the editor waits. Ctrl-C drops the line.
int LineEditor::readCharacter(EditLine* editor, wchar_t* character) {
  LineEditor& self = of(editor);
  std::mbstate_t state{};
  for (;;) {
    // No exception may pass through the editor, which is C; the runtime catches what handlers
    // raise.
    if (!workUntilReadable(*self.session_.world().activity, STDIN_FILENO)) {
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

unsigned char LineEditor::completeWord(EditLine* editor, int) {
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
  const EditedLine edited = of(editor).editedLine();
  for (std::size_t row = edited.cursorRow(); row <= edited.lastRow(); ++row) {
    std::fputs("\n", stdout);
  }
  constexpr std::size_t mostLines = 40;
  std::fputs(columnsText(found.candidates, edited.width, mostLines).c_str(), stdout);
  std::fflush(stdout);
  return CC_REDISPLAY;
}

EditedLine LineEditor::editedLine() const {
  const LineInfo* info = el_line(editor_);
  return {prompt_.size(), characters(info->buffer, info->cursor),
          characters(info->buffer, info->lastchar), terminalWidth()};
}

void LineEditor::printAbove(const std::string& line) {
  session_.out().flush();
  if (isTyping_) {
    // The line that is being typed is removed, all rows of it, and drawn again below.
    if (const std::size_t rows = editedLine().cursorRow(); rows != 0) {
      std::fprintf(stdout, "\x1b[%zuA", rows);
    }
    std::fputs("\r\x1b[J", stdout);
  }
  std::fprintf(stdout, "%s\n", line.c_str());
  std::fflush(stdout);
  if (isTyping_) el_set(editor_, EL_REFRESH);
}

}  // namespace Console
