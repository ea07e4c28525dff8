// The descriptions of the library's types.
#include <Hardware/Umbra.h>

namespace Hardware {

const Zint::Type chipHamType{"Hardware::ChipHam"};
const Zint::Type genericChipHamType{"Hardware::GenericChipHam"};
const Zint::Type chipMemoryType{"Hardware::ChipMemory"};
const Zint::Type chipReadRequestType{"Hardware::ChipReadRequest"};
const Zint::Type chipReaderType{"Hardware::ChipReader"};
const Zint::Type chipMemoryChunkType{"Hardware::ChipMemoryChunk"};
const Zint::Type hardwareShadowType{"Hardware::HardwareShadow"};

}  // namespace Hardware
