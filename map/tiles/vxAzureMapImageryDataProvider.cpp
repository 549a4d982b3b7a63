#include "vxAzureMapImageryDataProvider.h"

#include <QThread>
#include <QUrl>

#include <array>
#include <cmath>

namespace
{

const QString DefaultServer = QStringLiteral("https://atlas.microsoft.com");
const QString ApiVersion = QStringLiteral("2024-04-01");

const std::array<const char*, 18> LocalizedMapViewNames = {
  "AE", "AR", "Auto", "BH", "IN", "IQ", "JO", "KW", "LB", "MA", "OM", "PK", "PS", "QA", "SA", "SY", "Unified", "YE"};

struct TTilesetName
{
  const char* Identifier;
  const char* CachePrefix;
};

const std::array<TTilesetName, 12> TilesetNames = {{
  {"microsoft.base.darkgrey", "DarkGrey"},
  {"microsoft.base.hybrid.darkgrey", "HybridDarkGrey"},
  {"microsoft.base.hybrid.road", "HybridRoad"},
  {"microsoft.base.labels.darkgrey", "LabelsDarkGrey"},
  {"microsoft.base.labels.road", "LabelsRoad"},
  {"microsoft.base.road", "Road"},
  {"microsoft.weather.radar.main", "WeatherRadar"},
  {"microsoft.weather.infrared.main", "WeatherInfrared"},
  {"microsoft.traffic.absolute.main", "TrafficAbsolute"},
  {"microsoft.traffic.relative.main", "TrafficRelative"},
  {"microsoft.imagery", "Satellite"},
  {"microsoft.terra.main", "Terrain"},
}};

// The same date and time, marked as UTC; invalid stays invalid.
QDateTime AsUtc(const QDateTime& AValue)
{
  return AValue.isValid() ? QDateTime(AValue.date(), AValue.time(), Qt::UTC) : QDateTime();
}

qint64 WorldSize()
{
  using TProvider = TvxMapControlAzureMapImageryDataProvider;
  return std::llround(TProvider::CalculateTotalImageSize(TProvider::MaxZoomLevel));
}

} // namespace

QString vxAzureMapLocalizedMapViewName(TvxAzureMapLocalizedMapView AValue)
{
  return QLatin1String(LocalizedMapViewNames.at(size_t(AValue)));
}

QString vxAzureMapTilesetIdentifier(TvxAzureMapTileset AValue)
{
  return QLatin1String(TilesetNames.at(size_t(AValue)).Identifier);
}

QString vxAzureMapTilesetCachePrefix(TvxAzureMapTileset AValue)
{
  return QLatin1String(TilesetNames.at(size_t(AValue)).CachePrefix);
}

qsizetype TvxAzureMapQueryParams::IndexOf(const QString& AName) const
{
  for (qsizetype I = 0; I < FItems.size(); ++I)
    if (FItems.at(I).first == AName)
      return I;
  return -1;
}

void TvxAzureMapQueryParams::SetParam(const QString& AName, const QString& AValue)
{
  const qsizetype Index = IndexOf(AName);
  if (Index >= 0)
    FItems[Index].second = AValue;
  else
    FItems.append({AName, AValue});
}

QString TvxAzureMapQueryParams::GetParam(const QString& AName) const
{
  const qsizetype Index = IndexOf(AName);
  return Index >= 0 ? FItems.at(Index).second : QString();
}

int TvxAzureMapQueryParams::GetParam(const QString& AName, int ADefault) const
{
  bool Ok = false;
  const int Result = GetParam(AName).toInt(&Ok);
  return Ok ? Result : ADefault;
}

TvxAzureMapLocalizedMapView TvxAzureMapTileQueryParams::LocalizedMapView() const
{
  const QString Name = GetParam(QStringLiteral("view"));
  for (size_t I = 0; I < LocalizedMapViewNames.size(); ++I)
    if (Name == QLatin1String(LocalizedMapViewNames[I]))
      return TvxAzureMapLocalizedMapView(I);
  return TvxAzureMapLocalizedMapView::Auto;
}

void TvxAzureMapTileQueryParams::SetLocalizedMapView(TvxAzureMapLocalizedMapView AValue)
{
  SetParam(QStringLiteral("view"), vxAzureMapLocalizedMapViewName(AValue));
}

TvxAzureMapTileset TvxAzureMapTileQueryParams::Tileset() const
{
  const QString Identifier = GetParam(QStringLiteral("tilesetId"));
  for (size_t I = 0; I < TilesetNames.size(); ++I)
    if (Identifier == QLatin1String(TilesetNames[I].Identifier))
      return TvxAzureMapTileset(I);
  return TvxAzureMapTileset::Road;
}

void TvxAzureMapTileQueryParams::SetTileset(TvxAzureMapTileset AValue)
{
  SetParam(QStringLiteral("tilesetId"), vxAzureMapTilesetIdentifier(AValue));
}

QDateTime TvxAzureMapTileQueryParams::UTCTimeStamp() const
{
  return QDateTime::fromString(GetParam(QStringLiteral("timeStamp")), Qt::ISODateWithMs);
}

void TvxAzureMapTileQueryParams::SetUTCTimeStamp(const QDateTime& AValue)
{
  SetParam(QStringLiteral("timeStamp"), AsUtc(AValue).toString(Qt::ISODateWithMs));
}

