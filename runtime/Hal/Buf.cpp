#include <Hal/Buf.h>

#include <Zint/Reflect.h>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define UMBRA_ADDRESSES_ARE_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UMBRA_ADDRESSES_ARE_SANITIZED
#endif
#endif

namespace Hal {
namespace {

Zint::Bytes contents(const BufBase& buffer) {
  return {{buffer.data(), buffer.data() + buffer.size()}};
}

constexpr Zint::Member bufBaseMembers[] = {
    Zint::readOnly<&BufBase::size>("size"),
    Zint::readOnly<&contents>("data"),
};
constinit const Zint::Type bufBaseType{"Hal::BufBase", "reference-counted object", nullptr,
                                       bufBaseMembers};
constinit const Zint::Type bufType{"Hal::Buf", "reference-counted object", &bufBaseType};

// calloc leaves large blocks untouched: their pages are zero already. A block of 0 bytes has an
// address of its own as well.
U8* newZeroedBlock(std::size_t size) {
  void* block = std::calloc(size == 0 ? 1 : size, 1);
  if (block == nullptr) throw std::bad_alloc();
  return static_cast<U8*>(block);
}

}  // namespace

BufBase::~BufBase() = default;

const Zint::Type* BufBase::fwkType() const { return &bufBaseType; }

Buf::Buf(U32 size) : BufBase(newZeroedBlock(size), size) {}

Buf::~Buf() {
  if (!isJoined_) std::free(data());
}

// The bytes at the beginning of a block, aligned as it is; the object follows.
class JoinedBuf final : public Buf {
 public:
  JoinedBuf(U8* block, U32 size) : Buf(JoinedBytes(), block, size) {}

  static void* operator new(std::size_t, U8* place) noexcept { return place; }
  static void operator delete(JoinedBuf* buf, std::destroying_delete_t) noexcept {
    U8* const block = buf->data();
    buf->~JoinedBuf();
    std::free(block);
  }

 protected:
  ~JoinedBuf() override = default;
};

Zint::Ptr<Buf> bufFactory(U32 size) {
#ifdef UMBRA_ADDRESSES_ARE_SANITIZED
  return Zint::makePtr<Buf>(size);  // an access beyond its bytes leaves their block
#else
  const U64 place = (U64{size} + alignof(JoinedBuf) - 1) / alignof(JoinedBuf) * alignof(JoinedBuf);
  // In 32 bits it may be more than the address space.
  if (place > ~std::size_t{0} - sizeof(JoinedBuf)) throw std::bad_alloc();
  const auto offset = static_cast<std::size_t>(place);
  U8* block = newZeroedBlock(offset + sizeof(JoinedBuf));
  return Zint::Ptr<Buf>::adopt(new (block + offset) JoinedBuf(block, size));
#endif
}

const Zint::Type* Buf::fwkType() const { return &bufType; }

}  // namespace Hal
