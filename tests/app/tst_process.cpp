// The real mapwright process against a parent written here, on loopback.
// Each run gets its own configuration and runtime directory, so the
// single-instance rule never couples two tests.

#include "JournalFormatU.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

#include <sys/inotify.h>
#include <unistd.h>

namespace
{
const QByteArray Minimize = "<KestrelMapData><System><C COMMAND=\"MINIMIZE\"/></System></KestrelMapData>";
const QByteArray Restore = "<KestrelMapData><System><C COMMAND=\"RESTORE\"/></System></KestrelMapData>";
const QByteArray Shutdown = "<KestrelMapData><System><C COMMAND=\"SHUTDOWN\"/></System></KestrelMapData>";

struct TMessage
{
  qint64 AtMs;
  QByteArray Text;
};

// A parent program: listens, launches mapwright, and splits what it
// receives into messages at the CR CR LF ending.
class TParent
{
public:
  QTemporaryDir Config;
  QTemporaryDir Runtime;
  QTcpServer Server;
  std::unique_ptr<QTcpSocket> Peer;
  QProcess Process;
  QByteArray Raw;
  QList<TMessage> Messages;
  QElapsedTimer Clock;
  int Connections = 0;

  TParent()
  {
    Server.listen(QHostAddress::LocalHost);
    Clock.start();
  }

  QString IniPath() const { return Config.filePath(QStringLiteral("Maps/Mapwright.ini")); }

  void WriteIni(const QByteArray& extra)
  {
    QDir(Config.path()).mkpath(QStringLiteral("Maps"));
    QFile file(IniPath());
    file.open(QIODevice::WriteOnly);
    file.write("[Startup]\r\nTCPPort=" + QByteArray::number(Server.serverPort()) + "\r\n" + extra);
  }

