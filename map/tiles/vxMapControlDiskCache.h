#pragma once

// The disk cache of a tile source: one file per tile in a folder, and the
// text file "vxcache.map" that lists them newest push first with their last
// use and size. Only the main thread touches it; workers read tile files by
// path.

#include "vxMapControlTypes.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QElapsedTimer>
#include <QString>

#include <list>
#include <memory>
#include <stdexcept>

// A map file that cannot be read or written, or a tile that cannot be saved.
class EvxDiskCacheError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

// Date-times as days since 1899-12-30, the fraction the time of day: the
// form the map file keeps.
double vxDateTimeToDays(const QDateTime& AValue);
QDateTime vxDaysToDateTime(double ADays);

// "<prefix>_<x>_<y>_<level>.teramapcache"
QString vxMapControlTileFileName(const TvxMapControlTileIndex& AIndex, const QString& APrefix);

struct TvxMapControlCacheMapItem
{
  QString FName;
  qint32 FSize = 0;
  double FTime = 0;
};

class TvxMapControlDiskCache;

class TvxMapControlDiskCacheMap
{
public:
  static constexpr const char* FileName = "vxcache.map";

  explicit TvxMapControlDiskCacheMap(TvxMapControlDiskCache* ACache) : FCache(ACache) {}
  TvxMapControlDiskCacheMap(const TvxMapControlDiskCacheMap&) = delete;
  TvxMapControlDiskCacheMap& operator=(const TvxMapControlDiskCacheMap&) = delete;

  // Throws EvxDiskCacheError naming the line that does not parse.
  void LoadFromFile(const QString& AFileName);
  // Written whole to a temporary file and renamed, so a crash never leaves
  // half a map. Throws EvxDiskCacheError when it cannot be written.
  void SaveToFile(const QString& AFileName) const;

  // Adds the lines of a map file that someone else wrote (another cache
  // over the same folder, the offline cache builder) for names it does not
  // list and whose files are in ARoot, as the oldest items. Lines that do
  // not parse are skipped. Returns how many were added.
  int MergeFromFile(const QString& AFileName, const QString& ARoot);

  // The newest item of that name, ignoring case; null if none.
  TvxMapControlCacheMapItem* GetItem(const QString& AName);
  // A new item at the front, used now; a name already listed gets a second
  // item. The cache writes the map file.
  TvxMapControlCacheMapItem* PushItem(const QString& AName, qint32 ASize);
  void RemoveItem(TvxMapControlCacheMapItem* AItem);
  // Marks the item used now, in memory only; its place stays.
  void UpdateItem(TvxMapControlCacheMapItem* AItem);

  qint64 Size() const { return FSize; }
  const std::list<TvxMapControlCacheMapItem>& Items() const { return FItems; }
  TvxMapControlCacheMapItem* Oldest() { return FItems.empty() ? nullptr : &FItems.back(); }

private:
  TvxMapControlCacheMapItem* Add(TvxMapControlCacheMapItem AItem, bool AFront);

  TvxMapControlDiskCache* FCache;
  std::list<TvxMapControlCacheMapItem> FItems;
  // Beside the list: the newest item of each name, and how many items a
  // name has, so that lookups and evictions stay cheap in large caches.
  QHash<QString, TvxMapControlCacheMapItem*> FNewest;
  QHash<QString, int> FNameCounts;
  qint64 FSize = 0;
};

class TvxMapControlDiskCache
{
public:
  // Creates the folder and reads its map file if there is one. An empty
  // root makes a cache that stores and finds nothing.
  TvxMapControlDiskCache(const QString& ARoot, int ADiskLimit, qint64 AExpireTime);
  ~TvxMapControlDiskCache();

  const QString& Root() const { return FRoot; }
  void SetLimits(int ADiskLimit, qint64 AExpireTime)
  {
    FDiskLimit = ADiskLimit;
    FExpireTime = AExpireTime;
  }
  bool LocatedAt(const QString& APath) const;

  // Stores the downloaded bytes of a tile as they came; eviction first.
  void Push(const QByteArray& AImageData, const TvxMapControlTileIndex& AIndex, const QString& APrefix);
  // The full path of a usable tile file; false if the map does not list it,
  // the file is gone, or it has expired (then it is deleted).
  bool TryRetrieveFileName(const TvxMapControlTileIndex& AIndex, const QString& APrefix, QString& AFileName);

  TvxMapControlDiskCacheMap& CacheMap() const { return *FCacheMap; }
  // Writes the map file if it changed since the last write; also done at
  // most a second after a push, and when the cache closes. Lines another
  // writer put in the file since this cache last read or wrote it are kept.
  void FlushMap();
  static constexpr int MapSaveIntervalMs = 1000;
  QString MapFileName() const { return FRoot + QLatin1String(TvxMapControlDiskCacheMap::FileName); }

private:
  // Deletes the oldest pushes until the folder is below its limit.
  void ProcessCache();

  // Size and time of the map file as this cache last read or wrote it.
  struct TFileStamp
  {
    qint64 Size = -1;
    QDateTime Modified;
    bool operator==(const TFileStamp&) const = default;
  };
  TFileStamp MapFileStamp() const;

  std::unique_ptr<TvxMapControlDiskCacheMap> FCacheMap;
  TFileStamp FMapStamp;
  QElapsedTimer FLastSave;
  bool FMapDirty = false;
  int FDiskLimit;
  qint64 FExpireTime;
  QString FRoot;
};
