// mapwright-bench-idle-link: CPU cost of mapwright while its feed link is
// up and quiet. Exit 0 when measured, 1 when the measurement failed, and
// with --check 3 when the median is 1 % of one core or more.

#include "IdleLinkBench.h"
#include "ProcStat.h"
#include "SignalWatcher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>

#include <csignal>
#include <cstdio>

namespace
{
constexpr double TargetPercent = 1.0;

void say(const QString& text)
{
  std::fputs(qPrintable(text + QLatin1Char('\n')), stdout);
  std::fflush(stdout);
}
} // namespace

int main(int argc, char* argv[])
{
  QCoreApplication app(argc, argv);
  QCoreApplication::setApplicationName(QStringLiteral("mapwright-bench-idle-link"));

  QCommandLineParser cli;
  cli.setApplicationDescription(QStringLiteral("CPU time of mapwright with a connected, idle feed link."));
  cli.addHelpOption();
  const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("Length of the idle window (default 10)."),
                                   QStringLiteral("N"), QStringLiteral("10"));
  const QCommandLineOption runs(QStringLiteral("runs"), QStringLiteral("Number of launches (default 3)."),
                                QStringLiteral("N"), QStringLiteral("3"));
  const QCommandLineOption platform(QStringLiteral("platform"),
                                    QStringLiteral("QT_QPA_PLATFORM for mapwright (default offscreen)."),
                                    QStringLiteral("NAME"), QStringLiteral("offscreen"));
  const QCommandLineOption mapwright(QStringLiteral("mapwright"),
                                     QStringLiteral("Program to measure (default: mapwright beside this tool)."),
                                     QStringLiteral("PATH"));
  const QCommandLineOption check(QStringLiteral("check"),
                                 QStringLiteral("Exit with 3 when the median reaches 1 % of one core."));
  const QCommandLineOption verbose(QStringLiteral("verbose"),
                                   QStringLiteral("Show mapwright's output and every message."));
  cli.addOptions({seconds, runs, platform, mapwright, check, verbose});
  cli.process(app);

  IdleLinkBench::Options options;
  bool okSeconds = false;
  bool okRuns = false;
  options.seconds = cli.value(seconds).toInt(&okSeconds);
  options.runs = cli.value(runs).toInt(&okRuns);
  if (!okSeconds || options.seconds < 1 || options.seconds > 3600 || !okRuns || options.runs < 1 || options.runs > 100)
  {
    std::fputs("mapwright-bench-idle-link: --seconds takes 1 to 3600, --runs 1 to 100\n", stderr);
    return 1;
  }
  options.platform = cli.value(platform);
  options.verbose = cli.isSet(verbose);
  options.mapwright = cli.isSet(mapwright)
                          ? cli.value(mapwright)
                          : QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("mapwright"));

  IdleLinkBench bench(options);
  SignalWatcher signalWatcher({SIGINT, SIGTERM});
  QObject::connect(&signalWatcher, &SignalWatcher::caught, &bench, &IdleLinkBench::abort);

  const long ticks = ProcStat::ticksPerSecond();
  say(QStringLiteral("%1: %2 run(s) of %3 s idle, QT_QPA_PLATFORM=%4, %5 ticks/s (resolution %6 % of one core)")
          .arg(options.mapwright)
          .arg(options.runs)
          .arg(options.seconds)
          .arg(options.platform)
          .arg(ticks)
          .arg(100.0 / double(ticks) / options.seconds, 0, 'f', 2));

  QList<double> percents;
  QList<double> cpus;
  QList<double> sleepPercents;
  QList<double> sleepCpus;
  for (int i = 1; i <= options.runs; ++i)
  {
    const auto run = bench.runOnce();
    if (!run)
    {
      std::fprintf(stderr, "run %d failed: %s\n", i, qPrintable(bench.error()));
      return 1;
    }
    say(QStringLiteral("run %1: mapwright %2 s CPU in %3 s = %4 % of one core, %5 pulse(s)%6 | sleep %7 s = %8 %")
            .arg(i)
            .arg(run->cpuSeconds, 0, 'f', 3)
            .arg(run->wallSeconds, 0, 'f', 2)
            .arg(run->percent(), 0, 'f', 2)
            .arg(run->pulses)
            .arg(run->shutdownHonoured ? QString() : QStringLiteral(", ignored SHUTDOWN (killed)"))
            .arg(run->sleepCpuSeconds, 0, 'f', 3)
            .arg(run->sleepPercent(), 0, 'f', 2));
    percents.append(run->percent());
    cpus.append(run->cpuSeconds);
    sleepPercents.append(run->sleepPercent());
    sleepCpus.append(run->sleepCpuSeconds);
  }

  const double medianPercent = median(percents);
  say(QStringLiteral("median: mapwright %1 % of one core (%2 s CPU per %3 s); sleep baseline %4 % (%5 s)")
          .arg(medianPercent, 0, 'f', 2)
          .arg(median(cpus), 0, 'f', 3)
          .arg(options.seconds)
          .arg(median(sleepPercents), 0, 'f', 2)
          .arg(median(sleepCpus), 0, 'f', 3));
  // scripts/bench's table row, in the format of BenchRow.
  std::printf("bench-row\tidle link: CPU ms per %d s\t%.2f\tidle sleep process\t%.2f\n", options.seconds,
              median(cpus) * 1000, median(sleepCpus) * 1000);
  std::fflush(stdout);
  const bool met = medianPercent < TargetPercent;
  say(QStringLiteral("target: under %1 % of one core: %2").arg(TargetPercent).arg(met ? "met" : "NOT met"));
  return cli.isSet(check) && !met ? 3 : 0;
}
