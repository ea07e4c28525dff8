#include <Zint/LinkQueue.h>

#include "support/Death.h"

#include <gmock/gmock.h>
#include <runtime/Probes.h>

#include <memory>

namespace {

using Probes::rangeMessage;
using testing::ElementsAre;
using testing::IsEmpty;
using Zint::makePtr;
using Zint::Ptr;

template <class I>
class QueueMember : public Zint::PtrInterface, public Zint::LinkQueueLink<QueueMember<I>, I> {
 public:
  explicit QueueMember(std::string of = "") : name(std::move(of)) { ++living; }
  const std::string name;

  static inline int living = 0;

 protected:
  ~QueueMember() override { --living; }
};

template <class I>
using Queue = Zint::LinkQueue<QueueMember<I>, I>;

constexpr U32 lastIndex = 0xffffffff;
constexpr const char* full = "linkqueue index space full";
constexpr const char* outOfRange = "linkqueue index out of range";

struct LinkQueueTest : testing::Test {
  Ptr<QueueMember<U32>> enq(const char* name = "") {
    const Ptr<QueueMember<U32>> member = makePtr<QueueMember<U32>>(name);
    queue.enq(member);
    return member;
  }
  std::vector<U32> indices() const {
    std::vector<U32> indices;
    for (auto* m = queue.head(); m != nullptr; m = queue.after(*m)) {
      indices.push_back(m->zint_index());
    }
    return indices;
  }

