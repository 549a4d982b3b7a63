#include "TestRegistry.h"
#include "TestTileProvider.h"
#include "vxMapControlDiskCache.h"
#include "vxTestTileServer.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace
{

using TRule = TvxTestTileServer::TRule;

// A tile source of the test provider on the loopback server, with slots the
// test links by hand.
struct TServerFixture
{
  TvxTestTileServer Server;
  QTemporaryDir Dir;
  TTestTileLog Log;
  std::unique_ptr<TvxMapControlImageTileProvider> Provider;
  TvxMapControlMultiScaleImage Image{{}};
  std::vector<std::unique_ptr<TvxMapControlMultiScaleTile>> Slots;

  explicit TServerFixture(int AConnections, const QString& ACacheFolder = QString())
  {
    if (!Server.Start())
      qFatal("the tile server does not start");
    TTestTileProvider::Folder = Dir.path();
    TTestTileProvider::Log = &Log;
    TTestTileProvider::Connections = AConnections;
    TTestTileSource::UrlTemplate = Server.UrlTemplate();
    Provider = vxCreateImageTileProvider<TTestTileProvider>(nullptr);
    Provider->CacheOptions().SetDiskFolder(ACacheFolder);
  }
  ~TServerFixture()
  {
    Slots.clear();
    Provider.reset();
    TTestTileSource::UrlTemplate.clear();
  }

  TvxMapControlMultiScaleTileSource& Source() const { return *Provider->TileSource(); }

  TvxMapControlBitmapTile* Request(const TvxMapControlTileIndex& AIndex)
  {
    Slots.push_back(std::make_unique<TvxMapControlMultiScaleTile>(&Image.Viewport(), 0, 0));
    Source().GetTileImageSource(AIndex, &Slots.back()->Face());
    Source().StartLoadTiles();
    return &Slots.back()->Face();
  }

  bool Idle() const
  {
    return Source().LoadingQueueManager().AllThreadsPaused() && Source().LoadingQueueManager().QueueCount() == 0;
  }
};

struct TTimeoutScope
{
  explicit TTimeoutScope(int AMilliseconds) { TvxMapControlHttpRequest::SetTimeout(AMilliseconds); }
  ~TTimeoutScope() { TvxMapControlHttpRequest::SetTimeout(TvxMapControlHttpRequest::DefaultTimeoutMs); }
};

} // namespace

