#include "vxMapControlMultiScaleTile.h"

#include "vxMapControlCacheOptions.h"
#include "vxMapControlDiskCache.h"
#include "vxMapControlImageTileProvider.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImageReader>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace
{
// A tile server that sends a poster must not cost gigabytes of memory.
constexpr int MaxTileImageSide = 4096;

bool ApplicationTerminating()
{
  return QCoreApplication::closingDown() || QCoreApplication::instance() == nullptr;
}
} // namespace

// Source

TvxMapControlTileImageSource::TvxMapControlTileImageSource(const TvxMapControlTileIndex& AIndex, const QSize& ASize)
  : FIndex(AIndex), FWidth(ASize.width()), FHeight(ASize.height())
{
}

TvxMapControlTileImageSource::~TvxMapControlTileImageSource()
{
  UnlinkAll();
  Q_ASSERT_X(FBitmapTiles.isEmpty(), "TvxMapControlTileImageSource.Destroy", "FBitmapTiles.Count <> 0");
}

void TvxMapControlTileImageSource::SetStatus(TvxMapControlTileImageStatus AValue)
{
  FStatus.store(AValue);
}

bool TvxMapControlTileImageSource::CreateImage(const QByteArray& AData)
{
  QBuffer LBuffer;
  LBuffer.setData(AData);
  LBuffer.open(QIODevice::ReadOnly);
  QImageReader LReader(&LBuffer);
  const QSize LSize = LReader.size();
  QImage LImage;
  if (LSize.isValid() && LSize.width() <= MaxTileImageSide && LSize.height() <= MaxTileImageSide)
    LImage = LReader.read();
  if (LImage.isNull())
  {
    FSource = QImage();
    FDecodeFailed.store(true);
    return false;
  }
  FDecodeFailed.store(false);
  // Converted here, on the worker, so that painting never converts.
  if (LImage.format() != QImage::Format_ARGB32_Premultiplied && LImage.format() != QImage::Format_RGB32)
    LImage = LImage.convertToFormat(LImage.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                                             : QImage::Format_RGB32);
  FSource = std::move(LImage);
  FWidth.store(FSource.width());
  FHeight.store(FSource.height());
  return true;
}

void TvxMapControlTileImageSource::Link(TvxMapControlBitmapTile* ATile)
{
  FBitmapTiles.append(ATile);
  FLinkCount.store(int(FBitmapTiles.size()));
}

void TvxMapControlTileImageSource::Unlink(TvxMapControlBitmapTile* ATile)
{
  FBitmapTiles.removeOne(ATile);
  FLinkCount.store(int(FBitmapTiles.size()));
}

void TvxMapControlTileImageSource::UnlinkAll()
{
  while (!FBitmapTiles.isEmpty())
  {
    TvxMapControlBitmapTile* LTile = FBitmapTiles.constLast();
    Q_ASSERT_X(LTile->FSource == this, "TvxMapControlTileImageSource.Destroy", "FBitmapTiles[I].Source <> Self");
    LTile->SetSource(nullptr);
  }
  OnImageLoaded = nullptr;
}

// Storage

TvxMapControlTileImageSource* TvxMapControlTileImageSourceStorage::Find(const TvxMapControlTileIndex& AIndex)
{
  TvxMapControlTileImageSource* LSource = FTileImageSources.value(AIndex, nullptr);
  if (LSource)
    FTimeSortedTileSources.splice(FTimeSortedTileSources.end(), FTimeSortedTileSources, LSource->FPosition);
  return LSource;
}

TvxMapControlTileImageSource* TvxMapControlTileImageSourceStorage::Add(std::unique_ptr<TvxMapControlTileImageSource> ASource)
{
  TvxMapControlTileImageSource* LSource = ASource.get();
  FTimeSortedTileSources.push_back(std::move(ASource));
  LSource->FPosition = std::prev(FTimeSortedTileSources.end());
  FTileImageSources.insert(LSource->FIndex, LSource);
  return LSource;
}

qint64 TvxMapControlTileImageSourceStorage::MemoryUsage() const
{
  qint64 LSum = 0;
  for (const auto& LSource : FTimeSortedTileSources)
    LSum += LSource->GetMemoryUsage();
  return LSum;
}

QList<TvxMapControlTileIndex> TvxMapControlTileImageSourceStorage::Indexes() const
{
  QList<TvxMapControlTileIndex> LResult;
  for (const auto& LSource : FTimeSortedTileSources)
    LResult.append(LSource->FIndex);
  return LResult;
}

TvxMapControlTileImageSourceStorage::TSources TvxMapControlTileImageSourceStorage::CheckMemoryLimit(qint64 ALimit)
{
  TSources LResult;
  const qint64 LSum = MemoryUsage();
  if (LSum <= ALimit)
    return LResult;
  qint64 LOverhead = LSum - ALimit;
  for (auto LIt = FTimeSortedTileSources.begin(); LIt != FTimeSortedTileSources.end() && LOverhead >= 1;)
  {
    TvxMapControlTileImageSource* LSource = LIt->get();
    const qint64 LUsage = LSource->GetMemoryUsage();
    // The top of the pyramid stays for substitute quarters.
    if (LUsage >= 1 && LSource->FIndex.Level >= 2)
    {
      LOverhead -= LUsage;
      FTileImageSources.remove(LSource->FIndex);
      LResult.push_back(std::move(*LIt));
      LIt = FTimeSortedTileSources.erase(LIt);
    }
    else
      ++LIt;
  }
  return LResult;
}

TvxMapControlTileImageSourceStorage::TSources TvxMapControlTileImageSourceStorage::ExtractAll()
{
  TSources LResult;
  for (auto& LSource : FTimeSortedTileSources)
    LResult.push_back(std::move(LSource));
  FTimeSortedTileSources.clear();
  FTileImageSources.clear();
  return LResult;
}

// Tasks

