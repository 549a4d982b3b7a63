#include "GoldenImage.h"
#include "MarkerImagesU.h"
#include "NumberTextU.h"
#include "Render.h"
#include "StatusImagesU.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"
#include "vxTestMBTiles.h"
#include "vxTestTileServer.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <functional>

namespace
{

void WriteFile(const QString& AFileName, const QByteArray& AContent, bool AAppend = false)
{
  QDir().mkpath(QFileInfo(AFileName).path());
  QFile LFile(AFileName);
  QVERIFY(LFile.open(AAppend ? QIODevice::Append : QIODevice::WriteOnly));
  QCOMPARE(LFile.write(AContent), AContent.size());
}

// A tile in a configuration's cache, listed in the cache map as the
// program lists what it downloaded.
void AddCachedTile(const QString& ASite, const QString& APrefix, int AX, int AY, int AZ, const QImage& AImage)
{
  const QString LName = QStringLiteral("%1_%2_%3_%4.teramapcache").arg(APrefix).arg(AX).arg(AY).arg(AZ);
  const QString LFile = ASite + QStringLiteral("/Maps/MapCache/") + LName;
  QDir().mkpath(QFileInfo(LFile).path());
  QVERIFY(AImage.save(LFile, "PNG"));
  WriteFile(ASite + QStringLiteral("/Maps/MapCache/vxcache.map"),
            LName.toUtf8() + ":45000:" + QByteArray::number(QFileInfo(LFile).size()) + '\n', true);
}

// A tile of one colour from a row down, transparent above it.
QImage Filled(const QColor& AColour, int AFromRow = 0)
{
  QImage LImage(256, 256, QImage::Format_ARGB32);
  LImage.fill(Qt::transparent);
  QPainter(&LImage).fillRect(0, AFromRow, 256, 256 - AFromRow, AColour);
  return LImage;
}

// One colour per tile, so that a tile in the wrong place shows.
QColor TileColour(int AX, int AY, int AZ)
{
  return QColor(40 + AX % 8 * 25, 40 + AY % 8 * 25, AZ % 2 ? 200 : 60);
}

// Spherical Mercator, in pixels of the world at a zoom level.
QPointF WorldPixel(double ALat, double ALon, double AZoom)
{
  const double LSize = 256 * std::pow(2.0, AZoom);
  const double LSin = std::sin(ALat * M_PI / 180);
  return {(ALon + 180) / 360 * LSize, (0.5 - std::log((1 + LSin) / (1 - LSin)) / (4 * M_PI)) * LSize};
}

QByteArray Startup(double ALat, double ALon, const QString& AMore)
{
  return QStringLiteral("[Startup]\r\nStartLat=%1\r\nStartLon=%2\r\n%3\r\n")
    .arg(NumberText::FloatToStr(ALat), NumberText::FloatToStr(ALon), AMore)
    .toUtf8();
}

struct TMarker
{
  double Latitude;
  double Longitude;
  QImage Image;
};

// How far a view of one-colour tiles at an integer zoom, with marker images
// centred on their points, is from what it should be: the largest
// difference of a channel, off the tile edges where rounding decides.
int ViewError(const QImage& AView, double ALat, double ALon, int AZ, const QList<TMarker>& AMarkers)
{
  const QPointF LOrigin = WorldPixel(ALat, ALon, AZ) - QPointF(AView.width() / 2.0, AView.height() / 2.0);
  QImage LExpected(AView.size(), QImage::Format_ARGB32);
  for (int Y = 0; Y < AView.height(); ++Y)
    for (int X = 0; X < AView.width(); ++X)
    {
      const QPointF W = LOrigin + QPointF(X, Y);
      LExpected.setPixelColor(X, Y, TileColour(int(W.x() / 256), int(W.y() / 256), AZ));
    }
  QPainter LPainter(&LExpected);
  for (const TMarker& LMarker : AMarkers)
    LPainter.drawImage((WorldPixel(LMarker.Latitude, LMarker.Longitude, AZ) - LOrigin).toPoint() -
                         QPoint(LMarker.Image.width() / 2, (LMarker.Image.height() + 1) / 2),
                       LMarker.Image);
  LPainter.end();
  int LWorst = 0;
  for (int Y = 0; Y < AView.height(); ++Y)
    for (int X = 0; X < AView.width(); ++X)
    {
      const QPointF W = LOrigin + QPointF(X, Y);
      if (std::abs(std::remainder(W.x(), 256.0)) < 2 || std::abs(std::remainder(W.y(), 256.0)) < 2)
        continue;
      const QColor A = AView.pixelColor(X, Y), E = LExpected.pixelColor(X, Y);
      LWorst = std::max({LWorst, std::abs(A.red() - E.red()), std::abs(A.green() - E.green()),
                         std::abs(A.blue() - E.blue())});
    }
  return LWorst;
}

} // namespace

