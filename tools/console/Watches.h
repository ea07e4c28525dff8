// Attributes that are being watched: each change is printed. A change with a notification is
// printed within the call that makes it. One without is found by the next poll, which comes after
// each command, and ten times a second while time passes.
#pragma once

#include <Zint/Activity.h>
#include <Zint/GenericIf.h>

#include <functional>
#include <string>
#include <vector>

namespace Console {

class Watches {
 public:
  using Print = std::function<void(const std::string& line)>;

  Watches(const Zint::Ptr<Zint::ActivityConfig>& activity, Print print);
  ~Watches();
  Watches(const Watches&) = delete;
  Watches& operator=(const Watches&) = delete;

  // Holds the object until it is unwatched. False when the path is watched already.
  bool watch(const std::string& path, const Zint::GenericIf_& object, const std::string& name);
  // False when it was not watched.
  bool unwatch(const std::string& path);
  void unwatchAll();
  std::vector<std::string> paths() const;
  // Tells what has changed without a word.
  void poll();

 private:
  class Watch;
  class Poll;

  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Print print_;
  std::vector<Zint::Ptr<Watch>> watches_;
  Zint::Ptr<Poll> poll_;
};

// Calls `changed` whenever the object announces a change of the attribute.
Zint::Ptr<Zint::NotifieeConst> changeNotifiee(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                              const Zint::GenericIf_& object,
                                              const std::string& name,
                                              std::function<void()> changed);

}  // namespace Console
