#include <Zint/ObjectText.h>
#include <Zint/Type.h>
#include <unordered_map>

namespace Zint {
namespace {

struct Numbers {
  std::unordered_map<const PtrInterface*, U32> numbers;
  std::unordered_map<U32, const PtrInterface*> objects;
  U32 last = 0;
};

// Objects may go after the thread's table has: at the end of the process.
thread_local bool numbersGone = false;
struct NumbersHolder : Numbers {
  ~NumbersHolder() { numbersGone = true; }
};
thread_local NumbersHolder table;

U32 numberOf(const PtrInterface* object) {
  const auto [place, isNew] = table.numbers.try_emplace(object, table.last + 1);
  if (isNew) {
    try {
      table.objects.emplace(table.last + 1, object);
    } catch (...) {
      table.numbers.erase(place);
      throw;
    }
    ++table.last;
  }
  return place->second;
}

// The name, quoted, or the last part of the type's name.
String8 labelOf(const PtrInterface& object) {
  const Type& type = *object.fwkType();
  if (const Member* name = type.find("name"); name != nullptr && name->get != nullptr) {
    return name->get(&object);
  }
  const std::string_view typeName = type.name;
  return String8(typeName.substr(typeName.rfind(':') + 1));
}

}  // namespace

String8 objectText(const PtrInterface* object) {
  if (object == nullptr) return "null";
  const U32 number = numberOf(object);
  object->textNumberGiven();
  return labelOf(*object) + "#" + std::to_string(number);
}

Ptr<PtrInterface> objectFromText(String8::IteratorConst& pos, const String8::IteratorConst& end) {
  const std::string_view text(std::to_address(pos), static_cast<std::size_t>(end - pos));
  if (text.starts_with("null")) {
    pos += 4;
    return nullptr;
  }
  auto p = pos;
  if (p != end && *p == '\'') {
    String8 name;
    sequenceToValue(p, end, name);
  } else {
    while (p != end && *p != '#' && *p != ' ') ++p;
  }
  const auto hash = p;
  U32 number = 0;
  if (p == end || *p != '#') throwRangeException(String8("an object expected at \"") + text + "\"");
  sequenceToValue(++p, end, number);
  const auto place = table.objects.find(number);
  if (place == table.objects.end() || labelOf(*place->second) != String8(std::string(pos, hash))) {
    throwRangeException(String8(std::string(pos, p)) + " is no living object");
  }
  pos = p;
  return Ptr<PtrInterface>(const_cast<PtrInterface*>(place->second));
}

void objectTextForgotten(const PtrInterface* object) {
  if (numbersGone) return;
  const auto place = table.numbers.find(object);
  if (place == table.numbers.end()) return;
  table.objects.erase(place->second);
  table.numbers.erase(place);
}

}  // namespace Zint
