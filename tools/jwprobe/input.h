#pragma once

#include <QByteArray>
#include <QObject>

class QSocketNotifier;

namespace JwProbe {

/// The lines of a file descriptor, read from the event loop. The descriptor stays the caller's, and as it is.
class Input : public QObject
{
    Q_OBJECT

public:
    explicit Input(int descriptor, QObject *parent = nullptr);

Q_SIGNALS:
    /// Without its line end; also the last one, which may have none.
    void line(const QString &text);
    /// This much came without a line end, and was dropped.
    void tooLong(int bytes);

private:
    void read();
    void takeLines();

    const int m_descriptor;
    QSocketNotifier *const m_notifier;
    QByteArray m_buffer;
};

} // namespace JwProbe
