// Worked examples run on the model itself. Here: read requests, readers, states and the audit.
#include "ModelSelfTest.h"

namespace Model {
namespace {

TEST_F(ModelSelfTest, requestOrderIsThatOfReversedLowWords) {
  int request = model.requestCreate("r");
  int a = table("a", 0x1, 1);
  int b = table("b", 0x2, 1);
  int c = table("c", 0x100000002ull, 1);
  int d = table("d", 0x80000000ull, 1);
  int other = table("other", 0x2, 1);
  for (int region : {a, c, b, d, d, other}) model.requestChipMemoryIs(request, region);
  std::vector<int> order;
  for (const auto& member : model.request(request).members) order.push_back(member.region);
  EXPECT_EQ(order, (std::vector<int>{d, other, c, a}));
  EXPECT_EQ(model.notifications().size(), 5u);
  EXPECT_EQ(model.requestChipMemoryDel(request, 0x99), none);
  EXPECT_EQ(model.notifications().size(), 5u);
}

TEST_F(ModelSelfTest, readerSharesItsBudgetBetweenRegions) {
  int request = model.requestCreate("r");
  int first = table("first", 0x1000, 4);
  int second = table("second", 0x2001 << 1, 7);
  model.requestChipMemoryIs(request, first);
  model.requestChipMemoryIs(request, second);
  int reader = model.readerCreate(request, 10, 0.5);
  model.timeIs(3.0);
  model.requestStateIs(request, 1);
  EXPECT_EQ(model.nextWakeUp(), 0.0);
  EXPECT_TRUE(model.accesses().empty());
  model.trace().clear();
  EXPECT_EQ(model.runTurn(), 1);
  EXPECT_EQ(texts(),
            (Lines{"ChipReader::handleTimeout", "ChipReader::doRead first 0x1000 0x4 entries",
                   "ChipReader::doRead second 0x4002 0x6 entries"}));
  EXPECT_EQ(model.reader(reader).entriesRead, 6u);
  EXPECT_EQ(model.nextWakeUp(), 3.5);
  EXPECT_EQ(model.runTurn(), 0);
  model.timeIs(3.5);
  EXPECT_EQ(model.runTurn(), 1);
  EXPECT_EQ(model.request(request).status, 3u);
  EXPECT_EQ(model.nextWakeUp(), never);
  model.requestStateIs(request, 1);
  model.requestStateIs(request, 2);
  EXPECT_EQ(model.nextWakeUp(), never);
  EXPECT_EQ(model.reader(reader).current, none);
  EXPECT_TRUE(model.reader(reader).queue.empty());
  EXPECT_EQ(model.request(request).status, 3u);
  EXPECT_EQ(model.request(request).generation, 3u);
  EXPECT_EQ(fatalOf([&] { model.requestStateIs(request, 5); }), "0");
}

TEST_F(ModelSelfTest, readerFaults) {
  int request = model.requestCreate("r");
  int reader = model.readerCreate(request, 0, 0.0);
  EXPECT_EQ(fatalOf([&] { model.requestStateIs(request, 1); }), "currentChipMemory_");
  int empty = table("empty", 0x1000, 0);
  model.requestChipMemoryIs(request, empty);
  model.requestStateIs(request, 1);
  EXPECT_EQ(model.runTurn(), 1);  // a budget of 0 reads nothing and goes on
  EXPECT_EQ(model.nextWakeUp(), 0.0);
  model.maxEntriesPerReadIs(reader, 4);
  EXPECT_EQ(fatalOf([&] { model.runTurn(); }), "readChunkSizeInEntries");
  model.modeIs(empty, Mode::override_);
  EXPECT_EQ(fatalOf([&] { model.readerDoRead(reader); }),
            "(currentChipMemory_->mode() != ChipMemory::override())");
}

TEST_F(ModelSelfTest, readerStopsAtAFailingAccess) {
  int request = model.requestCreate("r");
  int region = table("t", 0x1000, 4);
  model.requestChipMemoryIs(request, region);
  int reader = model.readerCreate(request, 4, 0.0);
  for (u32 i = 0; i < 4; i++) model.chipPoke(chip, 0x1000 + 4 * i, i + 1);
  model.requestStateIs(request, 1);
  model.chipFailIn(chip, 3);
  EXPECT_EQ(model.runTurn(), 1);
  ASSERT_EQ(model.guarded().size(), 1u);
  EXPECT_STREQ(model.guarded()[0].handler, "onTime");
  EXPECT_EQ(model.reader(reader).entriesRead, 0u);
  EXPECT_EQ(model.reader(reader).current, region);
  EXPECT_EQ(model.nextWakeUp(), never);
  EXPECT_EQ((*model.region(region).hardware)[4], 2);
  EXPECT_EQ((*model.region(region).hardware)[8], 0);
}

TEST_F(ModelSelfTest, configuredPassesOnToIdle) {
  int on = audited("on", 0x100, 4);
  int off = table("off", 0x200, 8);
  model.chipMemoryIs(shadow, on);
  model.chipMemoryIs(shadow, off);
  model.trace().clear();
  model.stateIs(shadow, State::configured);
  EXPECT_EQ(texts(), (Lines{"HardwareShadow::handleState( configured )",
                            "HardwareShadow::handleState( idle )"}));
  EXPECT_EQ(model.shadow(shadow).entriesUnderAudit, 4u);
  EXPECT_EQ(model.shadow(shadow).index.at(0), (std::map<u32, int>{{0x100, on}, {0x200, off}}));
  model.chipMemoryAuditEnabledIs(shadow, off, true);
  EXPECT_EQ(model.shadow(shadow).entriesUnderAudit, 12u);
  EXPECT_EQ(fatalOf([&] { model.stateIs(shadow, State::configured); }),
            "auditReadRequest()->chipMemorys() == 0");
}

TEST_F(ModelSelfTest, nothingToAuditIsIdleness) {
  EXPECT_EQ(fatalOf([&] { System(model).stateIs(shadow, State::idle); }), "auditReadRequest()");
  model.chipMemoryIs(shadow, table("t", 0, 1));
  model.stateIs(shadow, State::configured);
  int request = model.shadow(shadow).request;
  model.stateIs(shadow, State::auditing);
  EXPECT_EQ(model.shadow(shadow).state, State::idle);
  model.stateIs(shadow, State::unconfigured);
  model.stateIs(shadow, State::configured);
  EXPECT_EQ(model.shadow(shadow).request, request);
  EXPECT_EQ(fatalOf([&] { model.stateIs(shadow, static_cast<State>(9)); }), "0");
}

TEST_F(ModelSelfTest, onePassLearnsToleratesAndRepairs) {
  int region = audited("t", 0x100, 4);
  model.chipMemoryIs(shadow, region);
  model.stateIs(shadow, State::configured);
  int reader = model.readerCreate(model.shadow(shadow).request, 3, 1.0);
  model.minIntervalBetweenAuditsIs(shadow, 10.0);
  write(region, 0, 0x11);
  write(region, 1, 0x8022001f);
  write(region, 2, 0x33);
  model.chipPoke(chip, 0x104, 0x8022011f);  // damaged
  model.chipPoke(chip, 0x10c, 0x44);        // never written
  model.trace().clear();
  model.accesses().clear();
  model.timeIs(5.0);
  model.stateIs(shadow, State::auditing);
  EXPECT_EQ(model.runTurn(), 1);
  EXPECT_EQ(model.region(region).dirty, Bytes{0});
  EXPECT_EQ(model.runTurn(), 1);
  EXPECT_EQ(model.reader(reader).entriesRead, 3u);
  write(region, 2, 0x35);  // after it was read
  model.timeIs(6.0);
  EXPECT_EQ(model.runTurn(), 1);
  EXPECT_EQ(texts(0),
            (Lines{"HardwareShadow::handleState( auditing )", "HardwareShadow::doStartAudit",
                   "handleReadRequest 1", "HardwareShadow::handleAuditReadRequestStatus 3",
                   "HardwareShadow::doAuditChips", "Difference found in entry 1 of memory t",
                   "Expected: x1Fx00x22x80 Actual: x1Fx01x22x80"}));
  ASSERT_EQ(model.records().size(), 4u);
  EXPECT_EQ(model.records()[1].values, (std::vector<u32>{1, 0, 1}));
  EXPECT_EQ(model.records()[3].level, 8);
  EXPECT_EQ(model.accesses().back(), (Access{chip, true, 0x104, 0x8022001f}));
  EXPECT_EQ(model.region(region).registersFixed, 1u);
  EXPECT_EQ(model.region(region).lastFixTime, 6.0);
  EXPECT_EQ(model.region(region).initialized, Bytes{0x0F});
  EXPECT_EQ((*model.region(region).shadow)[12], 0x44);
  EXPECT_EQ(model.shadow(shadow).audits, 1u);
  EXPECT_EQ(model.shadow(shadow).lastAuditStartTime, 5.0);
  EXPECT_EQ(model.pendingDueTimes(), std::vector<double>{15.0});
  model.overrideHardwareIs(shadow, true);
  model.timeIs(15.0);
  EXPECT_EQ(model.runTurn(), 1);
  EXPECT_EQ(model.nextWakeUp(), never);
}

TEST_F(ModelSelfTest, failingRepairEndsThePassWithoutCountingIt) {
  int region = audited("t", 0x100, 2);
  model.chipMemoryIs(shadow, region);
  model.stateIs(shadow, State::configured);
  model.readerCreate(model.shadow(shadow).request, 8, 1.0);
  write(region, 0, 1);
  model.chipPoke(chip, 0x100, 2);
  model.stateIs(shadow, State::auditing);
  model.runTurn();
  model.chipFailIn(chip, 3);
  model.runTurn();
  ASSERT_EQ(model.guarded().size(), 1u);
  EXPECT_STREQ(model.guarded()[0].handler, "onStatus");
  EXPECT_EQ(model.region(region).registersFixed, 1u);
  EXPECT_EQ(model.shadow(shadow).audits, 0u);
  EXPECT_EQ(model.nextWakeUp(), never);
}

TEST_F(ModelSelfTest, alarmsRunByDueTimeThenByArmingAndOncePerTurn) {
  int second = model.requestCreate("second");
  int first = model.requestCreate("first");
  model.requestChipMemoryIs(second, table("s", 0x100, 2));
  model.requestChipMemoryIs(first, table("f", 0x200, 2));
  model.readerCreate(second, 1, 0.0);
  model.readerCreate(first, 1, -1.0);  // armed later, due earlier
  model.timeIs(8.0);
  model.requestStateIs(second, 1);
  model.requestStateIs(first, 1);
  EXPECT_EQ(model.runTurn(), 2);
  EXPECT_EQ(model.accesses()[0].address, 0x100u);
  EXPECT_EQ(model.runTurn(), 2);
  EXPECT_EQ(model.accesses()[2].address, 0x204u);
  EXPECT_EQ(model.runTurn(), 0);
}

}  // namespace
}  // namespace Model
