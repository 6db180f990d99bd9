#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

struct sqlite3;
struct sqlite3_stmt;

namespace JwBridge {

/// A file of SQLite that only this process uses. A finished transaction survives a crash of the program and of the
/// machine.
class Database
{
public:
    Database();
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    /// Opens or creates the file. If the file is damaged, or a newer program wrote it, renames it and begins a new one;
    /// then setAside() is not empty. Returns false and sets `error` if that fails.
    bool open(const QString &file, QString *error);
    /// Says why open() renamed a file, and its new name. Empty if open() renamed no file.
    QString setAside() const { return m_setAside; }
    /// Runs SQL without a result. Returns false if it fails; then errorText() says why.
    bool run(const char *sql);
    QString errorText() const;
    /// Returns errorText() and what to do.
    QString trouble() const;

    sqlite3 *handle() const { return m_handle.get(); }

private:
    bool tryOpen(const QString &file);
    bool isReadable();
    QByteArray value(const char *sql) const;
    bool moveAside(const QString &file);

    std::unique_ptr<sqlite3, int (*)(sqlite3 *)> m_handle;
    QString m_fault; // why the content of the file can't be used
    QString m_setAside;
};

/// One statement of SQL. Parameters and columns are numbered from 0.
class Statement
{
public:
    Statement(const Database &database, const char *sql);
    ~Statement();
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    Statement &bind(int parameter, qint64 value);
    Statement &bind(int parameter, const QByteArray &value);
    /// Makes the next step. Returns whether there is a row.
    bool next();
    /// Runs the statement to its end, and makes it ready for other parameters. Returns false if it fails.
    bool run();
    qint64 number(int column) const;
    QByteArray bytes(int column) const;

private:
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)> m_statement;
};

/// Starts a transaction. Undoes it when the object is destroyed before commit() succeeded.
class Transaction
{
public:
    explicit Transaction(Database &database);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    /// False if the transaction could not be started. Then don't run a statement.
    bool isOpen() const { return m_isOpen; }
    bool commit();

private:
    Database &m_database;
    bool m_isOpen;
};

} // namespace JwBridge
