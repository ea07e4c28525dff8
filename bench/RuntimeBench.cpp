// The runtime: notifiees, counted pointers and collections.
#include <Zint/LinkQueue.h>
#include <Zint/RbTreeMap.h>
#include <algorithm>
#include <deque>
#include <map>
#include <unordered_map>
#include <unordered_set>
#ifdef BENCH_BOOST
#include <boost/signals2.hpp>
#include <boost/signals2/dummy_mutex.hpp>
#include <boost/signals2/signal_type.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#endif
#ifdef BENCH_SIGC
#include <sigc++/sigc++.h>
#endif

#include "Bench.h"

namespace Bench {
namespace {

// --- Notifiees -----------------------------------------------------------------------------------

class Watch : public Hardware::ChipMemory::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onRegistersFixed() override { ++told; }

  S64 told = 0;
};

struct WatchedStand : Stand {
  explicit WatchedStand(U32 notifiees) {
    region = regionIs(Hardware::ChipAddress(0, 0), 16, 4, plainHam());
    for (U32 i = 0; i < notifiees; ++i) {
      watches.push_back(Zint::makePtr<Watch>(activity, region));
    }
  }

  Hardware::ChipMemory::Ptr region;
  std::vector<Zint::Ptr<Watch>> watches;
};

// What a user would write with a signal library: a value that is announced when it changes.
template <class Signal>
struct Announced {
  void valueIs(U32 newValue) {
    if (value == newValue) return;
    value = newValue;
    changed(newValue);
  }

