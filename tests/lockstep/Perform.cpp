#include <Zint/Exception.h>

#include <cstring>

#include "lockstep/Call.h"

namespace Lockstep {
namespace {

using Model::none;

// A region's flags at birth: bits of Call::flags.
enum Flag : U32 {
  shadowEnabled = 1,
  auditEnabled = 2,
  readFromCache = 4,
  skipWriteIfMatchesCache = 8,
  notRegistered = 16,
  allowsLogicalViews = 32,
};

U64 handleValue(int handle) { return static_cast<U64>(static_cast<S64>(handle)); }

template <class Side>
void makeRegion(Side& side, const Call& call, Answer& answer) {
  const int region = side.regionCreate(call.name, call.address, call.entries, call.entrySize,
                                       call.stride, call.method);
  answer.value = handleValue(region);
  side.shadowEnabledIs(region, call.flags & shadowEnabled);
  side.readFromCacheIs(region, call.flags & readFromCache);
  side.skipWriteIfMatchesCacheIs(region, call.flags & skipWriteIfMatchesCache);
  side.allowsLogicalViewsIs(region, call.flags & allowsLogicalViews);
  side.modeIs(region, static_cast<Model::Mode>(call.variant));
  if (call.variant != 1) side.auditEnabledIs(region, call.flags & auditEnabled);
  if (!(call.flags & notRegistered)) side.chipMemoryIs(shadow, region);
}

template <class Side>
void setFlag(Side& side, const Call& call) {
  switch (call.variant) {
    case 0:
      return side.shadowEnabledIs(call.region, call.on);
    case 1:
      return side.auditEnabledIs(call.region, call.on);
    case 2:
      return side.readFromCacheIs(call.region, call.on);
    case 3:
      return side.skipWriteIfMatchesCacheIs(call.region, call.on);
    case 4:
      return side.allowsLogicalViewsIs(call.region, call.on);
    default:
      return side.indirectCmdRegAddrIs(call.region, call.value);
  }
}

template <class Side>
void dropBuffer(Side& side, const Call& call) {
  switch (call.variant) {
    case 0:
      return side.hardwareDel(call.region);
    case 1:
      return side.shadowDel(call.region);
    case 2:
      return side.dirtyDel(call.region);
    default:
      return side.initializedDel(call.region);
  }
}

template <class Side>
void performOnRegion(Side& side, const Call& call, Answer& answer) {
  const int r = call.region;
  switch (call.operation) {
    case Operation::flag:
      return setFlag(side, call);
    case Operation::mode:
      return side.modeIs(r, static_cast<Model::Mode>(call.variant));
    case Operation::entries:
      return side.entriesIs(r, call.entries);
    case Operation::bufferDrop:
      return dropBuffer(side, call);
    case Operation::methodRefusal:
      if (call.variant == 0) return side.refuseWriteToCacheIs(refusing, call.on);
      if (call.variant == 1) return side.refuseReadFromCacheIs(refusing, call.on);
      return side.refuseReadToCacheIs(refusing, call.on);
    case Operation::doClear:
      return side.doClear(r);
    case Operation::doClearRange:
      return side.doClearRange(r, call.entry, call.value, call.on);
    case Operation::writeback:
      return side.writeback(r, call.on);
    case Operation::initializedBit:
      if (call.variant == 1) return side.entryInitializedIs(r, call.entry);
      if (call.variant == 2) return side.entryInitializedDel(r, call.entry);
      answer.value = side.entryInitialized(r, call.entry);
      return;
    case Operation::write:
      answer.value =
          side.shadowWriteAndCompareWithCache(shadow, r, call.entry, call.data.data(), call.size);
      // A client writes the chip when it is told to.
      if (answer.value == 0 && call.on && call.size == call.entries * call.entrySize) {
        side.methodWrite(call.method, call.address, call.data.data(), call.entrySize, call.entries);
      }
      return;
    case Operation::writeByAddress:
      if (call.variant == 1) return side.shadowWriteU32(shadow, call.address, call.value);
      return side.shadowWriteHack(shadow, call.address, call.data.data(), call.size);
    case Operation::read:
      answer.data.assign(call.size + 8, 0xa5);
      answer.value = side.readFromCache(shadow, r, call.entry, answer.data.data(), call.size);
      return;
    case Operation::readByAddress:
      if (call.variant == 1) {
        answer.value = side.readFromCacheU32(shadow, call.address);
        return;
      }
      answer.data.assign(call.size + 8, 0xa5);
      answer.value = side.readFromCacheHack(shadow, call.address, answer.data.data(), call.size);
      return;
    case Operation::lookup:
      if (call.variant < 2) {
        answer.value = handleValue(side.findChipMemory(shadow, call.address, call.size));
      } else if (call.variant == 2) {
        answer.value = side.inRange(r, call.address);
        if (answer.value) answer.value += 2 * U64{side.entryIndexFromAddress(r, call.address)};
      } else {
        side.lastChipMemoryIs(shadow, call.on ? r : none);
      }
      return;
    case Operation::chipAccess:
      if (call.variant == 1) {
        return side.methodWrite(call.method, call.address, call.data.data(), call.entrySize,
                                call.entries);
      }
      answer.data.assign(call.size + 8, 0xa5);
      return side.methodRead(call.method, call.address, answer.data.data(), call.entrySize,
                             call.entries);
    case Operation::poke:
      return side.chipPoke(chip, call.address, call.value);
    case Operation::fix:
      return side.doFixBadRegister(shadow, r, call.entry, call.data.data());
    case Operation::registryAdd:
      return side.chipMemoryIs(shadow, r);
    case Operation::registryDel:
      answer.value = handleValue(side.chipMemoryDel(shadow, call.address));
      return;
    case Operation::auditEnabled:
      return side.chipMemoryAuditEnabledIs(shadow, r, call.on);
    default:  // requestMember
      if (call.variant == 1) return side.requestChipMemoryIs(call.request, r);
      if (call.variant == 2) return side.requestChipMemoryDelAll(call.request);
      if (call.variant == 3) return side.requestChipMemoryIs(call.request, none);
      answer.value = handleValue(side.requestChipMemoryDel(call.request, call.address));
      return;
  }
}

template <class Side>
void commandRequest(Side& side, const Call& call) {
  switch (call.variant) {
    case 0:
      return side.requestStateIs(call.request, 1);
    case 1:
      return side.requestStateIs(call.request, 2);
    case 2:
      return side.requestStatusIs(call.request, 3);
    case 3:
      return side.requestStatusIs(call.request, 0);
    case 4:
      return side.requestStatusIs(call.request, 2);
    case 5:
      return side.requestStateIs(call.request, 0);
    case 6:
      return side.requestStateIs(call.request, 7);
    default:
      return side.auditReadRequestIs(shadow, none);
  }
}

template <class Side>
void setReader(Side& side, const Call& call, Answer& answer) {
  if (call.variant == 0) return side.maxEntriesPerReadIs(call.reader, call.value);
  if (call.variant == 1) return side.readIntervalIs(call.reader, call.seconds);
  side.readerDestroy(call.reader);
  answer.value = handleValue(side.readerCreate(call.request, call.value, call.seconds));
}

template <class Side>
void performOnSystem(Side& side, const Call& call, Answer& answer) {
  switch (call.operation) {
    case Operation::regionCreate:
      return makeRegion(side, call, answer);
    case Operation::directory:
      if (call.variant == 0) {
        answer.value =
            handleValue(side.directoryChipMemoryIs(directory, call.name, call.address, call.entries,
                                                   call.entrySize, call.stride, call.method));
      } else if (call.variant == 1) {
        answer.value = handleValue(side.directoryChipMemoryDel(directory, call.name));
      } else {
        side.directoryChipMemoryDelAll(directory);
      }
      return;
    case Operation::registryBulk:
      if (call.variant == 0) return side.removeOverrideOnlyChipMem(shadow);
      return side.chipMemoryDelAll(shadow);
    case Operation::accessFailure:
      return side.chipFailIn(chip, call.value);
    case Operation::state:
      return side.stateIs(shadow, static_cast<Model::State>(call.value));
    case Operation::overrideHardware:
      return side.overrideHardwareIs(shadow, call.on);
    case Operation::auditInterval:
      return side.minIntervalBetweenAuditsIs(shadow, call.seconds);
    case Operation::request:
      return commandRequest(side, call);
    case Operation::auditCall:
      if (call.variant == 0) return side.doStartAudit(shadow);
      if (call.variant == 1) return side.handleAuditReadRequestStatus(shadow);
      if (call.variant == 2) return side.readerHandleReadRequest(call.reader);
      if (call.variant == 3) return side.readerDoRead(call.reader);
      return side.doAuditChips(shadow);
    case Operation::reader:
      return setReader(side, call, answer);
    case Operation::turn:
      side.timeIs(call.seconds);
      for (U32 i = 0; i < call.turns; ++i) answer.value += static_cast<U64>(side.runTurn());
      return;
    default:  // traceLevel
      return side.traceLevelIs(static_cast<int>(call.value));
  }
}

}  // namespace

template <class Side>
void perform(Side& side, const Call& call, Answer& answer) {
  answer.value = 0;
  answer.data.clear();
  answer.error.clear();
  try {
    if (namesRegion(call.operation)) {
      performOnRegion(side, call, answer);
    } else {
      performOnSystem(side, call, answer);
    }
  } catch (const Model::AccessFailed&) {
    answer.error = "access failed";
  } catch (const Model::RangeError& error) {
    answer.error = "range: " + error.text;
  } catch (const Zint::RangeException& error) {
    answer.error = std::string("range: ") + error.what();
  } catch (const Model::NameInUse& error) {
    answer.error = "name in use: " + error.text;
  } catch (const Zint::NameInUseException& error) {
    answer.error = std::string("name in use: ") + error.what();
  }
}

template void perform(Model::System&, const Call&, Answer&);
template void perform(Subject&, const Call&, Answer&);

}  // namespace Lockstep
