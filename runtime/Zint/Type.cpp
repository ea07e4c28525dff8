#include <Zint/Type.h>

namespace Zint {

const Type ptrInterfaceType{"Zint::PtrInterface"};
const Type notifieeType{"Zint::NotifieeConst"};
const Type entityType{"Zint::Entity"};
const Type requestType{"Zint::Request"};
const Type clockType{"Zint::Clock"};
const Type activityType{"Zint::ActivityConfig"};

}  // namespace Zint
