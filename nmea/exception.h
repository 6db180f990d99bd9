#pragma once

#include <device/jwdevice_export.h>

#include <QString>

#include <exception>

namespace Nmea {

/// Thrown by the sentence codec for every failure. Catch it by reference.
class JWDEVICE_EXPORT Exception : public std::exception
{
public:
    /// `message` says what failed.
    explicit Exception(const QString &message);
    Exception(const Exception &) = default;
    Exception &operator=(const Exception &) = default;
    ~Exception() override;

    /// The text given to the constructor, such as "Bad end".
    QString message() const;
    /// The message in the local 8-bit encoding. Valid until the same thread calls what() of any Nmea::Exception again,
    /// or ends.
    const char *what() const noexcept override;

private:
    QString m_message;
};

} // namespace Nmea
