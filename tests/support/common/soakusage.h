#pragma once

#include "processusage.h"

#include <simulator/board.h>
#include <simulator/testbed.h>

#include <QTest>

/// Whether the counts of descriptors, objects, connections and timers equal the counts in `before`.
inline bool holdsNoMoreObjects(const ProcessUsage &usage, const ProcessUsage &before)
{
    return usage.descriptors == before.descriptors && usage.objects == before.objects
        && usage.connections == before.connections && usage.timers == before.timers;
}

/// Returns the resources in use. First waits until the counts equal the counts in `before`, but at most 5 s: on a busy
/// machine, the preload library's thread needs a moment to close its sockets.
inline ProcessUsage usageLike(const ProcessUsage &before)
{
    ProcessUsage usage = {};
    static_cast<void>(QTest::qWaitFor([&] {
        usage = ProcessUsage::now();
        return holdsNoMoreObjects(usage, before);
    }));
    return usage;
}

/// Returns the number of heap bytes that the boards' journals use. Copies the journals to measure it.
inline qint64 journalBytes(const JwSimulator::Testbed &testbed)
{
    QList<QList<JwSimulator::JournalEntry>> copies;
    const qint64 before = ProcessUsage::now().heapBytes;
    const QList<JwSimulator::Board *> boards = testbed.boards();
    for (const JwSimulator::Board *const board : boards) {
        copies.append(QList<JwSimulator::JournalEntry>());
        const QList<JwSimulator::JournalEntry> journal = board->journal();
        for (JwSimulator::JournalEntry entry : journal) {
            entry.bytes.detach();
            copies.last().append(entry);
        }
    }
    return ProcessUsage::now().heapBytes - before;
}
