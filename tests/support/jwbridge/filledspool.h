#pragma once

#include <jwbridge/boards.h>
#include <jwbridge/spool.h>

#include <QDateTime>
#include <QString>
#include <QTest>

/// Puts payloads of the board S1:1.0 into the spool of a bridge that does not run.
inline void fillSpool(const QString &folder, int count)
{
    JwBridge::Database database;
    QString error;
    QVERIFY2(database.open(folder + QStringLiteral("/jwbridge.db"), &error), qPrintable(error));
    JwBridge::Spool spool(database, {});
    QVERIFY2(spool.load(&error), qPrintable(error));
    JwBridge::Boards boards(database, {}, 3600);
    QVERIFY2(boards.load(&error), qPrintable(error)); // makes its table
    for (int i = 0; i < count; ++i)
        spool.add("S1:1.0", QDateTime::currentMSecsSinceEpoch() * 1000, "$PJWVER,7300022,1,4,0*0d");
}
