// Writes one line for each test, when UMBRA_REACH is set, to the file of that name and ".cases":
//   <test> <microseconds> <mutant>...
// The mutants are those the test passed by. What was passed outside of tests is the line "-".
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "MutationSwitch.h"

namespace {

constexpr unsigned mutants = 16384;

class CaseReach : public testing::EmptyTestEventListener {
 public:
  explicit CaseReach(const char* file)
      : out_(std::fopen((std::string(file) + ".cases").c_str(), "w")) {}

  void OnTestStart(const testing::TestInfo&) override {
    write("-", 0);
    start_ = std::chrono::steady_clock::now();
  }
  void OnTestEnd(const testing::TestInfo& test) override {
    const auto spent = std::chrono::steady_clock::now() - start_;
    const std::string name = std::string(test.test_suite_name()) + "." + test.name();
    write(name.c_str(), std::chrono::duration_cast<std::chrono::microseconds>(spent).count());
  }

 private:
  void write(const char* name, long long spent) {
    std::fprintf(out_, "%s %lld", name, spent);
    for (unsigned i = 1; i < mutants; ++i) {
      if (umbraReached[i] != 0) std::fprintf(out_, " %u", i);
    }
    std::fprintf(out_, "\n");
    std::fflush(out_);
    std::memset(umbraReached, 0, mutants);
  }

  std::FILE* out_;
  std::chrono::steady_clock::time_point start_;
};

const bool installed = [] {
  if (const char* file = std::getenv("UMBRA_REACH")) {
    testing::UnitTest::GetInstance()->listeners().Append(new CaseReach(file));
  }
  return true;
}();

}  // namespace

// The linker is told to need it.
extern "C" int umbraCaseReach() { return installed; }
