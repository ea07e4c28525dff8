#include <Mirl/Mirl.h>

#include <gmock/gmock.h>
#include <support/ManualLoop.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using Mirl::Argument;
using Mirl::MsgDesc;
using Mirl::Number;
using Mirl::Record;
using Mirl::RingBuf;
using Mirl::TraceFile;
using testing::ElementsAre;
using testing::IsEmpty;
using Zint::String8;

struct MirlTest : testing::Test {
  void write(const MsgDesc& of, U32 level, U32 number) {
    auto msg = RingBuf::startMsg(*file, of, level);
    msg << number;
    msg.endMsg();
  }
  std::vector<std::string> texts(U32 level) const {
    std::vector<std::string> texts;
    for (const Record& record : file->records(level)) texts.push_back(record.text.bytes());
    return texts;
  }

  std::unique_ptr<TraceFile> file = std::make_unique<TraceFile>();
  MsgDesc desc{*file, "n %u", __LINE__};
};

TEST_F(MirlTest, aDescriptorKeepsFormatAndLineAndHasAnIdOfItsOwn) {
  const MsgDesc other(*file, "other", 205);
  EXPECT_STREQ(other.format(), "other");
  EXPECT_EQ(other.line(), 205);
  EXPECT_NE(other.id(), desc.id());
}

