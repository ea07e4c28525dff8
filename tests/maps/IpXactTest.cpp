#include "MapsTest.h"

namespace {

using namespace MapsTest;
using Maps::Access;
using Maps::ReadAction;
using Maps::WriteEffect;

// One address block at 'h1000.
std::string component(const std::string& inside, const std::string& ofMap = "") {
  return "<?xml version=\"1.0\"?>\n<ipxact:component "
         "xmlns:ipxact=\"http://www.accellera.org/XMLSchema/IPXACT/1685-2014\">"
         "<ipxact:name>SWITCH</ipxact:name><ipxact:memoryMaps><ipxact:memoryMap>"
         "<ipxact:name>M</ipxact:name>" +
         ofMap +
         "<ipxact:addressBlock><ipxact:name>B</ipxact:name><ipxact:baseAddress>'h1000"
         "</ipxact:baseAddress><ipxact:range>'h1000</ipxact:range><ipxact:width>32</ipxact:width>"
         "<ipxact:access>read-write</ipxact:access>\n" +
         inside +
         "\n</ipxact:addressBlock></ipxact:memoryMap></ipxact:memoryMaps></ipxact:component>";
}

std::string ipReg(const std::string& name, const std::string& offset,
                  const std::string& more = "") {
  return "<ipxact:register><ipxact:name>" + name + "</ipxact:name>" + more +
         "<ipxact:addressOffset>" + offset +
         "</ipxact:addressOffset><ipxact:size>32</ipxact:size>" + "</ipxact:register>";
}

std::string ipField(const std::string& name, int low, int bits, const std::string& more = "") {
  return "<ipxact:field><ipxact:name>" + name + "</ipxact:name><ipxact:bitOffset>" +
         std::to_string(low) + "</ipxact:bitOffset>" + more + "<ipxact:bitWidth>" +
         std::to_string(bits) + "</ipxact:bitWidth></ipxact:field>";
}

TEST(IpXact, register_hasBlockNameAddressAndInheritedAccess) {
  const Maps::Map map = parsed(component(ipReg("CTRL", "'h10")));
  EXPECT_EQ("IP-XACT", map.format);
  const Maps::Register& r = registerOf(map, "B.CTRL");
  EXPECT_EQ(0x1010u, r.address);
  EXPECT_EQ(Access::readWrite, r.layout->access);
  EXPECT_EQ(std::nullopt, r.layout->resetValue);
}

TEST(IpXact, numbers_areReadInAllWritings) {
  const Maps::Map map =
      parsed(component(ipReg("A", "32'h_1F0") + ipReg("C", "8'b1000") + ipReg("D", "20") +
                       ipReg("E", "0x30") + ipReg("F", "'o40") + ipReg("G", "(16'd36)")));
  EXPECT_EQ(0x11F0u, registerOf(map, "B.A").address);
  EXPECT_EQ(0x1008u, registerOf(map, "B.C").address);
  EXPECT_EQ(0x1014u, registerOf(map, "B.D").address);
  EXPECT_EQ(0x1030u, registerOf(map, "B.E").address);
  EXPECT_EQ(0x1020u, registerOf(map, "B.F").address);
  EXPECT_EQ(0x1024u, registerOf(map, "B.G").address);
}

TEST(IpXact, fields_haveAccessEffectsAndVolatility) {
  const Maps::Map map = parsed(component(ipReg(
      "A", "0",
      ipField("x", 0, 4,
              "<ipxact:access>read-only</ipxact:access>"
              "<ipxact:readAction>clear</ipxact:readAction>") +
          ipField("y", 4, 1, "<ipxact:modifiedWriteValue>oneToClear</ipxact:modifiedWriteValue>") +
          ipField("z", 5, 1, "<ipxact:volatile>true</ipxact:volatile>"))));
  const auto& fields = map.registers[0].layout->fields;
  ASSERT_EQ(3u, fields.size());
  EXPECT_EQ(Access::readOnly, fields[0].access);
  EXPECT_EQ(ReadAction::clear, fields[0].readAction);
  EXPECT_EQ(WriteEffect::oneToClear, fields[1].writeEffect);
  EXPECT_TRUE(fields[2].isVolatile);
}

TEST(IpXact, resets_ofFieldsMakeTheRegistersValueAndMask) {
  const auto reset = [](const std::string& value, const std::string& more = "") {
    return "<ipxact:resets><ipxact:reset><ipxact:value>" + value + "</ipxact:value>" + more +
           "</ipxact:reset></ipxact:resets>";
  };
  const Maps::Map map = parsed(
      component(ipReg("A", "0",
                      ipField("x", 0, 4, reset("'hA")) + ipField("y", 8, 4) +
                          ipField("z", 16, 4, reset("'hF", "<ipxact:mask>'h3</ipxact:mask>")))));
  EXPECT_EQ(0x3000Au, map.registers[0].layout->resetValue);
  EXPECT_EQ(0x3000Fu, map.registers[0].layout->resetMask);
}

TEST(IpXact, resetOfAnotherKind_isLeftOut) {
  const Maps::Map map = parsed(
      component(ipReg("A", "0",
                      ipField("x", 0, 4,
                              "<ipxact:resets><ipxact:reset resetTypeRef=\"SOFT\"><ipxact:value>1"
                              "</ipxact:value></ipxact:reset></ipxact:resets>"))));
  EXPECT_EQ(std::nullopt, map.registers[0].layout->resetValue);
}

TEST(IpXact, arrays_followEachOther) {
  const Maps::Map map = parsed(component(ipReg("mac", "'h100", "<ipxact:dim>4</ipxact:dim>")));
  ASSERT_EQ(4u, map.registers.size());
  EXPECT_EQ("B.mac[3]", map.nameOf(map.registers[3]));
  EXPECT_EQ(0x110Cu, map.registers[3].address);
  EXPECT_EQ("mac", map.registers[3].array);
}

TEST(IpXact, twoDimensions_countTheLastOneFastest) {
  const Maps::Map map =
      parsed(component(ipReg("t", "0", "<ipxact:dim>2</ipxact:dim><ipxact:dim>3</ipxact:dim>")));
  ASSERT_EQ(6u, map.registers.size());
  EXPECT_EQ("t[1][0]", map.registers[3].name);
  EXPECT_EQ(0x100Cu, map.registers[3].address);
  EXPECT_EQ(3u, map.registers[3].index);
}

TEST(IpXact, registerFiles_areRepeatedByTheirRange) {
  const Maps::Map map = parsed(component(
      "<ipxact:registerFile><ipxact:name>CH</ipxact:name><ipxact:dim>2</ipxact:dim>"
      "<ipxact:addressOffset>'h100</ipxact:addressOffset><ipxact:range>'h20</ipxact:range>" +
      ipReg("R", "4") + "</ipxact:registerFile>"));
  ASSERT_EQ(2u, map.registers.size());
  EXPECT_EQ("CH[1].R", map.registers[1].name);
  EXPECT_EQ(0x1124u, map.registers[1].address);
}

TEST(IpXact, addressUnits_areCountedInBytes) {
  const Maps::Map map = parsed(component(ipReg("A", "4"),
                                         "<ipxact:addressUnitBits>32"
                                         "</ipxact:addressUnitBits>"));
  EXPECT_EQ(0x1000u * 4 + 16, map.registers[0].address);
}

TEST(IpXact, parameterInANumber_isRefusedWithItsText) {
  EXPECT_EQ("chip.svd:3: addressOffset is no literal number of 64 bits: 'OFFSET + 4'",
            errorOf(component(ipReg("A", "OFFSET + 4"))));
}

TEST(IpXact, missingParts_areRefused) {
  EXPECT_EQ("chip.svd:3: A has no size",
            errorOf(component("<ipxact:register><ipxact:name>A</ipxact:name></ipxact:register>")));
  EXPECT_EQ("chip.svd:3: x has no bitWidth",
            errorOf(component("<ipxact:register><ipxact:name>A</ipxact:name><ipxact:size>32"
                              "</ipxact:size><ipxact:field><ipxact:name>x</ipxact:name>"
                              "<ipxact:bitOffset>0</ipxact:bitOffset></ipxact:field>"
                              "</ipxact:register>")));
}

TEST(IpXact, hugeArray_isRefusedBeforeItIsMade) {
  EXPECT_EQ("chip.svd:3: A is an array of more than 250000 elements",
            errorOf(component(ipReg("A", "0",
                                    "<ipxact:dim>65536</ipxact:dim>"
                                    "<ipxact:dim>65536</ipxact:dim>"))));
}

TEST(IpXact, reservedBlock_proposesNothing) {
  const Maps::Plan plan =
      Maps::proposed(parsed(component("<ipxact:usage>reserved</ipxact:usage>" + ipReg("A", "0"))));
  EXPECT_EQ("it lies in a reserved address block", choiceOf(plan, "B.A").reason);
}

TEST(IpXact, plainRegister_isProposed) {
  const Maps::Plan plan = Maps::proposed(
      parsed(component(ipReg("A", "0", ipField("mode", 0, 4) + ipField("speed", 8, 4)))));
  EXPECT_EQ(Driver::Rule::repaired, choiceOf(plan, "B.A").rule);
  EXPECT_EQ(0xFFFFF0F0u, choiceOf(plan, "B.A").mask);
}

}  // namespace
