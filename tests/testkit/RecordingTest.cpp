// Recordings: what is written, what is read back, and how a recording is played.
#include <Hardware/GenericChipHam.h>
#include <testkit/ManualLoop.h>
#include <testkit/Recording.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include "testkit/Captured.h"

namespace TestKitTest {
namespace {

using TestKit::RecordedAccess;
using TestKit::Recording;
using TestKit::Within;

std::string refusalOfText(const std::string& text) {
  try {
    (void)Recording::fromText(text, "s.txt");
  } catch (const Zint::RangeException& e) {
    return e.message().bytes();
  }
  return "none";
}

class RecordingTest : public FakeChipTest {
 protected:
  TestKit::Recorder::Ptr recorder() {
    const auto names = [this](U64 address) { return chip->registerName(address); };
    return TestKit::recorderFactory(chip, out, Zint::Ptr<const Zint::Clock>(loop.clock), names);
  }

  TestKit::ManualLoop loop;
  std::ostringstream out;
};

TEST_F(RecordingTest, oneLineAnAccess) {
  const auto recorded = recorder();
  U32 value = 0;
  recorded->read(0x0, &value);
  EXPECT_EQ(value, 3u);
  loop.clock->timeIs(0.0125);
  recorded->write(0x104, 0x1234);
  EXPECT_EQ(chip->value("mac[1]"), 0x1234u);
  EXPECT_EQ(out.str(),
            "# accesses of the chip\n"
            "r4 0x0 ctrl 0x3 @0ms\n"
            "w4 0x104 mac[1] 0x1234 @12.5ms\n");
}

TEST_F(RecordingTest, anAccessThatThrowsIsRecordedAndStillThrows) {
  const auto recorded = recorder();
  U32 value = 0;
  const TestKit::Fault gone = chip->absent(TestKit::Absence::error);
  EXPECT_THROW(recorded->read(0x4, &value), TestKit::NoAnswer);
  EXPECT_THROW(recorded->write(0x4, 1), TestKit::NoAnswer);
  EXPECT_EQ(out.str(),
            "# accesses of the chip\n"
            "r4 0x4 lock ! @0ms chip \"asic\": no answer at lock\n"
            "w4 0x4 lock 0x1 @0ms ! chip \"asic\": no answer at lock\n");
}

TEST_F(RecordingTest, namesAreOneWordAndReasonsOneLine) {
  chip->beforeAccessIs([](const TestKit::Access&) { throw std::runtime_error("two\nlines"); });
  const auto recorded = TestKit::recorderFactory(chip, out, {}, [](U64) { return "a b\tc"; });
  EXPECT_THROW(recorded->write(0x4, 1), std::runtime_error);
  EXPECT_EQ(out.str(), "# accesses of the chip\nw4 0x4 a_b_c 0x1 @0ms ! two lines\n");
}

TEST_F(RecordingTest, whatWasWrittenIsReadBack) {
  RecordedAccess one;
  one.access = {TestKit::Kind::write, 0x1122334455667788, 8, ~U64{0}};
  one.name = "wide";
  one.time = 86'400.001;
  const Recording recording = Recording::fromText(one.text() + "\n");
  ASSERT_EQ(recording.accesses().size(), 1u);
  EXPECT_EQ(recording.accesses()[0].access, one.access);
  EXPECT_EQ(recording.accesses()[0].name, "wide");
  EXPECT_EQ(recording.accesses()[0].text(), one.text());
}

TEST_F(RecordingTest, aFileHoldsTheSame) {
  const std::string path = testing::TempDir() + "umbra-recording-" + std::to_string(getpid());
  {
    const auto recorded = TestKit::recorderFactory(chip, path, {});
    recorded->write(0x4, 7);
  }
  const Recording recording = Recording::fromFile(path);
  std::remove(path.c_str());
  ASSERT_EQ(recording.accesses().size(), 1u);
  EXPECT_EQ(recording.accesses()[0].text(), "w4 0x4 - 0x7 @0ms");
  EXPECT_THROW((void)Recording::fromFile(path), Zint::RangeException);
  EXPECT_THROW(TestKit::recorderFactory(chip, "/nowhere/at/all", {}), Zint::RangeException);
}

TEST(RecordingText, linesThatAreNotRightAreRefusedWithTheirPlace) {
  EXPECT_EQ(refusalOfText("# x\n\nr4 0x0 - 0x3 @0ms\r\n"), "none");
  EXPECT_EQ(refusalOfText("\nr3 0x0 - 0x3 @0ms"), "s.txt:2: neither r1 to r8 nor w1 to w8: \"r3\"");
  EXPECT_EQ(refusalOfText("r4"), "s.txt:1: no address: \"\"");
  EXPECT_EQ(refusalOfText("r4 12 - 0x3 @0ms"), "s.txt:1: no address: \"12\"");
  EXPECT_EQ(refusalOfText("r4 0x0"), "s.txt:1: no name");
  EXPECT_EQ(refusalOfText("r4 0x0 - 0x @0ms"), "s.txt:1: no value: \"0x\"");
  EXPECT_EQ(refusalOfText("r4 0x0 - 0x12345678901234567 @0ms"),
            "s.txt:1: no value: \"0x12345678901234567\"");
  EXPECT_EQ(refusalOfText("r1 0x0 - 0x100 @0ms"), "s.txt:1: a value wider than its register");
  EXPECT_EQ(refusalOfText("r4 0x0 - 0x1"), "s.txt:1: no time: \"\"");
  EXPECT_EQ(refusalOfText("r4 0x0 - 0x1 @infms"), "s.txt:1: no time: \"@infms\"");
  EXPECT_EQ(refusalOfText("r4 0x0 - 0x1 @1s"), "s.txt:1: no time: \"@1s\"");
  EXPECT_EQ(refusalOfText("r4 0x0 - 0x1 @1ms more"), "s.txt:1: more than an access: \"more\"");
  EXPECT_EQ(refusalOfText("w4 0x0 - ! @1ms"), "s.txt:1: no value: \"!\"");
  EXPECT_EQ(refusalOfText("r4 0xfffffffffffffffe - 0x1 @1ms"),
            "s.txt:1: an address beyond all addresses");
  EXPECT_EQ(refusalOfText(std::string(5'000, ' ')), "s.txt:1: a line of more than 4,096 bytes");
}

// Bytes of a good recording changed at random: read, or refused; nothing else.
TEST(RecordingText, anyTextIsReadOrRefused) {
  const std::string good = "r4 0x0 ctrl 0x3 @0ms\nw2 0x104 mac[1] 0x1234 @12.5ms ! why\n";
  std::mt19937 random(1);
  U32 readable = 0;
  for (U32 i = 0; i < 20'000; ++i) {
    std::string text = good;
    for (U32 n = random() % 4; n != ~0u; --n) {
      text[random() % text.size()] = static_cast<char>(random());
    }
    if (refusalOfText(text) != "none") continue;
    ++readable;
    for (const RecordedAccess& one : Recording::fromText(text).accesses()) {
      EXPECT_EQ(Recording::fromText(one.text()).accesses()[0].text(), one.text()) << text;
    }
  }
  EXPECT_GT(readable, 100u);
}

// ---- played -------------------------------------------------------------------------------------

const char* const session =
    "# accesses of asic\n"
    "w4 0x4 lock 0x1 @0ms\n"
    "r4 0x0 ctrl 0x7 @0ms\n"
    "w4 0x100 mac[0] 0x5 @0ms\n"
    "w4 0x4 lock 0x0 @1ms\n"
    "r4 0x0 ctrl ! @2ms no answer\n";

class PlayedTest : public testing::Test {
 protected:
  const Recording recording = Recording::fromText(session, "session.txt");
  const TestKit::FakeChip::Ptr chip = recording.chip();
};

TEST_F(PlayedTest, readsAreAnsweredAndFailuresFailAgain) {
  const auto played = chip->expectOnly(recording.steps());
  chip->write(0x4, 1);
  EXPECT_EQ(chip->doRead(0x0, 4), 7u);
  chip->write(0x100, 5);
  chip->write(0x4, 0);
  EXPECT_THROW(chip->doRead(0x0, 4), TestKit::NoAnswer);
  EXPECT_TRUE(played.isMet());
}

TEST_F(PlayedTest, theFailureNamesTheLineAtWhichTheDriverLeftTheRecording) {
  Captured captured;
  {
    const auto played = chip->expectOnly(recording.steps());
    chip->write(0x4, 1);
    chip->write(0x100, 5);
  }
  EXPECT_THAT(captured.text(), HasSubstr("  out of turn: write mac[0] 0x5\n"
                                         "  expected:\n"
                                         "    read 0x0 (ctrl, session.txt:3)\n"));
}

TEST_F(PlayedTest, anotherOrderWithinATurnIsLetPassWhereTheTestSaysSo) {
  const auto inOtherOrder = [&](Within within) {
    Captured captured;
    {
      const auto played = chip->expectOnly(recording.steps(within));
      chip->write(0x100, 5);
      chip->doRead(0x0, 4);
      chip->write(0x4, 1);
      chip->write(0x4, 0);
      try {
        chip->doRead(0x0, 4);
      } catch (const TestKit::NoAnswer&) {
      }
    }
    return captured.reports.empty();
  };
  EXPECT_TRUE(inOtherOrder(Within::turn));
  EXPECT_FALSE(inOtherOrder(Within::nothing));
}

TEST_F(PlayedTest, aLaterTurnMayNotComeFirst) {
  Captured captured;
  {
    const auto played = chip->expectOnly(recording.steps(Within::turn));
    chip->write(0x4, 0);
  }
  EXPECT_THAT(captured.text(), HasSubstr("out of turn: write lock 0x0"));
}

TEST_F(PlayedTest, theChipHasTheRegistersOfTheRecording) {
  EXPECT_EQ(chip->registerName(0x100), "mac[0]");
  const auto parts = Recording::fromText(
      "w2 0x2 ctrl 0x1 @0ms\nw4 0x0 ctrl 0x1 @0ms\nr1 0x10 - 0x1 @0ms\nr1 0x11 ctrl 0x1 @0ms\n");
  const auto chipOfParts = parts.chip();
  EXPECT_EQ(chipOfParts->widthAt(0x2), 4u);
  EXPECT_EQ(chipOfParts->registerName(0x2), "ctrl");
  EXPECT_EQ(chipOfParts->registerName(0x10), "0x10");
  EXPECT_EQ(chipOfParts->registerName(0x11), "ctrl@0x11");
  const auto played = chipOfParts->expectOnly(parts.steps());
  chipOfParts->doWrite(0x2, 2, 1);
  chipOfParts->doWrite(0x0, 4, 1);
  EXPECT_EQ(chipOfParts->doRead(0x10, 1) + chipOfParts->doRead(0x11, 1), 2u);
}

// A turn of an activity has one time, whatever its accesses take.
TEST_F(RecordingTest, accessesOfOneTurnHaveOneTime) {
  class Worker : public Zint::Clock::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onTime() override {
      registers->write(0x4, 1);
      registers->write(0x4, 0);
    }
    TestKit::Recorder::Ptr registers;
  };
  chip->clockIs(loop.clock);
  const TestKit::Fault slow = chip->slow(0.001);
  const auto worker =
      Zint::makePtr<Worker>(loop.activity, Zint::Ptr<const Zint::Clock>(loop.clock));
  worker->registers = recorder();
  worker->timeMinIs(5);
  loop.runFor(10);
  worker->timeMinIs(15);
  loop.runFor(10);
  std::vector<Zint::Seconds> times;
  for (const RecordedAccess& one : Recording::fromText(out.str()).accesses()) {
    times.push_back(one.time);
  }
  EXPECT_EQ(times, (std::vector<Zint::Seconds>{5, 5, 15, 15}));
}

}  // namespace
}  // namespace TestKitTest
