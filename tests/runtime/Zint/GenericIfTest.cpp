// Objects by name, over a type that the test describes itself.
#include <Zint/Entity.h>
#include <Zint/GenericIf.h>
#include <Zint/Reflect.h>

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "runtime/Probes.h"

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

String8 greeting(Lamp& lamp, String8 word) { return word + " " + lamp.name(); }

Zint::Ptr<Lamp> lampFactory(Zint::Name name, U8 level) {
  return Zint::makePtr<Lamp>(std::move(name), level);
}

std::map<U32, Zint::Ptr<Lamp>>& shelfOf(const void* lamp) {
  return Zint::Detail::object<Lamp>(const_cast<void*>(lamp)).shelf;
}

constexpr Zint::ListAccess fixedShelf = [] {
  Zint::ListAccess list{};
  list.keyName = "place";
  list.valueType = "Lamps::Lamp";
  list.size = [](const void* lamp) { return static_cast<U32>(shelfOf(lamp).size()); };
  list.items = [](const void* lamp) {
    std::vector<Zint::ListItem> items;
    for (const auto& [place, other] : shelfOf(lamp)) {
      items.push_back({Zint::valueToStrep(place), Zint::Detail::result(other)});
    }
    return items;
  };
  list.find = [](const void* lamp, const String8& key) {
    const auto found = shelfOf(lamp).find(Zint::Detail::read<U32>(key));
    return found == shelfOf(lamp).end() ? Zint::Result{"null"}
                                        : Zint::Detail::result(found->second);
  };
  return list;
}();

constexpr Zint::ListAccess openShelf = [] {
  Zint::ListAccess list = fixedShelf;
  list.del = [](void* lamp, const String8& key) {
    shelfOf(lamp).erase(Zint::Detail::read<U32>(key));
  };
  list.delAll = [](void* lamp) { shelfOf(lamp).clear(); };
  list.arguments = {"place", "lamp"};
  list.insert = [](void* lamp, std::span<const String8* const> texts) {
    const U32 place = Zint::Detail::read<U32>(*texts[0]);
    const auto other = Zint::Detail::read<Zint::Ptr<Lamp>>(*texts[1]);
    shelfOf(lamp)[place] = other;
    return Zint::Detail::result(other);
  };
  return list;
}();

constexpr Zint::Member lampMembers[] = {
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
constexpr Zint::Type lampType{"Lamps::Lamp", "entity", nullptr, lampMembers};

const Zint::Type* Lamp::fwkType() const { return &lampType; }

constexpr Zint::Member factory =
    Zint::factory<&lampFactory>("lampFactory", "Lamps::Lamp", "name", "level");

}  // namespace Lamps

namespace {

using Lamps::Lamp;
using Probes::rangeMessage;
using Zint::GenericIf_;
using Zint::Ptr;

constexpr const char constInstance[] = "attempting to modify a const instance";

class GenericIf : public testing::Test {
 protected:
  void SetUp() override {
    lamp->partnerIs(other);
    lamp->shelf = {{3, other}, {7, lamp}};
  }
  void TearDown() override {  // the two hold each other
    lamp->partnerIs(nullptr);
    lamp->shelf.clear();
  }