TEST_F(MirlTest, aRecordHoldsItsDescriptorTimeAndArguments) {
  Support::ManualLoop loop;
  loop.clock->timeIs(12.5);
  auto msg = RingBuf::startMsg(*file, desc, 0);
  loop.clock->timeIs(13.0);
  msg << U8{200} << U32{70'000} << U64{0x123456789abcdef0} << "mac";
  msg.endMsg();
  const auto records = file->records(0);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].id, desc.id());
  EXPECT_EQ(records[0].time, 12.5) << "when the record was begun";
  EXPECT_THAT(records[0].arguments,
              ElementsAre(Argument(Number{200, 1}), Argument(Number{70'000, 4}),
                          Argument(Number{0x123456789abcdef0, 8}), Argument(String8("mac"))));
}

TEST_F(MirlTest, theTextIsTheFormatWithTheArgumentsInTheirPlaces) {
  const MsgDesc repaired(*file, "repaired entry %u of %s at 0x%x.", __LINE__);
  auto msg = RingBuf::startMsg(*file, repaired, 0);
  msg << U32{7} << "mac" << U64{0x2000001f00};
  msg.endMsg();
  EXPECT_THAT(texts(0), ElementsAre("repaired entry 7 of mac at 0x2000001f00."));
}

TEST_F(MirlTest, aPlaceWithoutArgumentStaysAsWrittenAndASurplusArgumentIsLeftOut) {
  const MsgDesc two(*file, "%u and %u", __LINE__);
  const MsgDesc none(*file, "none", __LINE__);
  write(two, 0, 1);
  write(none, 0, 1);
  EXPECT_THAT(texts(0), ElementsAre("1 and %u", "none"));
}

TEST_F(MirlTest, aRecordOfADescriptorThatIsGoneReadsUnknown) {
  {
    const MsgDesc brief(*file, "brief %u", __LINE__);
    write(brief, 0, 1);
  }
  EXPECT_THAT(texts(0), ElementsAre("unknown"));
}

TEST_F(MirlTest, aRecordAtLevelNGoesToRingN) {
  for (U32 level = 0; level < TraceFile::rings; ++level) write(desc, level, level);
  for (U32 level = 0; level < TraceFile::rings; ++level) {
    EXPECT_THAT(texts(level), ElementsAre("n " + std::to_string(level)));
  }
}

TEST_F(MirlTest, recordsAreReadOldestFirstAndReadingRemovesNothing) {
  for (U32 i = 0; i < 3; ++i) write(desc, 4, i);
  EXPECT_THAT(texts(4), ElementsAre("n 0", "n 1", "n 2"));
  EXPECT_THAT(texts(4), ElementsAre("n 0", "n 1", "n 2"));
}

TEST_F(MirlTest, aRecordThatIsNotEndedIsNotWritten) {
  { RingBuf::startMsg(*file, desc, 0) << U32{1}; }
  EXPECT_THAT(texts(0), IsEmpty());
}

TEST_F(MirlTest, recordsUnderConstructionAtTheSameTimeAreKeptApart) {
  auto outer = RingBuf::startMsg(*file, desc, 0);
  auto inner = RingBuf::startMsg(*file, desc, 0);
  outer << U32{1};
  inner << U32{2};
  inner.endMsg();
  outer.endMsg();
  EXPECT_THAT(texts(0), ElementsAre("n 2", "n 1"));
}

TEST_F(MirlTest, aLongTextIsCutAndTheRecordStaysWhole) {
  const MsgDesc text(*file, "%s", __LINE__);
  const std::string longText(2 * RingBuf::recordMax, 'x');
  auto msg = RingBuf::startMsg(*file, text, 0);
  msg << longText << U32{5};
  msg.endMsg();
  write(desc, 0, 9);
  const auto records = file->records(0);
  ASSERT_EQ(records.size(), 2u);
  const std::string cut = std::get<String8>(records[0].arguments.at(0)).bytes();
  EXPECT_GE(cut.size(), RingBuf::recordMax - 64);
  EXPECT_LT(cut.size(), RingBuf::recordMax);
  EXPECT_EQ(cut, longText.substr(0, cut.size()));
  EXPECT_EQ(records[0].text.bytes(), cut + "[cut]");
  EXPECT_EQ(records[1].text, "n 9");
}

// Three characters a byte, for entries up to 4,096 bytes.
TEST_F(MirlTest, bothTextsOfAnEntryOf4096BytesAreWhole) {
  const MsgDesc texts(*file, "Expected: %s Actual: %s", __LINE__);
  for (std::size_t bytes : {1u, 100u, 330u, 700u, 4096u}) {
    const std::string expected(3 * bytes, 'e'), actual(3 * bytes, 'a');
    auto msg = RingBuf::startMsg(*file, texts, 0);
    msg << expected << actual;
    msg.endMsg();
    EXPECT_EQ(file->records(0).back().text.bytes(), "Expected: " + expected + " Actual: " + actual);
  }
}

// Cut where the record is full, which its text says; what follows has no room at all.
TEST_F(MirlTest, aRecordThatIsCutSaysSo) {
  const MsgDesc texts(*file, "Expected: %s Actual: %s at %u, %", __LINE__);
  const std::size_t room = RingBuf::recordMax - 16;
  const std::string expected(3 * 5000, 'e'), actual(3 * 5000, 'a');
  auto msg = RingBuf::startMsg(*file, texts, 0);
  msg << expected << actual << U32{7};
  msg.endMsg();
  EXPECT_EQ(file->records(0).back().text.bytes(),
            "Expected: " + expected + " Actual: " + actual.substr(0, room - 6 - expected.size()) +
                "[cut] at [left out], %");
  auto all = RingBuf::startMsg(*file, texts, 0);
  all << std::string(room - 4, 'e') << actual << U32{7};
  all.endMsg();
  EXPECT_EQ(file->records(0).back().text.bytes(),
            "Expected: " + std::string(room - 4, 'e') + " Actual: [left out] at [left out], %");
}

TEST_F(MirlTest, aRecordOfATurnHasTheTimeOfTheTurn) {
  Support::ManualLoop loop;
  struct Waking : Zint::Clock::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onTime() override { reaction(); }
    std::function<void()> reaction;
  };
  const auto waking = Zint::makePtr<Waking>(loop.activity, loop.clock);
  waking->reaction = [&] { write(desc, 0, 1); };
  waking->timeMinIs(5.0);
  loop.clock->timeIs(6.5);
  loop.activity->turn();
  ASSERT_EQ(file->records(0).size(), 1u);
  EXPECT_EQ(file->records(0)[0].time, 6.5);
}

