// What a publisher does: keeps a subject for each object that is shown, writes down events, and
// divides its work among turns. Used by Publisher alone.
//
// Whoever notifies it holds the publisher, which what is called may drop.
#pragma once

#include <telemetry/LiveView.h>
#include <telemetry/Publisher.h>
#include <telemetry/TraceLog.h>

#include <deque>
#include <map>

namespace Telemetry {

class Publishing {
 public:
  using ChipMemory = Hardware::ChipMemory;
  using HardwareShadow = Hardware::HardwareShadow;

  struct Shadow;

  // A region that is shown.
  struct Region : Subject {
    ChipMemory::Ptr region() const;
    ChipMemory::ChipMemoryMode mode = ChipMemory::normal_;
    Shadow* owner = nullptr;                 // outlives it
    const Driver::Policy* policy = nullptr;  // compared only
    Zint::Ptr<Zint::NotifieeConst> policyWatch;
    std::string policyChanges;  // attributes, not told yet
    U32 chipsSeen = 0;          // of its shadow, when its chip was looked up
    bool isDue = false;         // has changed since it was published
  };
  struct Chip : Subject {
    Driver::Chip::Ptr driverChip() const;
    Zint::Ptr<Zint::NotifieeConst> watch;
  };
  struct Alarm : Subject {
    Driver::Alarm::State state = Driver::Alarm::cleared_;
  };
  struct Shadow : Subject {
    // Null once it is destroyed.
    HardwareShadow::Ptr hardware() const;
    Driver::AuditedShadow::Ptr audited() const;  // null also where it is no such

    Zint::Ptr<Zint::NotifieeConst> watch;
    // Trees: a hash table takes long in the turn in which it grows.
    std::map<U64, std::unique_ptr<Region>> regions;  // by address
    std::map<const ChipMemory*, Region*> known;
    std::deque<Hardware::ChipAddress> changed;  // where regions came or left
    std::vector<std::unique_ptr<Chip>> chips;
    U32 chipsSeen = 1;         // advances when chips come or leave
    std::vector<Region*> due;  // whose findings are not published yet
    Region* adopting = nullptr;
    U32 adopted = 0;  // by that region, not told yet
    Zint::Seconds publishedTime = -Zint::never;
    Zint::Seconds cleanPassTold = -Zint::never;
    bool isTroubled = false;  // its patrol neither waits nor reads
  };
  struct Board {
    Driver::AlarmBoard::Ptr board() const;  // null once it is destroyed
    Zint::Ptr<WeakPointer> weak;
    Zint::Ptr<Zint::NotifieeConst> watch;
    std::map<std::string, std::unique_ptr<Alarm>> alarms;
  };

  Publishing(Publisher& publisher, const Zint::Ptr<Zint::ActivityConfig>& activity,
             const Zint::Ptr<const Zint::Clock>& clock, const PublisherOptions& options);
  ~Publishing();

  // --- What is shown ---
  void addShadow(const HardwareShadow::Ptr& shadow, std::string name);
  void addObject(TableId table, const Zint::Ptr<const Zint::PtrInterface>& object,
                 std::string name);
  void addBoard(const Driver::AlarmBoard::Ptr& board);
  bool isShown(const Zint::PtrInterface* object) const;
  const std::vector<std::unique_ptr<Shadow>>& shadows() const { return shadows_; }
  const std::vector<std::unique_ptr<Subject>>& objects() const { return objects_; }
  const std::vector<std::unique_ptr<Board>>& boards() const { return boards_; }

  void doPublish();
  // The publisher is being destroyed: the last events and rows.
  void close();
  void handleAssertion(const Zint::AssertionFailure& failure) noexcept;

  // --- Notified ---
  void handleTime();
  void handleFinding(Shadow& shadow, const Driver::Finding& finding);
  void handlePass(Shadow& shadow, const Driver::PassResult& pass);
  void handleTurn(Shadow& shadow, const Driver::TurnResult& turn);
  void handlePatrolState(Shadow& shadow);
  void handleChip(const Chip& chip, Zint::AttributeId attribute);
  void handleAlarm(Board& board, const Zint::String8& name, bool isTold);
  void handleRegions() { wakeAt(0.0); }

  Publisher& publisher() { return publisher_; }
  LiveView& view() { return view_; }
  const LiveView& view() const { return view_; }
  EventLog& events() { return events_; }
  const EventLog& events() const { return events_; }
  Times times() const;
  const PublisherOptions& options() const { return options_; }
  Zint::Seconds longestTurn() const { return longestTurn_; }

 private:
  class Pulse;

  std::string nameFor(TableId table, const char* word, std::string name) const;
  void wakeAt(Zint::Seconds time);
  bool step(const Budget& budget);
  void beginRound();
  bool continueRound(const Budget& budget);
  void publishInRound(TableId table, Subject& subject);
  // False: the region has left.
  bool lookAtRegion(Region& region);
  void lookAtPolicy(Region& region, const ChipMemory::Ptr& cm);
  void watchPolicy(Region& region, const Driver::Policy::Ptr& policy);
  bool takeRegions(const Budget& budget);
  void takeRegion(Shadow& shadow, const Hardware::ChipAddress& address);
  void dropRegion(Region& region);
  void lookAtChips(Shadow& shadow);
  bool dropDestroyed(const Budget& budget);
  void tellAdopted(Shadow& shadow);
  void publishFigures(Subject& subject, RowSource::What what);

  Publisher& publisher_;
  const Zint::Ptr<Zint::ActivityConfig> activity_;
  const Zint::Ptr<const Zint::Clock> clock_;
  const PublisherOptions options_;
  LiveView view_;
  EventLog events_;
  std::unique_ptr<TraceLog> trace_;  // null where the options say so
  std::vector<std::unique_ptr<Shadow>> shadows_;
  std::vector<std::unique_ptr<Subject>> objects_;  // readers, governors, the publisher
  std::vector<std::unique_ptr<Board>> boards_;
  Zint::Ptr<Pulse> pulse_;
  Zint::Seconds nextRound_ = -Zint::never;
  bool isInRound_ = false;
  U32 roundTable_ = 0;
  U32 roundSlot_ = 0;
  Zint::Seconds longestTurn_ = 0;
};

}  // namespace Telemetry
