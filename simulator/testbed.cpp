#include "testbed.h"

#include <simulator/devicetree.h>
#include <simulator/port.h>
#include <simulator/preload.h>

#include <QElapsedTimer>
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
        tree = std::make_unique<DeviceTree>(testbed);
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
    std::unique_ptr<DeviceTree> tree;
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
        ports += {board->config().port, board->config().replugPort};
        serials.insert(board->config().serial);
    }
    for (const BoardConfig &config : configs) {
        for (const QString &name : {config.port, config.replugPort}) {
            if (!name.isEmpty() && ports.contains(name)) {
                fault = QStringLiteral("port name %1 is given twice; give each board its own port names").arg(name);
                return false;
            }
            ports.insert(name);
        }
        serials.insert(config.serial);
    }
    for (BoardConfig config : configs) {
        const int index = static_cast<int>(d->boards.size());
        // A name that the caller chose is reserved too, so that other simulations choose other names.
        for (const QString &name : {config.port, config.replugPort}) {
            if (!name.isEmpty())
                d->names.push_back(reserveName(name));
        }
        while (config.port.isEmpty()) {
            const QString name = d->freeName(ports, QStringLiteral("ttyACM%1"), 0);
            ports.insert(name);
            std::unique_ptr<QLockFile> reservation = reserveName(name);
            if (reservation && !isLocked(name)) { // false if another simulation or a real port uses this name
                config.port = name;
                d->names.push_back(std::move(reservation));
            }
        }
        if (config.serial.isNull())
            config.serial = d->freeName(serials, QStringLiteral("SIM%1"), index + 1);
        serials.insert(config.serial);
        std::unique_ptr<Board> board(new Board(config, d->clock, std::make_unique<Port>(*d->tree, config, index)));
        if (!board->start(&fault))
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
