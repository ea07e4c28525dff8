// Lines typed at the console, on a running system. A line is run, or is refused with an error or
// one of the library's exceptions and changes nothing. Completing it anywhere raises nothing and
// changes nothing.
#include <tools/console/Completion.h>
#include <tools/console/Library.h>
#include <tools/console/Session.h>
#include <tools/console/Words.h>

#include "fuzz/Fuzz.h"
#include "fuzz/LivingSystem.h"

namespace {

// What a number in an argument is kept below, so that a run takes little memory and time.
constexpr U32 maxNumber = 1u << 16;
constexpr U32 chipSize = 0x10000;

class Typing {
 public:
  explicit Typing(const std::string& text) : lines_(text) {}

  void run() {
    std::string before = system_.state();
    for (std::string line; !session_.isEnded() && std::getline(lines_, line);) {
      story_.add(line);
      completed(line);
      if (waits(line)) {
        system_.turn(0.125);
      } else if (isLarge(line)) {
        continue;
      } else if (const std::string refusal = refusalOf(line); !refusal.empty()) {
        Fuzz::same("state after \"" + refusal + "\"", before, system_.state(), story_);
        continue;
      }
      before = system_.state();
    }
  }

 private:
  static Console::World world(const Fuzz::LivingSystem& system) {
    constexpr const char* names[] = {"shadow", "mac", "route", "request", "reader", "directory"};
    Console::World world;
    world.activity = system.activity();
    for (const char* name : names) {
      world.objects.emplace_back(name, Console::objectOf(system.objects()[world.objects.size()]));
    }
    world.passes = "/shadow/audits";
    world.traceHandle = "Umbra";
    world.chipSize = chipSize;
    world.peek = [&system](U32 address) {
      U32 value = 0;
      system.chip().read(address, &value);
      return value;
    };
    world.poke = [&system](U32 address, U32 value) { system.chip().write(address, value); };
    return world;
  }

  // "" when the line was carried out. A name in use may have changed the number of entries, which
  // counts as done.
  std::string refusalOf(const std::string& line) {
    out_.str("");
    try {
      session_.run(line);
      return "";
    } catch (const Console::Error& error) {
      return messageOf(error);
    } catch (const Zint::RangeException& exception) {
      return messageOf(exception);
    } catch (const Zint::NameInUseException&) {
      return "";
    }
  }
  std::string messageOf(const std::exception& exception) const {
    const std::string message = exception.what();
    if (message.empty()) Fuzz::failed(story_.lines() + "refused without a message");
    return message;
  }

  void completed(const std::string& line) {
    const std::size_t half = line.size() / 2;
    for (const std::size_t typed : {half, line.size()}) {
      const Console::Completion found =
          Console::completion(session_, std::string_view(line).substr(0, typed));
      Fuzz::same("begins in the line", true, found.begin <= typed, story_);
      const std::string common = found.common();
      for (const std::string& candidate : found.candidates) {
        Fuzz::same("begins as all do", true, candidate.starts_with(common), story_);
      }
    }
  }

  // On a clock moved by hand, an audit without pause would go on for ever within one instant.
  static bool waits(const std::string& line) {
    const std::size_t begin = line.find_first_not_of(" \t");
    return begin != std::string::npos && line.compare(begin, 4, "wait") == 0;
  }
  // Whether an operation might need more memory than a run should.
  static bool isLarge(const std::string& line) {
    for (const char* name : {"entries=", "entrySize=", "size="}) {
      for (std::size_t at = 0; (at = line.find(name, at)) != std::string::npos; ++at) {
        const std::size_t value = line.find('=', at) + 1;
        try {
          const std::string text = line.substr(value, line.find_first_of(" \t", value) - value);
          if (Zint::strepToValue<U32>(text) > maxNumber) return true;
        } catch (const Zint::RangeException&) {
          return true;  // a path to a number, for instance
        }
      }
    }
    return false;
  }

  std::istringstream lines_;
  Fuzz::Story story_;
  Fuzz::LivingSystem system_;
  std::ostringstream out_;
  Console::Session session_{world(system_), out_};
};

void run(const U8* bytes, std::size_t size) {
  Fuzz::Quiet quiet;
  try {
    Typing(std::string(bytes, bytes + size)).run();
  } catch (const Fuzz::Asserted&) {
    // Such a line would have ended the process, with a clear message.
  }
}

}  // namespace

FUZZ_TARGET("console", run)
