#include "vxMapControlProjections.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <typeinfo>

namespace
{
constexpr double Pi = std::numbers::pi;
// Map units per radian on X by default; Y uses its negative, as Y grows south.
constexpr double DefaultScale = 1 / (2 * Pi);

double Radians(double ADegrees)
{
  return ADegrees * (Pi / 180);
}

double Degrees(double ARadians)
{
  return ARadians * (180 / Pi);
}

// std::clamp lets NaN through, so a bad input stays visibly bad.
double ClampUnit(double AValue)
{
  return std::clamp(AValue, 0.0, 1.0);
}

// The X axis of every per-axis projection: longitude linear in radians.
double LinearMapUnitX(double ALongitude, double AOffsetX, double AScaleX)
{
  return Radians(ALongitude) * AScaleX + AOffsetX;
}

double LinearLongitude(double AMapUnitX, double AOffsetX, double AScaleX)
{
  return Degrees((AMapUnitX - AOffsetX) / AScaleX);
}

double Sign(double AValue)
{
  return (AValue > 0) - (AValue < 0);
}

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

// Forward formulas on a latitude already clamped to the calculator's limits.
// The one-point slots and the bulk loops share them, so that both give the
// same bits.

double SphericalMercatorY(double ALatitude, double AOffsetY, double AScaleY)
{
  const double SinPhi = std::sin(Radians(ALatitude));
  return 0.5 * std::log((1 + SinPhi) / (1 - SinPhi)) * AScaleY + AOffsetY;
}

double MillerY(double ALatitude, double AOffsetY, double AScaleY, double AScaleFactor)
{
  const double Phi = Radians(ALatitude);
  const double V = 1.25 * std::log(std::tan(0.4 * Phi + Pi / 4));
  return ClampUnit((V / AScaleFactor) * AScaleY + AOffsetY);
}

double EquirectangularY(double ALatitude, double AOffsetY, double AScaleY)
{
  return 2 * Radians(ALatitude) * AScaleY + AOffsetY;
}

double EqualAreaY(double ALatitude, double AOffsetY, double AScaleY)
{
  return std::sin(Radians(ALatitude)) * Pi * AScaleY + AOffsetY;
}

double BraunStereographicY(double ALatitude, double AOffsetY, double AScaleY)
{
  return std::tan(Radians(ALatitude) / 2) * AScaleY * Pi + AOffsetY;
}

TvxPointDouble KavrayskiyPoint(double ALatitude, double ALongitude, const TvxPointDouble& AOffset,
                               const TvxPointDouble& AScale)
{
  const double Lambda = Radians(ALongitude);
  const double Phi = Radians(ALatitude);
  return {std::sqrt(Pi * Pi / 3 - Phi * Phi) * Lambda * AScale.X * std::sqrt(3.0) / Pi + AOffset.X,
          Phi * AScale.Y * 2 + AOffset.Y};
}

TvxPointDouble SinusoidalPoint(double ALatitude, double ALongitude, const TvxPointDouble& AOffset,
                               const TvxPointDouble& AScale)
{
  const double Lambda = Radians(ALongitude);
  const double Phi = Radians(ALatitude);
  return {Lambda * std::cos(Phi) * AScale.X + AOffset.X, Phi * AScale.Y * 2 + AOffset.Y};
}

TvxPointDouble EPSG4326Point(double ALatitude, double ALongitude)
{
  return {(ALongitude + 180) / 360, 1 - (ALatitude + 90) / 180};
}

// The bulk loop of a built-in calculator, AForward(latitude, longitude)
// inlined into it. A subclass may have changed a slot the formulas skip, so
// it gets the base's loop through the slots instead.
template <class TCalculator, class TForward>
void ProjectPoints(const TCalculator& ACalculator, std::span<const TvxMapControlGeoPoint> AGeoPoints,
                   std::span<TvxPointDouble> AMapUnits, const TvxPointDouble& AOffset, const TvxPointDouble& AScale,
                   bool ANormalize, TForward AForward)
{
  if (typeid(ACalculator) != typeid(TCalculator))
  {
    ACalculator.TvxMapControlProjectionCalculator::GetMapUnits(AGeoPoints, AMapUnits, AOffset, AScale, ANormalize);
    return;
  }
  const size_t Count = std::min(AGeoPoints.size(), AMapUnits.size());
  const TvxMapControlGeoPoint* In = AGeoPoints.data();
  TvxPointDouble* Out = AMapUnits.data();
  if (ANormalize)
    for (size_t I = 0; I < Count; ++I)
    {
      const TvxMapControlGeoPoint P = vxNormalizedGeoPoint(In[I]);
      Out[I] = AForward(P.Latitude, P.Longitude);
    }
  else
    for (size_t I = 0; I < Count; ++I)
      Out[I] = AForward(In[I].Latitude, In[I].Longitude);
}

// The cylindrical ones: longitude straight across, AY of the latitude
// clamped to the calculator's range.
template <class TCalculator, class TY>
void ProjectCylindrical(const TCalculator& ACalculator, std::span<const TvxMapControlGeoPoint> AGeoPoints,
                        std::span<TvxPointDouble> AMapUnits, const TvxPointDouble& AOffset,
                        const TvxPointDouble& AScale, bool ANormalize, double ALow, double AHigh, TY AY)
{
  ProjectPoints(ACalculator, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize,
                [=](double ALatitude, double ALongitude) {
                  return TvxPointDouble(LinearMapUnitX(ALongitude, AOffset.X, AScale.X),
                                        AY(std::clamp(ALatitude, ALow, AHigh)));
                });
}
}