class TestRender : public QObject
{
  Q_OBJECT

  QTemporaryDir FDir;

  QString Out(const QString& AName) const { return FDir.filePath(AName); }

  static QStringList View(const QString& AOut)
  {
    return {QStringLiteral("--size"), QStringLiteral("512x384"), QStringLiteral("--center"),
            QStringLiteral("47.37,8.54"), QStringLiteral("--zoom"), QStringLiteral("5.5"),
            QStringLiteral("--out"), AOut, QStringLiteral("--no-navigation")};
  }

private Q_SLOTS:
  void initTestCase()
  {
    vxRegisterKmlFileLoader();
    vxRegisterShapeFileLoader();
  }

  // Tiles from the loopback server under a Shapefile layer with its own
  // style, at a fractional zoom, so tiles are stretched; then the same view
  // from the disk cache with the server gone.
  void TilesAndLayerFromServerAndCache()
  {
    TvxTestTileServer LServer;
    QVERIFY(LServer.Start());
    const QString LLayer = QStringLiteral(MAPWRIGHT_GDAL_SAMPLES "/countries.shp:fill=#6040A060:border=#FF204020:width=2");
    QByteArray LErrors;
    QStringList LArgs = View(Out(QStringLiteral("online.png")));
    LArgs << QStringLiteral("--tiles") << LServer.UrlTemplate() << QStringLiteral("--tile-cache")
          << Out(QStringLiteral("cache")) << QStringLiteral("--tile-prefix") << QStringLiteral("site")
          << QStringLiteral("--layer") << LLayer;
    QCOMPARE(vxRenderRun(LArgs, LErrors), 0);
    QCOMPARE(LErrors, QByteArray());
    const QImage LOnline(Out(QStringLiteral("online.png")));
    QCOMPARE(LOnline.size(), QSize(512, 384));
    const QString LResult = vxCheckGoldenImage(LOnline, QStringLiteral(MAPWRIGHT_GOLDEN_DIR), QStringLiteral("render_tiles_layer"));
    QVERIFY2(LResult.isEmpty() || LResult == QLatin1String("written"), qPrintable(LResult));
    QVERIFY(QFile::exists(Out(QStringLiteral("cache/site_16_11_5.teramapcache"))));

    LServer.Stop();
    LArgs[7] = Out(QStringLiteral("offline.png"));
    QCOMPARE(vxRenderRun(LArgs, LErrors), 0);
    QCOMPARE(LErrors, QByteArray());
    QCOMPARE(QImage(Out(QStringLiteral("offline.png"))), LOnline);
  }

  // The tiles the server gave, put in an MBTiles file, draw the same
  // picture, through --tiles and as a configuration's OpenStreetMap base
  // map; a file that cannot serve exits 2 with what is wrong with it.
  void TilesFromMBTilesFile()
  {
    TvxTestTileServer LServer;
    QVERIFY(LServer.Start());
    QByteArray LErrors;
    QCOMPARE(vxRenderRun(View(Out(QStringLiteral("served.png"))) << QStringLiteral("--tiles") << LServer.UrlTemplate(),
                         LErrors),
             0);
    QCOMPARE(LErrors, QByteArray());
    const QString LSite = Out(QStringLiteral("mbtiles-site"));
    const QString LFile = LSite + QStringLiteral("/Maps/tiles/site.mbtiles");
    QVERIFY(QDir().mkpath(QFileInfo(LFile).path()));
    {
      TvxTestMBTiles LTiles(LFile);
      for (const QString& LPath : LServer.Requests())
      {
        const QStringList LParts = QString(LPath).remove(QStringLiteral(".png")).split(QLatin1Char('/'), Qt::SkipEmptyParts);
        QCOMPARE(LParts.size(), 3);
        const int LZ = LParts[0].toInt(), LX = LParts[1].toInt(), LY = LParts[2].toInt();
        QVERIFY2(LTiles.AddTile(LZ, LX, LY, LServer.TilePng(LZ, LX, LY)), qPrintable(LTiles.Error()));
      }
    }
    LServer.Stop();
    const QImage LServed(Out(QStringLiteral("served.png")));

    QCOMPARE(vxRenderRun(View(Out(QStringLiteral("file.png"))) << QStringLiteral("--tiles")
                                                                << QStringLiteral("mbtiles:") + LFile,
                         LErrors),
             0);
    QCOMPARE(LErrors, QByteArray());
    QCOMPARE(QImage(Out(QStringLiteral("file.png"))), LServed);

    WriteFile(LSite + QStringLiteral("/Maps/Mapwright.ini"),
              Startup(47.37, 8.54, QStringLiteral("StartZoom=5.5\r\nBaseMapIdx=5\r\n[Servers]\r\n"
                                                  "OpenStreetMapUrl=mbtiles:tiles\\site.mbtiles")));
    const QStringList LConfig = {QStringLiteral("--size"), QStringLiteral("512x384"), QStringLiteral("--out"),
                                 Out(QStringLiteral("config.png")), QStringLiteral("--no-navigation"),
                                 QStringLiteral("--config"), LSite};
    QCOMPARE(vxRenderRun(LConfig, LErrors), 0);
    QCOMPARE(LErrors, QByteArray());
    QCOMPARE(QImage(Out(QStringLiteral("config.png"))), LServed);

    QVERIFY(QFile::remove(LFile));
    for (const QStringList& LArgs :
         {View(Out(QStringLiteral("gone.png"))) << QStringLiteral("--tiles") << QStringLiteral("mbtiles:") + LFile,
          LConfig})
    {
      const QString LMessage = QStringLiteral("MBTiles file \"%1\" was not found").arg(LFile);
      QTest::ignoreMessage(QtWarningMsg, qPrintable(LMessage));
      LErrors.clear();
      QCOMPARE(vxRenderRun(LArgs, LErrors), 2);
      QCOMPARE(LErrors, "mapwright-render: " + LMessage.toUtf8() + '\n');
    }
    QVERIFY(!QFile::exists(Out(QStringLiteral("gone.png"))));
  }

