#include <Hal/Buf.h>
#include <Zint/Type.h>
#include <gtest/gtest.h>
#include <support/Sanitizers.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

namespace {

using Zint::makePtr;

bool isZero(const Hal::BufBase& buf) {
  return std::all_of(buf.data(), buf.data() + buf.size(), [](U8 byte) { return byte == 0; });
}

// Its bytes in a block of their own, and in the block of the object.
Hal::Buf::Ptr separate(U32 size) { return makePtr<Hal::Buf>(size); }
constexpr Hal::Buf::Ptr (*makers[])(U32) = {separate, Hal::bufFactory};

TEST(Buf, isZeroFilledAtEverySize) {
  for (const auto make : makers) {
    for (U32 size : {1u, 7u, 4096u, 1u << 20}) {
      for (int round = 0; round < 2; ++round) {  // the second may receive the first one's memory
        const Hal::Buf::Ptr buf = make(size);
        EXPECT_EQ(buf->size(), size);
        EXPECT_TRUE(isZero(*buf)) << size;
        std::memset(buf->data(), 0xff, size);
      }
    }
  }
}

TEST(Buf, size0HasAnAddressOfItsOwn) {
  for (const auto make : makers) {
    const Hal::Buf::Ptr first = make(0);
    const Hal::Buf::Ptr second = make(0);
    EXPECT_EQ(first->size(), 0u);
    EXPECT_NE(first->data(), nullptr);
    EXPECT_NE(first->data(), second->data());
  }
}

TEST(Buf, aSizeThatTheAddressSpaceCannotHoldRaisesBadAlloc) {
  if (sizeof(void*) > 4) GTEST_SKIP() << "every size fits";
  if (Support::addressesAreSanitized()) GTEST_SKIP() << "the sanitizer ends the process";
  for (const auto make : makers) {
    EXPECT_THROW(make(0xffffffffu), std::bad_alloc);
    EXPECT_THROW(make(0xfffffff0u), std::bad_alloc);
  }
}

TEST(Buf, isCountedAndSeenThroughItsBase) {
  for (const auto make : makers) {
    const Hal::Buf::Ptr buf = make(8);
    const Hal::BufBase::Ptr base = buf;
    EXPECT_EQ(buf->references(), 2u);
    EXPECT_EQ(base->data(), buf->data());
    EXPECT_STREQ(base->fwkType()->name, "Hal::Buf");
  }
}

class Derived : public Hal::Buf {
 public:
  Derived() : Buf(5) {}
  U64 more[3] = {1, 2, 3};
};

TEST(Buf, mayBeDerivedFrom) {
  const Zint::Ptr<Derived> buf = makePtr<Derived>();
  std::memset(buf->data(), 0xff, buf->size());
  EXPECT_EQ(buf->more[2], 3u);
}

class alignas(64) Aligned : public Hal::Buf {
 public:
  Aligned() : Buf(5) {}
  U8 more[64] = {};
};

TEST(Buf, derivedOneIsAlignedAsItsClassAsks) {
  std::vector<Zint::Ptr<Aligned>> bufs;
  for (int i = 0; i < 20; ++i) {
    bufs.push_back(makePtr<Aligned>());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bufs.back().ptr()) % 64, 0u);
  }
}

// A block that somebody else owns.
class Lent : public Hal::BufBase {
 public:
  Lent(U8* data, U32 size) : BufBase(data, size) {}
};

TEST(Buf, aBlockMayComeFromAnywhere) {
  U8 bytes[3] = {1, 2, 3};
  const Hal::BufBase::Ptr lent = makePtr<Lent>(bytes, 3u);
  EXPECT_EQ(lent->data(), bytes);
  EXPECT_EQ(lent->size(), 3u);
  EXPECT_STREQ(lent->fwkType()->name, "Hal::BufBase");
}

}  // namespace
