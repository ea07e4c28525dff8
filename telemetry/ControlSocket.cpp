#include <telemetry/ControlSocket.h>

#include <Zint/Exception.h>
#include <Zint/ObjectText.h>
#include <telemetry/ControlServer.h>
#include <telemetry/NamesText.h>
#include <telemetry/Telemetry.h>

#include <algorithm>
#include <cctype>

namespace Telemetry {
namespace {

constexpr std::size_t longestName = 63;

const std::string& checkedName(const std::string& name) {
  const bool isName = !name.empty() && name.size() <= longestName && name[0] != '.' &&
                      std::all_of(name.begin(), name.end(), [](unsigned char c) {
                        return std::isalnum(c) != 0 || c == '.' || c == '_' || c == '-';
                      });
  if (!isName) {
    Zint::throwRangeException(name +
                              ": a driver's name has 1 to 63 letters, digits, '.', '_' and '-', "
                              "and does not begin with '.'");
  }
  return name;
}

}  // namespace

ControlSocket::ControlSocket(const Zint::Ptr<Zint::ActivityConfig>& activity,
                             const Zint::Ptr<const Zint::Clock>& clock, const std::string& name,
                             const ControlOptions& options)
    : server_(std::make_shared<Server>(refuseNull(activity, "ControlSocket: null activity"),
                                       refuseNull(clock, "ControlSocket: null clock"),
                                       checkedName(name), options)) {
  server_->beginWaking();
}

ControlSocket::~ControlSocket() { server_->end(); }

const Zint::Type* ControlSocket::fwkType() const { return &controlSocketType; }

void ControlWake::onTime() {
  if (const auto server = server_.lock()) server->serve();
}

Zint::String8 ControlSocket::path() const { return server_->looking->path(); }

Zint::String8 ControlSocket::administerPath() const {
  return administers() ? Zint::String8(server_->administering->path()) : Zint::String8();
}

bool ControlSocket::administers() const { return server_->administers(); }
void ControlSocket::administersIs(bool administers) { server_->administersIs(administers); }

void ControlSocket::objectIs(const std::string& name,
                             const Zint::Ptr<const Zint::PtrInterface>& object, bool isConst) {
  try {
    server_->world.names.objectIs(name, {Zint::objectText(object.ptr()), object, isConst});
  } catch (const Error& error) {
    Zint::throwRangeException(error.what());
  }
}

std::vector<std::string> ControlSocket::objects() const { return server_->world.names.objects(); }

void ControlSocket::onCommandIs(
    std::function<void(U32 uid, U32 pid, const std::string& line)> onCommand) {
  server_->world.onCommand = std::move(onCommand);
}

void ControlSocket::eventsIs(ControlEvents events) { server_->world.events = std::move(events); }

int ControlSocket::descriptor() { return server_->descriptor(); }

void ControlSocket::serve() {
  const std::shared_ptr<Server> held = server_;
  held->serve();
}

U32 ControlSocket::clients() const { return server_->clients(); }
U64 ControlSocket::commands() const { return server_->commands; }
U64 ControlSocket::refusedClients() const { return server_->refusedClients; }
U64 ControlSocket::droppedClients() const { return server_->droppedClients; }
U64 ControlSocket::refusedLines() const { return server_->refusedLines; }
U64 ControlSocket::acceptFailures() const { return server_->acceptFailures; }
Zint::Seconds ControlSocket::longestTurn() const { return server_->longestTurn; }

ControlSocket::Ptr controlSocketFactory(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                        const Zint::Ptr<const Zint::Clock>& clock,
                                        const std::string& name, const ControlOptions& options) {
  return Zint::makePtr<ControlSocket>(activity, clock, name, options);
}

}  // namespace Telemetry
