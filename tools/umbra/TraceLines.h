// Trace records as values and as lines.
#pragma once

#include <telemetry/TraceReader.h>

#include "tools/umbra/Drivers.h"

namespace Tool {

// NAME.trace beside NAME.live.
std::filesystem::path traceOf(const std::filesystem::path& live);

std::vector<Column> traceColumns();
std::vector<Json> traceValues(const Telemetry::TraceReader& trace,
                              const Telemetry::TraceRecord& record);
Json traceJson(const Telemetry::TraceReader& trace, const Telemetry::TraceRecord& record);
// One line of a terminal, the text at most `columns` wide where that is not 0.
std::string traceLine(const Telemetry::TraceReader& trace, const Telemetry::TraceRecord& record,
                      std::size_t columns = 0);

// Drops all but the newest.
void keepNewest(std::vector<Telemetry::TraceRecord>& records, std::size_t most);

}  // namespace Tool
