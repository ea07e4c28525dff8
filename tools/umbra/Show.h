// The parts of a report on one driver, from its live view.
#pragma once

#include "tools/umbra/Drivers.h"

namespace Tool {

void addHead(Report& report, const Telemetry::LiveReader& view);
void addShadows(Report& report, const Telemetry::LiveReader& view);
void addChips(Report& report, const Telemetry::LiveReader& view);
void addAlarms(Report& report, const Telemetry::LiveReader& view);
void addRegions(Report& report, const Telemetry::LiveReader& view, bool onlyDamaged);

}  // namespace Tool
