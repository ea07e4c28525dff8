// Whether the library sees that a client's class inherits an operation. It compares slots of
// virtual tables, so an inherited operation must have one address in the client's tables and in the
// library's. Built with and without position-independent code: without it, a client's table holds
// the address of the client's own PLT entry, and where the library's does not, every access takes
// the reference, 15 times slower.
#include <Hardware/GenericChipHam.h>
#include <Hardware/OverrideCheck.h>

#include <cstdio>

namespace {

using Hardware::ChipHam;
using Hardware::ChipMemory;
using Hardware::slotFunction;

class ClientHam : public ChipHam {
 public:
  ClientHam() : ChipHam("client") {}
  void doRead(const Hardware::ChipAddress&, U8*, U32, U32) override {}
  void doWrite(const Hardware::ChipAddress&, U8*, U32, U32) override {}
};

class OverridingHam : public ClientHam {
 public:
  bool doCompare(U8*, U8*, U32) const override { return true; }
  bool doWriteToCache(U8*, U8*, U32) override { return true; }
  bool doReadFromCache(U8*, U8*, U32) const override { return true; }
};

class ClientRegion : public ChipMemory {
 public:
  using ChipMemory::ChipMemory;
  void lastFixTimeIs(Zint::Seconds time) override { ChipMemory::lastFixTimeIs(time); }
};

class CountingRegion : public ClientRegion {
 public:
  using ClientRegion::ClientRegion;
  void readCacheHitsInc(const U64&) const override {}
  void readCacheHitsIs(const U64&) const override {}
  void writeCacheHitsInc(const U64&) override {}
  void writeCacheHitsIs(const U64&) override {}
};

int failures = 0;

template <class Object, class Operation>
void expect(const char* operation, const Object& madeByLibrary, const Object& inheriting,
            const Object& overriding, Operation slot) {
  const void* library = slotFunction(madeByLibrary, slot);
  if (slotFunction(inheriting, slot) != library) {
    std::printf("%s: inherited, but at another address\n", operation);
    ++failures;
  }
  if (slotFunction(overriding, slot) == library) {
    std::printf("%s: overridden, but at the same address\n", operation);
    ++failures;
  }
}

}  // namespace

int main() {
  const ChipHam::Ptr generic = Hardware::genericChipHamFactory("generic", nullptr);
  const ChipHam::Ptr client = Zint::makePtr<ClientHam>();
  const ChipHam::Ptr overriding = Zint::makePtr<OverridingHam>();
  expect("doCompare", *generic, *client, *overriding, &ChipHam::doCompare);
  expect("doWriteToCache", *generic, *client, *overriding, &ChipHam::doWriteToCache);
  expect("doReadFromCache", *generic, *client, *overriding, &ChipHam::doReadFromCache);

  const Hardware::ChipAddress address(0x1000);
  const ChipMemory::Ptr made = Hardware::chipMemoryFactory("made", address, 4, 4, 4, client);
  const ChipMemory::Ptr region = Zint::makePtr<ClientRegion>("client", address, 4u, 4u, 4u, client);
  const ChipMemory::Ptr counting =
      Zint::makePtr<CountingRegion>("counting", address, 4u, 4u, 4u, client);
  expect("readCacheHitsInc", *made, *region, *counting, &ChipMemory::readCacheHitsInc);
  expect("readCacheHitsIs", *made, *region, *counting, &ChipMemory::readCacheHitsIs);
  expect("writeCacheHitsInc", *made, *region, *counting, &ChipMemory::writeCacheHitsInc);
  expect("writeCacheHitsIs", *made, *region, *counting, &ChipMemory::writeCacheHitsIs);
  return failures == 0 ? 0 : 1;
}
