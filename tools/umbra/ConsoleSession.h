// The commands of `umbra console`: lines of words become requests to a driver's socket, and answers
// become text.
#pragma once

#include "tools/umbra/Control.h"

namespace Tool {

class ConsoleSession {
 public:
  ConsoleSession(Control& control, const Settings& settings,
                 std::function<void(std::string)> print);

  // False: the session ends. Failure says why a line cannot be carried out; the next one can.
  bool run(const std::string& line);
  // "switch1:/shadow> "
  std::string prompt() const;

  struct Completion {
    std::size_t begin = 0;  // of the word in the line
    std::vector<std::string> words;
  };
  // What the word at the end of the line can go on with.
  Completion completion(const std::string& line);

  using Words = std::vector<std::string>;

 private:
  struct Verb {
    const char* name;
    const char* arguments;
    const char* help;
    std::size_t least, most;  // arguments
    void (ConsoleSession::*run)(const Words& words);
  };
  static const std::vector<Verb>& verbs();

  // Absolute, without "." and "..".
  std::string pathOf(const std::string& word) const;
  // A word that is a path means the value there.
  std::string valueOf(const std::string& word) const;
  Json answer(Json request);
  void printTable(const Table& table);
  void printItems(const Json& answer);
  void tell(const Json& unasked);

  void doLs(const Words& words);
  void doCd(const Words& words);
  void doGet(const Words& words);
  void doSet(const Words& words);
  void doCall(const Words& words);
  void doDescribe(const Words& words);
  void doWatch(const Words& words);
  void doUnwatch(const Words& words);
  void doEvents(const Words& words);
  void doPolicy(const Words& words);
  void doDump(const Words& words);
  void doCheck(const Words& words);
  void doPlan(const Words& words);
  void doLevel(const Words& words);
  void doVersion(const Words& words);
  void doWait(const Words& words);
  void doHelp(const Words& words);
  void doQuit(const Words& words);

  Control& control_;
  const Settings& settings_;
  std::function<void(std::string)> print_;
  std::string here_ = "/";
  bool ends_ = false;
};

}  // namespace Tool
