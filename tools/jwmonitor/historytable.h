#pragma once

#include <QTableView>

namespace JwMonitor {

/// A table for a history: follows the newest row while it stands at the end, and else keeps its place while rows go at
/// the front.
class HistoryTable : public QTableView
{
    Q_OBJECT

public:
    explicit HistoryTable(QWidget *parent = nullptr);
    ~HistoryTable() override;

    void setModel(QAbstractItemModel *model) override;

    /// Makes columns as wide as these texts need, one each; the last one takes the rest.
    void setColumnTexts(const QStringList &texts);
    /// The selected rows as lines of text, columns between tabs.
    void copySelected() const;

private:
    bool isAtEnd() const;

    bool m_following;
};

} // namespace JwMonitor
