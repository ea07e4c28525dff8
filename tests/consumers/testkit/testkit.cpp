// A test without a framework: an expectation that is met, and one that fails and says so.
#include <testkit/Failure.h>
#include <testkit/FakeChip.h>

#include <cstdio>

int main() {
  const auto chip = TestKit::fakeChipFactory("asic");
  chip->registerIs({.name = "ctrl", .address = 0x0, .resetValue = 3});
  {
    const auto expected = chip->expect(TestKit::read("ctrl").returns(7));
    if (chip->doRead(0x0, 4) != 7) return 1;
  }
  try {
    const auto expected = chip->expect(TestKit::write("ctrl", 1));
    chip->write(0x0, 2);
  } catch (const TestKit::Failure& failure) {
    std::puts(failure.what());
    return 0;
  }
  return 1;
}
