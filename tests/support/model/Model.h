// An independent model of the library's rules, written without its headers: the same operations
// on plain standard containers, to be run in lockstep with the library and compared after every
// step.
//
//   Model::System model;
//   int chip = model.chipCreate();
//   int ham = model.genericMethodCreate("ham", chip);
//   int table = model.regionCreate("table", 0x1000, 16, 4, 4, ham);
//   model.shadowEnabledIs(table, true);
//   int shadow = model.shadowCreate();
//   model.chipMemoryIs(shadow, table);
//   model.stateIs(shadow, Model::State::configured);
//   bool skip = model.shadowWriteAndCompareWithCache(shadow, table, 0, data, 4);
//
// A rule whose breach ends the process is thrown as Fatal, bad input as RangeError or NameInUse,
// a failing register access as AccessFailed. Where a handler lets AccessFailed out, the guard
// around handlers swallows it and notes it in guarded().
#ifndef TESTS_MODEL_MODEL_H_
#define TESTS_MODEL_MODEL_H_

#include <string>
#include <vector>

#include "ModelData.h"

namespace Model {

class System {
 public:
  // --- Chips and access methods.
  int chipCreate();
  u32 chipPeek(int chip, u64 address) const;
  void chipPoke(int chip, u64 address, u32 value);
  // The n-th access from now (1: the next) throws, once, and is neither done nor logged; 0: none.
  void chipFailIn(int chip, u64 n);

  int baseMethodCreate(const std::string& name);
  int genericMethodCreate(const std::string& name, int chip);
  int sparseMethodCreate(const std::string& name, int chip, u32 stride);
  void methodTextIs(int method, const std::string& text);
  void refuseWriteToCacheIs(int method, bool refuse);
  void refuseReadFromCacheIs(int method, bool refuse);
  void refuseReadToCacheIs(int method, bool refuse);
  void methodRead(int method, u64 address, u8* buffer, u32 entrySize, u32 entries);
  void methodWrite(int method, u64 address, const u8* buffer, u32 entrySize, u32 entries);

  // --- Regions.
  int regionCreate(const std::string& name, u64 address, u32 entries, u32 entrySize, u32 stride,
                   int method);
  void entriesIs(int region, u32 entries);
  void indirectCmdRegAddrIs(int region, u32 address);
  void shadowEnabledIs(int region, bool enabled);
  void auditEnabledIs(int region, bool enabled);
  void modeIs(int region, Mode mode);
  void readFromCacheIs(int region, bool enabled);
  void skipWriteIfMatchesCacheIs(int region, bool enabled);
  void allowsLogicalViewsIs(int region, bool enabled);
  void doClear(int region);
  void doClearRange(int region, u32 startIndex, u32 endIndex, bool writeThrough);
  void writeback(int region, bool initializedOnly);
  bool inRange(int region, u64 address) const;
  u32 entryIndexFromAddress(int region, u64 address) const;
  bool entryInitialized(int region, u32 entry) const;
  void entryInitializedIs(int region, u32 entry);
  void entryInitializedDel(int region, u32 entry);
  // As a null pointer set from outside would.
  void hardwareDel(int region);
  void shadowDel(int region);
  void initializedDel(int region);
  void dirtyDel(int region);

  // --- Shadows: registry and lookup.
  int shadowCreate();
  void shadowDestroy(int shadow);
  void chipMemoryIs(int shadow, int region);   // region may be none: RangeError
  int chipMemoryDel(int shadow, u64 address);  // the removed region, or none
  void chipMemoryDelAll(int shadow);
  void removeOverrideOnlyChipMem(int shadow);
  int findChipMemory(int shadow, u64 address, u32 size);
  void lastChipMemoryIs(int shadow, int region);
  void indexClear(int shadow);  // the index alone; the last region found is kept

  // --- Shadows: write and read path. The region may be none.
  bool shadowWriteAndCompareWithCache(int shadow, int region, u32 entry, const u8* data, u32 size);
  void shadowWriteHack(int shadow, u64 address, const u8* data, u32 size);
  void shadowWriteU32(int shadow, u64 address, u32 value);
  bool readFromCache(int shadow, int region, u32 entry, u8* data, u32 size);
  bool readFromCacheHack(int shadow, u64 address, u8* data, u32 size);
  u32 readFromCacheU32(int shadow, u64 address);

  // --- Shadows: states and audit. A state that is set within the notification of another one, or
  // within its action, is acted on after it.
  void stateIs(int shadow, State state);
  void overrideHardwareIs(int shadow, bool overrideHardware);
  void minIntervalBetweenAuditsIs(int shadow, double seconds);
  void auditReadRequestIs(int shadow, int request);
  void chipMemoryAuditEnabledIs(int shadow, int region, bool enabled);
  void doStartAudit(int shadow);
  void handleAuditReadRequestStatus(int shadow);
  void doAuditChips(int shadow);
  void doFixBadRegister(int shadow, int region, u32 entry, const u8* data);

  // --- Read requests.
  int requestCreate(const std::string& name);
  void requestChipMemoryIs(int request, int region);  // region may be none: RangeError
  int requestChipMemoryDel(int request, u64 address);
  void requestChipMemoryDelAll(int request);
  int requestChipMemory(int request, u64 address) const;
  void requestStateIs(int request, u32 state);
  void requestStatusIs(int request, u32 status);

