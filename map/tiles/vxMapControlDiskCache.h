#pragma once

// The disk cache of a tile source: one file per tile in a folder, and the
// text file "vxcache.map" that lists them newest push first with their last
// use and size. Only the main thread touches it; workers read tile files by
// path.

#include "vxMapControlTypes.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QHash>
#include <QElapsedTimer>
#include <QString>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

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

class TvxMapControlDiskCache;

// The lines of the map file in memory. A million lines must load in well
// under a second and a hundred megabytes, so an item is a small record in
// one array, linked newest first by index; a name of the usual form
// "<prefix>_<x>_<y>_<level>.teramapcache" is kept as its numbers and a
// shared prefix, any other name whole, and an open-addressed table finds
// the newest item of a name, ignoring case.
class TvxMapControlDiskCacheMap
{
public:
  static constexpr const char* FileName = "vxcache.map";
  using TItemId = qint32;
  static constexpr TItemId NoItem = -1;

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

  // The newest item of that name, ignoring case; NoItem if none.
  TItemId GetItem(const QString& AName) const;
  // A new item at the front, used now; a name already listed gets a second
  // item. The cache writes the map file.
  TItemId PushItem(const QString& AName, qint32 ASize);
  void RemoveItem(TItemId AItem);
  // Marks the item used now, in memory only; its place stays.
  void UpdateItem(TItemId AItem);

  // The name as the file lists it, its size in bytes and its last use.
  QString Name(TItemId AItem) const;
  qint32 ItemSize(TItemId AItem) const { return FItems[size_t(AItem)].Size; }
  double ItemTime(TItemId AItem) const { return FItems[size_t(AItem)].Time; }

  qint64 Size() const { return FSize; }
  int Count() const { return FCount; }
  TItemId Newest() const { return FNewest; }
  TItemId Oldest() const { return FOldest; }

private:
  struct TItem
  {
    double Time = 0;
    qint32 Size = 0;
    // The list, newest first, and the next older item of the same name.
    TItemId Newer = NoItem;
    TItemId Older = NoItem;
    TItemId OlderSame = NoItem;
    // X and Y of a tile name, or where a name kept whole lies in FNames.
    qint32 A = 0;
    qint32 B = 0;
    // The level; -1 for a name kept whole, -2 for a free record.
    qint16 Level = -1;
    quint16 Prefix = 0;
    // Of the name, so that probes and rehashes need not spell it out.
    quint32 Hash = 0;
  };
  using TName = std::string;

  TItemId Add(QByteArrayView AName, double ATime, qint32 ASize, bool AFront);
  void Store(TItem& AItem, QByteArrayView AName);
  // The name's bytes, into AOut; returns the view of them.
  QByteArrayView NameBytes(const TItem& AItem, TName& AOut) const;
  static quint64 HashOf(QByteArrayView AName);
  static bool SameName(QByteArrayView A, QByteArrayView B);
  // The slot of the name in FIndex: where its newest item is, or the empty
  // slot where it would go.
  size_t FindSlot(QByteArrayView AName, quint64 AHash) const;
  void GrowIndex();
  void EraseSlot(size_t ASlot);
  void Unlink(TItemId AItem);

  TvxMapControlDiskCache* FCache;
  std::vector<TItem> FItems;
  TItemId FFree = NoItem;
  TItemId FNewest = NoItem;
  TItemId FOldest = NoItem;
  int FCount = 0;
  qint64 FSize = 0;
  // Linear probing over a power-of-two table of item ids, at most half full.
  std::vector<TItemId> FIndex;
  int FIndexUsed = 0;
  std::vector<QByteArray> FPrefixes;
  QHash<QByteArray, quint16> FPrefixIds;
  std::string FNames;
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

  // A tile file that no longer decodes: deleted, and out of the map, so
  // that the tile comes from the network again.
  void DropFile(const QString& AFileName);

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
