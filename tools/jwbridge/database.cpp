#include "database.h"

#include <QFile>

#include <sqlite3.h>

namespace JwBridge {

Database::Database()
    : m_handle(nullptr, &sqlite3_close)
{
}

Database::~Database() = default;

bool Database::open(const QString &file, QString *error)
{
    sqlite3 *handle = nullptr;
    const int result = sqlite3_open_v2(QFile::encodeName(file).constData(), &handle,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    m_handle.reset(handle);
    // With locking_mode=EXCLUSIVE, a second process fails at its first access. synchronous=FULL writes each
    // transaction to the disk before it ends.
    if (result == SQLITE_OK && run("PRAGMA locking_mode=EXCLUSIVE") && run("PRAGMA journal_mode=WAL")
        && run("PRAGMA synchronous=FULL") && run("BEGIN IMMEDIATE") && run("COMMIT"))
        return true;
    if (sqlite3_errcode(handle) == SQLITE_BUSY)
        *error = QStringLiteral("%1 is in use: another jwbridge has the same --spool").arg(file);
    else
        *error = QStringLiteral("can't use %1: %2").arg(file, errorText());
    return false;
}

bool Database::run(const char *sql)
{
    return sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

QString Database::errorText() const
{
    return QString::fromUtf8(sqlite3_errmsg(handle()));
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
    sqlite3_bind_blob(m_statement.get(), parameter + 1, value.constData(), value.size(), SQLITE_TRANSIENT);
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
