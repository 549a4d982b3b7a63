#pragma once

// A base map's configuration: projection, cache options, connection count,
// and how to make its tile source, which is rebuilt when a setting changes.
// Providers are made through their class (a factory function), so that a
// layer can switch class at run time and the registry can name them.

#include "vxMapControlCacheOptions.h"
#include "vxMapControlHttpRequest.h"
#include "vxMapControlTypes.h"

#include <QString>

#include <functional>
#include <memory>

class TvxMapControlCustomProjection;
class TvxMapControlImageTileProvider;
class TvxMapControlMultiScaleTileSource;
class TvxMapImageTileLayer;

// The world's width in pixels at a level for square tiles of that size:
// doubling from level 1, and shrinking linearly below it.
double vxCalculateTotalImageSize(double AZoomLevel, int ATileSize);

// A provider class is the function that makes one for a layer; it runs the
// virtual set-up after construction.
using TvxMapControlImageTileProviderClass =
  std::unique_ptr<TvxMapControlImageTileProvider> (*)(TvxMapImageTileLayer* AOwner);

class TvxMapControlImageTileProvider
{
public:
  static constexpr int MinParallelConnectionCount = 1;
  static constexpr int MaxParallelConnectionCountLimit = 30;

  explicit TvxMapControlImageTileProvider(TvxMapImageTileLayer* AOwner);
  TvxMapControlImageTileProvider(const TvxMapControlImageTileProvider&) = delete;
  TvxMapControlImageTileProvider& operator=(const TvxMapControlImageTileProvider&) = delete;
  virtual ~TvxMapControlImageTileProvider();

  // The part of construction that needs the derived class: the default
  // connection count and the first tile source.
  virtual void AfterConstruction();

  virtual std::unique_ptr<TvxMapControlCustomProjection> CreateProjection();
  virtual std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource();
  virtual int GetDefaultMaxParallelConnectionCount() const = 0;
  // Tells the layer; derived providers rebuild their source first.
  virtual void Update();
  virtual void UpdateTileSource();
  virtual TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const = 0;
  // Called before every tile pass.
  virtual void PrepareData() {}

  void StartLoadTiles();
  // The layer's high-density factor; 1 without a layer.
  double ScaleFactor() const;
  TvxMapControlCacheOptions& CacheOptions() const { return *FCacheOptions; }
  int MaxParallelConnectionCount() const { return FMaxParallelConnectionCount; }
  // Clamped to 1..30; a change restarts the workers.
  void SetMaxParallelConnectionCount(int AValue);
  TvxMapControlCustomProjection* Projection() const { return FProjection.get(); }
  TvxMapControlMultiScaleTileSource* TileSource() const { return FTileSource.get(); }
  TvxMapImageTileLayer* Owner() const { return FOwner; }

  // Belongs to the layer that owns the provider.
  std::function<void()> OnChanged;
  // Given to every remote load; return true to accept a certificate the
  // platform refused. Without it the platform's checks stand.
  TvxMapControlHttpRequest::TValidateServerCertificate OnValidateServerCertificate;

protected:
  void CacheOptionsChanged();

  std::unique_ptr<TvxMapControlCacheOptions> FCacheOptions;
  int FMaxParallelConnectionCount = 1;
  std::unique_ptr<TvxMapControlCustomProjection> FProjection;
  std::unique_ptr<TvxMapControlMultiScaleTileSource> FTileSource;
  TvxMapImageTileLayer* FOwner;
};

// The class of a provider type, for layers and the registry.
template <class TProvider>
std::unique_ptr<TvxMapControlImageTileProvider> vxCreateImageTileProvider(TvxMapImageTileLayer* AOwner)
{
  auto LProvider = std::make_unique<TProvider>(AOwner);
  LProvider->AfterConstruction();
  return LProvider;
}

template <class TProvider>
TvxMapControlImageTileProviderClass vxImageTileProviderClass()
{
  return &vxCreateImageTileProvider<TProvider>;
}

// Provider classes by name. The engine's own providers are registered the
// first time the registry is used.
class TvxMapControlImageryDataProviders
{
public:
  void Register(const QString& AName, TvxMapControlImageTileProviderClass AClass);
  void Unregister(const QString& AName);
  // Null if none has that name.
  TvxMapControlImageTileProviderClass FindClass(const QString& AName) const;
  // Empty if the class is not registered.
  QString FindName(TvxMapControlImageTileProviderClass AClass) const;
  QStringList Names() const;

private:
  QList<QPair<QString, TvxMapControlImageTileProviderClass>> FItems;
};

TvxMapControlImageryDataProviders& vxMapControlImageryDataProviders();
