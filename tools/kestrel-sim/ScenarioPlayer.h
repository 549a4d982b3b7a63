#pragma once

#include "Scenario.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>

class FeedServer;

// Plays a scenario into a FeedServer. The time line starts with the first
// connection. Frames that fall due while no connection is up are not
// replayed one by one: a new connection gets the raw frames it missed and
// then one frame with the latest report of every person, which is also
// what a restarted mapwright needs to show the present state.
class ScenarioPlayer : public QObject
{
  Q_OBJECT

public:
  ScenarioPlayer(Scenario scenario, FeedServer* server, QObject* parent = nullptr);

  // Scenario seconds per wall second; 2 plays twice as fast.
  void setSpeed(double factor) { FSpeed = factor; }
  void setLoop(bool loop) { FLoop = loop; }
  void setLocale(const QLocale& locale) { FLocale = locale; }

  // No more frames after this, also on a new connection.
  void stop();

  bool hasStarted() const { return FStarted; }
  bool isFinished() const { return FFinished; }
  // Latest report of each person, in order of first appearance.
  const QList<MarkerReport>& latest() const { return FLatest; }

Q_SIGNALS:
  void passStarted(int pass);
  void finished();

private:
  void onConnected();
  void playDue();
  void play(const ScenarioFrame& frame);
  void sendReports(const QList<MarkerReport>& reports);
  qint64 scenarioNowMs() const;

  const Scenario FScenario;
  FeedServer* const FServer;
  QLocale FLocale;
  double FSpeed = 1;
  bool FLoop = false;

  QTimer FTimer;
  QElapsedTimer FClock;
  bool FStarted = false;
  bool FFinished = false;
  bool FStopped = false;
  qsizetype FNext = 0;
  qint64 FPassStartMs = 0;
  int FPass = 1;

  QList<MarkerReport> FLatest;
  QHash<QString, qsizetype> FLatestIndex;
  QList<QByteArray> FMissedRaw;
};
