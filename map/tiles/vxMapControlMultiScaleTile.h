#pragma once

// Tiles in memory and how they get there, and how a viewport becomes tile
// slots that paint at once.
//
// The tile source keeps decoded tiles in a store with a memory limit and
// feeds a stack of load tasks to a few worker threads; a task reads the disk
// cache or goes to the network, decodes on its thread and hands the result
// back through one blocking queued call to the main thread. The multi-scale
// image lays a grid of slots over the view; a slot whose tile is not there
// yet paints quarters borrowed from the level below or from an ancestor.
//
// Threads: everything here runs on the main thread except the worker loop and
// a task's DoLoad. Workers touch only their task, its source's image, size
// and status, and read whether the source is linked.

#include "vxMapControlHttpRequest.h"
#include "vxMapControlTypes.h"

#include <QByteArray>
#include <QHash>
#include <QImage>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <QThread>
#include <QTimer>
#include <QWaitCondition>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <vector>

class QPainter;
class TvxMapControlBitmapTile;
class TvxMapControlDiskCache;
class TvxMapControlImageTileProvider;
class TvxMapControlMultiScaleImage;
class TvxMapControlMultiScaleTile;
class TvxMapControlMultiScaleTileSource;
class TvxMapControlMultiScaleViewport;
class TvxMapControlTileImageLoadingTask;
class TvxMapControlTileImageSourceLoadingQueueManager;

enum TvxMapControlTileImageStatus
{
  tisNone = 0, // new, or cancelled
  tisLoaded = 1,
  tisLoading = 2,
  tisFailed = 3
};

// One tile in memory, a node of the store's use order.
class TvxMapControlTileImageSource
{
public:
  TvxMapControlTileImageSource(const TvxMapControlTileIndex& AIndex, const QSize& ASize);
  TvxMapControlTileImageSource(const TvxMapControlTileImageSource&) = delete;
  TvxMapControlTileImageSource& operator=(const TvxMapControlTileImageSource&) = delete;
  // Drops every link, so that the bitmap tiles fall back to no image.
  virtual ~TvxMapControlTileImageSource();

  const TvxMapControlTileIndex& Index() const { return FIndex; }
  TvxMapControlTileImageStatus Status() const { return TvxMapControlTileImageStatus(FStatus.load()); }
  void SetStatus(TvxMapControlTileImageStatus AValue);
  // Main thread, once the status is loaded.
  const QImage& Image() const { return FSource; }
  bool IsLoaded() const { return Status() == tisLoaded; }
  // The last bytes it got did not decode. A remote tile stays "loading" so
  // that it is not asked for again, but shows as failed: the slot paints
  // substitutes and nobody waits for it.
  bool DecodeFailed() const { return FDecodeFailed.load(); }
  // Failed, or done without an image to show.
  bool HasFailed() const
  {
    const TvxMapControlTileImageStatus LStatus = Status();
    return LStatus == tisFailed || (LStatus != tisNone && DecodeFailed());
  }
  QSize Size() const { return {FWidth.load(), FHeight.load()}; }
  virtual qint64 GetMemoryUsage() const { return qint64(FWidth.load()) * FHeight.load() * 4; }
  // A plain count, so that workers may read it.
  bool IsLinked() const { return FLinkCount.load() > 0; }
  int LinkCount() const { return FLinkCount.load(); }
  bool NeedToBeDestroying() const { return FNeedToBeDestroying.load(); }
  TvxMapControlTileImageLoadingTask* Task() const { return FTask; }

  // Decodes into the image and takes its size; false, with an empty image,
  // when the bytes are no image or too large for a tile. Worker thread.
  bool CreateImage(const QByteArray& AData);

  // Set by the linked bitmap tile that waits for the image.
  std::function<void()> OnImageLoaded;

private:
  friend class TvxMapControlBitmapTile;
  friend class TvxMapControlMultiScaleTileSource;
  friend class TvxMapControlTileImageSourceLoadingQueueManager;
  friend class TvxMapControlTileImageSourceStorage;

  void Link(TvxMapControlBitmapTile* ATile);
  void Unlink(TvxMapControlBitmapTile* ATile);
  void UnlinkAll();