// An argument takes one byte for its tag, a text two more for its length; the rest is its bytes.
TEST_F(MirlTest, aRecordIsFilledToItsLastByte) {
  constexpr U32 room = RingBuf::recordMax - 16;  // behind size, descriptor and time
  for (U32 left = 0; left < 12; ++left) {
    SCOPED_TRACE(left);
    const std::string text(room - 3 - left, 'x');
    const auto added = [&](auto argument) {
      auto msg = RingBuf::startMsg(*file, desc, 0);
      msg << text << argument;
      msg.endMsg();
      auto arguments = file->records(0).back().arguments;
      EXPECT_EQ(arguments.front(), Argument(String8(text)));
      arguments.erase(arguments.begin());
      return arguments;
    };
    using Arguments = std::vector<Argument>;
    const std::string more = "more than there is room for";
    EXPECT_EQ(added(std::string_view(more)),
              left < 3 ? Arguments{} : Arguments{String8(more.substr(0, left - 3))});
    EXPECT_EQ(added(U8{7}), left < 2 ? Arguments{} : Arguments{(Number{7, 1})});
    EXPECT_EQ(added(U32{7}), left < 5 ? Arguments{} : Arguments{(Number{7, 4})});
    EXPECT_EQ(added(U64{7}), left < 9 ? Arguments{} : Arguments{(Number{7, 8})});
  }
}

TEST_F(MirlTest, argumentsWithoutRoomAreLeftOut) {
  auto msg = RingBuf::startMsg(*file, desc, 0);
  for (U32 i = 0; i < 10'000; ++i) msg << U64{i};
  msg.endMsg();
  const auto records = file->records(0);
  ASSERT_EQ(records.size(), 1u);
  const auto& arguments = records[0].arguments;
  EXPECT_GE(arguments.size(), RingBuf::recordMax / 12);
  EXPECT_LE(arguments.size(), RingBuf::recordMax / 8);
  for (U64 i = 0; i < arguments.size(); ++i) {
    EXPECT_EQ(std::get<Number>(arguments[static_cast<std::size_t>(i)]), (Number{i, 8}));
  }
}

TEST_F(MirlTest, aTextOfAnyLengthIsWhole) {
  for (std::size_t length = 0; length < 70; ++length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('0' + i);
    auto msg = RingBuf::startMsg(*file, desc, 0);
    msg << std::string_view(text) << U32{3};
    msg.endMsg();
    EXPECT_THAT(file->records(0).back().arguments,
                ElementsAre(Argument(String8(text)), Argument(Number{3, 4})));
  }
}

TEST_F(MirlTest, anEmptyTextIsAnArgument) {
  auto msg = RingBuf::startMsg(*file, desc, 0);
  msg << "" << U32{3};
  msg.endMsg();
  EXPECT_THAT(file->records(0).at(0).arguments,
              ElementsAre(Argument(String8()), Argument(Number{3, 4})));
}

TEST_F(MirlTest, aFullRingOverwritesTheOldestAndCountsTheLost) {
  constexpr U32 written = 10'000;
  for (U32 i = 0; i < written; ++i) write(desc, 2, i);
  const auto records = file->records(2);
  ASSERT_LT(records.size(), written);
  EXPECT_GE(records.size(), RingBuf::capacity / 32);
  EXPECT_EQ(file->ringBuf(2).lost(), written - records.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    ASSERT_EQ(records[i].text.bytes(), "n " + std::to_string(written - records.size() + i));
  }
  EXPECT_EQ(file->ringBuf(3).lost(), 0u);
}

TEST_F(MirlTest, aFullRingHasNoGapsBetweenRecordsOfWholeUnits) {
  for (U32 i = 0; i < 3000; ++i) {
    auto msg = RingBuf::startMsg(*file, desc, 0);  // 16 bytes, and as many of arguments
    for (U8 argument = 0; argument < 8; ++argument) msg << argument;
    msg.endMsg();
  }
  EXPECT_EQ(file->records(0).size(), RingBuf::capacity / 32);
}

TEST_F(MirlTest, clear_forgetsTheRecordsAndTheCountsOfAllRings) {
  for (U32 i = 0; i < 5000; ++i) write(desc, 0, i);
  write(desc, 9, 1);
  ASSERT_GT(file->ringBuf(0).lost(), 0u);
  file->clear();
  EXPECT_EQ(file->ringBuf(0).lost(), 0u);
  EXPECT_THAT(texts(0), IsEmpty());
  EXPECT_THAT(texts(9), IsEmpty());
  write(desc, 0, 3);
  EXPECT_THAT(texts(0), ElementsAre("n 3"));
}

// Records of random sizes, many times around the ring, against a plain list of what was written:
// what is read back is its end, whole and in order, and the rest is counted as lost.
TEST_F(MirlTest, whatIsReadIsTheEndOfWhatWasWrittenWhereverTheRingWraps) {
  constexpr unsigned seed = 99;
  std::mt19937 random(seed);
  std::vector<std::vector<Argument>> all;
  std::vector<std::size_t> payload;  // bytes of the arguments alone
  for (int step = 0; step < 6000; ++step) {
    auto msg = RingBuf::startMsg(*file, desc, 1);
    auto& arguments = all.emplace_back();
    std::size_t bytes = 0;
    for (auto count = random() % 5; count > 0; --count) {
      const U32 value = static_cast<U32>(random());
      switch (random() % 4) {
        case 0:
          msg << static_cast<U8>(value);
          arguments.emplace_back(Number{static_cast<U8>(value), 1});
          bytes += 1;
          break;
        case 1:
          msg << value;
          arguments.emplace_back(Number{value, 4});
          bytes += 4;
          break;
        case 2:
          msg << (U64{value} << 13);
          arguments.emplace_back(Number{U64{value} << 13, 8});
          bytes += 8;
          break;
        default: {
          const std::string text(value % 50, static_cast<char>('a' + value % 26));
          msg << text;
          arguments.emplace_back(String8(text));
          bytes += text.size();
        }
      }
    }
    payload.push_back(bytes);
    msg.endMsg();
    if (step % 97 != 0 && step < 5990) continue;
    const auto records = file->records(1);
    ASSERT_EQ(records.size() + file->ringBuf(1).lost(), all.size()) << "seed " << seed;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < records.size(); ++i) {
      const std::size_t at = all.size() - records.size() + i;
      ASSERT_EQ(records[i].arguments, all[at]) << "seed " << seed << " record " << at;
      kept += payload[at];
    }
    ASSERT_LE(kept, RingBuf::capacity);
    if (file->ringBuf(1).lost() > 0) {
      ASSERT_GE(kept, RingBuf::capacity / 3);
    }
  }
}

