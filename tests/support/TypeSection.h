// The names of types in the file of a loaded library, as tools read them that do not load it.
#pragma once

#include <Zint/Types.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/Sanitizers.h"

namespace Support {

struct ElfSection {
  std::string bytes;
  U64 flags;
  U32 type;
};

// Copies a structure out of the file; reading past its end is a failed test.
template <class T>
T structureAt(const std::string& file, U64 offset) {
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
std::vector<ElfSection> sectionsOf(const std::string& file, const std::string& name) {
  const auto header = structureAt<FileHeader>(file, 0);
  const auto sectionAt = [&](U64 index) {
    return structureAt<SectionHeader>(file, header.e_shoff + index * header.e_shentsize);
  };
  const SectionHeader names = sectionAt(header.e_shstrndx);
  std::vector<ElfSection> found;
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

inline std::vector<ElfSection> sections(const std::string& file, const std::string& name) {
  if (file.size() < EI_NIDENT || file.compare(0, SELFMAG, ELFMAG) != 0) {
    ADD_FAILURE() << "no ELF file";
    return {};
  }
  return file[EI_CLASS] == ELFCLASS64 ? sectionsOf<Elf64_Ehdr, Elf64_Shdr>(file, name)
                                      : sectionsOf<Elf32_Ehdr, Elf32_Shdr>(file, name);
}

// The file that holds the library: its own, or the program when it is linked statically.
inline std::string libraryPath(const char* fileName) {
  struct Search {
    const char* fileName;
    std::string path;
  } search{fileName, ""};
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* data) {
        auto& wanted = *static_cast<Search*>(data);
        const std::string name = info->dlpi_name;
        if (name.find(wanted.fileName) == std::string::npos) return 0;
        wanted.path = name;
        return 1;
      },
      &search);
  return search.path.empty() ? "/proc/self/exe" : search.path;
}

// The section of one library's file.
class TypeSectionTest : public testing::Test {
 protected:
  explicit TypeSectionTest(const char* fileName) : path(libraryPath(fileName)) {}

  void SetUp() override {
    std::ifstream stream(path, std::ios::binary);
    file.assign(std::istreambuf_iterator<char>(stream), {});
    found = sections(file, ".zint.type");
    ASSERT_EQ(found.size(), 1u) << path;
    // Some sanitizers fence in each variable with zero bytes.
    std::string& bytes = found[0].bytes;
    if (addressesAreSanitized()) bytes.resize(bytes.find_last_not_of('\0') + 2);
  }

  const std::string path;
  std::string file;
  std::vector<ElfSection> found;
};

}  // namespace Support
