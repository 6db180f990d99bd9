// The public types that hold values and have no function of their own in a library. No exported function leads to them
// as debug information tells it (QList and std::function hide what they hold), so this one does. One function for all:
// the compiler makes one of several that do the same, and describes only that.
#include <device/boardrules.h>
#include <device/portevent.h>
#include <device/portreport.h>

#include <qglobal.h>

Q_DECL_EXPORT void values(const JwDevice::PortReport *, const JwDevice::PortEvent *, JwDevice::SentenceKey);

void values(const JwDevice::PortReport *, const JwDevice::PortEvent *, JwDevice::SentenceKey)
{
}
