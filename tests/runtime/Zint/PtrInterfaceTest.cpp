#include <Zint/PtrInterface.h>
#include <Zint/Request.h>
#include <Zint/Type.h>

#include <runtime/Probes.h>

#include <cstring>

namespace {

using Probes::Life;
using Zint::makePtr;
using Zint::Ptr;
using Zint::PtrInterface;

// The slot of a virtual member: a pointer to one holds 1 + the slot's offset in the table.
template <class Member>
std::size_t slot(Member member) {
  std::size_t word = 0;
  std::memcpy(&word, &member, sizeof word);
  return (word - 1) / sizeof(void*);
}

TEST(PtrInterface, virtualOperationsStandInSlotOrder) {
  EXPECT_EQ(slot(&PtrInterface::hasNotificationActiveIs), 0u);
  EXPECT_EQ(slot(&PtrInterface::zintAuditErrors), 1u);
  EXPECT_EQ(slot(&PtrInterface::auditErrors), 2u);
  EXPECT_EQ(slot(&PtrInterface::isNondestructingIs), 3u);
  EXPECT_EQ(slot(&PtrInterface::zeroReferencesIs), 4u);
  EXPECT_EQ(slot(&PtrInterface::fwkType), 5u);
  // Two slots of the destructor follow, then the derived classes' own.
  EXPECT_EQ(slot(&Zint::Entity::attributeString), 8u);
  EXPECT_EQ(slot(&Zint::NotifieeConst::notifierIs), 8u);
}

// Records what is done to it at its end, and stays when told to.
class Hooked : public PtrInterface {
 public:
  explicit Hooked(std::string& log) : log_(log) {}
  void zeroReferencesIs(bool zero) override {
    log_ += zero ? "zero;" : "not zero;";
    PtrInterface::zeroReferencesIs(zero);
  }
  U32 auditErrors() const override { return 3; }

 protected:
  ~Hooked() override { log_ += "destroyed;"; }

 private:
  std::string& log_;
};

TEST(PtrInterface, zeroReferencesIs_isCalledWithTrueWhenTheLastReferenceGoes) {
  std::string log;
  {
    const Ptr<Hooked> first = makePtr<Hooked>(log);
    { const Ptr<Hooked> second = first; }
    EXPECT_EQ(log, "");
  }
  EXPECT_EQ(log, "zero;destroyed;");
}

TEST(PtrInterface, zeroReferencesIs_falseDestroysNothing) {
  std::string log;
  const Ptr<Hooked> hooked = makePtr<Hooked>(log);
  hooked->zeroReferencesIs(false);
  EXPECT_EQ(log, "not zero;");
}

TEST(PtrInterface, zintAuditErrors_countsTheClassesOwn) {
  std::string log;
  const Ptr<PtrInterface> hooked = makePtr<Hooked>(log);
  EXPECT_EQ(hooked->zintAuditErrors(), 3u);
  bool alive = false;
  EXPECT_EQ(makePtr<Life>(alive)->zintAuditErrors(), 0u);
  EXPECT_EQ(makePtr<Life>(alive)->auditErrors(), 0u);
}

TEST(PtrInterface, switchesReadBackWhatWasSet) {
  bool alive = false;
  const Ptr<PtrInterface> object = makePtr<Life>(alive);
  EXPECT_FALSE(object->hasNotificationActive());
  EXPECT_TRUE(object->isNondestructing());
  EXPECT_FALSE(object->zintMarkedForDeletion());
  object->hasNotificationActiveIs(true);
  object->isNondestructingIs(false);
  object->zintMarkedForDeletionIs(true);
  EXPECT_TRUE(object->hasNotificationActive());
  EXPECT_FALSE(object->isNondestructing());
  EXPECT_TRUE(object->zintMarkedForDeletion());
}

TEST(PtrInterface, fwkType_namesTheClass) {
  bool alive = false;
  EXPECT_STREQ(makePtr<Life>(alive)->fwkType()->name, "Zint::PtrInterface");
  EXPECT_STREQ(makePtr<Probes::Thing>("thing")->fwkType()->name, "Zint::Entity");
  EXPECT_STREQ(makePtr<Zint::Request>("request")->fwkType()->name, "Zint::Request");
  EXPECT_STREQ(Zint::manualClockFactory("clock")->fwkType()->name, "Zint::Clock");
}

TEST(PtrInterface, notify_withoutNotifieesDoesNothing) {
  bool alive = false;
  const Ptr<PtrInterface> object = makePtr<Life>(alive);
  object->notify(300);
  EXPECT_EQ(object->notifiees(), 0u);
  EXPECT_EQ(object->references(), 1u);
}

}  // namespace
