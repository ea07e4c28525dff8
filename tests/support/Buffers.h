// What a region's buffers and bitmaps hold.
#pragma once

#include <Hal/Buf.h>
#include <Hardware/Entries.h>

#include <cstring>
#include <vector>

namespace Support {

inline std::vector<U8> bytes(const Hal::BufBase::Ptr& buffer) {
  return {buffer->data(), buffer->data() + buffer->size()};
}

// The entries whose bit is set.
inline std::vector<U32> marked(const Hal::BufBase::Ptr& bitmap) {
  std::vector<U32> entries;
  for (U32 i = 0; i < bitmap->size() * 8; ++i) {
    if (Hardware::bitmapBit(bitmap->data(), i)) entries.push_back(i);
  }
  return entries;
}

inline U32 word(const Hal::BufBase::Ptr& buffer, U32 index) {
  U32 value;
  std::memcpy(&value, buffer->data() + std::size_t{4} * index, 4);
  return value;
}

inline void wordIs(const Hal::BufBase::Ptr& buffer, U32 index, U32 value) {
  std::memcpy(buffer->data() + std::size_t{4} * index, &value, 4);
}

}  // namespace Support