  QList<TvxMapControlBitmapTile*> FBitmapTiles;
  std::atomic<int> FLinkCount = 0;
  TvxMapControlTileIndex FIndex;
  std::atomic<bool> FNeedToBeDestroying = false;
  std::atomic<int> FWidth;
  std::atomic<int> FHeight;
  QImage FSource;
  std::atomic<int> FStatus = tisNone;
  std::atomic<bool> FDecodeFailed = false;
  // Guarded by the queue manager's destroying lock.
  TvxMapControlTileImageLoadingTask* FTask = nullptr;
  // Place in the store's use order.
  std::list<std::unique_ptr<TvxMapControlTileImageSource>>::iterator FPosition;
};

// The tiles in memory: oldest use first, latest use last, and by index.
// Main thread only.
class TvxMapControlTileImageSourceStorage
{
public:
  using TSources = std::vector<std::unique_ptr<TvxMapControlTileImageSource>>;

  TvxMapControlTileImageSourceStorage() = default;
  TvxMapControlTileImageSourceStorage(const TvxMapControlTileImageSourceStorage&) = delete;
  TvxMapControlTileImageSourceStorage& operator=(const TvxMapControlTileImageSourceStorage&) = delete;

  // The source of that tile, moved to the latest-use end; null if none.
  TvxMapControlTileImageSource* Find(const TvxMapControlTileIndex& AIndex);
  TvxMapControlTileImageSource* Add(std::unique_ptr<TvxMapControlTileImageSource> ASource);
  // Takes out the oldest sources of level 2 and deeper until the rest fit
  // in ALimit bytes. Levels 0 and 1 always stay.
  TSources CheckMemoryLimit(qint64 ALimit);
  TSources ExtractAll();

  int Count() const { return int(FTimeSortedTileSources.size()); }
  qint64 MemoryUsage() const;
  // Oldest use first.
  QList<TvxMapControlTileIndex> Indexes() const;

private:
  std::list<std::unique_ptr<TvxMapControlTileImageSource>> FTimeSortedTileSources;
  QHash<TvxMapControlTileIndex, TvxMapControlTileImageSource*> FTileImageSources;
};

// One load of one tile; made on the main thread, run by a worker.
class TvxMapControlTileImageLoadingTask
{
public:
  TvxMapControlTileImageLoadingTask(TvxMapControlTileImageSourceLoadingQueueManager* AManager,
                                    TvxMapControlTileImageSource* ASource, const QString& AUri);
  TvxMapControlTileImageLoadingTask(const TvxMapControlTileImageLoadingTask&) = delete;
  TvxMapControlTileImageLoadingTask& operator=(const TvxMapControlTileImageLoadingTask&) = delete;
  virtual ~TvxMapControlTileImageLoadingTask();

  // Worker thread; true when an image is to be handed to the main thread.
  bool Load() { return DoLoad(); }
  // Main thread.
  virtual void RaiseImageLoaded();

  TvxMapControlTileImageSource* TileImageSource() const { return FTileImageSource; }
  const QString& Uri() const { return FUri; }
  // Any thread: the tile is being thrown away; a remote load ends its GET.
  void Abort() { FAborted.store(true); }
  // The file is the disk cache's: one that no longer decodes is dropped.
  bool FromDiskCache() const { return FFromDiskCache; }
  void SetFromDiskCache(bool AValue) { FFromDiskCache = AValue; }

protected:
  virtual bool DoLoad() = 0;
  bool CreateImage(const QByteArray& AData) { return FTileImageSource->CreateImage(AData); }
  void RaiseImageFailed() { FTileImageSource->SetStatus(tisFailed); }
  void RaiseImageCancelled() { FTileImageSource->SetStatus(tisNone); }
  bool IsTaskCancelled() const;

  TvxMapControlTileImageSourceLoadingQueueManager* FLoadingQueueManager;
  TvxMapControlTileImageSource* FTileImageSource;
  QString FUri;
  std::atomic<bool> FAborted = false;
  bool FFromDiskCache = false;

private:
  friend class TvxMapControlTileImageSourceLoadingQueueManager;
  // A source evicted while this task runs is freed with the task.
  std::unique_ptr<TvxMapControlTileImageSource> FOwnedSource;
};

class TvxMapControlTileImageRemoteLoadingTask : public TvxMapControlTileImageLoadingTask
{
public:
  static constexpr int MaxAttempts = 5;