TvxMapControlTileImageLoadingTask::TvxMapControlTileImageLoadingTask(
  TvxMapControlTileImageSourceLoadingQueueManager* AManager, TvxMapControlTileImageSource* ASource,
  const QString& AUri)
  : FLoadingQueueManager(AManager), FTileImageSource(ASource), FUri(AUri)
{
}

TvxMapControlTileImageLoadingTask::~TvxMapControlTileImageLoadingTask() = default;

bool TvxMapControlTileImageLoadingTask::IsTaskCancelled() const
{
  return FAborted.load() || FLoadingQueueManager->IsTerminating() || ApplicationTerminating() ||
         FTileImageSource->NeedToBeDestroying() || !FTileImageSource->IsLinked();
}

void TvxMapControlTileImageLoadingTask::RaiseImageLoaded()
{
  FTileImageSource->SetStatus(tisLoaded);
  if (FTileImageSource->OnImageLoaded)
    FTileImageSource->OnImageLoaded();
}

TvxMapControlTileImageRemoteLoadingTask::TvxMapControlTileImageRemoteLoadingTask(
  TvxMapControlTileImageSourceLoadingQueueManager* AManager, TvxMapControlTileImageSource* ASource,
  const QString& AUri, TvxMapControlHttpRequest::TValidateServerCertificate AValidate)
  : TvxMapControlTileImageLoadingTask(AManager, ASource, AUri), FOnValidateServerCertificate(std::move(AValidate))
{
}

bool TvxMapControlTileImageRemoteLoadingTask::DoLoad()
{
  TvxMapControlHttpRequest LRequest;
  LRequest.SetOnValidateServerCertificate(FOnValidateServerCertificate);
  // Only a source that is cleared or going away ends a GET in flight; a
  // tile that merely left the screen finishes its attempt.
  LRequest.SetOnCheckCancel([this] { return FAborted.load(); });
  QBuffer LBuffer(&FContent);
  for (int LAttempt = 0;; ++LAttempt)
  {
    FContent.clear();
    LBuffer.close();
    LBuffer.open(QIODevice::WriteOnly);
    const bool LOk = LRequest.Get(FUri, LBuffer, FHTTPStatus);
    LBuffer.close();
    if (FHTTPStatus >= 400 && FHTTPStatus <= 499)
    {
      RaiseImageFailed();
      return false;
    }
    if (LRequest.IsCancelled())
    {
      RaiseImageCancelled();
      return false;
    }
    const bool LServerError = FHTTPStatus >= 500 && FHTTPStatus <= 599;
    if (LOk && !LRequest.HasErrors() && !LServerError)
      break;
    if (LAttempt == MaxAttempts - 1)
    {
      RaiseImageFailed();
      return false;
    }
    // Back off a little more each time, but notice a cancel at once.
    for (int LWaited = 0; LWaited < LAttempt * 100 && !IsTaskCancelled(); LWaited += 10)
      QThread::msleep(10);
    // Nobody wants the tile now: back to "none", so that showing it again
    // asks anew instead of leaving it stuck as loading.
    if (IsTaskCancelled())
    {
      RaiseImageCancelled();
      return false;
    }
  }
  FUndecodable = !CreateImage(FContent);
  return true;
}

void TvxMapControlTileImageRemoteLoadingTask::RaiseImageLoaded()
{
  if (FUndecodable)
  {
    // Stays "loading", so it is not asked for again while in memory; the
    // slot is told, and shows what other levels have.
    if (FTileImageSource->OnImageLoaded)
      FTileImageSource->OnImageLoaded();
    return;
  }
  FLoadingQueueManager->TileSource()->PushToDisk(*FTileImageSource, FContent);
  TvxMapControlTileImageLoadingTask::RaiseImageLoaded();
}

bool TvxMapControlTileImageDiskLoadingTask::DoLoad()
{
  // A tile template may name local files as file: URLs.
  QFile LFile(FUri.startsWith(QLatin1String("file:")) ? QUrl(FUri).toLocalFile() : FUri);
  if (!LFile.exists() || !LFile.open(QIODevice::ReadOnly))
  {
    RaiseImageFailed();
    return false;
  }
  // A file that does not decode still counts as loaded: it paints nothing.
  // One of the disk cache's is damaged, and goes.
  FDamaged = !CreateImage(LFile.readAll()) && FFromDiskCache;
  return true;
}

void TvxMapControlTileImageDiskLoadingTask::RaiseImageLoaded()
{
  if (FDamaged)
    FLoadingQueueManager->TileSource()->DropDamagedFile(FTileImageSource, FUri);
  else
    TvxMapControlTileImageLoadingTask::RaiseImageLoaded();
}

// Worker

void TvxMapControlTileImageLoadingThread::run()
{
  TvxMapControlHttpRequest::TThreadManagerScope LNetwork;
  for (;;)
  {
    std::unique_ptr<TvxMapControlTileImageLoadingTask> LTask = FOwner->TakeTask(this);
    if (!LTask)
    {
      QMutexLocker LLock(&FOwner->FQueueLock);
      if (FTerminated)
        return;
      continue;
    }
    if (LTask->Load())
      FOwner->DeliverImage(LTask.get());
    {
      QMutexLocker LLock(&FOwner->FQueueLock);
      FTask = nullptr;
    }
    FOwner->DestroyTileImageLoadingTask(std::move(LTask));
  }
}

// Queue manager

TvxMapControlTileImageSourceLoadingQueueManager::TvxMapControlTileImageSourceLoadingQueueManager(
  TvxMapControlMultiScaleTileSource* ATileSource, int AMaxParallelDownloads)
  : FMaxParallelDownloads(qMax(1, AMaxParallelDownloads)), FTileSource(ATileSource)
{
  FWakeTimer.setSingleShot(true);
  FWakeTimer.setInterval(0);
  connect(&FWakeTimer, &QTimer::timeout, this, &TvxMapControlTileImageSourceLoadingQueueManager::WakeThreads);
}

