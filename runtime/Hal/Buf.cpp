#include <Hal/Buf.h>
#include <Zint/Reflect.h>
#include <cstdlib>
#include <limits>
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

// Large blocks come from calloc untouched: their pages are zero already.
U8* zeroedBlock(U32 size, U32 slack) {
  const U64 bytes = U64{size} + slack;
  if (bytes >= std::numeric_limits<std::size_t>::max()) throw std::bad_alloc();
  void* block = std::calloc(static_cast<std::size_t>(bytes) + (bytes == 0 ? 1 : 0), 1);
  if (block == nullptr) throw std::bad_alloc();
  return static_cast<U8*>(block);
}

}  // namespace

BufBase::~BufBase() = default;

const Zint::Type* BufBase::fwkType() const { return &bufBaseType; }

Buf::Buf(U32 size, U32 slack) : BufBase(zeroedBlock(size, slack), size, slack) {}

Buf::~Buf() { std::free(data()); }

const Zint::Type* Buf::fwkType() const { return &bufType; }

}  // namespace Hal