  TvxMapControlTileImageRemoteLoadingTask(TvxMapControlTileImageSourceLoadingQueueManager* AManager,
                                          TvxMapControlTileImageSource* ASource, const QString& AUri,
                                          TvxMapControlHttpRequest::TValidateServerCertificate AValidate);

  void RaiseImageLoaded() override;
  int HTTPStatus() const { return FHTTPStatus; }

protected:
  bool DoLoad() override;

private:
  int FHTTPStatus = -1;
  // A 200 whose body is no image: handed over all the same, so that the
  // slot shows substitutes at once, but neither cached nor loaded.
  bool FUndecodable = false;
  TvxMapControlHttpRequest::TValidateServerCertificate FOnValidateServerCertificate;
  // The bytes as they came, for the disk cache.
  QByteArray FContent;
};

class TvxMapControlTileImageDiskLoadingTask : public TvxMapControlTileImageLoadingTask
{
public:
  using TvxMapControlTileImageLoadingTask::TvxMapControlTileImageLoadingTask;

  void RaiseImageLoaded() override;

protected:
  bool DoLoad() override;

private:
  // A cache file that did not decode: the main thread drops it and asks
  // the network instead.
  bool FDamaged = false;
};

// A worker: takes the newest task whose tile is still wanted, pauses when
// there is none.
class TvxMapControlTileImageLoadingThread : public QThread
{
public:
  explicit TvxMapControlTileImageLoadingThread(TvxMapControlTileImageSourceLoadingQueueManager* AOwner)
    : FOwner(AOwner)
  {
  }

  // Both guarded by the queue lock.
  bool Paused() const { return FPaused; }
  bool Terminated() const { return FTerminated; }

protected:
  void run() override;

private:
  friend class TvxMapControlTileImageSourceLoadingQueueManager;

  TvxMapControlTileImageSourceLoadingQueueManager* FOwner;
  // The three guarded by the queue lock.
  TvxMapControlTileImageLoadingTask* FTask = nullptr;
  bool FPaused = false;
  bool FTerminated = false;
};

// The stack of load tasks and the workers that serve it. Workers start with
// the first tasks, as many as the stack needs up to the limit.
//
// Locks: FQueueLock guards the stack, the threads' pause and terminate flags
// and the wake condition. FTaskDestroyingLock guards the pairing of a task
// with its source's lifetime. The queue lock may be held while the
// destroying lock is taken, never the reverse.
class TvxMapControlTileImageSourceLoadingQueueManager : public QObject
{
  Q_OBJECT

public:
  TvxMapControlTileImageSourceLoadingQueueManager(TvxMapControlMultiScaleTileSource* ATileSource,
                                                  int AMaxParallelDownloads);
  ~TvxMapControlTileImageSourceLoadingQueueManager() override;

  TvxMapControlMultiScaleTileSource* TileSource() const { return FTileSource; }
  int MaxParallelDownloads() const { return FMaxParallelDownloads; }
  void SetMaxParallelDownloads(int AValue);

  // Pushes on top of the stack; does not wake anyone.
  void AddTask(std::unique_ptr<TvxMapControlTileImageLoadingTask> ATask);
  void WakeThreads();
  // WakeThreads from the event loop, once however often asked before: a map
  // laid out before its window is up starts its workers after the window
  // shows, and a layout that asks many times wakes them once.
  void PostWakeThreads();
  // Drops every task in the stack and returns when all workers stand still.
  void Clear();
  bool TaskExists(TvxMapControlTileImageSource* ASource);
  // Frees a source taken out of the store now, or with its task.
  void DelayedDestroying(std::unique_ptr<TvxMapControlTileImageSource> ASource);

  int QueueCount() const;
  bool AllThreadsPaused() const;
  // Whether the application or this manager is going away.
  bool IsTerminating() const { return FTerminating.load(); }

private:
  friend class TvxMapControlMultiScaleTileSource;
  friend class TvxMapControlTileImageLoadingThread;

  void AbortRunningTasks();
  // Main thread; up to ACount workers in all.
  void StartThreads(size_t ACount);
  void TerminateThreads();
  void RecreateThreads();
  // Pumps the workers' calls to the main thread until all are paused.
  void StopThreads();
  // Worker side: the next task, or null after pausing.
  std::unique_ptr<TvxMapControlTileImageLoadingTask> TakeTask(TvxMapControlTileImageLoadingThread* AThread);
  void DestroyTileImageLoadingTask(std::unique_ptr<TvxMapControlTileImageLoadingTask> ATask);
  // Main thread, called synchronously from a worker.
  void ImageLoaded(TvxMapControlTileImageLoadingTask* ATask);
  void DeliverImage(TvxMapControlTileImageLoadingTask* ATask);

