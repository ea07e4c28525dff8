#include <Hardware/ChipReadRequest.h>
#include <Zint/Activity.h>

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

#include "support/RecordingHam.h"
#include "support/TraceCapture.h"

namespace Hardware {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Counts what it is told.
class RequestObserver : public ChipReadRequest::NotifieeConst {
 public:
  explicit RequestObserver(const ChipReadRequest::Ptr& request)
      : NotifieeConst(nullptr, Zint::Ptr<const ChipReadRequest>(request)) {}
  void onChipMemory(const ChipAddress& key) override {
    keys.push_back(key.value());
    if (also) also();
  }
  void onChipMemoryzintImmediate() override { ++immediate; }
  void onState() override { states.push_back(notifier()->state()); }
  void onStatus() override { statuses.push_back(notifier()->status()); }

  std::vector<U64> keys;
  int immediate = 0;
  std::vector<int> states, statuses;
  std::function<void()> also;
};

class ChipReadRequestTest : public testing::Test {
 protected:
  ChipMemory::Ptr region(U64 address, const char* name = "region") const {
    return chipMemoryFactory(name, ChipAddress(address), 4, 4, 4, ham);
  }

  const ChipHam::Ptr ham = Zint::makePtr<Support::RecordingHam>();
  ChipReadRequest::Ptr request = chipReadRequestFactory("dump");
  Zint::Ptr<RequestObserver> observer = Zint::makePtr<RequestObserver>(request);
};

TEST_F(ChipReadRequestTest, factory_makesAnEmptyIdleRequestOfThatName) {
  EXPECT_EQ(request->name(), "dump");
  EXPECT_EQ(request->chipMemorys(), 0u);
  EXPECT_EQ(request->state(), 0);
  EXPECT_EQ(request->status(), 0);
  EXPECT_EQ(request->generation(), 0u);
  EXPECT_EQ(ChipReadRequestIs("other")->name(), "other");
}

TEST_F(ChipReadRequestTest, attributeString_addsChipMemory) {
  EXPECT_EQ(request->attributeString(ChipReadRequest::Id::chipMemory), "chipMemory");
  EXPECT_EQ(request->attributeString(ChipReadRequest::Id::state), "state");
  EXPECT_EQ(request->attributeString(ChipReadRequest::Id::name), "name");
  EXPECT_EQ(request->attributeString(99999), "unknown");
}

// --- The set -----------------------------------------------------------------------------------

TEST_F(ChipReadRequestTest, chipMemoryIs_addsUnderTheRegionsAddress) {
  const ChipMemory::Ptr table = region(0x500001000);
  request->chipMemoryIs(table);
  EXPECT_EQ(request->chipMemory(ChipAddress(5, 0x1000)), table);
  EXPECT_EQ(request->chipMemory(ChipAddress(0, 0x1000)), nullptr);
  EXPECT_EQ(request->chipMemorys(), 1u);
  EXPECT_THAT(observer->keys, ElementsAre(0x500001000));
}

TEST_F(ChipReadRequestTest, chipMemoryIs_ofTheSameRegionTwiceIsOneEntryAndOneNotification) {
  const ChipMemory::Ptr table = region(0x1000);
  request->chipMemoryIs(table);
  request->chipMemoryIs(table);
  EXPECT_EQ(request->chipMemorys(), 1u);
  EXPECT_THAT(observer->keys, ElementsAre(0x1000));
}

TEST_F(ChipReadRequestTest, chipMemoryIs_ofAnotherRegionAtTheAddressReplacesAndNotifiesOnceMore) {
  const ChipMemory::Ptr first = region(0x1000), second = region(0x1000);
  request->chipMemoryIs(first);
  request->chipMemoryIs(second);
  EXPECT_EQ(request->chipMemory(ChipAddress(0x1000)), second);
  EXPECT_EQ(request->chipMemorys(), 1u);
  EXPECT_THAT(observer->keys, ElementsAre(0x1000, 0x1000));
  EXPECT_EQ(first->references(), 1u);
}

TEST_F(ChipReadRequestTest, chipMemoryIs_ofNullIsRefusedAndChangesNothing) {
  request->chipMemoryIs(region(0x1000));
  try {
    request->chipMemoryIs(nullptr);
    FAIL() << "nothing thrown";
  } catch (const Zint::RangeException& exception) {
    EXPECT_STREQ(exception.what(),
                 "null _chipMemory parameter to mutator for "
                 "Hardware::ChipReadRequest::chipMemory not allowed\"");
  }
  EXPECT_EQ(request->chipMemorys(), 1u);
  EXPECT_EQ(observer->keys.size(), 1u);
}

TEST_F(ChipReadRequestTest, newChipMemoryAndAMembersChipMemoryIs_ofNullAreRefused) {
  const auto cm = region(0x1000);
  request->chipMemoryIs(cm);
  const auto refused = [](const std::function<void()>& call) {
    try {
      call();
    } catch (const Zint::RangeException& exception) {
      return std::string(exception.what());
    }
    return std::string("nothing thrown");
  };
  const std::string text =
      "null _chipMemory parameter to mutator for Hardware::ChipReadRequest::chipMemory not "
      "allowed\"";
  EXPECT_EQ(refused([&] { request->newChipMemory(nullptr); }), text);
  EXPECT_EQ(refused([&] { (*request->chipMemoryIterator())->chipMemoryIs(nullptr); }), text);
  EXPECT_EQ(request->chipMemorys(), 1u);
  EXPECT_EQ(request->chipMemory(ChipAddress(0x1000)), cm);
}

TEST_F(ChipReadRequestTest, chipMemoryDel_returnsTheRegionAndNotifies) {
  const ChipMemory::Ptr table = region(0x1000);
  request->chipMemoryIs(table);
  EXPECT_EQ(request->chipMemoryDel(ChipAddress(0x1000)), table);
  EXPECT_EQ(request->chipMemorys(), 0u);
  EXPECT_EQ(request->chipMemory(ChipAddress(0x1000)), nullptr);
  EXPECT_THAT(observer->keys, ElementsAre(0x1000, 0x1000));
}

TEST_F(ChipReadRequestTest, chipMemoryDel_ofAnAbsentAddressIsNullAndNotifiesNobody) {
  request->chipMemoryIs(region(0x1000));
  EXPECT_EQ(request->chipMemoryDel(ChipAddress(0x1004)), nullptr);
  EXPECT_EQ(request->chipMemoryDel(ChipAddress(1, 0x1000)), nullptr);
  EXPECT_EQ(observer->keys.size(), 1u);
}

TEST_F(ChipReadRequestTest, chipMemoryDelAll_empties) {
  for (U64 address : {0x1000, 0x2000, 0x3000}) request->chipMemoryIs(region(address));
  request->chipMemoryDelAll();
  EXPECT_EQ(request->chipMemorys(), 0u);
  EXPECT_FALSE(request->chipMemoryIterator());
}

TEST_F(ChipReadRequestTest, iteration_followsTheReversedLowWordsAlone) {
  for (U64 address : {U64{0x3}, U64{0x2}, U64{0x1}, U64{0x700000004}, U64{0x80000000}}) {
    request->chipMemoryIs(region(address));
  }
  std::vector<U64> order;
  for (auto it = request->chipMemoryIterator(); it; ++it) {
    order.push_back(it->chipMemory()->address().value());
  }
  EXPECT_THAT(order, ElementsAre(0x80000000, 0x700000004, 0x2, 0x1, 0x3));
}

TEST_F(ChipReadRequestTest, iteration_doesNotDependOnHowManyRegionsThereWere) {
  for (U64 address = 0; address < 1000; ++address) request->chipMemoryIs(region(address));
  for (U64 address = 4; address < 1000; ++address) request->chipMemoryDel(ChipAddress(address));
  std::vector<U64> order;
  for (auto it = request->chipMemoryIterator(); it; ++it) order.push_back(it->fwkKey().value());
  EXPECT_THAT(order, ElementsAre(0, 2, 1, 3));
}

TEST_F(ChipReadRequestTest, aRegionMayBeInTwoRequests) {
  const ChipMemory::Ptr table = region(0x1000);
  const ChipReadRequest::Ptr other = chipReadRequestFactory("other");
  request->chipMemoryIs(table);
  other->chipMemoryIs(table);
  request->chipMemoryDelAll();
  EXPECT_EQ(other->chipMemory(ChipAddress(0x1000)), table);
}

TEST_F(ChipReadRequestTest, regionsAreHeldUntilTheRequestEnds) {
  const ChipMemory::Ptr table = region(0x1000);
  request->chipMemoryIs(table);
  EXPECT_EQ(table->references(), 2u);
  observer = nullptr;
  request = nullptr;
  EXPECT_EQ(table->references(), 1u);
}

// --- Notifiees ---------------------------------------------------------------------------------

class PlainObserver : public ChipReadRequest::NotifieeConst {
 public:
  explicit PlainObserver(const ChipReadRequest::Ptr& request)
      : NotifieeConst(nullptr, Zint::Ptr<const ChipReadRequest>(request)) {}
  using NotifieeConst::onChipMemory;
  void onChipMemory() override { ++calls; }
  int calls = 0;
};

TEST_F(ChipReadRequestTest, notifiee_hearsTheImmediateFormAndTheOneWithoutKey) {
  const auto plain = Zint::makePtr<PlainObserver>(request);
  request->chipMemoryIs(region(0x1000));
  EXPECT_EQ(plain->calls, 1);
  EXPECT_EQ(observer->immediate, 1);
}

TEST_F(ChipReadRequestTest, notifiee_thatUnregistersDuringTheWalkIsNotCalled) {
  const auto second = Zint::makePtr<RequestObserver>(request);
  observer->also = [&] { second->isRegisteredNotifieeIs(false); };
  request->chipMemoryIs(region(0x1000));
  EXPECT_EQ(observer->keys.size(), 1u);
  EXPECT_THAT(second->keys, IsEmpty());
}

TEST_F(ChipReadRequestTest, notifiee_mayUnregisterItselfInItsCall) {
  const auto second = Zint::makePtr<RequestObserver>(request);
  observer->also = [&] { observer->isRegisteredNotifieeIs(false); };
  request->chipMemoryIs(region(0x1000));
  request->chipMemoryIs(region(0x2000));
  EXPECT_THAT(observer->keys, ElementsAre(0x1000));
  EXPECT_THAT(second->keys, ElementsAre(0x1000, 0x2000));
}

TEST_F(ChipReadRequestTest, notifiee_registeredDuringTheWalkWaitsForTheNextChange) {
  Zint::Ptr<RequestObserver> late;
  observer->also = [&] {
    if (late == nullptr) late = Zint::makePtr<RequestObserver>(request);
  };
  request->chipMemoryIs(region(0x1000));
  EXPECT_THAT(late->keys, IsEmpty());
  request->chipMemoryIs(region(0x2000));
  EXPECT_THAT(late->keys, ElementsAre(0x2000));
}

TEST_F(ChipReadRequestTest, notifiee_mayDropTheRequestItself) {
  observer->isNonReferencingIs(true);
  observer->also = [&] { request = nullptr; };
  request.ptr()->chipMemoryIs(region(0x1000));
  EXPECT_EQ(request, nullptr);
  EXPECT_EQ(observer->notifier(), nullptr);
}

TEST_F(ChipReadRequestTest, chipMemoryDelAll_survivesANotifieeThatRemovesAndDrops) {
  for (U64 address : {0x1000, 0x2000, 0x3000}) request->chipMemoryIs(region(address));
  observer->isNonReferencingIs(true);
  observer->also = [&] {
    if (request == nullptr) return;
    request->chipMemoryDel(ChipAddress(0x2000));
    request = nullptr;
  };
  request.ptr()->chipMemoryDelAll();
  EXPECT_EQ(observer->notifier(), nullptr);
}

TEST_F(ChipReadRequestTest, notifiee_thatThrowsKeepsNobodyElseFromBeingTold) {
  Support::TraceCapture trace(0);
  const auto second = Zint::makePtr<RequestObserver>(request);
  observer->also = [] { throw std::runtime_error("handler"); };
  request->chipMemoryIs(region(0x1000));
  EXPECT_THAT(second->keys, ElementsAre(0x1000));
  ASSERT_EQ(trace.full.size(), 1u);
  EXPECT_EQ(trace.full[0].handle, "Zint");
}

// --- Commands and answers ----------------------------------------------------------------------

TEST_F(ChipReadRequestTest, stateIs_announcesEveryCommandAndCountsIt) {
  for (auto state : {Zint::Request::start_, Zint::Request::start_, Zint::Request::stop_}) {
    request->stateIs(state);
  }
  EXPECT_THAT(observer->states, ElementsAre(1, 1, 2));
  EXPECT_EQ(request->generation(), 3u);
}

TEST_F(ChipReadRequestTest, statusIs_announcesEveryAnswer) {
  request->statusIs(Zint::Request::done_);
  request->statusIs(Zint::Request::done_);
  EXPECT_THAT(observer->statuses, ElementsAre(3, 3));
  EXPECT_EQ(request->generation(), 0u);
}

TEST_F(ChipReadRequestTest, stateIs_neverResetsTheStatus) {
  request->statusIs(Zint::Request::done_);
  request->stateIs(Zint::Request::start_);
  request->stateIs(Zint::Request::stop_);
  EXPECT_EQ(request->status(), 3);
  EXPECT_THAT(observer->statuses, ElementsAre(3));
}

TEST_F(ChipReadRequestTest, handleState_doesNothing) {
  request->chipMemoryIs(region(0x1000));
  request->handleState();
  EXPECT_EQ(request->state(), 0);
  EXPECT_EQ(request->chipMemorys(), 1u);
  EXPECT_THAT(observer->states, IsEmpty());
}

}  // namespace
}  // namespace Hardware
