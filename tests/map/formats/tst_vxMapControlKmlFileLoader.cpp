#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapControlHttpRequest.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapItemFileLayer.h"
#include "vxMapMultiPointItems.h"
#include "vxMapPointItems.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QImage>
#include <QSet>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <numeric>

namespace
{

QByteArray Kml(const QByteArray& ABody)
{
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kml xmlns=\"http://www.opengis.net/kml/2.2\">\n"
         "<Document>\n" +
         ABody + "\n</Document>\n</kml>\n";
}

QByteArray PointPlacemark(const QByteArray& AStyle, const QByteArray& AName = "p")
{
  return "<Placemark><name>" + AName + "</name>" + AStyle + "<Point><coordinates>10,20</coordinates></Point></Placemark>";
}

QByteArray IconStyle(const QString& AHref, const QByteArray& AMore = QByteArray())
{
  return "<Style><IconStyle><Icon><href>" + AHref.toUtf8() + "</href></Icon>" + AMore + "</IconStyle></Style>";
}

// A map with one KML file layer, loaded through the layer as the program does.
struct TLayerFixture
{
  TvxMapControl Control;
  TvxMapItemFileLayer* Layer;

  TLayerFixture()
  {
    Control.OptionsBehavior().SetAnimation(false);
    Layer = Control.AddLayer<TvxMapItemFileLayer>();
    Control.resize(400, 300);
    Control.setAttribute(Qt::WA_DontShowOnScreen);
    Control.show();
  }

  void Load(const QByteArray& AKml)
  {
    Layer->SetActive(false);
    QByteArray Data = AKml;
    QBuffer Stream(&Data);
    Stream.open(QIODevice::ReadOnly);
    Layer->LoadFromStream(Stream);
  }

  int Count() const { return Layer->MapItems().Count(); }

  template <class T>
  T* Item(int AIndex) const
  {
    return AIndex < Count() ? dynamic_cast<T*>(Layer->MapItems().Items(AIndex)) : nullptr;
  }
};

// An HTTP server on loopback: "/pin.png" is a 20 by 10 PNG, "/missing.png"
// a 404, "/text" a body that is no image. It counts requests by path,
// ignoring case, and keeps the user agents it saw.
class TIconServer : public QObject
{
public:
  TIconServer()
  {
    QImage Icon(20, 10, QImage::Format_ARGB32);
    Icon.fill(Qt::red);
    QBuffer Buffer(&FPng);
    Buffer.open(QIODevice::WriteOnly);
    Icon.save(&Buffer, "PNG");
    QObject::connect(&FServer, &QTcpServer::newConnection, this, [this] { Accept(); });
    FServer.listen(QHostAddress::LocalHost, 0);
  }

  bool IsListening() const { return FServer.isListening(); }
  QString Url(const QString& APath) const
  {
    return QStringLiteral("http://127.0.0.1:%1%2").arg(FServer.serverPort()).arg(APath);
  }
  int Requests(const QString& APath) const { return FRequests.value(APath.toLower()); }
  int TotalRequests() const { return std::accumulate(FRequests.cbegin(), FRequests.cend(), 0); }
  const QStringList& UserAgents() const { return FUserAgents; }

private:
  void Accept()
  {
    while (QTcpSocket* Socket = FServer.nextPendingConnection())
    {
      QObject::connect(Socket, &QTcpSocket::readyRead, Socket, [this, Socket] { Serve(Socket); });
      QObject::connect(Socket, &QTcpSocket::disconnected, Socket, &QObject::deleteLater);
    }
  }

  void Serve(QTcpSocket* ASocket)
  {
    QByteArray& Request = FPending[ASocket];
    Request += ASocket->readAll();
    const qsizetype HeaderEnd = Request.indexOf("\r\n\r\n");
    if (HeaderEnd < 0)
      return;
    const QList<QByteArray> Lines = Request.left(HeaderEnd).split('\n');
    FPending.remove(ASocket);
    const QString Path = QString::fromLatin1(Lines.value(0).split(' ').value(1)).toLower();
    ++FRequests[Path];
    for (const QByteArray& Line : Lines)
      if (Line.toLower().startsWith("user-agent:"))
        FUserAgents.append(QString::fromLatin1(Line.mid(11).trimmed()));

    QByteArray Status = "200 OK";
    QByteArray Body;
    if (Path == "/pin.png")
      Body = FPng;
    else if (Path == "/text")
      Body = "no image here";
    else
      Status = "404 Not Found";
    ASocket->write("HTTP/1.1 " + Status + "\r\nContent-Length: " + QByteArray::number(Body.size()) +
                   "\r\nConnection: close\r\n\r\n" + Body);
    ASocket->disconnectFromHost();
  }

