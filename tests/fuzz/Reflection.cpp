// Reading, setting and calling by name on a living system, with any names and texts. What is asked
// for is done, or is refused with a range exception that changes nothing. A rule of the library
// that it breaks ends the run: such an operation would have ended the process.
#include <Zint/GenericIf.h>
#include <Zint/ObjectText.h>

#include <iterator>
#include <optional>

#include "fuzz/Fuzz.h"
#include "fuzz/LivingSystem.h"

namespace {

using Zint::Arguments;
using Zint::GenericIf_;
using Zint::Member;
using Zint::String8;

// What a number in an argument is kept below, so that a run takes little memory and time.
constexpr U32 maxNumber = 1u << 16;

class ByName {
 public:
  explicit ByName(Fuzz::Input& input) : input_(input) {}

  void run() {
    std::string before = system_.state();
    while (!input_.empty()) {
      if (input_.below(16) == 0) {
        const U32 eighths = input_.below(20);
        story_.add("turn ", eighths);
        system_.turn(eighths / 8.0);
        before = system_.state();
        continue;
      }
      std::string refusal;
      try {
        step();
      } catch (const Zint::RangeException& exception) {
        refusal = exception.what();
        if (refusal.empty()) Fuzz::failed(story_.lines() + "a refusal without a message");
      } catch (const Zint::NameInUseException&) {
        // The number of entries is taken over before the other arguments are compared.
        before = system_.state();
        continue;
      }
      const std::string after = system_.state();
      if (!refusal.empty()) unchanged(before, after, refusal);
      before = after;
    }
  }

 private:
  void unchanged(const std::string& before, const std::string& after, const std::string& refusal) {
    if (before == after) return;
    std::istringstream was(before);
    std::istringstream is(after);
    std::string oldLine;
    std::string newLine;
    while (std::getline(was, oldLine) && std::getline(is, newLine) && oldLine == newLine) {
    }
    Fuzz::failed(story_.lines() + "refused: " + refusal + "\nbut changed: " + oldLine + " to " +
                 newLine);
  }

  GenericIf_ anyObject() {
    const auto& objects = system_.objects();
    const LivingObject& object = objects[input_.byte() % static_cast<U32>(objects.size())];
    const bool constant = input_.below(16) == 0;
    story_.add(Zint::objectText(object.ptr()), constant ? " (const)" : "");
    if (constant) return GenericIf_::readOnlyView(Zint::Ptr<const Zint::PtrInterface>(object));
    return GenericIf_(object);
  }
  // Mostly one of the type's own.
  const Member* anyMember(const GenericIf_& of) {
    const std::vector<const Member*> members = Fuzz::membersOf(of.type());
    const U8 chosen = input_.byte();
    return members.empty() || chosen >= 248 ? nullptr : members[chosen % members.size()];
  }
  String8 nameOf(const Member* member) {
    return member == nullptr ? String8(input_.text(12)) : String8(member->name);
  }

  String8 anyText() {
    constexpr const char* texts[] = {"0",          "1",          "2",
                                     "3",          "4",          "8",
                                     "11",         "12",         "13",
                                     "true",       "false",      "4096",
                                     "4100",       "8192",       "4294987776",
                                     "0.125",      "inf",        "-1",
                                     "4294967295", "65535",      "'normal'",
                                     "null",       "'override'", "'buffered'",
                                     "'idle'",     "'table'",    "'auditing'",
                                     "'mac'",      "'new'",      "'unconfigured'",
                                     "00112233",   "''",         "0011223344556677"};
    const U8 chosen = input_.byte();
    if (chosen < std::size(texts)) return texts[chosen];
    if (chosen < 128) return std::to_string(input_.byte());
    if (chosen < 224) {
      const auto& objects = system_.objects();
      return Zint::objectText(objects[chosen % objects.size()].ptr());
    }
    return input_.text(16);
  }
  Arguments anyArguments(const std::array<const char*, 8>& names) {
    Arguments arguments;
    const U8 fault = input_.byte();
    U32 place = 0;
    for (const char* name : names) {
      if (name == nullptr) break;
      const bool optional = *name == '?';
      if (optional && input_.coin()) continue;
      if (fault == 255 - place++) continue;
      arguments.emplace_back(name + optional, anyText());
    }
    if (fault >= 8 && fault < 12) {
      const String8 surplus = input_.text(8);
      arguments.emplace_back(surplus, anyText());
    }
    if (fault == 12 && !arguments.empty()) arguments.push_back(arguments.front());
    for (const auto& [name, text] : arguments) story_.add("  ", name, "=", text);
    return arguments;
  }
  // Whether the operation would need more memory than a run should.
  static bool isLarge(const Arguments& arguments) {
    for (const auto& [name, text] : arguments) {
      if (name != "entries" && name != "entrySize" && name != "size") continue;
      try {
        if (Zint::strepToValue<U32>(text) > maxNumber) return true;
      } catch (const Zint::RangeException&) {
      }
    }
    return false;
  }
  void done(const Zint::Result& result) {
    if (result.object == nullptr || result.isConst) return;
    system_.joined(LivingObject(const_cast<Zint::PtrInterface*>(result.object.ptr())));
  }

