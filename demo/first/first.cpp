#include <Driver/ChipAccess.h>
#include <Hardware/GenericChipHam.h>
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
  // Every entry has a value to defend: what the first pass reads where nobody has written.
  auto policy = Driver::policyFactory(table);
  policy->unwrittenIs(Driver::Unwritten::baseline);
  auto shadow = Driver::auditedShadowFactory(activity, clock);
  shadow->minIntervalBetweenAuditsIs(0.1);  // a pass begins every 100 ms at most
  shadow->chipMemoryIs(table);
  shadow->policyIs(policy);
  shadow->stateIs(Hardware::HardwareShadow::configured());
  // Write: what differs reaches the chip. Read: served without the chip.
  auto mac = Driver::chipAccessFactory(shadow, table);
  mac->write<U32>(7, 0xcafe);
  std::cout << std::hex << mac->read<U32>(7) << "\n";
  // Audit: the pass after the damage finds it and repairs it.
  shadow->stateIs(Hardware::HardwareShadow::auditing());
  while (shadow->audits() == 0) activity->runUntil(Zint::now() + 0.01);
  chip->registerAt(0x101c) = 0xbad;
  while (table->registersFixed() == 0) activity->runUntil(Zint::now() + 0.01);
  std::cout << chip->registerAt(0x101c) << " after " << table->registersFixed() << " repair\n";
}
