#include "Ending.h"

#include <Zint/GenericIf.h>
#include <Zint/ObjectText.h>

#include <cstdio>
#include <cstring>

namespace Ending {
namespace {

using Hardware::ChipAddress;
using Hardware::ChipHam;
using Zint::String8;

void print(const char* who, const std::string& what) {
  (void)std::printf("%s: %s\n", who, what.c_str());
  (void)std::fflush(stdout);
}

std::string nameInUse(const Hardware::ChipMemoryBogon::Ptr& directory, const ChipHam::Ptr& ham) {
  try {
    directory->chipMemoryIs("region", ChipAddress(0x1000), 4, 4, 4, ham);
  } catch (const Zint::NameInUseException& exception) {
    return exception.what();
  }
  return "no exception";
}

// "" when nothing is wrong.
std::string mistake(const std::string& first, const Hardware::ChipMemoryBogon::Ptr& directory,
                    const ChipHam::Ptr& ham, const ChipHam::Ptr& other) {
  const String8 text = objectText(ham.ptr());
  if (!first.empty() && text.bytes() != first) return "the text is " + text.bytes();
  if (Zint::strepToValue<ChipHam::Ptr>(text) != ham) return "another object is found";
  const std::string message = nameInUse(directory, other);
  if (message.find(objectText(other.ptr()).bytes()) == std::string::npos ||
      message.find(text.bytes()) == std::string::npos) {
    return message;
  }
  const Zint::GenericIf_ region(directory->chipMemory("region"));
  if (region.attribute("chipHam") != text) return region.attribute("chipHam").bytes();
  const ChipHam::Ptr late = Zint::makePtr<ChipHam>("late");
  if (Zint::strepToValue<ChipHam::Ptr>(objectText(late.ptr())) != late) return "late is not found";
  return "";
}

}  // namespace

Subject::Subject()
    : directory_(Zint::makePtr<Hardware::ChipMemoryBogon>("directory")),
      ham_(Zint::makePtr<ChipHam>("ham")),
      other_(Zint::makePtr<ChipHam>("other")) {
  directory_->chipMemoryIs("region", ChipAddress(0x1000), 4, 4, 4, ham_);
}

void Subject::check(const char* who) {
  try {
    const std::string wrong = mistake(text_, directory_, ham_, other_);
    if (text_[0] == '\0') {
      (void)std::snprintf(text_, sizeof text_, "%s", objectText(ham_.ptr()).c_str());
    }
    print(who, wrong.empty() ? "ok" : wrong);
  } catch (const std::exception& exception) {
    print(who, exception.what());
  }
}

void Subject::end(const char* who) {
  const String8 text = objectText(ham_.ptr());
  directory_ = nullptr;
  ham_ = other_ = nullptr;
  try {
    Zint::strepToValue<ChipHam::Ptr>(text);
    print(who, "the text finds a destroyed object");
  } catch (const Zint::RangeException&) {
    print(who, "ok");
  }
}

Subject& subject() {
  static Subject* const subject = new Subject;
  return *subject;
}

}  // namespace Ending
