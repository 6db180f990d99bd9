#include "support/common/portname.h"
#include "support/jwmonitor/simulatedwindowmain.h"
#include "support/jwmonitor/stallwatch.h"
#include "support/jwmonitor/trafficrows.h"

#include <jwmonitor/find/boardsbar.h>
#include <jwmonitor/app/mainwindow.h>
#include <jwmonitor/plot/plotcanvas.h>
#include <jwmonitor/find/portsmodel.h>
#include <jwmonitor/find/portsview.h>
#include <jwmonitor/send/sendpanel.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/timeline/timelinecanvas.h>
#include <jwmonitor/timeline/timelineview.h>
#include <jwmonitor/traffic/trafficmodel.h>
#include <jwmonitor/traffic/trafficview.h>
#include <logger/logger.h>
#include <simulator/testbed.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSerialPort>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QTemporaryDir>
#include <QToolBar>
#include <QToolButton>

#include <memory>

using namespace JwMonitor;

namespace {

QAbstractItemModel *rows(const QWidget *parent, const char *table)
{
    return parent->findChild<QTableView *>(QLatin1String(table))->model();
}

QStringList column(const QAbstractItemModel *model, const QString &title)
{
    for (int section = 0; section < model->columnCount(); ++section) {
        if (model->headerData(section, Qt::Horizontal).toString() == title)
            return columnTexts(model, section);
    }
    return {};
}

/// Closes each dialog that opens, like a user who cancels it.
class DialogCloser
{
public:
    DialogCloser()
    {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [] {
            if (QWidget *dialog = QApplication::activeModalWidget())
                dialog->close();
        });
        m_timer.start(10);
    }

private:
    QTimer m_timer;
};

} // namespace

/// Tests the whole window with simulated boards, keyboard and mouse.
class TestWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void findsTheBoards();
    void drawsTheRetryRounds();
    void followsACableThatIsPulledAndPluggedIn();
    void followsABoardToAnotherPort();
    void canBeStoppedAndStartedInEveryState();
    void sendsAndShowsTheAnswer();
    void filtersAndSavesTheTraffic();
    void savesTheTimelineByKey();
    void stopsAndFindsAgainByKey();
    void theStatusStaysWhileAMenuIsOpen();
    void tellsOfASavedFileForAMoment();
    void tabGoesFromLeftToRight();
    void findGivesTheFocusToTheView();
    void changesViewsByKey();
    void trafficKeysWorkInTheSendLine();
    void lettersPressTheTrafficButtons();
    void trafficButtonsHaveAFrame();
    void tablesAndThePlotHaveNames();
    void changesItsColours();
    void choosingAPortShowsItsLane();
    void fitsOnASmallScreen();
    void canBeClosedWhileABoardSends();
    void canBeClosedInTheMiddleOfASearch();
    void canBeClosedWhileItSaves();
    void staysResponsiveAtAThousandPayloadsASecond();

private:
    JwSimulator::Board *attach(const char *board);
    void show(const QList<JwDevice::Type> &types, int retries = 3); // a busy machine may answer late
    QString state(const JwSimulator::Board *board) const;
    template <typename Widget>
    Widget *child(const char *name) const
    {
        auto *widget = m_window->findChild<Widget *>(QLatin1String(name));
        if (!widget)
            qFatal("the window has no %s", name);
        return widget;
    }

    std::unique_ptr<JwSimulator::Testbed> m_testbed;
    std::unique_ptr<MainWindow> m_window;
};

void TestWindow::initTestCase()
{
    loggerInstance()->clearSinks();
    loggerInstance()->setLevel(Logger::Trace);
}

void TestWindow::init()
{
    m_testbed = std::make_unique<JwSimulator::Testbed>();
}

void TestWindow::cleanup()
{
    m_window.reset();
    m_testbed.reset();
}

JwSimulator::Board *TestWindow::attach(const char *board)
{
    auto config = JwSimulator::BoardConfig::fromText(QString::fromLatin1(board));
    config->port = uniquePortName();
    return m_testbed->add(*config);
}

void TestWindow::show(const QList<JwDevice::Type> &types, int retries)
{
    m_window = std::make_unique<MainWindow>();
    m_window->show();
    JwTools::SearchSettings settings;
    settings.types = types;
    settings.retries = retries;
    m_window->find(settings);
}