  QTcpServer FServer;
  QByteArray FPng;
  QHash<QString, int> FRequests;
  QHash<QTcpSocket*, QByteArray> FPending;
  QStringList FUserAgents;
};

// The program's transport, counting the fetches that reach it while alive,
// and those that the caller gave up.
struct TCountingTransport
{
  static inline std::atomic<int> Attempts = 0;
  static inline std::atomic<int> Cancelled = 0;
  struct TRequest : TvxMapControlHttpRequest
  {
    bool DoGet(const QUrl& AUrl, QIODevice& AContent, int& AStatusCode) override
    {
      ++Attempts;
      const bool Result = TvxMapControlHttpRequest::DoGet(AUrl, AContent, AStatusCode);
      Cancelled += IsCancelled();
      return Result;
    }
  };
  TCountingTransport()
  {
    Attempts = 0;
    Cancelled = 0;
    TvxHttpRequest::RegisterHandler([] { return std::make_unique<TRequest>(); });
  }
  ~TCountingTransport() { TvxHttpRequest::UnregisterHandler(); }
};

// A loopback listener with a backlog of none, filled by a connection it never
// accepts: the kernel drops further SYNs, so connecting hangs as it does
// towards a host behind a dead route. Port 0 when that cannot be set up.
struct TSilentHost
{
  int Listener = socket(AF_INET, SOCK_STREAM, 0);
  int Filler = socket(AF_INET, SOCK_STREAM, 0);
  quint16 Port = 0;

  TSilentHost()
  {
    sockaddr_in Address{};
    Address.sin_family = AF_INET;
    Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t Length = sizeof Address;
    auto* Raw = reinterpret_cast<sockaddr*>(&Address);
    if (bind(Listener, Raw, Length) == 0 && listen(Listener, 0) == 0 && getsockname(Listener, Raw, &Length) == 0 &&
        ::connect(Filler, Raw, Length) == 0)
      Port = ntohs(Address.sin_port);
  }
  ~TSilentHost()
  {
    close(Filler);
    close(Listener);
  }
  bool IsSilent() const
  {
    QTcpSocket Probe;
    Probe.connectToHost(QHostAddress::LocalHost, Port);
    return Port != 0 && !Probe.waitForConnected(100);
  }
};

// A port on 127.0.0.1 that refuses connections.
quint16 ClosedPort()
{
  QTcpServer Server;
  Server.listen(QHostAddress::LocalHost, 0);
  const quint16 Port = Server.serverPort();
  Server.close();
  return Port;
}

// APlacemarks points using the icons in turn.
QByteArray ManyPoints(int APlacemarks, const QStringList& AIcons)
{
  QByteArray Body;
  for (int I = 0; I < AIcons.size(); ++I)
    Body += "<Style id=\"s" + QByteArray::number(I) + "\">" + IconStyle(AIcons[I]).mid(7);
  for (int P = 0; P < APlacemarks; ++P)
    Body += "<Placemark><styleUrl>#s" + QByteArray::number(P % AIcons.size()) +
            "</styleUrl><Point><coordinates>10,20</coordinates></Point></Placemark>";
  return Kml(Body);
}

} // namespace

