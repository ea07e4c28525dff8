// What the kit reports while this object is there; without it, failures are those of the test.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <testkit/FakeChip.h>
#include <testkit/GoogleTest.h>

#include <vector>

namespace TestKitTest {

using testing::HasSubstr;
using testing::Not;

class Captured {
 public:
  Captured() {
    before_ = TestKit::reporterIs([this](const TestKit::Report& r) { reports.push_back(r); });
  }
  ~Captured() { TestKit::reporterIs(before_); }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  // Of the only report.
  std::string text() const { return reports.size() == 1 ? reports[0].text : ""; }

  std::vector<TestKit::Report> reports;

 private:
  TestKit::Reporter before_;
};

class FakeChipTest : public testing::Test {
 protected:
  FakeChipTest() {
    chip->registerIs({.name = "ctrl",
                      .address = 0x0,
                      .resetValue = 3,
                      .fields = {{"enable", 0, 1}, {"speed", 1, 2}}});
    chip->registerIs({.name = "lock", .address = 0x4});
    chip->registerIs({.name = "mac", .address = 0x100, .count = 8});
    chip->registerIs(
        {.name = "drops", .address = 0x200, .count = 4, .clearOnRead = TestKit::allBits});
  }

  void write(const std::string& name, U32 value) { chip->doWrite(addressOf(name), 4, value); }
  U64 read(const std::string& name) { return chip->doRead(addressOf(name), 4); }
  static U64 addressOf(const std::string& name) {
    if (name == "ctrl") return 0x0;
    if (name == "lock") return 0x4;
    const U64 index = static_cast<U64>(name[name.find('[') + 1] - '0');
    return (name.starts_with("mac") ? 0x100 : 0x200) + 4 * index;
  }

  const TestKit::FakeChip::Ptr chip = TestKit::fakeChipFactory("asic");
};

}  // namespace TestKitTest
