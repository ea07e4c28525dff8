// A type that the console has never heard of: registered, it is shown like any other.
#include <Zint/Entity.h>
#include <Zint/Reflect.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tools/console/Completion.h>
#include <tools/console/Session.h>

#include <sstream>

#include "support/ManualLoop.h"

namespace Garden {

class Bed : public Zint::Entity {
 public:
  using Ptr = Zint::Ptr<Bed>;

  Bed(Zint::Name name, U32 plants) : Entity(std::move(name)), plants_(plants) {}
  const Zint::Type* fwkType() const override;

  U32 plants() const { return plants_; }
  Zint::Seconds watered() const { return watered_; }
  void wateredIs(Zint::Seconds time);
  const Ptr& neighbour() const { return neighbour_; }
  void neighbourIs(const Ptr& neighbour) { neighbour_ = neighbour; }
  U32 doHarvest(U32 plants) {
    if (plants > plants_) Zint::throwRangeException("not that many grow here");
    return plants_ -= plants;
  }

 private:
  U32 plants_;
  Zint::Seconds watered_ = 0;
  Ptr neighbour_;
};

constexpr const char* zintTypeName(const Bed*) { return "Garden::Bed"; }

Bed::Ptr bedFactory(Zint::Name name, U32 plants) {
  return Zint::makePtr<Bed>(std::move(name), plants);
}

constexpr Zint::Member bedMembers[] = {
    Zint::readOnly<&Bed::plants>("plants"),
    Zint::attribute<&Bed::watered, &Bed::wateredIs>("watered"),
    Zint::attribute<&Bed::neighbour, &Bed::neighbourIs>("neighbour"),
    Zint::operation<&Bed::doHarvest>("doHarvest", "plants"),
};
constinit const Zint::Type bedType{"Garden::Bed", "entity", &Zint::entityType, bedMembers};
constexpr Zint::Member bedMaker = Zint::factory<&bedFactory>("bedFactory", "name", "plants");

const Zint::Type* Bed::fwkType() const { return &bedType; }

void Bed::wateredIs(Zint::Seconds time) {
  watered_ = time;
  notify(Zint::firstAttributeId + Zint::entityType.memberCount() + 1);
}

}  // namespace Garden

namespace {

using Garden::Bed;
using testing::HasSubstr;

class OwnTypeTest : public testing::Test {
 protected:
  OwnTypeTest() {
    Zint::TypeRegistry::typeIs(Garden::bedType);
    Zint::TypeRegistry::factoryIs(Garden::bedMaker);
  }
  ~OwnTypeTest() override {
    Zint::TypeRegistry::factoryDel(Garden::bedMaker);
    Zint::TypeRegistry::typeDel(Garden::bedType);
  }
  std::string outputOf(const std::string& line) {
    out_.str("");
    session_.run(line);
    return out_.str();
  }
  static Console::World world(const Support::ManualLoop& loop, const Bed::Ptr& bed) {
    Console::World world;
    world.activity = loop.activity;
    world.objects = {{"bed", Console::objectOf(bed)}};
    return world;
  }

  Support::ManualLoop loop_;
  const Bed::Ptr bed_ = Zint::makePtr<Bed>("roses", 9u);
  std::ostringstream out_;
  Console::Session session_{world(loop_, bed_), out_};
};

TEST_F(OwnTypeTest, isListedAndDescribed) {
  EXPECT_THAT(outputOf("types"), testing::ContainsRegex("\nGarden::Bed +entity\n"));
  EXPECT_EQ(outputOf("describe Bed"),
            "Garden::Bed: entity, derived from Zint::Entity\n"
            "  name               Zint::String8  set once, when it is made\n"
            "  isNondestructing   bool\n"
            "  plants             U32            read only\n"
            "  watered            Zint::Seconds\n"
            "  neighbour          Garden::Bed\n"
            "  doHarvest(plants)  U32\n");
}

TEST_F(OwnTypeTest, itsMembersStandBelowIt) {
  session_.run("cd /bed");
  EXPECT_EQ(outputOf("ls"),
            "name              'roses'  Zint::String8\n"
            "isNondestructing  true     bool\n"
            "plants            9        U32\n"
            "watered           0        Zint::Seconds\n"
            "neighbour/        null     Garden::Bed\n"
            "doHarvest(plants)\n");
}

TEST_F(OwnTypeTest, isMadeSetAndCalled) {
  session_.run("let tulips = call bedFactory name=tulips plants=5");
  session_.run("set bed/neighbour /tulips");
  session_.run("cd bed/neighbour");
  EXPECT_EQ(outputOf("call doHarvest plants=2"), "3\n");
  EXPECT_EQ(outputOf("get /bed/neighbour/plants"), "3\n");
  EXPECT_EQ(bed_->neighbour()->plants(), 3u);
  EXPECT_THROW(session_.run("call doHarvest plants=4"), Zint::RangeException);
}

TEST_F(OwnTypeTest, itsChangesAreTold) {
  session_.run("watch /bed/watered");
  out_.str("");
  bed_->wateredIs(12.5);
  EXPECT_EQ(out_.str(), "/bed/watered: 0 -> 12.5\n");
}

TEST_F(OwnTypeTest, aWorldNeedsNeitherChipNorAuditNorTrace) {
  const auto refusal = [&](const char* line) -> std::string {
    try {
      session_.run(line);
    } catch (const std::exception& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(refusal("wait 1 pass"), "wait: no audit passes are counted here");
  EXPECT_EQ(refusal("peek 0"), "peek: no register at 0x0; they are at multiples of 4 below 0x0");
  EXPECT_EQ(refusal("trace 1"), "no trace handle ");
}

TEST_F(OwnTypeTest, itsNamesAreCompleted) {
  EXPECT_THAT(completion(session_, "call /bed/do").candidates, testing::ElementsAre("doHarvest "));
  EXPECT_THAT(completion(session_, "call bedFactory ").candidates,
              testing::ElementsAre("name=", "plants="));
}

}  // namespace
