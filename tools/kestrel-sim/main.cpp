// kestrel-sim: a stand-in for the parent program, for demos and for trying
// mapwright by hand. See README.md beside this file.

#include "ConsoleLog.h"
#include "JournalReplay.h"
#include "SimSession.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace
{
const QStringList Modes{"RunTime", "Config", "Put", "Get", "Test"};

// Qt's own listing of the options, between these.
const char* const HelpUsage =
    "Usage: kestrel-sim --config DIR [--mode WORD] [--port N] [--scenario FILE] [--loop]\n"
    "                   [--speed F] [--mapwright PATH] [--no-launch] [--verbose]\n"
    "       kestrel-sim --config DIR --replay JOURNAL [--from TIME] [--speed F] [...]\n"
    "       kestrel-sim --help | --version\n";
const char* const HelpEnd =
    "\n"
    "Example:\n"
    "  kestrel-sim --config build/demo-config --scenario data/demo/scenario.txt\n"
    "  kestrel-sim --config build/demo-config --replay JOURNAL --from 12:04:30 --speed 4\n"
    "\n"
    "TIME for --from is a time of day as the journal writes it (12:04:30,\n"
    "12:04:30.250 or 12:04; a time a minute or more before the journal's first\n"
    "frame is the next day's), a whole date and time as written\n"
    "(2026-11-23T12:04:30.250), or seconds from the journal's first frame (90,\n"
    "90.5). The frames of the 15 s before it go out at once.\n"
    "\n"
    "Exit codes:\n"
    "  N  mapwright's own exit code, when it ended by itself (SHUTDOWN included).\n"
    "  0  With --no-launch: the link closed after SHUTDOWN, or none was up.\n"
    "  1  mapwright crashed or had to be stopped; with --no-launch, the link\n"
    "     stayed up 10 s after SHUTDOWN or a second signal came.\n"
    "  2  A bad command line, scenario or launch.\n";

int usageError(const QString& message)
{
  ConsoleLog::error(QStringLiteral("kestrel-sim: ") + message);
  return 2;
}
} // namespace

