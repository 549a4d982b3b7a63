#pragma once

// Projections between geographic points and map units. A projection is the
// configurable, observable half (offset and scale per axis); its calculator
// is the other half: formulas and limits only, without state.

#include "vxMapControlTypes.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

class TvxMapControlProjectionCalculator
{
public:
  virtual ~TvxMapControlProjectionCalculator() = default;

  virtual double MaxLatitudeInternal() const = 0;
  virtual double MaxLongitudeInternal() const = 0;
  virtual double MinLatitudeInternal() const = 0;
  virtual double MinLongitudeInternal() const = 0;
  virtual double GetGeoPointLatitude(double AMapUnitY, double AOffsetY, double AScaleY) const = 0;
  virtual double GetGeoPointLongitude(double AMapUnitX, double AOffsetX, double AScaleX) const = 0;
  virtual double GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const = 0;
  virtual double GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const = 0;
  // One axis at a time, through the four slots above.
  virtual TvxMapControlGeoPoint GetGeoPoint(const TvxPointDouble& AMapPoint, const TvxPointDouble& AOffset,
                                            const TvxPointDouble& AScale) const;
  virtual TvxPointDouble GetMapUnit(const TvxMapControlGeoPoint& AGeoPoint, const TvxPointDouble& AOffset,
                                    const TvxPointDouble& AScale) const;
  // GetMapUnit of every point, with ANormalize after vxNormalizedGeoPoint;
  // AMapUnits holds at least as many points as AGeoPoints. The base calls
  // GetMapUnit per point. The built-in calculators run their formulas in one
  // loop without virtual calls, giving the same bits, and fall back to the
  // base for a subclass, whose slots they cannot know.
  virtual void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                           const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const;

protected:
  double ClampLatitude(double ALatitude) const;
  double ClampLongitude(double ALongitude) const;
};

// Every calculator's limits are symmetric: latitude within +-ALatitudeLimit,
// longitude within +-180.
// The limit in units of 1e-8 degrees: not every compiler takes a double as a
// template argument. The division is exact to the nearest double.
template <class TBase, long long ALatitudeLimitE8>
class TvxMapControlLimitedProjectionCalculator : public TBase
{
public:
  double MaxLatitudeInternal() const override { return double(ALatitudeLimitE8) / 1e8; }
  double MaxLongitudeInternal() const override { return 180; }
  double MinLatitudeInternal() const override { return -double(ALatitudeLimitE8) / 1e8; }
  double MinLongitudeInternal() const override { return -180; }
};

// Calculators with formulas per axis.

class TvxMapControlSphericalMercatorProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlProjectionCalculator, 8505112878>
{
public:
  double GetGeoPointLatitude(double AMapUnitY, double AOffsetY, double AScaleY) const override;
  double GetGeoPointLongitude(double AMapUnitX, double AOffsetX, double AScaleX) const override;
  double GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const override;
  double GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;
};

class TvxMapControlEllipticalMercatorProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlProjectionCalculator, 8508405905>
{
public:
  TvxMapControlEllipticalMercatorProjectionCalculator();

  double GetGeoPointLatitude(double AMapUnitY, double AOffsetY, double AScaleY) const override;
  double GetGeoPointLongitude(double AMapUnitX, double AOffsetX, double AScaleX) const override;
  double GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const override;
  double GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;

private:
  const double FPiHalf;
  const double FRadiusMajor;
  const double FRadiusMinor;
  const double FRadiusRatio;
  const double FEccentricity;
  const double FEccentricityHalf;
};

class TvxMapControlMillerProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlProjectionCalculator, 9000000000>
{
public:
  double GetGeoPointLatitude(double AMapUnitY, double AOffsetY, double AScaleY) const override;
  double GetGeoPointLongitude(double AMapUnitX, double AOffsetX, double AScaleX) const override;
  double GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const override;
  double GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;

private:
  // Brings the Miller ordinate of the pole to pi, as Mercator's limit has.
  const double FScaleFactor = 0.7331989845164545;
};

class TvxMapControlEquirectangularProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlProjectionCalculator, 9000000000>
{
public:
  double GetGeoPointLatitude(double AMapUnitY, double AOffsetY, double AScaleY) const override;
  double GetGeoPointLongitude(double AMapUnitX, double AOffsetX, double AScaleX) const override;
  double GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const override;
  double GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;
};

class TvxMapControlEqualAreaProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlProjectionCalculator, 9000000000>
{
public:
  double GetGeoPointLatitude(double AMapUnitY, double AOffsetY, double AScaleY) const override;
  double GetGeoPointLongitude(double AMapUnitX, double AOffsetX, double AScaleX) const override;
  double GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const override;
  double GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;
};

// The same formulas; the two projections differ only in their default scale.
class TvxMapControlLambertCylindricalEqualAreaProjectionCalculator : public TvxMapControlEqualAreaProjectionCalculator
{
public:
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;
};

class TvxMapControlBraunStereographicProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlProjectionCalculator, 9000000000>
{
public:
  double GetGeoPointLatitude(double AMapUnitY, double AOffsetY, double AScaleY) const override;
  double GetGeoPointLongitude(double AMapUnitX, double AOffsetX, double AScaleX) const override;
  double GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const override;
  double GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;
};

// Calculators that work on whole points, because their axes depend on each
// other or ignore offset and scale. Their per-axis slots have no meaning and
// answer NaN rather than a plausible but wrong number.
class TvxMapControlWholePointProjectionCalculator : public TvxMapControlProjectionCalculator
{
public:
  double GetGeoPointLatitude(double AMapUnitY, double AOffsetY, double AScaleY) const override;
  double GetGeoPointLongitude(double AMapUnitX, double AOffsetX, double AScaleX) const override;
  double GetMapUnitX(double ALongitude, double AOffsetX, double AScaleX) const override;
  double GetMapUnitY(double ALatitude, double AOffsetY, double AScaleY) const override;
};

class TvxMapControlKavrayskiyProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlWholePointProjectionCalculator, 9000000000>
{
public:
  TvxMapControlGeoPoint GetGeoPoint(const TvxPointDouble& AMapPoint, const TvxPointDouble& AOffset,
                                    const TvxPointDouble& AScale) const override;
  TvxPointDouble GetMapUnit(const TvxMapControlGeoPoint& AGeoPoint, const TvxPointDouble& AOffset,
                            const TvxPointDouble& AScale) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;
};

class TvxMapControlSinusoidalProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlWholePointProjectionCalculator, 9000000000>
{
public:
  TvxMapControlGeoPoint GetGeoPoint(const TvxPointDouble& AMapPoint, const TvxPointDouble& AOffset,
                                    const TvxPointDouble& AScale) const override;
  TvxPointDouble GetMapUnit(const TvxMapControlGeoPoint& AGeoPoint, const TvxPointDouble& AOffset,
                            const TvxPointDouble& AScale) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;
};

// Plain degrees; offset and scale are ignored on purpose.
class TvxMapControlEPSG4326ProjectionCalculator
  : public TvxMapControlLimitedProjectionCalculator<TvxMapControlWholePointProjectionCalculator, 9000000000>
{
public:
  TvxMapControlGeoPoint GetGeoPoint(const TvxPointDouble& AMapPoint, const TvxPointDouble& AOffset,
                                    const TvxPointDouble& AScale) const override;
  TvxPointDouble GetMapUnit(const TvxMapControlGeoPoint& AGeoPoint, const TvxPointDouble& AOffset,
                            const TvxPointDouble& AScale) const override;
  void GetMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                   const TvxPointDouble& AOffset, const TvxPointDouble& AScale, bool ANormalize) const override;
};

// The base of all projections. Without a calculator (as in this base) every
// conversion gives (0, 0).
class TvxMapControlCustomProjection
{
public:
  // Kilometres in one degree, for all size conversion.
  static constexpr double Ratio = 111.2;

  TvxMapControlCustomProjection() = default;
  virtual ~TvxMapControlCustomProjection();
  TvxMapControlCustomProjection(const TvxMapControlCustomProjection&) = delete;
  TvxMapControlCustomProjection& operator=(const TvxMapControlCustomProjection&) = delete;

  // Copies offsets and scales, firing OnChanged at most once.
  void Assign(const TvxMapControlCustomProjection& ASource);
  void BeginUpdate();
  void EndUpdate();

