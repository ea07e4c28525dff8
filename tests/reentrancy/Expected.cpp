#include "reentrancy/Expected.h"

namespace Reentrancy {
namespace {

struct Cell {
  Callback callback;
  Action action;
  const char* outcome;
};

// The registry is closed outside of unconfigured.
constexpr const char* registryClosed = "fatal: state_ == unconfigured_ || overrideHardware_";
// The audit's request still held the region, which has no hardware buffer in override mode.
constexpr const char* nothingToReadInto =
    "fatal: (currentChipMemory_->mode() != ChipMemory::override())";
// The next pass started a request that had been emptied.
constexpr const char* nothingToRead = "fatal: currentChipMemory_";
// The shadow went on to idle without the request that it had to stop.
constexpr const char* noRequest = "fatal: auditReadRequest()";
// What a handler throws ends at the runtime's guard, also where the handler is the library's own
// and an access method threw; elsewhere it reaches the caller.
constexpr const char* reported = "reported: no such luck";
constexpr const char* refused = "refused: no such luck";

constexpr Cell cells[] = {
    {Callback::RegionAttribute, Action::DeleteMember, registryClosed},
    {Callback::RegionAttribute, Action::Throw, reported},
    {Callback::ShadowState, Action::ChangeMode, nothingToReadInto},
    {Callback::ShadowState, Action::DeleteMember, registryClosed},
    {Callback::ShadowState, Action::Throw, reported},
    {Callback::RequestRegions, Action::DestroyNotifier, noRequest},
    {Callback::RequestRegions, Action::Throw, reported},
    {Callback::ReaderProgress, Action::ChangeMode, nothingToReadInto},
    {Callback::ReaderProgress, Action::DeleteAll, nothingToRead},
    {Callback::ReaderProgress, Action::Throw, reported},
    {Callback::DirectoryMember, Action::Throw, reported},
    {Callback::ClockTime, Action::DeleteMember, registryClosed},
    {Callback::ClockTime, Action::Throw, reported},
    {Callback::EntityEnd, Action::Throw, reported},
    {Callback::HamRead, Action::ChangeMode, nothingToReadInto},
    {Callback::HamRead, Action::DeleteMember, registryClosed},
    {Callback::HamRead, Action::DeleteAll, nothingToRead},
    {Callback::HamRead, Action::Throw, reported},
    {Callback::HamWrite, Action::DeleteMember, registryClosed},
    {Callback::HamWrite, Action::Throw, refused},
    {Callback::HamCompare, Action::ChangeMode, nothingToReadInto},
    {Callback::HamCompare, Action::DeleteMember, registryClosed},
    {Callback::HamCompare, Action::DeleteAll, nothingToRead},
    {Callback::HamCompare, Action::Throw, reported},
    {Callback::HamStore, Action::DeleteMember, registryClosed},
    {Callback::HamStore, Action::Throw, refused},
    {Callback::Repair, Action::ChangeMode, nothingToReadInto},
    {Callback::Repair, Action::DeleteMember, registryClosed},
    {Callback::Repair, Action::DeleteAll, nothingToRead},
    {Callback::Repair, Action::Throw, reported},
    {Callback::IteratorBody, Action::Throw, refused},
    {Callback::ByName, Action::DeleteMember, registryClosed},
    {Callback::ByName, Action::Throw, reported},
};

}  // namespace

std::string expectedOutcome(Callback callback, Action action) {
  for (const Cell& cell : cells) {
    if (cell.callback == callback && cell.action == action) return cell.outcome;
  }
  return "allowed";
}

}  // namespace Reentrancy
