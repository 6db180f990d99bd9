#pragma once

#include <QComboBox>
#include <QTest>

/// Goes to the item `text` of the box `name` below `window` as a person at the keyboard does.
inline void chooseByKeys(const QWidget *window, const char *name, const QString &text)
{
    auto *box = window->findChild<QComboBox *>(QString::fromLatin1(name));
    QTest::keyClick(box, Qt::Key_Home);
    for (int i = box->findText(text); i > 0; --i)
        QTest::keyClick(box, Qt::Key_Down);
    QCOMPARE(box->currentText(), text);
}
