// The descriptions of the library's types, for types that derive from them and for values by name.
#pragma once

#include <Zint/Type.h>

namespace Hardware {

UMBRA_API extern const Zint::Type chipMemoryModeType;
UMBRA_API extern const Zint::Type hardwareShadowStateType;
UMBRA_API extern const Zint::Type chipAddressType;
UMBRA_API extern const Zint::Type chipHamType;
UMBRA_API extern const Zint::Type genericChipHamType;
UMBRA_API extern const Zint::Type chipMemoryType;
UMBRA_API extern const Zint::Type chipReadRequestType;
UMBRA_API extern const Zint::Type chipReaderType;
UMBRA_API extern const Zint::Type chipMemoryArrayIndexType;
UMBRA_API extern const Zint::Type chipMemoryChunkType;
UMBRA_API extern const Zint::Type hardwareShadowType;
UMBRA_API extern const Zint::Type chipMemoryBogonType;

}  // namespace Hardware
