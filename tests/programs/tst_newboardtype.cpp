#include <device/boardrules.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <utility>

namespace {

QString contentsOf(const QString &path)
{
    QFile file(QStringLiteral(PROJECT_FOLDER "/") + path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

/// Returns the files that a new board type may change. The folders of tests, benchmarks and fuzzers are left out.
QStringList sources()
{
    const QDir project(QStringLiteral(PROJECT_FOLDER));
    const QStringList without = {QStringLiteral("tests"), QStringLiteral("benchmarks"), QStringLiteral("fuzz"),
                                 QStringLiteral("build")};
    QStringList files = {QStringLiteral("CMakeLists.txt"), QStringLiteral("README.md")};
    const QStringList folders = project.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &folder : folders) {
        QDirIterator it(project.filePath(folder), QDir::Files, QDirIterator::Subdirectories);
        while (!without.contains(folder) && it.hasNext())
            files << project.relativeFilePath(it.next());
    }
    return files;
}

bool namesEachType(const QString &text)
{
    const QList<JwDevice::Type> types = JwDevice::boardTypes();
    return std::all_of(types.begin(), types.end(), [&text](JwDevice::Type type) {
        return text.contains(QRegularExpression(QStringLiteral("\\b%1\\b").arg(JwDevice::typeName(type))));
    });
}

QByteArray joined(const QStringList &files, const char *meaning)
{
    return files.join(QStringLiteral(", ")).toUtf8() + ' ' + meaning;
}

} // namespace

/// Tests that the section "Adding a board type" of CONTRIBUTING.md names the right files.
class TestNewBoardType : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void eachListedFileExists();
    void eachListedFileNamesEachType();
    void eachFileThatNamesEachTypeIsListed();

private:
    QStringList m_all; // all files that the section in CONTRIBUTING.md names
    QStringList m_checklist; // files that the section's numbered list names
    QStringList m_samples; // files that the section names in its line about samples
};

void TestNewBoardType::initTestCase()
{
    const QString page = contentsOf(QStringLiteral("CONTRIBUTING.md"));
    const QString section =
        page.section(QStringLiteral("\n## Adding a board type\n"), 1).section(QStringLiteral("\n## "), 0, 0);
    const QStringList known = sources();
    const auto filesIn = [](const QString &text) {
        QStringList files;
        for (auto it = QRegularExpression(QStringLiteral("`([\\w.-]+(/[\\w.-]+)+|\\w+\\.md)`")).globalMatch(text);
             it.hasNext();)
            files << it.next().captured(1);
        return files;
    };
    m_all = filesIn(section);
    const QRegularExpression item(QStringLiteral("^\\d+\\. "));
    const QStringList paragraphs = section.split(QStringLiteral("\n\n"), Qt::SkipEmptyParts);
    for (const QString &paragraph : paragraphs) {
        if (paragraph.startsWith(QLatin1String("Samples")))
            m_samples << filesIn(paragraph);
        if (!item.match(paragraph).hasMatch())
            continue;
        const QStringList files = filesIn(paragraph);
        for (const QString &file : files) {
            if (known.contains(file))
                m_checklist << file;
        }
    }
    QVERIFY(!m_checklist.isEmpty());
    QVERIFY(!m_samples.isEmpty());
}

void TestNewBoardType::eachListedFileExists()
{
    QStringList missing;
    for (const QString &file : std::as_const(m_all)) {
        if (!QFile::exists(QStringLiteral(PROJECT_FOLDER "/") + file))
            missing << file;
    }
    QVERIFY2(missing.isEmpty(), joined(missing, "stand in the section, but do not exist"));
}

void TestNewBoardType::eachListedFileNamesEachType()
{
    QStringList wrong;
    for (const QString &file : std::as_const(m_checklist)) {
        if (!namesEachType(contentsOf(file)))
            wrong << file;
    }
    QVERIFY2(wrong.isEmpty(), joined(wrong, "stand in the checklist, but do not name every board type"));
}

void TestNewBoardType::eachFileThatNamesEachTypeIsListed()
{
    QStringList unlisted;
    const QStringList files = sources();
    for (const QString &file : files) {
        if (namesEachType(contentsOf(file)) && !m_checklist.contains(file) && !m_samples.contains(file))
            unlisted << file;
    }
    QVERIFY2(unlisted.isEmpty(),
             joined(unlisted, "name every board type: use JwDevice::boardTypes(), or add them to the checklist"));
}

QTEST_GUILESS_MAIN(TestNewBoardType)
#include "tst_newboardtype.moc"
