#include "TestRegistry.h"
#include "vxMBTilesImageryDataProvider.h"
#include "vxTestMBTiles.h"

#include <QBuffer>
#include <QFile>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

namespace
{

// A colour per tile, so that a tile read from the wrong row shows.
QColor TileColour(int AX, int AY, int AZoom)
{
  return QColor(30 + AX * 50 % 200, 30 + AY * 50 % 200, 40 * AZoom % 250);
}

QByteArray Encode(const QImage& AImage, const char* AFormat = "png")
{
  QByteArray LData;
  QBuffer LBuffer(&LData);
  LBuffer.open(QIODevice::WriteOnly);
  if (!AImage.save(&LBuffer, AFormat))
    qFatal("cannot write %s", AFormat);
  return LData;
}

QByteArray Tile(int AX, int AY, int AZoom, const char* AFormat = "png")
{
  QImage LImage(256, 256, QImage::Format_RGB32);
  LImage.fill(TileColour(AX, AY, AZoom));
  return Encode(LImage, AFormat);
}

QStringList ReaderConnections()
{
  return QSqlDatabase::connectionNames().filter(QStringLiteral("vxMBTiles:"));
}

// A provider on a file, with slots the test links by hand.
struct TFileFixture
{
  std::unique_ptr<TvxMBTilesImageryDataProvider> Provider;
  TvxMapControlMultiScaleImage Image{{}};
  std::vector<std::unique_ptr<TvxMapControlMultiScaleTile>> Slots;

  explicit TFileFixture(const QString& AFileName)
  {
    Provider.reset(static_cast<TvxMBTilesImageryDataProvider*>(
      vxCreateImageTileProvider<TvxMBTilesImageryDataProvider>(nullptr).release()));
    Provider->SetFileName(AFileName);
  }
  ~TFileFixture()
  {
    Slots.clear();
    Provider.reset();
  }

  TvxMapControlBitmapTile* Request(const TvxMapControlTileIndex& AIndex)
  {
    Slots.push_back(std::make_unique<TvxMapControlMultiScaleTile>(&Image.Viewport(), 0, 0));
    Provider->TileSource()->GetTileImageSource(AIndex, &Slots.back()->Face());
    Provider->TileSource()->StartLoadTiles();
    return &Slots.back()->Face();
  }

  bool Idle() const
  {
    const auto& LQueue = Provider->TileSource()->LoadingQueueManager();
    return LQueue.AllThreadsPaused() && LQueue.QueueCount() == 0;
  }
};

} // namespace

class TestMBTilesImageryDataProvider : public QObject
{
  Q_OBJECT

  QTemporaryDir FDir;

  QString File(const QString& AName) const { return FDir.filePath(AName); }

private Q_SLOTS:
  // Tiles come by their XYZ index from south-up rows, in any of the three
  // image formats; the metadata gives the levels, bounds and credit line;
  // the workers' connections go with the provider, and a cache folder given
  // from outside is dropped.
  void ReadsTilesAndMetadata()
  {
    const QString LName = File(QStringLiteral("site.mbtiles"));
    {
      TvxTestMBTiles LFile(LName);
      LFile.SetMetadata(QStringLiteral("name"), QStringLiteral("Site"));
      LFile.SetMetadata(QStringLiteral("format"), QStringLiteral("png"));
      LFile.SetMetadata(QStringLiteral("minzoom"), QStringLiteral("1"));
      LFile.SetMetadata(QStringLiteral("maxzoom"), QStringLiteral("3"));
      LFile.SetMetadata(QStringLiteral("bounds"), QStringLiteral("-10.5,-5,10,5.25"));
      LFile.SetMetadata(QStringLiteral("attribution"),
                        QStringLiteral("<a href=\"https://example.org\">&copy; Site Maps</a>\n &amp; friends"));
      for (int X = 0; X < 4; ++X)
        for (int Y = 0; Y < 4; ++Y)
          LFile.AddTile(2, X, Y, Tile(X, Y, 2, X == 1 ? "jpeg" : X == 2 ? "webp" : "png"));
      // Row 1 from the south of level 3 is row 6 from the north.
      QVERIFY2(LFile.Exec(QStringLiteral("INSERT INTO tiles VALUES (3, 6, 1, ?)"), {Tile(6, 6, 3)}),
               qPrintable(LFile.Error()));
    }
    TFileFixture F(LName);
    QCOMPARE(F.Provider->LastError(), QString());
    const TvxMBTilesInfo& LInfo = F.Provider->Info();
    QCOMPARE(LInfo.Name, QStringLiteral("Site"));
    QCOMPARE(LInfo.MinZoomLevel, 1);
    QVERIFY(LInfo.HasBounds && LInfo.West == -10.5 && LInfo.North == 5.25);
    QCOMPARE(F.Provider->Attribution(), QStringLiteral("© Site Maps & friends"));
    // Deeper views stretch level 3.
    QCOMPARE(F.Provider->TileSource()->MaxZoomLevel(), 3);

    QList<QPair<TvxMapControlTileIndex, TvxMapControlBitmapTile*>> LTiles;
    for (int X = 0; X < 4; ++X)
      for (int Y = 0; Y < 4; ++Y)
        LTiles.append({{X, Y, 2}, F.Request({X, Y, 2})});
    LTiles.append({{6, 6, 3}, F.Request({6, 6, 3})});
    QTRY_VERIFY(F.Idle());
    for (const auto& [LIndex, LTile] : LTiles)
    {
      QVERIFY(LTile->IsValid());
      // JPEG and WebP are lossy.
      const QColor A = LTile->Image().pixelColor(128, 128), E = TileColour(LIndex.X, LIndex.Y, LIndex.Level);
      QVERIFY2(std::abs(A.red() - E.red()) + std::abs(A.green() - E.green()) + std::abs(A.blue() - E.blue()) <= 9,
               qPrintable(QStringLiteral("%1/%2/%3: %4 for %5")
                            .arg(LIndex.Level).arg(LIndex.X).arg(LIndex.Y).arg(A.name(), E.name())));
    }
    QVERIFY(!ReaderConnections().isEmpty());
    QVERIFY(ReaderConnections().size() <= F.Provider->MaxParallelConnectionCount());

    F.Provider->CacheOptions().SetDiskFolder(File(QStringLiteral("cache")));
    QCOMPARE(F.Provider->CacheOptions().DiskFolder(), QString());
    F.Request({0, 1, 3});
    QTRY_VERIFY(F.Idle());
    QVERIFY(!QFileInfo::exists(File(QStringLiteral("cache"))));

    F.Slots.clear();
    F.Provider.reset();
    QCOMPARE(ReaderConnections(), QStringList());
  }

