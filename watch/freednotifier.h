#pragma once

#include <QHash>
#include <QObject>
#include <QSocketNotifier>

#include <memory>

namespace JwDevice {

/// Reports when a port that could not be opened may have become free. Only Linux reports this; on other systems, this
/// class emits no signal.
class FreedNotifier : public QObject
{
    Q_OBJECT

public:
    FreedNotifier();
    ~FreedNotifier() override;

    /// Watches the port at `location`, for example "/dev/ttyACM0", until remove(). Does not report what happened
    /// before.
    void add(const QString &location);
    void remove(const QString &location); ///< ends what add() began

Q_SIGNALS:
    /// Emitted when a program closed the port at `location`, or when the permissions of the port changed. A QSerialPort
    /// removes its lock file a moment later, because it first closes the port.
    void freed(const QString &location);

private:
    void onActivated();

    int m_descriptor = -1;
    QHash<QString, int> m_watches; // numbers of the kernel's watches, by location
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace JwDevice
