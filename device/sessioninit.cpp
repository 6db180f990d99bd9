#include "sessioninit.h"

namespace JwDevice {

SessionInit::SessionInit() = default;

void SessionInit::clear()
{
    sentenceId = 0;
    fields.clear();
}

} // namespace JwDevice
