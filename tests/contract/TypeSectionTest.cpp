// The names of the library's types stand in its file, in a section of their own, for tools that
// read the file without loading it.
#include <Hardware/Descriptions.h>
#include <elf.h>
#include <link.h>
#include <support/Sanitizers.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr const char sectionName[] = ".zint.type";

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

struct Section {
  std::string bytes;
  U64 flags;
  U32 type;
};

// Copies a structure out of the file; reading past its end is a failed test.
template <class T>
T at(const std::string& file, U64 offset) {
  T value{};
  if (offset > file.size() || file.size() - offset < sizeof(T)) {
    ADD_FAILURE() << "the file ends before " << offset + sizeof(T);
    return value;
  }
  std::memcpy(&value, file.data() + static_cast<std::size_t>(offset), sizeof(T));
  return value;
}

// The sections of that name, in a file of one ELF class.
template <class FileHeader, class SectionHeader>
std::vector<Section> sectionsOf(const std::string& file, const std::string& name) {
  const auto header = at<FileHeader>(file, 0);
  const auto sectionAt = [&](U64 index) {
    return at<SectionHeader>(file, header.e_shoff + index * header.e_shentsize);
  };
  const SectionHeader names = sectionAt(header.e_shstrndx);
  std::vector<Section> found;
  for (U64 i = 0; i < header.e_shnum; ++i) {
    const SectionHeader section = sectionAt(i);
    if (section.sh_type == SHT_NULL) continue;
    const U64 nameOffset = U64{names.sh_offset} + section.sh_name;
    if (nameOffset >= file.size() || name != file.c_str() + static_cast<std::size_t>(nameOffset))
      continue;
    if (U64{section.sh_offset} + section.sh_size > file.size()) {
      ADD_FAILURE() << "the section reaches beyond the file";
      continue;
    }
    const auto begin = static_cast<std::size_t>(section.sh_offset);
    const auto size = static_cast<std::size_t>(section.sh_size);
    found.push_back({file.substr(begin, size), section.sh_flags, section.sh_type});
  }
  return found;
}

std::vector<Section> sections(const std::string& file, const std::string& name) {
  if (file.size() < EI_NIDENT || file.compare(0, SELFMAG, ELFMAG) != 0) {
    ADD_FAILURE() << "no ELF file";
    return {};
  }
  return file[EI_CLASS] == ELFCLASS64 ? sectionsOf<Elf64_Ehdr, Elf64_Shdr>(file, name)
                                      : sectionsOf<Elf32_Ehdr, Elf32_Shdr>(file, name);
}

// The file that holds the library: its own, or the program when it is linked statically.
std::string libraryPath() {
  std::string path;
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* found) {
        const std::string name = info->dlpi_name;
        if (name.find("libUmbra.so") == std::string::npos) return 0;
        *static_cast<std::string*>(found) = name;
        return 1;
      },
      &path);
  return path.empty() ? "/proc/self/exe" : path;
}

class TypeSection : public testing::Test {
 protected:
  void SetUp() override {
    std::ifstream stream(path, std::ios::binary);
    file.assign(std::istreambuf_iterator<char>(stream), {});
    found = sections(file, sectionName);
    ASSERT_EQ(found.size(), 1u) << path;
    // Some sanitizers fence in each variable with zero bytes.
    std::string& bytes = found[0].bytes;
    if (Support::addressesAreSanitized()) bytes.resize(bytes.find_last_not_of('\0') + 2);
  }

  const std::string path = libraryPath();
  std::string file;
  std::vector<Section> found;
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
