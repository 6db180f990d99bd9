#include "support/jwbridge/bridgerun.h"
#include "support/jwmonitor/comboboxkeys.h"
#include "support/jwmonitor/trafficrows.h"

#include <jwmonitor/app/mainwindow.h>
#include <jwmonitor/find/boardsbar.h>
#include <jwmonitor/find/findbar.h>
#include <jwmonitor/find/portsmodel.h>
#include <jwmonitor/find/portsview.h>
#include <jwmonitor/fleet/fleetboards.h>
#include <jwmonitor/history/historytable.h>
#include <jwmonitor/timeline/timelineview.h>
#include <jwmonitor/traffic/trafficmodel.h>

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

using namespace JwMonitor;

/// Tests the window with the boards of other machines: a real broker, real bridges, keyboard.
class TestFleet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        NEEDS_MOSQUITTO;
        NEEDS_PROGRAM("mosquitto_passwd", "mosquitto");
    }
    void init();
    void cleanup();

    void boardsOfAllMachinesHaveRows();
    void portWithoutABoardHasItsReason();
    void pulledBoardIsLostAndBack();
    void machineThatIsOfflineIsShown();
    void brokerThatIsAwayIsShown();
    void topicThatMayNotBeReadIsShown();
    void lineGoesToTheChosenBoard();
    void lineThatIsRefusedFails();
    void lineWithoutAConnectionIsNotSent();
    void boardThatIsAwayStaysChosen();
    void forgottenBoardLeaves();
    void payloadHasTheTimeOfItsBridge();
    void longNameFitsInTheTables();
    void searchOfThisMachineIsHidden();
    void optionsConnectTheProgram();

private:
    void startBroker(const QByteArray &settings = QByteArray());
    void show();
    std::unique_ptr<BridgeRun> startBridge(const char *host, const QStringList &boards,
                                           const QStringList &options = {}) const;
    QStringList names() const { return columnTexts(ports(), PortsModel::Port); }
    QString state(const QString &name) const;
    QAbstractItemModel *ports() const { return m_window->findChild<PortsView *>()->model(); }
    QString status() const { return m_window->findChild<QLabel *>(QStringLiteral("searchStatus"))->text(); }
    QString message() const;
    QComboBox *boardList() const { return m_window->findChild<QComboBox *>(QStringLiteral("board")); }
    HistoryTable *table(const char *name) const { return m_window->findChild<HistoryTable *>(QLatin1String(name)); }
    QStringList sent(int column) const { return columnTexts(table("sent")->model(), column); }
    void type(const char *line) const;

    QString m_port;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<BrokerRun> m_broker;
    std::unique_ptr<FleetBoards> m_boards;
    std::unique_ptr<MainWindow> m_window;
};

void TestFleet::init()
{
    m_port = uniquePortName();
    m_folder = std::make_unique<QTemporaryDir>();
}

void TestFleet::cleanup()
{
    m_window.reset();
    m_boards.reset();
    m_broker.reset();
}

void TestFleet::startBroker(const QByteArray &settings)
{
    m_broker = std::make_unique<BrokerRun>(settings);
    m_broker->start();
}

void TestFleet::show()
{
    JwFleet::BrokerSettings settings;
    settings.address = {QStringLiteral("localhost"), m_broker->port(), false};
    m_boards = std::make_unique<FleetBoards>(settings, QStringLiteral("jw"));
    m_window = std::make_unique<MainWindow>(m_boards.get());
    m_window->show();
    m_boards->start();
}

std::unique_ptr<BridgeRun> TestFleet::startBridge(const char *host, const QStringList &boards,
                                                  const QStringList &options) const
{
    const QString name = QString::fromLatin1(host);
    const QString spool = m_folder->filePath(name);
    QDir().mkpath(spool);
    return std::make_unique<BridgeRun>(boards, m_broker->url(), spool,
                                       QStringList{QStringLiteral("--host"), name} + options);
}

