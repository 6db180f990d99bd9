#pragma once

#include <device/jwdevice_export.h>

#include <QString>

#include <exception>

namespace Nmea {

/// The exception that the sentence codec throws at every failure. Catch it by reference.
class JWDEVICE_EXPORT Exception : public std::exception
{
public:
    /// `message` is the text that says what failed.
    explicit Exception(const QString &message);
    Exception(const Exception &) = default;
    Exception &operator=(const Exception &) = default;
    ~Exception() override;

    /// Returns the text that was given to the constructor, for example "Bad end".
    QString message() const;
    /// Returns the message in the local 8-bit encoding. The result is valid until the same thread ends, or calls what()
    /// of any Nmea::Exception again.
    const char *what() const noexcept override;

private:
    QString m_message;
};

} // namespace Nmea
