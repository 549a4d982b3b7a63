// The shell in process: the feed link against a loopback parent, and the
// main window's start-up, modes and frame handling.

#include "ClockU.h"
#include "DialogsU.h"
#include "FeedLinkU.h"
#include "GlobalsU.h"
#include "InternetProbeU.h"
#include "MainU.h"
#include "LiveMarkersU.h"
#include "vxMapControl.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"
#include "ShellFixtures.h"
#include "TestRegistry.h"

#include <QCheckBox>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QRandomGenerator>
#include <QSemaphore>
#include <QTest>

#include <atomic>
#include <stdexcept>
#include <utility>
#include <thread>

namespace
{
// An HTTP server on its own thread, since the probe blocks the main one.
class THttpStub
{
public:
  explicit THttpStub(int status)
  {
    FThread = std::thread([this, status] {
      QTcpServer server;
      server.listen(QHostAddress::LocalHost);
      FPort = server.serverPort();
      FReady.release();
      while (!FStop) {
        if (!server.waitForNewConnection(20))
          continue;
        std::unique_ptr<QTcpSocket> socket(server.nextPendingConnection());
        QByteArray request;
        while (!request.contains("\r\n\r\n") && socket->waitForReadyRead(1000))
          request += socket->readAll();
        ++FHits;
        socket->write("HTTP/1.1 " + QByteArray::number(status) +
                      " Stub\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok");
        socket->waitForBytesWritten(1000);
        socket->disconnectFromHost();
      }
    });
    FReady.acquire();
  }
  ~THttpStub()
  {
    FStop = true;
    FThread.join();
  }
  QString Url() const { return QStringLiteral("http://127.0.0.1:%1/").arg(FPort); }
  int Hits() const { return FHits; }

private:
  std::thread FThread;
  QSemaphore FReady;
  std::atomic<bool> FStop{false};
  std::atomic<int> FHits{0};
  int FPort = 0;
};

const QString MinimizeFrame = QStringLiteral("<KestrelMapData><System><C COMMAND=\"MINIMIZE\"/></System></KestrelMapData>");
}

class TestShell : public QObject
{
  Q_OBJECT

  TRecordingDialogs* FDialogs = nullptr;

  std::unique_ptr<TfrmMain> MakeForm(const QStringList& args)
  {
    auto form = std::make_unique<TfrmMain>(args);
    return form;
  }

private Q_SLOTS:
  void initTestCase()
  {
    InternetProbe::SetProbe([] { return false; });
  }

  void init()
  {
    auto dialogs = std::make_unique<TRecordingDialogs>();
    FDialogs = dialogs.get();
    Dialogs::Set(std::move(dialogs));
  }

  void cleanup()
  {
    Clock::Set(nullptr);
    QLocale::setDefault(QLocale::c());
  }

  // Any answer but 400-505 means connected; failures go on to the next target.
  void internetProbe()
  {
    THttpStub notFound(404), ok(200), odd(506), broken(500);
    QVERIFY(InternetProbe::ProbeTargets({notFound.Url(), ok.Url()}));
    QCOMPARE(notFound.Hits(), 1);
    QCOMPARE(ok.Hits(), 1);
    QVERIFY(InternetProbe::ProbeTargets({ok.Url(), notFound.Url()}));
    QCOMPARE(notFound.Hits(), 1); // the second target is not tried
    QVERIFY(InternetProbe::ProbeTargets({odd.Url()}));
    QVERIFY(!InternetProbe::ProbeTargets({broken.Url(), notFound.Url()}));
    QVERIFY(!InternetProbe::ProbeTargets({QStringLiteral("http://127.0.0.1:9/"), broken.Url()}));
    QVERIFY(InternetProbe::ProbeTargets({QStringLiteral("http://127.0.0.1:9/"), ok.Url()}));
  }

  void outboundWireForm()
  {
    QCOMPARE(TFeedLink::OutboundBytes(QStringLiteral("Pulse")), QByteArray::fromHex("50756C73650D0D0A"));
    QCOMPARE(TFeedLink::OutboundBytes(QStringLiteral("Z\u00FCrich")), QByteArray("Z?rich\r\r\n"));
    QCOMPARE(TFeedLink::FrameText(QByteArray("a\xC3\xA9z")), QStringLiteral("a??z"));
  }

