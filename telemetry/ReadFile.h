// A file of rows that is read without a mapping, while another process writes it. Used by the
// readers alone.
#pragma once

#include <telemetry/Row.h>
#include <string>
#include <vector>

namespace Telemetry {

class ReadFile {
 public:
  // REQUIRES: a file that can be read (range exception).
  explicit ReadFile(const std::string& path);
  ReadFile(const ReadFile&) = delete;
  ReadFile& operator=(const ReadFile&) = delete;
  ~ReadFile();

  const std::string& path() const { return path_; }
  // Bytes, as the file is now.
  U64 size() const;
  // Whether the path names another file by now, or none.
  bool isReplaced() const;
  // What is behind the end of the file is zero; false if anything of it is.
  bool read(U64 offset, void* to, std::size_t bytes) const;
  template <class T>
  T numberAt(U64 offset) const {
    T value{};
    read(offset, &value, sizeof value);
    return value;
  }
  std::string textAt(U64 offset, std::size_t bytes) const;

  // Rows one behind the other, as words. Looks at the sequence numbers, the rows and the sequence
  // numbers, and again at each row that was not whole. `isTorn[i]`: row i never was.
  // REQUIRES: whole words in a row.
  std::vector<U32> rows(U64 offset, U32 rowBytes, U32 count, std::vector<bool>& isTorn) const;

  // A range exception that names the file.
  [[noreturn]] void refuse(const std::string& why) const;

 private:
  void look(U64 offset, U32 rowBytes, U32 count, U32* to, std::vector<bool>& isTorn) const;

  std::string path_;
  int descriptor_;
};

// The text of a field: up to the first zero. `isCut`: the field says that it was longer.
std::string textOfField(const U32* words, U32 bytes, bool* isCut = nullptr);

}  // namespace Telemetry