// --- Calculator base ---

TvxMapControlGeoPoint TvxMapControlProjectionCalculator::GetGeoPoint(const TvxPointDouble& AMapPoint,
                                                                     const TvxPointDouble& AOffset,
                                                                     const TvxPointDouble& AScale) const
{
  return TvxMapControlGeoPoint::Create(GetGeoPointLatitude(AMapPoint.Y, AOffset.Y, AScale.Y),
                                       GetGeoPointLongitude(AMapPoint.X, AOffset.X, AScale.X));
}

TvxPointDouble TvxMapControlProjectionCalculator::GetMapUnit(const TvxMapControlGeoPoint& AGeoPoint,
                                                             const TvxPointDouble& AOffset,
                                                             const TvxPointDouble& AScale) const
{
  return {GetMapUnitX(AGeoPoint.Longitude, AOffset.X, AScale.X), GetMapUnitY(AGeoPoint.Latitude, AOffset.Y, AScale.Y)};
}

void TvxMapControlProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                    std::span<TvxPointDouble> AMapUnits,
                                                    const TvxPointDouble& AOffset, const TvxPointDouble& AScale,
                                                    bool ANormalize) const
{
  const size_t Count = std::min(AGeoPoints.size(), AMapUnits.size());
  for (size_t I = 0; I < Count; ++I)
    AMapUnits[I] = GetMapUnit(ANormalize ? vxNormalizedGeoPoint(AGeoPoints[I]) : AGeoPoints[I], AOffset, AScale);
}

double TvxMapControlProjectionCalculator::ClampLatitude(double ALatitude) const
{
  return std::clamp(ALatitude, MinLatitudeInternal(), MaxLatitudeInternal());
}

double TvxMapControlProjectionCalculator::ClampLongitude(double ALongitude) const
{
  return std::clamp(ALongitude, MinLongitudeInternal(), MaxLongitudeInternal());
}

// --- Spherical Mercator ---

double TvxMapControlSphericalMercatorProjectionCalculator::GetGeoPointLatitude(double AMapUnitY, double AOffsetY,
                                                                               double AScaleY) const
{
  return Degrees(std::atan(std::sinh((AMapUnitY - AOffsetY) / AScaleY)));
}

double TvxMapControlSphericalMercatorProjectionCalculator::GetGeoPointLongitude(double AMapUnitX, double AOffsetX,
                                                                                double AScaleX) const
{
  return LinearLongitude(AMapUnitX, AOffsetX, AScaleX);
}

double TvxMapControlSphericalMercatorProjectionCalculator::GetMapUnitX(double ALongitude, double AOffsetX,
                                                                       double AScaleX) const
{
  return LinearMapUnitX(ALongitude, AOffsetX, AScaleX);
}

double TvxMapControlSphericalMercatorProjectionCalculator::GetMapUnitY(double ALatitude, double AOffsetY,
                                                                       double AScaleY) const
{
  return SphericalMercatorY(ClampLatitude(ALatitude), AOffsetY, AScaleY);
}

void TvxMapControlSphericalMercatorProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                                     std::span<TvxPointDouble> AMapUnits,
                                                                     const TvxPointDouble& AOffset,
                                                                     const TvxPointDouble& AScale,
                                                                     bool ANormalize) const
{
  ProjectCylindrical(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, MinLatitudeInternal(),
                     MaxLatitudeInternal(), [=](double ALatitude) {
                       return SphericalMercatorY(ALatitude, AOffset.Y, AScale.Y);
                     });
}

// --- Elliptical Mercator ---

