// A caller's bad input: an exception with a message, the object unchanged.
#pragma once

#include <Zint/Api.h>
#include <Zint/String8.h>
#include <exception>

namespace Zint {

class UMBRA_API Exception : public std::exception {
 public:
  explicit Exception(String8 message);
  ~Exception() override;
  // The message; a NUL in it is written \x00, so that readers of a C string see all of it.
  const char* what() const noexcept override { return (text_.empty() ? message_ : text_).c_str(); }
  const String8& message() const { return message_; }

 private:
  String8 message_;
  String8 text_;  // what() of a message with a NUL; else empty
};

class UMBRA_API RangeException : public Exception {
 public:
  using Exception::Exception;
  ~RangeException() override;
};

class UMBRA_API NameInUseException : public Exception {
 public:
  using Exception::Exception;
  ~NameInUseException() override;
};

[[noreturn, gnu::cold]] UMBRA_API void throwRangeException(const char* message);
[[noreturn, gnu::cold]] UMBRA_API void throwRangeException(const String8& message);
// Of a mutator that was given a null pointer: "null _PARAMETER parameter to mutator for MUTATOR not
// allowed"", with the double quote at the end.
[[noreturn, gnu::cold]] UMBRA_API void throwNullParameter(const char* parameter,
                                                          const char* mutator);
[[noreturn, gnu::cold]] UMBRA_API void throwNameInUseException(const String8& message);

// Throws `cause` again as a range exception that names the attribute whose text did not parse.
[[noreturn, gnu::cold]] UMBRA_API void rethrowFromDeserializeAttr(const RangeException& cause,
                                                                  const char* attribute);

}  // namespace Zint
