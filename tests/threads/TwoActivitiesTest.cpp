// One activity is one thread's. What two of them share is the process's: the trace handle and its
// sink, the type registry and Mirl. Meant for the thread sanitizer and helgrind, which see a race
// also where it did no harm; it must pass without them as well.
#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <Hardware/Umbra.h>
#include <Mirl/Mirl.h>
#include <Zint/GenericIf.h>
#include <Zint/ObjectText.h>
#include <pthread.h>

#include <atomic>
#include <thread>

#include "support/Client.h"
#include "support/ManualLoop.h"
#include "support/RecordingRegisters.h"
#include "support/ShadowTest.h"

namespace {

using Hardware::ChipAddress;
using Hardware::HardwareShadow;

constexpr U32 passes = 40;

// Counts what every thread traces.
class CountingSink : public Zint::TraceSink {
 public:
  CountingSink() : before_(Zint::traceSinkIs(this)) {}
  ~CountingSink() override { Zint::traceSinkIs(before_); }
  void traceLine(const Zint::TraceLine& line) override {
    if (std::string(line.handle) != "Umbra") return;
    ++lines;
    if (std::string(line.text) == "HardwareShadow::doAuditChips") ++audits;
  }

  std::atomic<U32> lines{0};
  std::atomic<U32> audits{0};

 private:
  Zint::TraceSink* before_;
};

// Two threads wait for each other here. The system's barrier, because helgrind knows it.
class Meeting {
 public:
  Meeting() { pthread_barrier_init(&barrier_, nullptr, 2); }
  ~Meeting() { pthread_barrier_destroy(&barrier_); }
  Meeting(const Meeting&) = delete;
  Meeting& operator=(const Meeting&) = delete;
  void wait() { pthread_barrier_wait(&barrier_); }

