// umbra-rtl-driver CHIP [--operations N] [--damages N] [--seed N]: a driver of the switch chip
// whose process is the program CHIP, and the laboratory that damages the chip. First both chips,
// RTL and fake, run in lockstep; then the driver audits the one in RTL, the fake still beside it.
#include <Driver/ChipAccess.h>
#include <Driver/PresentChip.h>
#include <Zint/Trace.h>
#include <platform/bus/RegisterHam.h>

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string_view>

#include "FakeSwitch.h"
#include "Ledger.h"
#include "Lockstep.h"
#include "RtlBus.h"

namespace {

using Driver::Rule;
using Driver::Verdict;
using Hardware::ChipMemory;

constexpr U32 width = 8 * sizeof(void*);
constexpr Zint::Seconds step = 0.01;

struct Options {
  std::string chip;
  U32 operations = 200'000;
  U32 damages = 1000;
  U32 seed = 1;
};

// The shadow's trace has a line for each difference; the ledger has them, too.
class Silence : public Zint::TraceSink {
 public:
  void traceLine(const Zint::TraceLine&) override {}
};

U32 valueOf(std::span<const U8> bytes) {
  U32 value = 0;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

// The driver: six regions, because registers that lie together are not alike.
class SwitchDriver {
 public:
  explicit SwitchDriver(Rtl::Switch& chip)
      : ham_(Platform::registerHamFactory("switch", Zint::makePtr<Rtl::RtlBus>(chip))) {
    ham_->sentinelIs(4 * Rtl::identity, Rtl::identityValue);
    general = region("general", 0, 4);
    const auto fixed = policyOf(general);
    for (const auto& [entry, value] :
         {std::pair{Rtl::identity, Rtl::identityValue}, std::pair{Rtl::strap, Rtl::strapValue}}) {
      fixed->ruleIs(entry, 1, Rule::readOnly);
      fixed->resetValueIs(entry, 1, {reinterpret_cast<const U8*>(&value), sizeof value});
    }
    fixed->unwrittenIs(Driver::Unwritten::defaults);
    interrupt = region("interrupt", Rtl::interrupt, 1);
    policyOf(interrupt)->maskIs(std::array<U8, 4>{0xff, 0xff, 0, 0}, Driver::Rewrite::zero);
    live = region("live", Rtl::errorEntry, 11);
    const auto moving = policyOf(live);
    moving->ruleIs(0, 2, Rule::volatile_);
    moving->ruleIs(Rtl::command - Rtl::errorEntry, 1, Rule::writeOnly);
    moving->ruleIs(Rtl::corrected - Rtl::errorEntry, 8, Rule::noRead);
    configuration = region("configuration", Rtl::configuration, 40);
    ports = region("ports", Rtl::ports, 8);
    policyOf(ports)->maskIs(std::array<U8, 4>{0, 0, 0, 0x80}, Driver::Rewrite::kept);
    table = region("table", Rtl::registerCount, Rtl::tableWords);
    // What is latched or counted is on the chip alone; a command and a 1 that clears count each
    // time.
    for (const auto& access : {interrupt, live}) {
      access->chipMemory()->readFromCacheIs(false);
      access->chipMemory()->skipWriteIfMatchesCacheIs(false);
    }
    shadow->chipIs(Driver::presentChipFactory("switch", ham_));
    shadow->rereadsIs(true);
    shadow->verifiesIs(true);
    shadow->findsResetsIs(false);  // reads further entries after a difference
    shadow->maxEntriesPerSliceIs(100);
    shadow->sliceIntervalIs(step);
    shadow->minIntervalBetweenAuditsIs(step);
    shadow->stateIs(Hardware::HardwareShadow::configured());
  }

  // The word where a region begins.
  static U32 firstWord(const ChipMemory& region) {
    const U32 offset = region.address().chipMemoryOffset();
    return offset < Rtl::tableAddress ? offset / 4
                                      : Rtl::registerCount + (offset - Rtl::tableAddress) / 4;
  }
  // The region's policy, and the words that its passes read.
  Driver::Policy::Ptr policyOf(const Driver::ChipAccess::Ptr& access) const {
    return shadow->policy(access->chipMemory());
  }
  std::vector<U32> wordsOfPass() const {
    std::vector<U32> read;
    for (const auto& access : {general, interrupt, live, configuration, ports, table}) {
      const auto policy = policyOf(access);
      for (U32 e = 0; e < access->chipMemory()->entries(); ++e) {
        if (isRead(policy->rule(e))) read.push_back(firstWord(*access->chipMemory()) + e);
      }
    }
    return read;
  }

  const Zint::Ptr<Zint::ManualClock> clock = Zint::manualClockFactory("clock");
  const Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("switch", Zint::Ptr<const Zint::Clock>(clock));
  const Driver::AuditedShadow::Ptr shadow =
      Driver::auditedShadowFactory(activity, Zint::Ptr<const Zint::Clock>(clock));
  Driver::ChipAccess::Ptr general, interrupt, live, configuration, ports, table;

 private:
  Driver::ChipAccess::Ptr region(const char* name, U32 word, U32 entries) {
    const auto memory = Hardware::chipMemoryFactory(
        name, Hardware::ChipAddress(0, Rtl::addressOf(word)), entries, 4, 4, ham_);
    memory->shadowEnabledIs(true);
    memory->readFromCacheIs(true);
    memory->skipWriteIfMatchesCacheIs(true);
    memory->auditEnabledIs(true);
    shadow->chipMemoryIs(memory);
    shadow->policyIs(Driver::policyFactory(memory));
    return Driver::chipAccessFactory(shadow, memory);
  }

  const Platform::RegisterHam::Ptr ham_;
};

// Enters what the patrol tells.
class Clerk : public Driver::AuditedShadow::NotifieeConst {
 public:
  Clerk(const SwitchDriver& driver, Rtl::Ledger& ledger)
      : NotifieeConst(driver.activity, driver.shadow),
        ledger_(ledger),
        wordsOfPass_(driver.wordsOfPass()) {}

  void onFinding(const Driver::Finding& finding) override {
    const U32 word = SwitchDriver::firstWord(*finding.chipMemory) + finding.entry;
    const bool isRepaired = finding.verdict == Verdict::repaired;
    if (finding.verdict == Verdict::writtenMeanwhile) return;
    const bool isExpected = isRepaired ? finding.nature == Driver::Nature::soft ||
                                             finding.nature == Driver::Nature::recurring
                                       : finding.verdict == Verdict::detectOnly;
    if (!isExpected && unexpected.empty()) unexpected = finding.stringValue().c_str();
    const bool isKept = finding.policy->mask(finding.entry) != nullptr &&
                        finding.policy->rewrite(finding.entry) == Driver::Rewrite::kept;
    // A second look; before the rewrite the bits that are kept, and after it the proof.
    const U32 reads = !isRepaired ? 0 : isKept ? 3 : 2;
    ledger_.enterFinding(word, valueOf(finding.expected), valueOf(finding.actual), isRepaired,
                         reads);
    readsOfFindings += reads;
  }
  void onPass(const Driver::PassResult& pass) override {
    if (!pass.isComplete && unexpected.empty()) unexpected = pass.reason.c_str();
    ledger_.enterPass(wordsOfPass_);
    ++passes;
  }

  U64 readsOfPasses() const { return U64{passes} * (wordsOfPass_.size() - 1); }  // not the sentinel

  U32 passes = 0;
  U64 readsOfFindings = 0;
  std::string unexpected;  // the first thing that is none of those that may be

 private:
  Rtl::Ledger& ledger_;
  const std::vector<U32> wordsOfPass_;
};

// The chip's clients, and who damages it.
class Laboratory {
 public:
  Laboratory(Rtl::Lockstep& chip, U32 seed) : chip_(chip), driver_(chip), random_(seed) {
    clerk_ = Zint::makePtr<Clerk>(driver_, ledger_);
    for (const auto& access : {driver_.configuration, driver_.ports, driver_.table}) {
      const U32 entries = access->chipMemory()->entries();
      for (U32 e = 0; e < entries; ++e) write(access, e, random() & ~Rtl::linkBit);
    }
    write(driver_.interrupt, 0, ~Rtl::latches);
    write(driver_.general, Rtl::scratch, 0xcafe);
    write(driver_.general, Rtl::control, 1);
    driver_.shadow->stateIs(Hardware::HardwareShadow::auditing());
  }

  // Damages the chip so often, and lets the patrol make an end of it. False: see failure().
  bool run(U32 damages) {
    constexpr U32 turnsToEnd = 2000;  // some 150 passes
    for (U32 turns = 0; failure().empty();) {
      turn();
      if (ledger_.damages() < damages) {
        if (random() % 2 == 0) ledger_.doDamage(chip_, random_);
        useChip();
      } else if (++turns > turnsToEnd) {
        failure_ = "a damage that nobody made good";
      }
      ledger_.doUndoReported(chip_);
      if (random() % 4 == 0) serveInterrupt();
      chip_.doClocks(random() % 20);
      if (ledger_.damages() >= damages && ledger_.isSettled() && endPass()) break;
    }
    return failure().empty();
  }

  const std::string& failure() const {
    return !chip_.difference().empty()   ? chip_.difference()
           : !clerk_->unexpected.empty() ? clerk_->unexpected
           : !ledger_.failure().empty()  ? ledger_.failure()
                                         : failure_;
  }

  void account(const Rtl::RtlSwitch& rtl) {
    ledger_.doClose(rtl, chip_.state());
    if (!failure().empty()) return;
    std::printf("rtl %u: %u damages:", width, ledger_.damages());
    for (U32 i = 0; i < static_cast<U32>(Rtl::Outcome::count); ++i) {
      const auto outcome = static_cast<Rtl::Outcome>(i);
      std::printf("%s %u %s", i == 0 ? "" : ",", ledger_.outcomes(outcome), nameOf(outcome));
    }
    const U64 clients = ledger_.reads() - clerk_->readsOfPasses() - clerk_->readsOfFindings;
    const U64 repairs = ledger_.outcomes(Rtl::Outcome::repaired);
    std::printf(
        "\nrtl %u: %u passes; %ju reads: %ju of passes, %ju of findings, %ju of clients; %ju "
        "writes: "
        "%ju repairs, %ju of clients; %ju operations in lockstep: all accounted for\n",
        width, clerk_->passes, std::uintmax_t{ledger_.reads()},
        std::uintmax_t{clerk_->readsOfPasses()}, std::uintmax_t{clerk_->readsOfFindings},
        std::uintmax_t{clients}, std::uintmax_t{ledger_.writes()}, std::uintmax_t{repairs},
        std::uintmax_t{ledger_.writes() - repairs}, std::uintmax_t{chip_.operations()});
  }

 private:
  U32 random() { return static_cast<U32>(random_()); }

  void write(const Driver::ChipAccess::Ptr& access, U32 entry, U32 value) {
    access->write<U32>(entry, value);
    ledger_.enterWrite(SwitchDriver::firstWord(*access->chipMemory()) + entry, value);
  }
  U32 readLive(U32 word) {
    ledger_.enterRead(word);
    return driver_.live->read<U32>(word - Rtl::errorEntry);
  }

  // A turn of the patrol, in which no latch may be lost.
  void turn() {
    const Rtl::State before = chip_.state();
    driver_.clock->timeIs(driver_.clock->time() + step);
    driver_.activity->turn();
    const Rtl::State after = chip_.state();
    const U32 lost =
        before.registers[Rtl::interrupt] & ~after.registers[Rtl::interrupt] & Rtl::latches;
    if (lost != 0) failure_ = "the patrol has cleared a latch";
    ledger_.enterState(after);
  }

  // Writes a value that is new, or a command; reads a counter, which clears it.
  void useChip() {
    const U32 counter = Rtl::corrected + random() % 8;
    if (random() % 3 == 0) ledger_.enterCount(counter, readLive(counter));
    if (random() % 8 == 0) {
      write(driver_.live, Rtl::command - Rtl::errorEntry, random() % 256);
    }
    if (random() % 3 != 0) return;
    const std::array accesses = {driver_.configuration, driver_.ports, driver_.table};
    const auto& access = accesses[random() % 3];
    const U32 entry = random() % access->chipMemory()->entries();
    const U32 value = ledger_.known(SwitchDriver::firstWord(*access->chipMemory()) + entry).value;
    write(access, entry, value ^ 1u << random() % 31);
  }

  // Clears what is latched. The word that the chip cannot correct is written again.
  void serveInterrupt() {
    ledger_.enterRead(Rtl::interrupt);
    const U32 latched = driver_.interrupt->read<U32>(0) & Rtl::latches;
    if (latched == 0) return;
    write(driver_.interrupt, 0, ~Rtl::latches | latched);
    if ((latched & Rtl::latchUncorrectable) == 0) return;
    const U32 entry = readLive(Rtl::errorEntry);
    if (entry >= Rtl::tableWords) return;  // damaged, too
    driver_.shadow->openFindingIs(driver_.table->chipMemory(), entry, true);
    driver_.table->write<U32>(entry, driver_.table->read<U32>(entry));
    ledger_.enterRewrite(Rtl::registerCount + entry);
  }

  // Ends the audit with a whole pass; whether nothing was left to do in it.
  bool endPass() {
    for (const U32 passes = clerk_->passes; clerk_->passes < passes + 2 && failure().empty();) {
      turn();
    }
    if (!ledger_.isSettled()) return false;
    driver_.shadow->stateIs(Hardware::HardwareShadow::idle());
    return true;
  }

  Rtl::Lockstep& chip_;
  Rtl::Ledger ledger_;
  SwitchDriver driver_;
  Zint::Ptr<Clerk> clerk_;
  std::mt19937 random_;
  std::string failure_;
};

bool runBoth(const Options& options) {
  Rtl::RtlSwitch rtl(options.chip);
  Rtl::FakeSwitch fake;
  {
    Rtl::RtlSwitch other(options.chip);
    Rtl::FakeSwitch otherFake;
    Rtl::Lockstep both(other, otherFake);
    const std::string difference = runLockstep(both, options.operations, options.seed);
    if (!difference.empty()) {
      std::fprintf(stderr, "rtl %u: %s\n", width, difference.c_str());
      return false;
    }
    std::printf("rtl %u: %u operations in lockstep, no difference\n", width, options.operations);
    std::fflush(stdout);
  }
  Rtl::Lockstep both(rtl, fake);
  Laboratory laboratory(both, options.seed);
  if (laboratory.run(options.damages)) laboratory.account(rtl);
  if (laboratory.failure().empty()) return true;
  std::fprintf(stderr, "rtl %u: seed %u: %s\n", width, options.seed, laboratory.failure().c_str());
  return false;
}

bool parse(int count, char** arguments, Options& options) {
  if (count < 2 || count % 2 != 0) return false;
  options.chip = arguments[1];
  for (int i = 2; i < count; i += 2) {
    const std::string_view option = arguments[i], text = arguments[i + 1];
    U32* const value = option == "--operations" ? &options.operations
                       : option == "--damages"  ? &options.damages
                       : option == "--seed"     ? &options.seed
                                                : nullptr;
    if (value == nullptr) return false;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), *value);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) return false;
  }
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  Options options;
  if (!parse(count, arguments, options)) {
    std::fputs("usage: umbra-rtl-driver CHIP [--operations N] [--damages N] [--seed N]\n", stderr);
    return 2;
  }
  Silence silence;
  Zint::traceSinkIs(&silence);
  try {
    return runBoth(options) ? 0 : 1;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "rtl %u: %s\n", width, failure.what());
    return 1;
  }
}