TvxMapControlTileImageSourceLoadingQueueManager::~TvxMapControlTileImageSourceLoadingQueueManager()
{
  FTerminating.store(true);
  TerminateThreads();
  QMutexLocker LLock(&FQueueLock);
  while (!FTileImageSourcesQueue.empty())
  {
    std::unique_ptr<TvxMapControlTileImageLoadingTask> LTask = std::move(FTileImageSourcesQueue.back());
    FTileImageSourcesQueue.pop_back();
    DestroyTileImageLoadingTask(std::move(LTask));
  }
}

void TvxMapControlTileImageSourceLoadingQueueManager::SetMaxParallelDownloads(int AValue)
{
  AValue = qMax(1, AValue);
  if (FMaxParallelDownloads == AValue)
    return;
  FMaxParallelDownloads = AValue;
  RecreateThreads();
}

void TvxMapControlTileImageSourceLoadingQueueManager::StartThreads(size_t ACount)
{
  while (FThreads.size() < ACount)
  {
    auto LThread = std::make_unique<TvxMapControlTileImageLoadingThread>(this);
    LThread->setObjectName(QStringLiteral("vxTileLoader%1").arg(FThreads.size()));
    // Below the main thread. Not Qt's IdlePriority: on Linux that is
    // SCHED_IDLE, which runs only when nothing else wants a core, so tiles
    // stop loading while anything else is busy.
    LThread->start(QThread::LowestPriority);
    FThreads.push_back(std::move(LThread));
  }
}

void TvxMapControlTileImageSourceLoadingQueueManager::AbortRunningTasks()
{
  // Under the queue lock a running task stays alive.
  for (const auto& LThread : FThreads)
    if (LThread->FTask)
      LThread->FTask->Abort();
}

void TvxMapControlTileImageSourceLoadingQueueManager::TerminateThreads()
{
  {
    QMutexLocker LLock(&FQueueLock);
    AbortRunningTasks();
    for (const auto& LThread : FThreads)
    {
      LThread->FTerminated = true;
      LThread->FPaused = false;
    }
    FWake.wakeAll();
  }
  // A worker may be waiting for its call to the main thread; serve those
  // while waiting.
  for (const auto& LThread : FThreads)
    while (!LThread->wait(5))
      QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
  FThreads.clear();
}

void TvxMapControlTileImageSourceLoadingQueueManager::RecreateThreads()
{
  TerminateThreads();
  WakeThreads();
}

void TvxMapControlTileImageSourceLoadingQueueManager::AddTask(std::unique_ptr<TvxMapControlTileImageLoadingTask> ATask)
{
  QMutexLocker LLock(&FQueueLock);
  FTileImageSourcesQueue.push_back(std::move(ATask));
}

void TvxMapControlTileImageSourceLoadingQueueManager::PostWakeThreads()
{
  if (!FWakeTimer.isActive())
    FWakeTimer.start();
}

void TvxMapControlTileImageSourceLoadingQueueManager::WakeThreads()
{
  if (IsTerminating())
    return;
  QMutexLocker LLock(&FQueueLock);
  // Workers start as the stack first needs them, up to the limit: a layer
  // that never shows starts none, and a few tiles start a few. A new worker
  // waits for this lock before it takes a task.
  const auto LBusy = std::count_if(FThreads.begin(), FThreads.end(), [](const auto& T) { return T->FTask; });
  StartThreads(std::min(size_t(FMaxParallelDownloads), FTileImageSourcesQueue.size() + size_t(LBusy)));
  for (const auto& LThread : FThreads)
    LThread->FPaused = false;
  FWake.wakeAll();
}

int TvxMapControlTileImageSourceLoadingQueueManager::QueueCount() const
{
  QMutexLocker LLock(&FQueueLock);
  return int(FTileImageSourcesQueue.size());
}

bool TvxMapControlTileImageSourceLoadingQueueManager::AllThreadsPaused() const
{
  QMutexLocker LLock(&FQueueLock);
  for (const auto& LThread : FThreads)
    if (!LThread->FPaused)
      return false;
  return true;
}

std::unique_ptr<TvxMapControlTileImageLoadingTask>
TvxMapControlTileImageSourceLoadingQueueManager::TakeTask(TvxMapControlTileImageLoadingThread* AThread)
{
  QMutexLocker LLock(&FQueueLock);
  // Paused threads stay here until woken; the flag is only cleared under
  // this lock, so a wake can never slip between the check and the wait.
  while (AThread->FPaused && !AThread->FTerminated)
    FWake.wait(&FQueueLock);
  if (AThread->FTerminated)
    return nullptr;
  // Newest first: the stack order is the whole priority scheme.
  while (!FTileImageSourcesQueue.empty())
  {
    std::unique_ptr<TvxMapControlTileImageLoadingTask> LTask = std::move(FTileImageSourcesQueue.back());
    FTileImageSourcesQueue.pop_back();
    if (LTask->TileImageSource()->IsLinked() && !LTask->TileImageSource()->NeedToBeDestroying())
    {
      LTask->TileImageSource()->SetStatus(tisLoading);
      AThread->FTask = LTask.get();
      return LTask;
    }
    // Its tile left the screen: dropped without touching the network.
    DestroyTileImageLoadingTask(std::move(LTask));
  }
  AThread->FPaused = true;
  FPausedChanged.wakeAll();
  return nullptr;
}

void TvxMapControlTileImageSourceLoadingQueueManager::DestroyTileImageLoadingTask(
  std::unique_ptr<TvxMapControlTileImageLoadingTask> ATask)
{
  QMutexLocker LLock(&FTaskDestroyingLock);
  TvxMapControlTileImageSource* LSource = ATask->TileImageSource();
  if (LSource->NeedToBeDestroying())
    ATask->FOwnedSource.reset();
  else if (LSource->FTask == ATask.get())
    // A damaged cache file's source has its next task already.
    LSource->FTask = nullptr;
  ATask.reset();
}

