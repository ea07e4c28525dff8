// A connection of a control socket. No installed header.
#pragma once

#include <telemetry/ControlListener.h>
#include <telemetry/ControlSession.h>
#include <optional>

namespace Telemetry {

// What a client has sent, cut into lines. Of a line that is too long no more than a part is kept.
class ControlInput {
 public:
  void take(std::string_view bytes);
  // A line, or the end of one that was too long, is there.
  bool hasLine() const { return hasLine_; }
  // The next one, without its end; none for one that was too long. REQUIRES: hasLine().
  std::optional<std::string> next();

 private:
  void findLine();

  std::string bytes_;
  std::size_t end_ = 0;  // where the next line ends, or how far it was looked for
  bool hasLine_ = false;
  bool isTooLong_ = false;  // the next line
};

struct ControlClient {
  ControlClient(ControlWorld& world, Zint::Level level, const ControlPeer& peer, Descriptor own)
      : socket(std::move(own)), session(world, level, peer) {}

  // Bytes that the client has not yet read.
  std::size_t pending() const { return output.size() - sent; }

  Descriptor socket;
  ControlSession session;
  ControlInput input;
  std::string output;  // from `sent` on
  std::size_t sent = 0;
  U32 interest = 0;               // in which events of its descriptor
  bool isBusy = false;            // waits for its turn
  bool isLooking = false;         // at its watches
  bool hasEnded = false;          // sends no more
  bool isGone = false;            // is freed after the turn
  Zint::Seconds lastRead = 0;     // when the client last took something
  Zint::Seconds lastCommand = 0;  // when it last asked for something
  Zint::Seconds lookDue = 0;
};

}  // namespace Telemetry
