#include "driverlockstep/Events.h"

#include <cstdio>
#include <sstream>

namespace DriverLockstep {
namespace {

const char* const whatNames[] = {"read",    "write", "present?", "wasReset?", "veto",
                                 "finding", "begin", "pass",     "client"};

std::string hex(const Bytes& bytes) {
  std::string text;
  for (const U8 byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

}  // namespace

std::string Event::text() const {
  std::ostringstream out;
  out << whatNames[static_cast<int>(what)];
  switch (what) {
    case What::read:
    case What::write:
      out << " r" << region << " " << entry << "+" << count << (answer ? " threw" : "") << " "
          << hex(data);
      break;
    case What::present:
    case What::wasReset:
      out << " c" << region << " " << answer;
      break;
    case What::veto:
      out << " r" << region << " " << entry << " " << hex(expected) << "/" << hex(data) << " "
          << (answer ? "allowed" : "refused");
      break;
    case What::finding:
      out << " r" << region << " " << entry << " " << hex(expected) << "/" << hex(data) << " "
          << verdict << " " << nature;
      break;
    case What::begin:
      break;
    case What::pass:
      out << " " << pass.stringValue();
      break;
    case What::client:
      out << " r" << region << " " << entry << " = " << hex(data);
      break;
  }
  return out.str();
}

bool Event::equals(const Event& other) const { return text() == other.text(); }

}  // namespace DriverLockstep
