// The patrol finds, counts, traces and records what the audit of a plain shadow does. Two worlds
// take the same damages and the same clients' writes; one has a reader, the other a patrol.
#include <Driver/AuditedShadow.h>
#include <Hardware/ChipReader.h>
#include <Mirl/Mirl.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "support/ByteChip.h"
#include "support/ManualLoop.h"
#include "support/Random.h"
#include "support/TraceCapture.h"

namespace {

using Hardware::ChipAddress;
using Hardware::ChipMemory;
using Hardware::HardwareShadow;

// Compares with some bits left out when it is told to.
class WorldHam : public Hardware::ChipHam {
 public:
  explicit WorldHam(bool comparesItself) : ChipHam("ham"), comparesItself_(comparesItself) {}
  void doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override {
    chip.read(address.value(), buffer, entrySize * entries);
  }
  void doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override {
    chip.write(address.value(), buffer, entrySize * entries);
  }

  Support::ByteChip chip;

 protected:
  const bool comparesItself_;
};

class OwnCompareHam : public WorldHam {
 public:
  OwnCompareHam() : WorldHam(true) {}
  bool doCompare(U8* a, U8* b, U32 bytes) const override {
    for (U32 i = 0; i < bytes; ++i) {
      if (((a[i] ^ b[i]) & 0x7f) != 0) return false;
    }
    return true;
  }
};

struct World {
  World(bool isPatrol, U64 seed) {
    Support::Random random(seed);
    const bool ownCompare = random.oneIn(4);
    ham = ownCompare ? Zint::Ptr<WorldHam>(Zint::makePtr<OwnCompareHam>())
                     : Zint::makePtr<WorldHam>(false);
    if (isPatrol) {
      const Driver::AuditedShadow::Ptr audited =
          Driver::auditedShadowFactory(loop.activity, loop.clock);
      audited->judgeAtOnceIs(true);
      audited->findsResetsIs(false);
      audited->maxEntriesPerSliceIs(1 + random.below(20));
      audited->sliceIntervalIs(0);
      shadow = audited;
    } else {
      shadow = Hardware::hardwareShadowFactory(loop.activity, loop.clock);
      random.below(20);
    }
    const U32 count = 1 + random.below(4);
    for (U32 r = 0; r < count; ++r) {
      constexpr U32 sizes[] = {1, 2, 4, 4, 4, 8, 12};
      const U32 size = sizes[random.below(7)];
      const U32 entries = 1 + random.below(40);
      const ChipMemory::Ptr cm = Hardware::chipMemoryFactory(
          "r" + std::to_string(r), ChipAddress(U64{0x1000} * (r + 1)), entries, size, size, ham);
      cm->shadowEnabledIs(!random.oneIn(8));
      if (random.oneIn(10)) cm->modeIs(ChipMemory::override());
      if (cm->mode() != ChipMemory::override()) cm->auditEnabledIs(!random.oneIn(8));
      cm->skipWriteIfMatchesCacheIs(random.oneIn(2));
      shadow->chipMemoryIs(cm);
      regions.push_back(cm);
    }
    shadow->stateIs(HardwareShadow::configured());
    if (!isPatrol) {
      reader =
          Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), loop.clock, 7, 0);
    }
    shadow->minIntervalBetweenAuditsIs(1);
  }

  // Runs until one more pass has been counted, or there is nothing to audit.
  void pass() {
    const U32 before = shadow->audits();
    shadow->stateIs(HardwareShadow::auditing());
    for (U32 i = 0; i < 2000 && shadow->audits() == before; ++i) {
      if (shadow->state() != HardwareShadow::auditing()) return;
      loop.turn();
    }
    shadow->stateIs(HardwareShadow::idle());
    loop.turnAt(loop.clock->time() + 2);
  }

  std::string observed() const {
    std::string text = std::to_string(shadow->audits()) + " ";
    for (const ChipMemory::Ptr& cm : regions) {
      text += std::to_string(cm->registersFixed()) + " " + std::to_string(cm->writeCacheHits());
      for (const Hal::BufBase::Ptr& buffer : {cm->shadow(), cm->initialized()}) {
        if (buffer == nullptr) continue;
        text.append(reinterpret_cast<const char*>(buffer->data()), buffer->size());
      }
      for (U32 i = 0; i < cm->entries() * cm->entrySize(); ++i) {
        text += static_cast<char>(ham->chip[cm->address().value() + i]);
      }
    }
    return text;
  }

  Support::ManualLoop loop;
  Zint::Ptr<WorldHam> ham;
  HardwareShadow::Ptr shadow;
  std::vector<ChipMemory::Ptr> regions;
  Hardware::ChipReader::Ptr reader;
};

