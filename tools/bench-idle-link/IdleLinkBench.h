#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <optional>

// Measures what an idle, connected feed link costs mapwright in CPU time:
// launch it against a fresh configuration, wait for the link and its first
// Pulse, then read its CPU time before and after a quiet window. An idle
// `sleep` process is measured over the same window as the floor.
class IdleLinkBench : public QObject
{
  Q_OBJECT

public:
  struct Options
  {
    QString mapwright;
    QString platform = QStringLiteral("offscreen");
    int seconds = 10;
    int runs = 3;
    bool verbose = false;
  };

  struct Run
  {
    double wallSeconds = 0;
    double cpuSeconds = 0;
    double sleepCpuSeconds = 0;
    int pulses = 0;
    bool shutdownHonoured = true;

    double percent() const { return wallSeconds > 0 ? 100.0 * cpuSeconds / wallSeconds : 0; }
    double sleepPercent() const { return wallSeconds > 0 ? 100.0 * sleepCpuSeconds / wallSeconds : 0; }
  };

  explicit IdleLinkBench(Options options, QObject* parent = nullptr);

  // One launch, window and shutdown; nullopt with error() set on failure.
  std::optional<Run> runOnce();
  const QString& error() const { return FError; }

  // Stops a run in progress (for signals).
  void abort();

Q_SIGNALS:
  // Something happened that a waiting loop may want to look at.
  void changed();

private:
  bool waitUntil(const std::function<bool()>& done, int timeoutMs);
  std::nullopt_t fail(const QString& message);

  Options FOptions;
  QString FError;
  bool FAborted = false;
};

double median(QList<double> values);
