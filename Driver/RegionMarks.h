// What the patrol remembers of a region. Used by Patrol alone.
#pragma once

#include <Driver/Policy.h>
#include <Zint/Clock.h>
#include <map>
#include <memory>
#include <vector>

namespace Driver {

// One bit an entry; grows with the entries that are set. In pages: no single step takes long,
// however many entries there are.
class EntryBits {
 public:
  bool at(U32 entry) const {
    const std::size_t page = entry / entriesOfPage, byte = byteOf(entry);
    return page < pages_.size() && byte < pages_[page].size() &&
           (pages_[page][byte] >> (entry & 7) & 1) != 0;
  }
  void atIs(U32 entry, bool is) {
    if (at(entry) == is) return;
    const std::size_t page = entry / entriesOfPage, byte = byteOf(entry);
    if (page >= pages_.size()) pages_.resize(page + 1);
    if (byte >= pages_[page].size()) pages_[page].resize(byte + 1);
    const U32 bit = 1u << (entry & 7);
    U8& bits = pages_[page][byte];
    bits = static_cast<U8>(is ? bits | bit : bits & ~bit);
    if (is) {
      ++set_;
    } else {
      --set_;
    }
  }
  U32 size() const { return set_; }  // bits that are set
  void clear() {
    pages_.clear();
    set_ = 0;
  }

 private:
  static constexpr U32 bytesOfPage = 4096;
  static constexpr U32 entriesOfPage = bytesOfPage * 8;

  static U32 byteOf(U32 entry) { return entry % entriesOfPage >> 3; }

  std::vector<std::vector<U8>> pages_;
  U32 set_ = 0;
};

// The repairs of one entry that are not older than the time of the quarantine.
struct RepairHistory {
  std::vector<Zint::Seconds> times;  // the oldest first
  Zint::Seconds lastDifference = 0;
  U32 cleanVisits = 0;
  bool isQuarantined = false;
};

struct RegionMarks {
  Hardware::ChipMemory::Ptr region;
  Policy::Ptr policy;  // null for none
  Zint::Ptr<Zint::NotifieeConst> policyWatch;
  Zint::Ptr<Zint::NotifieeConst> watch;  // of its store, where `policy` says what a new one holds
  Hal::BufBase::Ptr store;               // the dirty bitmap to which `written` belongs
  EntryBits written;                     // by clients, besides those that are dirty now
  EntryBits assumed;                     // known because of `policy`, unless a client wrote them
  EntryBits open;                        // findings that a client's write must not be kept from
  std::map<U32, RepairHistory> repairs;
  U64 probedPass = 0;  // the last pass in which a difference asked for the chip
};

}  // namespace Driver
