#include <Fru/HamImpl.h>

#include <Zint/Type.h>

namespace Fru {
namespace {

const Zint::Type hamImplType{"Fru::HamImpl"};

}  // namespace

HamImpl::~HamImpl() = default;

const Zint::Type* HamImpl::fwkType() const { return &hamImplType; }

}  // namespace Fru
