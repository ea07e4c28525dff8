#include "tools/console/Watches.h"

#include <algorithm>

#include "tools/console/Values.h"

namespace Console {

class ChangeNotifiee : public Zint::NotifieeConst {
 public:
  ChangeNotifiee(const Zint::Ptr<Zint::ActivityConfig>& activity, const Zint::GenericIf_& object,
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

Zint::Ptr<Zint::NotifieeConst> changeNotifiee(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                              const Zint::GenericIf_& object,
                                              const std::string& name,
                                              std::function<void()> changed) {
  return Zint::makePtr<ChangeNotifiee>(activity, object, name, std::move(changed));
}

// One watched attribute.
class Watches::Watch : public ChangeNotifiee {
 public:
  Watch(const Watches& watches, std::string watchedPath, const Zint::GenericIf_& object,
        const std::string& name)
      : ChangeNotifiee(watches.activity_, object, name, [this] { poll(); }),
        path(std::move(watchedPath)),
        print_(watches.print_),
        object_(object),
        name_(name),
        typeName_(object.type().find(name.c_str())->typeName),
        last_(object.attribute(name)) {}

  void poll() {
    const Zint::String8 text = object_.attribute(name_);
    if (text == last_) return;
    const Zint::String8 before = std::exchange(last_, text);
    print_(path + ": " + shortText(typeName_, before.bytes()) + " -> " +
           shortText(typeName_, text.bytes()));
  }

  const std::string path;

 private:
  const Print& print_;
  const Zint::GenericIf_ object_;
  const Zint::String8 name_;
  const std::string typeName_;
  Zint::String8 last_;
};

// Looks at all of them from time to time.
class Watches::Poll : public Zint::Clock::NotifieeConst {
 public:
  static constexpr Zint::Seconds interval = 0.1;

  explicit Poll(Watches& watches)
      : NotifieeConst(watches.activity_, Zint::Ptr<const Zint::Clock>(watches.activity_->clock())),
        watches_(watches) {}
  void onTime() override {
    timeMinIs(Zint::now() + interval);
    watches_.poll();
  }

 private:
  Watches& watches_;
};

Watches::Watches(const Zint::Ptr<Zint::ActivityConfig>& activity, Print print)
    : activity_(activity), print_(std::move(print)), poll_(Zint::makePtr<Poll>(*this)) {}

Watches::~Watches() {
  unwatchAll();
  poll_->hasNotificationActiveIs(false);
}

bool Watches::watch(const std::string& path, const Zint::GenericIf_& object,
                    const std::string& name) {
  const std::vector<std::string> already = paths();
  if (std::find(already.begin(), already.end(), path) != already.end()) return false;
  watches_.push_back(Zint::makePtr<Watch>(*this, path, object, name));
  if (!poll_->isArmed()) poll_->timeMinIs(0.0);
  return true;
}

bool Watches::unwatch(const std::string& path) {
  const auto place = std::find_if(watches_.begin(), watches_.end(),
                                  [&](const auto& watch) { return watch->path == path; });
  if (place == watches_.end()) return false;
  (*place)->hasNotificationActiveIs(false);
  watches_.erase(place);
  if (watches_.empty()) poll_->timeMinIs(Zint::never);
  return true;
}

void Watches::unwatchAll() {
  while (!watches_.empty()) unwatch(std::string(watches_.back()->path));
}

std::vector<std::string> Watches::paths() const {
  std::vector<std::string> paths;
  for (const auto& watch : watches_) paths.push_back(watch->path);
  return paths;
}

void Watches::poll() {
  const auto watches = watches_;
  for (const auto& watch : watches) watch->poll();
}

}  // namespace Console