bool TvxMapControlTileImageSourceLoadingQueueManager::TaskExists(TvxMapControlTileImageSource* ASource)
{
  QMutexLocker LLock(&FTaskDestroyingLock);
  return ASource->FTask != nullptr;
}

void TvxMapControlTileImageSourceLoadingQueueManager::DelayedDestroying(
  std::unique_ptr<TvxMapControlTileImageSource> ASource)
{
  QMutexLocker LLock(&FTaskDestroyingLock);
  if (ASource->FTask)
  {
    ASource->UnlinkAll();
    ASource->FNeedToBeDestroying.store(true);
    TvxMapControlTileImageLoadingTask* LTask = ASource->FTask;
    LTask->FOwnedSource = std::move(ASource);
    return;
  }
  LLock.unlock();
  ASource.reset();
}

void TvxMapControlTileImageSourceLoadingQueueManager::DeliverImage(TvxMapControlTileImageLoadingTask* ATask)
{
  // Synchronous, so that a worker hands over one image at a time and its
  // task outlives the call.
  QMetaObject::invokeMethod(
    this, [this, ATask] { ImageLoaded(ATask); }, Qt::BlockingQueuedConnection);
}

void TvxMapControlTileImageSourceLoadingQueueManager::ImageLoaded(TvxMapControlTileImageLoadingTask* ATask)
{
  // While going away, nobody is left to show the image.
  if (!FTerminating.load() && !ATask->TileImageSource()->NeedToBeDestroying())
    ATask->RaiseImageLoaded();
}

void TvxMapControlTileImageSourceLoadingQueueManager::StopThreads()
{
  QMutexLocker LLock(&FQueueLock);
  for (;;)
  {
    bool LAllPaused = true;
    for (const auto& LThread : FThreads)
      LAllPaused = LAllPaused && LThread->FPaused;
    if (LAllPaused)
      return;
    FPausedChanged.wait(&FQueueLock, 5);
    // A worker may be waiting for its call to the main thread.
    LLock.unlock();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    LLock.relock();
  }
}

void TvxMapControlTileImageSourceLoadingQueueManager::Clear()
{
  std::vector<std::unique_ptr<TvxMapControlTileImageLoadingTask>> LTasks;
  {
    QMutexLocker LLock(&FQueueLock);
    LTasks.swap(FTileImageSourcesQueue);
    AbortRunningTasks();
  }
  for (auto& LTask : LTasks)
    DestroyTileImageLoadingTask(std::move(LTask));
  StopThreads();
}

// Tile source

TvxMapControlMultiScaleTileSource::TvxMapControlMultiScaleTileSource(TvxMapControlImageTileProvider* AOwner,
                                                                     qint64 AImageWidth, qint64 AImageHeight,
                                                                     int ATileWidth, int ATileHeight)
  : FImageHeight(AImageHeight), FImageWidth(AImageWidth), FOwner(AOwner), FTileSize(ATileWidth, ATileHeight),
    FTileSourceStorage(std::make_unique<TvxMapControlTileImageSourceStorage>())
{
  FMaxZoomLevel = ATileWidth > 0 && AImageWidth > 0
                    ? int(std::lround(std::log2(double(AImageWidth) / ATileWidth)))
                    : 0;
  FTileCountRatio = ATileWidth > 0 && ATileHeight > 0 && AImageWidth > 0
                      ? double(AImageHeight) / (double(ATileWidth) / ATileHeight * double(AImageWidth))
                      : 1.0;
  FLoadingQueueManager = std::make_unique<TvxMapControlTileImageSourceLoadingQueueManager>(
    this, FOwner ? FOwner->MaxParallelConnectionCount() : 2);
  FMapFlushTimer.setSingleShot(true);
  FMapFlushTimer.setInterval(TvxMapControlDiskCache::MapSaveIntervalMs + 100);
  QObject::connect(&FMapFlushTimer, &QTimer::timeout, [this] {
    if (!FDiskCache)
      return;
    try
    {
      FDiskCache->FlushMap();
    }
    catch (const EvxDiskCacheError& E)
    {
      qWarning("Tile cache: %s", E.what());
    }
  });
  UpdateDiskCache();
}

TvxMapControlMultiScaleTileSource::~TvxMapControlMultiScaleTileSource()
{
  // Workers first, then the sources they may still refer to.
  FLoadingQueueManager.reset();
  FTileSourceStorage.reset();
}

void TvxMapControlMultiScaleTileSource::GetTileImageSource(const TvxMapControlTileIndex& AIndex,
                                                           TvxMapControlBitmapTile* ABitmapTile)
{
  if (AIndex == vxMapControlInvalidTileIndex)
    return;
  if (TvxMapControlTileImageSource* LSource = FTileSourceStorage->Find(AIndex))
  {
    ABitmapTile->SetSource(LSource);
    // Loaded and loading need nothing; failed stays failed until evicted.
    if (LSource->Status() != tisNone || FLoadingQueueManager->TaskExists(LSource))
      return;
    AddLoadingTask(LSource);
    return;
  }
  TvxMapControlTileImageSource* LSource =
    FTileSourceStorage->Add(std::make_unique<TvxMapControlTileImageSource>(AIndex, FTileSize));
  ABitmapTile->SetSource(LSource);
  CheckMemoryLimit();
  if (ABitmapTile->Source() != LSource)
    return;
  AddLoadingTask(LSource);
}

