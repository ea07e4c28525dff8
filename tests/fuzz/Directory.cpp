// The directory beside a std::map: who is found, made and removed, what is announced, the refusals
// with their texts, and walks that go on while members come and go.
#include <Hardware/ChipMemoryBogon.h>
#include <Zint/ObjectText.h>

#include <map>
#include <optional>

#include "fuzz/Fuzz.h"

namespace {

using Hardware::ChipAddress;
using Hardware::ChipHam;
using Hardware::ChipMemory;
using Hardware::ChipMemoryBogon;
using Zint::String8;

constexpr U32 maxWalks = 4;

// The order of a walk: by the name's hash with its bits reversed, then as they came.
struct Place {
  U32 hash;
  U32 order;
  friend auto operator<=>(const Place&, const Place&) = default;
};

U32 reversedHash(const std::string& name) {
  const U32 hash = String8(name).hash();
  U32 reversed = 0;
  for (U32 bit = 0; bit < 32; ++bit) reversed |= ((hash >> bit) & 1) << (31 - bit);
  return reversed;
}

struct Held {
  ChipMemory::Ptr region;
  Place place;
  U64 address;
  U32 entries, entrySize, stride;
  ChipHam::Ptr ham;
};

struct Walk {
  ChipMemoryBogon::ChipMemoryIterator iterator;
  bool atEnd = false;       // of where it stands
  std::string next{};       // the member at which it stands
  bool stepped = false;     // there because the one it shows has left
  ChipMemory::Ptr shown{};  // null at the end
};

class Observer : public ChipMemoryBogon::NotifieeConst {
 public:
  Observer(const ChipMemoryBogon::Ptr& directory, std::vector<std::string>& told)
      : NotifieeConst(nullptr, Zint::Ptr<const ChipMemoryBogon>(directory)), told_(told) {
    isNonReferencingIs(true);  // so that the directory can end
  }
  void onChipMemory(String8 name) override { told_.push_back(name.bytes()); }

 private:
  std::vector<std::string>& told_;
};

class Beside {
 public:
  explicit Beside(Fuzz::Input& input) : input_(input) {}

  void run() {
    while (!input_.empty()) {
      expectedTold_.clear();
      told_.clear();
      step();
      compare();
    }
    // The end of the directory announces every removal.
    expectedTold_.clear();
    told_.clear();
    for (const auto& [place, name] : order_) expectedTold_.push_back(name);
    walks_.clear();
    directory_ = nullptr;
    announced();
    for (const auto& [name, held] : members_) {
      Fuzz::same("references", std::size_t{1}, held.region->references(), story_);
    }
  }

 private:
  void step() {
    switch (input_.below(10)) {
      case 0:
      case 1:
      case 2:
        return asked();
      case 3:
        return removed();
      case 4:
        if (input_.below(8) != 0) return;
        story_.add("remove all");
        directory_->chipMemoryDelAll();
        while (!order_.empty()) gone(order_.begin()->second);
        return;
      case 5:
        return walkBegun();
      case 6:
      case 7:
        return walkMoved();
      case 8:
        return removedByWalk();
      default:
        return madeUnasked();
    }
  }

  // Names of a few letters, so that they meet, among them those that share a bucket.
  std::string anyName() {
    const U8 kind = input_.byte();
    return kind < 64 ? input_.text(6) : "n" + std::to_string(kind % 24);
  }
  void argumentsChosen(Held& asked) {
    constexpr U32 sizes[] = {4, 8, 1, 16};
    asked.address = input_.below(4) == 0 ? input_.doubleWord() : input_.below(3) * 0x1000;
    asked.entries = input_.below(20);
    asked.entrySize = sizes[input_.below(4)];
    asked.stride = input_.below(8) == 0 ? input_.word() : asked.entrySize;
    asked.ham = hams_[input_.below(3)];
  }
  ChipMemory::Ptr ask(const std::string& name, const Held& asked) {
    return directory_->chipMemoryIs(name, ChipAddress(asked.address), asked.entries,
                                    asked.entrySize, asked.stride, asked.ham);
  }

