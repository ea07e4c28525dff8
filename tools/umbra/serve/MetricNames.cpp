#include <algorithm>
#include <array>

#include "tools/umbra/serve/Json.h"
#include "tools/umbra/serve/Metrics.h"

namespace Serve {
namespace {

// Names that say more to people who do not know the attributes.
struct WellKnown {
  std::string_view table;
  std::string_view column;
  const char* name;  // without table and unit
  const char* help;
};
constexpr WellKnown wellKnown[] = {
    {"region", "registersFixed", "rewritten_entries",
     "entries that were rewritten from the shadow"},
    {"region", "lastFixTime", "last_rewrite", "when an entry was last rewritten from the shadow"},
    {"region", "lastFindingTime", "last_finding", "when an entry was last found to differ"},
    {"region", "findings", "findings", "entries that were found to differ"},
    {"region", "repairs", "repairs", "entries that were repaired"},
    {"region", "entrySize", "entry_size", "size of an entry"},
    {"shadow", "audits", "passes", "passes that have begun"},
    {"shadow", "findings", "findings", "entries that were found to differ"},
    {"shadow", "repairs", "repairs", "entries that were repaired"},
    {"shadow", "transients", "transients", "differences that a second look did not confirm"},
    {"shadow", "quarantined", "quarantined_entries", "entries that are reported and not repaired"},
    {"shadow", "lastPassTime", "last_pass", "when the last complete pass ended"},
    {"shadow", "passEntries", "pass_entries", "entries of the pass under way"},
    {"shadow", "passEntriesDone", "pass_done_entries", "entries of the pass that were looked at"},
    {"chip", "isAbsent", "absent", "1 while the chip does not answer"},
    {"chip", "absences", "absences", "how often the chip was absent"},
    {"chip", "resets", "resets", "how often the chip lost its state"},
    {"alarm", "state", "state", "state of the alarm"},
    {"alarm", "raises", "raises", "how often the alarm was raised"},
    {"alarm", "findings", "findings", "findings that the alarm counted"},
};

struct BaseUnit {
  std::string_view unit;
  const char* base;
  double factor;
};
constexpr BaseUnit baseUnits[] = {
    {"seconds", "seconds", 1},
    {"milliseconds", "seconds", 1e-3},
    {"microseconds", "seconds", 1e-6},
    {"nanoseconds", "seconds", 1e-9},
    {"bytes", "bytes", 1},
    {"percent", "ratio", 0.01},
    {"share", "ratio", 1},
    {"ratio", "ratio", 1},
};

constexpr std::string_view computed[] = {"findingsIn5s", "findingsIn1m", "findingsIn1h",
                                         "lastPassAge"};
constexpr std::string_view regionGauges[] = {"entries", "entrySize", "mode", "auditEnabled",
                                             "shadowEnabled"};

bool isUpper(char letter) { return letter >= 'A' && letter <= 'Z'; }

std::string snake(std::string_view name) {
  std::string text;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char letter = name[i];
    const bool isWord =
        isUpper(letter) || (letter >= 'a' && letter <= 'z') || (letter >= '0' && letter <= '9');
    // A word begins at a capital that follows a small letter, or that a small letter follows.
    if (isUpper(letter) && i > 0 &&
        (!isUpper(name[i - 1]) || (i + 1 < name.size() && !isUpper(name[i + 1]))) &&
        !text.empty() && text.back() != '_') {
      text += '_';
    }
    text += isUpper(letter) ? static_cast<char>(letter - 'A' + 'a') : isWord ? letter : '_';
  }
  return text;
}

bool endsWithWord(std::string_view text, std::string_view word) {
  return text.size() > word.size() && text.ends_with(word) &&
         text[text.size() - word.size() - 1] == '_';
}

void dropWord(std::string& text, std::string_view word) {
  if (endsWithWord(text, word)) text.resize(text.size() - word.size() - 1);
}

}  // namespace

bool isExported(const std::string& table, const Column& column) {
  if (!column.isNumber() || column.name == "since") return false;
  if (std::ranges::find(computed, column.name) != std::end(computed)) return false;
  return table != "region" || column.total || isMoment(column) ||
         std::ranges::find(regionGauges, column.name) != std::end(regionGauges);
}

MetricName metricName(const std::string& table, const Column& column) {
  MetricName metric;
  std::string word = snake(column.name);
  metric.help = column.help;
  const auto known = std::ranges::find_if(wellKnown, [&](const WellKnown& each) {
    return each.table == table && each.column == column.name;
  });
  if (known != std::end(wellKnown)) {
    word = known->name;
    metric.help = known->help;
  }
  dropWord(word, "total");
  if (column.kind == Kind::time) {
    metric.factor = 1e-9;
    metric.unit = "seconds";
    if (isMoment(column)) {
      dropWord(word, "time");
      word += "_timestamp";
    }
  } else if (column.names.empty() && column.kind != Kind::boolean) {
    const auto base = std::ranges::find(baseUnits, column.unit, &BaseUnit::unit);
    if (base != std::end(baseUnits)) {
      metric.unit = base->base;
      metric.factor = base->factor;
    } else if (endsWithWord(word, column.unit)) {
      // A unit like "entries": where the name says it.
      metric.unit = column.unit;
    }
  }
  if (!metric.unit.empty()) dropWord(word, metric.unit);
  metric.name = "umbra_" + snake(table) + "_" + word;
  if (!metric.unit.empty()) metric.name += "_" + metric.unit;
  if (metric.help.empty()) metric.help = "attribute " + column.name + " of each " + table;
  return metric;
}

}  // namespace Serve
