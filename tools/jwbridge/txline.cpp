#include "txline.h"

#include <common/sentenceframe.h>
#include <common/utf8.h>

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
    const QString text = JwTools::textOf(message);
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
