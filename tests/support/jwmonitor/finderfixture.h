#pragma once

#include "support/common/portname.h"

#include <jwmonitor/find/boardfinder.h>
#include <simulator/board.h>
#include <simulator/testbed.h>

#include <QTest>

/// Simulated boards, and the BoardFinder that looks for them.
struct FinderFixture
{
    JwSimulator::Testbed testbed;
    JwMonitor::BoardFinder finder;

    /// Adds a board on a port that no other test program uses. `board` is in the form of jwsim's option --board, for
    /// example "BoardA,delay=20".
    JwSimulator::Board *attach(const char *board)
    {
        QString error;
        auto config = JwSimulator::BoardConfig::fromText(QString::fromLatin1(board), &error);
        if (!config)
            qFatal("%s", qPrintable(error));
        config->port = uniquePortName();
        JwSimulator::Board *added = testbed.add(*config, &error);
        if (!added)
            qFatal("%s", qPrintable(error));
        return added;
    }

    void start(const QList<JwDevice::Type> &types, int retries = 3)
    {
        JwTools::SearchSettings settings;
        settings.types = types;
        settings.retries = retries;
        finder.start(settings);
    }

    /// Starts, and waits until no port may still answer.
    void searchToTheEnd(const QList<JwDevice::Type> &types, int retries)
    {
        start(types, retries);
        QTRY_VERIFY_WITH_TIMEOUT(!finder.isSearching(), 15000);
    }

    /// Returns the rows with the port of `board`.
    QVector<JwMonitor::PortEntry> rows(const JwSimulator::Board *board) const
    {
        QVector<JwMonitor::PortEntry> result;
        const auto ports = finder.ports();
        for (const JwMonitor::PortEntry &entry : ports) {
            if (entry.port.name == board->portName())
                result.append(entry);
        }
        return result;
    }

    /// Returns the first row with the port of `board`. If there is none, returns a row without a port.
    JwMonitor::PortEntry entry(const JwSimulator::Board *board) const { return rows(board).value(0); }
};
