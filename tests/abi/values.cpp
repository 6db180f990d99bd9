// The public types that hold values and have no function of their own in a library. No exported function leads to them
// as debug information tells it (QList hides its elements), so this one does.
#include <device/portreport.h>

#include <qglobal.h>

Q_DECL_EXPORT void values(const JwDevice::PortReport *);

void values(const JwDevice::PortReport *)
{
}