QString TestWindow::state(const JwSimulator::Board *board) const
{
    const QAbstractItemModel *model = m_window->findChild<PortsView *>()->model();
    const auto row = static_cast<int>(columnTexts(model, PortsModel::Port).indexOf(board->portName()));
    return row < 0 ? QString() : model->index(row, PortsModel::State).data().toString();
}

void TestWindow::findsTheBoards()
{
    const auto *a = attach("BoardA");
    const auto *c = attach("BoardC,delay=40");
    const auto *silent = attach("silent");
    m_window = std::make_unique<MainWindow>();
    m_window->show();
    child<QCheckBox>("BoardA")->click();
    child<QCheckBox>("BoardC")->click();
    QVERIFY(child<QLabel>("searchStatus")->text().startsWith(QLatin1String("Stopped")));
    QTest::mouseClick(child<QPushButton>("find"), Qt::LeftButton);
    QTRY_COMPARE(state(a), QStringLiteral("found"));
    QTRY_COMPARE(state(c), QStringLiteral("found"));
    QVERIFY(child<QLabel>("searchStatus")->text().startsWith(QLatin1String("Searching: ")));
    QTRY_COMPARE(state(silent), QStringLiteral("silent"));
    QTRY_COMPARE(child<QLabel>("searchStatus")->text(),
                 QStringLiteral("2 boards found; a board that you plug in is found too"));
    QCOMPARE(child<QComboBox>("board")->count(), 2);
}

void TestWindow::drawsTheRetryRounds()
{
    const auto *board = attach("BoardB,ignore=2");
    show({JwDevice::BoardB}, 3);
    auto *canvas = m_window->findChild<TimelineCanvas *>();
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    QSignalSpy described(canvas, &TimelineCanvas::described);
    // The events in order: opened, query, time-out, query, time-out, query, reply.
    for (int event = 0; event < 7; ++event)
        QTest::keyClick(canvas, Qt::Key_Right);
    const QString last = described.last().at(0).toString();
    QVERIFY2(last.contains(QLatin1String("reply (retry 2)  $PJWVER,7300021")), qPrintable(last));
}

void TestWindow::followsACableThatIsPulledAndPluggedIn()
{
    auto *board = attach("BoardA");
    show({JwDevice::BoardA});
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    board->pull();
    QTRY_COMPARE(state(board), QStringLiteral("lost"));
    QCOMPARE(child<QComboBox>("board")->count(), 0);
    QTRY_VERIFY(child<QLabel>("searchStatus")->text().startsWith(QLatin1String("0 boards found")));
    QVERIFY(board->plug());
    QTRY_COMPARE(state(board), QStringLiteral("back"));
    m_window->showView(MainWindow::TrafficTab);
    QTest::keyClicks(child<QLineEdit>("line"), QStringLiteral("PJWVER"));
    QTest::keyClick(child<QLineEdit>("line"), Qt::Key_Return);
    QTRY_COMPARE(column(rows(m_window.get(), "payloads"), QStringLiteral("Direction")),
                 QStringList({QStringLiteral("sent"), QStringLiteral("received")}));
}

void TestWindow::followsABoardToAnotherPort()
{
    auto *board = attach("BoardA,serial=S7");
    attach("silent");
    show({JwDevice::BoardA}, 0);
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    auto *ports = m_window->findChild<PortsView *>();
    QTRY_COMPARE(ports->model()->rowCount(), 2);
    ports->selectRow(static_cast<int>(columnTexts(ports->model(), PortsModel::Port).indexOf(board->portName())));
    QVERIFY(board->send("$PJWTMP,21.5*30\r\n"));
    auto *model = m_window->findChild<TrafficModel *>();
    QTRY_COMPARE(model->rowCount(), 1);
    board->pull();
    QTRY_COMPARE(state(board), QStringLiteral("lost"));
    auto *same = attach("BoardA,serial=S7"); // the same board on another port
    QTRY_COMPARE(state(same), QStringLiteral("back"));
    QCOMPARE(ports->model()->rowCount(), 2);
    QCOMPARE(ports->currentIndex().siblingAtColumn(PortsModel::Port).data().toString(), same->portName());
    QVERIFY(same->send("$PJWTMP,21.6*33\r\n"));
    QTRY_COMPARE(model->rowCount(), 2);
    QCOMPARE(model->record(0).key(), model->record(1).key());
    QCOMPARE(model->record(1).port, same->portName());
}

