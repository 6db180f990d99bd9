#include "input.h"

#include <common/utf8.h>

#include <QSocketNotifier>
#include <QString>
#include <QTimer>

#include <cerrno>

#include <unistd.h>

namespace JwProbe {

namespace {

constexpr int maxLine = 4096;
constexpr int foregroundInterval = 200; // ms between two checks whether this process is in the foreground

} // namespace

Input::Input(int descriptor, QObject *parent)
    : QObject(parent)
    , m_descriptor(descriptor)
    , m_notifier(new QSocketNotifier(descriptor, QSocketNotifier::Read, this))
{
    connect(m_notifier, &QSocketNotifier::activated, this, &Input::read);
}

void Input::setPaused(bool paused)
{
    m_paused = paused;
    listen();
}

void Input::listen()
{
    m_notifier->setEnabled(!m_paused && !m_atEnd);
}

// Returns whether the input is a terminal and this process is in the background of that terminal. Then the process must
// not read, because the system would stop the process. For a file or a pipe, tcgetpgrp() fails and the result is false.
bool Input::isInBackground() const
{
    const pid_t foreground = ::tcgetpgrp(m_descriptor);
    return foreground > 0 && foreground != ::getpgrp();
}

void Input::read()
{
    if (isInBackground()) { // no event reports the return to the foreground, so a timer tries again
        m_notifier->setEnabled(false);
        QTimer::singleShot(foregroundInterval, this, &Input::listen);
        return;
    }
    // Calls ::read() only once for each notification, because a second call could block. O_NONBLOCK is not set, because
    // it would also change the input for other programs that use the same open file.
    char bytes[maxLine];
    const ssize_t count = ::read(m_descriptor, bytes, sizeof bytes);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (count > 0) {
        m_buffer.append(bytes, static_cast<int>(count));
        emitLines();
        return;
    }
    m_atEnd = true; // so that listen() stops the notifier, which would report a file at its end for ever
    listen();
    if (!m_buffer.isEmpty())
        Q_EMIT line(JwTools::textOf(m_buffer));
    m_buffer.clear();
}

void Input::emitLines()
{
    for (auto end = m_buffer.indexOf('\n'); end >= 0; end = m_buffer.indexOf('\n')) {
        const QString text = JwTools::textOf(m_buffer.left(end));
        m_buffer.remove(0, end + 1);
        Q_EMIT line(text);
    }
    if (m_buffer.size() > maxLine) {
        Q_EMIT tooLong(static_cast<int>(m_buffer.size()));
        m_buffer.clear();
    }
}

} // namespace JwProbe
