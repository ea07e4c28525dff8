#include <Zint/WakeQueue.h>

#include <gmock/gmock.h>
#include <support/Death.h>

#include <algorithm>
#include <memory>
#include <random>

namespace {

using Zint::WakeQueue;
using Zint::WakeUp;

TEST(WakeQueue, earliest_isByTimeThenByOrder) {
  WakeQueue queue;
  WakeUp a(nullptr), b(nullptr), c(nullptr);
  EXPECT_EQ(queue.earliest(), nullptr);
  queue.add(a, 2.0, 1);
  queue.add(b, 1.0, 3);
  queue.add(c, 1.0, 2);
  EXPECT_EQ(queue.earliest(), &c);
  queue.remove(c);
  EXPECT_EQ(queue.earliest(), &b);
  queue.remove(b);
  EXPECT_EQ(queue.earliest(), &a);
  queue.remove(a);
  EXPECT_TRUE(queue.isEmpty());
}

TEST(WakeQueue, aWakeUpThatIsDestroyedLeaves) {
  WakeQueue queue;
  WakeUp later(nullptr);
  queue.add(later, 2.0, 1);
  {
    WakeUp brief(nullptr);
    queue.add(brief, 1.0, 2);
    EXPECT_EQ(queue.earliest(), &brief);
  }
  EXPECT_EQ(queue.earliest(), &later);
}

TEST(WakeQueue, aQueueThatIsDestroyedLeavesItsWakeUpsFree) {
  WakeUp wakeUp(nullptr);
  {
    WakeQueue queue;
    queue.add(wakeUp, 1.0, 1);
    EXPECT_TRUE(wakeUp.isQueued());
  }
  EXPECT_FALSE(wakeUp.isQueued());
}

TEST(WakeQueue, take_movesOneOverWithItsTimeAndOrder) {
  WakeQueue from, to;
  WakeUp wakeUp(nullptr);
  from.add(wakeUp, 1.5, 7);
  to.take(wakeUp);
  EXPECT_TRUE(from.isEmpty());
  EXPECT_EQ(to.earliest(), &wakeUp);
  EXPECT_EQ(wakeUp.due(), 1.5);
  EXPECT_EQ(wakeUp.order(), 7u);
}

// Adds and removes at random and compares with a sorted list.
TEST(WakeQueue, earliest_isThatOfASortedList) {
  constexpr unsigned seed = 20261121;
  std::mt19937 random(seed);
  std::vector<std::unique_ptr<WakeUp>> all;
  for (int i = 0; i < 60; ++i) all.push_back(std::make_unique<WakeUp>(nullptr));
  WakeQueue queue;
  U64 order = 0;
  for (int step = 0; step < 20'000; ++step) {
    WakeUp& one = *all[random() % all.size()];
    if (one.isQueued()) {
      queue.remove(one);
    } else {
      queue.add(one, static_cast<double>(random() % 10), ++order);
    }
    const WakeUp* expected = nullptr;
    std::size_t size = 0;
    for (const auto& other : all) {
      if (!other->isQueued()) continue;
      ++size;
      if (expected == nullptr ||
          std::pair(other->due(), other->order()) < std::pair(expected->due(), expected->order())) {
        expected = other.get();
      }
    }
    ASSERT_EQ(queue.earliest(), expected) << "seed " << seed << " step " << step;
    ASSERT_EQ(queue.size(), size);
  }
}

TEST(WakeQueueDeathTest, aWakeUpThatIsQueuedIsNotAdded) {
  WakeQueue queue;
  WakeUp wakeUp(nullptr);
  queue.add(wakeUp, 1.0, 1);
  EXPECT_DEATH(queue.add(wakeUp, 2.0, 2),
               Support::Assertion("Zint/WakeQueue", 0,
                                  "void Zint::WakeQueue::add(Zint::WakeUp&, Zint::Seconds, U64)",
                                  "!wakeUp.isQueued()"));
}

TEST(WakeQueueDeathTest, aWakeUpOfAnotherQueueIsNotRemoved) {
  WakeQueue queue;
  WakeUp wakeUp(nullptr);
  EXPECT_DEATH(
      queue.remove(wakeUp),
      Support::Assertion("Zint/WakeQueue", 0, "void Zint::WakeQueue::remove(Zint::WakeUp&)",
                         "wakeUp.queue_ == this"));
}

}  // namespace
