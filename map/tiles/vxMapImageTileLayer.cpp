#include "vxMapImageTileLayer.h"

#include "vxMapControl.h"
#include "vxMapControlMultiScaleTile.h"

#include <cmath>

TvxMapImageTileLayerViewInfo::TvxMapImageTileLayerViewInfo(TvxMapImageTileLayer* ALayer)
  : TvxMapLayerViewInfo(ALayer)
{
}

TvxMapImageTileLayer* TvxMapImageTileLayerViewInfo::TileLayer() const
{
  return static_cast<TvxMapImageTileLayer*>(FLayer);
}

void TvxMapImageTileLayerViewInfo::InitializeVisibleElements()
{
  TvxMapLayerViewInfo::InitializeVisibleElements();
  TileLayer()->UpdateMultiScaleImage();
}

void TvxMapImageTileLayerViewInfo::CalculateBounds()
{
  TvxMapLayerViewInfo::CalculateBounds();
  TileLayer()->PrepareForRendering();
}

void TvxMapImageTileLayerViewInfo::Paint(TvxMapControlPainter& APainter)
{
  TileLayer()->MultiScaleImage().Paint(APainter.Canvas());
  TvxMapLayerViewInfo::Paint(APainter);
}

TvxMapImageTileLayer::TvxMapImageTileLayer(TvxMapLayers* ACollection) : TvxMapLayer(ACollection)
{
  TvxMapControlMultiScaleImage::TLayerLink LLink;
  LLink.ScaleFactor = [this] { return ScaleFactor(); };
  LLink.AlphaBlendValue = [this] { return FAlphaBlendValue; };
  LLink.InvalidateRect = [this](const QRect& ARect) { InvalidateRect(ARect); };
  FMultiScaleImage = std::make_unique<TvxMapControlMultiScaleImage>(std::move(LLink));
}

TvxMapImageTileLayer::~TvxMapImageTileLayer()
{
  // The slots unlink from the provider's tiles before the provider goes.
  FMultiScaleImage->SetSource(nullptr);
  FProvider.reset();
  FMultiScaleImage.reset();
}

std::unique_ptr<TvxMapLayerViewInfo> TvxMapImageTileLayer::CreateViewInfo()
{
  return std::make_unique<TvxMapImageTileLayerViewInfo>(this);
}

void TvxMapImageTileLayer::SetAlphaBlendValue(int AValue)
{
  AValue = qBound(0, AValue, 255);
  if (FAlphaBlendValue == AValue)
    return;
  FAlphaBlendValue = AValue;
  Invalidate();
}

void TvxMapImageTileLayer::SetProviderClass(TvxMapControlImageTileProviderClass AValue)
{
  if (FProviderClass == AValue)
    return;
  FMultiScaleImage->SetSource(nullptr);
  FProvider.reset();
  FProviderClass = AValue;
  if (FProviderClass)
  {
    FProvider = FProviderClass(this);
    FProvider->OnChanged = [this] { ProviderPropertiesChanged(); };
  }
  InvalidateViewPort();
  UpdateMultiScaleImage();
  FMultiScaleImage->SetSource(FProvider ? FProvider->TileSource() : nullptr);
  if (Collection())
  {
    Collection()->UpdateViewPort();
    Collection()->Changed();
  }
}

QString TvxMapImageTileLayer::ProviderClassName() const
{
  return FProviderClass ? vxMapControlImageryDataProviders().FindName(FProviderClass) : QString();
}

bool TvxMapImageTileLayer::SetProviderClassName(const QString& AValue)
{
  const TvxMapControlImageTileProviderClass LClass = vxMapControlImageryDataProviders().FindClass(AValue);
  if (!LClass)
    return false;
  SetProviderClass(LClass);
  return true;
}

void TvxMapImageTileLayer::ProviderPropertiesChanged()
{
  FMultiScaleImage->SetSource(FProvider ? FProvider->TileSource() : nullptr);
  InvalidateViewPort();
  if (Collection())
    Collection()->Changed();
}

bool TvxMapImageTileLayer::IsReady() const
{
  return FMultiScaleImage->IsReady();
}

bool TvxMapImageTileLayer::IsSettled() const
{
  return FMultiScaleImage->IsSettled();
}

TvxMapControlCustomProjection* TvxMapImageTileLayer::GetMapProjection() const
{
  return FProvider ? FProvider->Projection() : nullptr;
}

TvxSizeDouble TvxMapImageTileLayer::GetMapSizeInPixels(double AZoomLevel) const
{
  if (FProvider)
    return FProvider->GetMapSizeInPixels(AZoomLevel);
  const double LSize = AZoomLevel < 1 ? 512 * AZoomLevel : 256.0 * std::pow(2.0, AZoomLevel);
  return vxSizeDouble(LSize, LSize);
}

void TvxMapImageTileLayer::UpdateMultiScaleImage()
{
  FMultiScaleImage->UpdateViewPort(GetViewportInPixels(), ViewPort());
}

void TvxMapImageTileLayer::PrepareForRendering()
{
  if (!IsActuallyVisible() || !FProvider)
    return;
  FProvider->PrepareData();
  FMultiScaleImage->UpdateTileParams();
  FProvider->StartLoadTiles();
}
