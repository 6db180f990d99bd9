#include "exception.h"

namespace Nmea {

Exception::Exception(const QString &message)
    : m_message(message)
{
}

Exception::~Exception() = default;

QString Exception::message() const
{
    return m_message;
}

const char *Exception::what() const noexcept
{
    // The returned text must exist after this call, but the exception object has no member for the text. So each thread
    // keeps the text of its newest call.
    thread_local QByteArray text;
    text = m_message.toLocal8Bit();
    return text.constData();
}

} // namespace Nmea
