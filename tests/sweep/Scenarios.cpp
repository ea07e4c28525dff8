// The scenarios of writes, reads, passes and regions; those of the collections and of the exchange
// of parts are in ScenariosOfParts.cpp.
#include "ScenariosOfParts.h"
#include "Steps.h"

namespace Sweep {
namespace {

using namespace Steps;

// --- Reads ---

template <Region region, U32 entry>
bool read(World& w) {
  return w.read(w.*region, entry, w.answer);
}
template <Region region, U32 entry>
void expectStillUnknown(World& w, U32) {
  EXPECT_FALSE((w.*region)->entryInitialized(entry));
}

// --- The derived access method ---

// The access of number 1 is the copy into the cached form, the second the chip's.
template <U32 entry>
void expectDerivedWriteFailed(World& w, U32 access) {
  EXPECT_EQ(w.c->entryInitialized(entry), access > 1);
  EXPECT_EQ(w.chip->word(0x200 + 4 * entry), 0u);
}

// --- The chip's own life ---

template <U32 address, U32 value>
bool changeChip(World& w) {
  w.chip->word(address) = value;
  return true;
}

// --- Clearing and write-back ---

constexpr U32 clearedFrom = 2, clearedTo = 7;
bool clearRange(World& w) {
  w.a->doClearRange(clearedFrom, clearedTo, true);
  return true;
}
// Entries are cleared one after the other; the one whose access failed is cleared in the shadow.
void expectClearedUpTo(World& w, U32 access) {
  const U32 failed = clearedFrom + access - 1;
  for (U32 e = clearedFrom; e <= clearedTo; ++e) {
    U32 held = 0;
    std::memcpy(&held, w.a->shadow()->data() + 4 * e, 4);
    EXPECT_EQ(held == 0, e <= failed) << "entry " << e;
    EXPECT_EQ(w.chip->word(4 * e) == 0, e < failed) << "entry " << e;
  }
}
bool clear(World& w) {
  w.b->doClear();
  w.b->writeback(false);
  return true;
}

template <Region region, bool initializedOnly>
bool writeback(World& w) {
  (w.*region)->writeback(initializedOnly);
  return true;
}

// --- Entries ---

template <Region region, U32 entries>
bool setEntries(World& w) {
  const ChipMemory::Ptr cm = w.*region;
  w.staleStore = true;  // the attribute keeps its value when there is no memory for the store
  cm->entriesIs(entries);
  w.staleStore = false;
  return true;
}
template <Region region, U32 entries>
bool completeEntries(World& w) {
  (w.*region)->entriesIs(entries);
  (w.*region)->handleShadowStoreNeeded();
  w.staleStore = false;
  return true;
}

// --- Audit of single regions ---

template <Region region, bool audited>
bool auditEnabled(World& w) {
  w.shadow->chipMemoryAuditEnabledIs(w.*region, audited);
  return true;
}
// The attribute is set, the membership is not: asked for from the start.
template <Region region, bool audited>
bool enableAuditAgain(World& w) {
  w.shadow->chipMemoryAuditEnabledIs(w.*region, !audited);
  return auditEnabled<region, audited>(w);
}

// --- An observer that touches the chip ---

bool observeMode(World& w) {
  return made(w.modeObserver, [&] { return Zint::makePtr<ModeObserver>(w.activity, w.a); });
}
template <ChipMemory::ChipMemoryMode mode>
bool setObservedMode(World& w) {
  const U32 before = w.modeObserver->told;
  modeIs<a, mode>(w);
  return w.modeObserver->told == before + 1;
}
template <ChipMemory::ChipMemoryMode mode>
bool repeatForObserver(World& w) {
  completeMode<a, mode>(w);
  w.modeObserver->onMode();
  return true;
}
void expectObserverReported(World& w, U32) { EXPECT_EQ(w.modeObserver->reported, 1u); }

}  // namespace

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = [] {
    std::vector<Scenario> list = {
        {"create and configure", onWorld({writes<a, 3, 0x1234>("first write")})},
        {"write misses and hits",
         onWorld({writes<a, 0, 11>("miss"), writes<a, 0, 11>("hit"),
                  writes<a, 0, 12>("other value"), writes<b, 2, 21, 2>("wide miss"),
                  writes<b, 2, 23, 2>("wide, no hits")})},
        {"bulk writes", onWorld({writes<a, 4, 40, 16>("bulk"), writes<a, 0, 60, 20>("all"),
                                 writes<b, 1, 80, 12>("wide bulk")})},
        {"failed writes and the audit",
         onWorld({{"write", write<a, 5, 77>, writeAudited<a, 5, 77>},
                  {"bulk", write<b, 3, 90, 8>, writeAudited<b, 3, 90, 8>}})},
        {"derived access method", onWorld({{"write", write<c, 1, 0x11>, rewrite<c, 1, 0x11>,
                                            Reach::caller, expectDerivedWriteFailed<1>},
                                           {"hit", write<c, 1, 0x11>, rewrite<c, 1, 0x11>},
                                           {"bulk", write<c, 2, 0x21, 3>, rewrite<c, 2, 0x21, 3>},
                                           {"read", read<c, 3>},
                                           {"the chip differs", changeChip<0x204, 0x55>},
                                           {"the chip has more", changeChip<0x214, 0x66>},
                                           audits("pass"),
                                           {"idle", idle},
                                           {"read what was learnt", read<c, 5>}})},
        {"reads",
         onWorld({{"the chip holds", changeChip<0x1c, 0x77>},
                  {"from the chip", read<a, 7>, nullptr, Reach::caller, expectStillUnknown<a, 7>},
                  {"from the shadow", read<a, 7>},
                  {"an empty one", read<a, 8>, nullptr, Reach::caller, expectStillUnknown<a, 8>}})},
        {"learning", onWorld({{"the chip holds", changeChip<0x08, 0x88>},
                              {"the chip holds", changeChip<0x10c, 0x99>},
                              audits("pass"),
                              {"idle", idle},
                              {"read", read<a, 2>}})},
        {"repair", onWorld({writes<a, 1, 31, 4>("write"),
                            writes<b, 0, 41, 6>("wide write"),
                            audits("pass"),
                            {"idle", idle},
                            {"damage", changeChip<0x08, 0xbad>},
                            {"damage", changeChip<0x10, 0xbad>},
                            {"damage", changeChip<0x10c, 0xbad>},
                            audits("repairing pass"),
                            {"idle", idle},
                            audits("last pass"),
                            {"idle", idle}})},
        {"write-back", onWorld({writes<a, 3, 51, 2>("write"),
                                writes<a, 9, 53>("write"),
                                {"the chip forgets", changeChip<0x0c, 0>},
                                {"initialized only", writeback<a, true>},
                                {"whole", writeback<b, false>},
                                {"whole, derived", writeback<c, false>}})},
        {"clear range with write-through",
         onWorld({writes<a, 0, 61, 12>("write"),
                  {"clear range", clearRange, nullptr, Reach::caller, expectClearedUpTo},
                  {"clear", clear}})},
        {"modes", onWorld({{"buffered", modeIs<a, ChipMemory::buffered_>,
                            completeMode<a, ChipMemory::buffered_>},
                           {"buffered write", write<a, 6, 71, 3>},
                           changesMode<a, ChipMemory::normal_>("normal"),
                           {"override", modeIs<b, ChipMemory::override_>,
                            completeMode<b, ChipMemory::override_>},
                           {"overridden write", write<b, 1, 73, 2>},
                           {"overridden read", read<b, 1>},
                           changesMode<b, ChipMemory::buffered_>("buffered from override"),
                           {"buffered write", write<b, 1, 75, 2>},
                           changesMode<b, ChipMemory::normal_>("normal again"),
                           audits("pass"),
                           {"idle", idle}})},
        {"entries", onWorld({writes<b, 7, 81, 2>("write"),
                             {"unconfigured", unconfigured},
                             {"fewer", setEntries<b, 5>, completeEntries<b, 5>},
                             {"configured", configured},
                             writes<b, 4, 83, 2>("write"),
                             audits("pass"),
                             {"idle", idle},
                             {"unconfigured", unconfigured},
                             {"as many as before", setEntries<b, 9>, completeEntries<b, 9>},
                             {"configured", configured},
                             audits("pass"),
                             {"idle", idle}})},
        {"audit of single regions",
         onWorld({{"off", auditEnabled<a, false>, enableAuditAgain<a, false>},
                  audits("pass"),
                  {"idle", idle},
                  {"on", auditEnabled<a, true>, enableAuditAgain<a, true>},
                  audits("pass"),
                  {"idle", idle}})},
        {"an observer that touches the chip",
         onWorld(
             {{"observer", observeMode},
              {"buffered", setObservedMode<ChipMemory::buffered_>,
               repeatForObserver<ChipMemory::buffered_>, Reach::handler, expectObserverReported},
              {"override", setObservedMode<ChipMemory::override_>,
               repeatForObserver<ChipMemory::override_>, Reach::handler, expectObserverReported}})},
    };
    scenariosOfParts(list);
    return list;
  }();
  return all;
}

}  // namespace Sweep