  void step() {
    const U32 action = input_.below(12);
    if (action == 11) return made();
    GenericIf_ object = anyObject();
    const Member* member = anyMember(object);
    const String8 name = nameOf(member);
    switch (action) {
      case 0:
        story_.add("read ", name);
        object.attribute(name);
        return;
      case 1:
      case 2:
      case 3: {
        const String8 text = anyText();
        story_.add("set ", name, " to ", text);
        object.attributeIs(name, text);
        if (member != nullptr && member->get == nullptr) Fuzz::failed("set what cannot be read");
        return;
      }
      case 4:
        story_.add("target ", name);
        return done(object.target(name));
      case 5:
        return collection(object, name);
      default:
        return called(object, member, name);
    }
  }
  void called(GenericIf_& object, const Member* member, const String8& name) {
    if (member != nullptr && member->list != nullptr) {
      const U32 operation = input_.below(4);
      const char* suffixes[] = {"Is", "Del", "DelAll", "Is"};
      story_.add("call ", name, suffixes[operation]);
      const Arguments arguments = operation == 1   ? anyArguments({member->list->keyName})
                                  : operation == 2 ? anyArguments({})
                                                   : anyArguments(member->list->arguments);
      if (!isLarge(arguments)) done(object.call(name + suffixes[operation], arguments));
      return;
    }
    story_.add("call ", name);
    const Arguments arguments =
        anyArguments(member == nullptr ? std::array<const char*, 8>{} : member->arguments);
    if (!isLarge(arguments)) done(object.call(name, arguments));
  }
  void collection(GenericIf_& object, const String8& name) {
    const U32 operation = input_.below(4);
    story_.add("collection ", name, " operation ", operation);
    Zint::GenericIf::List_ list = object.list(name);
    switch (operation) {
      case 0: {
        const U32 size = list.size();
        if (size <= maxNumber / 64) Fuzz::same("items", size, U32(list.items().size()), story_);
        return;
      }
      case 1: {
        const String8 key = anyText();
        story_.add("find ", key);
        return done(list.find(key));
      }
      case 2: {
        const String8 key = anyText();
        story_.add("remove ", key);
        list.del(key);
        const bool isArray = String8(list.keyName()) == "index";
        if (!isArray) Fuzz::same<String8>("removed", "null", list.find(key).text, story_);
        return;
      }
      default:
        story_.add("remove all");
        list.delAll();
        Fuzz::same("members", 0u, list.size(), story_);
    }
  }
  void made() {
    const std::vector<const Member*> factories = Zint::TypeRegistry::factories();
    const U8 chosen = input_.byte();
    const Member* factory = chosen >= 248 ? nullptr : factories[chosen % factories.size()];
    const String8 name = nameOf(factory);
    story_.add("make ", name);
    const Arguments arguments =
        anyArguments(factory == nullptr ? std::array<const char*, 8>{} : factory->arguments);
    if (isLarge(arguments)) return;
    const Zint::Result result = GenericIf_::make(name, arguments);
    if (result.object == nullptr) Fuzz::failed(story_.lines() + "a factory made nothing");
    done(result);
  }

  using LivingObject = Fuzz::LivingSystem::Object;

  Fuzz::Input& input_;
  Fuzz::Story story_;
  Fuzz::LivingSystem system_;
};

void run(const U8* bytes, std::size_t size) {
  Fuzz::Quiet quiet;
  Fuzz::Input input(bytes, size);
  try {
    ByName(input).run();
  } catch (const Fuzz::Asserted&) {
  }
}

}  // namespace

FUZZ_TARGET("reflection", run)
