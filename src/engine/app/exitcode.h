#pragma once

// What a program run tells its caller: the window's unattended runs and the station.
enum class ExitCode : int {
    Success = 0,        // flashed and verified, or nothing to do
    Stopped = 1,        // stopped by the user or a signal
    Failed = 2,         // an error the user was told of
    NotRecorded = 3,    // flashed, but the record could not be completed: a line sets the unit aside
    LanguageChange = 3, // the window starts again in another language (never leaves main)
    UnitsFailed = 4,    // a watch stopped cleanly after one or more units failed
    Usage = 64,         // the command line was wrong
};

constexpr int toInt(ExitCode code)
{
    return static_cast<int>(code);
}
