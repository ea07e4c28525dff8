#include "lockstep/Subject.h"

#include <Fru/HamImpl.h>
#include <Hardware/GenericChipHam.h>
#include <Hardware/Umbra.h>
#include <Zint/ObjectText.h>
#include <platform/SparseChipHam.h>

#include <cstring>
#include <utility>

namespace Lockstep {

using Hardware::ChipAddress;
using Hardware::ChipMemory;

// Registers by byte address that log their accesses and can be made to fail once.
class Registers : public Fru::HamImpl {
 public:
  explicit Registers(Plant plant) : losesWrites_(plant == Plant::registerWriteLost) {}

  void read(U32 address, U32* value) override {
    countAccess();
    const auto held = values.find(address);
    *value = held == values.end() ? 0 : held->second;
    log.push_back({0, false, address, *value});
  }
  void write(U32 address, U32 value) override {
    countAccess();
    if (!losesWrites_ || (value & 0xff) != 0x77) values[address] = value;
    log.push_back({0, true, address, value});
  }

  std::unordered_map<U32, U32> values;
  std::vector<Model::Access> log;
  U64 failIn = 0;

 private:
  void countAccess() {
    if (failIn != 0 && --failIn == 0) throw Model::AccessFailed{0};
  }

  const bool losesWrites_;
};

namespace {

// The operation that an assertion stopped is unwound with this.
struct Asserted {};

Subject* theSubject = nullptr;

class RefusingHam : public Hardware::GenericChipHam {
 public:
  using GenericChipHam::GenericChipHam;
  bool doReadToCache(U8* to, U8* from, U32 bytes) const override {
    return !refuseReadToCache && ChipHam::doReadToCache(to, from, bytes);
  }
  bool doWriteToCache(U8* to, U8* from, U32 bytes) override {
    return !refuseWriteToCache && ChipHam::doWriteToCache(to, from, bytes);
  }
  bool doReadFromCache(U8* to, U8* from, U32 bytes) const override {
    return !refuseReadFromCache && ChipHam::doReadFromCache(to, from, bytes);
  }

  bool refuseReadToCache = false;
  bool refuseWriteToCache = false;
  bool refuseReadFromCache = false;
};

// Means the same as the base, and so is asked entry by entry.
class ComparingHam : public Hardware::GenericChipHam {
 public:
  ComparingHam(Zint::Name name, const Zint::Ptr<Fru::HamImpl>& registers, Plant plant)
      : GenericChipHam(std::move(name), registers),
        shortBy_(plant == Plant::lastByteNotCompared ? 1 : 0) {}
  bool doCompare(U8* a, U8* b, U32 bytes) const override {
    return std::memcmp(a, b, bytes < shortBy_ ? 0 : bytes - shortBy_) == 0;
  }

 private:
  const U32 shortBy_;
};

class CopyingHam : public Hardware::GenericChipHam {
 public:
  CopyingHam(Zint::Name name, const Zint::Ptr<Fru::HamImpl>& registers, Plant plant)
      : GenericChipHam(std::move(name), registers), losesByte_(plant == Plant::cacheByteLost) {}
  bool doReadToCache(U8* to, U8* from, U32 bytes) const override {
    return copyBytes(to, from, bytes);
  }
  bool doWriteToCache(U8* to, U8* from, U32 bytes) override {
    copyBytes(to, from, bytes);
    for (U32 i = 0; losesByte_ && i < bytes; ++i) {
      if (to[i] == 0x5a) to[i] = 0x5b;
    }
    return true;
  }
  bool doReadFromCache(U8* to, U8* from, U32 bytes) const override {
    return copyBytes(to, from, bytes);
  }

 private:
  static bool copyBytes(U8* to, const U8* from, U32 bytes) {
    for (U32 i = 0; i < bytes; ++i) to[i] = from[i];
    return true;
  }

  const bool losesByte_;
};

using Kind = Model::Notification::Kind;

class ShadowObserver : public Hardware::HardwareShadow::NotifieeConst {
 public:
  ShadowObserver(const Zint::Ptr<Zint::ActivityConfig>& activity,
                 const Hardware::HardwareShadow::Ptr& shadow, Subject& subject)
      : NotifieeConst(activity, shadow), subject_(subject) {}
  void onState() override {
    subject_.recordNotification({Kind::shadowState, 0, static_cast<U64>(notifier()->state()), {}});
  }