QString TvxAzureMapApiUrl::Text() const
{
  // QUrl leaves '+' and '&' alone in a query it is handed whole, and a
  // server reads '+' as a space; encoding each part first keeps them data.
  QStringList Pairs;
  for (const auto& [Name, Value] : Params.Items())
    Pairs.append(QString::fromLatin1(QUrl::toPercentEncoding(Name) + '=' + QUrl::toPercentEncoding(Value)));
  QUrl Url;
  Url.setScheme(Scheme);
  Url.setHost(Host);
  Url.setPort(Port);
  Url.setPath(Path);
  if (!Pairs.isEmpty())
    Url.setQuery(Pairs.join(QLatin1Char('&')), QUrl::StrictMode);
  return Url.toString(QUrl::FullyEncoded);
}

TvxMapControlAzureMapImageryDataProvider::TvxMapControlAzureMapImageryDataProvider(TvxMapImageTileLayer* AOwner)
  : TvxMapControlImageTileProvider(AOwner), FServer(DefaultServer)
{
}

std::unique_ptr<TvxMapControlMultiScaleTileSource> TvxMapControlAzureMapImageryDataProvider::CreateTileSource()
{
  if (FAzureKey.isEmpty())
    return nullptr;
  const QUrl Server(FServer);
  TvxAzureMapApiUrl Url;
  Url.Scheme = Server.scheme();
  Url.Host = Server.host();
  Url.Port = Server.port();
  Url.Path = QStringLiteral("/map/tile");

  TvxAzureMapTileQueryParams Params;
  Params.SetApiVersion(ApiVersion);
  Params.SetKey(FAzureKey);
  if (FLocalizedMapView != TvxAzureMapLocalizedMapView::Auto)
    Params.SetLocalizedMapView(FLocalizedMapView);
  Params.SetTileset(FTileset);
  if (!FLanguage.isEmpty())
    Params.SetLanguage(FLanguage);
  if (FUTCTimeStamp.isValid())
    Params.SetUTCTimeStamp(FUTCTimeStamp);
  return std::make_unique<TvxAzureMapTileSource>(this, Url, Params);
}

int TvxMapControlAzureMapImageryDataProvider::GetDefaultMaxParallelConnectionCount() const
{
  return 2 * QThread::idealThreadCount();
}

TvxSizeDouble TvxMapControlAzureMapImageryDataProvider::GetMapSizeInPixels(double AZoomLevel) const
{
  const double Size = CalculateTotalImageSize(AZoomLevel) * ScaleFactor();
  return vxSizeDouble(Size, Size);
}

void TvxMapControlAzureMapImageryDataProvider::Update()
{
  if (FLockCount > 0)
  {
    FUpdateRequired = true;
    return;
  }
  UpdateTileSource();
  FUpdateRequired = false;
  TvxMapControlImageTileProvider::Update();
}

double TvxMapControlAzureMapImageryDataProvider::CalculateTotalImageSize(double AZoomLevel)
{
  return vxCalculateTotalImageSize(AZoomLevel, TileSize);
}

void TvxMapControlAzureMapImageryDataProvider::EndUpdate()
{
  if (FLockCount > 0)
    --FLockCount;
  if (FLockCount == 0 && FUpdateRequired)
    Update();
}

void TvxMapControlAzureMapImageryDataProvider::SetAzureKey(const QString& AValue)
{
  if (FAzureKey == AValue)
    return;
  FAzureKey = AValue;
  Update();
}

void TvxMapControlAzureMapImageryDataProvider::SetLocalizedMapView(TvxAzureMapLocalizedMapView AValue)
{
  if (FLocalizedMapView == AValue)
    return;
  FLocalizedMapView = AValue;
  Update();
}

void TvxMapControlAzureMapImageryDataProvider::SetTileset(TvxAzureMapTileset AValue)
{
  if (FTileset == AValue)
    return;
  FTileset = AValue;
  Update();
}

void TvxMapControlAzureMapImageryDataProvider::SetLanguage(const QString& AValue)
{
  if (FLanguage == AValue)
    return;
  FLanguage = AValue;
  Update();
}

void TvxMapControlAzureMapImageryDataProvider::SetUTCTimeStamp(const QDateTime& AValue)
{
  const QDateTime Value = AsUtc(AValue);
  if (FUTCTimeStamp == Value)
    return;
  FUTCTimeStamp = Value;
  Update();
}

void TvxMapControlAzureMapImageryDataProvider::SetServer(const QString& ASchemeAndHost)
{
  const QString Value = ASchemeAndHost.isEmpty() ? DefaultServer : ASchemeAndHost;
  if (FServer == Value)
    return;
  FServer = Value;
  Update();
}

TvxAzureMapTileSource::TvxAzureMapTileSource(TvxMapControlAzureMapImageryDataProvider* AOwner,
                                             const TvxAzureMapApiUrl& AUrl, const TvxAzureMapTileQueryParams& AParams)
  : TvxMapControlMultiScaleTileSource(AOwner, WorldSize(), WorldSize(), TvxMapControlAzureMapImageryDataProvider::TileSize,
                                      TvxMapControlAzureMapImageryDataProvider::TileSize),
    FUrl(AUrl),
    FParams(AParams),
    FTilePrefix(QStringLiteral("azure_") + vxAzureMapTilesetCachePrefix(AParams.Tileset()))
{
}

QString TvxAzureMapTileSource::GetTileByZoomLevel(int AZoomLevel, int ATilePositionX, int ATilePositionY)
{
  FParams.SetZoomLevel(AZoomLevel);
  FParams.SetXCoord(ATilePositionX);
  FParams.SetYCoord(ATilePositionY);
  FUrl.Params = FParams;
  return FUrl.Text();
}

void vxRegisterAzureMapImageryDataProvider(TvxMapControlImageryDataProviders& ARegistry)
{
  ARegistry.Register(QStringLiteral("AzureMapImageryDataProvider"),
                     vxImageTileProviderClass<TvxMapControlAzureMapImageryDataProvider>());
}
