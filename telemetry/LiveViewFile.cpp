// The file of the live view: how it is made, in pieces.
#include <Driver/Descriptions.h>
#include <Hardware/Descriptions.h>
#include <Zint/Sizes.h>
#include <telemetry/LiveFormat.h>
#include <telemetry/LiveView.h>
#include <telemetry/Telemetry.h>
#include <unistd.h>

#include <algorithm>

namespace Telemetry {
namespace {

// Until a file that could not be made is tried again.
constexpr Zint::Seconds viewRetryInterval = 10;
constexpr U32 rowsPerLook = 4;  // at the clock
constexpr U32 viewPageBytes = 4096;

struct TableKind {
  const char* name;
  const Zint::Type* type;
  bool isNamed;     // its objects have no name of their own
  bool hasFigures;  // and totals that survive a restart
  bool hasShadow;
  bool hasChip;
};
// In the order of TableId.
const TableKind tableKinds[tableIds] = {
    {"shadow", &Driver::auditedShadowType, true, true, false, false},
    {"reader", &Hardware::chipReaderType, true, false, false, false},
    {"region", &Hardware::chipMemoryType, false, true, true, true},
    {"alarm", &Driver::alarmType, false, false, false, false},
    {"chip", &Driver::chipType, false, true, true, false},
    {"governor", &Driver::governorType, true, false, false, false},
    {"publisher", &publisherType, false, false, false, false},
};

Column textColumn(const char* name, const char* help) {
  return {.name = name,
          .kind = ColumnKind::text,
          .bytes = RowSource::textBytes,
          .unit = "",
          .help = help,
          .type = ""};
}

U32 roundUp(U32 number, U32 to) { return (number + to - 1) / to * to; }

}  // namespace

LiveView::LiveView(Settings settings, Tell tell)
    : settings_(std::move(settings)),
      tell_(std::move(tell)),
      start_(Machine().wallClock()),
      processStart_(Machine().startOfProcess(static_cast<U32>(::getpid()))),
      bootId_(Machine().bootId()) {
  for (U32 i = 0; i < tableIds; ++i) {
    const TableKind& kind = tableKinds[i];
    sources_[i] = std::make_unique<RowSource>(kind.name);
    RowSource& source = *sources_[i];
    const auto text = [&source](bool isThere, const char* name, const char* help) {
      return isThere ? source.addColumn(textColumn(name, help)) : RowSource::none;
    };
    nameColumn_[i] = text(kind.isNamed, "name", "what the driver calls it");
    shadowColumn_[i] = text(kind.hasShadow, "shadow", "the shadow that it belongs to");
    chipColumn_[i] = text(kind.hasChip, "chip", "the chip that holds it");
    if (kind.type == &Hardware::chipMemoryType) {
      entriesColumn_ = source.addColumn(
          {.name = "entries", .unit = "entries", .help = "how many entries it has", .type = "U32"});
    }
    sinceColumn_[i] = RowSource::none;
    if (kind.hasFigures) {
      sinceColumn_[i] = source.addColumn({.name = "since",
                                          .kind = ColumnKind::time,
                                          .unit = wallClockUnit,
                                          .help = "the totals count from then on",
                                          .type = ""});
    }
    source.addType(*kind.type);
    if (kind.hasFigures) source.addPart(regionFiguresType);
  }
  readSeeds();
}

LiveView::~LiveView() = default;

void LiveView::socketsAre(std::string look, std::string admin) {
  socket_ = std::move(look);
  adminSocket_ = std::move(admin);
  if (file_ != nullptr) putSockets(*file_);
}

bool LiveView::isTooSmall() const {
  for (U32 i = 0; i < tableIds; ++i) {
    if (slots_[i].subjects.size() > layout_.rows[i]) return true;
  }
  return false;
}

bool LiveView::work(const Budget& budget, const Times& times) {
  if (retired_ != nullptr) {
    if (retired_->unmap()) retired_ = nullptr;
    return true;
  }
  if (stage_ == Stage::idle) {
    if (file_ != nullptr && !isLost_ && !isTooSmall()) return false;
    if (times.clock < retryTime_) return false;
    stage_ = Stage::beginning;
  }
  retryTime_ = times.clock + viewRetryInterval;
  try {
    do {
      if (step(times)) return true;
    } while (!budget.isSpent());
  } catch (const std::exception& exception) {
    fail(exception.what());
    return false;
  }
  return true;
}

// True: no more in this turn.
bool LiveView::step(const Times& times) {
  switch (stage_) {
    case Stage::beginning:
      // Columns are known from then on.
      for (const auto& source : sources_) {
        if (source->rowBytes() == 0) source->close();
      }
      begin();
      stage_ = Stage::making;
      return true;
    case Stage::making:
      if (!making_->make()) return false;
      writeHeader();
      stage_ = Stage::filling;
      fillTable_ = 0;
      fillSlot_ = 0;
      return true;
    case Stage::filling:
      if (fillMore()) return false;
      putOnline(times);
      stage_ = Stage::idle;
      return true;
    case Stage::idle:
      break;
  }
  return true;
}

void LiveView::begin() {
  U32 schemaBytes = 64;
  for (const auto& source : sources_) schemaBytes += Zint::countOf(source->json());
  U64 next = roundUp(headerBytes + schemaBytes, viewPageBytes);
  for (U32 i = 0; i < tableIds; ++i) {
    const U32 there = Zint::countOf(slots_[i].subjects);
    const U32 spare = i == static_cast<U32>(TableId::region) ? 64 : 8;
    const U32 rows = std::max({settings_.rows[i], there + there / 4 + spare, layout_.rows[i]});
    makingLayout_.firstRow[i] = static_cast<U32>(next);
    makingLayout_.rows[i] = rows;
    next += U64{sources_[i]->rowBytes()} * rows;
    if (next > settings_.maxBytes) {
      Zint::throwRangeException(settings_.path + ": more rows than a live view has room for");
    }
  }
  makingLayout_.bytes = roundUp(static_cast<U32>(next), viewPageBytes);
  making_ = std::make_unique<SharedFile>(settings_.path, makingLayout_.bytes);
}

void LiveView::writeHeader() {
  namespace At = LiveFormat;
  SharedFile& file = *making_;
  std::string schema = "{\"tables\":[";
  for (const auto& source : sources_) schema += (schema.back() == '[' ? "" : ",") + source->json();
  schema += "]}";
  const auto number = [&file](U32 at, auto value) { file.put(at, &value, sizeof value); };
  file.put(0, At::magic, 8);
  number(At::majorVersion, LiveReader::majorVersion);
  number(At::minorVersion, U32{0});
  number(At::headerSize, headerBytes);
  number(At::schema, headerBytes);
  number(At::schemaBytes, Zint::countOf(schema));
  number(At::tableCount, tableIds);
  number(At::fileBytes, file.bytes());
  number(At::pid, static_cast<U32>(::getpid()));
  number(At::processStart, processStart_);
  file.put(At::bootId, bootId_.data(), bootId_.size());
  file.put(At::name, settings_.name.data(),
           std::min<std::size_t>(settings_.name.size(), nameBytes - 1));
  number(At::startTime, start_);
  putSockets(file);
  for (U32 i = 0; i < tableIds; ++i) {
    const U32 at = At::tables + At::tableBytes * i;
    const std::string& name = sources_[i]->table().name;
    file.put(at, name.data(), name.size());
    number(at + At::tableNameBytes, makingLayout_.firstRow[i]);
    number(at + At::tableNameBytes + 4, sources_[i]->rowBytes());
    number(at + At::tableNameBytes + 8, makingLayout_.rows[i]);
  }
  file.put(headerBytes, schema.data(), schema.size());
}

void LiveView::putSockets(SharedFile& file) {
  const auto put = [&file](U32 at, const std::string& path) {
    std::array<char, LiveFormat::socketBytes> field{};
    std::copy_n(path.data(), std::min(path.size(), field.size() - 1), field.data());
    file.put(at, field.data(), field.size());
  };
  put(LiveFormat::socket, socket_);
  put(LiveFormat::adminSocket, adminSocket_);
}

bool LiveView::fillMore() {
  for (U32 i = 0; i < rowsPerLook; ++i) {
    while (fillTable_ < tableIds && fillSlot_ >= slots_[fillTable_].subjects.size()) {
      ++fillTable_;
      fillSlot_ = 0;
    }
    if (fillTable_ == tableIds) return false;
    Subject* subject = slots_[fillTable_].subjects[fillSlot_++];
    if (subject != nullptr && subject->slot < makingLayout_.rows[fillTable_]) {
      write(*making_, makingLayout_, *subject, RowSource::What::all);
    }
  }
  return true;
}

void LiveView::putOnline(const Times& times) {
  ++beats_;
  writeBeat(*making_, makingLayout_, Heartbeat::running, times);
  making_->publish();
  retired_ = std::move(file_);
  file_ = std::move(making_);
  layout_ = makingLayout_;
  isLost_ = false;
  retryTime_ = -Zint::never;
}

void LiveView::check() {
  if (file_ == nullptr || isLost_ || file_->isInPlace()) return;
  isLost_ = true;
  tell_(settings_.path + ": somebody has removed the file");
}

void LiveView::fail(const std::string& why) {
  making_ = nullptr;
  stage_ = Stage::idle;
  tell_(why);
}

}  // namespace Telemetry
