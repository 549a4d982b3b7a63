#include "vxMapControlDiskCache.h"

#include "ClockU.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>
#include <cmath>

namespace
{
const QDateTime& DaysOrigin()
{
  static const QDateTime Origin(QDate(1899, 12, 30), QTime(0, 0));
  return Origin;
}

constexpr double MsecsPerDay = 86400000.0;

// A tile file of the cache folder itself. A name with a path in it could
// reach any file, and eviction deletes what the map names.
bool IsTileFileName(const QString& AName)
{
  return !AName.contains(QLatin1Char('/')) && !AName.contains(QLatin1Char('\\')) && AName != QLatin1String(".") &&
         AName != QLatin1String("..");
}

// Name, time and size, split at the first two colons.
bool ParseMapLine(QByteArray ALine, TvxMapControlCacheMapItem& AItem)
{
  while (ALine.endsWith('\n') || ALine.endsWith('\r'))
    ALine.chop(1);
  const qsizetype First = ALine.indexOf(':');
  const qsizetype Second = First < 0 ? -1 : ALine.indexOf(':', First + 1);
  if (Second <= 0)
    return false;
  bool TimeOk = false, SizeOk = false;
  AItem.FName = QString::fromLocal8Bit(ALine.left(First));
  AItem.FTime = ALine.mid(First + 1, Second - First - 1).toDouble(&TimeOk);
  AItem.FSize = ALine.mid(Second + 1).toInt(&SizeOk);
  return TimeOk && SizeOk && IsTileFileName(AItem.FName);
}
} // namespace

double vxDateTimeToDays(const QDateTime& AValue)
{
  // Local wall-clock time, as the day count has no zone.
  const QDateTime Local(AValue.toLocalTime().date(), AValue.toLocalTime().time());
  return double(DaysOrigin().msecsTo(Local)) / MsecsPerDay;
}

QDateTime vxDaysToDateTime(double ADays)
{
  return DaysOrigin().addMSecs(qint64(std::llround(ADays * MsecsPerDay)));
}

QString vxMapControlTileFileName(const TvxMapControlTileIndex& AIndex, const QString& APrefix)
{
  return QStringLiteral("%1_%2_%3_%4.teramapcache").arg(APrefix).arg(AIndex.X).arg(AIndex.Y).arg(AIndex.Level);
}

// TvxMapControlDiskCacheMap

TvxMapControlCacheMapItem* TvxMapControlDiskCacheMap::Add(TvxMapControlCacheMapItem AItem, bool AFront)
{
  const QString Key = AItem.FName.toLower();
  FSize += AItem.FSize;
  TvxMapControlCacheMapItem* Item;
  if (AFront)
  {
    FItems.push_front(std::move(AItem));
    Item = &FItems.front();
    FNewest.insert(Key, Item);
  }
  else
  {
    FItems.push_back(std::move(AItem));
    Item = &FItems.back();
    if (!FNewest.contains(Key))
      FNewest.insert(Key, Item);
  }
  ++FNameCounts[Key];
  return Item;
}

void TvxMapControlDiskCacheMap::LoadFromFile(const QString& AFileName)
{
  QFile File(AFileName);
  if (!File.open(QIODevice::ReadOnly))
    throw EvxDiskCacheError(
      QStringLiteral("Cannot read the cache map \"%1\": %2").arg(AFileName, File.errorString()).toStdString());
  int LineNumber = 0;
  while (!File.atEnd())
  {
    ++LineNumber;
    TvxMapControlCacheMapItem Item;
    if (!ParseMapLine(File.readLine(), Item))
      throw EvxDiskCacheError(QStringLiteral("Line %1 of the cache map \"%2\" is not file name:time:size")
                                .arg(LineNumber)
                                .arg(AFileName)
                                .toStdString());
    Add(std::move(Item), false);
  }
}

