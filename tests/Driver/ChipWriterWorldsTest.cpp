// Random worlds: clients write during the accesses of a replay and between its slices, accesses
// throw, and at the end the chip holds what the shadow says.
#include <Driver/ChipWriter.h>

#include <iostream>
#include <stdexcept>

#include "ReplayTest.h"
#include "support/Random.h"
#include "support/Sanitizers.h"

namespace {

using Driver::Rewrite;
using Driver::Rule;
using Support::HamAccess;

struct ReplayOptions {
  bool isNaive = false;      // a replay that writes what it has copied, and looks no more
  bool throws = true;        // some accesses throw, before or after the chip was written
  bool isRestoring = false;  // clients hold their writes back
};

struct ReplayResult {
  U32 differences = 0;   // entries whose chip is not what the shadow says
  U32 clientWrites = 0;  // while the replay ran
  U32 failures = 0;
  U64 rewritten = 0;
};

class ReplayWorld {
 public:
  ReplayWorld(U64 seed, ReplayOptions options) : options_(options), random_(seed) {
    const U32 count = random_.between(1, 4);
    for (U32 i = 0; i < count; ++i) addRegion(i);
    shadow_->stateIs(Hardware::HardwareShadow::configured());
    for (const auto& access : accesses_) {
      const U32 writes = random_.between(0, 2 * access->chipMemory()->entries());
      for (U32 i = 0; i < writes; ++i) clientWrites();
    }
    memory_->chip = {};
    memory_->onAccess = [this](const HamAccess& seen, U8*) { interfere(seen); };
    if (!options_.isRestoring) return;
    const auto chip = shadow_->chip(accesses_[0]->chipMemory());
    shadow_->maxEntriesPerReplaySliceIs(random_.between(1, 12));
    if (random_.oneIn(2)) chip->replayIs(request_);
    chip->doChipReset();
  }

  ReplayResult run() {
    if (options_.isNaive) {
      runNaively();
    } else if (options_.isRestoring) {
      runShadowsReplay();
    } else {
      runWriter();
    }
    memory_->onAccess = nullptr;
    compare();
    return result_;
  }

 private:
  void addRegion(U32 i) {
    const auto cm =
        Hardware::chipMemoryFactory(Zint::format("t%u", i), Hardware::ChipAddress(0x1000 * (4 - i)),
                                    random_.between(1, 24), 4, 4, memory_);
    cm->shadowEnabledIs(true);
    cm->readFromCacheIs(true);
    cm->skipWriteIfMatchesCacheIs(random_.oneIn(2));
    shadow_->chipMemoryIs(cm);
    if (random_.oneIn(3)) request_->newGroup(random_.oneIn(2) ? 0 : 0.5);
    request_->chipMemoryIs(cm);
    accesses_.push_back(Driver::chipAccessFactory(shadow_, cm));
    if (random_.oneIn(3)) addPolicy(cm);
  }

  void addPolicy(const Hardware::ChipMemory::Ptr& cm) {
    const auto policy = Driver::policyFactory(cm);
    const U32 first = random_.below(cm->entries());
    const Rule rules[] = {Rule::detectOnly, Rule::volatile_, Rule::noRead, Rule::writeOnly,
                          Rule::readOnly};
    policy->ruleIs(first, 1, random_.oneOf(rules));
    if (random_.oneIn(2)) {
      const U32 masked = random_.below(cm->entries());
      policy->maskIs(masked, 1, std::vector<U8>{0xf0, 0, 0, 0}, Rewrite::kept);
    }
    shadow_->policyIs(policy);
  }

  // A run of some entries of a region, through ChipAccess or as a plain client.
  void clientWrites() {
    const auto access = accesses_[random_.below(static_cast<U32>(accesses_.size()))];
    const auto& cm = access->chipMemory();
    const U32 first = random_.below(cm->entries());
    const U32 count = random_.between(1, std::min(4u, cm->entries() - first));
    std::vector<U32> values(count);
    for (U32& value : values) value = random_.below(5);
    if (!options_.isRestoring && random_.oneIn(2)) {
      // Its own access is not interfered with: a plain client would not notice.
      const U32 outer = std::exchange(depth_, 2);
      U8* data = reinterpret_cast<U8*>(values.data());
      if (!shadow_->shadowWriteAndCompareWithCache(cm, first, data, count * 4)) {
        cm->chipHam()->doWrite(cm->entryAddress(first), data, 4, count);
      }
      depth_ = outer;
    } else {
      access->write<U32>(first, std::span<const U32>(values));
    }
  }

  // A client whose own accesses do not throw.
  void clientWritesGuarded() {
    ++result_.clientWrites;
    const bool throws = std::exchange(options_.throws, false);
    clientWrites();
    options_.throws = throws;
  }

  void interfere(const HamAccess&) {
    if (depth_ >= 2) return;
    ++depth_;
    if (random_.oneIn(4)) clientWritesGuarded();
    --depth_;
    if (depth_ == 0 && options_.throws && random_.oneIn(12)) throw std::runtime_error("bus");
  }

  void turn() {
    loop_.turnAt(std::max(loop_.clock->time(), loop_.activity->wakeTime()));
    if (random_.oneIn(2)) clientWritesGuarded();
  }

