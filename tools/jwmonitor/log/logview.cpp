#include "logview.h"

#include "logmodel.h"
#include <common/loglevel.h>
#include <jwmonitor/history/historyfilter.h>
#include <jwmonitor/history/historytable.h>
#include <jwmonitor/look/labelled.h>

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QShortcut>

namespace JwMonitor {

namespace {

void addLevels(QComboBox *box)
{
    const QList<Logger::Level> levels = JwTools::logLevels();
    for (const Logger::Level level : levels)
        box->addItem(JwTools::logLevelName(level), level);
}

} // namespace

LogView::LogView(LogModel *model, QWidget *parent)
    : QWidget(parent)
    , m_model(model)
    , m_filter(new HistoryFilter(model, this))
    , m_categoryScan(new HistoryScan(model, this))
    , m_table(new HistoryTable)
    , m_loggerLevel(new QComboBox)
    , m_level(new QComboBox)
    , m_category(new QComboBox)
    , m_text(new QLineEdit)
{
    createControls();
    createLayout();
    m_table->setObjectName(QStringLiteral("records"));
    m_table->setAccessibleName(tr("Log records"));
    m_table->setModel(m_filter);
    setFocusProxy(m_table);
    m_table->setColumnTexts({QStringLiteral("00:00:00.000"), JwTools::logLevelName(Logger::Warning),
                             QStringLiteral("RawCommunication"), QStringLiteral("communicator.cpp:000")});
    connect(m_categoryScan, &HistoryScan::reached, this, &LogView::addCategories);
    m_categoryScan->restart();
}

LogView::~LogView() = default;

void LogView::createControls()
{
    m_loggerLevel->setObjectName(QStringLiteral("loggerLevel"));
    m_loggerLevel->setToolTip(tr("The library writes no record below this level."));
    addLevels(m_loggerLevel);
    const QList<Logger::Level> levels = JwTools::logLevels();
    for (const Logger::Level level : levels) {
        if (loggerInstance()->isEnabled(level)) {
            m_loggerLevel->setCurrentIndex(m_loggerLevel->findData(level));
            break;
        }
    }
    m_level->setObjectName(QStringLiteral("level"));
    addLevels(m_level);
    m_category->setObjectName(QStringLiteral("category"));
    m_category->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_category->addItem(tr("All"));
    m_category->addItem(tr("None"), QString());
    m_text->setObjectName(QStringLiteral("text"));
    m_text->setPlaceholderText(tr("record contains"));
    m_text->setClearButtonEnabled(true);

    connect(m_loggerLevel, QOverload<int>::of(&QComboBox::activated), this, &LogView::setLoggerLevel);
    connect(m_level, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &LogView::applyFilter);
    connect(m_category, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &LogView::applyFilter);
    connect(m_text, &QLineEdit::textChanged, this, &LogView::applyFilter);
    connect(new QShortcut(QKeySequence::Find, this, nullptr, nullptr, Qt::WidgetWithChildrenShortcut),
            &QShortcut::activated, m_text, [this] { m_text->setFocus(Qt::ShortcutFocusReason); });
}

void LogView::createLayout()
{
    auto *clear = new QPushButton(tr("&Clear"));
    connect(clear, &QPushButton::clicked, m_model, &LogModel::clear);
    auto *controls = new QHBoxLayout;
    addLabelled(controls, tr("&Write from:"), m_loggerLevel);
    addLabelled(controls, tr("&Show from:"), m_level);
    addLabelled(controls, tr("C&ategory:"), m_category);
    addLabelled(controls, tr("Te&xt:"), m_text, 1);
    controls->addWidget(clear);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(controls);
    layout->addWidget(m_table);
}

void LogView::applyFilter()
{
    const int level = m_level->currentData().toInt();
    const bool anyCategory = m_category->currentIndex() == 0;
    const QString category = m_category->currentData().toString();
    const QString text = m_text->text();
    m_filter->setTest([model = m_model, level, anyCategory, category, text](int row) {
        const LogRecord &record = model->record(row);
        return record.level >= level && (anyCategory || record.category == category)
            && record.text.contains(text, Qt::CaseInsensitive);
    });
}

void LogView::addCategories(int first, int last)
{
    for (int row = first; row <= last; ++row) {
        const QString &category = m_model->record(row).category;
        if (m_category->findData(category) < 0)
            m_category->addItem(category, category);
    }
}

void LogView::setLoggerLevel()
{
    loggerInstance()->setLevel(static_cast<Logger::Level>(m_loggerLevel->currentData().toInt()));
}

} // namespace JwMonitor
