#pragma once

// A layer that shows one tile provider through a multi-scale image.

#include "vxMapControlImageTileProvider.h"
#include "vxMapLayer.h"

#include <memory>

class TvxMapControlMultiScaleImage;
class TvxMapImageTileLayer;

class TvxMapImageTileLayerViewInfo : public TvxMapLayerViewInfo
{
public:
  explicit TvxMapImageTileLayerViewInfo(TvxMapImageTileLayer* ALayer);
  void CalculateBounds() override;
  void Paint(TvxMapControlPainter& APainter) override;

protected:
  void InitializeVisibleElements() override;

private:
  TvxMapImageTileLayer* TileLayer() const;
};

class TvxMapImageTileLayer : public TvxMapLayer
{
public:
  explicit TvxMapImageTileLayer(TvxMapLayers* ACollection = nullptr);
  ~TvxMapImageTileLayer() override;

  int AlphaBlendValue() const { return FAlphaBlendValue; }
  void SetAlphaBlendValue(int AValue);
  TvxMapControlImageTileProvider* Provider() const { return FProvider.get(); }
  template <class TProvider>
  TProvider* ProviderAs() const
  {
    return dynamic_cast<TProvider*>(FProvider.get());
  }
  TvxMapControlImageTileProviderClass ProviderClass() const { return FProviderClass; }
  // On change the old provider goes and one of the new class is made.
  void SetProviderClass(TvxMapControlImageTileProviderClass AValue);
  QString ProviderClassName() const;
  // Unknown names leave the provider as it is and return false.
  bool SetProviderClassName(const QString& AValue);
  // Every slot of the view has its tile, or lies off the world. A tile
  // that failed keeps its slot from being ready while it is in memory.
  bool IsReady() const;
  // Ready, or all that is missing has failed: nothing more will come.
  bool IsSettled() const;
  TvxMapControlMultiScaleImage& MultiScaleImage() const { return *FMultiScaleImage; }

  TvxMapControlCustomProjection* GetMapProjection() const override;
  TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const override;

  // Layout steps, called by the layer's element.
  void UpdateMultiScaleImage();
  void PrepareForRendering();
  // The provider's settings or its tile source changed.
  void ProviderPropertiesChanged();

protected:
  std::unique_ptr<TvxMapLayerViewInfo> CreateViewInfo() override;

private:
  int FAlphaBlendValue = 255;
  std::unique_ptr<TvxMapControlMultiScaleImage> FMultiScaleImage;
  std::unique_ptr<TvxMapControlImageTileProvider> FProvider;
  TvxMapControlImageTileProviderClass FProviderClass = nullptr;
};
