#pragma once

#include <QDateTime>
#include <memory>

// The one source of "now" for timers and time stamps, so that tests can
// set the time instead of waiting for it.
class TClock
{
public:
  virtual ~TClock() = default;
  virtual QDateTime Now() const = 0;
};

namespace Clock
{
QDateTime Now();

// Replaces the clock; null restores the system clock. Returns the old one.
std::unique_ptr<TClock> Set(std::unique_ptr<TClock> clock);

// Whole seconds between two times, truncated; never negative.
qint64 SecondsBetween(const QDateTime& from, const QDateTime& to);
}

// A clock that stands still until moved; for tests.
class TManualClock : public TClock
{
public:
  explicit TManualClock(QDateTime start) : FNow(std::move(start)) {}
  QDateTime Now() const override { return FNow; }
  void Advance(qint64 msecs) { FNow = FNow.addMSecs(msecs); }
  void SetNow(const QDateTime& now) { FNow = now; }

private:
  QDateTime FNow;
};
