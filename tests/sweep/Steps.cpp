#include "Steps.h"

namespace Sweep::Steps {
namespace {

// Names too long to be held without memory.
const std::vector<Step> makingOfTheWorld = {
    {"the clock",
     [](World& w) {
       return made(w.clock, [] { return Zint::manualClockFactory("the clock of the sweep"); });
     }},
    {"the activity",
     [](World& w) {
       return made(w.activity, [&] {
         return Zint::activityFactory("the activity of the sweep",
                                      Zint::Ptr<const Zint::Clock>(w.clock));
       });
     }},
    {"the access methods",
     [](World& w) {
       made(w.ham, [&] {
         return ChipHam::Ptr(
             Hardware::genericChipHamFactory("the access method of the sweep", w.chip));
       });
       return made(w.derived, [&] {
         return ChipHam::Ptr(Zint::makePtr<SevenBitHam>("the derived access method", w.chip));
       });
     }},
    {"the regions",
     [](World& w) {
       made(w.a, [&] {
         return Hardware::chipMemoryFactory("the first region, of many entries", ChipAddress(0, 0),
                                            20, 4, 4, w.ham);
       });
       made(w.b, [&] {
         return Hardware::chipMemoryFactory("the second region, of wide entries",
                                            ChipAddress(0, 0x100), 9, 8, 8, w.ham);
       });
       return made(w.c, [&] {
         return Hardware::chipMemoryFactory("the third region, of another layout",
                                            ChipAddress(0, 0x200), 6, 4, 4, w.derived);
       });
     }},
    {"the regions' attributes",
     [](World& w) {
       for (const ChipMemory::Ptr& cm : {w.a, w.b, w.c}) {
         w.shadowed(cm);
         cm->auditEnabledIs(true);
         cm->readFromCacheIs(true);
       }
       w.a->skipWriteIfMatchesCacheIs(true);
       w.c->skipWriteIfMatchesCacheIs(true);
       return true;
     }},
    {"the shadow",
     [](World& w) {
       return made(w.shadow, [&] { return Hardware::hardwareShadowFactory(w.activity, w.clock); });
     }},
    {"the registration",
     [](World& w) {
       w.shadow->minIntervalBetweenAuditsIs(1.0);
       for (const ChipMemory::Ptr& cm : {w.a, w.b, w.c}) w.shadow->chipMemoryIs(cm);
       return true;
     }},
    {"the configuration", [](World& w) { return w.configured(); }},
    {"the reader",
     [](World& w) {
       return made(w.reader, [&] {
         return Hardware::chipReaderFactory(w.activity, w.shadow->auditReadRequest(), w.clock, 7,
                                            0.001);
       });
     }},
};

U32 fixed(const World& w) {
  return w.a->registersFixed() + w.b->registersFixed() + w.c->registersFixed();
}

}  // namespace

std::vector<Step> onWorld(const std::vector<Step>& steps) {
  std::vector<Step> all = makingOfTheWorld;
  all.insert(all.end(), steps.begin(), steps.end());
  return all;
}

bool audit(World& w) {
  const U32 before = w.shadow->audits();
  w.fixedBefore = fixed(w);
  w.shadow->stateIs(HardwareShadow::auditing());
  w.run([&] { return w.shadow->audits() != before; });
  return w.shadow->audits() == before + 1;
}

bool auditAgain(World& w) {
  w.shadow->stateIs(HardwareShadow::idle());
  return audit(w);
}

void expectAuditStopped(World& w, U32) {
  EXPECT_EQ(w.shadow->state(), HardwareShadow::auditing());
  EXPECT_EQ(w.activity->wakeTime(), Zint::never);
  if (const ChipMemory::Ptr current = w.reader->currentChipMemory(); current != nullptr) {
    // A slice failed: the reader is where it was before the chunk, and nothing is reported.
    EXPECT_LT(w.reader->entriesRead(), current->entries());
    EXPECT_EQ(fixed(w), w.fixedBefore);
  } else {
    // The comparison or a repair failed, which is counted before the access.
    EXPECT_EQ(w.shadow->auditReadRequest()->status(), ChipReadRequest::done_);
    EXPECT_GE(fixed(w), w.fixedBefore);
  }
}

bool idle(World& w) {
  w.shadow->stateIs(HardwareShadow::idle());
  EXPECT_EQ(w.reader->currentChipMemory(), nullptr);
  EXPECT_EQ(w.reader->chipMemorys(), 0u);
  return true;
}

}  // namespace Sweep::Steps