  void asked() {
    const std::string name = anyName();
    Held asked{};
    argumentsChosen(asked);
    const auto place = members_.find(name);
    if (place != members_.end()) {
      // As it is, but for what a few bits say.
      const Held& held = place->second;
      const U8 keep = input_.byte();
      if ((keep & 3) != 0) asked.address = held.address;
      if ((keep & 12) != 0) asked.entrySize = held.entrySize;
      if ((keep & 48) != 0) asked.stride = held.stride;
      if ((keep & 192) != 0) asked.ham = held.ham;
    }
    story_.add("ask for ", name, " address ", asked.address, " entries ", asked.entries,
               " entrySize ", asked.entrySize, " stride ", asked.stride, " ", asked.ham->name());
    if (place == members_.end()) {
      came(name, asked, ask(name, asked));
      expectedTold_.push_back(name);
      return;
    }
    askedAgain(place->second, asked, name);
  }
  void askedAgain(Held& held, const Held& asked, const std::string& name) {
    std::string refusal;
    const auto compared = [&refusal](const char* attribute, bool differs, const String8& passed,
                                     const String8& present) {
      if (!differs || !refusal.empty()) return;
      refusal = "Reinstantiating the pointer interface where constructor parameter attribute " +
                (attribute + (" has a different value of " + passed.bytes())) +
                " than the current value of " + present.bytes() + " not allowed";
    };
    compared("_address", asked.address != held.address, ChipAddress(asked.address).stringValue(),
             ChipAddress(held.address).stringValue());
    if (refusal.empty()) held.entries = asked.entries;
    compared("_entrySize", asked.entrySize != held.entrySize, std::to_string(asked.entrySize),
             std::to_string(held.entrySize));
    compared("_stride", asked.stride != held.stride, std::to_string(asked.stride),
             std::to_string(held.stride));
    compared("_chipHam", asked.ham != held.ham, Zint::valueToStrep(asked.ham),
             Zint::valueToStrep(held.ham));
    std::string raised;
    try {
      Fuzz::same("the same region", true, ask(name, asked) == held.region, story_);
    } catch (const Zint::NameInUseException& exception) {
      raised = exception.what();
    }
    Fuzz::same("refusal", refusal, raised, story_);
  }
  void madeUnasked() {
    const std::string name = anyName();
    Held held{};
    argumentsChosen(held);
    if (members_.contains(name)) return;
    story_.add("make ", name);
    came(name, held,
         directory_->newChipMemory(name, ChipAddress(held.address), held.entries, held.entrySize,
                                   held.stride, held.ham));
  }
  void came(const std::string& name, Held held, const ChipMemory::Ptr& region) {
    Fuzz::same("made", true, region != nullptr, story_);
    held.region = region;
    held.place = {reversedHash(name), arrivals_++};
    members_.emplace(name, held);
    order_.emplace(held.place, name);
  }

  void removed() {
    const std::string name = anyName();
    story_.add("remove ", name);
    const auto place = members_.find(name);
    const ChipMemory::Ptr region = directory_->chipMemoryDel(name);
    Fuzz::same("removed", true,
               region == (place == members_.end() ? nullptr : place->second.region), story_);
    if (region != nullptr) gone(name);
  }
  void gone(const std::string name) {
    for (Walk& walk : walks_) {
      if (walk.atEnd || walk.next != name) continue;
      walk.next = after(name, walk.atEnd);
      walk.stepped = true;
    }
    order_.erase(members_.at(name).place);
    members_.erase(name);
    expectedTold_.push_back(name);
  }
  // The member behind that one.
  std::string after(const std::string& name, bool& atEnd) const {
    const auto next = order_.upper_bound(members_.at(name).place);
    atEnd = next == order_.end();
    return atEnd ? "" : next->second;
  }

