// The rows of the live view: who has which, and how they are published.
#include <telemetry/LiveView.h>

#include <Zint/Sizes.h>
#include <telemetry/LiveFormat.h>
#include <telemetry/Telemetry.h>

namespace Telemetry {

namespace {

// The time from which the totals of a row count. An earlier version of the library wrote a column
// of the chip's own under the same name.
const Column* sinceOf(const Table& table) {
  for (const Column& column : table.columns) {
    if (column.name == "since" && column.unit == wallClockUnit) return &column;
  }
  return nullptr;
}

}  // namespace

std::string Subject::key() const {
  std::string key = std::to_string(static_cast<U32>(table)) + '\n';
  key += name.substr(0, RowSource::textBytes - 1) + '\n';
  // Where its row is matched by more than the name.
  return key + chip.substr(0, RowSource::textBytes - 1);
}

// --- Subjects ---

void LiveView::add(Subject& subject, S64 wallClock) {
  RowSource& source = sourceOf(subject.table);
  source.addType(*subject.type);
  seed(subject, wallClock);
  Slots& slots = slotsOf(subject.table);
  if (slots.free.empty()) {
    subject.slot = Zint::countOf(slots.subjects);
    slots.subjects.push_back(&subject);
  } else {
    subject.slot = slots.free.front();
    slots.free.pop_front();
    slots.subjects[subject.slot] = &subject;
  }
  publish(subject, RowSource::What::all);
}

void LiveView::remove(Subject& subject) {
  if (subject.slot == Subject::noSlot) return;
  Slots& slots = slotsOf(subject.table);
  slots.subjects[subject.slot] = nullptr;
  slots.free.push_back(subject.slot);
  keepSeed(subject);
  writeState(static_cast<U32>(subject.table), subject.slot, Row::gone_);
  subject.slot = Subject::noSlot;
}

void LiveView::publish(Subject& subject, RowSource::What what) {
  if (file_ == nullptr || subject.slot >= layout_.rows[static_cast<U32>(subject.table)]) return;
  write(*file_, layout_, subject, what);
}

void LiveView::write(SharedFile& file, const Layout& layout, Subject& subject,
                     RowSource::What what) {
  const Zint::Ptr<const Zint::PtrInterface> object(subject.object());
  if (object == nullptr) return;
  const U32 table = static_cast<U32>(subject.table);
  RowSource& source = *sources_[table];
  Word* row = file.words(layout.firstRow[table] + source.rowBytes() * subject.slot);
  const U32 words = source.rowBytes() / U32{sizeof(U32)};
  scratch_.assign(words, 0);
  if (what != RowSource::What::all) {
    for (U32 i = 1; i < words; ++i) scratch_[i] = row[i].load(std::memory_order_relaxed);
  }
  const std::span<U32> copy = scratch_;
  try {
    source.fill(copy, *subject.type, object.ptr(), subject.totals, what);
    if (sinceColumn_[table] != RowSource::none) {
      source.fill(copy, regionFiguresType, &subject.figures, {}, what);
      RowSource::putNumber(copy, source.column(sinceColumn_[table]),
                           static_cast<U64>(subject.since));
    }
    if (what == RowSource::What::all) {
      const auto put = [&](U32 column, const std::string& text) {
        if (column != RowSource::none) RowSource::putText(copy, source.column(column), text);
      };
      put(nameColumn_[table], subject.name);
      put(shadowColumn_[table], subject.shadow);
      put(chipColumn_[table], subject.chip);
      if (subject.table == TableId::region) {
        const auto& region = static_cast<const Hardware::ChipMemory&>(*object);
        RowSource::putNumber(copy, source.column(entriesColumn_), region.entries());
      }
    }
  } catch (const std::exception& exception) {
    return tell_("the row of " + subject.name + ": " + exception.what());
  }
  copy[RowSource::stateWord] = Row::used_;
  RowWriter writer(row);
  for (U32 i = 1; i < words; ++i) writer.word(i, copy[i]);
  ++publications_;
}

void LiveView::writeState(U32 table, U32 slot, Row::State state) {
  if (file_ == nullptr || slot >= layout_.rows[table]) return;
  RowWriter writer(file_->words(layout_.firstRow[table] + sources_[table]->rowBytes() * slot));
  writer.word(RowSource::stateWord, state);
}

U32 LiveView::notFit() const { return file_ == nullptr ? notFitIn(Layout()) : notFitIn(layout_); }

U32 LiveView::notFitIn(const Layout& layout) const {
  U32 count = 0;
  for (U32 table = 0; table < tableIds; ++table) {
    const std::deque<Subject*>& subjects = slots_[table].subjects;
    for (std::size_t slot = layout.rows[table]; slot < subjects.size(); ++slot) {
      if (subjects[slot] != nullptr) ++count;
    }
  }
  return count;
}

// --- The heartbeat ---

void LiveView::beat(Heartbeat::State state, const Times& times) {
  ++beats_;
  if (file_ != nullptr) writeBeat(*file_, layout_, state, times);
}

void LiveView::writeBeat(SharedFile& file, const Layout& layout, Heartbeat::State state,
                         const Times& times) {
  namespace At = LiveFormat;
  RowWriter writer(file.words(At::heartbeat));
  writer.word(At::beatState, state);
  writer.time(At::beatMonotonic, times.monotonic);
  writer.time(At::beatWallClock, times.wallClock);
  writer.number(At::beatCount, beats_);
  writer.word(At::beatNotFit, notFitIn(layout));
  writer.word(At::beatPointerBits, 8 * sizeof(void*));
}

void LiveView::markFailed() noexcept {
  if (file_ == nullptr) return;
  RowWriter writer(file_->words(LiveFormat::heartbeat));
  writer.word(LiveFormat::beatState, Heartbeat::failed);
}

// --- Totals of an earlier time ---

U32 LiveView::nameNumber(const std::string& total) {
  const auto found = std::find(totalNames_.begin(), totalNames_.end(), total);
  if (found != totalNames_.end()) return static_cast<U32>(found - totalNames_.begin());
  totalNames_.push_back(total);
  return Zint::countOf(totalNames_) - 1;
}

void LiveView::readSeeds() {
  try {
    const LiveReader old(settings_.path);
    for (U32 i = 0; i < tableIds; ++i) {
      if (sinceColumn_[i] == RowSource::none) continue;
      const Table* table = old.find(sources_[i]->table().name);
      const Column* since = table == nullptr ? nullptr : sinceOf(*table);
      const Column* name = table == nullptr ? nullptr : table->find("name");
      if (since == nullptr || name == nullptr) continue;
      const Column* chip = table->find("chip");
      const Column* lastFinding = table->find("lastFindingTime");
      std::vector<std::pair<const Column*, U32>> totals;
      for (const Column& column : table->columns) {
        if (column.isTotal) totals.emplace_back(&column, nameNumber(column.name));
      }
      for (const Row& row : old.rows(*table)) {
        if (row.state() == Row::free_) continue;
        Subject subject;
        subject.table = static_cast<TableId>(i);
        subject.name = row.text(*name);
        if (chip != nullptr) subject.chip = row.text(*chip);
        Seed& seed = seeds_[subject.key()];
        seed.since = row.time(*since);
        if (lastFinding != nullptr) seed.lastFinding = row.time(*lastFinding);
        seed.totals.clear();
        for (const auto& [column, number] : totals) {
          if (row.number(*column) != 0) seed.totals.emplace_back(number, row.number(*column));
        }
      }
    }
  } catch (const Zint::RangeException&) {
    // None, or one that cannot be read: the totals begin now.
  }
}

void LiveView::seed(Subject& subject, S64 wallClock) {
  const RowSource& source = sourceOf(subject.table);
  subject.totals.assign(source.totals(), {});
  subject.since = wallClock;
  const auto found = seeds_.find(subject.key());
  if (found == seeds_.end()) return;
  const Seed& seed = found->second;
  subject.since = seed.since;
  if (seed.lastFinding != 0) {
    subject.figures.seedLastFindingTime(secondsOfTime(seed.lastFinding));
  }
  for (const auto& [number, value] : seed.totals) {
    const std::string& name = totalNames_[number];
    const Column* column = source.table().find(name);
    if (column == nullptr) continue;
    const U32 total = source.totalOf(static_cast<U32>(column - source.table().columns.data()));
    if (total == RowSource::none) {
      subject.figures.seed(name, value);
    } else {
      subject.totals[total].carried = value;
    }
  }
  seeds_.erase(found);
}

void LiveView::keepSeed(const Subject& subject) {
  const U32 table = static_cast<U32>(subject.table);
  if (sinceColumn_[table] == RowSource::none || file_ == nullptr ||
      subject.slot >= layout_.rows[table]) {
    return;
  }
  // As it was published last.
  const RowSource& source = *sources_[table];
  const Word* row = file_->words(layout_.firstRow[table] + source.rowBytes() * subject.slot);
  Seed& seed = seeds_[subject.key()];
  seed.since = subject.since;
  seed.lastFinding = timeOfSeconds(subject.figures.lastFindingTime());
  seed.totals.clear();
  for (const Column& column : source.table().columns) {
    if (!column.isTotal) continue;
    const U32 at = column.offset / 4;
    const U64 value = row[at].load(std::memory_order_relaxed) |
                      U64{row[at + 1].load(std::memory_order_relaxed)} << 32;
    if (value != 0) seed.totals.emplace_back(nameNumber(column.name), value);
  }
}

}  // namespace Telemetry
