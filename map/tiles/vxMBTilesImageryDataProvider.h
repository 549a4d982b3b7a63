#pragma once

// Tiles from an MBTiles file: an SQLite database whose "tiles" table holds
// each tile's PNG, JPEG or WebP bytes by zoom, column and row, rows counted
// from the south, and whose "metadata" table names, credits and bounds the
// set. Sites hand these out as offline base maps.
//
// The file is checked on the main thread when it is set; a file that cannot
// serve gives no tile source, and LastError says why. The workers read it
// through Qt's SQLite driver, each on a read-only connection of its own,
// which it closes as it ends. Tiles are on disk already: no disk cache.

#include "vxMapControlImageTileProvider.h"
#include "vxMapControlMultiScaleTile.h"

#include <QMutex>
#include <QString>

#include <atomic>

// What the file says of itself, read when it is set.
struct TvxMBTilesInfo
{
  QString Name;
  // As the file has it; may be HTML.
  QString Attribution;
  // Lower case, "jpg" as "jpeg"; empty when neither the metadata nor the
  // first tile tells.
  QString Format;
  int MinZoomLevel = 0;
  int MaxZoomLevel = 0;
  // The side of the first tile; 256 when it does not decode.
  int TileSize = 256;
  // In degrees; false when the file gives none, or nonsense.
  bool HasBounds = false;
  double West = 0;
  double South = 0;
  double East = 0;
  double North = 0;
};

class TvxMBTilesImageryDataProvider : public TvxMapControlImageTileProvider
{
public:
  explicit TvxMBTilesImageryDataProvider(TvxMapImageTileLayer* AOwner);
  ~TvxMBTilesImageryDataProvider() override;

  std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource() override;
  // Reading and decoding use the cores, not a network.
  int GetDefaultMaxParallelConnectionCount() const override;
  TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const override;
  void Update() override;

  const QString& FileName() const { return FFileName; }
  // Checks the file and makes a new tile source for it; a file that cannot
  // serve leaves none, with one warning and LastError set. The same name
  // again does nothing.
  void SetFileName(const QString& AValue);
  bool IsUsable() const { return FUsable; }
  const TvxMBTilesInfo& Info() const { return FInfo; }
  // The file's credit line as plain text, else the file's name.
  QString Attribution() const;

  // The first thing that went wrong with the file since it was set, for the
  // application to show; empty while all is well. Any thread.
  QString LastError() const;
  // Keeps the first report and warns once; later ones are dropped, so that
  // a bad file does not speak for every tile. AWholeFile marks the file
  // itself as failed (gone, locked): the other tiles then fail at once
  // instead of each waiting for it. Any thread.
  void ReportError(const QString& AReason, bool AWholeFile = false);
  bool FileFailed() const { return FFileFailed.load(); }

private:
  QString FFileName;
  TvxMBTilesInfo FInfo;
  bool FUsable = false;
  std::atomic<bool> FFileFailed = false;
  mutable QMutex FErrorLock;
  QString FLastError;
};

class TvxMBTilesTileSource : public TvxMapControlMultiScaleTileSource
{
public:
  explicit TvxMBTilesTileSource(TvxMBTilesImageryDataProvider* AOwner);

  QString TilePrefix() const override { return QStringLiteral("mbtiles"); }
  // Names the tile for messages; the load reads it by its index.
  QString GetTileByZoomLevel(int AZoomLevel, int ATilePositionX, int ATilePositionY) override;

protected:
  std::unique_ptr<TvxMapControlTileImageLoadingTask>
  CreateTileImageLoadingTask(TvxMapControlTileImageSource* ASource, const QString& AUri) override;

private:
  TvxMBTilesImageryDataProvider* FProvider;
};

// Reads one tile on the worker's own connection to the file. What it needs
// of the file is copied in: the source may be going away while it runs.
class TvxMBTilesTileLoadingTask : public TvxMapControlTileImageLoadingTask
{
public:
  TvxMBTilesTileLoadingTask(TvxMapControlTileImageSourceLoadingQueueManager* AManager,
                            TvxMapControlTileImageSource* ASource, const QString& AUri,
                            TvxMBTilesImageryDataProvider* AProvider);

protected:
  bool DoLoad() override;

private:
  // Outlives the workers: the provider ends its tile source first.
  TvxMBTilesImageryDataProvider* FProvider;
  QString FFileName;
  int FMinZoomLevel;
  int FMaxZoomLevel;
};
