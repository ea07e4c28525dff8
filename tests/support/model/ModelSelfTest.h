// What the self tests of the model share.
#ifndef TESTS_MODEL_MODELSELFTEST_H_
#define TESTS_MODEL_MODELSELFTEST_H_

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Model.h"

namespace Model {

using Lines = std::vector<std::string>;

class ModelSelfTest : public testing::Test {
 protected:
  int table(const std::string& name, u64 address, u32 entries, u32 entrySize = 4) {
    return model.regionCreate(name, address, entries, entrySize, entrySize, ham);
  }
  int audited(const std::string& name, u64 address, u32 entries, u32 entrySize = 4) {
    int region = table(name, address, entries, entrySize);
    model.shadowEnabledIs(region, true);
    model.auditEnabledIs(region, true);
    return region;
  }
  void write(int region, u32 entry, u32 value) {
    u8 data[4] = {static_cast<u8>(value), static_cast<u8>(value >> 8), static_cast<u8>(value >> 16),
                  static_cast<u8>(value >> 24)};
    if (!model.shadowWriteAndCompareWithCache(shadow, region, entry, data, 4)) {
      const Region& r = model.region(region);
      model.methodWrite(ham, r.address + r.stride * entry, data, 4, 1);
    }
  }
  std::string fatalOf(const std::function<void()>& operation) {
    try {
      operation();
    } catch (const Fatal& fatal) {
      return fatal.textOpen ? "open" : fatal.condition;
    }
    return "";
  }
  std::vector<std::string> texts(int maxLevel = 9) {
    std::vector<std::string> lines;
    for (const TraceLine& line : model.trace()) {
      if (line.level <= maxLevel) lines.push_back(line.text);
    }
    model.trace().clear();
    return lines;
  }

  System model;
  int chip = model.chipCreate();
  int ham = model.genericMethodCreate("ham", chip);
  int shadow = model.shadowCreate();
};

}  // namespace Model

#endif  // TESTS_MODEL_MODELSELFTEST_H_
