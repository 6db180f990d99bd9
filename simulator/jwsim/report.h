#pragma once

#include <QByteArray>

namespace JwSimulator {

class Testbed;

/// A JSON document with each board's port, kind, number of queries, time of the pull, and received and sent bytes.
/// Times are milliseconds on the testbed's clock. Bytes that are not printable ASCII stand as \r, \n or \xHH; a
/// backslash stands as two.
QByteArray report(const Testbed &testbed);

} // namespace JwSimulator
