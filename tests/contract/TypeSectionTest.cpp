// The names of the library's types stand in its file, in a section of their own, for tools that
// read the file without loading it.
#include <Hardware/Descriptions.h>
#include <support/TypeSection.h>

#include <string>
#include <vector>

namespace {

constexpr char expectedBytes[] =
    "Hardware::ChipMemory::ChipMemoryMode\0"
    "Hardware::HardwareShadow::State\0"
    "Hardware::ChipAddress\0"
    "Hardware::ChipHam\0"
    "Hardware::GenericChipHam\0"
    "Hardware::ChipMemory\0"
    "Hardware::ChipReadRequest\0"
    "Hardware::ChipReader\0"
    "Hardware::ChipMemoryArrayIndex\0"
    "Hardware::ChipMemoryChunk\0"
    "Hardware::HardwareShadow\0"
    "Hardware::ChipMemoryBogon";

class TypeSection : public Support::TypeSectionTest {
 protected:
  TypeSection() : TypeSectionTest("libUmbra.so") {}
};

TEST_F(TypeSection, holdsTheQualifiedNamesInOrderEachEndedByAZeroByte) {
  EXPECT_EQ(found[0].bytes, std::string(expectedBytes, sizeof expectedBytes));
}

TEST_F(TypeSection, namesWhatTheRegistryNames) {
  std::string names;
  const std::vector<const Zint::Type*> types = Zint::TypeRegistry::types();
  ASSERT_GE(types.size(), 12u);
  for (std::size_t i = 0; i < 12; ++i) names.append(types[i]->name).push_back('\0');
  EXPECT_EQ(found[0].bytes, names);
}

TEST_F(TypeSection, isLoadedWithTheLibraryAndNotWritable) {
  EXPECT_EQ(found[0].type, U32{SHT_PROGBITS});
  EXPECT_EQ(found[0].flags & (SHF_ALLOC | SHF_WRITE | SHF_EXECINSTR), U64{SHF_ALLOC});
}

TEST_F(TypeSection, fileIsOfThisProgramsClass) {
  EXPECT_EQ(file[EI_CLASS], sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32);
}

}  // namespace
