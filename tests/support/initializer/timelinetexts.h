#pragma once

#include <QString>

// Texts that tests expect in ProbeFixture's timeline: the Initializer's signals, and those of its log records that
// contain no port name.
inline const QString foundA = QStringLiteral("deviceInitialized BoardA");
inline const QString foundB = QStringLiteral("deviceInitialized BoardB");
inline const QString foundC = QStringLiteral("deviceInitialized BoardC");
inline const QString missingA = QStringLiteral("deviceNotFound BoardA");
inline const QString missingB = QStringLiteral("deviceNotFound BoardB");
inline const QString missingC = QStringLiteral("deviceNotFound BoardC");
inline const QString retry = QStringLiteral("Retry probing");
inline const QString over = QStringLiteral("Disconnect from signals");
inline const QString deleted = QStringLiteral("*** Initializer deleted ***");
