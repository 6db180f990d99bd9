#pragma once

#include <QComboBox>
#include <QTest>

/// Chooses the item `text` of the combo box `name` in `window` with the keyboard.
inline void chooseByKeys(const QWidget *window, const char *name, const QString &text)
{
    auto *box = window->findChild<QComboBox *>(QString::fromLatin1(name));
    QTest::keyClick(box, Qt::Key_Home);
    for (int i = box->findText(text); i > 0; --i)
        QTest::keyClick(box, Qt::Key_Down);
    QCOMPARE(box->currentText(), text);
}