  int FMaxParallelDownloads;
  TvxMapControlMultiScaleTileSource* FTileSource;
  mutable QMutex FQueueLock;
  QWaitCondition FWake;
  QWaitCondition FPausedChanged;
  QMutex FTaskDestroyingLock;
  std::vector<std::unique_ptr<TvxMapControlTileImageLoadingTask>> FTileImageSourcesQueue;
  std::vector<std::unique_ptr<TvxMapControlTileImageLoadingThread>> FThreads;
  std::atomic<bool> FTerminating = false;
  // A timer, not a posted call: waiting for the workers pumps posted calls.
  QTimer FWakeTimer;
};

// The tiles of one provider configuration: the world's size and tile size,
// the store, the queue and the disk cache.
class TvxMapControlMultiScaleTileSource
{
public:
  TvxMapControlMultiScaleTileSource(TvxMapControlImageTileProvider* AOwner, qint64 AImageWidth,
                                    qint64 AImageHeight, int ATileWidth, int ATileHeight);
  TvxMapControlMultiScaleTileSource(const TvxMapControlMultiScaleTileSource&) = delete;
  TvxMapControlMultiScaleTileSource& operator=(const TvxMapControlMultiScaleTileSource&) = delete;
  virtual ~TvxMapControlMultiScaleTileSource();

  // The cache prefix of this source's tile files.
  virtual QString TilePrefix() const { return {}; }
  // The URI of a tile; main thread.
  virtual QString GetTileByZoomLevel(int AZoomLevel, int ATilePositionX, int ATilePositionY) = 0;

  // Links the bitmap tile to the tile's source and starts a load if needed.
  void GetTileImageSource(const TvxMapControlTileIndex& AIndex, TvxMapControlBitmapTile* ABitmapTile);
  // A loaded source with an image, or null; never starts a load.
  TvxMapControlTileImageSource* PeekTileImageSource(const TvxMapControlTileIndex& AIndex);
  // The workers take the queued tiles from the next turn of the event loop.
  void StartLoadTiles();
  void ClearCache();
  void UpdateCacheOptions();
  void UpdateConnectionSettings();
  void PushToDisk(const TvxMapControlTileImageSource& ASource, const QByteArray& AData);
  // The cache file the source was read from does not decode: it goes, and
  // the tile loads again, from the network.
  void DropDamagedFile(TvxMapControlTileImageSource* ASource, const QString& AFileName);
  int GetSubdomainIndex(int ACount);
  // Empty outside levels 1 to MaxZoomLevel.
  QString GetTileUri(int AZoomLevel, int ATilePositionX, int ATilePositionY);
  void CheckMemoryLimit();

  TvxMapControlImageTileProvider* Owner() const { return FOwner; }
  qint64 ImageWidth() const { return FImageWidth; }
  qint64 ImageHeight() const { return FImageHeight; }
  int MaxZoomLevel() const { return FMaxZoomLevel; }
  double TileCountRatio() const { return FTileCountRatio; }
  const QSize& TileSize() const { return FTileSize; }
  TvxMapControlDiskCache* DiskCache() const { return FDiskCache.get(); }
  TvxMapControlTileImageSourceStorage& Storage() const { return *FTileSourceStorage; }
  TvxMapControlTileImageSourceLoadingQueueManager& LoadingQueueManager() const { return *FLoadingQueueManager; }

protected:
  virtual std::unique_ptr<TvxMapControlTileImageLoadingTask>
  CreateTileImageLoadingTask(TvxMapControlTileImageSource* ASource, const QString& AUri);

private:
  void AddLoadingTask(TvxMapControlTileImageSource* ASource);
  void UpdateDiskCache();
  static std::unique_ptr<TvxMapControlDiskCache> OpenDiskCache(const QString& AFolder, int ALimit, qint64 AExpire);