  U32 value = 0;
  Signal changed;
};

// `Slot` makes what the signal connects from a counter.
template <class Signal, class Slot>
Body emission(U32 slots, Slot slot) {
  return [slots, slot](benchmark::State& state) {
    Announced<Signal> attribute;
    std::vector<S64> told(slots);
    for (S64& count : told) attribute.changed.connect(slot(&count));
    U32 value = 0;
    for (auto _ : state) {
      attribute.valueIs(++value);
      benchmark::ClobberMemory();
    }
    require(told.front() == state.iterations() && told.back() == told.front(), "all were told");
  };
}

void registerNotification(const std::string& comparison, U32 notifiees) {
  side(comparison, "ours", [notifiees](benchmark::State& state) {
    WatchedStand stand(notifiees);
    Hardware::ChipMemory& region = *stand.region;
    U32 value = 0;
    for (auto _ : state) {
      region.registersFixedIs(++value);
      benchmark::ClobberMemory();
    }
    const S64 told = stand.watches.front()->told;
    require(told == state.iterations() && stand.watches.back()->told == told, "all were told");
  });
  // What each notifiee is owed, without the list: held, asked, guarded, and two virtual calls.
  side(comparison, "a loop over held notifiees", [notifiees](benchmark::State& state) {
    WatchedStand stand(notifiees);
    const auto announce = [&stand] {
      for (std::size_t i = 0; i < stand.watches.size(); ++i) {
        const Zint::Ptr<Watch> held = stand.watches[i];
        held->runGuarded(Hardware::ChipMemory::Id::registersFixed,
                         [&] { held->handleNotification(stand.activity.ptr()); });
      }
    };
    for (auto _ : state) {
      announce();
      benchmark::ClobberMemory();
    }
    require(stand.watches.back()->told == state.iterations(), "all were told");
  });
#ifdef BENCH_SIGC
  side(comparison, "sigc++", emission<sigc::signal<void(U32)>>(notifiees, [](S64* count) {
         return [count](U32) { ++*count; };
       }));
#endif
#ifdef BENCH_BOOST
  side(comparison, "boost::signals2",
       emission<boost::signals2::signal<void(U32)>>(
           notifiees, [](S64* count) { return [count](U32) { ++*count; }; }));
  // For one thread, as ours is.
  using boost::signals2::keywords::mutex_type;
  side(comparison, "boost::signals2 without locks",
       emission<
           boost::signals2::signal_type<void(U32), mutex_type<boost::signals2::dummy_mutex>>::type>(
           notifiees, [](S64* count) { return [count](U32) { ++*count; }; }));
#endif
}

// --- Counted pointers ----------------------------------------------------------------------------

// As many objects as are walked over in one iteration.
constexpr U32 pointed = 64;

class Counted : public Zint::PtrInterface {};

// The same shape with a count of its own.
struct PeerCounted {
  virtual ~PeerCounted() = default;
  mutable std::size_t references = 0;
};
[[maybe_unused]] void intrusive_ptr_add_ref(const PeerCounted* object) { ++object->references; }
[[maybe_unused]] void intrusive_ptr_release(const PeerCounted* object) {
  if (--object->references == 0) delete object;
}

template <class P>
void copiedAndDropped(benchmark::State& state, const std::vector<P>& pointers) {
  for (auto _ : state) {
    for (const P& pointer : pointers) {
      P copy(pointer);
      opaque(copy);
    }
  }
  partsOfIteration(state, pointers.size());
}

void registerPointers() {
  const std::string row11 = "row11/copy and drop a counted pointer";
  side(row11, "ours", [](benchmark::State& state) {
    std::vector<Zint::Ptr<Counted>> pointers;
    for (U32 i = 0; i < pointed; ++i) pointers.push_back(Zint::makePtr<Counted>());
    copiedAndDropped(state, pointers);
  });
#ifdef BENCH_BOOST
  side(row11, "boost::intrusive_ptr", [](benchmark::State& state) {
    std::vector<boost::intrusive_ptr<PeerCounted>> pointers;
    for (U32 i = 0; i < pointed; ++i) pointers.emplace_back(new PeerCounted);
    copiedAndDropped(state, pointers);
  });
#endif
}

// --- Collections ---------------------------------------------------------------------------------

class Member : public Zint::PtrInterface,
               public Zint::HashMapLink<Member>,
               public Zint::LinkQueueLink<Member, U32> {
 public:
  explicit Member(U32 key) : key_(key) {}
  const U32& fwkKey() const { return key_; }

 private:
  const U32 key_;
};

using MemberPtr = Zint::Ptr<Member>;

// Distinct keys of one kind. Addresses are multiples of a page: what a chip's map really holds.
enum class Keys { random, ascending, of4KiB, of64KiB };

U32 keyOf(Keys keys, U32 i, std::mt19937& random) {
  switch (keys) {
    case Keys::random:
      return static_cast<U32>(random());
    case Keys::ascending:
      return i;
    case Keys::of4KiB:
      return i * 4096;
    case Keys::of64KiB:
      return i * 65536;
  }
  return 0;
}

// Members with distinct keys, in random order; and what is asked for: keys of members, or (absent)
// keys of none.
struct MemberStand {
  explicit MemberStand(U32 count, Keys keys = Keys::random, bool absent = false) {
    std::mt19937 random = randomNumbers();
    std::unordered_set<U32> used;
    std::vector<U32> all;
    const U32 wantedKeys = absent ? 2 * count : count;
    for (U32 i = 0; all.size() < wantedKeys; ++i) {
      const U32 key = keyOf(keys, i, random);
      if (used.insert(key).second) all.push_back(key);
    }
    std::shuffle(all.begin(), all.end(), random);
    for (U32 i = 0; i < count; ++i) members.push_back(Zint::makePtr<Member>(all[i]));
    for (U32& key : wanted) key = all[(absent ? count : 0) + random() % count];
  }
  U32 size() const { return static_cast<U32>(members.size()); }

  std::vector<MemberPtr> members;
  std::vector<U32> wanted = std::vector<U32>(randoms);
};

// A collection of all those members, filled once.
template <class Map>
struct Filled {
  template <class Source>
  explicit Filled(Source stand) {
    for (const MemberPtr& member : stand().members) {
      if constexpr (requires { map.insert(member); }) {
        map.insert(member);
      } else {
        map.emplace(member->fwkKey(), member);
      }
    }
  }

