#pragma once

#include "sentencedecoder.h"

#include <QCoreApplication>
#include <QString>

namespace JwMonitor {

/// The texts of the traffic, in tables and files.
class TrafficText
{
    Q_DECLARE_TR_FUNCTIONS(TrafficText)

public:
    /// Local time of day, such as "15:04:05.123".
    static QString clock(qint64 timeUs);
    /// Local date and time to the microsecond.
    static QString moment(qint64 timeUs);
    static QString direction(Direction direction);
    static QString checksum(ChecksumState checksum);
    static QString transfer(Transfer transfer);
    /// Such as "hwversion=7300021  v1=1".
    static QString fields(const Sentence &sentence);
};

} // namespace JwMonitor
