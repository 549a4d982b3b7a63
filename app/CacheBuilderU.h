#pragma once

// The offline tile cache builder without its window: the tile arithmetic,
// one run that fetches an area's tiles into a cache folder one request at a
// time, and the figures the dialog and the command line show before a run.

#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>

class QNetworkAccessManager;

qint32 GetTileX(double Lat, double Lon, qint32 Zoom);
qint32 GetTileY(double Lat, double Lon, qint32 Zoom);
QString AddThousandSeparator(const QString& S, QChar Separator);

struct TCacheArea
{
  double TopLeftLat = 0;
  double TopLeftLon = 0;
  double BottomRightLat = 0;
  double BottomRightLon = 0;
};

// Rows and columns of one level, inclusive, not clamped to the level.
struct TCacheTileRange
{
  qint32 Top = 0;
  qint32 Left = 0;
  qint32 Bottom = 0;
  qint32 Right = 0;
};

TCacheTileRange CacheTileRange(const TCacheArea& Area, qint32 Zoom);
// 4 for level 1 plus every tile of levels 2 to ProviderMaxZoom, wrapping
// like the 32-bit count it is.
qint32 CalcTiles(const TCacheArea& Area, qint32 ProviderMaxZoom);

namespace CacheBuilder
{
inline constexpr qint32 LargeCountLimit = 1000;
inline constexpr const char* LargeCountQuestion =
  "Downloading large numbers of tiles may take a long time depending on the number of tiles and internet download "
  "speed.  Are you sure you want to continue?";
inline constexpr const char* FinishedMessage = "Finished building offline tile cache.";
inline constexpr const char* ErrorsMessagePrefix =
  "Some errors were reported during tile download! Your tile cache might not be complete. (";
inline constexpr const char* MapFileName = "vxcache.map";

// Whether a run of TileCount tiles needs the user's yes first.
inline bool AsksLargeCountQuestion(qint32 TileCount) { return TileCount > LargeCountLimit; }

// The message at the end of a run that was not cancelled.
QString EndMessage(const QString& LastError);

// Prefix "_" x "_" y "_" zoom ".teramapcache", as the disk cache names it.
QString TileFileName(const QString& Prefix, qint32 X, qint32 Y, qint32 Zoom);

// What a folder already holds of an area's tiles.
struct TEstimate
{
  qint32 TileCount = 0;
  qint32 Cached = 0;     // counted tiles whose files are in the folder
  qint32 SampleFiles = 0; // tile files of the prefix, counted or not
  qint64 EstimatedBytes = -1; // for the missing tiles; -1 when unknown
};

TEstimate Estimate(const TCacheArea& Area, qint32 ProviderMaxZoom, const QString& Dir, const QString& Prefix);
// "about 1.2 MB", or "unknown".
QString FormatEstimate(qint64 Bytes);
}

struct TCacheBuildResult
{
  bool Cancelled = false;
  QString LastError;  // the last tile's error, empty when none failed
  QString Message;    // empty after a cancel
  QString SaveError;  // the map file could not be written
};

class TCacheBuilder
{
public:
  struct TSettings
  {
    TCacheArea Area;
    QString ProviderURL;
    QString ProviderFilePrefix;
    qint32 ProviderMaxZoom = 0;
    QString CacheDir;
    // Per request: a server that sends nothing for this long fails the
    // tile instead of holding the run. 0 waits for ever.
    int TransferTimeoutMs = 30000;
  };

  // After each tile, fetched, skipped or failed: the tiles done so far and
  // the total. May call Cancel.
  using TProgress = std::function<void(qint32 Done, qint32 Total)>;

  explicit TCacheBuilder(TSettings Settings);
  TCacheBuilder(const TCacheBuilder&) = delete;
  TCacheBuilder& operator=(const TCacheBuilder&) = delete;
  ~TCacheBuilder();

  qint32 TileCount() const { return FTileCount; }
  void SetProgress(TProgress Progress) { FProgress = std::move(Progress); }

  // Takes effect before the next level or row; safe from a signal handler.
  void Cancel() { FAbort = true; }
  bool Cancelled() const { return FAbort; }

  // The whole run, on the calling thread; the map file is written at its
  // end, also after a cancel.
  TCacheBuildResult Run();

  // Empty on success, else the error's text. An existing file is left alone.
  QString DownloadTile(qint32 Zoom, qint32 Y, qint32 X, const QString& FilePath);

  const QStringList& CacheFileList() const { return FCacheFileList; }

private:
  void TileStep(qint32 Zoom, qint32 Y, qint32 X);

  TSettings FSettings;
  qint32 FTileCount = 0;
  qint32 FDone = 0;
  QString FShowError;
  QStringList FCacheFileList;
  TProgress FProgress;
  std::atomic<bool> FAbort{false};
  std::unique_ptr<QNetworkAccessManager> FHttp;
};
