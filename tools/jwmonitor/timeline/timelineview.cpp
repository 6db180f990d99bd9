#include "timelineview.h"

#include "probetimeline.h"
#include "timelinecanvas.h"

#include <device/boardrules.h>

#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QSaveFile>
#include <QSvgGenerator>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace JwMonitor {

namespace {

constexpr double pictureScale = 2; // enlarges saved PNGs, so that they are sharp on any screen and in print
constexpr int maxPixels = 32767; // largest width and height of a saved PNG, because Qt can't paint larger pictures
constexpr double zoomStep = 2;

QToolButton *createButton(const QString &text, const QString &toolTip, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(toolTip);
    return button;
}

} // namespace

TimelineView::TimelineView(const ProbeTimeline *timeline, QWidget *parent)
    : QWidget(parent)
    , m_canvas(new TimelineCanvas(timeline, this))
    , m_hint(new QLabel(this))
{
    auto *smaller = createButton(tr("−"), tr("Show more time at once (minus, Ctrl and wheel)"), this);
    auto *larger = createButton(tr("+"), tr("Show less time at once (plus, Ctrl and wheel)"), this);
    auto *whole = createButton(tr("All"), tr("Show the whole search (0)"), this);
    auto *save = createButton(tr("Save picture..."), tr("Save the timeline as SVG or PNG (Ctrl+S)"), this);
    save->setObjectName(QStringLiteral("saveTimeline"));
    connect(smaller, &QToolButton::clicked, m_canvas, [this] { m_canvas->setZoom(m_canvas->zoom() / zoomStep); });
    connect(larger, &QToolButton::clicked, m_canvas, [this] { m_canvas->setZoom(m_canvas->zoom() * zoomStep); });
    connect(whole, &QToolButton::clicked, m_canvas, [this] { m_canvas->setZoom(1); });
    connect(save, &QToolButton::clicked, this, &TimelineView::askAndSave);

    auto *bar = new QHBoxLayout;
    bar->addWidget(m_hint, 1);
    for (QWidget *button : {smaller, larger, whole, save})
        bar->addWidget(button);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(bar);
    layout->addWidget(m_canvas, 1);
    setFocusProxy(m_canvas);
    m_hint->setTextFormat(Qt::PlainText); // because the text of a board may look like HTML
    m_hint->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_hint->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred); // a long sentence must not widen the window

    connect(m_canvas, &TimelineCanvas::described, this, [this](const QString &text) {
        m_hint->setText(text);
        if (text.isEmpty())
            showLegend();
    });
    showLegend();
}

TimelineView::~TimelineView() = default;

void TimelineView::showLegend()
{
    m_hint->setText(tr("○ opened   ▶ query   ◀ reply   ■ unreadable   | %1 ms over   ◆ handed over   ✕ failed   "
                       "┆ retry round")
                        .arg(JwDevice::replyTime));
}

void TimelineView::askAndSave()
{
    const QString fileName = QFileDialog::getSaveFileName(this, tr("Save the timeline"), QStringLiteral("timeline.svg"),
                                                          tr("Pictures (*.svg *.png)"));
    if (fileName.isEmpty())
        return;
    const QString error = saveTo(fileName);
    if (!error.isEmpty())
        QMessageBox::warning(this, tr("Save the timeline"), error);
}

QString TimelineView::saveTo(const QString &fileName) const
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    const bool isSvg = suffix == QLatin1String("svg");
    if (!isSvg && suffix != QLatin1String("png"))
        return tr("\"%1\" is neither an SVG nor a PNG: give the file a name that ends with .svg or .png").arg(fileName);

    const QSize size = m_canvas->pictureSize().toSize();
    QImage image;
    if (!isSvg && std::max(size.width(), size.height()) * pictureScale <= maxPixels)
        image = QImage(size * pictureScale, QImage::Format_RGB32);
    if (!isSvg && image.isNull())
        return tr("The timeline is too large for a PNG: zoom out (0), or save it as SVG");

    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly))
        return tr("\"%1\" can't be written: %2").arg(fileName, file.errorString());
    if (isSvg) {
        QSvgGenerator generator;
        generator.setOutputDevice(&file);
        generator.setSize(size);
        generator.setViewBox(QRect(QPoint(), size));
        generator.setResolution(logicalDpiX());
        generator.setTitle(tr("Timeline of a search for boards"));
        QPainter painter(&generator);
        m_canvas->paintPicture(painter);
    } else {
        image.setDevicePixelRatio(pictureScale);
        QPainter painter(&image);
        m_canvas->paintPicture(painter);
        painter.end();
        if (!image.save(&file, "PNG"))
            file.cancelWriting();
    }
    return file.commit() ? QString() : tr("\"%1\" can't be written: %2").arg(fileName, file.errorString());
}

} // namespace JwMonitor
