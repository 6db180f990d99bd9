#include "boardconfig.h"

#include <simulator/boardkind.h>

#include <QJsonObject>
#include <QJsonValue>
#include <QRegularExpression>
#include <QStringList>

#include <functional>
#include <vector>

namespace JwSimulator {

namespace {

constexpr int longestWait = 24 * 60 * 60 * 1000; // milliseconds; one day
constexpr int largestCount = 1000000;

struct Key
{
    QString name;
    QString allowed; // the allowed values; completes the message "<key> takes ..."
    QString meaning;
    std::function<bool(BoardConfig &, const QString &)> set;
};

Key numberKey(const char *name, int BoardConfig::*member, int least, int most, const char *unit, const char *meaning)
{
    const QString allowed = QStringLiteral("a whole number of %1 from %2 to %3")
                                .arg(QLatin1String(unit), QString::number(least), QString::number(most));
    return {QLatin1String(name), allowed, QLatin1String(meaning), [=](BoardConfig &config, const QString &value) {
                bool ok = false;
                const int number = value.toInt(&ok);
                if (!ok || number < least || number > most)
                    return false;
                config.*member = number;
                return true;
            }};
}

Key textKey(const char *name, QString BoardConfig::*member, const char *pattern, const char *allowed,
            const char *meaning)
{
    const QRegularExpression expression(QRegularExpression::anchoredPattern(QLatin1String(pattern)));
    return {QLatin1String(name), QLatin1String(allowed), QLatin1String(meaning),
            [=](BoardConfig &config, const QString &value) {
                if (!expression.match(value).hasMatch())
                    return false;
                config.*member = value.isEmpty() ? QStringLiteral("") : value; // null would mean the default
                return true;
            }};
}

Key hexKey(const char *name, quint16 BoardConfig::*member, const char *meaning)
{
    const QRegularExpression expression(QStringLiteral("\\A[0-9A-Fa-f]{4}\\z"));
    return {QLatin1String(name), QStringLiteral("4 hexadecimal digits"), QLatin1String(meaning),
            [=](BoardConfig &config, const QString &value) {
                if (!expression.match(value).hasMatch())
                    return false;
                config.*member = value.toUShort(nullptr, 16);
                return true;
            }};
}

template <typename Enum>
Key choiceKey(const char *name, Enum BoardConfig::*member, const std::vector<std::pair<QString, Enum>> &choices,
              const char *meaning)
{
    QStringList names;
    for (const auto &choice : choices)
        names.append(choice.first);
    return {QLatin1String(name), QStringLiteral("one of %1").arg(names.join(QLatin1String(", "))),
            QLatin1String(meaning), [=](BoardConfig &config, const QString &value) {
                for (const auto &choice : choices) {
                    if (choice.first == value) {
                        config.*member = choice.second;
                        return true;
                    }
                }
                return false;
            }};
}

Key seedKey()
{
    return {QStringLiteral("seed"), QStringLiteral("a whole number from 0 to 4294967295"),
            QStringLiteral("everything random: the same seed gives the same bytes"),
            [](BoardConfig &config, const QString &value) {
                bool ok = false;
                const uint number = value.toUInt(&ok);
                if (ok)
                    config.seed = number;
                return ok;
            }};
}

const std::vector<Key> &keys()
{
    using Config = BoardConfig;
    const char *const printable = "[ -~]{0,126}";
    const char *const portName = "tty[A-Z]{2,8}[0-9]{1,4}";
    static const std::vector<Key> table = {
        numberKey("delay", &Config::delay, 0, longestWait, "milliseconds", "wait before the reply"),
        numberKey("speed", &Config::speed, 0, 10000000, "baud",
                  "line speed, 10 bits a byte (0: no limit; bridge: 115200)"),
        choiceKey<Config::Usb>("usb", &Config::usb,
                               {{QStringLiteral("none"), Config::Usb::None},
                                {QStringLiteral("cdc"), Config::Usb::Cdc},
                                {QStringLiteral("bridge"), Config::Usb::Bridge}},
                               "cdc: packets (up to 64 bytes); bridge: a UART, every 1 ms"),
        numberKey("chunk", &Config::chunk, 0, largestCount, "bytes",
                  "cut the reply in pieces of this size (0: one piece)"),
        numberKey("gap", &Config::gap, 0, longestWait, "milliseconds", "wait between two chunks"),
        numberKey("noise", &Config::noise, 0, largestCount, "bytes", "random bytes before each reply, never NUL"),
        choiceKey<Config::Checksum>(
            "checksum", &Config::checksum,
            {{QStringLiteral("good"), Config::Checksum::Good}, {QStringLiteral("wrong"), Config::Checksum::Wrong}},
            "checksums in the sentences that the board sends"),
        textKey("hwversion", &Config::hwversion, "(?:(?![,*$!])[ -~]){0,255}",
                "up to 255 printable ASCII characters without , * $ !", "hardware version in the reply"),
        numberKey("ignore", &Config::ignore, 0, largestCount, "queries",
                  "number of queries at the start that get no reply"),
        numberKey("replies", &Config::replies, 1, 1000, "replies", "replies to each query, back to back"),
        numberKey("plug-after", &Config::plugAfter, 0, longestWait, "milliseconds",
                  "plug the cable in this long after the start"),
        numberKey("pull-after", &Config::pullAfter, 0, longestWait, "milliseconds",
                  "pull the cable this long after the port appeared"),
        numberKey("pull-after-bytes", &Config::pullAfterBytes, 0, largestCount, "bytes",
                  "pull the cable after the board sent this many bytes"),
        numberKey("replug-after", &Config::replugAfter, 0, longestWait, "milliseconds",
                  "plug the cable in again this long after the pull"),
        textKey("replug-port", &Config::replugPort, portName, "a port name such as ttyACM0 or ttyUSB1",
                "name of the port after replug-after"),
        numberKey("cycles", &Config::cycles, 1, largestCount, "cycles", "how often to pull the cable and plug it in"),
        numberKey("late-permission", &Config::latePermission, 0, longestWait, "milliseconds",
                  "time until the new port may be opened"),
        choiceKey<Config::Open>("open", &Config::open,
                                {{QStringLiteral("ok"), Config::Open::Ok},
                                 {QStringLiteral("busy"), Config::Open::Busy},
                                 {QStringLiteral("denied"), Config::Open::Denied}},
                                "ok: the port opens; busy: in use; denied: no permission"),
        textKey("manufacturer", &Config::manufacturer, printable, "up to 126 printable ASCII characters",
                "USB manufacturer"),
        hexKey("vendor", &Config::vendor, "USB vendor id"),
        hexKey("product", &Config::product, "USB product id"),
        textKey("product-name", &Config::productName, printable, "up to 126 printable ASCII characters",
                "USB product name"),
        textKey("serial", &Config::serial, printable, "up to 126 printable ASCII characters",
                "USB serial number (empty: the device has none)"),
        textKey("port", &Config::port, portName, "a port name such as ttyACM0 or ttyUSB1", "name of the port"),
        textKey("hub", &Config::hub, "[A-Za-z0-9]{1,16}", "up to 16 letters and digits",
                "hub of the board; boards of a hub come and go together"),
        numberKey("interval", &Config::interval, 1, longestWait, "milliseconds",
                  "time between two bursts of babble or two sentences of other"),
        seedKey(),
    };
    return table;
}

QString kindNames()
{
    QStringList names;
    for (const BoardKind &entry : boardKinds)
        names.append(QLatin1String(entry.name));
    return names.join(QLatin1String(", "));
}

QString keyNames()
{
    QStringList names;
    for (const Key &key : keys())
        names.append(key.name);
    return names.join(QLatin1String(", "));
}

bool setKind(BoardConfig &config, const QString &name, QString &error)
{
    for (const BoardKind &entry : boardKinds) {
        if (name == QLatin1String(entry.name)) {
            config.kind = entry.kind;
            return true;
        }
    }
    error = QStringLiteral("unknown kind \"%1\"; allowed are %2").arg(name, kindNames());
    return false;
}

bool setKey(BoardConfig &config, const QString &name, const QString &value, QString &error)
{
    for (const Key &key : keys()) {
        if (key.name != name)
            continue;
        if (key.set(config, value))
            return true;
        error = QStringLiteral("wrong value \"%1\" for %2; %2 takes %3").arg(value, name, key.allowed);
        return false;
    }
    error = QStringLiteral("unknown key \"%1\"; allowed are %2").arg(name, keyNames());
    return false;
}

// Returns whether the values fit together. For example, usb=cdc allows no speed.
bool isConsistent(const BoardConfig &config, QString &error)
{
    if (config.usb == BoardConfig::Usb::Cdc && config.speed != 0)
        error = QStringLiteral("usb=cdc has no line speed; leave out speed, or use usb=bridge");
    else if (config.replugAfter >= 0 && config.pullAfter < 0 && config.pullAfterBytes < 0)
        error = QStringLiteral("replug-after needs a pull; add pull-after or pull-after-bytes");
    else if (!config.replugPort.isEmpty() && config.replugAfter < 0 && config.hub.isEmpty())
        error = QStringLiteral("replug-port needs replug-after; add it");
    else if (config.cycles > 1 && config.replugAfter < 0)
        error = QStringLiteral("cycles needs replug-after; add it");
    else if (config.latePermission > 0 && config.open == BoardConfig::Open::Denied)
        error = QStringLiteral("open=denied never gives the permission; leave out late-permission or open=denied");
    return error.isEmpty();
}

std::optional<QString> textOf(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    // For example, 1.5 becomes the text "1.5", which keys for whole numbers refuse.
    if (value.isDouble())
        return QString::number(value.toDouble(), 'g', 17);
    return std::nullopt;
}

} // namespace

std::optional<BoardConfig> BoardConfig::fromText(const QString &text, QString *error)
{
    QString fault;
    BoardConfig config;
    QStringList parts = text.split(QLatin1Char(','));
    bool ok = setKind(config, parts.takeFirst(), fault);
    for (int i = 0; ok && i < parts.size(); ++i) {
        const auto equals = parts.at(i).indexOf(QLatin1Char('='));
        if (equals < 0) {
            fault = QStringLiteral("\"%1\" is not key=value; allowed keys are %2").arg(parts.at(i), keyNames());
            ok = false;
        } else {
            ok = setKey(config, parts.at(i).left(equals), parts.at(i).mid(equals + 1), fault);
        }
    }
    if (ok && isConsistent(config, fault))
        return config;
    if (error)
        *error = fault.simplified(); // the text may contain line breaks
    return std::nullopt;
}

std::optional<BoardConfig> BoardConfig::fromJson(const QJsonObject &object, QString *error)
{
    QString fault;
    BoardConfig config;
    const QString kindKey = QStringLiteral("kind");
    bool ok = setKind(config, object.value(kindKey).toString(), fault);
    for (auto it = object.begin(); ok && it != object.end(); ++it) {
        if (it.key() == kindKey)
            continue;
        const std::optional<QString> value = textOf(it.value());
        if (value) {
            ok = setKey(config, it.key(), *value, fault);
        } else {
            fault = QStringLiteral("\"%1\" must be a number or text").arg(it.key());
            ok = false;
        }
    }
    if (ok && isConsistent(config, fault))
        return config;
    if (error)
        *error = fault.simplified(); // the text may contain line breaks
    return std::nullopt;
}

QString BoardConfig::help()
{
    QString text = QStringLiteral("Kinds: %1\nKeys:\n").arg(kindNames());
    for (const Key &key : keys())
        text += QStringLiteral("  %1 %2\n%3%4\n")
                    .arg(key.name, -17)
                    .arg(key.meaning, QString(22, QLatin1Char(' ')), key.allowed);
    return text;
}

QString BoardConfig::kindName(Kind kind)
{
    return QLatin1String(boardKind(kind).name);
}

} // namespace JwSimulator