  // Failed tiles end the wait, and so do tiles whose body does not decode;
  // what did come is written.
  void FailedTilesDoNotHoldTheRender()
  {
    TvxTestTileServer LServer;
    QVERIFY(LServer.Start());
    LServer.SetDefaultRule(TvxTestTileServer::TRule::Status(404));
    LServer.FailTimes(TvxTestTileServer::TilePath(5, 16, 11), 0, TvxTestTileServer::TRule::Tile());
    QByteArray LErrors;
    QStringList LArgs = View(Out(QStringLiteral("partial.png")));
    LArgs << QStringLiteral("--tiles") << LServer.UrlTemplate() << QStringLiteral("--wait") << QStringLiteral("30");
    QElapsedTimer LTimer;
    LTimer.start();
    QCOMPARE(vxRenderRun(LArgs, LErrors), 0);
    QVERIFY(LTimer.elapsed() < 10000);
    QVERIFY2(LErrors.contains("some tiles failed"), LErrors.constData());
    const QImage LImage(Out(QStringLiteral("partial.png")));
    int LTileColoured = 0;
    for (int Y = 0; Y < LImage.height(); Y += 8)
      for (int X = 0; X < LImage.width(); X += 8)
        LTileColoured += QColor(LImage.pixel(X, Y)) == TvxTestTileServer::LevelColor(5) ? 1 : 0;
    QVERIFY(LTileColoured > 0);

    // Bodies that are no image settle their tiles as failed too.
    LServer.SetDefaultRule(TvxTestTileServer::TRule::Garbage());
    LErrors.clear();
    LTimer.restart();
    QCOMPARE(vxRenderRun(LArgs, LErrors), 0);
    QVERIFY(LTimer.elapsed() < 10000);
    QVERIFY2(LErrors.contains("some tiles failed"), LErrors.constData());
  }