  // A tile the file lacks, an empty one, or one outside its levels, fails
  // without a word, as a missing tile does. Without metadata the levels
  // come from the tiles and the credit line is the file's name.
  void MissingTilesFailQuietly()
  {
    const QString LName = File(QStringLiteral("bare.mbtiles"));
    {
      TvxTestMBTiles LFile(LName, false);
      LFile.Exec(QStringLiteral("CREATE TABLE tiles (zoom_level INTEGER, tile_column INTEGER, tile_row INTEGER, "
                                "tile_data BLOB, PRIMARY KEY (zoom_level, tile_column, tile_row))"));
      LFile.AddTile(2, 1, 1, Tile(1, 1, 2));
      LFile.AddTile(4, 3, 3, Tile(3, 3, 4));
      QVERIFY2(LFile.AddTile(3, 0, 0, QByteArray()), qPrintable(LFile.Error()));
    }
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
    TFileFixture F(LName);
    QCOMPARE(F.Provider->Info().MinZoomLevel, 2);
    QCOMPARE(F.Provider->Info().MaxZoomLevel, 4);
    QCOMPARE(F.Provider->Attribution(), QStringLiteral("bare.mbtiles"));
    TvxMapControlBitmapTile* LPresent = F.Request({3, 3, 4});
    const QList<TvxMapControlBitmapTile*> LMissing = {F.Request({2, 2, 2}), F.Request({0, 0, 3}),
                                                      F.Request({0, 0, 1})};
    QTRY_VERIFY(F.Idle());
    QVERIFY(LPresent->IsValid());
    for (TvxMapControlBitmapTile* LTile : LMissing)
      QCOMPARE(LTile->Source()->Status(), tisFailed);
    QCOMPARE(F.Provider->LastError(), QString());
  }

