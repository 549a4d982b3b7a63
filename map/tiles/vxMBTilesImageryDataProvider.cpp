#include "vxMBTilesImageryDataProvider.h"

#include "vxMapImageTileLayer.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QImageReader>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTextDocumentFragment>
#include <QThread>
#include <QThreadStorage>
#include <QtEndian>

#include <map>

namespace
{
const QString Driver = QStringLiteral("QSQLITE");
// A writer that holds the file longer than this fails the read rather than
// holding up the window.
constexpr int BusyTimeoutMs = 1000;
// Levels past this are nonsense, and would overflow the world's size.
constexpr int MaxFileZoomLevel = 24;

// SQLite's primary result codes, as the driver reports them.
enum
{
  SqliteError = 1,
  SqliteBusy = 5,
  SqliteLocked = 6,
  SqliteCorrupt = 11,
  SqliteCantOpen = 14,
  SqliteNotADatabase = 26
};

int Code(const QSqlError& AError)
{
  return AError.nativeErrorCode().toInt();
}

QString DatabaseText(const QSqlError& AError)
{
  return AError.databaseText().isEmpty() ? AError.text() : AError.databaseText();
}

// Worded to follow the file's name.
QString Reason(const QSqlError& AError)
{
  switch (Code(AError))
  {
  case SqliteBusy:
  case SqliteLocked:
    return QStringLiteral("is locked by another program");
  case SqliteCorrupt:
    return QStringLiteral("is damaged (%1)").arg(DatabaseText(AError));
  case SqliteNotADatabase:
    return QStringLiteral("is not an SQLite database");
  case SqliteCantOpen:
    return QStringLiteral("cannot be opened (%1)").arg(DatabaseText(AError));
  default:
    return QStringLiteral("cannot be read (%1)").arg(DatabaseText(AError));
  }
}

// Failures of the file as a whole, which every other tile would meet too.
bool IsFileFailure(const QSqlError& AError)
{
  const int LCode = Code(AError);
  return LCode == SqliteBusy || LCode == SqliteLocked || LCode == SqliteCantOpen || LCode == SqliteNotADatabase;
}

QSqlDatabase OpenConnection(const QString& AConnection, const QString& AFileName)
{
  QSqlDatabase LDatabase = QSqlDatabase::addDatabase(Driver, AConnection);
  LDatabase.setDatabaseName(AFileName);
  LDatabase.setConnectOptions(
    QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=%1").arg(BusyTimeoutMs));
  LDatabase.open();
  return LDatabase;
}

void CloseConnection(const QString& AConnection)
{
  {
    QSqlDatabase LDatabase = QSqlDatabase::database(AConnection, false);
    LDatabase.close();
  }
  QSqlDatabase::removeDatabase(AConnection);
}

// SQLite takes any file, even an empty one, and finds a file cut short only
// when it reads past the end; its header tells both at once.
QString CheckHeader(const QString& AFileName)
{
  const QFileInfo LInfo(AFileName);
  if (!LInfo.exists())
    return QStringLiteral("was not found");
  if (!LInfo.isFile())
    return QStringLiteral("is not a file");
  QFile LFile(AFileName);
  if (!LFile.open(QIODevice::ReadOnly))
    return QStringLiteral("cannot be read (%1)").arg(LFile.errorString());
  const QByteArray LHeader = LFile.read(100);
  if (LHeader.size() < 100 || !LHeader.startsWith(QByteArray("SQLite format 3", 16)))
    return QStringLiteral("is not an SQLite database");
  const char* LData = LHeader.constData();
  const quint16 LPageSizeField = qFromBigEndian<quint16>(LData + 16);
  const qint64 LPageSize = LPageSizeField == 1 ? 65536 : LPageSizeField;
  const quint32 LChangeCounter = qFromBigEndian<quint32>(LData + 24);
  const quint32 LPageCount = qFromBigEndian<quint32>(LData + 28);
  // The page count holds only when written by the same change as the counter.
  const bool LCountValid = LChangeCounter == qFromBigEndian<quint32>(LData + 92);
  const qint64 LExpected = LPageSize * LPageCount;
  if (LCountValid && LExpected > LInfo.size())
    return QStringLiteral("is cut short: %1 of its %2 bytes are there").arg(LInfo.size()).arg(LExpected);
  return {};
}

bool ReadBounds(const QString& AText, TvxMBTilesInfo& AInfo)
{
  const QStringList LParts = AText.split(QLatin1Char(','));
  if (LParts.size() != 4)
    return false;
  double LValues[4];
  for (int I = 0; I < 4; ++I)
  {
    bool LOk = false;
    LValues[I] = LParts[I].trimmed().toDouble(&LOk);
    if (!LOk)
      return false;
  }
  if (LValues[0] < -180 || LValues[2] > 180 || LValues[0] >= LValues[2] || LValues[1] < -90 || LValues[3] > 90 ||
      LValues[1] >= LValues[3])
    return false;
  AInfo.West = LValues[0];
  AInfo.South = LValues[1];
  AInfo.East = LValues[2];
  AInfo.North = LValues[3];
  return true;
}

// The metadata and the first tile, on an open connection.
bool ReadInfo(QSqlDatabase& ADatabase, TvxMBTilesInfo& AInfo, QString& AReason)
{
  if (!ADatabase.isOpen())
  {
    AReason = Reason(ADatabase.lastError());
    return false;
  }
  QSqlQuery LQuery(ADatabase);
  LQuery.setForwardOnly(true);
  // The columns the loads read; a view of that shape serves as well.
  QByteArray LFirstTile;
  if (LQuery.exec(QStringLiteral("SELECT zoom_level, tile_column, tile_row, tile_data FROM tiles LIMIT 1")) &&
      LQuery.next())
    LFirstTile = LQuery.value(3).toByteArray();
  if (LQuery.lastError().isValid())
  {
    const QSqlError LError = LQuery.lastError();
    AReason = Code(LError) == SqliteError
                ? QStringLiteral("has no tiles table of zoom_level, tile_column, tile_row and tile_data (%1)")
                    .arg(DatabaseText(LError))
                : Reason(LError);
    return false;
  }
  LQuery.finish();

  // Without a metadata table the tiles still serve.
  QHash<QString, QString> LMetadata;
  if (LQuery.exec(QStringLiteral("SELECT name, value FROM metadata")))
    while (LQuery.next())
      LMetadata.insert(LQuery.value(0).toString().trimmed().toLower(), LQuery.value(1).toString().trimmed());
  if (LQuery.lastError().isValid() && Code(LQuery.lastError()) != SqliteError)
  {
    AReason = Reason(LQuery.lastError());
    return false;
  }
  LQuery.finish();
  AInfo.Name = LMetadata.value(QStringLiteral("name"));
  AInfo.Attribution = LMetadata.value(QStringLiteral("attribution"));
  AInfo.HasBounds = ReadBounds(LMetadata.value(QStringLiteral("bounds")), AInfo);

  bool LMinOk = false, LMaxOk = false;
  AInfo.MinZoomLevel = LMetadata.value(QStringLiteral("minzoom")).toInt(&LMinOk);
  AInfo.MaxZoomLevel = LMetadata.value(QStringLiteral("maxzoom")).toInt(&LMaxOk);
  if (!LMinOk || !LMaxOk || AInfo.MinZoomLevel < 0 || AInfo.MaxZoomLevel < AInfo.MinZoomLevel)
  {
    // The primary key's index makes this cheap.
    if (!LQuery.exec(QStringLiteral("SELECT MIN(zoom_level), MAX(zoom_level) FROM tiles")) || !LQuery.next())
    {
      AReason = Reason(LQuery.lastError());
      return false;
    }
    if (LQuery.value(0).isNull())
    {
      AReason = QStringLiteral("holds no tiles");
      return false;
    }
    AInfo.MinZoomLevel = LQuery.value(0).toInt();
    AInfo.MaxZoomLevel = LQuery.value(1).toInt();
    LQuery.finish();
  }
  AInfo.MinZoomLevel = qBound(0, AInfo.MinZoomLevel, MaxFileZoomLevel);
  AInfo.MaxZoomLevel = qBound(AInfo.MinZoomLevel, AInfo.MaxZoomLevel, MaxFileZoomLevel);

  QBuffer LBuffer(&LFirstTile);
  LBuffer.open(QIODevice::ReadOnly);
  QString LFormat = LMetadata.value(QStringLiteral("format")).toLower();
  LFormat.remove(QLatin1String("image/"));
  if (LFormat == QLatin1String("jpg"))
    LFormat = QStringLiteral("jpeg");
  if (LFormat.isEmpty())
    LFormat = QString::fromLatin1(QImageReader::imageFormat(&LBuffer)).toLower();
  if (!LFormat.isEmpty() && !QImageReader::supportedImageFormats().contains(LFormat.toLatin1()))
  {
    if (LFormat == QLatin1String("pbf") || LFormat == QLatin1String("mvt"))
      AReason = QStringLiteral("holds vector tiles (%1), which are not drawn").arg(LFormat);
    else
      AReason = QStringLiteral("holds %1 tiles, which cannot be decoded here%2")
                  .arg(LFormat, LFormat == QLatin1String("webp")
                                  ? QStringLiteral(" (WebP needs Qt's image format plugins)")
                                  : QString());
    return false;
  }
  AInfo.Format = LFormat;

  LBuffer.seek(0);
  const QSize LSize = QImageReader(&LBuffer).size();
  if (LSize.isValid() && LSize.width() == LSize.height() && LSize.width() >= 64 && LSize.width() <= 1024)
    AInfo.TileSize = LSize.width();
  return true;
}

// The main thread's look at a file, on a connection of its own for the
// while.
bool ReadInfo(const QString& AFileName, TvxMBTilesInfo& AInfo, QString& AReason)
{
  AReason = CheckHeader(AFileName);
  if (!AReason.isEmpty())
    return false;
  if (!QSqlDatabase::isDriverAvailable(Driver))
  {
    AReason = QStringLiteral("cannot be read: Qt's SQLite driver is not installed");
    return false;
  }
  const QString LConnection = QStringLiteral("vxMBTiles:%1@check").arg(AFileName);
  bool LResult = false;
  {
    QSqlDatabase LDatabase = OpenConnection(LConnection, AFileName);
    LResult = ReadInfo(LDatabase, AInfo, AReason);
  }
  CloseConnection(LConnection);
  return LResult;
}

// A worker's connections, by file. Connections must not cross threads, so
// each worker opens its own and closes them on its own thread as it ends.
class TWorkerConnections
{
public:
  TWorkerConnections() = default;
  TWorkerConnections(const TWorkerConnections&) = delete;
  TWorkerConnections& operator=(const TWorkerConnections&) = delete;
  ~TWorkerConnections()
  {
    for (auto& [LFile, LEntry] : FEntries)
    {
      LEntry.Query.reset();
      CloseConnection(LEntry.Connection);
    }
  }

  // The tile query, prepared on this worker's connection to the file; null
  // with the failure when there is none. A failure is not kept: the next
  // tile tries anew.
  QSqlQuery* TileQuery(const QString& AFileName, QSqlError& AError)
  {
    const auto LFound = FEntries.find(AFileName);
    if (LFound != FEntries.end())
      return LFound->second.Query.get();
    TEntry LEntry;
    LEntry.Connection =
      QStringLiteral("vxMBTiles:%1@%2").arg(AFileName).arg(quintptr(QThread::currentThreadId()), 0, 16);
    {
      QSqlDatabase LDatabase = OpenConnection(LEntry.Connection, AFileName);
      auto LQuery = std::make_unique<QSqlQuery>(LDatabase);
      LQuery->setForwardOnly(true);
      if (!LDatabase.isOpen())
        AError = LDatabase.lastError();
      else if (!LQuery->prepare(QStringLiteral(
                 "SELECT tile_data FROM tiles WHERE zoom_level = ? AND tile_column = ? AND tile_row = ?")))
        AError = LQuery->lastError();
      else
        LEntry.Query = std::move(LQuery);
    }
    if (!LEntry.Query)
    {
      CloseConnection(LEntry.Connection);
      return nullptr;
    }
    return FEntries.emplace(AFileName, std::move(LEntry)).first->second.Query.get();
  }

private:
  struct TEntry
  {
    QString Connection;
    std::unique_ptr<QSqlQuery> Query;
  };
  std::map<QString, TEntry> FEntries;
};

// Qt ends a thread's storage on that thread before its wait returns, so a
// worker's connections are gone by the time its tile source is.
QThreadStorage<TWorkerConnections> GWorkerConnections;

} // namespace

// Provider

TvxMBTilesImageryDataProvider::TvxMBTilesImageryDataProvider(TvxMapImageTileLayer* AOwner)
  : TvxMapControlImageTileProvider(AOwner)
{
  FCacheOptions->OnChanged = [this](TvxMapControlCacheOptions* AOptions) {
    // The tiles are on disk already: a cache folder given from outside is
    // dropped, which notifies once more, without one.
    if (!AOptions->DiskFolder().isEmpty())
      AOptions->SetDiskFolder(QString());
    else
      CacheOptionsChanged();
  };
}

TvxMBTilesImageryDataProvider::~TvxMBTilesImageryDataProvider()
{
  // The workers report here: they end while this is whole.
  FTileSource.reset();
}

std::unique_ptr<TvxMapControlMultiScaleTileSource> TvxMBTilesImageryDataProvider::CreateTileSource()
{
  if (!FUsable)
    return nullptr;
  return std::make_unique<TvxMBTilesTileSource>(this);
}

int TvxMBTilesImageryDataProvider::GetDefaultMaxParallelConnectionCount() const
{
  return qBound(1, QThread::idealThreadCount(), 8);
}

TvxSizeDouble TvxMBTilesImageryDataProvider::GetMapSizeInPixels(double AZoomLevel) const
{
  // The map's geometry, whatever the file's tile size.
  const double LSize = vxCalculateTotalImageSize(AZoomLevel, 256) * ScaleFactor();
  return vxSizeDouble(LSize, LSize);
}

void TvxMBTilesImageryDataProvider::Update()
{
  UpdateTileSource();
  TvxMapControlImageTileProvider::Update();
}

void TvxMBTilesImageryDataProvider::SetFileName(const QString& AValue)
{
  if (FFileName == AValue)
    return;
  // The old file's workers end before its name and state change.
  if (FOwner)
    FOwner->MultiScaleImage().SetSource(nullptr);
  FTileSource.reset();
  FFileName = AValue;
  FInfo = TvxMBTilesInfo();
  FFileFailed.store(false);
  {
    QMutexLocker LLock(&FErrorLock);
    FLastError.clear();
  }
  QString LReason;
  FUsable = !FFileName.isEmpty() && ReadInfo(FFileName, FInfo, LReason);
  if (!FFileName.isEmpty() && !FUsable)
    ReportError(LReason, true);
  Update();
}

QString TvxMBTilesImageryDataProvider::Attribution() const
{
  QString LText = FInfo.Attribution;
  // Files credit their sources with links and entities, for web pages.
  if (LText.contains(QLatin1Char('<')) || LText.contains(QLatin1Char('&')))
    LText = QTextDocumentFragment::fromHtml(LText).toPlainText();
  LText = LText.simplified();
  return LText.isEmpty() ? QFileInfo(FFileName).fileName() : LText;
}

QString TvxMBTilesImageryDataProvider::LastError() const
{
  QMutexLocker LLock(&FErrorLock);
  return FLastError;
}

void TvxMBTilesImageryDataProvider::ReportError(const QString& AReason, bool AWholeFile)
{
  if (AWholeFile)
    FFileFailed.store(true);
  QMutexLocker LLock(&FErrorLock);
  if (!FLastError.isEmpty())
    return;
  FLastError = QStringLiteral("MBTiles file \"%1\" %2").arg(QDir::toNativeSeparators(FFileName), AReason);
  qWarning("%s", qUtf8Printable(FLastError));
}

// Tile source

TvxMBTilesTileSource::TvxMBTilesTileSource(TvxMBTilesImageryDataProvider* AOwner)
  // The world as deep as the file goes, so that deeper views stretch its
  // last level; at least level 1, where the views begin.
  : TvxMapControlMultiScaleTileSource(AOwner, qint64(AOwner->Info().TileSize) << qMax(1, AOwner->Info().MaxZoomLevel),
                                      qint64(AOwner->Info().TileSize) << qMax(1, AOwner->Info().MaxZoomLevel),
                                      AOwner->Info().TileSize, AOwner->Info().TileSize),
    FProvider(AOwner)
{
}

QString TvxMBTilesTileSource::GetTileByZoomLevel(int AZoomLevel, int ATilePositionX, int ATilePositionY)
{
  return QStringLiteral("mbtiles:%1/%2/%3").arg(AZoomLevel).arg(ATilePositionX).arg(ATilePositionY);
}

std::unique_ptr<TvxMapControlTileImageLoadingTask>
TvxMBTilesTileSource::CreateTileImageLoadingTask(TvxMapControlTileImageSource* ASource, const QString& AUri)
{
  return std::make_unique<TvxMBTilesTileLoadingTask>(&LoadingQueueManager(), ASource, AUri, FProvider);
}

// Task

TvxMBTilesTileLoadingTask::TvxMBTilesTileLoadingTask(TvxMapControlTileImageSourceLoadingQueueManager* AManager,
                                                     TvxMapControlTileImageSource* ASource, const QString& AUri,
                                                     TvxMBTilesImageryDataProvider* AProvider)
  : TvxMapControlTileImageLoadingTask(AManager, ASource, AUri), FProvider(AProvider),
    FFileName(AProvider->FileName()), FMinZoomLevel(AProvider->Info().MinZoomLevel),
    FMaxZoomLevel(AProvider->Info().MaxZoomLevel)
{
}

bool TvxMBTilesTileLoadingTask::DoLoad()
{
  if (IsTaskCancelled())
  {
    RaiseImageCancelled();
    return false;
  }
  // Outside the file's levels a tile is missing, as one the file lacks:
  // the slot borrows from other levels.
  const TvxMapControlTileIndex LIndex = FTileImageSource->Index();
  if (LIndex.Level < FMinZoomLevel || LIndex.Level > FMaxZoomLevel || FProvider->FileFailed())
  {
    RaiseImageFailed();
    return false;
  }
  const QString LTile = QStringLiteral("%1/%2/%3").arg(LIndex.Level).arg(LIndex.X).arg(LIndex.Y);
  QSqlError LError;
  QSqlQuery* LQuery = GWorkerConnections.localData().TileQuery(FFileName, LError);
  if (!LQuery)
  {
    FProvider->ReportError(Reason(LError), IsFileFailure(LError));
    RaiseImageFailed();
    return false;
  }
  // Rows count from the south.
  LQuery->bindValue(0, LIndex.Level);
  LQuery->bindValue(1, LIndex.X);
  LQuery->bindValue(2, (qint64(1) << LIndex.Level) - 1 - LIndex.Y);
  QByteArray LData;
  if (LQuery->exec() && LQuery->next())
    LData = LQuery->value(0).toByteArray();
  LError = LQuery->lastError();
  LQuery->finish();
  if (LError.isValid())
  {
    FProvider->ReportError(Reason(LError) + QStringLiteral(" at tile %1").arg(LTile), IsFileFailure(LError));
    RaiseImageFailed();
    return false;
  }
  if (LData.isEmpty())
  {
    RaiseImageFailed();
    return false;
  }
  if (!CreateImage(LData))
  {
    FProvider->ReportError(QStringLiteral("has tiles that are no image, %1 among them; they stay blank").arg(LTile));
    RaiseImageFailed();
    return false;
  }
  return true;
}
