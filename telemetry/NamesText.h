// The texts of names: what is wrong with one, near misses, quotes, and chip addresses as people
// write them.
#pragma once

#include <Zint/Type.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Telemetry {

// Why something cannot be done by name, for the person who asked for it.
class UMBRA_API Error : public std::runtime_error {
 public:
  explicit Error(const std::string& message);
  ~Error() override;
};

// The one of `known` that is closest to `name`: a transposed, missing, surplus or wrong letter away
// (more of them in longer names), the wrong case, or a unique continuation. "" when none is.
UMBRA_API std::string nearest(std::string_view name, const std::vector<std::string>& known);
// "; did you mean 'state'?", or "".
UMBRA_API std::string didYouMean(std::string_view name, const std::vector<std::string>& known);

// Where the part up to the first `mark` outside quotes ends; npos when there is none. Inside quotes
// a backslash takes the next character for what it is.
UMBRA_API std::size_t findUnquoted(std::string_view text, char mark, std::size_t from = 0);

// A chip address as the traces print it: "0x2:00001f00" for "8589942528". Other texts stay as they
// are.
UMBRA_API std::string addressText(const std::string& text);
// The way back: "8589942528" for "0x2:00001f00". Other texts stay as they are.
UMBRA_API std::string integerText(const std::string& text);
// Whether an argument or a key of that name is a chip address.
UMBRA_API bool isAddressName(std::string_view name);
// A key of a collection as people read it.
UMBRA_API std::string keyText(const Zint::ListAccess& list, const std::string& key);

}  // namespace Telemetry
