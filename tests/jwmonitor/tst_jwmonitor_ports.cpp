#include "support/jwmonitor/finderfixture.h"
#include "support/jwmonitor/simulatedwindowmain.h"

#include <jwmonitor/find/boardsbar.h>
#include <jwmonitor/find/portsmodel.h>
#include <jwmonitor/find/portsview.h>
#include <jwmonitor/look/theme.h>

#include <device/lockfile.h>

#include <QAbstractItemModelTester>
#include <QFile>
#include <QScopeGuard>
#include <QSignalSpy>

#include <sys/stat.h>

using namespace JwDevice;
using namespace JwMonitor;

namespace {

PortEntry entry(const char *name)
{
    PortEntry result;
    result.key = QString::fromLatin1(name);
    result.port.name = result.key;
    result.isPresent = true;
    return result;
}

QStringList column(const QAbstractItemModel &model, int column)
{
    QStringList texts;
    for (int row = 0; row < model.rowCount(); ++row)
        texts.append(model.index(row, column).data().toString());
    return texts;
}

QString text(const QAbstractItemModel *model, const JwSimulator::Board *board, PortsModel::Column column)
{
    for (int row = 0; row < model->rowCount(); ++row) {
        if (model->index(row, PortsModel::Port).data().toString() == board->portName())
            return model->index(row, column).data().toString();
    }
    return QString();
}

} // namespace

/// Tests the table of ports, and the line that shows the boards.
class TestPorts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowsComeAndGoOneByOne();
    void onlyWhatChangedIsAnnounced();
    void tellsWhatBecameOfEachPort();
    void tellsWhatIsInPlaceOfALockFile();
    void tellsWhatCantBeReadAlsoWhenTheSearchWasStopped();
    void toolTipsShowTextsOfBoardsAsTheyAre();
    void tellsTheUsbIdentity();
    void tellsOfALostBoardAndOfItsReturn();
    void theChosenRowStaysWhilePortsCome();
    void theChosenRowFollowsItsBoard();
    void saysWhyAPortIsLeftClosed();
    void theLineOfBoardsTellsWhereEachStands();
    void colouredTextsContrastWithTheirGround();
};

void TestPorts::rowsComeAndGoOneByOne()
{
    PortsModel model;
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    model.setEntries({entry("ttyACM1"), entry("ttyACM3")});
    model.setEntries({entry("ttyACM0"), entry("ttyACM1"), entry("ttyACM2"), entry("ttyACM3"), entry("ttyACM10")});
    QCOMPARE(column(model, PortsModel::Port).join(QLatin1Char(' ')),
             QStringLiteral("ttyACM0 ttyACM1 ttyACM2 ttyACM3 ttyACM10"));
    model.setEntries({entry("ttyACM2"), entry("ttyACM9")});
    QCOMPARE(column(model, PortsModel::Port).join(QLatin1Char(' ')), QStringLiteral("ttyACM2 ttyACM9"));
    model.setEntries({entry("ttyACM9"), entry("ttyACM10")});
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    model.setEntries({entry("ttyACM10")});
    QCOMPARE(inserted.size(), 0);
    model.setEntries({});
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(reset.size(), 0);
}

void TestPorts::onlyWhatChangedIsAnnounced()
{
    PortsModel model;
    model.setEntries({entry("ttyACM0"), entry("ttyACM1")});
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setEntries({entry("ttyACM0"), entry("ttyACM1")});
    QCOMPARE(changed.size(), 0);
    PortEntry found = entry("ttyACM1");
    found.stay = PortEntry::Found;
    model.setEntries({entry("ttyACM0"), found});
    QCOMPARE(changed.size(), 1);
    QCOMPARE(changed.at(0).at(0).toModelIndex().row(), 1);
    QCOMPARE(changed.at(0).at(1).toModelIndex().row(), 1);
}

