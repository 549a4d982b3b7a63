#include "IdleLinkBench.h"

#include "ConfigPort.h"
#include "FeedServer.h"
#include "ProcStat.h"
#include "Scenario.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <sys/prctl.h>

namespace
{
constexpr int ConnectTimeoutMs = 30'000;
// Pulses come every 5 s; allow two missed ones.
constexpr int FirstPulseTimeoutMs = 15'000;
constexpr int ExitTimeoutMs = 10'000;
// The window starts half a pulse period after a Pulse, so that its count
// does not hang on whether a pulse falls just inside or outside an edge.
constexpr int PulsePhaseMs = 2'500;
constexpr qsizetype OutputTailBytes = 4096;

void dieWithParent()
{
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

// Ends a child still running when a run is given up.
struct StopOnExit
{
  QProcess& process;
  ~StopOnExit()
  {
    if (process.state() == QProcess::NotRunning)
      return;
    process.kill();
    process.waitForFinished(5'000);
  }
};
} // namespace

double median(QList<double> values)
{
  if (values.isEmpty())
    return 0;
  std::sort(values.begin(), values.end());
  const qsizetype mid = values.size() / 2;
  return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

IdleLinkBench::IdleLinkBench(Options options, QObject* parent) : QObject(parent), FOptions(std::move(options))
{
}

void IdleLinkBench::abort()
{
  FAborted = true;
  Q_EMIT changed();
}

std::nullopt_t IdleLinkBench::fail(const QString& message)
{
  FError = message;
  return std::nullopt;
}

bool IdleLinkBench::waitUntil(const std::function<bool()>& done, int timeoutMs)
{
  const QDeadlineTimer deadline(timeoutMs, Qt::PreciseTimer);
  while (!done())
  {
    if (FAborted || deadline.hasExpired())
      return false;
    QEventLoop loop;
    connect(this, &IdleLinkBench::changed, &loop, &QEventLoop::quit);
    QTimer::singleShot(std::max<qint64>(deadline.remainingTime(), 0), Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
  }
  return true;
}

std::optional<IdleLinkBench::Run> IdleLinkBench::runOnce()
{
  // Declared before the objects whose signals write them, so that they
  // outlive the QProcess destructor, which may still report an exit.
  int pulses = 0;
  bool connected = false;
  bool dropped = false;
  bool exited = false;
  QByteArray outputTail;

  QTemporaryDir config;
  QTemporaryDir runtime; // made with mode 0700, as a runtime directory must be
  if (!config.isValid() || !runtime.isValid())
    return fail(QStringLiteral("cannot make temporary directories"));
  QFile::setPermissions(runtime.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

  FeedServer server;
  QString error;
  if (!server.listen(0, &error))
    return fail(QStringLiteral("cannot listen: ") + error);
  if (!ConfigPort::write(config.path(), server.port(), &error))
    return fail(error);

  connect(&server, &FeedServer::clientConnected, this, [&] {
    connected = true;
    Q_EMIT changed();
  });
  connect(&server, &FeedServer::clientDisconnected, this, [&] {
    dropped = true;
    Q_EMIT changed();
  });
  connect(&server, &FeedServer::messageReceived, this, [&](const QByteArray& message) {
    if (FOptions.verbose)
      std::fprintf(stderr, "  <- %s\n", message.constData());
    if (message == "Pulse")
      ++pulses;
    Q_EMIT changed();
  });

  QProcess mapwright;
  const StopOnExit stopMapwright{mapwright};
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime.path());
  env.insert(QStringLiteral("QT_QPA_PLATFORM"), FOptions.platform);
  env.insert(QStringLiteral("MAPWRIGHT_DIALOGS"), QStringLiteral("stderr"));
  mapwright.setProcessEnvironment(env);
  mapwright.setChildProcessModifier(&dieWithParent);
  if (FOptions.verbose)
    mapwright.setProcessChannelMode(QProcess::ForwardedChannels);
  else
  {
    mapwright.setProcessChannelMode(QProcess::MergedChannels);
    connect(&mapwright, &QProcess::readyReadStandardOutput, this, [&] {
      outputTail += mapwright.readAllStandardOutput();
      if (outputTail.size() > OutputTailBytes)
        outputTail = outputTail.right(OutputTailBytes);
    });
  }
  connect(&mapwright, &QProcess::finished, this, [&] {
    exited = true;
    Q_EMIT changed();
  });
  auto failWithOutput = [&](const QString& message) {
    const QString tail = QString::fromLocal8Bit(outputTail).trimmed();
    return fail(tail.isEmpty() ? message : message + QStringLiteral("\nmapwright said:\n") + tail);
  };

  mapwright.start(FOptions.mapwright, {config.path(), QStringLiteral("RunTime")});
  if (!mapwright.waitForStarted(10'000))
    return fail(QStringLiteral("cannot start %1: %2").arg(FOptions.mapwright, mapwright.errorString()));

  if (!waitUntil([&] { return connected || exited; }, ConnectTimeoutMs) || exited)
    return failWithOutput(FAborted ? QStringLiteral("interrupted")
                          : exited ? QStringLiteral("mapwright exited before it connected")
                                   : QStringLiteral("mapwright did not connect within 30 s"));
  if (!waitUntil([&] { return pulses > 0 || exited; }, FirstPulseTimeoutMs) || exited)
    return failWithOutput(FAborted ? QStringLiteral("interrupted")
                          : exited ? QStringLiteral("mapwright exited before its first Pulse")
                                   : QStringLiteral("no Pulse within 15 s of connecting"));

  if (waitUntil([&] { return exited || dropped; }, PulsePhaseMs) || FAborted)
    return failWithOutput(FAborted ? QStringLiteral("interrupted") : QStringLiteral("the link did not stay up"));

  // The floor: a process that does nothing, measured over the same window.
  QProcess sleeper;
  const StopOnExit stopSleeper{sleeper};
  sleeper.setChildProcessModifier(&dieWithParent);
  sleeper.start(QStringLiteral("sleep"), {QString::number(FOptions.seconds + 60)});
  if (!sleeper.waitForStarted(10'000))
    return fail(QStringLiteral("cannot start sleep: ") + sleeper.errorString());

  const auto mapwrightBefore = ProcStat::cpuTicks(mapwright.processId());
  const auto sleepBefore = ProcStat::cpuTicks(sleeper.processId());
  QElapsedTimer window;
  window.start();
  const int pulsesBefore = pulses;
  // Nothing is sent; the window ends early only if something goes wrong.
  waitUntil([&] { return exited || dropped; }, FOptions.seconds * 1000);
  const auto mapwrightAfter = ProcStat::cpuTicks(mapwright.processId());
  const auto sleepAfter = ProcStat::cpuTicks(sleeper.processId());
  const qint64 wallMs = window.elapsed();

  if (FAborted)
    return fail(QStringLiteral("interrupted"));
  if (exited)
    return failWithOutput(QStringLiteral("mapwright exited during the idle window"));
  if (dropped)
    return failWithOutput(QStringLiteral("mapwright dropped the link during the idle window"));
  if (!mapwrightBefore || !mapwrightAfter || !sleepBefore || !sleepAfter)
    return fail(QStringLiteral("cannot read CPU times from /proc"));

  const double tick = 1.0 / double(ProcStat::ticksPerSecond());
  Run run;
  run.wallSeconds = double(wallMs) / 1000.0;
  run.cpuSeconds = double(*mapwrightAfter - *mapwrightBefore) * tick;
  run.sleepCpuSeconds = double(*sleepAfter - *sleepBefore) * tick;
  run.pulses = pulses - pulsesBefore;

  server.send(KestrelFrame::command(QStringLiteral("SHUTDOWN")));
  if (!waitUntil([&] { return exited; }, ExitTimeoutMs))
  {
    run.shutdownHonoured = false;
  }
  return run;
}
