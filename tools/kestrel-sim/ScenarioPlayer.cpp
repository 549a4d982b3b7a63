#include "ScenarioPlayer.h"

#include "FeedServer.h"

#include <cmath>

namespace
{
// Mapwright drops a longer frame together with the link.
constexpr qsizetype MaxFrameBytes = 16000;
// A pass shorter than this would make --loop spin.
constexpr qint64 MinPassMs = 1000;

// Wall milliseconds until a scenario time, for the timer.
int wallDelayMs(qint64 scenarioMs, double speed)
{
  constexpr double MaxDelayMs = 24.0 * 3600 * 1000;
  return int(std::min(std::ceil(double(scenarioMs) / speed), MaxDelayMs));
}
} // namespace

ScenarioPlayer::ScenarioPlayer(Scenario scenario, FeedServer* server, QObject* parent)
    : QObject(parent), FScenario(std::move(scenario)), FServer(server)
{
  FTimer.setSingleShot(true);
  FTimer.setTimerType(Qt::PreciseTimer);
  connect(&FTimer, &QTimer::timeout, this, &ScenarioPlayer::playDue);
  connect(FServer, &FeedServer::clientConnected, this, &ScenarioPlayer::onConnected);
}

qint64 ScenarioPlayer::scenarioNowMs() const
{
  return qint64(std::floor(double(FClock.elapsed()) * FSpeed));
}

void ScenarioPlayer::stop()
{
  FTimer.stop();
  FStopped = true;
}

void ScenarioPlayer::onConnected()
{
  if (FStopped)
    return;
  if (!FStarted)
  {
    FStarted = true;
    FClock.start();
    Q_EMIT passStarted(FPass);
    playDue();
    return;
  }
  const QList<QByteArray> missed = std::exchange(FMissedRaw, {});
  for (const QByteArray& frame : missed)
    FServer->send(frame);
  // Every reconnection gets the present state: the peer may be a fresh
  // mapwright that knows nobody yet.
  if (!FLatest.isEmpty())
    sendReports(FLatest);
}

void ScenarioPlayer::playDue()
{
  if (FStopped)
    return;
  if (FFinished || FScenario.frames.isEmpty())
  {
    if (!FFinished)
    {
      FFinished = true;
      Q_EMIT finished();
    }
    return;
  }
  const qint64 now = scenarioNowMs();
  for (;;)
  {
    if (FNext == FScenario.frames.size())
    {
      if (!FLoop)
      {
        FFinished = true;
        Q_EMIT finished();
        return;
      }
      const qint64 nextPass = FPassStartMs + std::max(FScenario.lengthMs, MinPassMs);
      if (nextPass > now)
      {
        FTimer.start(wallDelayMs(nextPass - now, FSpeed));
        return;
      }
      FPassStartMs = nextPass;
      FNext = 0;
      Q_EMIT passStarted(++FPass);
    }
    const ScenarioFrame& frame = FScenario.frames[FNext];
    const qint64 due = FPassStartMs + frame.atMs;
    if (due > now)
    {
      FTimer.start(wallDelayMs(due - now, FSpeed));
      return;
    }
    ++FNext;
    play(frame);
  }
}

void ScenarioPlayer::play(const ScenarioFrame& frame)
{
  if (frame.isRaw())
  {
    if (!FServer->send(frame.raw))
      FMissedRaw.append(frame.raw);
    return;
  }
  for (const MarkerReport& r : frame.reports)
  {
    const auto it = FLatestIndex.constFind(r.id);
    if (it == FLatestIndex.cend())
    {
      FLatestIndex.insert(r.id, FLatest.size());
      FLatest.append(r);
    }
    else
      FLatest[*it] = r;
  }
  // Without a connection the reports live on in FLatest only.
  if (FServer->isConnected())
    sendReports(frame.reports);
}

void ScenarioPlayer::sendReports(const QList<MarkerReport>& reports)
{
  // Split into frames mapwright accepts; a dozen people fit in one.
  QList<MarkerReport> chunk;
  qsizetype chunkBytes = 0;
  for (const MarkerReport& r : reports)
  {
    const qsizetype bytes = KestrelFrame::markers({r}, FLocale).size();
    if (!chunk.isEmpty() && chunkBytes + bytes > MaxFrameBytes)
    {
      FServer->send(KestrelFrame::markers(chunk, FLocale));
      chunk.clear();
      chunkBytes = 0;
    }
    chunk.append(r);
    chunkBytes += bytes;
  }
  if (!chunk.isEmpty())
    FServer->send(KestrelFrame::markers(chunk, FLocale));
}
