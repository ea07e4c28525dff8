// Objects by name: their collections, read-only views and factories.
#include <gmock/gmock.h>

#include <string>

#include "runtime/Lamps.h"
#include "runtime/Probes.h"

namespace {

using Lamps::Lamp;
using Probes::rangeMessage;
using Zint::GenericIf_;

constexpr const char constInstance[] = "attempting to modify a const instance";

class GenericIfList : public Lamps::LampTest {};
class GenericIfView : public Lamps::LampTest {};

// --- Collections --------------------------------------------------------------------------------

TEST_F(GenericIfList, showsAsAList) {
  const Zint::GenericIf::List_ list = named.list("shelf");
  EXPECT_STREQ(list.typeName(), "Zint::GenericIf::List_");
  EXPECT_STREQ(list.kindName(), "List");
  EXPECT_STREQ(list.keyName(), "place");
  EXPECT_STREQ(list.valueType(), "Lamps::Lamp");
  EXPECT_EQ(list.size(), 2u);
  EXPECT_STREQ(named.type().find("shelf")->typeName, "Zint::GenericIf::List_");
}

TEST_F(GenericIfList, itemsAreKeysAndObjects) {
  const std::vector<Zint::ListItem> items = named.list("shelf").items();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0].key, "3");
  EXPECT_EQ(items[0].value.object.ptr(), other.ptr());
  EXPECT_EQ(items[1].key, "7");
  EXPECT_EQ(items[1].value.text, Zint::objectText(lamp.ptr()));
}

TEST_F(GenericIfList, findGivesTheMemberOrNull) {
  EXPECT_EQ(named.list("shelf").find("3").object.ptr(), other.ptr());
  EXPECT_EQ(named.list("shelf").find("4").text, "null");
  EXPECT_EQ(rangeMessage([&] { named.list("shelf").find("x"); }),
            "an integer expected at \"x\" deserializing attribute Lamps::Lamp::shelf from \"x\"");
}

TEST_F(GenericIfList, ofAnAttributeIsRefused) {
  EXPECT_EQ(rangeMessage([&] { named.list("level"); }), "Lamps::Lamp::level: is no collection");
}

TEST_F(GenericIfList, insertTakesNamedArgumentsInAnyOrder) {
  const std::string text = Zint::objectText(other.ptr()).bytes();
  const Zint::Result result = named.list("shelf").insert({{"lamp", text}, {"place", "1"}});
  EXPECT_EQ(result.object.ptr(), other.ptr());
  EXPECT_EQ(lamp->shelf.at(1), other);
  named.call("shelfIs", {{"lamp", text}, {"place", "2"}});
  EXPECT_EQ(lamp->shelf.at(2), other);
}

TEST_F(GenericIfList, insertRefusesWrongArgumentsAndStaysAsItWas) {
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

TEST_F(GenericIfList, delRemovesByKey) {
  named.list("shelf").del("3");
  EXPECT_EQ(lamp->shelf.size(), 1u);
  named.call("shelfDel", {{"place", "7"}});
  EXPECT_TRUE(lamp->shelf.empty());
}

TEST_F(GenericIfList, delRefusesWhatItCannotRead) {
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

TEST_F(GenericIfList, delAllRemovesEverything) {
  named.list("shelf").delAll();
  EXPECT_TRUE(lamp->shelf.empty());
  lamp->shelf[1] = other;
  EXPECT_EQ(rangeMessage([&] {
              named.call("shelfDelAll", {{"x", "1"}});
            }),
            "Lamps::Lamp::shelfDelAll: surplus argument x=1");
  EXPECT_NE(rangeMessage([&] { named.call("shelfForget", {}); }), "") << "as long, but another";
  named.call("shelfDelAll", {});
  EXPECT_TRUE(lamp->shelf.empty());
}

TEST_F(GenericIfList, whatACollectionDoesNotOfferIsRefused) {
  auto list = named.list("fixed");
  EXPECT_EQ(list.size(), 2u);
  const char* refused = "Lamps::Lamp::fixed: cannot be changed so";
  EXPECT_EQ(rangeMessage([&] { list.del("3"); }), refused);
  EXPECT_EQ(rangeMessage([&] { list.delAll(); }), refused);
  EXPECT_EQ(rangeMessage([&] { list.insert({}); }), refused);
  EXPECT_EQ(lamp->shelf.size(), 2u);
}

// --- Read-only views ---

TEST_F(GenericIfView, readsAndAsks) {
  EXPECT_EQ(view.attribute("level"), "40");
  EXPECT_EQ(view.call("brightness", {{"factor", "1"}, {"offset", "0"}}).text, "40");
  EXPECT_EQ(view.list("shelf").size(), 2u);
  EXPECT_EQ(view.list("shelf").find("3").object.ptr(), other.ptr());
}

TEST_F(GenericIfView, refusesEveryChange) {
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

TEST_F(GenericIfView, givesReadOnlyObjects) {
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

// --- Factories ---

class GenericIfFactory : public testing::Test {
 protected:
  GenericIfFactory() { Zint::TypeRegistry::factoryIs(Lamps::factory); }
  ~GenericIfFactory() override { Zint::TypeRegistry::factoryDel(Lamps::factory); }
};

TEST_F(GenericIfFactory, made_callsItWithNamedArguments) {
  const Zint::Result made = GenericIf_::make("lampFactory", {{"level", "9"}, {"name", "'new'"}});
  EXPECT_EQ(GenericIf_::of(made).attribute("name"), "'new'");
  EXPECT_EQ(GenericIf_::of(made).attribute("level"), "9");
  EXPECT_FALSE(made.isConst);
}

TEST_F(GenericIfFactory, made_refusesWrongArguments) {
  EXPECT_EQ(rangeMessage([] { GenericIf_::make("lampfactory", {}); }),
            "factories: unknown member lampfactory");
  EXPECT_EQ(rangeMessage([] {
              GenericIf_::make("lampFactory", {{"name", "x"}});
            }),
            "lampFactory: missing argument level");
  EXPECT_EQ(rangeMessage([] {
              GenericIf_::make("lampFactory", {{"name", "x"}, {"level", "-1"}});
            }),
            "-1 is out of range deserializing attribute lampFactory from \"name=x level=-1\"");
}

TEST_F(GenericIfFactory, factoryIs_aSecondOfTheNameIsRefused) {
  EXPECT_THROW(Zint::TypeRegistry::factoryIs(Lamps::factory), Zint::NameInUseException);
  EXPECT_EQ(Zint::TypeRegistry::findFactory("lampFactory"), &Lamps::factory);
}

}  // namespace
