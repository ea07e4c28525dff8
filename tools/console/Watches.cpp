#include "tools/console/Watches.h"

#include <algorithm>

#include "tools/console/Values.h"

namespace Console {
namespace {

class Announcements : public Zint::NotifieeConst {
 public:
  Announcements(const Zint::Ptr<Zint::ActivityConfig>& activity, const Zint::GenericIf_& object,
                const std::string& name, std::function<void()> changed)
      : NotifieeConst(activity, object.object()),
        type_(object.type()),
        name_(name),
        changed_(std::move(changed)) {}

  void handleNotification(Zint::ActivityConfig*) override {
    if (type_.attributeString(attribute()) == name_) changed_();
  }

 private:
  const Zint::Type& type_;
  const Zint::String8 name_;
  const std::function<void()> changed_;
};

}  // namespace

Zint::Ptr<Zint::NotifieeConst> announcements(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                             const Zint::GenericIf_& object,
                                             const std::string& name,
                                             std::function<void()> changed) {
  return Zint::makePtr<Announcements>(activity, object, name, std::move(changed));
}

// One watched attribute.
class Watches::Watch : public Announcements {
 public:
  Watch(const Watches& watches, std::string watchedPath, const Zint::GenericIf_& object,
        const std::string& name)
      : Announcements(watches.activity_, object, name, [this] { looked(); }),
        path(std::move(watchedPath)),
        tell_(watches.tell_),
        object_(object),
        name_(name),
        typeName_(object.type().find(name.c_str())->typeName),
        last_(object.attribute(name)) {}

  void looked() {
    const Zint::String8 text = object_.attribute(name_);
    if (text == last_) return;
    const Zint::String8 before = std::exchange(last_, text);
    tell_(path + ": " + shortText(typeName_, before.bytes()) + " -> " +
          shortText(typeName_, text.bytes()));
  }

  const std::string path;

 private:
  const Tell& tell_;
  const Zint::GenericIf_ object_;
  const Zint::String8 name_;
  const std::string typeName_;
  Zint::String8 last_;
};

// Looks at all of them from time to time.
class Watches::Look : public Zint::Clock::NotifieeConst {
 public:
  static constexpr Zint::Seconds interval = 0.1;

  explicit Look(Watches& watches)
      : NotifieeConst(watches.activity_, Zint::Ptr<const Zint::Clock>(watches.activity_->clock())),
        watches_(watches) {}
  void onTime() override {
    timeMinIs(Zint::now() + interval);
    watches_.looked();
  }

 private:
  Watches& watches_;
};

Watches::Watches(const Zint::Ptr<Zint::ActivityConfig>& activity, Tell tell)
    : activity_(activity), tell_(std::move(tell)), look_(Zint::makePtr<Look>(*this)) {}

Watches::~Watches() {
  unwatchedAll();
  look_->hasNotificationActiveIs(false);
}

bool Watches::watched(const std::string& path, const Zint::GenericIf_& object,
                      const std::string& name) {
  const std::vector<std::string> already = paths();
  if (std::find(already.begin(), already.end(), path) != already.end()) return false;
  watches_.push_back(Zint::makePtr<Watch>(*this, path, object, name));
  if (!look_->isArmed()) look_->timeMinIs(0.0);
  return true;
}

bool Watches::unwatched(const std::string& path) {
  const auto place = std::find_if(watches_.begin(), watches_.end(),
                                  [&](const auto& watch) { return watch->path == path; });
  if (place == watches_.end()) return false;
  (*place)->hasNotificationActiveIs(false);
  watches_.erase(place);
  if (watches_.empty()) look_->timeMinIs(Zint::never);
  return true;
}

void Watches::unwatchedAll() {
  while (!watches_.empty()) unwatched(std::string(watches_.back()->path));
}

std::vector<std::string> Watches::paths() const {
  std::vector<std::string> paths;
  for (const auto& watch : watches_) paths.push_back(watch->path);
  return paths;
}

void Watches::looked() {
  const auto watches = watches_;
  for (const auto& watch : watches) watch->looked();
}

}  // namespace Console