  Queue<U32> queue;
};

TEST_F(LinkQueueTest, firstInFirstOut) {
  for (const char* name : {"a", "b", "c"}) enq(name);
  EXPECT_EQ(queue.size(), 3u);
  EXPECT_EQ(queue.head()->name, "a");
  EXPECT_EQ(queue.tail()->name, "c");
  EXPECT_EQ(queue.deq()->name, "a");
  EXPECT_EQ(queue.deq()->name, "b");
  EXPECT_EQ(queue.deq()->name, "c");
  EXPECT_EQ(queue.deq(), nullptr);
  EXPECT_EQ(queue.size(), 0u);
  EXPECT_EQ(queue.tail(), nullptr);
}

TEST_F(LinkQueueTest, enq_countsTheIndexUpFrom0) {
  for (int i = 0; i < 3; ++i) enq();
  EXPECT_THAT(indices(), ElementsAre(0, 1, 2));
  EXPECT_EQ(queue.metadata().next, 3u);
}

TEST_F(LinkQueueTest, enq_goesOnCountingWhenTheQueueWasEmptied) {
  enq();
  enq();
  queue.deq();
  queue.deq();
  EXPECT_EQ(enq()->zint_index(), 2u);
  EXPECT_EQ(queue.metadata(), (Queue<U32>::Metadata{2, 3}));
}

TEST_F(LinkQueueTest, enq_takesTheNextIndexWhenItLiesBehindTheLastMember) {
  enq();
  queue.metadataIs({0, 10});
  EXPECT_EQ(enq()->zint_index(), 10u);
  EXPECT_THAT(indices(), ElementsAre(0, 10));
}

TEST_F(LinkQueueTest, insert_takesAnIndexFromTheNextOneOn) {
  enq();
  queue.insert(7, makePtr<QueueMember<U32>>("seven"));
  EXPECT_EQ(enq()->zint_index(), 8u);
  EXPECT_THAT(indices(), ElementsAre(0, 7, 8));
  EXPECT_EQ(rangeMessage([&] { queue.insert(5, makePtr<QueueMember<U32>>()); }), outOfRange);
  EXPECT_EQ(rangeMessage([&] { queue.insert(8, makePtr<QueueMember<U32>>()); }), outOfRange);
  EXPECT_THAT(indices(), ElementsAre(0, 7, 8));
}

TEST_F(LinkQueueTest, theIndexWrapsAt32Bits) {
  queue.metadataIs({lastIndex - 1, lastIndex - 1});
  for (int i = 0; i < 4; ++i) enq();
  EXPECT_THAT(indices(), ElementsAre(lastIndex - 1, lastIndex, 0, 1));
  EXPECT_EQ(queue.del(0)->zint_index(), 0u);
  EXPECT_EQ(queue.del(lastIndex)->zint_index(), lastIndex);
  EXPECT_THAT(indices(), ElementsAre(lastIndex - 1, 1));
  EXPECT_EQ(queue.deq()->zint_index(), lastIndex - 1);
  EXPECT_EQ(queue.metadata(), (Queue<U32>::Metadata{1, 2}));
}

TEST_F(LinkQueueTest, enq_raisesIndexSpaceFullWhenItWouldWrapOntoTheHead) {
  enq("head");
  queue.metadataIs({0, lastIndex});
  EXPECT_EQ(rangeMessage([&] { enq(); }), full);
  EXPECT_EQ(queue.size(), 1u);
  EXPECT_EQ(queue.metadata(), (Queue<U32>::Metadata{0, lastIndex}));
  queue.deq();
  EXPECT_EQ(enq()->zint_index(), lastIndex) << "room again";
}

TEST_F(LinkQueueTest, enq_fillsASmallIndexSpaceToTheLastIndexBeforeTheHead) {
  Queue<U8> small;
  small.metadataIs({100, 100});
  for (int i = 0; i < 255; ++i) small.enq(makePtr<QueueMember<U8>>());
  EXPECT_EQ(small.tail()->zint_index(), 98);
  EXPECT_EQ(rangeMessage([&] { small.enq(makePtr<QueueMember<U8>>()); }), full);
  EXPECT_EQ(small.size(), 255u);
  small.deq();
  small.enq(makePtr<QueueMember<U8>>());
  EXPECT_EQ(small.tail()->zint_index(), 99);
}

TEST_F(LinkQueueTest, del_takesAMemberOutOfTheMiddle) {
  for (const char* name : {"a", "b", "c"}) enq(name);
  EXPECT_EQ(queue.del(1)->name, "b");
  EXPECT_THAT(indices(), ElementsAre(0, 2));
  EXPECT_EQ(queue.size(), 2u);
  EXPECT_EQ(queue.del(1), nullptr) << "removed before";
  EXPECT_EQ(queue.deq()->name, "a");
  EXPECT_EQ(queue.metadata().head, 2u);
  EXPECT_EQ(queue.deq()->name, "c");
}

TEST_F(LinkQueueTest, del_ofTheHeadMovesTheHead) {
  enq();
  enq();
  EXPECT_EQ(queue.del(0)->zint_index(), 0u);
  EXPECT_EQ(queue.metadata().head, 1u);
  EXPECT_EQ(rangeMessage([&] { queue.del(0); }), outOfRange);
}

TEST_F(LinkQueueTest, del_ofTheTailKeepsTheNextIndex) {
  for (int i = 0; i < 3; ++i) enq();
  queue.del(2);
  EXPECT_EQ(queue.tail()->zint_index(), 1u);
  EXPECT_EQ(enq()->zint_index(), 3u);
  EXPECT_THAT(indices(), ElementsAre(0, 1, 3));
}

TEST_F(LinkQueueTest, del_ofTheOnlyMemberEmptiesTheQueue) {
  enq();
  queue.del(0);
  EXPECT_EQ(queue.head(), nullptr);
  EXPECT_EQ(queue.tail(), nullptr);
  EXPECT_EQ(enq()->zint_index(), 1u);
}

TEST_F(LinkQueueTest, del_outsideTheQueueRaisesIndexOutOfRange) {
  EXPECT_EQ(rangeMessage([&] { queue.del(0); }), outOfRange);
  enq();
  EXPECT_EQ(rangeMessage([&] { queue.del(1); }), outOfRange);
  EXPECT_EQ(rangeMessage([&] { queue.del(lastIndex); }), outOfRange);
  EXPECT_EQ(queue.size(), 1u);
}

TEST_F(LinkQueueTest, metadataIs_refusesARangeThatDoesNotHoldTheMembers) {
  enq();
  enq();
  enq();
  EXPECT_EQ(rangeMessage([&] { queue.metadataIs({1, 3}); }), outOfRange);
  EXPECT_EQ(rangeMessage([&] { queue.metadataIs({0, 2}); }), outOfRange);
  EXPECT_EQ(queue.metadata(), (Queue<U32>::Metadata{0, 3}));
}

TEST_F(LinkQueueTest, metadata_isReadAndWrittenAsHeadAndNext) {
  using Metadata = Queue<U32>::Metadata;
  EXPECT_EQ(Zint::valueToStrep(Metadata{7, 12}), "7:12");
  EXPECT_EQ(Zint::strepToValue<Metadata>("7:12"), (Metadata{7, 12}));
  for (const char* text : {"7", "7;12", "7 12", "7:"}) {
    EXPECT_THROW(Zint::strepToValue<Metadata>(text), Zint::RangeException) << text;
  }
  EXPECT_EQ(rangeMessage([] { (void)Zint::strepToValue<Metadata>("7"); }),
            "a queue's bookkeeping is written head:next");
}

TEST_F(LinkQueueTest, delAll_keepsCountingWhereItWas) {
  enq();
  enq();
  queue.delAll();
  EXPECT_THAT(indices(), IsEmpty());
  EXPECT_EQ(QueueMember<U32>::living, 0);
  EXPECT_EQ(enq()->zint_index(), 2u);
}

TEST_F(LinkQueueTest, aDequeuedMemberMayEnterAgain) {
  enq("a");
  enq("b");
  queue.enq(queue.deq());
  EXPECT_EQ(queue.tail()->name, "a");
  EXPECT_THAT(indices(), ElementsAre(1, 2));
}

TEST_F(LinkQueueTest, aMillionMembersAreDestroyedWithoutRecursion) {
  auto large = std::make_unique<Queue<U32>>();
  for (int i = 0; i < 1'000'000; ++i) large->enq(makePtr<QueueMember<U32>>());
  large = nullptr;
  EXPECT_EQ(QueueMember<U32>::living, 0);
}

const Support::Assertion insertTwice{"Zint/LinkQueue", 0,
                                     "void Zint::LinkQueue<V, I>::append(I, const Zint::Ptr<T>&)",
                                     "link(*member).next_ == nullptr"};

TEST_F(LinkQueueTest, aQueuedMemberFailsAnAssertion) {
  const auto first = enq("a");
  const auto second = enq("b");
  EXPECT_DEATH(queue.enq(first), insertTwice);
  EXPECT_DEATH(queue.enq(second), insertTwice) << "the last one, too";
  EXPECT_DEATH(queue.insert(7, second), insertTwice);
  Queue<U32> other;
  EXPECT_DEATH(other.enq(first), insertTwice);
  EXPECT_DEATH(other.enq(second), insertTwice);
}

TEST_F(LinkQueueTest, aMemberThatHasLeftMayEnterAnotherQueue) {
  const auto a = enq("a"), b = enq("b"), c = enq("c"), d = enq("d");
  queue.del(b->zint_index());
  queue.del(d->zint_index());
  queue.deq();
  queue.delAll();
  Queue<U32> other;
  for (const auto& member : {a, b, c, d}) other.enq(member);
  EXPECT_EQ(other.size(), 4u);
  EXPECT_EQ(a->references(), 2u);
  EXPECT_EQ(d->references(), 2u);
  EXPECT_EQ(other.after(*c), d.ptr());
  EXPECT_EQ(other.after(*d), nullptr);
}

TEST_F(LinkQueueTest, aNullMemberIsRefusedAndNothingChanges) {
  enq("a");
  EXPECT_EQ(rangeMessage([&] { queue.enq(nullptr); }),
            "null _member parameter to mutator for Zint::LinkQueue::enq not allowed\"");
  EXPECT_EQ(rangeMessage([&] { queue.insert(9, nullptr); }),
            "null _member parameter to mutator for Zint::LinkQueue::insert not allowed\"");
  EXPECT_THAT(indices(), ElementsAre(0));
  EXPECT_EQ(queue.metadata(), (Queue<U32>::Metadata{0, 1}));
}

}  // namespace
