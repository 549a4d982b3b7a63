#pragma once

// Tiles from a server that takes the zoom, column and row in a URL template,
// with an optional rotating subdomain. The default template is the public
// OpenStreetMap server; a site with its own tile server only sets another
// template.

#include "vxMapControlImageTileProvider.h"
#include "vxMapControlMultiScaleTile.h"

#include <QStringList>

class TvxMapControlOpenStreetMapImageryDataProvider : public TvxMapControlImageTileProvider
{
public:
  static constexpr int TileSize = 256;
  static constexpr int MaxZoomLevel = 19;

  explicit TvxMapControlOpenStreetMapImageryDataProvider(TvxMapImageTileLayer* AOwner);

  std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource() override;
  int GetDefaultMaxParallelConnectionCount() const override { return 2; }
  TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const override;
  void Update() override;

  // The world's width in pixels at a level; fractional levels below 1 shrink
  // it linearly rather than by a power of two.
  static double CalculateTotalImageSize(double AZoomLevel);

  const QStringList& Subdomains() const { return FSubdomains; }
  void SetSubdomains(const QStringList& AValue);
  // "[subdomain]", "[z]", "[x]" and "[y]" are replaced, the first of each.
  const QString& UrlTemplate() const { return FUrlTemplate; }
  void SetUrlTemplate(const QString& AValue);

private:
  QStringList FSubdomains;
  QString FUrlTemplate;
};

class TvxMapControlOpenStreetMapTileSource : public TvxMapControlMultiScaleTileSource
{
public:
  explicit TvxMapControlOpenStreetMapTileSource(TvxMapControlOpenStreetMapImageryDataProvider* AOwner);

  QString TilePrefix() const override { return QStringLiteral("openstreet"); }
  QString GetTileByZoomLevel(int AZoomLevel, int ATilePositionX, int ATilePositionY) override;

private:
  TvxMapControlOpenStreetMapImageryDataProvider* FProvider;
};

void vxRegisterOpenStreetMapImageryDataProvider(TvxMapControlImageryDataProviders& ARegistry);
