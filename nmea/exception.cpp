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
    // The caller reads the text after the return, so it must outlive this call, though the exception keeps no bytes.
    thread_local QByteArray text;
    text = m_message.toLocal8Bit();
    return text.constData();
}

} // namespace Nmea