void TestWindow::canBeStoppedAndStartedInEveryState()
{
    auto *board = attach("BoardA");
    auto *slow = attach("BoardA,ignore=1");
    show({JwDevice::BoardA});
    auto *stop = child<QPushButton>("stop");
    auto *find = child<QPushButton>("find");
    const auto stopAndFind = [&] {
        QTest::mouseClick(stop, Qt::LeftButton);
        QVERIFY(!stop->isEnabled());
        QTest::mouseClick(find, Qt::LeftButton);
        QTest::mouseClick(find, Qt::LeftButton);
        QVERIFY(stop->isEnabled());
    };
    stopAndFind(); // before the ports are listed
    QTRY_COMPARE(state(slow), QStringLiteral("asked, awaiting an answer"));
    stopAndFind(); // in a probe
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    QVERIFY(board->send("$PJWTMP,21.5*30\r\n"));
    stopAndFind(); // while a payload is on its way
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    QTRY_COMPARE(state(slow), QStringLiteral("found"));
    board->pull();
    stopAndFind(); // before the loss is noticed
    QTRY_COMPARE(state(slow), QStringLiteral("found"));
    QTRY_COMPARE(state(board), QString());
    slow->pull();
    QTRY_COMPARE(state(slow), QStringLiteral("lost"));
    stopAndFind(); // with a lost board
    QVERIFY(board->plug());
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    QCOMPARE(child<QComboBox>("board")->count(), 1);
}

void TestWindow::sendsAndShowsTheAnswer()
{
    attach("BoardA");
    show({JwDevice::BoardA});
    QTRY_COMPARE(child<QComboBox>("board")->count(), 1);
    m_window->showView(MainWindow::TrafficTab);
    QTest::keyClicks(child<QLineEdit>("line"), QStringLiteral("PJWVER"));
    QTest::mouseClick(child<QPushButton>("send"), Qt::LeftButton);
    const QAbstractItemModel *payloads = rows(m_window.get(), "payloads");
    QTRY_COMPARE(payloads->rowCount(), 2);
    QCOMPARE(column(payloads, QStringLiteral("Identifier")),
             QStringList({QStringLiteral("PJWVER"), QStringLiteral("PJWVER")}));
    QCOMPARE(column(payloads, QStringLiteral("Checksum")), QStringList({QStringLiteral("ok"), QStringLiteral("ok")}));
    QVERIFY(column(payloads, QStringLiteral("Fields")).at(1).contains(QLatin1String("hwversion=7300022")));
}

void TestWindow::filtersAndSavesTheTraffic()
{
    auto *board = attach("BoardA");
    show({JwDevice::BoardA});
    QTRY_COMPARE(child<QComboBox>("board")->count(), 1);
    m_window->showView(MainWindow::TrafficTab);
    board->send("$PJWTMP,21.5*30\r\n$PJWHUM,40*00\r\n$PJWTMP,21.6*33\r\n");
    const QAbstractItemModel *payloads = rows(m_window.get(), "payloads");
    QTRY_COMPARE(payloads->rowCount(), 3);
    QTest::keyClicks(child<QLineEdit>("identifier"), QStringLiteral("PJWTMP"));
    QTRY_COMPARE(payloads->rowCount(), 2);

    const QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("traffic.csv"));
    auto *view = m_window->findChild<TrafficView *>();
    QSignalSpy saved(view, &TrafficView::saved);
    view->saveTo(fileName);
    QTRY_COMPARE(saved.size(), 1);
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    QCOMPARE(text.count("PJWTMP,"), 2);
    QVERIFY(!text.contains("PJWHUM"));
}

void TestWindow::savesTheTimelineByKey()
{
    const auto *board = attach("BoardA");
    show({JwDevice::BoardA});
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    const QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("search.svg"));
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, &answer, [&] {
        auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        auto *name = dialog->findChild<QLineEdit *>();
        name->setText(fileName);
        QTest::keyClick(name, Qt::Key_Return);
    });
    answer.start(10);
    m_window->showView(MainWindow::PortsTab);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_S, Qt::ControlModifier);
    QTRY_VERIFY(QFile::exists(fileName));
}

