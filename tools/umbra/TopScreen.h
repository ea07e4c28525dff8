// The screen of `umbra top`: what stands on its lines, and what a key changes. It knows no
// terminal.
#pragma once

#include "tools/umbra/TopModel.h"

namespace Tool {

enum class Style { plain, head, bold, good, warning, bad, chosen, faint };

struct Span {
  std::string text;
  Style style = Style::plain;
};
using Line = std::vector<Span>;

class TopScreen {
 public:
  // Keys that are no characters.
  enum Key { up = 0x110000, down, pageUp, pageDown, home, end, enter, escape, backspace };

  explicit TopScreen(const TopModel& model, bool blocks) : model_(model), blocks_(blocks) {}

  // False: the program ends.
  bool take(int key);
  // Since the last call: another driver is wanted.
  bool takesNextDriver() { return std::exchange(nextDriver_, false); }

  // At most `rows` lines of `columns` columns. The place that was chosen stays in view.
  std::vector<Line> lines(std::size_t columns, std::size_t rows, S64 now);

 private:
  enum class Page { regions, region, alarms, events, help };
  enum class Sort { name, findings, repairs, minute, hour, last };

  bool takeInFilter(int key);
  void takeInPage(int key);
  void move(long long by);
  std::vector<const TopRegion*> shown() const;
  void addHead(std::vector<Line>& lines, std::size_t columns) const;
  Line passLine(const TopPass& pass, std::size_t columns) const;
  void addAlarmsInShort(std::vector<Line>& lines) const;
  void addRegions(std::vector<Line>& lines, std::size_t columns, std::size_t rows, S64 now);
  void addTexts(std::vector<Line>& lines, std::size_t rows, const std::vector<std::string>& texts);
  void addRegion(std::vector<Line>& lines, std::size_t rows);
  void addAlarms(std::vector<Line>& lines, std::size_t rows, S64 now);
  Line bottom() const;

  const TopModel& model_;
  bool blocks_;  // the terminal shows block characters
  Page page_ = Page::regions;
  Sort sort_ = Sort::hour;
  bool isReversed_ = false;
  std::string filter_;
  bool editsFilter_ = false;
  std::string chosen_;      // region; empty: the first
  std::size_t top_ = 0;     // first line of the listing in view
  std::size_t scroll_ = 0;  // of a page of texts
  std::size_t height_ = 1;  // lines of the listing
  bool nextDriver_ = false;
};

}  // namespace Tool
