#pragma once

// A provider for tests whose tiles are PNG files it writes on demand, each
// filled with its level's colour. Loads can be recorded, and held at a gate
// until the test lets them through.

#include "vxMapControlImageTileProvider.h"
#include "vxMapControlMultiScaleTile.h"
#include "vxMapImageTileLayer.h"

#include <QDir>
#include <QImage>
#include <QMutex>
#include <QPainter>
#include <QSemaphore>

#include <cmath>

class TTestTileProvider;

// What the test sees of the loads; shared with the workers.
struct TTestTileLog
{
  QMutex Lock; // guards Loaded and Gated
  QList<TvxMapControlTileIndex> Loaded;
  // Loads of this level wait for a release of Gate.
  std::atomic<int> GatedLevel = -1;
  QSemaphore Gate;

  QList<TvxMapControlTileIndex> LoadedCopy()
  {
    QMutexLocker LLock(&Lock);
    return Loaded;
  }
};

inline QColor TestTileLevelColor(int ALevel)
{
  static const QColor LColors[] = {Qt::darkGray, QColor(200, 40, 40), QColor(40, 160, 40), QColor(40, 40, 200),
                                   QColor(200, 160, 0), QColor(160, 0, 160), QColor(0, 160, 160)};
  return LColors[ALevel % 7];
}

class TTestDiskTask : public TvxMapControlTileImageDiskLoadingTask
{
public:
  TTestDiskTask(TvxMapControlTileImageSourceLoadingQueueManager* AManager, TvxMapControlTileImageSource* ASource,
                const QString& AUri, TTestTileLog* ALog)
    : TvxMapControlTileImageDiskLoadingTask(AManager, ASource, AUri), FLog(ALog)
  {
  }

protected:
  bool DoLoad() override
  {
    if (FTileImageSource->Index().Level == FLog->GatedLevel.load())
      FLog->Gate.acquire();
    {
      QMutexLocker LLock(&FLog->Lock);
      FLog->Loaded.append(FTileImageSource->Index());
    }
    return TvxMapControlTileImageDiskLoadingTask::DoLoad();
  }

private:
  TTestTileLog* FLog;
};

class TTestTileSource : public TvxMapControlMultiScaleTileSource
{
public:
  TTestTileSource(TvxMapControlImageTileProvider* AOwner, QString AFolder, TTestTileLog* ALog)
    : TvxMapControlMultiScaleTileSource(AOwner, qint64(256) << 19, qint64(256) << 19, 256, 256),
      FFolder(std::move(AFolder)), FLog(ALog)
  {
  }

  QString TilePrefix() const override { return QStringLiteral("test"); }
  // Tiles from a server instead of files, when set.
  static inline QString UrlTemplate;

  QString GetTileByZoomLevel(int AZoomLevel, int AX, int AY) override
  {
    if (!UrlTemplate.isEmpty())
      return QString(UrlTemplate)
        .replace(QLatin1String("[z]"), QString::number(AZoomLevel))
        .replace(QLatin1String("[x]"), QString::number(AX))
        .replace(QLatin1String("[y]"), QString::number(AY));
    const QString LName = QStringLiteral("%1/%2_%3_%4.png").arg(FFolder).arg(AZoomLevel).arg(AX).arg(AY);
    if (!QFileInfo::exists(LName))
    {
      QImage LImage(256, 256, QImage::Format_RGB32);
      LImage.fill(TestTileLevelColor(AZoomLevel));
      LImage.save(LName);
    }
    return LName;
  }

protected:
  std::unique_ptr<TvxMapControlTileImageLoadingTask> CreateTileImageLoadingTask(TvxMapControlTileImageSource* ASource,
                                                                                const QString& AUri) override
  {
    if (AUri.startsWith(QLatin1String("http")))
      return TvxMapControlMultiScaleTileSource::CreateTileImageLoadingTask(ASource, AUri);
    return std::make_unique<TTestDiskTask>(&LoadingQueueManager(), ASource, AUri, FLog);
  }

private:
  QString FFolder;
  TTestTileLog* FLog;
};

// Set Folder and Log before the layer makes the provider.
class TTestTileProvider : public TvxMapControlImageTileProvider
{
public:
  static inline QString Folder;
  static inline TTestTileLog* Log = nullptr;
  static inline int Connections = 1;

  using TvxMapControlImageTileProvider::TvxMapControlImageTileProvider;

  std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource() override
  {
    return std::make_unique<TTestTileSource>(this, Folder, Log);
  }
  int GetDefaultMaxParallelConnectionCount() const override { return Connections; }
  TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const override
  {
    const double LSize = vxCalculateTotalImageSize(AZoomLevel, 256);
    return vxSizeDouble(LSize * ScaleFactor(), LSize * ScaleFactor());
  }
};
