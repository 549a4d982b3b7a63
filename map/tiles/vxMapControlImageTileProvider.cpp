#include "vxMapControlImageTileProvider.h"

#include "vxAzureMapImageryDataProvider.h"
#include "vxMapControlOpenStreetMapImageryDataProvider.h"

#include "vxMapControlMultiScaleTile.h"
#include "vxMapControlProjections.h"
#include "vxMapImageTileLayer.h"

#include <algorithm>
#include <cmath>

double vxCalculateTotalImageSize(double AZoomLevel, int ATileSize)
{
  return AZoomLevel < 1 ? AZoomLevel * ATileSize : std::pow(2.0, AZoomLevel) * ATileSize;
}

TvxMapControlImageTileProvider::TvxMapControlImageTileProvider(TvxMapImageTileLayer* AOwner)
  : FCacheOptions(std::make_unique<TvxMapControlCacheOptions>()), FOwner(AOwner)
{
  FCacheOptions->OnChanged = [this](TvxMapControlCacheOptions*) { CacheOptionsChanged(); };
}

std::unique_ptr<TvxMapControlMultiScaleTileSource> TvxMapControlImageTileProvider::CreateTileSource()
{
  return nullptr;
}

TvxMapControlImageTileProvider::~TvxMapControlImageTileProvider()
{
  FCacheOptions->OnChanged = nullptr;
  // The source's workers stop before anything they could reach goes.
  FTileSource.reset();
}

void TvxMapControlImageTileProvider::AfterConstruction()
{
  FProjection = CreateProjection();
  FMaxParallelConnectionCount = std::clamp(GetDefaultMaxParallelConnectionCount(), MinParallelConnectionCount,
                                           MaxParallelConnectionCountLimit);
  UpdateTileSource();
}

std::unique_ptr<TvxMapControlCustomProjection> TvxMapControlImageTileProvider::CreateProjection()
{
  return std::make_unique<TvxMapControlSphericalMercatorProjection>();
}

void TvxMapControlImageTileProvider::Update()
{
  if (OnChanged)
    OnChanged();
}

void TvxMapControlImageTileProvider::UpdateTileSource()
{
  // The layer's image must let go of the old source's tiles first.
  if (FOwner)
    FOwner->MultiScaleImage().SetSource(nullptr);
  FTileSource.reset();
  FTileSource = CreateTileSource();
}

void TvxMapControlImageTileProvider::StartLoadTiles()
{
  if (FTileSource)
    FTileSource->StartLoadTiles();
}

double TvxMapControlImageTileProvider::ScaleFactor() const
{
  return FOwner ? FOwner->ScaleFactor() : 1.0;
}

void TvxMapControlImageTileProvider::SetMaxParallelConnectionCount(int AValue)
{
  AValue = std::clamp(AValue, MinParallelConnectionCount, MaxParallelConnectionCountLimit);
  if (FMaxParallelConnectionCount == AValue)
    return;
  FMaxParallelConnectionCount = AValue;
  if (FTileSource)
    FTileSource->UpdateConnectionSettings();
}

void TvxMapControlImageTileProvider::CacheOptionsChanged()
{
  if (FTileSource)
    FTileSource->UpdateCacheOptions();
}

// Registry

void TvxMapControlImageryDataProviders::Register(const QString& AName, TvxMapControlImageTileProviderClass AClass)
{
  Unregister(AName);
  FItems.append({AName, AClass});
}

void TvxMapControlImageryDataProviders::Unregister(const QString& AName)
{
  FItems.removeIf([&](const auto& AItem) { return AItem.first == AName; });
}

TvxMapControlImageTileProviderClass TvxMapControlImageryDataProviders::FindClass(const QString& AName) const
{
  for (const auto& LItem : FItems)
    if (LItem.first == AName)
      return LItem.second;
  return nullptr;
}

QString TvxMapControlImageryDataProviders::FindName(TvxMapControlImageTileProviderClass AClass) const
{
  for (const auto& LItem : FItems)
    if (LItem.second == AClass)
      return LItem.first;
  return {};
}

QStringList TvxMapControlImageryDataProviders::Names() const
{
  QStringList LResult;
  for (const auto& LItem : FItems)
    LResult.append(LItem.first);
  return LResult;
}

TvxMapControlImageryDataProviders& vxMapControlImageryDataProviders()
{
  static TvxMapControlImageryDataProviders LProviders = [] {
    TvxMapControlImageryDataProviders LResult;
    vxRegisterOpenStreetMapImageryDataProvider(LResult);
    vxRegisterAzureMapImageryDataProvider(LResult);
    return LResult;
  }();
  return LProviders;
}
