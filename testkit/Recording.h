// Accesses as a text file: recorded on the real chip, attached to a bug report, played as a fake.
//
//   // In the driver that misbehaves:
//   auto recorder = TestKit::recorderFactory(pciRegisters, "session.txt", clock);
//   auto ham = Hardware::genericChipHamFactory("asic", recorder);
//
//   // In a test: the same driver, the recorded chip.
//   const auto recording = TestKit::Recording::fromFile("session.txt");
//   auto chip = recording.chip();
//   const auto played = chip->expectOnly(recording.steps(TestKit::Within::turn));
//
// One line an access: what, width in bytes, address, name or "-", value, time. Reads that failed
// have "!" in place of the value; writes that failed have it at the end, then why:
//
//   # accesses of asic
//   r4 0x0 ctrl 0x3 @12ms
//   w4 0x1000 mac[0] 0x1234 @12.5ms
//   r4 0x4 status ! @13ms no answer
//
// The times are those of the clock's turns: accesses of one turn have one time. docs/formats.md has
// the grammar.
#pragma once

#include <testkit/FakeChip.h>

#include <functional>
#include <ostream>

namespace TestKit {

// What a recording calls a register; empty: no name.
using NameOf = std::function<std::string(U64 address)>;

struct RecordedAccess {
  Access access;
  std::string name;
  Zint::Seconds time = 0;
  bool hasFailed = false;
  std::string reason;
  U32 line = 0;

  // The line, without its end.
  std::string text() const;
};

// The order in which the accesses of a recording have to come again.
enum class Within : U8 {
  nothing,  // as recorded
  turn      // those of one turn in any order, turn after turn
};

class Recording {
 public:
  // What cannot be read, and lines that are not right: a range exception "FILE:LINE: text".
  static Recording fromFile(const std::string& path);
  static Recording fromText(const std::string& text, std::string source = "recording");

  const std::vector<RecordedAccess>& accesses() const& { return accesses_; }
  std::vector<RecordedAccess> accesses() && { return std::move(accesses_); }
  // A chip with the registers that were accessed. An address that was accessed with several widths
  // has the widest.
  FakeChip::Ptr chip() const;
  // Reads are answered as recorded; failures fail again. A failing expectation names the line at
  // which the driver left the recording.
  Step steps(Within within = Within::nothing) const;

 private:
  std::string source_;
  std::vector<RecordedAccess> accesses_;
};

// Writes lines, each flushed: the last one stands also if the process dies next.
class RecordingWriter {
 public:
  // Created or emptied. A file that cannot be written: a range exception.
  RecordingWriter(const std::string& path, const std::string& chip, NameOf names,
                  Zint::Ptr<const Zint::Clock> clock);
  // To a stream that outlives this.
  RecordingWriter(std::ostream& out, const std::string& chip, NameOf names,
                  Zint::Ptr<const Zint::Clock> clock);

  // Does what it is given, which reads into or writes from `access.value`, and records it; also
  // where that throws, which goes on.
  template <class Acts>
  void record(Access access, Acts acts) {
    try {
      acts(access.value);
    } catch (const std::exception& e) {
      write(access, e.what());
      throw;
    } catch (...) {
      write(access, "no reason");
      throw;
    }
    write(access, nullptr);
  }

 private:
  void write(const Access& access, const char* reason);

  std::unique_ptr<std::ostream> file_;
  std::ostream& out_;
  const NameOf names_;
  const Zint::Ptr<const Zint::Clock> clock_;
};

// A register access that records another one. A bus: RecordingBus.h.
class Recorder : public Fru::HamImpl {
 public:
  using Ptr = Zint::Ptr<Recorder>;

  Recorder(Zint::Ptr<Fru::HamImpl> recorded, std::unique_ptr<RecordingWriter> writer)
      : recorded_(std::move(recorded)), writer_(std::move(writer)) {}

  void read(U32 address, U32* value) override;
  void write(U32 address, U32 value) override;

 protected:
  ~Recorder() override;

 private:
  const Zint::Ptr<Fru::HamImpl> recorded_;
  const std::unique_ptr<RecordingWriter> writer_;
};

Zint::ValidPtr<Recorder> recorderFactory(const Zint::Ptr<Fru::HamImpl>& recorded,
                                         const std::string& path,
                                         const Zint::Ptr<const Zint::Clock>& clock,
                                         NameOf names = {});
Zint::ValidPtr<Recorder> recorderFactory(const Zint::Ptr<Fru::HamImpl>& recorded, std::ostream& out,
                                         const Zint::Ptr<const Zint::Clock>& clock,
                                         NameOf names = {});

}  // namespace TestKit
