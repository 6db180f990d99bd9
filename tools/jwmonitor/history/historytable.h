#pragma once

#include <QTableView>

namespace JwMonitor {

/// Shows a HistoryModel or HistoryFilter as a table. If the user scrolled to the end, the table shows each new row.
/// Otherwise the table keeps showing the same rows while the model drops old rows.
class HistoryTable : public QTableView
{
    Q_OBJECT

public:
    explicit HistoryTable(QWidget *parent = nullptr);
    ~HistoryTable() override;

    void setModel(QAbstractItemModel *model) override;

    /// Makes each column as wide as its text in `texts` needs. The last visible column takes the remaining width.
    void setColumnTexts(const QStringList &texts);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;

protected Q_SLOTS:
    void updateGeometries() override;
    void rowsAboutToBeRemoved(const QModelIndex &parent, int start, int end) override;

private:
    bool isAtEnd() const;
    void alignTopRow();
    void copySelected() const;

    bool m_following;
};

} // namespace JwMonitor
