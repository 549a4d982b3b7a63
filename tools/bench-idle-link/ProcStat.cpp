#include "ProcStat.h"

#include <QFile>
#include <QList>

#include <unistd.h>

namespace ProcStat
{
std::optional<quint64> cpuTicks(const QByteArray& statText)
{
  const qsizetype close = statText.lastIndexOf(')');
  if (close < 0)
    return std::nullopt;
  // After the name: state ppid pgrp session tty_nr tpgid flags minflt
  // cminflt majflt cmajflt utime stime ...
  const QList<QByteArray> fields = statText.mid(close + 1).simplified().split(' ');
  constexpr int UTime = 11;
  constexpr int STime = 12;
  if (fields.size() <= STime)
    return std::nullopt;
  bool okUser = false;
  bool okSystem = false;
  const quint64 user = fields[UTime].toULongLong(&okUser);
  const quint64 system = fields[STime].toULongLong(&okSystem);
  if (!okUser || !okSystem)
    return std::nullopt;
  return user + system;
}

std::optional<quint64> cpuTicks(qint64 pid)
{
  QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
  if (pid <= 0 || !file.open(QIODevice::ReadOnly))
    return std::nullopt;
  return cpuTicks(file.readAll());
}

long ticksPerSecond()
{
  return ::sysconf(_SC_CLK_TCK);
}
} // namespace ProcStat
