#include <Driver/RegionWrite.h>

#include <Driver/Driver.h>
#include <atomic>
#include <cstring>

namespace Driver {
namespace {

std::atomic<U32> heldWriteCounter{0};

bool hasBitsFor(const Hal::BufBase::Ptr& bitmap, U64 end) {
  return bitmap != nullptr && end <= U64{bitmap->size()} * 8;
}

}  // namespace

U32 heldWriteCount() { return heldWriteCounter.load(std::memory_order_relaxed); }
void heldWriteCountInc() { heldWriteCounter.fetch_add(1, std::memory_order_relaxed); }

bool hasStoreFor(const Hardware::ChipMemory& cm, U64 end) {
  return cm.shadowStoreNeeded() && cm.shadow() != nullptr && end <= cm.entries() &&
         end * cm.entrySize() <= cm.shadow()->size() && hasBitsFor(cm.initialized(), end) &&
         hasBitsFor(cm.dirty(), end);
}

bool RegionWrite::isReadFirst(const Policy* policy, U32 entry) {
  return policy != nullptr && policy->mask(entry) != nullptr &&
         policy->rewrite(entry) == Rewrite::kept && isRead(policy->rule(entry));
}

bool RegionWrite::isStoreReplaced() const { return cm_->shadow() != store_; }

const U8* RegionWrite::stored(U32 entry) const {
  return store_->data() + std::size_t{entry} * cm_->entrySize();
}

void RegionWrite::openFindings(EntryRun run) {
  for (U32 i = 0; i < run.second; ++i) shadow_->openFindingIs(cm_, run.first + i, true);
}

void RegionWrite::write(EntryRun run, std::span<const U8> given) {
  try {
    std::vector<Piece> pieces{{run, 0}};
    while (!pieces.empty() && !hasEnded) {
      const Piece piece = pieces.back();
      pieces.pop_back();
      writePiece(piece, piece.tries == 0 ? given : std::span<const U8>(), pieces);
    }
    for (const Piece& left : pieces) openFindings(left.run);
  } catch (...) {
    openFindings(run);
    throw;
  }
}

// Reads what the masked bits are, and takes the expected values again until no client changes them
// during the read. False: the write has ended.
bool RegionWrite::readKept(EntryRun run, std::vector<U8>& expected, std::vector<U8>& actual) {
  actual.resize(expected.size());
  for (U32 tries = 0; tries < maxTries; ++tries) {
    const Hardware::ChipAddress address = cm_->entryAddress(run.first);
    DRIVER_TRACE(6, writer << ": reading " << cm_->name() << " 0x" << std::hex << address.value()
                           << " 0x" << run.second << " entries");
    accessing(true);
    cm_->chipHam()->doRead(address, actual.data(), cm_->entrySize(), run.second);
    accessing(false);
    if (isSuperseded() || isStoreReplaced()) return false;
    if (std::memcmp(expected.data(), stored(run.first), expected.size()) == 0) break;
    expected.assign(stored(run.first), stored(run.first) + expected.size());
  }
  return true;
}

void RegionWrite::writePiece(const Piece& piece, std::span<const U8> given,
                             std::vector<Piece>& pieces) {
  const EntryRun run = piece.run;
  const U32 entrySize = cm_->entrySize();
  if (cm_->chipHam() == nullptr || !hasStoreFor(*cm_, U64{run.first} + run.second)) {
    hasEnded = true;
    return;
  }
  store_ = cm_->shadow();
  std::vector<U8> expected(stored(run.first),
                           stored(run.first) + std::size_t{run.second} * entrySize);
  std::vector<U8> actual;
  const Policy::Ptr policy = honoursPolicy ? shadow_->policy(cm_) : nullptr;
  // What a client has written meanwhile it has written whole: its masked bits are the newest.
  if (piece.tries == 0 && isReadFirst(policy.ptr(), run.first) &&
      !readKept(run, expected, actual)) {
    hasEnded = true;
    return;
  }
  std::vector<U8> bytes = expected;
  if (!given.empty()) bytes.assign(given.begin(), given.end());
  for (U32 i = 0; policy != nullptr && i < run.second; ++i) {
    const std::size_t at = std::size_t{i} * entrySize;
    if (policy->mask(run.first + i) == nullptr) continue;
    policy->mergeForRewrite(run.first + i, &expected[at],
                            actual.empty() ? &expected[at] : &actual[at], &bytes[at]);
  }
  const Hardware::ChipAddress address = cm_->entryAddress(run.first);
  DRIVER_TRACE(6, writer << ": writing " << cm_->name() << " 0x" << std::hex << address.value()
                         << " 0x" << run.second << " entries");
  accessing(true);
  cm_->chipHam()->doWrite(address, bytes.data(), entrySize, run.second);
  accessing(false);
  if (piece.tries != 0) rewritten += run.second;
  if (isStoreReplaced()) {
    hasEnded = true;
    return;
  }
  hasEnded = isSuperseded();
  for (U32 i = 0; i < run.second;) {
    const auto changed = [&](U32 k) {
      return std::memcmp(&expected[std::size_t{k} * entrySize], stored(run.first + k), entrySize) !=
             0;
    };
    U32 end = i;
    while (end < run.second && changed(end)) ++end;
    if (end == i) {
      shadow_->openFindingIs(cm_, run.first + i, false);
      ++i;
      continue;
    }
    const EntryRun again{run.first + i, end - i};
    if (!hasEnded && repeats && piece.tries + 1 < maxTries) {
      pieces.push_back({again, piece.tries + 1});
    } else {
      openFindings(again);
      if (!hasEnded) unsettled.push_back(again);
    }
    i = end;
  }
}

}  // namespace Driver
