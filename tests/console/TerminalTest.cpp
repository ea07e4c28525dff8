#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tools/console/Terminal.h>

#include <sstream>

namespace {

using Console::columnsText;
using Console::EditedLine;

TEST(TerminalTest, textsAreInColumnsDownwards) {
  EXPECT_EQ(columnsText({"a", "bb", "ccc", "d", "e"}, 13, 9), "a    ccc  e\nbb   d\n");
  EXPECT_EQ(columnsText({"a", "bb", "ccc", "d", "e"}, 12, 9), "a    d\nbb   e\nccc\n");
  EXPECT_EQ(columnsText({}, 80, 9), "");
}

TEST(TerminalTest, noLineIsWiderThanTheTerminal) {
  for (std::size_t width = 1; width < 40; ++width) {
    std::istringstream lines(columnsText({"port/", "vlan/", "entriesRead ", "x"}, width, 9));
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(line.size(), std::max<std::size_t>(width, 12)) << width;
    }
  }
}

TEST(TerminalTest, aTextWiderThanTheTerminalHasALineOfItsOwn) {
  EXPECT_EQ(columnsText({"a", "chipMemoryEntriesUnderAudit", "b"}, 10, 9),
            "a\nchipMemoryEntriesUnderAudit\nb\n");
}

TEST(TerminalTest, whatDoesNotFitIsCounted) {
  EXPECT_EQ(columnsText({"a", "b", "c", "d", "e", "f"}, 4, 2), "a  d\nb  e\n... 2 more\n");
  EXPECT_EQ(columnsText({"a", "b", "c", "d"}, 4, 2), "a  c\nb  d\n");
}

TEST(TerminalTest, aLongLineHasSeveralRows) {
  const EditedLine line{10, 25, 60, 20};
  EXPECT_EQ(line.cursorRow(), 1u);
  EXPECT_EQ(line.lastRow(), 3u);
  // At the edge the cursor is in the next row.
  EXPECT_EQ((EditedLine{10, 10, 10, 20}.cursorRow()), 1u);
  EXPECT_EQ((EditedLine{10, 9, 9, 20}.cursorRow()), 0u);
}

}  // namespace