  void runWriter() {
    const U32 perWrite = random_.between(1, 6), perSlice = random_.between(1, 12);
    const auto writer = Driver::chipWriterFactory(loop_.activity, shadow_, request_, loop_.clock,
                                                  perWrite, perSlice, random_.oneIn(2) ? 0 : 0.25);
    writer->verifiesIs(random_.oneIn(3));
    request_->stateIs(Zint::Request::start_);
    for (int i = 0; i < 5000 && request_->status() != Zint::Request::done_; ++i) {
      if (writer->isInterrupted()) {
        ++result_.failures;
        writer->doResume();
      }
      turn();
    }
    EXPECT_EQ(request_->status(), Zint::Request::done_);
    EXPECT_LE(writer->entriesWritten(), writer->entriesToWrite());
    result_.rewritten = writer->entriesRewritten();
  }

  void runShadowsReplay() {
    const auto chip = shadow_->chip(accesses_[0]->chipMemory());
    for (int i = 0; i < 5000 && chip->isRestoring(); ++i) turn();
    EXPECT_FALSE(chip->isRestoring());
    result_.failures = chip->absences();
  }

  // Copies each run of written entries and writes it.
  void runNaively() {
    for (const auto& group : request_->groups()) {
      for (const auto& cm : group.chipMemory) {
        for (U32 e = 0; e < cm->entries();) {
          U32 end = e;
          while (end < cm->entries() && shadow_->isWritten(cm, end)) ++end;
          if (end > e) {
            const U8* from = cm->shadow()->data() + std::size_t{4} * e;
            std::vector<U8> copy(from, from + std::size_t{4} * (end - e));
            cm->chipHam()->doWrite(cm->entryAddress(e), copy.data(), 4, end - e);
          }
          e = end + 1;
        }
      }
    }
  }

  void compare() {
    for (const auto& access : accesses_) {
      const auto& cm = access->chipMemory();
      const auto policy = shadow_->policy(cm);
      for (U32 e = 0; e < cm->entries(); ++e) {
        if (!shadow_->isWritten(cm, e)) continue;
        if (policy != nullptr && policy->rule(e) == Rule::readOnly) continue;
        U32 mask = ~0u;
        if (policy != nullptr && policy->mask(e) != nullptr) mask = 0xffffff0f;
        const U32 expected = Support::word(cm->shadow(), e);
        const U32 actual = memory_->word(cm->entryAddress(e).value());
        if (((expected ^ actual) & mask) != 0) ++result_.differences;
      }
    }
  }

  ReplayOptions options_;
  Support::Random random_;
  Support::ManualLoop loop_;
  Replay::MemoryHam::Ptr memory_ = Zint::makePtr<Replay::MemoryHam>("chip0");
  Driver::AuditedShadow::Ptr shadow_ = Driver::auditedShadowFactory(loop_.activity, loop_.clock);
  Driver::ChipWriteRequest::Ptr request_ = Driver::chipWriteRequestFactory("replay");
  std::vector<Driver::ChipAccess::Ptr> accesses_;
  U32 depth_ = 0;
  ReplayResult result_;
};

struct ReplayTotals {
  U32 wrongWorlds = 0, clientWrites = 0, failures = 0;
  U64 rewritten = 0;
};

ReplayTotals runReplayWorlds(U64 firstSeed, U32 worlds, ReplayOptions options) {
  ReplayTotals totals;
  const Support::TraceCapture quiet(0);
  for (U64 seed = firstSeed; seed < firstSeed + worlds; ++seed) {
    const ReplayResult result = ReplayWorld(seed, options).run();
    EXPECT_TRUE(options.isNaive || result.differences == 0) << "seed " << seed;
    totals.wrongWorlds += result.differences == 0 ? 0 : 1;
    totals.clientWrites += result.clientWrites;
    totals.failures += result.failures;
    totals.rewritten += result.rewritten;
  }
  testing::Test::RecordProperty("wrongWorlds", std::to_string(totals.wrongWorlds));
  std::cout << worlds << " worlds: " << totals.wrongWorlds << " wrong, " << totals.clientWrites
            << " client writes, " << totals.failures << " failures, " << totals.rewritten
            << " entries written again\n";
  return totals;
}

// A sanitized program takes a hundred times as long.
U32 worldsToRun() { return Support::addressesAreSanitized() ? 300 : 3000; }

TEST(ChipWriterWorlds, chipIsShadowWhateverWasInterleaved) {
  const U32 worlds = worldsToRun();
  const ReplayTotals totals = runReplayWorlds(1, worlds, {});
  EXPECT_EQ(totals.wrongWorlds, 0u);
  EXPECT_GT(totals.failures, worlds);
  EXPECT_GT(totals.rewritten, worlds / 2);
}

TEST(ChipWriterWorlds, chipIsShadowWhenClientsHoldTheirWritesBack) {
  const U32 worlds = worldsToRun();
  const ReplayTotals totals = runReplayWorlds(5001, worlds, {.isRestoring = true});
  EXPECT_EQ(totals.wrongWorlds, 0u);
  EXPECT_GT(totals.clientWrites, worlds);
  EXPECT_GT(totals.failures, worlds);
}

TEST(ChipWriterWorlds, aReplayThatCopiesAndLooksNoMoreEndsWrong) {
  const U32 worlds = worldsToRun();
  const ReplayTotals totals = runReplayWorlds(1, worlds, {.isNaive = true, .throws = false});
  EXPECT_GT(totals.wrongWorlds, worlds / 10);
}

}  // namespace
