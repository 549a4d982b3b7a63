#include "vxTestLayer.h"

#include "vxMapControlViewInfo.h"

#include <QPainter>

#include <cmath>

TvxTestLayerViewInfo::TvxTestLayerViewInfo(TvxTestLayer* ALayer) : TvxMapLayerViewInfo(ALayer)
{
}

void TvxTestLayerViewInfo::CalculateBounds()
{
  ++FCalculateCount;
  FLines.clear();
  FMarks.clear();
  const auto Screen = [this](double ALatitude, double ALongitude) {
    const TvxPointDouble P =
      FLayer->GeoPointToScreenPoint(TvxMapControlGeoPoint::Create(ALatitude, ALongitude));
    return QPointF(P.X, P.Y);
  };
  for (int Longitude = -180; Longitude <= 180; Longitude += 10)
    FLines.append(QLineF(Screen(85, Longitude), Screen(-85, Longitude)));
  for (int Latitude = -80; Latitude <= 80; Latitude += 10)
    FLines.append(QLineF(Screen(Latitude, -180), Screen(Latitude, 180)));
  for (const TvxMapControlGeoPoint& Mark : static_cast<TvxTestLayer*>(FLayer)->Marks())
    FMarks.append(Screen(Mark.Latitude, Mark.Longitude));
  TvxMapLayerViewInfo::CalculateBounds();
}

void TvxTestLayerViewInfo::Paint(TvxMapControlPainter& APainter)
{
  QPainter& Canvas = APainter.Canvas();
  Canvas.save();
  Canvas.setClipRect(FBounds);
  const QColor Color = static_cast<TvxTestLayer*>(FLayer)->Color();
  Canvas.setPen(QPen(Color, 1.0));
  Canvas.drawLines(FLines);
  Canvas.setBrush(Color);
  for (const QPointF& Mark : std::as_const(FMarks))
    Canvas.drawEllipse(Mark, 5, 5);
  Canvas.restore();
}

TvxTestLayer::TvxTestLayer(TvxMapLayers* ACollection, QColor AColor)
  : TvxMapLayer(ACollection), FProjection(std::make_unique<TvxMapControlSphericalMercatorProjection>()),
    FColor(AColor)
{
}

TvxSizeDouble TvxTestLayer::GetMapSizeInPixels(double AZoomLevel) const
{
  const double Size = AZoomLevel < 1 ? 512 * AZoomLevel : std::pow(2.0, AZoomLevel) * 256;
  return vxSizeDouble(Size, Size);
}

void TvxTestLayer::SetHasProjection(bool AValue)
{
  if (AValue == bool(FProjection))
    return;
  FProjection = AValue ? std::make_unique<TvxMapControlSphericalMercatorProjection>() : nullptr;
  if (Collection())
  {
    Collection()->UpdateViewPort();
    Collection()->Changed();
  }
}

std::unique_ptr<TvxMapLayerViewInfo> TvxTestLayer::CreateViewInfo()
{
  return std::make_unique<TvxTestLayerViewInfo>(this);
}
