#include <Zint/Ptr.h>

#include <runtime/Probes.h>

#include <memory>
#include <new>
#include <type_traits>

namespace {

using Probes::Life;
using Zint::makePtr;
using Zint::Ptr;
using Zint::ValidPtr;

class Derived : public Life {
 public:
  using Life::Life;

 protected:
  ~Derived() override = default;
};

// Memory never suffices for one of these.
class Unobtainable : public Zint::PtrInterface {
 public:
  static void* operator new(std::size_t) noexcept { return nullptr; }
  static void operator delete(void*) {}
};

// Fails to be built once the base stands.
class Failing : public Life {
 public:
  explicit Failing(bool& alive) : Life(alive) { throw std::runtime_error("not today"); }
};

// Makes pointers to itself while it is being destroyed.
class SelfWatching : public Zint::PtrInterface {
 public:
  explicit SelfWatching(int& destroyed) : destroyed_(destroyed) {}

 protected:
  ~SelfWatching() override {
    const Ptr<SelfWatching> again(this);
    const Ptr<SelfWatching> copy = again;
    ++destroyed_;
  }

 private:
  int& destroyed_;
};

// Looks, while it is being destroyed, at the pointer that has held it.
class HolderWatching : public Zint::PtrInterface {
 public:
  explicit HolderWatching(const Ptr<HolderWatching>& holder, bool& wasEmpty)
      : holder_(holder), wasEmpty_(wasEmpty) {}

 protected:
  ~HolderWatching() override { wasEmpty_ = holder_ == nullptr; }

