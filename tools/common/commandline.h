#pragma once

#include "searchsettings.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>

namespace JwTools {

/// Reads the command line of a program that searches for boards. The options are --type, --port, --delay, --retries,
/// --version, --help, and the program's own options. Each error text is one line that says what is allowed.
class CommandLine
{
    Q_DECLARE_TR_FUNCTIONS(JwTools::CommandLine)

public:
    enum Outcome { Run, ShowHelp, ShowVersion, WrongUse };

    /// `own` contains the program's own options, in the order in which the help shows them.
    CommandLine(const QString &program, const QString &description, const QList<QCommandLineOption> &own);

    /// Lets `option` take one more argument after its value, which operand() returns.
    void setOperandOption(const QCommandLineOption &option) { m_operandOption = option.names().first(); }

    /// Reads `arguments`; the first argument is the program's name. Sets `error` if the result is WrongUse.
    Outcome parse(const QStringList &arguments, QString *error);

    /// Returns the options that only a search uses: --type, --delay and --retries. --port is not one of them, because
    /// lists of ports and the doctor of jwprobe use it too.
    QList<QCommandLineOption> searchOptions() const { return {m_type, m_delay, m_retries}; }
    const QCommandLineOption &port() const { return m_port; }
    const QCommandLineOption &delay() const { return m_delay; }
    const QCommandLineOption &retries() const { return m_retries; }
    const QCommandLineOption &type() const { return m_type; }
    bool isSet(const QCommandLineOption &option) const { return m_parser.isSet(option); }
    QString value(const QCommandLineOption &option) const { return m_parser.value(option); }
    QString operand() const { return m_parser.positionalArguments().value(0); }

    /// Reads the options of a search into `settings`. Without --type, `settings` contains all types. Returns false and
    /// sets `error` if a value is wrong.
    bool readSearch(SearchSettings &settings, QString *error) const;
    /// Reads the number of an option into `value`. Without the option, `value` does not change. Returns false and sets
    /// `error` if the option's value is no number from `lowest` to `highest`.
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
    QString m_operandOption; // its name; empty if there is none
    QCommandLineParser m_parser;
};

/// Makes the option --`name`. If `value` is not empty, the option takes a value. The help then shows the text `value`,
/// for example "MS", in its place.
QCommandLineOption makeOption(const char *name, const QString &description, const char *value = "");

} // namespace JwTools
