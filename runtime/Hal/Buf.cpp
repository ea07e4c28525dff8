#include <Hal/Buf.h>

#include <Zint/Reflect.h>
#include <cstdlib>
#include <new>

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

// The object at the beginning of a block; its bytes follow.
class JoinedBuf final : public Buf {
 public:
  JoinedBuf(U8* block, U32 size) : Buf(block + sizeof(JoinedBuf), size) {}

  static void* operator new(std::size_t, U8* block) noexcept { return block; }
  static void operator delete(void* block) noexcept { std::free(block); }

 protected:
  ~JoinedBuf() override = default;
};

Zint::Ptr<Buf> bufFactory(U32 size) {
  // In 32 bits the sum may be more than the address space.
  if (size > ~std::size_t{0} - sizeof(JoinedBuf)) throw std::bad_alloc();
  U8* block = newZeroedBlock(sizeof(JoinedBuf) + size);
  return Zint::Ptr<Buf>::adopt(new (block) JoinedBuf(block, size));
}

const Zint::Type* Buf::fwkType() const { return &bufType; }

}  // namespace Hal