void TestWindow::stopsAndFindsAgainByKey()
{
    const auto *board = attach("BoardA");
    show({JwDevice::BoardA});
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    QTest::keyClick(m_window.get(), Qt::Key_F5, Qt::ShiftModifier);
    QTRY_COMPARE(state(board), QStringLiteral("not asked"));
    QVERIFY(child<QLabel>("searchStatus")->text().startsWith(QLatin1String("Stopped")));
    QVERIFY(!child<QPushButton>("stop")->isEnabled());
    QTest::keyClick(m_window.get(), Qt::Key_F5);
    QTRY_COMPARE(state(board), QStringLiteral("found"));
}

void TestWindow::theStatusStaysWhileAMenuIsOpen()
{
    attach("BoardA");
    show({JwDevice::BoardA});
    auto *status = child<QLabel>("searchStatus");
    const QString text = QStringLiteral("1 board found; a board that you plug in is found too");
    QTRY_COMPARE(status->text(), text);
    QAction *action = m_window->menuBar()->actions().first();
    // Opens the menu; its action has an empty status tip, which must not replace the status.
    m_window->menuBar()->setActiveAction(action);
    QTRY_VERIFY(action->menu()->isVisible());
    QVERIFY(status->isVisible());
    QCOMPARE(status->text(), text);
    QVERIFY(m_window->statusBar()->currentMessage().isEmpty());
    action->menu()->close();
}

void TestWindow::tellsOfASavedFileForAMoment()
{
    show({JwDevice::BoardA});
    const QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("traffic.csv"));
    m_window->findChild<TrafficView *>()->saveTo(fileName);
    QTRY_VERIFY(m_window->statusBar()->currentMessage().contains(fileName));
    QTRY_VERIFY_WITH_TIMEOUT(m_window->statusBar()->currentMessage().isEmpty(), 10000);
    QVERIFY(child<QLabel>("searchStatus")->isVisible());
}

void TestWindow::tabGoesFromLeftToRight()
{
    show({JwDevice::BoardA});
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    child<QCheckBox>("BoardA")->setFocus();
    for (const char *next : {"BoardB", "BoardC", "retries", "delay", "ports", "find", "stop"}) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget()->objectName(), QLatin1String(next));
    }
}

void TestWindow::findGivesTheFocusToTheView()
{
    show({JwDevice::BoardA});
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    const auto *tabs = m_window->findChild<QTabWidget *>();
    QVERIFY(tabs->currentWidget()->isAncestorOf(QApplication::focusWidget()));
    QTest::mouseClick(child<QPushButton>("find"), Qt::LeftButton);
    QVERIFY(tabs->currentWidget()->isAncestorOf(QApplication::focusWidget()));
    m_window->showView(MainWindow::TrafficTab);
    child<QLineEdit>("line")->setFocus(); // a user types in this line, so F5 must keep the focus here
    QTest::keyClick(m_window.get(), Qt::Key_F5);
    QCOMPARE(QApplication::focusWidget(), child<QLineEdit>("line"));
}

void TestWindow::changesViewsByKey()
{
    show({JwDevice::BoardA});
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    const auto *tabs = m_window->findChild<QTabWidget *>();
    for (const int tab : {MainWindow::LogTab, MainWindow::PlotTab, MainWindow::TrafficTab, MainWindow::PortsTab}) {
        QTest::keyClick(m_window.get(), static_cast<Qt::Key>(Qt::Key_1 + tab), Qt::ControlModifier);
        QCOMPARE(tabs->currentIndex(), tab);
        QVERIFY2(tabs->currentWidget()->isAncestorOf(QApplication::focusWidget()),
                 qPrintable(tabs->tabText(tab))); // the shown view gets the key presses
        if (tab == MainWindow::TrafficTab)
            QCOMPARE(QApplication::focusWidget()->objectName(), QStringLiteral("payloads"));
    }
}

