// Public types that have no exported function of their own. In the debug information no exported function refers to
// them (QList hides its elements), so this function does.
#include <device/portreport.h>

#include <qglobal.h>

Q_DECL_EXPORT void values(const JwDevice::PortReport *);

void values(const JwDevice::PortReport *)
{
}
