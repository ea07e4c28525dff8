#include "ScenariosOfParts.h"

#include <Zint/GenericIf.h>

#include "Steps.h"

namespace Sweep {
namespace {

using namespace Steps;

// --- Registry ---

const ChipAddress spareAddress(1, 0x300);

bool makeSpare(World& w) {
  made(w.spare, [&] {
    return Hardware::chipMemoryFactory("the spare region, of another memory", spareAddress, 4, 4, 4,
                                       w.ham);
  });
  return w.shadowed(w.spare);
}
bool registerSpare(World& w) {
  w.shadow->chipMemoryIs(w.spare);
  return true;
}
bool writeSpare(World& w) {
  const ChipAddress address = spareAddress.plus(8);
  const ChipMemory::Ptr found = w.shadow->findChipMemory(address, 4);
  if (found == nullptr) return false;
  return w.written(found, found->entryIndexFromAddress(address), 0x5a5a);
}
bool removeSpare(World& w) {
  w.shadow->overrideHardwareIs(true);
  w.shadow->chipMemoryDel(spareAddress);
  w.shadow->overrideHardwareIs(false);
  return w.shadow->chipMemory(spareAddress) == nullptr;
}
bool overrideSpare(World& w) {
  w.spare->modeIs(ChipMemory::override());
  return true;
}
bool removeOverrideOnly(World& w) {
  w.shadow->removeOverrideOnlyChipMem();
  return w.shadow->chipMemory(spareAddress) == nullptr;
}
// Another region at the first one's address takes its place, and gives it back.
bool replaceRegion(World& w) {
  const ChipMemory::Ptr twin =
      Hardware::chipMemoryFactory("a twin of the first region", w.a->address(), 20, 4, 4, w.ham);
  w.shadow->chipMemoryIs(twin);
  w.shadow->chipMemoryIs(w.a);
  return w.shadow->chipMemory(w.a->address()) == w.a;
}
bool replaceRegionAgain(World& w) {
  w.shadow->chipMemoryIs(w.a);
  return replaceRegion(w);
}

// --- Directory ---

constexpr const char* tableName = "a table that is known by its long name";
constexpr const char* otherName = "another table with a name as long as that";

bool makeDirectory(World& w) {
  return made(w.directory,
              [] { return Hardware::chipMemoryBogonFactory("the directory of the sweep"); });
}
bool observeDirectory(World& w) {
  return made(w.directoryObserver,
              [&] { return Zint::makePtr<DirectoryObserver>(w.activity, w.directory); });
}
// Counts what really changed, also when the operation fails.
template <class Operation>
bool changing(World& w, Operation operation) {
  const auto counted = [&w, before = w.directory->chipMemorys()] {
    const U32 after = w.directory->chipMemorys();
    w.changes += after > before ? after - before : before - after;
  };
  try {
    operation();
  } catch (...) {
    counted();
    throw;
  }
  counted();
  return true;
}
bool tableIs(World& w, const char* name, U64 address, U32 entries, U32 stride) {
  return changing(
      w, [&] { w.directory->chipMemoryIs(name, ChipAddress(address), entries, 4, stride, w.ham); });
}
bool makeTables(World& w) {
  tableIs(w, tableName, 0x400, 12, 4);
  return tableIs(w, otherName, 0x500, 6, 4);
}
bool shadowTable(World& w) { return w.shadowed(w.directory->chipMemory(tableName)); }
bool growTable(World& w) {
  w.staleStore = true;
  tableIs(w, tableName, 0x400, 14, 4);
  w.staleStore = false;
  return true;
}
bool growTableAgain(World& w) {
  w.directory->chipMemory(tableName)->handleShadowStoreNeeded();
  return growTable(w);
}
bool refuseTable(World& w) {
  try {
    tableIs(w, tableName, 0x400, 14, 8);
  } catch (const Zint::NameInUseException&) {
    return true;
  }
  return false;
}
bool clearTable(World& w) {
  const ChipMemory::Ptr table = w.directory->chipMemory(tableName);
  table->doClear();
  std::memset(table->shadow()->data(), 0x31, 8);
  table->writeback(false);
  return true;
}
bool deleteOther(World& w) {
  return changing(w, [&] { w.directory->chipMemoryDel(otherName); });
}
bool deleteAll(World& w) {
  return changing(w, [&] { w.directory->chipMemoryDelAll(); });
}

// --- An own request and its reader ---

bool makeRequest(World& w) {
  return made(w.ownRequest,
              [] { return Hardware::chipReadRequestFactory("a request of one's own"); });
}
bool fillRequest(World& w) {
  w.chip->word(0x10) = 0x1111;
  for (const ChipMemory::Ptr& cm : {w.a, w.b}) w.ownRequest->chipMemoryIs(cm);
  return w.ownRequest->chipMemorys() == 2;
}
bool makeOwnReader(World& w) {
  return made(w.ownReader, [&] {
    return Hardware::chipReaderFactory(w.activity, w.ownRequest, w.clock, 11, 0.5);
  });
}
bool readRequest(World& w) {
  w.ownRequest->statusIs(ChipReadRequest::none_);
  w.ownRequest->stateIs(ChipReadRequest::start_);
  w.run([&] { return w.ownRequest->status() == ChipReadRequest::done_; });
  std::memcpy(&w.answer, w.a->hardware()->data() + 0x10, 4);
  return w.ownRequest->status() == ChipReadRequest::done_;
}
bool readRequestAgain(World& w) {
  w.ownRequest->stateIs(ChipReadRequest::stop_);
  return readRequest(w);
}
void expectReadingStopped(World& w, U32 access) {
  EXPECT_EQ(w.ownRequest->status(), ChipReadRequest::none_);
  EXPECT_EQ(w.activity->wakeTime(), Zint::never);
  ASSERT_NE(w.ownReader->currentChipMemory(), nullptr);
  // The chunk that failed is not counted.
  const U32 entries = w.ownReader->entriesRead();
  EXPECT_LT(entries, w.ownReader->currentChipMemory()->entries());
  EXPECT_LT(entries, access);
}
bool emptyRequest(World& w) {
  w.ownRequest->stateIs(ChipReadRequest::stop_);
  w.ownRequest->chipMemoryDelAll();
  return w.ownRequest->chipMemorys() == 0;
}

// --- Exchange of parts ---

bool makeOtherClock(World& w) {
  made(w.otherClock, [] { return Zint::manualClockFactory("another clock of the sweep"); });
  w.keepsClock = true;
  return true;
}
bool replaceClocks(World& w) {
  w.shadow->clockIs(w.otherClock);
  w.reader->clockIs(w.otherClock);
  w.shadow->clockIs(w.clock);
  w.reader->clockIs(w.clock);
  return true;
}
bool replaceRequests(World& w) {
  w.keepsRequest = true;
  makeRequest(w);
  w.shadow->auditReadRequestIs(w.ownRequest);
  w.reader->requestIs(w.ownRequest);
  return true;
}
bool dropClocks(World& w) {
  w.keepsClock = false;
  w.shadow->clockDel();
  w.shadow->clockIs(w.clock);
  w.reader->clockDel();
  w.reader->clockIs(w.clock);
  return true;
}

// --- By name ---

bool setAttributesByName(World& w) {
  Zint::GenericIf_ region{Zint::Ptr<Zint::PtrInterface>(w.a)};
  region.attributeIs("readFromCache", "false");
  region.attributeIs("indirectCmdRegAddr", "4711");
  return region.attribute("indirectCmdRegAddr") == "4711" && !region.attribute("chipHam").empty();
}
bool callOperationByName(World& w) {
  Zint::GenericIf_ region{Zint::Ptr<Zint::PtrInterface>(w.a)};
  region.call("writeback", {{"initializedOnly", "true"}});
  return true;
}
bool changeCollectionByName(World& w) {
  Zint::GenericIf_ shadow{Zint::Ptr<Zint::PtrInterface>(w.shadow)};
  return shadow.list("chipMemory").items().size() == 3;
}

}  // namespace

void scenariosOfParts(std::vector<Scenario>& scenarios) {
  const std::vector<Scenario> parts = {
      {"register and unregister", onWorld({{"spare region", makeSpare},
                                           {"unconfigured", unconfigured},
                                           {"register", registerSpare},
                                           {"replace", replaceRegion, replaceRegionAgain},
                                           {"configured", configured},
                                           {"write by address", writeSpare,
                                            [](World& w) {
                                              writeSpare(w);
                                              return rewrite<&World::spare, 2, 0x5a5a>(w);
                                            }},
                                           audits("pass"),
                                           {"idle", idle},
                                           {"unregister", removeSpare},
                                           {"unconfigured", unconfigured},
                                           {"configured", configured},
                                           {"unconfigured", unconfigured},
                                           {"register again", registerSpare},
                                           {"override", overrideSpare},
                                           {"configured", configured},
                                           {"remove", removeOverrideOnly},
                                           audits("pass"),
                                           {"idle", idle}})},
      {"directory", onWorld({{"directory", makeDirectory},
                             {"observer", observeDirectory},
                             {"tables", makeTables},
                             {"shadow", shadowTable},
                             {"re-instantiate", growTable, growTableAgain},
                             {"refusal", refuseTable},
                             {"clear", clearTable},
                             {"delete", deleteOther}})},
      {"directory, emptied", onWorld({{"directory", makeDirectory},
                                      {"observer", observeDirectory},
                                      {"tables", makeTables},
                                      {"shadow", shadowTable},
                                      {"clear", clearTable},
                                      {"delete all", deleteAll},
                                      {"tables again", makeTables}})},
      {"request and reader",
       onWorld(
           {{"request", makeRequest},
            {"members", fillRequest},
            {"reader", makeOwnReader},
            {"read", readRequest, readRequestAgain, Reach::handler, expectReadingStopped},
            {"empty", emptyRequest},
            {"members", fillRequest},
            {"read again", readRequest, readRequestAgain, Reach::handler, expectReadingStopped}})},
      {"exchange of parts", onWorld({{"other clock", makeOtherClock},
                                     {"replace clocks", replaceClocks},
                                     {"unconfigured", unconfigured},
                                     {"replace requests", replaceRequests},
                                     {"configured", configured},
                                     audits("pass"),
                                     {"idle", idle},
                                     {"drop clocks", dropClocks},
                                     audits("pass"),
                                     {"idle", idle}})},
      {"by name", onWorld({writes<a, 2, 91, 2>("write"),
                           {"attributes", setAttributesByName},
                           {"operation", callOperationByName},
                           {"collection", changeCollectionByName}})},
      {"teardown in the middle of a pass",
       onWorld({writes<a, 2, 95, 2>("write"),
                {"a slice",
                 [](World& w) {
                   w.shadow->stateIs(HardwareShadow::auditing());
                   for (U32 turns = 0; turns < 2; ++turns) {
                     if (w.activity->wakeTime() == Zint::never) return false;
                     w.activity->turn();
                   }
                   return w.reader->currentChipMemory() != nullptr && w.reader->entriesRead() != 0;
                 },
                 [](World& w) {
                   w.shadow->stateIs(HardwareShadow::idle());
                   w.shadow->stateIs(HardwareShadow::auditing());
                   w.activity->turn();
                   w.activity->turn();
                   return w.reader->currentChipMemory() != nullptr;
                 },
                 Reach::handler, expectAuditStopped}})},
  };
  scenarios.insert(scenarios.end(), parts.begin(), parts.end());
}

}  // namespace Sweep
