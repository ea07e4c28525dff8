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

void* Buf::operator new(std::size_t size) { return newZeroedBlock(size); }

void Buf::operator delete(void* block) noexcept { std::free(block); }

Zint::Ptr<Buf> bufFactory(U32 size) {
  // In 32 bits the sum may be more than the address space.
  if (size > ~std::size_t{0} - sizeof(Buf)) throw std::bad_alloc();
  U8* block = newZeroedBlock(sizeof(Buf) + size);
  return Zint::Ptr<Buf>::adopt(new (block) Buf(block + sizeof(Buf), size));
}

const Zint::Type* Buf::fwkType() const { return &bufType; }

}  // namespace Hal
