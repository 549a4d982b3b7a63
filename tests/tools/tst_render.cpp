#include "GoldenImage.h"
#include "Render.h"
#include "StatusImagesU.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"
#include "vxTestTileServer.h"

#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

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

  // Failed tiles end the wait; what did come is written.
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
  }

  // Every mistake exits 2 with a message that names it.
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

  void BadArguments()
  {
    const QString LOut = Out(QStringLiteral("bad.png"));
    const QList<QPair<QStringList, QByteArray>> LCases = {
      {{QStringLiteral("--size"), QStringLiteral("512x384")}, "usage:"},
      {View(LOut) << QStringLiteral("--zoom") << QStringLiteral("25"), "bad value \"25\" for --zoom"},
      {View(LOut) << QStringLiteral("--tiles") << QStringLiteral("ftp://x/[z]/[x]/[y]"), "for --tiles"},
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
    }
  }
};

QTEST_MAIN(TestRender)
#include "tst_render.moc"
