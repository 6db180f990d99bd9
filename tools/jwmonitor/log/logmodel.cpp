#include "logmodel.h"

#include "logsink.h"
#include <common/loglevel.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/look/tooltip.h>
#include <jwmonitor/traffic/traffictext.h>

#include <QGuiApplication>

namespace JwMonitor {

LogModel::LogModel(QObject *parent)
    : HistoryModel<LogRecord>(parent)
    , m_sink(std::make_shared<LogSink>(
          [this] { QMetaObject::invokeMethod(this, &LogModel::fetch, Qt::QueuedConnection); }))
{
    loggerInstance()->addSink(m_sink);
}

LogModel::~LogModel()
{
    loggerInstance()->removeSink(m_sink);
    m_sink->silence(); // another thread may still use the sink, and must not call this model any more
}

int LogModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant LogModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const LogRecord &shown = record(index.row());
    if (role == Qt::ForegroundRole && index.column() == Level && shown.level >= Logger::Warning) {
        const Theme::Role colour = shown.level == Logger::Warning ? Theme::Waiting : Theme::Problem;
        return Theme::colour(QGuiApplication::palette(), colour);
    }
    if (role == Qt::ToolTipRole)
        return toolTipText(tr("%1, %2 in %3").arg(TrafficText::moment(shown.timeUs), shown.place, shown.function));
    if (role != Qt::DisplayRole)
        return QVariant();
    switch (index.column()) {
    case Time:
        return TrafficText::clock(shown.timeUs);
    case Level:
        return JwTools::logLevelName(shown.level);
    case Category:
        return shown.category;
    case Place:
        return shown.place;
    case Text:
        return shown.text;
    default:
        return QVariant();
    }
}

QVariant LogModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case Time:
        return tr("Time");
    case Level:
        return tr("Level");
    case Category:
        return tr("Category");
    case Place:
        return tr("Place");
    case Text:
        return tr("Text");
    default:
        return QVariant();
    }
}

void LogModel::fetch()
{
    const QVector<LogRecord> records = m_sink->take();
    for (const LogRecord &record : records)
        append(record);
}

} // namespace JwMonitor
