// Images compared under a policy, as the patrol compares them: under masks, and with runs of
// entries left out.
#include <Driver/Policy.h>

#include <cstring>

#include "Bench.h"

namespace Bench {
namespace {

constexpr U32 mebi = 1024 * 1024;

// Two images of about 1 MiB under a policy. What is masked or left out differs wherever it may.
struct PolicyStand {
  PolicyStand(U32 size, std::function<void(PolicyStand&)> apply)
      : entrySize(size),
        entries(mebi / size),
        shadow(std::size_t{entries} * size),
        hardware(shadow.size()),
        policy(Driver::policyFactory(Hardware::chipMemoryFactory("table", Hardware::ChipAddress(0),
                                                                 entries, size, size, nullptr))) {
    std::mt19937 numbers = randomNumbers();
    for (U8& byte : shadow) byte = static_cast<U8>(numbers());
    apply(*this);
    for (U32 e = 0; e < entries; ++e) {
      const U8* mask = policy->mask(e);
      for (U32 i = 0; i < entrySize; ++i) {
        const std::size_t at = std::size_t{e} * entrySize + i;
        const U8 free = !Driver::isCompared(policy->rule(e)) ? 0xff : mask == nullptr ? 0 : mask[i];
        hardware[at] = static_cast<U8>(shadow[at] ^ free);
      }
    }
  }

  const U32 entrySize;
  const U32 entries;
  std::vector<U8> shadow;
  std::vector<U8> hardware;
  Driver::Policy::Ptr policy;
};

void maskOfEachEntry(PolicyStand& stand) {
  std::vector<U8> mask(stand.entrySize);
  mask.front() = 0x0f;
  mask.back() = static_cast<U8>(mask.back() | 0x80);
  stand.policy->maskIs(mask, Driver::Rewrite::kept);
}

// Leaves out one entry in each `period`.
auto holes(U32 period) {
  return [period](PolicyStand& stand) {
    for (U32 e = 0; e < stand.entries; e += period) {
      stand.policy->ruleIs(e, 1, Driver::Rule::noRead);
    }
  };
}

// The same on the average, in no order.
auto scatteredHoles(U32 period) {
  return [period](PolicyStand& stand) {
    std::mt19937 numbers = randomNumbers();
    for (U32 e = 0; e < stand.entries; e += 1 + static_cast<U32>(numbers()) % (2 * period - 1)) {
      stand.policy->ruleIs(e, 1, Driver::Rule::noRead);
    }
  };
}

void comparison(const std::string& name, U32 entrySize, std::function<void(PolicyStand&)> apply) {
  auto stand = shared<PolicyStand>(entrySize, std::move(apply));
  side(name, "ours", [stand](benchmark::State& state) {
    PolicyStand& s = stand();
    for (auto _ : state) {
      U32 different = s.policy->differentEntry(s.shadow.data(), s.hardware.data(), 0, s.entries);
      opaque(different);
      require(different == s.entries, "only what is not compared differs");
    }
  });
  side(name, "memcmp", [stand](benchmark::State& state) {
    PolicyStand& s = stand();
    const U8* shadow = s.shadow.data();
    const std::vector<U8> copy = s.shadow;
    for (auto _ : state) {
      opaque(shadow);
      int difference = std::memcmp(shadow, copy.data(), copy.size());
      opaque(difference);
      require(difference == 0, "the images are equal");
    }
  });
}

}  // namespace

void registerPolicyBenches() {
  for (const U32 size :
       {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 32u, 64u, 100u}) {
    comparison("row27/masked comparison, " + std::to_string(size) + "-byte entries", size,
               maskOfEachEntry);
  }
  for (const U32 size : {4u, 8u, 16u}) {
    const std::string bytes = std::to_string(size) + "-byte entries";
    comparison("row28/runs of 100 entries, " + bytes, size, holes(101));
    comparison("row28/masked runs of 100 entries, " + bytes, size, [](PolicyStand& stand) {
      maskOfEachEntry(stand);
      holes(101)(stand);
    });
  }
  for (const U32 period : {2u, 4u, 16u}) {
    const std::string one = "one entry of " + std::to_string(period) + " left out";
    comparison("row29/" + one, 4, holes(period));
    comparison("row29/" + one + ", scattered", 4, scatteredHoles(period));
  }
}

}  // namespace Bench
