#include <Zint/Exception.h>

namespace Zint {

// Out of line: each type has one home for its type information.
Exception::~Exception() = default;
RangeException::~RangeException() = default;
NameInUseException::~NameInUseException() = default;

void throwRangeException(const char* message) { throw RangeException(message); }
void throwRangeException(const String8& message) { throw RangeException(message); }
void throwNameInUseException(const String8& message) { throw NameInUseException(message); }

void rethrowFromDeserializeAttr(const RangeException& cause, const char* attribute) {
  throw RangeException(String8(cause.message()) + " deserializing attribute " + attribute);
}

}  // namespace Zint
