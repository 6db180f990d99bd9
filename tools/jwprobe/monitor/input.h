#pragma once

#include <QByteArray>
#include <QObject>

class QSocketNotifier;

namespace JwProbe {

/// Reads lines from a file descriptor in the event loop. Does not change or close the descriptor. Reads a terminal only
/// while this process is in its foreground.
class Input : public QObject
{
    Q_OBJECT

public:
    explicit Input(int descriptor, QObject *parent = nullptr);

    /// While paused, nothing is read. Lines of the last read may still come.
    void setPaused(bool paused);

Q_SIGNALS:
    /// A line, without its line end. The last line may have had no line end.
    void line(const QString &text);
    /// So many bytes came without a line end; they were dropped.
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
