#include "database.h"

#include <QDateTime>
#include <QFile>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace JwBridge {

namespace {

constexpr int format = 1; // of the tables; grows with each change that older programs can't read

// Makes the file if it is missing, so that other users can't read what boards send. SQLite would use the umask.
// SQLite's other files get the same permissions.
void makePrivate(const QByteArray &file)
{
    const int descriptor = ::open(file.constData(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor >= 0)
        ::close(descriptor);
}

} // namespace

Database::Database()
    : m_handle(nullptr, &sqlite3_close)
{
}

Database::~Database() = default;

bool Database::open(const QString &file, QString *error)
{
    if (tryOpen(file) || (!m_fault.isEmpty() && moveAside(file) && tryOpen(file)))
        return true;
    if (sqlite3_errcode(handle()) == SQLITE_BUSY)
        *error = QStringLiteral("%1 is in use: another jwbridge has the same --spool").arg(file);
    else if (!m_fault.isEmpty())
        *error = QStringLiteral("%1 %2, and can't be renamed: move it to another folder").arg(file, m_fault);
    else
        *error = QStringLiteral("can't use %1: %2").arg(file, trouble());
    return false;
}

bool Database::tryOpen(const QString &file)
{
    m_fault.clear();
    m_handle.reset(); // before the same file is opened again
    const QByteArray name = QFile::encodeName(file);
    makePrivate(name);
    sqlite3 *handle = nullptr;
    const int result = sqlite3_open_v2(name.constData(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    m_handle.reset(handle);
    // With locking_mode=EXCLUSIVE, a second process fails at its first access. synchronous=FULL writes each
    // transaction to the disk before it ends.
    if (result == SQLITE_OK && run("PRAGMA locking_mode=EXCLUSIVE") && run("PRAGMA journal_mode=WAL")
        && run("PRAGMA synchronous=FULL") && run("BEGIN IMMEDIATE") && run("COMMIT") && isReadable())
        return true;
    const int code = sqlite3_errcode(handle);
    if (m_fault.isEmpty() && (code == SQLITE_NOTADB || code == SQLITE_CORRUPT))
        m_fault = QStringLiteral("is damaged (%1)").arg(errorText());
    return false;
}

// Checks the whole file and its version. A new file gets the version.
bool Database::isReadable()
{
    const QByteArray version = value("PRAGMA user_version");
    if (version.isEmpty())
        return false;
    if (version.toInt() > format) {
        m_fault = QStringLiteral("is from a newer jwbridge");
        return false;
    }
    const QByteArray check = value("PRAGMA quick_check(1)");
    if (check.isEmpty())
        return false;
    if (check != "ok") {
        m_fault = QStringLiteral("is damaged (%1)").arg(QString::fromUtf8(check).simplified());
        return false;
    }
    return version.toInt() == format || run(("PRAGMA user_version=" + QByteArray::number(format)).constData());
}

// Returns the only value of a query. Empty if the query fails; then errorText() says why.
QByteArray Database::value(const char *sql) const
{
    Statement statement(*this, sql);
    return statement.next() ? statement.bytes(0) : QByteArray();
}

// Renames the file, and the file with the newest changes that belongs to it.
bool Database::moveAside(const QString &file)
{
    m_handle.reset();
    const QString aside =
        file + QDateTime::currentDateTimeUtc().toString(QStringLiteral("'.aside-'yyyyMMdd'T'HHmmsszzz'Z'"));
    const QString changes = QStringLiteral("-wal");
    if ((QFile::exists(file + changes) && !QFile::rename(file + changes, aside + changes))
        || !QFile::rename(file, aside))
        return false;
    m_setAside = QStringLiteral("%1 %2. It is kept as %3, and a new spool begins").arg(file, m_fault, aside);
    return true;
}

bool Database::run(const char *sql)
{
    return sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

QString Database::errorText() const
{
    return QString::fromUtf8(sqlite3_errmsg(handle()));
}

QString Database::trouble() const
{
    switch (sqlite3_errcode(handle())) {
    case SQLITE_FULL:
        return errorText() + QStringLiteral(": free space on this disk");
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return errorText() + QStringLiteral(": restart jwbridge, which then keeps this spool and begins a new one");
    default:
        return errorText();
    }
}

Statement::Statement(const Database &database, const char *sql)
    : m_statement(nullptr, &sqlite3_finalize)
{
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v2(database.handle(), sql, -1, &statement, nullptr);
    m_statement.reset(statement); // null if this failed; then every step fails too
}

Statement::~Statement() = default;

Statement &Statement::bind(int parameter, qint64 value)
{
    sqlite3_bind_int64(m_statement.get(), parameter + 1, value);
    return *this;
}

Statement &Statement::bind(int parameter, const QByteArray &value)
{
    sqlite3_bind_blob64(m_statement.get(), parameter + 1, value.constData(), static_cast<sqlite3_uint64>(value.size()),
                        SQLITE_TRANSIENT);
    return *this;
}

bool Statement::next()
{
    return sqlite3_step(m_statement.get()) == SQLITE_ROW;
}

bool Statement::run()
{
    int result = SQLITE_ROW;
    while (result == SQLITE_ROW)
        result = sqlite3_step(m_statement.get());
    sqlite3_reset(m_statement.get());
    return result == SQLITE_DONE;
}

qint64 Statement::number(int column) const
{
    return sqlite3_column_int64(m_statement.get(), column);
}

QByteArray Statement::bytes(int column) const
{
    const auto *const data = static_cast<const char *>(sqlite3_column_blob(m_statement.get(), column));
    return {data, sqlite3_column_bytes(m_statement.get(), column)};
}

Transaction::Transaction(Database &database)
    : m_database(database)
    , m_isOpen(database.run("BEGIN IMMEDIATE"))
{
}

Transaction::~Transaction()
{
    if (m_isOpen && !sqlite3_get_autocommit(m_database.handle())) // after some errors, SQLite has already undone it
        m_database.run("ROLLBACK");
}

bool Transaction::commit()
{
    if (!m_isOpen || !m_database.run("COMMIT"))
        return false;
    m_isOpen = false;
    return true;
}

} // namespace JwBridge
