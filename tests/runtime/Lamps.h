// A type with every kind of member, described by the tests of reflection themselves.
#pragma once

#include <Zint/Collections.h>
#include <Zint/Entity.h>
#include <Zint/GenericIf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <utility>

namespace Lamps {

using Zint::String8;

class Lamp : public Zint::Entity {
 public:
  explicit Lamp(Zint::Name name, U8 level = 0) : Entity(std::move(name)), level_(level) {}

  const Zint::Type* fwkType() const override;

  U8 level() const { return level_; }
  void levelIs(U8 level) {
    level_ = level;
    ++changes_;
  }
  bool lit() const { return lit_; }
  void litIs(bool lit) { lit_ = lit; }
  Zint::Seconds period() const { return period_; }
  void periodIs(Zint::Seconds period) {
    if (period < 0) Zint::throwRangeException("a period is not negative");
    period_ = period;
  }
  const Zint::Ptr<Lamp>& partner() const { return partner_; }
  void partnerIs(const Zint::Ptr<Lamp>& partner) { partner_ = partner; }
  U32 changes() const { return changes_; }

  U32 brightness(U8 factor, U8 offset) const { return U32{level_} * factor + offset; }
  void dim(U8 by, U8 least) { levelIs(static_cast<U8>(std::max<int>(least, level_ - by))); }
  Zint::Ptr<Lamp> mate() const { return partner_; }

  std::map<U32, Zint::Ptr<Lamp>> shelf;

 private:
  U8 level_;
  bool lit_ = false;
  Zint::Seconds period_ = 0;
  Zint::Ptr<Lamp> partner_;
  U32 changes_ = 0;
};

constexpr const char* zintTypeName(const Lamp*) { return "Lamps::Lamp"; }

inline String8 greeting(Lamp& lamp, String8 word) { return word + " " + lamp.name(); }

inline Zint::Ptr<Lamp> lampFactory(Zint::Name name, U8 level) {
  return Zint::makePtr<Lamp>(std::move(name), level);
}

inline Zint::Ptr<Lamp> lampOnShelf(const Lamp& lamp, U32 place) {
  const auto found = lamp.shelf.find(place);
  return found == lamp.shelf.end() ? nullptr : found->second;
}
inline U32 lampsOnShelf(const Lamp& lamp) { return static_cast<U32>(lamp.shelf.size()); }
inline const std::map<U32, Zint::Ptr<Lamp>>& shelfOf(const Lamp& lamp) { return lamp.shelf; }
inline void takeFromShelf(Lamp& lamp, U32 place) { lamp.shelf.erase(place); }
inline void clearShelf(Lamp& lamp) { lamp.shelf.clear(); }
inline Zint::Ptr<Lamp> putOnShelf(Lamp& lamp, U32 place, Zint::Ptr<Lamp> other) {
  return lamp.shelf[place] = other;
}

inline constexpr Zint::ListAccess openShelf =
    Zint::mapList<&lampOnShelf, &lampsOnShelf, &shelfOf, &takeFromShelf, &clearShelf, &putOnShelf>(
        "place", "place", "lamp");
inline constexpr Zint::ListAccess fixedShelf =
    Zint::mapList<&lampOnShelf, &lampsOnShelf, &shelfOf>("place");

inline constexpr Zint::Member lampMembers[] = {
    Zint::constructorParameter<&Lamp::name>("name"),
    Zint::attribute<&Lamp::level, &Lamp::levelIs>("level"),
    Zint::attribute<&Lamp::lit, &Lamp::litIs>("lit"),
    Zint::attribute<&Lamp::period, &Lamp::periodIs>("period"),
    Zint::attribute<&Lamp::partner, &Lamp::partnerIs>("partner"),
    Zint::readOnly<&Lamp::changes>("changes"),
    Zint::operation<&Lamp::brightness>("brightness", "factor", "offset"),
    Zint::operation<&Lamp::dim>("dim", "by", "?least"),
    Zint::operation<&Lamp::mate>("mate"),
    Zint::operation<&greeting>("greeting", "word"),
    Zint::collection("shelf", openShelf),
    Zint::collection("fixed", fixedShelf),
};
inline constexpr Zint::Type lampType{"Lamps::Lamp", "entity", nullptr, lampMembers};

inline const Zint::Type* Lamp::fwkType() const { return &lampType; }

inline constexpr Zint::Member factory = Zint::factory<&lampFactory>("lampFactory", "name", "level");

// A lamp that has another one for its partner and both on its shelf, by name.
class LampTest : public testing::Test {
 protected:
  void SetUp() override {
    lamp->partnerIs(other);
    lamp->shelf = {{3, other}, {7, lamp}};
  }
  void TearDown() override {  // the two hold each other
    lamp->partnerIs(nullptr);
    lamp->shelf.clear();
  }

  Zint::Ptr<Lamp> lamp = Zint::makePtr<Lamp>("lamp", U8{40});
  Zint::Ptr<Lamp> other = Zint::makePtr<Lamp>("other", U8{5});
  Zint::GenericIf_ named{lamp};
  Zint::GenericIf_ view = Zint::GenericIf_::readOnlyView(lamp);
};

}  // namespace Lamps
