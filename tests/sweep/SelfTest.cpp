// The sweep's own checks: each is met by a scenario that breaks what it watches over.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>

#include "Steps.h"
#include "Sweep.h"

namespace {

using Sweep::ChipMemory;
using Sweep::Outcome;
using Sweep::Plan;
using Sweep::Reach;
using Sweep::Scenario;
using Sweep::Step;
using Sweep::Thrown;
using Sweep::World;
namespace Memory = Sweep::Memory;

Scenario with(const Step& step) { return {"broken on purpose", Sweep::Steps::onWorld({step})}; }

Plan accessFails(Thrown thrown) {
  Plan plan;
  plan.access = 1;
  plan.thrown = thrown;
  return plan;
}

// Plays the scenario with nothing failing and with its first access failing.
std::string wrongWhenAccessFails(const Scenario& scenario, Thrown thrown = Thrown::range) {
  EXPECT_EQ(Sweep::play(scenario, {}).wrong, "");
  return Sweep::play(scenario, accessFails(thrown)).wrong;
}

// What the first wrong refusal of a block leads to; "" when none does.
std::string wrongWhenRefused(const Scenario& scenario, Memory::Refusal refusal) {
  Plan plan;
  const std::string clean = Sweep::play(scenario, plan).image;
  plan.refusal = refusal;
  for (plan.block = 1;; ++plan.block) {
    const Outcome outcome = Sweep::play(scenario, plan);
    if (!outcome.wrong.empty()) return outcome.wrong;
    if (!outcome.failed) return "";
    if (outcome.image != clean) return "another end";
  }
}

void written(World& w, U32 value) {
  w.a->chipHam()->doWrite(w.a->address(), reinterpret_cast<U8*>(&value), 4, 1);
}

// --- Checks of a run ----------------------------------------------------------------------------

TEST(SweepSelf, soundStepPasses) {
  const Scenario sound = with({"sound", [](World& w) {
                                 written(w, 1);
                                 return true;
                               }});
  for (const Thrown thrown : {Thrown::range, Thrown::memory, Thrown::number}) {
    EXPECT_EQ(wrongWhenAccessFails(sound, thrown), "");
  }
  EXPECT_EQ(wrongWhenRefused(sound, Memory::Refusal::once), "");
  EXPECT_EQ(wrongWhenRefused(sound, Memory::Refusal::fromThenOn), "");
}

TEST(SweepSelf, leakedBlockIsSeen) {
  static int* leaked = nullptr;  // freed in the end: a sanitizer looks for leaks as well
  const Scenario leaks = with({"leaks",
                               [](World& w) {
                                 leaked = new int(1);
                                 written(w, 1);
                                 delete leaked;
                                 return true;
                               },
                               [](World& w) {
                                 written(w, 1);
                                 return true;
                               }});
  EXPECT_EQ(wrongWhenAccessFails(leaks).find("1 blocks leak, the first is number "), 0u);
  delete leaked;
}

TEST(SweepSelf, leakedZeroedBlockIsSeen) {
  static void* kept = nullptr;
  const Scenario leaks = with({"leaks",
                               [](World& w) {
                                 kept = std::calloc(3, 5);
                                 written(w, 1);
                                 std::free(kept);
                                 return true;
                               },
                               [](World& w) {
                                 written(w, 1);
                                 return true;
                               }});
  EXPECT_EQ(wrongWhenAccessFails(leaks).find("1 blocks leak"), 0u);
  std::free(kept);
}

TEST(SweepSelf, objectThatIsKeptAliveIsSeen) {
  static ChipMemory::Ptr kept;
  const Scenario keeps = with({"keeps",
                               [](World& w) {
                                 kept = w.a;
                                 written(w, 1);
                                 kept = nullptr;
                                 return true;
                               },
                               [](World& w) {
                                 written(w, 1);
                                 return true;
                               }});
  EXPECT_NE(wrongWhenAccessFails(keeps).find("blocks leak"), std::string::npos);
  kept = nullptr;
}

TEST(SweepSelf, halfChangedStoreIsSeen) {
  EXPECT_EQ(wrongWhenAccessFails(with({"half",
                                       [](World& w) {
                                         const Hal::BufBase::Ptr dirty = w.a->dirty();
                                         w.a->dirtyIs(nullptr);
                                         written(w, 1);
                                         w.a->dirtyIs(dirty);
                                         return true;
                                       }})),
            "half: the first region, of many entries: a part of the store is missing");
}

TEST(SweepSelf, halfChangedStoreForLackOfMemoryIsSeen) {
  EXPECT_EQ(wrongWhenRefused(with({"half",
                                   [](World& w) {
                                     w.a->shadowIs(Zint::makePtr<Hal::Buf>(4u));
                                     w.a->shadowIs(Zint::makePtr<Hal::Buf>(80u));
                                     return true;
                                   }}),
                             Memory::Refusal::once),
            "half: the first region, of many entries: a store of another size");
}

TEST(SweepSelf, exceptionThatIsSwallowedIsSeen) {
  EXPECT_EQ(wrongWhenAccessFails(with({"swallows",
                                       [](World& w) {
                                         try {
                                           written(w, 1);
                                         } catch (...) {
                                         }
                                         return true;
                                       }})),
            "swallows: the exception did not reach the caller");
}

TEST(SweepSelf, exceptionThatLeavesAHandlerIsSeen) {
  const Step step{"handler",
                  [](World& w) {
                    written(w, 1);
                    return true;
                  },
                  nullptr, Reach::handler};
  EXPECT_EQ(wrongWhenAccessFails(with(step)), "handler: an exception left a handler, or was lost");
}

TEST(SweepSelf, exceptionThatIsNotTracedIsSeen) {
  const Step step{"handler",
                  [](World& w) {
                    try {
                      written(w, 1);
                    } catch (...) {
                      return false;
                    }
                    return true;
                  },
                  nullptr, Reach::handler};
  EXPECT_EQ(wrongWhenAccessFails(with(step)),
            "handler: the exception in a handler was not traced once");
}

TEST(SweepSelf, exceptionThatTurnsIntoAnotherIsSeen) {
  EXPECT_EQ(wrongWhenAccessFails(with({"turns",
                                       [](World& w) {
                                         try {
                                           written(w, 1);
                                         } catch (...) {
                                           throw 1.5;
                                         }
                                         return true;
                                       }})),
            "turns: another exception than the one that was thrown");
}

TEST(SweepSelf, stepThatCannotBeTakenUpAgainIsSeen) {
  EXPECT_EQ(wrongWhenAccessFails(with({"once",
                                       [](World& w) {
                                         if (std::exchange(w.answer, 1) != 0) return false;
                                         written(w, 1);
                                         return true;
                                       }})),
            "once: could not be taken up again");
}

TEST(SweepSelf, anotherEndIsSeen) {
  const Scenario counts = with({"counts", [](World& w) {
                                  ++w.chip->words[9];
                                  written(w, 1);
                                  return true;
                                }});
  const Outcome clean = Sweep::play(counts, {});
  const Outcome failed = Sweep::play(counts, accessFails(Thrown::number));
  EXPECT_EQ(failed.wrong, "");
  EXPECT_NE(failed.image, clean.image);
}

TEST(SweepSelf, failureThatIsNeverMetIsSaid) {
  Plan plan = accessFails(Thrown::range);
  plan.access = 2;
  const Outcome outcome = Sweep::play(with({"one access",
                                            [](World& w) {
                                              written(w, 1);
                                              return true;
                                            }}),
                                      plan);
  EXPECT_FALSE(outcome.failed);
  EXPECT_EQ(outcome.accesses, 1u);
}

// --- The account of memory ----------------------------------------------------------------------

struct Form {
  const char* name;
  std::function<void*()> obtained;  // null or an exception when refused
  std::function<void(void*)> freed;
};

std::vector<Form> forms() {
  constexpr std::align_val_t wide{64};
  return {
      {"new", [] { return operator new(8); }, [](void* b) { operator delete(b); }},
#ifdef __cpp_sized_deallocation
      {"sized delete", [] { return operator new(8); }, [](void* b) { operator delete(b, 8u); }},
#endif
      {"new[]", [] { return operator new[](8); }, [](void* b) { operator delete[](b); }},
      {"nothrow", [] { return operator new(8, std::nothrow); },
       [](void* b) { operator delete(b, std::nothrow); }},
      {"nothrow[]", [] { return operator new[](8, std::nothrow); },
       [](void* b) { operator delete[](b, std::nothrow); }},
      {"aligned", [] { return operator new(8, wide); }, [](void* b) { operator delete(b, wide); }},
      {"aligned[]", [] { return operator new[](8, wide); },
       [](void* b) { operator delete[](b, wide); }},
      {"aligned nothrow", [] { return operator new(8, wide, std::nothrow); },
       [](void* b) { operator delete(b, wide, std::nothrow); }},
      {"aligned nothrow[]", [] { return operator new[](8, wide, std::nothrow); },
       [](void* b) { operator delete[](b, wide, std::nothrow); }},
      {"calloc", [] { return std::calloc(2, 4); }, [](void* b) { std::free(b); }},
  };
}

// Counted as the library's own requests are.
void* obtained(const Form& form) {
  const Memory::Counting counting;
  try {
    return form.obtained();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

TEST(SweepSelf, everyFormOfAllocationIsCountedAndFreed) {
  for (const Form& form : forms()) {
    Memory::begin(Memory::Refusal::none, 0);
    void* block = obtained(form);
    ASSERT_NE(block, nullptr) << form.name;
    EXPECT_EQ(Memory::blocksAsked(), 1u) << form.name;
    EXPECT_EQ(Memory::blocksLive(), 1u) << form.name;
    EXPECT_EQ(Memory::firstLive(), 1u) << form.name;
    form.freed(block);
    EXPECT_EQ(Memory::blocksLive(), 0u) << form.name;
    EXPECT_FALSE(Memory::refused()) << form.name;
  }
}

TEST(SweepSelf, everyFormOfAllocationIsRefused) {
  for (const Form& form : forms()) {
    Memory::begin(Memory::Refusal::once, 2);
    void* first = obtained(form);
    EXPECT_NE(first, nullptr) << form.name;
    EXPECT_EQ(obtained(form), nullptr) << form.name;
    EXPECT_TRUE(Memory::refused()) << form.name;
    void* third = obtained(form);
    EXPECT_NE(third, nullptr) << form.name;
    form.freed(first);
    form.freed(third);

    Memory::begin(Memory::Refusal::fromThenOn, 1);
    EXPECT_EQ(obtained(form), nullptr) << form.name;
    EXPECT_EQ(obtained(form), nullptr) << form.name;
    Memory::endRefusal();
    void* last = obtained(form);
    EXPECT_NE(last, nullptr) << form.name;
    form.freed(last);
    EXPECT_EQ(Memory::blocksLive(), 0u) << form.name;
  }
}

TEST(SweepSelf, zeroedBlockIsZeroedAndItsSizeDoesNotWrap) {
  Memory::begin(Memory::Refusal::none, 0);
  auto* block = static_cast<U8*>(obtained({"calloc", [] { return std::calloc(5, 7); }, {}}));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::count(block, block + 35, 0), 35);
  std::free(block);
  volatile std::size_t half = ~std::size_t{0} / 2 + 1;
  EXPECT_EQ(obtained({"calloc", [&] { return std::calloc(half, 2); }, {}}), nullptr);
}

TEST(SweepSelf, buffersOfTheLibraryAreInTheAccount) {
  Memory::begin(Memory::Refusal::none, 0);
  Hal::Buf::Ptr buffer;
  {
    const Memory::Counting counting;
    buffer = Zint::makePtr<Hal::Buf>(100u);
  }
  EXPECT_EQ(Memory::blocksAsked(), 2u);  // the object and its bytes
  EXPECT_EQ(Memory::blocksLive(), 2u);
  buffer = nullptr;
  EXPECT_EQ(Memory::blocksLive(), 0u);
}

}  // namespace
