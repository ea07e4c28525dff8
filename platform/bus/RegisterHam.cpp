#include <platform/bus/RegisterHam.h>

#include <Zint/Assert.h>
#include <Zint/Strep.h>
#include <platform/bus/GatheredWindows.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace Platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr U32 widest = 8;
constexpr U32 equalInRow = 4;  // registers that are suspicious together

bool isWidth(U32 width) { return width == 1 || width == 2 || width == 4 || width == 8; }

// Of the sentinel's register, as wide as it is.
U64 valueOf(const U8* bytes, U32 width) {
  U64 value = 0;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(&value, bytes, width);
  } else {
    std::memcpy(reinterpret_cast<U8*>(&value) + widest - width, bytes, width);
  }
  return value;
}

// The run of an access, and where an entry that is no whole number of registers is refused.
RegisterRun runOf(U32 address, U32 width, U32 entrySize, U32 entries) {
  ZINT_ASSERT("platform/RegisterHam", ( entrySize % width ) == 0);
  const U64 count = U64{entrySize / width} * entries;
  ZINT_ASSERT("platform/RegisterHam", count <= ~U32{0} / width);
  return {address, width, static_cast<U32>(count)};
}

}  // namespace

RegisterHam::RegisterHam(Zint::Name name, const RegisterBus::Ptr& bus, const RegisterFormat& format)
    : ChipHam(std::move(name)), bus_(bus), format_(format) {
  if (bus_ == nullptr) Zint::throwNullParameter("bus", "Platform::RegisterHam");
  if (!isWidth(format_.width)) {
    Zint::throwRangeException(Zint::format("%s: registers of %u bytes; 1, 2, 4 and 8 are possible",
                                           this->name().c_str(), format_.width));
  }
  if (format_.failuresToAbsent == 0) {
    Zint::throwRangeException(
        Zint::format("%s: failuresToAbsent must be above 0", this->name().c_str()));
  }
  identity_ = bus_->identity();
  openings_ = bus_->openings_;
}

RegisterHam::~RegisterHam() = default;

Zint::ValidPtr<RegisterHam> registerHamFactory(Zint::Name name, const RegisterBus::Ptr& bus,
                                               const RegisterFormat& format) {
  return Zint::makePtr<RegisterHam>(std::move(name), bus, format);
}

// Calls `access`, and knows afterwards whether the chip is there. REQUIRES: this is held.
template <class Access>
void RegisterHam::guarded(U32 address, Access access) {
  if (isAbsent_ || openings_ != bus_->openings_) checkReturn(address);
  try {
    access();
  } catch (const ChipAbsent&) {
    isAbsent_ = true;
    throw;
  } catch (const BusError& failure) {
    if (++failures_ < format_.failuresToAbsent) throw;
    throwAbsent(failure.address(), failure.error(), "does not answer");
  }
  failures_ = 0;
}

void RegisterHam::doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                         U32 entries) {
  const RegisterRun run = runOf(address.chipMemoryOffset(), format_.width, entrySize, entries);
  if (run.count == 0) return;
  const Ptr self(this);  // an access may drop the last other reference
  guarded(run.address,
          [&] { gathered_ == nullptr ? readChecked(run, buffer) : readGathered(run, buffer); });
  reverse(buffer, run.count);
}

// One access, and its cost. What comes of it is data.
void RegisterHam::readChecked(const RegisterRun& run, U8* bytes) {
  const SteadyClock::time_point began = SteadyClock::now();
  bus_->read(run, bytes);
  const double each = std::chrono::duration<double>(SteadyClock::now() - began).count() / run.count;
  cost_ += cost_ == 0 ? each : (each - cost_) / 8;
  if (hasSentinel_ && isSuspicious(bytes, run.count)) checkSentinel();
}

// A window is judged when it is read: later the chip may be back that was absent then. It is not
// kept when its access has read or written re-entrantly: it may be older than that.
void RegisterHam::readGathered(const RegisterRun& run, U8* bytes) {
  const std::shared_ptr<GatheredWindows> gathered = gathered_;
  for (RegisterRun left = run; left.count != 0;) {
    const std::optional<GatheredWindows::Piece> piece = gathered->pieceOf(left);
    if (!piece) {  // it is in no range, and what follows it is read with it
      gathered->drop(left);
      readChecked(left, bytes);
      return;
    }
    const GatheredWindows::Clock::time_point now = GatheredWindows::Clock::now();
    const U32 done = piece->wanted.count * left.width;
    if (!gathered->take(*piece, bytes, now)) {
      std::vector<U8> window(std::size_t{piece->window.count} * piece->window.width);
      const U32 changes = gathered->changes();
      readChecked(piece->window, window.data());
      std::memcpy(bytes, &window[piece->wanted.address - piece->window.address], done);
      if (gathered->changes() == changes) gathered->windowIs(*piece, std::move(window), now);
    }
    left = {left.address + done, left.width, left.count - piece->wanted.count};
    bytes += done;
  }
}