void TestWindow::trafficKeysWorkInTheSendLine()
{
    show({JwDevice::BoardA});
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    m_window->showView(MainWindow::TrafficTab);
    auto *model = m_window->findChild<TrafficModel *>();
    model->append(received(QStringLiteral("ttyACM0"), framed(QStringLiteral("PX"))));
    model->flush();
    auto *line = child<QLineEdit>("line");
    const auto press = [line](Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::ControlModifier) {
        line->setFocus();
        QTest::keyClick(line, key, modifiers);
    };
    press(Qt::Key_P);
    QVERIFY(child<QAction>("pause")->isChecked());
    press(Qt::Key_R);
    QVERIFY(child<QAction>("raw")->isChecked());
    auto *text = m_window->findChild<TrafficView *>()->findChild<QLineEdit *>(QStringLiteral("text"));
    press(Qt::Key_F);
    QCOMPARE(QApplication::focusWidget(), text);
    text->setText(QStringLiteral("PY"));
    press(Qt::Key_Escape, Qt::NoModifier);
    QCOMPARE(text->text(), QString());
    press(Qt::Key_L);
    QCOMPARE(model->rowCount(), 0);
    QSignalSpy save(child<QAction>("save"), &QAction::triggered);
    const DialogCloser closer;
    press(Qt::Key_S);
    QCOMPARE(save.size(), 1);
}

void TestWindow::lettersPressTheTrafficButtons()
{
    show({JwDevice::BoardA});
    m_window->showView(MainWindow::TrafficTab);
    const QHash<QString, Qt::Key> letters{{QStringLiteral("pause"), Qt::Key_U},
                                          {QStringLiteral("raw"), Qt::Key_W},
                                          {QStringLiteral("save"), Qt::Key_E},
                                          {QStringLiteral("clear"), Qt::Key_C}};
    const DialogCloser closer;
    for (auto letter = letters.begin(); letter != letters.end(); ++letter) {
        m_window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
        QSignalSpy triggered(m_window->findChild<QAction *>(letter.key()), &QAction::triggered);
        QTest::keyClick(child<QTableView>("payloads"), letter.value(), Qt::AltModifier);
        QTRY_VERIFY2(triggered.size() == 1, qPrintable(letter.key()));
    }
}

void TestWindow::trafficButtonsHaveAFrame()
{
    m_window = std::make_unique<MainWindow>();
    const auto buttons = m_window->findChild<TrafficView *>()->findChild<QToolBar *>()->findChildren<QToolButton *>();
    int framed = 0;
    for (const QToolButton *button : buttons)
        framed += button->defaultAction() && !button->autoRaise();
    QCOMPARE(framed, 4);
}

void TestWindow::tablesAndThePlotHaveNames()
{
    m_window = std::make_unique<MainWindow>();
    QCOMPARE(child<QTableView>("payloads")->accessibleName(), QStringLiteral("Payloads"));
    QCOMPARE(child<QTableView>("sent")->accessibleName(), QStringLiteral("Sent payloads"));
    QCOMPARE(child<QTableView>("records")->accessibleName(), QStringLiteral("Log records"));
    QCOMPARE(m_window->findChild<PlotCanvas *>()->accessibleName(), QStringLiteral("Plot"));
}

void TestWindow::changesItsColours()
{
    Theme::apply(*qApp, Theme::Palette::Light);
    show({JwDevice::BoardA});
    const QColor light = m_window->grab().toImage().pixelColor(2, m_window->height() / 2);
    child<QAction>("dark")->trigger();
    QCOMPARE(Theme::of(m_window->palette()), Theme::Palette::Dark);
    const QColor dark = m_window->grab().toImage().pixelColor(2, m_window->height() / 2);
    QVERIFY(light.lightness() > 200);
    QVERIFY(dark.lightness() < 60);
    child<QAction>("dark")->trigger();
    QCOMPARE(Theme::of(m_window->palette()), Theme::Palette::Light);
}

void TestWindow::choosingAPortShowsItsLane()
{
    QList<const JwSimulator::Board *> boards;
    for (int i = 0; i < 16; ++i)
        boards.append(attach("silent"));
    show({JwDevice::BoardA});
    QTRY_COMPARE(state(boards.last()), QStringLiteral("silent"));
    auto *canvas = m_window->findChild<TimelineCanvas *>();
    auto *ports = m_window->findChild<PortsView *>();
    QCOMPARE(canvas->verticalScrollBar()->value(), 0);
    ports->selectRow(static_cast<int>(boards.size()) - 1);
    QVERIFY(canvas->verticalScrollBar()->value() > 0);
}

