// The manual page, made from the subcommands and their options.
#include <CLI/CLI.hpp>
#include <sstream>

#include "tools/umbra/Command.h"
#include "tools/umbra/Report.h"

namespace Tool {
namespace {

constexpr char afterwards[] = R"(.SH EXIT STATUS
.TP
.B 0
done
.TP
.B 1
it failed; standard error says why
.TP
.B 2
wrong usage
.TP
.B 3
there is nothing of what was asked for: no driver, no such region, no event
.SH ENVIRONMENT
.TP
.B UMBRA_DIR, UMBRA_DRIVER
stand for \fB\-\-dir\fR and \fB\-\-driver\fR
.TP
.B NO_COLOR
no colours, if not empty
.TP
.B PAGER
what shows listings that are longer than the screen (default less)
.SH FILES
.TP
.I /run/umbra/NAME.live
the live view of a driver: its last state, also after its end
.TP
.I /run/umbra/NAME.events
its log of events
.TP
.I /run/umbra/NAME.trace, /run/umbra/NAME.trace.old
its trace records, and those of the process before where it did not end in order
.TP
.I /run/umbra/NAME.sock, /run/umbra/NAME.admin.sock
its control sockets: the first one looks only, the second exists where the driver offers it
.SH EXAMPLES
.nf
umbra ps
umbra top \-\-driver switch1
umbra events \-\-follow \-\-class finding
umbra trace \-\-level 0 \-\-since 10m
umbra dump vlan 0x10..0x1f \-\-chip
umbra why vlan 0x12
umbra post\-mortem /run/umbra/switch1.live
umbra map show chip.svd \-\-overlay chip.overlay \-\-undecided
.fi
)";

std::string escaped(std::string_view text) {
  std::string result;
  bool beginsLine = true;
  for (const char letter : text) {
    if (beginsLine && (letter == '.' || letter == '\'')) result += "\\&";
    if (letter == '\\') {
      result += "\\e";
    } else if (letter == '-') {
      result += "\\-";
    } else {
      result += letter;
    }
    beginsLine = letter == '\n';
  }
  return result;
}

void writeOption(std::ostringstream& out, const CLI::Option& option) {
  if (option.get_positional()) {
    out << ".TP\n.I "
        << escaped(option.get_type_name().empty() ? option.get_name() : option.get_type_name());
  } else {
    std::string names;
    for (const std::string& name : option.get_snames()) names += "-" + name + ", ";
    for (const std::string& name : option.get_lnames()) names += "--" + name + ", ";
    names.resize(names.size() - 2);
    out << ".TP\n\\fB" << escaped(names) << "\\fR";
    if (option.get_items_expected_max() > 0)
      out << " \\fI" << escaped(option.get_type_name()) << "\\fR";
  }
  out << '\n' << escaped(option.get_description()) << '\n';
}

}  // namespace

std::string manualText(const CLI::App& app) {
  std::ostringstream out;
  out << ".TH UMBRA 1 \"\" \"umbra " UMBRA_VERSION "\" \"User Commands\"\n"
      << ".SH NAME\numbra \\- look into drivers that keep a shadow of their chips\n"
      << ".SH SYNOPSIS\n.B umbra\n[\\fIoption\\fR...] \\fIcommand\\fR [\\fIargument\\fR...]\n"
      << ".SH DESCRIPTION\n"
      << escaped(app.get_description()) << '\n'
      << "It reads what a driver publishes in a directory, also when the driver hangs or has died, "
         "and speaks with a running one through its socket.\n"
      << ".SH OPTIONS\nThey stand before or after the command.\n";
  for (const CLI::Option* option : app.get_options()) writeOption(out, *option);
  out << ".SH COMMANDS\n";
  for (const CLI::App* subcommand :
       app.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); })) {
    out << ".SS " << escaped(subcommand->get_name());
    for (const CLI::Option* option : subcommand->get_options()) {
      if (!option->get_positional()) continue;
      const std::string name = escaped(option->get_type_name());
      out << (option->get_required() ? " " + name : " [" + name + "]");
    }
    out << '\n' << escaped(subcommand->get_description()) << ".\n";
    if (!subcommand->get_footer().empty()) out << escaped(subcommand->get_footer()) << '\n';
    for (const CLI::Option* option : subcommand->get_options()) {
      if (option->get_lnames() != std::vector<std::string>{"help"}) writeOption(out, *option);
    }
  }
  out << afterwards;
  return out.str();
}

Runner addManual(CLI::App& app) {
  return [&app](const Settings&) {
    write(manualText(*app.get_parent()));
    return Exit::done;
  };
}

}  // namespace Tool
