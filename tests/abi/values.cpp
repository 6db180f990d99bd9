// Exported functions use some public types only as elements of a QList, and debug information hides those. This function
// shows these types to the comparison.
#include <device/portreport.h>

#include <qglobal.h>

Q_DECL_EXPORT void values(const JwDevice::PortReport *);

void values(const JwDevice::PortReport *)
{
}
