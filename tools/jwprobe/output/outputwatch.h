#pragma once

#include <QObject>

namespace JwProbe {

/// Watches whether somebody reads standard output. While a program writes nothing, no failed write can show that the
/// reader is gone.
class OutputWatch : public QObject
{
    Q_OBJECT

public:
    explicit OutputWatch(QObject *parent);

Q_SIGNALS:
    /// Emitted when nobody reads the pipe on standard output any more, if the process ignores SIGPIPE. If it does not,
    /// SIGPIPE ends the process, as at a write.
    void lost();
};

} // namespace JwProbe
