// The whole server: collector, history and HTTP, until the process is asked to end.
#pragma once

#include <functional>
#include <string>

#include "tools/umbra/serve/History.h"
#include "tools/umbra/serve/Server.h"

namespace Serve {

struct RunOptions {
  ServerOptions server = {};
  std::string history;  // path; empty: none
  HistoryOptions historyOptions = {};
  Time interval = second / 4;  // between two looks at the drivers
};

// Returns after SIGINT or SIGTERM. `started` is told the address of the page. A std::runtime_error
// where the port or the history cannot be had.
void run(Source& source, const RunOptions& options,
         const std::function<void(const std::string& address)>& started);

}  // namespace Serve
