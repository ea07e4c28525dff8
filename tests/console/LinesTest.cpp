#include <gtest/gtest.h>
#include <tools/console/Lines.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/ManualLoop.h"

namespace {

struct Pipe {
  Pipe() {
    if (pipe(ends) != 0) throw std::runtime_error("pipe");
  }
  ~Pipe() {
    closeInput();
    close(ends[0]);
  }
  void write(const std::string& text) {
    ASSERT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void closeInput() {
    if (ends[1] >= 0) close(std::exchange(ends[1], -1));
  }
  int ends[2];
};

class PlainLinesTest : public testing::Test {
 protected:
  std::vector<std::string> readAll() {
    std::vector<std::string> read;
    for (std::string line; lines_.next("> ", line);) read.push_back(line);
    return read;
  }

  Support::ManualLoop loop_;
  Pipe pipe_;
  Console::PlainLines lines_{pipe_.ends[0], loop_.activity, false};
};

using Read = std::vector<std::string>;

TEST_F(PlainLinesTest, linesComeInTheirOrder) {
  pipe_.write("ls\n\nget x\n");
  pipe_.closeInput();
  EXPECT_EQ(readAll(), (Read{"ls", "", "get x"}));
}

TEST_F(PlainLinesTest, theLastLineNeedsNoNewline) {
  pipe_.write("ls\nquit");
  pipe_.closeInput();
  EXPECT_EQ(readAll(), (Read{"ls", "quit"}));
}

TEST_F(PlainLinesTest, nothingIsNoLine) {
  pipe_.closeInput();
  EXPECT_EQ(readAll(), Read{});
}

TEST_F(PlainLinesTest, aLineMayCome_inParts) {
  const std::string word(5000, 'x');
  pipe_.write("get ");
  pipe_.write(word + "\nls\n");
  pipe_.closeInput();
  EXPECT_EQ(readAll(), (Read{"get " + word, "ls"}));
}

TEST_F(PlainLinesTest, whileALineIsAwaitedTheSystemWorks) {
  class Alarm : public Zint::Clock::NotifieeConst {
   public:
    Alarm(const Support::ManualLoop& loop, Pipe& pipe)
        : NotifieeConst(loop.activity, Zint::Ptr<const Zint::Clock>(loop.clock)), pipe_(pipe) {}
    void onTime() override { pipe_.write("from the loop\n"); }

   private:
    Pipe& pipe_;
  };
  const auto alarm = Zint::makePtr<Alarm>(loop_, pipe_);
  alarm->timeMinIs(0.0);
  std::string line;
  ASSERT_TRUE(lines_.next("> ", line));
  EXPECT_EQ(line, "from the loop");
}

TEST_F(PlainLinesTest, thePromptIsShownWhenAskedFor) {
  Console::PlainLines asking(pipe_.ends[0], loop_.activity, true);
  pipe_.write("ls\n");
  std::string line;
  testing::internal::CaptureStdout();
  ASSERT_TRUE(asking.next("/shadow> ", line));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "/shadow> ");
}

}  // namespace
