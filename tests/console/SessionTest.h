// A session on the demonstration's switch, whose chip is a file and whose time is moved by hand.
#pragma once

#include <Zint/Exception.h>
#include <demo/common/SharedMemory.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tools/console/Error.h>
#include <tools/console/OpenSwitch.h>
#include <tools/console/Session.h>

#include <sstream>
#include <string>

#include "support/ManualLoop.h"

namespace Support {

class SessionTest : public testing::Test {
 protected:
  // What the line prints.
  std::string outputOf(const std::string& line) {
    out_.str("");
    session_.run(line);
    return out_.str();
  }
  // The message of what is raised; "" for nothing.
  std::string refusal(const std::string& line) {
    try {
      session_.run(line);
    } catch (const std::exception& error) {
      return error.what();
    }
    return "";
  }

  ManualLoop loop_;
  Demo::Ledger ledger_{Demo::registerFileSize};
  Demo::SharedFolder folder_;
  const Demo::SharedMemory chip_{folder_.registersPath(), Demo::registerFileSize};
  Console::OpenSwitch opened_{loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock),
                              Platform::mappedRegistersFactory(folder_.registersPath()), ledger_};
  std::ostringstream out_;
  Console::Session session_{opened_.world(), out_};

  U32& onChip(U32 address) { return static_cast<U32*>(chip_.data())[address / 4]; }
};

}  // namespace Support
