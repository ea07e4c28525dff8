#include <Zint/ObjectText.h>

#include <Zint/Type.h>

#include <map>
#include <mutex>
#include <utility>

namespace Zint {
namespace {

// The numbers of all objects, for all threads: objects outlive the threads that numbered them, and
// are destroyed in static destructors and exit handlers. An entry lives as long as its object.
struct Numbers {
  std::mutex mutex;
  U64 lastThread = 0;
  std::map<std::pair<const PtrInterface*, U64>, U32> numbers;  // by object and thread
  std::map<std::pair<U64, U32>, const PtrInterface*> objects;  // by thread and number
};

// Leaked on purpose: it is used until the process ends.
Numbers& allNumbers() {
  static Numbers* const all = new Numbers;
  return *all;
}

// Trivially destructible, so that it can be used until the thread ends.
struct ThreadNumbers {
  U64 thread;  // 0 until the first number is given
  U32 last;
};
constinit thread_local ThreadNumbers threadNumbers{0, 0};

U32 numberOf(const PtrInterface* object) {
  Numbers& all = allNumbers();
  const std::lock_guard guard(all.mutex);
  if (threadNumbers.thread == 0) threadNumbers.thread = ++all.lastThread;
  const U64 thread = threadNumbers.thread;
  const auto [place, isNew] = all.numbers.try_emplace({object, thread}, threadNumbers.last + 1);
  if (isNew) {
    try {
      all.objects.emplace(std::pair(thread, place->second), object);
    } catch (...) {
      all.numbers.erase(place);
      throw;
    }
    ++threadNumbers.last;
  }
  return place->second;
}

// Null when no living object has the number on this thread.
const PtrInterface* findObject(U32 number) {
  Numbers& all = allNumbers();
  const std::lock_guard guard(all.mutex);
  const auto place = all.objects.find({threadNumbers.thread, number});
  if (place == all.objects.end() || place->second->isUnderDestruction()) return nullptr;
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
  object->recordTextNumber();
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
  Ptr<PtrInterface> object(const_cast<PtrInterface*>(findObject(number)));
  if (object == nullptr || labelOf(*object) != String8(std::string(pos, hash))) {
    throwRangeException(String8(std::string(pos, p)) + " is no living object");
  }
  pos = p;
  return object;
}

void forgetObjectText(const PtrInterface* object) {
  Numbers& all = allNumbers();
  const std::lock_guard guard(all.mutex);
  auto place = all.numbers.lower_bound({object, 0});
  while (place != all.numbers.end() && place->first.first == object) {
    all.objects.erase({place->first.second, place->second});
    place = all.numbers.erase(place);
  }
}

}  // namespace Zint