  int FCurrentSubdomainIndex = 0;
  std::unique_ptr<TvxMapControlDiskCache> FDiskCache;
  bool FDiskWriteFailed = false;
  QTimer FMapFlushTimer;
  qint64 FImageHeight;
  qint64 FImageWidth;
  int FMaxZoomLevel;
  TvxMapControlImageTileProvider* FOwner;
  double FTileCountRatio;
  QSize FTileSize;
  // Declared before the queue, so that the queue goes first: its workers
  // and tasks still refer to sources of the store.
  std::unique_ptr<TvxMapControlTileImageSourceStorage> FTileSourceStorage;
  std::unique_ptr<TvxMapControlTileImageSourceLoadingQueueManager> FLoadingQueueManager;
};

// One drawable piece: a tile image, or a part of one, into a rectangle.
class TvxMapControlBitmapTile
{
public:
  explicit TvxMapControlBitmapTile(TvxMapControlMultiScaleTile* AOwningTile) : FOwningTile(AOwningTile) {}
  TvxMapControlBitmapTile(const TvxMapControlBitmapTile&) = delete;
  TvxMapControlBitmapTile& operator=(const TvxMapControlBitmapTile&) = delete;
  ~TvxMapControlBitmapTile() { SetSource(nullptr); }

  TvxMapControlTileImageSource* Source() const { return FSource; }
  void SetSource(TvxMapControlTileImageSource* AValue);
  void SourceImageLoaded();
  bool IsValid() const { return !FImage.isNull(); }
  void CalculateBounds();

  const QImage& Image() const { return FImage; }
  const QRect& ClipImageRect() const { return FClipImageRect; }
  void SetClipImageRect(const QRect& AValue) { FClipImageRect = AValue; }
  const QRect& Bounds() const { return FBounds; }
  float Opacity() const { return FOpacity; }
  const QPoint& Position() const { return FPosition; }
  void SetPosition(const QPoint& AValue) { FPosition = AValue; }
  const QSize& Size() const { return FSize; }
  void SetSize(const QSize& AValue) { FSize = AValue; }

private:
  friend class TvxMapControlTileImageSource;

  QImage FImage;
  QRect FClipImageRect;
  QRect FBounds;
  float FOpacity = 1.0f;
  TvxMapControlMultiScaleTile* FOwningTile;
  QPoint FPosition;
  QSize FSize;
  TvxMapControlTileImageSource* FSource = nullptr;
};

// A slot of the grid; it stays while its tile changes.
class TvxMapControlMultiScaleTile
{
public:
  TvxMapControlMultiScaleTile(TvxMapControlMultiScaleViewport* AViewPort, int AX, int AY);
  TvxMapControlMultiScaleTile(const TvxMapControlMultiScaleTile&) = delete;
  TvxMapControlMultiScaleTile& operator=(const TvxMapControlMultiScaleTile&) = delete;

  const TvxMapControlTileIndex& Index() const { return FIndex; }
  // A new index drops every link of the slot, which cancels its loads.
  void SetIndex(const TvxMapControlTileIndex& AValue);
  void Invalidate();
  bool IsReady() const;
  // Ready, or its tile has failed and will not come.
  bool IsSettled() const;
  bool HasValidIndex() const { return FIndex.Level >= 0; }

  void UpdateRenderParams();
  void CalculateTileBitmapBounds();
  void UpdateBitmaps();
  void UpdateMaskBitmap(int AX, int AY);
  void CreateRenderItems(QList<TvxMapControlBitmapTile*>& AList);
  void InvalidateRect(const QRect& ARect);

  TvxMapControlBitmapTile& Face() const { return *FFace; }
  TvxMapControlBitmapTile& Mask(int AX, int AY) const { return *FMask[AX][AY]; }
  TvxMapControlMultiScaleViewport* ViewPort() const { return FViewPort; }
  int X() const { return FX; }
  int Y() const { return FY; }
  const QPoint& Location() const { return FLocation; }

private:
  bool LookupCache(TvxMapControlBitmapTile& AMask, const TvxMapControlTileIndex& AIndex);

  std::unique_ptr<TvxMapControlBitmapTile> FFace;
  QPoint FLocation;
  std::unique_ptr<TvxMapControlBitmapTile> FMask[2][2];
  QSize FMaskSize;
  TvxPointDouble FRenderStretchFactor{1, 1};
  TvxMapControlTileIndex FIndex = vxMapControlInvalidTileIndex;
  int FX;
  int FY;
  TvxMapControlMultiScaleViewport* FViewPort;
};

