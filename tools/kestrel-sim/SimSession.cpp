#include "SimSession.h"

#include "ConfigPort.h"
#include "ConsoleLog.h"

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace
{
constexpr int ShutdownGraceMs = 10'000;
constexpr int TerminateGraceMs = 3'000;
} // namespace

SimSession::SimSession(SimOptions options, QObject* parent)
    : QObject(parent), FOptions(std::move(options)), FSignals({SIGINT, SIGTERM})
{
  connect(&FServer, &FeedServer::clientConnected, this, &SimSession::onConnected);
  connect(&FServer, &FeedServer::clientDisconnected, this, [this] {
    ConsoleLog::line(QStringLiteral("-- connection closed"));
    if (FShutdownSent && !FOptions.launch)
      finish(0);
  });
  connect(&FServer, &FeedServer::messageReceived, this, [](const QByteArray& message) {
    ConsoleLog::line(QStringLiteral("<- ") + QString::fromLatin1(message));
  });
  connect(&FServer, &FeedServer::frameSent, this, [this](const QByteArray& frame) {
    ConsoleLog::line(QStringLiteral("-> ") +
                     (FOptions.verbose ? QString::fromLatin1(frame) : KestrelFrame::describe(frame)));
  });
  connect(&FServer, &FeedServer::overlongMessage, this, [] {
    ConsoleLog::line(QStringLiteral("-- mapwright sent a message without an end; dropped"));
  });
  connect(&FSignals, &SignalWatcher::caught, this, &SimSession::onSignal);

  FShutdownTimer.setSingleShot(true);
  connect(&FShutdownTimer, &QTimer::timeout, this, &SimSession::onShutdownTimeout);

  if (FOptions.scenario)
  {
    FPlayer = std::make_unique<ScenarioPlayer>(std::move(*FOptions.scenario), &FServer);
    FOptions.scenario.reset();
    FPlayer->setSpeed(FOptions.speed);
    FPlayer->setLoop(FOptions.loop);
    connect(FPlayer.get(), &ScenarioPlayer::passStarted, this, [](int pass) {
      ConsoleLog::line(QStringLiteral("-- scenario pass %1 starts").arg(pass));
    });
    connect(FPlayer.get(), &ScenarioPlayer::finished, this, [] {
      ConsoleLog::line(QStringLiteral("-- scenario played; the link stays open"));
    });
  }

  FMapwright.setProcessChannelMode(QProcess::ForwardedChannels);
  // Own process group, so a Ctrl-C in the terminal reaches only the sim,
  // which then asks for a proper SHUTDOWN; and no orphan if the sim dies.
  FMapwright.setChildProcessModifier([] {
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  });
  connect(&FMapwright, &QProcess::finished, this, &SimSession::onMapwrightFinished);
  connect(&FMapwright, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
    if (error == QProcess::FailedToStart)
      ConsoleLog::error(QStringLiteral("kestrel-sim: cannot start %1: %2").arg(FOptions.mapwright, FMapwright.errorString()));
  });
}

bool SimSession::start()
{
  QString error;
  if (!FServer.listen(FOptions.port, &error))
  {
    ConsoleLog::error(QStringLiteral("kestrel-sim: cannot listen on 127.0.0.1:%1: %2").arg(FOptions.port).arg(error));
    return false;
  }
  if (!ConfigPort::write(FOptions.configDir, FServer.port(), &error))
  {
    ConsoleLog::error(QStringLiteral("kestrel-sim: ") + error);
    return false;
  }
  ConsoleLog::line(QStringLiteral("-- listening on 127.0.0.1:%1, port written to %2")
                       .arg(FServer.port())
                       .arg(ConfigPort::iniPath(FOptions.configDir)));
  if (!FOptions.launch)
  {
    ConsoleLog::line(QStringLiteral("-- waiting for mapwright: mapwright %1 %2").arg(FOptions.configDir, FOptions.mode));
    return true;
  }
  FMapwright.start(FOptions.mapwright, {FOptions.configDir, FOptions.mode});
  if (!FMapwright.waitForStarted(10'000))
    return false; // errorOccurred has reported it
  ConsoleLog::line(QStringLiteral("-- started %1 %2 %3 (pid %4)")
                       .arg(FOptions.mapwright, FOptions.configDir, FOptions.mode)
                       .arg(FMapwright.processId()));
  return true;
}

void SimSession::onConnected(bool replacedOlder)
{
  ConsoleLog::line(replacedOlder ? QStringLiteral("-- new connection replaces the older one")
                                 : QStringLiteral("-- connection up"));
  if (FShutdownRequested)
    sendShutdown();
}

void SimSession::onSignal(int signalNumber)
{
  const QString name = signalNumber == SIGINT ? QStringLiteral("SIGINT") : QStringLiteral("SIGTERM");
  if (FShutdownRequested)
  {
    // A second signal: the user wants out now.
    ConsoleLog::line(QStringLiteral("-- %1 again: not waiting any longer").arg(name));
    if (FOptions.launch && FMapwright.state() != QProcess::NotRunning)
    {
      FTerminated = true;
      FMapwright.kill();
    }
    else
      finish(1);
    return;
  }
  FShutdownRequested = true;
  ConsoleLog::line(QStringLiteral("-- %1: asking mapwright to shut down").arg(name));
  if (FPlayer)
    FPlayer->stop();
  if (!FOptions.launch && !FServer.isConnected())
    return finish(0);
  if (FServer.isConnected())
    sendShutdown();
  else
    ConsoleLog::line(QStringLiteral("-- no connection; SHUTDOWN goes out when mapwright connects"));
  FShutdownTimer.start(ShutdownGraceMs);
}

void SimSession::sendShutdown()
{
  if (FServer.send(KestrelFrame::command(QStringLiteral("SHUTDOWN"))))
    FShutdownSent = true;
}

void SimSession::onShutdownTimeout()
{
  if (!FOptions.launch)
  {
    ConsoleLog::line(QStringLiteral("-- the peer did not close the link within 10 s"));
    return finish(1);
  }
  if (FMapwright.state() == QProcess::NotRunning)
    return;
  if (!FTerminated)
  {
    ConsoleLog::line(QStringLiteral("-- mapwright still runs 10 s after SHUTDOWN; sending SIGTERM"));
    FTerminated = true;
    FMapwright.terminate();
    FShutdownTimer.start(TerminateGraceMs);
  }
  else
  {
    ConsoleLog::line(QStringLiteral("-- mapwright ignores SIGTERM; killing it"));
    FMapwright.kill();
  }
}

void SimSession::onMapwrightFinished(int exitCode, QProcess::ExitStatus status)
{
  if (status == QProcess::CrashExit)
  {
    ConsoleLog::line(FTerminated ? QStringLiteral("-- mapwright was stopped") : QStringLiteral("-- mapwright crashed"));
    return finish(1);
  }
  ConsoleLog::line(QStringLiteral("-- mapwright exited with code %1").arg(exitCode));
  // Stopped by force means SHUTDOWN did not work, whatever the code says.
  finish(FTerminated ? 1 : exitCode);
}

void SimSession::finish(int exitCode)
{
  if (FFinished)
    return;
  FFinished = true;
  FShutdownTimer.stop();
  if (FPlayer)
    FPlayer->stop();
  Q_EMIT done(exitCode);
}
