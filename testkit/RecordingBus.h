// A bus that records another one: see Recording.h. Needs Umbra::Platform where it is included.
//
//   auto bus = Zint::makePtr<TestKit::RecordingBus>(
//       pci, std::make_unique<TestKit::RecordingWriter>("session.txt", "asic", names, clock));
//
// Each register of a run is a line. Values are those of the machine's byte order. A run that fails
// is recorded as its first register.
#pragma once

#include <platform/bus/RegisterBus.h>
#include <testkit/Recording.h>

#include <cstring>

namespace TestKit {

class RecordingBus : public Platform::RegisterBus {
 public:
  RecordingBus(Platform::RegisterBus::Ptr recorded, std::unique_ptr<RecordingWriter> writer)
      : recorded_(std::move(recorded)), writer_(std::move(writer)) {}

  void read(const Platform::RegisterRun& run, U8* bytes) override {
    each(Kind::read, run, bytes, [&] { recorded_->read(run, bytes); });
  }
  void write(const Platform::RegisterRun& run, const U8* bytes) override {
    each(Kind::write, run, bytes, [&] { recorded_->write(run, bytes); });
  }
  void reopen() override { recorded_->reopen(); }
  Zint::String8 identity() const override { return recorded_->identity(); }
  Zint::String8 name() const override { return recorded_->name(); }

 protected:
  ~RecordingBus() override = default;

 private:
  template <class Acts>
  void each(Kind kind, const Platform::RegisterRun& run, const U8* bytes, Acts acts) {
    const Ptr held(this);
    for (U32 i = 0; i < run.count; ++i) {
      const auto takeValue = [&](U64& value) {
        value = 0;
        std::memcpy(&value, bytes + std::size_t{run.width} * i, run.width);
      };
      Access access{kind, run.address + run.width * i, run.width, 0};
      if (kind == Kind::write) takeValue(access.value);
      writer_->record(access, [&](U64& value) {
        if (i == 0) acts();
        if (kind == Kind::read) takeValue(value);
      });
    }
  }

  const Platform::RegisterBus::Ptr recorded_;
  const std::unique_ptr<RecordingWriter> writer_;
};

}  // namespace TestKit
