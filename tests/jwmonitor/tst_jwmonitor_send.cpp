#include "support/device/communicatorwatch.h"
#include "support/common/portname.h"
#include "support/jwmonitor/simulatedwindowmain.h"
#include "support/jwmonitor/trafficrows.h"

#include <jwmonitor/traffic/boardtraffic.h>
#include <jwmonitor/history/historyfilter.h>
#include <jwmonitor/history/historytable.h>
#include <jwmonitor/send/sendpanel.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/traffic/trafficmodel.h>
#include <simulator/testbed.h>

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSerialPort>
#include <QSignalSpy>

#include <memory>

using namespace JwMonitor;

namespace {

struct SlowDevice : ScriptedDevice
{
    qint64 bytesToWrite() const override { return waiting; }
    qint64 waiting = 0;
};

} // namespace

/// Tests jwmonitor's panel that sends lines to a board.
class TestSend : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void showsTheLineAsItWillGoOut();
    void tellsAFaultWhileItIsTyped();
    void aFaultKeepsItsColourInAnotherPalette();
    void refusesToSendABadLine();
    void tellsThatThereIsNoBoard();
    void sendsAndGetsTheAnswer();
    void theButtonSends();
    void sendsToTheChosenBoard();
    void theSystemTakesWhatIsSent();
    void payloadsAreTakenInTheirOrder();
    void whatWaitsWhenTheBoardGoesIsNotSent();
    void whatWaitsWhenAnotherBoardComesIsNotSent();
    void onlySentPayloadsAreListed();
    void upAndDownBringLinesBack();
    void aLineThatIsSentTwiceIsRememberedOnce();
    void aFaultyLineStays();
    void tellsThatTheBoardIsGone();
    void tellsThatThePortIsClosed();
    void aRemovedBoardCanNotBeChosen();
    void aBoardThatCameBackTakesItsPlace();
    void removingAnUnknownPortDoesNothing();

private:
    struct Board
    {
        JwSimulator::Board *simulated;
        std::unique_ptr<QSerialPort> port;
        std::unique_ptr<JwDevice::Communicator> communicator;
        std::unique_ptr<BoardTraffic> traffic;

        BoardLink link() const { return {simulated->portName(), JwDevice::BoardA, communicator.get()}; }
    };

    Board connectBoard(const char *text);
    void type(const char *text);
    void press(Qt::Key key) { QTest::keyClick(m_line, key); }
    QString label(const char *name) const { return m_panel->findChild<QLabel *>(QString::fromLatin1(name))->text(); }
    QStringList sentRows(int column) const { return columnTexts(m_panel->findChild<HistoryFilter *>(), column); }

    std::unique_ptr<JwSimulator::Testbed> m_testbed;
    std::unique_ptr<TrafficModel> m_model;
    std::unique_ptr<SendPanel> m_panel;
    QLineEdit *m_line = nullptr;
    QComboBox *m_boards = nullptr;
};

void TestSend::initTestCase()
{
    m_testbed = std::make_unique<JwSimulator::Testbed>();
}

void TestSend::init()
{
    drainReceiveBuffer();
    m_model = std::make_unique<TrafficModel>();
    m_panel = std::make_unique<SendPanel>(m_model.get());
    m_line = m_panel->findChild<QLineEdit *>(QStringLiteral("line"));
    m_boards = m_panel->findChild<QComboBox *>(QStringLiteral("board"));
    m_panel->show();
    QVERIFY(QTest::qWaitForWindowActive(m_panel.get()));
}

void TestSend::cleanup()
{
    m_panel.reset();
    m_model.reset();
}

TestSend::Board TestSend::connectBoard(const char *text)
{
    auto config = JwSimulator::BoardConfig::fromText(QString::fromLatin1(text), nullptr);
    config->port = uniquePortName();
    Board board;
    board.simulated = m_testbed->add(*config);
    board.port = std::make_unique<QSerialPort>(board.simulated->portName());
    if (!board.port->open(QIODevice::ReadWrite))
        qFatal("%s", qPrintable(board.port->errorString()));
    board.communicator = std::make_unique<JwDevice::Communicator>();
    board.communicator->setIODevice(board.port.get());
    board.traffic = std::make_unique<BoardTraffic>(board.link(), m_model.get());
    m_panel->addBoard(board.link());
    return board;
}

