#include "tools/umbra/TopScreen.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace Tool {
namespace {

constexpr const char* helpTexts[] = {
    "up down PgUp PgDn Home End   choose a region, or scroll",
    "Enter                        look into the region; Esc or q goes back",
    "s                            sort by the next column; r turns it round",
    "/                            show regions whose name, chip or shadow holds a text",
    "a                            alarms",
    "e                            events",
    "Tab                          the next driver",
    "h                            this help",
    "q                            end",
};

constexpr const char* sortTitles[] = {"REGION", "FINDINGS", "REPAIRS", "1 MIN", "1 H", "AGO"};

Style styleOf(std::string_view word) {
  const std::string_view colour = colourOf(word);
  if (colour == "\033[32m") return Style::good;
  if (colour == "\033[33m") return Style::warning;
  if (colour == "\033[31m") return Style::bad;
  return Style::plain;
}

std::string fitted(const std::string& text, std::size_t width, bool right = false) {
  const std::string shown = printable(text, width);
  const std::size_t size = columnsOf(shown);
  const std::string blanks(width > size ? width - size : 0, ' ');
  return right ? blanks + shown : shown + blanks;
}

std::string agoText(const std::optional<S64>& time, S64 now) {
  if (!time) return "-";
  return durationText(std::max(0.0, static_cast<double>(now - *time) * 1e-9));
}

std::string barText(double share, std::size_t width, bool blocks) {
  const auto full = static_cast<std::size_t>(share * static_cast<double>(width) + 0.5);
  std::string bar;
  for (std::size_t i = 0; i < width; ++i) {
    bar += i < full ? (blocks ? "\u2588" : "#") : (blocks ? "\u2591" : "-");
  }
  return bar;
}

std::string countText(U64 number) { return textOf(Form::count, number); }

}  // namespace

bool TopScreen::take(int key) {
  if (editsFilter_) return takeInFilter(key);
  switch (key) {
    case 'q':
      if (page_ == Page::regions) return false;
      page_ = Page::regions;
      scroll_ = 0;
      return true;
    case escape:
      if (page_ == Page::regions) filter_.clear();
      page_ = Page::regions;
      scroll_ = 0;
      return true;
    case '\t':
      nextDriver_ = true;
      chosen_.clear();
      page_ = Page::regions;
      top_ = 0;
      return true;
    case 'h':
    case '?':
      page_ = Page::help;
      scroll_ = 0;
      return true;
    case 'a':
      page_ = Page::alarms;
      scroll_ = 0;
      return true;
    case 'e':
      page_ = Page::events;
      scroll_ = 0;
      return true;
    default:
      takeInPage(key);
      return true;
  }
}

bool TopScreen::takeInFilter(int key) {
  if (key == enter || key == escape) {
    if (key == escape) filter_.clear();
    editsFilter_ = false;
  } else if (key == backspace) {
    while (!filter_.empty() && (static_cast<unsigned char>(filter_.back()) & 0xC0) == 0x80) {
      filter_.pop_back();
    }
    if (!filter_.empty()) filter_.pop_back();
  } else if (key >= ' ' && key < 0x100 && filter_.size() < 63) {
    filter_ += static_cast<char>(key);
  }
  top_ = 0;
  return true;
}