  static QProcessEnvironment Environment(const QString& runtimeDir)
  {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("MAPWRIGHT_DIALOGS"), QStringLiteral("stderr"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir);
    // The internet probe goes to a closed local port, never out.
    for (const char* name : {"http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "all_proxy"})
      env.insert(QLatin1String(name), QStringLiteral("http://127.0.0.1:9"));
    env.remove(QStringLiteral("no_proxy"));
    env.remove(QStringLiteral("NO_PROXY"));
    return env;
  }

  void Start(const QStringList& args) { Start(args, Environment(Runtime.path())); }

  void Start(const QStringList& args, const QProcessEnvironment& env)
  {
    Process.setProcessEnvironment(env);
    Process.setWorkingDirectory(Config.path());
    Process.start(QStringLiteral(MAPWRIGHT_EXE), args);
  }

  bool WaitForPeer(int ms = 10000)
  {
    if (!Server.waitForNewConnection(ms))
      return false;
    Peer.reset(Server.nextPendingConnection());
    ++Connections;
    return true;
  }

  void Send(const QByteArray& bytes)
  {
    Peer->write(bytes);
    Peer->flush();
  }

  void Pump()
  {
    if (!Peer)
      return;
    Raw += Peer->readAll();
    qsizetype end;
    while ((end = Raw.indexOf("\r\r\n")) >= 0) {
      Messages.append({Clock.elapsed(), Raw.left(end)});
      Raw.remove(0, end + 3);
    }
  }

  bool WaitForMessages(int count, int ms = 5000)
  {
    return QTest::qWaitFor([&] {
      Pump();
      return Messages.size() >= count;
    }, ms);
  }

  QList<QByteArray> Texts() const
  {
    QList<QByteArray> texts;
    for (const TMessage& m : Messages)
      texts << m.Text;
    return texts;
  }

  QByteArray StandardError() { return Process.readAllStandardError(); }

  bool Finish(int ms = 10000)
  {
    if (Peer && Peer->state() == QAbstractSocket::ConnectedState)
      Send(Shutdown + "\r");
    return Process.waitForFinished(ms);
  }

  ~TParent()
  {
    if (Process.state() != QProcess::NotRunning) {
      Process.kill();
      Process.waitForFinished(3000);
    }
  }
};

// Resident memory of a process, in kB, as the kernel counts it.
qint64 ResidentKb(qint64 pid)
{
  QFile status(QStringLiteral("/proc/%1/status").arg(pid));
  if (!status.open(QIODevice::ReadOnly))
    return -1;
  for (const QByteArray& line : status.readAll().split('\n')) {
    if (line.startsWith("VmRSS:"))
      return line.mid(6).trimmed().split(' ').first().toLongLong();
  }
  return -1;
}

// Counts the renames of one file into its folder: one per completed save.
class TSaveCounter
{
public:
  TSaveCounter(const QString& dir, QByteArray name)
    : FName(std::move(name))
  {
    FFd = inotify_init1(IN_NONBLOCK);
    inotify_add_watch(FFd, QFile::encodeName(dir).constData(), IN_MOVED_TO | IN_CLOSE_WRITE);
  }
  ~TSaveCounter() { ::close(FFd); }

  int Count()
  {
    alignas(inotify_event) char buffer[4096];
    ssize_t n;
    while ((n = ::read(FFd, buffer, sizeof buffer)) > 0) {
      for (char* p = buffer; p < buffer + n;) {
        const auto* event = reinterpret_cast<const inotify_event*>(p);
        const bool isFile = event->len > 0 && FName == event->name;
        // A rename into place, or a write straight to the file, is one save.
        if (isFile && (event->mask & (IN_MOVED_TO | IN_CLOSE_WRITE)))
          ++FCount;
        p += sizeof(inotify_event) + event->len;
      }
    }
    return FCount;
  }

private:
  int FFd = -1;
  int FCount = 0;
  QByteArray FName;
};
}

class TestProcess : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // Pulses leave as the exact bytes every five seconds; SHUTDOWN closes the
  // window and saves the INI once, with the two feature switches swapped.
  void pulsesAndShutdown()
  {
    TParent parent;
    parent.WriteIni("StartZoom=12\r\n; kept comment\r\nMyKey=kept\r\n[Features]\r\nManageLayers=1\r\n"
                    "ManageMarkers=0\r\n[Elsewhere]\r\nOther=1\r\n");
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(parent.WaitForPeer());
    const qint64 connectedAt = parent.Clock.elapsed();
    QVERIFY(parent.WaitForMessages(2, 12000));
    QTest::qWait(200);
    parent.Pump();
    QCOMPARE(parent.Texts(), QList<QByteArray>({"Pulse", "Pulse"}));
    const qint64 first = parent.Messages[0].AtMs - connectedAt;
    const qint64 gap = parent.Messages[1].AtMs - parent.Messages[0].AtMs;
    QVERIFY2(first > 4000 && first < 6500, QByteArray::number(first));
    QVERIFY2(gap > 4400 && gap < 5600, QByteArray::number(gap));

    TSaveCounter saves(parent.Config.filePath(QStringLiteral("Maps")), "Mapwright.ini");
    // Twice in one frame: the window closes once.
    parent.Send(QByteArray(Shutdown).replace("</System>", "<C COMMAND=\"SHUTDOWN\"/></System>") + "\r");
    QVERIFY(parent.Process.waitForFinished(10000));
    QCOMPARE(parent.Process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(parent.Process.exitCode(), 0);
    QCOMPARE(saves.Count(), 1);

    QFile file(parent.IniPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray ini = file.readAll();
    QVERIFY(ini.contains("ManageLayers=0\r\nManageMarkers=1\r\n"));
    QVERIFY(ini.contains("StartZoom=12\r\n"));
    QVERIFY(ini.contains("; kept comment\r\nMyKey=kept\r\n"));
    QVERIFY(ini.contains("[Elsewhere]\r\nOther=1"));
    QVERIFY(ini.contains("TCPPort=" + QByteArray::number(parent.Server.serverPort())));
  }

  // A parent gone wrong: 10,000 malformed frames among 10,000 valid ones,
  // then about 100 MB of valid frames as fast as the kernel takes them.
  // Every valid frame is applied once and in order (each toggles the window
  // between minimised and normal, and the program answers each change),
  // every malformed one is reported once and in order, the pulse keeps its
  // five seconds, and memory stays where it was.
  void feedChaos()
  {
    TParent parent;
    parent.WriteIni({});
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(parent.WaitForPeer());
    const qint64 pid = parent.Process.processId();
    QByteArray errors;
    const auto readErrors = [&] { errors += parent.StandardError(); };
    // Settled: the window is up and the first pulse has come.
    QVERIFY(parent.WaitForMessages(1, 8000));
    readErrors();
    QVERIFY2(!errors.contains("mapwright: "), errors.constData());
    const qint64 before = ResidentKb(pid);
    QVERIFY(before > 0);

    const auto valid = [](int i, int padding) {
      const QByteArray command = i % 2 == 0 ? "MINIMIZE" : "RESTORE";
      return QByteArray(padding, ' ') + "<KestrelMapData><System><C COMMAND=\"" + command +
             "\"/></System><LiveMarkers><Marker ID=\"P" + QByteArray::number(i % 40) +
             "\" NAME=\"Person\" LOCATION=\"[0001] Hall\" STATUS=\"" + (i % 7 == 0 ? "PANIC" : "ON") +
             "\" LAT=\"41.3" + QByteArray::number(i % 1000) + "\" LON=\"-80.3" + QByteArray::number(i % 997) +
             "\" FIXSTATUS=\"GOOD\" FIXRADIUS=\"10\" INIT=\"FALSE\"/></LiveMarkers></KestrelMapData>" +
             QByteArray(padding, ' ') + '\r';
    };
    // Five kinds of damage, two of which name the frame in their message.
    QList<QByteArray> expectedNames;
    const auto malformed = [&](int j) -> QByteArray {
      const QByteArray n = QByteArray::number(j);
      switch (j % 5) {
      case 0:
        expectedNames << "'bad" + n + "' is not a valid floating point value";
        return "<KestrelMapData><LiveMarkers><M ID=\"X\" LAT=\"bad" + n +
               "\" LON=\"1\" FIXRADIUS=\"1\"/></LiveMarkers></KestrelMapData>\r";
      case 1:
        return "<KestrelMapData><LiveMarkers><M ID=\"" + n + "\r";
      case 2:
        return "<Other n=\"" + n + "\"/>\r";
      case 3:
        expectedNames << "'r" + n + "' is not a valid integer value";
        return "<KestrelMapData><LiveMarkers><M ID=\"X\" LAT=\"1\" LON=\"1\" FIXRADIUS=\"r" + n +
               "\"/></LiveMarkers></KestrelMapData>\r";
      default: {
        QByteArray noise = "x";
        for (int k = 0; k < 200; ++k) {
          const char byte = static_cast<char>((j * 131 + k * 17) % 256);
          noise += byte == '\r' ? 'y' : byte;
        }
        return noise + '\r';
      }
      }
    };
    QByteArray chaos;
    for (int i = 0; i < 10000; ++i)
      chaos += valid(i, 0) + malformed(i);

    // The flood: frames of about 16,000 characters, blanks around the
    // document, which the trim takes off.
    const int floodFrames = 6400;
    qint64 peak = before;
    int sent = 0;
    const auto feed = [&] {
      parent.Pump();
      readErrors();
      peak = std::max(peak, ResidentKb(pid));
      if (parent.Peer->bytesToWrite() > (1 << 20))
        return;
      if (!chaos.isEmpty()) {
        parent.Peer->write(chaos);
        chaos.clear();
        return;
      }
      // One write a batch: the socket hands the kernel one written block per pass.
      QByteArray batch;
      for (int k = 0; k < 64 && sent < floodFrames; ++k, ++sent)
        batch += valid(10000 + sent, 7800);
      parent.Peer->write(batch);
    };
    const int replies = 10000 + floodFrames;
    const auto answers = [&] {
      qsizetype count = 0;
      for (const TMessage& m : parent.Messages)
        count += m.Text != "Pulse";
      return count;
    };
    const qint64 start = parent.Clock.elapsed();
    QVERIFY(QTest::qWaitFor([&] {
      feed();
      return answers() >= 10000;
    }, 240000));
    const qint64 chaosMs = parent.Clock.elapsed() - start;
    const qint64 afterChaos = ResidentKb(pid);
    QVERIFY(QTest::qWaitFor([&] {
      feed();
      return answers() >= replies;
    }, 240000));
    const qint64 floodMs = parent.Clock.elapsed() - start - chaosMs;
    // Long enough for a few pulses.
    QVERIFY(QTest::qWaitFor([&] {
      feed();
      return parent.Messages.size() - answers() >= 4;
    }, 30000));
    QTest::qWait(1000);
    feed();
    const qint64 after = ResidentKb(pid);

    QList<qint64> pulses;
    QByteArrayList order;
    for (const TMessage& m : parent.Messages) {
      if (m.Text == "Pulse")
        pulses << m.AtMs;
      else
        order << m.Text;
    }
    int steps = 0;
    for (qsizetype i = 0; i < order.size(); ++i)
      steps += order[i] == (i % 2 == 0 ? "Minimized" : "Normal");
    QList<qint64> gaps;
    for (qsizetype i = 1; i < pulses.size(); ++i)
      gaps << pulses[i] - pulses[i - 1];
    std::sort(gaps.begin(), gaps.end());
    const qint64 median = gaps.isEmpty() ? 0 : gaps[gaps.size() / 2];
    const qint64 longest = gaps.isEmpty() ? 0 : gaps.last();
    QByteArrayList named;
    qsizetype messages = 0;
    for (const QByteArray& line : errors.split('\n')) {
      if (!line.startsWith("mapwright: message: "))
        continue;
      ++messages;
      const QByteArray text = line.mid(20);
      if (text.endsWith(" is not a valid floating point value") || text.endsWith(" is not a valid integer value"))
        named << text;
    }
    qInfo("valid frames applied: %d of %d; malformed frames reported: %lld; pulse gaps ms: median %lld, "
          "max %lld over %lld gaps; RSS MB: before %.1f, after the mixed frames %.1f, peak %.1f, after %.1f; "
          "mixed frames %lld ms, flood %lld ms",
          steps, replies, static_cast<long long>(messages), static_cast<long long>(median),
          static_cast<long long>(longest), static_cast<long long>(gaps.size()), before / 1024.0,
          afterChaos / 1024.0, peak / 1024.0, after / 1024.0, static_cast<long long>(chaosMs),
          static_cast<long long>(floodMs));

    QCOMPARE(order.size(), replies);
    QCOMPARE(steps, replies);
    QCOMPARE(messages, 10000);
    QCOMPARE(named, expectedNames);
    QVERIFY(gaps.size() >= 3);
    // Whole seconds on a 500 ms tick: 5.0 to 5.5 s, and a busy machine adds a little.
    QVERIFY2(median >= 4400 && median <= 6000, QByteArray::number(median));
    QVERIFY2(longest <= 7000, QByteArray::number(longest));
    QVERIFY2(peak - before < 32 * 1024, QByteArray::number(peak - before));
    QVERIFY2(after - before < 32 * 1024, QByteArray::number(after - before));
    QVERIFY(parent.Finish(20000));
    QCOMPARE(parent.Process.exitCode(), 0);
  }

  // Static markers and custom images are read at start and written back
  // at SHUTDOWN in the program's own form; a file that could not be read
  // is kept beside the new one as NAME.unreadable.
  void markerFilesWrittenBackAtShutdown()
  {
    TParent parent;
    parent.WriteIni({});
    const QString maps = parent.Config.filePath(QStringLiteral("Maps"));
    QDir(maps).mkpath(QStringLiteral("Layers"));
    QDir(maps).mkpath(QStringLiteral("CustomMarkerImages"));
    const QString png = maps + QStringLiteral("/CustomMarkerImages/hydrant.png");
    QImage image(32, 37, QImage::Format_ARGB32);
    image.fill(Qt::magenta);
    QVERIFY(image.save(png, "PNG"));
    const auto write = [&](const QString& relative, const QByteArray& bytes) {
      QFile file(maps + QLatin1Char('/') + relative);
      QVERIFY(file.open(QIODevice::WriteOnly));
      file.write(bytes);
    };
    const auto read = [&](const QString& relative) {
      QFile file(maps + QLatin1Char('/') + relative);
      return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    };
    write(QStringLiteral("Layers/StaticMarkers.xml"),
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<KestrelStaticMarkerInfo>\r\n  <Markers>\r\n"
          "    <Marker Notes=\"Key at&#10;the desk\" ImageIndex=\"0\" ImageCategory=\"Custom\" "
          "Longitude=\"-80.3389\" Latitude=\"41.3135\" Title=\"Hydrant 1\"/>\r\n"
          "    <Marker Title=\"Gate\" Latitude=\"41.3133\" Longitude=\"-80.3387\" ImageCategory=\"Misc\" "
          "ImageIndex=\"2\"/>\r\n  </Markers>\r\n</KestrelStaticMarkerInfo>\r\n");
    write(QStringLiteral("CustomMarkerImages/CustomMarkers.xml"),
          "<KestrelCustomMarkerInfo><Markers>\n<Marker Caption=\"Hydrant\" FileName=\"" + png.toUtf8() +
            "\"/>\n<Marker Caption=\"Lost\" FileName=\"/nonexistent/lost.png\"/>\n</Markers>"
            "</KestrelCustomMarkerInfo>\n");
    parent.Start({parent.Config.path(), QStringLiteral("Config")});
    QVERIFY(parent.WaitForPeer());
    QTest::qWait(300);
    QVERIFY(parent.Finish());
    QCOMPARE(parent.Process.exitCode(), 0);
    const QByteArray errors = parent.StandardError();
    QVERIFY2(!errors.contains("mapwright: message:"), errors.constData());
    QCOMPARE(read(QStringLiteral("Layers/StaticMarkers.xml")),
             QByteArray("<?xml version=\"1.0\"?><KestrelStaticMarkerInfo><Markers>"
                        "<Marker Title=\"Hydrant 1\" Latitude=\"41.3135\" Longitude=\"-80.3389\" "
                        "ImageCategory=\"Custom\" ImageIndex=\"0\" Notes=\"Key at&#10;the desk\"/>"
                        "<Marker Title=\"Gate\" Latitude=\"41.3133\" Longitude=\"-80.3387\" ImageCategory=\"Misc\" "
                        "ImageIndex=\"2\" Notes=\"\"/></Markers></KestrelStaticMarkerInfo>"));
    // The image whose file is gone drops out of the list.
    QCOMPARE(read(QStringLiteral("CustomMarkerImages/CustomMarkers.xml")),
             "<?xml version=\"1.0\"?><KestrelCustomMarkerInfo><Markers><Marker FileName=\"" + png.toUtf8() +
               "\" Caption=\"Hydrant\"/></Markers></KestrelCustomMarkerInfo>");
    QVERIFY(!QFile::exists(maps + QStringLiteral("/Layers/StaticMarkers.xml.unreadable")));

    // A broken file: the prefixed message, the markers read before the
    // fault, and the original kept at close.
    const QByteArray broken = "<KestrelStaticMarkerInfo><Markers><Marker Title=\"A\" Latitude=\"1\" Longitude=\"2\"/>"
                              "<Marker Title=\"No #2\" Latitude=\"3\" Longitude=\"4\"/>"
                              "<Marker Title=\"C\" Latitude=\"5\" Longitude=\"6\"/></Markers></KestrelStaticMarkerInfo>";
    write(QStringLiteral("Layers/StaticMarkers.xml"), broken);
    parent.Start({parent.Config.path(), QStringLiteral("Config")});
    QVERIFY(parent.WaitForPeer());
    QByteArray secondErrors;
    QVERIFY(QTest::qWaitFor([&] {
      secondErrors += parent.StandardError();
      return secondErrors.contains("mapwright: message: Error Reading Layers: ");
    }, 5000));
    QVERIFY(parent.Finish());
    QCOMPARE(read(QStringLiteral("Layers/StaticMarkers.xml.unreadable")), broken);
    const QByteArray now = read(QStringLiteral("Layers/StaticMarkers.xml"));
    QVERIFY2(now.contains("Title=\"A\"") && !now.contains("Title=\"C\""), now.constData());
  }

  // The layer catalogue goes through a start and a SHUTDOWN unchanged
  // but for the program's own form: a KML and a Shapefile layer with
  // their colours and hints, the fixed layers by name.
  void layerCatalogueWrittenBackAtShutdown()
  {
    TParent parent;
    parent.WriteIni({});
    const QString maps = parent.Config.filePath(QStringLiteral("Maps"));
    QDir(maps).mkpath(QStringLiteral("Layers"));
    for (const char* part : {"places.shp", "places.dbf", "places.cpg"})
      QVERIFY(QFile::copy(QStringLiteral(MAPWRIGHT_GDAL_SAMPLES "/") + QLatin1String(part),
                          maps + QStringLiteral("/Layers/") + QLatin1String(part)));
    const QByteArray shp = (maps + QStringLiteral("/Layers/places.shp")).toUtf8();
    const QByteArray kml = (maps + QStringLiteral("/Layers/site.kml")).toUtf8();
    QFile site(QString::fromUtf8(kml));
    QVERIFY(site.open(QIODevice::WriteOnly));
    site.write("<kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document><Placemark><name>Gate</name><Point>"
               "<coordinates>-80.3387,41.3133</coordinates></Point></Placemark></Document></kml>");
    site.close();
    const QByteArray layers =
      "<KestrelMapLayersInfo><Layers><Layer Name=\"KestrelLiveMarkers\"/><Layer Name=\"KestrelStaticMarkers\"/>"
      "<Layer Name=\"places_shp_shp\" FileName=\"" + shp + "\" FileType=\"Shape\" Visible=\"True\" Color=\"255\" "
      "BorderColor=\"16711680\" SelectedColor=\"197121\" SelectedBorderColor=\"197121\" HotColor=\"65280\" "
      "HotBorderColor=\"197121\" HintAttribute=\"name\"/>"
      "<Layer Name=\"site_kml_kml\" FileName=\"" + kml + "\" FileType=\"KML\" Visible=\"False\" Color=\"197121\" "
      "BorderColor=\"197121\" SelectedColor=\"197121\" SelectedBorderColor=\"197121\" HotColor=\"197121\" "
      "HotBorderColor=\"197121\" HintAttribute=\"\"/></Layers></KestrelMapLayersInfo>";
    QFile file(maps + QStringLiteral("/Layers/Layers.xml"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n" + QByteArray(layers).replace("/><", "/>\r\n  <"));
    file.close();

    parent.Start({parent.Config.path(), QStringLiteral("Config")});
    QVERIFY(parent.WaitForPeer());
    QTest::qWait(300);
    QVERIFY(parent.Finish());
    QCOMPARE(parent.Process.exitCode(), 0);
    const QByteArray errors = parent.StandardError();
    QVERIFY2(!errors.contains("mapwright: message:"), errors.constData());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), "<?xml version=\"1.0\"?>" + layers);
    QVERIFY(!QFile::exists(maps + QStringLiteral("/Layers/Layers.xml.unreadable")));
  }

  // Frames end at a CR only: split frames are taken once, two in a segment
  // as two, CR LF endings work, and a bad frame gets one message.
  void framing()
  {
    TParent parent;
    parent.WriteIni({});
    parent.Start({parent.Config.path(), QStringLiteral("Test")});
    QVERIFY(parent.WaitForPeer());
    QTest::qWait(400); // the link settles before it reads

    const QByteArray frame = Minimize + "\r";
    parent.Send(frame.left(20));
    QTest::qWait(150);
    parent.Send(frame.mid(20, 30));
    QTest::qWait(150);
    parent.Send(frame.mid(50));
    QVERIFY(parent.WaitForMessages(1));

    parent.Send(Restore + "\r" + Minimize + "\r");
    QVERIFY(parent.WaitForMessages(3));
    parent.Send(Restore + "\r\n" + Minimize + "\r\n");
    QVERIFY(parent.WaitForMessages(5));
    parent.Send("\n" + Restore + "\n");
    QTest::qWait(300);
    parent.Pump();
    QCOMPARE(parent.Texts().join(","), QByteArray("Minimized,Normal,Minimized,Normal,Minimized")); // a line feed does not end a frame
    parent.Send("\r");
    QVERIFY(parent.WaitForMessages(6));
    QCOMPARE(parent.Texts(),
             QList<QByteArray>({"Minimized", "Normal", "Minimized", "Normal", "Minimized", "Normal"}));

    // Maximising is told once; the way back says "Normal", and a resize in
    // the normal state may repeat it.
    parent.Send(QByteArray(Restore).replace("RESTORE", "MAXIMIZE") + "\r");
    QVERIFY(parent.WaitForMessages(7));
    parent.Send(Restore + "\r");
    QVERIFY(parent.WaitForMessages(8));
    QTest::qWait(300);
    parent.Pump();
    const QList<QByteArray> back = parent.Texts().mid(6);
    QCOMPARE(back.first(), QByteArray("Maximized"));
    QCOMPARE(back.count("Maximized"), 1);
    QCOMPARE(back.count("Normal"), back.size() - 1);

    const QByteArray bad = "<KestrelMapData><LiveMarkers><M ID=\"1\" LAT=\"x1\" LON=\"2\" FIXRADIUS=\"3\"/>"
                           "</LiveMarkers></KestrelMapData>\r";
    parent.Send(bad.left(10));
    QTest::qWait(100);
    parent.Send(bad.mid(10, 40));
    QTest::qWait(100);
    parent.Send(bad.mid(50) + "<not xml\r");
    QByteArray errors;
    QVERIFY(QTest::qWaitFor([&] {
      errors += parent.StandardError();
      return errors.count("mapwright: message: ") >= 2;
    }, 3000));
    QVERIFY(parent.Finish());
    errors += parent.StandardError();
    QCOMPARE(errors.count("mapwright: message: 'x1' is not a valid floating point value\n"), 1);
    QCOMPARE(errors.count("mapwright: message: "), 2);
    QCOMPARE(parent.Process.exitCode(), 0);
  }

  // An overlong frame drops the link; RunTime comes back within about five seconds.
  void overlongFrameReconnects()
  {
    TParent parent;
    parent.WriteIni({});
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(parent.WaitForPeer());
    QTest::qWait(400);
    parent.Send(QByteArray(16385, 'x'));
    QVERIFY(QTest::qWaitFor([&] { return parent.Peer->state() == QAbstractSocket::UnconnectedState; }, 3000));
    QElapsedTimer down;
    down.start();
    QVERIFY(parent.WaitForPeer(8000));
    QVERIFY2(down.elapsed() < 6500, QByteArray::number(down.elapsed()));
    QTest::qWait(400);
    parent.Send(Minimize + "\r");
    QVERIFY(parent.WaitForMessages(1));
    QCOMPARE(parent.Texts().last(), QByteArray("Minimized"));
    QVERIFY(parent.Finish());
  }

  // Without arguments: the launch message, exit 0, and nothing written.
  void noArguments()
  {
    TParent parent;
    parent.Start({});
    QVERIFY(parent.Process.waitForFinished(15000));
    QCOMPARE(parent.Process.exitCode(), 0);
    QCOMPARE(parent.StandardError().count(
               "mapwright: message: Mapwright Can Only Be Launched From Kestrel Accountability Programs!\n"),
             1);
    QVERIFY(QDir(parent.Config.path()).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden));
    QCOMPARE(parent.Connections, 0);
  }

  // --help and --version alone answer on standard output before anything
  // else: without a display, and while another instance runs. With a
  // second argument "--help" is a configuration directory like any other.
  void helpAndVersion()
  {
    TParent parent;
    parent.WriteIni({});
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(parent.WaitForPeer());

    QProcessEnvironment bare = TParent::Environment(parent.Runtime.path());
    for (const char* name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"})
      bare.remove(QLatin1String(name));
    for (const QString& option : {QStringLiteral("--version"), QStringLiteral("--help")}) {
      QProcess alone;
      alone.setProcessEnvironment(bare);
      alone.start(QStringLiteral(MAPWRIGHT_EXE), {option});
      QVERIFY(alone.waitForFinished(10000));
      QCOMPARE(alone.exitStatus(), QProcess::NormalExit);
      QCOMPARE(alone.exitCode(), 0);
      QCOMPARE(alone.readAllStandardError(), QByteArray());
      const QByteArray out = alone.readAllStandardOutput();
      if (option == QLatin1String("--version")) {
        QCOMPARE(out, QByteArray("mapwright " MAPWRIGHT_VERSION "\n"));
      } else {
        QVERIFY2(out.startsWith("Usage: mapwright CONFIGDIR MODE [LATITUDE LONGITUDE]\n"), out.constData());
        QVERIFY2(out.contains("\nExample:\n") && out.contains("\nExit codes:\n"), out.constData());
      }
    }
    QVERIFY(parent.Finish());

    TParent other;
    other.Start({QStringLiteral("--help"), QStringLiteral("extra")});
    QByteArray errors;
    QVERIFY(QTest::qWaitFor([&] {
      errors += other.StandardError();
      return errors.contains("mapwright: message: Unable to find startup information!\n");
    }, 10000));
    // The window opens all the same, as it always did.
    QCOMPARE(other.Process.state(), QProcess::Running);
    QCOMPARE(other.Process.readAllStandardOutput(), QByteArray());
  }

  // The main window's caption is the program's own, with nothing appended,
  // as the X server has it. Runs on a virtual screen of its own.
  void mainWindowCaption()
  {
    const QString xvfb = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
    const QString xwininfo = QStandardPaths::findExecutable(QStringLiteral("xwininfo"));
    if (xvfb.isEmpty() || xwininfo.isEmpty())
      QSKIP("needs Xvfb (xvfb) and xwininfo (x11-utils)");
    QProcess server;
    const auto stopServer = qScopeGuard([&] {
      server.terminate();
      server.waitForFinished(5000);
    });
    server.start(xvfb, {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-nolisten"),
                        QStringLiteral("tcp"), QStringLiteral("-screen"), QStringLiteral("0"),
                        QStringLiteral("1280x1024x24")});
    QVERIFY(QTest::qWaitFor([&] { return server.canReadLine() || server.state() == QProcess::NotRunning; }, 10000));
    const QString display = QLatin1Char(':') + QString::fromLatin1(server.readLine().trimmed());
    QVERIFY2(display.size() > 1, server.readAllStandardError().constData());

    TParent parent;
    parent.WriteIni({});
    QProcessEnvironment env = TParent::Environment(parent.Runtime.path());
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("DISPLAY"), display);
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")}, env);
    QVERIFY(parent.WaitForPeer());

    // Every top-level window's name, from lines like
    //      0x200006 "Kestrel Mapping v2.00": ("mapwright" "mapwright")  1109x684+85+170  +85+170
    const auto names = [&] {
      QProcess info;
      info.setProcessEnvironment(env);
      info.start(xwininfo, {QStringLiteral("-root"), QStringLiteral("-tree")});
      info.waitForFinished(5000);
      static const QRegularExpression line(QStringLiteral("^\\s+0x[0-9a-f]+ \"(.*)\": \\("),
                                           QRegularExpression::MultilineOption);
      QStringList result;
      for (const QRegularExpressionMatch& m : line.globalMatch(QString::fromUtf8(info.readAllStandardOutput())))
        result << m.captured(1);
      return result;
    };
    QStringList windows;
    QVERIFY(QTest::qWaitFor([&] {
      windows = names();
      return !windows.filter(QStringLiteral("Kestrel")).isEmpty();
    }, 10000));
    QCOMPARE(windows.filter(QStringLiteral("Kestrel")), QStringList({QStringLiteral("Kestrel Mapping v2.00")}));
    QVERIFY2(windows.filter(QStringLiteral(" \u2014 ")).isEmpty(), qPrintable(windows.join(QStringLiteral(" | "))));
    QVERIFY(parent.Finish());
    QCOMPARE(parent.Process.exitCode(), 0);
  }

  // A second start asks the first to come to the front and ends with 0.
  void secondInstance()
  {
    TParent parent;
    parent.WriteIni({});
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(parent.WaitForPeer());
    QTest::qWait(400);
    parent.Send(Minimize + "\r");
    QVERIFY(parent.WaitForMessages(1));

    QProcess second;
    second.setProcessEnvironment(TParent::Environment(parent.Runtime.path()));
    second.start(QStringLiteral(MAPWRIGHT_EXE), {parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.exitCode(), 0);
    QVERIFY(parent.WaitForMessages(2));
    QCOMPARE(parent.Texts(), QList<QByteArray>({"Minimized", "Normal"}));
    QVERIFY(!parent.Server.hasPendingConnections());
    QVERIFY(parent.Finish());
    QCOMPARE(parent.Process.exitCode(), 0);
  }

  // Frames reach the run's journal within a second, as received; a kill in
  // the middle of a stream of frames leaves every line before it whole.
  void journalSurvivesAKill()
  {
    TParent parent;
    parent.WriteIni({});
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(parent.WaitForPeer());
    const auto frame = [](int n) {
      return "<KestrelMapData><LiveMarkers>\n<M ID=\"" + QByteArray::number(n % 40) +
             "\" NAME=\"a\\b\" STATUS=\"ON\" LAT=\"41." + QByteArray::number(n) +
             "\" LON=\"-80.3\" FIXRADIUS=\"5\"/></LiveMarkers></KestrelMapData>";
    };
    for (int n = 0; n < 5; ++n)
      parent.Send(frame(n) + "\r");
    const QString folder = parent.Config.filePath(QStringLiteral("Maps/Journal"));
    const auto journal = [&folder] {
      const QStringList files = QDir(folder).entryList({QStringLiteral("*.journal")}, QDir::Files);
      return files.size() == 1 ? JournalFormat::ReadFile(QDir(folder).filePath(files[0])) : TJournalContents();
    };
    QElapsedTimer waited;
    waited.start();
    QVERIFY(QTest::qWaitFor([&] { return journal().Entries.size() == 5; }, 5000));
    QVERIFY2(waited.elapsed() < 2500, QByteArray::number(waited.elapsed()));
    QCOMPARE(journal().Entries[4].Frame, frame(4));

    // A stream of frames, and a kill while they still come.
    for (int n = 5; n < 4000; ++n) {
      parent.Send(frame(n) + "\r");
      if (n == 3000)
        QTest::qWait(1100);
    }
    parent.Process.kill();
    QVERIFY(parent.Process.waitForFinished(5000));
    const TJournalContents after = journal();
    QVERIFY2(after.BrokenLines.isEmpty(), qPrintable(QString::number(after.BrokenLines.value(0))));
    QVERIFY2(after.Entries.size() > 5, qPrintable(QString::number(after.Entries.size())));
    QVERIFY(after.Entries.size() < 4000); // the kill came while frames were still arriving
    for (int n = 0; n < after.Entries.size(); ++n)
      QCOMPARE(after.Entries[n].Frame, frame(n));
  }

  // A killed instance leaves its lock and socket behind; the next start runs all the same.
  void startAfterKill()
  {
    TParent parent;
    parent.WriteIni({});
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(parent.WaitForPeer());
    parent.Process.kill();
    QVERIFY(parent.Process.waitForFinished(5000));
    QVERIFY(!QDir(parent.Runtime.path()).isEmpty());
    parent.Start({parent.Config.path(), QStringLiteral("RunTime")});
    QVERIFY(parent.WaitForPeer());
    QVERIFY(parent.Finish());
    QCOMPARE(parent.Process.exitCode(), 0);
  }
};

QTEST_GUILESS_MAIN(TestProcess)
#include "tst_process.moc"
