// Maps as makers publish them, from the folder that UMBRA_MAPS names. Skipped without it.
#include <maps/Regions.h>
#include <maps/Table.h>
#include <maps/Trials.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "MapsTest.h"

namespace {

std::vector<std::string> realMaps() {
  std::vector<std::string> files;
  const char* const folder = std::getenv("UMBRA_MAPS");
  if (folder == nullptr || *folder == '\0') return files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const auto ending = entry.path().extension();
    if (ending == ".svd" || ending == ".xml") files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

class RealMaps : public testing::Test {
 protected:
  void SetUp() override {
    files_ = realMaps();
    if (files_.empty()) GTEST_SKIP() << "UMBRA_MAPS names no folder with register maps";
  }
  std::vector<std::string> files_;
};

TEST_F(RealMaps, everyFile_isImportedWithoutANoteAboutItsNumbers) {
  for (const std::string& file : files_) {
    const Maps::Map map = Maps::readMap(file);
    EXPECT_LT(20u, map.registers.size()) << file;
    EXPECT_GT(100u, map.notes.size()) << file;
  }
}

TEST_F(RealMaps, whatIsProposed_hasNoTagAndNoWordAndSharesNoByte) {
  for (const std::string& file : files_) {
    const Maps::Plan plan = Maps::proposed(Maps::readMap(file));
    EXPECT_LT(0u, plan.audited()) << file;
    EXPECT_LT(0u, plan.choices.size() - plan.decided()) << file;
    std::vector<const Maps::Register*> proposed;
    for (std::size_t i = 0; i < plan.choices.size(); ++i) {
      if (!plan.choices[i].rule) continue;
      const Maps::Register& r = plan.map.registers[i];
      proposed.push_back(&r);
      EXPECT_EQ(Maps::ReadAction::none, r.layout->readAction);
      EXPECT_EQ(Maps::WriteEffect::modify, r.layout->writeEffect);
      for (const Maps::Field& field : r.layout->fields) {
        EXPECT_EQ(Maps::Access::readWrite, field.access.value_or(Maps::Access::readWrite));
        EXPECT_EQ(Maps::ReadAction::none, field.readAction);
        EXPECT_EQ(Maps::WriteEffect::modify, field.writeEffect);
      }
    }
    std::sort(proposed.begin(), proposed.end(),
              [](const auto* a, const auto* b) { return a->address < b->address; });
    for (std::size_t i = 1; i < proposed.size(); ++i) {
      EXPECT_LE(proposed[i - 1]->end(), proposed[i]->address) << plan.map.nameOf(*proposed[i]);
    }
  }
}

TEST_F(RealMaps, regions_holdEveryDecidedRegisterOnceAndDoNotOverlap) {
  for (const std::string& file : files_) {
    const Maps::Plan plan = Maps::proposed(Maps::readMap(file));
    std::vector<U32> seen(plan.choices.size());
    U64 end = 0;
    std::unordered_map<std::string, int> names;
    for (const Maps::Region& region : Maps::regionsOf(plan)) {
      EXPECT_LE(end, region.address) << region.name;
      end = region.address + U64{region.stride} * region.entries;
      EXPECT_EQ(1, ++names[region.name]) << region.name;
      for (U32 e = 0; e < region.entries; ++e) {
        const Maps::Register& r = plan.map.registers[region.registers[e]];
        EXPECT_EQ(region.address + U64{region.stride} * e, r.address) << region.name;
        EXPECT_EQ(region.entrySize, r.layout->bytes());
        ++seen[region.registers[e]];
      }
    }
    for (std::size_t i = 0; i < seen.size(); ++i) {
      EXPECT_EQ(plan.choices[i].rule ? 1u : 0u, seen[i]) << plan.map.nameOf(plan.map.registers[i]);
    }
  }
}

TEST_F(RealMaps, scratchChip_passesTheReadyMadeTrials) {
  for (const std::string& file : files_) {
    const Maps::Plan plan = Maps::proposed(Maps::readMap(file));
    Maps::ScratchChip chip(plan.map);
    EXPECT_EQ(0u, Maps::tryResetValues(plan, chip).failed) << file;
    EXPECT_EQ(0u, Maps::tryBitBash(plan, chip).failed) << file;
    EXPECT_EQ(0u, Maps::tryAccessRights(plan, chip).failed) << file;
  }
}

TEST_F(RealMaps, headers_areMadeOfAll) {
  for (const std::string& file : files_) {
    const Maps::Plan plan = Maps::proposed(Maps::readMap(file));
    EXPECT_NE(std::string::npos, Maps::headerText(plan, "chip").find("regions[] = {"));
    EXPECT_EQ(Maps::regionsOf(plan).size(), Maps::Table(plan).regions().size());
  }
}

}  // namespace
