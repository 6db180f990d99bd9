// Tests an application, here a lamp that is on as long as its board is there, on simulated boards.
#include "lamp.h"

#include <simulator/preload.h>
#include <simulator/testbed.h>

#include <QTest>

class TestLamp : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void isOnAsLongAsTheBoardIsThere()
    {
        JwSimulator::Testbed testbed; // its ports are the only ones that the application sees
        JwSimulator::Board *board = testbed.add(JwSimulator::BoardConfig());
        Lamp lamp;
        QTRY_VERIFY(lamp.isOn());
        board->pull();
        QTRY_VERIFY(!lamp.isOn());
    }
};

int main(int argc, char **argv)
{
    JwSimulator::ensurePreloaded(argv); // first: without the library under it, a program sees no simulated port
    QCoreApplication app(argc, argv);
    TestLamp test;
    return QTest::qExec(&test, argc, argv);
}
#include "main.moc"
