#pragma once

// Tiles from the Azure Maps render service: a key, a tileset, an optional
// map view, language and time, all sent as query parameters. A site with its
// own server of the same interface replaces the scheme and host.

#include "vxMapControlImageTileProvider.h"
#include "vxMapControlMultiScaleTile.h"

#include <QDateTime>
#include <QList>
#include <QPair>
#include <QString>

// The order is the order of the service's names; values are stored by it.
enum class TvxAzureMapLocalizedMapView
{
  AE, AR, Auto, BH, IN, IQ, JO, KW, LB, MA, OM, PK, PS, QA, SA, SY, Unified, YE
};

enum class TvxAzureMapTileset
{
  DarkGrey,
  HybridDarkGrey,
  HybridRoad,
  LabelsDarkGrey,
  LabelsRoad,
  Road,
  WeatherRadar,
  WeatherInfrared,
  TrafficAbsolute,
  TrafficRelative,
  Satellite,
  Terrain
};

// The names the service uses.
QString vxAzureMapLocalizedMapViewName(TvxAzureMapLocalizedMapView AValue);
QString vxAzureMapTilesetIdentifier(TvxAzureMapTileset AValue);
// The part of the tile files' names that keeps tilesets apart in the cache.
QString vxAzureMapTilesetCachePrefix(TvxAzureMapTileset AValue);

// Query parameters in the order they were first set.
class TvxAzureMapQueryParams
{
public:
  // Replaces the value of a parameter of that name, or appends one.
  void SetParam(const QString& AName, const QString& AValue);
  // Empty if not set.
  QString GetParam(const QString& AName) const;
  bool HasParam(const QString& AName) const { return IndexOf(AName) >= 0; }
  // ADefault if not set or not a whole number.
  int GetParam(const QString& AName, int ADefault) const;

  const QList<QPair<QString, QString>>& Items() const { return FItems; }

private:
  qsizetype IndexOf(const QString& AName) const;

  QList<QPair<QString, QString>> FItems;
};

// The parameters of a tile request, under the service's names.
class TvxAzureMapTileQueryParams : public TvxAzureMapQueryParams
{
public:
  QString ApiVersion() const { return GetParam(QStringLiteral("api-version")); }
  void SetApiVersion(const QString& AValue) { SetParam(QStringLiteral("api-version"), AValue); }
  QString Key() const { return GetParam(QStringLiteral("subscription-key")); }
  void SetKey(const QString& AValue) { SetParam(QStringLiteral("subscription-key"), AValue); }
  // Auto if not set.
  TvxAzureMapLocalizedMapView LocalizedMapView() const;
  void SetLocalizedMapView(TvxAzureMapLocalizedMapView AValue);
  // Road if not set.
  TvxAzureMapTileset Tileset() const;
  void SetTileset(TvxAzureMapTileset AValue);
  int ZoomLevel() const { return GetParam(QStringLiteral("zoom"), 1); }
  void SetZoomLevel(int AValue) { SetParam(QStringLiteral("zoom"), QString::number(AValue)); }
  int XCoord() const { return GetParam(QStringLiteral("x"), 0); }
  void SetXCoord(int AValue) { SetParam(QStringLiteral("x"), QString::number(AValue)); }
  int YCoord() const { return GetParam(QStringLiteral("y"), 0); }
  void SetYCoord(int AValue) { SetParam(QStringLiteral("y"), QString::number(AValue)); }
  QString Language() const { return GetParam(QStringLiteral("language")); }
  void SetLanguage(const QString& AValue) { SetParam(QStringLiteral("language"), AValue); }
  // Invalid if not set.
  QDateTime UTCTimeStamp() const;
  // The date and time are read as UTC whatever zone the value carries.
  void SetUTCTimeStamp(const QDateTime& AValue);
  int TileSize() const { return GetParam(QStringLiteral("tileSize"), 256); }
  void SetTileSize(int AValue) { SetParam(QStringLiteral("tileSize"), QString::number(AValue)); }
};

// A service address and its query.
class TvxAzureMapApiUrl
{
public:
  QString Scheme = QStringLiteral("https");
  QString Host;
  // -1 for the scheme's own port.
  int Port = -1;
  QString Path;
  TvxAzureMapQueryParams Params;

  // Every name and value is percent-encoded, '+' and '&' included.
  QString Text() const;
};

class TvxMapControlAzureMapImageryDataProvider : public TvxMapControlImageTileProvider
{
public:
  static constexpr int TileSize = 256;
  static constexpr int MaxZoomLevel = 19;

  explicit TvxMapControlAzureMapImageryDataProvider(TvxMapImageTileLayer* AOwner);

  // Null without a key: the layer then shows and requests nothing.
  std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource() override;
  int GetDefaultMaxParallelConnectionCount() const override;
  TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const override;
  // Between BeginUpdate and EndUpdate only remembers that it is due.
  void Update() override;

  static double CalculateTotalImageSize(double AZoomLevel);

  void BeginUpdate() { ++FLockCount; }
  void EndUpdate();

  const QString& AzureKey() const { return FAzureKey; }
  void SetAzureKey(const QString& AValue);
  TvxAzureMapLocalizedMapView LocalizedMapView() const { return FLocalizedMapView; }
  void SetLocalizedMapView(TvxAzureMapLocalizedMapView AValue);
  TvxAzureMapTileset Tileset() const { return FTileset; }
  void SetTileset(TvxAzureMapTileset AValue);
  // Empty for the service's default.
  const QString& Language() const { return FLanguage; }
  void SetLanguage(const QString& AValue);
  // Invalid for the current tiles. Kept as UTC: the date and time given are
  // read as UTC whatever zone the value carries.
  const QDateTime& UTCTimeStamp() const { return FUTCTimeStamp; }
  void SetUTCTimeStamp(const QDateTime& AValue);
  // Scheme and host (and port) of the service, "https://atlas.microsoft.com"
  // unless a site has its own.
  const QString& Server() const { return FServer; }
  void SetServer(const QString& ASchemeAndHost);

private:
  QString FAzureKey;
  TvxAzureMapLocalizedMapView FLocalizedMapView = TvxAzureMapLocalizedMapView::Auto;
  TvxAzureMapTileset FTileset = TvxAzureMapTileset::Road;
  QString FLanguage;
  QDateTime FUTCTimeStamp;
  QString FServer;
  int FLockCount = 0;
  bool FUpdateRequired = false;
};

class TvxAzureMapTileSource : public TvxMapControlMultiScaleTileSource
{
public:
  // AUrl holds everything but the tile's zoom and position.
  TvxAzureMapTileSource(TvxMapControlAzureMapImageryDataProvider* AOwner, const TvxAzureMapApiUrl& AUrl,
                        const TvxAzureMapTileQueryParams& AParams);

  QString TilePrefix() const override { return FTilePrefix; }
  // Main thread only: it reuses one parameter list for every tile.
  QString GetTileByZoomLevel(int AZoomLevel, int ATilePositionX, int ATilePositionY) override;

private:
  TvxAzureMapApiUrl FUrl;
  TvxAzureMapTileQueryParams FParams;
  QString FTilePrefix;
};

void vxRegisterAzureMapImageryDataProvider(TvxMapControlImageryDataProviders& ARegistry);