  Map map;
};

template <class Find>
void lookUp(benchmark::State& state, const MemberStand& stand, Find find) {
  const bool absent = find(stand.wanted[0]) == nullptr;
  for (const U32 key : stand.wanted) {
    const Member* member = find(key);
    require(absent ? member == nullptr : member != nullptr && member->fwkKey() == key,
            "the answer is right");
  }
  usedInBlocks(state, stand.wanted, [&find](U32 key) {
    const Member* member = find(key);
    benchmark::DoNotOptimize(member);
  });
}

struct ReversedHash {
  std::size_t operator()(U32 key) const { return Zint::reversedBits(key); }
};

template <class Hash, class Source>
void registerPeer(const std::string& comparison, const char* name, Source stand) {
  auto peer = shared<Filled<std::unordered_map<U32, MemberPtr, Hash>>>(stand);
  side(comparison, name, [stand, peer](benchmark::State& state) {
    const auto& map = peer().map;
    lookUp(state, stand(), [&map](U32 key) {
      const auto place = map.find(key);
      return place == map.end() ? nullptr : place->second.ptr();
    });
  });
}

template <class Source>
void registerFind(const std::string& comparison, Source stand) {
  auto ours = shared<Filled<Zint::HashMap<Member, U32>>>(stand);
  side(comparison, "ours", [stand, ours](benchmark::State& state) {
    const auto& map = ours().map;
    lookUp(state, stand(), [&map](U32 key) { return map.find(key); });
  });
  registerPeer<std::hash<U32>>(comparison, "std::unordered_map", stand);
  // The order of ours follows from the reversed bits of the hash, which each look-up computes.
  registerPeer<ReversedHash>(comparison, "std::unordered_map, reversed hash", stand);
}

// Addresses of one register in many chips: of one hash, because that is the low word's.
class AddressMember : public Zint::PtrInterface, public Zint::HashMapLink<AddressMember> {
 public:
  explicit AddressMember(U32 chip) : key_(chip, 0x1000) {}
  const Hardware::ChipAddress& fwkKey() const { return key_; }