void RegisterHam::gatherIs(U32 begin, U32 end, U32 bytes, Zint::Seconds maxAge) {
  if (gathered_ != nullptr) return gathered_->rangeIs(begin, end, bytes, maxAge);
  auto made = std::make_shared<GatheredWindows>(format_.width);
  made->rangeIs(begin, end, bytes, maxAge);
  gathered_ = std::move(made);
}

void RegisterHam::gatherDelAll() { gathered_ = nullptr; }

void RegisterHam::doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                          U32 entries) {
  const RegisterRun run = runOf(address.chipMemoryOffset(), format_.width, entrySize, entries);
  if (run.count == 0) return;
  const Ptr self(this);  // an access may drop the last other reference
  if (gathered_ != nullptr) gathered_->drop(run);
  guarded(run.address, [&] {
    if (format_.order == std::endian::native || run.width == 1) {
      bus_->write(run, buffer);
    } else {
      // The caller's bytes stay as they are.
      U8 part[256];
      const U32 most = sizeof part / run.width;
      for (U32 done = 0; done < run.count;) {
        const RegisterRun piece{run.address + done * run.width, run.width,
                                std::min(most, run.count - done)};
        std::memcpy(part, buffer + done * run.width, piece.count * run.width);
        reverse(part, piece.count);
        bus_->write(piece, part);
        done += piece.count;
      }
    }
    if (gathered_ != nullptr) gathered_->drop(run);  // what was read re-entrantly, too
    if (format_.flushesWrites && hasSentinel_) checkSentinel();
  });
}

void RegisterHam::sentinelIs(U32 address, U64 value, U64 mask) {
  const U64 counting = mask & ~U64{0} >> (8 * (widest - format_.width));
  if (counting == 0) {
    Zint::throwRangeException(
        Zint::format("%s: no bit of the sentinel at 0x%x counts", name().c_str(), address));
  }
  sentinelAddress_ = address;
  sentinelValue_ = value;
  sentinelMask_ = counting;
  hasSentinel_ = true;
}

bool RegisterHam::isPresent() {
  const Ptr self(this);
  try {
    if (isAbsent_) {
      checkReturn(sentinelAddress_);
    } else {
      guarded(sentinelAddress_, [this] {
        checkIdentity(sentinelAddress_);
        if (hasSentinel_) checkSentinel();
      });
    }
  } catch (...) {
    return false;
  }
  return true;
}

void RegisterHam::checkIdentity(U32 address) {
  if (bus_->identity() != identity_) throwAbsent(address, 0, "another chip answers");
}

// Without a sentinel nothing tells yet that the chip is back: one more failure is enough.
void RegisterHam::checkReturn(U32 address) {
  if (gathered_ != nullptr) gathered_->dropAll();
  const bool wasAbsent = std::exchange(isAbsent_, true);
  if (wasAbsent) ++bus_->openings_;
  const U32 openings = bus_->openings_;
  try {
    if (wasAbsent) bus_->reopen();
    checkIdentity(address);
    if (hasSentinel_) checkSentinel();
  } catch (const ChipAbsent&) {
    throw;
  } catch (const BusError& failure) {
    throwAbsent(failure.address(), failure.error(), "does not answer");
  } catch (const Zint::RangeException& refused) {  // what has returned does not have the registers
    throwAbsent(address, 0, Zint::format("cannot be opened anew (%s)", refused.what()).c_str());
  }
  openings_ = openings;
  isAbsent_ = false;
  failures_ = hasSentinel_ ? 0 : format_.failuresToAbsent - 1;
}

void RegisterHam::checkSentinel() {
  const U32 address = sentinelAddress_;
  const U64 value = sentinelValue_, mask = sentinelMask_;
  U8 bytes[widest];
  bus_->read({address, format_.width, 1}, bytes);
  reverse(bytes, 1);
  if (((valueOf(bytes, format_.width) ^ value) & mask) != 0) {
    throwAbsent(address, 0, "the sentinel has not its value");
  }
}

// Whether an absent chip could have answered so.
bool RegisterHam::isSuspicious(const U8* bytes, U32 registers) const {
  const U32 width = format_.width;
  const auto isAll = [width](const U8* value, U8 byte) {
    return std::all_of(value, value + width, [byte](U8 b) { return b == byte; });
  };
  U32 equal = 1;
  for (U32 i = 0; i < registers; ++i) {
    const U8* value = bytes + std::size_t{i} * width;
    if (isAll(value, 0xff)) return true;
    equal = i != 0 && std::memcmp(value, value - width, width) == 0 ? equal + 1 : 1;
    if (equal == equalInRow) return true;
  }
  // A chip that went within the run may have left registers before.
  return isAll(bytes + std::size_t{registers - 1} * width, 0);
}

// From the order of the bus to that of the machine, and back.
void RegisterHam::reverse(U8* bytes, U32 registers) const {
  if (format_.order == std::endian::native) return;
  for (U32 i = 0; i < registers; ++i, bytes += format_.width) {
    std::reverse(bytes, bytes + format_.width);
  }
}

void RegisterHam::throwAbsent(U32 address, int error, const char* what) {
  isAbsent_ = true;
  throw ChipAbsent(bus_->name(), address, error, what);
}

}  // namespace Platform
