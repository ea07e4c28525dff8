#include "tools/umbra/serve/Run.h"

#include <pthread.h>
#include <csignal>
#include <optional>
#include <thread>

namespace Serve {

void run(Source& source, const RunOptions& options,
         const std::function<void(const std::string& address)>& started) {
  // Threads that are made here leave these signals to this one.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  std::optional<History> history;
  if (!options.history.empty()) history.emplace(options.history, options.historyOptions);
  Collector collector(source);
  if (history.has_value()) {
    collector.listenerIs([&](const View& view, const auto& news) { history->add(view, news); });
  }
  Server server(collector, options.server, history.has_value() ? &*history : nullptr);
  const int port = server.bind();
  collector.turn();

  std::thread looks([&] { collector.run(options.interval); });
  std::thread keeps;
  if (history.has_value()) keeps = std::thread([&] { history->run(); });
  std::thread answers([&] { server.run(); });
  const std::string& address = options.server.address;
  const std::string host = address.find(':') == std::string::npos ? address : "[" + address + "]";
  started("http://" + host + ":" + std::to_string(port) + "/");

  int signal = 0;
  sigwait(&ends, &signal);
  collector.stop();
  server.stop();
  answers.join();
  looks.join();
  if (history.has_value()) {
    history->stop();
    keeps.join();
    history->commit();
  }
}

}  // namespace Serve