  virtual TvxMapControlGeoPoint MapUnitToGeoPoint(const TvxPointDouble& AMapPoint) const;
  virtual TvxPointDouble GeoPointToMapUnit(const TvxMapControlGeoPoint& AGeoPoint) const;
  // GeoPointToMapUnit of every point in one call, with ANormalize after
  // vxNormalizedGeoPoint; AMapUnits holds at least as many points as
  // AGeoPoints. A subclass that changes the one-point conversion changes
  // this one too: item layers project their points through it.
  virtual void GeoPointsToMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                   std::span<TvxPointDouble> AMapUnits, bool ANormalize) const;
  // Sizes in degrees to kilometres and back, around the anchor's latitude.
  virtual TvxSizeDouble GeoToKilometersSize(const TvxMapControlGeoPoint& AAnchorPoint, const TvxSizeDouble& ASize) const;
  virtual TvxSizeDouble KilometersToGeoSize(const TvxMapControlGeoPoint& AAnchorPoint, const TvxSizeDouble& ASize) const;

  // The stable name a setting stores, and the name shown to the user.
  virtual QString PersistedName() const;
  virtual QString Caption() const;

  const TvxMapControlProjectionCalculator* ProjectionCalculator() const;

  double OffsetX() const { return FOffsetX.value_or(GetDefaultOffsetX()); }
  double OffsetY() const { return FOffsetY.value_or(GetDefaultOffsetY()); }
  double ScaleX() const { return FScaleX.value_or(GetDefaultScaleX()); }
  double ScaleY() const { return FScaleY.value_or(GetDefaultScaleY()); }
  void SetOffsetX(double AValue) { SetValue(FOffsetX, GetDefaultOffsetX(), AValue); }
  void SetOffsetY(double AValue) { SetValue(FOffsetY, GetDefaultOffsetY(), AValue); }
  void SetScaleX(double AValue) { SetValue(FScaleX, GetDefaultScaleX(), AValue); }
  void SetScaleY(double AValue) { SetValue(FScaleY, GetDefaultScaleY(), AValue); }
  // A value is persisted only when it differs from the default.
  bool IsOffsetXStored() const { return OffsetX() != GetDefaultOffsetX(); }
  bool IsOffsetYStored() const { return OffsetY() != GetDefaultOffsetY(); }
  bool IsScaleXStored() const { return ScaleX() != GetDefaultScaleX(); }
  bool IsScaleYStored() const { return ScaleY() != GetDefaultScaleY(); }

  std::function<void(TvxMapControlCustomProjection*)> OnChanged;

protected:
  virtual std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const;
  virtual double GetDefaultOffsetX() const;
  virtual double GetDefaultOffsetY() const;
  virtual double GetDefaultScaleX() const;
  virtual double GetDefaultScaleY() const;
  virtual TvxPointDouble InternalGeoPointToMapUnit(const TvxMapControlGeoPoint& AGeoPoint) const;
  virtual TvxMapControlGeoPoint InternalMapUnitToGeoPoint(const TvxPointDouble& AMapPoint) const;

  void Changed();

private:
  void SetValue(std::optional<double>& AField, double ADefault, double AValue);

  bool FChanged = false;
  int FLockCount = 0;
  // An empty value stands for the class's default, which a constructor
  // could not ask a subclass for.
  std::optional<double> FOffsetX;
  std::optional<double> FOffsetY;
  // Created once, on first use: a virtual call from this constructor would
  // not reach the subclass, and every conversion goes through the accessor.
  // The once-flag keeps concurrent first readers from creating two.
  mutable std::unique_ptr<TvxMapControlProjectionCalculator> FProjectionCalculator;
  mutable std::once_flag FProjectionCalculatorCreated;
  std::optional<double> FScaleX;
  std::optional<double> FScaleY;
};

class TvxMapControlSphericalMercatorProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
};

class TvxMapControlEllipticalMercatorProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
};

class TvxMapControlMillerProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
  double GetDefaultScaleY() const override;
};

class TvxMapControlEquirectangularProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
  double GetDefaultScaleY() const override;
};

class TvxMapControlEqualAreaProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
  double GetDefaultScaleY() const override;
};

class TvxMapControlLambertCylindricalEqualAreaProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
  double GetDefaultScaleY() const override;
};

class TvxMapControlBraunStereographicProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
  double GetDefaultScaleY() const override;
};

class TvxMapControlKavrayskiyProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
  double GetDefaultScaleY() const override;
};

class TvxMapControlSinusoidalProjection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
  double GetDefaultScaleY() const override;
};

class TvxMapControlEPSG4326Projection : public TvxMapControlCustomProjection
{
public:
  QString PersistedName() const override;
  QString Caption() const override;

protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override;
};

using TvxMapProjectionFactory = std::function<std::unique_ptr<TvxMapControlCustomProjection>()>;

// Projections selectable by name, each under "PersistedName|Caption". Filled
// at start on the main thread; reading it is then safe from anywhere.
class TvxRegisteredMapProjections
{
public:
  // Registers the ten built-in projections.
  TvxRegisteredMapProjections();

  // A name already registered keeps its place and gets the new factory.
  void Register(const QString& AName, TvxMapProjectionFactory AFactory);
  template <class TProjection>
  void Register()
  {
    const TProjection Sample;
    Register(Sample.PersistedName() + QLatin1Char('|') + Sample.Caption(),
             [] { return std::unique_ptr<TvxMapControlCustomProjection>(std::make_unique<TProjection>()); });
  }

  int Count() const { return static_cast<int>(FItems.size()); }
  // In registration order.
  QStringList Names() const;
  // Takes the full key or the persisted name alone; null for an unknown one.
  std::unique_ptr<TvxMapControlCustomProjection> Create(const QString& AKey) const;

private:
  std::vector<std::pair<QString, TvxMapProjectionFactory>> FItems;
};

// The process-wide registry, created on first use.
TvxRegisteredMapProjections& vxRegisteredMapProjections();
