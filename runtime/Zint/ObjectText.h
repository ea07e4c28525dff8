// The text form of a pointer to a counted object: its name (its type if it has none) and a number
// that no other object has: 'ham0'#2, ChipReader#3; null for none.
//
// An object gets the next number when its text is first made, and keeps it until it is destroyed.
// A text reads back as the same object while that lives. An object whose destructor runs has a
// text, but is not found by it. Each thread has numbers of its own.
//
// Works at any time, static destructors and exit handlers included, and for objects that outlive
// the thread they were numbered on.
#pragma once

#include <Zint/Ptr.h>
#include <Zint/Strep.h>
#include <Zint/String8.h>

namespace Zint {

UMBRA_API String8 objectText(const PtrInterface* object);
// Reads one such text and leaves `pos` after it. A text of no living object: a range exception.
UMBRA_API Ptr<PtrInterface> objectFromText(String8::IteratorConst& pos,
                                           const String8::IteratorConst& end);

// Called by the destructor of an object that has a number.
void forgetObjectText(const PtrInterface* object);

template <class T>
String8 valueToStrep(const Ptr<T>& ptr) {
  return objectText(ptr.ptr());
}

template <class T>
void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end, Ptr<T>& ptr) {
  auto p = pos;
  const Ptr<PtrInterface> object = objectFromText(p, end);
  Ptr<T> typed(dynamic_cast<T*>(object.ptr()));
  if (object != nullptr && typed == nullptr) {
    throwRangeException(objectText(object.ptr()) + " is of another type");
  }
  pos = p;
  ptr = std::move(typed);
}

}  // namespace Zint
