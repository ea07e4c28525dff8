// The cells of the matrix: where the library calls user code, and what the user code then does.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace Reentrancy {

// One for each kind of call into user code. Left out: attribute notifiees of the other types (the
// same walk as these), and trace sinks, which must not call back at all.
enum class Callback {
  RegionAttribute,  // a notifiee of the region, of `mode`: inside modeIs
  ShadowState,      // a notifiee of the shadow, of `state`: before the state is acted on
  RequestRegions,   // a notifiee of the audit's request, of a region: while the index is built
  ReaderProgress,   // a notifiee of the reader: inside a slice
  DirectoryMember,  // a notifiee of the directory: a region was made
  ClockTime,        // a wake-up: inside a turn
  EntityEnd,        // a notifiee of the directory, which is being destroyed
  HamRead,          // the access method's doRead: inside a slice
  HamWrite,         // doWrite: inside a write-back, inside modeIs
  HamCompare,       // doCompare: inside an audit's comparison
  HamStore,         // doWriteToCache: inside the write path
  Repair,           // doFixBadRegister of a derived shadow: inside an audit's comparison
  IteratorBody,     // a loop over the directory
  ByName,           // a notifiee of the region, of `shadowEnabled`, set by name
};
constexpr std::array callbackNames = {
    "RegionAttribute", "ShadowState", "RequestRegions", "ReaderProgress", "DirectoryMember",
    "ClockTime",       "EntityEnd",   "HamRead",        "HamWrite",       "HamCompare",
    "HamStore",        "Repair",      "IteratorBody",   "ByName"};
constexpr int callbackCount = static_cast<int>(callbackNames.size());

// "Self", "earlier" and "later" are three notifiees in the order of registration, of the object
// that calls; the middle one is the user code. Where none is called, they observe the region.
enum class Action {
  UnregisterSelf,
  UnregisterEarlier,
  UnregisterLater,
  RegisterNew,
  DestroySelf,      // the last reference to the notifiee; the client's to the access method
  DestroyNotifier,  // all references to the object that calls
  DestroyOwner,     // all references to the shadow
  ChangeState,      // of the shadow: between idle and auditing, or unconfigured and configured
  ChangeMode,       // of the region, to override
  ChangeEntries,    // of the region, from 8 to 4
  DeleteMember,     // one region, from the collection that is nearest
  DeleteAll,        // every region, from every collection
  Throw,
  SetAgain,  // what led here, once more
};
constexpr std::array actionNames = {
    "UnregisterSelf",  "UnregisterEarlier", "UnregisterLater", "RegisterNew", "DestroySelf",
    "DestroyNotifier", "DestroyOwner",      "ChangeState",     "ChangeMode",  "ChangeEntries",
    "DeleteMember",    "DeleteAll",         "Throw",           "SetAgain"};
constexpr int actionCount = static_cast<int>(actionNames.size());

inline std::string name(Callback callback) { return callbackNames[static_cast<int>(callback)]; }
inline std::string name(Action action) { return actionNames[static_cast<int>(action)]; }

// The callbacks that are calls of a notifiee.
inline bool isNotifiee(Callback callback) {
  return callback <= Callback::EntityEnd || callback == Callback::ByName;
}

using Actions = std::vector<Action>;

}  // namespace Reentrancy
