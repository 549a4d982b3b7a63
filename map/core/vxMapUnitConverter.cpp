#include "vxMapUnitConverter.h"

#include "vxMapControlProjections.h"

#include <algorithm>

namespace
{
// std::clamp lets NaN through instead of inventing an edge for it.
double ClampUnit(double AValue)
{
  return std::clamp(AValue, 0.0, 1.0);
}
}

TvxPointDouble TvxMapUnitConverter::GeoPointToMapUnit(const TvxMapControlGeoPoint& AGeoPoint,
                                                      const TvxMapControlCustomProjection* AProjection,
                                                      bool AShouldNormalize)
{
  if (!AProjection)
    return vxNullPointDouble;
  return AProjection->GeoPointToMapUnit(AShouldNormalize ? vxNormalizedGeoPoint(AGeoPoint) : AGeoPoint);
}

void TvxMapUnitConverter::GeoPointsToMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                              std::span<TvxPointDouble> AMapUnits,
                                              const TvxMapControlCustomProjection* AProjection,
                                              bool AShouldNormalize)
{
  AMapUnits = AMapUnits.first(std::min(AMapUnits.size(), AGeoPoints.size()));
  if (!AProjection)
    std::fill(AMapUnits.begin(), AMapUnits.end(), vxNullPointDouble);
  else
    AProjection->GeoPointsToMapUnits(AGeoPoints.first(AMapUnits.size()), AMapUnits, AShouldNormalize);
}

TvxMapControlGeoPoint TvxMapUnitConverter::MapUnitToGeoPoint(const TvxPointDouble& AMapPoint,
                                                             const TvxMapControlCustomProjection* AProjection,
                                                             bool AShouldNormalize)
{
  if (!AProjection)
    return {};
  TvxPointDouble Point = AMapPoint;
  if (AShouldNormalize)
    Point = {ClampUnit(Point.X), ClampUnit(Point.Y)};
  return AProjection->MapUnitToGeoPoint(Point);
}

TvxPointDouble TvxMapUnitConverter::MapUnitToScreenPoint(const TvxPointDouble& AMapUnit, const TvxRectDouble& AViewport,
                                                         const QSize& AViewportInPixels)
{
  if (AViewport.Width == 0 || AViewport.Height == 0)
    return vxNullPointDouble;
  const double AUnitFactorX = AViewportInPixels.width() / AViewport.Width;
  const double AUnitFactorY = AViewportInPixels.height() / AViewport.Height;
  return {(AMapUnit.X - AViewport.Left) * AUnitFactorX, (AMapUnit.Y - AViewport.Top) * AUnitFactorY};
}

TvxPointDouble TvxMapUnitConverter::ScreenPointToMapUnit(const TvxPointDouble& APoint, const TvxRectDouble& AViewport,
                                                         const QSize& AViewportInPixels)
{
  if (AViewportInPixels.width() == 0 || AViewportInPixels.height() == 0)
    return vxNullPointDouble;
  const double APixelFactorX = AViewport.Width / AViewportInPixels.width();
  const double APixelFactorY = AViewport.Height / AViewportInPixels.height();
  // A point beyond the edge of the world maps to the edge.
  return {ClampUnit(APoint.X * APixelFactorX + AViewport.Left), ClampUnit(APoint.Y * APixelFactorY + AViewport.Top)};
}
