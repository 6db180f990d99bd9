#include "sendpanel.h"

#include "recallline.h"
#include "sendledger.h"
#include <common/boardtype.h>
#include <common/printable.h>
#include <common/sentenceframe.h>
#include <jwmonitor/history/historyfilter.h>
#include <jwmonitor/history/historytable.h>
#include <jwmonitor/look/theme.h>
#include <jwmonitor/traffic/trafficmodel.h>

#include <QComboBox>
#include <QEvent>
#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace JwMonitor {

SendPanel::SendPanel(TrafficModel *model, QWidget *parent)
    : QWidget(parent)
    , m_model(model)
    , m_board(new QComboBox)
    , m_line(new RecallLine)
    , m_preview(new QLabel)
    , m_message(new QLabel)
    , m_sent(new HistoryFilter(model, this))
    , m_table(new HistoryTable)
    , m_messageIsFault(false)
{
    m_board->setObjectName(QStringLiteral("board"));
    m_board->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    m_board->setMinimumContentsLength(18);
    m_line->setObjectName(QStringLiteral("line"));
    m_line->setPlaceholderText(tr("A sentence, such as PJWVER; Up and Down bring back earlier lines"));
    m_line->setClearButtonEnabled(true);
    m_preview->setObjectName(QStringLiteral("preview"));
    m_preview->setTextFormat(Qt::PlainText);
    m_preview->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_preview->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_message->setObjectName(QStringLiteral("message"));
    m_message->setTextFormat(Qt::PlainText);
    m_message->setWordWrap(true);
    for (QLabel *label : {m_preview, m_message})
        label->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_table->setObjectName(QStringLiteral("sent"));
    m_table->setAccessibleName(tr("Sent payloads"));
    showSentOnly();
    createLayout();
    connect(m_line, &QLineEdit::textChanged, this, &SendPanel::updatePreview);
    connect(m_line, &QLineEdit::returnPressed, this, &SendPanel::send);
    updatePreview();
    setFocusProxy(m_line);
}

SendPanel::~SendPanel() = default;

void SendPanel::addBoard(const BoardLink &link)
{
    addBoard(link.port, JwTools::boardName(link.type), new SendLedger(link, m_model));
}

void SendPanel::addBoard(const QString &name, const QString &type, LineSender *sender)
{
    removeSender(name);
    sender->setParent(this);
    m_senders.insert(name, sender);
    const QString text = tr("%1: %2").arg(name, type);
    const int index = m_board->findData(name);
    if (index < 0)
        m_board->addItem(text, name);
    else
        m_board->setItemText(index, text);
    if (name.size() > m_widest.size()) {
        m_widest = name;
        showTrafficColumns(m_table, TrafficColumn::SentOnly, m_widest);
    }
}

void SendPanel::removeBoard(const QString &name)
{
    removeSender(name);
    m_board->removeItem(m_board->findData(name));
}

void SendPanel::showFailure(const QString &name, uint id, const QString &error)
{
    showMessage(tr("The payload with id %1 for %2 failed: %3.").arg(QString::number(id), name, error), true);
}

void SendPanel::removeSender(const QString &name)
{
    delete m_senders.take(name);
    m_model->markLost(name);
}

void SendPanel::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        showMessage(m_message->text(), m_messageIsFault);
}

void SendPanel::createLayout()
{
    auto *button = new QPushButton(tr("&Send"));
    button->setObjectName(QStringLiteral("send"));
    connect(button, &QPushButton::clicked, this, &SendPanel::send);

    auto *line = new QHBoxLayout;
    line->addWidget(m_line);
    line->addWidget(button);
    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->addRow(tr("Bo&ard:"), m_board);
    form->addRow(tr("&Line:"), line);
    qobject_cast<QLabel *>(form->labelForField(line))->setBuddy(m_line);
    form->addRow(tr("Goes out as:"), m_preview);
    form->addRow(QString(), m_message);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_table);
}

void SendPanel::showSentOnly()
{
    m_sent->setTest([model = m_model](int row) { return model->record(row).direction == Direction::Sent; });
    m_table->setModel(m_sent);
    showTrafficColumns(m_table, TrafficColumn::SentOnly);
}

void SendPanel::updatePreview()
{
    if (m_line->text().trimmed().isEmpty()) {
        m_preview->clear();
        return; // m_message does not change, so it still says whether the last sentence was sent
    }
    const JwTools::SentenceFrame frame(m_line->text());
    m_preview->setText(JwTools::printable(frame.sentence()));
    showMessage(frame.fault(), true);
}

void SendPanel::send()
{
    const JwTools::SentenceFrame frame(m_line->text());
    const QString name = m_board->currentData().toString();
    LineSender *sender = m_senders.value(name);
    if (!sender) {
        showMessage(tr("There is no board to send to: find one first."), true);
        return;
    }
    if (!frame.fault().isEmpty()) {
        showMessage(frame.fault(), true);
        return;
    }
    QString error;
    const uint id = sender->send(frame.sentence(), &error);
    if (id == 0) {
        showMessage(tr("Not sent: %1.").arg(error), true);
        return;
    }
    m_line->finish();
    showMessage(tr("Sent to %1 with id %2.").arg(name).arg(id), false);
}

void SendPanel::showMessage(const QString &text, bool isFault)
{
    m_messageIsFault = isFault;
    QPalette colours;
    colours.setColor(QPalette::WindowText, Theme::colour(palette(), isFault ? Theme::Problem : Theme::Good));
    m_message->setPalette(colours);
    m_message->setText(text);
}

} // namespace JwMonitor
