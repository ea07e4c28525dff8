// The demonstration's switch, opened for a console.
#pragma once

#include <Hardware/ChipMemoryBogon.h>

#include <deque>

#include "demo/common/AccountedRegisters.h"
#include "demo/common/Switch.h"
#include "tools/console/World.h"

namespace Console {

// The last findings of a patrol, as lines.
class FindingList : public Driver::AuditedShadow::NotifieeConst {
 public:
  static constexpr std::size_t capacity = 1000;

  FindingList(const Zint::Ptr<Zint::ActivityConfig>& activity,
              const Driver::AuditedShadow::Ptr& shadow);
  void onFinding(const Driver::Finding& finding) override;
  // The newest last.
  std::vector<std::string> last(std::size_t most) const;

 private:
  std::deque<std::string> lines_;
};

class OpenSwitch {
 public:
  // Brings the switch up and audits it, half a second from pass to pass; returns when the first
  // pass has ended. The ledger must outlive this.
  OpenSwitch(const Zint::Ptr<Zint::ActivityConfig>& activity,
             const Zint::Ptr<const Zint::Clock>& clock, Platform::MappedRegisters::Ptr registers,
             Demo::Ledger& ledger);

  // Valid as long as this.
  World world();
  Demo::Switch& theSwitch() { return switch_; }

 private:
  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Zint::Ptr<const Zint::Clock> clock_;
  const Zint::Ptr<Demo::AccountedRegisters> registers_;
  Demo::Switch switch_;
  const Zint::Ptr<FindingList> findings_;
  const Hardware::ChipMemoryBogon::Ptr directory_;
};

}  // namespace Console
