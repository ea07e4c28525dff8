// The closing account of a story, scene by scene, as text.
#pragma once

#include <string>
#include <vector>

#include "demo/common/Report.h"

namespace Demo {

struct StoryReport {
  // Every scene ends with a chip that is as the shadow has it, so the errors of a scene are those
  // that it began and ended.
  struct Scene {
    std::string name;
    Account account;                    // of this scene alone; without what is undone
    std::string outcome;                // how it was met, in a few words
    std::vector<std::string> failures;  // what did not come about, one sentence each
  };

  std::vector<Scene> scenes;
  Report end;

  // What is wrong, one sentence each; empty when all is well.
  std::vector<std::string> faults() const;
  std::string text() const;
};

}  // namespace Demo
