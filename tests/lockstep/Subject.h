// The library behind the operations of Model::System: the same calls on integer handles, the same
// errors, the same logs. One shadow, one directory, one chip, and one reader at a time.
#pragma once

#include <Hardware/ChipMemoryBogon.h>
#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>
#include <Zint/Assert.h>
#include <Zint/Trace.h>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/ManualLoop.h"
#include "support/model/Model.h"

namespace Lockstep {

using Model::Bytes;

// Access methods, by handle: the same ones in each scenario, on both sides.
enum Method : int { generic, sparse, refusing, comparing, copying, unreachable, methods };
constexpr U32 sparseStride = 32;

// Faults that may be planted into the library's surroundings, to see that they are found.
enum class Plant {
  none,
  lastByteNotCompared,  // by the comparing method
  cacheByteLost,        // the copying method stores a 0x5a as 0x5b
  registerWriteLost,    // a value whose low byte is 0x77 does not reach the chip
};

class Registers;

class Subject : private Zint::TraceSink {
 public:
  explicit Subject(Plant plant = Plant::none);
  ~Subject() override;
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;

  // The text of a method in messages.
  std::string methodText(int method) const;

  // --- The operations, as in the model. Handles of shadow, chip and directory are ignored.
  void chipPoke(int, U64 address, U32 value);
  void chipFailIn(int, U64 n);
  U32 chipPeek(int, U64 address) const;
  void refuseWriteToCacheIs(int method, bool refuse);
  void refuseReadFromCacheIs(int method, bool refuse);
  void refuseReadToCacheIs(int method, bool refuse);
  void methodRead(int method, U64 address, U8* buffer, U32 entrySize, U32 entries);
  void methodWrite(int method, U64 address, const U8* buffer, U32 entrySize, U32 entries);

  int regionCreate(const std::string& name, U64 address, U32 entries, U32 entrySize, U32 stride,
                   int method);
  void entriesIs(int region, U32 entries) { at(region)->entriesIs(entries); }
  void indirectCmdRegAddrIs(int region, U32 address) { at(region)->indirectCmdRegAddrIs(address); }
  void shadowEnabledIs(int region, bool enabled) { at(region)->shadowEnabledIs(enabled); }
  void auditEnabledIs(int region, bool enabled) { at(region)->auditEnabledIs(enabled); }
  void modeIs(int region, Model::Mode mode) {
    at(region)->modeIs(static_cast<Hardware::ChipMemory::ChipMemoryMode>(mode));
  }
  void readFromCacheIs(int region, bool enabled) { at(region)->readFromCacheIs(enabled); }
  void skipWriteIfMatchesCacheIs(int region, bool on) { at(region)->skipWriteIfMatchesCacheIs(on); }
  void allowsLogicalViewsIs(int region, bool allows) { at(region)->allowsLogicalViewsIs(allows); }
  void doClear(int region) { at(region)->doClear(); }
  void doClearRange(int region, U32 start, U32 end, bool writeThrough) {
    at(region)->doClearRange(start, end, writeThrough);
  }
  void writeback(int region, bool initializedOnly) { at(region)->writeback(initializedOnly); }
  bool inRange(int region, U64 address) const;
  U32 entryIndexFromAddress(int region, U64 address) const;
  bool entryInitialized(int region, U32 entry) const { return at(region)->entryInitialized(entry); }
  void entryInitializedIs(int region, U32 entry) { at(region)->entryInitializedIs(entry); }
  void entryInitializedDel(int region, U32 entry) { at(region)->entryInitializedDel(entry); }
  void hardwareDel(int region) { at(region)->hardwareIs(nullptr); }
  void shadowDel(int region) { at(region)->shadowIs(nullptr); }
  void initializedDel(int region) { at(region)->initializedIs(nullptr); }
  void dirtyDel(int region) { at(region)->dirtyIs(nullptr); }

  void chipMemoryIs(int, int region) { shadow_->chipMemoryIs(at(region)); }
  int chipMemoryDel(int, U64 address) {
    return handleOf(shadow_->chipMemoryDel(Hardware::ChipAddress(address)).ptr());
  }
  void chipMemoryDelAll(int) { shadow_->chipMemoryDelAll(); }
  void removeOverrideOnlyChipMem(int) { shadow_->removeOverrideOnlyChipMem(); }
  int findChipMemory(int, U64 address, U32 size) {
    return handleOf(shadow_->findChipMemory(Hardware::ChipAddress(address), size).ptr());
  }
  void lastChipMemoryIs(int, int region) { shadow_->lastChipMemoryIs(at(region)); }

  bool shadowWriteAndCompareWithCache(int, int region, U32 entry, const U8* data, U32 size);
  void shadowWriteHack(int, U64 address, const U8* data, U32 size);
  void shadowWriteU32(int, U64 address, U32 value) {
    shadow_->shadowWriteU32(Hardware::ChipAddress(address), value);
  }
  bool readFromCache(int, int region, U32 entry, U8* data, U32 size) {
    return shadow_->readFromCache(at(region), entry, data, size);
  }
  bool readFromCacheHack(int, U64 address, U8* data, U32 size) {
    return shadow_->readFromCacheHack(Hardware::ChipAddress(address), data, size);
  }
  U32 readFromCacheU32(int, U64 address) {
    return shadow_->readFromCacheU32(Hardware::ChipAddress(address));
  }

