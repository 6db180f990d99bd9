#pragma once

#include <QByteArray>
#include <QObject>

class QSocketNotifier;

namespace JwProbe {

/// Reads lines of text from a file descriptor in the event loop. Does not change or close the descriptor. Reads from a
/// terminal only while this process is in the foreground of the terminal.
class Input : public QObject
{
    Q_OBJECT

public:
    explicit Input(int descriptor, QObject *parent = nullptr);

    /// While paused, nothing is read. line() may still be emitted for lines that were already read.
    void setPaused(bool paused);

Q_SIGNALS:
    /// Emitted for each line, and at the end for a last line without a line end. `text` has no line end.
    void line(const QString &text);
    /// Emitted when more than 4096 bytes arrived without a line end. All of them are dropped; `bytes` is their number.
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
