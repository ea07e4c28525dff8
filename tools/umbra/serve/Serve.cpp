#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <thread>

#include "tools/umbra/Command.h"
#include "tools/umbra/Report.h"
#include "tools/umbra/serve/History.h"
#include "tools/umbra/serve/LiveSource.h"
#include "tools/umbra/serve/Run.h"

namespace Tool {
namespace {

struct Options {
  Serve::RunOptions run;
  double historyMegabytes = 256;
  double historyDays = 90;
};

}  // namespace

Runner addServe(CLI::App& app) {
  auto options = std::make_shared<Options>();
  app.add_option("--address", options->run.server.address,
                 "the address to listen at (default 127.0.0.1: this machine alone)")
      ->type_name("ADDRESS");
  app.add_option("--port", options->run.server.port, "the port (default 9469; 0: any)")
      ->check(CLI::Range(0, 65535))
      ->type_name("PORT");
  app.add_option("--max-regions", options->run.server.metrics.maxRegions,
                 "regions of a driver with series of their own (default 200); the rest is summed "
                 "for each chip")
      ->type_name("COUNT");
  app.add_flag("--acknowledge", options->run.server.acknowledges,
               "let the page acknowledge alarms, where this user may use a driver's admin socket");
  CLI::Option* const history =
      app.add_option("--history", options->run.history, "keep events and samples in this file");
  history->type_name("FILE");
  app.add_option("--history-size", options->historyMegabytes, "megabytes (default 256)")
      ->check(CLI::Range(1.0, 1e6))
      ->needs(history)
      ->type_name("MB");
  app.add_option("--history-age", options->historyDays, "days (default 90)")
      ->check(CLI::Range(0.01, 36'500.0))
      ->needs(history)
      ->type_name("DAYS");
  return [options](const Settings& settings) {
    Serve::RunOptions& run = options->run;
    run.historyOptions.maxBytes = static_cast<U64>(options->historyMegabytes * 1e6);
    run.historyOptions.maxAge =
        static_cast<Serve::Time>(options->historyDays * 86'400) * Serve::second;
    Serve::LiveSource source(settings.directory);
    try {
      Serve::run(source, run, [&](const std::string& address) {
        if (settings.json) {
          std::cout << Json({{"page", address}, {"metrics", address + "metrics"}}).dump()
                    << std::endl;
          return;
        }
        std::cout << "umbra: the page is at " << address << "\n"
                  << "umbra: the metrics are at " << address << "metrics" << std::endl;
      });
    } catch (const std::exception& error) {
      throw Failure(error.what());
    }
    return Exit::done;
  };
}

Runner addMetrics(CLI::App& app) {
  auto options = std::make_shared<Serve::MetricsOptions>();
  auto isOpen = std::make_shared<bool>(false);
  app.add_option("--max-regions", options->maxRegions,
                 "regions of a driver with series of their own (default 200)")
      ->type_name("COUNT");
  app.add_flag("--openmetrics", *isOpen, "in the format OpenMetrics instead of text 0.0.4");
  return [options, isOpen](const Settings& settings) {
    if (settings.json) {
      throw Failure("metrics are text for monitoring systems; the other commands know --json",
                    Exit::wrongUsage);
    }
    Serve::LiveSource source(settings.directory);
    Serve::Drivers drivers = source.drivers();
    if (!settings.driver.empty()) {
      std::erase_if(drivers, [&](const auto& each) { return each->name != settings.driver; });
    }
    if (drivers.empty()) {
      throw Failure("there is no driver in " + settings.directory, Exit::nothingFound);
    }
    write(Serve::metricsText(
        Serve::metricFamilies(drivers, *options),
        *isOpen ? Serve::MetricsFormat::openMetrics : Serve::MetricsFormat::text004));
    return Exit::done;
  };
}

}  // namespace Tool
