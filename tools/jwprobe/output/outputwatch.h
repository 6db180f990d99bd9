#pragma once

#include <QObject>

class QSocketNotifier;

namespace JwProbe {

/// Notices when nobody reads standard output any more, also while the program writes nothing. Without this class, only
/// a failed write would show it.
class OutputWatch : public QObject
{
    Q_OBJECT

public:
    explicit OutputWatch(QObject *parent);
    ~OutputWatch() override;

Q_SIGNALS:
    /// Emitted when nobody reads the pipe or socket on standard output any more, if the process ignores SIGPIPE.
    /// Otherwise SIGPIPE ends the process, as it does after a failed write.
    void lost();

private:
    const int m_epoll; // a descriptor; -1 if standard output is no pipe and no socket
    QSocketNotifier *m_notifier = nullptr;
};

} // namespace JwProbe
