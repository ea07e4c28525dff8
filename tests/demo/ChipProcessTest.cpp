#include <demo/common/ChipProcess.h>
#include <demo/common/Ledger.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <thread>

namespace {

std::string program() {
  return std::filesystem::path(UMBRA_DRIVER).replace_filename("umbra-chip").string();
}

TEST(ChipProcessTest, endsInOrderWhenItIsTold) {
  Demo::ChipProcess chip(1, program());
  EXPECT_TRUE(chip.isRunning());
  EXPECT_TRUE(chip.end());
  EXPECT_FALSE(chip.isRunning());
  EXPECT_TRUE(chip.end());
}

TEST(ChipProcessTest, oneThatIsKilledDidNotEndInOrder) {
  Demo::ChipProcess chip(1, program());
  kill(chip.id(), SIGKILL);
  while (chip.isRunning()) std::this_thread::yield();
  EXPECT_FALSE(chip.end());
}

TEST(ChipProcessTest, signalsThatEndTheDriverDoNotEndIt) {
  Demo::ChipProcess chip(1, program());
  for (const int ending : {SIGINT, SIGTERM, SIGHUP}) kill(chip.id(), ending);
  EXPECT_TRUE(chip.isRunning());
  EXPECT_TRUE(chip.end());
}

TEST(ChipProcessTest, makesNoErrorsUntilItHasARate) {
  Demo::ChipProcess chip(1, program());
  EXPECT_TRUE(chip.end());
  EXPECT_EQ(chip.control().flips.appended(), 0u);
}

TEST(ChipProcessTest, everyErrorIsInTheRegistersAndInTheLog) {
  Demo::ChipProcess chip(1, program());
  chip.control().flipsPerSecond = 100'000;
  Demo::Flip flip;
  while (!chip.control().flips.take(flip)) std::this_thread::yield();
  ASSERT_TRUE(chip.end());
  Demo::Ledger ledger(Demo::registerFileSize);
  ledger.valueIs(Demo::identityAddress.chipMemoryOffset(), Demo::identity);
  do {
    ledger.recordFlip(flip);
  } while (chip.control().flips.take(flip));
  const Demo::Account account = ledger.account(chip.registers());
  EXPECT_GT(account.injected, 0u);
  EXPECT_EQ(account.remaining + account.undone, account.injected);
  EXPECT_EQ(account.unexplained, 0u);
}

TEST(ChipProcessTest, filesAreGoneWithTheFolder) {
  std::string folder;
  {
    Demo::ChipProcess chip(1, program());
    folder = chip.folder().path();
    EXPECT_TRUE(std::filesystem::exists(chip.folder().registersPath()));
    chip.folderDel();
    EXPECT_FALSE(std::filesystem::exists(folder));
    EXPECT_TRUE(chip.end());
  }
  {
    const Demo::ChipProcess chip(1, program());
    folder = chip.folder().path();
  }
  EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(ChipProcessTest, programThatIsNotThereIsNamed) {
  try {
    Demo::ChipProcess chip(1, "/nowhere/umbra-chip");
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("/nowhere/umbra-chip"));
  }
}

TEST(ChipProcessTest, programThatIsNoChipIsRefused) {
  EXPECT_THROW(Demo::ChipProcess(1, "/bin/true"), std::runtime_error);
}

}  // namespace