  Ptr<Lamp> lamp = Zint::makePtr<Lamp>("lamp", U8{40});
  Ptr<Lamp> other = Zint::makePtr<Lamp>("other", U8{5});
  GenericIf_ named{lamp};
  GenericIf_ view = GenericIf_::readOnlyView(lamp);
};

// --- The object
// -----------------------------------------------------------------------------------

TEST_F(GenericIf, constructor_refusesNull) {
  EXPECT_EQ(rangeMessage([] { GenericIf_ none{Ptr<Lamp>()}; }), "null ValidPtr");
}

TEST_F(GenericIf, typeName_isTheObjectsOwn) {
  EXPECT_STREQ(named.typeName(), "Lamps::Lamp");
  EXPECT_STREQ(named.kindName(), "entity");
  EXPECT_EQ(&named.type(), &Lamps::lampType);
  EXPECT_EQ(named.object().ptr(), lamp.ptr());
  EXPECT_FALSE(named.isConst());
  EXPECT_TRUE(view.isConst());
}

TEST_F(GenericIf, holdsItsObject) {
  bool alive = false;
  Ptr<Probes::Thing> thing = Zint::makePtr<Probes::Thing>("thing", &alive);
  {
    const GenericIf_ holder(thing);
    thing = nullptr;
    EXPECT_TRUE(alive);
    EXPECT_EQ(holder.attribute("name"), "'thing'");
  }
  EXPECT_FALSE(alive);
}

TEST_F(GenericIf, of_isTheObjectOfAResult) {
  EXPECT_EQ(GenericIf_::of(named.target("partner")).attribute("level"), "5");
  EXPECT_EQ(rangeMessage([&] {
              GenericIf_::of(named.call("greeting", {{"word", "hi"}}));
            }),
            "no object: 'hi lamp'");
}

// --- Attributes ---------------------------------------------------------------------------------

TEST_F(GenericIf, attribute_isTheValuesText) {
  EXPECT_EQ(named.attribute("name"), "'lamp'");
  EXPECT_EQ(named.attribute("level"), "40");
  EXPECT_EQ(named.attribute("lit"), "false");
  EXPECT_EQ(named.attribute("period"), "0");
  EXPECT_EQ(named.attribute("partner"), Zint::objectText(other.ptr()));
  EXPECT_EQ(GenericIf_(other).attribute("partner"), "null");
}

TEST_F(GenericIf, attribute_ofACollectionIsTheNumberOfItsMembers) {
  EXPECT_EQ(named.attribute("shelf"), "2");
}

TEST_F(GenericIf, attributeIs_setsThroughTheAccessor) {
  named.attributeIs("level", "41");
  EXPECT_EQ(lamp->level(), 41);
  EXPECT_EQ(lamp->changes(), 1u);
  named.attributeIs("lit", "true");
  EXPECT_TRUE(lamp->lit());
  named.attributeIs("period", "0.25");
  EXPECT_EQ(lamp->period(), 0.25);
  named.attributeIs("partner", "null");
  EXPECT_EQ(lamp->partner(), nullptr);
  named.attributeIs("partner", Zint::objectText(other.ptr()));
  EXPECT_EQ(lamp->partner(), other);
}

TEST_F(GenericIf, target_isTheObjectOfAPointer) {
  EXPECT_EQ(named.target("partner").object.ptr(), other.ptr());
  EXPECT_FALSE(named.target("partner").isConst);
  EXPECT_EQ(rangeMessage([&] { named.target("level"); }), "Lamps::Lamp::level: is no object");
}

TEST_F(GenericIf, attribute_unknownNamesTypeAndText) {
  const char* unknown = "Lamps::Lamp: unknown member colour";
  EXPECT_EQ(rangeMessage([&] { named.attribute("colour"); }), unknown);
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("colour", "red"); }), unknown);
  EXPECT_EQ(rangeMessage([&] { named.target("colour"); }), unknown);
  EXPECT_EQ(rangeMessage([&] { named.list("colour"); }), unknown);
  EXPECT_EQ(rangeMessage([&] { named.call("colour", {}); }), unknown);
  EXPECT_EQ(rangeMessage([&] { named.attribute(""); }), "Lamps::Lamp: unknown member");
}

TEST_F(GenericIf, attribute_ofAnOperationIsRefused) {
  EXPECT_EQ(rangeMessage([&] { named.attribute("dim"); }), "Lamps::Lamp::dim: is no attribute");
}

TEST_F(GenericIf, attributeIs_ofAReadOnlyMemberIsRefused) {
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("changes", "9"); }),
            "Lamps::Lamp::changes: cannot be set to 9");
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("shelf", "9"); }),
            "Lamps::Lamp::shelf: cannot be set to 9");
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("dim", "9"); }),
            "Lamps::Lamp::dim: cannot be set to 9");
}

TEST_F(GenericIf, attributeIs_anUnreadableTextNamesTypeMemberAndTextAndChangesNothing) {
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("level", "abc"); }),
            "an integer expected at \"abc\" deserializing attribute Lamps::Lamp::level from "
            "\"abc\"");
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("level", "12x"); }),
            "junk at column 2 deserializing U8 deserializing attribute Lamps::Lamp::level from "
            "\"12x\"");
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("level", "300"); }),
            "300 is out of range deserializing attribute Lamps::Lamp::level from \"300\"");
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("level", ""); }),
            "an integer expected at \"\" deserializing attribute Lamps::Lamp::level from \"\"");
  EXPECT_EQ(lamp->level(), 40);
  EXPECT_EQ(lamp->changes(), 0u);
}

TEST_F(GenericIf, attributeIs_anObjectOfAnotherTypeIsRefused) {
  const auto thing = Zint::makePtr<Probes::Thing>("thing");
  const std::string text = Zint::objectText(thing.ptr()).bytes();
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("partner", text); }),
            text + " is of another type deserializing attribute Lamps::Lamp::partner from \"" +
                text + "\"");
  EXPECT_EQ(lamp->partner(), other);
}

