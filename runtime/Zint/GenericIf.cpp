#include <Zint/GenericIf.h>

#include <Zint/Accessors.h>
#include <Zint/Exception.h>

namespace Zint {

ArgumentException::~ArgumentException() = default;

namespace {

String8 qualifiedName(const Type& type, std::string_view member) {
  return String8(type.name) + "::" + member;
}

[[noreturn]] void refuse(const String8& place, const char* why, std::string_view text = "") {
  throwRangeException(place + ": " + why + (text.empty() ? "" : " ") + text);
}

// Runs `access`; an argument that does not fit is thrown again with the member's name and the text.
template <class Access>
auto runAt(const String8& place, const String8& text, Access access) {
  try {
    return access();
  } catch (const ArgumentException& cause) {
    rethrowFromDeserializeAttr(cause, (place + " from \"" + text + "\"").c_str());
  }
}

String8 joinTexts(const Arguments& arguments) {
  String8 texts;
  for (const auto& [name, text] : arguments) {
    texts += texts.empty() ? "" : " ";
    texts += name + "=" + text;
  }
  return texts;
}

// The texts of the named arguments in the order of `names`; null for one that was left out.
std::vector<const String8*> orderTexts(const String8& place, const ArgumentNames& names,
                                       const Arguments& arguments) {
  std::vector<const String8*> ordered;
  std::size_t used = 0;
  for (const char* name : names) {
    if (name == nullptr) break;
    const bool optional = *name == '?';
    if (optional) ++name;
    const String8* found = nullptr;
    for (const auto& [given, text] : arguments) {
      if (given != name) continue;
      if (found != nullptr) refuse(place, "argument given twice:", name);
      found = &text;
      ++used;
    }
    if (found == nullptr && !optional) refuse(place, "missing argument", name);
    ordered.push_back(found);
  }
  if (used != arguments.size()) {
    for (const auto& [given, text] : arguments) {
      bool known = false;
      for (const char* name : names) known |= name != nullptr && given == name + (*name == '?');
      if (!known) refuse(place, "surplus argument", given + "=" + text);
    }
  }
  return ordered;
}

Result callAt(const String8& place, const ArgumentNames& names, decltype(Member::call) call,
              ObjectAddress object, const Arguments& arguments) {
  const std::vector<const String8*> texts = orderTexts(place, names, arguments);
  return runAt(place, joinTexts(arguments), [&] { return call(object, texts); });
}

}  // namespace

namespace GenericIf {

ObjectAddress List_::mutableAddress(bool isOffered) const {
  if (!isOffered) refuse(qualifiedName(*type_, member_->name), "cannot be changed so");
  if (isConst_) throwRangeException("attempting to modify a const instance");
  return const_cast<ObjectAddress>(address_);
}

std::vector<ListItem> List_::items() const {
  std::vector<ListItem> items = member_->list->items(address_);
  for (ListItem& item : items) item.value.isConst |= isConst_;
  return items;
}

Result List_::find(const String8& key) const {
  const String8 place = qualifiedName(*type_, member_->name);
  Result result = runAt(place, key, [&] { return member_->list->find(address_, key); });
  result.isConst |= isConst_;
  return result;
}

void List_::del(const String8& key) {
  const ObjectAddress object = mutableAddress(member_->list->del != nullptr);
  const String8 place = qualifiedName(*type_, member_->name);
  runAt(place, key, [&] { member_->list->del(object, key); });
}

void List_::delAll() {
  const ObjectAddress object = mutableAddress(member_->list->delAll != nullptr);
  member_->list->delAll(object);
}

Result List_::insert(const Arguments& arguments) {
  const ObjectAddress object = mutableAddress(member_->list->insert != nullptr);
  const String8 place = qualifiedName(*type_, String8(member_->name) + "Is");
  return callAt(place, member_->list->arguments, member_->list->insert, object, arguments);
}

}  // namespace GenericIf

GenericIf_::GenericIf_(const ValidPtr<PtrInterface>& object)
    : GenericIf_(object, false, object.ptr(), *object->fwkType()) {}

GenericIf_ GenericIf_::readOnlyView(const ValidPtr<const PtrInterface>& object) {
  return GenericIf_(object, true, object.ptr(), *object->fwkType());
}

GenericIf_ GenericIf_::of(const Result& result) {
  if (result.object == nullptr) throwRangeException(String8("no object: ") + result.text);
  return GenericIf_(result.object, result.isConst, result.object.ptr(), *result.object->fwkType());
}

const Member& GenericIf_::member(const String8& name) const {
  const Member* found = type_->find(name);
  if (found == nullptr) refuse(type_->name, "unknown member", name);
  return *found;
}

ObjectAddress GenericIf_::mutableAddress() const {
  if (isConst_) throwRangeException("attempting to modify a const instance");
  return const_cast<ObjectAddress>(address_);
}

String8 GenericIf_::attribute(const String8& name) const {
  const Member& found = member(name);
  if (found.list != nullptr) return std::to_string(found.list->size(address_));
  if (found.get == nullptr) refuse(qualifiedName(*type_, name), "is no attribute");
  return found.get(address_);
}

void GenericIf_::attributeIs(const String8& name, const String8& text) {
  const Member& found = member(name);
  const String8 place = qualifiedName(*type_, name);
  const ObjectAddress object = mutableAddress();
  if (found.set == nullptr) refuse(place, "cannot be set to", text);
  runAt(place, text, [&] { found.set(object, text); });
}

Result GenericIf_::target(const String8& name) const {
  const Member& found = member(name);
  if (found.target == nullptr) refuse(qualifiedName(*type_, name), "is no object");
  Result result = found.target(address_);
  result.isConst |= isConst_;
  return result;
}

GenericIf::List_ GenericIf_::list(const String8& name) const {
  const Member& found = member(name);
  if (found.list == nullptr) refuse(qualifiedName(*type_, name), "is no collection");
  return GenericIf::List_(holder_, isConst_, address_, *type_, found);
}

Result GenericIf_::call(const String8& name, const Arguments& arguments) {
  const String8 place = qualifiedName(*type_, name);
  const std::string_view text = name;
  if (const Member* found = type_->find(name); found != nullptr) {
    if (found->call == nullptr) refuse(place, "is no operation");
    const bool isConstant = found->flags.has(ZintAttrIntrospectionFlags::constant);
    const ObjectAddress object =
        isConstant ? const_cast<ObjectAddress>(address_) : mutableAddress();
    Result result = callAt(place, found->arguments, found->call, object, arguments);
    result.isConst |= isConst_;
    return result;
  }
  // An operation of a collection.
  const auto collection = [&](std::string_view suffix) -> const Member* {
    if (!text.ends_with(suffix)) return nullptr;
    const Member* found = type_->find(text.substr(0, text.size() - suffix.size()));
    return found != nullptr && found->list != nullptr ? found : nullptr;
  };
  if (const Member* found = collection("DelAll"); found != nullptr) {
    if (!arguments.empty()) refuse(place, "surplus argument", joinTexts(arguments));
    list(found->name).delAll();
    return {};
  }
  if (const Member* found = collection("Del"); found != nullptr) {
    list(found->name).del(*orderTexts(place, {found->list->keyName}, arguments)[0]);
    return {};
  }
  if (const Member* found = collection("Is"); found != nullptr) {
    return list(found->name).insert(arguments);
  }
  refuse(type_->name, "unknown member", name);
}

Result GenericIf_::make(const String8& factory, const Arguments& arguments) {
  const Member* found = TypeRegistry::findFactory(factory);
  if (found == nullptr) refuse("factories", "unknown member", factory);
  return callAt(factory, found->arguments, found->call, nullptr, arguments);
}

}  // namespace Zint
