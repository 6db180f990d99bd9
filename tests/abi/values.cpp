// Public types that have no exported function of their own. In the debug information no exported function refers to
// them (QList and std::function hide their elements), so this function does. There is one function for all of them,
// because the compiler joins functions that do the same.
#include <device/boardrules.h>
#include <device/portevent.h>
#include <device/portreport.h>

#include <qglobal.h>

Q_DECL_EXPORT void values(const JwDevice::PortReport *, const JwDevice::PortEvent *, JwDevice::SentenceKey);

void values(const JwDevice::PortReport *, const JwDevice::PortEvent *, JwDevice::SentenceKey)
{
}