TEST_F(GenericIf, attributeIs_whatTheAccessorRaisesPassesThrough) {
  EXPECT_EQ(rangeMessage([&] { named.attributeIs("period", "-1"); }), "a period is not negative");
}

// --- Operations ---------------------------------------------------------------------------------

TEST_F(GenericIf, call_takesNamedArgumentsInAnyOrder) {
  EXPECT_EQ(named.call("brightness", {{"factor", "2"}, {"offset", "7"}}).text, "87");
  EXPECT_EQ(named.call("brightness", {{"offset", "7"}, {"factor", "2"}}).text, "87");
}

TEST_F(GenericIf, call_ofNothingGivesAnEmptyText) {
  const Zint::Result result = named.call("dim", {{"least", "35"}, {"by", "10"}});
  EXPECT_EQ(result.text, "");
  EXPECT_EQ(result.object, nullptr);
  EXPECT_EQ(lamp->level(), 35);
}

TEST_F(GenericIf, call_anOptionalArgumentMayBeLeftOut) {
  named.call("dim", {{"by", "40"}});
  EXPECT_EQ(lamp->level(), 0);
}

TEST_F(GenericIf, call_givesTheObjectOfAPointer) {
  const Zint::Result result = named.call("mate", {});
  EXPECT_EQ(result.object.ptr(), other.ptr());
  EXPECT_EQ(result.text, Zint::objectText(other.ptr()));
  EXPECT_FALSE(result.isConst);
}

TEST_F(GenericIf, call_aFreeFunctionServesAsWell) {
  EXPECT_EQ(named.call("greeting", {{"word", "'good day'"}}).text, "'good day lamp'");
}

TEST_F(GenericIf, call_aMissingArgumentIsNamed) {
  EXPECT_EQ(rangeMessage([&] {
              named.call("brightness", {{"factor", "2"}});
            }),
            "Lamps::Lamp::brightness: missing argument offset");
  EXPECT_EQ(rangeMessage([&] {
              named.call("dim", {{"least", "2"}});
            }),
            "Lamps::Lamp::dim: missing argument by");
}

TEST_F(GenericIf, call_aSurplusArgumentIsNamedWithItsText) {
  EXPECT_EQ(rangeMessage([&] {
              named.call("dim", {{"by", "2"}, {"speed", "9"}});
            }),
            "Lamps::Lamp::dim: surplus argument speed=9");
  EXPECT_EQ(rangeMessage([&] {
              named.call("dim", {{"by", "2"}, {"?least", "9"}});
            }),
            "Lamps::Lamp::dim: surplus argument ?least=9");
  EXPECT_EQ(rangeMessage([&] {
              named.call("mate", {{"x", "1"}});
            }),
            "Lamps::Lamp::mate: surplus argument x=1");
  EXPECT_EQ(lamp->level(), 40);
}

TEST_F(GenericIf, call_anArgumentGivenTwiceIsNamed) {
  EXPECT_EQ(rangeMessage([&] {
              named.call("dim", {{"by", "2"}, {"by", "3"}});
            }),
            "Lamps::Lamp::dim: argument given twice: by");
  EXPECT_EQ(lamp->level(), 40);
}

TEST_F(GenericIf, call_anUnreadableArgumentNamesTheTextsAndCallsNothing) {
  EXPECT_EQ(rangeMessage([&] {
              named.call("dim", {{"by", "2"}, {"least", "x"}});
            }),
            "an integer expected at \"x\" deserializing attribute Lamps::Lamp::dim from "
            "\"by=2 least=x\"");
  EXPECT_EQ(lamp->changes(), 0u);
}

TEST_F(GenericIf, call_ofAnAttributeIsRefused) {
  EXPECT_EQ(rangeMessage([&] { named.call("level", {}); }), "Lamps::Lamp::level: is no operation");
}

// --- Collections --------------------------------------------------------------------------------

TEST_F(GenericIf, list_showsAsAList) {
  const Zint::GenericIf::List_ list = named.list("shelf");
  EXPECT_STREQ(list.typeName(), "Zint::GenericIf::List_");
  EXPECT_STREQ(list.kindName(), "List");
  EXPECT_STREQ(list.keyName(), "place");
  EXPECT_STREQ(list.valueType(), "Lamps::Lamp");
  EXPECT_EQ(list.size(), 2u);
  EXPECT_STREQ(named.type().find("shelf")->typeName, "Zint::GenericIf::List_");
}

TEST_F(GenericIf, list_itemsAreKeysAndObjects) {
  const std::vector<Zint::ListItem> items = named.list("shelf").items();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0].key, "3");
  EXPECT_EQ(items[0].value.object.ptr(), other.ptr());
  EXPECT_EQ(items[1].key, "7");
  EXPECT_EQ(items[1].value.text, Zint::objectText(lamp.ptr()));
}

