#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>

#include <iostream>
#include <map>

struct Registers : Fru::HamImpl {  // stands in for a chip; see platform/ for real ones
  void read(U32 address, U32* value) override { *value = held[address]; }
  void write(U32 address, U32 value) override { held[address] = value; }
  std::map<U32, U32> held;
};

int main() {
  auto clock = Zint::monotonicClockFactory("clock");
  auto activity = Zint::activityFactory("main", clock);
  auto chip = Zint::makePtr<Registers>();
  auto ham = Hardware::genericChipHamFactory("chip0", chip);
  // Register a region: 1,024 entries of 4 bytes, 4 apart, from address 0x1000 on.
  auto table =
      Hardware::chipMemoryFactory("mac", Hardware::ChipAddress(0, 0x1000), 1024, 4, 4, ham);
  table->shadowEnabledIs(true);
  table->readFromCacheIs(true);
  table->auditEnabledIs(true);
  auto shadow = Hardware::hardwareShadowFactory(activity, clock);
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
  chip->held[0x101c] = 0xbad;
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  activity->runUntil(Zint::now() + 0.1);
  std::cout << chip->held[0x101c] << " after " << table->registersFixed() << " repair\n";
}
