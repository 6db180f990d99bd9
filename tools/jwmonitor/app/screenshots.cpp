#include "screenshots.h"

#include <jwmonitor/find/boardfinder.h>
#include <common/boardtype.h>
#include "mainwindow.h"
#include <jwmonitor/send/sendpanel.h>
#include <jwmonitor/look/theme.h>

#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPixmap>
#include <QTextStream>

#include <cstdio>
#include <utility>

namespace JwMonitor {

namespace {

constexpr int turns = 160;
constexpr int settleTime = 300; // ms from a view's first sight to its picture

} // namespace

Screenshots::Screenshots(MainWindow *window, const QString &folder)
    : m_window(window)
    , m_folder(folder)
{
    connect(&m_timer, &QTimer::timeout, this, &Screenshots::talk);
    connect(m_window->finder(), &BoardFinder::searchEnded, this, [this] { m_timer.start(25); });
}

Screenshots::~Screenshots() = default;

void Screenshots::talk()
{
    m_window->finder()->disconnect(this);
    auto *panel = m_window->findChild<SendPanel *>();
    auto *board = panel->findChild<QComboBox *>(QStringLiteral("board"));
    auto *line = panel->findChild<QLineEdit *>(QStringLiteral("line"));
    const int turn = m_turn++;
    if (turn == turns) {
        line->setText(QStringLiteral("PTJWWR,INF"));
        m_timer.stop();
        save();
        return;
    }
    if (board->count() == 0)
        return;
    m_timer.setInterval(turn % 40 < 20 ? 25 : 60); // so that the plot has something to tell
    board->setCurrentIndex(turn % board->count());
    const bool isBoardC = board->currentText().contains(JwTools::boardName(JwDevice::BoardC));
    line->setText(isBoardC ? QStringLiteral("PTJWWR,INF") : QStringLiteral("PJWVER"));
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    QCoreApplication::sendEvent(line, &press);
}

void Screenshots::save()
{
    static constexpr std::pair<MainWindow::View, const char *> views[] = {{MainWindow::PortsTab, "ports"},
                                                                          {MainWindow::TrafficTab, "traffic"},
                                                                          {MainWindow::PlotTab, "plot"},
                                                                          {MainWindow::LogTab, "log"}};
    const bool isDark = Theme::of(m_window->palette()) == Theme::Palette::Dark;
    const int scale = qRound(m_window->devicePixelRatioF());
    const QString suffix =
        QLatin1String(isDark ? "-dark" : "-light") + (scale > 1 ? QStringLiteral("-%1x").arg(scale) : QString());
    auto *span = m_window->findChild<QComboBox *>(QStringLiteral("span"));
    span->setCurrentIndex(span->findData(10)); // seconds: about as long as we talked
    int delay = 0;
    for (const auto &[view, name] : views) {
        QTimer::singleShot(delay, this, [this, shown = view] { m_window->showView(shown); });
        delay += settleTime;
        const QString file =
            QDir(m_folder).filePath(QStringLiteral("jwmonitor-%1%2.png").arg(QLatin1String(name), suffix));
        QTimer::singleShot(delay, this, [this, file] {
            if (m_window->grab().save(file))
                return;
            QTextStream(stderr) << tr("\"%1\" can't be written: give --screenshots a folder that is there").arg(file)
                                << Qt::endl;
            QCoreApplication::exit(1);
        });
    }
    QTimer::singleShot(delay, this, [] { QCoreApplication::exit(0); });
}

} // namespace JwMonitor