  void stateIs(int, Model::State state) {
    shadow_->stateIs(static_cast<Hardware::HardwareShadow::State>(state));
  }
  void overrideHardwareIs(int, bool on) { shadow_->overrideHardwareIs(on); }
  void minIntervalBetweenAuditsIs(int, double s) { shadow_->minIntervalBetweenAuditsIs(s); }
  void auditReadRequestIs(int, int request);
  void chipMemoryAuditEnabledIs(int, int region, bool on) {
    shadow_->chipMemoryAuditEnabledIs(at(region), on);
  }
  void doStartAudit(int) { shadow_->doStartAudit(); }
  void handleAuditReadRequestStatus(int) { shadow_->handleAuditReadRequestStatus(); }
  void doAuditChips(int) { shadow_->doAuditChips(); }
  void doFixBadRegister(int, int region, U32 entry, const U8* data);

  int requestCreate(const std::string& name);
  void requestChipMemoryIs(int request, int region) {
    requests_[index(request)]->chipMemoryIs(at(region));
  }
  int requestChipMemoryDel(int request, U64 address) {
    return handleOf(requests_[index(request)]->chipMemoryDel(Hardware::ChipAddress(address)).ptr());
  }
  void requestChipMemoryDelAll(int request) { requests_[index(request)]->chipMemoryDelAll(); }
  void requestStateIs(int request, U32 state) {
    requests_[index(request)]->stateIs(static_cast<Zint::Request::State>(state));
  }
  void requestStatusIs(int request, U32 status) {
    requests_[index(request)]->statusIs(static_cast<Zint::Request::Status>(status));
  }

  int readerCreate(int request, U32 maxEntriesPerRead, double readInterval);
  void readerDestroy(int) { reader_ = nullptr; }
  void readerRequestIs(int, int request) { reader_->requestIs(requests_[index(request)]); }
  void maxEntriesPerReadIs(int, U32 entries) { reader_->maxEntriesPerReadIs(entries); }
  void readIntervalIs(int, double seconds) { reader_->readIntervalIs(seconds); }
  void readerHandleReadRequest(int) { reader_->handleReadRequest(); }
  void readerDoRead(int) { reader_->doRead(); }

  int directoryChipMemoryIs(int, const std::string& name, U64 address, U32 entries, U32 entrySize,
                            U32 stride, int method);
  int directoryChipMemoryDel(int, const std::string& name) {
    return handleOf(directory_->chipMemoryDel(name).ptr());
  }
  void directoryChipMemoryDelAll(int) { directory_->chipMemoryDelAll(); }

  void timeIs(double seconds) { loop_.clock->timeIs(seconds); }
  int runTurn() { return static_cast<int>(loop_.turn()); }
  void traceLevelIs(int level);
  void reactionIs(const Model::Reaction& reaction) { reaction_ = reaction; }
  // Logs a notification of one of the client's notifiees, which then reacts.
  void recordNotification(Model::Notification notification);

  // The request that the shadow uses is given a handle, and an observer, when the shadow has made
  // it; the handle, or none when nothing is new.
  int adoptRequest();

  // --- Observation.
  const Hardware::ChipMemory::Ptr& region(int handle) const { return regions_[index(handle)]; }
  const Hardware::ChipReadRequest::Ptr& request(int handle) const {
    return requests_[index(handle)];
  }
  const Hardware::HardwareShadow& shadow() const { return *shadow_; }
  const Hardware::ChipReader& reader() const { return *reader_; }
  const Hardware::ChipMemoryBogon& directory() const { return *directory_; }
  double wakeTime() const { return loop_.activity->wakeTime(); }
  const std::unordered_map<U32, U32>& registers() const;

  // The logs since they were last cleared.
  struct Line {
    U32 level;
    std::string text, context, source, function;
    int line;
  };
  std::vector<Line>& trace() { return trace_; }
  std::vector<Model::Access>& accesses();
  std::vector<Model::Notification>& notifications() { return notifications_; }
  U32 guarded() const { return guarded_; }  // exceptions that the runtime reported, ever

  // The first assertion that failed: an operation that met one is over, and so is this subject.
  struct Failure {
    std::string condition, source, function, detail;
    int line;
  };
  const std::optional<Failure>& failure() const { return failure_; }

 private:
  static std::size_t index(int handle) { return static_cast<std::size_t>(handle); }
  const Hardware::ChipMemory::Ptr& at(int region) const {
    return region == Model::none ? noRegion_ : regions_[index(region)];
  }
  int handleOf(const Hardware::ChipMemory* region) const;
  void observe(const Hardware::ChipReadRequest::Ptr& request);
  void traceLine(const Zint::TraceLine& line) override;
  static void assertionHook(const Zint::AssertionFailure& failure);

  Zint::TraceSink* sinkBefore_;
  Zint::AssertionHook hookBefore_;
  std::vector<Line> trace_;
  std::vector<Model::Notification> notifications_;
  std::optional<Model::Reaction> reaction_;
  U32 guarded_ = 0;
  std::optional<Failure> failure_;
  std::vector<U8> scratch_;

  Support::ManualLoop loop_;
  Zint::Ptr<Registers> registers_;
  std::vector<Hardware::ChipHam::Ptr> methods_;
  const Hardware::ChipMemory::Ptr noRegion_;
  std::vector<Hardware::ChipMemory::Ptr> regions_;
  std::vector<Hardware::ChipReadRequest::Ptr> requests_;
  Zint::Ptr<Hardware::ChipMemoryBogon> directory_;
  Hardware::HardwareShadow::Ptr shadow_;
  Hardware::ChipReader::Ptr reader_;
  std::vector<Zint::Ptr<Zint::NotifieeConst>> observers_;
};

}  // namespace Lockstep
