#include "ConfigPort.h"
#include "FeedServer.h"
#include "FrameSplitter.h"
#include "JournalReplay.h"
#include "ProcStat.h"
#include "Scenario.h"
#include "ScenarioPlayer.h"

#include <QBuffer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

namespace
{
const QByteArray SampleFrame =
    "<KestrelMapData><LiveMarkers><Marker ID=\"20-01\" NAME=\"ALEX\" LOCATION=\"[0001] Dispatch Office\" "
    "STATUS=\"ON\" LAT=\"41.313296\" LON=\"-80.339481\" FIXSTATUS=\"GOOD\" FIXRADIUS=\"10\" INIT=\"TRUE\">"
    "</Marker></LiveMarkers></KestrelMapData>";

MarkerReport sampleReport()
{
  return {"20-01", "ALEX", "[0001] Dispatch Office", "ON", 41.313296, -80.339481, "GOOD", 10, true};
}

// The parent's side as mapwright sees it: frames ended by one CR.
class FakeMapwright
{
public:
  bool connectTo(quint16 port)
  {
    Socket.connectToHost(QHostAddress::LocalHost, port);
    return Socket.waitForConnected(5000);
  }

  QList<QByteArray> takeFrames(int count, int timeoutMs = 5000)
  {
    QElapsedTimer clock;
    clock.start();
    while (Frames.size() < count && clock.elapsed() < timeoutMs)
    {
      QTest::qWait(10);
      Buffer += Socket.readAll();
      qsizetype cr;
      while ((cr = Buffer.indexOf('\r')) >= 0)
      {
        Frames.append(Buffer.left(cr));
        Buffer.remove(0, cr + 1);
      }
    }
    const QList<QByteArray> taken = Frames.mid(0, std::min<qsizetype>(count, Frames.size()));
    Frames.remove(0, taken.size());
    return taken;
  }

  QTcpSocket Socket;
  QByteArray Buffer;
  QList<QByteArray> Frames;
};
} // namespace

class TestKestrelSim : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void splitterCutsOnEveryLineEnd_data();
  void splitterCutsOnEveryLineEnd();
  void splitterDropsRunawayText();
  void scenarioTimes_data();
  void scenarioTimes();
  void scenarioGroupsReportsOfOneTime();
  void scenarioNamesBadLines();
  void markerFramesFollowLocaleAndEscape();
  void iniPortKeepsOtherLines_data();
  void iniPortKeepsOtherLines();
  void iniPortWriteMakesMapsFolder();
  void procStatSkipsOddProcessNames();
  void playerCatchesUpAfterReconnect();
  void playerLoopsAtPassLength();
  void simShutsMapwrightDownOnSignal();
  void simPassesOnMapwrightExitCode();
  void simAnswersVersionAndRefusesUnknownOptions();
  void replayKeepsJournalTiming();
  void replayNamesBrokenLinesAndRefusesBadMoments();
};

void TestKestrelSim::splitterCutsOnEveryLineEnd_data()
{
  QTest::addColumn<QList<QByteArray>>("reads");
  QTest::addColumn<QList<QByteArray>>("messages");
  QTest::addColumn<QByteArray>("pending");

  using L = QList<QByteArray>;
  QTest::newRow("CR") << L{"Pulse\r"} << L{"Pulse"} << QByteArray();
  QTest::newRow("CR LF") << L{"Pulse\r\n"} << L{"Pulse"} << QByteArray();
  QTest::newRow("CR CR LF") << L{"Pulse\r\r\nNormal\r\r\n"} << L{"Pulse", "Normal"} << QByteArray();
  QTest::newRow("split over three reads") << L{"Sho", "wLocation(20-", "01)\r\r", "\n"} << L{"ShowLocation(20-01)"}
                                          << QByteArray();
  QTest::newRow("two in one read, third begun")
      << L{"Pulse\r\r\nMaximized\r\r\nMin"} << L{"Pulse", "Maximized"} << QByteArray("Min");
  QTest::newRow("end split from its text") << L{"Pulse", "\r", "\r\n"} << L{"Pulse"} << QByteArray();
  QTest::newRow("blanks trimmed, empty dropped") << L{"\r\n  Pulse \r\r\n \r\n"} << L{"Pulse"} << QByteArray();
  QTest::newRow("nothing ended yet") << L{"<GetModeCoordinates LAT=\"1\""} << L{}
                                     << QByteArray("<GetModeCoordinates LAT=\"1\"");
}

