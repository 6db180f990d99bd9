#include "ipayloadparser.h"

namespace JwDevice {

IPayloadParser::~IPayloadParser() = default; // defined here, so that there is one vtable for all derived classes

} // namespace JwDevice