  void walkBegun() {
    if (walks_.size() == maxWalks) walks_.erase(walks_.begin() + input_.below(maxWalks));
    story_.add("walk");
    Walk walk{directory_->chipMemoryIterator()};
    walk.atEnd = order_.empty();
    if (!walk.atEnd) walk.next = order_.begin()->second;
    if (!walk.atEnd) walk.shown = members_.at(walk.next).region;
    walks_.push_back(walk);
  }
  Walk* anyWalk() {
    if (walks_.empty()) return nullptr;
    Walk& walk = walks_[input_.byte() % static_cast<U32>(walks_.size())];
    return walk.shown == nullptr ? nullptr : &walk;
  }
  void walkMoved() {
    Walk* walk = anyWalk();
    if (walk == nullptr) return;
    story_.add("step from ", walk->shown->name());
    ++walk->iterator;
    if (!walk->stepped) walk->next = after(walk->next, walk->atEnd);
    walk->stepped = false;
    walk->shown = walk->atEnd ? nullptr : members_.at(walk->next).region;
  }
  void removedByWalk() {
    Walk* walk = anyWalk();
    if (walk == nullptr) return;
    const std::string name = walk->shown->name().bytes();
    story_.add("remove at the walk ", name);
    walk->iterator.del();
    if (!walk->stepped) gone(name);  // one that has left is left alone, and so is its successor
  }

  void compare() {
    announced();
    Fuzz::same("members", members_.size(), std::size_t{directory_->chipMemorys()}, story_);
    for (const auto& [name, held] : members_) {
      const ChipMemory::Ptr found = directory_->chipMemory(name);
      Fuzz::same("found", true, found == held.region, story_);
      Fuzz::same("name", name, found->name().bytes(), story_);
      Fuzz::same("address", held.address, found->address().value(), story_);
      Fuzz::same("entries", held.entries, found->entries(), story_);
      Fuzz::same("entrySize", held.entrySize, found->entrySize(), story_);
      Fuzz::same("stride", held.stride, found->stride(), story_);
      Fuzz::same("ham", true, held.ham == found->chipHam(), story_);
    }
    auto expected = order_.begin();
    for (auto it = directory_->chipMemoryIteratorConst(); it; ++it, ++expected) {
      Fuzz::same("the walk is too long", false, expected == order_.end(), story_);
      Fuzz::same("in the walk", expected->second, it->name().bytes(), story_);
    }
    Fuzz::same("the walk is too short", true, expected == order_.end(), story_);
    for (const Walk& walk : walks_) {
      Fuzz::same("a walk shows", true, *walk.iterator == walk.shown, story_);
    }
  }
  void announced() {
    Fuzz::same("announcements", expectedTold_.size(), told_.size(), story_);
    for (std::size_t i = 0; i < told_.size(); ++i) {
      Fuzz::same("announced", expectedTold_[i], told_[i], story_);
    }
  }

  Fuzz::Input& input_;
  Fuzz::Story story_;
  std::vector<std::string> told_;
  std::vector<std::string> expectedTold_;
  const std::vector<ChipHam::Ptr> hams_ = {
      Zint::makePtr<ChipHam>("ham"), Zint::makePtr<ChipHam>("ham"), Zint::makePtr<ChipHam>("it's")};
  ChipMemoryBogon::Ptr directory_ = Hardware::chipMemoryBogonFactory("directory");
  const Zint::Ptr<Observer> observer_ = Zint::makePtr<Observer>(directory_, told_);

  std::map<std::string, Held> members_;
  std::map<Place, std::string> order_;
  std::vector<Walk> walks_;
  U32 arrivals_ = 0;
};

void run(const U8* bytes, std::size_t size) {
  Fuzz::Quiet quiet;
  Fuzz::Input input(bytes, size);
  Beside(input).run();
}

}  // namespace

FUZZ_TARGET("directory", run)
