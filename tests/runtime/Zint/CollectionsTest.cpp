// Rows for the collections of a client's type: maps, arrays and queues, with what each may leave
// out.
#include <Zint/Collections.h>
#include <Zint/DynArray.h>
#include <Zint/Entity.h>
#include <Zint/GenericIf.h>
#include <Zint/HashMap.h>
#include <Zint/LinkQueue.h>
#include <gmock/gmock.h>

#include <map>
#include <optional>
#include <string>

#include "runtime/Probes.h"

namespace Trains {

using Zint::String8;

class Wagon : public Zint::Entity,
              public Zint::HashMapLink<Wagon>,
              public Zint::LinkQueueLink<Wagon, U16> {
 public:
  explicit Wagon(U32 number) : Entity("wagon"), number_(number) {}
  U32 fwkKey() const { return number_; }
  Zint::Ptr<const Wagon> self() const { return Zint::Ptr<const Wagon>(this); }

 private:
  const U32 number_;
};
constexpr const char* zintTypeName(const Wagon*) { return "Trains::Wagon"; }

class Station : public Zint::Entity {
 public:
  using Entity::Entity;
  const Zint::Type* fwkType() const override;

  // A map of plain values.
  std::optional<String8> notice(U32 hour) const {
    const auto place = notice_.find(hour);
    return place == notice_.end() ? std::nullopt : std::optional<String8>(place->second);
  }
  U32 notices() const { return static_cast<U32>(notice_.size()); }
  std::vector<U32> noticeHours() const {
    std::vector<U32> hours;
    for (const auto& [hour, text] : notice_) hours.push_back(hour);
    return hours;
  }
  void noticeIs(U32 hour, const String8& text, std::optional<U32> repeats) {
    for (U32 i = 0; i <= repeats.value_or(0); ++i) notice_[hour + i] = text;
  }

  // An array.
  U32 track(U16 index) const { return track_.at(index); }
  U32 tracks() const { return track_.size(); }
  void trackIs(U16 index, U32 length) { track_.atIs(index, length); }
  void trackDel(U16 index) { track_.del(index); }
  void trackDelAll() { track_.delAll(); }

  // The same wagons by number and in a queue.
  Zint::Ptr<Wagon> wagon(U32 number) const { return Zint::Ptr<Wagon>(wagon_.find(number)); }
  U32 wagons() const { return wagon_.size(); }
  auto wagonIterator() const { return wagon_.iterator(); }
  const Zint::LinkQueue<Wagon, U16>& queue() const { return queue_; }
  void queueDel(U16 index) { queue_.del(index); }
  Zint::Ptr<Wagon> queueEnq(U32 number) {
    if (wagon(number) != nullptr) throw Zint::ArgumentException("this wagon is here");
    const auto wagon = Zint::makePtr<Wagon>(number);
    wagon_.insert(wagon);
    queue_.enq(wagon);
    return wagon;
  }

 private:
  std::map<U32, String8> notice_;
  Zint::DynArray<U32, U16> track_;
  Zint::HashMap<Wagon, U32> wagon_;
  Zint::LinkQueue<Wagon, U16> queue_;
};

constexpr Zint::ListAccess notices =
    Zint::mapList<&Station::notice, &Station::notices, &Station::noticeHours, nullptr, nullptr,
                  &Station::noticeIs>("hour", "hour", "text", "?repeats");
constexpr Zint::ListAccess tracks =
    Zint::arrayList<U16, &Station::track, &Station::tracks, &Station::trackIs, &Station::trackDel,
                    &Station::trackDelAll>("length");
constexpr Zint::ListAccess shownTracks =
    Zint::arrayList<U16, &Station::track, &Station::tracks>("length");
constexpr Zint::ListAccess wagons =
    Zint::mapList<&Station::wagon, &Station::wagons, &Station::wagonIterator>("number");
constexpr Zint::ListAccess queue =
    Zint::queueList<&Station::queue, &Wagon::self, &Station::queueDel, nullptr, &Station::queueEnq>(
        "number");
constexpr Zint::Member members[] = {
    Zint::collection("notice", notices),
    Zint::collection("track", tracks),
    Zint::collection("shownTrack", shownTracks),
    Zint::collection("wagon", wagons),
    Zint::collection("queue", queue),
};
constinit const Zint::Type stationType{"Trains::Station", "entity", nullptr, members};
const Zint::Type* Station::fwkType() const { return &stationType; }

}  // namespace Trains