void TestSend::type(const char *text)
{
    QTest::keyClicks(m_line, QString::fromUtf8(text));
}

void TestSend::showsTheLineAsItWillGoOut()
{
    type("PJWVER");
    QCOMPARE(label("preview"), QStringLiteral("$PJWVER*0c\\r\\n"));
    type(",1");
    QCOMPARE(label("preview"), QStringLiteral("$PJWVER,1*11\\r\\n"));
    m_line->clear();
    QCOMPARE(label("preview"), QString());
}

void TestSend::tellsAFaultWhileItIsTyped()
{
    type("PJWVER*0");
    QVERIFY2(label("message").contains(QLatin1String("The checksum is *0c")), qPrintable(label("message")));
    type("c");
    QCOMPARE(label("message"), QString());
}

void TestSend::aFaultKeepsItsColourInAnotherPalette()
{
    const QPalette before = QApplication::palette();
    const auto *message = m_panel->findChild<QLabel *>(QStringLiteral("message"));
    type("PJWVER*0");
    for (const Theme::Palette palette : {Theme::Palette::Light, Theme::Palette::Dark}) {
        Theme::apply(*qApp, palette);
        QCOMPARE(message->palette().color(QPalette::WindowText), Theme::colour(m_panel->palette(), Theme::Problem));
    }
    QApplication::setPalette(before);
}

void TestSend::refusesToSendABadLine()
{
    const Board board = connectBoard("BoardA");
    press(Qt::Key_Return);
    QCOMPARE(label("message"), QStringLiteral("Type a sentence, such as PJWVER."));
    m_line->setText(QString(80, QLatin1Char('A')));
    press(Qt::Key_Return);
    QVERIFY2(label("message").startsWith(QLatin1String("Make it shorter")), qPrintable(label("message")));
    m_model->flush();
    QCOMPARE(m_model->rowCount(), 0);
}

void TestSend::tellsThatThereIsNoBoard()
{
    type("PJWVER");
    press(Qt::Key_Return);
    QCOMPARE(label("message"), QStringLiteral("There is no board to send to: find one first."));
}

void TestSend::sendsAndGetsTheAnswer()
{
    const Board board = connectBoard("BoardA");
    QSignalSpy heard(board.simulated, &JwSimulator::Board::sentenceReceived);
    type("PJWVER");
    press(Qt::Key_Return);
    QCOMPARE(label("message"), QStringLiteral("Sent to %1 with id 1.").arg(board.simulated->portName()));
    QCOMPARE(m_line->text(), QString());
    QTRY_COMPARE(m_model->rowCount(), 2);
    QCOMPARE(heard.size(), 1);
    QCOMPARE(heard[0][0].toByteArray(), QByteArray("$PJWVER*0c"));
    QCOMPARE(m_model->record(0).direction, Direction::Sent);
    QCOMPARE(m_model->record(1).direction, Direction::Received);
    QVERIFY(m_model->record(1).payload.contains(QLatin1String("7300022")));
    QTRY_COMPARE(sentRows(TrafficColumn::Progress), QStringList(QStringLiteral("transferred")));
    QCOMPARE(sentRows(TrafficColumn::Id), QStringList(QStringLiteral("1")));
    QCOMPARE(sentRows(TrafficColumn::Raw), QStringList(QStringLiteral("$PJWVER*0c\\r\\n")));
}

void TestSend::theButtonSends()
{
    const Board board = connectBoard("silent");
    type("PJWVER");
    QTest::mouseClick(m_panel->findChild<QPushButton *>(QStringLiteral("send")), Qt::LeftButton);
    QTRY_COMPARE(board.simulated->journal().size(), 1);
}

