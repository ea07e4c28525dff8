// Commands that change something: set, call, forget.
#include <telemetry/ControlTask.h>
#include <telemetry/NamesRules.h>

#include <algorithm>

namespace Telemetry {
namespace {

using Zint::Level;
using Zint::Member;

// To change something is to operate at least.
Level changeLevel(const Member& member) { return std::min(member.level, Level::operate); }

class SetTask : public PathTask {
 public:
  SetTask(ControlSession& session, const ControlLine& line)
      : PathTask(session, textIn(line, "path")), value_(session, valueIn(line)) {}

 protected:
  bool begin(ControlAnswer&, std::string&) override {
    if (place().isComputed) throw Error(place().name() + " is computed: it can only be read");
    if (place().member == nullptr) throw Error(place().name() + " is no attribute");
    session().require(changeLevel(*place().member), "to set " + place().name());
    return false;
  }

  bool proceed(ControlAnswer& answer, std::string&) override {
    if (!value_.step()) return false;
    const Place target = std::move(place());
    const Member& member = *target.member;
    Zint::String8 text = value_.text();
    if (std::string_view(member.typeName) == "Hardware::ChipAddress") {
      text = integerText(text.bytes());
    }
    if (!target.owner.isConst && member.set != nullptr) {
      checkSet(world().names, target.owner, member.name, text);
      session().tellCommand();
    }
    Zint::GenericIf_::of(target.owner).attributeIs(member.name, text);
    AnswerFields fields(answer);
    fields.text("path", target.name());
    fields.value(Zint::GenericIf_::of(target.owner).attribute(member.name), &member);
    return true;
  }

 private:
  static const ControlValue& valueIn(const ControlLine& line) {
    const ControlValue* value = line.find("value");
    if (value == nullptr) throw Error("set needs a value");
    return *value;
  }

  ValueLookup value_;
};

// The row of an operation, or of the collection that it belongs to.
const Member* rowOf(const Zint::Type& type, const std::string& operation) {
  if (const Member* member = type.find(operation); member != nullptr) return member;
  for (const std::string_view suffix : {"DelAll", "Del", "Is"}) {
    if (!operation.ends_with(suffix)) continue;
    const Member* member = type.find(operation.substr(0, operation.size() - suffix.size()));
    if (member != nullptr && member->list != nullptr) return member;
  }
  return nullptr;
}

std::string parentOf(const Path& path) {
  if (path.empty()) throw Error("/ is no operation");
  return textOf(Path(path.begin(), path.end() - 1));
}

class CallTask : public PathTask {
 public:
  CallTask(ControlSession& session, const ControlLine& line)
      : CallTask(session, line, session.world().names.absolute(textIn(line, "path"))) {}

 protected:
  bool begin(ControlAnswer&, std::string&) override {
    if (place().kind == Place::root) {
      row_ = Zint::TypeRegistry::findFactory(operation_);
      if (row_ == nullptr) throw Error("no operation /" + operation_);
    } else if (place().kind == Place::object) {
      row_ = rowOf(place().view().type(), operation_);
      if (row_ == nullptr) {
        throw Error(place().name() + " (" + place().view().typeName() + ") has no operation " +
                    operation_ + didYouMean(operation_, operations()));
      }
    } else {
      throw Error(place().name() + " is no object, it has no operation " + operation_);
    }
    const std::string what =
        "to call " + (place().path.empty() ? "" : place().name()) + "/" + operation_;
    session().require(isConstant() ? row_->level : changeLevel(*row_), what);
    if (!as_.empty()) session().require(Level::administer, "to name an object");
    return false;
  }

  bool proceed(ControlAnswer& answer, std::string&) override {
    if (at_ < values_.size()) {
      auto& [name, value] = values_[at_];
      if (!value.step()) return false;
      arguments_.emplace_back(name, isAddressName(name)
                                        ? Zint::String8(integerText(value.text().bytes()))
                                        : value.text());
      ++at_;
      return false;
    }
    answerResult(answer, call());
    return true;
  }

 private:
  CallTask(ControlSession& session, const ControlLine& line, const Path& path)
      : PathTask(session, parentOf(path)),
        operation_(path.back()),
        as_(line.find("as") == nullptr ? "" : textIn(line, "as")) {
    if (!line.arguments) return;
    for (const auto& [name, value] : *line.arguments)
      values_.emplace_back(name, ValueLookup(session, value));
  }

  bool isConstant() const {
    return place().kind == Place::object && row_->call != nullptr &&
           row_->flags.has(Zint::ZintAttrIntrospectionFlags::constant);
  }

  std::vector<std::string> operations() const {
    std::vector<std::string> names;
    for (const Member* member : membersOf(place().view().type())) {
      if (member->call != nullptr) names.emplace_back(member->name);
    }
    return names;
  }

  Zint::Result call() {
    if (row_->level != Level::look) ++world().operations;
    const Place target = place();  // held: the call may end the session
    const std::string operation = operation_;
    const Zint::Arguments arguments = arguments_;
    if (target.kind == Place::root) {
      session().tellCommand();
      return Zint::GenericIf_::make(operation, arguments);
    }
    // What may only be read is refused by the library.
    if (isConstant() || !target.result.isConst) {
      checkCall(world().names, target.result, operation, arguments);
      if (!isConstant()) session().tellCommand();
    }
    return target.view().call(operation, arguments);
  }

  void answerResult(ControlAnswer& answer, const Zint::Result& result) {
    if (!as_.empty()) {
      if (result.object == nullptr) throw Error("no object: " + result.text.bytes());
      if (world().names.objects().size() >= mostObjects) {
        throw Error("/ holds at most " + std::to_string(mostObjects) + " objects");
      }
      world().names.objectIs(as_, result);
    }
    if (!result.text.bytes().empty()) AnswerFields(answer).value(result.text, nullptr);
  }

  static constexpr std::size_t mostObjects = 1024;

  const std::string operation_;
  const std::string as_;
  const Member* row_ = nullptr;
  std::vector<std::pair<std::string, ValueLookup>> values_;
  std::size_t at_ = 0;
  Zint::Arguments arguments_;
};

class ForgetTask : public ControlTask {
 public:
  ForgetTask(ControlSession& session, const ControlLine& line)
      : session_(session), name_(textIn(line, "name")) {
    session.require(Level::administer, "to forget a name");
  }
  bool step(ControlAnswer&, std::string&) override {
    session_.world().names.objectIs(name_, {});
    return true;
  }

 private:
  ControlSession& session_;
  const std::string name_;
};

}  // namespace

std::unique_ptr<ControlTask> changingTask(ControlSession& session, const std::string& command,
                                          const ControlLine& line) {
  if (command == "set") return std::make_unique<SetTask>(session, line);
  if (command == "call") return std::make_unique<CallTask>(session, line);
  if (command == "forget") return std::make_unique<ForgetTask>(session, line);
  return nullptr;
}

}  // namespace Telemetry
