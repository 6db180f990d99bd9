// Makes the pictures of the documentation. Run "jwmonitor_screenshots FOLDER" under jwsim. The program finds the
// simulated boards, exchanges payloads with them, and saves a picture of each view of jwmonitor's window.
#include <common/boardtype.h>
#include <jwmonitor/app/mainwindow.h>
#include <jwmonitor/find/boardfinder.h>
#include <jwmonitor/look/qtversion.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/send/sendpanel.h>

#include <device/boardrules.h>
#include <logger/logger.h>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPixmap>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

using namespace JwMonitor;

namespace {

constexpr int turns = 160;
constexpr int settleTime = 300; // ms between showing a view and saving its picture

struct Picture
{
    MainWindow::View view;
    Theme::Palette palette;
    const char *name;
};

constexpr Picture pictures[] = {{MainWindow::PortsTab, Theme::Palette::Light, "ports-light"},
                                {MainWindow::TrafficTab, Theme::Palette::Light, "traffic-light"},
                                {MainWindow::PlotTab, Theme::Palette::Dark, "plot-dark"},
                                {MainWindow::LogTab, Theme::Palette::Dark, "log-dark"}};

class Photographer : public QObject
{
public:
    /// The object begins to send payloads when no port may still answer.
    Photographer(MainWindow *window, const QString &folder)
        : m_window(window)
        , m_folder(folder)
    {
        connect(&m_timer, &QTimer::timeout, this, &Photographer::talk);
        connect(m_window->finder(), &BoardFinder::changed, this, [this] {
            if (m_window->finder()->isStarted() && !m_window->finder()->isSearching() && !m_timer.isActive())
                m_timer.start(25);
        });
    }

private:
    void talk()
    {
        m_window->finder()->disconnect(this);
        auto *panel = m_window->findChild<SendPanel *>();
        auto *board = panel->findChild<QComboBox *>(QStringLiteral("board"));
        auto *line = panel->findChild<QLineEdit *>(QStringLiteral("line"));
        const int turn = m_turn++;
        if (turn == turns) {
            line->setText(QStringLiteral("PTJWWR,INF"));
            m_timer.stop();
            takePictures();
            return;
        }
        if (board->count() == 0)
            return;
        m_timer.setInterval(turn % 40 < 20 ? 25 : 60); // two speeds, so that the plot's curves rise and fall
        board->setCurrentIndex(turn % board->count());
        const bool isBoardC = board->currentText().contains(JwTools::boardName(JwDevice::BoardC));
        line->setText(isBoardC ? QStringLiteral("PTJWWR,INF") : QStringLiteral("PJWVER"));
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
        QCoreApplication::sendEvent(line, &press);
    }

    void takePictures()
    {
        auto *span = m_window->findChild<QComboBox *>(QStringLiteral("span"));
        // The last 10 seconds, because this program sent payloads for about 10 seconds.
        span->setCurrentIndex(span->findData(10));
        int delay = 0;
        for (const Picture &picture : pictures) {
            QTimer::singleShot(delay, this, [this, &picture] {
                Theme::apply(*qApp, picture.palette);
                m_window->showView(picture.view);
            });
            delay += settleTime;
            QTimer::singleShot(delay, this, [this, &picture] { save(QLatin1String(picture.name)); });
        }
        QTimer::singleShot(delay, this, [] { QCoreApplication::exit(0); });
    }

    void save(QLatin1String name) const
    {
        const QString file = QDir(m_folder).filePath(QStringLiteral("jwmonitor-%1.png").arg(name));
        if (m_window->grab().save(file))
            return;
        QTextStream(stderr) << "\"" << file << "\" can't be written: name a folder that exists" << Qt::endl;
        QCoreApplication::exit(1);
    }

    MainWindow *const m_window;
    const QString m_folder;
    QTimer m_timer;
    int m_turn = 0;
};

} // namespace

int main(int argc, char **argv)
{
    enableHighDpi();
    QApplication app(argc, argv);
    const QString folder = QCoreApplication::arguments().value(1);
    if (!QDir(folder).exists() || folder.isEmpty()) {
        QTextStream(stderr) << "Usage: jwmonitor_screenshots FOLDER, where FOLDER exists" << Qt::endl;
        return 2;
    }
    loggerInstance()->clearSinks();
    loggerInstance()->setLevel(Logger::Trace);
    Theme::apply(app, Theme::Palette::Light);
    MainWindow window;
    Photographer photographer(&window, folder);
    window.show();
    JwTools::SearchSettings settings;
    settings.types = JwDevice::boardTypes();
    window.find(settings);
    return QApplication::exec();
}
