#include "ipayloadparser.h"

namespace JwDevice {

IPayloadParser::~IPayloadParser() = default; // here, so that the class has only one vtable

} // namespace JwDevice