  // --- Readers.
  int readerCreate(int request, u32 maxEntriesPerRead, double readInterval);
  void readerDestroy(int reader);
  void readerRequestIs(int reader, int request);
  void maxEntriesPerReadIs(int reader, u32 entries);
  void readIntervalIs(int reader, double seconds);
  void readerHandleReadRequest(int reader);
  void readerDoRead(int reader);

  // --- Directories. The order of removal by directoryChipMemoryDelAll and directoryDestroy
  // hangs on the library's string hash: compare those announcements as a set.
  int directoryCreate();
  void directoryDestroy(int directory);
  int directoryChipMemoryIs(int directory, const std::string& name, u64 address, u32 entries,
                            u32 entrySize, u32 stride, int method);
  int directoryChipMemoryDel(int directory, const std::string& name);
  void directoryChipMemoryDelAll(int directory);
  int directoryChipMemory(int directory, const std::string& name) const;

  // --- Clock. Time does not move within a turn; a turn runs the alarms that were due when it
  // began, by due time and then by the order of arming, and each fires once.
  void timeIs(double seconds) { now_ = seconds; }
  double now() const { return now_; }
  int runTurn();              // how many alarms fired
  double nextWakeUp() const;  // the earliest due time as armed (0.0: next turn), never if none
  std::vector<double> pendingDueTimes() const;  // ascending

  // --- Observation.
  const Chip& chip(int handle) const { return chips_.at(handle); }
  const Region& region(int handle) const { return regions_.at(handle); }
  const Shadow& shadow(int handle) const { return shadows_.at(handle); }
  const Request& request(int handle) const { return requests_.at(handle); }
  const Reader& reader(int handle) const { return readers_.at(handle); }
  const Directory& directory(int handle) const { return directories_.at(handle); }
  const AccessMethod& method(int handle) const { return methods_.at(handle); }
  int regions() const { return static_cast<int>(regions_.size()); }

  // Lines above this level are neither built nor kept; -1 keeps none. Records are always kept.
  void traceLevelIs(int level) { traceLevel_ = level; }
  void logAccessesIs(bool log) { logAccesses_ = log; }
  void logNotificationsIs(bool log) { logNotifications_ = log; }
  // From now on, on the first shadow.
  void reactionIs(const Reaction& reaction) { reaction_ = reaction; }
  // The logs, oldest first; the caller may drain them at any time.
  std::vector<TraceLine>& trace() { return trace_; }
  std::vector<Record>& records() { return records_; }
  std::vector<Access>& accesses() { return accesses_; }
  std::vector<Notification>& notifications() { return notifications_; }
  std::vector<Guarded>& guarded() { return guarded_; }
  const std::vector<Guarded>& guarded() const { return guarded_; }

 private:
  bool tracing(int level) const { return level <= traceLevel_; }
  void trace(int level, const char* function, int line, std::string text, const char* context = "");
  void record(int level, std::vector<u32> values, std::vector<std::string> texts);
  void notify(Notification::Kind kind, int owner, u64 key, const std::string& name = {});

  u32 registerRead(int chip, u32 address);
  void registerWrite(int chip, u32 address, u32 value);
  void countAccess(int chip);
  u32 entryStep(const AccessMethod& method, u32 entrySize) const;

  void handleShadowStoreNeeded(Region& region);
  void handleAuditEnabled(Region& region);
  void handleMode(int region);

  void handleChipMemory(Shadow& shadow, u64 address);
  void handleState(int shadow, State state);
  void handleConfigured(int shadow);
  void auditRegion(int shadow, int region);
  void reportDifference(const Region& region, u32 entry);

  template <typename Handler>
  void runGuarded(Actor actor, int handle, const char* name, Handler handler);
  void notifyObservers(int request, bool status);
  void observe(int request, Observer observer);
  void unobserve(int request, Observer observer);

  void readerHandleTimeout(int reader);
  int readerDeq(Reader& reader);

  void arm(Alarm& alarm, double due);
  Alarm& alarmOf(Observer owner);

  std::vector<Chip> chips_;
  std::vector<AccessMethod> methods_;
  std::vector<Region> regions_;
  std::vector<Shadow> shadows_;
  std::vector<Request> requests_;
  std::vector<Reader> readers_;
  std::vector<Directory> directories_;

  double now_ = 0.0;
  u64 armings_ = 0;

  int traceLevel_ = 9;
  bool logAccesses_ = true;
  bool logNotifications_ = true;
  std::optional<Reaction> reaction_;
  std::vector<TraceLine> trace_;
  std::vector<Record> records_;
  std::vector<Access> accesses_;
  std::vector<Notification> notifications_;
  std::vector<Guarded> guarded_;
};

// Helpers of the model's own sources.
inline bool bitAt(const Bytes& bitmap, u32 entry) { return (bitmap[entry / 8] >> (entry % 8)) & 1; }
inline void setBit(Bytes& bitmap, u32 entry) {
  bitmap[entry / 8] = static_cast<u8>(bitmap[entry / 8] | (1u << (entry % 8)));
}
inline void clearBit(Bytes& bitmap, u32 entry) {
  bitmap[entry / 8] = static_cast<u8>(bitmap[entry / 8] & ~(1u << (entry % 8)));
}

// A rule whose text the library quotes.
inline void require(bool holds, const char* condition, const char* function, int line = 0) {
  if (!holds) throw Fatal{condition, function, line, false};
}
// Undefined territory that the library guards in its own words.
inline void guard(bool holds, const char* what) {
  if (!holds) throw Fatal{what, "", 0, true};
}

}  // namespace Model

#endif  // TESTS_MODEL_MODEL_H_
