#include "processusage.h"

#include <QAbstractEventDispatcher>
#include <QDir>
#include <QFile>
#include <QMetaMethod>
#include <QObject>
#include <QSet>

#include <algorithm>

#include <malloc.h>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define USES_SANITIZER_HEAP
#endif
#endif
#if defined(USES_SANITIZER_HEAP) || defined(__SANITIZE_ADDRESS__)
#include <sanitizer/allocator_interface.h>
#define SANITIZER_HEAP
#endif

// Qt calls the functions in this array for every new and every deleted QObject. The array is declared again here,
// because Qt declares it only in a private header.
extern quintptr Q_CORE_EXPORT qtHookData[];

namespace {

constexpr int addObjectHook = 3;
constexpr int removeObjectHook = 4;

QSet<QObject *> &livingObjects()
{
    // The set is never deleted, because Qt still removes QObjects from it when static QObjects are destroyed at exit.
    static auto *const objects = new QSet<QObject *>;
    return *objects;
}

void addObject(QObject *object)
{
    livingObjects().insert(object);
}

void removeObject(QObject *object)
{
    livingObjects().remove(object);
}

/// Calls QObject::receivers(), which is protected, to count the connections to a signal.
struct Receivers : QObject
{
    static int of(const QObject *object, const QMetaMethod &signal)
    {
        const QByteArray name = QByteArray::number(QSIGNAL_CODE) + signal.methodSignature();
        return (object->*&Receivers::receivers)(name.constData());
    }
};

int connectionsOf(const QObject *object)
{
    int connections = 0;
    const QMetaObject *const meta = object->metaObject();
    for (int i = 0; i < meta->methodCount(); ++i) {
        if (meta->method(i).methodType() == QMetaMethod::Signal)
            connections += Receivers::of(object, meta->method(i));
    }
    return connections;
}

qint64 allocatedBytes()
{
#ifdef SANITIZER_HEAP
    return static_cast<qint64>(__sanitizer_get_current_allocated_bytes());
#else
    const struct mallinfo2 info = mallinfo2();
    return static_cast<qint64>(info.uordblks + info.hblkhd);
#endif
}

qint64 residentMemory()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    return file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

/// Returns the number of open descriptors that have a path: files and ports. Sockets are not counted, because the
/// threads of umockdev (the library behind the simulated ports) open and close sockets at any time.
int descriptorsOfFiles()
{
    const QStringList numbers = QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::System | QDir::Files);
    return static_cast<int>(std::count_if(numbers.begin(), numbers.end(), [](const QString &number) {
        char target = 0;
        return ::readlink(("/proc/self/fd/" + number.toLatin1()).constData(), &target, 1) == 1 && target == '/';
    }));
}

} // namespace

void ProcessUsage::watchObjects()
{
    qtHookData[addObjectHook] = reinterpret_cast<quintptr>(&addObject);
    qtHookData[removeObjectHook] = reinterpret_cast<quintptr>(&removeObject);
}

ProcessUsage ProcessUsage::now()
{
    ProcessUsage usage = {allocatedBytes(), residentMemory(), descriptorsOfFiles(), livingObjects().size(), 0, 0};
    const QList<QObject *> objects = livingObjects().values();
    for (QObject *object : objects) {
        usage.connections += connectionsOf(object);
        usage.timers += QAbstractEventDispatcher::instance()->registeredTimers(object).size();
    }
    return usage;
}

QString ProcessUsage::tableHead()
{
    return QStringLiteral("%1 %2 %3 %4 %5 %6 %7")
        .arg(QString(), -26)
        .arg(QStringLiteral("heap bytes"), 12)
        .arg(QStringLiteral("RSS bytes"), 12)
        .arg(QStringLiteral("descriptors"), 12)
        .arg(QStringLiteral("objects"), 8)
        .arg(QStringLiteral("connections"), 12)
        .arg(QStringLiteral("timers"), 7);
}

QString ProcessUsage::tableRow(const QString &title) const
{
    return QStringLiteral("%1 %2 %3 %4 %5 %6 %7")
        .arg(title, -26)
        .arg(heapBytes, 12)
        .arg(residentBytes, 12)
        .arg(descriptors, 12)
        .arg(objects, 8)
        .arg(connections, 12)
        .arg(timers, 7);
}
