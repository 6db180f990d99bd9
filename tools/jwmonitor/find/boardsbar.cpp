#include "boardsbar.h"

#include "boardfinder.h"
#include <common/boardtype.h>
#include <jwmonitor/look/theme.h>

#include <QEvent>

#include <algorithm>
#include <utility>

namespace JwMonitor {

namespace {

constexpr int mostNames = 3; // largest number of ports that the line names for one type and state

struct Group
{
    PortEntry::Stay stay;
    Theme::Role role;
    QString text;
};

QString joined(const QStringList &ports)
{
    const QString names = QStringList(ports.mid(0, mostNames)).join(QStringLiteral(", "));
    return ports.size() > mostNames ? BoardsBar::tr("%1 and %2 more").arg(names).arg(ports.size() - mostNames) : names;
}

} // namespace

BoardsBar::BoardsBar(const BoardFinder *finder, QWidget *parent)
    : QLabel(parent)
    , m_finder(finder)
{
    setObjectName(QStringLiteral("boards"));
    setTextFormat(Qt::RichText);
    setTextInteractionFlags(Qt::TextSelectableByMouse);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    connect(m_finder, &BoardFinder::changed, this, &BoardsBar::refresh);
    refresh();
}

BoardsBar::~BoardsBar() = default;

void BoardsBar::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::PaletteChange)
        refresh();
    QLabel::changeEvent(event);
}

void BoardsBar::refresh()
{
    const QVector<PortEntry> entries = m_finder->ports();
    const Group groups[] = {{PortEntry::Found, Theme::Good, tr("found on %1")},
                            {PortEntry::Back, Theme::Good, tr("back on %1")},
                            {PortEntry::Lost, Theme::Problem, tr("lost on %1")}};
    const auto coloured = [this](const QString &text, Theme::Role role) {
        return QStringLiteral("<span style=\"color:%1\">%2</span>")
            .arg(Theme::colour(palette(), role).name(), text.toHtmlEscaped());
    };
    QStringList parts;
    QList<JwDevice::Type> types = m_finder->types();
    std::sort(types.begin(), types.end());
    for (const JwDevice::Type type : std::as_const(types)) {
        QStringList states;
        for (const Group &group : groups) {
            QStringList ports;
            for (const PortEntry &entry : entries) {
                if (entry.type == type && entry.stay == group.stay)
                    ports.append(entry.port.name);
            }
            if (!ports.isEmpty())
                states.append(coloured(group.text.arg(joined(ports)), group.role));
        }
        if (states.isEmpty())
            states.append(m_finder->isSearching() ? coloured(tr("looking"), Theme::Waiting)
                                                  : coloured(tr("missing"), Theme::Problem));
        parts.append(
            QStringLiteral("<b>%1</b>&nbsp;%2").arg(JwTools::boardName(type), states.join(QStringLiteral("; "))));
    }
    const QString text =
        parts.isEmpty() ? tr("No search for boards.") : parts.join(QStringLiteral("&nbsp;&nbsp;&nbsp; "));
    if (text != this->text())
        setText(text);
}

} // namespace JwMonitor
