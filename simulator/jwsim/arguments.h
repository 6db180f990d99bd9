#pragma once

#include <simulator/boardconfig.h>

#include <QList>
#include <QString>

#include <optional>

namespace JwSimulator {

/// The options and the command to run, as they are on the command line of jwsim.
struct Arguments
{
    enum class Action { Run, Help, Version };

    Action action = Action::Run;
    QList<BoardConfig> boards; ///< boards in the order of the options; a --scenario adds all boards of its file
    QString reportFile; ///< file for the report; if empty, no report is written
    char **command = nullptr; ///< the program to run and its arguments: the rest of argv, which ends with a null

    /// Reads the command line. If the command line is wrong, returns nothing and sets `error` to one line that says
    /// what to do.
    static std::optional<Arguments> parse(char **argv, QString &error);
    static QString helpText();
};

} // namespace JwSimulator