// The grid of slots for one view: which level, which tiles, where.
class TvxMapControlMultiScaleViewport
{
public:
  TvxMapControlMultiScaleViewport(TvxMapControlMultiScaleImage* ATileFactory, int AInflateCount);
  TvxMapControlMultiScaleViewport(const TvxMapControlMultiScaleViewport&) = delete;
  TvxMapControlMultiScaleViewport& operator=(const TvxMapControlMultiScaleViewport&) = delete;
  ~TvxMapControlMultiScaleViewport();

  void Update(const QSize& ANewSizeInPixels, const TvxRectDouble& ANewBounds);
  // Forgets the stored view, so that the next update lays out again.
  void Invalidate();
  void Recalculate();
  void ConfirmTiles(const QSize& ASize);
  void ProjectRange(const TvxMapControlTileRange& ARange);
  bool IsReady() const;
  bool IsSettled() const;

  TvxMapControlMultiScaleTileSource* TileSource() const { return FTileSource; }
  void SetTileSource(TvxMapControlMultiScaleTileSource* AValue);
  TvxMapControlMultiScaleImage* TileFactory() const { return FTileFactory; }
  QSize InflatedTiles() const;
  double AspectRatio() const;
  int InflateCount() const { return FInflateCount; }
  const QSize& ArrangedTiles() const { return FArrangedTiles; }
  const TvxPointDouble& Scale() const { return FScale; }
  const QPoint& Offset() const { return FOffset; }
  const QSize& ViewSize() const { return FViewSize; }
  int ZoomLevel() const { return FZoomLevel; }
  int ZoomLevelTileCount() const { return FZoomLevelTileCount; }
  const TvxMapControlTileRange& TileRange() const { return FTileRange; }
  // [column][row] of the inflated grid.
  TvxMapControlMultiScaleTile* Tiles(int AColumn, int ARow) const;

private:
  TvxMapControlMultiScaleTileSource* FTileSource = nullptr;
  TvxPointDouble FScale;
  QPoint FOffset;
  QSize FViewSize;
  TvxMapControlTileRange FTileRange{vxMapControlInvalidTileIndex, vxMapControlInvalidTileIndex};
  QSize FArrangedTiles;
  int FZoomLevelTileCount = 0;
  int FZoomLevel = 0;
  std::vector<std::vector<std::unique_ptr<TvxMapControlMultiScaleTile>>> FTiles;
  TvxMapControlMultiScaleImage* FTileFactory;
  int FInflateCount;
  TvxRectDouble FBounds{0, 0, 1, 1};
};

// What an image tile layer shows: one viewport over one tile source.
class TvxMapControlMultiScaleImage
{
public:
  // The callbacks a layer gives: its high-density factor, its alpha, and
  // where to repaint.
  struct TLayerLink
  {
    std::function<double()> ScaleFactor;
    std::function<int()> AlphaBlendValue;
    std::function<void(const QRect&)> InvalidateRect;
  };

  explicit TvxMapControlMultiScaleImage(TLayerLink ALayer);
  ~TvxMapControlMultiScaleImage();

  void UpdateViewPort(const QSize& AViewPortSizeInPixels, const TvxRectDouble& AViewPortBounds);
  void InvalidateViewPort() { FViewport->Invalidate(); }
  void UpdateTileParams();
  void Paint(QPainter& ACanvas);
  bool IsReady() const { return FViewport->IsReady(); }
  bool IsSettled() const { return FViewport->IsSettled(); }
  TvxMapControlMultiScaleTileSource* Source() const { return FViewport->TileSource(); }
  void SetSource(TvxMapControlMultiScaleTileSource* AValue) { FViewport->SetTileSource(AValue); }

  TvxMapControlMultiScaleViewport& Viewport() const { return *FViewport; }
  const QList<TvxMapControlBitmapTile*>& RenderItems() const { return FRenderItems; }
  double ScaleFactor() const { return FLayer.ScaleFactor ? FLayer.ScaleFactor() : 1.0; }
  void InvalidateRect(const QRect& ARect)
  {
    if (FLayer.InvalidateRect)
      FLayer.InvalidateRect(ARect);
  }

private:
  TLayerLink FLayer;
  QList<TvxMapControlBitmapTile*> FRenderItems;
  std::unique_ptr<TvxMapControlMultiScaleViewport> FViewport;
};
