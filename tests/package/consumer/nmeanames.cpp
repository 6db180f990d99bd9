// An application with its own namespace Nmea. Built only with the shared libraries: with the static ones, the linker
// would find these functions twice and report an error.
#include <QStringView>

#include <cstdio>
#include <cstdlib>

class QString;

namespace Nmea {

int calculateCrc(const QString &text, int length);
int xorOf(QStringView text);
int readChecksum(QStringView text, bool *ok);
void appendChecksum(QString &sentence, int checksum);

[[noreturn]] void taken()
{
    std::fprintf(stderr, "the library calls the application's Nmea\n");
    std::_Exit(3);
}

int calculateCrc(const QString &, int)
{
    taken();
}

int xorOf(QStringView)
{
    taken();
}

int readChecksum(QStringView, bool *)
{
    taken();
}

void appendChecksum(QString &, int)
{
    taken();
}

} // namespace Nmea
