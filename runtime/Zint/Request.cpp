#include <Zint/Request.h>

#include <Zint/Type.h>

namespace Zint {

Request::~Request() = default;
Request::NotifieeConst::~NotifieeConst() = default;

const Type* Request::fwkType() const { return &requestType; }

void Request::stateIs(State state) {
  const Ptr<Request> self(this);
  state_ = state;
  const U32 generation = ++generation_;
  handleState();
  notify(Id::state);
  // A command that was given re-entrantly has announced its own.
  if (generation_ == generation) notify(Id::generation);
}

void Request::statusIs(Status status) {
  status_ = status;
  notify(Id::status);
}

void Request::generationIs(U32 generation) {
  if (updated(generation_, generation)) notify(Id::generation);
}

void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                     Request::State& state) {
  S32 value = 0;
  sequenceToValue(pos, end, value);
  state = static_cast<Request::State>(value);
}

void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                     Request::Status& status) {
  S32 value = 0;
  sequenceToValue(pos, end, value);
  status = static_cast<Request::Status>(value);
}

void Request::NotifieeConst::handleNotification(ActivityConfig* activity) {
  switch (attribute()) {
    case Id::state:
      return onState();
    case Id::status:
      return onStatus();
    case Id::generation:
      return onGeneration();
    default:
      return Entity::NotifieeConst::handleNotification(activity);
  }
}

}  // namespace Zint
