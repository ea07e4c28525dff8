// A session on the demonstration's switch, whose chip is a file and whose time is moved by hand.
#pragma once

#include <Hardware/ChipReader.h>
#include <Zint/Exception.h>
#include <demo/common/SharedMemory.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tools/console/Library.h>
#include <tools/console/OpenSwitch.h>
#include <tools/console/Session.h>

#include <memory>
#include <sstream>
#include <string>

#include "support/ManualLoop.h"

namespace Support {

// The switch's tables under a shadow whose audit needs a reader.
struct ReaderAudit {
  using HardwareShadow = Hardware::HardwareShadow;

  ReaderAudit(ManualLoop& loop, Demo::Switch& theSwitch)
      : shadow(Hardware::hardwareShadowFactory(loop.activity,
                                               Zint::Ptr<const Zint::Clock>(loop.clock))) {
    theSwitch.shadow()->stateIs(HardwareShadow::idle());
    theSwitch.shadow()->stateIs(HardwareShadow::unconfigured());
    for (const Demo::Table& table : theSwitch.tables()) shadow->chipMemoryIs(table.region);
    shadow->stateIs(HardwareShadow::configured());
    reader = Hardware::chipReaderFactory(loop.activity, shadow->auditReadRequest(), shadow->clock(),
                                         1024, 0.001);
    shadow->stateIs(HardwareShadow::auditing());
    while (shadow->audits() == 0) loop.turnAt(loop.clock->time() + 0.01);
    shadow->minIntervalBetweenAuditsIs(0.5);
  }

  HardwareShadow::Ptr shadow;
  Hardware::ChipReader::Ptr reader;
};

class SessionTest : public testing::Test {
 protected:
  enum Audit { withPatrol, withReader };

  // With a reader, /shadow and /reader are those of a ReaderAudit.
  explicit SessionTest(Audit audit = withPatrol)
      : reader_(audit == withReader ? std::make_unique<ReaderAudit>(loop_, opened_.theSwitch())
                                    : nullptr) {}

  Console::World world() {
    Console::World world = opened_.world();
    if (reader_ == nullptr) return world;
    world.objects[0] = {"shadow", Console::objectOf(reader_->shadow)};
    world.objects.emplace_back("reader", Console::objectOf(reader_->reader));
    return world;
  }

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
  U32& onChip(U32 address) { return static_cast<U32*>(chip_.data())[address / 4]; }
  const bool isIdentified_ =
      (onChip(Demo::identityAddress.chipMemoryOffset()) = Demo::identity) != 0;
  Console::OpenSwitch opened_{loop_.activity, Zint::Ptr<const Zint::Clock>(loop_.clock),
                              Platform::mappedRegistersFactory(folder_.registersPath()), ledger_};
  const std::unique_ptr<ReaderAudit> reader_;
  std::ostringstream out_;
  Console::Session session_{world(), out_};
};

}  // namespace Support