void TestSend::sendsToTheChosenBoard()
{
    const Board first = connectBoard("silent");
    const Board second = connectBoard("silent");
    QCOMPARE(m_boards->itemText(1), QStringLiteral("%1: BoardA").arg(second.simulated->portName()));
    QTest::keyClick(m_boards, Qt::Key_Down);
    type("PJWVER");
    press(Qt::Key_Return);
    QTRY_COMPARE(second.simulated->journal().size(), 1);
    QCOMPARE(first.simulated->journal().size(), 0);
    QTRY_COMPARE(sentRows(TrafficColumn::Port), QStringList(second.simulated->portName()));
}

void TestSend::theSystemTakesWhatIsSent()
{
    const Board board = connectBoard("silent");
    type("PJWVER");
    press(Qt::Key_Return);
    QTRY_COMPARE(sentRows(TrafficColumn::Progress), QStringList(QStringLiteral("transferred")));
    // At each report of written bytes, the Communicator counts again from its first payload. The report for the second
    // payload has 14 bytes. They cover the first payload (12 bytes), but not both payloads.
    type("PJWVER,2");
    press(Qt::Key_Return);
    QTRY_COMPARE(sentRows(TrafficColumn::Progress),
                 QStringList({QStringLiteral("transferred"), QStringLiteral("taken")}));
    QCOMPARE(sentRows(TrafficColumn::Id), QStringList({QStringLiteral("1"), QStringLiteral("2")}));
}

void TestSend::payloadsAreTakenInTheirOrder()
{
    SlowDevice device;
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    m_panel->addBoard({QStringLiteral("slow"), JwDevice::BoardA, &communicator});
    for (int i = 0; i < 3; ++i) {
        type("PJWVER"); // becomes a sentence of 12 bytes
        press(Qt::Key_Return);
    }
    const auto progressWith = [&](qint64 waiting) {
        device.waiting = waiting;
        Q_EMIT device.bytesWritten(0);
        m_model->flush();
        return sentRows(TrafficColumn::Progress).join(QLatin1Char(' '));
    };
    QCOMPARE(progressWith(36), QStringLiteral("waiting waiting waiting"));
    QCOMPARE(progressWith(25), QStringLiteral("waiting waiting waiting"));
    QCOMPARE(progressWith(24), QStringLiteral("taken waiting waiting"));
    QCOMPARE(progressWith(0), QStringLiteral("taken taken taken"));
    m_panel->removeBoard(QStringLiteral("slow"));
}

void TestSend::whatWaitsWhenTheBoardGoesIsNotSent()
{
    const Board other = connectBoard("silent");
    SlowDevice device;
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    m_panel->addBoard({QStringLiteral("slow"), JwDevice::BoardA, &communicator});
    m_boards->setCurrentIndex(1);
    for (int i = 0; i < 3; ++i) {
        type("PJWVER"); // becomes a sentence of 12 bytes
        press(Qt::Key_Return);
    }
    m_boards->setCurrentIndex(0);
    type("PJWVER");
    press(Qt::Key_Return);
    device.waiting = 24;
    Q_EMIT device.bytesWritten(0);
    // This payload waits in the port of another board, so its progress must not change when the slow board is removed.
    m_model->append(sent(other.simulated->portName(), QStringLiteral("$PJWVER*0c\r\n"), 1000));
    m_panel->removeBoard(QStringLiteral("slow"));
    const QString lost = QStringLiteral("not sent: the board went");
    QTRY_COMPARE(
        sentRows(TrafficColumn::Progress),
        QStringList({QStringLiteral("taken"), lost, lost, QStringLiteral("transferred"), QStringLiteral("waiting")}));
}

void TestSend::whatWaitsWhenAnotherBoardComesIsNotSent()
{
    SlowDevice device;
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    const BoardLink link{QStringLiteral("slow"), JwDevice::BoardA, &communicator};
    m_panel->addBoard(link);
    type("PJWVER");
    press(Qt::Key_Return);
    m_panel->addBoard(link);
    m_model->flush();
    QCOMPARE(sentRows(TrafficColumn::Progress), QStringList(QStringLiteral("not sent: the board went")));
    m_model->markTaken(link.port, 1); // the payload already counts as not sent, so this late call changes nothing
    QCOMPARE(sentRows(TrafficColumn::Progress), QStringList(QStringLiteral("not sent: the board went")));
    m_panel->removeBoard(link.port);
}