void TestWindow::fitsOnASmallScreen()
{
    show({JwDevice::BoardA});
    QVERIFY2(m_window->minimumSizeHint().width() <= 1024,
             qPrintable(QString::number(m_window->minimumSizeHint().width())));
    QVERIFY2(m_window->minimumSizeHint().height() <= 700,
             qPrintable(QString::number(m_window->minimumSizeHint().height())));
}

void TestWindow::canBeClosedWhileABoardSends()
{
    auto *board = attach("BoardA");
    show({JwDevice::BoardA});
    QTRY_COMPARE(state(board), QStringLiteral("found"));
    for (int i = 0; i < 50; ++i)
        board->send("$PJWTMP,21.5*30\r\n");
    QTRY_VERIFY(rows(m_window.get(), "payloads")->rowCount() > 0);
    board->send("$PJWTMP,21.5*30\r\n");
    m_window.reset();
    QTRY_VERIFY(!board->journal().isEmpty());
}

void TestWindow::canBeClosedInTheMiddleOfASearch()
{
    const auto *silent = attach("silent");
    show({JwDevice::BoardA}, JwTools::SearchSettings::maxRetries);
    QTRY_COMPARE(state(silent), QStringLiteral("asked, awaiting an answer"));
    QVERIFY(m_window->finder()->isSearching());
    m_window.reset();
    QVERIFY(QSerialPort(silent->portName()).open(QIODevice::ReadWrite));
}

void TestWindow::canBeClosedWhileItSaves()
{
    show({JwDevice::BoardA});
    auto *model = m_window->findChild<TrafficModel *>();
    for (int i = 0; i < TrafficModel::maxRows; ++i)
        model->append({i, QStringLiteral("ttyACM0"), Direction::Received, framed(QStringLiteral("PA,1")), 2});
    model->flush();
    const QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("traffic.csv"));
    auto *view = m_window->findChild<TrafficView *>();
    QSignalSpy saved(view, &TrafficView::saved);
    view->saveTo(fileName);
    QCOMPARE(saved.size(), 0);
    m_window.reset();
    QVERIFY(!QFile::exists(fileName)); // the window closed before the file was complete, so no file may remain
}

void TestWindow::staysResponsiveAtAThousandPayloadsASecond()
{
    auto *board = attach("BoardA");
    show({JwDevice::BoardA});
    QTRY_COMPARE(child<QComboBox>("board")->count(), 1);
    m_window->showView(MainWindow::TrafficTab);
    auto *model = m_window->findChild<TrafficModel *>();
    for (int i = 0; i < TrafficModel::maxRows; ++i) // a full table, so that each new row drops an old row
        model->append(received(board->portName(), framed(QStringLiteral("PJWNUM,%1").arg(i))));
    model->flush();
    const QAbstractItemModel *payloads = rows(m_window.get(), "payloads");
    QTRY_COMPARE_WITH_TIMEOUT(payloads->rowCount(), TrafficModel::maxRows, 30000);
    constexpr int count = 4000;
    int sent = 0;
    QTimer pace;
    pace.setTimerType(Qt::PreciseTimer);
    QObject::connect(&pace, &QTimer::timeout, board, [&] {
        for (int i = 0; i < 10 && sent < count; ++i, ++sent)
            board->send(framed(QStringLiteral("PJWTMP,%1").arg(sent)).toLatin1());
    });
    StallWatch watch;
    pace.start(10);
    const QString last = framed(QStringLiteral("PJWTMP,%1").arg(count - 1));
    QTRY_COMPARE_WITH_TIMEOUT(model->record(model->rowCount() - 1).payload, last, 30000);
    QCOMPARE(model->record(model->rowCount() - count).payload, framed(QStringLiteral("PJWTMP,0")));
    QCOMPARE(payloads->rowCount(), TrafficModel::maxRows);
    qInfo("1000 payloads a second through a port into the window with %d: longest stall %.1f ms by the clock, longest "
          "work %.1f ms",
          TrafficModel::maxRows, watch.longestMs(), watch.longestWorkMs());
    QVERIFY(watch.longestWorkMs() < StallWatch::freezeMs);
}

SIMULATED_WINDOW_MAIN(TestWindow)
#include "tst_jwmonitor_window.moc"
