#include "ipayloadparser.h"

namespace JwDevice {

IPayloadParser::~IPayloadParser() = default; // here, so that the class has one vtable for all who derive from it

} // namespace JwDevice