 private:
  Subject& subject_;
};

class RequestObserver : public Hardware::ChipReadRequest::NotifieeConst {
 public:
  RequestObserver(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Hardware::ChipReadRequest::Ptr& request, int handle, Subject& subject)
      : NotifieeConst(activity, request), handle_(handle), subject_(subject) {}
  using NotifieeConst::onChipMemory;
  void onState() override {
    subject_.recordNotification(
        {Kind::requestState, handle_, static_cast<U64>(notifier()->state()), {}});
  }
  void onStatus() override {
    subject_.recordNotification(
        {Kind::requestStatus, handle_, static_cast<U64>(notifier()->status()), {}});
  }
  void onChipMemory(const ChipAddress& key) override {
    subject_.recordNotification({Kind::requestMember, handle_, key.value(), {}});
  }

 private:
  const int handle_;
  Subject& subject_;
};

class DirectoryObserver : public Hardware::ChipMemoryBogon::NotifieeConst {
 public:
  DirectoryObserver(const Zint::Ptr<Zint::ActivityConfig>& activity,
                    const Zint::Ptr<Hardware::ChipMemoryBogon>& directory, Subject& subject)
      : NotifieeConst(activity, directory), subject_(subject) {}
  void onChipMemory(Zint::String8 name) override {
    subject_.recordNotification({Kind::directoryMember, 0, 0, name.bytes()});
  }