class TestMapControlKmlFileLoader : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void initTestCase()
  {
    vxRegisterKmlFileLoader();
    // The name the program runs under, which the User-Agent carries.
    QCoreApplication::setApplicationName(QStringLiteral("Mapwright"));
  }

  // Failures are remembered for the process: each test starts afresh.
  void init() { vxForgetKmlIconFailures(); }
  void cleanup()
  {
    vxForgetKmlIconFailures();
    vxSetKmlIconCacheDir(QString());
    vxSetKmlIconTimeout(vxKmlIconDefaultTimeoutMs);
    vxSetKmlIconRetryInterval(vxKmlIconDefaultRetryIntervalMs);
  }

  void wholeFileThroughTheLayer()
  {
    QTemporaryDir Dir;
    QVERIFY(Dir.isValid());
    const QString Name = Dir.filePath("site.kml");
    QFile File(Name);
    QVERIFY(File.open(QIODevice::WriteOnly));
    File.write(Kml(R"(
      <Folder><Folder>
        <Placemark><name>Gate</name><description>d</description><Point><coordinates>10.5,20.25,7</coordinates></Point></Placemark>
      </Folder>
        <Placemark><name>Road</name><LineString><coordinates>1,2 3,4 5,6</coordinates></LineString></Placemark>
      </Folder>
      <Placemark><name>Yard</name><Polygon>
        <outerBoundaryIs><LinearRing><coordinates>0,0 4,0 4,4 0,4 0,0</coordinates></LinearRing></outerBoundaryIs>
        <innerBoundaryIs><LinearRing><coordinates>1,1 2,1 2,2 1,1</coordinates></LinearRing></innerBoundaryIs>
      </Polygon></Placemark>
      <Placemark><name>Nothing</name></Placemark>
      <Placemark><name>Unknown</name><Model/></Placemark>
      <Placemark><name>Empty point</name><Point/></Placemark>
      <Placemark><Polygon/></Placemark>)"));
    File.close();

    TLayerFixture Fixture;
    Fixture.Layer->LoadFromFile(Name);
    QVERIFY2(Fixture.Layer->LastError().isEmpty(), qPrintable(Fixture.Layer->LastError()));
    QVERIFY(Fixture.Layer->Active());
    QCOMPARE(Fixture.Count(), 4);

    const auto* Gate = Fixture.Item<TvxMapCustomElement>(0);
    QVERIFY(Gate);
    QCOMPARE(Gate->Text(), QString("Gate"));
    QCOMPARE(Gate->Location().GeoPoint().Latitude, 20.25);
    QCOMPARE(Gate->Location().GeoPoint().Longitude, 10.5);
    QVERIFY(!Gate->HasImage());

    const auto* Road = Fixture.Item<TvxMapPolyline>(1);
    QVERIFY(Road);
    QCOMPARE(Road->GeoPoints().Count(), 3);
    QCOMPARE(Road->GeoPoints().Items(2)->Longitude(), 5.0);
    QCOMPARE(Road->GeoPoints().Items(2)->Latitude(), 6.0);

    // The hole comes first, then the outer ring.
    const auto* Yard = Fixture.Item<TvxMapPath>(2);
    QVERIFY(Yard);
    QCOMPARE(Yard->SegmentType(), mstPolygon);
    QCOMPARE(Yard->Segments().Count(), 2);
    QCOMPARE(Yard->Segments().Items(0)->GeoPoints().Count(), 4);
    QCOMPARE(Yard->Segments().Items(1)->GeoPoints().Count(), 5);

    // A polygon without rings is still a path.
    const auto* Bare = Fixture.Item<TvxMapPath>(3);
    QVERIFY(Bare);
    QCOMPARE(Bare->Segments().Count(), 0);

    // No item carries attributes, and none has a style without a KML style.
    for (int I = 0; I < Fixture.Count(); ++I)
    {
      QStringList Names;
      Fixture.Layer->MapItems().Items(I)->Attributes().GetNames(Names);
      QVERIFY(Names.isEmpty());
      QCOMPARE(Fixture.Layer->MapItems().Items(I)->Style().AssignedValues(), 0u);
    }
    // Drawing what was loaded, the empty path too.
    QVERIFY(!Fixture.Control.grab().isNull());
  }

  void stylesBecomeItemStyles()
  {
    TLayerFixture Fixture;
    Fixture.Load(Kml(R"(
      <Style id="noFill"><LineStyle><color>ff0000ff</color><width>2.5</width></LineStyle>
        <PolyStyle><color>8000ff00</color><fill>0</fill></PolyStyle></Style>
      <Style id="noOutline"><LineStyle><width>4</width></LineStyle><PolyStyle><outline>0</outline></PolyStyle></Style>
      <Style id="label"><LabelStyle><color>ff332211</color></LabelStyle></Style>
      <Style id="clear"><LineStyle><color>00000000</color></LineStyle></Style>
      <StyleMap id="hot"><Pair><key>highlight</key><styleUrl>#noFill</styleUrl></Pair></StyleMap>
      <Placemark><styleUrl>#noFill</styleUrl><Polygon/></Placemark>
      <Placemark><styleUrl>#noOutline</styleUrl><Polygon/></Placemark>
      <Placemark><styleUrl>#noFill</styleUrl><LineString><coordinates>0,0 1,1</coordinates></LineString></Placemark>
      <Placemark><styleUrl>#label</styleUrl><Point><coordinates>0,0</coordinates></Point></Placemark>
      <Placemark><styleUrl>#nowhere</styleUrl><Polygon/></Placemark>
      <Placemark><styleUrl>#hot</styleUrl><Polygon/></Placemark>
      <Placemark><styleUrl>#clear</styleUrl><LineString/></Placemark>)"));
    QVERIFY2(Fixture.Layer->Active(), qPrintable(Fixture.Layer->LastError()));
    QCOMPARE(Fixture.Count(), 7);

    // Fill 0: the fill's alpha goes, the border stays; the width is rounded up.
    const TvxMapItemStyle& NoFill = Fixture.Layer->MapItems().Items(0)->Style();
    QCOMPARE(NoFill.Color(), 0x0000FF00u);
    QCOMPARE(NoFill.BorderColor(), 0xFFFF0000u);
    QCOMPARE(NoFill.BorderWidth(), 3);

    const TvxMapItemStyle& NoOutline = Fixture.Layer->MapItems().Items(1)->Style();
    QCOMPARE(NoOutline.BorderWidth(), 0);
    QCOMPARE(NoOutline.Color(), 0xFFFFFFFFu);

    const TvxMapItemStyle& Line = Fixture.Layer->MapItems().Items(2)->Style();
    QCOMPARE(Line.BorderWidth(), 3);
    QCOMPARE(Line.Color(), 0x0000FF00u);

    // The label colour reaches the font only, and marks it set.
    const TvxMapItemStyle& Label = Fixture.Layer->MapItems().Items(3)->Style();
    QCOMPARE(Label.FontColor(), 0x00112233u);
    QVERIFY(Label.IsAssigned(mcsvFont));
    QVERIFY(!Label.IsAssigned(mcsvTextColor));

    // A reference to nothing, or to a highlight only: the default look.
    QCOMPARE(Fixture.Layer->MapItems().Items(4)->Style().AssignedValues(), 0u);
    QCOMPARE(Fixture.Layer->MapItems().Items(5)->Style().AssignedValues(), 0u);

    // ARGB 0 is "no colour": transparent, and still set.
    const TvxMapItemStyle& Clear = Fixture.Layer->MapItems().Items(6)->Style();
    QCOMPARE(Clear.BorderColor(), 0u);
    QVERIFY(Clear.IsAssigned(mcsvBorderColor));
  }

  void randomColorModeChangesOnlyFullChannels()
  {
    TLayerFixture Fixture;
    QByteArray Body = R"(<Style id="r"><PolyStyle><color>7f80ff10</color><colorMode>random</colorMode></PolyStyle>
      <LineStyle><color>ffffffff</color><colorMode>random</colorMode></LineStyle></Style>)";
    for (int I = 0; I < 30; ++I)
      Body += "<Placemark><styleUrl>#r</styleUrl><Polygon/></Placemark>";
    Fixture.Load(Kml(Body));
    QCOMPARE(Fixture.Count(), 30);
    QSet<quint32> Greens;
    for (int I = 0; I < Fixture.Count(); ++I)
    {
      const TvxMapItemStyle& Style = Fixture.Layer->MapItems().Items(I)->Style();
      // aabbggrr 7f80ff10: alpha, red and blue stay, the full green does not.
      const quint32 Color = Style.Color();
      QCOMPARE(Color & 0xFFFF00FFu, 0x7F100080u);
      QVERIFY(((Color >> 8) & 0xFF) != 0xFF);
      Greens.insert((Color >> 8) & 0xFF);
      const quint32 Border = Style.BorderColor();
      QCOMPARE(Border >> 24, 0xFFu);
      QVERIFY((Border & 0xFF) != 0xFF && ((Border >> 8) & 0xFF) != 0xFF && ((Border >> 16) & 0xFF) != 0xFF);
    }
    QVERIFY(Greens.size() > 1);
  }

  void multiGeometryGroupsPolygons()
  {
    const QByteArray Square = R"(<Polygon>
      <outerBoundaryIs><LinearRing><coordinates>0,0 4,0 4,4 0,0</coordinates></LinearRing></outerBoundaryIs>
      <innerBoundaryIs><LinearRing><coordinates>1,1 2,1 1,1</coordinates></LinearRing></innerBoundaryIs></Polygon>)";
    const QByteArray Triangle =
      "<Polygon><outerBoundaryIs><LinearRing><coordinates>5,5 6,5 6,6 5,5 5,5</coordinates></LinearRing>"
      "</outerBoundaryIs></Polygon>";
    TLayerFixture Fixture;
    Fixture.Load(Kml(R"(<Style id="s"><PolyStyle><color>ff0000ff</color></PolyStyle></Style>
      <Placemark><name>site</name><styleUrl>#s</styleUrl><MultiGeometry>)" +
                     Square + "<Point><coordinates>1,2</coordinates></Point>" + Triangle +
                     R"(</MultiGeometry></Placemark>
      <Placemark><MultiGeometry>)" +
                     Triangle + "<MultiGeometry>" + Square +
                     "<LineString><coordinates>0,0 1,1</coordinates></LineString></MultiGeometry>" + Triangle +
                     "</MultiGeometry></Placemark>"
                     "<Placemark><MultiGeometry><Point><coordinates>3,3</coordinates></Point></MultiGeometry></Placemark>"));
    QVERIFY2(Fixture.Layer->Active(), qPrintable(Fixture.Layer->LastError()));
    QCOMPARE(Fixture.Count(), 5);

    // Two polygons and a point: one path with the rings of both, and the point.
    const auto* Site = Fixture.Item<TvxMapPath>(0);
    QVERIFY(Site);
    QCOMPARE(Site->Segments().Count(), 3);
    QCOMPARE(Site->Segments().Items(0)->GeoPoints().Count(), 3);
    QCOMPARE(Site->Segments().Items(1)->GeoPoints().Count(), 4);
    QCOMPARE(Site->Segments().Items(2)->GeoPoints().Count(), 5);
    QCOMPARE(Site->Style().Color(), 0xFFFF0000u);
    const auto* Point = Fixture.Item<TvxMapCustomElement>(1);
    QVERIFY(Point);
    QCOMPARE(Point->Text(), QString("site"));

    // Nested: the inner polygons join the outer path of their placemark,
    // not the path of the placemark before; the line is its own item.
    const auto* Nested = Fixture.Item<TvxMapPath>(2);
    QVERIFY(Nested);
    QCOMPARE(Nested->Segments().Count(), 4);
    QCOMPARE(Nested->Segments().Items(1)->GeoPoints().Count(), 3);
    QCOMPARE(Nested->Segments().Items(3)->GeoPoints().Count(), 5);
    QCOMPARE(Nested->Style().AssignedValues(), 0u);
    QVERIFY(Fixture.Item<TvxMapPolyline>(3));
    QVERIFY(Fixture.Item<TvxMapCustomElement>(4));
    QVERIFY(!Fixture.Control.grab().isNull());
  }

  void badContentLeavesTheLayerEmpty_data()
  {
    QTest::addColumn<QByteArray>("kml");
    QTest::addColumn<QString>("error");
    QTest::newRow("hot spot without y") << Kml(PointPlacemark(IconStyle("x.png", R"(<hotSpot x="0.5"/>)")))
                                        << "attribute \"y\"";
    QTest::newRow("malformed") << QByteArray("<kml>\n<Document>\n<Placemark></Document>") << "Malformed XML at line 3";
    QTest::newRow("bad coordinate")
      << Kml("<Placemark><LineString><coordinates>1,2 1,abc</coordinates></LineString></Placemark>")
      << "Invalid coordinate \"1,abc\"";
    QTest::newRow("bad colour") << Kml("<Style><PolyStyle><color>fg</color></PolyStyle></Style>")
                                << "Invalid colour \"fg\"";
    QTest::newRow("too deep") << Kml(QByteArray("<Folder>").repeated(1023) + QByteArray("</Folder>").repeated(1023))
                              << "nested deeper than 1024";
  }

  void badContentLeavesTheLayerEmpty()
  {
    QFETCH(QByteArray, kml);
    QFETCH(QString, error);
    TLayerFixture Fixture;
    // Items of a good load go with the failing one.
    Fixture.Load(Kml(PointPlacemark(QByteArray()) + PointPlacemark(QByteArray())));
    QCOMPARE(Fixture.Count(), 2);
    // Straight onto the loaded layer: the items go, Active stays as it was.
    QByteArray Data = kml;
    QBuffer Stream(&Data);
    Stream.open(QIODevice::ReadOnly);
    Fixture.Layer->LoadFromStream(Stream);
    QCOMPARE(Fixture.Count(), 0);
    QVERIFY(Fixture.Layer->Active());
    Fixture.Load(kml);
    QCOMPARE(Fixture.Count(), 0);
    QVERIFY(!Fixture.Layer->Active());
    QVERIFY2(Fixture.Layer->LastError().contains(error), qPrintable(Fixture.Layer->LastError()));
  }

  void iconsFromHttp()
  {
    TIconServer Server;
    QVERIFY(Server.IsListening());
    const QString Pin = Server.Url("/pin.png");
    const QString PinOtherCase = Server.Url("/PIN.png");
    const QString Missing = Server.Url("/missing.png");
    TLayerFixture Fixture;
    Fixture.Load(Kml(PointPlacemark(IconStyle(Pin), "a") + PointPlacemark(IconStyle(PinOtherCase), "b") +
                     PointPlacemark(IconStyle(Missing), "c") + PointPlacemark(IconStyle(Missing), "d") +
                     PointPlacemark(IconStyle(Server.Url("/text")), "e") +
                     PointPlacemark(IconStyle("icons/pin.png"), "f") +
                     PointPlacemark(IconStyle(Pin, "<scale>2</scale>"), "g") +
                     PointPlacemark(IconStyle(Pin, "<scale>1e9</scale>"), "h") +
                     PointPlacemark(IconStyle(Pin, "<scale>0.01</scale>"), "i")));
    QVERIFY2(Fixture.Layer->Active(), qPrintable(Fixture.Layer->LastError()));
    QCOMPARE(Fixture.Count(), 9);
    const auto Image = [&Fixture](int AIndex) { return Fixture.Item<TvxMapCustomElement>(AIndex)->Image(); };

    // One fetch for one URL, whatever its case.
    QCOMPARE(Server.Requests("/pin.png"), 1);
    QCOMPARE(Image(0).size(), QSize(20, 10));
    QCOMPARE(Image(1).size(), QSize(20, 10));
    QCOMPARE(Image(0).pixelColor(5, 5), QColor(Qt::red));
    // A failure is asked for once, and the built-in pin shows.
    QCOMPARE(Server.Requests("/missing.png"), 1);
    QVERIFY(Image(2).isNull());
    QVERIFY(Image(3).isNull());
    QCOMPARE(Server.Requests("/text"), 1);
    QVERIFY(Image(4).isNull());
    // Not HTTP: no request at all.
    QVERIFY(Image(5).isNull());
    QCOMPARE(Server.TotalRequests(), 3);

    QCOMPARE(Image(6).size(), QSize(40, 20));
    // A huge scale is held to a sane size, a tiny one leaves no image.
    QCOMPARE(Image(7).size(), QSize(TvxMapControlKmlPointConverter::MaxScaledIconSize,
                                    TvxMapControlKmlPointConverter::MaxScaledIconSize / 2));
    QVERIFY(Image(8).isNull());

    QCOMPARE(Server.UserAgents().size(), Server.TotalRequests());
    for (const QString& Agent : Server.UserAgents())
    {
      QVERIFY2(Agent.startsWith("Mapwright/"), qPrintable(Agent));
      QCOMPARE(Agent, vxHttpUserAgent());
    }

    // A new load fetches again without a disk cache, but not what failed:
    // a server that answered keeps serving its other icons.
    Fixture.Load(Kml(PointPlacemark(IconStyle(Pin)) + PointPlacemark(IconStyle(Missing))));
    QCOMPARE(Server.Requests("/pin.png"), 2);
    QCOMPARE(Server.Requests("/missing.png"), 1);
    QVERIFY(Image(0).size() == QSize(20, 10) && Image(1).isNull());
  }

  void unreachableIconHostsAreTriedOnce()
  {
    TCountingTransport Transport;
    TLayerFixture Fixture;
    const QString Refused = QStringLiteral("http://127.0.0.1:%1").arg(ClosedPort());
    const QByteArray Layer = ManyPoints(200, {Refused + "/a.png", Refused + "/b.png", Refused + "/A.PNG"});
    Fixture.Load(Layer);
    QVERIFY2(Fixture.Layer->Active(), qPrintable(Fixture.Layer->LastError()));
    QCOMPARE(Fixture.Count(), 200);
    // One host that refused: its other icons are not asked for either.
    QCOMPARE(Transport.Attempts, 1);
    for (const int I : {0, 1, 2, 199})
      QVERIFY(!Fixture.Item<TvxMapCustomElement>(I)->HasImage());

    // Later loads of the process wait no more, until the failures are
    // forgotten or the retry interval has passed.
    Fixture.Load(Layer);
    QCOMPARE(Fixture.Count(), 200);
    QCOMPARE(Transport.Attempts, 1);
    vxForgetKmlIconFailures();
    Fixture.Load(Layer);
    QCOMPARE(Transport.Attempts, 2);
    // Without an interval only the load's own list holds: once per URL.
    vxSetKmlIconRetryInterval(0);
    Fixture.Load(Layer);
    Fixture.Load(Layer);
    QCOMPARE(Transport.Attempts, 6);
    vxSetKmlIconRetryInterval(vxKmlIconDefaultRetryIntervalMs);

    // A host that never completes a connection is given up after the
    // timeout, once for all its icons.
    TSilentHost Silent;
    if (!Silent.IsSilent())
      QSKIP("this system answers connections beyond a full backlog");
    vxSetKmlIconTimeout(200);
    const QString Quiet = QStringLiteral("http://127.0.0.1:%1").arg(Silent.Port);
    Fixture.Load(ManyPoints(50, {Quiet + "/a.png", Quiet + "/b.png"}));
    QVERIFY2(Fixture.Layer->Active(), qPrintable(Fixture.Layer->LastError()));
    QCOMPARE(Fixture.Count(), 50);
    QCOMPARE(Transport.Attempts, 7);
    // Ended by the loader's short wait, not by the transfer timeout of tiles.
    QCOMPARE(Transport.Cancelled, 1);
    QVERIFY(!Fixture.Item<TvxMapCustomElement>(0)->HasImage());
  }

  void iconsKeptOnDisk()
  {
    QTemporaryDir Dir;
    QVERIFY(Dir.isValid());
    const QString IconDir = Dir.filePath("Maps/MapCache/Icons");
    vxSetKmlIconCacheDir(IconDir);
    auto Server = std::make_unique<TIconServer>();
    const QString Pin = Server->Url("/pin.png");
    const QString Missing = Server->Url("/missing.png");
    TLayerFixture Fixture;
    const auto Image = [&Fixture](int AIndex) { return Fixture.Item<TvxMapCustomElement>(AIndex)->Image(); };

    // Only what is an image is kept, in a file of its own, written whole.
    Fixture.Load(Kml(PointPlacemark(IconStyle(Pin)) + PointPlacemark(IconStyle(Missing)) +
                     PointPlacemark(IconStyle(Server->Url("/text")))));
    QCOMPARE(Server->Requests("/pin.png"), 1);
    const QString PinFile = vxKmlIconCacheFileName(Pin);
    QCOMPARE(QDir(IconDir).entryList(QDir::Files), QStringList{QFileInfo(PinFile).fileName()});

    // Read before any fetch: the next load asks the server for nothing new.
    Fixture.Load(Kml(PointPlacemark(IconStyle(Pin)) + PointPlacemark(IconStyle(Server->Url("/PIN.png")))));
    QCOMPARE(Server->Requests("/pin.png"), 1);
    QCOMPARE(Image(0).size(), QSize(20, 10));
    QCOMPARE(Image(1).size(), QSize(20, 10));

    // A damaged file is no icon: fetched again, and replaced as the
    // offline load below shows.
    {
      QFile Damaged(PinFile);
      QVERIFY(Damaged.open(QIODevice::WriteOnly));
      Damaged.write("\x89PNG cut off");
    }
    Fixture.Load(Kml(PointPlacemark(IconStyle(Pin))));
    QCOMPARE(Server->Requests("/pin.png"), 2);
    QCOMPARE(Image(0).size(), QSize(20, 10));

    // Offline, in a later run: the icon still shows, and only what was never
    // had is asked for.
    Server.reset();
    vxForgetKmlIconFailures();
    TCountingTransport Transport;
    Fixture.Load(Kml(PointPlacemark(IconStyle(Pin)) + PointPlacemark(IconStyle(Missing))));
    QCOMPARE(Image(0).size(), QSize(20, 10));
    QCOMPARE(Image(0).pixelColor(5, 5), QColor(Qt::red));
    QVERIFY(Image(1).isNull());
    QCOMPARE(Transport.Attempts, 1);

    // Without a folder nothing is read.
    vxSetKmlIconCacheDir(QString());
    Fixture.Load(Kml(PointPlacemark(IconStyle(Pin))));
    QVERIFY(Image(0).isNull());
  }

  // A FIFO or a device is refused at once, never read. A file whose load
  // would hold more memory than its budget fails with a message for the
  // user and leaves the layer empty; within the budget the same file loads.
  void FilesTheLoaderRefuses()
  {
    QTemporaryDir Dir;
    TLayerFixture Fixture;
    const QString Fifo = Dir.filePath(QStringLiteral("pipe.kml"));
    QCOMPARE(::mkfifo(QFile::encodeName(Fifo).constData(), 0600), 0);
    for (const QString& Name : {Fifo, QStringLiteral("/dev/zero")})
    {
      try
      {
        Fixture.Layer->LoadFromFile(Name);
        QFAIL(qPrintable(Name));
      }
      catch (const EFOpenError& E)
      {
        QCOMPARE(QString::fromUtf8(E.what()), QStringLiteral("Cannot open file \"%1\". It is not a regular file.").arg(Name));
      }
      QVERIFY(!Fixture.Layer->Active());
    }

    QByteArray Body;
    for (int I = 0; I < 20000; ++I)
      Body += PointPlacemark(QByteArray(), "n" + QByteArray::number(I));
    const QString Large = Dir.filePath(QStringLiteral("large.kml"));
    QFile File(Large);
    QVERIFY(File.open(QIODevice::WriteOnly));
    File.write(Kml(Body));
    File.close();
    struct TBudgetScope
    {
      TBudgetScope()
      {
        TvxKmlMemoryGuard::MinimumBudget = 1 << 20;
        TvxKmlMemoryGuard::BudgetFactor = 0;
      }
      ~TBudgetScope()
      {
        TvxKmlMemoryGuard::MinimumBudget = qint64(256) << 20;
        TvxKmlMemoryGuard::BudgetFactor = 10;
      }
    };
    {
      TBudgetScope Budget;
      try
      {
        Fixture.Layer->LoadFromFile(Large);
        QFAIL("loaded beyond its budget");
      }
      catch (const EFTooLargeError& E)
      {
        QCOMPARE(QString::fromUtf8(E.what()),
                 QStringLiteral("Cannot load file \"%1\". Loading it would take more than 1 MB of memory.").arg(Large));
      }
      QCOMPARE(Fixture.Count(), 0);
      QVERIFY(!Fixture.Layer->Active());
      QVERIFY(Fixture.Layer->LastError().contains(QStringLiteral("more than 1 MB")));
    }
    Fixture.Layer->LoadFromFile(Large);
    QVERIFY(Fixture.Layer->Active());
    QCOMPARE(Fixture.Count(), 20000);
  }

  void hotSpotBecomesImageOrigin_data()
  {
    QTest::addColumn<QByteArray>("hotSpot");
    QTest::addColumn<QByteArray>("scale");
    QTest::addColumn<double>("x");
    QTest::addColumn<double>("y");
    QTest::newRow("centre in fractions") << QByteArray(R"(x="0.5" y="0.5")") << QByteArray() << 0.5 << 0.5;
    QTest::newRow("bottom left in fractions") << QByteArray(R"(x="0" y="0")") << QByteArray() << 0.0 << 1.0;
    QTest::newRow("pixels") << QByteArray(R"(x="5" y="2" xunits="pixels" yunits="pixels")") << QByteArray() << 0.25
                            << 0.8;
    QTest::newRow("inset pixels") << QByteArray(R"(x="5" y="2" xunits="insetPixels" yunits="insetPixels")")
                                  << QByteArray() << 0.75 << 0.2;
    QTest::newRow("pixels of the scaled image") << QByteArray(R"(x="10" y="10" xunits="pixels" yunits="pixels")")
                                                << QByteArray("<scale>2</scale>") << 0.25 << 0.5;
    QTest::newRow("far away is held") << QByteArray(R"(x="1e9" y="0" xunits="pixels")") << QByteArray()
                                      << TvxMapControlKmlPointConverter::MaxHotSpotFraction << 1.0;
  }

  void hotSpotBecomesImageOrigin()
  {
    QFETCH(QByteArray, hotSpot);
    QFETCH(QByteArray, scale);
    QFETCH(double, x);
    QFETCH(double, y);
    TIconServer Server;
    TLayerFixture Fixture;
    Fixture.Load(Kml(PointPlacemark(IconStyle(Server.Url("/pin.png"), "<hotSpot " + hotSpot + "/>" + scale)) +
                     PointPlacemark(IconStyle(Server.Url("/missing.png"), "<hotSpot " + hotSpot + "/>"))));
    QVERIFY2(Fixture.Layer->Active(), qPrintable(Fixture.Layer->LastError()));
    const auto* Item = Fixture.Item<TvxMapCustomElement>(0);
    QVERIFY(Item->HasImage());
    QCOMPARE(Item->ImageOrigin().X, x);
    QCOMPARE(Item->ImageOrigin().Y, y);
    // Without an image the origin stays as it is.
    QCOMPARE(Fixture.Item<TvxMapCustomElement>(1)->ImageOrigin(), TvxPointDouble(0.5, 0.5));
  }
};

MAPWRIGHT_TEST_CLASS(TestMapControlKmlFileLoader)

#include "tst_vxMapControlKmlFileLoader.moc"
