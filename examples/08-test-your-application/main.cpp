// Tests an application with simulated boards. The application here is a lamp that is on while its board is connected.
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
        JwSimulator::Testbed testbed; // from now on the application sees only simulated ports
        JwSimulator::Board *board = testbed.add(JwSimulator::BoardConfig());
        Lamp lamp;
        QTRY_VERIFY(lamp.isOn());
        board->pull();
        QTRY_VERIFY(!lamp.isOn());
    }
};

int main(int argc, char **argv)
{
    JwSimulator::ensurePreloaded(argv); // call this first, or the program sees no simulated ports
    QCoreApplication app(argc, argv);
    TestLamp test;
    return QTest::qExec(&test, argc, argv);
}
#include "main.moc"
