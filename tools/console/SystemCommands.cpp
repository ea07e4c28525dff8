// Commands for the system as it runs: changes, trace, chip and time.
#include <Zint/Strep.h>

#include "tools/console/Commands.h"
#include "tools/console/Library.h"
#include "tools/console/Session.h"
#include "tools/console/Values.h"

namespace Console {
namespace {

// A number from a word; `what` names it in the Error.
template <class T>
T number(const std::string& what, const std::string& word) {
  try {
    return Zint::strepToValue<T>(word);
  } catch (const Zint::RangeException& cause) {
    throw Error(what + ": " + cause.what());
  }
}

U32 registerAddress(const Session& session, const std::string& command, const std::string& word) {
  // Of an address with a chip memory id only the offset is a register's.
  const auto address = static_cast<U32>(word.find(':') == std::string::npos
                                            ? number<U32>(command, word)
                                            : number<U64>(command, integerText(word)));
  const U32 size = session.world().chipSize;
  if (address % 4 != 0 || address >= size) {
    throw Error(Zint::format("%s: no register at 0x%x; they are at multiples of 4 below 0x%x",
                             command.c_str(), address, size)
                    .bytes());
  }
  return address;
}

constexpr Zint::Seconds patience = 10;  // that a pass may take from the end of the one before

void waitForPasses(Session& session, U32 passes) {
  const World& world = session.world();
  if (world.passes.empty()) throw Error("wait: no audit passes are counted here");
  const Place place = session.names().at(world.passes);
  Zint::ActivityConfig& activity = *world.activity;
  U32 ended = 0;
  const auto counter =
      changeNotifiee(world.activity, Zint::GenericIf_::of(place.owner), place.member->name, [&] {
        ++ended;
        activity.stop();
      });
  while (ended < passes) {
    const U32 before = ended;
    const Zint::Seconds end = activity.clock()->time() + patience;
    activity.runUntil(end);
    if (ended != before) continue;
    counter->hasNotificationActiveIs(false);
    if (activity.clock()->time() < end) throw Error("wait: interrupted");
    throw Error(Zint::format("wait: no audit pass ended within %g seconds", patience).bytes());
  }
  counter->hasNotificationActiveIs(false);
}

}  // namespace

void doWatch(Session& session, const Words& arguments) {
  if (arguments.empty()) {
    for (const std::string& path : session.watches().paths()) session.out() << path << "\n";
    return;
  }
  const Place place = session.names().at(arguments[0]);
  requireAttribute(place);
  const Zint::GenericIf_ owner = Zint::GenericIf_::of(place.owner);
  if (!session.watches().watch(place.name(), owner, place.member->name)) {
    throw Error(place.name() + " is watched already");
  }
}

void doUnwatch(Session& session, const Words& arguments) {
  if (arguments.empty()) return session.watches().unwatchAll();
  const std::string path = textOf(session.names().absolute(arguments[0]));
  if (!session.watches().unwatch(path)) {
    throw Error(path + " is not watched" + didYouMean(path, session.watches().paths()));
  }
}

void doTrace(Session& session, const Words& arguments) {
  const std::string name = arguments.size() > 1 ? arguments[1] : session.world().traceHandle;
  Zint::TraceHandle* handle = Zint::TraceHandle::find(name);
  if (handle == nullptr) {
    throw Error("no trace handle " + name +
                didYouMean(name, {session.world().traceHandle, Zint::zintTrace().name()}));
  }
  if (arguments[0] == "off") return session.trace().off(*handle);
  const U32 level = number<U32>("trace", arguments[0]);
  if (level >= Zint::traceLevels) throw Error("trace: levels are 0 to 9");
  session.trace().levelIs(*handle, level);
}

void doPeek(Session& session, const Words& arguments) {
  const U32 address = registerAddress(session, "peek", arguments[0]);
  session.out() << Zint::format("0x%08x", session.world().peek(address)) << "\n";
}

void doPoke(Session& session, const Words& arguments) {
  const U32 address = registerAddress(session, "poke", arguments[0]);
  session.world().poke(address, number<U32>("poke", arguments[1]));
}

void doFault(Session& session, const Words& arguments) {
  const World& world = session.world();
  const std::string& what = arguments[0];
  if (!world.absentIs || !world.reset || !world.stuckBitsAre) {
    throw Error("fault: nothing befalls this chip");
  }
  if (arguments.size() != (what == "stuck" ? 3u : 1u)) {
    throw Error(std::string("usage: fault ") + commandNamed("fault").arguments);
  }
  if (what == "absent" || what == "present") {
    world.absentIs(what == "absent");
  } else if (what == "reset") {
    world.reset();
  } else if (what == "stuck") {
    const U32 address = registerAddress(session, "fault", arguments[1]);
    world.stuckBitsAre(address, number<U32>("fault", arguments[2]));
  } else if (what == "free") {
    world.stuckBitsAre(0, 0);
  } else {
    throw Error("fault: no fault " + what +
                didYouMean(what, {"absent", "present", "reset", "stuck", "free"}));
  }
}

void doCheck(Session& session, const Words&) {
  if (!session.world().check) throw Error("check: nothing can be checked here");
  const std::vector<std::string> complaints = session.world().check();
  for (const std::string& complaint : complaints) session.out() << complaint << "\n";
  if (complaints.empty()) session.out() << "nothing is wrong\n";
}

void doFindings(Session& session, const Words& arguments) {
  if (!session.world().findings) throw Error("findings: there is no patrol here");
  const U32 most = arguments.empty() ? 10 : number<U32>("findings", arguments[0]);
  for (const std::string& line : session.world().findings(most)) session.out() << line << "\n";
}

void doWait(Session& session, const Words& arguments) {
  Zint::ActivityConfig& activity = *session.world().activity;
  // Takes back a stop that came while nothing ran.
  activity.runUntil(activity.clock()->time());
  if (arguments.size() == 2) {
    if (arguments[1] != "passes" && arguments[1] != "pass") {
      throw Error("wait: " + arguments[1] + " is no unit" + didYouMean(arguments[1], {"passes"}));
    }
    return waitForPasses(session, number<U32>("wait", arguments[0]));
  }
  constexpr double day = 86400;
  const auto seconds = number<double>("wait", arguments[0]);
  if (!(seconds >= 0 && seconds <= day)) throw Error("wait: between 0 and 86400 seconds");
  const Zint::Seconds end = activity.clock()->time() + seconds;
  activity.runUntil(end);
  if (activity.clock()->time() < end) throw Error("wait: interrupted");
}

}  // namespace Console
