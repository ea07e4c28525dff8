#include "demo/common/StoryReport.h"

#include <Zint/Strep.h>

namespace Demo {

std::vector<std::string> StoryReport::faults() const {
  std::vector<std::string> faults;
  for (const Scene& scene : scenes) {
    for (const std::string& failure : scene.failures) faults.push_back(scene.name + ": " + failure);
  }
  for (const std::string& fault : end.faults()) faults.push_back(fault);
  return faults;
}

std::string StoryReport::text() const {
  std::string text = " scene          errors  repaired  restored  overwritten  met by\n";
  for (const Scene& scene : scenes) {
    const auto number = [](U64 value) { return static_cast<unsigned long long>(value); };
    text += Zint::format(" %-12s %8llu %9llu %9llu %12llu  %s\n", scene.name.c_str(),
                         number(scene.account.injected), number(scene.account.repaired),
                         number(scene.account.restored), number(scene.account.overwritten),
                         scene.outcome.c_str())
                .bytes();
  }
  text += "\n" + end.tableText();
  const std::vector<std::string> wrong = faults();
  for (const std::string& fault : wrong) text += " FAILED: " + fault + "\n";
  if (wrong.empty()) text += " OK: every error is accounted for and none remains\n";
  return text;
}

}  // namespace Demo