QString TestFleet::state(const QString &name) const
{
    const auto row = static_cast<int>(names().indexOf(name));
    return row < 0 ? QString() : ports()->index(row, PortsModel::State).data().toString();
}

QString TestFleet::message() const
{
    // The traffic table also has a label with this name.
    return boardList()->parentWidget()->findChild<QLabel *>(QStringLiteral("message"))->text();
}

void TestFleet::type(const char *line) const
{
    m_window->showView(MainWindow::TrafficTab);
    auto *editor = m_window->findChild<QLineEdit *>(QStringLiteral("line"));
    QTest::keyClicks(editor, QString::fromLatin1(line));
    QTest::keyClick(editor, Qt::Key_Return);
}

void TestFleet::boardsOfAllMachinesHaveRows()
{
    startBroker();
    show();
    const QString second = uniquePortName();
    const auto here = startBridge("here", {boardOn("BoardA", m_port, "serial=S1")});
    const auto there = startBridge("there", {boardOn("BoardB", second, "serial=S1")});
    const QString url = m_broker->url();
    WAIT_FOR(status() == url + QStringLiteral(": 2 of 2 machines online, 2 of 2 boards there"));
    QCOMPARE(names(),
             (QStringList{QStringLiteral("here"), QStringLiteral("here/S1:1.0"), QStringLiteral("there"),
                          QStringLiteral("there/S1:1.0")}));
    QCOMPARE(columnTexts(ports(), PortsModel::Type),
             (QStringList{QString(), QStringLiteral("BoardA"), QString(), QStringLiteral("BoardB")}));
    QCOMPARE(columnTexts(ports(), PortsModel::Identity),
             (QStringList{QString(), QStringLiteral("S1"), QString(), QStringLiteral("S1")}));
    QCOMPARE(state(QStringLiteral("here")), QStringLiteral("online"));
    const QString found = QStringLiteral("found on %1, hardware ").arg(second);
    QVERIFY2(state(QStringLiteral("there/S1:1.0")).startsWith(found),
             qPrintable(state(QStringLiteral("there/S1:1.0"))));
    QVERIFY(state(QStringLiteral("there/S1:1.0")).size() > found.size());
}

void TestFleet::portWithoutABoardHasItsReason()
{
    startBroker();
    show();
    const auto here = startBridge("here", {boardOn("silent", m_port)});
    const QString name = QStringLiteral("here/") + m_port;
    WAIT_FOR(!state(name).isEmpty());
    QVERIFY2(state(name).contains(QLatin1String("no sentence")), qPrintable(state(name)));
}

void TestFleet::pulledBoardIsLostAndBack()
{
    startBroker();
    show();
    const auto here = startBridge("here", {boardOn("BoardA", m_port, "serial=S1,pull-after=2000,replug-after=3000")});
    const QString name = QStringLiteral("here/S1:1.0");
    WAIT_FOR(state(name).startsWith(QLatin1String("found")));
    WAIT_FOR(state(name) == QLatin1String("lost: cable pulled"));
    WAIT_FOR(state(name).startsWith(QLatin1String("found")));
    QCOMPARE(boardList()->count(), 1);
}

void TestFleet::machineThatIsOfflineIsShown()
{
    startBroker();
    show();
    const QStringList boards{boardOn("BoardA", m_port, "serial=S1")};
    auto here = startBridge("here", boards);
    const QString machine = QStringLiteral("here");
    const QString board = QStringLiteral("here/S1:1.0");
    WAIT_FOR(state(board).startsWith(QLatin1String("found")));
    here.reset();
    WAIT_FOR(state(machine).startsWith(QLatin1String("offline: ")));
    QCOMPARE(state(board), QStringLiteral("lost: machine offline"));
    QVERIFY2(status().endsWith(QLatin1String(": 0 of 1 machines online, 0 of 1 boards there")), qPrintable(status()));
    type("PJWVER");
    WAIT_FOR(message().contains(QLatin1String("offline")));
    here = startBridge("here", boards);
    WAIT_FOR(state(machine) == QLatin1String("online"));
    WAIT_FOR(state(board).startsWith(QLatin1String("found")));
}