  // Frames are cut at CR only, trimmed, empty ones dropped; the slot keeps
  // the last text assigned and sends it once.
  void linkFramingAndSlot()
  {
    TLoopbackParent parent;
    TFeedLink link;
    QStringList frames;
    link.OnTCPDataReceived = [&](const QString& text) { frames << text; };
    link.SetPort(parent.Port());
    link.Run();
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(link.Active());

    parent.Send("  one  \r\r\n\r two\nstill two\r three");
    QTRY_COMPARE(frames.size(), 2);
    QCOMPARE(frames, QStringList({QStringLiteral("one"), QStringLiteral("two\nstill two")}));
    parent.Send("\r");
    QTRY_COMPARE(frames.size(), 3);
    QCOMPARE(frames.last(), QStringLiteral("three"));

    // Frames that came together are handed over in one pass, each to its
    // end, so that the window lays out and paints once for them.
    QStringList order;
    link.OnTCPDataReceived = [&](const QString& text) {
      if (order.isEmpty())
        QTimer::singleShot(0, &link, [&order] { order << QStringLiteral("loop"); });
      order << text;
    };
    parent.Send("a\rb\rc\r");
    QTRY_COMPARE(order.size(), 4);
    QCOMPARE(order, QStringList({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"), QStringLiteral("loop")}));
    // Also when more came than the link reads ahead at a time: what already
    // waits in the kernel belongs to the same pass.
    order.clear();
    QByteArray burst;
    for (char c = 'd'; c <= 'i'; ++c)
      burst += QByteArray(12000, c) + '\r';
    QVERIFY(burst.size() > 2 * TFeedLink::ReadLimit);
    parent.Send(burst);
    QCOMPARE(parent.FPeer->bytesToWrite(), 0); // all of it with the kernel
    QTRY_COMPARE(order.size(), 7);
    QCOMPARE(order.last(), QStringLiteral("loop"));
    QCOMPARE(order.at(5), QString(12000, QLatin1Char('i')));
    link.OnTCPDataReceived = [&](const QString& text) { frames << text; };

    link.SetOutMessage(QStringLiteral("Pulse"));
    link.SetOutMessage(QStringLiteral(" <GetModeCoordinates LAT=\"1\" LON=\"2\"></GetModeCoordinates> "));
    QVERIFY(parent.WaitForBytes(55));
    QTest::qWait(50);
    QCOMPARE(parent.Received(), QByteArray("<GetModeCoordinates LAT=\"1\" LON=\"2\"></GetModeCoordinates>\r\r\n"));
    QVERIFY(link.OutMessage().isEmpty());
  }

  // A handler that opens a nested event loop (a message box) finishes before
  // the next frame is handed over, and nothing is sent meanwhile.
  void linkHoldsFramesDuringNestedLoop()
  {
    TLoopbackParent parent;
    TFeedLink link;
    QStringList events;
    int depth = 0;
    link.OnTCPDataReceived = [&](const QString& text) {
      events << QStringLiteral("begin %1 at depth %2").arg(text).arg(depth);
      ++depth;
      if (text == QLatin1String("first")) {
        link.SetOutMessage(QStringLiteral("Pulse"));
        parent.Send("second\r");
        QEventLoop box;
        QTimer::singleShot(300, &box, &QEventLoop::quit);
        box.exec();
        events << QStringLiteral("sent during box: %1").arg(parent.Received().size());
      }
      --depth;
      events << QStringLiteral("end ") + text;
    };
    link.SetPort(parent.Port());
    link.Run();
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(link.Active());
    parent.Send("first\r");
    QTRY_COMPARE(events.size(), 5);
    QCOMPARE(events, QStringList({QStringLiteral("begin first at depth 0"), QStringLiteral("sent during box: 0"),
                                  QStringLiteral("end first"), QStringLiteral("begin second at depth 0"),
                                  QStringLiteral("end second")}));
    QVERIFY(parent.WaitForBytes(8));
    QCOMPARE(parent.Received(), QByteArray("Pulse\r\r\n"));
  }

  // Overlong input drops the link; exactly the limit is still a frame.
  void linkFrameLimit()
  {
    TLoopbackParent parent;
    TFeedLink link;
    int frames = 0;
    link.OnTCPDataReceived = [&](const QString&) { ++frames; };
    link.SetPort(parent.Port());
    link.Run();
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(link.Active());
    parent.Send(QByteArray(TFeedLink::MaxFrameLength, 'x') + "\r");
    QTRY_COMPARE(frames, 1);
    QVERIFY(link.Active());
    parent.Send(QByteArray(TFeedLink::MaxFrameLength + 1, 'y'));
    QTRY_VERIFY(!link.Active());
    QCOMPARE(frames, 1);
    QTRY_COMPARE(parent.FPeer->state(), QAbstractSocket::UnconnectedState);

    // A refused connection is silent and leaves the link down.
    const int port = parent.Port();
    parent.FServer.close();
    link.SetPort(port);
    link.Run();
    QTRY_VERIFY(!link.Connecting());
    QVERIFY(!link.Active());
  }

  // A parent that floods: the link holds no more than about two frame limits
  // whatever comes, hands every frame over once and in order, and lets the
  // memory go once drained. A text assigned between two frames is not
  // replaced by the second frame's reply.
  void linkBoundedUnderFlood()
  {
    TLoopbackParent parent;
    TFeedLink link;
    const int count = 20000;
    int next = 0;
    int outOfOrder = 0;
    qint64 most = 0;
    // Fires between two frames, as the pulse timer would.
    QTimer pulse;
    pulse.setSingleShot(true);
    pulse.setInterval(0);
    QObject::connect(&pulse, &QTimer::timeout, &link, [&] { link.SetOutMessage(QStringLiteral("Pulse")); });
    link.OnTCPDataReceived = [&](const QString& text) {
      if (text != QString::number(next))
        ++outOfOrder;
      ++next;
      most = std::max(most, link.BufferedBytes());
      if (next == count - 1) {
        link.SetOutMessage(QStringLiteral("reply"));
        pulse.start();
      } else if (next == count) {
        link.SetOutMessage(QStringLiteral("last"));
      }
    };
    // A plain event loop, as the program's: QTest's waits pause between passes.
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
      if (next == count)
        loop.quit();
    });
    link.SetPort(parent.Port());
    link.Run();
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(link.Active());

    // About 20 MB: each frame padded with blanks the trim takes off again.
    const QByteArray padding(500, ' ');
    QByteArray flood;
    for (int i = 0; i < count; ++i)
      flood += padding + QByteArray::number(i) + padding + '\r';
    parent.FPeer->write(flood);
    poll.start(20);
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    loop.exec();
    QCOMPARE(next, count);
    QCOMPARE(outOfOrder, 0);
    QVERIFY2(most <= 2 * TFeedLink::ReadLimit, QByteArray::number(most));
    QVERIFY2(most > TFeedLink::MaxFrameLength, QByteArray::number(most)); // it did fill up
    QTRY_COMPARE(link.BufferCapacity(), 0);
    QCOMPARE(link.BufferedBytes(), 0);
    QVERIFY(parent.WaitForBytes(23));
    QTest::qWait(50);
    // The last two frames may come in one pass, so the pulse may follow
    // either reply; none of the three is lost.
    const QByteArray received = parent.Received();
    QVERIFY2(received == "reply\r\r\nPulse\r\r\nlast\r\r\n" || received == "reply\r\r\nlast\r\r\nPulse\r\r\n",
             received.constData());
    QVERIFY(link.Active());
  }

  // A parent that sends and never reads: the replies wait in the kernel,
  // then in the socket up to the limit, and then the link takes no further
  // frame until the parent reads. Nothing is lost or reordered.
  void linkWaitsForAParentThatDoesNotRead()
  {
    TLoopbackParent parent;
    TFeedLink link;
    const int count = 4000;
    const QString padding(4000, QLatin1Char('r'));
    int next = 0;
    qint64 most = 0;
    link.OnTCPDataReceived = [&](const QString& text) {
      QCOMPARE(text, QString::number(next));
      ++next;
      most = std::max(most, link.UnsentBytes());
      link.SetOutMessage(text + padding);
    };
    link.SetPort(parent.Port());
    link.Run();
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(link.Active());
    parent.FPeer->setReadBufferSize(1);

    QByteArray frames;
    for (int i = 0; i < count; ++i)
      frames += QByteArray::number(i) + '\r';
    parent.Send(frames);
    // Stalled: nothing handled for a while, short of the end.
    int seen = -1;
    for (int waited = 0; waited < 20000 && seen != next; waited += 300) {
      seen = next;
      QTest::qWait(300);
    }
    QVERIFY2(next < count, QByteArray::number(next));
    QVERIFY2(most <= TFeedLink::WriteLimit + 2 * (padding.size() + 8), QByteArray::number(most));
    QVERIFY(link.UnsentBytes() > 0);

    parent.FPeer->setReadBufferSize(0);
    QByteArray expected;
    for (int i = 0; i < count; ++i)
      expected += TFeedLink::OutboundBytes(QString::number(i) + padding);
    QVERIFY(parent.WaitForBytes(expected.size(), 30000));
    QCOMPARE(next, count);
    QVERIFY(parent.FReceived == expected);
    QVERIFY(link.Active());
  }

  // A handler that fails in any way, not only with the program's own
  // failure, is reported with its text; the map is left unlocked and the
  // next frame is handled as usual, also when it came through the link.
  void frameHandlerFailuresAreReported()
  {
    QTemporaryDir dir;
    TLoopbackParent parent;
    WriteIni(dir, QStringLiteral("[Startup]\nTCPPort=%1\n").arg(parent.Port()));
    auto form = MakeForm({dir.path(), QStringLiteral("Test")});
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
    const auto own = form->Map->OnSelectionChanging;
    const auto person = [](const char* id) {
      return QStringLiteral("<KestrelMapData><LiveMarkers><M ID=\"%1\" LAT=\"41.3\" LON=\"-80.3\" FIXRADIUS=\"5\" "
                            "INIT=\"TRUE\"/></LiveMarkers></KestrelMapData>").arg(QLatin1String(id));
    };

    form->Map->OnSelectionChanging = [](TvxCustomMapControl*, IvxMapItem*, bool&) {
      throw std::runtime_error("selection handler broke");
    };
    parent.Send(person("A").toLatin1() + "\r");
    QTRY_COMPARE(FDialogs->Messages.size(), 1);
    QCOMPARE(FDialogs->Messages.last(), QStringLiteral("selection handler broke"));
    QVERIFY(!form->Map->IsLocked());
    QCOMPARE(PersonCount(*form), 1);

    form->Map->OnSelectionChanging = [](TvxCustomMapControl*, IvxMapItem*, bool&) { throw 42; };
    form->TCPDataReceived(person("B"));
    QCOMPARE(FDialogs->Messages.size(), 2);
    QCOMPARE(FDialogs->Messages.last(), QStringLiteral("An unexpected failure occurred."));
    QVERIFY(!form->Map->IsLocked());

    form->Map->OnSelectionChanging = own;
    parent.Send(person("C").toLatin1() + "\r");
    QTRY_COMPARE(PersonCount(*form), 3);
    QCOMPARE(FDialogs->Messages.size(), 2);
    QCOMPARE(form->CurrentUserID(), QStringLiteral("C"));
    QVERIFY(form->TCPListenerActive());
  }

  // The close saves the static markers, the layers, the custom images and
  // the settings in this order; the first that fails is reported and keeps
  // the window open without running the rest. A failure of another kind on
  // the way, here a message box that throws, keeps it open too: no hidden
  // window in a process that never ends.
  void closeStopsAtTheFirstFailedSave()
  {
    QTemporaryDir dir;
    const QString iniText = QStringLiteral("[Startup]\nStartZoom=4\n");
    auto form = MakeForm({WriteIni(dir, iniText), QStringLiteral("Config")});
    form->show();
    QVERIFY(QTest::qWaitForWindowExposed(form.get()));
    QSignalSpy closed(form.get(), &TfrmMain::OnClosed);
    const QString maps = dir.filePath(QStringLiteral("Maps"));
    const QString staticMarkers = maps + QStringLiteral("/Layers/StaticMarkers.xml");
    const QString layers = maps + QStringLiteral("/Layers/Layers.xml");
    const QString customImages = maps + QStringLiteral("/CustomMarkerImages/CustomMarkers.xml");
    const QString ini = maps + QStringLiteral("/Mapwright.ini");
    const auto written = [&](const QString& file) { return QFileInfo(file).isFile(); };
    // Nothing can be saved where a folder stands.
    const auto blocked = [&](const QString& file, const QString& prefix, bool staticWritten, bool layersWritten,
                             bool customWritten) {
      QFile::remove(file);
      QVERIFY(QDir().mkpath(file));
      FDialogs->Messages.clear();
      QVERIFY(!form->close());
      QVERIFY(form->isVisible());
      QCOMPARE(closed.size(), 0);
      QCOMPARE(FDialogs->Messages.size(), 1);
      QVERIFY2(FDialogs->Messages.first().startsWith(prefix), qPrintable(FDialogs->Messages.first()));
      QCOMPARE(written(staticMarkers), staticWritten);
      QCOMPARE(written(layers), layersWritten);
      QCOMPARE(written(customImages), customWritten);
      if (file != ini)
        QCOMPARE(ReadAll(ini), iniText.toUtf8());
      QVERIFY(QDir(file).removeRecursively());
    };
    blocked(staticMarkers, QStringLiteral("Error Writing Static Markers: "), false, false, false);
    blocked(layers, QStringLiteral("Error Reading Connections: "), true, false, false);
    blocked(customImages, QStringLiteral("Error Writing Custom Markers: "), true, true, false);
    blocked(ini, QStringLiteral("Cannot save the settings file"), true, true, true);

    class TBrokenBox : public TRecordingDialogs
    {
    public:
      bool Broken = true;
      void ShowMessage(const QString& text) override
      {
        if (std::exchange(Broken, false))
          throw 7;
        TRecordingDialogs::ShowMessage(text);
      }
    };
    auto broken = std::make_unique<TBrokenBox>();
    TBrokenBox* box = broken.get();
    Dialogs::Set(std::move(broken));
    FDialogs = box;
    QVERIFY(QDir().mkpath(ini));
    QVERIFY(!form->close());
    QVERIFY(form->isVisible());
    QCOMPARE(closed.size(), 0);
    QCOMPARE(box->Messages, QStringList({QStringLiteral("An unexpected failure occurred.")}));

    QVERIFY(QDir(ini).removeRecursively());
    QVERIFY(form->close());
    QVERIFY(!form->isVisible());
    QCOMPARE(closed.size(), 1);
    QVERIFY(ReadAll(ini).contains("StartZoom="));
    QCOMPARE(box->Messages.size(), 1);
  }

  // The fixture's reports reach the store with their values; the INIT report
  // takes the top strip and the status bar.
  void reportsReachTheStore()
  {
    QTemporaryDir dir;
    auto form = MakeForm({WriteIni(dir, QString()), QStringLiteral("Test")});
    form->btnTestMarkersClick();
    QVERIFY(FDialogs->Messages.isEmpty());
    QCOMPARE(PersonCount(*form), 3);
    TvxMapPushpin* alex = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("20-01"));
    QVERIFY(alex);
    QCOMPARE(alex->Attributes().Count(), 10);
    QCOMPARE(Attr(alex, "NAME"), QStringLiteral("ALEX"));
    QCOMPARE(alex->Hint(), QStringLiteral("ALEX"));
    QCOMPARE(Attr(alex, "LOCATION"), QStringLiteral("[0001] Dispatch Office"));
    QCOMPARE(Attr(alex, "STATUS"), QStringLiteral("ON"));
    QCOMPARE(Attr(alex, "LAT"), QStringLiteral("41.313296"));
    QCOMPARE(Attr(alex, "LON"), QStringLiteral("-80.339481"));
    QCOMPARE(Attr(alex, "FIXSTATUS"), QStringLiteral("GOOD"));
    QCOMPARE(alex->Attributes().Value(QStringLiteral("FIXRADIUS")).toInt(), 10);
    QVERIFY(alex->Attributes().Value(QStringLiteral("INIT")).toBool());
    // The drawn pin sits a little north-east of the reported point.
    QCOMPARE(alex->Location().Latitude(), 41.313296 + 0.000015);
    QCOMPARE(alex->Location().Longitude(), -80.339481 + 0.000008);
    TvxMapPushpin* dana = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("20-03"));
    QVERIFY(dana && !dana->Attributes().Value(QStringLiteral("INIT")).toBool());
    QCOMPARE(Attr(dana, "FIXRADIUS"), QStringLiteral("50"));
    QCOMPARE(Attr(dana, "LON"), QStringLiteral("-80.3396"));

