#pragma once

#include <QVector>

/// Descriptors of the terminals whose unsent output this process has discarded. A test with this sees all calls of
/// tcflush().
extern QVector<int> discardedOutput;
