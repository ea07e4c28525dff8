// Texts of objects, the messages that carry them, and reading them back, at every moment at which a
// process may still ask for them.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

namespace {

// What the command prints, and how it ends when that is not with 0. What the checks keep on purpose
// nothing points to once their library is unloaded: that is no leak.
std::string outputOf(const std::string& command) {
  std::FILE* pipe = popen(("ASAN_OPTIONS=detect_leaks=0 " + command).c_str(), "re");
  if (pipe == nullptr) return "not run";
  std::string output;
  std::array<char, 4096> part;
  while (const std::size_t size = std::fread(part.data(), 1, part.size(), pipe)) {
    output.append(part.data(), size);
  }
  const int status = pclose(pipe);
  return status == 0 ? output : output + "ended with status " + std::to_string(status);
}

std::string end(const std::string& who, const std::string& when) {
  // The trace of the directory's teardown goes to standard error.
  return outputOf(std::string("'") + ENDING_PROGRAM + "' " + who + " " + when + " 2>/dev/null");
}

// With the first text made before whoever checks at the end exists, after that, and not at all.
void expectAtTheEnd(const std::string& who, const std::string& checks) {
  EXPECT_EQ(end(who, "early"), "main: ok\n" + checks);
  EXPECT_EQ(end(who, "late"), "main: ok\n" + checks);
  EXPECT_EQ(end(who, "never"), checks);
}

TEST(EndingTest, texts_staticObjectAsks) { expectAtTheEnd("static", "static object: ok\n"); }

TEST(EndingTest, texts_exitHandlerAsks) { expectAtTheEnd("handler", "exit handler: ok\n"); }

TEST(EndingTest, texts_destructorFunctionAsks) {
  expectAtTheEnd("destructor", "destructor function: ok\n");
}

TEST(EndingTest, texts_threadLocalObjectOfTheMainThreadAsks) {
  expectAtTheEnd("thread_local", "thread_local of the main thread: ok\n");
}

TEST(EndingTest, texts_threadLocalObjectOfAThreadAsks) {
  EXPECT_EQ(end("thread", "early"), "thread: ok\nthread: ok\nthread_local of a thread: ok\n");
  EXPECT_EQ(end("thread", "late"), "thread: ok\nthread_local of a thread: ok\n");
}

TEST(EndingTest, texts_objectsOutliveTheirThread) {
  EXPECT_EQ(end("outlived", "never"), "static object: ok\n");
}

TEST(EndingTest, texts_libraryThatStaysLoadedAsks) {
  expectAtTheEnd("plugin", "plugin's exit handler: ok\nplugin's static object: ok\n");
}

TEST(EndingTest, texts_libraryAsksWhileItIsUnloaded) {
  const std::string checks = "plugin's exit handler: ok\nplugin's static object: ok\n";
  EXPECT_EQ(end("unloaded", "early"), "main: ok\n" + checks);
  EXPECT_EQ(end("unloaded", "late"), checks + "main: ok\n");
  EXPECT_EQ(end("unloaded", "never"), checks);
}

TEST(EndingTest, texts_destroyedObjectsAreNotFoundAtTheEnd) { expectAtTheEnd("end", "end: ok\n"); }

TEST(EndingTest, library_isUnloadedBeforeAndAfterAThreadThatUsedIt) {
  const std::string host = std::string("'") + ENDING_HOST + "'";
  EXPECT_EQ(outputOf(host + " 2>/dev/null"), "thread: ok\nended\n");
  EXPECT_EQ(outputOf(host + " unload-first 2>/dev/null"), "thread: ok\nended\n");
}

}  // namespace
