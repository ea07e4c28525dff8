#include <Zint/Enumeration.h>

#include <runtime/Probes.h>

namespace {

using Probes::rangeMessage;

constexpr const char* colourNames[] = {"red", "green", "blue"};
constexpr Zint::Enumeration colour{"Lamp::Colour", "Colour", colourNames};

TEST(Enumeration, aNumberWithANameIsWrittenAsTheName) {
  EXPECT_EQ(Zint::enumerationText(colour, 0), "red");
  EXPECT_EQ(Zint::enumerationText(colour, 2), "blue");
}

TEST(Enumeration, aNumberWithoutOneIsWrittenWithTheQualifiedName) {
  EXPECT_EQ(Zint::enumerationText(colour, 3), "Lamp::Colour(3)");
  EXPECT_EQ(Zint::enumerationText(colour, -1), "Lamp::Colour(-1)");
  EXPECT_EQ(Zint::enumerationText(colour, -2147483647 - 1), "Lamp::Colour(-2147483648)");
}

TEST(Enumeration, anInstanceOfANumberMustHaveAName) {
  EXPECT_EQ(Zint::enumerationInstance(colour, U32{0}), 0);
  EXPECT_EQ(Zint::enumerationInstance(colour, U32{2}), 2);
  EXPECT_EQ(rangeMessage([] { Zint::enumerationInstance(colour, U32{3}); }), "Lamp::Colour");
  EXPECT_EQ(rangeMessage([] { Zint::enumerationInstance(colour, U32{0xffffffff}); }),
            "Lamp::Colour");
}

TEST(Enumeration, anInstanceOfATextMustEqualAName) {
  EXPECT_EQ(Zint::enumerationInstance(colour, "green"), 1);
  for (const char* text : {"Green", "gree", "greens", "", " green"}) {
    EXPECT_EQ(rangeMessage([&] { Zint::enumerationInstance(colour, Zint::String8(text)); }),
              "Colour")
        << text;
  }
}

}  // namespace