void TestSend::onlySentPayloadsAreListed()
{
    const QString port = QStringLiteral("ttyACM0");
    m_model->append(received(port, QStringLiteral("$PJWVER,1*11\r\n")));
    m_model->append(sent(port, QStringLiteral("$PJWVER*0c\r\n")));
    m_model->flush();
    QCOMPARE(sentRows(TrafficColumn::Raw), QStringList(QStringLiteral("$PJWVER*0c\\r\\n")));
}

void TestSend::upAndDownBringLinesBack()
{
    const Board board = connectBoard("silent");
    type("PA");
    press(Qt::Key_Return);
    type("PB");
    press(Qt::Key_Return);
    type("PC");
    press(Qt::Key_Up);
    QCOMPARE(m_line->text(), QStringLiteral("PB"));
    press(Qt::Key_Up);
    QCOMPARE(m_line->text(), QStringLiteral("PA"));
    press(Qt::Key_Up);
    QCOMPARE(m_line->text(), QStringLiteral("PA"));
    press(Qt::Key_Down);
    press(Qt::Key_Down);
    QCOMPARE(m_line->text(), QStringLiteral("PC"));
    press(Qt::Key_Down);
    QCOMPARE(m_line->text(), QStringLiteral("PC"));
}

void TestSend::aLineThatIsSentTwiceIsRememberedOnce()
{
    const Board board = connectBoard("silent");
    for (const char *line : {"PA", "PB", "PA"}) {
        type(line);
        press(Qt::Key_Return);
    }
    press(Qt::Key_Up);
    QCOMPARE(m_line->text(), QStringLiteral("PA"));
    press(Qt::Key_Up);
    QCOMPARE(m_line->text(), QStringLiteral("PB"));
    press(Qt::Key_Up);
    QCOMPARE(m_line->text(), QStringLiteral("PB"));
}

void TestSend::aFaultyLineStays()
{
    const Board board = connectBoard("silent");
    type("PJWVER*00");
    press(Qt::Key_Return);
    QCOMPARE(m_line->text(), QStringLiteral("PJWVER*00"));
}

void TestSend::tellsThatTheBoardIsGone()
{
    Board board = connectBoard("silent");
    board.communicator.reset();
    type("PJWVER");
    press(Qt::Key_Return);
    QVERIFY2(label("message").contains(QStringLiteral("the board on %1 is gone").arg(board.simulated->portName())),
             qPrintable(label("message")));
    QCOMPARE(m_line->text(), QStringLiteral("PJWVER"));
}

void TestSend::tellsThatThePortIsClosed()
{
    const Board board = connectBoard("silent");
    board.port->close();
    type("PJWVER");
    press(Qt::Key_Return);
    QVERIFY2(label("message").startsWith(QLatin1String("Not sent")), qPrintable(label("message")));
    m_model->flush();
    QCOMPARE(m_model->rowCount(), 0);
}

void TestSend::aRemovedBoardCanNotBeChosen()
{
    Board board = connectBoard("silent");
    m_panel->removeBoard(board.simulated->portName());
    QCOMPARE(m_boards->count(), 0);
    board.port.reset();
    board.communicator.reset();
    type("PJWVER");
    press(Qt::Key_Return);
    QCOMPARE(label("message"), QStringLiteral("There is no board to send to: find one first."));
}

void TestSend::aBoardThatCameBackTakesItsPlace()
{
    Board board = connectBoard("silent");
    board.traffic.reset();
    board.communicator = std::make_unique<JwDevice::Communicator>();
    board.communicator->setIODevice(board.port.get());
    m_panel->addBoard(board.link());
    QCOMPARE(m_boards->count(), 1);
    type("PJWVER");
    press(Qt::Key_Return);
    QTRY_COMPARE(board.simulated->journal().size(), 1);
}

void TestSend::removingAnUnknownPortDoesNothing()
{
    const Board board = connectBoard("silent");
    m_panel->removeBoard(QStringLiteral("ttyNone"));
    QCOMPARE(m_boards->count(), 1);
}

SIMULATED_WINDOW_MAIN(TestSend)
#include "tst_jwmonitor_send.moc"
