#include <Hardware/ChipMemoryBogon.h>

#include <Hardware/Umbra.h>
#include <Zint/ObjectText.h>

namespace Hardware {
namespace {

[[noreturn]] void refuseReinstantiation(const char* attribute, const Zint::String8& passed,
                                        const Zint::String8& held) {
  Zint::throwNameInUseException(
      Zint::String8(
          "Reinstantiating the pointer interface where constructor parameter attribute ") +
      attribute + " has a different value of " + passed + " than the current value of " + held +
      " not allowed");
}

}  // namespace

ChipMemoryBogon::ChipMemoryBogon(Zint::Name name) : Entity(std::move(name)) {}

ChipMemoryBogon::~ChipMemoryBogon() {
  chipMemoryDelAll();
  notifieeDelAll();
}

Zint::Ptr<ChipMemoryBogon> chipMemoryBogonFactory(Zint::Name name) {
  return Zint::makePtr<ChipMemoryBogon>(std::move(name));
}

const Zint::Type* ChipMemoryBogon::fwkType() const { return &chipMemoryBogonType; }

ChipMemory::Ptr ChipMemoryBogon::chipMemoryIs(Zint::String8 name, const ChipAddress& address,
                                              U32 entries, U32 entrySize, U32 stride,
                                              const Zint::Ptr<ChipHam>& chipHam) {
  const ChipMemory::Ptr existing = chipMemory_.find(name);
  if (existing == nullptr) {
    const ChipMemory::Ptr made = newChipMemory(name, address, entries, entrySize, stride, chipHam);
    announce(name);
    return made;
  }
  if (address != existing->address()) {
    refuseReinstantiation("_address", address.stringValue(), existing->address().stringValue());
  }
  const Zint::Ptr<ChipHam> given = chipHam;  // a notifiee may clear the pointer that was passed
  existing->entriesIs(entries);
  if (entrySize != existing->entrySize()) {
    refuseReinstantiation("_entrySize", Zint::valueToStrep(entrySize),
                          Zint::valueToStrep(existing->entrySize()));
  }
  if (stride != existing->stride()) {
    refuseReinstantiation("_stride", Zint::valueToStrep(stride),
                          Zint::valueToStrep(existing->stride()));
  }
  if (given != existing->chipHam()) {
    refuseReinstantiation("_chipHam", Zint::valueToStrep(given),
                          Zint::valueToStrep(existing->chipHam()));
  }
  return existing;
}

ChipMemory::Ptr ChipMemoryBogon::newChipMemory(Zint::String8 name, const ChipAddress& address,
                                               U32 entries, U32 entrySize, U32 stride,
                                               const Zint::Ptr<ChipHam>& chipHam) {
  const ChipMemory::Ptr made =
      Zint::makePtr<ChipMemory>(std::move(name), address, entries, entrySize, stride, chipHam);
  chipMemory_.insert(made);
  return made;
}

ChipMemory::Ptr ChipMemoryBogon::chipMemoryDel(Zint::String8 name) {
  const ChipMemory::Ptr removed = chipMemory_.del(name);
  if (removed != nullptr) announce(name);
  return removed;
}

void ChipMemoryBogon::chipMemoryDelAll() {
  const Ptr self(this);
  for (auto region = chipMemoryIterator(); region; ++region) region.del();
}

void ChipMemoryBogon::chipMemoryNotify(Zint::String8 name, const ChipMemory::Ptr&) {
  announce(name);
}

// By reference: a copy of the name could lack memory, and the change has been made. Each notifiee's
// own copy is made under its guard.
void ChipMemoryBogon::announce(const Zint::String8& name) {
  notifyEach<NotifieeConst>(Id::chipMemory,
                            [&name](NotifieeConst& notifiee) { notifiee.onChipMemory(name); });
}

ChipMemoryBogon::NotifieeConst::NotifieeConst(const Zint::Ptr<Zint::ActivityConfig>& activity,
                                              const Zint::Ptr<const ChipMemoryBogon>& directory)
    : Entity::NotifieeConst(activity, directory) {}

ChipMemoryBogon::NotifieeConst::~NotifieeConst() = default;

}  // namespace Hardware
