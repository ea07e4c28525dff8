#include <telemetry/ControlSocket.h>
#include <telemetry/Telemetry.h>

namespace Telemetry {
namespace {

using Zint::readOnly;
using C = ControlSocket;

constexpr Zint::Member controlSocketMembers[] = {
    readOnly<&C::path>("path").says("the socket that looks"),
    readOnly<&C::administerPath>("administerPath")
        .says("the socket that administers, if there is one"),
    readOnly<&C::administers>("administers").says("whether there is a socket that administers"),
    readOnly<&C::clients>("clients").says("connections at present"),
    readOnly<&C::commands>("commands").says("commands that were begun"),
    readOnly<&C::refusedClients>("refusedClients").says("connections for which there was no room"),
    readOnly<&C::droppedClients>("droppedClients").says("clients that left their answers unread"),
    readOnly<&C::refusedLines>("refusedLines").says("lines that were too long"),
    readOnly<&C::acceptFailures>("acceptFailures")
        .says("times when the process had no descriptor left for a client"),
    readOnly<&C::longestTurn>("longestTurn")
        .says("most time of the processor that a turn without an operation took"),
};
ZINT_CHECK_IDS(ControlSocket, controlSocketMembers, Zint::firstAttributeId, path, administerPath,
               administers, clients, commands, refusedClients, droppedClients, refusedLines,
               acceptFailures, longestTurn);

}  // namespace

constexpr Zint::Type controlSocketType{Zint::typeNameOf<ControlSocket>(),
                                       "reference-counted object", nullptr, controlSocketMembers};

}  // namespace Telemetry
