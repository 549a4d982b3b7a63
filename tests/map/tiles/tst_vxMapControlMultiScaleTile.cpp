#include "TestRegistry.h"
#include "TestTileProvider.h"
#include "vxMapControl.h"

#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <thread>

namespace
{

// A multi-scale image over a test provider, without a control.
struct TImageFixture
{
  QTemporaryDir Dir;
  TTestTileLog Log;
  std::unique_ptr<TvxMapControlImageTileProvider> Provider;
  TvxMapControlMultiScaleImage Image{{}};

  explicit TImageFixture(int AConnections = 1)
  {
    TTestTileProvider::Folder = Dir.path();
    TTestTileProvider::Log = &Log;
    TTestTileProvider::Connections = AConnections;
    Provider = vxCreateImageTileProvider<TTestTileProvider>(nullptr);
    Image.SetSource(Source());
  }
  ~TImageFixture() { Image.SetSource(nullptr); }

  TvxMapControlMultiScaleTileSource* Source() const { return Provider->TileSource(); }
  TvxMapControlTileImageSourceLoadingQueueManager& Queue() const { return Source()->LoadingQueueManager(); }

  // The view of a control of that size at that zoom, centred on a point in
  // map units (0..1 across the world).
  void Show(QSize APixels, double AZoom, double ACenterX, double ACenterY)
  {
    const double LWorld = 256 * std::pow(2.0, AZoom);
    const double W = APixels.width() / LWorld;
    const double H = APixels.height() / LWorld;
    Image.UpdateViewPort(APixels, {ACenterX - W / 2, ACenterY - H / 2, W, H});
    Image.UpdateTileParams();
  }

  QList<TvxMapControlTileIndex> Slots(bool AInner) const
  {
    QList<TvxMapControlTileIndex> LResult;
    const QSize LGrid = Image.Viewport().InflatedTiles();
    for (int R = 0; R < LGrid.height(); ++R)
      for (int C = 0; C < LGrid.width(); ++C)
      {
        const bool LInner = R > 0 && C > 0 && R < LGrid.height() - 1 && C < LGrid.width() - 1;
        const TvxMapControlTileIndex LIndex = Image.Viewport().Tiles(C, R)->Index();
        if (LInner == AInner && LIndex.Level >= 0)
          LResult.append(LIndex);
      }
    return LResult;
  }
};

QSet<TvxMapControlTileIndex> ToSet(const QList<TvxMapControlTileIndex>& AList)
{
  return QSet<TvxMapControlTileIndex>(AList.begin(), AList.end());
}

QColor PixelAt(const QImage& AImage, int X, int Y)
{
  return QColor(AImage.pixel(X, Y));
}

} // namespace

