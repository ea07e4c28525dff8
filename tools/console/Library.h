// What the console has from the telemetry library: the tree of names and the rules are those of the
// control socket.
#pragma once

#include <telemetry/Names.h>
#include <telemetry/NamesRules.h>
#include <telemetry/NamesText.h>

namespace Console {

using Telemetry::addressText;
using Telemetry::checkCall;
using Telemetry::checkSet;
using Telemetry::Computed;
using Telemetry::computedOf;
using Telemetry::didYouMean;
using Telemetry::Error;
using Telemetry::findUnquoted;
using Telemetry::integerText;
using Telemetry::isAddressName;
using Telemetry::isNamed;
using Telemetry::keyText;
using Telemetry::membersOf;
using Telemetry::nameIn;
using Telemetry::Names;
using Telemetry::nearest;
using Telemetry::Path;
using Telemetry::Place;
using Telemetry::textOf;

}  // namespace Console
