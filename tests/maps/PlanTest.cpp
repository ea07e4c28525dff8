#include <maps/SideEffects.h>

#include "MapsTest.h"

namespace {

using namespace MapsTest;
using Driver::Rule;
using Maps::Hint;

std::string text(const std::string& what) { return "<description>" + what + "</description>"; }
std::string fields(const std::string& inside) { return "<fields>" + inside + "</fields>"; }

// Why a register at offset 0 is undecided; empty if it is proposed.
std::string reasonOf(const std::string& more, const std::string& name = "mode") {
  const Maps::Plan plan = planned(reg(name, "0", more));
  return plan.choices[0].rule ? "" : plan.choices[0].reason;
}

TEST(Proposal, plainReadWriteRegister_isRepaired) {
  const Maps::Plan plan = planned(reg("mode", "0"));
  EXPECT_EQ(Rule::repaired, plan.choices[0].rule);
  EXPECT_EQ(0u, plan.choices[0].mask);
  EXPECT_EQ("proposed", plan.choices[0].reason);
  EXPECT_EQ(1u, plan.decided());
  EXPECT_EQ(1u, plan.audited());
}

TEST(Proposal, bitsThatNoFieldNames_areMasked) {
  const Maps::Plan plan =
      planned(reg("mode", "0", fields(field("a", "[3:0]") + field("b", "[8:8]"))));
  EXPECT_EQ(0xFFFFFEF0u, plan.choices[0].mask);
}

TEST(Proposal, everyOtherAccess_isUndecided) {
  for (const std::string access : {"read-only", "write-only", "writeOnce", "read-writeOnce"}) {
    EXPECT_EQ("it is " + access, reasonOf("<access>" + access + "</access>"));
  }
  EXPECT_EQ(
      "the field a is read-only",
      reasonOf(fields(field("b", "[1:1]") + field("a", "[0:0]", "<access>read-only</access>"))));
}

TEST(Proposal, accessThatIsNotGiven_isUndecided) {
  const Maps::Plan plan = Maps::proposed(
      parsed("<device><name>C</name><peripherals>" +
             block(reg("a", "0") +
                   reg("b", "4", fields(field("x", "[0:0]", "<access>read-write</access>")))) +
             "</peripherals></device>"));
  EXPECT_EQ("its access is not given", plan.choices[0].reason);
  EXPECT_EQ(Rule::repaired, plan.choices[1].rule);
}

TEST(Proposal, everyTag_isUndecided) {
  EXPECT_EQ("readAction is clear", reasonOf("<readAction>clear</readAction>"));
  EXPECT_EQ("modifiedWriteValues is oneToClear",
            reasonOf("<modifiedWriteValues>oneToClear</modifiedWriteValues>"));
  EXPECT_EQ("", reasonOf("<modifiedWriteValues>modify</modifiedWriteValues>"));
  EXPECT_EQ("the field a: readAction is modifyExternal",
            reasonOf(fields(field("a", "[0:0]", "<readAction>modifyExternal</readAction>"))));
}

TEST(Proposal, words_areFoundInDescriptionsFieldsValuesAndNames) {
  EXPECT_EQ("a read has effects: 'cleared when read' in its description",
            reasonOf(text("The bits are cleared when read.")));
  EXPECT_EQ("a write has effects: 'write 1' in the field a",
            reasonOf(fields(field("a", "[0:0]", text("Write 1 here")))));
  EXPECT_EQ("a write has effects: 'self clears' in the field a",
            reasonOf(fields(field("a", "[0:0]",
                                  "<enumeratedValues><enumeratedValue><name>go</name>"
                                  "<description>starts; self-clears</description>"
                                  "<value>1</value></enumeratedValue></enumeratedValues>"))));
  EXPECT_EQ("it changes by itself: 'busy' in the field's name rxBusy",
            reasonOf(fields(field("rxBusy", "[0:0]"))));
  EXPECT_EQ("it changes by itself: 'status' in its name", reasonOf("", "PORT_STATUS2"));
}

TEST(Proposal, widthThatNoRegionHas_isUndecided) {
  EXPECT_EQ("it has 24 bits", reasonOf("<size>24</size>"));
  EXPECT_EQ("it has 128 bits", reasonOf("<size>128</size>"));
  for (const std::string size : {"8", "16", "32", "64"}) {
    EXPECT_EQ("", reasonOf("<size>" + size + "</size>"));
  }
}

TEST(Proposal, registersThatShareBytes_areUndecided) {
  const Maps::Plan plan = planned(reg("a", "0", "<size>64</size>") + reg("b", "4") + reg("c", "8"));
  EXPECT_EQ("it shares bytes with B.b", choiceOf(plan, "B.a").reason);
  EXPECT_EQ("it shares bytes with B.a", choiceOf(plan, "B.b").reason);
  EXPECT_EQ(Rule::repaired, choiceOf(plan, "B.c").rule);
}

TEST(Proposal, blocksThatShareBytes_areUndecided) {
  const Maps::Plan plan =
      Maps::proposed(parsed(svd(block(reg("a", "0"), "SPI") + block(reg("b", "0"), "TWI"))));
  EXPECT_EQ("it shares bytes with TWI.b", choiceOf(plan, "SPI.a").reason);
  EXPECT_EQ("it shares bytes with SPI.a", choiceOf(plan, "TWI.b").reason);
}

TEST(Proposal, alternateViews_areUndecided) {
  EXPECT_EQ("it is another view of a register",
            reasonOf("<alternateRegister>x</alternateRegister>"));
}

TEST(Proposal, unalignedAndReservedPlaces_areUndecided) {
  const Maps::Plan plan = planned(reg("mode", "2"));
  EXPECT_EQ("its address is not aligned", plan.choices[0].reason);
  const Maps::Plan reserved = Maps::proposed(
      parsed(svd("<peripheral><name>B</name><baseAddress>0x1000</"
                 "baseAddress><addressBlock><offset>0x10</offset>"
                 "<size>0x10</size><usage>reserved</usage></addressBlock><registers>" +
                 reg("a", "0xC") + reg("b", "0x1C") + "</registers></peripheral>")));
  EXPECT_EQ(Rule::repaired, choiceOf(reserved, "B.a").rule);
  EXPECT_EQ("it lies in a reserved address block", choiceOf(reserved, "B.b").reason);
}

TEST(Proposal, fieldsThatShareBits_areUndecided) {
  EXPECT_EQ("the field b shares bits with another one",
            reasonOf(fields(field("a", "[3:0]") + field("b", "[3:3]"))));
}

TEST(SideEffects, readEffects_areFoundInTheWordsOfTheField) {
  for (const std::string words :
       {"Cleared on read", "clears automatically after reading", "This bit is read to clear",
        "Reading this register clears the flag", "read-clear", "Reading pops the next word",
        "RX FIFO data", "Has side effects", "COR", "Received byte", "Reads advance the pointer"}) {
    EXPECT_EQ(Hint::read, Maps::hintOfText(words).hint) << words;
  }
}

TEST(SideEffects, writeEffects_areFoundInTheWordsOfTheField) {
  for (const std::string words :
       {"Write 1 to clear", "Writing a one clears it", "writing '1' has effect", "W1C",
        "self-clearing", "Automatically cleared", "This bit is cleared when done",
        "Trigger a reset", "Software reset", "Write any value to restart", "Flushes the buffer",
        "1 to set", "Write-only access"}) {
    EXPECT_EQ(Hint::write, Maps::hintOfText(words).hint) << words;
  }
}

TEST(SideEffects, changes_areFoundInTheWordsOfTheField) {
  for (const std::string words :
       {"Set by hardware", "Status of the link", "Counts packets", "Current state",
        "Interrupt pending", "Random number", "Indicates overflow"}) {
    EXPECT_EQ(Hint::change, Maps::hintOfText(words).hint) << words;
  }
}

TEST(SideEffects, plainTexts_giveNoHint) {
  for (const std::string words :
       {"", "Baud rate divisor", "Enable the receiver interrupt", "Selects the clock source",
        "MAC address, low half", "Output level of pin 3", "Compare value", "Priority 0 to 7",
        "Countries", "flagship", "ready-made", "readable by all"}) {
    EXPECT_EQ(Hint::none, Maps::hintOfText(words).hint)
        << words << ": " << Maps::hintOfText(words).words;
  }
}

TEST(SideEffects, namesOfOneWordOrMany_areTakenApart) {
  EXPECT_EQ(Hint::read, Maps::hintOfName("RX_FIFO").hint);
  EXPECT_EQ(Hint::change, Maps::hintOfName("intStatus").hint);
  EXPECT_EQ(Hint::change, Maps::hintOfName("CNT3").hint);
  EXPECT_EQ(Hint::write, Maps::hintOfName("IRQ.CLR").hint);
  EXPECT_EQ(Hint::none, Maps::hintOfName("CONTROL").hint);
  EXPECT_EQ(Hint::none, Maps::hintOfName("BAUD2").hint);
}

}  // namespace
