#pragma once

#include <simulator/boardconfig.h>

#include <QList>
#include <QString>

#include <optional>

namespace JwSimulator {

/// The command line of jwsim.
struct Arguments
{
    enum class Action { Run, Help, Version };

    Action action = Action::Run;
    QList<BoardConfig> boards; ///< in the order of the command line; a scenario's boards at the place of its option
    QString reportFile; ///< empty = no report
    char **command = nullptr; ///< the rest of argv, which ends with a null

    /// Returns nothing if something is wrong; `error` then has one line that says what to do.
    static std::optional<Arguments> parse(char **argv, QString &error);
    static QString helpText();
};

} // namespace JwSimulator
