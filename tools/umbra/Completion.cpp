// The completion for bash, made from the subcommands and their options.
#include <CLI/CLI.hpp>
#include <iostream>
#include <sstream>

#include "tools/umbra/Command.h"
#include "tools/umbra/Report.h"

namespace Tool {
namespace {

constexpr char scriptBegin[] = R"(# bash completion for umbra; made by `umbra completion`
_umbra_words() {
  local -a given=()
  local i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --dir | --driver | -d) given+=("${COMP_WORDS[i]}" "${COMP_WORDS[i + 1]}") ;;
    esac
  done
  "${COMP_WORDS[0]}" words "$1" "${given[@]}" 2>/dev/null
}

_umbra() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' options i place=0
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
)";

constexpr char middle[] = R"(      -*) ;;
      *) if [[ -z $command ]]; then command=${COMP_WORDS[i]}; else place=$((place + 1)); fi ;;
    esac
  done
)";

constexpr char scriptEnd[] = R"(  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
  fi
}
complete -F _umbra umbra
)";

std::vector<const CLI::App*> shownSubcommands(const CLI::App& app) {
  std::vector<const CLI::App*> all;
  for (const CLI::App* subcommand :
       app.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); })) {
    all.push_back(subcommand);
  }
  return all;
}

std::vector<std::string> spellings(const CLI::Option& option) {
  std::vector<std::string> all;
  for (const std::string& name : option.get_snames()) all.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) all.push_back("--" + name);
  return all;
}

bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

template <typename Texts>
std::string joined(const Texts& texts, const char* between) {
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : between) + text;
  return all;
}

// What completes a value, by the name of its kind.
std::string valuesOf(const std::string& kind) {
  const auto words = [](const std::string& what) {
    return "mapfile -t COMPREPLY < <(compgen -W \"" + what + "\" -- \"$word\")";
  };
  if (kind == "DIR") return "mapfile -t COMPREPLY < <(compgen -d -- \"$word\")";
  if (kind == "FILE") return "mapfile -t COMPREPLY < <(compgen -f -- \"$word\")";
  if (kind == "NAME") return words("$(_umbra_words drivers)");
  if (kind == "REGION") return words("$(_umbra_words regions)");
  if (kind == "ALARM") return words("$(_umbra_words alarms)");
  if (kind == "CLASS") return words("$(_umbra_words classes)");
  if (kind == "COLUMN") return words("$(_umbra_words columns)");
  if (kind == "ACTION") return words("import show propose check try diff header");
  if (kind == "WHEN") return words("auto always never");
  return ":";
}

}  // namespace

std::string completionText(const CLI::App& app) {
  std::ostringstream out;
  const std::vector<const CLI::App*> subcommands = shownSubcommands(app);
  std::vector<std::string> withValue, all, commandNames;
  std::string cases;
  const auto take = [&](const CLI::App& from, std::vector<std::string>& options) {
    for (const CLI::Option* option : from.get_options()) {
      const std::vector<std::string> names = spellings(*option);
      options.insert(options.end(), names.begin(), names.end());
      if (names.empty() || !takesValue(*option)) continue;
      withValue.insert(withValue.end(), names.begin(), names.end());
      const std::string pattern = joined(names, " | ");
      const std::string line =
          "    " + pattern + ") " + valuesOf(option->get_type_name()) + "; return ;;\n";
      if (cases.find(line) == std::string::npos) cases += line;
    }
  };
  take(app, all);
  std::ostringstream choices;
  for (const CLI::App* subcommand : subcommands) {
    commandNames.push_back(subcommand->get_name());
    std::vector<std::string> options = all;
    take(*subcommand, options);
    choices << "    " << subcommand->get_name() << ")\n      options='" << joined(options, " ")
            << "'\n      [[ $word == -* ]] || case $place in\n";
    int place = 0;
    for (const CLI::Option* option : subcommand->get_options()) {
      if (!option->get_positional()) continue;
      const std::string pattern = std::to_string(place++);
      choices << "        " << (option->get_items_expected_max() > 1 ? "*" : pattern) << ") "
              << valuesOf(option->get_type_name()) << " ;;\n";
    }
    choices << "      esac ;;\n";
  }
  out << scriptBegin << "      " << joined(withValue, " | ") << ") i=$((i + 1)) ;;\n"
      << middle << "  case $before in\n"
      << cases << "  esac\n  case $command in\n    '')\n      options='" << joined(all, " ")
      << "'\n      [[ $word == -* ]] || mapfile -t COMPREPLY < <(compgen -W '"
      << joined(commandNames, " ") << "' -- \"$word\") ;;\n"
      << choices.str() << "  esac\n"
      << scriptEnd;
  return out.str();
}

Runner addCompletion(CLI::App& app) {
  return [&app](const Settings&) {
    write(completionText(*app.get_parent()));
    return Exit::done;
  };
}

}  // namespace Tool