TvxMapControlEllipticalMercatorProjectionCalculator::TvxMapControlEllipticalMercatorProjectionCalculator()
  : FPiHalf(Pi / 2),
    FRadiusMajor(6378137.0),
    FRadiusMinor(6356752.3142),
    FRadiusRatio(FRadiusMinor / FRadiusMajor),
    FEccentricity(std::sqrt(1 - FRadiusRatio * FRadiusRatio)),
    FEccentricityHalf(FEccentricity / 2)
{
}

double TvxMapControlEllipticalMercatorProjectionCalculator::GetGeoPointLatitude(double AMapUnitY, double AOffsetY,
                                                                                double AScaleY) const
{
  const double T = std::exp(-(AMapUnitY - AOffsetY) / AScaleY);
  double Phi = FPiHalf - 2 * std::atan(T);
  for (int I = 0; I < 15; ++I)
  {
    const double Es = FEccentricity * std::sin(Phi);
    const double Delta = FPiHalf - 2 * std::atan(T * std::pow((1 - Es) / (1 + Es), FEccentricityHalf)) - Phi;
    Phi += Delta;
    if (std::abs(Delta) < 1e-9)
      break;
  }
  return Degrees(Phi);
}

double TvxMapControlEllipticalMercatorProjectionCalculator::GetGeoPointLongitude(double AMapUnitX, double AOffsetX,
                                                                                 double AScaleX) const
{
  return LinearLongitude(AMapUnitX, AOffsetX, AScaleX);
}

double TvxMapControlEllipticalMercatorProjectionCalculator::GetMapUnitX(double ALongitude, double AOffsetX,
                                                                        double AScaleX) const
{
  return LinearMapUnitX(ALongitude, AOffsetX, AScaleX);
}

double TvxMapControlEllipticalMercatorProjectionCalculator::GetMapUnitY(double ALatitude, double AOffsetY,
                                                                        double AScaleY) const
{
  // A fixed clamp at 89 degrees, not the calculator's limit: the result is
  // clamped to the map anyway, and the pole itself would be infinite.
  const double Phi = Radians(std::clamp(ALatitude, -89.0, 89.0));
  const double Es = FEccentricity * std::sin(Phi);
  const double P = std::pow((1 - Es) / (1 + Es), FEccentricityHalf);
  return ClampUnit(std::log(std::tan(0.5 * (FPiHalf + Phi)) * P) * AScaleY + AOffsetY);
}

void TvxMapControlEllipticalMercatorProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                                      std::span<TvxPointDouble> AMapUnits,
                                                                      const TvxPointDouble& AOffset,
                                                                      const TvxPointDouble& AScale,
                                                                      bool ANormalize) const
{
  const auto Forward = [=, this](double ALatitude, double ALongitude) {
    const double Y = TvxMapControlEllipticalMercatorProjectionCalculator::GetMapUnitY(ALatitude, AOffset.Y, AScale.Y);
    return TvxPointDouble(LinearMapUnitX(ALongitude, AOffset.X, AScale.X), Y);
  };
  ProjectPoints(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, Forward);
}

// --- Miller ---

double TvxMapControlMillerProjectionCalculator::GetGeoPointLatitude(double AMapUnitY, double AOffsetY,
                                                                    double AScaleY) const
{
  const double V = ((AMapUnitY - AOffsetY) / AScaleY) * FScaleFactor;
  return ClampLatitude(Degrees(1.25 * std::atan(std::sinh(0.8 * V))));
}

double TvxMapControlMillerProjectionCalculator::GetGeoPointLongitude(double AMapUnitX, double AOffsetX,
                                                                     double AScaleX) const
{
  return LinearLongitude(AMapUnitX, AOffsetX, AScaleX);
}

double TvxMapControlMillerProjectionCalculator::GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const
{
  return LinearMapUnitX(ALongitude, AOffsetX, AScaleX);
}

double TvxMapControlMillerProjectionCalculator::GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const
{
  return MillerY(ClampLatitude(ALatitude), AOffsetY, AScaleY, FScaleFactor);
}

void TvxMapControlMillerProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                          std::span<TvxPointDouble> AMapUnits,
                                                          const TvxPointDouble& AOffset, const TvxPointDouble& AScale,
                                                          bool ANormalize) const
{
  const double ScaleFactor = FScaleFactor;
  ProjectCylindrical(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, MinLatitudeInternal(),
                     MaxLatitudeInternal(), [=](double ALatitude) {
                       return MillerY(ALatitude, AOffset.Y, AScale.Y, ScaleFactor);
                     });
}

// --- Equirectangular ---