 private:
  const Hardware::ChipAddress key_;
};

void registerOneHash() {
  constexpr U32 count = 1000;
  const std::string comparison = "row12/HashMap find, 1,000 keys of one hash";
  const auto wantedKeys = [] {
    std::mt19937 random = randomNumbers();
    std::vector<Hardware::ChipAddress> wanted;
    for (std::size_t i = 0; i < randoms; ++i) wanted.emplace_back(random() % count, 0x1000);
    return wanted;
  };
  side(comparison, "ours", [wantedKeys](benchmark::State& state) {
    Zint::HashMap<AddressMember, Hardware::ChipAddress> map;
    for (const U32 chip : shuffled(count)) map.insert(Zint::makePtr<AddressMember>(chip));
    usedInBlocks(state, wantedKeys(), [&map](const Hardware::ChipAddress& key) {
      const AddressMember* member = map.find(key);
      benchmark::DoNotOptimize(member);
    });
    require(map.find({count, 0x1000}) == nullptr && map.find({7, 0x1000}) != nullptr, "found");
  });
  side(comparison, "std::map", [wantedKeys](benchmark::State& state) {
    std::map<Hardware::ChipAddress, Zint::Ptr<AddressMember>> map;
    for (const U32 chip : shuffled(count)) {
      auto member = Zint::makePtr<AddressMember>(chip);
      map.emplace(member->fwkKey(), member);
    }
    usedInBlocks(state, wantedKeys(), [&map](const Hardware::ChipAddress& key) {
      const auto place = map.find(key);
      benchmark::DoNotOptimize(place);
    });
  });
}

// Small collections are filled many at a time, so that what is not measured does not count.
template <class Map, class Insert>
void inserted(benchmark::State& state, const MemberStand& stand, Insert insert) {
  const U32 maps = 1 + 4096 / stand.size();
  for (auto _ : state) {
    state.PauseTiming();
    auto batch = std::make_unique<Map[]>(maps);
    state.ResumeTiming();
    for (U32 i = 0; i < maps; ++i) {
      for (const MemberPtr& member : stand.members) insert(batch[i], member);
    }
    benchmark::ClobberMemory();
    state.PauseTiming();
    require(batch[maps - 1].size() == stand.size(), "all members were inserted");
    batch.reset();
    state.ResumeTiming();
  }
  partsOfIteration(state, std::size_t{maps} * stand.size());
}

template <class Source>
void registerTree(const std::string& many, Source stand) {
  using Ours = Zint::RbTreeMap<Member, U32>;
  using Peer = std::map<U32, MemberPtr>;
  side("row12/RbTreeMap insert, " + many, "ours", [stand](benchmark::State& state) {
    inserted<Ours>(state, stand(), [](Ours& map, const MemberPtr& member) { map.insert(member); });
  });
  side("row12/RbTreeMap insert, " + many, "std::map", [stand](benchmark::State& state) {
    inserted<Peer>(state, stand(), [](Peer& map, const MemberPtr& member) {
      map.emplace(member->fwkKey(), member);
    });
  });

  auto ours = shared<Filled<Ours>>(stand);
  auto peer = shared<Filled<Peer>>(stand);
  side("row12/RbTreeMap walk, " + many, "ours", [ours](benchmark::State& state) {
    const Ours& map = ours().map;
    for (auto _ : state) {
      U32 sum = 0;
      for (auto member = map.iterator(); member; ++member) sum += member->fwkKey();
      opaque(sum);
    }
    partsOfIteration(state, map.size());
  });
  side("row12/RbTreeMap walk, " + many, "std::map", [peer](benchmark::State& state) {
    const Peer& map = peer().map;
    for (auto _ : state) {
      U32 sum = 0;
      for (const auto& [key, member] : map) sum += member->fwkKey();
      opaque(sum);
    }
    partsOfIteration(state, map.size());
  });
}

// All members in, then all of them out.
template <class Source>
void registerQueue(const std::string& comparison, Source stand) {
  side(comparison, "ours", [stand](benchmark::State& state) {
    Zint::LinkQueue<Member, U32> queue;
    const MemberStand& s = stand();
    for (auto _ : state) {
      for (const MemberPtr& member : s.members) queue.enq(member);
      while (queue.size() != 0) {
        MemberPtr member = queue.deq();
        opaque(member);
      }
    }
    partsOfIteration(state, s.size());
  });
  side(comparison, "std::deque", [stand](benchmark::State& state) {
    std::deque<MemberPtr> queue;
    const MemberStand& s = stand();
    for (auto _ : state) {
      for (const MemberPtr& member : s.members) queue.push_back(member);
      while (!queue.empty()) {
        MemberPtr member = std::move(queue.front());
        queue.pop_front();
        opaque(member);
      }
    }
    partsOfIteration(state, s.size());
  });
}

}  // namespace

void registerRuntimeBenches() {
  registerNotification("row10/attribute with 1 notifiee", 1);
  registerNotification("row10/attribute with 8 notifiees", 8);
  registerPointers();

  const std::pair<U32, const char*> sizes[] = {
      {10, "10"}, {1000, "1,000"}, {100000, "100,000"}, {1000000, "1,000,000"}};
  const std::pair<Keys, const char*> kinds[] = {{Keys::random, "random keys"},
                                                {Keys::ascending, "ascending keys"},
                                                {Keys::of4KiB, "multiples of 4 KiB"},
                                                {Keys::of64KiB, "multiples of 64 KiB"}};
  for (const auto& [count, many] : sizes) {
    for (const auto& [keys, kind] : kinds) {
      // 2^32 bytes hold as many: of both kinds when none is absent.
      if (keys == Keys::of64KiB && count > 32768) continue;
      if (keys == Keys::of4KiB && count > 500000) continue;
      const std::string what = std::string("row12/HashMap find, ") + many + ", " + kind;
      registerFind(what, shared<MemberStand>(count, keys, false));
      registerFind(what + ", absent", shared<MemberStand>(count, keys, true));
    }
    auto stand = shared<MemberStand>(count);
    registerTree(many, stand);
    registerQueue(std::string("row12/LinkQueue pass, ") + many, stand);
  }

  registerOneHash();

  for (U32 notifiees = 1; notifiees <= 256; notifiees *= 4) {
    registerNotification("curve/notifiees-set/" + std::to_string(notifiees), notifiees);
  }
}

}  // namespace Bench
