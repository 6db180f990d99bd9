#include "boardsbar.h"

#include "boardfinder.h"
#include <common/boardtype.h>
#include <jwmonitor/look/theme.h>

#include <QEvent>

namespace JwMonitor {

namespace {

QString stageText(const BoardFinder::BoardState &board)
{
    switch (board.stage) {
    case BoardFinder::BoardState::Missing:
        return BoardsBar::tr("missing");
    case BoardFinder::BoardState::Looking:
        return BoardsBar::tr("looking");
    case BoardFinder::BoardState::Found:
        return BoardsBar::tr("found on %1").arg(board.port);
    case BoardFinder::BoardState::Lost:
        return BoardsBar::tr("lost on %1").arg(board.port);
    case BoardFinder::BoardState::Back:
        return BoardsBar::tr("back on %1").arg(board.port);
    }
    return QString();
}

Theme::Role stageRole(BoardFinder::BoardState::Stage stage)
{
    switch (stage) {
    case BoardFinder::BoardState::Missing:
    case BoardFinder::BoardState::Lost:
        return Theme::Problem;
    case BoardFinder::BoardState::Looking:
        return Theme::Waiting;
    case BoardFinder::BoardState::Found:
    case BoardFinder::BoardState::Back:
        return Theme::Good;
    }
    return Theme::Quiet;
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
    const auto boards = m_finder->boards();
    QStringList parts;
    for (auto board = boards.begin(); board != boards.end(); ++board) {
        const QString colour = Theme::colour(palette(), stageRole(board->stage)).name();
        parts.append(QStringLiteral("<b>%1</b>&nbsp;<span style=\"color:%2\">%3</span>")
                         .arg(JwTools::boardName(board.key()), colour, stageText(*board).toHtmlEscaped()));
    }
    const QString text =
        parts.isEmpty() ? tr("No search for boards.") : parts.join(QStringLiteral("&nbsp;&nbsp;&nbsp; "));
    if (text != this->text())
        setText(text);
}

} // namespace JwMonitor
