#pragma once

#include <QByteArray>
#include <QObject>

class QSocketNotifier;

namespace JwProbe {

/// The lines of a file descriptor, read from the event loop. The descriptor stays the caller's, and as it is. A
/// terminal is read only while this process is in its foreground.
class Input : public QObject
{
    Q_OBJECT

public:
    explicit Input(int descriptor, QObject *parent = nullptr);

    /// Nothing more is read while paused. Lines of what was read already still come: one read's at most.
    void setPaused(bool paused);

Q_SIGNALS:
    /// Without its line end; also the last one, which may have none.
    void line(const QString &text);
    /// This much came without a line end, and was dropped.
    void tooLong(int bytes);

private:
    void read();
    void emitLines();
    void listen();
    bool isInBackground() const;

    const int m_descriptor;
    QSocketNotifier *const m_notifier;
    QByteArray m_buffer;
    bool m_paused = false;
    bool m_atEnd = false;
};

} // namespace JwProbe