void TvxMapControlMultiScaleTileSource::AddLoadingTask(TvxMapControlTileImageSource* ASource)
{
  const TvxMapControlTileIndex& LIndex = ASource->Index();
  QString LUri;
  const bool LFromCache = FDiskCache && FDiskCache->TryRetrieveFileName(LIndex, TilePrefix(), LUri);
  if (!LFromCache)
    LUri = GetTileUri(LIndex.Level, LIndex.X, LIndex.Y);
  if (LUri.isEmpty())
    return;
  std::unique_ptr<TvxMapControlTileImageLoadingTask> LTask = CreateTileImageLoadingTask(ASource, LUri);
  LTask->SetFromDiskCache(LFromCache);
  {
    QMutexLocker LLock(&FLoadingQueueManager->FTaskDestroyingLock);
    ASource->FTask = LTask.get();
  }
  FLoadingQueueManager->AddTask(std::move(LTask));
}

std::unique_ptr<TvxMapControlTileImageLoadingTask>
TvxMapControlMultiScaleTileSource::CreateTileImageLoadingTask(TvxMapControlTileImageSource* ASource,
                                                              const QString& AUri)
{
  if (AUri.startsWith(QLatin1String("http")))
    return std::make_unique<TvxMapControlTileImageRemoteLoadingTask>(
      FLoadingQueueManager.get(), ASource, AUri,
      FOwner ? FOwner->OnValidateServerCertificate : TvxMapControlHttpRequest::TValidateServerCertificate());
  return std::make_unique<TvxMapControlTileImageDiskLoadingTask>(FLoadingQueueManager.get(), ASource, AUri);
}

TvxMapControlTileImageSource* TvxMapControlMultiScaleTileSource::PeekTileImageSource(const TvxMapControlTileIndex& AIndex)
{
  TvxMapControlTileImageSource* LSource = FTileSourceStorage->Find(AIndex);
  if (LSource && LSource->IsLoaded() && !LSource->Image().isNull())
    return LSource;
  return nullptr;
}

void TvxMapControlMultiScaleTileSource::StartLoadTiles()
{
  FLoadingQueueManager->PostWakeThreads();
}

void TvxMapControlMultiScaleTileSource::ClearCache()
{
  FLoadingQueueManager->Clear();
  for (auto& LSource : FTileSourceStorage->ExtractAll())
    FLoadingQueueManager->DelayedDestroying(std::move(LSource));
}

void TvxMapControlMultiScaleTileSource::UpdateCacheOptions()
{
  UpdateDiskCache();
}

void TvxMapControlMultiScaleTileSource::UpdateConnectionSettings()
{
  if (FOwner)
    FLoadingQueueManager->SetMaxParallelDownloads(FOwner->MaxParallelConnectionCount());
}

void TvxMapControlMultiScaleTileSource::UpdateDiskCache()
{
  if (FOwner)
  {
    const TvxMapControlCacheOptions& LOptions = FOwner->CacheOptions();
    const QString& LFolder = LOptions.DiskFolder();
    if (LFolder.isEmpty())
      FDiskCache.reset();
    else if (!FDiskCache || !FDiskCache->LocatedAt(LFolder))
    {
      // The old cache goes first: it writes its map file as it closes.
      FDiskCache.reset();
      FDiskCache = OpenDiskCache(LFolder, LOptions.DiskLimit(), LOptions.DiskExpireTime());
    }
    else
      FDiskCache->SetLimits(LOptions.DiskLimit(), LOptions.DiskExpireTime());
  }
  CheckMemoryLimit();
}

void TvxMapControlMultiScaleTileSource::CheckMemoryLimit()
{
  const qint64 LLimit = qint64(FOwner ? FOwner->CacheOptions().MemoryLimit()
                                      : TvxMapControlCacheOptions::DefaultMemoryLimit) << 20;
  for (auto& LSource : FTileSourceStorage->CheckMemoryLimit(LLimit))
    FLoadingQueueManager->DelayedDestroying(std::move(LSource));
}

void TvxMapControlMultiScaleTileSource::PushToDisk(const TvxMapControlTileImageSource& ASource,
                                                   const QByteArray& AData)
{
  if (!FDiskCache)
    return;
  try
  {
    FDiskCache->Push(AData, ASource.Index(), TilePrefix());
    // Entries the cache held back reach the map file a moment later.
    if (!FMapFlushTimer.isActive())
      FMapFlushTimer.start();
  }
  catch (const EvxDiskCacheError& E)
  {
    // The tile still shows; only the offline copy is missing.
    if (!FDiskWriteFailed)
      qWarning("Tile cache: %s", E.what());
    FDiskWriteFailed = true;
  }
}

void TvxMapControlMultiScaleTileSource::DropDamagedFile(TvxMapControlTileImageSource* ASource,
                                                        const QString& AFileName)
{
  if (FDiskCache)
  {
    FDiskCache->DropFile(AFileName);
    if (!FMapFlushTimer.isActive())
      FMapFlushTimer.start();
  }
  // Not failed while the network is asked: a view waits for it.
  ASource->FDecodeFailed.store(false);
  ASource->SetStatus(tisNone);
  // Without a disk cache (it was closed meanwhile) the next try is the
  // network's all the same.
  AddLoadingTask(ASource);
  StartLoadTiles();
}

int TvxMapControlMultiScaleTileSource::GetSubdomainIndex(int ACount)
{
  const int LNext = FCurrentSubdomainIndex + 1;
  FCurrentSubdomainIndex = LNext < ACount ? LNext : 0;
  return FCurrentSubdomainIndex;
}

QString TvxMapControlMultiScaleTileSource::GetTileUri(int AZoomLevel, int ATilePositionX, int ATilePositionY)
{
  if (AZoomLevel < 1 || AZoomLevel > FMaxZoomLevel)
    return {};
  return GetTileByZoomLevel(AZoomLevel, ATilePositionX, ATilePositionY);
}

