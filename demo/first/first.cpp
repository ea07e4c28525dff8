#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>
#include <platform/MemoryRegisters.h>

#include <iostream>

int main() {
  auto clock = Zint::monotonicClockFactory("clock");
  auto activity = Zint::activityFactory("main", clock);
  // 4,096 bytes of registers in memory stand in for a chip; see platform/ for real ones.
  auto chip = Platform::memoryRegistersFactory(0x1000, 4096);
  auto ham = Hardware::genericChipHamFactory("chip0", chip);
  // Register a region: 1,024 entries of 4 bytes, 4 apart, from address 0x1000 on.
  auto table =
      Hardware::chipMemoryFactory("mac", Hardware::ChipAddress(0, 0x1000), 1024, 4, 4, ham);
  table->shadowEnabledIs(true);
  table->readFromCacheIs(true);
  table->auditEnabledIs(true);
  // Every entry has a value to defend: one that was never written is adopted as the chip has it.
  table->doClearRange(0, table->entries() - 1, true);
  auto shadow = Hardware::hardwareShadowFactory(activity, clock);
  shadow->minIntervalBetweenAuditsIs(1.0);  // a pass begins at most once a second
  shadow->chipMemoryIs(table);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  // Reads 256 entries of the audited regions every millisecond.
  auto reader =
      Hardware::chipReaderFactory(activity, shadow->auditReadRequest(), clock, 256, 0.001);
  // Write: offered to the shadow first. Read: served without the chip.
  U32 value = 0xcafe;
  U8* data = reinterpret_cast<U8*>(&value);
  if (!shadow->shadowWriteAndCompareWithCache(table, 7, data, 4)) {
    ham->doWrite(table->entryAddress(7), data, 4, 1);
  }
  std::cout << std::hex << shadow->readFromCacheU32(table->entryAddress(7)) << "\n";
  // Audit: the next pass finds the damage and repairs it.
  chip->registerAt(0x101c) = 0xbad;
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  while (table->registersFixed() == 0) activity->runUntil(Zint::now() + 0.01);
  std::cout << chip->registerAt(0x101c) << " after " << table->registersFixed() << " repair\n";
}
