// Both sides, given the same steps and compared after each.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "driverlockstep/Model.h"
#include "driverlockstep/World.h"

namespace DriverLockstep {

// clang-format off
#define DRIVER_LOCKSTEP_STEPS(X)                                                        \
  X(turn, 60) X(write, 14) X(offer, 8) X(read, 4) X(clear, 1)                           \
  X(flip, 12) X(glitch, 6) X(stick, 2) X(unstick, 2) X(absent, 1) X(present, 5) X(throwOnce, 1) X(vanish, 1)      \
  X(loseState, 1) X(chipReset, 1) X(checkFindsReset, 1) X(restored, 5)                  \
  X(rule, 3) X(mask, 2) X(unwritten, 1) X(resetValue, 1) X(policyDel, 1)                \
  X(pause, 1) X(resume, 2) X(idle, 1) X(audit, 3) X(buffer, 1) X(normal, 2)             \
  X(shadowOff, 1) X(shadowOn, 2) X(auditEnabled, 1) X(veto, 1) X(vetoThrows, 1)         \
  X(setting, 3) X(quarantineDel, 1) X(doAudit, 2) X(intrude, 4) X(wait, 3)
// clang-format on

enum class Kind : U8 {
#define X(name, weight) name,
  DRIVER_LOCKSTEP_STEPS(X)
#undef X
      count
};

// The arguments are taken modulo what there is.
struct Step {
  Kind kind = Kind::turn;
  U32 a = 0, b = 0, c = 0, d = 0;
  std::string text() const;
};

class Session {
 public:
  explicit Session(U64 seed);

  static Step draw(Support::Random& random);
  // Throws a Mismatch.
  void perform(const Step& step);
  const std::map<std::string, U64>& met() const { return model_.met; }
  const Events& events() const { return world_.events; }  // of the last step

 private:
  struct Pending {
    U32 turns, region, entry;
    Bytes value;
  };

  Bytes value(U32 region, U32 seed) const;
  void writeBoth(U32 region, U32 entry, const Bytes& value);
  void loseState(U32 chip);
  void turn();
  void setting(U32 which, U32 value);
  void changePolicy(const Step& step, U32 region, U32 entry, U32 count);
  Driver::Policy::Ptr policy(U32 region);
  bool isAnythingAudited() const;
  void compare();
  void compareRegion(U32 region);
  void compareChips();
  void compareState();
  template <class A, class B>
  void same(const std::string& what, const A& library, const B& model) const;

  const Plan plan_;
  World world_;
  Model model_;
  std::vector<Pending> pending_;
  U32 turnsWithoutEvents_ = 0;
  bool isLate_ = false;  // the time went on without a turn
};

struct Failure {
  U64 seed = 0;
  std::vector<Step> steps;
  std::string text;
};

// Performs the steps on new worlds; what went wrong, if anything did.
std::optional<Failure> replay(U64 seed, const std::vector<Step>& steps);
// The same failure with fewer steps.
Failure shrink(Failure failure);
std::string report(const Failure& failure);

}  // namespace DriverLockstep