void TopScreen::takeInPage(int key) {
  const auto page = static_cast<long long>(height_);
  switch (key) {
    case up:
    case 'k':
      return move(-1);
    case down:
    case 'j':
      return move(1);
    case pageUp:
      return move(-page);
    case pageDown:
      return move(page);
    case home:
      return move(-1'000'000'000);
    case end:
      return move(1'000'000'000);
    default:
      break;
  }
  if (page_ != Page::regions) return;
  switch (key) {
    case enter: {
      const std::vector<const TopRegion*> regions = shown();
      if (chosen_.empty() && !regions.empty()) chosen_ = regions.front()->name;
      if (!chosen_.empty()) page_ = Page::region;
      scroll_ = 0;
      return;
    }
    case 's':
      sort_ = static_cast<Sort>((static_cast<int>(sort_) + 1) % std::size(sortTitles));
      return;
    case 'r':
      isReversed_ = !isReversed_;
      return;
    case '/':
      editsFilter_ = true;
      return;
    default:
      return;
  }
}

void TopScreen::move(long long by) {
  const auto moved = [by](std::size_t from, std::size_t most) {
    return static_cast<std::size_t>(
        std::clamp(static_cast<long long>(from) + by, 0LL, static_cast<long long>(most)));
  };
  if (page_ != Page::regions) {
    scroll_ = moved(scroll_, 1'000'000'000);
    return;
  }
  const std::vector<const TopRegion*> regions = shown();
  if (regions.empty()) return;
  const auto at = std::find_if(regions.begin(), regions.end(),
                               [this](const TopRegion* region) { return region->name == chosen_; });
  const std::size_t index =
      at == regions.end() ? 0 : static_cast<std::size_t>(at - regions.begin());
  chosen_ = regions[moved(index, regions.size() - 1)]->name;
}

std::vector<const TopRegion*> TopScreen::shown() const {
  std::vector<const TopRegion*> regions;
  for (const TopRegion& region : model_.regions()) {
    if (filter_.empty() || region.name.find(filter_) != std::string::npos ||
        region.chip.find(filter_) != std::string::npos ||
        region.shadow.find(filter_) != std::string::npos) {
      regions.push_back(&region);
    }
  }
  // Numbers begin with the largest, names with the first.
  const auto isBefore = [this](const TopRegion& a, const TopRegion& b) {
    switch (sort_) {
      case Sort::findings:
        return a.findings > b.findings;
      case Sort::repairs:
        return a.repairs > b.repairs;
      case Sort::minute:
        return a.lastMinute > b.lastMinute;
      case Sort::hour:
        return a.lastHour > b.lastHour;
      case Sort::last:
        return a.lastFinding > b.lastFinding;
      case Sort::name:
        break;
    }
    return a.name < b.name;
  };
  std::stable_sort(regions.begin(), regions.end(), [&](const TopRegion* a, const TopRegion* b) {
    return isReversed_ ? isBefore(*b, *a) : isBefore(*a, *b);
  });
  return regions;
}

Line TopScreen::passLine(const TopPass& pass, std::size_t columns) const {
  Line line = {{fitted(pass.shadow.empty() ? "shadow" : pass.shadow, 14) + " "},
               {fitted(pass.state, 10), styleOf(pass.state)}};
  if (pass.state == "reading" || pass.state == "paused" || pass.state == "suspended") {
    const std::size_t width = columns > 76 ? 20 : 8;
    char share[16];
    std::snprintf(share, sizeof share, " %5.1f %%", pass.share() * 100);
    line.push_back({" [" + barText(pass.share(), width, blocks_) + "]" + share});
  }
  if (pass.timeLeft) line.push_back({"  left " + durationText(*pass.timeLeft)});
  if (pass.period && *pass.period > 0) line.push_back({"  period " + durationText(*pass.period)});
  if (!pass.reason.empty()) line.push_back({"  " + printable(pass.reason)});
  return line;
}

void TopScreen::addAlarmsInShort(std::vector<Line>& lines) const {
  Line line = {{"alarms  "}};
  std::size_t active = 0;
  for (const TopAlarm& alarm : model_.alarms()) {
    if (alarm.state != "raised" && alarm.state != "acknowledged") continue;
    if (active++ > 0) line.push_back({", "});
    line.push_back({printable(alarm.name), styleOf(alarm.state)});
  }
  if (active == 0) line.push_back({"none", Style::good});
  lines.push_back(std::move(line));
  line = {{"chips   "}};
  for (std::size_t i = 0; i < model_.chips().size(); ++i) {
    const TopChip& chip = model_.chips()[i];
    if (i > 0) line.push_back({", "});
    line.push_back({printable(chip.name) + " "});
    line.push_back({chip.state, styleOf(chip.state)});
    if (chip.resets > 0) {
      line.push_back({" (" + countText(chip.resets) + (chip.resets == 1 ? " reset)" : " resets)")});
    }
  }
  if (model_.chips().empty()) line.push_back({"none", Style::faint});
  lines.push_back(std::move(line));
}

void TopScreen::addHead(std::vector<Line>& lines, std::size_t columns) const {
  lines.push_back(
      {{printable(model_.driver()), Style::bold},
       {"  "},
       {model_.livenessText(), styleOf(model_.liveness())},
       {"  pid " + std::to_string(model_.pid()) + "  " + std::to_string(model_.pointerBits()) +
        " bits  up " + durationText(model_.uptime())}});
  lines.push_back({{"findings "},
                   {countText(model_.lastMinute()), Style::bold},
                   {" a minute, "},
                   {countText(model_.lastHour()), Style::bold},
                   {" an hour, " + countText(model_.findings()) + " in all; repairs " +
                    countText(model_.repairs())}});
  if (model_.notFit() > 0) {
    lines.push_back({{countText(model_.notFit()) + " objects have no row here", Style::warning}});
  }
  for (const TopPass& pass : model_.passes()) {
    if (lines.size() > 6) break;
    lines.push_back(passLine(pass, columns));
  }
  addAlarmsInShort(lines);
}

void TopScreen::addRegions(std::vector<Line>& lines, std::size_t columns, std::size_t rows,
                           S64 now) {
  const std::vector<const TopRegion*> regions = shown();
  const std::size_t nameWidth = columns > 100 ? 28 : columns > 70 ? 14 : 10;
  const std::size_t chipWidth = columns > 70 ? 8 : 0;
  const auto title = [this](Sort sort) {
    const std::string text = sortTitles[static_cast<std::size_t>(sort)];
    return sort == sort_ ? (isReversed_ ? "^" : "v") + text : text;
  };
  std::string head = fitted(title(Sort::name), nameWidth) + " ";
  if (chipWidth > 0) head += fitted("CHIP", chipWidth) + " ";
  head += fitted(title(Sort::findings), 9, true) + fitted(title(Sort::repairs), 9, true) +
          fitted(title(Sort::minute), 7, true) + fitted(title(Sort::hour), 7, true) + "  " +
          fitted(title(Sort::last), 12);
  lines.push_back({{fitted(head, columns), Style::head}});

  height_ = rows > lines.size() ? rows - lines.size() : 1;
  std::size_t chosen = 0;
  for (std::size_t i = 0; i < regions.size(); ++i) {
    if (regions[i]->name == chosen_) chosen = i;
  }
  if (top_ > chosen) top_ = chosen;
  if (chosen >= top_ + height_) top_ = chosen - height_ + 1;
  if (top_ + height_ > regions.size()) {
    top_ = regions.size() > height_ ? regions.size() - height_ : 0;
  }
  for (std::size_t i = top_; i < regions.size() && i < top_ + height_; ++i) {
    const TopRegion& region = *regions[i];
    std::string text = fitted(region.name, nameWidth) + " ";
    if (chipWidth > 0) text += fitted(region.chip, chipWidth) + " ";
    text += fitted(countText(region.findings), 9, true) +
            fitted(countText(region.repairs), 9, true) +
            fitted(countText(region.lastMinute), 7, true) +
            fitted(countText(region.lastHour), 7, true) + "  " +
            fitted(agoText(region.lastFinding, now), 12);
    if (!region.mode.empty() && region.mode != "normal") text += " " + region.mode;
    if (region.isTorn) text += " torn";
    const Style style = i == chosen             ? Style::chosen
                        : region.lastMinute > 0 ? Style::bad
                        : region.lastHour > 0   ? Style::warning
                                                : Style::plain;
    lines.push_back({{fitted(text, columns), style}});
  }
  if (regions.empty()) {
    lines.push_back(
        {{filter_.empty() ? "no region" : "no region holds '" + printable(filter_) + "'",
          Style::faint}});
  }
}

void TopScreen::addTexts(std::vector<Line>& lines, std::size_t rows,
                         const std::vector<std::string>& texts) {
  height_ = rows > lines.size() ? rows - lines.size() : 1;
  scroll_ = std::min(scroll_, texts.size() > height_ ? texts.size() - height_ : 0);
  for (std::size_t i = scroll_; i < texts.size() && i < scroll_ + height_; ++i) {
    lines.push_back({{texts[i]}});
  }
}

void TopScreen::addRegion(std::vector<Line>& lines, std::size_t rows) {
  std::vector<std::string> texts;
  std::size_t width = 0;
  const auto columns = model_.columnsOf(chosen_);
  for (const auto& [name, value] : columns) width = std::max(width, columnsOf(name));
  lines.push_back({{"region " + printable(chosen_), Style::head}});
  if (columns.empty()) texts.emplace_back("the region is no more");
  for (const auto& [name, value] : columns) {
    texts.push_back(fitted(name, width) + "  " + printable(value));
  }
  const std::vector<std::string> events = model_.events(chosen_, 100);
  if (!events.empty()) texts.emplace_back();
  for (auto event = events.rbegin(); event != events.rend(); ++event) texts.push_back(*event);
  addTexts(lines, rows, texts);
}

void TopScreen::addAlarms(std::vector<Line>& lines, std::size_t rows, S64 now) {
  lines.push_back({{fitted("ALARM", 40) + fitted("STATE", 14) + fitted("FINDINGS", 10, true) +
                        fitted("RAISES", 8, true) + "  RAISED, AGO",
                    Style::head}});
  std::vector<std::string> texts;
  for (const TopAlarm& alarm : model_.alarms()) {
    texts.push_back(fitted(alarm.name, 39) + " " + fitted(alarm.state, 14) +
                    fitted(countText(alarm.findings), 10, true) +
                    fitted(countText(alarm.raises), 8, true) + "  " + agoText(alarm.raised, now));
  }
  if (texts.empty()) texts.emplace_back("no alarm");
  addTexts(lines, rows, texts);
}

Line TopScreen::bottom() const {
  if (editsFilter_) return {{"filter: " + printable(filter_) + "_", Style::bold}};
  if (page_ != Page::regions) return {{"q back  up/down scroll  h help", Style::faint}};
  const std::string filter = filter_.empty() ? "" : "  [filter " + printable(filter_) + "]";
  return {
      {"q end  s sort  r reverse  / filter  Enter look into  a alarms  e events  h help" + filter,
       Style::faint}};
}

std::vector<Line> TopScreen::lines(std::size_t columns, std::size_t rows, S64 now) {
  std::vector<Line> lines;
  const std::size_t room = rows > 1 ? rows - 1 : 1;
  addHead(lines, columns);
  lines.emplace_back();
  switch (page_) {
    case Page::regions:
      addRegions(lines, columns, room, now);
      break;
    case Page::region:
      addRegion(lines, room);
      break;
    case Page::alarms:
      addAlarms(lines, room, now);
      break;
    case Page::events: {
      std::vector<std::string> texts = model_.events({}, 1000);
      std::reverse(texts.begin(), texts.end());
      lines.push_back({{"events, the newest first", Style::head}});
      addTexts(lines, room, texts);
      break;
    }
    case Page::help:
      lines.push_back({{"keys", Style::head}});
      addTexts(lines, room, {std::begin(helpTexts), std::end(helpTexts)});
      break;
  }
  lines.resize(room);
  lines.push_back(bottom());
  return lines;
}

}  // namespace Tool