double TvxMapControlEquirectangularProjectionCalculator::GetGeoPointLatitude(double AMapUnitY, double AOffsetY,
                                                                             double AScaleY) const
{
  return Degrees(AMapUnitY - AOffsetY) / (2 * AScaleY);
}

double TvxMapControlEquirectangularProjectionCalculator::GetGeoPointLongitude(double AMapUnitX, double AOffsetX,
                                                                              double AScaleX) const
{
  return Degrees(AMapUnitX - AOffsetX) / AScaleX;
}

double TvxMapControlEquirectangularProjectionCalculator::GetMapUnitX(double ALongitude, double AOffsetX,
                                                                     double AScaleX) const
{
  return LinearMapUnitX(ALongitude, AOffsetX, AScaleX);
}

double TvxMapControlEquirectangularProjectionCalculator::GetMapUnitY(double ALatitude, double AOffsetY,
                                                                     double AScaleY) const
{
  return EquirectangularY(ClampLatitude(ALatitude), AOffsetY, AScaleY);
}

void TvxMapControlEquirectangularProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                                   std::span<TvxPointDouble> AMapUnits,
                                                                   const TvxPointDouble& AOffset,
                                                                   const TvxPointDouble& AScale, bool ANormalize) const
{
  ProjectCylindrical(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, MinLatitudeInternal(),
                     MaxLatitudeInternal(), [=](double ALatitude) {
                       return EquirectangularY(ALatitude, AOffset.Y, AScale.Y);
                     });
}

// --- Equal area (also Lambert cylindrical equal area) ---

double TvxMapControlEqualAreaProjectionCalculator::GetGeoPointLatitude(double AMapUnitY, double AOffsetY,
                                                                       double AScaleY) const
{
  const double V = std::clamp((AMapUnitY - AOffsetY) / AScaleY / Pi, -1.0, 1.0);
  return Degrees(std::asin(V));
}

double TvxMapControlEqualAreaProjectionCalculator::GetGeoPointLongitude(double AMapUnitX, double AOffsetX,
                                                                        double AScaleX) const
{
  return LinearLongitude(AMapUnitX, AOffsetX, AScaleX);
}

double TvxMapControlEqualAreaProjectionCalculator::GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const
{
  return LinearMapUnitX(ALongitude, AOffsetX, AScaleX);
}

double TvxMapControlEqualAreaProjectionCalculator::GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const
{
  return EqualAreaY(ClampLatitude(ALatitude), AOffsetY, AScaleY);
}

void TvxMapControlEqualAreaProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                             std::span<TvxPointDouble> AMapUnits,
                                                             const TvxPointDouble& AOffset,
                                                             const TvxPointDouble& AScale, bool ANormalize) const
{
  ProjectCylindrical(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, MinLatitudeInternal(),
                     MaxLatitudeInternal(), [=](double ALatitude) {
                       return EqualAreaY(ALatitude, AOffset.Y, AScale.Y);
                     });
}

void TvxMapControlLambertCylindricalEqualAreaProjectionCalculator::GetMapUnits(
  std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits, const TvxPointDouble& AOffset,
  const TvxPointDouble& AScale, bool ANormalize) const
{
  ProjectCylindrical(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, MinLatitudeInternal(),
                     MaxLatitudeInternal(), [=](double ALatitude) {
                       return EqualAreaY(ALatitude, AOffset.Y, AScale.Y);
                     });
}

// --- Braun stereographic ---

double TvxMapControlBraunStereographicProjectionCalculator::GetGeoPointLatitude(double AMapUnitY, double AOffsetY,
                                                                                double AScaleY) const
{
  const double V = (AMapUnitY - AOffsetY) / AScaleY / Pi;
  return ClampLatitude(Degrees(2 * std::atan(V)));
}

double TvxMapControlBraunStereographicProjectionCalculator::GetGeoPointLongitude(double AMapUnitX, double AOffsetX,
                                                                                 double AScaleX) const
{
  return LinearLongitude(AMapUnitX, AOffsetX, AScaleX);
}

double TvxMapControlBraunStereographicProjectionCalculator::GetMapUnitX(double ALongitude, double AOffsetX,
                                                                        double AScaleX) const
{
  return LinearMapUnitX(ALongitude, AOffsetX, AScaleX);
}

double TvxMapControlBraunStereographicProjectionCalculator::GetMapUnitY(double ALatitude, double AOffsetY,
                                                                        double AScaleY) const
{
  return BraunStereographicY(ClampLatitude(ALatitude), AOffsetY, AScaleY);
}

void TvxMapControlBraunStereographicProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                                      std::span<TvxPointDouble> AMapUnits,
                                                                      const TvxPointDouble& AOffset,
                                                                      const TvxPointDouble& AScale,
                                                                      bool ANormalize) const
{
  ProjectCylindrical(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, MinLatitudeInternal(),
                     MaxLatitudeInternal(), [=](double ALatitude) {
                       return BraunStereographicY(ALatitude, AOffset.Y, AScale.Y);
                     });
}

// --- Whole-point calculators ---

double TvxMapControlWholePointProjectionCalculator::GetGeoPointLatitude(double, double, double) const
{
  return NaN;
}

double TvxMapControlWholePointProjectionCalculator::GetGeoPointLongitude(double, double, double) const
{
  return NaN;
}

double TvxMapControlWholePointProjectionCalculator::GetMapUnitX(double, double, double) const
{
  return NaN;
}

double TvxMapControlWholePointProjectionCalculator::GetMapUnitY(double, double, double) const
{
  return NaN;
}

// --- Kavrayskiy VII ---

TvxMapControlGeoPoint TvxMapControlKavrayskiyProjectionCalculator::GetGeoPoint(const TvxPointDouble& AMapPoint,
                                                                               const TvxPointDouble& AOffset,
                                                                               const TvxPointDouble& AScale) const
{
  const double A = ((AMapPoint.X - AOffset.X) / AScale.X) / std::sqrt(3.0) * Pi;
  const double Phi = (AMapPoint.Y - AOffset.Y) / AScale.Y / 2;
  const double Q = Pi * Pi / 3 - Phi * Phi;
  // Beyond the curve of the outline the longitude is the edge of the map.
  const double Lambda = Q <= 0 ? Sign(A) * Pi : A / std::sqrt(Q);
  return TvxMapControlGeoPoint::Create(ClampLatitude(Degrees(Phi)), ClampLongitude(Degrees(Lambda)));
}

TvxPointDouble TvxMapControlKavrayskiyProjectionCalculator::GetMapUnit(const TvxMapControlGeoPoint& AGeoPoint,
                                                                       const TvxPointDouble& AOffset,
                                                                       const TvxPointDouble& AScale) const
{
  return KavrayskiyPoint(ClampLatitude(AGeoPoint.Latitude), AGeoPoint.Longitude, AOffset, AScale);
}

void TvxMapControlKavrayskiyProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                              std::span<TvxPointDouble> AMapUnits,
                                                              const TvxPointDouble& AOffset,
                                                              const TvxPointDouble& AScale, bool ANormalize) const
{
  const double Low = MinLatitudeInternal(), High = MaxLatitudeInternal();
  const auto Forward = [=](double ALatitude, double ALongitude) {
    return KavrayskiyPoint(std::clamp(ALatitude, Low, High), ALongitude, AOffset, AScale);
  };
  ProjectPoints(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, Forward);
}

// --- Sinusoidal ---

TvxMapControlGeoPoint TvxMapControlSinusoidalProjectionCalculator::GetGeoPoint(const TvxPointDouble& AMapPoint,
                                                                               const TvxPointDouble& AOffset,
                                                                               const TvxPointDouble& AScale) const
{
  const double Y = std::clamp(AMapPoint.Y, 0.25, 0.75);
  const double Phi = (Y - AOffset.Y) / AScale.Y / 2;
  const double A = (AMapPoint.X - AOffset.X) / AScale.X;
  const double C = std::cos(Phi);
  double Longitude;
  // Compares a against c, not c against zero: the settled rule, kept as is.
  if (std::abs(A - C) > std::numeric_limits<double>::min())
    Longitude = ClampLongitude(Degrees(A / C));
  else
    Longitude = Phi > 0 ? MaxLongitudeInternal() : MinLongitudeInternal();
  return TvxMapControlGeoPoint::Create(ClampLatitude(Degrees(Phi)), Longitude);
}

TvxPointDouble TvxMapControlSinusoidalProjectionCalculator::GetMapUnit(const TvxMapControlGeoPoint& AGeoPoint,
                                                                       const TvxPointDouble& AOffset,
                                                                       const TvxPointDouble& AScale) const
{
  return SinusoidalPoint(ClampLatitude(AGeoPoint.Latitude), AGeoPoint.Longitude, AOffset, AScale);
}

void TvxMapControlSinusoidalProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                              std::span<TvxPointDouble> AMapUnits,
                                                              const TvxPointDouble& AOffset,
                                                              const TvxPointDouble& AScale, bool ANormalize) const
{
  const double Low = MinLatitudeInternal(), High = MaxLatitudeInternal();
  const auto Forward = [=](double ALatitude, double ALongitude) {
    return SinusoidalPoint(std::clamp(ALatitude, Low, High), ALongitude, AOffset, AScale);
  };
  ProjectPoints(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, Forward);
}