int TvxMapControlDiskCacheMap::MergeFromFile(const QString& AFileName, const QString& ARoot)
{
  QFile File(AFileName);
  if (!File.open(QIODevice::ReadOnly))
    return 0;
  int Added = 0;
  while (!File.atEnd())
  {
    TvxMapControlCacheMapItem Item;
    if (!ParseMapLine(File.readLine(), Item) || FNewest.contains(Item.FName.toLower()) ||
        !QFileInfo::exists(ARoot + Item.FName))
      continue;
    Add(std::move(Item), false);
    ++Added;
  }
  return Added;
}

void TvxMapControlDiskCacheMap::SaveToFile(const QString& AFileName) const
{
  QByteArray Text;
  Text.reserve(qsizetype(FItems.size()) * 48);
  for (const TvxMapControlCacheMapItem& Item : FItems)
  {
    Text += Item.FName.toLocal8Bit();
    Text += ':';
    Text += QByteArray::number(Item.FTime, 'g', 15);
    Text += ':';
    Text += QByteArray::number(Item.FSize);
    Text += '\n';
  }
  QSaveFile File(AFileName);
  if (!File.open(QIODevice::WriteOnly) || File.write(Text) != Text.size() || !File.commit())
    throw EvxDiskCacheError(
      QStringLiteral("Cannot write the cache map \"%1\": %2").arg(AFileName, File.errorString()).toStdString());
}

TvxMapControlCacheMapItem* TvxMapControlDiskCacheMap::GetItem(const QString& AName)
{
  return FNewest.value(AName.toLower(), nullptr);
}

TvxMapControlCacheMapItem* TvxMapControlDiskCacheMap::PushItem(const QString& AName, qint32 ASize)
{
  return Add({AName, ASize, vxDateTimeToDays(Clock::Now())}, true);
}

void TvxMapControlDiskCacheMap::RemoveItem(TvxMapControlCacheMapItem* AItem)
{
  // Evictions take the oldest, at the back: no search for those.
  const auto It = !FItems.empty() && AItem == &FItems.back()
    ? std::prev(FItems.end())
    : std::find_if(FItems.begin(), FItems.end(), [AItem](const auto& I) { return &I == AItem; });
  if (It == FItems.end())
    return;
  const QString Key = It->FName.toLower();
  FSize -= It->FSize;
  const bool WasNewest = FNewest.value(Key) == AItem;
  const auto Next = FItems.erase(It);
  if (--FNameCounts[Key] == 0)
  {
    FNameCounts.remove(Key);
    FNewest.remove(Key);
  }
  else if (WasNewest)
  {
    // Another item of the name is older, so it lies further on.
    for (auto Later = Next; Later != FItems.end(); ++Later)
      if (Later->FName.toLower() == Key)
      {
        FNewest.insert(Key, &*Later);
        break;
      }
  }
}

void TvxMapControlDiskCacheMap::UpdateItem(TvxMapControlCacheMapItem* AItem)
{
  if (AItem)
    AItem->FTime = vxDateTimeToDays(Clock::Now());
}

// TvxMapControlDiskCache

TvxMapControlDiskCache::TvxMapControlDiskCache(const QString& ARoot, int ADiskLimit, qint64 AExpireTime)
  : FCacheMap(std::make_unique<TvxMapControlDiskCacheMap>(this)), FDiskLimit(ADiskLimit), FExpireTime(AExpireTime)
{
  if (ARoot.isEmpty())
    return;
  FRoot = QDir::fromNativeSeparators(ARoot);
  if (!FRoot.endsWith(QLatin1Char('/')))
    FRoot += QLatin1Char('/');
  QDir().mkpath(FRoot);
  if (QFileInfo::exists(MapFileName()))
    FCacheMap->LoadFromFile(MapFileName());
  FMapStamp = MapFileStamp();
}

TvxMapControlDiskCache::TFileStamp TvxMapControlDiskCache::MapFileStamp() const
{
  const QFileInfo Info(MapFileName());
  return Info.exists() ? TFileStamp{Info.size(), Info.lastModified()} : TFileStamp{};
}

