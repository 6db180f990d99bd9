#pragma once

#include <QVector>

/// Descriptors of the terminals whose unsent output this process discarded by tcflush(), in the order of the calls.
extern QVector<int> discardedOutput;
