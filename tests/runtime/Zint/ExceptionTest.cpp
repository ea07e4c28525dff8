#include <Zint/Exception.h>

#include <runtime/Probes.h>

namespace {

TEST(Exception, throwRangeException_carriesTheMessage) {
  EXPECT_EQ(Probes::rangeMessage([] { Zint::throwRangeException("null ValidPtr"); }),
            "null ValidPtr");
  EXPECT_EQ(Probes::rangeMessage([] { Zint::throwRangeException(Zint::String8("too far")); }),
            "too far");
}

TEST(Exception, throwNameInUseException_carriesTheMessage) {
  try {
    Zint::throwNameInUseException("mac is in use");
    ADD_FAILURE();
  } catch (const Zint::NameInUseException& exception) {
    EXPECT_EQ(exception.message(), "mac is in use");
    EXPECT_STREQ(exception.what(), "mac is in use");
  }
}

TEST(Exception, allAreExceptionsOfTheRuntimeAndOfTheLanguage) {
  EXPECT_THROW(Zint::throwRangeException("x"), Zint::Exception);
  EXPECT_THROW(Zint::throwNameInUseException("x"), Zint::Exception);
  EXPECT_THROW(Zint::throwRangeException("x"), std::exception);
}

TEST(Exception, rethrowFromDeserializeAttr_addsTheAttribute) {
  EXPECT_EQ(Probes::rangeMessage([] {
              Zint::rethrowFromDeserializeAttr(Zint::RangeException("no number"), "value");
            }),
            "no number deserializing attribute value");
}

TEST(Exception, isCopiedWithItsMessage) {
  const Zint::RangeException first("far");
  const Zint::RangeException copy = first;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_STREQ(copy.what(), "far");
}

// what() is a C string: a NUL in the message is written as text forms write it.
TEST(Exception, what_isWholeBeyondANul) {
  const Zint::String8 message(std::string("a\0b", 3));
  const Zint::RangeException exception(message);
  EXPECT_STREQ(exception.what(), "a\\x00b");
  EXPECT_EQ(exception.message(), message);
  EXPECT_EQ(Probes::rangeMessage([&] { Zint::throwRangeException(message); }), "a\\x00b");
}

}  // namespace