TEST_F(MirlTest, recordsOfSeveralThreadsAreWhole) {
  constexpr U32 each = 5000;
  const auto body = [this](U32 thread) {
    for (U32 i = 0; i < each; ++i) {
      auto msg = RingBuf::startMsg(*file, desc, 0);
      msg << thread << i << std::string(i % 30, static_cast<char>('a' + thread));
      msg.endMsg();
    }
  };
  std::thread first(body, 0);
  std::thread second(body, 1);
  for (int i = 0; i < 50; ++i) (void)file->records(0);
  first.join();
  second.join();
  const auto records = file->records(0);
  EXPECT_EQ(records.size() + file->ringBuf(0).lost(), 2u * each);
  for (const Record& record : records) {
    ASSERT_EQ(record.arguments.size(), 3u);
    const U64 thread = std::get<Number>(record.arguments[0]).value;
    const U64 i = std::get<Number>(record.arguments[1]).value;
    ASSERT_EQ(std::get<String8>(record.arguments[2]).bytes(),
              std::string(static_cast<std::size_t>(i % 30), static_cast<char>('a' + thread)));
  }
}

TEST(Mirl, theProcessHasOneTraceFile) {
  const MsgDesc desc(Mirl::theTraceFile, "process %u", __LINE__);
  Mirl::theTraceFile.clear();
  auto msg = RingBuf::startMsg(Mirl::theTraceFile, desc, 8);
  msg << U32{1};
  msg.endMsg();
  ASSERT_EQ(Mirl::theTraceFile.records(8).size(), 1u);
  EXPECT_EQ(Mirl::theTraceFile.records(8)[0].text, "process 1");
  Mirl::theTraceFile.clear();
}

TEST_F(MirlTest, aFullRecordTakesNoFurtherText) {
  auto msg = RingBuf::startMsg(*file, desc, 1);
  for (U32 i = 0; i < RingBuf::recordMax; ++i) msg << U8{7};
  msg << "behind";
  msg.endMsg();
  const auto records = file->records(1);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_TRUE(std::holds_alternative<Number>(records[0].arguments.back()));
}

