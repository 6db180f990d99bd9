#pragma once

#include "idlecheck.h"
#include "processusage.h"

#include <QSerialPort>
#include <QTest>

#include <functional>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

/// Makes an open descriptor of a port read-only or write-only, like a port whose driver fails in one direction.
inline bool leaveOnly(int direction, int number)
{
    ::ioctl(number, TIOCNXCL); // QSerialPort opens exclusively; without this, the open() below fails
    const int oneWay = ::open(("/proc/self/fd/" + QByteArray::number(number)).constData(),
                              direction | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const bool ok = oneWay >= 0 && ::dup2(oneWay, number) == number;
    ::close(oneWay);
    return ok;
}

/// Closes the port at its first error, as an application does with a handed-over port.
inline void closeWhenItFails(QSerialPort *port)
{
    QObject::connect(port, &QSerialPort::errorOccurred, port, [port](QSerialPort::SerialPortError error) {
        if (error != QSerialPort::NoError && port->isOpen())
            port->close();
    });
}

/// A cell: the test of one fault in one state of a port. The function attaches boards, causes the fault, and checks
/// with IdleCheck that the process is idle.
using Cell = std::function<void(const IdleCheck &idle)>;

/// Runs a cell twice. The first run may allocate objects that the process keeps for good, so only the second run must
/// leave nothing behind.
inline void runCell(const Cell &cell)
{
    // Allowed growth in bytes. umockdev, the library behind the simulated ports, may keep 2.6 kB for each of up to 48
    // ports; whether it does depends on the order in which its threads run.
    constexpr qint64 heapChance = 200000;
    cell(IdleCheck(IdleCheck::NotMeasured));
    if (QTest::currentTestFailed())
        return;
    settle();
    const ProcessUsage before = ProcessUsage::now();
    cell(IdleCheck(IdleCheck::Measured));
    if (QTest::currentTestFailed())
        return;
    // The threads of umockdev may still be freeing resources, so wait for them. A leak still fails the test, because
    // leaked resources are never freed.
    const auto isAsBefore = [&before](const ProcessUsage &now) {
        return now.objects == before.objects && now.connections == before.connections && now.timers == before.timers
            && now.descriptors == before.descriptors && now.heapBytes - before.heapBytes < heapChance;
    };
    settle();
    ProcessUsage after;
    const auto nothingIsLeft = [&] { return isAsBefore(after = ProcessUsage::now()); };
    QVERIFY2(QTest::qWaitFor(nothingIsLeft),
             qPrintable(QStringLiteral("\n%1\n%2\n%3")
                            .arg(ProcessUsage::tableHead(), before.tableRow(QStringLiteral("before")),
                                 after.tableRow(QStringLiteral("after")))));
}
