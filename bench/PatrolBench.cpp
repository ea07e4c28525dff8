// Whole passes of the patrol against those of the plain audit: the same entries, access method,
// slices and damages.
#include <Driver/AuditedShadow.h>

#include <algorithm>
#include <cstring>

#include "Bench.h"
#include "PassStand.h"

namespace Bench {
namespace {

constexpr U32 patrolledEntries = 1024 * 1024;
constexpr U32 patrolSlice = 4096;

// A chip that is memory, read in one copy.
class MemoryChip : public Hardware::ChipHam {
 public:
  MemoryChip() : ChipHam("memory"), bytes(std::size_t{4} * patrolledEntries) {}
  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    std::memcpy(buffer, bytes.data() + address.chipMemoryOffset(), entrySize * entries);
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    std::memcpy(bytes.data() + address.chipMemoryOffset(), buffer, entrySize * entries);
  }

  std::vector<U8> bytes;
};

struct PlainPass : PassStand {
  PlainPass() : PlainPass(Zint::makePtr<MemoryChip>()) {}

  const Zint::Ptr<MemoryChip> chip;

 private:
  explicit PlainPass(const Zint::Ptr<MemoryChip>& memory)
      : PassStand(patrolledEntries, patrolSlice, [&] { return Hardware::ChipHam::Ptr(memory); }),
        chip(memory) {}
};

struct PatrolPass {
  PatrolPass() {
    region->shadowEnabledIs(true);
    region->auditEnabledIs(true);
    shadow->chipMemoryIs(region);
    shadow->maxEntriesPerSliceIs(patrolSlice);
    shadow->sliceIntervalIs(0);
    shadow->stateIs(Hardware::HardwareShadow::configured());
    region->doClear();
    shadow->stateIs(Hardware::HardwareShadow::auditing());
  }
  void pass() {
    const U32 audits = shadow->audits();
    while (shadow->audits() == audits) activity->turn();
  }

  Zint::Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("clock");
  Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  Driver::AuditedShadow::Ptr shadow = Driver::auditedShadowFactory(activity, clock);
  Zint::Ptr<MemoryChip> chip = Zint::makePtr<MemoryChip>();
  Hardware::ChipMemory::Ptr region =
      Hardware::chipMemoryFactory("region", Hardware::ChipAddress(), patrolledEntries, 4, 4, chip);
};

// One pass an iteration; what `prepare` does before it is not measured.
template <class Stand>
Body passes(std::function<Stand&()> stand, std::function<void(Hardware::ChipMemory&, U8*)> prepare,
            U32 repairs) {
  return [stand, prepare, repairs](benchmark::State& state) {
    Stand& s = stand();
    s.pass();
    U32 fixed = s.region->registersFixed();
    for (auto _ : state) {
      state.PauseTiming();
      if (prepare) prepare(*s.region, s.chip->bytes.data());
      fixed += repairs;
      state.ResumeTiming();
      s.pass();
    }
    require(s.region->registersFixed() == fixed, "what differed was repaired");
  };
}

void comparePasses(const std::string& what, std::function<void(Hardware::ChipMemory&, U8*)> prepare,
                   U32 repairs) {
  const std::string comparison = "row31/pass over 1,048,576 entries, " + what;
  const auto patrol = shared<PatrolPass>();
  const auto plain = shared<PlainPass>();
  side(comparison, "ours", passes<PatrolPass>(patrol, prepare, repairs));
  side(comparison, "plain audit", passes<PlainPass>(plain, prepare, repairs));
}

}  // namespace

void registerPatrolBenches() {
  comparePasses("equal", nullptr, 0);
  comparePasses(
      "1 % differ",
      [](Hardware::ChipMemory&, U8* chip) {
        for (U32 e = 0; e < patrolledEntries; e += 100) chip[std::size_t{4} * e] ^= 1;
      },
      (patrolledEntries + 99) / 100);
  comparePasses(
      "all learned",
      [](Hardware::ChipMemory& region, U8* chip) {
        std::memset(region.initialized()->data(), 0, region.initialized()->size());
        std::memset(region.shadow()->data(), 0, region.shadow()->size());
        std::memset(chip, 1, std::size_t{4} * patrolledEntries);
      },
      0);
}

}  // namespace Bench