TEST_F(MirlTest, endMsg_again_writesNothing) {
  auto msg = RingBuf::startMsg(*file, desc, 1);
  msg << std::string(RingBuf::recordMax, 'x') << "left out";
  for (U32 i = 0; i < 2 * RingBuf::unit; ++i) msg.endMsg();
  msg << "late";
  EXPECT_EQ(file->records(1).size(), 1u);
}

TEST_F(MirlTest, aPercentSignWithoutAnArgumentStaysInTheText) {
  const MsgDesc open{*file, "%u of %u, %", __LINE__};
  auto msg = RingBuf::startMsg(*file, open, 1);
  msg << U32{7};
  msg.endMsg();
  auto full = RingBuf::startMsg(*file, open, 1);
  full << U32{7} << U32{8} << U32{9};
  full.endMsg();
  EXPECT_THAT(texts(1), ElementsAre("7 of %u, %", "7 of 8, %"));
}

TEST_F(MirlTest, descriptorsLeaveInAnyOrder) {
  auto older = std::make_unique<MsgDesc>(*file, "older %u", __LINE__);
  const MsgDesc newer(*file, "newer %u", __LINE__);
  write(*older, 0, 1);
  write(newer, 0, 2);
  older = nullptr;
  EXPECT_THAT(texts(0), ElementsAre("unknown", "newer 2"));
  write(desc, 0, 3);
  EXPECT_THAT(texts(0), ElementsAre("unknown", "newer 2", "n 3"));
}

// --- Threads ---

// Runs `body` on a thread of its own with a clock of its own, to its end.
template <class Body>
void onThread(Body body) {
  std::thread([&body] {
    Support::ManualLoop loop;
    body(loop);
  }).join();
}

TEST_F(MirlTest, recordsOfAllThreadsAreReadInTheOrderOfTheirTimes) {
  for (U32 thread = 0; thread < 3; ++thread) {
    onThread([&](Support::ManualLoop& loop) {
      for (U32 i = 0; i < 4; ++i) {
        loop.clock->timeIs(1 + 3 * i + thread);
        write(desc, 0, 3 * i + thread);
      }
    });
  }
  EXPECT_THAT(texts(0), ElementsAre("n 0", "n 1", "n 2", "n 3", "n 4", "n 5", "n 6", "n 7", "n 8",
                                    "n 9", "n 10", "n 11"));
}

TEST_F(MirlTest, recordsOfThreadsThatHaveEndedAreReadWhoeverFollowsThem) {
  constexpr U32 threads = 5 * RingBuf::threadParts;
  std::vector<std::string> expected;
  for (U32 thread = 0; thread < threads; ++thread) {
    onThread([&](Support::ManualLoop& loop) {
      loop.clock->timeIs(thread);
      write(desc, 0, thread);
    });
    expected.push_back("n " + std::to_string(thread));
  }
  EXPECT_EQ(texts(0), expected);
  EXPECT_EQ(file->ringBuf(0).lost(), 0u);
}

// Some have parts of their own, the others share one; as many keys as there are do not do for all.
TEST_F(MirlTest, recordsOfMoreThreadsThanThereArePartsAreWhole) {
  constexpr U32 threads = 80, each = 300;
  const MsgDesc numbered(*file, "%u %u %s", __LINE__);
  std::vector<std::thread> running;
  std::atomic<U32> arrived{0};
  for (U32 thread = 0; thread < threads; ++thread) {
    running.emplace_back([&, thread] {
      for (U32 i = 0; i < each; ++i) {
        auto msg = RingBuf::startMsg(*file, numbered, 0);
        msg << thread << i << std::string(thread % 7, 'x');
        msg.endMsg();
        // All live at the same time.
        if (i == 0 && ++arrived == threads) arrived.notify_all();
        for (U32 now = arrived; i == 0 && now != threads; now = arrived) arrived.wait(now);
      }
    });
  }
  for (int i = 0; i < 20; ++i) (void)file->records(0);
  for (std::thread& thread : running) thread.join();
  const auto records = file->records(0);
  EXPECT_EQ(records.size() + file->ringBuf(0).lost(), threads * each);
  EXPECT_GE(records.size(), RingBuf::threadParts * each) << "all of those that have a part";
  std::vector<U64> next(threads);
  for (const Record& record : records) {
    const U64 thread = std::get<Number>(record.arguments.at(0)).value;
    const U64 i = std::get<Number>(record.arguments.at(1)).value;
    ASSERT_EQ(std::get<String8>(record.arguments.at(2)).bytes(),
              std::string(static_cast<std::size_t>(thread % 7), 'x'));
    ASSERT_GE(i, next.at(static_cast<std::size_t>(thread)));
    next[static_cast<std::size_t>(thread)] = i + 1;
  }
}