void TestKestrelSim::splitterCutsOnEveryLineEnd()
{
  QFETCH(QList<QByteArray>, reads);
  QFETCH(QList<QByteArray>, messages);
  QFETCH(QByteArray, pending);

  FrameSplitter splitter;
  QList<QByteArray> got;
  for (const QByteArray& read : reads)
    got += splitter.feed(read);
  QCOMPARE(got, messages);
  QCOMPARE(splitter.pending(), pending);
}

void TestKestrelSim::splitterDropsRunawayText()
{
  FrameSplitter splitter;
  QVERIFY(splitter.feed(QByteArray(FrameSplitter::MaxPending + 1, 'x')).isEmpty());
  QVERIFY(splitter.overflowed());
  QVERIFY(splitter.pending().isEmpty());
  // The link goes on working after the runaway text.
  QCOMPARE(splitter.feed("xx\r\r\nPulse\r\r\n"), (QList<QByteArray>{"xx", "Pulse"}));
}

void TestKestrelSim::scenarioTimes_data()
{
  QTest::addColumn<QString>("text");
  QTest::addColumn<qint64>("ms");

  QTest::newRow("seconds") << "12" << qint64(12'000);
  QTest::newRow("fraction") << "12.25" << qint64(12'250);
  QTest::newRow("minutes") << "1:02.5" << qint64(62'500);
  QTest::newRow("hours") << "1:00:02" << qint64(3'602'000);
  QTest::newRow("60 seconds in m:ss") << "0:60" << qint64(-1);
  QTest::newRow("60 minutes in h:mm:ss") << "1:60:00" << qint64(-1);
  QTest::newRow("sign") << "-1" << qint64(-1);
  QTest::newRow("comma") << "1,5" << qint64(-1);
  QTest::newRow("two points") << "1.2.3" << qint64(-1);
  QTest::newRow("empty") << "" << qint64(-1);
}

void TestKestrelSim::scenarioTimes()
{
  QFETCH(QString, text);
  QFETCH(qint64, ms);
  QCOMPARE(Scenario::parseTime(text), ms);
}

void TestKestrelSim::scenarioGroupsReportsOfOneTime()
{
  const Scenario s = Scenario::parse(
      "# header\r\n"
      "\r\n"
      "0     marker 20-01 | ALEX | [0001] Dispatch Office | ON | 41.313296 | -80.339481 | GOOD | 10 | TRUE\r\n"
      "0.0   marker 20-02 | SAM  | [0000] NS | ON | 41.3 | -80.3 | No Fix | 0\r\n"
      "  # an indented comment\n"
      "2.5   marker 20-01 | ALEX | [0000] NS | PANIC | 41.31 | -80.33 | POOR | 60 | FALSE\n"
      "+0    raw    <KestrelMapData><System><Command COMMAND=\"MINIMIZE\"/></System></KestrelMapData>\n"
      "0:02.5 marker 20-02 | SAM | [0000] NS | EVAC | 41.3 | -80.3 | LOCATOR | 15\n"
      "+1.5  command RESTORE\n"
      "0:10  end\n");
  QVERIFY2(s.ok(), qPrintable(s.errors.value(0).toString()));

  QCOMPARE(s.frames.size(), 5);
  QCOMPARE(s.frames[0].atMs, 0);
  QCOMPARE(s.frames[0].line, 3);
  QCOMPARE(s.frames[0].reports.size(), 2);
  QCOMPARE(s.frames[0].reports[0], sampleReport());
  QCOMPARE(s.frames[0].reports[1].fixStatus, QStringLiteral("No Fix"));
  QVERIFY(!s.frames[0].reports[1].init);

  // A raw frame between two reports of one time keeps them apart, in order.
  QCOMPARE(s.frames[1].atMs, 2500);
  QCOMPARE(s.frames[1].reports.size(), 1);
  QCOMPARE(s.frames[1].reports[0].status, QStringLiteral("PANIC"));
  QVERIFY(s.frames[2].isRaw());
  QCOMPARE(s.frames[2].atMs, 2500);
  QCOMPARE(s.frames[3].reports[0].fixStatus, QStringLiteral("LOCATOR"));
  QCOMPARE(s.frames[4].atMs, 4000);
  QCOMPARE(s.frames[4].raw, KestrelFrame::command("RESTORE"));
  QCOMPARE(s.lengthMs, 10'000);
  QCOMPARE(s.reportCount(), 4);

  // Without an end line a pass lasts until the last event.
  QCOMPARE(Scenario::parse("5 raw <a/>\n7.5 raw <b/>\n").lengthMs, 7500);
}

void TestKestrelSim::scenarioNamesBadLines()
{
  const Scenario s = Scenario::parse(
      "1 marker 20-01 | ALEX | [0001] X | ON | 41.3 | -80.3 | GOOD\n"           // 1: fields
      "2 marker 20-01 | ALEX | [0001] X | ON | 41,3 | -80.3 | GOOD | 10\n"      // 2: locale comma
      "3 marker 20-01 | ALEX | [0001] X | ON | 91 | -80.3 | GOOD | 10\n"        // 3: range
      "4 marker 20-01 | ALEX | [0001] X | ON | 41.3 | -80.3 | GOOD | ten\n"     // 4: radius
      "5 marker 20-01 | ALEX | [0001] X | ON | 41.3 | -80.3 | GOOD | 10 | true\n" // 5: INIT
      "6 marker  | ALEX | [0001] X | ON | 41.3 | -80.3 | GOOD | 10\n"          // 6: empty ID
      "7 wave hello\n"                                                          // 7: word
      "8\n"                                                                     // 8: no word
      "x raw <a/>\n"                                                            // 9: time
      "7 raw <a/>\n"                                                            // 10: backwards
      "9 raw <a>\xC3\xA9</a>\n"                                                 // 11: not ASCII
      "9 command REBOOT\n"                                                      // 12: command
      "9 raw <ok/>\n"                                                           // 13: fine
      "10 end\n"                                                                // 14
      "11 raw <late/>\n");                                                      // 15: after end
  QList<int> lines;
  for (const ScenarioError& e : s.errors)
    lines.append(e.line);
  QCOMPARE(lines, (QList<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 15}));
  QVERIFY(s.errors[0].message.contains("found 7"));
  QVERIFY(s.errors[1].message.contains("41,3"));
  QVERIFY(s.errors[9].message.contains("before"));
  QCOMPARE(s.errors[0].toString().left(8), QStringLiteral("line 1: "));
  // Good lines between bad ones still count.
  QCOMPARE(s.frames.size(), 1);
  QCOMPARE(s.frames[0].raw, QByteArray("<ok/>"));

  const Scenario missing = Scenario::load(QStringLiteral("/nonexistent/scenario.txt"));
  QCOMPARE(missing.errors.size(), 1);
  QCOMPARE(missing.errors[0].line, 0);
}

void TestKestrelSim::markerFramesFollowLocaleAndEscape()
{
  QCOMPARE(KestrelFrame::markers({sampleReport()}, QLocale::c()), SampleFrame);

  // Mapwright reads LAT and LON in the user's locale.
  const QByteArray german = KestrelFrame::markers({sampleReport()}, QLocale(QLocale::German, QLocale::Germany));
  QVERIFY(german.contains("LAT=\"41,313296\" LON=\"-80,339481\""));

  // No rounding to six places, and no group separators in any locale.
  MarkerReport precise = sampleReport();
  precise.lat = 41.31329617;
  precise.lon = -1234.5;
  const QByteArray p = KestrelFrame::markers({precise}, QLocale(QLocale::English, QLocale::UnitedStates));
  QVERIFY(p.contains("LAT=\"41.31329617\""));
  QVERIFY(p.contains("LON=\"-1234.5\""));

  // The link is ASCII: markup characters escaped, others as references.
  QCOMPARE(KestrelFrame::escapeAttribute(QStringLiteral("A&B \"C\" <D> Zo\u00EB \U0001F600")),
           QByteArray("A&amp;B &quot;C&quot; &lt;D&gt; Zo&#235; &#128512;"));

  QCOMPARE(KestrelFrame::describe(SampleFrame), QStringLiteral("LiveMarkers 1: 20-01 ON (%1 bytes)").arg(SampleFrame.size()));
  QCOMPARE(KestrelFrame::describe(KestrelFrame::command("SHUTDOWN")), QStringLiteral("System SHUTDOWN (79 bytes)"));
}

void TestKestrelSim::iniPortKeepsOtherLines_data()
{
  QTest::addColumn<QByteArray>("before");
  QTest::addColumn<QByteArray>("after");

  QTest::newRow("empty file") << QByteArray() << QByteArray("[Startup]\r\nTCPPort=4242\r\n");
  QTest::newRow("value replaced, CR LF kept")
      << QByteArray("; c\r\n[Startup]\r\nStartLat=41,3\r\nTCPPort=3300\r\nStartZoom=16\r\n\r\n[Maps]\r\nNatGeo=1\r\n")
      << QByteArray("; c\r\n[Startup]\r\nStartLat=41,3\r\nTCPPort=4242\r\nStartZoom=16\r\n\r\n[Maps]\r\nNatGeo=1\r\n");
  QTest::newRow("spelling and blanks of the key kept")
      << QByteArray("[ startup ]\n  tcpport = 3300 ; old\n") << QByteArray("[ startup ]\n  tcpport = 4242\n");
  QTest::newRow("missing key goes after the last key of the section")
      << QByteArray("[Startup]\nStartLat=1\n; note\n\n[Maps]\nTCPPort=1\n")
      << QByteArray("[Startup]\nStartLat=1\nTCPPort=4242\n; note\n\n[Maps]\nTCPPort=1\n");
  QTest::newRow("section without keys")
      << QByteArray("[Maps]\nA=1\n[Startup]") << QByteArray("[Maps]\nA=1\n[Startup]\nTCPPort=4242\n");
  QTest::newRow("missing section appended, last line ended")
      << QByteArray("[Maps]\r\nA=1") << QByteArray("[Maps]\r\nA=1\r\n[Startup]\r\nTCPPort=4242\r\n");
  QTest::newRow("only the first Startup section counts")
      << QByteArray("[Startup]\nX=1\n[Startup]\nTCPPort=1\n")
      << QByteArray("[Startup]\nX=1\nTCPPort=4242\n[Startup]\nTCPPort=1\n");
  QTest::newRow("commented key is no key")
      << QByteArray("[Startup]\n;TCPPort=1\n#TCPPort=2\n") << QByteArray("[Startup]\nTCPPort=4242\n;TCPPort=1\n#TCPPort=2\n");
  QTest::newRow("byte order mark before the header")
      << QByteArray("\xEF\xBB\xBF[Startup]\nTCPPort=1\n") << QByteArray("\xEF\xBB\xBF[Startup]\nTCPPort=4242\n");
  QTest::newRow("other bytes untouched")
      << QByteArray("[Features]\nSkinName=Caf\xE9\n[Startup]\nTCPPort=\n")
      << QByteArray("[Features]\nSkinName=Caf\xE9\n[Startup]\nTCPPort=4242\n");
}

void TestKestrelSim::iniPortKeepsOtherLines()
{
  QFETCH(QByteArray, before);
  QFETCH(QByteArray, after);
  QCOMPARE(ConfigPort::withPort(before, 4242), after);
}

void TestKestrelSim::iniPortWriteMakesMapsFolder()
{
  QTemporaryDir dir;
  QVERIFY(dir.isValid());
  const QString config = dir.filePath("cfg");
  QString error;
  QVERIFY2(ConfigPort::write(config, 5001, &error), qPrintable(error));
  QFile file(ConfigPort::iniPath(config));
  QVERIFY(file.open(QIODevice::ReadOnly));
  QCOMPARE(file.readAll(), QByteArray("[Startup]\r\nTCPPort=5001\r\n"));
  file.close();

  QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
  file.write("[Startup]\nStartZoom=16\nTCPPort=5001\n[Maps]\nOpenStreet=1\n");
  file.close();
  QVERIFY(ConfigPort::write(config, 5002, &error));
  QVERIFY(file.open(QIODevice::ReadOnly));
  QCOMPARE(file.readAll(), QByteArray("[Startup]\nStartZoom=16\nTCPPort=5002\n[Maps]\nOpenStreet=1\n"));
}

void TestKestrelSim::procStatSkipsOddProcessNames()
{
  // utime 120 and stime 34; the name holds blanks and a ")".
  const QByteArray stat = "4242 (map (x) wright) S 1 4242 4242 0 -1 4194560 900 0 0 0 120 34 0 0 20 0 5 0 100";
  QCOMPARE(ProcStat::cpuTicks(stat), std::optional<quint64>(154));
  QCOMPARE(ProcStat::cpuTicks(QByteArray("4242 (cut) S 1 2")), std::nullopt);
  QVERIFY(ProcStat::cpuTicks(QCoreApplication::applicationPid()).has_value());
  QVERIFY(ProcStat::ticksPerSecond() > 0);
}

void TestKestrelSim::playerCatchesUpAfterReconnect()
{
  const Scenario s = Scenario::parse(
      "0    marker A | ANN | [0000] NS | ON | 1 | 2 | GOOD | 5 | TRUE\n"
      "0    marker B | BOB | [0000] NS | ON | 3 | 4 | GOOD | 5\n"
      "0.2  raw <first/>\n"
      "2.0  marker A | ANN | [0000] NS | EVAC | 1.5 | 2 | GOOD | 5\n"
      "2.0  raw <missed/>\n"
      "2.2  marker B | BOB | [0000] NS | PAR | 3 | 4.5 | FAIR | 20\n");
  QVERIFY(s.ok());
  FeedServer server;
  QVERIFY(server.listen(0));
  ScenarioPlayer player(s, &server);
  player.setLocale(QLocale::c());
  QSignalSpy finished(&player, &ScenarioPlayer::finished);
  QSignalSpy messages(&server, &FeedServer::messageReceived);

  // The time line waits for the first connection.
  QTest::qWait(300);
  QVERIFY(!player.hasStarted());

  FakeMapwright first;
  QVERIFY(first.connectTo(server.port()));
  const QList<QByteArray> opening = first.takeFrames(2);
  QCOMPARE(opening.size(), 2);
  QCOMPARE(opening[0], KestrelFrame::markers({s.frames[0].reports}, QLocale::c()));
  QCOMPARE(opening[1], QByteArray("<first/>"));

  first.Socket.write("Pulse\r\r\nNor");
  first.Socket.write("mal\r\r\n");
  QTRY_COMPARE(messages.size(), 2);
  QCOMPARE(messages[1][0].toByteArray(), QByteArray("Normal"));

  first.Socket.disconnectFromHost();
  QTRY_VERIFY(!server.isConnected());
  QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 5000);

  // Back again: the raw frame it missed, then everybody's latest report.
  FakeMapwright second;
  QVERIFY(second.connectTo(server.port()));
  const QList<QByteArray> catchUp = second.takeFrames(2);
  QCOMPARE(catchUp.size(), 2);
  QCOMPARE(catchUp[0], QByteArray("<missed/>"));
  QCOMPARE(catchUp[1], KestrelFrame::markers({s.frames[2].reports[0], s.frames[4].reports[0]}, QLocale::c()));

  // A newer connection replaces the older one and gets the state too.
  QSignalSpy connected(&server, &FeedServer::clientConnected);
  FakeMapwright third;
  QVERIFY(third.connectTo(server.port()));
  QTRY_COMPARE(connected.size(), 1);
  QCOMPARE(connected[0][0].toBool(), true);
  QTRY_COMPARE(second.Socket.state(), QAbstractSocket::UnconnectedState);
  QCOMPARE(third.takeFrames(1), QList<QByteArray>{catchUp[1]});
  QVERIFY(third.takeFrames(1, 300).isEmpty());
}

void TestKestrelSim::playerLoopsAtPassLength()
{
  const Scenario s = Scenario::parse("0 raw <a/>\n0.2 raw <b/>\n0.5 end\n");
  FeedServer server;
  QVERIFY(server.listen(0));
  ScenarioPlayer player(s, &server);
  player.setLoop(true);
  player.setSpeed(2);
  QSignalSpy passes(&player, &ScenarioPlayer::passStarted);

  FakeMapwright peer;
  QElapsedTimer clock;
  clock.start();
  QVERIFY(peer.connectTo(server.port()));
  QCOMPARE(peer.takeFrames(5), (QList<QByteArray>{"<a/>", "<b/>", "<a/>", "<b/>", "<a/>"}));
  // Two passes of 0.5 s at double speed: about 500 ms, not at once.
  QVERIFY2(clock.elapsed() >= 450, qPrintable(QString::number(clock.elapsed())));
  QCOMPARE(passes.size(), 3);
}

namespace
{
// Runs kestrel-sim with this test binary as its mapwright.
struct SimRun
{
  explicit SimRun(const QString& fakeExitCode)
  {
    QVERIFY(Config.isValid());
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("TST_FAKE_MAPWRIGHT", "1");
    env.insert("TST_FAKE_EXIT", fakeExitCode);
    Sim.setProcessEnvironment(env);
    Sim.setProcessChannelMode(QProcess::MergedChannels);
    Sim.start(KESTREL_SIM_EXE, {"--config", Config.path(), "--mapwright", QCoreApplication::applicationFilePath()});
    QVERIFY(Sim.waitForStarted(5000));
  }

  bool waitForOutput(const QByteArray& text)
  {
    QElapsedTimer clock;
    clock.start();
    while (!Output.contains(text) && clock.elapsed() < 15000)
    {
      Sim.waitForReadyRead(100);
      Output += Sim.readAll();
    }
    return Output.contains(text);
  }

  QTemporaryDir Config;
  QProcess Sim;
  QByteArray Output;
};

// A mapwright reduced to its link: reads the port, connects, pulses once,
// and exits with TST_FAKE_EXIT on SHUTDOWN, or at once if that is "now:N".
int fakeMapwright(int argc, char* argv[])
{
  QCoreApplication app(argc, argv);
  QFile ini(ConfigPort::iniPath(app.arguments().value(1)));
  if (!ini.open(QIODevice::ReadOnly))
    return 90;
  const auto port = QRegularExpression("TCPPort=(\\d+)").match(QString::fromLatin1(ini.readAll())).captured(1).toUShort();
  QTcpSocket socket;
  socket.connectToHost(QHostAddress::LocalHost, port);
  if (!socket.waitForConnected(5000))
    return 91;
  socket.write("Pulse\r\r\n");
  socket.waitForBytesWritten(1000);
  QString exitCode = qEnvironmentVariable("TST_FAKE_EXIT");
  if (exitCode.startsWith("now:"))
    return exitCode.mid(4).toInt();
  QByteArray received;
  while (!received.contains("COMMAND=\"SHUTDOWN\"") && socket.waitForReadyRead(20000))
    received += socket.readAll();
  return received.contains("SHUTDOWN") ? exitCode.toInt() : 92;
}
} // namespace

void TestKestrelSim::simShutsMapwrightDownOnSignal()
{
  SimRun run("0");
  QVERIFY2(run.waitForOutput("<- Pulse"), run.Output.constData());
  run.Sim.terminate();
  QVERIFY(run.Sim.waitForFinished(15000));
  run.Output += run.Sim.readAll();
  QVERIFY2(run.Output.contains("-> System SHUTDOWN"), run.Output.constData());
  QCOMPARE(run.Sim.exitStatus(), QProcess::NormalExit);
  QCOMPARE(run.Sim.exitCode(), 0);
}

void TestKestrelSim::simPassesOnMapwrightExitCode()
{
  SimRun run("now:3");
  QVERIFY(run.Sim.waitForFinished(15000));
  run.Output += run.Sim.readAll();
  QVERIFY2(run.Output.contains("exited with code 3"), run.Output.constData());
  QCOMPARE(run.Sim.exitCode(), 3);

  // The port in the INI file is the one the sim listened on.
  QFile ini(ConfigPort::iniPath(run.Config.path()));
  QVERIFY(ini.open(QIODevice::ReadOnly));
  const QByteArray port = QRegularExpression("127\\.0\\.0\\.1:(\\d+)").match(QString::fromLatin1(run.Output)).captured(1).toLatin1();
  QCOMPARE(ini.readAll(), "[Startup]\r\nTCPPort=" + port + "\r\n");
}

// --version on standard output; an unknown option ends with 2 like any
// other mistake on the command line.
void TestKestrelSim::simAnswersVersionAndRefusesUnknownOptions()
{
  QProcess sim;
  sim.start(KESTREL_SIM_EXE, {"--version"});
  QVERIFY(sim.waitForFinished(15000));
  QCOMPARE(sim.exitCode(), 0);
  QCOMPARE(sim.readAllStandardOutput(), QByteArray("kestrel-sim " MAPWRIGHT_VERSION "\n"));

  sim.start(KESTREL_SIM_EXE, {"--config", "unused", "--frobnicate"});
  QVERIFY(sim.waitForFinished(15000));
  QCOMPARE(sim.exitCode(), 2);
  QVERIFY(sim.readAllStandardError().contains("frobnicate"));
}

namespace
{
// Four frames of a journal 0, 0.4, 1.0 and 1.2 s after its first, one
// escaped line feed among them.
const QByteArray SampleJournal = "2026-11-23T09:59:58.000 <a/>\n"
                                 "2026-11-23T09:59:58.400 <b\\x0Ab/>\n"
                                 "2026-11-23T09:59:59.000 <c/>\n"
                                 "2026-11-23T09:59:59.200 <d/>\n";

TJournalContents readJournal(QByteArray text)
{
  QBuffer buffer(&text);
  buffer.open(QIODevice::ReadOnly);
  return JournalFormat::Read(buffer);
}
} // namespace

// Frames leave at their distances in the journal, divided by --speed;
// --from starts part way, the frames of the 15 s before it at once.
void TestKestrelSim::replayKeepsJournalTiming()
{
  const TJournalContents journal = readJournal(SampleJournal);
  const Scenario s = JournalReplay::toScenario(journal, std::nullopt);
  QVERIFY(s.ok());
  FeedServer server;
  QVERIFY(server.listen(0));
  ScenarioPlayer player(s, &server);
  player.setSpeed(2);
  FakeMapwright peer;
  QElapsedTimer clock;
  clock.start();
  QVERIFY(peer.connectTo(server.port()));
  QList<qint64> arrivals;
  QList<QByteArray> frames;
  while (frames.size() < 4 && clock.elapsed() < 5000)
  {
    for (const QByteArray& frame : peer.takeFrames(1, 50))
    {
      frames << frame;
      arrivals << clock.elapsed();
    }
  }
  QCOMPARE(frames, (QList<QByteArray>{"<a/>", "<b\nb/>", "<c/>", "<d/>"}));
  const QList<qint64> expected{0, 200, 500, 600};
  for (int i = 1; i < 4; ++i)
  {
    const qint64 gap = arrivals[i] - arrivals[0];
    QVERIFY2(std::abs(gap - expected[i]) < 150, qPrintable(QStringLiteral("frame %1 at %2 ms").arg(i).arg(gap)));
  }

  const auto from = JournalFormat::ResolveTime(QStringLiteral("09:59:58.900"), journal.Start());
  const Scenario later = JournalReplay::toScenario(journal, from);
  QList<qint64> times;
  for (const ScenarioFrame& frame : later.frames)
    times << frame.atMs;
  QCOMPARE(times, (QList<qint64>{0, 0, 100, 300}));
  QVERIFY(!JournalReplay::toScenario(readJournal("nothing here\n"), std::nullopt).ok());
}

// Broken lines of a journal are named on stderr before the replay starts;
// a moment that is no time, or one past the journal's end, ends with 2.
void TestKestrelSim::replayNamesBrokenLinesAndRefusesBadMoments()
{
  QTemporaryDir dir;
  const QString path = dir.filePath("run.journal");
  QFile file(path);
  QVERIFY(file.open(QIODevice::WriteOnly));
  file.write(QByteArray(SampleJournal).insert(SampleJournal.indexOf("2026-11-23T09:59:59.000"), "broken\n") +
             "2026-11-23T10:00:00.000 <cut");
  file.close();

  QProcess sim;
  for (const char* from : {"x", "10:00:30"})
  {
    sim.start(KESTREL_SIM_EXE, {"--config", dir.path(), "--replay", path, "--from", from});
    QVERIFY(sim.waitForFinished(15000));
    QCOMPARE(sim.exitCode(), 2);
    const QByteArray errors = sim.readAllStandardError();
    QVERIFY2(errors.contains("skipped 2 broken line(s): 3, 6"), errors.constData());
  }
}

int main(int argc, char* argv[])
{
  if (qEnvironmentVariableIsSet("TST_FAKE_MAPWRIGHT"))
    return fakeMapwright(argc, argv);
  QCoreApplication app(argc, argv);
  TestKestrelSim test;
  return QTest::qExec(&test, argc, argv);
}

#include "tst_kestrel_sim.moc"