  // A journal drawn at a moment: frames up to it with their own times,
  // people silent for more than 15 s by then gone, the selected person's
  // trail under the pins; broken lines are named and the rest count.
  void JournalAtAMoment()
  {
    const QString LJournal = Out(QStringLiteral("run.journal"));
    const auto LFrame = [](const char* ATime, const char* AId, const char* AStatus, double ALat, const char* AInit) {
      return QByteArray(ATime) + " <KestrelMapData><LiveMarkers><M ID=\"" + AId + "\" STATUS=\"" + AStatus +
             "\" LAT=\"" + QByteArray::number(ALat, 'f', 6) + "\" LON=\"8.54\" FIXRADIUS=\"5\" INIT=\"" + AInit +
             "\"/></LiveMarkers></KestrelMapData>\n";
    };
    WriteFile(LJournal, LFrame("2026-11-23T10:00:00.000", "1", "ON", 47.3700, "TRUE") +
                          LFrame("2026-11-23T10:00:00.500", "2", "PANIC", 47.3701, "FALSE") +
                          "2026-11-23T10:00:03.000 <broken\\q/>\n" +
                          LFrame("2026-11-23T10:00:10.000", "1", "ON", 47.3703, "FALSE") +
                          LFrame("2026-11-23T10:00:20.000", "1", "ON", 47.3706, "FALSE"));
    const auto LRender = [&](const QString& AAt, const QString& AName, QByteArray& AErrors) {
      return vxRenderRun({QStringLiteral("--size"), QStringLiteral("300x400"), QStringLiteral("--center"),
                          QStringLiteral("47.3703,8.54"), QStringLiteral("--zoom"), QStringLiteral("18"),
                          QStringLiteral("--out"), Out(AName), QStringLiteral("--no-navigation"),
                          QStringLiteral("--frames"), LJournal, QStringLiteral("--at"), AAt},
                         AErrors);
    };
    const auto LCount = [](const QImage& AImage, const std::function<bool(const QColor&)>& ATest) {
      int LN = 0;
      for (int Y = 0; Y < AImage.height(); ++Y)
        for (int X = 0; X < AImage.width(); ++X)
          LN += ATest(AImage.pixelColor(X, Y));
      return LN;
    };
    const auto LPanic = [](const QColor& C) { return C.rgb() == TLiveImageList::MainColour(10).rgb(); };
    const auto LTrail = [](const QColor& C) { return C.blue() > C.red() + 60 && C.blue() > C.green() + 40; };

    QByteArray LErrors;
    QCOMPARE(LRender(QStringLiteral("10:00:05"), QStringLiteral("early.png"), LErrors), 0);
    QCOMPARE(LErrors, QByteArray("mapwright-render: journal line 3: broken line, skipped\n"));
    const QImage LEarly = QImage(Out(QStringLiteral("early.png"))).convertToFormat(QImage::Format_RGB32);
    QVERIFY(LCount(LEarly, LPanic) > 20);
    const int LEarlyBlue = LCount(LEarly, LTrail);

    LErrors.clear();
    QCOMPARE(LRender(QStringLiteral("25"), QStringLiteral("late.png"), LErrors), 0);
    const QImage LLate = QImage(Out(QStringLiteral("late.png"))).convertToFormat(QImage::Format_RGB32);
    QCOMPARE(LCount(LLate, LPanic), 0); // silent for 24.5 s
    const int LLateBlue = LCount(LLate, LTrail);
    QVERIFY2(LLateBlue > LEarlyBlue + 100, qPrintable(QStringLiteral("%1 %2").arg(LEarlyBlue).arg(LLateBlue)));

    LErrors.clear();
    QCOMPARE(LRender(QStringLiteral("half past"), QStringLiteral("bad.png"), LErrors), 2);
    QVERIFY2(LErrors.contains("--at"), LErrors.constData());
    QVERIFY(!QFileInfo::exists(Out(QStringLiteral("bad.png"))));
  }

  // Frames go through the live marker store: the selected person's image
  // and circle are drawn; a frame that is no XML is reported by its line
  // and the others still count.
  void FramesShowLiveMarkers()
  {
    const QString LFrames = Out(QStringLiteral("frames.txt"));
    QFile LFile(LFrames);
    QVERIFY(LFile.open(QIODevice::WriteOnly));
    LFile.write("<KestrelMapData><LiveMarkers><M ID=\"1\" STATUS=\"ON\" LAT=\"47.37\" LON=\"8.54\" FIXRADIUS=\"30\" "
                "INIT=\"TRUE\"/></LiveMarkers></KestrelMapData>\n"
                "\n<broken\n"
                "<KestrelMapData><LiveMarkers><M ID=\"2\" STATUS=\"PANIC\" LAT=\"47.3705\" LON=\"8.5412\" "
                "FIXRADIUS=\"9\"/></LiveMarkers></KestrelMapData>\n");
    LFile.close();
    QByteArray LErrors;
    const QStringList LArgs = {QStringLiteral("--size"),   QStringLiteral("400x300"),     QStringLiteral("--center"),
                               QStringLiteral("47.3702,8.5406"), QStringLiteral("--zoom"), QStringLiteral("18"),
                               QStringLiteral("--out"),    Out(QStringLiteral("live.png")), QStringLiteral("--no-navigation"),
                               QStringLiteral("--frames"), LFrames};
    QCOMPARE(vxRenderRun(LArgs, LErrors), 0);
    QVERIFY2(LErrors.startsWith("mapwright-render: frames line 3: "), LErrors.constData());
    QCOMPARE(LErrors.count('\n'), 1);
    const QImage LImage = QImage(Out(QStringLiteral("live.png"))).convertToFormat(QImage::Format_RGB32);

    // Counts the pixels of a marker image's main colour: each marker
    // paints a solid patch of it.
    const auto LCount = [&LImage](QRgb AColour) {
      int LN = 0;
      for (int Y = 0; Y < LImage.height(); ++Y)
        for (int X = 0; X < LImage.width(); ++X)
          LN += (LImage.pixel(X, Y) & 0xFFFFFF) == (AColour & 0xFFFFFF);
      return LN;
    };
    QVERIFY(LCount(TLiveImageList::MainColour(0).rgb()) > 100); // the selected person, online
    QVERIFY(LCount(TLiveImageList::MainColour(10).rgb()) > 20); // the other one, in alarm
    // Round the selected pin, the red band of a 30 radius over the map's grey.
    int LReddish = 0;
    for (int Y = 0; Y < LImage.height(); ++Y)
      for (int X = 0; X < LImage.width(); ++X)
      {
        const QColor C = LImage.pixelColor(X, Y);
        LReddish += C.red() > C.green() + 40 && C.red() > C.blue() + 40 && C.red() < 250;
      }
    QVERIFY2(LReddish > 500, qPrintable(QString::number(LReddish)));

    QCOMPARE(vxRenderRun({QStringLiteral("--size"), QStringLiteral("10x10"), QStringLiteral("--center"),
                          QStringLiteral("0,0"), QStringLiteral("--zoom"), QStringLiteral("3"), QStringLiteral("--out"),
                          Out(QStringLiteral("x.png")), QStringLiteral("--frames"), Out(QStringLiteral("none.txt"))},
                         LErrors),
             2);
  }

