#include "demo/driver/Story.h"

#include <Zint/Strep.h>

#include <algorithm>
#include <cstdio>

namespace Demo {

using Driver::Alarm;
using Hardware::HardwareShadow;

namespace {

constexpr double length = 15;  // seconds of the story
constexpr Zint::Seconds patience = 20;

// The bit that will be stuck: bit 0 of the first register of an entry of the table vlan. It is 1
// in all configurations.
constexpr U32 stuckTable = 1;
constexpr U32 stuckEntry = 100;

template <class... Arguments>
std::string textOf(const char* pattern, Arguments... arguments) {
  return Zint::format(pattern, arguments...).bytes();
}

unsigned long long number(U64 value) { return value; }

// What came about since then.
Account since(const Account& now, const Account& then) {
  return {.injected = now.injected - then.injected,
          .lost = now.lost - then.lost,
          .forgotten = now.forgotten - then.forgotten,
          .stuck = now.stuck - then.stuck,
          .repaired = now.repaired - then.repaired,
          .restored = now.restored - then.restored,
          .overwritten = now.overwritten - then.overwritten};
}

}  // namespace

Story::Story(const Options& options)
    : options_(options),
      scale_(options.seconds / length),
      stage_(options.seed),
      switch_(stage_.theSwitch),
      shadow_(*switch_.shadow()),
      chip_(*switch_.chip()),
      began_(stage_.clock->time()) {}

StoryReport Story::run() {
  bringUp();
  outside_ = Outside::of(options_, stage_);
  play("soft errors", &Story::softErrors);
  play("absent chip", &Story::absentChip);
  play("reset", &Story::reset);
  play("stuck bit", &Story::stuckBit);
  stage_.traffic->trafficIs(false);
  const bool mayGoOn = stage_.mayGoOn();
  const bool isChipOrderly = stage_.chipWatch->endChip();
  const bool isSettled = mayGoOn && stage_.settle(2);
  shadow_.stateIs(HardwareShadow::idle());
  report_.end = stage_.report(isChipOrderly, isSettled);
  say(mayGoOn ? "The end." : "The story was interrupted.");
  return report_;
}

void Story::bringUp() {
  stage_.bringUp();
  // A careful driver asks for a new look after a second, and then less and less often.
  chip_.retryMinIs(std::max(0.3 * scale_, 0.001));
  chip_.retryMaxIs(std::max(1.0 * scale_, 0.001));
  shadow_.stateIs(HardwareShadow::auditing());
  began_ = stage_.clock->time();
  waitUntil([this] { return shadow_.audits() == 1; });
  say(textOf("The switch is up: %llu entries, all of them known. A pass over them takes %.2f s.",
             number(shadow_.passEntries()), stage_.clock->time() - began_));
}

void Story::play(const char* name, void (Story::*scene)(Scene&)) {
  if (!stage_.mayGoOn()) return;
  Scene played{.name = name, .account = {}, .outcome = {}, .failures = {}};
  const Account before = stage_.ledger.soFar();
  shadow_.quarantineRepairsIs(scene == &Story::stuckBit ? 3 : 0);
  shadow_.minIntervalBetweenAuditsIs(0.3 * scale_);
  stage_.traffic->trafficIs(true);
  (this->*scene)(played);
  stage_.traffic->trafficIs(false);
  played.account = since(stage_.ledger.soFar(), before);
  report_.scenes.push_back(std::move(played));
}

// --- The scenes ----------------------------------------------------------------------------------

void Story::softErrors(Scene& scene) {
  const U64 repairs = shadow_.repairs();
  say(textOf("Soft errors: the chip flips %u bits a second.", options_.flipsPerSecond));
  stage_.chip.control().flipsPerSecond = options_.flipsPerSecond;
  rest(3);
  stage_.chip.control().flipsPerSecond = 0;
  settle(scene);
  say(textOf(
      "%llu entries were found different and rewritten, each looked at again before and after.",
      number(shadow_.repairs() - repairs)));
  scene.outcome = textOf("%llu repairs", number(shadow_.repairs() - repairs));
}

void Story::absentChip(Scene& scene) {
  constexpr U32 writes = 200;
  stage_.traffic->trafficIs(false);
  say("The chip does not answer any more: reads give all ones, writes are lost.");
  stage_.registers->isAbsentIs(true);
  const U64 repairs = shadow_.repairs();
  expect(scene, waitUntil([this] { return chip_.isAbsent(); }), "nobody saw that it was absent");
  waitUntil([this] { return shadow_.patrolState() == Driver::PatrolState::suspended; });
  say("The patrol is " + stringValue(shadow_.patrolState()).bytes() + ": " +
      shadow_.patrolReason().bytes() + ".");
  Table& mac = switch_.tables()[0];
  for (U32 i = 0; i < writes; ++i) change(mac, i * 300);
  say(textOf("Clients write %u entries meanwhile. The shadow has them, the chip has not.", writes));
  rest(3);
  const U64 wrongRepairs = shadow_.repairs() - repairs;
  expect(scene, wrongRepairs == 0, "entries were repaired while the chip was absent");
  const U32 tries = chip_.tries();
  stage_.registers->isAbsentIs(false);
  expect(scene, waitUntil([this] { return !chip_.isAbsent(); }), "nobody saw that it is back");
  say(textOf("It answers again, found at try %u. Repaired while it was absent: %llu entries.",
             tries + 1, number(wrongRepairs)));
  settle(scene);
  expect(scene, stage_.ledger.soFar().lost != 0, "no write was lost");
  expect(scene, chip_.absences() == 1, "the chip was not absent once");
  expect(scene, chip_.resets() == 0, "the chip was taken for one that was reset");
  say(textOf("%llu entries whose writes were lost are repaired now.",
             number(shadow_.repairs() - repairs)));
  scene.outcome = textOf("%llu repairs meanwhile", number(wrongRepairs));
}

void Story::reset(Scene& scene) {
  const U64 repairs = shadow_.repairs();
  const U64 findings = shadow_.findings();
  stage_.registers->doReset();
  say("The chip was reset: all tables hold zeros. Nobody tells the driver.");
  expect(scene, waitUntil([this] { return chip_.resets() == 1; }), "nobody found the reset");
  say("A difference, and other entries are wrong as well: the patrol takes it for a reset.");
  const Zint::Seconds start = stage_.clock->time();
  expect(scene, waitUntil([this] { return !chip_.isRestoring(); }), "the replay did not end");
  say(textOf("Everything that was ever written is written again, in %.2f s; the audit goes on.",
             stage_.clock->time() - start));
  rest(2);
  settle(scene);
  expect(scene, shadow_.repairs() == repairs, "entries were repaired one by one");
  expect(scene, shadow_.findings() == findings + 1, "the reset was not one finding");
  expect(scene, stage_.ledger.soFar().restored != 0, "nothing was restored");
  scene.outcome = textOf("%llu finding, a replay", number(shadow_.findings() - findings));
}

void Story::stuckBit(Scene& scene) {
  const Table& table = switch_.tables()[stuckTable];
  const std::string alarmName = textOf("often/%s/%u", table.layout->name, stuckEntry);
  const auto alarm = [&] { return switch_.alarms()->alarm(alarmName); };
  stage_.registers->stuckBitsAre(table.layout->registerAddress(stuckEntry * 2), 1);
  say(textOf("A bit of %s entry %u is stuck: it reads 0 whatever is written.", table.layout->name,
             stuckEntry));
  const bool isLeftAlone = waitUntil([this] { return shadow_.quarantined() == 1; });
  expect(scene, isLeftAlone, "the entry was not put in quarantine");
  say("Three repairs had no effect. The entry is in quarantine: reported, not rewritten.");
  const bool isRaised = waitUntil([&] { return alarm() != nullptr && alarm()->isActive(); });
  expect(scene, isRaised, "no alarm was raised");
  if (isRaised) {
    say("The alarm " + alarmName + " is " + stringValue(alarm()->state()).bytes() +
        ". A person acknowledges it.");
    expect(scene, alarm()->doAcknowledge(), "the alarm could not be acknowledged");
  }
  rest(2);
  liftStuckBit(scene);
  scene.outcome = isRaised ? "quarantine, alarm" : "no alarm";
}

void Story::liftStuckBit(Scene& scene) {
  const Table& table = switch_.tables()[stuckTable];
  expect(scene, shadow_.quarantined() == 1, "the entry did not stay in quarantine");
  expect(scene, shadow_.hasOpenFinding(table.region, stuckEntry), "its finding was forgotten");
  stage_.registers->stuckBitsAre(0, 0);
  shadow_.quarantineDel(table.region, stuckEntry);
  say("The bit is free again, and the person lifts the quarantine: the next repair holds.");
  settle(scene);
  expect(scene, shadow_.quarantined() == 0, "the entry is still in quarantine");
  expect(scene, !shadow_.hasOpenFinding(table.region, stuckEntry), "its finding is still open");
}

// --- Telling and waiting -------------------------------------------------------------------------

void Story::say(const std::string& text) {
  std::printf("%6.1f s  %s\n", stage_.clock->time() - began_, text.c_str());
  std::fflush(stdout);
}

void Story::rest(double seconds) {
  const Zint::Seconds end = stage_.clock->time() + seconds * scale_;
  while (stage_.mayGoOn() && stage_.clock->time() < end) stage_.activity->runUntil(end);
}

bool Story::waitUntil(const std::function<bool()>& holds) {
  const Zint::Seconds end = stage_.clock->time() + patience;
  while (!holds() && stage_.mayGoOn() && stage_.clock->time() < end) {
    stage_.activity->runUntil(stage_.clock->time() + 0.002);
  }
  return holds();
}

void Story::settle(Scene& scene) {
  expect(scene, stage_.settle(2), "the audit did not come to two clean passes");
}

void Story::expect(Scene& scene, bool holds, const char* failure) {
  if (!holds) scene.failures.emplace_back(failure);
}

void Story::change(Table& table, U32 entry) {
  ++table.versions.at(entry);
  switch_.configureEntries(table, entry, 1);
}

}  // namespace Demo
