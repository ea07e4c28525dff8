// The steps that several scenarios share.
#pragma once

#include <Hardware/Entries.h>
#include <gtest/gtest.h>

#include "Scenario.h"

namespace Sweep::Steps {

using Region = ChipMemory::Ptr World::*;
constexpr Region a = &World::a;
constexpr Region b = &World::b;
constexpr Region c = &World::c;

inline bool unconfigured(World& w) {
  w.shadow->stateIs(HardwareShadow::unconfigured());
  return true;
}
inline bool configured(World& w) { return w.configured(); }

template <class T, class Make>
bool made(Zint::Ptr<T>& slot, Make make) {
  if (slot == nullptr) slot = make();
  return true;
}

// Appends what follows to the making of the whole world.
std::vector<Step> onWorld(const std::vector<Step>& steps);

// --- Writes ---

template <Region region, U32 entry, U32 value, U32 words = 1>
bool write(World& w) {
  return w.written(w.*region, entry, value, words);
}
// The shadow holds the value already, so that it may call another write needless: the caller who
// saw the access fail repeats the access itself.
template <Region region, U32 entry, U32 value, U32 words = 1>
bool rewrite(World& w) {
  write<region, entry, value, words>(w);
  U32 values[words];
  for (U32 i = 0; i < words; ++i) values[i] = value + i;
  const ChipMemory& cm = *(w.*region);
  cm.chipHam()->doWrite(cm.entryAddress(entry), reinterpret_cast<U8*>(values), 4, words);
  return true;
}
// Or the next pass finds the difference.
template <Region region, U32 entry, U32 value, U32 words = 1>
bool writeAudited(World& w) {
  write<region, entry, value, words>(w);
  return w.pass();
}
// The shadow has the value, and the audit will not take it for old; the chip lacks it from the word
// on whose access failed.
template <Region region, U32 entry, U32 value, U32 words = 1>
void expectWrittenInShadowOnly(World& w, U32 access) {
  const ChipMemory& cm = *(w.*region);
  const U32 entries = words * 4 / cm.entrySize();
  for (U32 e = entry; e < entry + entries; ++e) {
    EXPECT_TRUE(cm.entryInitialized(e));
    EXPECT_TRUE(Hardware::bitmapBit(cm.dirty()->data(), e));
  }
  for (U32 i = 0; i < words; ++i) {
    U32 held = 0;
    std::memcpy(&held, cm.shadow()->data() + cm.entrySize() * entry + 4 * i, 4);
    EXPECT_EQ(held, value + i);
    const U32 word = w.chip->word(cm.entryAddress(entry).chipMemoryOffset() + 4 * i);
    EXPECT_EQ(word == value + i, i + 1 < access) << "word " << i;
  }
}
template <Region region, U32 entry, U32 value, U32 words = 1>
Step writes(const char* name) {
  return {name, write<region, entry, value, words>, rewrite<region, entry, value, words>,
          Reach::caller, expectWrittenInShadowOnly<region, entry, value, words>};
}

// --- Passes ---

// The owner starts the audit; what it does runs in handlers.
bool audit(World& w);
bool auditAgain(World& w);
// The audit stops where it was; nothing is counted or armed.
void expectAuditStopped(World& w, U32 access);
inline Step audits(const char* name) {
  return {name, audit, auditAgain, Reach::handler, expectAuditStopped};
}
bool idle(World& w);

// --- Modes ---

template <Region region, ChipMemory::ChipMemoryMode mode>
bool modeIs(World& w) {
  const ChipMemory::Ptr cm = w.*region;
  w.stores[0] = cm->shadow();
  w.stores[1] = cm->dirty();
  w.stores[2] = cm->initialized();
  cm->modeIs(mode);
  for (Hal::BufBase::Ptr& store : w.stores) store = nullptr;
  return true;
}
// The mode is set: what is left are the reactions.
template <Region region, ChipMemory::ChipMemoryMode mode>
bool completeMode(World& w) {
  const ChipMemory::Ptr cm = w.*region;
  for (Hal::BufBase::Ptr& store : w.stores) store = nullptr;
  if (cm->mode() != mode) return modeIs<region, mode>(w);
  if (mode == ChipMemory::normal()) cm->writeback(false);
  cm->handleShadowStoreNeeded();
  return true;
}
template <Region region>
void expectStoreKept(World& w, U32) {
  const ChipMemory& cm = *(w.*region);
  EXPECT_EQ(cm.mode(), ChipMemory::normal());
  EXPECT_EQ(cm.shadow(), w.stores[0]);
  EXPECT_EQ(cm.dirty(), w.stores[1]);
  EXPECT_EQ(cm.initialized(), w.stores[2]);
}
template <Region region, ChipMemory::ChipMemoryMode mode>
Step changesMode(const char* name) {
  return {name, modeIs<region, mode>, completeMode<region, mode>, Reach::caller,
          expectStoreKept<region>};
}

}  // namespace Sweep::Steps
