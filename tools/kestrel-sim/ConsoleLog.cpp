#include "ConsoleLog.h"

#include <QTime>

#include <cstdio>

namespace ConsoleLog
{
void line(const QString& text)
{
  const QByteArray out = (QTime::currentTime().toString(QStringLiteral("hh:mm:ss.zzz ")) + text).toLocal8Bit() + '\n';
  std::fwrite(out.constData(), 1, size_t(out.size()), stdout);
  std::fflush(stdout);
}

void error(const QString& text)
{
  const QByteArray out = text.toLocal8Bit() + '\n';
  std::fwrite(out.constData(), 1, size_t(out.size()), stderr);
  std::fflush(stderr);
}
} // namespace ConsoleLog
