#include "lockstep/Operation.h"

#include <sstream>

namespace Lockstep {
namespace {

constexpr const char* names[] = {"flag",
                                 "mode",
                                 "entries",
                                 "bufferDrop",
                                 "methodRefusal",
                                 "doClear",
                                 "doClearRange",
                                 "writeback",
                                 "initializedBit",
                                 "write",
                                 "writeByAddress",
                                 "read",
                                 "readByAddress",
                                 "lookup",
                                 "chipAccess",
                                 "poke",
                                 "fix",
                                 "registryAdd",
                                 "registryDel",
                                 "auditEnabled",
                                 "requestMember",
                                 "regionCreate",
                                 "directory",
                                 "registryBulk",
                                 "accessFailure",
                                 "state",
                                 "overrideHardware",
                                 "auditInterval",
                                 "request",
                                 "auditCall",
                                 "reader",
                                 "turn",
                                 "traceLevel"};
static_assert(std::size(names) == operations);

}  // namespace

const char* nameOf(Operation operation) { return names[static_cast<U32>(operation)]; }

Step stepFromBytes(const U8* bytes) {
  Step step;
  step.operation = static_cast<Operation>(bytes[0] % operations);
  step.region = bytes[1];
  for (U32 i = 0; i < Step::arguments; ++i) step.a[i] = bytes[2 + i];
  return step;
}

Steps stepsFromBytes(const U8* bytes, std::size_t size) {
  Steps steps;
  for (; size >= Step::bytes; bytes += Step::bytes, size -= Step::bytes) {
    steps.push_back(stepFromBytes(bytes));
  }
  return steps;
}

std::string text(const Step& step) {
  std::ostringstream out;
  out << nameOf(step.operation);
  U32 used = Step::arguments;
  while (used > 0 && step.a[used - 1] == 0) --used;
  if (used > 0 || step.region != 0) out << " " << U32{step.region};
  for (U32 i = 0; i < used; ++i) out << " " << U32{step.a[i]};
  return out.str();
}

std::string text(const Steps& steps) {
  std::string lines;
  for (const Step& step : steps) lines += text(step) + "\n";
  return lines;
}

std::optional<Steps> stepsFromText(const std::string& text) {
  Steps steps;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::string name;
    if (!(words >> name)) continue;
    Step step;
    U32 operation = 0;
    while (operation < operations && name != names[operation]) ++operation;
    if (operation == operations) return std::nullopt;
    step.operation = static_cast<Operation>(operation);
    std::string word;
    for (U32 i = 0; words >> word; ++i) {
      std::size_t length = 0;
      unsigned long number = 256;
      try {
        number = std::stoul(word, &length, 0);
      } catch (const std::exception&) {
        return std::nullopt;
      }
      if (length != word.size() || number > 255 || i > Step::arguments) return std::nullopt;
      (i == 0 ? step.region : step.a[i - 1]) = static_cast<U8>(number);
    }
    steps.push_back(step);
  }
  return steps;
}

}  // namespace Lockstep
