#include "demo/driver/Outside.h"

#ifdef UMBRA_DEMO_TELEMETRY
#include <telemetry/ControlSocket.h>
#include <telemetry/Publisher.h>
#endif

namespace Demo {

std::unique_ptr<Outside> Outside::of(const Options& options, const Stage& stage) {
  if (options.publishes.empty()) return nullptr;
  return std::unique_ptr<Outside>(new Outside(options, stage));
}

#ifdef UMBRA_DEMO_TELEMETRY
Outside::Outside(const Options& options, const Stage& stage) {
  Telemetry::PublisherOptions where;
  where.directory = options.publishes;
  const auto publisher =
      Telemetry::publisherFactory(stage.activity, stage.clock, options.name, where);
  publisher->shadowIs(stage.theSwitch.shadow());
  publisher->alarmBoardIs(stage.theSwitch.alarms());
  const auto control =
      Telemetry::controlSocketFactory(publisher, stage.activity, stage.clock, true);
  control->objectIs("switch", stage.theSwitch.chip());
  held_ = {publisher, control};
}
#else
Outside::Outside(const Options&, const Stage&) {
  throw UsageError("--publish: this build has no telemetry library");
}
#endif

}  // namespace Demo
