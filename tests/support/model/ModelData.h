// The plain data of the model: errors, logs and the state of each object.
// Everything is addressed by small integer handles and copies by value, so a copy of a System is
// an independent what-if of it.
#ifndef TESTS_MODEL_MODELDATA_H_
#define TESTS_MODEL_MODELDATA_H_

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Model {

using u8 = std::uint8_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using Bytes = std::vector<u8>;

constexpr int none = -1;  // the null handle
constexpr double never = std::numeric_limits<double>::infinity();

enum class Mode : std::int32_t { normal = 0, override_ = 1, buffered = 2 };
enum class State : std::int32_t { unconfigured = 0, configured = 1, idle = 2, auditing = 3 };

// A broken rule that ends the process. State changed before the failing check stays changed.
struct Fatal {
  std::string condition;
  std::string function;
  int line = 0;  // 0: not fixed
  // True where the library guards undefined territory in words of its own: only the fact that
  // the process ends is to be compared; condition then says in the model's words what was wrong.
  bool textOpen = false;
};

// Bad input from the caller; the object it was given to is unchanged.
struct RangeError {
  std::string text;
};

// A name asked for again with other parameters.
struct NameInUse {
  std::string text;
};

// The failure injected into a register access.
struct AccessFailed {
  int chip = none;
};

struct TraceLine {
  int level = 0;
  std::string text;
  const char* function = "";
  int line = 0;  // 0: not fixed
  const char* context = "";
};

// A structured trace record: its values and texts in the order of writing. A byte record holds
// the byte's index, the shadow's byte and the hardware's byte.
struct Record {
  int level = 0;
  std::vector<u32> values;
  std::vector<std::string> texts;
};

// One register access, in the order in which they reached the chips.
struct Access {
  int chip = none;
  bool write = false;
  u32 address = 0;
  u32 value = 0;
  bool operator==(const Access&) const = default;
};

// What a notifiee registered before the change is notified of.
struct Notification {
  enum class Kind { shadowState, requestState, requestStatus, requestMember, directoryMember };
  Kind kind = Kind::shadowState;
  int owner = none;  // handle of the shadow, request or directory
  u64 key = 0;       // new value of state or status; address of the member
  std::string name;  // name of the directory's member
  bool operator==(const Notification&) const = default;
};

// What a client's notifiee does at each notification of a kind: it sets the shadow's state.
struct Reaction {
  Notification::Kind kind = Notification::Kind::shadowState;
  State command = State::idle;
};

enum class Actor { shadow, reader };

// An exception that a handler let out and that the guard around handlers swallowed.
struct Guarded {
  Actor actor = Actor::shadow;
  int handle = none;
  const char* handler = "";  // onTime, onState or onStatus
};

// 32-bit registers, one for every byte address; a register never written holds 0.
struct Chip {
  static constexpr u64 pageSize = 64;  // small: a what-if copies every page
  std::map<u64, std::array<u32, pageSize>> pages;
  u64 failIn = 0;  // the failIn-th access from now fails; 0: none does
};

enum class MethodKind {
  base,     // cannot touch hardware
  generic,  // packed 32-bit words from the low address word on
  sparse    // entry e begins stride * e after the low address word
};

struct AccessMethod {
  MethodKind kind = MethodKind::generic;
  std::string name;
  std::string text;  // its form in messages; the name unless changed
  int chip = none;
  u32 stride = 0;
  bool refuseWriteToCache = false;
  bool refuseReadFromCache = false;
  bool refuseReadToCache = false;
};

struct Region {
  std::string name;
  u64 address = 0;
  u32 entries = 0;
  u32 entrySize = 0;
  u32 stride = 0;
  int method = none;
  u32 indirectCmdRegAddr = 0;
  bool shadowEnabled = false;
  bool auditEnabled = false;
  Mode mode = Mode::normal;
  bool readFromCache = false;
  bool skipWriteIfMatchesCache = false;
  bool allowsLogicalViews = false;
  u64 readCacheHits = 0;
  u64 writeCacheHits = 0;
  u32 registersFixed = 0;
  double lastFixTime = 0.0;
  // Absent buffers are empty optionals. What a call may touch after the last entry reads as 0 and
  // is not written, so it is not stored.
  std::optional<Bytes> hardware;
  std::optional<Bytes> shadow;
  std::optional<Bytes> initialized;
  std::optional<Bytes> dirty;

  bool shadowStoreNeeded() const { return shadowEnabled && mode != Mode::override_; }
};

// A wake-up time; arming gives it a place in the order of arming.
struct Alarm {
  double due = never;
  u64 order = 0;
};

struct Shadow {
  bool alive = true;
  State state = State::unconfigured;
  std::vector<State> commands;  // the states that were set and are not acted on yet, oldest first
  bool overrideHardware = false;
  double minIntervalBetweenAudits = 0.0;
  double lastAuditStartTime = 0.0;
  u32 audits = 0;
  u32 entriesUnderAudit = 0;
  int request = none;
  int last = none;              // region of the last successful lookup
  std::map<u64, int> registry;  // region by address
  // Region by memory id (high address word) and offset (low word).
  std::map<u32, std::map<u32, int>> index;
  Alarm alarm;
};

struct RequestMember {
  u32 order = 0;  // low address word, bits reversed
  u64 address = 0;
  int region = none;
};

struct Observer {
  Actor actor = Actor::shadow;
  int handle = none;
  bool operator==(const Observer&) const = default;
};

struct Request {
  std::string name;
  u32 state = 0;
  u32 status = 0;
  u64 generation = 0;
  std::vector<RequestMember> members;  // in iteration order
  std::vector<Observer> observers;     // in order of registration
};

struct Reader {
  bool alive = true;
  int request = none;
  u32 maxEntriesPerRead = 0;
  double readInterval = 0.0;
  int current = none;
  u32 entriesRead = 0;
  std::vector<int> queue;  // front first
  Alarm alarm;
};

struct Directory {
  bool alive = true;
  std::map<std::string, int> members;
};

// Text forms.
std::string decimal(u64 value);
std::string hexadecimal(u64 value);  // lower case, no prefix, no leading zeros
std::string addressText(u64 address);
std::string modeText(Mode mode);
std::string stateText(State state);

u32 reversedBits(u32 word);

// Bit k of a stream is bit k % 8 of byte k / 8.
bool bitFromStream(const u8* stream, u32 bit);
void bitToStream(u8* stream, u32 bit, bool value);
u8 byteFromStream(const u8* stream, u32 bit);
void byteToStream(u8* stream, u32 bit, u8 value);
void copyBits(u8* destination, u32 destinationBit, const u8* source, u32 sourceBit, u32 bits);

}  // namespace Model

#endif  // TESTS_MODEL_MODELDATA_H_
