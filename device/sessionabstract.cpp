#include "sessionabstract.h"

namespace JwDevice {

SessionAbstract::SessionAbstract() = default;

void SessionAbstract::clear()
{
}

} // namespace JwDevice
