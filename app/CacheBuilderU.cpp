#include "CacheBuilderU.h"

#include "ClockU.h"
#include "vxMapControlDiskCache.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSaveFile>
#include <QSet>

#include <cmath>

namespace
{
// The short constant decides into which row a border falls; full pi would
// change the counts.
constexpr double P = 3.14159;

QString TileFileSuffix() { return QStringLiteral(".teramapcache"); }
}

qint32 GetTileX(double Lat, double Lon, qint32 Zoom)
{
  Q_UNUSED(Lat);
  return qint32(std::floor(std::pow(2.0, Zoom) * (Lon + 180) / 360));
}

qint32 GetTileY(double Lat, double Lon, qint32 Zoom)
{
  Q_UNUSED(Lon);
  const double r = P * Lat / 180;
  return qint32(std::floor(std::pow(2.0, Zoom) * (1 - std::log(std::tan(r) + 1 / std::cos(r)) / P) / 2));
}

QString AddThousandSeparator(const QString& S, QChar Separator)
{
  QString Result = S;
  // p is 1-based: the separator goes before the p-th character.
  for (qsizetype p = Result.size() - 2; p > 1; p -= 3)
    Result.insert(p - 1, Separator);
  return Result;
}

TCacheTileRange CacheTileRange(const TCacheArea& Area, qint32 Zoom)
{
  return {GetTileY(Area.TopLeftLat, Area.TopLeftLon, Zoom), GetTileX(Area.TopLeftLat, Area.TopLeftLon, Zoom),
          GetTileY(Area.BottomRightLat, Area.BottomRightLon, Zoom),
          GetTileX(Area.BottomRightLat, Area.BottomRightLon, Zoom)};
}

qint32 CalcTiles(const TCacheArea& Area, qint32 ProviderMaxZoom)
{
  // Unsigned arithmetic wraps where the 32-bit signed original would.
  quint32 Count = 4;
  for (qint32 Zoom = 2; Zoom <= ProviderMaxZoom; ++Zoom)
  {
    const TCacheTileRange R = CacheTileRange(Area, Zoom);
    Count += (quint32(R.Right) - quint32(R.Left) + 1) * (quint32(R.Bottom) - quint32(R.Top) + 1);
  }
  return qint32(Count);
}

namespace CacheBuilder
{
QString EndMessage(const QString& LastError)
{
  if (LastError.isEmpty())
    return QString::fromLatin1(FinishedMessage);
  return QString::fromLatin1(ErrorsMessagePrefix) + LastError + QLatin1Char(')');
}

QString TileFileName(const QString& Prefix, qint32 X, qint32 Y, qint32 Zoom)
{
  return vxMapControlTileFileName(TvxMapControlTileIndex{X, Y, Zoom}, Prefix);
}

TEstimate Estimate(const TCacheArea& Area, qint32 ProviderMaxZoom, const QString& Dir, const QString& Prefix)
{
  TEstimate Result;
  Result.TileCount = CalcTiles(Area, ProviderMaxZoom);
  const QString Head = Prefix + QLatin1Char('_');
  qint64 TotalSize = 0;
  // One pass over the folder rather than a look-up per counted tile, which
  // could be millions.
  const QFileInfoList Files = QDir(Dir).entryInfoList({Head + QLatin1Char('*') + TileFileSuffix()}, QDir::Files);
  for (const QFileInfo& Info : Files)
  {
    const QString Name = Info.fileName();
    if (!Name.startsWith(Head) || !Name.endsWith(TileFileSuffix()))
      continue;
    ++Result.SampleFiles;
    TotalSize += Info.size();
    const QStringList Parts = Name.mid(Head.size(), Name.size() - Head.size() - TileFileSuffix().size())
                                .split(QLatin1Char('_'));
    if (Parts.size() != 3)
      continue;
    bool OkX = false, OkY = false, OkZ = false;
    const qint32 X = Parts[0].toInt(&OkX), Y = Parts[1].toInt(&OkY), Z = Parts[2].toInt(&OkZ);
    if (!OkX || !OkY || !OkZ || Z < 1 || Z > ProviderMaxZoom)
      continue;
    const TCacheTileRange R = Z == 1 ? TCacheTileRange{0, 0, 1, 1} : CacheTileRange(Area, Z);
    if (X >= R.Left && X <= R.Right && Y >= R.Top && Y <= R.Bottom)
      ++Result.Cached;
  }
  if (Result.SampleFiles > 0)
  {
    const qint64 Missing = qMax<qint64>(0, qint64(Result.TileCount) - Result.Cached);
    Result.EstimatedBytes = qint64(std::llround(double(TotalSize) / Result.SampleFiles * double(Missing)));
  }
  return Result;
}

QString FormatEstimate(qint64 Bytes)
{
  if (Bytes < 0)
    return QStringLiteral("unknown");
  const char* const Units[] = {"bytes", "KB", "MB", "GB", "TB"};
  double Value = double(Bytes);
  int Unit = 0;
  while (Value >= 1024 && Unit < 4)
  {
    Value /= 1024;
    ++Unit;
  }
  return Unit == 0 ? QStringLiteral("about %1 bytes").arg(Bytes)
                   : QStringLiteral("about %1 %2").arg(Value, 0, 'f', 1).arg(QLatin1String(Units[Unit]));
}
} // namespace CacheBuilder