class TestMapControlTileLoading : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // A client error is final at once; server errors, silence and dropped
  // connections cost five attempts, then the tile has failed; a failed
  // tile is not asked for again while it is in memory.
  void RetriesAndTheirLimits()
  {
    // Long enough that every attempt reaches the server on a busy machine,
    // where the silent tile's count is checked.
    TTimeoutScope LTimeout(1000);
    TServerFixture F(4);
    const QString LMissing = TvxTestTileServer::TilePath(5, 1, 1);
    const QString LFlaky = TvxTestTileServer::TilePath(5, 2, 2);
    const QString LSilent = TvxTestTileServer::TilePath(5, 3, 3);
    const QString LDropped = TvxTestTileServer::TilePath(5, 4, 4);
    const QString LAlways500 = TvxTestTileServer::TilePath(5, 5, 5);
    F.Server.FailTimes(LMissing, 1, TRule::Status(404));
    F.Server.FailTimes(LFlaky, 2, TRule::Status(503));
    F.Server.SetRule(LSilent, TRule::Hang());
    F.Server.SetRule(LDropped, TRule::Close());
    F.Server.SetRule(LAlways500, TRule::Status(500));

    TvxMapControlBitmapTile* LMissingTile = F.Request({1, 1, 5});
    TvxMapControlBitmapTile* LFlakyTile = F.Request({2, 2, 5});
    TvxMapControlBitmapTile* LSilentTile = F.Request({3, 3, 5});
    TvxMapControlBitmapTile* LDroppedTile = F.Request({4, 4, 5});
    TvxMapControlBitmapTile* L500Tile = F.Request({5, 5, 5});
    QTRY_VERIFY_WITH_TIMEOUT(F.Idle(), 20000);

    QCOMPARE(LMissingTile->Source()->Status(), tisFailed);
    QCOMPARE(F.Server.RequestCount(LMissing), 1);
    QCOMPARE(LFlakyTile->Source()->Status(), tisLoaded);
    QVERIFY(LFlakyTile->IsValid());
    QCOMPARE(F.Server.RequestCount(LFlaky), 3);
    for (TvxMapControlBitmapTile* LTile : {LSilentTile, LDroppedTile, L500Tile})
      QCOMPARE(LTile->Source()->Status(), tisFailed);
    QCOMPARE(F.Server.RequestCount(LSilent), 5);
    // Qt resends once by itself when a kept-alive connection closes unanswered.
    QVERIFY(F.Server.RequestCount(LDropped) >= 5 && F.Server.RequestCount(LDropped) <= 10);
    QCOMPARE(F.Server.RequestCount(LAlways500), 5);

    // Coming back to the 404 tile makes no request; the server would now
    // answer, but the failure stands until the tile leaves memory.
    TvxMapControlBitmapTile* LAgain = F.Request({1, 1, 5});
    QTest::qWait(100);
    QVERIFY(F.Idle());
    QCOMPARE(F.Server.RequestCount(LMissing), 1);
    QVERIFY(!LAgain->IsValid());
  }

  // A tile given up between retries asks anew when it is shown again, and
  // a source that goes away ends a GET a silent server holds, rather than
  // making the window wait for the timeout.
  void AbandonedRequests()
  {
    TServerFixture F(2);
    const QString LPath = TvxTestTileServer::TilePath(6, 7, 7);
    F.Server.SetRule(LPath, TRule::Status(503));
    TvxMapControlBitmapTile* LTile = F.Request({7, 7, 6});
    QTRY_VERIFY(F.Server.RequestCount(LPath) >= 2);
    LTile->SetSource(nullptr);
    QTRY_VERIFY(F.Idle());
    F.Server.ClearRules();
    TvxMapControlBitmapTile* LAgain = F.Request({7, 7, 6});
    QTRY_VERIFY(LAgain->IsValid());

    F.Server.SetRule(TvxTestTileServer::TilePath(6, 8, 8), TRule::Hang());
    F.Request({8, 8, 6});
    QTRY_COMPARE(F.Server.RequestCount(TvxTestTileServer::TilePath(6, 8, 8)), 1);
    QElapsedTimer LTimer;
    LTimer.start();
    F.Slots.clear();
    F.Provider.reset();
    QVERIFY2(LTimer.elapsed() < 5000, "destroying the source waited for the server");
  }

  // Bodies that are no tile: garbage, a cut-off PNG, an image of 30000
  // pixels a side. None crashes, none paints, and memory stays small.
  void BadBodiesPaintNothing()
  {
    TServerFixture F(3);
    F.Server.SetRule(TvxTestTileServer::TilePath(6, 1, 1), TRule::Garbage());
    F.Server.SetRule(TvxTestTileServer::TilePath(6, 2, 2), TRule::Truncated());
    F.Server.SetRule(TvxTestTileServer::TilePath(6, 3, 3), TRule::HugeImage());
    TvxMapControlBitmapTile* LGarbage = F.Request({1, 1, 6});
    TvxMapControlBitmapTile* LTruncated = F.Request({2, 2, 6});
    TvxMapControlBitmapTile* LHuge = F.Request({3, 3, 6});
    TvxMapControlBitmapTile* LGood = F.Request({4, 4, 6});
    QTRY_VERIFY_WITH_TIMEOUT(F.Idle(), 20000);
    QVERIFY(LGood->IsValid());
    for (TvxMapControlBitmapTile* LTile : {LGarbage, LTruncated, LHuge})
    {
      QVERIFY(!LTile->IsValid());
      QVERIFY(LTile->Source()->Status() != tisLoaded);
    }
    QVERIFY(F.Source().Storage().MemoryUsage() < 4 * 256 * 256 * 4 + 1);
  }

  // Downloaded tiles go to the disk cache as they came; a new source on the
  // same folder reads them from disk without a request, except a file that
  // was deleted by hand, which comes from the server again.
  void DiskCacheRoundTrip()
  {
    QTemporaryDir LCache;
    QByteArray LServed;
    {
      TServerFixture F(2, LCache.path());
      TvxMapControlBitmapTile* LTile = F.Request({10, 20, 7});
      F.Request({11, 20, 7});
      QTRY_VERIFY(LTile->IsValid());
      QTRY_VERIFY(F.Idle());
      LServed = F.Server.TilePng(7, 10, 20);
    }
    QFile LFile(LCache.filePath(QStringLiteral("test_10_20_7.teramapcache")));
    QVERIFY(LFile.open(QIODevice::ReadOnly));
    QCOMPARE(LFile.readAll(), LServed);
    QFile::remove(LCache.filePath(QStringLiteral("test_11_20_7.teramapcache")));

    TServerFixture F(2, LCache.path());
    TvxMapControlBitmapTile* LFromDisk = F.Request({10, 20, 7});
    TvxMapControlBitmapTile* LLost = F.Request({11, 20, 7});
    QTRY_VERIFY(LFromDisk->IsValid() && LLost->IsValid());
    QCOMPARE(F.Server.Requests(), QStringList{TvxTestTileServer::TilePath(7, 11, 20)});
    QCOMPARE(QColor(LFromDisk->Image().pixel(128, 40)), TvxTestTileServer::LevelColor(7));
  }

  // A cache file damaged on disk is dropped and the tile fetched again,
  // then cached anew. A 200 whose body is no image stays "loading", so it
  // is not asked for again, and is never cached; its slot counts as failed
  // and shows the quarters of a parent that came after its layout.
  void DamagedCacheFilesAndUndecodableBodies()
  {
    QTemporaryDir LCache;
    {
      TServerFixture F(2, LCache.path());
      QTRY_VERIFY(F.Request({3, 4, 6})->IsValid());
      QTRY_VERIFY(F.Idle());
    }
    const QString LFile = LCache.filePath(QStringLiteral("test_3_4_6.teramapcache"));
    QFile LDamage(LFile);
    QVERIFY(LDamage.open(QIODevice::WriteOnly));
    LDamage.write("PNG? not any more");
    LDamage.close();

    TServerFixture F(2, LCache.path());
    const QString LGarbage = TvxTestTileServer::TilePath(6, 9, 9);
    F.Server.SetRule(LGarbage, TRule::Garbage());
    TvxMapControlBitmapTile* LRepaired = F.Request({3, 4, 6});
    QTRY_VERIFY(LRepaired->IsValid());
    QCOMPARE(F.Server.RequestCount(TvxTestTileServer::TilePath(6, 3, 4)), 1);
    QFile LAgain(LFile);
    QVERIFY(LAgain.open(QIODevice::ReadOnly));
    QCOMPARE(LAgain.readAll(), F.Server.TilePng(6, 3, 4));

    // The parent is in memory before the bad tile answers, but after the
    // slot looked for substitutes.
    F.Image.SetSource(&F.Source());
    QTRY_VERIFY(F.Request({4, 4, 5})->IsValid());
    F.Slots.push_back(std::make_unique<TvxMapControlMultiScaleTile>(&F.Image.Viewport(), 0, 0));
    TvxMapControlMultiScaleTile& LSlot = *F.Slots.back();
    LSlot.SetIndex({9, 9, 6});
    F.Source().GetTileImageSource({9, 9, 6}, &LSlot.Face());
    QVERIFY(!LSlot.Mask(0, 0).IsValid());
    F.Source().StartLoadTiles();
    // Settled as the worker finds the body bad; the quarters come with the
    // hand-over to the main thread.
    QTRY_VERIFY(LSlot.IsSettled());
    QTRY_VERIFY(F.Idle());
    QVERIFY(!LSlot.IsReady());
    QCOMPARE(LSlot.Face().Source()->Status(), tisLoading);
    for (int X = 0; X < 2; ++X)
      for (int Y = 0; Y < 2; ++Y)
        QVERIFY(LSlot.Mask(X, Y).IsValid());
    F.Request({9, 9, 6});
    QTest::qWait(100);
    QCOMPARE(F.Server.RequestCount(LGarbage), 1);
    QVERIFY(!QFile::exists(LCache.filePath(QStringLiteral("test_9_9_6.teramapcache"))));
  }

  // Clearing while downloads are under way waits for them and leaves an
  // empty store; the next layout starts over.
  void ClearCacheDuringDownloads()
  {
    TServerFixture F(4);
    F.Server.SetDelay(300);
    for (int X = 0; X < 12; ++X)
      F.Request({X, 0, 8});
    QTRY_VERIFY(F.Server.RequestCount() >= 4);
    F.Source().ClearCache();
    QVERIFY(F.Source().LoadingQueueManager().AllThreadsPaused());
    QCOMPARE(F.Source().LoadingQueueManager().QueueCount(), 0);
    QCOMPARE(F.Source().Storage().Count(), 0);
    for (const auto& LSlot : F.Slots)
      QVERIFY(LSlot->Face().Source() == nullptr);
    // Only the downloads in flight ran; the rest never left the queue.
    QCOMPARE(F.Server.RequestCount(), 4);

    F.Server.SetDelay(0);
    TvxMapControlBitmapTile* LAgain = F.Request({0, 0, 8});
    QTRY_VERIFY(LAgain->IsValid());
  }

  // A cache folder that cannot be written, and one whose map file is
  // broken: tiles still show from the network.
  void UnusableCacheFolders()
  {
    QTemporaryDir LDir;
    QFile LBlocker(LDir.filePath(QStringLiteral("file")));
    QVERIFY(LBlocker.open(QIODevice::WriteOnly));
    LBlocker.close();
    {
      // A folder below a plain file can never be made.
      TServerFixture F(2, LDir.filePath(QStringLiteral("file/cache")));
      TvxMapControlBitmapTile* LTile = F.Request({1, 1, 4});
      QTRY_VERIFY(LTile->IsValid());
    }
    const QString LBroken = LDir.filePath(QStringLiteral("broken"));
    QDir().mkpath(LBroken);
    QFile LMap(LBroken + QStringLiteral("/vxcache.map"));
    QVERIFY(LMap.open(QIODevice::WriteOnly));
    LMap.write("test_1_1_4.teramapcache:45000:10\nno colon here\n");
    LMap.close();
    {
      TServerFixture F(2, LBroken);
      TvxMapControlBitmapTile* LTile = F.Request({1, 1, 4});
      QTRY_VERIFY(LTile->IsValid());
      QCOMPARE(F.Server.RequestCount(), 1);
    }
    // The broken map is kept aside; a fresh one lists the new tile.
    QVERIFY(QFile::exists(LBroken + QStringLiteral("/vxcache.map.broken")));
    QFile LFresh(LBroken + QStringLiteral("/vxcache.map"));
    QVERIFY(LFresh.open(QIODevice::ReadOnly));
    QVERIFY(LFresh.readAll().startsWith("test_1_1_4.teramapcache:"));
  }
};

MAPWRIGHT_TEST_CLASS(TestMapControlTileLoading)
#include "tst_vxMapControlTileLoading.moc"
