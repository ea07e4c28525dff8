#pragma once
#include <Driver/Patrol.h>
namespace Driver {
class Patrol::Replay : public Zint::PtrInterface {};
}  // namespace Driver