void TestFleet::brokerThatIsAwayIsShown()
{
    startBroker();
    show();
    const auto here = startBridge("here", {boardOn("BoardA", m_port, "serial=S1")});
    WAIT_FOR(status().endsWith(QLatin1String("1 of 1 boards there")));
    m_broker->stop(BrokerRun::WithoutMemory);
    const QString url = m_broker->url();
    WAIT_FOR(status().startsWith(QStringLiteral("No connection to %1: ").arg(url)));
    WAIT_FOR(state(QStringLiteral("here")).startsWith(QLatin1String("no news since")));
    QVERIFY(state(QStringLiteral("here/S1:1.0")).startsWith(QLatin1String("lost: ")));
    m_broker->start();
    WAIT_FOR(status().endsWith(QLatin1String("1 of 1 boards there")));
    QCOMPARE(state(QStringLiteral("here")), QStringLiteral("online"));
}

// Mosquitto's plug-in for rights refuses every subscription.
void TestFleet::topicThatMayNotBeReadIsShown()
{
    QFile rights(m_folder->filePath(QStringLiteral("rights.json")));
    QVERIFY(rights.open(QIODevice::WriteOnly));
    rights.write(R"({"defaultACLAccess": {"subscribe": false, "publishClientSend": true, "publishClientReceive": true},
                     "groups": [{"groupname": "all"}], "anonymousGroup": "all"})");
    rights.close();
    const Outcome files = runProgram(QStringLiteral("dpkg"), {QStringLiteral("-L"), QStringLiteral("mosquitto")});
    const QList<QByteArray> plugIns = linesOf(files.output);
    const auto plugIn = std::find_if(plugIns.begin(), plugIns.end(), [](const QByteArray &name) {
        return name.endsWith("/mosquitto_dynamic_security.so");
    });
    QVERIFY(plugIn != plugIns.end());
    startBroker("plugin " + *plugIn + "\nplugin_opt_config_file " + QFile::encodeName(rights.fileName()) + '\n');
    show();
    WAIT_FOR(status().startsWith(m_broker->url() + QStringLiteral(": the broker does not let this user read jw/+/")));
}

void TestFleet::lineGoesToTheChosenBoard()
{
    startBroker();
    show();
    const auto here = startBridge("here", {boardOn("BoardA", m_port, "serial=S1")});
    const auto there = startBridge("there", {boardOn("BoardB", uniquePortName(), "serial=S1")});
    WAIT_FOR(boardList()->count() == 2);
    for (const char *name : {"there/S1:1.0", "here/S1:1.0"}) {
        const QString board = QString::fromLatin1(name);
        m_window->findChild<TrafficModel *>()->clear();
        const int index = boardList()->findData(board);
        QVERIFY(index >= 0);
        chooseByKeys(m_window.get(), "board", boardList()->itemText(index));
        type("PJWVER");
        QVERIFY2(message().startsWith(QStringLiteral("Sent to %1 with id ").arg(board)), qPrintable(message()));
        WAIT_FOR(sent(TrafficColumn::Progress) == QStringList{QStringLiteral("written")});
        QCOMPARE(sent(TrafficColumn::Port), QStringList{board});
        QCOMPARE(sent(TrafficColumn::Raw), QStringList{QStringLiteral("$PJWVER*0c\\r\\n")});
        const auto *payloads = table("payloads")->model();
        // On a busy machine the bridge repeats its query, so a second answer may come.
        const auto count = [payloads](const char *direction) {
            return columnTexts(payloads, TrafficColumn::Way).count(QString::fromLatin1(direction));
        };
        WAIT_FOR(count("received") >= 1);
        QCOMPARE(count("sent"), 1);
        const QStringList boards = columnTexts(payloads, TrafficColumn::Port);
        QCOMPARE(boards.count(board), boards.size());
        QVERIFY(columnTexts(payloads, TrafficColumn::Checksum).contains(QStringLiteral("ok")));
        QVERIFY(columnTexts(payloads, TrafficColumn::Identifier).contains(QStringLiteral("PJWVER")));
    }
}

