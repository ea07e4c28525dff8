#include "ScenariosOfParts.h"

#include <Zint/GenericIf.h>

#include "Steps.h"

namespace Sweep {
namespace {

using namespace Steps;

constexpr auto a = &World::a;

bool unconfigured(World& w) {
  w.shadow->stateIs(HardwareShadow::unconfigured());
  return true;
}
bool configured(World& w) { return w.configured(); }

// --- Registry ---

const ChipAddress spareAddress(1, 0x300);

bool spareMade(World& w) {
  made(w.spare, [&] {
    return Hardware::chipMemoryFactory("the spare region, of another memory", spareAddress, 4, 4, 4,
                                       w.ham);
  });
  return w.shadowed(w.spare);
}
bool spareRegistered(World& w) {
  w.shadow->chipMemoryIs(w.spare);
  return true;
}
bool spareWritten(World& w) {
  const ChipAddress address = spareAddress.plus(8);
  const ChipMemory::Ptr found = w.shadow->findChipMemory(address, 4);
  if (found == nullptr) return false;
  return w.written(found, found->entryIndexFromAddress(address), 0x5a5a);
}
bool spareRemoved(World& w) {
  w.shadow->overrideHardwareIs(true);
  w.shadow->chipMemoryDel(spareAddress);
  w.shadow->overrideHardwareIs(false);
  return w.shadow->chipMemory(spareAddress) == nullptr;
}
bool spareOverridden(World& w) {
  w.spare->modeIs(ChipMemory::override());
  return true;
}
bool overrideOnlyRemoved(World& w) {
  w.shadow->removeOverrideOnlyChipMem();
  return w.shadow->chipMemory(spareAddress) == nullptr;
}
// Another region at the first one's address takes its place, and gives it back.
bool replaced(World& w) {
  const ChipMemory::Ptr twin =
      Hardware::chipMemoryFactory("a twin of the first region", w.a->address(), 20, 4, 4, w.ham);
  w.shadow->chipMemoryIs(twin);
  w.shadow->chipMemoryIs(w.a);
  return w.shadow->chipMemory(w.a->address()) == w.a;
}
bool replacedAgain(World& w) {
  w.shadow->chipMemoryIs(w.a);
  return replaced(w);
}

// --- Directory ---

constexpr const char* tableName = "a table that is known by its long name";
constexpr const char* otherName = "another table with a name as long as that";

bool directoryMade(World& w) {
  return made(w.directory,
              [] { return Hardware::chipMemoryBogonFactory("the directory of the sweep"); });
}
bool directoryObserved(World& w) {
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
bool tablesMade(World& w) {
  tableIs(w, tableName, 0x400, 12, 4);
  return tableIs(w, otherName, 0x500, 6, 4);
}
bool tableShadowed(World& w) { return w.shadowed(w.directory->chipMemory(tableName)); }
bool tableGrown(World& w) {
  w.staleStore = true;
  tableIs(w, tableName, 0x400, 14, 4);
  w.staleStore = false;
  return true;
}
bool tableGrownAgain(World& w) {
  w.directory->chipMemory(tableName)->handleShadowStoreNeeded();
  return tableGrown(w);
}
bool tableRefused(World& w) {
  try {
    tableIs(w, tableName, 0x400, 14, 8);
  } catch (const Zint::NameInUseException&) {
    return true;
  }
  return false;
}
bool tableCleared(World& w) {
  const ChipMemory::Ptr table = w.directory->chipMemory(tableName);
  table->doClear();
  std::memset(table->shadow()->data(), 0x31, 8);
  table->writeback(false);
  return true;
}
bool otherDeleted(World& w) {
  return changing(w, [&] { w.directory->chipMemoryDel(otherName); });
}
bool allDeleted(World& w) {
  return changing(w, [&] { w.directory->chipMemoryDelAll(); });
}

// --- An own request and its reader ---

bool requestMade(World& w) {
  return made(w.ownRequest,
              [] { return Hardware::chipReadRequestFactory("a request of one's own"); });
}
bool requestFilled(World& w) {
  w.chip->word(0x10) = 0x1111;
  for (const ChipMemory::Ptr& cm : {w.a, w.b}) w.ownRequest->chipMemoryIs(cm);
  return w.ownRequest->chipMemorys() == 2;
}
bool ownReaderMade(World& w) {
  return made(w.ownReader, [&] {
    return Hardware::chipReaderFactory(w.activity, w.ownRequest, w.clock, 11, 0.5);
  });
}
bool requestRead(World& w) {
  w.ownRequest->statusIs(ChipReadRequest::none_);
  w.ownRequest->stateIs(ChipReadRequest::start_);
  w.run([&] { return w.ownRequest->status() == ChipReadRequest::done_; });
  std::memcpy(&w.answer, w.a->hardware()->data() + 0x10, 4);
  return w.ownRequest->status() == ChipReadRequest::done_;
}
bool requestReadAgain(World& w) {
  w.ownRequest->stateIs(ChipReadRequest::stop_);
  return requestRead(w);
}
void readingStandsStill(World& w, U32 access) {
  EXPECT_EQ(w.ownRequest->status(), ChipReadRequest::none_);
  EXPECT_EQ(w.activity->wakeTime(), Zint::never);
  ASSERT_NE(w.ownReader->currentChipMemory(), nullptr);
  // The chunk that failed is not counted.
  const U32 entries = w.ownReader->entriesRead();
  EXPECT_LT(entries, w.ownReader->currentChipMemory()->entries());
  EXPECT_LT(entries, access);
}
bool requestEmptied(World& w) {
  w.ownRequest->stateIs(ChipReadRequest::stop_);
  w.ownRequest->chipMemoryDelAll();
  return w.ownRequest->chipMemorys() == 0;
}

// --- Exchange of parts ---

bool otherClockMade(World& w) {
  made(w.otherClock, [] { return Zint::manualClockFactory("another clock of the sweep"); });
  w.keepsClock = true;
  return true;
}
bool clocksReplaced(World& w) {
  w.shadow->clockIs(w.otherClock);
  w.reader->clockIs(w.otherClock);
  w.shadow->clockIs(w.clock);
  w.reader->clockIs(w.clock);
  return true;
}
bool requestsReplaced(World& w) {
  w.keepsRequest = true;
  requestMade(w);
  w.shadow->auditReadRequestIs(w.ownRequest);
  w.reader->requestIs(w.ownRequest);
  return true;
}
bool clocksDropped(World& w) {
  w.keepsClock = false;
  w.shadow->clockDel();
  w.shadow->clockIs(w.clock);
  w.reader->clockDel();
  w.reader->clockIs(w.clock);
  return true;
}

// --- By name ---

bool attributesByName(World& w) {
  Zint::GenericIf_ region{Zint::Ptr<Zint::PtrInterface>(w.a)};
  region.attributeIs("readFromCache", "false");
  region.attributeIs("indirectCmdRegAddr", "4711");
  return region.attribute("indirectCmdRegAddr") == "4711" && !region.attribute("chipHam").empty();
}
bool operationByName(World& w) {
  Zint::GenericIf_ region{Zint::Ptr<Zint::PtrInterface>(w.a)};
  region.call("writeback", {{"initializedOnly", "true"}});
  return true;
}
bool collectionByName(World& w) {
  Zint::GenericIf_ shadow{Zint::Ptr<Zint::PtrInterface>(w.shadow)};
  return shadow.list("chipMemory").items().size() == 3;
}

}  // namespace

void scenariosOfParts(std::vector<Scenario>& scenarios) {
  const std::vector<Scenario> parts = {
      {"register and unregister", onWorld({{"spare region", spareMade},
                                           {"unconfigured", unconfigured},
                                           {"register", spareRegistered},
                                           {"replace", replaced, replacedAgain},
                                           {"configured", configured},
                                           {"write by address", spareWritten,
                                            [](World& w) {
                                              spareWritten(w);
                                              return rewrite<&World::spare, 2, 0x5a5a>(w);
                                            }},
                                           audits("pass"),
                                           {"idle", idle},
                                           {"unregister", spareRemoved},
                                           {"unconfigured", unconfigured},
                                           {"configured", configured},
                                           {"unconfigured", unconfigured},
                                           {"register again", spareRegistered},
                                           {"override", spareOverridden},
                                           {"configured", configured},
                                           {"remove", overrideOnlyRemoved},
                                           audits("pass"),
                                           {"idle", idle}})},
      {"directory", onWorld({{"directory", directoryMade},
                             {"observer", directoryObserved},
                             {"tables", tablesMade},
                             {"shadow", tableShadowed},
                             {"re-instantiate", tableGrown, tableGrownAgain},
                             {"refusal", tableRefused},
                             {"clear", tableCleared},
                             {"delete", otherDeleted}})},
      {"directory, emptied", onWorld({{"directory", directoryMade},
                                      {"observer", directoryObserved},
                                      {"tables", tablesMade},
                                      {"shadow", tableShadowed},
                                      {"clear", tableCleared},
                                      {"delete all", allDeleted},
                                      {"tables again", tablesMade}})},
      {"request and reader",
       onWorld(
           {{"request", requestMade},
            {"members", requestFilled},
            {"reader", ownReaderMade},
            {"read", requestRead, requestReadAgain, Reach::handler, readingStandsStill},
            {"empty", requestEmptied},
            {"members", requestFilled},
            {"read again", requestRead, requestReadAgain, Reach::handler, readingStandsStill}})},
      {"exchange of parts", onWorld({{"other clock", otherClockMade},
                                     {"replace clocks", clocksReplaced},
                                     {"unconfigured", unconfigured},
                                     {"replace requests", requestsReplaced},
                                     {"configured", configured},
                                     audits("pass"),
                                     {"idle", idle},
                                     {"drop clocks", clocksDropped},
                                     audits("pass"),
                                     {"idle", idle}})},
      {"by name", onWorld({writes<a, 2, 91, 2>("write"),
                           {"attributes", attributesByName},
                           {"operation", operationByName},
                           {"collection", collectionByName}})},
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
                 Reach::handler, auditStandsStill}})},
  };
  scenarios.insert(scenarios.end(), parts.begin(), parts.end());
}

}  // namespace Sweep
