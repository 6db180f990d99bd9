#include "probelog.h"

namespace JwProbe {

namespace {

constexpr int keptPayloads = 6; // of a port that never stops talking

// What stands between the quotes in a streamed record, as it was before it was streamed.
QString quoted(const QString &text)
{
    const int begin = text.indexOf(QLatin1Char('"')) + 1;
    const int end = text.lastIndexOf(QLatin1Char('"'));
    QString result;
    for (int i = begin; i < end; ++i) {
        if (text[i] != QLatin1Char('\\')) {
            result += text[i];
            continue;
        }
        ++i;
        switch (text[i].toLatin1()) {
        case 'b':
            result += QLatin1Char('\b');
            break;
        case 'f':
            result += QLatin1Char('\f');
            break;
        case 'n':
            result += QLatin1Char('\n');
            break;
        case 'r':
            result += QLatin1Char('\r');
            break;
        case 't':
            result += QLatin1Char('\t');
            break;
        case 'u':
            result += QChar(text.mid(i + 1, 4).toUShort(nullptr, 16));
            i += 4;
            break;
        default:
            result += text[i];
        }
    }
    return result;
}

} // namespace

void ProbeLog::sink_it_(const spdlog::details::log_msg &message)
{
    const auto view = [](spdlog::string_view_t text) {
        return QLatin1String(text.data(), static_cast<int>(text.size()));
    };
    const QString text = QString::fromUtf8(message.payload.data(), static_cast<int>(message.payload.size()));
    const QLatin1String file(message.source.filename);
    if (view(message.logger_name) == QLatin1String("Communication") && text.startsWith(QLatin1String(" <- ")))
        m_payload = quoted(text);
    else if (file == QLatin1String("initializer.cpp"))
        takeProgress(text);
}

void ProbeLog::takeProgress(const QString &text)
{
    if (text.startsWith(QLatin1String("Serial port opened for probing: "))) {
        m_ports[quoted(text)].opened = true;
    } else if (text.startsWith(QLatin1String("Serial port not accessible: "))) {
        m_ports[quoted(text)].openError = text.mid(text.lastIndexOf(QLatin1Char(' ')) + 1).toInt();
    } else if (text.startsWith(QLatin1String("Read timeout for: "))) {
        ++m_ports[quoted(text)].timeouts;
    } else if (text.startsWith(QLatin1String("Read succes on port: "))) {
        // The payload that was logged last is the one that this is about.
        QStringList &payloads = m_ports[quoted(text)].payloads;
        payloads.append(m_payload);
        if (payloads.size() > keptPayloads)
            payloads.removeFirst();
    }
}

} // namespace JwProbe
