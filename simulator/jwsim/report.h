#pragma once

#include <QtCore/QByteArray>

namespace JwSimulator {

class Testbed;

/** One JSON document: per board its port, kind, number of queries, time of the pull, and all that was received and
 * sent, each with the milliseconds on the testbed's clock. Bytes other than printable ASCII are written as \r, \n,
 * \xHH, and a backslash as two. */
QByteArray report(const Testbed &testbed);

} // namespace JwSimulator