 private:
  pthread_barrier_t barrier_;
};

// Runs `body(0)` and `body(1)` at the same time, each on a thread of its own.
template <class Body>
void onTwoThreads(Body body) {
  Meeting start;
  std::thread threads[2];
  for (U32 i = 0; i < 2; ++i) {
    threads[i] = std::thread([&body, &start, i] {
      start.wait();
      body(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// A chip, its shadow and its reader, with everything made, used and destroyed on one thread.
class Chip {
 public:
  explicit Chip(U32 id) : base_(id + 1, 0x1000) {
    table_->shadowEnabledIs(true);
    table_->auditEnabledIs(true);
    table_->readFromCacheIs(true);
    table_->skipWriteIfMatchesCacheIs(true);
    shadow_->minIntervalBetweenAuditsIs(1.0);
    shadow_->chipMemoryIs(table_);
    shadow_->stateIs(HardwareShadow::configured());
    reader_ = Hardware::chipReaderFactory(loop_.activity, shadow_->auditReadRequest(), loop_.clock,
                                          3, 0.1);
    shadow_->stateIs(HardwareShadow::auditing());
  }

  // Writes, damages one register, and runs until the pass has repaired it.
  void pass(U32 number) {
    const U32 entry = number % table_->entries();
    Support::clientWrite(*shadow_, table_, entry, number);
    // The turn that begins the pass forgets what was written before it.
    loop_.turnAt(time_ += 1.0);
    ++registers_->registers[0x1000 + 4 * entry];
    const U32 before = shadow_->audits();
    for (int turns = 0; turns < 20 && shadow_->audits() == before; ++turns) {
      loop_.turnAt(time_ += 0.5);
    }
    U32 read = 0;
    EXPECT_TRUE(shadow_->readFromCache(table_, entry, reinterpret_cast<U8*>(&read), 4));
    EXPECT_EQ(read, number);
    EXPECT_EQ(registers_->registers[0x1000 + 4 * entry], number);
  }
  U32 audits() const { return shadow_->audits(); }
  U32 repairs() const { return table_->registersFixed(); }
  const Hardware::ChipMemory::Ptr& table() const { return table_; }

 private:
  Support::ManualLoop loop_;
  Zint::Ptr<Support::RecordingRegisters> registers_ = Zint::makePtr<Support::RecordingRegisters>();
  ChipAddress base_;
  Hardware::ChipMemory::Ptr table_ = Hardware::chipMemoryFactory(
      "table", base_, 8, 4, 4, Hardware::genericChipHamFactory("ham", registers_));
  HardwareShadow::Ptr shadow_ = Hardware::hardwareShadowFactory(loop_.activity, loop_.clock);
  Hardware::ChipReader::Ptr reader_;
  Zint::Seconds time_ = 0;
};

TEST(TwoActivities, auditSideBySideAndShareTraceAndRecords) {
  CountingSink sink;
  Mirl::theTraceFile.clear();
  Hardware::umbraTrace().levelUpToIs(9);
  onTwoThreads([](U32 id) {
    Chip chip(id);
    for (U32 number = 1; number <= passes; ++number) {
      chip.pass(number);
      Hardware::umbraTrace().levelIs(8, number % 2 == 0);
    }
    EXPECT_EQ(chip.audits(), passes);
    EXPECT_EQ(chip.repairs(), passes);
  });
  Hardware::umbraTrace().levelUpToIs(0);
  EXPECT_EQ(sink.audits, 2 * passes);
  EXPECT_GT(sink.lines, 10 * passes);
  U32 found = 0;
  for (const Mirl::Record& record : Mirl::theTraceFile.records(0)) {
    if (std::string(record.text.c_str()).ends_with("of memory table")) ++found;
  }
  EXPECT_EQ(found, 2 * passes) << "each repair left its record";
}

TEST(TwoActivities, useTheTypeRegistryWhileItGrowsAndShrinks) {
  static constinit const Zint::Type mine[2] = {Zint::Type{"Chips::One"}, Zint::Type{"Chips::Two"}};
  const std::size_t before = Zint::TypeRegistry::types().size();
  onTwoThreads([](U32 id) {
    Chip chip(id);
    for (U32 round = 0; round < 4 * passes; ++round) {
      Zint::TypeRegistry::typeIs(mine[id]);
      EXPECT_EQ(Zint::TypeRegistry::find(mine[id].name), &mine[id]);
      EXPECT_NE(Zint::TypeRegistry::find("Hardware::ChipMemory"), nullptr);
      Zint::TypeRegistry::typeDel(mine[id]);
      EXPECT_EQ(Zint::TypeRegistry::find(mine[id].name), nullptr);
      EXPECT_NE(Zint::TypeRegistry::findFactory("chipMemoryFactory"), nullptr);
      // Objects are numbered for each thread alone.
      EXPECT_TRUE(Zint::objectText(chip.table().ptr()) == "'table'#1");
    }
  });
  EXPECT_EQ(Zint::TypeRegistry::types().size(), before);
}

TEST(TwoActivities, writeRecordsWhileBothReadThem) {
  Mirl::theTraceFile.clear();
  onTwoThreads([](U32 id) {
    static const Mirl::MsgDesc shared(Mirl::theTraceFile, "thread %u round %u of %s", __LINE__);
    for (U32 round = 0; round < 500; ++round) {
      const Mirl::MsgDesc own(Mirl::theTraceFile, "own %u", __LINE__);
      Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, shared, 5);
      msg << id << round << "a text long enough to make the ring go round";
      msg.endMsg();
      if (round % 50 != 0) continue;
      for (const Mirl::Record& record : Mirl::theTraceFile.records(5)) {
        ASSERT_EQ(record.arguments.size(), 3u);
        EXPECT_TRUE(std::string(record.text.c_str()).starts_with("thread "));
      }
    }
  });
  EXPECT_GT(Mirl::theTraceFile.ringBuf(5).lost(), 0u);
  Mirl::theTraceFile.clear();
}

TEST(TwoActivities, handlesComeAndGoWhileOthersTrace) {
  CountingSink sink;
  onTwoThreads([](U32 id) {
    const char* names[] = {"first", "second"};
    Chip chip(id);
    for (U32 round = 1; round <= passes; ++round) {
      const Zint::TraceHandle own(names[id], false);
      EXPECT_EQ(Zint::TraceHandle::find(names[id]), &own);
      EXPECT_EQ(Zint::TraceHandle::find("Umbra"), &Hardware::umbraTrace());
      chip.pass(round);
    }
  });
  EXPECT_EQ(sink.audits, 2 * passes);
}

TEST(TwoActivities, oneIsStoppedFromTheOthersThread) {
  Support::ManualLoop* running = nullptr;
  std::atomic<bool> turned{false};
  Meeting met;
  onTwoThreads([&](U32 id) {
    if (id == 0) {
      Support::ManualLoop loop;
      running = &loop;
      met.wait();
      // Each run ends at once on its own as well: a manual clock has nothing to wait for.
      while (!turned) loop.activity->run();
      met.wait();
    } else {
      met.wait();
      for (U32 i = 0; i < 100; ++i) running->activity->stop();
      turned = true;
      met.wait();
    }
  });
}

}  // namespace