  // A configuration shows its start view: its base map's tiles from its
  // cache, and its static markers with their category images, a custom
  // image among them. --center and --zoom move the view.
  void ConfigurationStartView()
  {
    const QString LSite = Out(QStringLiteral("site"));
    WriteFile(LSite + QStringLiteral("/Maps/Mapwright.ini"),
              Startup(41.3133, -80.3387, QStringLiteral("StartZoom=14\r\nBaseMapIdx=1")));
    // The tiles under both views; the ring round them is left out.
    for (const auto& [LLat, LLon, LZ] : {std::tuple(41.3133, -80.3387, 14), std::tuple(41.32, -80.33, 15)})
    {
      const QPointF LCentre = WorldPixel(LLat, LLon, LZ) / 256;
      for (int Y = int(LCentre.y()) - 1; Y <= int(LCentre.y()) + 1; ++Y)
        for (int X = int(LCentre.x()) - 1; X <= int(LCentre.x()) + 1; ++X)
          AddCachedTile(LSite, QStringLiteral("ArcGIS_WS"), X, Y, LZ, Filled(TileColour(X, Y, LZ)));
    }
    QImage LFlag(24, 20, QImage::Format_ARGB32);
    LFlag.fill(QColor(220, 30, 30));
    QPainter(&LFlag).fillRect(2, 4, 8, 8, QColor(20, 40, 230, 128));
    LFlag.save(LSite + QStringLiteral("/flag.png"));
    WriteFile(LSite + QStringLiteral("/Maps/CustomMarkerImages/CustomMarkers.xml"),
              QStringLiteral("<?xml version=\"1.0\"?><KestrelCustomMarkerInfo><Markers><Marker FileName=\"%1\" "
                             "Caption=\"Flag\"/></Markers></KestrelCustomMarkerInfo>")
                .arg(LSite + QStringLiteral("/flag.png"))
                .toUtf8());
    WriteFile(LSite + QStringLiteral("/Maps/Layers/StaticMarkers.xml"),
              "<?xml version=\"1.0\"?><KestrelStaticMarkerInfo><Markers>"
              "<Marker Title=\"Gate\" Latitude=\"41.3173\" Longitude=\"-80.3467\" ImageCategory=\"Misc\" "
              "ImageIndex=\"2\" Notes=\"\"/>"
              "<Marker Title=\"Bus Depot\" Latitude=\"41.3103\" Longitude=\"-80.3327\" "
              "ImageCategory=\"Transportation\" ImageIndex=\"10\" Notes=\"x\"/>"
              "<Marker Title=\"Flag\" Latitude=\"41.3143\" Longitude=\"-80.3287\" ImageCategory=\"Custom\" "
              "ImageIndex=\"0\" Notes=\"\"/>"
              "</Markers></KestrelStaticMarkerInfo>");
    QFile LMap(LSite + QStringLiteral("/Maps/MapCache/vxcache.map"));
    QVERIFY(LMap.open(QIODevice::ReadOnly));
    const QByteArray LMapBefore = LMap.readAll();

    const QString LOut = Out(QStringLiteral("site.png"));
    const QStringList LArgs = {QStringLiteral("--size"),          QStringLiteral("384x256"), QStringLiteral("--out"),
                               LOut, QStringLiteral("--no-navigation"), QStringLiteral("--config"), LSite};
    QByteArray LErrors;
    QCOMPARE(vxRenderRun(LArgs, LErrors), 0);
    QCOMPARE(LErrors, QByteArray("mapwright-render: some tiles are not in the cache; written without them\n"));
    const TMarkerImageLists& LLists = MarkerImageLists();
    const QList<TMarker> LMarkers = {{41.3173, -80.3467, LLists.MiscImageList.Image(2)},
                                     {41.3103, -80.3327, LLists.TransportationImageList.Image(10)},
                                     {41.3143, -80.3287, LLists.CustomImageList.Image(0)}};
    QVERIFY(!LMarkers[2].Image.isNull());
    QCOMPARE_LE(ViewError(QImage(LOut), 41.3133, -80.3387, 14, LMarkers), 3);
    // The site's cache is read, never written.
    LMap.seek(0);
    QCOMPARE(LMap.readAll(), LMapBefore);

    QCOMPARE(vxRenderRun(LArgs + QStringList{QStringLiteral("--center"), QStringLiteral("41.32,-80.33"),
                                             QStringLiteral("--zoom"), QStringLiteral("15")},
                         LErrors),
             0);
    QCOMPARE_LE(ViewError(QImage(LOut), 41.32, -80.33, 15, LMarkers), 3);
  }

