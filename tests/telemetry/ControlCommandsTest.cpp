// The commands of the control socket, each with what it refuses.
#include <Driver/RegisterTable.h>

#include "telemetry/ControlTest.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;

class ControlCommandsTest : public Support::ControlTest {
 protected:
  std::vector<std::string> namesOf(const Json& answer) {
    std::vector<std::string> names;
    for (const Json& item : answer["items"]) names.push_back(item.value("name", "?"));
    return names;
  }
};

TEST_F(ControlCommandsTest, greeting_namesDriverAndLevel) {
  Support::ControlClient client(lookPath());
  const Json greeting = Json::parse(nextLine(client));
  EXPECT_EQ(greeting["umbra"], 1);
  EXPECT_EQ(greeting["name"], "switch1");
  EXPECT_EQ(greeting["pid"], getpid());
  EXPECT_EQ(greeting["level"], "look");
}

TEST_F(ControlCommandsTest, id_isRepeatedAsItWasGiven) {
  const auto client = looking();
  EXPECT_EQ(answer(*client, R"({"do":"ping","id":18446744073709551615})")["id"],
            18446744073709551615u);
  EXPECT_EQ(answer(*client, R"({"id":"a\"b","do":"ping"})")["id"], "a\"b");
  EXPECT_EQ(answer(*client, R"({"do":"nothing","id":7})")["id"], 7);
  EXPECT_FALSE(answer(*client, R"({"do":"ping"})").contains("id"));
}

TEST_F(ControlCommandsTest, get_anAttribute_asTextAndAsValue) {
  const auto client = looking();
  const Json state = answer(*client, R"({"do":"get","path":"/shadow/state"})");
  EXPECT_EQ(state["text"], "'idle'");
  EXPECT_EQ(state["value"], "idle");
  EXPECT_EQ(state["type"], "Hardware::HardwareShadow::State");
  const Json entrySize =
      answer(*client, R"({"do":"get","path":"/shadow/chipMemory/mac/entrySize"})");
  EXPECT_EQ(entrySize["value"], 4);
  EXPECT_EQ(answer(*client, R"({"do":"get","path":"/shadow/chipMemory/mac/entries"})")["value"],
            16);
  const Json age = answer(*client, R"({"do":"get","path":"/shadow/lastPassAge"})");
  EXPECT_EQ(age["unit"], "seconds");
  EXPECT_FALSE(age.contains("value")) << age;
  EXPECT_EQ(answer(*client, R"({"do":"get","path":"/shadow/chipMemory"})")["value"], 2);
}

TEST_F(ControlCommandsTest, get_anObject_listsItsAttributes) {
  const auto client = looking();
  const Json region = all(*client, R"({"do":"get","path":"/shadow/chipMemory/0x1:00002000"})");
  EXPECT_EQ(region["type"], "Hardware::ChipMemory");
  EXPECT_THAT(namesOf(region),
              testing::IsSupersetOf({"name", "entries", "mode", "registersFixed"}));
  EXPECT_THAT(namesOf(region), testing::Not(testing::Contains("doClear")));
}

TEST_F(ControlCommandsTest, get_whatIsNotThere_namesTheNearMiss) {
  const auto client = looking();
  EXPECT_THAT(refusal(*client, R"({"do":"get","path":"/shadow/sate"})"),
              HasSubstr("no member sate; did you mean 'state'?"));
  EXPECT_THAT(refusal(*client, R"({"do":"get","path":"/shadow/chipMemory/mca"})"),
              HasSubstr("no member mca; did you mean 'mac'?"));
  EXPECT_THAT(refusal(*client, R"({"do":"gte","path":"/"})"), HasSubstr("did you mean 'get'?"));
  EXPECT_THAT(refusal(*client, R"({"do":"get","path":"/"})"), HasSubstr("/ is no object"));
  EXPECT_THAT(refusal(*client, R"({"do":"get"})"), HasSubstr("path must be a text"));
}