void TestPorts::tellsWhatBecameOfEachPort()
{
    FinderFixture fixture;
    const auto *found = fixture.attach("BoardA");
    const auto *silent = fixture.attach("silent");
    const auto *second = fixture.attach("BoardA,delay=50");
    const auto *busy = fixture.attach("BoardB,open=busy");
    const auto *garbled = fixture.attach("BoardB,checksum=wrong");
    const auto *foreign = fixture.attach("BoardA,manufacturer=FTDI,vendor=0403");
    const PortsView view(&fixture.finder);
    fixture.start({BoardA, BoardB}, 0);
    QTRY_COMPARE(text(view.model(), silent, PortsModel::State), QStringLiteral("asked, awaiting an answer"));
    QTRY_VERIFY(!fixture.finder.isSearching());
    QCOMPARE(text(view.model(), found, PortsModel::State), QStringLiteral("found"));
    QCOMPARE(text(view.model(), found, PortsModel::Type), QStringLiteral("BoardA"));
    QVERIFY(text(view.model(), found, PortsModel::Time).toDouble() > 0);
    QCOMPARE(text(view.model(), silent, PortsModel::State), QStringLiteral("silent"));
    QVERIFY(text(view.model(), silent, PortsModel::Time).toDouble() >= 400);
    QCOMPARE(text(view.model(), second, PortsModel::State), QStringLiteral("found"));
    QVERIFY(text(view.model(), busy, PortsModel::State).startsWith(QLatin1String("not opened: held by another")));
    QVERIFY(text(view.model(), garbled, PortsModel::State).startsWith(QLatin1String("unreadable: $PJWVER")));
    QCOMPARE(text(view.model(), foreign, PortsModel::State), QStringLiteral("not asked"));
}

void TestPorts::tellsWhatIsInPlaceOfALockFile()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("BoardA");
    const QString lock = JwDevice::lockFilePath(board->portName());
    QCOMPARE(::mkfifo(QFile::encodeName(lock).constData(), 0600), 0);
    const auto clean = qScopeGuard([&lock] { QFile::remove(lock); });
    const PortsView view(&fixture.finder);
    fixture.searchToTheEnd({BoardA}, 0);
    QCOMPARE(text(view.model(), board, PortsModel::State),
             QStringLiteral("not opened: %1 is a named pipe, no lock file").arg(lock));
}

void TestPorts::tellsWhatCantBeReadAlsoWhenTheSearchWasStopped()
{
    FinderFixture fixture;
    const auto *garbled = fixture.attach("BoardB,checksum=wrong");
    const PortsView view(&fixture.finder);
    fixture.start({BoardA}, 0);
    QTRY_VERIFY(fixture.entry(garbled).report && !fixture.entry(garbled).report->unreadable.isEmpty());
    fixture.finder.stop();
    QVERIFY(text(view.model(), garbled, PortsModel::State).startsWith(QLatin1String("unreadable: $PJWVER")));
    QCOMPARE(int(fixture.entry(garbled).report->verdict), int(PortReport::Awaiting));
}

void TestPorts::toolTipsShowTextsOfBoardsAsTheyAre()
{
    PortsModel model;
    PortEntry port = entry("ttyACM0");
    port.port.product = QStringLiteral("<img src=x> & more");
    model.setEntries({port});
    const QModelIndex index = model.index(0, PortsModel::Identity);
    QCOMPARE(index.data().toString(), QStringLiteral("<img src=x> & more"));
    QCOMPARE(index.data(Qt::ToolTipRole).toString(), QStringLiteral("<qt>&lt;img src=x&gt; &amp; more</qt>"));
}

void TestPorts::tellsTheUsbIdentity()
{
    FinderFixture fixture;
    const auto *board = fixture.attach("silent,manufacturer=Acme,vendor=12ab,product=00cd,serial=S77");
    const PortsView view(&fixture.finder);
    QTRY_COMPARE(text(view.model(), board, PortsModel::UsbId), QStringLiteral("12ab:00cd"));
    const QString identity = text(view.model(), board, PortsModel::Identity);
    QVERIFY2(identity.startsWith(QLatin1String("Acme, ")) && identity.endsWith(QLatin1String(", S77")),
             qPrintable(identity));
}

void TestPorts::tellsOfALostBoardAndOfItsReturn()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    const PortsView view(&fixture.finder);
    fixture.start({BoardA}, 0);
    QTRY_COMPARE(text(view.model(), board, PortsModel::State), QStringLiteral("found"));
    board->pull();
    QTRY_COMPARE(text(view.model(), board, PortsModel::State), QStringLiteral("lost"));
    QCOMPARE(text(view.model(), board, PortsModel::Type), QStringLiteral("BoardA"));
    QVERIFY(board->plug());
    QTRY_COMPARE(text(view.model(), board, PortsModel::State), QStringLiteral("back"));
}

