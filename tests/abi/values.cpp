// libabigail, the tool that compares binary interfaces, describes only types that an exported function uses. The
// library's functions use the public types below only inside QList and std::function, which hide them from libabigail.
// So the function in this file uses these types directly. It is one function for all types, because the compiler would
// merge several functions with the same code.
#include <device/boardrules.h>
#include <device/portevent.h>
#include <device/portreport.h>

#include <qglobal.h>

Q_DECL_EXPORT void values(const JwDevice::PortReport *, const JwDevice::PortEvent *, JwDevice::SentenceKey);

void values(const JwDevice::PortReport *, const JwDevice::PortEvent *, JwDevice::SentenceKey)
{
}
