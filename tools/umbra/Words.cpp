// umbra words: what the shell completes a value with. It says nothing where there is nothing.
#include <CLI/CLI.hpp>
#include <algorithm>

#include "tools/umbra/EventLines.h"

namespace Tool {
namespace {

std::vector<std::string> namesIn(const Settings& settings, std::string_view table) {
  const ViewPtr view = theDriver(settings);
  const Rows rows(*view, table);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < rows.size(); ++i) names.push_back(rows.text(i, "name"));
  return names;
}

std::vector<std::string> wordsOf(const std::string& what, const Settings& settings) {
  if (what == "classes") return eventClasses();
  if (what == "regions") return namesIn(settings, "region");
  if (what == "alarms") return namesIn(settings, "alarm");
  std::vector<std::string> names;
  if (what == "drivers") {
    for (const Found& driver : driversIn(settings.directory)) names.push_back(driver.name);
  }
  return names;
}

// The shell takes the words apart, and evaluates them.
bool isPlain(const std::string& word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), [](char letter) {
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 ||
           std::string_view("._-/:+@").find(letter) != std::string_view::npos;
  });
}

}  // namespace

Runner addWords(CLI::App& app) {
  const auto what = std::make_shared<std::string>();
  app.add_option("what", *what)->required();
  return [what](const Settings& settings) {
    std::string text;
    for (const std::string& word : wordsOf(*what, settings)) {
      if (isPlain(word)) text += word + "\n";
    }
    write(text);
    return Exit::done;
  };
}

}  // namespace Tool
