// That accesses take the fast path, shown from outside. The program defines two of the base's
// operations itself: the dynamic linker gives the library these, since it reaches them by name
// (cmake/shared-addresses.txt), and so does the linker where the library is static. The reference
// calls them for each entry, the fast path never does.
#include <Hardware/HardwareShadow.h>
#include <Zint/Trace.h>

#include <cstdio>
#include <cstring>

namespace {

unsigned calls = 0;

}  // namespace

bool Hardware::ChipHam::doWriteToCache(U8* destination, U8* source, U32 bytes) {
  ++calls;
  std::memmove(destination, source, bytes);
  return true;
}

bool Hardware::ChipHam::doReadFromCache(U8* destination, U8* source, U32 bytes) const {
  ++calls;
  std::memmove(destination, source, bytes);
  return true;
}

namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

// A derived access method that inherits both.
class ClientHam : public Hardware::ChipHam {
 public:
  ClientHam() : ChipHam("client") {}
  void doRead(const ChipAddress&, U8*, U32, U32) override {}
  void doWrite(const ChipAddress&, U8*, U32, U32) override {}
};

// So is its region: the counters of hits are inherited.
class ClientRegion : public ChipMemory {
 public:
  using ChipMemory::ChipMemory;
};

class NoSink : public Zint::TraceSink {
 public:
  void traceLine(const Zint::TraceLine&) override {}
};

constexpr U32 entries = 64;
U8 data[4 * entries];

struct Access {
  const char* name;
  void (*run)(HardwareShadow&, const ChipMemory::Ptr&);
};

// Each writes another value than the one before, so that none is skipped unless it says so.
U32 value = 0;

const Access accesses[] = {
    {"write of a word",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) {
       s.shadowWriteU32(cm->address(), ++value);
     }},
    {"write of a word to another region than the last one",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) {
       s.findChipMemory(ChipAddress(0x8000), 4);
       s.shadowWriteU32(cm->address(), ++value);
     }},
    {"write of bytes by address",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) {
       ++data[0];
       s.shadowWriteHack(cm->address(), data, 4);
     }},
    {"write of an entry",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) {
       ++data[0];
       s.shadowWriteAndCompareWithCache(cm, 0, data, 4);
     }},
    {"write of many entries",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) {
       for (U8& byte : data) ++byte;
       s.shadowWriteAndCompareWithCache(cm, 0, data, sizeof data);
     }},
    {"read of a word",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) { s.readFromCacheU32(cm->address()); }},
    {"read of a word from another region than the last one",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) {
       s.findChipMemory(ChipAddress(0x8000), 4);
       s.readFromCacheU32(cm->address());
     }},
    {"read of bytes by address",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) {
       s.readFromCacheHack(cm->address(), data, 4);
     }},
    {"read of an entry",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) { s.readFromCache(cm, 0, data, 4); }},
    {"read of many entries",
     [](HardwareShadow& s, const ChipMemory::Ptr& cm) {
       s.readFromCache(cm, 0, data, sizeof data);
     }},
};

unsigned callsOf(const Access& access, HardwareShadow& shadow, const ChipMemory::Ptr& region) {
  calls = 0;
  access.run(shadow, region);
  return calls;
}

}  // namespace

int main() {
  NoSink sink;
  Zint::traceSinkIs(&sink);
  const auto clock = Zint::manualClockFactory("clock");
  const auto activity = Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
  const HardwareShadow::Ptr shadow = Hardware::hardwareShadowFactory(activity, clock);
  const Hardware::ChipHam::Ptr ham = Zint::makePtr<ClientHam>();
  const ChipMemory::Ptr regions[] = {
      Hardware::chipMemoryFactory("made", ChipAddress(0x1000), entries, 4, 4, ham),
      Zint::makePtr<ClientRegion>("derived", ChipAddress(0x2000), entries, 4u, 4u, ham),
      Hardware::chipMemoryFactory("other", ChipAddress(0x8000), entries, 4, 4, ham)};
  for (const ChipMemory::Ptr& region : regions) {
    region->shadowEnabledIs(true);
    region->readFromCacheIs(true);
    region->doClear();
    shadow->chipMemoryIs(region);
  }
  shadow->stateIs(HardwareShadow::configured());
  int failures = 0;
  for (const ChipMemory::Ptr& region : {regions[0], regions[1]}) {
    for (const Access& access : accesses) {
      if (const unsigned fast = callsOf(access, *shadow, region); fast != 0) {
        std::printf("%s, region %s: not on the fast path, %u calls\n", access.name,
                    region->name().c_str(), fast);
        ++failures;
      }
      Zint::TraceHandle::find("Umbra")->levelUpToIs(7);
      const unsigned reference = callsOf(access, *shadow, region);
      Zint::TraceHandle::find("Umbra")->levelUpToIs(0);
      if (reference == 0) {
        std::printf("%s, region %s: the reference called nothing\n", access.name,
                    region->name().c_str());
        ++failures;
      }
    }
  }
  Zint::traceSinkIs(nullptr);
  return failures == 0 ? 0 : 1;
}
