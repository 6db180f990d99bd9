#include "message.h"

#include <common/printable.h>

#include <cstdio>

namespace JwBridge {

void say(const QString &text)
{
    std::fprintf(stderr, "jwbridge: %s\n", JwTools::printable(text).toUtf8().constData());
}

} // namespace JwBridge
