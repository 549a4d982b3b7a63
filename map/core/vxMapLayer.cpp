#include "vxMapLayer.h"

#include "vxMapControl.h"
#include "vxMapControlProjections.h"

#include <cmath>
#include <numeric>

void TvxMapLayerViewInfo::Invalidate()
{
  FLayer->InvalidateRect(FBounds);
}

void TvxMapLayersViewInfo::AddVisibleElements()
{
  // Collection order: the first layer paints first, at the bottom.
  for (int I = 0; I < FLayers->Count(); ++I)
  {
    TvxMapLayer* Layer = FLayers->Items(I);
    if (Layer->IsActuallyVisible())
      AddVisibleElement(Layer->ViewInfo());
  }
}

void TvxMapLayersViewInfo::CalculateBounds()
{
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->SetBounds(FBounds);
  TvxMapControlElementViewInfo::CalculateBounds();
}

void TvxMapLayersViewInfo::MouseDown(Qt::MouseButton AButton, const QPoint& APoint)
{
  FLayers->MapControl()->ClearSelection();
  TvxMapControlElementViewInfo::MouseDown(AButton, APoint);
}

TvxMapLayer::TvxMapLayer(TvxMapLayers* ACollection) : FCollection(ACollection)
{
}

TvxMapLayer::~TvxMapLayer() = default;

int TvxMapLayer::Index() const
{
  return FCollection ? FCollection->IndexOf(this) : -1;
}

TvxCustomMapControl* TvxMapLayer::MapControl() const
{
  return FCollection ? FCollection->MapControl() : nullptr;
}

TvxMapLayerViewInfo* TvxMapLayer::ViewInfo() const
{
  if (!FViewInfo)
  {
    FViewInfo = const_cast<TvxMapLayer*>(this)->CreateViewInfo();
    if (TvxCustomMapControl* Control = MapControl())
      FViewInfo->SetController(&Control->Controller());
  }
  return FViewInfo.get();
}

std::unique_ptr<TvxMapLayerViewInfo> TvxMapLayer::CreateViewInfo()
{
  return std::make_unique<TvxMapLayerViewInfo>(this);
}

void TvxMapLayer::SetVisible(bool AValue)
{
  if (FVisible == AValue)
    return;
  FVisible = AValue;
  if (FCollection)
  {
    FCollection->UpdateViewPort();
    FCollection->Changed();
  }
}

void TvxMapLayer::Assign(const TvxMapLayer& ASource)
{
  if (FCollection)
    FCollection->BeginUpdate();
  DoAssign(ASource);
  if (FCollection)
    FCollection->EndUpdate();
}

void TvxMapLayer::DoAssign(const TvxMapLayer& ASource)
{
  FName = ASource.FName;
  SetVisible(ASource.FVisible);
}

void TvxMapLayer::ChangeScale(int, int)
{
}

bool TvxMapLayer::IsActuallyVisible() const
{
  return FVisible && GetMapProjection() != nullptr;
}

QSize TvxMapLayer::GetViewportInPixels() const
{
  const TvxCustomMapControl* Control = MapControl();
  return Control ? Control->ClientBounds().size() : QSize();
}

double TvxMapLayer::ZoomLevel() const
{
  const TvxCustomMapControl* Control = MapControl();
  return Control ? Control->ActualZoomLevel() : 1.0;
}

TvxMapControlGeoPoint TvxMapLayer::CenterPoint() const
{
  const TvxCustomMapControl* Control = MapControl();
  return Control ? Control->CenterPoint().GeoPoint() : TvxMapControlGeoPoint();
}

double TvxMapLayer::ScaleFactor() const
{
  const TvxCustomMapControl* Control = MapControl();
  return Control ? Control->ScaleFactor() : 1.0;
}

void TvxMapLayer::Invalidate()
{
  if (TvxCustomMapControl* Control = MapControl())
    Control->InvalidateRect(Control->ClientBounds());
}

void TvxMapLayer::InvalidateRect(const QRect& ARect)
{
  if (TvxCustomMapControl* Control = MapControl())
    Control->InvalidateRect(ARect);
}

void TvxMapLayer::InvalidateViewPort()
{
  if (TvxCustomMapControl* Control = MapControl())
    Control->InvalidateViewPort();
}

TvxPointDouble TvxMapLayer::GeoPointToMapUnit(const TvxMapControlGeoPoint& APoint, bool AShouldNormalize) const
{
  return TvxMapUnitConverter::GeoPointToMapUnit(APoint, GetMapProjection(), AShouldNormalize);
}

void TvxMapLayer::GeoPointsToMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints,
                                      std::span<TvxPointDouble> AMapUnits, bool AShouldNormalize) const
{
  TvxMapUnitConverter::GeoPointsToMapUnits(AGeoPoints, AMapUnits, GetMapProjection(), AShouldNormalize);
}

