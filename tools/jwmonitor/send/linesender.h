#pragma once

#include <QObject>
#include <QString>

namespace JwMonitor {

/// Sends payloads to one board, and adds them to the model of the traffic.
class LineSender : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /// Sends a whole sentence. Returns the id of the payload. If the sentence can't be sent, returns 0 and sets
    /// `error`.
    virtual uint send(const QString &sentence, QString *error) = 0;
};

} // namespace JwMonitor
