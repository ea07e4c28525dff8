// A client's own type, described and registered with the public headers alone: an access method.
#include <Hardware/ChipMemory.h>
#include <Hardware/Descriptions.h>
#include <Zint/Activity.h>
#include <Zint/GenericIf.h>
#include <Zint/Reflect.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

namespace Chips {

// Keeps its entries in a map, with a parity switch and a scrubber.
class TcamHam : public Hardware::ChipHam {
 public:
  using Ptr = Zint::Ptr<TcamHam>;
  struct Id : ChipHam::Id {
    enum : Zint::AttributeId { banks = lastMember + 1, parity, scrubs };
  };

  TcamHam(Zint::Name name, U32 banks) : ChipHam(std::move(name)), banks_(banks) {}

  const Zint::Type* fwkType() const override;

  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override {
    for (U32 i = 0; i < entrySize * entries; ++i) buffer[i] = cells[address.plus(i).value()];
  }
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override {
    for (U32 i = 0; i < entrySize * entries; ++i) cells[address.plus(i).value()] = buffer[i];
  }

  U32 banks() const { return banks_; }
  bool parity() const { return parity_; }
  void parityIs(bool parity) {
    if (Zint::updated(parity_, parity)) notify(Id::parity);
  }
  U32 scrubs() const { return scrubs_; }

  // Returns how many cells were looked at.
  U32 doScrub(U32 bank, U32 passes) {
    if (bank >= banks_) Zint::throwRangeException("no such bank");
    scrubs_ += passes;
    return static_cast<U32>(cells.size()) * passes;
  }

  std::map<U64, U8> cells;

 private:
  const U32 banks_;
  bool parity_ = false;
  U32 scrubs_ = 0;
};

constexpr const char* zintTypeName(const TcamHam*) { return "Chips::TcamHam"; }

Zint::Ptr<TcamHam> tcamHamFactory(Zint::Name name, U32 banks) {
  return Zint::makePtr<TcamHam>(std::move(name), banks);
}

constexpr Zint::Member tcamHamMembers[] = {
    Zint::constructorParameter<&TcamHam::banks>("banks"),
    Zint::attribute<&TcamHam::parity, &TcamHam::parityIs>("parity"),
    Zint::readOnly<&TcamHam::scrubs>("scrubs"),
    Zint::operation<&TcamHam::doScrub>("doScrub", "bank", "passes"),
};
const Zint::Type tcamHamType{"Chips::TcamHam", "entity", &Hardware::chipHamType, tcamHamMembers};
constexpr Zint::Member tcamHamMaker =
    Zint::factory<&tcamHamFactory>("tcamHamFactory", "name", "banks");

const Zint::Type* TcamHam::fwkType() const { return &tcamHamType; }

}  // namespace Chips

namespace {

using Chips::TcamHam;
using Zint::GenericIf_;

class ReflectUserType : public testing::Test {
 protected:
  ReflectUserType() {
    Zint::TypeRegistry::typeIs(Chips::tcamHamType);
    Zint::TypeRegistry::factoryIs(Chips::tcamHamMaker);
  }
  ~ReflectUserType() override {
    Zint::TypeRegistry::factoryDel(Chips::tcamHamMaker);
    Zint::TypeRegistry::typeDel(Chips::tcamHamType);
  }
  template <class Statement>
  static std::string refusal(Statement statement) {
    try {
      statement();
    } catch (const Zint::RangeException& exception) {
      return exception.what();
    }
    return "";
  }