TvxMapControlGeoPoint TvxMapLayer::MapUnitToGeoPoint(const TvxPointDouble& AUnit, bool AShouldNormalize) const
{
  return TvxMapUnitConverter::MapUnitToGeoPoint(AUnit, GetMapProjection(), AShouldNormalize);
}

TvxPointDouble TvxMapLayer::ScreenPointToMapUnit(const TvxPointDouble& APoint) const
{
  return TvxMapUnitConverter::ScreenPointToMapUnit(APoint, FViewPort, GetViewportInPixels());
}

TvxPointDouble TvxMapLayer::GeoPointToScreenPoint(const TvxMapControlGeoPoint& APoint) const
{
  return MapUnitToScreenPoint(GeoPointToMapUnit(APoint, true));
}

TvxMapControlGeoPoint TvxMapLayer::ScreenPointToGeoPoint(const TvxPointDouble& APoint) const
{
  return MapUnitToGeoPoint(ScreenPointToMapUnit(APoint), true);
}

TvxSizeDouble TvxMapLayer::GeoToKilometersSize(const TvxMapControlGeoPoint& AAnchorPoint,
                                               const TvxSizeDouble& ASize) const
{
  const TvxMapControlCustomProjection* Projection = GetMapProjection();
  return Projection ? Projection->GeoToKilometersSize(AAnchorPoint, ASize) : TvxSizeDouble();
}

TvxSizeDouble TvxMapLayer::KilometersToGeoSize(const TvxMapControlGeoPoint& AAnchorPoint,
                                               const TvxSizeDouble& ASize) const
{
  const TvxMapControlCustomProjection* Projection = GetMapProjection();
  return Projection ? Projection->KilometersToGeoSize(AAnchorPoint, ASize) : TvxSizeDouble();
}

double TvxMapLayer::GetKilometersScale(const TvxMapControlGeoPoint& ACenterPoint, double AScreenDistance) const
{
  const TvxPointDouble P = GeoPointToScreenPoint(ACenterPoint);
  // The sample point lies towards the prime meridian, so it stays on the map.
  const double M = ACenterPoint.Longitude >= 0 ? 1 : -1;
  const TvxMapControlGeoPoint G = ScreenPointToGeoPoint({P.X - M * AScreenDistance, P.Y});
  const double D = std::abs(G.Longitude - ACenterPoint.Longitude);
  return GeoToKilometersSize(ACenterPoint, vxSizeDouble(D, 0)).Width;
}

TvxRectDouble TvxMapLayer::CalculateViewport(const TvxMapControlGeoPoint& ACenterPoint,
                                             const QSize& AViewportInPixels, double AZoomLevel) const
{
  const TvxSizeDouble S = GetMapSizeInPixels(AZoomLevel);
  const double W = AViewportInPixels.width() / S.Width;
  const double H = AViewportInPixels.height() / S.Height;
  const TvxPointDouble C = GeoPointToMapUnit(ACenterPoint, true);
  return {C.X - W * 0.5, C.Y - H * 0.5, W, H};
}

void TvxMapLayer::UpdateViewport()
{
  const QSize Pixels = GetViewportInPixels();
  if (Pixels.isEmpty())
    SetViewPort(vxNullRectDouble);
  else
    SetViewPort(CalculateViewport(CenterPoint(), Pixels, ZoomLevel()));
}

void TvxMapLayer::SetViewPort(const TvxRectDouble& AValue)
{
  if (FViewPort == AValue)
    return;
  FViewPort = AValue;
  CalculateRenderParameters();
}

void TvxMapLayer::CalculateRenderParameters()
{
  const QSize Pixels = GetViewportInPixels();
  if (FViewPort.Width != 0 && FViewPort.Height != 0)
    FRenderScale = {Pixels.width() / FViewPort.Width, Pixels.height() / FViewPort.Height};
  else
    FRenderScale = vxNullPointDouble;
  FRenderOffset = {FViewPort.Left * FRenderScale.X, FViewPort.Top * FRenderScale.Y};
}

TvxMapControlGeoPoint TvxMapLayer::Move(const TvxMapControlGeoPoint& ACenterPoint, const TvxPointDouble& AOffset) const
{
  const TvxPointDouble M = GeoPointToMapUnit(ACenterPoint, false);
  TvxPointDouble P = MapUnitToScreenPoint(M);
  P.X += AOffset.X;
  P.Y += AOffset.Y;
  return ScreenPointToGeoPoint(P);
}