std::unique_ptr<TvxMapControlDiskCache> TvxMapControlMultiScaleTileSource::OpenDiskCache(const QString& AFolder,
                                                                                       int ALimit, qint64 AExpire)
{
  try
  {
    return std::make_unique<TvxMapControlDiskCache>(AFolder, ALimit, AExpire);
  }
  catch (const EvxDiskCacheError& E)
  {
    // A broken map file is kept aside for whoever wants to look at it; the
    // cache starts empty, and tiles come again from the network.
    qWarning("Tile cache: %s", E.what());
    const QString LMap = QDir(AFolder).filePath(QLatin1String(TvxMapControlDiskCacheMap::FileName));
    const QString LAside = LMap + QLatin1String(".broken");
    QFile::remove(LAside);
    if (!QFile::rename(LMap, LAside))
      QFile::remove(LMap);
  }
  try
  {
    return std::make_unique<TvxMapControlDiskCache>(AFolder, ALimit, AExpire);
  }
  catch (const EvxDiskCacheError&)
  {
    return nullptr;
  }
}

// Bitmap tile

void TvxMapControlBitmapTile::SetSource(TvxMapControlTileImageSource* AValue)
{
  if (FSource == AValue)
    return;
  if (FSource)
  {
    FSource->OnImageLoaded = nullptr;
    FSource->Unlink(this);
  }
  FSource = AValue;
  if (FSource)
  {
    FSource->OnImageLoaded = [this] { SourceImageLoaded(); };
    FSource->Link(this);
    FImage = FSource->IsLoaded() ? FSource->Image() : QImage();
  }
  else
    FImage = QImage();
}

void TvxMapControlBitmapTile::SourceImageLoaded()
{
  FImage = FSource ? FSource->Image() : QImage();
  // No image after all: the slot looks again for substitutes that came
  // since its layout.
  if (FImage.isNull() && FOwningTile->ViewPort()->TileSource())
    FOwningTile->UpdateBitmaps();
  FOwningTile->InvalidateRect(FBounds);
}

void TvxMapControlBitmapTile::CalculateBounds()
{
  const TvxMapControlMultiScaleViewport* LViewport = FOwningTile->ViewPort();
  const QPoint LP = FPosition + LViewport->Offset();
  const TvxPointDouble& LS = LViewport->Scale();
  // Ceil on all four keeps neighbours overlapping instead of leaving gaps.
  FBounds = QRect(int(std::ceil(LP.x() * LS.X)), int(std::ceil(LP.y() * LS.Y)),
                  int(std::ceil(FSize.width() * LS.X)), int(std::ceil(FSize.height() * LS.Y)));
}

// Slot

TvxMapControlMultiScaleTile::TvxMapControlMultiScaleTile(TvxMapControlMultiScaleViewport* AViewPort, int AX, int AY)
  : FFace(std::make_unique<TvxMapControlBitmapTile>(this)), FX(AX), FY(AY), FViewPort(AViewPort)
{
  for (auto& LColumn : FMask)
    for (auto& LMask : LColumn)
      LMask = std::make_unique<TvxMapControlBitmapTile>(this);
}

void TvxMapControlMultiScaleTile::SetIndex(const TvxMapControlTileIndex& AValue)
{
  if (FIndex == AValue)
    return;
  FIndex = AValue;
  Invalidate();
}

void TvxMapControlMultiScaleTile::Invalidate()
{
  FFace->SetSource(nullptr);
  for (auto& LColumn : FMask)
    for (auto& LMask : LColumn)
      LMask->SetSource(nullptr);
}

bool TvxMapControlMultiScaleTile::IsReady() const
{
  return !HasValidIndex() || FFace->IsValid();
}

bool TvxMapControlMultiScaleTile::IsSettled() const
{
  return IsReady() || (FFace->Source() && FFace->Source()->HasFailed());
}

void TvxMapControlMultiScaleTile::InvalidateRect(const QRect& ARect)
{
  FViewPort->TileFactory()->InvalidateRect(ARect);
}

void TvxMapControlMultiScaleTile::UpdateRenderParams()
{
  CalculateTileBitmapBounds();
  FRenderStretchFactor = FViewPort->Scale();
  UpdateBitmaps();
}

void TvxMapControlMultiScaleTile::CalculateTileBitmapBounds()
{
  const QSize LTileSize = FViewPort->TileSource() ? FViewPort->TileSource()->TileSize() : QSize();
  FLocation = QPoint(FX * LTileSize.width(), FY * LTileSize.height());
  FFace->SetPosition(FLocation);
  FFace->SetSize(LTileSize);
  FFace->CalculateBounds();
  FMaskSize = QSize(LTileSize.width() / 2, LTileSize.height() / 2);
  for (int X = 0; X < 2; ++X)
    for (int Y = 0; Y < 2; ++Y)
    {
      TvxMapControlBitmapTile& LMask = *FMask[X][Y];
      LMask.SetPosition(FLocation + QPoint(FMaskSize.width() * X, FMaskSize.height() * Y));
      LMask.SetSize(FMaskSize);
      LMask.CalculateBounds();
    }
}

void TvxMapControlMultiScaleTile::UpdateBitmaps()
{
  if (!HasValidIndex())
  {
    Invalidate();
    return;
  }
  TvxMapControlMultiScaleTileSource* LSource = FViewPort->TileSource();
  if (!LSource)
    return;
  FFace->SetClipImageRect(QRect(QPoint(0, 0), LSource->TileSize()));
  if (!FFace->Source())
    LSource->GetTileImageSource(FIndex, FFace.get());
  // The tile itself is here: masks are not needed, stale ones stay as they are.
  if (FFace->Source() && FFace->Source()->IsLoaded() && !FFace->Source()->Image().isNull())
    return;
  for (int X = 0; X < 2; ++X)
    for (int Y = 0; Y < 2; ++Y)
      UpdateMaskBitmap(X, Y);
}

bool TvxMapControlMultiScaleTile::LookupCache(TvxMapControlBitmapTile& AMask, const TvxMapControlTileIndex& AIndex)
{
  TvxMapControlTileImageSource* LFound = FViewPort->TileSource()->PeekTileImageSource(AIndex);
  if (!LFound)
    return false;
  AMask.SetSource(LFound);
  return true;
}

