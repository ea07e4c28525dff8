#include "MapsTest.h"

namespace {

using namespace MapsTest;
using Maps::Access;
using Maps::ReadAction;
using Maps::WriteEffect;

TEST(Svd, register_hasBlockNameAndAbsoluteAddress) {
  const Maps::Map map = parsedBlock(reg("CTRL", "0x10"));
  ASSERT_EQ(1u, map.registers.size());
  EXPECT_EQ("B.CTRL", map.nameOf(map.registers[0]));
  EXPECT_EQ(0x1010u, map.registers[0].address);
  EXPECT_EQ("CMSIS-SVD", map.format);
  EXPECT_EQ("CHIP", map.name);
}

TEST(Svd, sizeAccessAndReset_areInheritedFromTheNearestThatSaysThem) {
  const Maps::Map map = parsed(
      "<device><name>C</name><size>16</size><resetValue>0x12</resetValue><access>read-only</access>"
      "<peripherals><peripheral><name>B</name><baseAddress>0</baseAddress><size>8</size>"
      "<registers><cluster><name>K</name><addressOffset>4</addressOffset><access>write-only</"
      "access>" +
      reg("A", "0") + "</cluster>" + reg("D", "0", "<size>64</size><resetMask>0x0F</resetMask>") +
      "</registers></peripheral></peripherals></device>");
  const Maps::Register& a = registerOf(map, "B.K.A");
  EXPECT_EQ(8u, a.layout->width);
  EXPECT_EQ(Access::writeOnly, a.layout->access);
  EXPECT_EQ(0x12u, a.layout->resetValue);
  const Maps::Register& d = registerOf(map, "B.D");
  EXPECT_EQ(64u, d.layout->width);
  EXPECT_EQ(Access::readOnly, d.layout->access);
  EXPECT_EQ(0x0Fu, d.layout->resetMask);
}

TEST(Svd, access_thatNobodySaysIsUnknown) {
  const Maps::Map map = parsed("<device><name>C</name><peripherals>" + block(reg("A", "0")) +
                               "</peripherals></device>");
  EXPECT_EQ(std::nullopt, map.registers[0].layout->access);
}

TEST(Svd, fields_areFoundInAllThreeWritings) {
  const Maps::Map map = parsedBlock(
      reg("A", "0",
          "<fields>" + field("x", "[7:4]") +
              "<field><name>y</name><bitOffset>8</bitOffset><bitWidth>3</bitWidth></field>"
              "<field><name>z</name><lsb>16</lsb><msb>31</msb></field></fields>"));
  const auto& fields = map.registers[0].layout->fields;
  ASSERT_EQ(3u, fields.size());
  EXPECT_EQ(0xF0u, fields[0].mask());
  EXPECT_EQ(0x700u, fields[1].mask());
  EXPECT_EQ(0xFFFF0000u, fields[2].mask());
}

TEST(Svd, effects_areReadFromRegistersAndFields) {
  const Maps::Map map = parsedBlock(
      reg("A", "0",
          "<readAction>clear</readAction><fields>" +
              field("x", "[0:0]", "<modifiedWriteValues>oneToClear</modifiedWriteValues>") +
              "</fields>"));
  EXPECT_EQ(ReadAction::clear, map.registers[0].layout->readAction);
  EXPECT_EQ(WriteEffect::oneToClear, map.registers[0].layout->fields[0].writeEffect);
  EXPECT_EQ("RW RC", Maps::tokenOf(*map.registers[0].layout));
  EXPECT_EQ("RW1C", Maps::tokenOf(map.registers[0].layout->fields[0], *map.registers[0].layout));
}

TEST(Svd, unknownEffectWords_areTakenForEffects) {
  const Maps::Map map = parsedBlock(reg("A", "0",
                                        "<readAction>odd</readAction>"
                                        "<modifiedWriteValues>odd</modifiedWriteValues>"));
  EXPECT_EQ(ReadAction::modify, map.registers[0].layout->readAction);
  EXPECT_EQ(WriteEffect::user, map.registers[0].layout->writeEffect);
}

TEST(Svd, array_isExpandedWithNumbersAndIndexes) {
  const Maps::Map map =
      parsedBlock(reg("mac[%s]", "0x20", "<dim>3</dim><dimIncrement>8</dimIncrement>"));
  ASSERT_EQ(3u, map.registers.size());
  EXPECT_EQ("mac[2]", map.registers[2].name);
  EXPECT_EQ("mac", map.registers[2].array);
  EXPECT_EQ(2u, map.registers[2].index);
  EXPECT_EQ(0x1030u, map.registers[2].address);
  EXPECT_EQ(map.registers[0].layout, map.registers[2].layout);
}

TEST(Svd, arrayWithNames_takesThemFromDimIndex) {
  for (const std::string index : {"A-C", "A,B,C", " A, B ,C "}) {
    const Maps::Map map = parsedBlock(reg("P%s", "0",
                                          "<dim>3</dim><dimIncrement>4</dimIncrement>"
                                          "<dimIndex>" +
                                              index + "</dimIndex>"));
    EXPECT_EQ("PB", map.registers[1].name) << index;
  }
  const Maps::Map map = parsedBlock(
      reg("P%s", "0", "<dim>2</dim><dimIncrement>4</dimIncrement><dimIndex>5-6</dimIndex>"));
  EXPECT_EQ("P5", map.registers[0].name);
}

TEST(Svd, dimIndexOfAnotherLength_isANoteAndNumbers) {
  const Maps::Map map = parsedBlock(
      reg("P%s", "0", "<dim>2</dim><dimIncrement>4</dimIncrement><dimIndex>A,B,C</dimIndex>"));
  EXPECT_EQ("P1", map.registers[1].name);
  ASSERT_EQ(1u, map.notes.size());
  EXPECT_EQ(3u, map.notes[0].line);
}

TEST(Svd, clusters_areNestedAndRepeated) {
  const Maps::Map map = parsedBlock(
      "<cluster><name>CH[%s]</name><addressOffset>0x100</addressOffset><dim>2</dim>"
      "<dimIncrement>0x40</dimIncrement><cluster><name>S</name><addressOffset>8</addressOffset>" +
      reg("R", "4") + "</cluster></cluster>");
  ASSERT_EQ(2u, map.registers.size());
  EXPECT_EQ("CH[1].S.R", map.registers[1].name);
  EXPECT_EQ(0x1000u + 0x100 + 0x40 + 8 + 4, map.registers[1].address);
}

TEST(Svd, derivedPeripheral_hasTheRegistersAtItsOwnAddress) {
  const Maps::Map map = parsed(
      svd(block(reg("CTRL", "4", "<description>control</description>"), "U0") +
          "<peripheral "
          "derivedFrom=\"U0\"><name>U1</name><baseAddress>0x2000</baseAddress></peripheral>"));
  const Maps::Register& r = registerOf(map, "U1.CTRL");
  EXPECT_EQ(0x2004u, r.address);
  EXPECT_EQ("control", r.layout->text);
}

TEST(Svd, derivedRegister_takesWhatItDoesNotSayFromItsBasis) {
  const Maps::Map map = parsed(svd(
      block(reg("A", "0",
                "<size>8</size><description>base</description><fields>" + field("f", "[3:0]") +
                    "</fields>")) +
      block("<register derivedFrom=\"B.A\"><name>D</name><addressOffset>4</addressOffset>"
            "<description>own</description></register>"
            "<register derivedFrom=\"D\"><name>E</name><addressOffset>8</addressOffset></register>",
            "C", "0x2000")));
  const Maps::Layout& layout = *registerOf(map, "C.E").layout;
  EXPECT_EQ(8u, layout.width);
  EXPECT_EQ("own", layout.text);
  ASSERT_EQ(1u, layout.fields.size());
  EXPECT_EQ("f", layout.fields[0].name);
}

TEST(Svd, derivedField_andCluster_areResolvedByPath) {
  const Maps::Map map = parsedBlock(
      "<cluster><name>K</name><addressOffset>0</addressOffset>" +
      reg("A", "0", "<fields>" + field("f", "[3:0]", "<access>read-only</access>") + "</fields>") +
      "</cluster><cluster "
      "derivedFrom=\"K\"><name>L</name><addressOffset>0x10</addressOffset></cluster>" +
      reg("Z", "0x20", "<fields><field derivedFrom=\"B.K.A.f\"><name>g</name></field></fields>"));
  EXPECT_EQ(0x1010u, registerOf(map, "B.L.A").address);
  const Maps::Field& g = registerOf(map, "B.Z").layout->fields[0];
  EXPECT_EQ("g", g.name);
  EXPECT_EQ(0xFu, g.mask());
  EXPECT_EQ(Access::readOnly, g.access);
}

TEST(Svd, enumeratedValues_ofReadingAndWritingAreToldApart) {
  const std::string two =
      "<enumeratedValues><usage>read</usage><enumeratedValue><name>on</name><value>1</value>"
      "</enumeratedValue></enumeratedValues><enumeratedValues><usage>write</usage>"
      "<enumeratedValue><name>clear</name><value>1</value></enumeratedValue></enumeratedValues>";
  const std::string one =
      "<enumeratedValues><enumeratedValue><name>on</name><value>0b1</value></enumeratedValue>"
      "</enumeratedValues>";
  const Maps::Map map = parsedBlock(reg(
      "A", "0", "<fields>" + field("x", "[0:0]", two) + field("y", "[1:1]", one) + "</fields>"));
  const auto& fields = map.registers[0].layout->fields;
  EXPECT_TRUE(fields[0].hasTwoMeanings);
  EXPECT_FALSE(fields[1].hasTwoMeanings);
  ASSERT_EQ(1u, fields[1].values.size());
  EXPECT_EQ("on", fields[1].values[0].name);
  EXPECT_EQ(1u, fields[1].values[0].value);
}

TEST(Svd, numbers_areReadInAllWritings) {
  const Maps::Map map = parsedBlock(reg("A", "0x10") + reg("C", "#10100") + reg("D", "+24") +
                                    reg("E", "1k") + reg("F", "0X1c"));
  EXPECT_EQ(0x1014u, registerOf(map, "B.C").address);
  EXPECT_EQ(0x1018u, registerOf(map, "B.D").address);
  EXPECT_EQ(0x1400u, registerOf(map, "B.E").address);
  EXPECT_EQ(0x101Cu, registerOf(map, "B.F").address);
}

TEST(Svd, wideResetValueAndWideField_areCutOffWithANote) {
  const Maps::Map map =
      parsedBlock(reg("A", "0",
                      "<size>8</size><resetValue>0x1FF</resetValue><fields>" + field("x", "[9:4]") +
                          field("gone", "[12:10]") + "</fields>"));
  const Maps::Layout& layout = *map.registers[0].layout;
  EXPECT_EQ(0xFFu, layout.resetValue);
  ASSERT_EQ(1u, layout.fields.size());
  EXPECT_EQ(0xF0u, layout.fields[0].mask());
  EXPECT_EQ(3u, map.notes.size());
}

TEST(Svd, secondRegisterOfAName_isKeptUnderAnother) {
  const Maps::Map map = parsedBlock(reg("A", "0") + reg("A", "4"));
  EXPECT_EQ("A~2", map.registers[1].name);
  EXPECT_EQ(1u, map.notes.size());
}

// ---- what is refused ----------------------------------------------------------------------------

TEST(SvdErrors, brokenXml_isToldWithItsLine) {
  EXPECT_EQ("chip.svd:2: no XML: Start-end tags mismatch", errorOf("<device>\n<name></nam>"));
}

TEST(SvdErrors, otherRoot_isToldByName) {
  EXPECT_EQ("chip.svd:1: neither CMSIS-SVD (device) nor IP-XACT (component): the root is 'html'",
            errorOf("<html/>"));
}

TEST(SvdErrors, deepNesting_isRefused) {
  std::string text;
  for (int i = 0; i < 100'000; ++i) text += "<a>";
  for (int i = 0; i < 100'000; ++i) text += "</a>";
  EXPECT_EQ("chip.svd:1: elements are nested deeper than 64", errorOf(text));
}

TEST(SvdErrors, hugeArray_isRefusedBeforeItIsMade) {
  EXPECT_EQ(
      "chip.svd:3: A is an array of more than 250000 elements",
      errorOf(svd(block(reg("A", "0", "<dim>4294967295</dim><dimIncrement>4</dimIncrement>")))));
}

TEST(SvdErrors, arraysWithinArrays_areBoundedTogether) {
  std::string inner = reg("R", "0");
  for (int i = 0; i < 4; ++i) {
    inner = "<cluster><name>K" + std::to_string(i) +
            "</name><addressOffset>0</addressOffset><dim>1000</dim><dimIncrement>4</dimIncrement>" +
            inner + "</cluster>";
  }
  EXPECT_EQ("chip.svd:3: the map has more than 250000 registers", errorOf(svd(block(inner))));
}

TEST(SvdErrors, emptyClustersWithinEachOther_areBounded) {
  std::string inner;
  for (int i = 0; i < 4; ++i) {
    inner = "<cluster><name>K" + std::to_string(i) +
            "</name><addressOffset>0</addressOffset><dim>1000</dim><dimIncrement>4</dimIncrement>" +
            inner + "</cluster>";
  }
  EXPECT_EQ("chip.svd:3: the map has more than 4000000 elements", errorOf(svd(block(inner))));
}

TEST(SvdErrors, derivedFromItself_isRefused) {
  EXPECT_EQ("chip.svd:3: derivedFrom goes in a circle",
            errorOf(svd(block("<register derivedFrom=\"A\"><name>A</name></register>"))));
  EXPECT_EQ("chip.svd:3: derivedFrom goes in a circle",
            errorOf(svd("<peripheral derivedFrom=\"Q\"><name>P</name></peripheral>"
                        "<peripheral derivedFrom=\"P\"><name>Q</name></peripheral>")));
}

TEST(SvdErrors, clusterDerivedFromItsOwnContainer_isRefused) {
  EXPECT_EQ("chip.svd:3: clusters are nested deeper than 32",
            errorOf(svd(block("<cluster><name>K</name><addressOffset>0</addressOffset>"
                              "<cluster derivedFrom=\"B.K\"><name>L</name></cluster></cluster>"))));
}

TEST(SvdErrors, unknownBasis_isToldByName) {
  EXPECT_EQ("chip.svd:3: derivedFrom names nothing: 'X.Y'",
            errorOf(svd(block("<register derivedFrom=\"X.Y\"><name>A</name></register>"))));
}

TEST(SvdErrors, missingAddresses_areRefused) {
  EXPECT_EQ("chip.svd:3: B has no baseAddress",
            errorOf(svd("<peripheral><name>B</name></peripheral>")));
  EXPECT_EQ("chip.svd:3: A has no addressOffset",
            errorOf(svd(block("<register><name>A</name></register>"))));
  EXPECT_EQ("chip.svd:3: a register has no name", errorOf(svd(block("<register/>"))));
}

TEST(SvdErrors, addressBeyond64Bits_isRefused) {
  EXPECT_EQ("chip.svd:3: an address has more than 64 bits",
            errorOf(svd(block(reg("A", "0x1000"), "B", "0xFFFFFFFFFFFFF000"))));
  EXPECT_EQ("chip.svd:3: addressOffset is no number of 64 bits: '0x10000000000000000'",
            errorOf(svd(block(reg("A", "0x10000000000000000")))));
}

TEST(SvdErrors, oddFields_areRefused) {
  const auto of = [](const std::string& inside) {
    return errorOf(svd(block(reg("A", "0", "<fields>" + inside + "</fields>"))));
  };
  EXPECT_EQ("chip.svd:3: a bitRange is written [high:low], not '3:0'", of(field("f", "3:0")));
  EXPECT_EQ("chip.svd:3: a field has the bits 0 down to 3", of(field("f", "[0:3]")));
  EXPECT_EQ("chip.svd:3: a field has no bits", of("<field><name>f</name></field>"));
}

TEST(SvdErrors, oddSizes_areRefused) {
  EXPECT_EQ("chip.svd:3: A has a size of 0 bits",
            errorOf(svd(block(reg("A", "0", "<size>0</size>")))));
  EXPECT_EQ("chip.svd:3: A has a size of 2000000 bits",
            errorOf(svd(block(reg("A", "0", "<size>2000000</size>")))));
}

TEST(SvdErrors, mapWithoutRegisters_isRefused) {
  EXPECT_EQ("chip.svd: the map has no register", errorOf(svd("")));
}

TEST(Svd, secondBlockOfAName_isKeptUnderAnother) {
  const Maps::Map map = parsed(svd(block(reg("A", "0")) + block(reg("A", "0"), "B", "0x2000")));
  EXPECT_EQ("B~2.A", map.nameOf(map.registers[1]));
  EXPECT_EQ(1u, map.notes.size());
}

TEST(Svd, resetValueThatIsNoNumber_isUnknownWithANote) {
  const Maps::Map map = parsedBlock(reg("A", "0", "<resetValue>later</resetValue>"));
  EXPECT_EQ(std::nullopt, map.registers[0].layout->resetValue);
  ASSERT_EQ(1u, map.notes.size());
  EXPECT_EQ("no number of 64 bits: 'later'", map.notes[0].text);
}

TEST(SvdErrors, fileThatIsNotThere_isToldByName) {
  try {
    Maps::readMap("/nonexistent/chip.svd");
    FAIL();
  } catch (const Maps::Error& error) {
    EXPECT_STREQ("/nonexistent/chip.svd: No such file or directory", error.what());
  }
}

}  // namespace