TvxMapControlGeoPoint TvxMapLayer::MoveAndZoom(const TvxMapControlGeoPoint& ACenterPoint,
                                               const TvxPointDouble& AAnchorPoint, double ACurrentZoomLevel,
                                               double ANewZoomLevel) const
{
  const TvxSizeDouble S0 = GetMapSizeInPixels(ACurrentZoomLevel);
  const TvxSizeDouble S1 = GetMapSizeInPixels(ANewZoomLevel);
  const double Fw = S1.Width / S0.Width;
  const double Fh = S1.Height / S0.Height;
  const TvxPointDouble C = GeoPointToMapUnit(ACenterPoint, true);
  const TvxPointDouble A = ScreenPointToMapUnit(AAnchorPoint);
  const TvxPointDouble NewCenter{(C.X - A.X) / Fw + A.X, (C.Y - A.Y) / Fh + A.Y};
  return MapUnitToGeoPoint(NewCenter, true);
}

TvxMapLayers::TvxMapLayers(TvxCustomMapControl* AMapControl)
  : FMapControl(AMapControl), FViewInfo(std::make_unique<TvxMapLayersViewInfo>(this))
{
  if (FMapControl)
    FViewInfo->SetController(&FMapControl->Controller());
}

TvxMapLayers::~TvxMapLayers()
{
  // The stack's element must not list layers' elements while they go.
  FViewInfo.reset();
  while (!FItems.empty())
  {
    FItems.back()->Deactivate();
    FItems.pop_back();
  }
}

int TvxMapLayers::IndexOf(const TvxMapLayer* ALayer) const
{
  for (size_t I = 0; I < FItems.size(); ++I)
    if (FItems[I].get() == ALayer)
      return int(I);
  return -1;
}

TvxMapLayer* TvxMapLayers::GetBaseLayer() const
{
  for (const auto& Layer : FItems)
    if (Layer->IsActuallyVisible())
      return Layer.get();
  return nullptr;
}

QString TvxMapLayers::UniqueName() const
{
  for (int N = 1;; ++N)
  {
    const QString Name = QStringLiteral("TvxMap%1").arg(N);
    bool Used = false;
    for (const auto& Layer : FItems)
      Used = Used || Layer->Name() == Name;
    if (!Used)
      return Name;
  }
}

TvxMapLayer* TvxMapLayers::Insert(int AIndex, std::unique_ptr<TvxMapLayer> ALayer)
{
  TvxMapLayer* Layer = ALayer.get();
  Layer->FCollection = this;
  if (Layer->FViewInfo && FMapControl)
    Layer->FViewInfo->SetController(&FMapControl->Controller());
  if (Layer->Name().isEmpty())
    Layer->SetName(UniqueName());
  if (FScaleM != FScaleD)
    Layer->ChangeScale(FScaleM, FScaleD);
  AIndex = qBound(0, AIndex, Count());
  FItems.insert(FItems.begin() + AIndex, std::move(ALayer));
  Layer->Activate();
  UpdateViewPort();
  Changed();
  return Layer;
}

void TvxMapLayers::Delete(int AIndex)
{
  if (AIndex < 0 || AIndex >= Count())
    return;
  BeginUpdate();
  // A dying element unlinks itself from the stack's element.
  std::unique_ptr<TvxMapLayer> Layer = std::move(FItems[size_t(AIndex)]);
  FItems.erase(FItems.begin() + AIndex);
  Layer->Deactivate();
  Layer.reset();
  UpdateViewPort();
  Changed();
  EndUpdate();
}

void TvxMapLayers::Clear()
{
  BeginUpdate();
  while (Count() > 0)
    Delete(Count() - 1);
  EndUpdate();
}

void TvxMapLayers::Move(int AFrom, int ATo)
{
  if (AFrom < 0 || AFrom >= Count() || ATo < 0 || ATo >= Count() || AFrom == ATo)
    return;
  std::unique_ptr<TvxMapLayer> Layer = std::move(FItems[size_t(AFrom)]);
  FItems.erase(FItems.begin() + AFrom);
  FItems.insert(FItems.begin() + ATo, std::move(Layer));
  UpdateViewPort();
  Changed();
}

void TvxMapLayers::BeginUpdate()
{
  ++FLockCount;
}

void TvxMapLayers::EndUpdate()
{
  if (--FLockCount == 0 && FChanged)
    Changed();
}

void TvxMapLayers::Changed()
{
  if (FLockCount > 0)
  {
    FChanged = true;
    return;
  }
  FChanged = false;
  if (FMapControl)
    FMapControl->LayersChanged();
}

void TvxMapLayers::UpdateViewPort()
{
  if (FMapControl)
    FMapControl->UpdateViewPort();
}

void TvxMapLayers::ChangeScale(int AM, int AD)
{
  FScaleM *= AM;
  FScaleD *= AD;
  const int Divisor = std::gcd(FScaleM, FScaleD);
  FScaleM /= Divisor;
  FScaleD /= Divisor;
  for (const auto& Layer : FItems)
    Layer->ChangeScale(AM, AD);
}
