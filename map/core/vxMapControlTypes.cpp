#include "vxMapControlTypes.h"

#include <QLocale>

#include <cmath>

bool vxSameValue(double A, double B)
{
  const double Tolerance = std::max(std::min(std::abs(A), std::abs(B)) * 1e-12, 1e-12);
  return std::abs(A - B) <= Tolerance;
}

namespace
{
QString ShortestText(double AValue)
{
  // The C locale keeps "." as separator whatever the user's settings are.
  return QLocale::c().toString(AValue, 'g', QLocale::FloatingPointShortest);
}

bool InRange(double AValue, double ALimit)
{
  // NaN fails both comparisons and so is never in range.
  return AValue >= -ALimit && AValue <= ALimit;
}
}

bool TvxMapControlGeoPoint::IsEqual(const TvxMapControlGeoPoint& AOther) const
{
  return vxSameValue(Latitude, AOther.Latitude) && vxSameValue(Longitude, AOther.Longitude);
}

bool TvxMapControlGeoPoint::IsValid() const
{
  return InRange(Latitude, 90) && InRange(Longitude, 180);
}

QString TvxMapControlGeoPoint::AsString() const
{
  return QStringLiteral("%1,%2").arg(ShortestText(Latitude), ShortestText(Longitude));
}

bool TvxMapControlGeoRect::IsEqual(const TvxMapControlGeoRect& AOther) const
{
  return TopLeft().IsEqual(AOther.TopLeft()) && BottomRight().IsEqual(AOther.BottomRight());
}

bool TvxMapControlGeoRect::IsValid() const
{
  return TopLeft().IsValid() && BottomRight().IsValid() && Top > Bottom && Right > Left;
}

QString TvxMapControlGeoRect::AsString() const
{
  return TvxMapControlGeoPoint::Create(Bottom, Left).AsString() + QLatin1Char(',') +
         TvxMapControlGeoPoint::Create(Top, Right).AsString();
}

void TvxMapControlGeoLocation::SetGeoPoint(const TvxMapControlGeoPoint& AValue)
{
  if (FGeoPoint.IsEqual(AValue))
    return;
  FGeoPoint = AValue;
  Changed();
}

void TvxMapControlGeoLocation::SetLatitude(double AValue)
{
  if (FGeoPoint.Latitude != AValue)
  {
    FGeoPoint.Latitude = AValue;
    Changed();
  }
}

void TvxMapControlGeoLocation::SetLongitude(double AValue)
{
  if (FGeoPoint.Longitude != AValue)
  {
    FGeoPoint.Longitude = AValue;
    Changed();
  }
}

void TvxMapControlGeoLocation::Changed()
{
  if (OnChanged)
    OnChanged(this);
}

void TvxMapControlGeoRectPersistent::SetGeoRect(const TvxMapControlGeoRect& AValue)
{
  if (FGeoRect.IsEqual(AValue))
    return;
  FGeoRect = AValue;
  if (OnChanged)
    OnChanged(this);
}

void TvxMapControlGeoRectPersistent::SetField(double& AField, double AValue)
{
  if (AField == AValue)
    return;
  AField = AValue;
  if (OnChanged)
    OnChanged(this);
}

void TvxMapControlGeoRectPersistent::SetNorthLatitude(double AValue)
{
  SetField(FGeoRect.Top, AValue);
}

void TvxMapControlGeoRectPersistent::SetWestLongitude(double AValue)
{
  SetField(FGeoRect.Left, AValue);
}

void TvxMapControlGeoRectPersistent::SetSouthLatitude(double AValue)
{
  SetField(FGeoRect.Bottom, AValue);
}

void TvxMapControlGeoRectPersistent::SetEastLongitude(double AValue)
{
  SetField(FGeoRect.Right, AValue);
}