TEST_F(GenericIf, list_findGivesTheMemberOrNull) {
  EXPECT_EQ(named.list("shelf").find("3").object.ptr(), other.ptr());
  EXPECT_EQ(named.list("shelf").find("4").text, "null");
  EXPECT_EQ(rangeMessage([&] { named.list("shelf").find("x"); }),
            "an integer expected at \"x\" deserializing attribute Lamps::Lamp::shelf from \"x\"");
}

TEST_F(GenericIf, list_ofAnAttributeIsRefused) {
  EXPECT_EQ(rangeMessage([&] { named.list("level"); }), "Lamps::Lamp::level: is no collection");
}

TEST_F(GenericIf, list_insertTakesNamedArgumentsInAnyOrder) {
  const std::string text = Zint::objectText(other.ptr()).bytes();
  const Zint::Result result = named.list("shelf").insert({{"lamp", text}, {"place", "1"}});
  EXPECT_EQ(result.object.ptr(), other.ptr());
  EXPECT_EQ(lamp->shelf.at(1), other);
  named.call("shelfIs", {{"lamp", text}, {"place", "2"}});
  EXPECT_EQ(lamp->shelf.at(2), other);
}

TEST_F(GenericIf, list_insertRefusesWrongArgumentsAndStaysAsItWas) {
  auto list = named.list("shelf");
  EXPECT_EQ(rangeMessage([&] {
              list.insert({{"place", "1"}});
            }),
            "Lamps::Lamp::shelfIs: missing argument lamp");
  EXPECT_EQ(rangeMessage([&] {
              list.insert({{"place", "1"}, {"lamp", "null"}, {"x", "y"}});
            }),
            "Lamps::Lamp::shelfIs: surplus argument x=y");
  EXPECT_EQ(rangeMessage([&] {
              list.insert({{"place", "1"}, {"lamp", "'ghost'#9"}});
            }),
            "'ghost'#9 is no living object deserializing attribute Lamps::Lamp::shelfIs from "
            "\"place=1 lamp='ghost'#9\"");
  EXPECT_EQ(list.size(), 2u);
}

TEST_F(GenericIf, list_delRemovesByKey) {
  named.list("shelf").del("3");
  EXPECT_EQ(lamp->shelf.size(), 1u);
  named.call("shelfDel", {{"place", "7"}});
  EXPECT_TRUE(lamp->shelf.empty());
}

TEST_F(GenericIf, list_delRefusesWhatItCannotRead) {
  EXPECT_EQ(rangeMessage([&] { named.list("shelf").del("3 4"); }),
            "junk at column 1 deserializing U32 deserializing attribute Lamps::Lamp::shelf from "
            "\"3 4\"");
  EXPECT_EQ(rangeMessage([&] { named.call("shelfDel", {}); }),
            "Lamps::Lamp::shelfDel: missing argument place");
  EXPECT_EQ(rangeMessage([&] {
              named.call("shelfDel", {{"place", "3"}, {"x", "1"}});
            }),
            "Lamps::Lamp::shelfDel: surplus argument x=1");
  EXPECT_EQ(lamp->shelf.size(), 2u);
}

TEST_F(GenericIf, list_delAllRemovesEverything) {
  named.list("shelf").delAll();
  EXPECT_TRUE(lamp->shelf.empty());
  lamp->shelf[1] = other;
  EXPECT_EQ(rangeMessage([&] {
              named.call("shelfDelAll", {{"x", "1"}});
            }),
            "Lamps::Lamp::shelfDelAll: surplus argument x=1");
  named.call("shelfDelAll", {});
  EXPECT_TRUE(lamp->shelf.empty());
}

TEST_F(GenericIf, list_whatACollectionDoesNotOfferIsRefused) {
  auto list = named.list("fixed");
  EXPECT_EQ(list.size(), 2u);
  const char* refused = "Lamps::Lamp::fixed: cannot be changed so";
  EXPECT_EQ(rangeMessage([&] { list.del("3"); }), refused);
  EXPECT_EQ(rangeMessage([&] { list.delAll(); }), refused);
  EXPECT_EQ(rangeMessage([&] { list.insert({}); }), refused);
  EXPECT_EQ(lamp->shelf.size(), 2u);
}

// --- Read-only views
// ------------------------------------------------------------------------------

