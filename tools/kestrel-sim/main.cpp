// kestrel-sim: a stand-in for the parent program, for demos and for trying
// mapwright by hand. See README.md beside this file.

#include "ConsoleLog.h"
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
    "       kestrel-sim --help | --version\n";
const char* const HelpEnd =
    "\n"
    "Example:\n"
    "  kestrel-sim --config build/demo-config --scenario data/demo/scenario.txt\n"
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
  cli.addOptions({config, mode, port, scenario, loop, mapwright, noLaunch, speed, verbose});
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

  if (cli.isSet(scenario))
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
    return usageError(QStringLiteral("--loop needs --scenario"));

  SimSession session(std::move(options));
  QObject::connect(&session, &SimSession::done, &app, &QCoreApplication::exit);
  if (!session.start())
    return 2;
  return app.exec();
}
