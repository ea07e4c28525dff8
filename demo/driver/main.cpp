// The driver of the demonstration. See --help.
#include <cstdio>
#include <exception>

#include "demo/driver/Demonstration.h"
#include "demo/driver/Story.h"
#include "demo/driver/TraceOutput.h"

namespace {

int run(const Demo::Options& options) {
  const Demo::TraceOutput trace(options);
  const bool isPicture = Demo::Status::isPicturePossible() && !trace.isOnTerminal();
  if (options.story) {
    Demo::Story story(options);
    const Demo::StoryReport report = story.run();
    std::printf("\n%s", report.text().c_str());
    return report.faults().empty() ? 0 : 1;
  }
  char end[32] = "until Ctrl-C";
  constexpr double day = 86400;
  if (options.seconds <= day) std::snprintf(end, sizeof end, "for %g s", options.seconds);
  std::printf("umbra-driver: seed %u, %u errors per second %s, a pass every %g s\n\n", options.seed,
              options.flipsPerSecond, end, options.auditInterval);
  Demo::Demonstration demonstration(options, isPicture);
  const Demo::Report report = demonstration.run();
  std::printf("\n%s", report.text().c_str());
  return report.faults().empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char* argv[]) {
  try {
    const Demo::Options options = Demo::parseOptions(argc, argv);
    if (options.help) {
      std::fputs(Demo::optionsHelp, stdout);
      return 0;
    }
    return run(options);
  } catch (const Demo::UsageError& wrong) {
    std::fprintf(stderr, "umbra-driver: %s (see --help)\n", wrong.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "umbra-driver: %s\n", error.what());
    return 1;
  }
}
