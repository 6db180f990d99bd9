#include "wire.h"

namespace JwSimulator {

namespace {

QByteArray checksumDigits(const QByteArray &body, uchar mask)
{
    uchar sum = mask;
    for (const char byte : body)
        sum = static_cast<uchar>(sum ^ static_cast<uchar>(byte));
    return QByteArray(1, static_cast<char>(sum)).toHex();
}

} // namespace

QByteArray frameSentence(const QByteArray &body, bool rightChecksum)
{
    return '$' + body + '*' + checksumDigits(body, rightChecksum ? 0 : 0x55) + "\r\n";
}

QByteArray sentenceBody(const QByteArray &line)
{
    const QByteArray text = line.trimmed();
    const auto star = text.size() - 3;
    if (star < 2 || text.at(0) != '$' || text.at(star) != '*')
        return {};
    const QByteArray body = text.mid(1, star - 1);
    return text.mid(star + 1).toLower() == checksumDigits(body, 0) ? body : QByteArray();
}

} // namespace JwSimulator
