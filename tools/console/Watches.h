// Attributes that are being watched: each change is told as it happens. What an object announces
// is told at once, within the call that changed it; what it changes without a word is seen at the
// next look, which comes ten times a second while time passes and after each command.
#pragma once

#include <Zint/Activity.h>
#include <Zint/GenericIf.h>

#include <functional>
#include <string>
#include <vector>

namespace Console {

class Watches {
 public:
  using Tell = std::function<void(const std::string& line)>;

  Watches(const Zint::Ptr<Zint::ActivityConfig>& activity, Tell tell);
  ~Watches();
  Watches(const Watches&) = delete;
  Watches& operator=(const Watches&) = delete;

  // Holds the object until it is unwatched. False when the path is watched already.
  bool watched(const std::string& path, const Zint::GenericIf_& object, const std::string& name);
  // False when it was not watched.
  bool unwatched(const std::string& path);
  void unwatchedAll();
  std::vector<std::string> paths() const;
  // Tells what has changed without a word.
  void looked();

 private:
  class Watch;
  class Look;

  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Tell tell_;
  std::vector<Zint::Ptr<Watch>> watches_;
  Zint::Ptr<Look> look_;
};

// Calls `changed` whenever the object announces a change of the attribute.
Zint::Ptr<Zint::NotifieeConst> announcements(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                             const Zint::GenericIf_& object,
                                             const std::string& name,
                                             std::function<void()> changed);

}  // namespace Console
