#include <Zint/Request.h>
#include <Zint/Type.h>

namespace Zint {

Request::~Request() = default;
Request::NotifieeConst::~NotifieeConst() = default;

const Type* Request::fwkType() const { return &requestType; }

String8 Request::attributeString(AttributeId attribute) const {
  switch (attribute) {
    case Id::state:
      return "state";
    case Id::status:
      return "status";
    case Id::generation:
      return "generation";
    default:
      return Entity::attributeString(attribute);
  }
}

void Request::stateIs(State state) {
  const Ptr<Request> self(this);
  state_ = state;
  ++generation_;
  handleState();
  notify(Id::state);
}

void Request::statusIs(Status status) {
  status_ = status;
  notify(Id::status);
}

void Request::generationIs(U32 generation) {
  if (updated(generation_, generation)) notify(Id::generation);
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