int main(int argc, char* argv[])
{
  QCoreApplication app(argc, argv);
  QCoreApplication::setApplicationName(QStringLiteral("kestrel-sim"));
  QCoreApplication::setApplicationVersion(QStringLiteral(MAPWRIGHT_VERSION));

  QCommandLineParser cli;
  cli.setApplicationDescription(QStringLiteral(
      "Sample parent program for mapwright: listens on 127.0.0.1, launches mapwright,\n"
      "feeds it a scenario and prints what comes back. SIGINT or SIGTERM sends SHUTDOWN."));
  // Our own, not Qt's, for the wording every program here uses.
  const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Print this help and exit."));
  const QCommandLineOption version({QStringLiteral("v"), QStringLiteral("version")},
                                   QStringLiteral("Print the version and exit."));
  cli.addOptions({help, version});
  const QCommandLineOption config(QStringLiteral("config"),
                                  QStringLiteral("Configuration directory for mapwright (required); "
                                                 "the port is written to DIR/Maps/Mapwright.ini."),
                                  QStringLiteral("DIR"));
  const QCommandLineOption mode(QStringLiteral("mode"), QStringLiteral("Mode word for mapwright (default RunTime)."),
                                QStringLiteral("WORD"), QStringLiteral("RunTime"));
  const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("Port to listen on; 0 picks a free one."),
                                QStringLiteral("N"), QStringLiteral("0"));
  const QCommandLineOption scenario(QStringLiteral("scenario"), QStringLiteral("Scenario file to play."),
                                    QStringLiteral("FILE"));
  const QCommandLineOption loop(QStringLiteral("loop"), QStringLiteral("Play the scenario again and again."));
  const QCommandLineOption mapwright(QStringLiteral("mapwright"),
                                     QStringLiteral("Program to launch (default: mapwright beside kestrel-sim)."),
                                     QStringLiteral("PATH"));
  const QCommandLineOption noLaunch(QStringLiteral("no-launch"),
                                    QStringLiteral("Only listen and play; start mapwright by hand."));
  const QCommandLineOption speed(QStringLiteral("speed"), QStringLiteral("Time factor; 2 plays twice as fast."),
                                 QStringLiteral("F"), QStringLiteral("1"));
  const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("Print sent frames whole."));
  const QCommandLineOption replay(QStringLiteral("replay"),
                                  QStringLiteral("Play a journal of mapwright back with its own timing."),
                                  QStringLiteral("JOURNAL"));
  const QCommandLineOption from(QStringLiteral("from"), QStringLiteral("Where the replay starts (see TIME below)."),
                                QStringLiteral("TIME"));
  cli.addOptions({config, mode, port, scenario, loop, mapwright, noLaunch, speed, verbose, replay, from});
  // parse(), not process(): a bad command line ends with 2, as every other
  // mistake does, not with Qt's 1.
  if (!cli.parse(QCoreApplication::arguments()))
    return usageError(cli.errorText());
  if (cli.isSet(version))
    cli.showVersion();
  if (cli.isSet(help))
  {
    // Qt's text without its generic first line.
    const QString options = cli.helpText().section(QLatin1Char('\n'), 1);
    std::fputs(HelpUsage, stdout);
    std::fputs(("\n" + options).toLocal8Bit().constData(), stdout);
    std::fputs(HelpEnd, stdout);
    return 0;
  }

  SimOptions options;
  if (!cli.isSet(config))
    return usageError(QStringLiteral("--config DIR is required"));
  options.configDir = QDir(cli.value(config)).absolutePath();
  options.mode = cli.value(mode);
  if (!Modes.contains(options.mode))
    ConsoleLog::error(QStringLiteral("kestrel-sim: note: \"%1\" is none of %2; passing it on anyway")
                          .arg(options.mode, Modes.join(QStringLiteral(", "))));

  bool ok = false;
  const uint portValue = cli.value(port).toUInt(&ok);
  if (!ok || portValue > 65535)
    return usageError(QStringLiteral("--port takes 0 to 65535"));
  options.port = quint16(portValue);

  options.speed = QLocale::c().toDouble(cli.value(speed), &ok);
  if (!ok || !(options.speed > 0) || options.speed > 1e6)
    return usageError(QStringLiteral("--speed takes a number above 0"));

  options.loop = cli.isSet(loop);
  options.launch = !cli.isSet(noLaunch);
  options.verbose = cli.isSet(verbose);
  options.mapwright = cli.isSet(mapwright) ? cli.value(mapwright)
                                           : QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("mapwright"));

  if (cli.isSet(replay) && cli.isSet(scenario))
    return usageError(QStringLiteral("--replay and --scenario exclude each other"));
  if (cli.isSet(from) && !cli.isSet(replay))
    return usageError(QStringLiteral("--from needs --replay"));
  if (cli.isSet(replay))
  {
    const QString path = cli.value(replay);
    const TJournalContents journal = JournalFormat::ReadFile(path);
    if (!journal.Error.isEmpty())
      return usageError(journal.Error);
    if (!journal.BrokenLines.isEmpty())
    {
      // The rest still plays; say where the damage is.
      QStringList numbers;
      for (int line : journal.BrokenLines.mid(0, 100))
        numbers << QString::number(line);
      if (journal.BrokenLines.size() > 100)
        numbers << QStringLiteral("and %1 more").arg(journal.BrokenLines.size() - 100);
      ConsoleLog::error(QStringLiteral("kestrel-sim: %1: skipped %2 broken line(s): %3")
                            .arg(path)
                            .arg(journal.BrokenLines.size())
                            .arg(numbers.join(QStringLiteral(", "))));
    }
    std::optional<QDateTime> start;
    if (cli.isSet(from))
    {
      start = JournalFormat::ResolveTime(cli.value(from), journal.Start());
      if (!start)
        return usageError(QStringLiteral("--from takes a time of day (12:04:30), a date and time as the journal "
                                         "writes it, or seconds from its start (90.5)"));
    }
    Scenario s = JournalReplay::toScenario(journal, start);
    if (!s.ok())
      return usageError(path + QStringLiteral(": ") + s.errors.first().message);
    ConsoleLog::line(QStringLiteral("-- replay %1: %2 frames from %3, %4 s")
                         .arg(path)
                         .arg(s.frames.size())
                         .arg(QString::fromLatin1(JournalFormat::TimeText(start.value_or(journal.Start()))))
                         .arg(double(s.lengthMs) / 1000.0));
    options.scenario = std::move(s);
  }
  else if (cli.isSet(scenario))
  {
    Scenario s = Scenario::load(cli.value(scenario));
    if (!s.ok())
    {
      for (const ScenarioError& e : s.errors)
        ConsoleLog::error(e.line > 0 ? QStringLiteral("%1:%2: %3").arg(cli.value(scenario)).arg(e.line).arg(e.message)
                                     : e.message);
      return 2;
    }
    ConsoleLog::line(QStringLiteral("-- scenario %1: %2 frames, %3 reports, %4 s")
                         .arg(cli.value(scenario))
                         .arg(s.frames.size())
                         .arg(s.reportCount())
                         .arg(double(s.lengthMs) / 1000.0));
    options.scenario = std::move(s);
  }
  else if (options.loop)
    return usageError(QStringLiteral("--loop needs --scenario or --replay"));

  SimSession session(std::move(options));
  QObject::connect(&session, &SimSession::done, &app, &QCoreApplication::exit);
  if (!session.start())
    return 2;
  return app.exec();
}
