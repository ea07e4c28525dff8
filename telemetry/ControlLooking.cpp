// Commands that look: list, get, describe, watch, events.
#include <Zint/Sizes.h>
#include <telemetry/ControlTask.h>
#include <telemetry/NamesWalk.h>

#include <algorithm>

namespace Telemetry {
namespace {

using Zint::Member;

// Parts of a listing that one step makes.
constexpr U32 attributesPerStep = 4;
constexpr U32 itemsPerStep = 4;

class ListTask : public PathTask {
 public:
  // `isGet`: the place's own value where it has one.
  ListTask(ControlSession& session, const ControlLine& line, bool isGet)
      : PathTask(session, isGet ? textIn(line, "path") : pathIn(line)),
        isGet_(isGet),
        most_(numberIn(line, "most", ~U64{0})) {}

 protected:
  bool begin(ControlAnswer& answer, std::string&) override {
    AnswerFields fields(answer);
    fields.text("path", place().name());
    switch (place().kind) {
      case Place::value:
        answerValue(fields);
        return true;
      case Place::root:
        if (isGet_) throw Error("/ is no object");
        fields.text("kind", "root");
        names_ = world().names.objects();
        break;
      case Place::object:
        fields.text("kind", "object").text("type", place().view().typeName());
        fields.text("text", place().result.text.bytes());
        members_ = membersOf(place().view().type());
        break;
      case Place::collection:
        fields.text("kind", "collection").text("type", place().member->list->valueType);
        fields.number("value", U64{place().list().size()});
        if (isGet_) return true;
        fields.text("keyName", place().member->list->keyName);
        walk_ = walkOf(place(), mostAsAWhole);
        break;
    }
    answer.hasItemsIs();
    return false;
  }

  bool proceed(ControlAnswer& answer, std::string& out) override {
    switch (place().kind) {
      case Place::root:
        return stepInRoot(answer, out);
      case Place::object:
        return stepInObject(answer, out);
      default:
        return stepInCollection(answer, out);
    }
  }

 private:
  void answerValue(JsonMembers& fields) {
    const Member* member = place().member;
    if (member != nullptr) {
      fields.text("type", member->typeName);
      if (*member->unit != '\0') fields.text("unit", member->unit);
    }
    fields.value(place().result.text, member);
  }

  bool stepInRoot(ControlAnswer& answer, std::string& out) {
    for (U32 i = 0; i < itemsPerStep; ++i, ++at_) {
      if (at_ >= std::min<U64>(names_.size(), most_)) return true;
      const std::string& name = names_[Zint::sizeOf(at_)];
      const Place object = world().names.at(Path{name});  // an object of "/" is found at once
      std::string item;
      JsonMembers members(item);
      members.text("name", name).text("type", object.view().typeName());
      members.text("text", object.result.text.bytes()).end();
      answer.item(item, out);
    }
    return false;
  }

  bool stepInObject(ControlAnswer& answer, std::string& out) {
    const Zint::GenericIf_ view = place().view();
    for (U32 i = 0; i < attributesPerStep; ++i, ++at_) {
      if (at_ >= std::min<U64>(members_.size(), most_)) return true;
      const Member& member = *members_[Zint::sizeOf(at_)];
      if (member.get == nullptr && member.list == nullptr) continue;
      std::string item;
      JsonMembers members(item);
      members.text("name", member.name);
      if (member.list != nullptr) {
        members.text("kind", "collection").text("type", member.list->valueType);
        members.json("value", view.attribute(member.name).bytes());
      } else {
        members.text("kind", "attribute").text("type", member.typeName);
        if (*member.unit != '\0') members.text("unit", member.unit);
        if (!isCostly(member) && !isTooLong(place().result, member))
          members.value(view.attribute(member.name), &member);
      }
      members.end();
      answer.item(item, out);
      for (const Computed& each : computedOf(place().result)) {
        if (each.after != member.name) continue;
        std::string computed;
        JsonMembers more(computed);
        more.text("name", each.name).text("kind", "attribute").text("type", each.typeName);
        more.value(each.text, nullptr).end();
        answer.item(computed, out);
      }
    }
    return false;
  }

  bool stepInCollection(ControlAnswer& answer, std::string& out) {
    for (U32 i = 0; i < itemsPerStep; ++i, ++at_) {
      if (at_ >= most_ || !walk_->next()) return true;
      const Zint::Result value = walk_->value();
      std::string item;
      JsonMembers members(item);
      members.text("key", keyText(*place().member->list, walk_->key()));
      if (const std::string name = nameIn(value.text); !name.empty()) members.text("name", name);
      members.value(value.text, nullptr).end();
      answer.item(item, out);
    }
    return false;
  }

  const bool isGet_;
  const U64 most_;
  U64 at_ = 0;
  std::vector<std::string> names_;
  std::vector<const Member*> members_;
  std::unique_ptr<MemberWalk> walk_;
};

void appendArguments(std::string& json, const Zint::ArgumentNames& names) {
  json += '[';
  for (const char* name : names) {
    if (name == nullptr) break;
    if (json.back() != '[') json += ',';
    appendQuoted(json, name);
  }
  json += ']';
}

class DescribeTask : public PathTask {
 public:
  DescribeTask(ControlSession& session, const ControlLine& line)
      : PathTask(session, pathIn(line)),
        typeName_(line.find("type") == nullptr ? "" : textIn(line, "type")) {}