namespace {

using Probes::rangeMessage;
using testing::ElementsAre;

class Collections : public testing::Test {
 protected:
  std::vector<std::string> shown(const char* collection) {
    std::vector<std::string> items;
    for (const Zint::ListItem& item : named.list(collection).items()) {
      items.push_back(item.key.bytes() + "=" + item.value.text.bytes());
    }
    return items;
  }

  const Zint::Ptr<Trains::Station> station = Zint::makePtr<Trains::Station>("central");
  Zint::GenericIf_ named{station};
};

TEST_F(Collections, valueTypeIsThatOfTheMembers) {
  EXPECT_STREQ(named.list("notice").valueType(), "Zint::String8");
  EXPECT_STREQ(named.list("track").valueType(), "U32");
  EXPECT_STREQ(named.list("wagon").valueType(), "Trains::Wagon");
  EXPECT_STREQ(named.list("queue").valueType(), "Trains::Wagon");
}

TEST_F(Collections, mapList_ofPlainValuesShowsThemInTheOrderOfTheKeys) {
  station->noticeIs(9, "late", 1);
  station->noticeIs(2, "early", std::nullopt);
  EXPECT_THAT(shown("notice"), ElementsAre("2='early'", "9='late'", "10='late'"));
  EXPECT_EQ(named.list("notice").size(), 3u);
}

TEST_F(Collections, mapList_ofPlainValuesFindsOneOrNull) {
  station->noticeIs(9, "late", std::nullopt);
  EXPECT_EQ(named.list("notice").find("9").text, "'late'");
  EXPECT_EQ(named.list("notice").find("8").text, "null");
}

TEST_F(Collections, insert_anOptionalParameterTellsWhetherItWasGiven) {
  named.call("noticeIs", {{"text", "late"}, {"hour", "3"}});
  EXPECT_EQ(station->notices(), 1u);
  named.call("noticeIs", {{"repeats", "2"}, {"text", "late"}, {"hour", "3"}});
  EXPECT_EQ(station->notices(), 3u);
  EXPECT_THAT(rangeMessage([&] {
                named.call("noticeIs", {{"repeats", "x"}, {"text", "late"}, {"hour", "7"}});
              }),
              testing::HasSubstr("Trains::Station::noticeIs"));
  EXPECT_EQ(station->notices(), 3u);
}

TEST_F(Collections, mapList_whatWasLeftOutIsRefused) {
  station->noticeIs(9, "late", std::nullopt);
  const char* refused = "Trains::Station::notice: cannot be changed so";
  EXPECT_EQ(rangeMessage([&] { named.list("notice").del("9"); }), refused);
  EXPECT_EQ(rangeMessage([&] { named.list("notice").delAll(); }), refused);
  EXPECT_EQ(station->notices(), 1u);
}

TEST_F(Collections, mapList_iteratesOverARuntimeMap) {
  station->queueEnq(8);
  station->queueEnq(5);
  const auto items = named.list("wagon").items();
  ASSERT_EQ(items.size(), 2u);
  for (const Zint::ListItem& item : items) {
    EXPECT_EQ(item.value.object.ptr(), named.list("wagon").find(item.key).object.ptr());
    EXPECT_FALSE(item.value.isConst);
  }
}

TEST_F(Collections, arrayList_setsFindsAndRemovesElements) {
  EXPECT_EQ(named.call("trackIs", {{"length", "300"}, {"index", "1"}}).text, "");
  EXPECT_THAT(shown("track"), ElementsAre("0=0", "1=300"));
  EXPECT_EQ(named.list("track").find("1").text, "300");
  EXPECT_EQ(named.list("track").find("2").text, "null");
  named.list("track").del("1");
  EXPECT_EQ(station->tracks(), 1u);
  named.list("track").delAll();
  EXPECT_EQ(station->tracks(), 0u);
}

TEST_F(Collections, arrayList_anIndexBeyondItsTypeIsRefusedAndChangesNothing) {
  EXPECT_THAT(rangeMessage([&] {
                named.call("trackIs", {{"length", "300"}, {"index", "65537"}});
              }),
              testing::HasSubstr("65537 is out of range"));
  EXPECT_THAT(rangeMessage([&] { named.list("track").find("65536"); }),
              testing::HasSubstr("65536 is out of range"));
  EXPECT_EQ(station->tracks(), 0u);
}

TEST_F(Collections, arrayList_withoutMutatorsIsReadOnly) {
  station->trackIs(0, 7);
  EXPECT_THAT(shown("shownTrack"), ElementsAre("0=7"));
  EXPECT_EQ(rangeMessage([&] {
              named.call("shownTrackIs", {{"length", "1"}, {"index", "0"}});
            }),
            "Trains::Station::shownTrack: cannot be changed so");
  EXPECT_EQ(station->track(0), 7u);
}

TEST_F(Collections, queueList_showsMembersFromHeadToTail) {
  named.call("queueIs", {{"number", "8"}});
  named.call("queueIs", {{"number", "5"}});
  named.call("queueIs", {{"number", "6"}});
  named.list("queue").del("1");
  const auto items = named.list("queue").items();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0].key, "0");
  EXPECT_EQ(items[0].value.object.ptr(), station->wagon(8).ptr());
  EXPECT_TRUE(items[0].value.isConst);
  EXPECT_EQ(items[1].key, "2");
  EXPECT_EQ(items[1].value.object.ptr(), station->wagon(6).ptr());
  EXPECT_EQ(named.list("queue").find("2").object.ptr(), station->wagon(6).ptr());
  EXPECT_EQ(named.list("queue").find("1").text, "null");
}

