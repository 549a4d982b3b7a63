#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <optional>

// CPU time of a process as the kernel counts it in /proc/PID/stat: user
// plus system time of all its threads, in clock ticks.
namespace ProcStat
{
// From the text of a stat file. The command name may hold blanks and
// parentheses, so the fields are counted from the last ")".
std::optional<quint64> cpuTicks(const QByteArray& statText);
std::optional<quint64> cpuTicks(qint64 pid);
long ticksPerSecond();
}