    QCOMPARE(form->CurrentUserID(), QStringLiteral("20-01"));
    QCOMPARE(form->lblID->text(), QStringLiteral("20-01"));
    QCOMPARE(form->lblName->text(), QStringLiteral("ALEX"));
    QCOMPARE(form->lblLocation->text(), QStringLiteral("[0001] Dispatch Office"));
    QCOMPARE(form->StatusBarPanel1->text(), QStringLiteral("Fix Status: GOOD"));
    QVERIFY(form->btnLocators->isEnabled());

    // A report for the selected person whose location has no locator.
    form->TCPDataReceived(QStringLiteral(
      "<KestrelMapData><LiveMarkers><M ID=\"20-01\" NAME=\"ALEX\" LOCATION=\"[0000] NS\" STATUS=\"EVAC\" LAT=\"41.3\" "
      "LON=\"-80.3\" FIXSTATUS=\"No Fix\" FIXRADIUS=\"0x10\"/></LiveMarkers></KestrelMapData>"));
    QVERIFY(FDialogs->Messages.isEmpty());
    QVERIFY(!form->btnLocators->isEnabled());
    QCOMPARE(form->StatusBarPanel1->text(), QStringLiteral("Fix Status: No Fix"));
    QCOMPARE(Attr(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("20-01")), "FIXRADIUS"), QStringLiteral("0"));
    QCOMPARE(PersonCount(*form), 3);
  }

  // The first report of a run selects itself; "true" in small letters is false.
  void initRules()
  {
    QTemporaryDir dir;
    auto form = MakeForm({WriteIni(dir, QString()), QStringLiteral("Test")});
    const QString frame = QStringLiteral(
      "<KestrelMapData><LiveMarkers>"
      "<M ID=\"A\" LAT=\"1\" LON=\"2\" FIXRADIUS=\"3\" INIT=\"FALSE\"/>"
      "<M ID=\"B\" LAT=\"1\" LON=\"2\" FIXRADIUS=\"3\" INIT=\"true\"/>"
      "<M ID=\"A\" NAME=\"again\" LAT=\"1\" LON=\"2\" FIXRADIUS=\"3\"/>"
      "</LiveMarkers></KestrelMapData>");
    form->TCPDataReceived(frame);
    QCOMPARE(form->CurrentUserID(), QStringLiteral("A"));
    QCOMPARE(PersonCount(*form), 2);
    QCOMPARE(Attr(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("A")), "NAME"), QStringLiteral("again"));
    QCOMPARE(form->lblName->text(), QStringLiteral("again"));
  }

  void badFramesGetTheirMessages_data()
  {
    QTest::addColumn<QString>("frame");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("applied");
    QTest::newRow("not xml") << QStringLiteral("hello") << QString() << 0;
    QTest::newRow("other root") << QStringLiteral("<Other><LiveMarkers/></Other>")
                                << QStringLiteral("Node \"KestrelMapData\" not found") << 0;
    QTest::newRow("bad LAT after a good report")
      << QStringLiteral("<KestrelMapData><LiveMarkers><M ID=\"1\" LAT=\"1\" LON=\"2\" FIXRADIUS=\"3\"/>"
                        "<M ID=\"2\" LAT=\"4x\" LON=\"2\" FIXRADIUS=\"3\"/><M ID=\"3\" LAT=\"1\" LON=\"2\" "
                        "FIXRADIUS=\"3\"/></LiveMarkers></KestrelMapData>")
      << QStringLiteral("'4x' is not a valid floating point value") << 1;
    QTest::newRow("missing LON") << QStringLiteral("<KestrelMapData><LiveMarkers><M ID=\"1\" LAT=\"1\" FIXRADIUS=\"3\"/>"
                                                   "</LiveMarkers></KestrelMapData>")
                                 << QStringLiteral("'' is not a valid floating point value") << 0;
    QTest::newRow("decimal FIXRADIUS") << QStringLiteral("<KestrelMapData><LiveMarkers><M ID=\"1\" LAT=\"1\" LON=\"2\" "
                                                         "FIXRADIUS=\"2.5\"/></LiveMarkers></KestrelMapData>")
                                       << QStringLiteral("'2.5' is not a valid integer value") << 0;
    QTest::newRow("empty live markers") << QStringLiteral("<KestrelMapData><LiveMarkers/></KestrelMapData>")
                                        << QString() << 0;
  }

  void badFramesGetTheirMessages()
  {
    QFETCH(QString, frame);
    QFETCH(QString, message);
    QFETCH(int, applied);
    QTemporaryDir dir;
    auto form = MakeForm({WriteIni(dir, QString()), QStringLiteral("Config")});
    FDialogs->Messages.clear();
    form->TCPDataReceived(frame);
    QCOMPARE(PersonCount(*form), applied);
    QCOMPARE(form->Map->IsLocked(), false); // the update bracket closed
    if (QTest::currentDataTag() == QLatin1String("not xml")) {
      QCOMPARE(FDialogs->Messages.size(), 1);
      QVERIFY(!FDialogs->Messages.first().isEmpty());
    } else if (message.isEmpty()) {
      QVERIFY(FDialogs->Messages.isEmpty());
    } else {
      QCOMPARE(FDialogs->Messages, QStringList({message}));
    }
  }

  // Damaged frames, entity bombs included, end in a message at most: never a
  // crash, never an update bracket left open.
  void malformedFramesAreHarmless()
  {
    QTemporaryDir dir;
    auto form = MakeForm({WriteIni(dir, QString()), QStringLiteral("Test")});
    QString bomb = QStringLiteral("<!DOCTYPE KestrelMapData [<!ENTITY a \"aaaaaaaaaa\">");
    for (int i = 1; i < 10; ++i)
      bomb += QStringLiteral("<!ENTITY %1 \"%2\">").arg(QChar('a' + i)).arg(QString(QStringLiteral("&%1;").arg(QChar('a' + i - 1))).repeated(10));
    bomb += QStringLiteral("]><KestrelMapData><LiveMarkers><M ID=\"&j;\" LAT=\"1\" LON=\"1\" FIXRADIUS=\"1\"/>"
                           "</LiveMarkers></KestrelMapData>");
    form->TCPDataReceived(bomb);
    QCOMPARE(PersonCount(*form), 0);
    QCOMPARE(FDialogs->Messages.size(), 1); // the parser refuses the expansion

    const QString fixture = TfrmMain::TestMarkersFixture();
    QRandomGenerator random(20261121);
    for (int round = 0; round < 3000; ++round) {
      QString frame = fixture;
      const int edits = 1 + random.bounded(6);
      for (int e = 0; e < edits; ++e) {
        const int at = random.bounded(frame.size());
        switch (random.bounded(4)) {
        case 0: frame.truncate(at); break;
        case 1: frame.remove(at, random.bounded(1, 40)); break;
        case 2: frame[at] = QChar(static_cast<ushort>(random.bounded(1, 128))); break;
        default: frame.insert(at, frame.mid(random.bounded(frame.size()), random.bounded(1, 60))); break;
        }
        if (frame.isEmpty())
          frame = QStringLiteral("<");
      }
      form->TCPDataReceived(frame);
      QCOMPARE(form->Map->IsLocked(), false);
    }
  }

  // Feed numbers follow the user's locale.
  void reportInCommaLocale()
  {
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QTemporaryDir dir;
    auto form = MakeForm({WriteIni(dir, QString()), QStringLiteral("Test")});
    form->TCPDataReceived(QStringLiteral("<KestrelMapData><LiveMarkers><M ID=\"1\" LAT=\"41,5\" LON=\"-80,25\" "
                                         "FIXRADIUS=\"3\"/><M ID=\"2\" LAT=\"41.5\" LON=\"1\" FIXRADIUS=\"3\"/>"
                                         "</LiveMarkers></KestrelMapData>"));
    QCOMPARE(Attr(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("1")), "LON"), QStringLiteral("-80,25"));
    QCOMPARE(FDialogs->Messages, QStringList({QStringLiteral("'41.5' is not a valid floating point value")}));
  }

  void systemCommands()
  {
    QTemporaryDir dir;
    auto form = MakeForm({WriteIni(dir, QString()), QStringLiteral("RunTime")});
    form->show();
    form->TCPDataReceived(MinimizeFrame);
    QVERIFY(form->isMinimized());
    QCOMPARE(PersonCount(*form), 0);
    form->TCPDataReceived(QStringLiteral("<KestrelMapData><System><X COMMAND=\"MAXIMIZE\"/></System></KestrelMapData>"));
    QVERIFY(form->isMaximized());
    form->TCPDataReceived(QStringLiteral("<KestrelMapData><System><X COMMAND=\"RESTORE\"/><X COMMAND=\"shutdown\"/>"
                                         "<X/></System></KestrelMapData>"));
    QVERIFY(!form->isMaximized() && !form->isMinimized());
    QVERIFY(form->isVisible());

    QSignalSpy closed(form.get(), &TfrmMain::OnClosed);
    form->TCPDataReceived(QStringLiteral("<KestrelMapData><System><X COMMAND=\"SHUTDOWN\"/><X COMMAND=\"SHUTDOWN\"/>"
                                         "</System><LiveMarkers><M ID=\"1\" LAT=\"1\" LON=\"2\" FIXRADIUS=\"3\"/>"
                                         "</LiveMarkers></KestrelMapData>"));
    QCOMPARE(closed.size(), 1);
    QVERIFY(!form->isVisible());
    QCOMPARE(PersonCount(*form), 1); // the frame goes on to its end
    QVERIFY(!form->PingTimer->isActive());
  }

  // Every row of the mode table, and a mode word in the wrong case.
  void modeTable_data()
  {
    QTest::addColumn<QString>("mode");
    // pnlTop, btnLocators, btnTestMarkers, btnConfigure, pnlAutoCenter, pnlGet, btnMarkers, btnLayers, link, timer
    QTest::addColumn<QString>("expected");
    QTest::newRow("RunTime") << "RunTime" << "1100101111";
    QTest::newRow("Config") << "Config" << "0001001110";
    QTest::newRow("Put") << "Put" << "1000000000";
    QTest::newRow("Get") << "Get" << "0000010010";
    QTest::newRow("Test") << "Test" << "1110001110";
    QTest::newRow("runtime") << "runtime" << "0000001110";
    QTest::newRow("none") << "" << "0000001110";
  }

  void modeTable()
  {
    QFETCH(QString, mode);
    QFETCH(QString, expected);
    QTemporaryDir dir;
    TLoopbackParent parent;
    WriteIni(dir, QStringLiteral("[Startup]\nTCPPort=%1\n").arg(parent.Port()));
    QStringList args{dir.path()};
    if (!mode.isEmpty())
      args << mode;
    auto form = MakeForm(args);
    const bool linkStarted = form->FeedLink().Connecting() || parent.WaitForPeer(1000);
    const QList<bool> actual = {!form->pnlTop->isHidden(),        !form->btnLocators->isHidden(),
                                !form->btnTestMarkers->isHidden(), !form->btnConfigure->isHidden(),
                                !form->pnlAutoCenter->isHidden(), !form->pnlGet->isHidden(),
                                !form->btnMarkers->isHidden(),     !form->btnLayers->isHidden(),
                                linkStarted,                       form->PingTimer->isActive()};
    QString text;
    for (bool b : actual)
      text += b ? QLatin1Char('1') : QLatin1Char('0');
    QCOMPARE(text, expected);
    QVERIFY(FDialogs->Messages.isEmpty());
  }

  void startupArguments()
  {
    // No arguments: one message, and the application is asked to end.
    {
      auto form = MakeForm({});
      QVERIFY(form->TerminateRequested());
      QCOMPARE(FDialogs->Messages,
               QStringList({QStringLiteral("Mapwright Can Only Be Launched From Kestrel Accountability Programs!")}));
      QVERIFY(Globals::ConfigDir.isEmpty());
    }
    // A directory that is not there: the fallback view, and the mode still counts.
    {
      FDialogs->Messages.clear();
      auto form = MakeForm({QStringLiteral("/nonexistent/place"), QStringLiteral("Test")});
      QCOMPARE(FDialogs->Messages, QStringList({QStringLiteral("Unable to find startup information!")}));
      QCOMPARE(form->Map->CenterPoint().Latitude(), 42.313337);
      QCOMPARE(form->Map->CenterPoint().Longitude(), -81.338731);
      QCOMPARE(form->Map->ZoomLevel(), 3.0);
      QVERIFY(form->TestMode);
      QVERIFY(Globals::ConfigDir.isEmpty());
      form->close();
      QVERIFY(!QFile::exists(QStringLiteral("/nonexistent/place")));
    }
    // Put with two arguments stands at the INI's start point; the INI defaults are one degree off.
    {
      QTemporaryDir dir;
      auto form = MakeForm({WriteIni(dir, QString()), QStringLiteral("Put")});
      QCOMPARE(form->GetPutModeLat, 41.313337);
      QCOMPARE(form->GetPutModeLon, -80.338731);
      QCOMPARE(Globals::ConfigDir, QDir::cleanPath(dir.filePath(QStringLiteral("Maps"))));
      for (const char* sub : {"Maps/Layers", "Maps/MapCache", "Maps/CustomMarkerImages"})
        QVERIFY2(QFileInfo(dir.filePath(QLatin1String(sub))).isDir(), sub);
      QVERIFY(!QFileInfo::exists(dir.filePath(QStringLiteral("LocationImages"))));
      form->show();
      QCOMPARE(form->edtLatitude->text(), QStringLiteral("41.313337"));
    }
    // Get with a blank third argument takes the start point; a bad fourth stops start-up.
    {
      QTemporaryDir dir;
      auto form = MakeForm({WriteIni(dir, QStringLiteral("[Startup]\nStartLat=10.5\n")), QStringLiteral("Get"),
                            QStringLiteral("  "), QStringLiteral("7.25")});
      QCOMPARE(form->GetPutModeLat, 10.5);
      QCOMPARE(form->GetPutModeLon, 7.25);
      FDialogs->Messages.clear();
      auto bad = MakeForm({dir.path(), QStringLiteral("Get"), QStringLiteral("1"), QStringLiteral("east")});
      QCOMPARE(FDialogs->Messages, QStringList({QStringLiteral("'east' is not a valid floating point value")}));
      QVERIFY(!bad->FeedLink().Connecting()); // the rest of start-up was skipped
    }
  }

  // The saved window rectangle comes back; StartTop -1 centres at the design
  // size; a key the program only reads stays absent.
  void windowRectangleAndIniKeys()
  {
    QTemporaryDir dir;
    WriteIni(dir, QStringLiteral("[Startup]\nStartTop=30\nStartLeft=40\nStartHeight=400\nStartWidth=600\n"
                                 "StartZoom=0x10\nAutoCenter=7\n[Features]\nManageLayers=0\nManageMarkers=1\n"));
    {
      auto form = MakeForm({dir.path(), QStringLiteral("Config")});
      QCOMPARE(form->StartupZoom, 3.0); // a float key does not read hexadecimal
      QVERIFY(form->cbAutoCenter->isChecked());
      // Crossed: key ManageLayers governs the markers button.
      QVERIFY(!form->ManageMarkers && form->ManageLayers);
      QVERIFY(!form->btnMarkers->isVisibleTo(form.get()) && form->btnLayers->isVisibleTo(form.get()));
      form->show();
      QCOMPARE(form->pos(), QPoint(40, 30));
      QCOMPARE(form->size(), QSize(600, 400));
      QCOMPARE(form->windowTitle(), QStringLiteral("Kestrel Mapping v2.00"));
      form->close();
    }
    QFile file(dir.filePath(QStringLiteral("Maps/Mapwright.ini")));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray ini = file.readAll();
    for (const char* line : {"StartTop=30", "StartLeft=40", "StartHeight=400", "StartWidth=600", "StartZoom=3",
                             "AutoCenter=1", "ManageLayers=1", "ManageMarkers=0", "SkinName=SevenClassic"})
      QVERIFY2(ini.contains(line), line);
    QVERIFY(!ini.contains("TCPPort"));
    QVERIFY(ini.contains("BaseMapIdx=0")); // the checked base map

    WriteIni(dir, QStringLiteral("[Startup]\nStartTop=-1\nStartLeft=40\nStartHeight=400\nStartWidth=600\n"));
    auto form = MakeForm({dir.path(), QStringLiteral("Config")});
    form->show();
    QCOMPARE(form->size(), QSize(1109, 684));
    const QRect screen = form->screen()->availableGeometry();
    QVERIFY(qAbs(form->frameGeometry().center().x() - screen.center().x()) <= 1);
  }

  // A directory that cannot be made stops start-up with the failure's text.
  void directoryCannotBeMade()
  {
    QTemporaryDir dir;
    QFile blocker(dir.filePath(QStringLiteral("Maps")));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    auto form = MakeForm({dir.path(), QStringLiteral("RunTime")});
    QCOMPARE(FDialogs->Messages.size(), 1);
    QVERIFY(FDialogs->Messages.first().contains(QStringLiteral("Unable to create directory")));
    QVERIFY(!form->PingTimer->isActive());
    QVERIFY(!form->RuntimeMode); // the mode step came after the failure
  }

  // Get mode answers with the picked point; the close writes the INI.
  void getModeDone()
  {
    QTemporaryDir dir;
    TLoopbackParent parent;
    WriteIni(dir, QStringLiteral("[Startup]\nTCPPort=%1\n").arg(parent.Port()));
    auto form = MakeForm({dir.path(), QStringLiteral("Get"), QStringLiteral("41.5"), QStringLiteral("-80.25")});
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
    form->show();
    form->btnDoneClick();
    const QByteArray expected("<GetModeCoordinates LAT=\"41.500000\" LON=\"-80.250000\"></GetModeCoordinates>\r\r\n");
    QVERIFY(parent.WaitForBytes(expected.size()));
    QCOMPARE(parent.Received(), expected);
    QFile ini(dir.filePath(QStringLiteral("Maps/Mapwright.ini")));
    QVERIFY(ini.open(QIODevice::ReadOnly));
    QVERIFY(ini.readAll().contains("StartLat=41.5"));
  }

  // The locator button asks for the selected person's locator, and only then.
  void showLocation()
  {
    QTemporaryDir dir;
    TLoopbackParent parent;
    WriteIni(dir, QStringLiteral("[Startup]\nTCPPort=%1\n").arg(parent.Port()));
    auto form = MakeForm({dir.path(), QStringLiteral("Test")});
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
    form->btnLocatorsClick();
    QTest::qWait(50);
    QVERIFY(parent.Received().isEmpty());
    form->btnTestMarkersClick();
    form->btnLocatorsClick();
    QVERIFY(parent.WaitForBytes(22));
    QCOMPARE(parent.Received(), QByteArray("ShowLocation(20-01)\r\r\n"));
  }

  // Pulses every five whole seconds while up; reconnection attempts while down.
  void pingTimer()
  {
    auto clock = std::make_unique<TManualClock>(QDateTime(QDate(2026, 1, 1), QTime(12, 0)));
    TManualClock* now = clock.get();
    Clock::Set(std::move(clock));
    QTemporaryDir dir;
    TLoopbackParent parent;
    WriteIni(dir, QStringLiteral("[Startup]\nTCPPort=%1\n").arg(parent.Port()));
    auto form = MakeForm({dir.path(), QStringLiteral("RunTime")});
    form->PingTimer->stop(); // ticks by hand
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());

    now->Advance(4999);
    form->PingTimerTimer();
    QTest::qWait(20);
    QVERIFY(parent.Received().isEmpty());
    now->Advance(1);
    form->PingTimerTimer();
    QVERIFY(parent.WaitForBytes(8));
    now->Advance(4000);
    form->PingTimerTimer();
    QTest::qWait(20);
    QCOMPARE(parent.Received(), QByteArray("Pulse\r\r\n"));
    const bool phase = form->HighlightMarker;
    form->PingTimerTimer();
    QCOMPARE(form->HighlightMarker, !phase);

    // Down: the next due tick tries again, and the flash phase stands still.
    parent.FPeer->close();
    QTRY_VERIFY(!form->TCPListenerActive());
    parent.FPeer.reset();
    now->Advance(5000);
    form->PingTimerTimer();
    QCOMPARE(form->HighlightMarker, !phase);
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
  }
};

MAPWRIGHT_TEST_CLASS(TestShell)
#include "tst_shell.moc"
