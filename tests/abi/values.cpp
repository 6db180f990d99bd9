// libabigail describes only types that an exported function uses. No function of the library shows the public types
// below, because QList and std::function hide their elements. So the function in this file uses these types. One
// function uses all types, because the compiler would join several functions that do the same.
#include <device/boardrules.h>
#include <device/portevent.h>
#include <device/portreport.h>

#include <qglobal.h>

Q_DECL_EXPORT void values(const JwDevice::PortReport *, const JwDevice::PortEvent *, JwDevice::SentenceKey);

void values(const JwDevice::PortReport *, const JwDevice::PortEvent *, JwDevice::SentenceKey)
{
}
