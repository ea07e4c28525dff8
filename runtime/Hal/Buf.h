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
  BufBase(U8* data, U32 size) : data_(data), size_(size) {}
  ~BufBase() override;

 private:
  U8* data_;
  U32 size_;
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
};

// The names under which reflection shows them.
constexpr const char* zintTypeName(const BufBase*) { return "Hal::BufBase"; }
constexpr const char* zintTypeName(const Buf*) { return "Hal::Buf"; }

}  // namespace Hal
