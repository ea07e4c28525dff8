// Entries that the software never writes, of a chip that starts with zeros. The audit cannot tell a
// fault in one from a value that only the chip knows: it adopts the fault, and reads are served
// with it. Deliberate, because clients rely on the adoption. A clear of the entries protects them.
#include "support/ShadowTest.h"

namespace {

struct NeverWrittenEntries : Support::ShadowTest {
  NeverWrittenEntries() {
    mac->readFromCacheIs(true);
    configure({mac});
  }
  // One pass over what the chip holds now.
  void pass() {
    shadow->stateIs(HardwareShadow::auditing());
    shadow->doStartAudit();
    ham->doRead(mac->address(), mac->hardware()->data(), 4, mac->entries());
    shadow->auditReadRequest()->statusIs(ChipReadRequest::done_);
    shadow->stateIs(HardwareShadow::idle());
  }
  U32 onChip(U32 entry) { return chip->registers[0x1000 + 4 * entry]; }
  void flip(U32 entry) { chip->registers[0x1000 + 4 * entry] ^= 0x10; }
  bool isServed(U32 entry) {
    return shadow->readFromCache(mac, entry, reinterpret_cast<U8*>(&value), 4);
  }

  ChipMemory::Ptr mac = audited("mac", 0x1000, 16);
  U32 value = 0;
};

TEST_F(NeverWrittenEntries, aZeroThatFlipsIsAdoptedAndServed) {
  pass();
  EXPECT_FALSE(isServed(3)) << "equal to the empty shadow: nothing is learned";
  flip(3);
  pass();
  EXPECT_EQ(onChip(3), 0x10u) << "not repaired";
  EXPECT_EQ(mac->registersFixed(), 0u);
  ASSERT_TRUE(isServed(3));
  EXPECT_EQ(value, 0x10u);
}

TEST_F(NeverWrittenEntries, whatWasAdoptedIsDefendedFromThenOn) {
  flip(3);
  pass();
  flip(3);
  pass();
  EXPECT_EQ(onChip(3), 0x10u) << "the first value counts, though it was the fault";
  EXPECT_EQ(mac->registersFixed(), 1u);
}

TEST_F(NeverWrittenEntries, doClearRange_ofAllEntriesProtectsTheZeros) {
  mac->doClearRange(0, mac->entries() - 1, true);
  for (const U32 entry : {0u, 3u, 15u}) flip(entry);
  pass();
  for (const U32 entry : {0u, 3u, 15u}) {
    EXPECT_EQ(onChip(entry), 0u) << entry;
    ASSERT_TRUE(isServed(entry));
    EXPECT_EQ(value, 0u);
  }
  EXPECT_EQ(mac->registersFixed(), 3u);
}

}  // namespace