// The lines about entries, with all that is said of them but the time.
std::string findingLines(Support::TraceCapture& trace) {
  std::string text;
  for (const auto& line : std::exchange(trace.full, {})) {
    if (line.handle != "Umbra" || line.function != "doAuditChips" ||
        line.text == "HardwareShadow::doAuditChips") {
      continue;
    }
    text += std::to_string(line.level) + line.function + line.source + line.text + "\n";
  }
  return text;
}

// What was recorded, by level, with the numbers and texts of each record, and without its time.
std::string takenRecords() {
  std::string text;
  for (U32 level = 0; level <= 9; ++level) {
    const U64 lost = Mirl::theTraceFile.ringBuf(level).lost();
    EXPECT_EQ(lost, 0u) << "level " << level;
    for (const Mirl::Record& record : Mirl::theTraceFile.records(level)) {
      text += std::to_string(level) + " " + std::to_string(record.id) + " " + record.text.bytes();
      for (const Mirl::Argument& argument : record.arguments) {
        const auto* number = std::get_if<Mirl::Number>(&argument);
        text += number != nullptr
                    ? "|" + std::to_string(number->value) + ":" + std::to_string(number->bytes)
                    : "|" + std::get<Zint::String8>(argument).bytes();
      }
      text += "\n";
    }
  }
  Mirl::theTraceFile.clear();
  return text;
}

void damage(World& world, Support::Random random) {
  for (const ChipMemory::Ptr& cm : world.regions) {
    const U32 bytes = cm->entries() * cm->entrySize();
    for (U32 i = random.below(6); i > 0; --i) {
      const U32 at = random.below(bytes);
      world.ham->chip[cm->address().value() + at] = random.byte();
    }
    if (!cm->shadowStoreNeeded()) continue;
    for (U32 i = random.below(8); i > 0; --i) {
      const U32 entry = random.below(cm->entries());
      std::vector<U8> value(cm->entrySize());
      for (U8& byte : value) byte = random.byte();
      if (!world.shadow->shadowWriteAndCompareWithCache(cm, entry, value.data(), cm->entrySize())) {
        world.ham->chip.write(cm->entryAddress(entry).value(), value.data(), cm->entrySize());
      }
    }
  }
}

TEST(PatrolEquivalence, randomWorlds) {
  Support::TraceCapture trace(8);
  U32 fixed = 0;
  std::size_t recorded = 0;
  for (U64 seed = 1; seed <= 400; ++seed) {
    World plain(false, seed), patrol(true, seed);
    Support::Random random(1000 + seed);
    for (U32 pass = 0; pass < 5; ++pass) {
      const Support::Random damages(random.next());
      trace.full.clear();
      damage(plain, damages);
      Mirl::theTraceFile.clear();
      plain.pass();
      const std::string expected = findingLines(trace), expectedRecords = takenRecords();
      damage(patrol, damages);
      trace.full.clear();
      Mirl::theTraceFile.clear();
      patrol.pass();
      ASSERT_EQ(findingLines(trace), expected) << "seed " << seed << " pass " << pass;
      ASSERT_EQ(takenRecords(), expectedRecords) << "seed " << seed << " pass " << pass;
      recorded += static_cast<std::size_t>(
          std::count(expectedRecords.begin(), expectedRecords.end(), '\n'));
      ASSERT_EQ(patrol.observed(), plain.observed()) << "seed " << seed << " pass " << pass;
    }
    for (const ChipMemory::Ptr& cm : plain.regions) fixed += cm->registersFixed();
  }
  EXPECT_GT(fixed, 1000u);
  EXPECT_GT(recorded, 5000u);
}

}  // namespace
