#include "txline.h"

#include <common/sentenceframe.h>

namespace JwBridge {

namespace {

constexpr int maxLine = 256; // bytes; a longer message is not looked at. A sentence has at most 74 characters

} // namespace

TxLine::TxLine(const QByteArray &message)
{
    if (message.size() > maxLine) {
        m_fault = QStringLiteral("the message has %1 bytes, and boards take at most %2 characters")
                      .arg(message.size())
                      .arg(JwTools::SentenceFrame::maxLength);
        return;
    }
    // With the size, because the fromUtf8() of Qt 5 that takes a QByteArray ends at the first NUL.
    const QString text = QString::fromUtf8(message.constData(), message.size());
    if (text.toUtf8() != message) {
        m_fault = QStringLiteral("the message is not UTF-8");
        return;
    }
    const JwTools::SentenceFrame frame(text);
    m_fault = frame.fault();
    if (m_fault.isEmpty())
        m_sentence = frame.sentence();
}

} // namespace JwBridge