void TestFleet::lineThatIsRefusedFails()
{
    startBroker();
    show();
    const auto here = startBridge("here", {boardOn("BoardA", m_port, "serial=S1")}, {QStringLiteral("--read-only")});
    WAIT_FOR(boardList()->count() == 1);
    type("PJWVER");
    WAIT_FOR(sent(TrafficColumn::Progress) == QStringList{QStringLiteral("failed")});
    QVERIFY2(message().startsWith(QLatin1String("The payload with id 1 for here/S1:1.0 failed: "))
                 && message().contains(QLatin1String("--read-only")),
             qPrintable(message()));
}

void TestFleet::lineWithoutAConnectionIsNotSent()
{
    startBroker();
    show();
    const auto here = startBridge("here", {boardOn("BoardA", m_port, "serial=S1")});
    WAIT_FOR(status().endsWith(QLatin1String("1 of 1 boards there")));
    m_broker->stop();
    WAIT_FOR(status().startsWith(QLatin1String("No connection to ")));
    type("PJWVER");
    QCOMPARE(message(), QStringLiteral("Not sent: there is no connection to the broker."));
    QCOMPARE(table("sent")->model()->rowCount(), 0);
    QCOMPARE(m_window->findChild<QLineEdit *>(QStringLiteral("line"))->text(), QStringLiteral("PJWVER"));
}

void TestFleet::boardThatIsAwayStaysChosen()
{
    startBroker();
    show();
    const auto first = startBridge("first", {boardOn("BoardA", m_port, "serial=S1")});
    const QStringList boards{boardOn("BoardB", uniquePortName(), "serial=S2")};
    auto second = startBridge("second", boards);
    WAIT_FOR(boardList()->count() == 2);
    boardList()->setCurrentIndex(boardList()->findData(QStringLiteral("second/S2:1.0")));
    second.reset();
    WAIT_FOR(state(QStringLiteral("second/S2:1.0")).startsWith(QLatin1String("lost")));
    QCOMPARE(boardList()->currentData().toString(), QStringLiteral("second/S2:1.0"));
    second = startBridge("second", boards);
    WAIT_FOR(state(QStringLiteral("second/S2:1.0")).startsWith(QLatin1String("found")));
    QCOMPARE(boardList()->currentData().toString(), QStringLiteral("second/S2:1.0"));
    QCOMPARE(boardList()->count(), 2);
    type("PJWVER");
    WAIT_FOR(sent(TrafficColumn::Progress) == QStringList{QStringLiteral("written")});
}

void TestFleet::forgottenBoardLeaves()
{
    startBroker();
    show();
    const auto here = startBridge("here", {boardOn("BoardA", m_port, "serial=S1,pull-after=2000")},
                                  {QStringLiteral("--forget-after"), QStringLiteral("1s")});
    WAIT_FOR(boardList()->count() == 1);
    WAIT_FOR(boardList()->count() == 0);
    WAIT_FOR(names() == QStringList{QStringLiteral("here")});
}

