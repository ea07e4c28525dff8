// A file that this process writes through a mapping and others read. It is made in pieces that take
// little time each: its space is allocated beforehand, so that a full disk is an error here and no
// signal later, its pages are touched, and it gets its name when it is complete.
#pragma once

#include <telemetry/Row.h>
#include <string>

namespace Telemetry {

class SharedFile {
 public:
  static constexpr U32 pieceBytes = 16 * 1024;

  // Begins to make a file that is to have this path. Failures here and below: std::system_error.
  SharedFile(std::string path, U32 bytes);
  // A file that is there, of at least `leastBytes`.
  struct Existing {
    U32 leastBytes;
  };
  SharedFile(std::string path, Existing existing);
  SharedFile(const SharedFile&) = delete;
  SharedFile& operator=(const SharedFile&) = delete;
  ~SharedFile();

  // Does one more piece. True: all is done.
  bool make();
  // Gives the complete file its name.
  void publish();
  // Unmaps one more piece. True: all is unmapped.
  bool unmap();

  U32 bytes() const { return bytes_; }
  const std::string& path() const { return path_; }
  int descriptor() const { return descriptor_; }
  // REQUIRES: that it is made, and an offset of whole words.
  Word* words(U32 offset) const { return words_ + offset / sizeof(Word); }
  // Of what does not change once it is published.
  void put(U32 offset, const void* bytes, std::size_t size);
  // Whether the path still names this file, in its whole size.
  bool isInPlace() const;
  // Whether nobody has cut it short, under whatever name it is.
  bool isWhole() const;
  // In a process that was forked: what it writes from now on is its own, and nobody's file.
  void leaveToParent() noexcept;

 private:
  void map();
  void close();

  // Whether it was forked since.
  bool isForked() const;

  int process_;
  std::string path_;
  std::string madeAs_;  // empty once it has its name
  U32 bytes_ = 0;
  int descriptor_ = -1;
  Word* words_ = nullptr;
  U32 allocated_ = 0;
  U32 touched_ = 0;
  U32 unmapped_ = 0;
};

}  // namespace Telemetry
