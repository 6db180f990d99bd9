#include "testbed.h"

#include <simulator/port.h>
#include <simulator/preload.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSet>

#include <umockdev.h>

#include <vector>

namespace JwSimulator {

struct Testbed::Private
{
    Private()
    {
        clock.start();
        if (!isPreloaded())
            return;
        testbed = umockdev_testbed_new();
        // Without this folder, programs would see the machine's own /dev until the first device is added.
        gchar *root = umockdev_testbed_get_root_dir(testbed);
        QDir(QFile::decodeName(root)).mkdir(QStringLiteral("dev"));
        g_free(root);
    }
    ~Private()
    {
        boards.clear();
        if (testbed)
            g_object_unref(testbed);
    }

    QString freeName(const QSet<QString> &taken, const QString &pattern, int first) const
    {
        for (int number = first;; ++number) {
            const QString name = pattern.arg(number);
            if (!taken.contains(name))
                return name;
        }
    }

    UMockdevTestbed *testbed = nullptr;
    QElapsedTimer clock;
    std::vector<std::unique_ptr<QLockFile>> names;
    std::vector<std::unique_ptr<Board>> boards;
};

Testbed::Testbed()
    : d(std::make_unique<Private>())
{
}

Testbed::~Testbed() = default;

Board *Testbed::add(const BoardConfig &config, QString *error)
{
    return add(QList<BoardConfig>{config}, error) ? d->boards.back().get() : nullptr;
}

bool Testbed::add(const QList<BoardConfig> &configs, QString *error)
{
    QString unused;
    QString &fault = error ? *error : unused;
    if (!d->testbed) {
        fault =
            QStringLiteral("libumockdev-preload is not loaded; call JwSimulator::ensurePreloaded() first in main()");
        return false;
    }
    if (configs.size() + boards().size() > maxBoards) {
        fault = QStringLiteral("%1 boards are too many; simulate at most %2 at a time")
                    .arg(configs.size() + boards().size())
                    .arg(maxBoards);
        return false;
    }
    QSet<QString> ports;
    QSet<QString> serials;
    for (const std::unique_ptr<Board> &board : d->boards) {
        ports.insert(board->portName());
        serials.insert(board->config().serial);
    }
    for (const BoardConfig &config : configs) {
        if (!config.port.isEmpty() && ports.contains(config.port)) {
            fault = QStringLiteral("two boards on port %1; give each its own port name").arg(config.port);
            return false;
        }
        ports.insert(config.port);
        serials.insert(config.serial);
    }
    for (BoardConfig config : configs) {
        const int index = static_cast<int>(d->boards.size());
        // A name that the caller chose is reserved too, so that other simulations choose other names.
        std::unique_ptr<QLockFile> reservation = config.port.isEmpty() ? nullptr : reserveName(config.port);
        while (config.port.isEmpty()) {
            const QString name = d->freeName(ports, QStringLiteral("ttyACM%1"), 0);
            ports.insert(name);
            reservation = reserveName(name);
            if (reservation && !isLocked(name)) // false if a simulation or another program uses this name
                config.port = name;
        }
        d->names.push_back(std::move(reservation));
        if (config.serial.isNull())
            config.serial = d->freeName(serials, QStringLiteral("SIM%1"), index + 1);
        ports.insert(config.port);
        serials.insert(config.serial);
        std::unique_ptr<Board> board(new Board(config, d->clock, std::make_unique<Port>(d->testbed, config, index)));
        if (!board->plug(&fault))
            return false;
        d->boards.push_back(std::move(board));
    }
    return true;
}

void Testbed::restartClock()
{
    d->clock.restart();
}

QList<Board *> Testbed::boards() const
{
    QList<Board *> list;
    for (const std::unique_ptr<Board> &board : d->boards)
        list.append(board.get());
    return list;
}

} // namespace JwSimulator