// --- EPSG:4326 ---

TvxMapControlGeoPoint TvxMapControlEPSG4326ProjectionCalculator::GetGeoPoint(const TvxPointDouble& AMapPoint,
                                                                             const TvxPointDouble&,
                                                                             const TvxPointDouble&) const
{
  return TvxMapControlGeoPoint::Create(ClampLatitude((1 - AMapPoint.Y) * 180 - 90),
                                       ClampLongitude(AMapPoint.X * 360 - 180));
}

TvxPointDouble TvxMapControlEPSG4326ProjectionCalculator::GetMapUnit(const TvxMapControlGeoPoint& AGeoPoint,
                                                                     const TvxPointDouble&,
                                                                     const TvxPointDouble&) const
{
  return EPSG4326Point(ClampLatitude(AGeoPoint.Latitude), AGeoPoint.Longitude);
}

void TvxMapControlEPSG4326ProjectionCalculator::GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                            std::span<TvxPointDouble> AMapUnits,
                                                            const TvxPointDouble& AOffset, const TvxPointDouble& AScale,
                                                            bool ANormalize) const
{
  const double Low = MinLatitudeInternal(), High = MaxLatitudeInternal();
  const auto Forward = [=](double ALatitude, double ALongitude) {
    return EPSG4326Point(std::clamp(ALatitude, Low, High), ALongitude);
  };
  ProjectPoints(*this, AGeoPoints, AMapUnits, AOffset, AScale, ANormalize, Forward);
}

// --- Projection base ---

TvxMapControlCustomProjection::~TvxMapControlCustomProjection() = default;

void TvxMapControlCustomProjection::Assign(const TvxMapControlCustomProjection& ASource)
{
  BeginUpdate();
  SetOffsetX(ASource.OffsetX());
  SetOffsetY(ASource.OffsetY());
  SetScaleX(ASource.ScaleX());
  SetScaleY(ASource.ScaleY());
  EndUpdate();
}

void TvxMapControlCustomProjection::BeginUpdate()
{
  ++FLockCount;
}

void TvxMapControlCustomProjection::EndUpdate()
{
  if (FLockCount == 0)
    return;
  if (--FLockCount == 0 && FChanged)
    Changed();
}

void TvxMapControlCustomProjection::Changed()
{
  if (FLockCount > 0)
  {
    FChanged = true;
    return;
  }
  FChanged = false;
  if (OnChanged)
    OnChanged(this);
}

TvxMapControlGeoPoint TvxMapControlCustomProjection::MapUnitToGeoPoint(const TvxPointDouble& AMapPoint) const
{
  return InternalMapUnitToGeoPoint(AMapPoint);
}

TvxPointDouble TvxMapControlCustomProjection::GeoPointToMapUnit(const TvxMapControlGeoPoint& AGeoPoint) const
{
  return InternalGeoPointToMapUnit(AGeoPoint);
}

void TvxMapControlCustomProjection::GeoPointsToMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                                        std::span<TvxPointDouble> AMapUnits, bool ANormalize) const
{
  const size_t Count = std::min(AGeoPoints.size(), AMapUnits.size());
  const TvxMapControlProjectionCalculator* Calculator = ProjectionCalculator();
  if (!Calculator)
    std::fill_n(AMapUnits.begin(), Count, vxNullPointDouble);
  else
    Calculator->GetMapUnits(AGeoPoints.first(Count), AMapUnits.first(Count), {OffsetX(), OffsetY()},
                            {ScaleX(), ScaleY()}, ANormalize);
}

TvxSizeDouble TvxMapControlCustomProjection::GeoToKilometersSize(const TvxMapControlGeoPoint& AAnchorPoint,
                                                                 const TvxSizeDouble& ASize) const
{
  const double C = std::cos(Radians(AAnchorPoint.Latitude));
  return vxSizeDouble(C * (ASize.Width * Ratio), ASize.Height * Ratio);
}

TvxSizeDouble TvxMapControlCustomProjection::KilometersToGeoSize(const TvxMapControlGeoPoint& AAnchorPoint,
                                                                 const TvxSizeDouble& ASize) const
{
  const double C = std::cos(Radians(AAnchorPoint.Latitude));
  return vxSizeDouble(ASize.Width / Ratio / C, ASize.Height / Ratio);
}

QString TvxMapControlCustomProjection::PersistedName() const
{
  return {};
}

