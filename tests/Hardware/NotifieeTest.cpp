// Observers that are not constant: each observed class has one.
#include <Hardware/ChipReader.h>

#include "support/ShadowTest.h"

namespace {

struct Notifiee : Support::ShadowTest {};

TEST_F(Notifiee, mayChangeWhatItObserves) {
  struct OfReader : Hardware::ChipReader::Notifiee {
    using Notifiee::Notifiee;
    void onReadInterval() override { notifier()->maxEntriesPerReadIs(3); }
  };
  struct OfRequest : ChipReadRequest::Notifiee {
    using Notifiee::Notifiee;
    void onStatus() override { notifier()->stateIs(Zint::Request::stop_); }
  };
  struct OfShadow : HardwareShadow::Notifiee {
    using Notifiee::Notifiee;
    void onOverrideHardware() override { notifier()->auditsIs(9); }
  };
  struct OfRegion : ChipMemory::Notifiee {
    using Notifiee::Notifiee;
    void onShadowEnabled() override { notifier()->entriesIs(9); }
  };
  struct OfAccessMethod : Hardware::ChipHam::Notifiee {
    using Notifiee::Notifiee;
    void onIsNondestructing() override { last = notifier(); }
    Hardware::ChipHam* last = nullptr;
  };
  const ChipReadRequest::Ptr request = Hardware::chipReadRequestFactory("request");
  const auto reader = Hardware::chipReaderFactory(loop.activity, request, loop.clock, 10, 1);
  const auto ofReader = Zint::makePtr<OfReader>(loop.activity, reader);
  reader->readIntervalIs(7);
  EXPECT_EQ(reader->maxEntriesPerRead(), 3u);
  const auto ofRequest = Zint::makePtr<OfRequest>(loop.activity, request);
  request->statusIs(Zint::Request::done_);
  EXPECT_EQ(request->state(), Zint::Request::stop_);
  const auto ofShadow = Zint::makePtr<OfShadow>(loop.activity, shadow);
  shadow->overrideHardwareIs(true);
  EXPECT_EQ(shadow->audits(), 9u);
  const ChipMemory::Ptr mac = region("mac", 0x1000, 4);
  const auto ofRegion = Zint::makePtr<OfRegion>(loop.activity, mac);
  mac->shadowEnabledIs(true);
  EXPECT_EQ(mac->entries(), 9u);
  auto own = Zint::makePtr<Support::RecordingHam>("own");
  Hardware::ChipHam* const address = own.ptr();
  const auto ofAccessMethod =
      Zint::makePtr<OfAccessMethod>(loop.activity, Hardware::ChipHam::Ptr(own));
  ofAccessMethod->isNonReferencingIs(true);
  Hardware::ChipHam::Ptr(std::move(own)) = nullptr;
  EXPECT_EQ(ofAccessMethod->last, address);
}

}  // namespace
