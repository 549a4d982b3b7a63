#include "vxMapControlDiskCache.h"

#include "ClockU.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace
{
const QDateTime& DaysOrigin()
{
  static const QDateTime Origin(QDate(1899, 12, 30), QTime(0, 0));
  return Origin;
}

constexpr double MsecsPerDay = 86400000.0;

constexpr char TileExtension[] = ".teramapcache";
constexpr qsizetype TileExtensionLength = sizeof(TileExtension) - 1;

// A tile file of the cache folder itself. A name with a path in it could
// reach any file, and eviction deletes what the map names.
bool IsTileFileName(QByteArrayView AName)
{
  return !AName.contains('/') && !AName.contains('\\') && AName != "." && AName != "..";
}

// Name, time and size, split at the first two colons.
struct TMapLine
{
  QByteArrayView Name;
  double Time = 0;
  qint32 Size = 0;
};

bool ParseMapLine(QByteArrayView ALine, TMapLine& AResult)
{
  while (ALine.endsWith('\n') || ALine.endsWith('\r'))
    ALine.chop(1);
  const qsizetype First = ALine.indexOf(':');
  const qsizetype Second = First < 0 ? -1 : ALine.indexOf(':', First + 1);
  if (Second <= 0)
    return false;
  bool TimeOk = false, SizeOk = false;
  AResult.Name = ALine.first(First);
  AResult.Time = ALine.sliced(First + 1, Second - First - 1).toDouble(&TimeOk);
  AResult.Size = ALine.sliced(Second + 1).toInt(&SizeOk);
  return TimeOk && SizeOk && IsTileFileName(AResult.Name);
}

// Reads a file line by line through one buffer, so that a large map costs
// no allocation per line.
class TLineReader
{
public:
  explicit TLineReader(QFile& AFile) : FFile(AFile) {}

  bool Next(QByteArrayView& ALine)
  {
    for (;;)
    {
      if (const qsizetype End = FBuffer.indexOf('\n', FStart); End >= 0)
      {
        ALine = QByteArrayView(FBuffer).sliced(FStart, End + 1 - FStart);
        FStart = End + 1;
        return true;
      }
      if (FAtEnd)
      {
        if (FStart >= FBuffer.size())
          return false;
        ALine = QByteArrayView(FBuffer).sliced(FStart);
        FStart = FBuffer.size();
        return true;
      }
      FBuffer.remove(0, FStart);
      FStart = 0;
      const qsizetype Old = FBuffer.size();
      FBuffer.resize(Old + ChunkSize);
      const qint64 Read = FFile.read(FBuffer.data() + Old, ChunkSize);
      FBuffer.resize(Old + std::max<qint64>(Read, 0));
      FAtEnd = Read <= 0;
    }
  }

private:
  static constexpr qsizetype ChunkSize = 1 << 20;
  QFile& FFile;
  QByteArray FBuffer;
  qsizetype FStart = 0;
  bool FAtEnd = false;
};

char LowerAscii(char AChar)
{
  return AChar >= 'A' && AChar <= 'Z' ? char(AChar - 'A' + 'a') : AChar;
}

// A decimal int the way QString::arg writes it, or false.
bool ParseCanonicalInt(QByteArrayView AText, qint32& AValue)
{
  if (AText.isEmpty() || AText.size() > 11)
    return false;
  const auto [Ptr, Error] = std::from_chars(AText.data(), AText.data() + AText.size(), AValue);
  if (Error != std::errc() || Ptr != AText.data() + AText.size())
    return false;
  char Again[16];
  const auto Written = std::to_chars(Again, Again + sizeof(Again), AValue);
  return QByteArrayView(Again, Written.ptr - Again) == AText;
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

void TvxMapControlDiskCacheMap::Store(TItem& AItem, QByteArrayView AName)
{
  // "<prefix>_<x>_<y>_<level>.teramapcache", written back byte for byte.
  if (AName.endsWith(QByteArrayView(TileExtension, TileExtensionLength)))
  {
    const QByteArrayView Stem = AName.chopped(TileExtensionLength);
    const qsizetype LevelAt = Stem.lastIndexOf('_');
    const qsizetype YAt = LevelAt > 0 ? Stem.first(LevelAt).lastIndexOf('_') : -1;
    const qsizetype XAt = YAt > 0 ? Stem.first(YAt).lastIndexOf('_') : -1;
    qint32 X = 0, Y = 0, Level = 0;
    if (XAt >= 0 && ParseCanonicalInt(Stem.sliced(XAt + 1, YAt - XAt - 1), X) &&
        ParseCanonicalInt(Stem.sliced(YAt + 1, LevelAt - YAt - 1), Y) &&
        ParseCanonicalInt(Stem.sliced(LevelAt + 1), Level) && Level >= 0 && Level <= 32767)
    {
      const QByteArray Prefix = Stem.first(XAt).toByteArray();
      auto It = FPrefixIds.constFind(Prefix);
      if (It == FPrefixIds.cend() && FPrefixes.size() < 0xFFFF)
      {
        It = FPrefixIds.insert(Prefix, quint16(FPrefixes.size()));
        FPrefixes.push_back(Prefix);
      }
      if (It != FPrefixIds.cend())
      {
        AItem.A = X;
        AItem.B = Y;
        AItem.Level = qint16(Level);
        AItem.Prefix = *It;
        return;
      }
    }
  }
  AItem.A = qint32(FNames.size());
  AItem.B = qint32(AName.size());
  AItem.Level = -1;
  FNames.append(AName.data(), size_t(AName.size()));
}

QByteArrayView TvxMapControlDiskCacheMap::NameBytes(const TItem& AItem, TName& AOut) const
{
  if (AItem.Level < 0)
    return QByteArrayView(FNames.data() + AItem.A, AItem.B);
  const QByteArray& Prefix = FPrefixes[AItem.Prefix];
  AOut.assign(Prefix.constData(), size_t(Prefix.size()));
  char Number[16];
  for (const qint32 Value : {AItem.A, AItem.B, qint32(AItem.Level)})
  {
    AOut += '_';
    AOut.append(Number, std::to_chars(Number, Number + sizeof(Number), Value).ptr);
  }
  AOut += TileExtension;
  return QByteArrayView(AOut.data(), qsizetype(AOut.size()));
}

quint64 TvxMapControlDiskCacheMap::HashOf(QByteArrayView AName)
{
  // FNV-1a over the lower-case bytes.
  quint64 Hash = 14695981039346656037ull;
  for (const char Char : AName)
  {
    Hash ^= quint8(LowerAscii(Char));
    Hash *= 1099511628211ull;
  }
  return Hash ^ (Hash >> 29);
}

bool TvxMapControlDiskCacheMap::SameName(QByteArrayView A, QByteArrayView B)
{
  if (A.size() != B.size())
    return false;
  for (qsizetype I = 0; I < A.size(); ++I)
    if (LowerAscii(A[I]) != LowerAscii(B[I]))
      return false;
  return true;
}

size_t TvxMapControlDiskCacheMap::FindSlot(QByteArrayView AName, quint64 AHash) const
{
  const size_t Mask = FIndex.size() - 1;
  TName Buffer;
  for (size_t Slot = size_t(AHash) & Mask;; Slot = (Slot + 1) & Mask)
  {
    const TItemId Id = FIndex[Slot];
    if (Id == NoItem)
      return Slot;
    const TItem& Item = FItems[size_t(Id)];
    if (Item.Hash == quint32(AHash) && SameName(NameBytes(Item, Buffer), AName))
      return Slot;
  }
}

void TvxMapControlDiskCacheMap::GrowIndex()
{
  std::vector<TItemId> Old(std::max<size_t>(FIndex.size() * 2, 1024), NoItem);
  Old.swap(FIndex);
  const size_t Mask = FIndex.size() - 1;
  for (const TItemId Id : Old)
    if (Id != NoItem)
    {
      size_t Slot = size_t(FItems[size_t(Id)].Hash) & Mask;
      while (FIndex[Slot] != NoItem)
        Slot = (Slot + 1) & Mask;
      FIndex[Slot] = Id;
    }
}

void TvxMapControlDiskCacheMap::EraseSlot(size_t ASlot)
{
  // Backward shift: later entries of the probe run move up, so that no
  // search stops early at the hole.
  const size_t Mask = FIndex.size() - 1;
  size_t Hole = ASlot;
  for (size_t Slot = (ASlot + 1) & Mask; FIndex[Slot] != NoItem; Slot = (Slot + 1) & Mask)
  {
    const size_t Home = size_t(FItems[size_t(FIndex[Slot])].Hash) & Mask;
    // Movable if its home is not within (Hole, Slot], cyclically.
    if (((Slot - Home) & Mask) >= ((Slot - Hole) & Mask))
    {
      FIndex[Hole] = FIndex[Slot];
      Hole = Slot;
    }
  }
  FIndex[Hole] = NoItem;
  --FIndexUsed;
}

TvxMapControlDiskCacheMap::TItemId TvxMapControlDiskCacheMap::Add(QByteArrayView AName, double ATime, qint32 ASize,
                                                                  bool AFront)
{
  if (size_t(FIndexUsed + 1) * 2 > FIndex.size())
    GrowIndex();
  TItemId Id;
  if (FFree != NoItem)
  {
    Id = FFree;
    FFree = FItems[size_t(Id)].Older;
  }
  else
  {
    Id = TItemId(FItems.size());
    FItems.emplace_back();
  }
  TItem& Item = FItems[size_t(Id)];
  Item = TItem();
  const quint64 Hash = HashOf(AName);
  Item.Time = ATime;
  Item.Size = ASize;
  Item.Hash = quint32(Hash);
  Store(Item, AName);
  FSize += ASize;
  ++FCount;
  if (AFront)
  {
    Item.Older = FNewest;
    (FNewest != NoItem ? FItems[size_t(FNewest)].Newer : FOldest) = Id;
    FNewest = Id;
  }
  else
  {
    Item.Newer = FOldest;
    (FOldest != NoItem ? FItems[size_t(FOldest)].Older : FNewest) = Id;
    FOldest = Id;
  }

  const size_t Slot = FindSlot(AName, Hash);
  TItemId& Listed = FIndex[Slot];
  if (Listed == NoItem)
  {
    Listed = Id;
    ++FIndexUsed;
  }
  else if (AFront)
  {
    Item.OlderSame = Listed;
    Listed = Id;
  }
  else
  {
    // The oldest of its name: the end of the chain. Names seldom repeat.
    TItemId Last = Listed;
    while (FItems[size_t(Last)].OlderSame != NoItem)
      Last = FItems[size_t(Last)].OlderSame;
    FItems[size_t(Last)].OlderSame = Id;
  }
  return Id;
}

void TvxMapControlDiskCacheMap::LoadFromFile(const QString& AFileName)
{
  QFile File(AFileName);
  if (!File.open(QIODevice::ReadOnly))
    throw EvxDiskCacheError(
      QStringLiteral("Cannot read the cache map \"%1\": %2").arg(AFileName, File.errorString()).toStdString());
  // Lines of a usual map are some 45 bytes.
  if (const qint64 Expected = File.size() / 40; Expected > 0 && Expected < (qint64(1) << 30))
    FItems.reserve(FItems.size() + size_t(Expected));
  TLineReader Reader(File);
  QByteArrayView Line;
  int LineNumber = 0;
  while (Reader.Next(Line))
  {
    ++LineNumber;
    TMapLine Parsed;
    if (!ParseMapLine(Line, Parsed))
      throw EvxDiskCacheError(QStringLiteral("Line %1 of the cache map \"%2\" is not file name:time:size")
                                .arg(LineNumber)
                                .arg(AFileName)
                                .toStdString());
    Add(Parsed.Name, Parsed.Time, Parsed.Size, false);
  }
}

int TvxMapControlDiskCacheMap::MergeFromFile(const QString& AFileName, const QString& ARoot)
{
  QFile File(AFileName);
  if (!File.open(QIODevice::ReadOnly))
    return 0;
  TLineReader Reader(File);
  QByteArrayView Line;
  int Added = 0;
  while (Reader.Next(Line))
  {
    TMapLine Parsed;
    if (!ParseMapLine(Line, Parsed))
      continue;
    if (!FIndex.empty() && FIndex[FindSlot(Parsed.Name, HashOf(Parsed.Name))] != NoItem)
      continue;
    if (!QFileInfo::exists(ARoot + QString::fromLocal8Bit(Parsed.Name)))
      continue;
    Add(Parsed.Name, Parsed.Time, Parsed.Size, false);
    ++Added;
  }
  return Added;
}

void TvxMapControlDiskCacheMap::SaveToFile(const QString& AFileName) const
{
  QSaveFile File(AFileName);
  bool Ok = File.open(QIODevice::WriteOnly);
  // Written in pieces, so that a large map needs no copy of its text.
  QByteArray Text;
  constexpr qsizetype Piece = 1 << 20;
  Text.reserve(Piece + 4096);
  TName Buffer;
  for (TItemId Id = FNewest; Ok && Id != NoItem; Id = FItems[size_t(Id)].Older)
  {
    const TItem& Item = FItems[size_t(Id)];
    Text.append(NameBytes(Item, Buffer));
    Text += ':';
    Text += QByteArray::number(Item.Time, 'g', 15);
    Text += ':';
    Text += QByteArray::number(Item.Size);
    Text += '\n';
    if (Text.size() >= Piece)
    {
      Ok = File.write(Text) == Text.size();
      Text.clear();
    }
  }
  if (!Ok || File.write(Text) != Text.size() || !File.commit())
    throw EvxDiskCacheError(
      QStringLiteral("Cannot write the cache map \"%1\": %2").arg(AFileName, File.errorString()).toStdString());
}

TvxMapControlDiskCacheMap::TItemId TvxMapControlDiskCacheMap::GetItem(const QString& AName) const
{
  if (FIndex.empty())
    return NoItem;
  const QByteArray Name = AName.toLocal8Bit();
  return FIndex[FindSlot(Name, HashOf(Name))];
}

QString TvxMapControlDiskCacheMap::Name(TItemId AItem) const
{
  TName Buffer;
  return QString::fromLocal8Bit(NameBytes(FItems[size_t(AItem)], Buffer));
}

TvxMapControlDiskCacheMap::TItemId TvxMapControlDiskCacheMap::PushItem(const QString& AName, qint32 ASize)
{
  return Add(AName.toLocal8Bit(), vxDateTimeToDays(Clock::Now()), ASize, true);
}

void TvxMapControlDiskCacheMap::RemoveItem(TItemId AItem)
{
  if (AItem < 0 || size_t(AItem) >= FItems.size() || FItems[size_t(AItem)].Level == -2)
    return;
  TItem& Item = FItems[size_t(AItem)];
  TName Buffer;
  const size_t Slot = FindSlot(NameBytes(Item, Buffer), Item.Hash);
  if (FIndex[Slot] == AItem)
  {
    if (Item.OlderSame != NoItem)
      FIndex[Slot] = Item.OlderSame;
    else
      EraseSlot(Slot);
  }
  else
  {
    for (TItemId Same = FIndex[Slot]; Same != NoItem; Same = FItems[size_t(Same)].OlderSame)
      if (FItems[size_t(Same)].OlderSame == AItem)
      {
        FItems[size_t(Same)].OlderSame = Item.OlderSame;
        break;
      }
  }
  Unlink(AItem);
}

void TvxMapControlDiskCacheMap::Unlink(TItemId AItem)
{
  TItem& Item = FItems[size_t(AItem)];
  (Item.Newer != NoItem ? FItems[size_t(Item.Newer)].Older : FNewest) = Item.Older;
  (Item.Older != NoItem ? FItems[size_t(Item.Older)].Newer : FOldest) = Item.Newer;
  FSize -= Item.Size;
  --FCount;
  // A name kept whole leaves its bytes behind; such names are rare.
  Item = TItem();
  Item.Level = -2;
  Item.Older = FFree;
  FFree = AItem;
}

void TvxMapControlDiskCacheMap::UpdateItem(TItemId AItem)
{
  if (AItem != NoItem)
    FItems[size_t(AItem)].Time = vxDateTimeToDays(Clock::Now());
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
  const auto Item = FCacheMap->GetItem(Name);
  if (Item == TvxMapControlDiskCacheMap::NoItem)
    return false;
  // The name the file was written under: the lookup ignores case, and this
  // file system does not.
  AFileName = FRoot + FCacheMap->Name(Item);
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

void TvxMapControlDiskCache::DropFile(const QString& AFileName)
{
  if (FRoot.isEmpty() || !AFileName.startsWith(FRoot))
    return;
  const QString Name = AFileName.mid(FRoot.size());
  bool Listed = false;
  for (auto Item = FCacheMap->GetItem(Name); Item != TvxMapControlDiskCacheMap::NoItem;
       Item = FCacheMap->GetItem(Name))
  {
    FCacheMap->RemoveItem(Item);
    Listed = true;
  }
  if (!Listed)
    return;
  QFile::remove(AFileName);
  FMapDirty = true;
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
  for (auto Item = FCacheMap->Oldest(); Item != TvxMapControlDiskCacheMap::NoItem; Item = FCacheMap->Oldest())
  {
    Total -= FCacheMap->ItemSize(Item);
    QFile::remove(FRoot + FCacheMap->Name(Item));
    FCacheMap->RemoveItem(Item);
    if (Total < Limit)
      break;
  }
}