class TestMapControlMultiScaleTile : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // The level follows from how many slots fit and rounds down, so tiles are
  // stretched up to twice, never shrunk, except where the maximum caps it.
  void ViewportLevelsRangesAndOffsets()
  {
    TImageFixture F;
    const TvxMapControlMultiScaleViewport& V = F.Image.Viewport();

    F.Show({1920, 1080}, 12, 0.3, 0.4);
    QCOMPARE(V.ZoomLevel(), 12);
    QCOMPARE(V.ArrangedTiles(), QSize(8, 5));
    QCOMPARE(V.InflatedTiles(), QSize(10, 7));
    QVERIFY(qFuzzyCompare(V.Scale().X, 1.0));
    QVERIFY(qFuzzyCompare(V.Scale().Y, 1.0));
    // Slot (0, 0) holds the tile under the view's corner.
    const double LLeft = 0.3 - 1920 / (256 * 4096.0) / 2;
    QCOMPARE(V.TileRange().Min.X, int(std::floor(LLeft * 4096)));
    QVERIFY(V.Offset().x() <= 0 && V.Offset().x() > -256);

    // Fractional zoom: the lower level, stretched.
    F.Show({1920, 1080}, 12.5, 0.3, 0.4);
    QCOMPARE(V.ZoomLevel(), 12);
    QVERIFY(V.Scale().X > 1.4 && V.Scale().X < 1.42);

    // Zoom 20 against a maximum of 19: level 19 at twice the size.
    F.Show({800, 600}, 20, 0.5, 0.5);
    QCOMPARE(V.ZoomLevel(), 19);
    QVERIFY(qFuzzyCompare(V.Scale().X, 2.0));

    // Narrower than a tile: one slot, which picks a level above the zoom.
    F.Show({100, 100}, 5, 0.5, 0.5);
    QCOMPARE(V.ArrangedTiles(), QSize(1, 1));
    QCOMPARE(V.ZoomLevel(), 6);

    // North of the world: rows start at 0 and the grid sits lower.
    F.Show({512, 512}, 3, 0.5, 0.0);
    QCOMPARE(V.TileRange().Min.Y, 0);
    QVERIFY(V.Offset().y() > 0);

    // A view larger than the world at level 1: four tiles, the rest of the
    // grid lies off the world and is ready as it is.
    F.Show({1024, 1024}, 1, 0.5, 0.5);
    QCOMPARE(V.ZoomLevel(), 1);
    QCOMPARE(F.Slots(true).size() + F.Slots(false).size(), 4);
    QCOMPARE(V.Offset(), QPoint(256, 256));
    F.Source()->StartLoadTiles();
    QTRY_VERIFY(F.Image.IsReady());
  }

  // The stack: margin tiles are pushed first, so the visible ones load
  // first, the bottom-right one before all; requests of a position left
  // before they ran never load, and coming back loads them.
  void LoadOrderAndCancellation()
  {
    TImageFixture F;
    QTRY_VERIFY(F.Queue().AllThreadsPaused());

    F.Show({1024, 768}, 10, 0.25, 0.25);
    const QList<TvxMapControlTileIndex> LInner = F.Slots(true);
    const QList<TvxMapControlTileIndex> LMargin = F.Slots(false);
    QCOMPARE(F.Queue().QueueCount(), LInner.size() + LMargin.size());
    F.Source()->StartLoadTiles();
    // A loaded two-core machine needs more than the default five seconds.
    QTRY_VERIFY_WITH_TIMEOUT(F.Image.IsReady(), 30000);
    const QList<TvxMapControlTileIndex> LLoaded = F.Log.LoadedCopy();
    QCOMPARE(LLoaded.size(), LInner.size() + LMargin.size());
    QCOMPARE(LLoaded.first(), LInner.last());
    QCOMPARE(ToSet(LLoaded.mid(0, LInner.size())), ToSet(LInner));

    // Far away and back again before the workers wake: only the last
    // position's tiles are fetched.
    F.Log.Loaded.clear();
    F.Show({1024, 768}, 10, 0.75, 0.75);
    const QSet<TvxMapControlTileIndex> LFar = ToSet(F.Slots(true) + F.Slots(false));
    F.Show({1024, 768}, 10, 0.6, 0.6);
    const QSet<TvxMapControlTileIndex> LNear = ToSet(F.Slots(true) + F.Slots(false));
    F.Source()->StartLoadTiles();
    QTRY_VERIFY(F.Image.IsReady());
    QTRY_VERIFY(F.Queue().AllThreadsPaused());
    QCOMPARE(F.Queue().QueueCount(), 0);
    QCOMPARE(ToSet(F.Log.LoadedCopy()), LNear);

    // The cancelled tiles wait in memory with nothing in flight; showing
    // them again starts them.
    F.Log.Loaded.clear();
    F.Show({1024, 768}, 10, 0.75, 0.75);
    F.Source()->StartLoadTiles();
    QTRY_VERIFY(F.Image.IsReady());
    QCOMPARE(ToSet(F.Log.LoadedCopy()), LFar);
  }

  // With 1 MiB only four tiles fit; the first two levels stay whatever the
  // limit, and an evicted tile in flight dies with its task.
  void MemoryLimitKeepsTopLevels()
  {
    TImageFixture F;
    F.Provider->CacheOptions().SetMemoryLimit(1);
    std::vector<std::unique_ptr<TvxMapControlMultiScaleTile>> LSlots;
    auto Request = [&](const TvxMapControlTileIndex& AIndex) {
      LSlots.push_back(std::make_unique<TvxMapControlMultiScaleTile>(&F.Image.Viewport(), 0, 0));
      F.Source()->GetTileImageSource(AIndex, &LSlots.back()->Face());
      return &LSlots.back()->Face();
    };
    // Level 0 and 1 are five tiles, beyond the limit already.
    Request({0, 0, 0});
    for (int I = 0; I < 4; ++I)
      Request({I % 2, I / 2, 1});
    TvxMapControlBitmapTile* LDeep = Request({3, 3, 5});
    QCOMPARE(F.Source()->Storage().Count(), 5);
    QVERIFY(LDeep->Source() == nullptr);
    for (const TvxMapControlTileIndex& LIndex : F.Source()->Storage().Indexes())
      QVERIFY(LIndex.Level <= 1);

    // A deep tile whose load has started goes on eviction, later.
    F.Provider->CacheOptions().SetMemoryLimit(64);
    F.Log.GatedLevel = 6;
    TvxMapControlBitmapTile* LGated = Request({7, 7, 6});
    F.Source()->StartLoadTiles();
    QTRY_COMPARE(LGated->Source()->Status(), tisLoading);
    F.Provider->CacheOptions().SetMemoryLimit(1);
    QVERIFY(LGated->Source() == nullptr);
    F.Log.Gate.release();
    QTRY_VERIFY(F.Queue().AllThreadsPaused());
    QCOMPARE(F.Source()->Storage().Count(), 5);
  }

  // Workers start as tasks come, up to the connection limit: a task that
  // arrives while the first worker is busy gets a worker of its own, and
  // never more loads run at once than the limit allows.
  void WorkersFollowTheStack()
  {
    TImageFixture F(3);
    F.Log.GatedLevel = 5;
    std::vector<std::unique_ptr<TvxMapControlMultiScaleTile>> LSlots;
    auto Request = [&](int X) {
      LSlots.push_back(std::make_unique<TvxMapControlMultiScaleTile>(&F.Image.Viewport(), 0, 0));
      F.Source()->GetTileImageSource({X, 0, 5}, &LSlots.back()->Face());
    };
    auto Loading = [&] {
      int LCount = 0;
      for (const auto& LSlot : LSlots)
        LCount += LSlot->Face().Source() && LSlot->Face().Source()->Status() == tisLoading ? 1 : 0;
      return LCount;
    };
    Request(0);
    F.Source()->StartLoadTiles();
    QTRY_COMPARE(Loading(), 1);
    Request(1);
    F.Source()->StartLoadTiles();
    QTRY_COMPARE(Loading(), 2);
    for (int X = 2; X < 12; ++X)
      Request(X);
    F.Source()->StartLoadTiles();
    QTRY_COMPARE(Loading(), 3);
    QTest::qWait(100);
    QCOMPARE(Loading(), 3);
    F.Log.Gate.release(12);
    QTRY_COMPARE(F.Log.LoadedCopy().size(), 12);
    QTRY_VERIFY(F.Queue().AllThreadsPaused());
    QCOMPARE(F.Queue().QueueCount(), 0);
  }

  // Clearing waits for a worker in the middle of a load and leaves nothing
  // behind: no queue, no tiles, no links.
  void ClearCacheDuringLoads()
  {
    TImageFixture F(3);
    F.Log.GatedLevel = 10;
    F.Show({1024, 768}, 10, 0.25, 0.25);
    F.Source()->StartLoadTiles();
    QTRY_VERIFY(!F.Queue().AllThreadsPaused());
    std::thread LReleaser([&F] {
      std::this_thread::sleep_for(std::chrono::milliseconds(150));
      F.Log.Gate.release(1000);
    });
    F.Source()->ClearCache();
    LReleaser.join();
    QVERIFY(F.Queue().AllThreadsPaused());
    QCOMPARE(F.Queue().QueueCount(), 0);
    QCOMPARE(F.Source()->Storage().Count(), 0);
    QVERIFY(F.Image.Viewport().Tiles(2, 2)->Face().Source() == nullptr);
    QVERIFY(!F.Image.IsReady());

    // The next layout asks again.
    F.Log.GatedLevel = -1;
    F.Image.InvalidateViewPort();
    F.Show({1024, 768}, 10, 0.25, 0.25);
    F.Source()->StartLoadTiles();
    QTRY_VERIFY(F.Image.IsReady());
  }

  // Zooming in by one level paints the parent's quarters until the new
  // tiles arrive; zooming out paints the children.
  void QuartersWhileLoading()
  {
    QTemporaryDir LDir;
    TTestTileLog LLog;
    TTestTileProvider::Folder = LDir.path();
    TTestTileProvider::Log = &LLog;
    TTestTileProvider::Connections = 2;
    TvxMapControl LControl;
    LControl.resize(512, 384);
    LControl.NavigationPanel().SetVisible(false);
    auto* LLayer = LControl.AddLayer<TvxMapImageTileLayer>();
    LLayer->SetProviderClass(vxImageTileProviderClass<TTestTileProvider>());
    LControl.SetCenterPoint({47.5, 8.5});
    LControl.SetZoomLevel(5);
    QTRY_VERIFY(LLayer->IsReady());

    auto Render = [&LControl] {
      QImage LImage(LControl.size(), QImage::Format_RGB32);
      LImage.fill(Qt::white);
      LControl.render(&LImage);
      return LImage;
    };
    auto CountColour = [](const QImage& AImage, const QColor& AColour) {
      int N = 0;
      for (int Y = 8; Y < AImage.height(); Y += 16)
        for (int X = 8; X < AImage.width(); X += 16)
          N += PixelAt(AImage, X, Y) == AColour ? 1 : 0;
      return N;
    };
    const int LSamples = (512 / 16) * (384 / 16);
    QCOMPARE(CountColour(Render(), TestTileLevelColor(5)), LSamples);

    LLog.GatedLevel = 6;
    LControl.Zoom(6, false);
    QCOMPARE(CountColour(Render(), TestTileLevelColor(5)), LSamples);
    LLog.Gate.release(1000);
    QTRY_VERIFY(LLayer->IsReady());
    QCOMPARE(CountColour(Render(), TestTileLevelColor(6)), LSamples);

    LLog.GatedLevel = 4;
    LControl.Zoom(4, false);
    // The children are the level-5 tiles of the first view; where the wider
    // view reaches beyond them, the background shows.
    const QImage LOut = Render();
    QVERIFY(CountColour(LOut, TestTileLevelColor(5)) > LSamples / 2);
    QCOMPARE(CountColour(LOut, TestTileLevelColor(4)), 0);
    LLog.Gate.release(1000);
    QTRY_VERIFY(LLayer->IsReady());
    QCOMPARE(CountColour(Render(), TestTileLevelColor(4)), LSamples);
  }
};

MAPWRIGHT_TEST_CLASS(TestMapControlMultiScaleTile)
#include "tst_vxMapControlMultiScaleTile.moc"
