#pragma once

#include <QByteArray>

namespace JwSimulator {

class Testbed;

/// Returns a JSON document with each board's port, kind, number of queries, time of the pull, and received and sent
/// bytes. Times are milliseconds on the testbed's clock. Bytes that are not printable ASCII are written as \r, \n or
/// \xHH. A backslash is written twice.
QByteArray report(const Testbed &testbed);

} // namespace JwSimulator
