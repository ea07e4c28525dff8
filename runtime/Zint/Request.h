// A job that one side commands and another side serves, both by setting attributes of this entity.
#pragma once

#include <Zint/Entity.h>
#include <Zint/Strep.h>

namespace Zint {

class UMBRA_API Request : public Entity {
 public:
  // The owner's command. Printed as a number.
  enum State : S32 { idle_ = 0, start_ = 1, stop_ = 2 };
  // The server's answer. Printed as a number.
  enum Status : S32 { none_ = 0, failed_ = 2, done_ = 3 };

  struct Id : Entity::Id {
    enum : AttributeId { state = isNondestructing + 1, status, generation };
  };

  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    using Entity::NotifieeConst::NotifieeConst;
    void handleNotification(ActivityConfig* activity) override;
    virtual void onState() {}
    virtual void onStatus() {}
    virtual void onGeneration() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : NotifieeOf<NotifieeConst, Request> {
    using NotifieeOf::NotifieeOf;
  };

  explicit Request(Name name) : Entity(std::move(name)) {}

  const Type* fwkType() const override;

 protected:
  ~Request() override;

 public:
  State state() const { return state_; }
  // A command: stored and announced also when the same one was given before. Advances the
  // generation, which is announced after the state.
  void stateIs(State state);
  // The reaction of a derived request, before the notifiees are notified.
  virtual void handleState() {}

  Status status() const { return status_; }
  // An answer: stored and announced also when it equals the last one. Commands do not reset it.
  void statusIs(Status status);

  // The number of commands given so far; wraps.
  U32 generation() const { return generation_; }
  void generationIs(U32 generation);

 private:
  State state_ = idle_;
  Status status_ = none_;
  U32 generation_ = 0;
};

// In texts, too, both are numbers.
inline String8 valueToStrep(const Request::State& state) { return valueToStrep(S64{state}); }
inline String8 valueToStrep(const Request::Status& status) { return valueToStrep(S64{status}); }
UMBRA_API void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                               Request::State& state);
UMBRA_API void sequenceToValue(String8::IteratorConst& pos, const String8::IteratorConst& end,
                               Request::Status& status);
constexpr const char* zintTypeName(const Request::State*) { return "Zint::Request::State"; }
constexpr const char* zintTypeName(const Request::Status*) { return "Zint::Request::Status"; }

}  // namespace Zint
