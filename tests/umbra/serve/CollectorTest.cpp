// What a look at the drivers tells: frames of what changed, and events.
#include "tools/umbra/serve/Collector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MadeUp.h"
#include "tools/umbra/serve/Json.h"

namespace Serve {
namespace {

using testing::SizeIs;

class CollectorTest : public testing::Test {
 protected:
  // The frames since the last call.
  std::vector<Json> frames() {
    std::vector<Json> all;
    const auto texts = collector_.framesAfter(last_, 0);
    EXPECT_TRUE(texts.has_value());
    for (const std::string& text : *texts) {
      all.push_back(Json::parse(text));
      ++last_;
    }
    return all;
  }

  MadeUp machine_;
  MadeUpDriver& driver_ = machine_.driverIs("switch1", 20);
  Collector collector_{machine_};
  U64 last_ = 0;
};

TEST_F(CollectorTest, turn_tellsAllRegionsOfANewDriver) {
  collector_.turn();
  const auto all = frames();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_THAT(all[0]["regions"]["switch1"], SizeIs(28));
  EXPECT_EQ(all[0]["drivers"][0]["name"], "switch1");
}

TEST_F(CollectorTest, turn_tellsNothingWhereNothingChanged) {
  collector_.turn();
  frames();
  collector_.turn();
  EXPECT_THAT(frames(), SizeIs(0));
}

TEST_F(CollectorTest, turn_tellsTheRegionThatChanged) {
  collector_.turn();
  frames();
  driver_.find(3, 17);
  collector_.turn();
  const auto all = frames();
  ASSERT_THAT(all, SizeIs(1));
  ASSERT_THAT(all[0]["regions"]["switch1"], SizeIs(1));
  EXPECT_EQ(all[0]["regions"]["switch1"][0][0], 3);
  ASSERT_THAT(all[0]["events"]["switch1"], SizeIs(1));
  EXPECT_EQ(all[0]["events"]["switch1"][0]["entry"], 17);
}

TEST_F(CollectorTest, turn_passesOverARegionThatThePageShowsAsBefore) {
  collector_.turn();
  frames();
  driver_.regions().add(3, "readCacheHits", 1);
  collector_.turn();
  EXPECT_THAT(frames(), SizeIs(0));
}

TEST_F(CollectorTest, turn_tellsThatADriverIsDead) {
  collector_.turn();
  frames();
  driver_.header().liveness = Liveness::dead;
  collector_.turn();
  const auto all = frames();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0]["drivers"][0]["liveness"], "dead");
}

TEST_F(CollectorTest, turn_tellsThatADriverIsGone) {
  collector_.turn();
  frames();
  machine_.driverDel("switch1");
  collector_.turn();
  const auto all = frames();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0]["gone"], Json::array({"switch1"}));
  EXPECT_THAT(collector_.view().drivers, SizeIs(0));
}

TEST_F(CollectorTest, turn_tellsAllRegionsAgainWhereAnotherProcessHasTheName) {
  collector_.turn();
  frames();
  driver_.header().pid = 99;
  collector_.turn();
  EXPECT_THAT(frames().at(0)["regions"]["switch1"], SizeIs(28));
}

TEST_F(CollectorTest, turn_readsAnEventLogThatWasBegunAnew) {
  for (int i = 0; i < 3; ++i) driver_.find(1, 1);
  collector_.turn();
  EXPECT_THAT(collector_.events("switch1", {}), SizeIs(3));
  machine_.driverIs("switch1", 20).find(2, 5);
  collector_.turn();
  const auto events = collector_.events("switch1", {});
  ASSERT_THAT(events, SizeIs(1));
  EXPECT_EQ(events[0].entry, 5u);
}

TEST_F(CollectorTest, turn_handsNewEventsToItsListenerOnce) {
  std::size_t events = 0;
  collector_.listenerIs([&](const View&, const auto& news) {
    for (const auto& each : news) events += each.second.size();
  });
  driver_.find(1, 1);
  collector_.turn();
  collector_.turn();
  EXPECT_EQ(events, 1u);
}

TEST_F(CollectorTest, events_areNewestFirstAndFiltered) {
  driver_.find(1, 10);
  driver_.find(2, 20);
  driver_.find(1, 30);
  collector_.turn();
  EventFilter filter;
  filter.region = "region-00001";
  const auto events = collector_.events("switch1", filter);
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(events[0].entry, 30u);
  EXPECT_EQ(events[1].entry, 10u);
  filter.before = 3;
  EXPECT_THAT(collector_.events("switch1", filter), SizeIs(1));
}

TEST_F(CollectorTest, framesAfter_aPlaceThatIsNoLongerKnownAreNone) {
  for (int i = 0; i < 100; ++i) {
    driver_.find(1, 1);
    collector_.turn();
  }
  EXPECT_FALSE(collector_.framesAfter(1, 0).has_value());
  EXPECT_FALSE(collector_.framesAfter(1000, 0).has_value());
  EXPECT_THAT(*collector_.framesAfter(90, 0), SizeIs(10));
}

}  // namespace
}  // namespace Serve
