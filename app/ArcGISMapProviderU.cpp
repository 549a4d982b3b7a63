#include "ArcGISMapProviderU.h"

#include <cmath>

namespace
{

const QString PublicServer = QStringLiteral("https://services.arcgisonline.com");

QString& ServerOverride()
{
  static QString Value;
  return Value;
}

struct TCatalogueRow
{
  const char* Name;
  const char* Service;
  int TilesSize;
  int MaxZoom;
  const char* CachePrefix;
};

const TCatalogueRow Catalogue[] = {
  {"World Imagery", "World_Imagery", 256, 18, "WI"},
  {"World Street Map", "World_Street_Map", 256, 18, "WS"},
  {"World Topo", "World_Topo_Map", 256, 18, "WT"},
  {"Nat Geo World", "NatGeo_World_Map", 256, 16, "NGW"},
  {"USA Topo", "USA_Topo_Maps", 256, 15, "UT"},
};

QString ServiceUrl(const QString& AServer, const char* AService)
{
  return AServer + QStringLiteral("/ArcGIS/rest/services/") + QLatin1String(AService) +
         QStringLiteral("/MapServer/tile/");
}

} // namespace

QString ArcGISStreamServerURL = ServiceUrl(PublicServer, Catalogue[0].Service);

TArcGISMapProvider::TArcGISMapProvider(TvxMapImageTileLayer* AOwner) : TvxMapControlImageTileProvider(AOwner)
{
  const QString Server = ServerOverride().isEmpty() ? PublicServer : ServerOverride();
  for (const TCatalogueRow& Row : Catalogue)
  {
    auto BaseMap = std::make_unique<TArcGISBaseMap>();
    BaseMap->Name = QLatin1String(Row.Name);
    BaseMap->URL = ServiceUrl(Server, Row.Service);
    BaseMap->TilesSize = Row.TilesSize;
    BaseMap->MaxZoom = Row.MaxZoom;
    BaseMap->CachePrefix = QLatin1String(Row.CachePrefix);
    FBaseMapsList.emplace_back(BaseMap->Name, std::move(BaseMap));
  }
  FURL = FBaseMapsList.front().second->URL;
  // A new provider shows the first row, so the shared URL must follow it
  // (it may still name another server or another provider's last row).
  ArcGISStreamServerURL = FURL;
}

void TArcGISMapProvider::SetServerOverride(const QString& ASchemeAndHost)
{
  ServerOverride() = ASchemeAndHost;
}

void TArcGISMapProvider::ChangeBaseMap(int AVal)
{
  if (AVal < 0 || size_t(AVal) >= FBaseMapsList.size())
    throw EListError("List index out of bounds (" + std::to_string(AVal) + ")");
  const TArcGISBaseMap& Row = *FBaseMapsList[size_t(AVal)].second;
  ArcGISStreamServerURL = Row.URL;
  FURL = Row.URL;
  FDefaultStreamTileSize = Row.TilesSize;
  FDefaultStreamTilesPerSuperTile = 4;
  FDefaultMaxZoomLevel = Row.MaxZoom;
  FCachePrefix = Row.CachePrefix;
  UpdateTileSource();
  // Tiles in memory belong to the base map shown before.
  if (TileSource())
    TileSource()->ClearCache();
  Update();
}

std::unique_ptr<TvxMapControlMultiScaleTileSource> TArcGISMapProvider::CreateTileSource()
{
  const qint64 Size = std::llround(std::pow(2.0, FDefaultMaxZoomLevel) * FDefaultStreamTileSize);
  return std::make_unique<TArcGISMapTileSource>(this, Size, Size, FDefaultStreamTileSize, FDefaultStreamTileSize);
}

TvxSizeDouble TArcGISMapProvider::GetMapSizeInPixels(double AZoomLevel) const
{
  double Size = CalculateTotalImageSize(AZoomLevel);
  if (ScaleFactor() != 1)
    Size *= ScaleFactor();
  return vxSizeDouble(Size, Size);
}

double TArcGISMapProvider::CalculateTotalImageSize(double AZoomLevel) const
{
  if (AZoomLevel >= 1)
    return std::pow(2.0, AZoomLevel) * FDefaultStreamTileSize;
  return FDefaultStreamTileSize * AZoomLevel * 2;
}

TArcGISMapTileSource::TArcGISMapTileSource(TArcGISMapProvider* AOwner, qint64 AImageWidth, qint64 AImageHeight,
                                           int ATileWidth, int ATileHeight)
  : TvxMapControlMultiScaleTileSource(AOwner, AImageWidth, AImageHeight, ATileWidth, ATileHeight),
    FProvider(AOwner)
{
}

QString TArcGISMapTileSource::TilePrefix() const
{
  return QStringLiteral("ArcGIS_") + FProvider->CachePrefix();
}

QString TArcGISMapTileSource::GetTileByZoomLevel(int AZoomLevel, int ATilePositionX, int ATilePositionY)
{
  return ArcGISStreamServerURL + QString::number(AZoomLevel) + QLatin1Char('/') + QString::number(ATilePositionY) +
         QLatin1Char('/') + QString::number(ATilePositionX);
}
