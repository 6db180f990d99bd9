#pragma once

#include "searchsettings.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>

namespace JwTools {

/// The command line of a program that searches boards: the options --type, --port, --delay and --retries, --version,
/// --help, and those that the program adds. Each error is one line that says what is allowed.
class CommandLine
{
    Q_DECLARE_TR_FUNCTIONS(JwTools::CommandLine)

public:
    enum Outcome { Run, ShowHelp, ShowVersion, WrongUse };

    /// `own`: the program's own options, in the order of the help.
    CommandLine(const QString &program, const QString &description, const QList<QCommandLineOption> &own);

    /// Reads `arguments`, the first of which is the program's name. Sets `error` on wrong use.
    Outcome parse(const QStringList &arguments, QString *error);

    /// The options here that have a meaning for a search only; --port has one for a list too.
    QList<QCommandLineOption> searchOptions() const { return {m_type, m_delay, m_retries}; }
    const QCommandLineOption &port() const { return m_port; }
    bool isSet(const QCommandLineOption &option) const { return m_parser.isSet(option); }
    QString value(const QCommandLineOption &option) const { return m_parser.value(option); }

    /// Reads the options of a search into `settings`. Without --type all types are wanted.
    bool readSearch(SearchSettings &settings, QString *error) const;
    /// Reads a number into `value`, which stays as it is without the option.
    bool readNumber(const QCommandLineOption &option, int lowest, int highest, int &value, QString *error) const;

    QString help() const;

private:
    bool readTypes(SearchSettings &settings, QString *error) const;
    bool readPorts(SearchSettings &settings, QString *error) const;

    const QString m_program;
    const QCommandLineOption m_type;
    const QCommandLineOption m_port;
    const QCommandLineOption m_delay;
    const QCommandLineOption m_retries;
    const QCommandLineOption m_version;
    const QCommandLineOption m_help;
    QCommandLineParser m_parser;
};

/// An option of that long name; with `value`, the word for its value in the help, it takes one.
QCommandLineOption makeOption(const char *name, const QString &description, const char *value = "");

} // namespace JwTools
