// After the first, a pass of the audit allocates nothing, whether or not entries differ, though
// each is traced at level 0.
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Trace.h>

#include <gtest/gtest.h>
#include <support/ManualLoop.h>

#include "Allocations.h"

namespace Hardware {
namespace {

// The chip holds the same byte everywhere.
class ByteHam : public ChipHam {
 public:
  using ChipHam::ChipHam;
  void doRead(const ChipAddress&, U8* buffer, U32 entrySize, U32 entries) override {
    std::fill_n(buffer, entrySize * entries, byte);
  }
  void doWrite(const ChipAddress&, U8*, U32, U32) override { ++writes; }

  U8 byte = 0;
  U32 writes = 0;
};

class CountingSink : public Zint::TraceSink {
 public:
  void traceLine(const Zint::TraceLine&) override { ++lines; }
  U32 lines = 0;
};

class PassAllocationsTest : public testing::Test {
 protected:
  PassAllocationsTest() : before(Zint::traceSinkIs(&sink)) {}
  ~PassAllocationsTest() override { Zint::traceSinkIs(before); }

  void audit(U32 regions, U32 entries, U32 entrySize) {
    for (U32 i = 0; i < regions; ++i) {
      const ChipMemory::Ptr region =
          chipMemoryFactory("a region whose name is long", ChipAddress(0, i * 0x100000), entries,
                            entrySize, entrySize, ham);
      region->shadowEnabledIs(true);
      region->auditEnabledIs(true);
      region->doClear();
      shadow->chipMemoryIs(region);
    }
    shadow->stateIs(HardwareShadow::configured());
    reader = chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock, 16, 0.0);
    shadow->stateIs(HardwareShadow::auditing());
    pass();
  }
  void pass() {
    const U32 audits = shadow->audits();
    while (shadow->audits() == audits) loop.activity->turn();
  }

  CountingSink sink;
  Zint::TraceSink* before;
  Support::ManualLoop loop;
  Zint::Ptr<ByteHam> ham = Zint::makePtr<ByteHam>("an access method whose name is long");
  HardwareShadow::Ptr shadow = hardwareShadowFactory(loop.activity, loop.clock);
  ChipReader::Ptr reader;
};

TEST_F(PassAllocationsTest, passWithoutADifferenceAllocatesNothing) {
  audit(5, 40, 4);
  sink.lines = 0;
  EXPECT_EQ(Support::allocationsOf([this] { pass(); }), 0u);
  EXPECT_GT(sink.lines, 2u);
}

TEST_F(PassAllocationsTest, differencesAllocateNothing) {
  for (const U32 entrySize : {1u, 4u, 100u, 4096u}) {
    SCOPED_TRACE(entrySize);
    shadow->stateIs(HardwareShadow::unconfigured());
    shadow->chipMemoryDelAll();
    reader = nullptr;
    ham->byte = 0;
    audit(2, 3, entrySize);
    ham->writes = 0;
    ham->byte = 7;
    sink.lines = 0;
    EXPECT_EQ(Support::allocationsOf([this] { pass(); }), 0u);
    EXPECT_EQ(ham->writes, 6u);
    EXPECT_GE(sink.lines, 12u) << "two lines for each";
  }
}

// A member of the queue that a client holds keeps its region.
TEST_F(PassAllocationsTest, memberThatIsHeldIsNotUsedAgain) {
  audit(2, 40, 4);
  loop.activity->turn();
  ASSERT_EQ(reader->chipMemorys(), 1u);
  const Zint::Ptr<ChipReader::ZintChipMemory> held(reader->chipMemory().head());
  const ChipMemory::Ptr region = held->chipMemory();
  pass();
  pass();
  EXPECT_EQ(held->chipMemory(), region);
}

// What is kept for the next pass keeps no region: the end of the reader releases none.
TEST_F(PassAllocationsTest, keepsNoRegion) {
  audit(2, 40, 4);
  const ChipMemory::Ptr region = shadow->chipMemory(ChipAddress(0, 0));
  const std::size_t references = region->references();
  reader = nullptr;
  EXPECT_EQ(region->references(), references);
}

}  // namespace
}  // namespace Hardware
