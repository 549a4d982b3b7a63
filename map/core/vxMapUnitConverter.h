#pragma once

// Conversion between the map's three coordinate spaces: geographic degrees,
// map units and screen points. Without state; every operation is static.

#include "vxMapControlTypes.h"

#include <QSize>

#include <span>

class TvxMapControlCustomProjection;

class TvxMapUnitConverter
{
public:
  // With AShouldNormalize the latitude is clamped to [-90, 90] and the
  // longitude wrapped into (-180, 180]. A null projection gives (0, 0).
  static TvxPointDouble GeoPointToMapUnit(const TvxMapControlGeoPoint& AGeoPoint,
                                          const TvxMapControlCustomProjection* AProjection, bool AShouldNormalize);
  // The same for many points in one pass, the normalisation folded in; the
  // output must hold as many points as the input. Results equal the
  // one-point call's.
  static void GeoPointsToMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                  std::span<TvxPointDouble> AMapUnits,
                                  const TvxMapControlCustomProjection* AProjection, bool AShouldNormalize);
  // With AShouldNormalize both coordinates are clamped to [0, 1].
  static TvxMapControlGeoPoint MapUnitToGeoPoint(const TvxPointDouble& AMapPoint,
                                                 const TvxMapControlCustomProjection* AProjection,
                                                 bool AShouldNormalize);
  // Not clamped; an empty viewport gives (0, 0).
  static TvxPointDouble MapUnitToScreenPoint(const TvxPointDouble& AMapUnit, const TvxRectDouble& AViewport,
                                             const QSize& AViewportInPixels);
  // Clamped to the world, always; an empty pixel size gives (0, 0).
  static TvxPointDouble ScreenPointToMapUnit(const TvxPointDouble& APoint, const TvxRectDouble& AViewport,
                                             const QSize& AViewportInPixels);
};