 private:
  Subject& subject_;
};

}  // namespace

Subject::Subject(Plant plant)
    : sinkBefore_(Zint::traceSinkIs(this)), hookBefore_(Zint::assertionHookIs(assertionHook)) {
  theSubject = this;
  traceLevelIs(9);
  registers_ = Zint::makePtr<Registers>(plant);
  methods_ = {Hardware::genericChipHamFactory("generic", registers_),
              Platform::sparseChipHamFactory("sparse", registers_, sparseStride),
              Zint::makePtr<RefusingHam>("refusing", registers_),
              Zint::makePtr<ComparingHam>("comparing", registers_, plant),
              Zint::makePtr<CopyingHam>("copying", registers_, plant),
              Zint::makePtr<Hardware::ChipHam>("unreachable")};
  directory_ = Hardware::chipMemoryBogonFactory("directory");
  shadow_ = Hardware::hardwareShadowFactory(loop_.activity, loop_.clock);
  observers_.push_back(Zint::makePtr<ShadowObserver>(loop_.activity, shadow_, *this));
  observers_.push_back(Zint::makePtr<DirectoryObserver>(loop_.activity, directory_, *this));
}

Subject::~Subject() {
  observers_.clear();
  reader_ = nullptr;
  shadow_ = nullptr;
  directory_ = nullptr;
  Zint::assertionHookIs(hookBefore_);
  Zint::traceSinkIs(sinkBefore_);
  Hardware::umbraTrace().levelUpToIs(0);
  theSubject = nullptr;
}

void Subject::assertionHook(const Zint::AssertionFailure& failure) {
  if (!theSubject->failure_) {
    theSubject->failure_ =
        Failure{failure.condition, failure.source, failure.function, failure.detail, failure.line};
  }
  throw Asserted{};
}

void Subject::traceLine(const Zint::TraceLine& line) {
  if (std::strcmp(line.handle, "Umbra") == 0) {
    trace_.push_back({line.level, line.text, line.context, line.source, line.function, line.line});
  } else {
    ++guarded_;
  }
}

void Subject::traceLevelIs(int level) {
  Hardware::umbraTrace().levelUpToIs(static_cast<U32>(level));
}

void Subject::recordNotification(Model::Notification notification) {
  const Kind kind = notification.kind;
  notifications_.push_back(std::move(notification));
  if (reaction_ && reaction_->kind == kind) stateIs(0, reaction_->command);
}

std::string Subject::methodText(int method) const {
  return Zint::objectText(methods_[index(method)].ptr()).bytes();
}

int Subject::handleOf(const ChipMemory* region) const {
  for (std::size_t i = 0; i < regions_.size(); ++i) {
    if (regions_[i].ptr() == region) return static_cast<int>(i);
  }
  return Model::none;
}

// --- The chip.

void Subject::chipPoke(int, U64 address, U32 value) {
  registers_->values[static_cast<U32>(address)] = value;
}
void Subject::chipFailIn(int, U64 n) { registers_->failIn = n; }
U32 Subject::chipPeek(int, U64 address) const {
  const auto held = registers_->values.find(static_cast<U32>(address));
  return held == registers_->values.end() ? 0 : held->second;
}
const std::unordered_map<U32, U32>& Subject::registers() const { return registers_->values; }
std::vector<Model::Access>& Subject::accesses() { return registers_->log; }

void Subject::refuseWriteToCacheIs(int, bool refuse) {
  static_cast<RefusingHam&>(*methods_[refusing]).refuseWriteToCache = refuse;
}
void Subject::refuseReadFromCacheIs(int, bool refuse) {
  static_cast<RefusingHam&>(*methods_[refusing]).refuseReadFromCache = refuse;
}
void Subject::refuseReadToCacheIs(int, bool refuse) {
  static_cast<RefusingHam&>(*methods_[refusing]).refuseReadToCache = refuse;
}
void Subject::methodRead(int method, U64 address, U8* buffer, U32 entrySize, U32 entries) {
  methods_[index(method)]->doRead(ChipAddress(address), buffer, entrySize, entries);
}
void Subject::methodWrite(int method, U64 address, const U8* buffer, U32 entrySize, U32 entries) {
  scratch_.assign(buffer, buffer + std::size_t{entrySize} * entries);
  methods_[index(method)]->doWrite(ChipAddress(address), scratch_.data(), entrySize, entries);
}

// --- Regions and the directory.

int Subject::regionCreate(const std::string& name, U64 address, U32 entries, U32 entrySize,
                          U32 stride, int method) {
  regions_.push_back(Hardware::chipMemoryFactory(name, ChipAddress(address), entries, entrySize,
                                                 stride, methods_[index(method)]));
  return static_cast<int>(regions_.size()) - 1;
}

bool Subject::inRange(int region, U64 address) const {
  return at(region)->inRange(ChipAddress(address));
}
U32 Subject::entryIndexFromAddress(int region, U64 address) const {
  return at(region)->entryIndexFromAddress(ChipAddress(address));
}

int Subject::directoryChipMemoryIs(int, const std::string& name, U64 address, U32 entries,
                                   U32 entrySize, U32 stride, int method) {
  const ChipMemory::Ptr region = directory_->chipMemoryIs(
      name, ChipAddress(address), entries, entrySize, stride, methods_[index(method)]);
  if (handleOf(region.ptr()) == Model::none) regions_.push_back(region);
  return handleOf(region.ptr());
}

// --- The shadow.

bool Subject::shadowWriteAndCompareWithCache(int, int region, U32 entry, const U8* data, U32 size) {
  scratch_.assign(data, data + size);
  return shadow_->shadowWriteAndCompareWithCache(at(region), entry, scratch_.data(), size);
}
void Subject::shadowWriteHack(int, U64 address, const U8* data, U32 size) {
  scratch_.assign(data, data + size);
  shadow_->shadowWriteHack(ChipAddress(address), scratch_.data(), size);
}
void Subject::doFixBadRegister(int, int region, U32 entry, const U8* data) {
  scratch_.assign(data, data + at(region)->entrySize());
  shadow_->doFixBadRegister(at(region), entry, scratch_.data());
}

// --- Requests and readers.

void Subject::observe(const Hardware::ChipReadRequest::Ptr& request) {
  requests_.push_back(request);
  observers_.push_back(Zint::makePtr<RequestObserver>(
      loop_.activity, request, static_cast<int>(requests_.size()) - 1, *this));
}

int Subject::requestCreate(const std::string& name) {
  observe(Hardware::chipReadRequestFactory(name));
  return static_cast<int>(requests_.size()) - 1;
}

void Subject::auditReadRequestIs(int, int request) {
  if (request == Model::none) {
    shadow_->auditReadRequestDel();
  } else {
    shadow_->auditReadRequestIs(requests_[index(request)]);
  }
}

int Subject::adoptRequest() {
  const Hardware::ChipReadRequest::Ptr request = shadow_->auditReadRequest();
  if (request == nullptr) return Model::none;
  for (const Hardware::ChipReadRequest::Ptr& known : requests_) {
    if (known == request) return Model::none;
  }
  observe(request);
  return static_cast<int>(requests_.size()) - 1;
}

int Subject::readerCreate(int request, U32 maxEntriesPerRead, double readInterval) {
  reader_ = Hardware::chipReaderFactory(loop_.activity, requests_[index(request)], loop_.clock,
                                        maxEntriesPerRead, readInterval);
  return 0;
}

}  // namespace Lockstep
