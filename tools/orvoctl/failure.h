#pragma once

#include <QString>

/// How orvoctl ends; scripts rely on the numbers.
enum class ExitStatus {
    Success = 0,
    ErrorReply = 1,
    Usage = 2,
    Unreachable = 3,
    TimedOut = 4,
};

/// Why a verb gives up: one line for stderr and the exit status. Thrown by verbs and caught in main(), never out of a
/// slot.
struct Failure
{
    ExitStatus status;
    QString text;
};
