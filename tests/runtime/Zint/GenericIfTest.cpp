// Objects by name: their attributes and operations.
#include <gmock/gmock.h>

#include <string>

#include "runtime/Lamps.h"
#include "runtime/Probes.h"

namespace {

using Lamps::Lamp;
using Probes::rangeMessage;
using Zint::GenericIf_;
using Zint::Ptr;

class GenericIf : public Lamps::LampTest {};

// --- The object ---

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

// --- Bytes ---

TEST(Bytes, strep_isTwoDigitsAByte) {
  EXPECT_EQ(Zint::valueToStrep(Zint::Bytes{{0x00, 0x1f, 0x80}}), "001f80");
  EXPECT_EQ(Zint::valueToStrep(Zint::Bytes{}), "");
}

TEST(Bytes, strep_readsBackInEitherCase) {
  EXPECT_EQ(Zint::strepToValue<Zint::Bytes>("001f80").bytes, (std::vector<U8>{0x00, 0x1f, 0x80}));
  EXPECT_EQ(Zint::strepToValue<Zint::Bytes>("Af").bytes, (std::vector<U8>{0xaf}));
  EXPECT_EQ(Zint::strepToValue<Zint::Bytes>("09afAF").bytes, (std::vector<U8>{0x09, 0xaf, 0xaf}));
  EXPECT_TRUE(Zint::strepToValue<Zint::Bytes>("").bytes.empty());
}

TEST(Bytes, strep_anOddOrForeignDigitIsJunk) {
  for (const char* text : {"001", "00g1", "00 1f"}) {
    EXPECT_EQ(rangeMessage([&] { Zint::strepToValue<Zint::Bytes>(text); }),
              std::string("junk at column 2 deserializing ") + text);
  }
}

}  // namespace