 private:
  const Ptr<HolderWatching>& holder_;
  bool& wasEmpty_;
};

struct PtrTest : testing::Test {
  bool alive = false;
};

TEST_F(PtrTest, makePtr_givesTheOneReferenceOfANewObject) {
  const Ptr<Life> life = makePtr<Life>(alive);
  EXPECT_TRUE(alive);
  EXPECT_EQ(life->references(), 1u);
}

TEST_F(PtrTest, isAsLargeAsAPlainPointer) { EXPECT_EQ(sizeof(Ptr<Life>), sizeof(Life*)); }

TEST_F(PtrTest, theLastPointerDestroysTheObject) {
  Ptr<Life> first = makePtr<Life>(alive);
  Ptr<Life> second = first;
  EXPECT_EQ(first->references(), 2u);
  first = nullptr;
  EXPECT_TRUE(alive);
  EXPECT_EQ(second->references(), 1u);
  second = nullptr;
  EXPECT_FALSE(alive);
}

TEST_F(PtrTest, aMoveTouchesNoCount) {
  Ptr<Life> first = makePtr<Life>(alive);
  Ptr<Life> second = std::move(first);
  EXPECT_EQ(first, nullptr);  // NOLINT(bugprone-use-after-move): that is what is tested
  EXPECT_EQ(second->references(), 1u);
  Ptr<Life> third;
  third = std::move(second);
  EXPECT_EQ(third->references(), 1u);
  EXPECT_TRUE(alive);
}

TEST_F(PtrTest, selfAssignmentKeepsTheObject) {
  Ptr<Life> life = makePtr<Life>(alive);
  Ptr<Life>& same = life;
  life = same;
  EXPECT_EQ(life->references(), 1u);
  life = std::move(same);
  ASSERT_NE(life, nullptr);
  EXPECT_EQ(life->references(), 1u);
}

TEST_F(PtrTest, convertsToTheBaseAndToAReadOnlyView) {
  Ptr<Derived> derived = makePtr<Derived>(alive);
  const Ptr<const Zint::PtrInterface> view = derived;
  EXPECT_EQ(derived->references(), 2u);
  const Ptr<Life> base = std::move(derived);
  EXPECT_EQ(derived, nullptr);  // NOLINT(bugprone-use-after-move): that is what is tested
  EXPECT_EQ(base->references(), 2u);
  EXPECT_FALSE((std::is_convertible_v<Ptr<const Life>, Ptr<Life>>));
  EXPECT_FALSE((std::is_convertible_v<Ptr<Life>, Ptr<Derived>>));
}

TEST_F(PtrTest, comparesByIdentity) {
  bool otherAlive = false;
  const Ptr<Life> first = makePtr<Life>(alive);
  const Ptr<Life> other = makePtr<Life>(otherAlive);
  EXPECT_EQ(first, Ptr<Life>(first.ptr()));
  EXPECT_NE(first, other);
  EXPECT_TRUE(first);
  EXPECT_FALSE(Ptr<Life>());
}

TEST_F(PtrTest, adoptAndRelease_handACountedReferenceOver) {
  Life* plain = Ptr<Life>(makePtr<Life>(alive)).release();
  EXPECT_TRUE(alive);
  EXPECT_EQ(plain->references(), 1u);
  Ptr<Life>::adopt(plain);
  EXPECT_FALSE(alive);
}

TEST_F(PtrTest, ptrCast_isNullForAnotherType) {
  const Ptr<Life> life = makePtr<Life>(alive);
  bool derivedAlive = false;
  const Ptr<Life> derived = makePtr<Derived>(derivedAlive);
  EXPECT_EQ(Zint::ptrCast<Derived>(life), nullptr);
  EXPECT_EQ(Zint::ptrCast<Derived>(derived).ptr(), derived.ptr());
}

TEST_F(PtrTest, validPtr_ofANullPointerRaisesNullValidPtr) {
  const Ptr<Life> null;
  EXPECT_EQ(Probes::rangeMessage([&] { ValidPtr<Life>{null}; }), "null ValidPtr");
}

TEST_F(PtrTest, validPtr_isTheSameReference) {
  const ValidPtr<Life> valid = makePtr<Life>(alive);
  const Ptr<Life> plain = valid;
  EXPECT_EQ(plain, valid);
  EXPECT_EQ(plain->references(), 2u);
}

TEST_F(PtrTest, makePtr_ofAClassWithoutMemoryRaisesNullValidPtr) {
  EXPECT_EQ(Probes::rangeMessage([] { makePtr<Unobtainable>(); }), "null ValidPtr");
}

TEST_F(PtrTest, makePtr_leavesNothingOfAnObjectWhoseConstructorThrows) {
  EXPECT_THROW(makePtr<Failing>(alive), std::runtime_error);
  EXPECT_FALSE(alive);
}

TEST_F(PtrTest, anObjectUnderDestructionIsNotDestroyedTwice) {
  int destroyed = 0;
  makePtr<SelfWatching>(destroyed);
  EXPECT_EQ(destroyed, 1);
}

// Keeps itself beyond its own destructor.
class SelfKeeping : public Zint::PtrInterface {
 public:
  explicit SelfKeeping(Ptr<SelfKeeping>& keeper) : keeper_(keeper) {}

 protected:
  ~SelfKeeping() override { keeper_ = Ptr<SelfKeeping>(this); }

 private:
  Ptr<SelfKeeping>& keeper_;
};

TEST_F(PtrTest, keepingAnObjectUnderDestructionIsFatal) {
  EXPECT_DEATH(
      {
        Ptr<SelfKeeping> keeper;
        makePtr<SelfKeeping>(keeper);
      },
      Support::Assertion("Zint/PtrInterface", 0, "virtual Zint::PtrInterface::~PtrInterface()",
                         "references_ == underDestruction || references_ == 1"));
}

TEST_F(PtrTest, anAssignmentStoresTheNewPointerBeforeItDestroysTheOldObject) {
  bool wasEmpty = false;
  Ptr<HolderWatching> holder;
  holder = makePtr<HolderWatching>(holder, wasEmpty);
  holder = nullptr;
  EXPECT_TRUE(wasEmpty);
}

}  // namespace