// Destroyed after what the ring keeps for the thread.
struct WritesWhenDestroyed {
  explicit WritesWhenDestroyed(MirlTest& of) : test(of) {}
  WritesWhenDestroyed(const WritesWhenDestroyed&) = delete;
  WritesWhenDestroyed& operator=(const WritesWhenDestroyed&) = delete;
  ~WritesWhenDestroyed() {
    test.write(test.desc, 0, 2);
    test.write(test.desc, 0, 3);
  }
  MirlTest& test;
};

TEST_F(MirlTest, aRecordOfAThreadLocalDestructorIsWritten) {
  for (int i = 0; i < 2; ++i) {
    std::thread([this] {
      thread_local const WritesWhenDestroyed late(*this);
      (void)&late;
      write(desc, 0, 1);
    }).join();
  }
  EXPECT_THAT(texts(0), testing::UnorderedElementsAre("n 1", "n 2", "n 3", "n 1", "n 2", "n 3"));
}

// Exit handlers run after the thread_local destructors of the main thread.
TEST(Mirl, aRecordOfAnExitHandlerIsWritten) {
  const auto exitWithRecords = [](bool early) {
    static const MsgDesc desc(Mirl::theTraceFile, "exit %u", __LINE__);
    static const auto write = [] {
      auto msg = RingBuf::startMsg(Mirl::theTraceFile, desc, 3);
      msg << U32{1};
      msg.endMsg();
    };
    Mirl::theTraceFile.clear();
    std::atexit([] {
      const std::size_t before = Mirl::theTraceFile.records(3).size();
      write();
      std::_Exit(Mirl::theTraceFile.records(3).size() == before + 1 ? 0 : 1);
    });
    if (early) write();
    std::exit(2);
  };
  EXPECT_EXIT(exitWithRecords(true), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(exitWithRecords(false), testing::ExitedWithCode(0), "");
}

// Another file may get the memory of one that a thread has written to.
TEST_F(MirlTest, aThreadWritesToEachFileItIsGiven) {
  for (U32 i = 0; i < 10; ++i) {
    auto other = std::make_unique<TraceFile>();
    const MsgDesc descOfOther(*other, "other %u", __LINE__);
    for (U32 record = 0; record < 3; ++record) {
      auto msg = RingBuf::startMsg(*other, descOfOther, 0);
      msg << record;
      msg.endMsg();
      write(desc, 0, i);
    }
    EXPECT_EQ(other->records(0).size(), 3u);
  }
  EXPECT_EQ(texts(0).size(), 30u);
}

// The second file's records are where the thread's part of the first one was.
TEST_F(MirlTest, aThreadWritesToAFileThatOverlapsTheMemoryOfAFormerOne) {
  constexpr std::size_t distance = 4096;
  const std::unique_ptr<std::byte[]> memory(new std::byte[sizeof(TraceFile) + 2 * distance]());
  std::byte* const second =
      memory.get() + distance - reinterpret_cast<std::uintptr_t>(memory.get()) % distance;
  const auto make = [](void* at) {
    return std::unique_ptr<TraceFile, void (*)(TraceFile*)>(
        new (at) TraceFile, [](TraceFile* of) { of->~TraceFile(); });
  };
  U32 key = 0;
  {
    const auto former = make(second + distance);
    RingBuf::startMsg(*former, desc, 0);
    // The first number in the file says whose part it is.
    for (std::size_t at = 0; key == 0 && at < sizeof(TraceFile); at += sizeof key) {
      std::memcpy(&key, second + distance + at, sizeof key);
    }
  }
  const auto overlapping = make(second);
  std::thread([&] {
    auto msg = RingBuf::startMsg(*overlapping, desc, 0);
    std::string keys(2 * distance, '\0');
    for (std::size_t at = 0; at < keys.size(); at += 4) std::memcpy(&keys[at], &key, sizeof key);
    // So that the numbers are aligned: a record begins with 16 bytes, a text with 3.
    msg << U32{0} << keys;
    msg.endMsg();
  }).join();
  auto msg = RingBuf::startMsg(*overlapping, desc, 0);
  msg << U32{1};
  msg.endMsg();
  EXPECT_EQ(overlapping->records(0).size(), 2u);
}

// --- A clock that cannot be read ---

struct UnreadableClock : Zint::Clock {
  using Clock::Clock;
  Zint::Seconds timeRead() const override {
    if (isUnreadable) throw std::runtime_error("unreadable");
    return 5;
  }
  bool isUnreadable = false;
};

TEST_F(MirlTest, startMsg_thatThrowsLeavesNoRecordUnderConstruction) {
  const auto clock = Zint::makePtr<UnreadableClock>("unreadable");
  const auto activity = Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  alignas(RingBuf::Msg) std::array<std::byte, sizeof(RingBuf::Msg)> memory{};
  clock->isUnreadable = true;
  EXPECT_THROW(new (memory.data()) RingBuf::Msg(RingBuf::startMsg(*file, desc, 0)),
               std::runtime_error);
  clock->isUnreadable = false;
  memory.fill(std::byte{0});
  write(desc, 0, 1);
  EXPECT_THAT(memory, testing::Each(std::byte{0})) << "its memory is the caller's again";
  EXPECT_THAT(texts(0), ElementsAre("n 1"));
}

// --- The ring against a list ---

// What a part keeps is the longest end of what was written that its capacity holds.
TEST_F(MirlTest, whatIsKeptIsAsMuchAsTheCapacityHoldsWhateverIsBegunAndDropped) {
  constexpr unsigned seed = 7;
  std::mt19937 random(seed);
  std::vector<std::string> texts;
  std::vector<U32> sizes;
  const auto text = [&](std::size_t bytes) {
    std::string made(bytes, static_cast<char>('a' + random() % 26));
    return made;
  };
  const auto bytes = [&]() -> std::size_t {
    return random() % 20 == 0 ? random() % (RingBuf::recordMax - 19) : random() % 300;
  };
  const auto end = [&](RingBuf::Msg& msg, const std::string& what) {
    msg.endMsg();
    texts.push_back(what);
    sizes.push_back((16 + 3 + static_cast<U32>(what.size()) + 15) / 16 * 16);
  };
  U32 lostAtClear = 0;
  for (int step = 0; step < 4000; ++step) {
    auto msg = RingBuf::startMsg(*file, desc, 1);
    const std::string what = text(bytes());
    switch (random() % 8) {
      case 0:  // never ended; small enough to drop nothing that is shown
        msg << text(random() % 300);
        break;
      case 1: {  // moves to the stack before it is filled, and ends last
        auto inner = RingBuf::startMsg(*file, desc, 1);
        msg << what;
        const std::string of = text(random() % 300);
        inner << of;
        end(inner, of);
        end(msg, what);
        break;
      }
      case 2: {  // moves to the stack when it is filled, and ends first
        msg << what;
        auto inner = RingBuf::startMsg(*file, desc, 1);
        const std::string of = text(random() % 300);
        inner << of;
        end(msg, what);
        end(inner, of);
        break;
      }
      default:
        msg << what;
        end(msg, what);
    }
    if (random() % 500 == 0) {
      file->clear();
      lostAtClear = static_cast<U32>(texts.size());
    }
    if (random() % 50 != 0) continue;
    U32 kept = 0;
    std::size_t first = texts.size();
    while (first > 0 && kept + sizes[first - 1] <= RingBuf::capacity) kept += sizes[--first];
    const std::size_t lost = first > lostAtClear ? first - lostAtClear : 0;
    first = std::max<std::size_t>(first, lostAtClear);
    ASSERT_EQ(file->ringBuf(1).lost(), lost) << "step " << step;
    const auto records = file->records(1);
    ASSERT_EQ(records.size(), texts.size() - first) << "step " << step;
    for (std::size_t i = 0; i < records.size(); ++i) {
      ASSERT_EQ(std::get<String8>(records[i].arguments.at(0)).bytes(), texts[first + i]);
    }
  }
}

}  // namespace