  // The base map of the catalogue position, from its own cache files: an
  // Azure map only with a key (else the first base map), Azure Hybrid as
  // two layers, USA Topo's tiles stretched past its deepest level.
  void ConfigurationBaseMaps()
  {
    const QStringList LPrefixes = {
      QStringLiteral("ArcGIS_WI"),  QStringLiteral("ArcGIS_WS"),       QStringLiteral("ArcGIS_WT"),
      QStringLiteral("ArcGIS_NGW"), QStringLiteral("ArcGIS_UT"),       QStringLiteral("openstreet"),
      QStringLiteral("azure_Satellite"), QStringLiteral("azure_HybridRoad"), QStringLiteral("azure_Road")};
    const QString LKey = QStringLiteral("\r\n[AzureMaps]\r\nMapKey=k");
    const struct
    {
      QString Ini;
      QStringList Shown; // bottom to top
      int Zoom;
    } LCases[] = {
      {QStringLiteral("BaseMapIdx=5"), {QStringLiteral("openstreet")}, 12},
      {QStringLiteral("BaseMapIdx=7"), {QStringLiteral("ArcGIS_WI")}, 12},
      {QStringLiteral("BaseMapIdx=7") + LKey,
       {QStringLiteral("azure_Satellite"), QStringLiteral("azure_HybridRoad")},
       12},
      {QStringLiteral("BaseMapIdx=8") + LKey, {QStringLiteral("azure_Road")}, 12},
      {QStringLiteral("BaseMapIdx=4"), {QStringLiteral("ArcGIS_UT")}, 17},
    };
    const QColor LDecoy(0, 0, 0);
    for (int I = 0; I < int(std::size(LCases)); ++I)
    {
      const auto& LCase = LCases[I];
      // Centred on one tile, at most of level 15 for USA Topo.
      const int LLevel = std::min(LCase.Zoom, 15), LX = 1072 << (LLevel - 11), LY = 717 << (LLevel - 11);
      const double LN = std::ldexp(1.0, LLevel);
      const double LLat = std::atan(std::sinh(M_PI * (1 - 2 * (LY + 0.5) / LN))) * 180 / M_PI;
      const double LLon = (LX + 0.5) / LN * 360 - 180;
      const QString LSite = Out(QStringLiteral("base%1").arg(I));
      WriteFile(LSite + QStringLiteral("/Maps/Mapwright.ini"),
                Startup(LLat, LLon, QStringLiteral("StartZoom=%1\r\n").arg(LCase.Zoom) + LCase.Ini));
      for (const QString& LPrefix : LPrefixes)
        if (!LCase.Shown.contains(LPrefix))
          AddCachedTile(LSite, LPrefix, LX, LY, LLevel, Filled(LDecoy));
      // Each layer covers its own band of rows and those below.
      const int LBand = 256 / int(LCase.Shown.size());
      for (int L = 0; L < LCase.Shown.size(); ++L)
        AddCachedTile(LSite, LCase.Shown[L], LX, LY, LLevel, Filled(QColor(200, 60 + 100 * L, 40), L * LBand));
      QByteArray LErrors;
      QCOMPARE(vxRenderRun({QStringLiteral("--size"), QStringLiteral("160x160"), QStringLiteral("--out"),
                            Out(QStringLiteral("base.png")), QStringLiteral("--no-navigation"),
                            QStringLiteral("--config"), LSite},
                           LErrors),
               0);
      const QImage LView(Out(QStringLiteral("base.png")));
      const int LScale = 1 << (LCase.Zoom - LLevel);
      for (int L = 0; L < LCase.Shown.size(); ++L)
        QVERIFY2(LView.pixelColor(80, 80 + (L * LBand + LBand / 2 - 128) * LScale) == QColor(200, 60 + 100 * L, 40),
                 qPrintable(QStringLiteral("%1, layer %2").arg(LCase.Ini).arg(L)));
    }
  }