QString TvxMapControlCustomProjection::Caption() const
{
  return {};
}

const TvxMapControlProjectionCalculator* TvxMapControlCustomProjection::ProjectionCalculator() const
{
  std::call_once(FProjectionCalculatorCreated, [this] { FProjectionCalculator = CreateProjectionCalculator(); });
  return FProjectionCalculator.get();
}

std::unique_ptr<TvxMapControlProjectionCalculator> TvxMapControlCustomProjection::CreateProjectionCalculator() const
{
  return nullptr;
}

double TvxMapControlCustomProjection::GetDefaultOffsetX() const
{
  return 0.5;
}

double TvxMapControlCustomProjection::GetDefaultOffsetY() const
{
  return 0.5;
}

double TvxMapControlCustomProjection::GetDefaultScaleX() const
{
  return DefaultScale;
}

double TvxMapControlCustomProjection::GetDefaultScaleY() const
{
  return -DefaultScale;
}

TvxPointDouble TvxMapControlCustomProjection::InternalGeoPointToMapUnit(const TvxMapControlGeoPoint& AGeoPoint) const
{
  const TvxMapControlProjectionCalculator* Calculator = ProjectionCalculator();
  if (!Calculator)
    return vxNullPointDouble;
  return Calculator->GetMapUnit(AGeoPoint, {OffsetX(), OffsetY()}, {ScaleX(), ScaleY()});
}

TvxMapControlGeoPoint TvxMapControlCustomProjection::InternalMapUnitToGeoPoint(const TvxPointDouble& AMapPoint) const
{
  const TvxMapControlProjectionCalculator* Calculator = ProjectionCalculator();
  if (!Calculator)
    return {};
  return Calculator->GetGeoPoint(AMapPoint, {OffsetX(), OffsetY()}, {ScaleX(), ScaleY()});
}

void TvxMapControlCustomProjection::SetValue(std::optional<double>& AField, double ADefault, double AValue)
{
  if (AField.value_or(ADefault) == AValue)
    return;
  AField = AValue;
  Changed();
}

// --- The ten projections ---

QString TvxMapControlSphericalMercatorProjection::PersistedName() const
{
  return QStringLiteral("SphericalMercatorProjection");
}

QString TvxMapControlSphericalMercatorProjection::Caption() const
{
  return QStringLiteral("Spherical Mercator");
}

std::unique_ptr<TvxMapControlProjectionCalculator>
TvxMapControlSphericalMercatorProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlSphericalMercatorProjectionCalculator>();
}

QString TvxMapControlEllipticalMercatorProjection::PersistedName() const
{
  return QStringLiteral("EllipticalMercatorProjection");
}

QString TvxMapControlEllipticalMercatorProjection::Caption() const
{
  return QStringLiteral("Elliptical Mercator");
}

std::unique_ptr<TvxMapControlProjectionCalculator>
TvxMapControlEllipticalMercatorProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlEllipticalMercatorProjectionCalculator>();
}

QString TvxMapControlMillerProjection::PersistedName() const
{
  return QStringLiteral("MillerProjection");
}

QString TvxMapControlMillerProjection::Caption() const
{
  return QStringLiteral("Miller Cylindrical");
}

std::unique_ptr<TvxMapControlProjectionCalculator> TvxMapControlMillerProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlMillerProjectionCalculator>();
}

double TvxMapControlMillerProjection::GetDefaultScaleY() const
{
  return -DefaultScale * 0.8;
}

QString TvxMapControlEquirectangularProjection::PersistedName() const
{
  return QStringLiteral("EquirectangularProjection");
}

QString TvxMapControlEquirectangularProjection::Caption() const
{
  return QStringLiteral("Equirectangular");
}

std::unique_ptr<TvxMapControlProjectionCalculator>
TvxMapControlEquirectangularProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlEquirectangularProjectionCalculator>();
}

double TvxMapControlEquirectangularProjection::GetDefaultScaleY() const
{
  return -DefaultScale / 2;
}

QString TvxMapControlEqualAreaProjection::PersistedName() const
{
  return QStringLiteral("EqualAreaProjection");
}

QString TvxMapControlEqualAreaProjection::Caption() const
{
  return QStringLiteral("Equal Area");
}

std::unique_ptr<TvxMapControlProjectionCalculator> TvxMapControlEqualAreaProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlEqualAreaProjectionCalculator>();
}

double TvxMapControlEqualAreaProjection::GetDefaultScaleY() const
{
  return -DefaultScale / Pi * 2;
}

QString TvxMapControlLambertCylindricalEqualAreaProjection::PersistedName() const
{
  return QStringLiteral("LambertCylindricalEqualAreaProjection");
}