TEST_F(Collections, insert_aRefusedArgumentNamesTheCollectionAndTheTexts) {
  station->queueEnq(8);
  EXPECT_EQ(rangeMessage([&] {
              named.call("queueIs", {{"number", "8"}});
            }),
            "this wagon is here deserializing attribute Trains::Station::queueIs from "
            "\"number=8\"");
  EXPECT_EQ(station->wagons(), 1u);
}

TEST_F(Collections, flagsFollowFromWhatTheRowOffers) {
  using Flags = Zint::ZintAttrIntrospectionFlags;
  for (const Zint::Member& member : Trains::members) {
    EXPECT_EQ(member.flags.value(), U32{Flags::readable} | Flags::collection) << member.name;
  }
}

// --- The ids of rows ---

constexpr Zint::Member lampRows[] = {Zint::enumerator("red", 0), Zint::enumerator("green", 1)};

TEST(IdsOfRows, holdForTheNamesInTheOrderOfTheRows) {
  constexpr Zint::AttributeId ids[] = {260, 261};
  static_assert(Zint::areIdsOfRows(lampRows, 260, "red, green", ids));
  EXPECT_TRUE(Zint::areIdsOfRows(lampRows, 260, "red, green", ids));
}

TEST(IdsOfRows, doNotHoldForSwappedMissingOrSurplusOnes) {
  constexpr Zint::AttributeId ids[] = {260, 261}, swapped[] = {261, 260}, one[] = {260},
                              three[] = {260, 261, 262};
  EXPECT_FALSE(Zint::areIdsOfRows(lampRows, 260, "green, red", ids));
  EXPECT_FALSE(Zint::areIdsOfRows(lampRows, 260, "red, green", swapped));
  EXPECT_FALSE(Zint::areIdsOfRows(lampRows, 259, "red, green", ids));
  EXPECT_FALSE(Zint::areIdsOfRows(lampRows, 260, "red", one));
  EXPECT_FALSE(Zint::areIdsOfRows(lampRows, 260, "red, green, blue", three));
}

}  // namespace