 protected:
  bool begin(ControlAnswer& answer, std::string&) override {
    AnswerFields fields(answer);
    if (!typeName_.empty()) {
      type_ = Zint::TypeRegistry::find(typeName_);
      if (type_ == nullptr) throw Error("no type " + typeName_);
    } else if (place().kind == Place::object) {
      type_ = &place().view().type();
    } else if (place().kind == Place::root) {
      rows_ = Zint::TypeRegistry::factories();
    } else {
      throw Error(place().name() + " is no object");
    }
    if (type_ != nullptr) {
      fields.text("type", type_->name).text("kind", type_->kind);
      if (type_->base != nullptr) fields.text("base", type_->base->name);
      rows_ = membersOf(*type_);
    }
    answer.hasItemsIs();
    return false;
  }

  bool proceed(ControlAnswer& answer, std::string& out) override {
    for (U32 i = 0; i < itemsPerStep; ++i, ++at_) {
      if (at_ >= rows_.size()) return true;
      std::string item;
      appendRow(item, *rows_[at_]);
      answer.item(item, out);
    }
    return false;
  }

 private:
  static void appendRow(std::string& json, const Member& row) {
    JsonMembers members(json);
    members.text("name", row.name);
    const bool isEnumerator = row.get == nullptr && row.call == nullptr && row.list == nullptr;
    members.text("kind", row.list != nullptr   ? "collection"
                         : row.call != nullptr ? "operation"
                         : isEnumerator        ? "enumerator"
                                               : "attribute");
    if (isEnumerator) {
      members.number("number", S64{row.value});
    } else {
      members.text("type", row.list != nullptr ? row.list->valueType : row.typeName);
    }
    if (*row.unit != '\0') members.text("unit", row.unit);
    if (*row.help != '\0') members.text("help", row.help);
    if (row.call != nullptr || row.set != nullptr || row.list != nullptr) {
      members.text("level", levelName(row.level));
    }
    if (row.get != nullptr) members.flag("isSettable", row.set != nullptr);
    if (row.call != nullptr) {
      std::string names;
      appendArguments(names, row.arguments);
      members.json("arguments", names);
    }
    members.end();
  }

  const std::string typeName_;
  const Zint::Type* type_ = nullptr;
  std::vector<const Member*> rows_;
  std::size_t at_ = 0;
};

class WatchTask : public PathTask {
 public:
  WatchTask(ControlSession& session, const ControlLine& line)
      : PathTask(session, textIn(line, "path")) {}

 protected:
  bool begin(ControlAnswer& answer, std::string&) override {
    const Member* member = place().member;
    if (place().kind == Place::root || (member == nullptr && !place().isComputed)) {
      throw Error(place().name() + " is no attribute");
    }
    if (member != nullptr && isCostly(*member)) {
      throw Error(place().name() + " goes through all regions: it cannot be watched");
    }
    const Zint::String8 text = textAt(place());
    session().watch(place().name(), text, member);
    AnswerFields fields(answer);
    fields.text("path", place().name()).value(text, member);
    return true;
  }
};

class EventsTask : public ControlTask {
 public:
  static constexpr U64 mostItems = 100'000;

  EventsTask(ControlSession& session, const ControlLine& line)
      : session_(session),
        at_(numberIn(line, "since", 0)),
        left_(std::min(numberIn(line, "most", mostItems), mostItems)),
        follows_(flagIn(line, "follow")) {
    const ControlEvents& events = session_.world().events;
    if (!events.newest || !events.json) throw Error("this driver has no event log");
    newest_ = events.newest();
    at_ = std::min(at_, newest_);
  }

  bool step(ControlAnswer& answer, std::string& out) override {
    if (!isBegun_) {
      isBegun_ = true;
      AnswerFields(answer).number("newest", newest_);
      answer.hasItemsIs();
    }
    for (U32 i = 0; i < itemsPerStep; ++i) {
      if (at_ >= newest_ || left_ == 0) {
        if (follows_) session_.follow(at_);
        return true;
      }
      std::string event;
      if (!session_.world().events.json(++at_, event)) continue;
      answer.item(event, out);
      --left_;
    }
    return false;
  }

 private:
  ControlSession& session_;
  U64 at_;
  U64 left_;
  U64 newest_ = 0;
  const bool follows_;
  bool isBegun_ = false;
};

}  // namespace

std::unique_ptr<ControlTask> lookingTask(ControlSession& session, const std::string& command,
                                         const ControlLine& line) {
  if (command == "list") return std::make_unique<ListTask>(session, line, false);
  if (command == "get") return std::make_unique<ListTask>(session, line, true);
  if (command == "describe") return std::make_unique<DescribeTask>(session, line);
  if (command == "watch") return std::make_unique<WatchTask>(session, line);
  if (command == "events") return std::make_unique<EventsTask>(session, line);
  return nullptr;
}

}  // namespace Telemetry
