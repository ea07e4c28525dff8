// Trace: statements that are off, and records of the ring buffer.
#include <Hardware/Umbra.h>
#include <Mirl/Mirl.h>
#ifdef BENCH_SPDLOG
#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>
#endif

#include <algorithm>
#include <cstring>
#include <utility>

#include "Bench.h"

namespace Bench {
namespace {

constexpr U32 words = 1024;

struct Words {
  std::vector<U32> values = shuffled(words);
};

// One step of a checksum.
U32 mixed(U32 sum, U32 value) { return (sum ^ value) * 16777619u; }

template <class Record>
void recorded(benchmark::State& state, Record record) {
  const std::string name = "mac";
  U32 entry = 0;
  for (auto _ : state) {
    record(++entry, name);
    benchmark::ClobberMemory();
  }
}

void mirlRecord(U32 entry, const std::string& name) {
  static const Mirl::MsgDesc desc(Mirl::theTraceFile, "Difference found in entry %u of memory %s",
                                  __LINE__);
  Mirl::RingBuf::Msg msg = Mirl::RingBuf::startMsg(Mirl::theTraceFile, desc, 0);
  msg << entry << name;
  msg.endMsg();
}

// What no record can do without: the thread's ring, the time, and the bytes. Nobody can read it
// while it is written, there is one level, and what is overwritten is not known.
struct HandRing {
  U8 bytes[65536];
  U32 next = 0;
};
thread_local HandRing handRing;

void recordByHand(U32 entry, const std::string& name) {
  struct Header {
    U32 size, id;
    Zint::Seconds time;
  };
  const U32 length = static_cast<U32>(std::min<std::size_t>(name.size(), 1000));
  const Header header{static_cast<U32>(sizeof(Header) + sizeof entry + length), 1,
                      Zint::recordTime()};
  HandRing& ring = handRing;
  if (ring.next + header.size > sizeof ring.bytes) ring.next = 0;
  U8* to = ring.bytes + ring.next;
  std::memcpy(to, &header, sizeof header);
  std::memcpy(to + sizeof header, &entry, sizeof entry);
  std::memcpy(to + sizeof header + sizeof entry, name.data(), length);
  ring.next += header.size;
}

// Runs a benchmark's loop as the handler of a wake-up, where the turn's time does not change.
class InTurn : public Zint::Clock::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  void onTime() override { body(); }

  std::function<void()> body;
};

// An activity on the system's time. Its clock is the thread's as long as it exists.
struct MonotonicStand {
  Zint::Ptr<Zint::MonotonicClock> clock = Zint::monotonicClockFactory("clock");
  Zint::Ptr<Zint::ActivityConfig> activity =
      Zint::activityFactory("activity", Zint::Ptr<const Zint::Clock>(clock));
};

#ifdef BENCH_SPDLOG
Body spdlogRecord() {
  return [](benchmark::State& state) {
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_st>());
    recorded(state, [&logger](U32 entry, const std::string& name) {
      logger.info("Difference found in entry {} of memory {}", entry, name);
    });
  };
}
#endif

}  // namespace

void registerTraceBenches() {
  auto data = shared<Words>();
  const std::string row13 = "row13/trace statement that is off";
  side(row13, "ours", [data](benchmark::State& state) {
    const std::vector<U32>& values = data().values;
    for (auto _ : state) {
      U32 sum = 1;
      for (const U32 value : values) {
        sum = mixed(sum, value);
        UMBRA_TRACE(7, __LINE__, "value " << value << " of " << values.size());
      }
      opaque(sum);
    }
    partsOfIteration(state, words);
  });
  side(row13, "without it", [data](benchmark::State& state) {
    const std::vector<U32>& values = data().values;
    for (auto _ : state) {
      U32 sum = 1;
      for (const U32 value : values) sum = mixed(sum, value);
      opaque(sum);
    }
    partsOfIteration(state, words);
  });

  const std::pair<const char*, void (*)(U32, const std::string&)> records[] = {
      {"ours", mirlRecord}, {"a ring by hand", recordByHand}};
  for (const auto& [name, record] : records) {
    side("row14/Mirl record in a turn", name, [record](benchmark::State& state) {
      MonotonicStand stand;
      auto reactor =
          Zint::makePtr<InTurn>(stand.activity, Zint::Ptr<const Zint::Clock>(stand.clock));
      reactor->body = [&state, record] { recorded(state, record); };
      reactor->timeMinIs(0);
      require(stand.activity->turn() == 1, "the loop has run");
    });
    side("row14/Mirl record outside of turns", name, [record](benchmark::State& state) {
      MonotonicStand stand;
      recorded(state, record);
    });
  }
#ifdef BENCH_SPDLOG
  side("row14/Mirl record in a turn", "spdlog", spdlogRecord());
  side("row14/Mirl record outside of turns", "spdlog", spdlogRecord());
#endif
}

}  // namespace Bench
