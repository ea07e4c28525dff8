#include <Driver/ChipWriteRequest.h>
#include <Driver/Descriptions.h>
#include <Zint/GenericIf.h>
#include <Zint/ObjectText.h>

#include "support/ManualLoop.h"
#include "support/ShadowTest.h"

namespace {

using Driver::ChipWriteRequest;
using Hardware::ChipAddress;

class ChipWriteRequestTest : public Support::ShadowTest {
 protected:
  // The regions' names in the order of writing.
  Zint::String8 order() const { return request->stringValue(); }

  const ChipMemory::Ptr a = region("a", 0x3000, 4), b = region("b", 0x1000, 4),
                        c = region("c", 0x2000, 4);
  const ChipWriteRequest::Ptr request = Driver::chipWriteRequestFactory("replay");
};

class WriteRequestWatch : public ChipWriteRequest::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onChipMemory() override { ++regions; }
  void onIncludesAdopted() override { ++adopted; }
  void onLeavesBuffered() override { ++buffered; }
  int regions = 0, adopted = 0, buffered = 0;
};

TEST_F(ChipWriteRequestTest, regionsKeepTheOrderInWhichTheyWereAdded) {
  for (const auto& cm : {a, b, c}) request->chipMemoryIs(cm);
  EXPECT_EQ(order(), "a, b, c");
  EXPECT_EQ(request->chipMemorys(), 3u);
  EXPECT_EQ(request->chipMemoryAddresses(),
            (std::vector<ChipAddress>{a->address(), b->address(), c->address()}));
}

TEST_F(ChipWriteRequestTest, oneThatIsThereIsMovedToTheEnd) {
  for (const auto& cm : {a, b}) request->chipMemoryIs(cm);
  request->newGroup(0.5);
  request->chipMemoryIs(a);
  EXPECT_EQ(order(), "b; after 0.5 s: a");
  request->chipMemoryIs(a);
  EXPECT_EQ(order(), "b; after 0.5 s: a");
}

TEST_F(ChipWriteRequestTest, anotherRegionReplacesTheOneAtItsAddress) {
  request->chipMemoryIs(a);
  request->chipMemoryIs(b);
  const auto other = region("other", 0x3000, 1);
  request->chipMemoryIs(other);
  EXPECT_EQ(order(), "b, other");
  EXPECT_FALSE(request->holds(a));
  EXPECT_TRUE(request->holds(other));
  EXPECT_EQ(request->chipMemory(ChipAddress(0x3000)), other);
}

TEST_F(ChipWriteRequestTest, deletesWhatItHoldsAndNothingElse) {
  request->chipMemoryIs(a);
  request->chipMemoryDel(b);
  request->chipMemoryDel(nullptr);
  request->chipMemoryDel(region("other", 0x3000, 1));
  EXPECT_EQ(order(), "a");
  request->chipMemoryDel(request->groups()[0].chipMemory[0]);
  EXPECT_EQ(order(), "");
  request->chipMemoryIs(a);
  request->newGroup(0);
  request->chipMemoryIs(b);
  EXPECT_EQ(order(), "a; b");
  request->chipMemoryDelAll();
  EXPECT_EQ(request->groups().size(), 1u);
  EXPECT_EQ(request->chipMemorys(), 0u);
}

TEST_F(ChipWriteRequestTest, refusesNoRegionAndDelaysThatAreNone) {
  EXPECT_EQ(Support::exceptionText([&] { request->chipMemoryIs(nullptr); }),
            "null _chipMemory parameter to mutator for Driver::ChipWriteRequest::chipMemory not "
            "allowed\"");
  for (const double bad : {-0.001, Zint::never, -Zint::never, 0 * Zint::never}) {
    EXPECT_EQ(Support::exceptionText([&] { request->newGroup(bad); }),
              "the delay of a group must be finite and not negative");
  }
  EXPECT_EQ(request->groups().size(), 1u);
}

TEST_F(ChipWriteRequestTest, changesAreAnnounced) {
  const auto watch = Zint::makePtr<WriteRequestWatch>(loop.activity, request);
  request->chipMemoryIs(a);
  request->newGroup(0);
  request->chipMemoryDel(a);
  request->chipMemoryDel(a);
  request->includesAdoptedIs(true);
  request->includesAdoptedIs(true);
  request->leavesBufferedIs(true);
  EXPECT_EQ(watch->regions, 3);
  EXPECT_EQ(watch->adopted, 1);
  EXPECT_EQ(watch->buffered, 1);
}

TEST_F(ChipWriteRequestTest, isReachedByName) {
  Zint::GenericIf_ byName{Zint::Ptr<Zint::PtrInterface>(request)};
  request->chipMemoryIs(a);
  byName.call("newGroup", {{"delay", "0.25"}});
  request->chipMemoryIs(b);
  EXPECT_EQ(byName.attribute("stringValue"), "'a; after 0.25 s: b'");
  byName.attributeIs("includesAdopted", "true");
  EXPECT_TRUE(request->includesAdopted());
  auto list = byName.list("chipMemory");
  ASSERT_EQ(list.items().size(), 2u);
  EXPECT_EQ(list.items()[0].key, Hardware::valueToStrep(a->address()));
  list.del(Hardware::valueToStrep(a->address()));
  EXPECT_EQ(order(), "; after 0.25 s: b");
}

}  // namespace