TEST_F(GenericIf, readOnlyView_readsAndAsks) {
  EXPECT_EQ(view.attribute("level"), "40");
  EXPECT_EQ(view.call("brightness", {{"factor", "1"}, {"offset", "0"}}).text, "40");
  EXPECT_EQ(view.list("shelf").size(), 2u);
  EXPECT_EQ(view.list("shelf").find("3").object.ptr(), other.ptr());
}

TEST_F(GenericIf, readOnlyView_refusesEveryChange) {
  EXPECT_EQ(rangeMessage([&] { view.attributeIs("level", "1"); }), constInstance);
  EXPECT_EQ(rangeMessage([&] { view.call("dim", {{"by", "1"}}); }), constInstance);
  EXPECT_EQ(rangeMessage([&] { view.list("shelf").del("3"); }), constInstance);
  EXPECT_EQ(rangeMessage([&] { view.list("shelf").delAll(); }), constInstance);
  EXPECT_EQ(rangeMessage([&] {
              view.list("shelf").insert({{"place", "1"}, {"lamp", "null"}});
            }),
            constInstance);
  EXPECT_EQ(rangeMessage([&] { view.call("shelfDelAll", {}); }), constInstance);
  EXPECT_EQ(lamp->level(), 40);
  EXPECT_EQ(lamp->shelf.size(), 2u);
}

TEST_F(GenericIf, readOnlyView_givesReadOnlyObjects) {
  const std::vector<Zint::Result> results = {view.target("partner"), view.call("mate", {}),
                                             view.list("shelf").find("3"),
                                             view.list("shelf").items().front().value};
  for (const Zint::Result& result : results) {
    EXPECT_TRUE(result.isConst);
    EXPECT_EQ(rangeMessage([&] { GenericIf_::of(result).attributeIs("level", "1"); }),
              constInstance);
  }
  EXPECT_EQ(other->level(), 5);
}

// --- Factories
// ------------------------------------------------------------------------------------

class GenericIfFactory : public testing::Test {
 protected:
  GenericIfFactory() { Zint::TypeRegistry::factoryIs(Lamps::factory); }
  ~GenericIfFactory() override { Zint::TypeRegistry::factoryDel(Lamps::factory); }
};

TEST_F(GenericIfFactory, made_callsItWithNamedArguments) {
  const Zint::Result made = GenericIf_::made("lampFactory", {{"level", "9"}, {"name", "'new'"}});
  EXPECT_EQ(GenericIf_::of(made).attribute("name"), "'new'");
  EXPECT_EQ(GenericIf_::of(made).attribute("level"), "9");
  EXPECT_FALSE(made.isConst);
}

TEST_F(GenericIfFactory, made_refusesWrongArguments) {
  EXPECT_EQ(rangeMessage([] { GenericIf_::made("lampfactory", {}); }),
            "factories: unknown member lampfactory");
  EXPECT_EQ(rangeMessage([] {
              GenericIf_::made("lampFactory", {{"name", "x"}});
            }),
            "lampFactory: missing argument level");
  EXPECT_EQ(rangeMessage([] {
              GenericIf_::made("lampFactory", {{"name", "x"}, {"level", "-1"}});
            }),
            "-1 is out of range deserializing attribute lampFactory from \"name=x level=-1\"");
}

TEST_F(GenericIfFactory, factoryIs_aSecondOfTheNameIsRefused) {
  EXPECT_THROW(Zint::TypeRegistry::factoryIs(Lamps::factory), Zint::NameInUseException);
  EXPECT_EQ(Zint::TypeRegistry::findFactory("lampFactory"), &Lamps::factory);
}

// --- Bytes
// ----------------------------------------------------------------------------------------

TEST(Bytes, strep_isTwoDigitsAByte) {
  EXPECT_EQ(Zint::valueToStrep(Zint::Bytes{{0x00, 0x1f, 0x80}}), "001f80");
  EXPECT_EQ(Zint::valueToStrep(Zint::Bytes{}), "");
}

TEST(Bytes, strep_readsBackInEitherCase) {
  EXPECT_EQ(Zint::strepToValue<Zint::Bytes>("001f80").bytes, (std::vector<U8>{0x00, 0x1f, 0x80}));
  EXPECT_EQ(Zint::strepToValue<Zint::Bytes>("Af").bytes, (std::vector<U8>{0xaf}));
  EXPECT_TRUE(Zint::strepToValue<Zint::Bytes>("").bytes.empty());
}

TEST(Bytes, strep_anOddOrForeignDigitIsJunk) {
  for (const char* text : {"001", "00g1", "00 1f"}) {
    EXPECT_EQ(rangeMessage([&] { Zint::strepToValue<Zint::Bytes>(text); }),
              std::string("junk at column 2 deserializing ") + text);
  }
}

}  // namespace
