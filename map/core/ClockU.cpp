#include "ClockU.h"

namespace
{
class TSystemClock : public TClock
{
public:
  QDateTime Now() const override { return QDateTime::currentDateTime(); }
};

std::unique_ptr<TClock>& Current()
{
  static std::unique_ptr<TClock> clock = std::make_unique<TSystemClock>();
  return clock;
}
}

namespace Clock
{
QDateTime Now()
{
  return Current()->Now();
}

std::unique_ptr<TClock> Set(std::unique_ptr<TClock> clock)
{
  if (!clock)
    clock = std::make_unique<TSystemClock>();
  std::swap(clock, Current());
  return clock;
}

qint64 SecondsBetween(const QDateTime& from, const QDateTime& to)
{
  // Unsigned span, like the classic SecondsBetween: a clock set back counts too.
  return qAbs(from.msecsTo(to)) / 1000;
}
}
