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
  // Bytes behind the block that belong to it as well, though they are not counted in its size: room
  // for an access that is allowed to start at the very end.
  U32 slack() const { return slack_; }

 protected:
  BufBase(U8* data, U32 size, U32 slack = 0) : data_(data), size_(size), slack_(slack) {}
  ~BufBase() override;

 private:
  U8* data_;
  U32 size_;
  U32 slack_;
};

// A block of its own, zero-filled.
class UMBRA_API Buf : public BufBase {
 public:
  using Ptr = Zint::Ptr<Buf>;

  // No memory: std::bad_alloc.
  explicit Buf(U32 size, U32 slack = 0);

  const Zint::Type* fwkType() const override;

 protected:
  ~Buf() override;
};

// The names under which reflection shows them.
constexpr const char* zintTypeName(const BufBase*) { return "Hal::BufBase"; }
constexpr const char* zintTypeName(const Buf*) { return "Hal::Buf"; }

}  // namespace Hal
