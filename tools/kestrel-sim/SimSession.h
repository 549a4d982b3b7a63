#pragma once

#include "FeedServer.h"
#include "ScenarioPlayer.h"
#include "SignalWatcher.h"

#include <QObject>
#include <QProcess>
#include <QTimer>

#include <memory>
#include <optional>

struct SimOptions
{
  QString configDir;
  QString mode = QStringLiteral("RunTime");
  quint16 port = 0;
  std::optional<Scenario> scenario;
  bool loop = false;
  double speed = 1;
  QString mapwright;
  bool launch = true;
  bool verbose = false;
};

// One run of the sample parent: listen, launch mapwright, play the
// scenario, log both directions, and see mapwright out on a signal.
class SimSession : public QObject
{
  Q_OBJECT

public:
  explicit SimSession(SimOptions options, QObject* parent = nullptr);

  // Returns false, having said why on stderr, when the run cannot start.
  bool start();

Q_SIGNALS:
  void done(int exitCode);

private:
  void onConnected(bool replacedOlder);
  void onSignal(int signalNumber);
  void onMapwrightFinished(int exitCode, QProcess::ExitStatus status);
  void onShutdownTimeout();
  void sendShutdown();
  void finish(int exitCode);

  SimOptions FOptions;
  FeedServer FServer;
  std::unique_ptr<ScenarioPlayer> FPlayer;
  SignalWatcher FSignals;
  QProcess FMapwright;
  QTimer FShutdownTimer;
  bool FShutdownRequested = false;
  bool FShutdownSent = false;
  bool FTerminated = false;
  bool FFinished = false;
};