  const TcamHam::Ptr ham = Zint::makePtr<TcamHam>("tcam", 4u);
  GenericIf_ named{ham};
};

TEST_F(ReflectUserType, isFoundBehindTheLibrarysTypes) {
  EXPECT_EQ(Zint::TypeRegistry::find("Chips::TcamHam"), &Chips::tcamHamType);
  EXPECT_EQ(Zint::TypeRegistry::types().back(), &Chips::tcamHamType);
}

TEST_F(ReflectUserType, isGoneAgainWhenItsLibraryIs) {
  Zint::TypeRegistry::typeDel(Chips::tcamHamType);
  EXPECT_EQ(Zint::TypeRegistry::find("Chips::TcamHam"), nullptr);
  Zint::TypeRegistry::typeIs(Chips::tcamHamType);
}

TEST_F(ReflectUserType, hasTheMembersOfItsBaseAsWell) {
  EXPECT_EQ(named.attribute("name"), "'tcam'");
  EXPECT_EQ(named.attribute("isNondestructing"), "true");
  EXPECT_EQ(named.call("bitFromBitStream", {{"bit", "9"}, {"stream", "0002"}}).text, "true");
}

TEST_F(ReflectUserType, idsFollowThoseOfTheBase) {
  EXPECT_EQ(ham->attributeString(TcamHam::Id::banks), "banks");
  EXPECT_EQ(ham->attributeString(TcamHam::Id::parity), "parity");
  EXPECT_EQ(ham->attributeString(TcamHam::Id::scrubs), "scrubs");
  EXPECT_EQ(ham->attributeString(TcamHam::Id::lastMember), "copyBits");
  EXPECT_EQ(ham->attributeString(TcamHam::Id::scrubs + 2), "unknown");
}

TEST_F(ReflectUserType, attributesAreReadAndSet) {
  EXPECT_EQ(named.attribute("banks"), "4");
  EXPECT_EQ(named.attribute("parity"), "false");
  named.attributeIs("parity", "true");
  EXPECT_TRUE(ham->parity());
  EXPECT_EQ(named.attribute("parity"), "true");
}

TEST_F(ReflectUserType, operationsAreCalled) {
  ham->cells = {{0, 1}, {1, 2}, {2, 3}};
  EXPECT_EQ(named.call("doScrub", {{"passes", "2"}, {"bank", "3"}}).text, "6");
  EXPECT_EQ(named.attribute("scrubs"), "2");
}

TEST_F(ReflectUserType, theBasesOperationsReachTheOverrides) {
  named.call("doWrite",
             {{"entries", "2"}, {"entrySize", "2"}, {"buffer", "01020304"}, {"address", "16"}});
  EXPECT_EQ(ham->cells.at(19), 4);
  EXPECT_EQ(named.call("doRead", {{"address", "17"}, {"entries", "1"}, {"entrySize", "3"}}).text,
            "020304");
}

TEST_F(ReflectUserType, errorsNameTypeMemberAndText) {
  EXPECT_EQ(refusal([&] { named.attribute("bank"); }), "Chips::TcamHam: unknown member bank");
  EXPECT_EQ(refusal([&] { named.attributeIs("banks", "5"); }),
            "Chips::TcamHam::banks: cannot be set to 5");
  EXPECT_EQ(refusal([&] { named.attributeIs("parity", "maybe"); }),
            "true or false expected at \"maybe\" deserializing attribute Chips::TcamHam::parity "
            "from \"maybe\"");
  EXPECT_EQ(refusal([&] {
              named.call("doScrub", {{"bank", "1"}});
            }),
            "Chips::TcamHam::doScrub: missing argument passes");
  EXPECT_EQ(refusal([&] {
              named.call("doScrub", {{"bank", "1"}, {"passes", "1"}, {"at", "2"}});
            }),
            "Chips::TcamHam::doScrub: surplus argument at=2");
  EXPECT_EQ(refusal([&] {
              named.call("doScrub", {{"bank", "9"}, {"passes", "1"}});
            }),
            "no such bank");
  EXPECT_EQ(ham->scrubs(), 0u);
  EXPECT_FALSE(ham->parity());
}

TEST_F(ReflectUserType, aReadOnlyViewRefuses) {
  EXPECT_EQ(refusal([&] { GenericIf_::readOnlyView(ham).attributeIs("parity", "true"); }),
            "attempting to modify a const instance");
}

TEST_F(ReflectUserType, servesARegionThatIsMadeByName) {
  const Zint::Result made = GenericIf_::make("tcamHamFactory", {{"banks", "2"}, {"name", "t2"}});
  const Zint::Result region = GenericIf_::make("chipMemoryFactory", {{"chipHam", made.text},
                                                                     {"name", "acl"},
                                                                     {"address", "4096"},
                                                                     {"entries", "2"},
                                                                     {"entrySize", "2"},
                                                                     {"stride", "2"}});
  GenericIf_ acl = GenericIf_::of(region);
  EXPECT_EQ(acl.target("chipHam").object, made.object);
  EXPECT_EQ(GenericIf_::of(acl.target("chipHam")).attribute("banks"), "2");
}

TEST_F(ReflectUserType, changesAreAnnouncedUnderItsIds) {
  class AttributeWatch : public TcamHam::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void handleNotification(Zint::ActivityConfig*) override { told.push_back(attribute()); }
    std::vector<Zint::AttributeId> told;
  };
  const auto watch =
      Zint::makePtr<AttributeWatch>(nullptr, Zint::Ptr<const Hardware::ChipHam>(ham));
  named.attributeIs("parity", "true");
  named.attributeIs("parity", "true");
  ASSERT_EQ(watch->told, (std::vector<Zint::AttributeId>{TcamHam::Id::parity}));
  EXPECT_EQ(ham->attributeString(watch->told[0]), "parity");
}

}  // namespace