TCacheBuilder::TCacheBuilder(TSettings Settings) :
  FSettings(std::move(Settings)),
  FTileCount(CalcTiles(FSettings.Area, FSettings.ProviderMaxZoom))
{
}

TCacheBuilder::~TCacheBuilder() = default;

QString TCacheBuilder::DownloadTile(qint32 Zoom, qint32 Y, qint32 X, const QString& FilePath)
{
  const QString Url = FSettings.ProviderURL + QString::number(Zoom) + QLatin1Char('/') + QString::number(Y) +
                      QLatin1Char('/') + QString::number(X);
  const QString Name = CacheBuilder::TileFileName(FSettings.ProviderFilePrefix, X, Y, Zoom);
  const QString Path = QDir(FilePath).filePath(Name);
  if (QFileInfo::exists(Path))
    return {};

  QNetworkRequest Request{QUrl(Url)};
  Request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
  Request.setTransferTimeout(FSettings.TransferTimeoutMs);
  std::unique_ptr<QNetworkReply> Reply(FHttp->get(Request));
  QEventLoop Loop;
  QObject::connect(Reply.get(), &QNetworkReply::finished, &Loop, &QEventLoop::quit);
  if (!Reply->isFinished())
    Loop.exec(QEventLoop::ExcludeUserInputEvents);
  // Nothing else aborts a request, and the transfer time-out's own text
  // would read "Operation canceled".
  if (Reply->error() == QNetworkReply::OperationCanceledError || Reply->error() == QNetworkReply::TimeoutError)
    return QStringLiteral("No answer from %1 for %2 seconds")
      .arg(Url, QString::number(FSettings.TransferTimeoutMs / 1000.0));
  if (Reply->error() != QNetworkReply::NoError)
    return Reply->errorString();
  const QByteArray Body = Reply->readAll();

  QFile File(Path);
  if (!File.open(QIODevice::WriteOnly) || File.write(Body) != Body.size())
    return QStringLiteral("Cannot write \"%1\": %2").arg(QDir::toNativeSeparators(Path), File.errorString());
  File.close();

  FCacheFileList.append(Name + QLatin1Char(':') +
                        QString::number(vxDateTimeToDays(Clock::Now()), 'g', 15) + QLatin1Char(':') +
                        QString::number(Body.size()));
  return {};
}

void TCacheBuilder::TileStep(qint32 Zoom, qint32 Y, qint32 X)
{
  const QString Error = DownloadTile(Zoom, Y, X, FSettings.CacheDir);
  if (!Error.isEmpty())
    FShowError = Error;
  ++FDone;
  if (FProgress)
    FProgress(FDone, FTileCount);
  // The user's events wait while a tile loads and run between tiles.
  QCoreApplication::processEvents();
}

TCacheBuildResult TCacheBuilder::Run()
{
  FDone = 0;
  FShowError.clear();
  FCacheFileList.clear();
  FHttp = std::make_unique<QNetworkAccessManager>();
  FHttp->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);

  const QString CacheFile = QDir(FSettings.CacheDir).filePath(QString::fromLatin1(CacheBuilder::MapFileName));
  QFile Existing(CacheFile);
  if (Existing.exists() && Existing.open(QIODevice::ReadOnly))
  {
    QList<QByteArray> Lines = Existing.readAll().split('\n');
    if (!Lines.isEmpty() && Lines.last().isEmpty())
      Lines.removeLast();
    for (QByteArray& Line : Lines)
    {
      if (Line.endsWith('\r'))
        Line.chop(1);
      FCacheFileList.append(QString::fromLocal8Bit(Line));
    }
  }

  // Level 1 whole; its failures are not reported.
  for (const auto& [X, Y] : {std::pair{0, 0}, std::pair{1, 0}, std::pair{0, 1}, std::pair{1, 1}})
  {
    DownloadTile(1, Y, X, FSettings.CacheDir);
    ++FDone;
    if (FProgress)
      FProgress(FDone, FTileCount);
  }

  for (qint32 Zoom = 2; Zoom <= FSettings.ProviderMaxZoom && !FAbort; ++Zoom)
  {
    const TCacheTileRange R = CacheTileRange(FSettings.Area, Zoom);
    for (qint32 Y = R.Top; Y <= R.Bottom && !FAbort; ++Y)
      for (qint32 X = R.Left; X <= R.Right; ++X)
        TileStep(Zoom, Y, X);
  }

  TCacheBuildResult Result;
  QByteArray Text;
  for (const QString& Line : FCacheFileList)
    Text += Line.toLocal8Bit() + '\n';
  QSaveFile File(CacheFile);
  if (!File.open(QIODevice::WriteOnly) || File.write(Text) != Text.size() || !File.commit())
    Result.SaveError =
      QStringLiteral("Cannot write \"%1\": %2").arg(QDir::toNativeSeparators(CacheFile), File.errorString());

  Result.Cancelled = FAbort;
  Result.LastError = FShowError;
  if (!Result.Cancelled)
    Result.Message = CacheBuilder::EndMessage(FShowError);
  FHttp.reset();
  return Result;
}