TEST_F(ControlCommandsTest, list_rootAndCollection) {
  const auto client = looking();
  EXPECT_THAT(namesOf(all(*client, R"({"do":"list"})")),
              testing::ElementsAre("shadow", "alarms", "activity", "clock"));
  const Json regions = all(*client, R"({"do":"list","path":"/shadow/chipMemory"})");
  EXPECT_THAT(namesOf(regions), testing::ElementsAre("mac", "vlan"));
  EXPECT_EQ(regions["items"][1]["key"], "0x1:00002000");
  EXPECT_EQ(all(*client, R"({"do":"list","path":"/shadow/chipMemory","most":1})")["items"].size(),
            1u);
}

TEST_F(ControlCommandsTest, list_ofManyRegions_comesInPartsOverManyTurns) {
  shadow_->stateIs(Hardware::HardwareShadow::unconfigured());
  for (U32 i = 0; i < 2'000; ++i) {
    shadow_->chipMemoryIs(Hardware::chipMemoryFactory(
        "r" + std::to_string(i), Hardware::ChipAddress(2, i * 16), 1, 4, 4, ham_));
  }
  const auto client = looking();
  client->send("{\"do\":\"list\",\"path\":\"/shadow/chipMemory\"}\n");
  U32 items = 0, parts = 0;
  for (bool isMore = true; isMore; ++parts) {
    const Json part = Json::parse(nextLine(*client));
    items += static_cast<U32>(part["items"].size());
    isMore = part.value("more", false);
    if (parts == 3) shadow_->chipMemoryDel(Hardware::ChipAddress(2, 1'999 * 16));
  }
  EXPECT_EQ(items, 2'001u);
  EXPECT_GT(parts, 10u);
  // By its name, far behind the others; then by what was remembered.
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(
        answer(*client, R"({"do":"get","path":"/shadow/chipMemory/r1998/entrySize"})")["value"], 4);
  }
  EXPECT_THAT(refusal(*client, R"({"do":"get","path":"/shadow/chipMemory/r1999"})"),
              HasSubstr("no member r1999"));
}

TEST_F(ControlCommandsTest, describe_showsLevelsHelpAndArguments) {
  const auto client = looking();
  const Json type = all(*client, R"({"do":"describe","path":"/shadow/chipMemory/mac"})");
  EXPECT_EQ(type["type"], "Hardware::ChipMemory");
  bool isFound = false;
  for (const Json& row : type["items"]) {
    if (row["name"] != "doClearRange") continue;
    isFound = true;
    EXPECT_EQ(row["kind"], "operation");
    EXPECT_EQ(row["level"], "administer");
    EXPECT_EQ(row["arguments"], Json({"startIndex", "endIndex"}));
  }
  EXPECT_TRUE(isFound);
  const Json mode = all(*client, R"({"do":"describe","type":"ChipMemoryMode"})");
  EXPECT_EQ(mode.value("error", ""), "no type ChipMemoryMode");
  EXPECT_THAT(refusal(*client, R"({"do":"describe","type":"No::Such"})"),
              HasSubstr("no type No::Such"));
}

TEST_F(ControlCommandsTest, set_needsTheLevelOfTheAttribute) {
  const auto client = looking();
  EXPECT_THAT(refusal(*client, R"({"do":"set","path":"/shadow/paused","value":true})"),
              HasSubstr("to set /shadow/paused needs the level operate, this session has look"));
  EXPECT_FALSE(shadow_->paused());
  const auto admin = administering();
  const Json set = answer(*admin, R"({"do":"set","path":"/shadow/paused","value":true})");
  EXPECT_EQ(set["value"], true);
  EXPECT_TRUE(shadow_->paused());
}

TEST_F(ControlCommandsTest, set_valuesOfAllKinds) {
  const auto admin = administering();
  EXPECT_EQ(refusal(*admin, R"({"do":"set","path":"/shadow/sliceInterval","value":0.25})"), "");
  EXPECT_EQ(shadow_->sliceInterval(), 0.25);
  EXPECT_EQ(
      refusal(*admin, R"({"do":"set","path":"/shadow/chipMemory/mac/mode","value":"buffered"})"),
      "");
  EXPECT_EQ(mac_->mode(), ChipMemory::buffered());
  EXPECT_EQ(
      refusal(*admin,
              R"({"do":"set","path":"/shadow/lastChipMemory","value":"/shadow/chipMemory/mac"})"),
      "");
  EXPECT_EQ(shadow_->lastChipMemory(), mac_);
  EXPECT_EQ(refusal(*admin, R"({"do":"set","path":"/shadow/lastChipMemory","value":null})"), "");
  EXPECT_EQ(shadow_->lastChipMemory(), nullptr);
  EXPECT_THAT(
      refusal(*admin,
              R"({"do":"set","path":"/shadow/maxEntriesPerSlice","value":18446744073709551616})"),
      HasSubstr("18446744073709551616"));
  EXPECT_THAT(refusal(*admin, R"({"do":"set","path":"/shadow/maxEntriesPerSlice","value":0})"),
              HasSubstr("must be above 0"));
  EXPECT_THAT(refusal(*admin, R"({"do":"set","path":"/shadow/audits"})"),
              HasSubstr("set needs a value"));
  EXPECT_THAT(refusal(*admin, R"({"do":"set","path":"/shadow/chipMemory/mac/entries","value":1})"),
              HasSubstr("is computed"));
}

TEST_F(ControlCommandsTest, call_withArgumentsAndAName) {
  const auto admin = administering();
  const Json found = answer(
      *admin,
      R"({"do":"call","path":"/shadow/findChipMemory","arguments":{"address":"0x1:00001004","size":4}})");
  EXPECT_THAT(found["text"].get<std::string>(), StartsWith("'mac'#"));
  EXPECT_EQ(
      refusal(
          *admin,
          R"({"do":"call","path":"/chipReadRequestFactory","arguments":{"name":"mine"},"as":"r"})"),
      "");
  EXPECT_EQ(answer(*admin, R"({"do":"get","path":"/r/name"})")["value"], "mine");
  EXPECT_EQ(refusal(*admin, R"({"do":"forget","name":"r"})"), "");
  EXPECT_THAT(refusal(*admin, R"({"do":"get","path":"/r/name"})"), HasSubstr("no object /r"));
  EXPECT_THAT(
      refusal(*admin, R"({"do":"call","path":"/shadow/findChipMemory","arguments":{"address":1}})"),
      HasSubstr("missing argument size"));
  EXPECT_THAT(refusal(*admin, R"({"do":"call","path":"/shadow/doNothing"})"),
              HasSubstr("no operation doNothing"));
}

TEST_F(ControlCommandsTest, aRuleOfTheLibrary_isRefusedAndNothingChanges) {
  const auto admin = administering();
  EXPECT_THAT(
      refusal(
          *admin,
          R"({"do":"call","path":"/shadow/chipMemory/mac/doClearRange","arguments":{"startIndex":0,"endIndex":17}})"),
      StartsWith("refused: endIndex (17) must not be above entries (16)"));
  EXPECT_THAT(refusal(*admin, R"({"do":"set","path":"/shadow/state","value":"configured"})"),
              StartsWith("refused: "));
  EXPECT_EQ(shadow_->state(), Hardware::HardwareShadow::idle());
}

TEST_F(ControlCommandsTest, level_canOnlyBeLowered) {
  const auto admin = administering();
  EXPECT_EQ(answer(*admin, R"({"do":"level","level":"operate"})")["level"], "operate");
  EXPECT_THAT(refusal(*admin, R"({"do":"level","level":"administer"})"),
              HasSubstr("can only be lowered"));
  EXPECT_EQ(refusal(*admin, R"({"do":"set","path":"/shadow/paused","value":true})"), "");
  EXPECT_THAT(refusal(*admin, R"({"do":"call","path":"/shadow/chipMemory/mac/doClear"})"),
              HasSubstr("needs the level administer"));
  EXPECT_EQ(answer(*admin, R"({"do":"level","level":"look"})")["level"], "look");
  EXPECT_THAT(refusal(*admin, R"({"do":"set","path":"/shadow/paused","value":false})"),
              HasSubstr("needs the level operate"));
  const auto client = looking();
  EXPECT_THAT(refusal(*client, R"({"do":"level","level":"administer"})"),
              HasSubstr("can only be lowered"));
}

TEST_F(ControlCommandsTest, aConstOperationOfLevelLook_isForAll) {
  const auto client = looking();
  EXPECT_EQ(
      answer(
          *client,
          R"({"do":"call","path":"/shadow/isWritten","arguments":{"chipMemory":"/shadow/chipMemory/mac","entry":0}})")
          ["value"],
      false);
  EXPECT_THAT(refusal(*client, R"({"do":"call","path":"/shadow/chipMemoryDelAll"})"),
              HasSubstr("needs the level administer"));
  EXPECT_THAT(refusal(*client, R"({"do":"call","path":"/hardwareShadowFactory"})"),
              HasSubstr("needs the level administer"));
}

TEST_F(ControlCommandsTest, aChange_isToldWithItsClientAndLine) {
  std::vector<std::string> told;
  control_->onCommandIs([&](U32 uid, U32 pid, const std::string& line) {
    told.push_back(std::to_string(uid) + " " + std::to_string(pid) + " " + line);
  });
  const auto admin = administering();
  const std::string line = R"({"do":"set","path":"/shadow/paused","value":true})";
  EXPECT_EQ(refusal(*admin, line), "");
  EXPECT_EQ(refusal(*admin, R"({"do":"get","path":"/shadow/paused"})"), "");
  EXPECT_NE(refusal(*admin, R"({"do":"set","path":"/shadow/state","value":"configured"})"), "");
  EXPECT_THAT(told, testing::ElementsAre(std::to_string(getuid()) + " " + std::to_string(getpid()) +
                                         " " + line));
}

TEST_F(ControlCommandsTest, onCommand_thatThrows_refusesTheCommand) {
  control_->onCommandIs(
      [](U32, U32, const std::string&) { throw std::runtime_error("the log is full"); });
  const auto admin = administering();
  EXPECT_EQ(refusal(*admin, R"({"do":"set","path":"/shadow/paused","value":true})"),
            "the log is full");
  EXPECT_FALSE(shadow_->paused());
}

TEST_F(ControlCommandsTest, watch_tellsChangesAndCountsThoseInBetween) {
  const auto client = looking();
  EXPECT_EQ(answer(*client, R"({"do":"watch","path":"/shadow/audits"})")["value"], 0);
  shadow_->auditsIs(5);
  EXPECT_EQ(Json::parse(nextLine(*client)),
            Json({{"watch", "/shadow/audits"}, {"text", "5"}, {"value", 5}, {"more", 0}}));
  EXPECT_EQ(refusal(*client, R"({"do":"unwatch","path":"/shadow/audits"})"), "");
  EXPECT_THAT(refusal(*client, R"({"do":"unwatch","path":"/shadow/audits"})"),
              HasSubstr("is not watched"));
  EXPECT_THAT(refusal(*client, R"({"do":"watch","path":"/shadow"})"), HasSubstr("is no attribute"));
}

TEST_F(ControlCommandsTest, watch_ofManyChanges_isBoundedAndCounts) {
  const auto client = looking();
  for (int i = 0; i < 60; ++i) {
    EXPECT_EQ(
        refusal(*client, R"({"do":"watch","path":"/shadow/)" + std::string(i % 2 == 0 ? "" : "./") +
                             "chipMemory/mac/" +
                             std::vector<std::string>{"readCacheHits", "writeCacheHits",
                                                      "registersFixed"}[static_cast<U32>(i % 3)] +
                             "\"}"),
        "");
  }
  U32 lines = 0, more = 0;
  const Zint::Seconds begin = loop_.clock->time();
  for (U32 i = 1; loop_.clock->time() < begin + 5; ++i) {
    mac_->readCacheHitsIs(i);
    mac_->writeCacheHitsIs(i);
    mac_->registersFixedIs(i);
    turn(0.01);
    for (std::string line; !(line = client->takeLine()).empty(); ++lines)
      more += Json::parse(line).value("more", 0u);
  }
  EXPECT_GT(lines, 50u);
  EXPECT_LE(lines, 6 * 50u);
}

TEST_F(ControlCommandsTest, watch_ofWhatIsGone_saysSoAndEnds) {
  const auto client = looking();
  EXPECT_EQ(refusal(*client, R"({"do":"watch","path":"/shadow/chipMemory/vlan/mode"})"), "");
  shadow_->stateIs(Hardware::HardwareShadow::unconfigured());
  shadow_->chipMemoryDel(vlan_->address());
  EXPECT_THAT(nextLine(*client), HasSubstr("\"gone\":\"/shadow/chipMemory has no member vlan"));
  EXPECT_THAT(refusal(*client, R"({"do":"unwatch","path":"/shadow/chipMemory/vlan/mode"})"),
              HasSubstr("is not watched"));
}

TEST_F(ControlCommandsTest, events_sinceANumber_andThoseThatFollow) {
  U64 newest = 3;
  control_->eventsIs({.newest = [&] { return newest; },
                      .json =
                          [](U64 number, std::string& event) {
                            event = "{\"number\":" + std::to_string(number) + "}";
                            return number != 2;
                          }});
  const auto client = looking();
  const Json events = all(*client, R"({"do":"events","since":0,"follow":true})");
  EXPECT_EQ(events["newest"], 3);
  EXPECT_EQ(events["items"], Json::parse(R"([{"number":1},{"number":3}])"));
  newest = 4;
  EXPECT_EQ(nextLine(*client), R"({"event":{"number":4}})");
  newest = 2'000;
  EXPECT_EQ(Json::parse(nextLine(*client))["skipped"], 1'946);
  EXPECT_EQ(nextLine(*client), R"({"event":{"number":1951}})");
}

TEST_F(ControlCommandsTest, events_withoutALog_areRefused) {
  const auto client = looking();
  EXPECT_EQ(refusal(*client, R"({"do":"events"})"), "this driver has no event log");
}

TEST_F(ControlCommandsTest, policyTextAndDump_ofARegion) {
  const U8 value[] = {1, 2, 3, 4};
  shadow_->shadowWriteAndCompareWithCache(mac_, 3, const_cast<U8*>(value), 4);
  registers_->valueIs("0x100c", 0x04030201);
  const auto client = looking();
  const Json policy =
      answer(*client, R"({"do":"policyText","path":"/shadow/chipMemory/mac","entry":3})");
  EXPECT_NE(policy.value("text", ""), "");
  EXPECT_THAT(refusal(*client, R"({"do":"policyText","path":"/shadow/chipMemory/mac","entry":16})"),
              HasSubstr("entry (16) must be below the entries (16) of mac"));
  const Json dump =
      all(*client, R"({"do":"dump","path":"/shadow/chipMemory/mac","first":2,"count":100})");
  EXPECT_EQ(dump["items"].size(), 14u);
  EXPECT_EQ(dump["items"][0]["known"], false);
  EXPECT_EQ(dump["items"][1]["entry"], 3);
  EXPECT_EQ(dump["items"][1]["address"], "0x1:0000100c");
  EXPECT_EQ(dump["items"][1]["expected"], "01020304");
  EXPECT_EQ(dump["items"][1]["known"], true);
  EXPECT_EQ(dump["items"][1]["isWritten"], true);
  EXPECT_THAT(refusal(*client, R"({"do":"dump","path":"/shadow/chipMemory/mac","chip":true})"),
              HasSubstr("to read a chip needs the level operate"));
  const auto admin = administering();
  EXPECT_EQ(
      all(*admin,
          R"({"do":"dump","path":"/shadow/chipMemory/mac","first":3,"chip":true})")["items"][0]
                                                                                   ["actual"],
      "01020304");
  EXPECT_THAT(refusal(*admin, R"({"do":"dump","path":"/alarms"})"),
              HasSubstr("/alarms is no region"));
}

TEST_F(ControlCommandsTest, dump_ofAShadowWithNamesTellsThem) {
  static constexpr Driver::TableField fields[] = {{"valid", 0, 1}, {"port", 1, 4}};
  static constexpr Driver::TableRegister registers[] = {{.name = "mac", .fields = fields}};
  static constexpr Driver::TableRegion table[] = {
      {.name = "mac", .registers = registers, .entries = 16}};
  shadow_->registerNamesIs(Driver::registerNamesOf(table));
  const U8 value[] = {7, 0, 0, 0};
  shadow_->shadowWriteAndCompareWithCache(mac_, 3, const_cast<U8*>(value), 4);
  registers_->valueIs("0x100c", 6);
  const auto client = looking();
  const Json seen =
      all(*client, R"({"do":"dump","path":"/shadow/chipMemory/mac","first":3})")["items"][0];
  EXPECT_EQ(seen["name"], "mac[3]");
  EXPECT_EQ(seen["fields"], "mac[3] valid=1 port=3");
  EXPECT_FALSE(seen.contains("difference"));
  const auto admin = administering();
  const Json read = all(
      *admin, R"({"do":"dump","path":"/shadow/chipMemory/mac","first":3,"chip":true})")["items"][0];
  EXPECT_EQ(read["difference"], "mac[3].valid expected 1 actual 0");
}

TEST_F(ControlCommandsTest, checkAndPlan_needToOperate) {
  const auto client = looking();
  EXPECT_THAT(refusal(*client, R"({"do":"check"})"), HasSubstr("needs the level operate"));
  EXPECT_THAT(refusal(*client, R"({"do":"plan","path":"/shadow"})"),
              HasSubstr("needs the level operate"));
  const auto admin = administering();
  EXPECT_TRUE(all(*admin, R"({"do":"check"})")["items"].is_array());
  const Json plan = all(*admin, R"({"do":"plan","path":"/shadow"})");
  EXPECT_GE(plan["items"].size(), 1u) << plan;
  EXPECT_EQ(registers_->writes("0x1000"), 0u);
}

TEST_F(ControlCommandsTest, theBytesOfALargeBuffer_areNoLine) {
  const auto large = Hal::bufFactory(4'096);
  control_->objectIs("large", large);
  const auto admin = administering();
  EXPECT_THAT(refusal(*admin, R"({"do":"get","path":"/large/data"})"),
              HasSubstr("longer than a line may be"));
  EXPECT_EQ(namesOf(all(*admin, R"({"do":"get","path":"/large"})")),
            (std::vector<std::string>{"size", "data"}));
  EXPECT_EQ(all(*admin, R"({"do":"get","path":"/shadow/chipMemory/mac/shadow/data"})")["text"],
            std::string(128, '0'));
  const Json read = answer(
      *admin,
      R"({"do":"call","path":"/shadow/chipMemory/mac/chipHam/doRead","arguments":{"address":0,"entrySize":4,"entries":20000}})");
  EXPECT_THAT(read.value("error", ""), HasSubstr("bytes is longer than a line may be"));
}

TEST_F(ControlCommandsTest, whatGoesThroughAllRegions_isNotReadByWhoOnlyLooks) {
  const auto request = Driver::chipWriteRequestFactory("replay");
  control_->objectIs("replay", request);
  const auto client = looking();
  EXPECT_THAT(refusal(*client, R"({"do":"get","path":"/replay/stringValue"})"),
              HasSubstr("needs the level operate"));
  EXPECT_TRUE(all(*client, R"({"do":"get","path":"/replay"})")["ok"].get<bool>());
  const auto admin = administering();
  EXPECT_EQ(refusal(*admin, R"({"do":"get","path":"/replay/stringValue"})"), "");
}

}  // namespace
