// Counted byte buffers.
#pragma once

#include <Zint/Ptr.h>

namespace Hal {

// A block of bytes, wherever it comes from. Constant after construction: where the bytes are.
class UMBRA_API BufBase : public Zint::PtrInterface {
 public:
  using Ptr = Zint::Ptr<BufBase>;

  const Zint::Type* fwkType() const override;

  U8* data() const { return data_; }
  // In bytes.
  U32 size() const { return size_; }

 protected:
  BufBase(U8* data, U32 size) : size_(size), data_(data) {}
  ~BufBase() override;

 private:
  friend class Buf;

  bool isJoined_ = false;  // a Buf whose bytes lie in the block of the object
  U32 size_;
  U8* data_;
};

// A block that it owns, zero-filled.
class UMBRA_API Buf : public BufBase {
 public:
  using Ptr = Zint::Ptr<Buf>;

  // No memory: std::bad_alloc.
  explicit Buf(U32 size);

  const Zint::Type* fwkType() const override;

 protected:
  ~Buf() override;

 private:
  friend class JoinedBuf;

  struct JoinedBytes {};
  Buf(JoinedBytes, U8* data, U32 size) : BufBase(data, size) { isJoined_ = true; }
};

// A buffer whose bytes lie in the same block as the object: it takes less memory. Bytes of both
// kinds are aligned as those of malloc.
UMBRA_API Zint::Ptr<Buf> bufFactory(U32 size);

// The names under which reflection shows them.
constexpr const char* zintTypeName(const BufBase*) { return "Hal::BufBase"; }
constexpr const char* zintTypeName(const Buf*) { return "Hal::Buf"; }

}  // namespace Hal
