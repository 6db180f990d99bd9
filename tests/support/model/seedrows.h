#pragma once

#include "support/common/environmentnumber.h"

#include <QTest>

#include <algorithm>

/// Adds the data rows of a test of random schedules. Each row tests `count` seeds, from the seed `first` on. The
/// environment variables JWDEVICE_MODEL_SEED and JWDEVICE_MODEL_SCHEDULES set the first seed and the number of
/// schedules.
inline void addSeedRows(int schedulesInTestRun)
{
    constexpr int schedulesInRow = 1000;
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("count");
    const int first = static_cast<int>(environmentNumber("JWDEVICE_MODEL_SEED", 1));
    const int end = first
        + static_cast<int>(environmentNumber("JWDEVICE_MODEL_SCHEDULES", static_cast<quint32>(schedulesInTestRun)));
    for (int seed = first; seed < end; seed += schedulesInRow) {
        const int count = std::min(schedulesInRow, end - seed);
        QTest::addRow("seeds %d to %d", seed, seed + count - 1) << seed << count;
    }
}
