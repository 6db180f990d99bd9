#pragma once

#include <QObject>

namespace JwProbe {

/// Notices when nobody reads standard output any more, also while the program writes nothing. Without this class, only
/// a failed write would show it.
class OutputWatch : public QObject
{
    Q_OBJECT

public:
    explicit OutputWatch(QObject *parent);

Q_SIGNALS:
    /// Emitted when nobody reads the pipe on standard output any more, if the process ignores SIGPIPE. Otherwise
    /// SIGPIPE ends the process, as it does after a failed write.
    void lost();
};

} // namespace JwProbe
