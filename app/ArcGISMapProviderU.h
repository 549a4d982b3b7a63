#pragma once

// ArcGIS Online base maps: a fixed catalogue of tiled map services, one of
// which is shown at a time.

#include "vxMapControlImageTileProvider.h"
#include "vxMapControlMultiScaleTile.h"
#include "vxMapControlTypes.h"

#include <QString>

#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

struct TArcGISBaseMap
{
  QString Name;
  // Ends with the "/" before the level.
  QString URL;
  int TilesSize = 256;
  int MaxZoom = 18;
  QString CachePrefix;
};

// The tile URL of the base map shown last. It is shared by every ArcGIS
// provider in the process, so only the one that changed base map last builds
// the right URLs; the application shows one at a time.
extern QString ArcGISStreamServerURL;

class TArcGISMapProvider : public TvxMapControlImageTileProvider
{
public:
  // Names and rows, in catalogue order.
  using TBaseMaps = std::vector<std::pair<QString, std::unique_ptr<TArcGISBaseMap>>>;

  explicit TArcGISMapProvider(TvxMapImageTileLayer* AOwner);

  // Replaces "https://services.arcgisonline.com" in the catalogue of providers
  // made afterwards, for a site with its own server; empty keeps the public one.
  static void SetServerOverride(const QString& ASchemeAndHost);

  // Shows the base map at that row. Throws EListError, changing nothing, for
  // an index outside the catalogue.
  void ChangeBaseMap(int AVal);

  std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource() override;
  int GetDefaultMaxParallelConnectionCount() const override { return 30; }
  TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const override;
  double CalculateTotalImageSize(double AZoomLevel) const;

  const TBaseMaps& BaseMaps() const { return FBaseMapsList; }
  const QString& URL() const { return FURL; }
  // Empty until the first change of base map.
  const QString& CachePrefix() const { return FCachePrefix; }
  int StreamTileSize() const { return FDefaultStreamTileSize; }
  int StreamTilesPerSuperTile() const { return FDefaultStreamTilesPerSuperTile; }
  int MaxZoomLevel() const { return FDefaultMaxZoomLevel; }

private:
  int FDefaultStreamTileSize = 256;
  int FDefaultStreamTilesPerSuperTile = 4;
  int FDefaultMaxZoomLevel = 18;
  TBaseMaps FBaseMapsList;
  QString FCachePrefix;
  QString FURL;
};

class TArcGISMapTileSource : public TvxMapControlMultiScaleTileSource
{
public:
  TArcGISMapTileSource(TArcGISMapProvider* AOwner, qint64 AImageWidth, qint64 AImageHeight, int ATileWidth,
                       int ATileHeight);

  QString TilePrefix() const override;
  // The service takes level, row, column.
  QString GetTileByZoomLevel(int AZoomLevel, int ATilePositionX, int ATilePositionY) override;

private:
  TArcGISMapProvider* FProvider;
};