  // Every mistake exits 2 with a message that names it, and writes no PNG.
  // The configuration's layers come through the window's catalogue, in
  // its stack order and colours: the upper of two overlapping squares
  // wins where they overlap, and a hidden layer shows nothing.
  void ConfigurationLayers()
  {
    const QString LSite = Out(QStringLiteral("layers-site"));
    const auto LSquare = [](double AWest, double AEast) {
      return "<?xml version=\"1.0\"?><kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document><Placemark>"
             "<Polygon><outerBoundaryIs><LinearRing><coordinates>" +
             QByteArray::number(AWest) + ",40 " + QByteArray::number(AEast) + ",40 " + QByteArray::number(AEast) +
             ",50 " + QByteArray::number(AWest) + ",50 " + QByteArray::number(AWest) +
             ",40</coordinates></LinearRing></outerBoundaryIs></Polygon></Placemark></Document></kml>";
    };
    WriteFile(LSite + QStringLiteral("/Maps/Layers/west.kml"), LSquare(0, 10));
    WriteFile(LSite + QStringLiteral("/Maps/Layers/east.kml"), LSquare(5, 15));
    WriteFile(LSite + QStringLiteral("/Maps/Layers/hidden.kml"), LSquare(-5, 20));
    WriteFile(LSite + QStringLiteral("/Maps/Mapwright.ini"), "[Startup]\r\nStartLat=45\r\nStartLon=7.5\r\nStartZoom=4\r\n");
    const auto LLayer = [&LSite](const char* AName, const char* AFile, const char* AVisible, int AColour) {
      return "<Layer Name=\"" + QByteArray(AName) + "\" FileName=\"" + LSite.toUtf8() + "/Maps/Layers/" + AFile +
             "\" FileType=\"KML\" Visible=\"" + AVisible + "\" Color=\"" + QByteArray::number(AColour) +
             "\" BorderColor=\"" + QByteArray::number(AColour) + "\"/>";
    };
    // Top first: east over west; red is 0x0000FF and blue 0xFF0000 in the file's order.
    WriteFile(LSite + QStringLiteral("/Maps/Layers/Layers.xml"),
              "<?xml version=\"1.0\"?><KestrelMapLayersInfo><Layers><Layer Name=\"KestrelLiveMarkers\"/>"
              "<Layer Name=\"KestrelStaticMarkers\"/>" +
                LLayer("east", "east.kml", "True", 0xFF0000) + LLayer("west", "west.kml", "True", 0x0000FF) +
                LLayer("hidden", "hidden.kml", "False", 0x00FF00) + "</Layers></KestrelMapLayersInfo>");
    const QString LOut = Out(QStringLiteral("layers.png"));
    QByteArray LErrors;
    QCOMPARE(vxRenderRun({QStringLiteral("--size"), QStringLiteral("400x300"), QStringLiteral("--out"), LOut,
                          QStringLiteral("--config"), LSite, QStringLiteral("--no-navigation"),
                          QStringLiteral("--wait"), QStringLiteral("0")},
                         LErrors),
             0);
    const QImage LImage(LOut);
    QVERIFY(!LImage.isNull());
    const auto LAt = [&LImage](double ALon) {
      const double LX = 200 + (ALon - 7.5) / 360.0 * 256 * 16;
      return LImage.pixelColor(int(LX), 150);
    };
    const auto LIsRed = [](const QColor& C) { return C.red() > 200 && C.blue() < 60 && C.green() < 60; };
    const auto LIsBlue = [](const QColor& C) { return C.blue() > 200 && C.red() < 60 && C.green() < 60; };
    QVERIFY2(LIsRed(LAt(2.5)), qPrintable(LAt(2.5).name()));
    QVERIFY2(LIsBlue(LAt(7.5)), qPrintable(LAt(7.5).name()));
    QVERIFY2(LIsBlue(LAt(12.5)), qPrintable(LAt(12.5).name()));
    QVERIFY2(LAt(-3).green() < 200 || LAt(-3).red() > 100, qPrintable(LAt(-3).name()));

    WriteFile(LSite + QStringLiteral("/Maps/Layers/Layers.xml"), "<KestrelMapLayersInfo><Layers><Layer Name=\"a b\" "
                                                             "FileName=\"" + LSite.toUtf8() + "/Maps/Layers/east.kml\"/>"
                                                             "</Layers></KestrelMapLayersInfo>");
    QCOMPARE(vxRenderRun({QStringLiteral("--size"), QStringLiteral("64x64"), QStringLiteral("--out"),
                          Out(QStringLiteral("bad-layers.png")), QStringLiteral("--config"), LSite},
                         LErrors),
             2);
    QVERIFY2(LErrors.contains("mapwright-render: Error Reading Layers: "), LErrors.constData());
    QVERIFY(!QFile::exists(Out(QStringLiteral("bad-layers.png"))));
  }

