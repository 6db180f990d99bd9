#pragma once

#include <simulator/boardconfig.h>

#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace JwSimulator {

/** The command line of jwsim. */
struct Arguments
{
    enum class Action { Run, Help, Version };

    Action action = Action::Run;
    QList<BoardConfig> boards; ///< in the order of the command line, those of a scenario in the place of its option
    QString reportFile; ///< empty = no report
    char **command = nullptr; ///< the rest of argv, with its null at the end

    /** Nothing, and one line in @p error that says what to do, when something is wrong. */
    static std::optional<Arguments> parse(char **argv, QString &error);
    static QString helpText();
};

} // namespace JwSimulator
