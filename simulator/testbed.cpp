#include "testbed.h"

#include <simulator/devicetree.h>
#include <simulator/hub.h>
#include <simulator/port.h>
#include <simulator/preload.h>

#include <QElapsedTimer>
#include <QSet>

#include <umockdev.h>

#include <vector>

namespace JwSimulator {

namespace {

// Returns whether the configuration plugs the cable in or pulls it.
bool movesCable(const BoardConfig &config)
{
    return config.plugAfter >= 0 || config.pullAfter >= 0 || config.pullAfterBytes >= 0 || config.replugAfter >= 0
        || config.cycles > 1;
}

} // namespace

struct Testbed::Private
{
    Private()
    {
        clock.start();
        if (!isPreloaded())
            return;
        testbed = umockdev_testbed_new();
        gchar *root = umockdev_testbed_get_root_dir(testbed);
        tree = std::make_unique<DeviceTree>(root);
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

    Hub *hub(const QString &name) const
    {
        for (const std::unique_ptr<Hub> &hub : hubs) {
            if (hub->name() == name)
                return hub.get();
        }
        return nullptr;
    }

    UMockdevTestbed *testbed = nullptr;
    std::unique_ptr<DeviceTree> tree;
    QElapsedTimer clock;
    std::vector<std::unique_ptr<QLockFile>> names;
    std::vector<std::unique_ptr<Hub>> hubs;
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
    QSet<QString> hubs;
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
        const bool isFirst = !d->hub(config.hub) && !hubs.contains(config.hub);
        if (!config.hub.isEmpty() && !isFirst && movesCable(config)) {
            fault = QStringLiteral("only the first board of hub %1 may have plug-after, pull-after, pull-after-bytes, "
                                   "replug-after and cycles; they hold for all its boards")
                        .arg(config.hub);
            return false;
        }
        hubs.insert(config.hub);
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
        // Systems sort ports by the path of the device. Each number gets two digits, so that "10" is after "02". The
        // path contains "usb1", because programs recognise a USB port by the name of the bus in its path.
        QByteArray usbPath = "usb1/1-" + QByteArray::number(index + 1).rightJustified(2, '0');
        Hub *hub = d->hub(config.hub);
        if (!config.hub.isEmpty() && !hub) {
            d->hubs.push_back(std::make_unique<Hub>(*d->tree, config.hub, usbPath));
            hub = d->hubs.back().get();
        }
        if (hub)
            usbPath = hub->nextPath();
        d->boards.emplace_back(
            new Board(config, d->clock, std::make_unique<Port>(*d->tree, config, usbPath, index), hub));
        Board *board = d->boards.back().get();
        if (hub)
            hub->add(board);
        if (!board->start(&fault)) {
            if (hub)
                hub->removeLast();
            d->boards.pop_back();
            return false;
        }
    }
    return true;
}

bool Testbed::pullHub(const QString &hub)
{
    Hub *found = d->hub(hub);
    if (found)
        found->pull();
    return found;
}

bool Testbed::plugHub(const QString &hub, QString *error)
{
    Hub *found = d->hub(hub);
    if (!found && error)
        *error = QStringLiteral("no board is behind a hub of the name %1").arg(hub);
    return found && found->plug(error);
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