void TvxMapControlMultiScaleTile::UpdateMaskBitmap(int AX, int AY)
{
  TvxMapControlBitmapTile& LMask = *FMask[AX][AY];
  if (LMask.Source())
    return;
  const QSize LTileSize = FViewPort->TileSource()->TileSize();
  const int LUx = 2 * FIndex.X + AX;
  const int LUy = 2 * FIndex.Y + AY;
  // Zooming out: the child tile fills the quarter whole.
  if (LookupCache(LMask, {LUx, LUy, FIndex.Level + 1}))
  {
    LMask.SetClipImageRect(QRect(QPoint(0, 0), LTileSize));
    return;
  }
  if (FIndex.Level < 1)
    return;
  // Zooming in: a piece of the nearest ancestor in memory.
  for (int LLevel = FIndex.Level - 1; LLevel >= 0; --LLevel)
  {
    const int LDiff = FIndex.Level + 1 - LLevel;
    const double LScale = std::ldexp(1.0, LDiff);
    const TvxMapControlTileIndex LUp{int(std::floor(LUx / LScale)), int(std::floor(LUy / LScale)), LLevel};
    if (LookupCache(LMask, LUp))
    {
      const double LOffsetX = LUx / LScale - LUp.X;
      const double LOffsetY = LUy / LScale - LUp.Y;
      LMask.SetClipImageRect(QRect(int(std::ceil(LTileSize.width() * LOffsetX)),
                                   int(std::ceil(LTileSize.height() * LOffsetY)),
                                   int(std::ceil(LTileSize.width() / LScale)),
                                   int(std::ceil(LTileSize.height() / LScale))));
      return;
    }
  }
}

void TvxMapControlMultiScaleTile::CreateRenderItems(QList<TvxMapControlBitmapTile*>& AList)
{
  if (FFace->IsValid())
  {
    AList.append(FFace.get());
    return;
  }
  for (int X = 0; X < 2; ++X)
    for (int Y = 0; Y < 2; ++Y)
      if (FMask[X][Y]->IsValid())
        AList.append(FMask[X][Y].get());
}

// Viewport

TvxMapControlMultiScaleViewport::TvxMapControlMultiScaleViewport(TvxMapControlMultiScaleImage* ATileFactory,
                                                                 int AInflateCount)
  : FTileFactory(ATileFactory), FInflateCount(AInflateCount)
{
}

TvxMapControlMultiScaleViewport::~TvxMapControlMultiScaleViewport() = default;

QSize TvxMapControlMultiScaleViewport::InflatedTiles() const
{
  if (FArrangedTiles.isEmpty())
    return {};
  return FArrangedTiles + QSize(2 * FInflateCount, 2 * FInflateCount);
}

double TvxMapControlMultiScaleViewport::AspectRatio() const
{
  return FViewSize.width() == 0 ? 0.0 : double(FViewSize.height()) / FViewSize.width();
}

TvxMapControlMultiScaleTile* TvxMapControlMultiScaleViewport::Tiles(int AColumn, int ARow) const
{
  return FTiles[size_t(AColumn)][size_t(ARow)].get();
}

void TvxMapControlMultiScaleViewport::SetTileSource(TvxMapControlMultiScaleTileSource* AValue)
{
  if (FTileSource == AValue)
    return;
  // Every link belongs to the old source: drop them all and lay out anew.
  for (auto& LColumn : FTiles)
    for (auto& LTile : LColumn)
      LTile->Invalidate();
  FTileSource = AValue;
  Invalidate();
}

void TvxMapControlMultiScaleViewport::Invalidate()
{
  FViewSize = QSize();
  FBounds = {0, 0, 1, 1};
  FTileRange = {vxMapControlInvalidTileIndex, vxMapControlInvalidTileIndex};
}

void TvxMapControlMultiScaleViewport::Update(const QSize& ANewSizeInPixels, const TvxRectDouble& ANewBounds)
{
  if (FViewSize == ANewSizeInPixels && FBounds == ANewBounds)
    return;
  FViewSize = ANewSizeInPixels;
  FBounds = ANewBounds;
  Recalculate();
}

void TvxMapControlMultiScaleViewport::Recalculate()
{
  if (FViewSize.width() == 0 || FBounds.Width == 0 || !FTileSource || FTileSource->TileSize().isEmpty())
    return;
  const QSize LTile = FTileSource->TileSize();
  const double LFactor = FTileFactory->ScaleFactor();
  const double LScaledWidth = LTile.width() * LFactor;
  const double LScaledHeight = LTile.height() * LFactor;
  ConfirmTiles(QSize(int(std::ceil(FViewSize.width() / LScaledWidth)), int(std::ceil(FViewSize.height() / LScaledHeight))));

  const double LContentWidth = FBounds.Width;
  const double LContentHeight = AspectRatio() * FBounds.Width;
  const double LOriginX = FBounds.Left;
  const double LOriginY = FBounds.Top;

  FZoomLevel = int(std::min(std::max(std::floor(std::log2(FArrangedTiles.width() / LContentWidth)), 1.0),
                            double(FTileSource->MaxZoomLevel())));
  FZoomLevelTileCount = int(std::lround(std::ldexp(1.0, FZoomLevel)));
  const double LCount = FZoomLevelTileCount;

  TvxMapControlTileRange LRange;
  LRange.Min = {std::max(int(std::floor(LCount * LOriginX)), 0), std::max(int(std::floor(LCount * LOriginY)), 0),
                FZoomLevel};
  LRange.Max = {int(std::min(std::ceil((LOriginX + LContentWidth) * LCount), LCount)),
                int(std::min(std::ceil((LOriginY + LContentHeight) * LCount),
                             double(std::lround(LCount * FTileSource->TileCountRatio())))),
                FZoomLevel};
  ProjectRange(LRange);

  FScale = {FViewSize.width() / (LTile.width() * LContentWidth) / LCount,
            FViewSize.height() / (LTile.height() * LContentHeight) / LCount};
  FOffset = QPoint(int(LTile.width() * LRange.Min.X - std::lround(LTile.width() * LOriginX * LCount)),
                   int(LTile.height() * LRange.Min.Y - std::lround(LTile.height() * LOriginY * LCount)));
}

