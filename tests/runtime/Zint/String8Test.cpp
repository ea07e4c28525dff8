#include <Zint/String8.h>

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>
#include <unordered_set>

namespace {

using Zint::String8;

TEST(String8, isEmptyByDefault) {
  EXPECT_TRUE(String8().empty());
  EXPECT_EQ(String8().size(), 0u);
  EXPECT_STREQ(String8().c_str(), "");
}

TEST(String8, holdsAnyBytes) {
  const String8 text(std::string("a\0b\xff", 4));
  EXPECT_EQ(text.size(), 4u);
  EXPECT_EQ(text.bytes()[1], '\0');
  EXPECT_EQ(std::string(text.begin(), text.end()), text.bytes());
}

TEST(String8, comparesByBytes) {
  EXPECT_EQ(String8("mac"), "mac");
  EXPECT_NE(String8("mac"), "MAC");
  EXPECT_LT(String8("mac"), String8("vlan"));
  EXPECT_LT(String8("mac"), String8("mac0"));
}

TEST(String8, isAppendedTo) {
  String8 text("region");
  text += "0";
  EXPECT_EQ(text + ": " + "done", "region0: done");
  EXPECT_EQ(text, "region0");
}

TEST(String8, isWrittenWithoutQuotes) {
  std::ostringstream out;
  out << String8("it's");
  EXPECT_EQ(out.str(), "it's");
}

TEST(String8, iteratesReadOnly) {
  const String8 text("abc");
  String8::IteratorConst pos = text.begin();
  EXPECT_EQ(*++pos, 'b');
  EXPECT_EQ(text.end() - pos, 2);
  EXPECT_TRUE((std::is_same_v<decltype(*pos), const char&>));
}

// Published values of the 32-bit FNV-1a hash.
TEST(String8, hash_isFnv1a) {
  EXPECT_EQ(String8("").hash(), 0x811c9dc5u);
  EXPECT_EQ(String8("a").hash(), 0xe40c292cu);
  EXPECT_EQ(String8("foobar").hash(), 0xbf9cf968u);
}

TEST(String8, isAKeyOfStandardContainers) {
  const std::unordered_set<String8> names{"a", "b", "a"};
  EXPECT_EQ(names.size(), 2u);
}

}  // namespace
