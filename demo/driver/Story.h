// A story of what can befall a chip, told in lines as it happens: soft errors, then the chip is
// absent, is reset, and has a stuck bit.
#pragma once

#include <functional>
#include <string>

#include "demo/common/Options.h"
#include "demo/common/StoryReport.h"
#include "demo/driver/Outside.h"
#include "demo/driver/Stage.h"

namespace Demo {

class Story {
 public:
  explicit Story(const Options& options);

  // Tells all of it once.
  StoryReport run();

 private:
  using Scene = StoryReport::Scene;

  void bringUp();
  void softErrors(Scene& scene);
  void absentChip(Scene& scene);
  void reset(Scene& scene);
  void stuckBit(Scene& scene);
  void liftStuckBit(Scene& scene);

  // Plays a scene, which must let the audit end what it began.
  void play(const char* name, void (Story::*scene)(Scene&));
  void say(const std::string& text);
  // Lets the system run: for that many seconds of the story, or until something holds. False when
  // that does not come about.
  void rest(double seconds);
  bool waitUntil(const std::function<bool()>& holds);
  void settle(Scene& scene);
  static void expect(Scene& scene, bool holds, const char* failure);
  // A configuration of the table that differs from the one before.
  void change(Table& table, U32 entry);

  const Options options_;
  const double scale_;  // seconds that a second of the story takes
  Stage stage_;
  Switch& switch_;
  Driver::AuditedShadow& shadow_;
  Driver::Chip& chip_;
  StoryReport report_;
  std::unique_ptr<Outside> outside_;
  Zint::Seconds began_;
};

}  // namespace Demo