void TestFleet::payloadHasTheTimeOfItsBridge()
{
    startBroker();
    show();
    WAIT_FOR(status().contains(QLatin1String("machines online")));
    const QStringList property{QStringLiteral("-D"), QStringLiteral("publish"), QStringLiteral("user-property")};
    const Outcome outcome = runProgram(
        QStringLiteral("mosquitto_pub"),
        QStringList{QStringLiteral("-V"), QStringLiteral("5"), QStringLiteral("-q"), QStringLiteral("1"),
                    QStringLiteral("-p"), QString::number(m_broker->port()), QStringLiteral("-t"),
                    QStringLiteral("jw/here/boards/S%0A1/rx"), QStringLiteral("-m"), QStringLiteral("$PJWTMP,21.5*30")}
            + property + QStringList{QStringLiteral("seq"), QStringLiteral("7")} + property
            + QStringList{QStringLiteral("time"), QStringLiteral("1700000000123456")});
    QCOMPARE(outcome.error, QByteArray());
    const auto *model = m_window->findChild<TrafficModel *>();
    WAIT_FOR(model->rowCount() == 1);
    QCOMPARE(model->record(0).timeUs, Q_INT64_C(1700000000123456));
    QCOMPARE(model->record(0).payload, QStringLiteral("$PJWTMP,21.5*30\r\n"));
    QCOMPARE(model->record(0).port, QStringLiteral("here/S\\n1"));
}

void TestFleet::longNameFitsInTheTables()
{
    startBroker();
    show();
    const auto here = startBridge("a-machine-with-a-long-name", {boardOn("BoardA", m_port, "serial=SERIAL1234")});
    WAIT_FOR(boardList()->count() == 1);
    type("PJWVER");
    WAIT_FOR(table("payloads")->model()->rowCount() >= 2);
    for (const char *name : {"payloads", "sent"}) {
        const HistoryTable *view = table(name);
        const QString text = view->model()->index(0, TrafficColumn::Port).data().toString();
        QCOMPARE(text, QStringLiteral("a-machine-with-a-long-name/SERIAL1234:1.0"));
        const int needed = view->fontMetrics().horizontalAdvance(text);
        WAIT_FOR(view->columnWidth(TrafficColumn::Port) > needed);
    }
}

void TestFleet::searchOfThisMachineIsHidden()
{
    startBroker();
    show();
    QVERIFY(m_window->isVisible());
    QVERIFY(m_window->findChild<PortsView *>()->isVisible());
    QVERIFY(!m_window->findChild<FindBar *>()->isVisible());
    QVERIFY(!m_window->findChild<BoardsBar *>()->isVisible());
    QVERIFY(!m_window->findChild<TimelineView *>()->isVisible());
    const QList<QAction *> actions = m_window->menuBar()->actions().first()->menu()->actions();
    QCOMPARE(actions.size(), 1);
    QCOMPARE(actions.first()->shortcut(), QKeySequence(QStringLiteral("Ctrl+Q")));
}

void TestFleet::optionsConnectTheProgram()
{
    const QString login = m_folder->filePath(QStringLiteral("login"));
    const QString passwords = m_folder->filePath(QStringLiteral("passwords"));
    const Outcome hashed = runProgram(
        QStringLiteral("mosquitto_passwd"),
        {QStringLiteral("-b"), QStringLiteral("-c"), passwords, QStringLiteral("viewer"), QStringLiteral("secret")});
    QCOMPARE(hashed.status, 0);
    QFile file(login);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner));
    file.write("viewer\nsecret\n");
    file.close();
    startBroker("password_file " + QFile::encodeName(passwords) + "\n");
    ProgramRun run(QStringLiteral(JWMONITOR_PROGRAM),
                   {QStringLiteral("--fleet"), m_broker->url(), QStringLiteral("--login"), login,
                    QStringLiteral("--prefix"), QStringLiteral("lab/1")});
    run.setEnvironment(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    run.start();
    WAIT_FOR(run.isOver() || m_broker->log().contains("lab/1/+/boards/+/rx (QoS 1)"));
    QVERIFY2(!run.isOver(), run.error());
    QVERIFY2(m_broker->log().contains("u'viewer'"), m_broker->log());
}

QTEST_MAIN(TestFleet)
#include "tst_jwmonitor_fleet.moc"
