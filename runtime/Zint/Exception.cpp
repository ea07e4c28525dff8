#include <Zint/Exception.h>

#include <Zint/Strep.h>

namespace Zint {

Exception::Exception(String8 message) : message_(std::move(message)) {
  if (message_.bytes().find('\0') != std::string::npos) text_ = escapeNuls(message_);
}

// Out of line: each type has one home for its type information.
Exception::~Exception() = default;
RangeException::~RangeException() = default;
NameInUseException::~NameInUseException() = default;

void throwRangeException(const char* message) { throw RangeException(message); }
void throwRangeException(const String8& message) { throw RangeException(message); }
void throwNullParameter(const char* parameter, const char* mutator) {
  throw RangeException(String8("null _") + parameter + " parameter to mutator for " + mutator +
                       " not allowed\"");
}

void throwNameInUseException(const String8& message) { throw NameInUseException(message); }

void rethrowFromDeserializeAttr(const RangeException& cause, const char* attribute) {
  throw RangeException(String8(cause.message()) + " deserializing attribute " + attribute);
}

}  // namespace Zint
