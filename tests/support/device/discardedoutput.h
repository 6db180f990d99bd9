#pragma once

#include <QVector>

/// The descriptors of the ports whose unsent bytes this process discarded by tcflush(), in the order of the calls.
extern QVector<int> discardedOutput;
