// Writes the live view: gives each subject a row, makes the file in pieces, and publishes rows by
// copy. The file is made again when it is too small, or when somebody has removed it.
//
// Nothing here throws because of the file: what goes wrong is counted, told, and tried again.
#pragma once

#include <Zint/Clock.h>
#include <telemetry/Budget.h>
#include <telemetry/EventLog.h>
#include <telemetry/LiveReader.h>
#include <telemetry/SharedFile.h>
#include <telemetry/Subject.h>

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <memory>

namespace Telemetry {

class LiveView {
 public:
  struct Settings {
    std::string path;
    std::string name;
    std::array<U32, tableIds> rows{};  // at least
    U32 maxBytes = 256 * 1024 * 1024;
  };
  using Tell = std::function<void(const std::string& error)>;

  // Reads what an earlier driver of that name has left. `tell` is told what goes wrong.
  LiveView(Settings settings, Tell tell);
  ~LiveView();

  // --- Subjects. The caller keeps them until it has removed them. ---
  void add(Subject& subject, S64 wallClock);
  void remove(Subject& subject);
  // Nothing happens while it has no row.
  void publish(Subject& subject, RowSource::What what);
  const std::deque<Subject*>& slots(TableId table) const { return slotsOf(table).subjects; }

  void socketsAre(std::string look, std::string admin);
  void beat(Heartbeat::State state, const Times& times);
  // Makes the file, or goes on with it. False: there is nothing to do.
  bool work(const Budget& budget, const Times& times);
  // Looks whether the file is still there.
  void check();
  // Async-safe: nothing but stores.
  void markFailed() noexcept;

  bool isMade() const { return file_ != nullptr; }
  U64 publications() const { return publications_; }
  U32 notFit() const;
  U32 bytes() const { return file_ == nullptr ? 0 : file_->bytes(); }

 private:
  struct Slots {
    std::deque<Subject*> subjects;  // by slot; null for a free one
    std::deque<U32> free;           // the one that was left first is taken first
  };
  // Where the rows of a file are.
  struct Layout {
    std::array<U32, tableIds> firstRow{};
    std::array<U32, tableIds> rows{};
    U32 bytes = 0;
  };
  // The totals of a row that has left, or of an earlier driver.
  struct Seed {
    S64 since = 0;
    S64 lastFinding = 0;
    std::vector<std::pair<U32, U64>> totals;  // name's number, value
  };
  enum class Stage : U8 { idle, beginning, making, filling };

  Slots& slotsOf(TableId table) { return slots_[static_cast<U32>(table)]; }
  const Slots& slotsOf(TableId table) const { return slots_[static_cast<U32>(table)]; }
  RowSource& sourceOf(TableId table) { return *sources_[static_cast<U32>(table)]; }
  U32 nameNumber(const std::string& total);
  void readSeeds();
  void seed(Subject& subject, S64 wallClock);
  void keepSeed(const Subject& subject);
  bool isTooSmall() const;
  bool step(const Times& times);
  void begin();
  void writeHeader();
  bool fillMore();
  void putOnline(const Times& times);
  void write(SharedFile& file, const Layout& layout, Subject& subject, RowSource::What what);
  void writeState(U32 table, U32 slot, Row::State state);
  U32 notFitIn(const Layout& layout) const;
  void writeBeat(SharedFile& file, const Layout& layout, Heartbeat::State state,
                 const Times& times);
  void putSockets(SharedFile& file);
  void fail(const std::string& why);

  const Settings settings_;
  const Tell tell_;
  const S64 start_;
  const U64 processStart_;
  const std::string bootId_;
  std::array<std::unique_ptr<RowSource>, tableIds> sources_;
  std::array<U32, tableIds> shadowColumn_{}, chipColumn_{}, nameColumn_{}, sinceColumn_{};
  U32 entriesColumn_ = RowSource::none;  // of the regions
  std::array<Slots, tableIds> slots_;
  std::map<std::string, Seed> seeds_;  // a hash table takes long in the turn in which it grows
  std::vector<std::string> totalNames_;
  std::string socket_, adminSocket_;

  std::unique_ptr<SharedFile> file_;  // that readers see; null before the first
  Layout layout_;
  std::unique_ptr<SharedFile> making_;
  Layout makingLayout_;
  std::unique_ptr<SharedFile> retired_;
  Stage stage_ = Stage::idle;
  U32 fillTable_ = 0, fillSlot_ = 0;
  bool isLost_ = false;  // somebody has removed the file
  Zint::Seconds retryTime_ = -Zint::never;
  std::vector<U32> scratch_;
  U64 publications_ = 0;
  U64 beats_ = 0;
};

}  // namespace Telemetry