void TvxMapControlMultiScaleViewport::ConfirmTiles(const QSize& ASize)
{
  if (!FTiles.empty() && FArrangedTiles == ASize)
    return;
  const int LColumns = ASize.width() + 2 * FInflateCount;
  const int LRows = ASize.height() + 2 * FInflateCount;
  std::vector<std::vector<std::unique_ptr<TvxMapControlMultiScaleTile>>> LTiles(size_t(std::max(LColumns, 0)));
  for (int C = 0; C < LColumns; ++C)
  {
    LTiles[size_t(C)].resize(size_t(std::max(LRows, 0)));
    for (int R = 0; R < LRows; ++R)
    {
      const bool LKept = size_t(C) < FTiles.size() && size_t(R) < FTiles[size_t(C)].size();
      if (LKept)
        LTiles[size_t(C)][size_t(R)] = std::move(FTiles[size_t(C)][size_t(R)]);
      else
        LTiles[size_t(C)][size_t(R)] =
          std::make_unique<TvxMapControlMultiScaleTile>(this, C - FInflateCount, R - FInflateCount);
    }
  }
  FTiles = std::move(LTiles);
  FArrangedTiles = ASize;
  // The grid changed shape: every slot must take its index anew.
  FTileRange = {vxMapControlInvalidTileIndex, vxMapControlInvalidTileIndex};
}

void TvxMapControlMultiScaleViewport::ProjectRange(const TvxMapControlTileRange& ARange)
{
  if (FTiles.empty())
    return;
  if (FTileRange.Min == ARange.Min && FTileRange.Max == ARange.Max)
    return;
  const QSize LInflated = InflatedTiles();
  for (int R = 0; R < LInflated.height(); ++R)
    for (int C = 0; C < LInflated.width(); ++C)
    {
      const int X = ARange.Min.X + C - FInflateCount;
      const int Y = ARange.Min.Y + R - FInflateCount;
      // No wrap across the antimeridian.
      if (X < 0 || Y < 0 || X >= FZoomLevelTileCount || Y >= FZoomLevelTileCount)
        Tiles(C, R)->SetIndex(vxMapControlInvalidTileIndex);
      else
        Tiles(C, R)->SetIndex({X, Y, ARange.Min.Level});
    }
  FTileRange = ARange;
}

bool TvxMapControlMultiScaleViewport::IsReady() const
{
  for (const auto& LColumn : FTiles)
    for (const auto& LTile : LColumn)
      if (!LTile->IsReady())
        return false;
  return true;
}

bool TvxMapControlMultiScaleViewport::IsSettled() const
{
  for (const auto& LColumn : FTiles)
    for (const auto& LTile : LColumn)
      if (!LTile->IsSettled())
        return false;
  return true;
}

// Image

TvxMapControlMultiScaleImage::TvxMapControlMultiScaleImage(TLayerLink ALayer)
  : FLayer(std::move(ALayer)), FViewport(std::make_unique<TvxMapControlMultiScaleViewport>(this, 1))
{
}

TvxMapControlMultiScaleImage::~TvxMapControlMultiScaleImage() = default;

void TvxMapControlMultiScaleImage::UpdateViewPort(const QSize& AViewPortSizeInPixels,
                                                  const TvxRectDouble& AViewPortBounds)
{
  FViewport->Update(AViewPortSizeInPixels, AViewPortBounds);
}

void TvxMapControlMultiScaleImage::UpdateTileParams()
{
  if (!FViewport->TileSource())
    return;
  const QSize LInflated = FViewport->InflatedTiles();
  QList<TvxMapControlMultiScaleTile*> LInner;
  for (int R = 0; R < LInflated.height(); ++R)
    for (int C = 0; C < LInflated.width(); ++C)
    {
      TvxMapControlMultiScaleTile* LTile = FViewport->Tiles(C, R);
      if (!LTile->HasValidIndex())
        continue;
      // Margin tiles are asked for first, so that the visible ones, pushed
      // last, load first.
      if (R == 0 || C == 0 || R == LInflated.height() - 1 || C == LInflated.width() - 1)
        LTile->UpdateRenderParams();
      else
        LInner.append(LTile);
    }
  for (TvxMapControlMultiScaleTile* LTile : std::as_const(LInner))
    LTile->UpdateRenderParams();
}

void TvxMapControlMultiScaleImage::Paint(QPainter& ACanvas)
{
  FRenderItems.clear();
  const QSize LInflated = FViewport->InflatedTiles();
  for (int R = 0; R < LInflated.height(); ++R)
    for (int C = 0; C < LInflated.width(); ++C)
    {
      TvxMapControlMultiScaleTile* LTile = FViewport->Tiles(C, R);
      if (LTile->HasValidIndex())
        LTile->CreateRenderItems(FRenderItems);
    }
  if (FRenderItems.isEmpty())
    return;
  const int LAlpha = FLayer.AlphaBlendValue ? FLayer.AlphaBlendValue() : 255;
  if (LAlpha <= 0)
    return;
  ACanvas.save();
  ACanvas.setRenderHint(QPainter::Antialiasing);
  ACanvas.setRenderHint(QPainter::SmoothPixmapTransform);
  ACanvas.setOpacity(LAlpha / 255.0);
  const QRect LClip = ACanvas.hasClipping() ? ACanvas.clipBoundingRect().toAlignedRect() : QRect();
  for (const TvxMapControlBitmapTile* LItem : std::as_const(FRenderItems))
    if (LClip.isNull() || LClip.intersects(LItem->Bounds()))
      ACanvas.drawImage(LItem->Bounds(), LItem->Image(), LItem->ClipImageRect());
  ACanvas.restore();
}
