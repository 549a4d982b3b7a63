#pragma once

// A layer for tests and benchmarks: spherical Mercator, a world of 256 x 2^z
// pixels, drawing a graticule every ten degrees and a few marked places.

#include "vxMapControlProjections.h"
#include "vxMapLayer.h"

#include <QColor>
#include <QLineF>
#include <QList>
#include <QPointF>

class TvxTestLayer;

class TvxTestLayerViewInfo : public TvxMapLayerViewInfo
{
public:
  explicit TvxTestLayerViewInfo(TvxTestLayer* ALayer);
  void CalculateBounds() override;
  void Paint(TvxMapControlPainter& APainter) override;
  int CalculateCount() const { return FCalculateCount; }

private:
  QList<QLineF> FLines;
  QList<QPointF> FMarks;
  int FCalculateCount = 0;
};

class TvxTestLayer : public TvxMapLayer
{
public:
  explicit TvxTestLayer(TvxMapLayers* ACollection, QColor AColor = QColor(40, 90, 160));

  TvxMapControlCustomProjection* GetMapProjection() const override { return FProjection.get(); }
  TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const override;
  const QColor& Color() const { return FColor; }
  void SetMarks(const QList<TvxMapControlGeoPoint>& AMarks) { FMarks = AMarks; }
  const QList<TvxMapControlGeoPoint>& Marks() const { return FMarks; }
  void SetHasProjection(bool AValue);
  TvxTestLayerViewInfo* TestViewInfo() const { return static_cast<TvxTestLayerViewInfo*>(ViewInfo()); }

protected:
  std::unique_ptr<TvxMapLayerViewInfo> CreateViewInfo() override;

private:
  std::unique_ptr<TvxMapControlCustomProjection> FProjection;
  QColor FColor;
  QList<TvxMapControlGeoPoint> FMarks;
};
