// The kept inputs of every fuzz target, and the empty one.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/Fuzz.h"

namespace Fuzz {
namespace {

std::vector<std::filesystem::path> keptInputs(const std::string& target) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(UMBRA_FUZZ_CORPUS) / target)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// A block of exactly that size.
std::vector<U8> contentOf(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(in), {}};
  return {content.begin(), content.end()};
}

class FuzzCorpus : public testing::TestWithParam<Target> {};

TEST_P(FuzzCorpus, keptInputsAndTheEmptyOneHoldEveryCheck) {
  EXPECT_NO_THROW(GetParam().run(nullptr, 0));
  const std::vector<std::filesystem::path> files = keptInputs(GetParam().name);
  EXPECT_FALSE(files.empty());
  for (const std::filesystem::path& file : files) {
    const std::vector<U8> bytes = contentOf(file);
    try {
      GetParam().run(bytes.data(), bytes.size());
    } catch (const Failure& failure) {
      ADD_FAILURE() << file << "\n" << failure.what();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzCorpus, testing::ValuesIn(targets()),
                         [](const testing::TestParamInfo<Target>& target) {
                           std::string name;
                           for (const char* c = target.param.name; *c != '\0'; ++c) {
                             if (*c != '-') name += *c;
                           }
                           return name;
                         });

TEST(FuzzTargets, eachIsLinkedIn) { EXPECT_EQ(targets().size(), UMBRA_FUZZ_TARGETS); }

}  // namespace
}  // namespace Fuzz