TvxMapControlDiskCache::~TvxMapControlDiskCache()
{
  try
  {
    FlushMap();
  }
  catch (const EvxDiskCacheError& E)
  {
    qWarning("Tile cache: %s", E.what());
  }
}

void TvxMapControlDiskCache::FlushMap()
{
  if (!FMapDirty || FRoot.isEmpty())
    return;
  FMapDirty = false;
  FLastSave.start();
  // Another cache over this folder, or the offline cache builder, wrote
  // the file since: their lines stay.
  const TFileStamp Now = MapFileStamp();
  if (Now.Size >= 0 && !(Now == FMapStamp))
    FCacheMap->MergeFromFile(MapFileName(), FRoot);
  FCacheMap->SaveToFile(MapFileName());
  FMapStamp = MapFileStamp();
}

bool TvxMapControlDiskCache::LocatedAt(const QString& APath) const
{
  QString Path = QDir::fromNativeSeparators(APath);
  if (!Path.endsWith(QLatin1Char('/')))
    Path += QLatin1Char('/');
  return !FRoot.isEmpty() && QDir::cleanPath(Path) == QDir::cleanPath(FRoot);
}

void TvxMapControlDiskCache::Push(const QByteArray& AImageData, const TvxMapControlTileIndex& AIndex,
                                  const QString& APrefix)
{
  if (FRoot.isEmpty())
    return;
  ProcessCache();
  const QString Name = vxMapControlTileFileName(AIndex, APrefix);
  // Whole or not at all: a worker may open the file by path at any time.
  QSaveFile File(FRoot + Name);
  if (!File.open(QIODevice::WriteOnly) || File.write(AImageData) != AImageData.size() || !File.commit())
    throw EvxDiskCacheError(
      QStringLiteral("Cannot write the tile \"%1\": %2").arg(File.fileName(), File.errorString()).toStdString());
  FCacheMap->PushItem(Name, qint32(AImageData.size()));
  // The whole map is written at most once a second: a large cache would
  // otherwise rewrite megabytes for every tile. The write is atomic, so a
  // crash loses the last entries at worst, never the file.
  FMapDirty = true;
  if (!FLastSave.isValid() || FLastSave.elapsed() >= MapSaveIntervalMs)
    FlushMap();
}

bool TvxMapControlDiskCache::TryRetrieveFileName(const TvxMapControlTileIndex& AIndex, const QString& APrefix,
                                                 QString& AFileName)
{
  AFileName.clear();
  if (FRoot.isEmpty())
    return false;
  const QString Name = vxMapControlTileFileName(AIndex, APrefix);
  TvxMapControlCacheMapItem* Item = FCacheMap->GetItem(Name);
  if (!Item)
    return false;
  // The name the file was written under: the lookup ignores case, and this
  // file system does not.
  AFileName = FRoot + Item->FName;
  const QDateTime Modified = QFileInfo(AFileName).lastModified();
  if (!Modified.isValid())
  {
    FCacheMap->RemoveItem(Item);
    AFileName.clear();
    return false;
  }
  if (FExpireTime != 0 && Modified.msecsTo(Clock::Now()) >= FExpireTime)
  {
    QFile::remove(AFileName);
    FCacheMap->RemoveItem(Item);
    AFileName.clear();
    return false;
  }
  FCacheMap->UpdateItem(Item);
  return true;
}

void TvxMapControlDiskCache::ProcessCache()
{
  if (FRoot.isEmpty() || FDiskLimit < 1)
    return;
  const qint64 Limit = qint64(FDiskLimit) << 20;
  qint64 Total = FCacheMap->Size();
  if (Total <= Limit)
    return;
  // Oldest pushes first: first in, first out, whatever was used since.
  while (TvxMapControlCacheMapItem* Item = FCacheMap->Oldest())
  {
    Total -= Item->FSize;
    QFile::remove(FRoot + Item->FName);
    FCacheMap->RemoveItem(Item);
    if (Total < Limit)
      break;
  }
}
