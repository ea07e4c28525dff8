#include "demo/common/StatusText.h"

#include <Zint/Strep.h>

#include <algorithm>

namespace Demo {
namespace {

template <class... Arguments>
std::string text(const char* pattern, Arguments... arguments) {
  return Zint::format(pattern, arguments...).bytes();
}

std::string percent(U64 part, U64 whole) {
  if (whole == 0) return "-";
  return text("%.1f %%", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

std::string bar(double progress) {
  constexpr std::size_t width = 40;
  const auto full = static_cast<std::size_t>(std::clamp(progress, 0.0, 1.0) * width);
  return std::string(full, '#') + std::string(width - full, '.');
}

std::string rowText(const StatusView::Row& row) {
  return text(" %-8s %8u  %-9s %11u %8u  %10s  %10s", row.name.c_str(), row.entries,
              row.mode.c_str(), row.differences, row.repairs,
              percent(row.readHits, row.read).c_str(), percent(row.writeHits, row.written).c_str());
}

}  // namespace

StatusView::Row StatusView::sum() const {
  Row sum;
  for (const Row& row : rows) {
    sum.entries += row.entries;
    sum.differences += row.differences;
    sum.repairs += row.repairs;
    sum.read += row.read;
    sum.readHits += row.readHits;
    sum.written += row.written;
    sum.writeHits += row.writeHits;
  }
  return sum;
}

StatusView statusOf(const Switch& theSwitch) {
  StatusView view;
  view.passes = theSwitch.shadow()->audits();
  view.progress = theSwitch.passProgress();
  if (const Table* table = theSwitch.tableBeingRead()) view.reading = table->layout->name;
  const Driver::PatrolState state = theSwitch.shadow()->patrolState();
  if (state != Driver::PatrolState::reading) view.patrol = stringValue(state).bytes();
  for (const Table& table : theSwitch.tables()) {
    const Hardware::ChipMemory& region = *table.region;
    StatusView::Row row;
    row.name = region.name().bytes();
    row.entries = region.entries();
    row.mode = stringValue(region.mode()).bytes();
    row.differences = theSwitch.shadow()->differences(region);
    row.repairs = region.registersFixed();
    if (region.shadowStoreNeeded() && region.readFromCache()) {
      row.read = table.entriesRead;
      row.readHits = region.readCacheHits();
    }
    if (region.shadowStoreNeeded() && region.skipWriteIfMatchesCache()) {
      row.written = table.entriesWritten;
      row.writeHits = region.writeCacheHits();
    }
    view.rows.push_back(row);
  }
  return view;
}

std::vector<std::string> statusPicture(const StatusView& view) {
  std::vector<std::string> lines;
  constexpr double day = 86400;  // what goes on for longer has no end that matters
  lines.push_back(view.seconds > day
                      ? text(" Umbra demonstration: %-26s %9.1f s", view.phase.c_str(), view.time)
                      : text(" Umbra demonstration: %-26s %9.1f s of %.1f s", view.phase.c_str(),
                             view.time, view.seconds));
  const bool isRunning = !view.reading.empty();
  lines.push_back(text(" pass %-7u [%s] %3.0f %%  %s", view.passes + (isRunning ? 1 : 0),
                       bar(view.progress).c_str(), 100 * view.progress,
                       isRunning ? view.reading.c_str() : view.patrol.c_str()));
  lines.push_back("");
  lines.push_back(" table     entries  mode      differences  repairs   read hits  write hits");
  for (const StatusView::Row& row : view.rows) lines.push_back(rowText(row));
  StatusView::Row sum = view.sum();
  sum.name = "all";
  lines.push_back(rowText(sum));
  lines.push_back("");
  lines.push_back(text(" %llu errors made by the chip, %u passes completed. Ctrl-C ends it.",
                       static_cast<unsigned long long>(view.injected), view.passes));
  return lines;
}

std::string statusLine(const StatusView& view) {
  const StatusView::Row sum = view.sum();
  const std::string running =
      view.reading.empty() ? "" : text(" and %.0f %% of the next", 100 * view.progress);
  return text(
      "%6.1f s  %s: passes %u%s, errors %llu, differences %u, repairs %u, read hits %s, "
      "write hits %s",
      view.time, view.phase.c_str(), view.passes, running.c_str(),
      static_cast<unsigned long long>(view.injected), sum.differences, sum.repairs,
      percent(sum.readHits, sum.read).c_str(), percent(sum.writeHits, sum.written).c_str());
}

}  // namespace Demo
