// The order of virtual operations, on which separately compiled derived classes rely.
//
// Itanium ABI on x86: the first word of a pointer to a virtual member is 1 + the slot's offset in
// bytes, the second the adjustment of `this`. A destructor takes two slots. Each class is followed
// by one that adds an operation of its own: it must come right behind the listed ones.
#include <Fru/HamImpl.h>
#include <Hardware/ChipReader.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/HardwareShadow.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

namespace {

using Hardware::ChipHam;
using Hardware::ChipMemory;
using Hardware::ChipReader;
using Hardware::GenericChipHam;
using Hardware::HardwareShadow;
using Zint::Entity;
using Zint::PtrInterface;

#if !defined(__i386__) && !defined(__x86_64__)
#error "pointers to members are read as they stand on x86"
#endif

constexpr int notVirtual = -1;

template <class Member>
int slot(Member member) {
  std::uintptr_t words[2];
  static_assert(sizeof(member) == sizeof(words));
  std::memcpy(words, &member, sizeof(words));
  if ((words[0] & 1) == 0) return notVirtual;
  EXPECT_EQ(words[1], 0u) << "the member is of another base";
  return static_cast<int>((words[0] - 1) / sizeof(void*));
}

// The operations take the slots from `first` on.
template <class... Members>
void expectSlots(int first, Members... members) {
  std::vector<int> expected(sizeof...(members));
  std::iota(expected.begin(), expected.end(), first);
  EXPECT_EQ((std::vector<int>{slot(members)...}), expected);
}

template <class Base>
struct Extended : Base {
  using Base::Base;
  virtual void added() {}
};

// The slots of PtrInterface, reached through a class.
template <class C>
void expectPtrInterface() {
  expectSlots(0, &C::hasNotificationActiveIs, &C::zintAuditErrors, &C::auditErrors,
              &C::isNondestructingIs, &C::zeroReferencesIs, &C::fwkType);
}

constexpr int behindDestructor = 8;

TEST(SlotOrder, ptrInterface) {
  expectPtrInterface<PtrInterface>();
  EXPECT_EQ(slot(&Extended<PtrInterface>::added), behindDestructor);
}

TEST(SlotOrder, entity) {
  expectPtrInterface<Entity>();
  expectSlots(behindDestructor, &Entity::attributeString);
  EXPECT_EQ(slot(&Extended<Entity>::added), behindDestructor + 1);
}

TEST(SlotOrder, hamImpl) {
  expectPtrInterface<Fru::HamImpl>();
  expectSlots(behindDestructor, &Fru::HamImpl::read, &Fru::HamImpl::write);
}

TEST(SlotOrder, chipHam) {
  expectPtrInterface<ChipHam>();
  expectSlots(behindDestructor, &ChipHam::attributeString, &ChipHam::doRead, &ChipHam::doWrite,
              &ChipHam::doCompare, &ChipHam::doReadToCache, &ChipHam::doWriteToCache,
              &ChipHam::doReadFromCache);
  EXPECT_EQ(slot(&Extended<ChipHam>::added), behindDestructor + 7);
}

TEST(SlotOrder, chipHam_bitStreamHelpersAreNotVirtual) {
  EXPECT_EQ(slot(&ChipHam::bitFromBitStream), notVirtual);
  EXPECT_EQ(slot(&ChipHam::bitToBitStream), notVirtual);
  EXPECT_EQ(slot(&ChipHam::byteFromBitStream), notVirtual);
  EXPECT_EQ(slot(&ChipHam::byteToBitStream), notVirtual);
  EXPECT_EQ(slot(&ChipHam::copyBits), notVirtual);
}

TEST(SlotOrder, genericChipHam_addsNone) {
  EXPECT_EQ(slot(&Extended<GenericChipHam>::added), behindDestructor + 7);
}

TEST(SlotOrder, chipMemory) {
  using M = ChipMemory;
  expectPtrInterface<M>();
  expectSlots(behindDestructor, &M::handleShadowStoreNeeded, &M::entriesIs,
              &M::indirectCmdRegAddrIs, &M::shadowEnabledIs, &M::auditEnabledIs, &M::modeIs,
              &M::shadowStoreNeededIs, &M::readFromCacheIs, &M::skipWriteIfMatchesCacheIs,
              &M::readCacheHitsInc, &M::readCacheHitsIs, &M::writeCacheHitsInc,
              &M::writeCacheHitsIs, &M::registersFixedInc, &M::registersFixedIs, &M::lastFixTimeIs,
              &M::hardwareIs, &M::shadowIs, &M::initializedIs, &M::dirtyIs,
              &M::allowsLogicalViewsIs);
  EXPECT_EQ(slot(&Extended<M>::added), behindDestructor + 21);
}

TEST(SlotOrder, chipMemory_theOtherHandlersAreNotVirtual) {
  EXPECT_EQ(slot(&ChipMemory::handleMode), notVirtual);
  EXPECT_EQ(slot(&ChipMemory::handleAuditEnabled), notVirtual);
  EXPECT_EQ(slot(&ChipMemory::writeback), notVirtual);
  EXPECT_EQ(slot(&ChipMemory::doClear), notVirtual);
  EXPECT_EQ(slot(&ChipMemory::doClearRange), notVirtual);
}

TEST(SlotOrder, hardwareShadow) {
  using S = HardwareShadow;
  expectPtrInterface<S>();
  expectSlots(behindDestructor, &S::doFixBadRegister, &S::zintFwkActivityIs,
              &S::zintDoZombieReactors);
  EXPECT_EQ(slot(&Extended<S>::added), behindDestructor + 3);
}

TEST(SlotOrder, chipReader) {
  using R = ChipReader;
  expectPtrInterface<R>();
  expectSlots(behindDestructor, &R::doRead, &R::zintFwkActivityIs, &R::zintDoZombieReactors);
  EXPECT_EQ(slot(&Extended<R>::added), behindDestructor + 3);
}

}  // namespace