void TestPorts::theChosenRowStaysWhilePortsCome()
{
    FinderFixture fixture;
    fixture.attach("silent");
    const auto *chosen = fixture.attach("silent");
    PortsView view(&fixture.finder);
    QSignalSpy portChosen(&view, &PortsView::portChosen);
    QTRY_COMPARE(view.model()->rowCount(), 2);
    view.selectRow(1);
    QCOMPARE(portChosen.last().at(0).toString(), chosen->portName());
    fixture.attach("silent");
    QTRY_COMPARE(view.model()->rowCount(), 3);
    QCOMPARE(view.currentIndex().data().toString(), chosen->portName());
}

void TestPorts::theChosenRowFollowsItsBoard()
{
    PortsModel model;
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QVector<PortEntry> entries{entry("ttyACM0"), entry("ttyACM1"), entry("ttyACM2")};
    model.setEntries(entries);
    const QPersistentModelIndex chosen = model.index(0, PortsModel::Port);
    entries[0].port.name = QStringLiteral("ttyACM7");
    entries.move(0, 2);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    model.setEntries(entries);
    QCOMPARE(column(model, PortsModel::Port).join(QLatin1Char(' ')), QStringLiteral("ttyACM1 ttyACM2 ttyACM7"));
    QCOMPARE(chosen.data().toString(), QStringLiteral("ttyACM7"));
    QCOMPARE(removed.size(), 0);
}

void TestPorts::saysWhyAPortIsLeftClosed()
{
    PortsModel model;
    PortEntry port = entry("ttyACM0");
    port.report.emplace();
    port.report->errorText = QStringLiteral("not opened, because ttyACM1 of the same device is a board");
    model.setEntries({port});
    QCOMPARE(model.index(0, PortsModel::State).data().toString(), port.report->errorText);
}

void TestPorts::theLineOfBoardsTellsWhereEachStands()
{
    FinderFixture fixture;
    auto *board = fixture.attach("BoardA");
    const BoardsBar bar(&fixture.finder);
    fixture.start({BoardA, BoardC}, 0);
    QVERIFY2(bar.text().contains(QLatin1String("looking")), qPrintable(bar.text()));
    QTRY_VERIFY(bar.text().contains(QStringLiteral("found on ") + board->portName()));
    QTRY_VERIFY(bar.text().contains(QLatin1String("missing")));
    const auto *second = fixture.attach("BoardA");
    QTRY_VERIFY(bar.text().contains(QStringLiteral("found on %1, %2").arg(board->portName(), second->portName())));
    board->pull();
    QTRY_VERIFY(bar.text().contains(QStringLiteral("lost on ") + board->portName()));
    QVERIFY(bar.text().contains(QStringLiteral("found on ") + second->portName()));
    QVERIFY(board->plug());
    QTRY_VERIFY(bar.text().contains(QStringLiteral("back on ") + board->portName()));
    for (int i = 0; i < 4; ++i)
        fixture.attach("BoardA");
    QTRY_VERIFY2(bar.text().contains(QLatin1String(" and 2 more")), qPrintable(bar.text()));
}

void TestPorts::colouredTextsContrastWithTheirGround()
{
    // Returns how bright the colour is (luminance), as the accessibility rules for web pages (WCAG) define this. The
    // same rules ask for a contrast of at least 4.5.
    const auto luminance = [](const QColor &colour) {
        const auto linear = [](double value) {
            return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) + 0.0722 * linear(colour.blueF());
    };
    for (const Theme::Palette palette : {Theme::Palette::Light, Theme::Palette::Dark}) {
        Theme::apply(*qApp, palette);
        const QPalette colours = QApplication::palette();
        for (int role = 0; role <= Theme::RoleCount; ++role) {
            if (role == Theme::Grid)
                continue;
            const bool isPlaceholder = role == Theme::RoleCount;
            const double text = luminance(isPlaceholder ? colours.color(QPalette::PlaceholderText)
                                                        : Theme::colour(colours, static_cast<Theme::Role>(role)));
            for (const QPalette::ColorRole ground : {QPalette::Base, QPalette::AlternateBase, QPalette::Window}) {
                const double other = luminance(colours.color(ground));
                const double contrast = (std::max(text, other) + 0.05) / (std::min(text, other) + 0.05);
                QVERIFY2(contrast >= 4.5,
                         qPrintable(QStringLiteral("palette %1 role %2: %3")
                                        .arg(static_cast<int>(palette))
                                        .arg(role)
                                        .arg(contrast)));
            }
        }
    }
}

SIMULATED_WINDOW_MAIN(TestPorts)
#include "tst_jwmonitor_ports.moc"
