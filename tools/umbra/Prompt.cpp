#include "tools/umbra/Prompt.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <exception>
#include <utility>

#include "tools/umbra/Command.h"
#ifdef UMBRA_TOOL_EDITOR
#include <histedit.h>
#endif

namespace Tool {
namespace {

// Runs until standard input can be read. False when a signal came.
bool waitForInput(const Prompt::Around& around) {
  for (;;) {
    pollfd wanted[] = {{STDIN_FILENO, POLLIN, 0}, {around.descriptor, POLLIN, 0}};
    if (poll(wanted, 2, -1) < 0) return false;
    if (wanted[1].revents != 0) around.ready();
    if (wanted[0].revents != 0) return true;
  }
}

class PlainPrompt : public Prompt {
 public:
  explicit PlainPrompt(Around around) : around_(std::move(around)) {}

  bool next(const std::string& prompt, std::string& line) override {
    if (isatty(STDIN_FILENO) == 1) {
      std::fputs(prompt.c_str(), stdout);
      std::fflush(stdout);
    }
    for (;;) {
      const std::size_t at = read_.find('\n');
      if (at != std::string::npos || isEnd_) {
        line = read_.substr(0, at);
        read_.erase(0, at == std::string::npos ? at : at + 1);
        return at != std::string::npos || !line.empty();
      }
      if (!waitForInput(around_)) return false;
      char buffer[4096];
      const ssize_t size = ::read(STDIN_FILENO, buffer, sizeof buffer);
      if (size <= 0) isEnd_ = true;
      if (size > 0) read_.append(buffer, static_cast<std::size_t>(size));
    }
  }

  void print(const std::string& text) override {
    std::fputs((text + "\n").c_str(), stdout);
    std::fflush(stdout);
  }

 private:
  Around around_;
  std::string read_;
  bool isEnd_ = false;
};

#ifdef UMBRA_TOOL_EDITOR
class EditedPrompt : public Prompt {
 public:
  explicit EditedPrompt(Around around)
      : around_(std::move(around)),
        editor_(el_init("umbra", stdin, stdout, stderr)),
        history_(history_init()) {
    if (editor_ == nullptr || history_ == nullptr) throw Failure("the line editor does not start");
    HistEvent event;
    history(history_, &event, H_SETSIZE, 1000);
    history(history_, &event, H_SETUNIQUE, 1);
    el_set(editor_, EL_CLIENTDATA, this);
    el_set(editor_, EL_PROMPT, promptOf);
    el_set(editor_, EL_EDITOR, "emacs");
    el_set(editor_, EL_HIST, history, history_);
    el_set(editor_, EL_GETCFN, readCharacter);
    // The editor keeps a wide text as it is, and would never free its copy of a narrow one.
    el_wset(editor_, EL_ADDFN, L"complete-name", L"completes a name", completeWord);
    el_set(editor_, EL_BIND, "^I", "complete-name", nullptr);
    el_set(editor_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  }
  EditedPrompt(const EditedPrompt&) = delete;
  EditedPrompt& operator=(const EditedPrompt&) = delete;
  ~EditedPrompt() override {
    el_end(editor_);
    history_end(history_);
  }

  bool next(const std::string& prompt, std::string& line) override {
    prompt_ = prompt;
    isTyping_ = true;
    isCancelled_ = false;
    int size = 0;
    const char* const text = el_gets(editor_, &size);
    isTyping_ = false;
    // No exception passes through the editor, which is C.
    if (error_) std::rethrow_exception(std::exchange(error_, nullptr));
    if (text == nullptr || size <= 0) {
      std::fputs("\n", stdout);
      return false;
    }
    line.assign(text, static_cast<std::size_t>(size));
    while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
    if (isCancelled_) line.clear();
    HistEvent event;
    if (!line.empty()) history(history_, &event, H_ENTER, line.c_str());
    return true;
  }

  void print(const std::string& text) override {
    if (isTyping_) std::fputs("\r\x1b[J", stdout);
    std::fputs((text + "\n").c_str(), stdout);
    std::fflush(stdout);
    if (isTyping_) el_set(editor_, EL_REFRESH);
  }

 private:
  static EditedPrompt& of(EditLine* editor) {
    void* data = nullptr;
    el_get(editor, EL_CLIENTDATA, &data);
    return *static_cast<EditedPrompt*>(data);
  }
  static char* promptOf(EditLine* editor) { return of(editor).prompt_.data(); }

  // The one place where the editor waits. Ctrl-C drops the line.
  static int readCharacter(EditLine* editor, wchar_t* character) {
    EditedPrompt& self = of(editor);
    std::mbstate_t state{};
    for (;;) {
      try {
        if (!waitForInput(self.around_)) {
          self.isCancelled_ = true;
          std::fputs("^C", stdout);
          *character = L'\n';
          return 1;
        }
      } catch (...) {
        self.error_ = std::current_exception();
        return 0;
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

  static unsigned char completeWord(EditLine* editor, int) {
    EditedPrompt& self = of(editor);
    const LineInfo* const info = el_line(editor);
    const std::string before(info->buffer, info->cursor);
    Completion found;
    try {
      found = self.around_.complete(before);
    } catch (...) {
      self.error_ = std::current_exception();
      return CC_EOF;
    }
    if (found.words.empty()) return CC_REFRESH_BEEP;
    std::string common = found.words.front();
    for (const std::string& word : found.words) {
      const auto [end, other] =
          std::mismatch(common.begin(), common.end(), word.begin(), word.end());
      common.erase(end, common.end());
    }
    const std::size_t typed = before.size() - found.begin;
    if (common.size() > typed) {
      return el_insertstr(editor, common.c_str() + typed) < 0 ? CC_ERROR : CC_REFRESH;
    }
    if (found.words.size() < 2) return CC_REFRESH_BEEP;
    constexpr std::size_t mostShown = 200;
    std::fputs("\n", stdout);
    for (std::size_t i = 0; i < found.words.size() && i < mostShown; ++i) {
      std::fputs((found.words[i] + "  ").c_str(), stdout);
    }
    std::fputs(found.words.size() > mostShown ? "...\n" : "\n", stdout);
    std::fflush(stdout);
    return CC_REDISPLAY;
  }

  Around around_;
  EditLine* editor_;
  History* history_;
  std::string prompt_;
  std::exception_ptr error_;
  bool isTyping_ = false;
  bool isCancelled_ = false;
};
#endif

}  // namespace

std::unique_ptr<Prompt> makePrompt(Prompt::Around around) {
#ifdef UMBRA_TOOL_EDITOR
  if (isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
    return std::make_unique<EditedPrompt>(std::move(around));
  }
#endif
  return std::make_unique<PlainPrompt>(std::move(around));
}

}  // namespace Tool