  void BadArguments()
  {
    const QString LOut = Out(QStringLiteral("bad.png"));
    const QString LBroken = Out(QStringLiteral("broken")), LBrokenCustom = Out(QStringLiteral("broken-custom"));
    WriteFile(LBroken + QStringLiteral("/Maps/Layers/StaticMarkers.xml"),
              "<?xml version=\"1.0\"?><KestrelStaticMarkerInfo><Markers><Marker Title=\"Gate\"");
    WriteFile(LBrokenCustom + QStringLiteral("/Maps/CustomMarkerImages/CustomMarkers.xml"), "<Other/>");
    QDir().mkpath(Out(QStringLiteral("no-maps")));
    const auto LConfig = [&LOut](const QString& ADir) {
      return QStringList{QStringLiteral("--size"), QStringLiteral("64x64"), QStringLiteral("--out"), LOut,
                         QStringLiteral("--config"), ADir};
    };
    const QList<QPair<QStringList, QByteArray>> LCases = {
      {{QStringLiteral("--size"), QStringLiteral("512x384")}, "usage:"},
      {{QStringLiteral("--size"), QStringLiteral("64x64"), QStringLiteral("--out"), LOut, QStringLiteral("--zoom"),
        QStringLiteral("3")},
       "usage:"},
      {LConfig(Out(QStringLiteral("none"))), "no configuration directory"},
      {LConfig(Out(QStringLiteral("no-maps"))), "has no Maps directory"},
      {LConfig(LBroken), "mapwright-render: Error Reading Layers: "},
      {LConfig(LBrokenCustom), "mapwright-render: Error Reading Custom Markers: Node \"KestrelCustomMarkerInfo\""},
      {View(LOut) << QStringLiteral("--zoom") << QStringLiteral("25"), "bad value \"25\" for --zoom"},
      {View(LOut) << QStringLiteral("--tiles") << QStringLiteral("ftp://x/[z]/[x]/[y]"), "for --tiles"},
      {View(LOut) << QStringLiteral("--tiles") << QStringLiteral("mbtiles:"), "for --tiles"},
      {View(LOut) << QStringLiteral("--layer") << QStringLiteral("a.kml:fill=red"), "bad layer option \"fill=red\""},
      {View(LOut) << QStringLiteral("--layer") << FDir.filePath(QStringLiteral("missing.kml")), "missing.kml\":"},
      {View(LOut) << QStringLiteral("--frobnicate"), "unknown argument"},
      {View(FDir.filePath(QStringLiteral("no/such/folder/x.png"))), "cannot write"},
    };
    for (const auto& LCase : LCases)
    {
      QByteArray LErrors;
      QCOMPARE(vxRenderRun(LCase.first, LErrors), 2);
      QVERIFY2(LErrors.contains(LCase.second), LErrors.constData());
      QVERIFY(!QFile::exists(LOut));
    }
  }

  // --help and --version anywhere answer on standard output, whatever else
  // the command line holds.
  void ProgramHelpAndVersion()
  {
    QProcess LProcess;
    LProcess.start(QStringLiteral(RENDER_EXE), {QStringLiteral("--size"), QStringLiteral("--version")});
    QVERIFY(LProcess.waitForFinished(30000));
    QCOMPARE(LProcess.exitCode(), 0);
    QCOMPARE(LProcess.readAllStandardOutput(), QByteArray("mapwright-render " MAPWRIGHT_VERSION "\n"));

    LProcess.start(QStringLiteral(RENDER_EXE), {QStringLiteral("-h")});
    QVERIFY(LProcess.waitForFinished(30000));
    QCOMPARE(LProcess.exitCode(), 0);
    QVERIFY(LProcess.readAllStandardOutput().startsWith("Usage: mapwright-render --size WxH --out FILE.png\n"));
  }
};

QTEST_MAIN(TestRender)
#include "tst_render.moc"
