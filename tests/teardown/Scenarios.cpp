#include "teardown/Scenarios.h"

namespace Teardown {
namespace {

using Act = std::function<void(Scene&)>;

// Lets go when it is done.
Step step(const char* name, const Act& act) {
  return {name, [act](Scene& scene, const Here& here) {
            act(scene);
            here();
          }};
}

// Lets go inside the library's next call of the client at that place, which `act` brings about.
Step inside(const char* name, Place place, const Act& act) {
  return {name, [place, act](Scene& scene, const Here& here) {
            scene.at(place, here);
            act(scene);
          }};
}

const Step made = step("made", [](Scene& s) { s.makeAll(); });
const Step registered = step("registered", [](Scene& s) { s.registerRegions(); });
const Step configured = step("configured", [](Scene& s) { s.configure(); });
const Step watched = step("watched", [](Scene& s) { s.addNotifiees(); });
const Step auditing =
    step("auditing", [](Scene& s) { s.shadow->stateIs(HardwareShadow::auditing()); });
const Step idle = step("idle", [](Scene& s) { s.shadow->stateIs(HardwareShadow::idle()); });
const Step unconfigured =
    step("unconfigured", [](Scene& s) { s.shadow->stateIs(HardwareShadow::unconfigured()); });
const Step turn = step("turn", [](Scene& s) { s.turn(); });
const Step turns = step("eight turns", [](Scene& s) { s.turn(8); });
const Step damaged = step("damaged", [](Scene& s) { s.chip[0x1004] = 0; });

void wakes(Scene& s) { s.turn(8); }

const Scenario setUp{
    "set-up",
    {made, registered,
     step("one written while unconfigured", [](Scene& s) { s.write(s.regions[0], 0, 1); }),
     configured,
     step("looked up", [](Scene& s) { s.shadow->findChipMemory(ChipAddress(0x100002004), 4); }),
     unconfigured, configured, watched}};

const Scenario dataPath{
    "data path",
    {made, registered, configured, watched,
     step("hits are skipped", [](Scene& s) { s.regions[0]->skipWriteIfMatchesCacheIs(true); }),
     inside("inside a count of hits", Place::Notifiee,
            [](Scene& s) {
              U32 values[] = {0xa1, 0xa2, 0};
              s.shadow->shadowWriteAndCompareWithCache(s.regions[0], 1,
                                                       reinterpret_cast<U8*>(values), 12);
            }),
     step("read",
          [](Scene& s) {
            s.regions[0]->readFromCacheIs(true);
            s.shadow->readFromCacheU32(ChipAddress(0x1008));
          }),
     step("buffered",
          [](Scene& s) {
            s.regions[0]->modeIs(ChipMemory::buffered());
            s.write(s.regions[0], 2, 7);
          }),
     inside("inside the write-back", Place::Write,
            [](Scene& s) { s.regions[0]->modeIs(ChipMemory::normal()); }),
     inside("inside a clearing", Place::Write,
            [](Scene& s) { s.regions[0]->doClearRange(0, 3, true); }),
     inside("inside a write-back of what is initialized", Place::Write,
            [](Scene& s) { s.regions[0]->writeback(true); })}};

const Scenario audit{"audit",
                     {made, registered, configured, watched, auditing, turn, turn, turn,
                      inside("inside a read", Place::Read, wakes), turn,
                      inside("inside a comparison", Place::Compare, wakes), turns}};

const Scenario repair{"repair",
                      {made, registered, configured, watched, auditing, turn, damaged,
                       inside("inside the repair", Place::Repair, wakes), damaged,
                       inside("inside the repair's write", Place::Write, wakes), turns}};

const Scenario stopped{"stopped in the middle",
                       {made, registered, configured, auditing, turn, turn, idle, auditing, turn,
                        turn, turn, unconfigured, configured, auditing, turns}};

const Scenario directory{
    "directory",
    {made, watched,
     inside("inside a making", Place::Notifiee,
            [](Scene& s) {
              s.directory->chipMemoryIs("four", ChipAddress(0x9000), 4, 4, 4, s.hams[0]);
            }),
     step("asked for again",
          [](Scene& s) {
            const ChipMemory::Ptr one = s.directory->chipMemory("one");
            s.directory->chipMemoryIs("one", one->address(), 4, 4, 4, one->chipHam());
          }),
     step("registered with the shadow",
          [](Scene& s) { s.shadow->chipMemoryIs(s.directory->chipMemory("two")); }),
     configured, auditing, turn,
     inside("inside a removal", Place::Notifiee,
            [](Scene& s) { s.directory->chipMemoryDel("two"); }),
     turns,
     inside("inside the removal of all", Place::Notifiee,
            [](Scene& s) { s.directory->chipMemoryDelAll(); }),
     inside("inside its end", Place::End, [](Scene& s) { s.directory = nullptr; }), turns}};

const Scenario iterators{"iterators",
                         {made,
                          registered,
                          configured,
                          step("all opened",
                               [](Scene& s) {
                                 s.registryIterator.emplace(s.shadow->chipMemoryIterator());
                                 s.requestIterator.emplace(s.request->chipMemoryIterator());
                                 s.directoryIterator.emplace(s.directory->chipMemoryIterator());
                               }),
                          step("all stepped",
                               [](Scene& s) {
                                 ++*s.registryIterator;
                                 ++*s.requestIterator;
                                 ++*s.directoryIterator;
                               }),
                          step("removed where they stand",
                               [](Scene& s) {
                                 s.request->chipMemoryDel((*s.requestIterator)->fwkKey());
                                 s.directoryIterator->del();
                                 s.shadow->removeOverrideOnlyChipMem();
                               }),
                          {"inside a loop over the directory",
                           [](Scene& s, const Here& here) {
                             bool let = false;
                             s.directoryIterator.emplace(s.directory->chipMemoryIterator());
                             while (s.directoryIterator && *s.directoryIterator) {
                               if (!std::exchange(let, true)) here();
                               if (s.directoryIterator) ++*s.directoryIterator;
                             }
                           }},
                          {"inside a loop over the registry",
                           [](Scene& s, const Here& here) {
                             bool let = false;
                             s.registryIterator.emplace(s.shadow->chipMemoryIterator());
                             while (s.registryIterator && *s.registryIterator) {
                               if (!std::exchange(let, true)) here();
                               if (s.registryIterator) ++*s.registryIterator;
                             }
                           }},
                          step("removed under them", [](Scene& s) {
                            s.registryIterator.emplace(s.shadow->chipMemoryIterator());
                            s.directoryIterator.emplace(s.directory->chipMemoryIterator());
                            s.shadow->chipMemoryDelAll();
                            s.directory->chipMemoryDelAll();
                          })}};

const Scenario byName{
    "by name",
    {made, registered, configured, watched,
     step("shadow", [](Scene& s) { s.adapter.emplace(s.shadow); }),
     step("its regions", [](Scene& s) { s.list.emplace(s.adapter->list("chipMemory")); }),
     step("found", [](Scene& s) { s.list->find("4096"); }),
     inside("inside a set by name", Place::Notifiee,
            [](Scene& s) { Zint::GenericIf_(*s.adapter).attributeIs("state", "'auditing'"); }),
     turn,
     inside("inside a call by name", Place::Write,
            [](Scene& s) {
              s.adapter.emplace(s.regions[0]);
              Zint::GenericIf_(*s.adapter).call("writeback", {{"initializedOnly", "false"}});
            }),
     step("directory",
          [](Scene& s) {
            s.adapter.emplace(s.directory);
            s.list.emplace(s.adapter->list("chipMemory"));
          }),
     inside("inside a removal by name", Place::Notifiee,
            [](Scene& s) { Zint::GenericIf_(*s.adapter).list("chipMemory").del("'one'"); }),
     step("bulk removal by name",
          [](Scene& s) {
            s.adapter.emplace(s.shadow);
            s.adapter->call("chipMemoryDelAll", {});
          }),
     turns}};

const Scenario waiting{
    "waiting request",
    {made,
     step("made, with a reader",
          [](Scene& s) {
            s.waitingRequest = Zint::makePtr<Request>("dump");
            s.waitingReader = Zint::makePtr<Reader>(s.activity, s.waitingRequest,
                                                    Zint::Ptr<const Zint::Clock>(s.clock), 3u, 0.5);
            s.waitingReader->hasNotificationActiveIs(true);
          }),
     step("filled",
          [](Scene& s) {
            s.waitingRequest->chipMemoryIs(s.regions[0]);
            s.waitingRequest->chipMemoryIs(s.regions[1]);
          }),
     step("started", [](Scene& s) { s.waitingRequest->stateIs(Request::start_); }), turn, turn,
     inside("inside a read", Place::Read, wakes),
     step("started again", [](Scene& s) { s.waitingRequest->stateIs(Request::start_); }), turn,
     registered, configured, auditing, turn, turn,
     step("both stopped",
          [](Scene& s) {
            s.waitingRequest->stateIs(Request::stop_);
            s.shadow->stateIs(HardwareShadow::idle());
          }),
     step("the reader's request replaced", [](Scene& s) { s.waitingReader->requestIs(s.request); }),
     auditing, turns}};

const Scenario notifiees{
    "notifiees",
    {made, registered, configured, watched,
     inside("inside one of a region", Place::Notifiee,
            [](Scene& s) { s.regions[1]->modeIs(ChipMemory::buffered()); }),
     inside("inside one of the shadow", Place::Notifiee,
            [](Scene& s) { s.shadow->overrideHardwareIs(true); }),
     inside("inside one of the registry", Place::Notifiee,
            [](Scene& s) { s.shadow->chipMemoryDel(ChipAddress(0x200003000)); }),
     inside("inside one of the request", Place::Notifiee,
            [](Scene& s) { s.request->generationIs(77); }),
     inside("inside one of the request's regions", Place::Notifiee,
            [](Scene& s) { s.request->chipMemoryDel(ChipAddress(0x1000)); }),
     inside("inside one of the reader", Place::Notifiee,
            [](Scene& s) { s.reader->maxEntriesPerReadIs(5); }),
     inside("inside a wake-up", Place::Time, wakes),
     step("overriding ends", [](Scene& s) { s.shadow->overrideHardwareIs(false); }),
     inside("inside one of the state", Place::Notifiee,
            [](Scene& s) { s.shadow->stateIs(HardwareShadow::auditing()); }),
     inside("inside one of a pass", Place::Notifiee, wakes),
     inside("inside the emptying of the request", Place::Notifiee,
            [](Scene& s) { s.shadow->stateIs(HardwareShadow::unconfigured()); })}};

const Scenario index{
    "index",
    {made, registered, configured,
     step("chunk held", [](Scene& s) { s.chunk = s.shadow->chipMemoryChunkArray(1); }),
     step("last region", [](Scene& s) { s.shadow->findChipMemory(ChipAddress(0x100002000), 4); }),
     unconfigured, configured,
     step("another chunk held", [](Scene& s) { s.chunk = s.shadow->chipMemoryChunk(2); }),
     step("chunks deleted by hand", [](Scene& s) { s.shadow->chipMemoryChunkDelAll(); }),
     step("index deleted by hand", [](Scene& s) {
       s.shadow->nextIndexIs(0);
       s.shadow->chipMemoryChunkArrayDelAll();
       s.shadow->chipMemoryIdDelAll();
     })}};

const Scenario overrideOnly{
    "override only",
    {made, registered, configured,
     step("found", [](Scene& s) { s.shadow->findChipMemory(ChipAddress(0x200003000), 4); }),
     step("removed", [](Scene& s) { s.shadow->removeOverrideOnlyChipMem(); }),
     step("more in override mode", [](Scene& s) { s.regions[0]->modeIs(ChipMemory::override()); }),
     step("removed, too", [](Scene& s) { s.shadow->removeOverrideOnlyChipMem(); }), watched,
     unconfigured, step("registered again", [](Scene& s) { s.shadow->chipMemoryIs(s.regions[2]); }),
     configured}};

const Scenario loops{
    "clocks and activities",
    {made, registered, configured, watched, auditing,
     step("another activity",
          [](Scene& s) {
            s.activity =
                Zint::makePtr<Activity>("another", Zint::ValidPtr<const Zint::Clock>(s.clock));
            s.shadow->zintFwkActivityIs(s.activity);
          }),
     turn, step("the reader follows", [](Scene& s) { s.reader->zintFwkActivityIs(s.activity); }),
     turn, turn, step("the reader's clock goes", [](Scene& s) { s.reader->clockDel(); }), turn,
     step("and comes back",
          [](Scene& s) { s.reader->clockIs(Zint::Ptr<const Zint::Clock>(s.clock)); }),
     step("the shadow's clock goes", [](Scene& s) { s.shadow->clockDel(); }), turns,
     step("switched off", [](Scene& s) { s.shadow->hasNotificationActiveIs(false); }), turn,
     step("and on", [](Scene& s) { s.shadow->hasNotificationActiveIs(true); }), turns}};

const Scenario retired{
    "retired",
    {made, registered, configured, watched, auditing, turn,
     step("the shadow is marked", [](Scene& s) { s.shadow->zintDoZombieReactors(true); }), turns,
     step("and unmarked", [](Scene& s) { s.shadow->zintDoZombieReactors(false); }),
     step("the reader is marked", [](Scene& s) { s.reader->zintDoZombieReactors(true); }), turns,
     step("the request is taken away", [](Scene& s) { s.reader->requestDel(); }),
     step("the answer is given by hand", [](Scene& s) { s.request->statusIs(Request::done_); }),
     idle, step("the shadow's request goes", [](Scene& s) { s.shadow->auditReadRequestDel(); })}};

}  // namespace

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = {setUp,     dataPath,     audit,  repair,  stopped,
                                            directory, iterators,    byName, waiting, notifiees,
                                            index,     overrideOnly, loops,  retired};
  return all;
}

}  // namespace Teardown
