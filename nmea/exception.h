#pragma once

#include <device/jwdevice_export.h>

#include <QString>

#include <exception>

namespace Nmea {

/// The one way in which the sentence codec reports a failure. Thrown by value, caught by reference.
class JWDEVICE_EXPORT Exception : public std::exception
{
public:
    /// `message` says what failed.
    explicit Exception(const QString &message);
    Exception(const Exception &) = default;
    Exception &operator=(const Exception &) = default;
    ~Exception() override;

    /// What failed, such as "Bad end".
    QString message() const;
    /// The message in the local 8-bit encoding. Valid until the next call of what() on any Nmea::Exception in the same
    /// thread, and no longer than that thread.
    const char *what() const noexcept override;

private:
    QString m_message;
};

} // namespace Nmea
