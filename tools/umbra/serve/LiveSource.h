// The drivers that show themselves in one folder: their live views and event logs.
#pragma once

#include <telemetry/EventReader.h>
#include <telemetry/LiveReader.h>

#include <map>
#include <memory>
#include <optional>

#include "tools/umbra/serve/Model.h"

namespace Serve {

class LiveSource : public Source {
 public:
  explicit LiveSource(std::string directory) : directory_(std::move(directory)) {}

  Drivers drivers() override;
  std::vector<Event> events(const std::string& driver, U64 from, U32 max) override;

 private:
  struct Files {
    std::optional<Telemetry::LiveReader> view;
    std::optional<Telemetry::EventReader> log;
  };
  // Opens what is new or was replaced. False: there is no live view that can be read.
  bool open(const std::string& stem, Files& files) const;

  std::string directory_;
  std::map<std::string, Files> files_;      // by the name of the file without its end
  std::map<std::string, Files*> byDriver_;  // by the driver's name
};

}  // namespace Serve
