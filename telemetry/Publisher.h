// Shows a driver to other processes: writes its live view and its event log, and puts its trace
// records into a file.
//
//   auto publisher = Telemetry::publisherFactory(activity, clock, "switch1");
//   publisher->shadowIs(shadow);
//   publisher->alarmBoardIs(board);
//
// The files are NAME.live, NAME.events and NAME.trace in a directory, /run/umbra unless the options
// say another one. The first two are made and written in the turns of the activity, each for at
// most `turnBudget`: every row once a second, the shadow's and those with findings at the end of
// the patrol's slices. The third is made by the constructor, in some milliseconds: the memory of
// the process's trace records is from then on that of the file (TraceLog.h). The data path pays
// nothing: no region has a notifiee, and a trace record costs what it did.
//
// A full disk or a file that somebody has removed is counted and told by `errors` and `lastError`,
// and tried again. Who may write the files may end the driver by cutting them short, and nobody
// else can: they are made with mode 0644 less the umask. It keeps no shadow, reader, board or
// governor alive, and each region and alarm for a second at most after it has left. Every operation
// belongs to the activity's thread. A process that is forked shows nothing: what it does with the
// publisher, and its end, stay its own.
#pragma once

#include <Driver/AlarmBoard.h>
#include <Driver/AuditedShadow.h>
#include <Driver/Governor.h>
#include <Hardware/ChipReader.h>
#include <Zint/Activity.h>
#include <telemetry/EventLog.h>
#include <memory>

namespace Telemetry {

class Publishing;

struct PublisherOptions {
  std::string directory = "/run/umbra";
  U32 events = 16384;                // records of the event log
  double eventRate = 1000;           // events a second that are recorded
  double eventBurst = 2000;          // at once
  bool trace = true;                 // trace records are in a file, too
  U32 regions = 64;                  // rows of the live view, at least; as many as there are
  U32 alarms = 256;                  // the same
  Zint::Seconds period = 1;          // of the heartbeat and of all rows
  Zint::Seconds turnBudget = 50e-6;  // of the thread's time
  // Seconds since 1970; null for the system's.
  Zint::Ptr<const Zint::Clock> wallClock = nullptr;
};

class UMBRA_API Publisher : public Zint::Entity {
 public:
  using Ptr = Zint::Ptr<Publisher>;

  struct Id : Entity::Id {
    enum : Zint::AttributeId {
      directory = isNondestructing + 1,
      publications,
      notFit,
      fileBytes,
      events,
      eventsSuppressed,
      errors,
      lastError,
      longestTurn,
      doPublish,
      lastMember = doPublish
    };
  };

  // Notified of `errors` alone.
  class UMBRA_API NotifieeConst : public Entity::NotifieeConst {
   public:
    NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                  const Zint::Ptr<const Publisher>& publisher, bool active = true);
    const Publisher* notifier() const {
      return static_cast<const Publisher*>(Entity::NotifieeConst::notifier());
    }
    void handleNotification(Zint::ActivityConfig* activity) override;
    virtual void onErrors() {}

   protected:
    ~NotifieeConst() override;
  };
  struct Notifiee : Zint::NotifieeOf<NotifieeConst, Publisher> {
    using NotifieeOf::NotifieeOf;
  };

  // REQUIRES: an activity, a clock that it serves, a name of 1 to 63 of the characters A-Z a-z 0-9
  // . _ - that does not begin with a dot, a directory that can be written (the last of its path is
  // made), and no other process that publishes under the name there (range exceptions).
  Publisher(Zint::Name name, const Zint::Ptr<Zint::ActivityConfig>& activity,
            const Zint::Ptr<const Zint::Clock>& clock, const PublisherOptions& options);

  const Zint::Type* fwkType() const override;

 protected:
  ~Publisher() override;

 public:
  // --- What is shown; null: a range exception. One that is shown already stays as it is. ---
  // A shadow with its regions, its chips and its policies. It needs no AuditedShadow, but one that
  // is none has no findings to show. The name is that of its row: "shadow", "shadow2", ... where it
  // is empty.
  void shadowIs(const Hardware::HardwareShadow::Ptr& shadow, const Zint::String8& name = {});
  void readerIs(const Zint::Ptr<Hardware::ChipReader>& reader, const Zint::String8& name = {});
  void alarmBoardIs(const Driver::AlarmBoard::Ptr& board);
  void governorIs(const Driver::Governor::Ptr& governor, const Zint::String8& name = {});
  // Those that are not destroyed.
  std::vector<Hardware::HardwareShadow::Ptr> shadows() const;
  std::vector<Zint::Ptr<Hardware::ChipReader>> readers() const;
  std::vector<Driver::AlarmBoard::Ptr> alarmBoards() const;
  std::vector<Driver::Governor::Ptr> governors() const;
  // Under which name it is shown; empty for one that is not.
  Zint::String8 nameOf(const Zint::PtrInterface& object) const;

  // --- For the control socket ---
  // The paths of its sockets in the live view; empty for none.
  void socketsAre(const std::string& look, const std::string& admin);
  // Records who has set an attribute or called an operation.
  void commandIs(U32 uid, U32 pid, std::string_view line);

  // Records an event of the driver's own.
  void eventIs(const EventLog::Data& event);
  // Does the work of the turns that are left until all rows show what is there now, whatever time
  // it takes: before a planned end, and for tests.
  void doPublish();

  // --- What it has done ---
  Zint::String8 directory() const;
  std::string livePath() const;
  std::string eventsPath() const;
  std::string tracePath() const;
  U64 publications() const;  // rows
  U32 notFit() const;        // objects that have no row
  U32 fileBytes() const;     // of the live view; 0 before it is made
  U64 events() const;        // the number of the newest
  U64 eventsSuppressed() const;
  U64 errors() const;
  Zint::String8 lastError() const;
  // Of its own turns, in seconds of the system's clock; waiting for the processor counts.
  Zint::Seconds longestTurn() const;

 private:
  friend class Publishing;

  void errorIs(const std::string& error);

  std::unique_ptr<Publishing> publishing_;
  U64 errors_ = 0;
  Zint::String8 lastError_;
};

UMBRA_API Publisher::Ptr publisherFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                          const Zint::Ptr<const Zint::Clock>& clock,
                                          Zint::Name name, const PublisherOptions& options = {});

// The name under which reflection shows it.
constexpr const char* zintTypeName(const Publisher*) { return "Telemetry::Publisher"; }

}  // namespace Telemetry
