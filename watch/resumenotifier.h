#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <memory>

namespace JwDevice {

/// Reports when the system has resumed after a suspend. Only Linux reports this; on other systems, this
/// class emits no signal.
class ResumeNotifier : public QObject
{
    Q_OBJECT

public:
    ResumeNotifier();
    ~ResumeNotifier() override;

Q_SIGNALS:
    /// Emitted after a suspend, and after the clock was set, because the system reports both in the same way.
    void resumed();

private:
    bool arm();
    void onActivated();

    int m_descriptor = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace JwDevice
