#include "doctorreport.h"

#include "doctor.h"
#include <jwprobe/app/options.h>
#include <jwprobe/output/output.h>
#include <jwprobe/output/table.h>
#include <jwprobe/search/portlist.h>
#include <jwprobe/search/searchresult.h>

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>

#include <unistd.h>

namespace JwProbe {

namespace {

struct Examined
{
    PortIdentity port;
    QList<Trouble> troubles;
};

QStringList adviceWithoutPort(const PortChoice &choice)
{
    return noCandidateAdvice(choice)
        + QStringList{
            QStringLiteral("Plug the board in and check its cable: some cables only charge. These "
                           "commands show what the kernel says when you plug it in, and all USB devices:"),
            QStringLiteral("    sudo dmesg --follow"), QStringLiteral("    lsusb"),
            QStringLiteral("\"jwprobe --list\" shows every port, \"jwprobe --doctor --port NAME\" looks at one.")};
}

QString portText(const Examined &examined, int nameWidth, int width)
{
    const int indent = nameWidth + 2;
    const int adviceIndent = 4; // less than the indent of the summary, because commands are long and never broken
    const QString blanks(indent, QLatin1Char(' '));
    QString text;
    for (const Trouble &trouble : examined.troubles) {
        text += (text.isEmpty() ? examined.port.name.leftJustified(indent) : blanks)
            + wrapped(trouble.summary, indent, width) + QLatin1Char('\n')
            + linesText(trouble.advice, adviceIndent, width);
    }
    return text.isEmpty() ? examined.port.name.leftJustified(indent) + QLatin1String("nothing keeps it from opening\n")
                          : text;
}

QString doctorText(const QList<Examined> &ports, const PortChoice &choice)
{
    const int width = terminalWidth(STDOUT_FILENO);
    if (ports.isEmpty())
        return linesText(adviceWithoutPort(choice), 0, width);
    int nameWidth = 0;
    for (const Examined &examined : ports)
        nameWidth = std::max(nameWidth, static_cast<int>(examined.port.name.size()));
    QString text;
    for (const Examined &examined : ports)
        text += portText(examined, nameWidth, width);
    return text;
}

QJsonObject portJson(const Examined &examined)
{
    QJsonArray troubles;
    for (const Trouble &trouble : examined.troubles) {
        troubles.append(QJsonObject{{QStringLiteral("kind"), trouble.kind},
                                    {QStringLiteral("summary"), trouble.summary},
                                    {QStringLiteral("advice"), QJsonArray::fromStringList(trouble.advice)}});
    }
    QJsonObject object = examined.port.toJson();
    object[QLatin1String("troubles")] = troubles;
    return object;
}

QString doctorJson(const QList<Examined> &ports, const PortChoice &choice, int exitStatus)
{
    QJsonArray array;
    for (const Examined &examined : ports)
        array.append(portJson(examined));
    const QStringList advice = ports.isEmpty() ? adviceWithoutPort(choice) : QStringList();
    const QJsonObject document{{QStringLiteral("version"), QStringLiteral(JWPROBE_VERSION)},
                               {QStringLiteral("ports"), array},
                               {QStringLiteral("advice"), QJsonArray::fromStringList(advice)},
                               {QStringLiteral("exitStatus"), exitStatus}};
    return jsonText(document, QJsonDocument::Indented);
}

int statusOf(const QList<Examined> &ports)
{
    if (ports.isEmpty())
        return NoCandidate;
    const bool isWell =
        std::all_of(ports.begin(), ports.end(), [](const Examined &examined) { return examined.troubles.isEmpty(); });
    return isWell ? 0 : 1;
}

} // namespace

int showDoctor(const Options &options)
{
    QList<Examined> ports;
    const QList<PortIdentity> candidates = candidatePorts(options.portChoice());
    for (const PortIdentity &port : candidates)
        ports.append({port, examine(port)});
    const int status = statusOf(ports);
    return print(options.json ? doctorJson(ports, options.portChoice(), status)
                              : doctorText(ports, options.portChoice()))
        ? status
        : 1;
}

} // namespace JwProbe