QString TvxMapControlLambertCylindricalEqualAreaProjection::Caption() const
{
  return QStringLiteral("Lambert Cylindrical Equal Area");
}

std::unique_ptr<TvxMapControlProjectionCalculator>
TvxMapControlLambertCylindricalEqualAreaProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlLambertCylindricalEqualAreaProjectionCalculator>();
}

double TvxMapControlLambertCylindricalEqualAreaProjection::GetDefaultScaleY() const
{
  return -DefaultScale / Pi;
}

QString TvxMapControlBraunStereographicProjection::PersistedName() const
{
  return QStringLiteral("BraunStereographicProjection");
}

QString TvxMapControlBraunStereographicProjection::Caption() const
{
  return QStringLiteral("Braun Stereographic");
}

std::unique_ptr<TvxMapControlProjectionCalculator>
TvxMapControlBraunStereographicProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlBraunStereographicProjectionCalculator>();
}

double TvxMapControlBraunStereographicProjection::GetDefaultScaleY() const
{
  return -DefaultScale / Pi * 2;
}

QString TvxMapControlKavrayskiyProjection::PersistedName() const
{
  return QStringLiteral("KavrayskiyProjection");
}

QString TvxMapControlKavrayskiyProjection::Caption() const
{
  return QStringLiteral("Kavrayskiy VII");
}

std::unique_ptr<TvxMapControlProjectionCalculator> TvxMapControlKavrayskiyProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlKavrayskiyProjectionCalculator>();
}

double TvxMapControlKavrayskiyProjection::GetDefaultScaleY() const
{
  return -DefaultScale / 2;
}

QString TvxMapControlSinusoidalProjection::PersistedName() const
{
  return QStringLiteral("SinusoidalProjection");
}

QString TvxMapControlSinusoidalProjection::Caption() const
{
  return QStringLiteral("Sinusoidal");
}

std::unique_ptr<TvxMapControlProjectionCalculator> TvxMapControlSinusoidalProjection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlSinusoidalProjectionCalculator>();
}

double TvxMapControlSinusoidalProjection::GetDefaultScaleY() const
{
  return -DefaultScale / 2;
}

QString TvxMapControlEPSG4326Projection::PersistedName() const
{
  return QStringLiteral("EPSG4326Projection");
}

QString TvxMapControlEPSG4326Projection::Caption() const
{
  return QStringLiteral("EPSG:4326");
}

std::unique_ptr<TvxMapControlProjectionCalculator> TvxMapControlEPSG4326Projection::CreateProjectionCalculator() const
{
  return std::make_unique<TvxMapControlEPSG4326ProjectionCalculator>();
}

// --- Registry ---

TvxRegisteredMapProjections::TvxRegisteredMapProjections()
{
  Register<TvxMapControlSphericalMercatorProjection>();
  Register<TvxMapControlEllipticalMercatorProjection>();
  Register<TvxMapControlMillerProjection>();
  Register<TvxMapControlEquirectangularProjection>();
  Register<TvxMapControlEqualAreaProjection>();
  Register<TvxMapControlLambertCylindricalEqualAreaProjection>();
  Register<TvxMapControlBraunStereographicProjection>();
  Register<TvxMapControlKavrayskiyProjection>();
  Register<TvxMapControlSinusoidalProjection>();
  Register<TvxMapControlEPSG4326Projection>();
}

void TvxRegisteredMapProjections::Register(const QString& AName, TvxMapProjectionFactory AFactory)
{
  for (auto& Item : FItems)
    if (Item.first == AName)
    {
      Item.second = std::move(AFactory);
      return;
    }
  FItems.emplace_back(AName, std::move(AFactory));
}

QStringList TvxRegisteredMapProjections::Names() const
{
  QStringList Result;
  Result.reserve(Count());
  for (const auto& Item : FItems)
    Result.append(Item.first);
  return Result;
}

std::unique_ptr<TvxMapControlCustomProjection> TvxRegisteredMapProjections::Create(const QString& AKey) const
{
  if (AKey.isEmpty())
    return nullptr;
  for (const auto& Item : FItems)
    if (Item.first == AKey)
      return Item.second();
  // A stored setting may hold only the persisted name.
  for (const auto& Item : FItems)
    if (QStringView(Item.first).left(Item.first.indexOf(QLatin1Char('|'))) == AKey)
      return Item.second();
  return nullptr;
}

TvxRegisteredMapProjections& vxRegisteredMapProjections()
{
  static TvxRegisteredMapProjections Registry;
  return Registry;
}
