#include <algorithm>
#include <cstring>
#include <sstream>

#include "lockstep/Call.h"

namespace Lockstep {
namespace {

using Model::none;
using Region = Model::Region;

// From here on a selector byte asks for what is out of bounds or odd.
constexpr U32 odd = 244;

constexpr int regionMethods[] = {generic, comparing, generic, refusing,
                                 generic, sparse,    copying, generic};
constexpr U32 regionEntries[] = {4, 8, 1, 2, 3, 5, 9, 16, 17, 24, 33};
constexpr U32 wholeSizes[] = {4, 4, 8, 4, 12, 16};
constexpr U32 oddSizes[] = {1, 2, 3, 6, 7};
constexpr double auditIntervals[] = {0.0, 0.25, 0.5, 1.0, 3.0, Model::never};
constexpr double readIntervals[] = {0.0, 0.125, 0.25, 1.0};
constexpr U32 readLimits[] = {1, 2, 3, 8, 16, 64, 2000};
constexpr double advances[] = {0.0, 0.125, 0.25, 0.5, 1.0, 4.0};

template <class T, std::size_t n>
T pick(const T (&table)[n], U32 selector) {
  return table[selector % n];
}

// Mostly few; rarely so many that they take whole words of a bitmap, or several blocks of memory.
U32 numberOfEntries(U32 selector) {
  if (selector >= 254) return 1100;
  if (selector >= 250) return 0;
  if (selector >= 234) return selector % 2 == 0 ? 70 : 130;
  return pick(regionEntries, selector);
}

U32 registerValue(const Step& step) {
  U32 value;
  std::memcpy(&value, &step.a[2], 4);
  return value;
}

// A range of entries inside the region, if it has any.
void entryRange(const Region& region, U32 first, U32 count, Call& call) {
  if (region.entries == 0) {
    call.entry = call.entries = 0;
    return;
  }
  call.entry = first % region.entries;
  const U32 left = region.entries - call.entry;
  call.entries = count >= 240 ? left : 1 + count % std::min<U32>(left, 9);
}

// The number of bytes: whole entries, a part of one more, or more than there is.
void accessSize(const Region& region, U32 selector, Call& call) {
  call.size = call.entries * region.entrySize;
  if (selector < 200) return;
  if (selector < 232) {
    call.size += selector % region.entrySize;
  } else if (selector < odd) {
    call.size = 0;
  } else if (selector < 250) {
    call.size += region.entrySize * region.entries;
  } else {
    call.entry = ~(selector & 1);  // near the end of what 32 bits count
  }
}

void writeData(const Step& step, const Region& region, Call& call) {
  call.data.assign(call.size, step.a[4]);
  const std::size_t from = std::size_t{call.entry} * region.entrySize;
  const auto copyBytes = [&](const std::optional<Bytes>& buffer) {
    if (!buffer || from >= buffer->size() || call.data.empty()) return;
    const std::size_t bytes = std::min<std::size_t>(call.size, buffer->size() - from);
    std::memcpy(call.data.data(), buffer->data() + from, bytes);
  };
  switch (step.a[3] % 4) {
    case 0:
      copyBytes(region.shadow);
      break;
    case 1:
      copyBytes(region.hardware);
      break;
    case 2:  // one byte differs
      copyBytes(region.shadow);
      if (!call.data.empty()) {
        U8& byte = call.data[step.a[4] % call.data.size()];
        byte = static_cast<U8>(byte ^ (1u << (step.a[4] & 7)));
      }
      break;
    default:
      for (std::size_t i = 0; i < call.data.size(); ++i) {
        call.data[i] = static_cast<U8>(step.a[4] + 37 * i);
      }
  }
}

void resolveRegionCreate(const Step& step, const Model::System& model, Call& call) {
  call.possible = model.regions() < maxRegions;
  call.method = step.a[0] >= odd ? static_cast<int>(unreachable) : pick(regionMethods, step.a[0]);
  call.address = slotAddress(step.a[1]);
  call.entries = numberOfEntries(step.a[2]);
  call.entrySize = step.a[3] >= odd ? pick(oddSizes, step.a[3]) : pick(wholeSizes, step.a[3]);
  call.stride = call.method == sparse ? sparseStride : call.entrySize;
  if (step.a[5] >= odd) call.stride *= 1 + step.a[5] % 3;
  call.flags = step.a[4];
  call.variant = step.a[5] % 3;  // the mode
  call.name = "r" + std::to_string(model.regions());
}

void resolveDirectory(const Step& step, const Model::System& model, Call& call) {
  call.possible = true;
  call.variant = step.a[0] >= odd ? 2 : step.a[0] % 3 == 2;  // find or make, remove, remove all
  call.name = "d" + std::to_string(step.a[1] % 4);
  const int present = model.directoryChipMemory(directory, call.name);
  if (call.variant != 0) return;
  if (present == none) {
    call.possible = model.regions() < maxRegions;
    call.method = pick(regionMethods, step.a[2]);
    call.address = slotAddress(step.a[3]);
    call.entries = pick(regionEntries, step.a[4]);
    call.entrySize = pick(wholeSizes, step.a[5]);
    call.stride = call.method == sparse ? sparseStride : call.entrySize;
    return;
  }
  const Region& region = model.region(present);
  call.method = step.a[2] % 5 == 1 ? pick(regionMethods, step.a[2] / 5u) : region.method;
  call.address = step.a[3] % 5 == 1 ? slotAddress(step.a[3]) : region.address;
  call.entries = step.a[4] % 3 == 1 ? pick(regionEntries, step.a[4]) : region.entries;
  call.entrySize = step.a[5] % 7 == 1 ? region.entrySize + 4 : region.entrySize;
  call.stride = step.a[5] % 7 == 2 ? region.stride + 4 : region.stride;
}

void resolveOnRegion(const Step& step, const Model::System& model, Call& call) {
  const Region& region = model.region(call.region);
  const auto& a = step.a;
  call.possible = true;
  call.method = region.method;
  call.entrySize = region.entrySize;
  call.address = region.address;
  switch (step.operation) {
    case Operation::flag:
      call.variant = a[0] % 6;
      call.on = a[1] & 1;
      call.value = a[1];
      break;
    case Operation::mode:
      call.variant = a[0] % 3;
      break;
    case Operation::entries:
      call.entries = numberOfEntries(a[0]);
      break;
    case Operation::bufferDrop:
      call.variant = a[0] % 4;
      break;
    case Operation::methodRefusal:
      call.variant = a[0] % 3;
      call.on = a[1] & 1;
      break;
    case Operation::doClear:
      break;
    case Operation::doClearRange:
      entryRange(region, a[0], a[1], call);
      call.value = call.entry + call.entries - (call.entries > 0 ? 1 : 0);  // the last, included
      if (a[3] >= 230) call.value = region.entries;
      if (a[3] >= odd) call.value = region.entries + a[3] % 3;
      if (a[3] >= 253) call.entry = call.value + 1;
      call.on = a[2] & 1;
      break;
    case Operation::writeback:
      call.on = a[0] & 1;
      break;
    case Operation::initializedBit:
      entryRange(region, a[1], 0, call);
      call.variant = a[0] % 3;
      // Bits up to the end of the last byte exist; what lies beyond does not.
      if (a[2] >= 200) call.entry = (region.entries | 7) - a[2] % 8;
      if (a[2] >= 252) call.entry = region.entries + 8 + a[2];
      break;
    case Operation::write:
    case Operation::read:
      entryRange(region, a[0], a[1], call);
      accessSize(region, a[2], call);
      writeData(step, region, call);
      call.address = region.address + region.stride * call.entry;
      call.on = a[5] & 1;  // the caller goes on to the chip if it has to
      break;
    case Operation::writeByAddress:
    case Operation::readByAddress:
      call.variant = (a[5] & 7) == 0;  // one word
      entryRange(region, a[0], a[1], call);
      accessSize(region, a[2], call);
      writeData(step, region, call);
      call.address = region.address + region.stride * call.entry + (a[5] >= 224 ? a[5] % 7 : 0);
      call.value = registerValue(step);
      break;
    case Operation::lookup:
      entryRange(region, a[0], 0, call);
      call.variant = a[1] % 4;  // find twice as often, address arithmetic, last region
      call.size = a[2] >= odd ? a[2] : region.entrySize * (1 + a[2] % 3);
      call.address = region.address + region.stride * call.entry + (a[3] & 3);
      if (a[3] >= 200) call.address = region.address - 1 + U64{region.stride} * region.entries;
      if (a[3] >= 228) call.address = region.address - (a[3] & 1);
      call.on = a[4] & 3;  // else no region
      break;
    case Operation::chipAccess:
      entryRange(region, a[0], a[1], call);
      call.variant = a[2] & 1;
      call.address = region.address + region.stride * call.entry;
      call.size = call.entries * region.entrySize;
      call.value = a[3];
      writeData(step, region, call);
      call.possible = call.entries != 0;
      break;
    case Operation::poke: {
      entryRange(region, a[0], 0, call);
      const U32 word = region.entrySize < 4 ? 0 : a[1] % (region.entrySize / 4) * 4;
      call.address = static_cast<U32>(region.address + region.stride * call.entry + word);
      call.value =
          a[5] & 1 ? registerValue(step) : model.chipPeek(chip, call.address) ^ (1u << (a[2] & 31));
      break;
    }
    case Operation::fix:
      entryRange(region, a[0], 0, call);
      call.size = region.entrySize;
      writeData(step, region, call);
      break;
    case Operation::registryAdd:
      if (a[0] >= 250) call.region = none;
      break;
    case Operation::registryDel:
      call.address = a[0] >= 200 ? slotAddress(a[0]) : region.address;
      break;
    case Operation::auditEnabled:
      call.on = a[0] & 1;
      break;
    default:  // requestMember
      call.request = model.shadow(shadow).request;
      call.possible = call.request != none;
      call.variant = a[0] >= 250 ? 3 : a[0] >= 225 ? 2 : a[0] & 1;  // del, add, all, none at all
      break;
  }
}

}  // namespace

U64 slotAddress(U32 slot) {
  constexpr U64 addresses[] = {
      0x1000,        0x2000,        0x3000,        0x4000,        0x5000,
      0x1'0000'0000, 0x1'0000'6000, 0x2'0000'7000, 0x2'0000'8000, 0x9000,
      0xffff'ffc0,   0x1008,        0x1'0000'1000, 0x7'ffff'fff0, 0xffff'ffff'0000'a000,
      0x5020};
  return addresses[slot % std::size(addresses)];
}

void resolve(const Step& step, const Model::System& model, int reader, Call& call) {
  call.operation = step.operation;
  call.possible = false;
  call.reader = reader;
  call.region = none;
  call.data.clear();
  const auto& a = step.a;
  const Model::Shadow& state = model.shadow(shadow);
  if (namesRegion(step.operation)) {
    if (model.regions() == 0) return;
    call.region = step.region % model.regions();
    resolveOnRegion(step, model, call);
    return;
  }
  call.possible = true;
  switch (step.operation) {
    case Operation::regionCreate:
      resolveRegionCreate(step, model, call);
      break;
    case Operation::directory:
      resolveDirectory(step, model, call);
      break;
    case Operation::registryBulk:
      call.variant = a[0] >= 225;
      break;
    case Operation::accessFailure:
      call.value = a[0] % 3 == 0 ? 0 : 1 + a[0] % 13;
      break;
    case Operation::state:
      call.value = a[0] >= 252 ? a[0] : a[0] % 4;
      break;
    case Operation::overrideHardware:
      call.on = a[0] & 1;
      break;
    case Operation::auditInterval:
      call.seconds = pick(auditIntervals, a[0]);
      break;
    case Operation::request:
      call.request = state.request;
      // Start, stop, status done, status none, status failed, state idle, a strange state, and
      // doing without the request.
      call.variant = a[0] >= 240 ? 3 + a[0] % 5 : a[0] % 3;
      call.possible =
          call.request != none && (call.variant < 7 || state.state == Model::State::unconfigured);
      break;
    case Operation::auditCall:
      call.variant = a[0] % 5;
      call.possible = state.request != none;
      break;
    case Operation::reader:
      call.variant = a[0] >= 240 ? 2 : a[0] & 1;  // limit, interval, another reader
      call.value = a[1] >= odd ? 0 : pick(readLimits, a[1]);
      call.seconds = pick(readIntervals, a[2]);
      call.request = state.request != none ? state.request : model.reader(reader).request;
      break;
    case Operation::turn: {
      const double next = model.nextWakeUp();
      call.seconds = a[0] & 1 && next != Model::never ? std::max(next, model.now())
                                                      : model.now() + pick(advances, a[1]);
      break;
    }
    default:  // traceLevel
      call.value = a[0] % 10;
      break;
  }
}

std::string text(const Call& call) {
  std::ostringstream out;
  if (!call.possible) return "nothing";
  out << nameOf(call.operation);
  if (call.region != none) out << " r" << call.region;
  out << std::hex << " address 0x" << call.address << std::dec << " entry " << call.entry
      << " entries " << call.entries << " entrySize " << call.entrySize << " size " << call.size
      << " value " << call.value << " on " << call.on << " variant " << call.variant;
  if (call.operation == Operation::regionCreate || call.operation == Operation::directory) {
    out << " " << call.name << " method " << call.method << " stride " << call.stride << " flags "
        << call.flags;
  }
  if (call.seconds != 0) out << " seconds " << call.seconds;
  return out.str();
}

}  // namespace Lockstep
