#pragma once

#include "sentencedecoder.h"

#include <QCoreApplication>
#include <QString>

namespace JwMonitor {

/// Makes the texts that tables and files show for payloads.
class TrafficText
{
    Q_DECLARE_TR_FUNCTIONS(TrafficText)

public:
    /// Returns the local time of day, for example "15:04:05.123".
    static QString clock(qint64 timeUs);
    /// Returns the local date and time with microseconds.
    static QString moment(qint64 timeUs);
    static QString direction(Direction direction);
    static QString checksum(ChecksumState checksum);
    static QString transfer(Transfer transfer);
    /// Returns the names and values of all fields, for example "hwversion=7300021  v1=1".
    static QString fields(const Sentence &sentence);
};

} // namespace JwMonitor
