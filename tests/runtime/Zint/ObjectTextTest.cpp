// The text form of pointers to counted objects.
#include <Zint/Entity.h>
#include <Zint/ObjectText.h>
#include <Zint/Type.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "runtime/Probes.h"

namespace {

using Probes::rangeMessage;
using Probes::Thing;
using Zint::objectText;
using Zint::Ptr;
using Zint::PtrInterface;
using Zint::String8;

template <class T = PtrInterface>
Ptr<T> read(const String8& text) {
  return Zint::strepToValue<Ptr<T>>(text);
}

// The number behind the mark.
unsigned long numberOf(const String8& text) {
  return std::stoul(text.bytes().substr(text.bytes().rfind('#') + 1));
}

TEST(ObjectText, null_readsBack) {
  EXPECT_EQ(objectText(nullptr), "null");
  EXPECT_EQ(Zint::valueToStrep(Ptr<Thing>()), "null");
  EXPECT_EQ(read<Thing>("null"), nullptr);
}

TEST(ObjectText, entity_isItsNameAndANumber) {
  const Ptr<Thing> thing = Zint::makePtr<Thing>("ham0");
  const std::string text = Zint::valueToStrep(thing).bytes();
  EXPECT_EQ(text, "'ham0'#" + std::to_string(numberOf(text)));
}

TEST(ObjectText, unnamed_isTheLastPartOfItsTypeAndANumber) {
  bool alive = false;
  const Ptr<Probes::Life> object = Zint::makePtr<Probes::Life>(alive);
  EXPECT_EQ(objectText(object.ptr()).bytes().substr(0, 13), "PtrInterface#");
}

TEST(ObjectText, sameObject_hasTheSameTextAlways) {
  const Ptr<Thing> thing = Zint::makePtr<Thing>("ham");
  const String8 text = objectText(thing.ptr());
  objectText(Zint::makePtr<Thing>("between").ptr());
  EXPECT_EQ(objectText(thing.ptr()), text);
}

TEST(ObjectText, sameName_isToldApartByTheNumber) {
  const Ptr<Thing> a = Zint::makePtr<Thing>("ham");
  const Ptr<Thing> b = Zint::makePtr<Thing>("ham");
  EXPECT_NE(objectText(a.ptr()), objectText(b.ptr()));
  EXPECT_EQ(read<Thing>(objectText(a.ptr())), a);
  EXPECT_EQ(read<Thing>(objectText(b.ptr())), b);
}

TEST(ObjectText, numbers_followTheOrderOfTheFirstTexts) {
  const Ptr<Thing> a = Zint::makePtr<Thing>("a");
  const Ptr<Thing> b = Zint::makePtr<Thing>("b");
  const unsigned long ofB = numberOf(objectText(b.ptr()));
  EXPECT_EQ(numberOf(objectText(a.ptr())), ofB + 1);
}

TEST(ObjectText, numbers_areNotGivenAgain) {
  const unsigned long before = numberOf(objectText(Zint::makePtr<Thing>("gone").ptr()));
  const Ptr<Thing> later = Zint::makePtr<Thing>("gone");
  EXPECT_GT(numberOf(objectText(later.ptr())), before);
}

TEST(ObjectText, names_areEscapedAndReadBack) {
  for (const char* name : {"it's", "a#2", "back\\slash", "two words", "", "line\nbreak"}) {
    const Ptr<Thing> thing = Zint::makePtr<Thing>(name);
    EXPECT_EQ(read<Thing>(objectText(thing.ptr())), thing) << name;
  }
}

TEST(ObjectText, reading_holdsTheObject) {
  Ptr<Thing> thing = Zint::makePtr<Thing>("ham");
  const Ptr<Thing> again = read<Thing>(objectText(thing.ptr()));
  EXPECT_EQ(thing->references(), 2u);
}

TEST(ObjectText, reading_anObjectThatHasGoneIsRefused) {
  const std::string text = objectText(Zint::makePtr<Thing>("ham").ptr()).bytes();
  EXPECT_EQ(rangeMessage([&] { read<Thing>(text); }), text + " is no living object");
}

TEST(ObjectText, reading_aNumberUnderAnotherNameIsRefused) {
  const Ptr<Thing> thing = Zint::makePtr<Thing>("ham");
  const std::string number = std::to_string(numberOf(objectText(thing.ptr())));
  EXPECT_EQ(rangeMessage([&] { read<Thing>("'pork'#" + number); }),
            "'pork'#" + number + " is no living object");
  EXPECT_EQ(rangeMessage([&] { read<Thing>("ham#" + number); }),
            "ham#" + number + " is no living object");
}

// No silent narrowing: a number 2^32 further on is another one.
TEST(ObjectText, reading_aNumberBeyond32BitsIsRefused) {
  const Ptr<Thing> thing = Zint::makePtr<Thing>("ham");
  const unsigned long long number = numberOf(objectText(thing.ptr()));
  const std::string far = std::to_string(number + (1ull << 32));
  EXPECT_EQ(rangeMessage([&] { read<Thing>("'ham'#" + far); }), far + " is out of range");
  EXPECT_EQ(rangeMessage([&] { read<Thing>("'ham'#-1"); }), "-1 is out of range");
}

TEST(ObjectText, reading_anotherTypeIsRefused) {
  bool alive = false;
  const Ptr<Probes::Life> object = Zint::makePtr<Probes::Life>(alive);
  const std::string text = objectText(object.ptr()).bytes();
  EXPECT_EQ(rangeMessage([&] { read<Thing>(text); }), text + " is of another type");
  EXPECT_EQ(read<Probes::Life>(text), object);
}

TEST(ObjectText, reading_whatIsNoObjectIsRefused) {
  EXPECT_EQ(rangeMessage([] { read(""); }), "an object expected at \"\"");
  EXPECT_EQ(rangeMessage([] { read("ham"); }), "an object expected at \"ham\"");
  EXPECT_EQ(rangeMessage([] { read("'ham'"); }), "an object expected at \"'ham'\"");
  EXPECT_EQ(rangeMessage([] { read("'ham'#"); }), "an integer expected at \"\"");
  EXPECT_EQ(rangeMessage([] { read("'ham#1"); }), "a closed string expected at \"'ham#1\"");
}

TEST(ObjectText, reading_leavesThePositionBehindTheText) {
  const Ptr<Thing> thing = Zint::makePtr<Thing>("ham");
  const String8 text = objectText(thing.ptr()) + " more";
  auto pos = text.begin();
  Ptr<Thing> value;
  sequenceToValue(pos, text.end(), value);
  EXPECT_EQ(value, thing);
  EXPECT_EQ(std::string(pos, text.end()), " more");
}

TEST(ObjectText, reading_aFailureLeavesPositionAndValue) {
  const Ptr<Thing> thing = Zint::makePtr<Thing>("ham");
  const String8 text = "'ham'#0";
  auto pos = text.begin();
  Ptr<Thing> value = thing;
  EXPECT_THROW(sequenceToValue(pos, text.end(), value), Zint::RangeException);
  EXPECT_EQ(pos, text.begin());
  EXPECT_EQ(value, thing);
}

TEST(ObjectText, reading_whatFollowsIsJunk) {
  EXPECT_EQ(rangeMessage([] { read("nullish"); }),
            "junk at column 4 deserializing Zint::PtrInterface");
  EXPECT_EQ(rangeMessage([] { read<Zint::Clock>("null ish"); }),
            "junk at column 4 deserializing Zint::Clock");
  EXPECT_EQ(rangeMessage([] { (void)Zint::strepToValue<Ptr<const Zint::Clock>>("null "); }),
            "junk at column 4 deserializing Zint::Clock");
}

// Its text is asked for while the destructor runs: it has one, but is not found by it.
TEST(ObjectText, object_underDestructionHasATextAndIsNotFound) {
  class Announcer : public Zint::Entity {
   public:
    explicit Announcer(std::string& last, std::string& refusal)
        : Entity("last"), last_(last), refusal_(refusal) {}

   protected:
    ~Announcer() override {
      last_ = objectText(this).bytes();
      refusal_ = rangeMessage([&] { read(last_); });
    }

   private:
    std::string& last_;
    std::string& refusal_;
  };
  std::string last, refusal;
  Zint::makePtr<Announcer>(last, refusal);
  EXPECT_EQ(last.substr(0, 7), "'last'#");
  EXPECT_EQ(refusal, last + " is no living object");
  EXPECT_EQ(rangeMessage([&] { read(last); }), last + " is no living object");
}

// The very last moment: a notifiee is disconnected by the base's destructor.
TEST(ObjectText, object_numberedByItsLastNotifieeIsForgotten) {
  class Asking : public Zint::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void notifierIs(const Ptr<const PtrInterface>& notifier) override {
      if (notifier == nullptr && this->notifier() != nullptr)
        text = objectText(this->notifier()).bytes();
      NotifieeConst::notifierIs(notifier);
    }
    std::string text;
  };
  Ptr<Thing> thing = Zint::makePtr<Thing>("watched");
  const Ptr<Asking> asking = Zint::makePtr<Asking>(nullptr, thing);
  asking->isNonReferencingIs(true);
  thing = nullptr;
  ASSERT_NE(asking->text, "");
  EXPECT_EQ(rangeMessage([&] { read(asking->text); }), asking->text + " is no living object");
}

// Handed over to a thread and destroyed there: the first thread's number goes with it.
TEST(ObjectText, object_destroyedOnAnotherThreadIsForgotten) {
  Ptr<Thing> thing = Zint::makePtr<Thing>("handed");
  const std::string text = objectText(thing.ptr()).bytes();
  std::thread([&] { thing = nullptr; }).join();
  EXPECT_EQ(rangeMessage([&] { read(text); }), text + " is no living object");
}

TEST(ObjectText, threads_haveNumbersOfTheirOwn) {
  const Ptr<Thing> mine = Zint::makePtr<Thing>("mine");
  const std::string text = objectText(mine.ptr()).bytes();
  std::string refusal, other;
  std::thread([&] {
    refusal = rangeMessage([&] { read(text); });
    other = objectText(Zint::makePtr<Thing>("theirs").ptr()).bytes();
  }).join();
  EXPECT_EQ(refusal, text + " is no living object");
  EXPECT_EQ(other, "'theirs'#1");
}

}  // namespace