  // Each kind of bad file: exactly one warning that names the file and what
  // is wrong, the same text for the application, no tile source or only
  // failed tiles, and nothing left open.
  void BadFilesGiveOneMessage()
  {
    // Noise makes tiles of some 12 KB, which spread over many pages.
    const auto LNoisy = [this](const QString& AName, int ATiles) {
      TvxTestMBTiles LFile(File(AName));
      LFile.SetMetadata(QStringLiteral("minzoom"), QStringLiteral("4"));
      LFile.SetMetadata(QStringLiteral("maxzoom"), QStringLiteral("4"));
      QRandomGenerator LRandom(7);
      QImage LNoise(64, 64, QImage::Format_RGB32);
      for (int I = 0; I < ATiles; ++I)
      {
        for (int P = 0; P < 64 * 64; ++P)
          LNoise.setPixel(P % 64, P / 64, LRandom.generate());
        LFile.AddTile(4, I % 16, I / 16, Encode(LNoise));
      }
    };
    const auto LWrite = [this](const QString& AName, const QByteArray& AContent) {
      QFile LFile(File(AName));
      QVERIFY(LFile.open(QIODevice::WriteOnly) && LFile.write(AContent) == AContent.size());
    };
    std::unique_ptr<TvxTestMBTiles> LLocker;
    const struct
    {
      QString File;
      std::function<void()> Make;
      QString Reason; // a pattern
      bool Usable;
    } LCases[] = {
      {QStringLiteral("none.mbtiles"), [] {}, QStringLiteral("was not found"), false},
      {QStringLiteral("text.mbtiles"), [&] { LWrite(QStringLiteral("text.mbtiles"), QByteArray(4000, 'x')); },
       QStringLiteral("is not an SQLite database"), false},
      {QStringLiteral("empty.mbtiles"), [&] { LWrite(QStringLiteral("empty.mbtiles"), {}); },
       QStringLiteral("is not an SQLite database"), false},
      {QStringLiteral("short.mbtiles"),
       [&] {
         LNoisy(QStringLiteral("short.mbtiles"), 40);
         QFile LFile(File(QStringLiteral("short.mbtiles")));
         QVERIFY(LFile.resize(LFile.size() / 2));
       },
       QStringLiteral("is cut short: \\d+ of its \\d+ bytes are there"), false},
      {QStringLiteral("schema.mbtiles"),
       [&] {
         TvxTestMBTiles(File(QStringLiteral("schema.mbtiles")), false)
           .Exec(QStringLiteral("CREATE TABLE tiles (z INTEGER, x INTEGER, y INTEGER, image BLOB)"));
       },
       QStringLiteral("has no tiles table of zoom_level, tile_column, tile_row and tile_data \\(no such column"),
       false},
      {QStringLiteral("vector.mbtiles"),
       [&] {
         TvxTestMBTiles LFile(File(QStringLiteral("vector.mbtiles")));
         LFile.SetMetadata(QStringLiteral("format"), QStringLiteral("pbf"));
         LFile.AddTile(1, 0, 0, QByteArray("\x1a\x02\x78\x02", 4));
       },
       QStringLiteral("holds vector tiles \\(pbf\\), which are not drawn"), false},
      {QStringLiteral("locked.mbtiles"),
       [&] {
         LNoisy(QStringLiteral("locked.mbtiles"), 4);
         LLocker = std::make_unique<TvxTestMBTiles>(File(QStringLiteral("locked.mbtiles")), false);
         QVERIFY(LLocker->Exec(QStringLiteral("COMMIT")) && LLocker->Exec(QStringLiteral("BEGIN EXCLUSIVE")));
       },
       QStringLiteral("is locked by another program"), false},
      {QStringLiteral("garbage.mbtiles"),
       [&] {
         TvxTestMBTiles LFile(File(QStringLiteral("garbage.mbtiles")));
         for (int X = 0; X < 6; ++X)
           LFile.AddTile(4, X, 0, X == 5 ? Tile(X, 0, 4) : QByteArray(300 + X, char('a' + X)));
       },
       QStringLiteral("has tiles that are no image, 4/\\d/0 among them; they stay blank"), true},
      // Pages overwritten past the first tiles: whether SQLite notices or
      // the tiles' bytes are spoilt, one message.
      {QStringLiteral("damaged.mbtiles"),
       [&] {
         LNoisy(QStringLiteral("damaged.mbtiles"), 60);
         QFile LFile(File(QStringLiteral("damaged.mbtiles")));
         QVERIFY(LFile.open(QIODevice::ReadWrite) && LFile.seek(LFile.size() / 2));
         LFile.write(QByteArray(int(LFile.size() / 4), '\xff'));
       },
       QStringLiteral("(is damaged \\(database disk image is malformed\\)|has tiles that are no image)"), true},
    };
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
    for (const auto& LCase : LCases)
    {
      LCase.Make();
      const QString LPattern = QStringLiteral("^MBTiles file \"%1\" %2")
                                 .arg(QRegularExpression::escape(File(LCase.File)), LCase.Reason);
      QTest::ignoreMessage(QtWarningMsg, QRegularExpression(LPattern));
      {
        TFileFixture F(File(LCase.File));
        QVERIFY2(F.Provider->IsUsable() == LCase.Usable, qPrintable(F.Provider->LastError()));
        QCOMPARE(F.Provider->TileSource() != nullptr, LCase.Usable);
        if (LCase.Usable)
        {
          QList<TvxMapControlBitmapTile*> LTiles;
          for (int I = 0; I < 64; ++I)
            LTiles << F.Request({I % 16, I / 16, 4});
          QTRY_VERIFY_WITH_TIMEOUT(F.Idle(), 20000);
          for (TvxMapControlBitmapTile* LTile : std::as_const(LTiles))
            QVERIFY(LTile->Source()->Status() == tisFailed || LTile->IsValid());
        }
        QVERIFY2(QRegularExpression(LPattern).match(F.Provider->LastError()).hasMatch(),
                 qPrintable(F.Provider->LastError()));
      }
      LLocker.reset();
      QCOMPARE(ReaderConnections(), QStringList());
    }
  }
};

MAPWRIGHT_TEST_CLASS(TestMBTilesImageryDataProvider)
#include "tst_vxMBTilesImageryDataProvider.moc"
