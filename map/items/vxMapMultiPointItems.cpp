#include "vxMapMultiPointItems.h"

#include "vxMapControlGeometry.h"
#include "vxMapControlViewInfo.h"

#include <QPainter>
#include <QPainterPathStroker>

#include <algorithm>
#include <climits>
#include <cmath>

namespace
{

// Screen coordinates stay far inside int even at the deepest zoom; the clamp
// only keeps a broken projection from overflowing. Rounds half away from
// zero as lround does, without its call: within the clamp the conversion is
// exact and so is the fraction it leaves.
int RoundToInt(double AValue)
{
  if (std::isnan(AValue))
    return 0;
  const double Value = std::clamp(AValue, -1e9, 1e9);
  const int Whole = int(Value);
  const double Fraction = Value - Whole;
  return Whole + (Fraction >= 0.5) - (Fraction <= -0.5);
}

// Inlined into the loops over all points of a shape, the layer looked up once.
QPoint ScreenPoint(const TvxMapLayer* ALayer, const TvxPointDouble& AMapPoint)
{
  const TvxPointDouble P = ALayer->MapUnitToScreenPoint(AMapPoint);
  return {RoundToInt(P.X), RoundToInt(P.Y)};
}

void AddPolyline(QPainterPath& APath, const QPoint* APoints, qsizetype ACount)
{
  if (ACount < 2)
    return;
  APath.moveTo(APoints[0]);
  for (qsizetype I = 1; I < ACount; ++I)
    APath.lineTo(APoints[I]);
}

void AddRing(QPainterPath& APath, const QPoint* APoints, qsizetype ACount)
{
  AddPolyline(APath, APoints, ACount);
  if (ACount >= 2)
    APath.closeSubpath();
}

// Room for ACount in AVector, in AArena when AVector is not there and must
// grow anyway: points made from a loader's points live beside them.
template <class T>
void ReserveIn(std::vector<T, TvxBulkAllocator<T>>& AVector, const std::shared_ptr<TvxBulkArena>& AArena,
               size_t ACount)
{
  if (AVector.capacity() < ACount && AVector.get_allocator().Arena() != AArena)
  {
    std::vector<T, TvxBulkAllocator<T>> Fresh{TvxBulkAllocator<T>(AArena)};
    AVector.swap(Fresh);
  }
  AVector.reserve(ACount);
}

QPen BorderPen(const TvxMapItemStyle& AStyle, int AWidth)
{
  // A width of 0 means no border, not Qt's one-pixel cosmetic pen.
  if (AWidth <= 0)
    return Qt::NoPen;
  return QPen(QColor::fromRgba(AStyle.BorderColor()), AWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
}

void PaintFilledPath(QPainter& ACanvas, const QPainterPath& APath, const TvxMapItemStyle& AStyle, int AWidth)
{
  ACanvas.setPen(BorderPen(AStyle, AWidth));
  ACanvas.setBrush(QColor::fromRgba(AStyle.Color()));
  ACanvas.drawPath(APath);
}

bool IsOnOutline(const QPainterPath& APath, const QPoint& APoint, int AWidth)
{
  QPainterPathStroker Stroker;
  Stroker.setWidth(std::max(AWidth, 1));
  Stroker.setCapStyle(Qt::RoundCap);
  Stroker.setJoinStyle(Qt::RoundJoin);
  return Stroker.createStroke(APath).contains(QPointF(APoint));
}

} // namespace

// TvxMapControlGeoPointItem

TvxMapControlGeoPoint& TvxMapControlGeoPointItem::Point() const
{
  return FCollection->FPoints.at(size_t(FIndex));
}

const TvxMapControlGeoPoint& TvxMapControlGeoPointItem::GeoPoint() const
{
  return Point();
}

void TvxMapControlGeoPointItem::Changed() const
{
  FCollection->Changed();
}

void TvxMapControlGeoPointItem::SetGeoPoint(const TvxMapControlGeoPoint& AValue)
{
  TvxMapControlGeoPoint& P = Point();
  if (P.IsEqual(AValue))
    return;
  P = AValue;
  Changed();
}

void TvxMapControlGeoPointItem::SetLatitude(double AValue)
{
  TvxMapControlGeoPoint& P = Point();
  if (P.Latitude == AValue)
    return;
  P.Latitude = AValue;
  Changed();
}

void TvxMapControlGeoPointItem::SetLongitude(double AValue)
{
  TvxMapControlGeoPoint& P = Point();
  if (P.Longitude == AValue)
    return;
  P.Longitude = AValue;
  Changed();
}

void TvxMapControlGeoPointItem::Assign(const TvxMapControlGeoPointItem& ASource)
{
  FCollection->BeginUpdate();
  SetGeoPoint(ASource.GeoPoint());
  FCollection->EndUpdate();
}

// TvxMapControlGeoPointCollection

TvxMapControlGeoPointCollection::~TvxMapControlGeoPointCollection()
{
  OnChanged = nullptr;
}

TvxMapControlGeoPointItem TvxMapControlGeoPointCollection::Items(int AIndex)
{
  // A handle is only made for a point that is there.
  if (AIndex < 0 || AIndex >= Count())
    throw std::out_of_range("point index out of range");
  return {this, AIndex};
}

const TvxMapControlGeoPointItem TvxMapControlGeoPointCollection::Items(int AIndex) const
{
  return const_cast<TvxMapControlGeoPointCollection*>(this)->Items(AIndex);
}

int TvxMapControlGeoPointCollection::IndexOf(const TvxMapControlGeoPointItem& AItem) const
{
  return AItem.Collection() == this && AItem.Index() >= 0 && AItem.Index() < Count() ? AItem.Index() : -1;
}

TvxMapControlGeoPointItem TvxMapControlGeoPointCollection::Add()
{
  FPoints.emplace_back();
  Changed();
  return {this, Count() - 1};
}

TvxMapControlGeoPointItem TvxMapControlGeoPointCollection::Add(const TvxMapControlGeoPoint& AGeoPoint)
{
  BeginUpdate();
  TvxMapControlGeoPointItem Item = Add();
  Item.SetGeoPoint(AGeoPoint);
  EndUpdate();
  return Item;
}

void TvxMapControlGeoPointCollection::AddRange(std::span<const TvxMapControlGeoPoint> AGeoPoints)
{
  if (AGeoPoints.empty())
    return;
  FPoints.insert(FPoints.end(), AGeoPoints.begin(), AGeoPoints.end());
  Changed();
}

void TvxMapControlGeoPointCollection::UseArena(const std::shared_ptr<TvxBulkArena>& AArena)
{
  if (FPoints.get_allocator().Arena() == AArena)
    return;
  decltype(FPoints) Points{TvxBulkAllocator<TvxMapControlGeoPoint>(AArena)};
  Points.reserve(FPoints.size());
  Points.assign(FPoints.begin(), FPoints.end());
  FPoints = std::move(Points);
}

void TvxMapControlGeoPointCollection::Delete(int AIndex)
{
  if (AIndex < 0 || AIndex >= Count())
    return;
  FPoints.erase(FPoints.begin() + AIndex);
  Changed();
}

void TvxMapControlGeoPointCollection::Clear()
{
  if (FPoints.empty())
    return;
  FPoints.clear();
  Changed();
}

void TvxMapControlGeoPointCollection::Assign(const TvxMapControlGeoPointCollection& ASource)
{
  if (&ASource == this)
    return;
  BeginUpdate();
  Clear();
  FPoints = ASource.FPoints;
  Changed();
  EndUpdate();
}


// TvxMapCustomMultiPointItem

TvxMapCustomMultiPointItem::TvxMapCustomMultiPointItem(TvxMapItems* ACollection)
  : TvxMapItem(ACollection), FGeoPoints(std::make_unique<TvxMapControlGeoPointCollection>())
{
  FGeoPoints->OnChanged = [this](TvxMapControlGeoPointCollection*) { GeoPointsChanged(); };
}

TvxMapCustomMultiPointItem::~TvxMapCustomMultiPointItem()
{
  FGeoPoints->OnChanged = nullptr;
}

void TvxMapCustomMultiPointItem::GeoPointsChanged()
{
  if (ViewInfo())
    ViewInfo()->InvalidateCachedBounds();
  Changed(false);
}

void TvxMapCustomMultiPointItem::DoAssign(const TvxMapItem& ASource)
{
  TvxMapItem::DoAssign(ASource);
  if (const auto* Source = dynamic_cast<const TvxMapCustomMultiPointItem*>(&ASource))
    FGeoPoints->Assign(*Source->FGeoPoints);
}

std::unique_ptr<TvxMapItemViewInfo> TvxMapPolyline::CreateViewInfo()
{
  return std::make_unique<TvxMapPolylineViewInfo>(this);
}

std::unique_ptr<TvxMapItemViewInfo> TvxMapPolygon::CreateViewInfo()
{
  return std::make_unique<TvxMapPolygonViewInfo>(this);
}

// TvxMapPathSegment

TvxMapPathSegment::TvxMapPathSegment(TvxMapPathSegments* ACollection) : FCollection(ACollection)
{
  FCollection->BeginUpdate();
  FGeoPoints = std::make_unique<TvxMapControlGeoPointCollection>();
  FGeoPoints->OnChanged = [this](TvxMapControlGeoPointCollection*) { GeoPointsChanged(); };
  FViewInfo = Path()->CreateSegmentViewInfo(this);
  FCollection->EndUpdate();
}

TvxMapPathSegment::~TvxMapPathSegment()
{
  FGeoPoints->OnChanged = nullptr;
  DestroyViewInfo();
}

TvxMapPath* TvxMapPathSegment::Path() const
{
  return FCollection->Path();
}

int TvxMapPathSegment::Index() const
{
  return FCollection->IndexOf(this);
}

void TvxMapPathSegment::SetVisible(bool AValue)
{
  if (FVisible == AValue)
    return;
  FVisible = AValue;
  Changed();
}

void TvxMapPathSegment::Assign(const TvxMapPathSegment& ASource)
{
  FCollection->BeginUpdate();
  FGeoPoints->Assign(*ASource.FGeoPoints);
  SetVisible(ASource.FVisible);
  FCollection->EndUpdate();
}

void TvxMapPathSegment::DestroyViewInfo()
{
  if (!FViewInfo)
    return;
  Path()->SegmentViewInfoDestroying(FViewInfo.get());
  FViewInfo.reset();
}

void TvxMapPathSegment::RecreateViewInfo()
{
  DestroyViewInfo();
  FViewInfo = Path()->CreateSegmentViewInfo(this);
}

void TvxMapPathSegment::GeoPointsChanged()
{
  if (FViewInfo)
    FViewInfo->InvalidateCachedBounds();
  Changed();
}

void TvxMapPathSegment::Changed()
{
  FCollection->Changed();
}

// TvxMapPathSegments

TvxMapPathSegments::~TvxMapPathSegments()
{
  OnChanged = nullptr;
  FItems.clear();
}

int TvxMapPathSegments::IndexOf(const TvxMapPathSegment* ASegment) const
{
  for (size_t I = 0; I < FItems.size(); ++I)
    if (FItems[I].get() == ASegment)
      return int(I);
  return -1;
}

TvxMapPathSegment* TvxMapPathSegments::Add()
{
  FItems.push_back(std::make_unique<TvxMapPathSegment>(this));
  Changed();
  return FItems.back().get();
}

void TvxMapPathSegments::Delete(int AIndex)
{
  if (AIndex < 0 || AIndex >= Count())
    return;
  std::unique_ptr<TvxMapPathSegment> Segment = std::move(FItems[size_t(AIndex)]);
  FItems.erase(FItems.begin() + AIndex);
  Segment.reset();
  Changed();
}

void TvxMapPathSegments::Clear()
{
  if (FItems.empty())
    return;
  FItems.clear();
  Changed();
}

void TvxMapPathSegments::Assign(const TvxMapPathSegments& ASource)
{
  if (&ASource == this)
    return;
  BeginUpdate();
  Clear();
  for (const auto& Segment : ASource.FItems)
    Add()->Assign(*Segment);
  EndUpdate();
}

void TvxMapPathSegments::RecreateViewInfos()
{
  for (const auto& Segment : FItems)
    Segment->RecreateViewInfo();
}


// TvxMapPath

TvxMapPath::TvxMapPath(TvxMapItems* ACollection)
  : TvxMapItem(ACollection), FSegments(std::make_unique<TvxMapPathSegments>(this))
{
  FSegments->OnChanged = [this](TvxMapPathSegments*) { Changed(false); };
}

TvxMapPath::~TvxMapPath()
{
  // Segment view infos go while the path's view info can still forget them.
  FSegments->OnChanged = nullptr;
  FSegments.reset();
}

void TvxMapPath::SetSegmentType(TvxMapPathSegmentType AValue)
{
  if (FSegmentType == AValue)
    return;
  FSegmentType = AValue;
  RecreateViewInfos();
}

void TvxMapPath::RecreateViewInfos()
{
  RecreateViewInfo();
  FSegments->RecreateViewInfos();
  Changed(false);
}

std::unique_ptr<TvxMapItemViewInfo> TvxMapPath::CreateViewInfo()
{
  if (FSegmentType == mstPolyline)
    return std::make_unique<TvxMapPathPolylineViewInfo>(this);
  return std::make_unique<TvxMapPathPolygonViewInfo>(this);
}

std::unique_ptr<TvxMapCustomMultiPointItemViewInfo> TvxMapPath::CreateSegmentViewInfo(TvxMapPathSegment* ASegment)
{
  std::unique_ptr<TvxMapCustomMultiPointItemViewInfo> Result;
  if (FSegmentType == mstPolyline)
    Result = std::make_unique<TvxMapPathSegmentPolylineViewInfo>(this, ASegment);
  else
    Result = std::make_unique<TvxMapPathSegmentPolygonViewInfo>(this, ASegment);
  Result->Create();
  return Result;
}

void TvxMapPath::SegmentViewInfoDestroying(TvxMapCustomMultiPointItemViewInfo* AViewInfo)
{
  if (auto* PathViewInfo = dynamic_cast<TvxMapPathPolygonViewInfo*>(ViewInfo()))
    PathViewInfo->SegmentViewInfoDestroying(AViewInfo);
}

void TvxMapPath::DoAssign(const TvxMapItem& ASource)
{
  TvxMapItem::DoAssign(ASource);
  if (const auto* Source = dynamic_cast<const TvxMapPath*>(&ASource))
  {
    SetSegmentType(Source->FSegmentType);
    FSegments->Assign(*Source->FSegments);
  }
}

// TvxMapCustomMultiPointItemViewInfo

const TvxMapControlGeoPointCollection* TvxMapCustomMultiPointItemViewInfo::GetGeoPoints() const
{
  const auto* Item = dynamic_cast<const TvxMapCustomMultiPointItem*>(FItem);
  return Item ? &Item->GeoPoints() : nullptr;
}

void TvxMapCustomMultiPointItemViewInfo::GeoPointsToMapPoints(const TvxCustomMapItemLayer* ALayer,
                                                              const TvxMapControlGeoPointCollection* AGeoPoints,
                                                              TMapPoints& AMapPoints, bool AClosed,
                                                              TvxRectDouble& ABounds)
{
  const size_t Count = AGeoPoints && ALayer && AGeoPoints->Count() >= 2 ? size_t(AGeoPoints->Count()) : 0;
  AMapPoints.clear();
  if (AGeoPoints)
    ReserveIn(AMapPoints, AGeoPoints->Arena(), Count + (AClosed && Count > 0 ? 1 : 0));
  // Map units run from 0 to 1; bounds without points stay (1, 1, -1, -1).
  double MinX = 1.0, MinY = 1.0, MaxX = 0.0, MaxY = 0.0;
  // Projected a block at a time straight from the collection's points; the
  // blocks stay in the first level of the cache and are appended, with no
  // zero fill first.
  constexpr size_t BlockSize = 256;
  TvxPointDouble Map[BlockSize];
  const std::span<const TvxMapControlGeoPoint> Geo =
    AGeoPoints ? AGeoPoints->GeoPoints() : std::span<const TvxMapControlGeoPoint>();
  for (size_t Start = 0; Start < Count; Start += BlockSize)
  {
    const size_t N = std::min(BlockSize, Count - Start);
    ALayer->GeoPointsToMapUnits(Geo.subspan(Start, N), std::span(Map, N));
    for (size_t I = 0; I < N; ++I)
    {
      const TvxPointDouble& P = Map[I];
      if (!std::isfinite(P.X) || !std::isfinite(P.Y))
      {
        // A broken point would make a different shape; none is drawn instead.
        AMapPoints.clear();
        ABounds = {1.0, 1.0, -1.0, -1.0};
        return;
      }
      MinX = std::min(MinX, P.X);
      MinY = std::min(MinY, P.Y);
      MaxX = std::max(MaxX, P.X);
      MaxY = std::max(MaxY, P.Y);
    }
    AMapPoints.insert(AMapPoints.end(), Map, Map + N);
  }
  ABounds = {MinX, MinY, MaxX - MinX, MaxY - MinY};
  if (AClosed && !AMapPoints.empty())
    AMapPoints.push_back(AMapPoints.front());
}

bool TvxMapCustomMultiPointItemViewInfo::CheckIntersectionsNeeded(const QRect& ABounds)
{
  // The rectangle holds its right and bottom pixels: the extent is one less.
  return ABounds.width() - 1 > MaxUnclippedSize || ABounds.height() - 1 > MaxUnclippedSize;
}

int TvxMapCustomMultiPointItemViewInfo::BorderPenWidth() const
{
  return ScaleWidth(const_cast<TvxMapCustomMultiPointItemViewInfo*>(this)->GetStyle().BorderWidth());
}

QRect TvxMapCustomMultiPointItemViewInfo::ClipBounds() const
{
  const int Width = BorderPenWidth();
  return ViewPortBounds().adjusted(-Width, -Width, Width, Width);
}

QPoint TvxMapCustomMultiPointItemViewInfo::MapPointToScreen(const TvxPointDouble& APoint) const
{
  return ScreenPoint(Layer(), APoint);
}

// TvxMapCustomPolygonViewInfo

void TvxMapCustomPolygonViewInfo::DoCalculateCachedBounds()
{
  GeoPointsToMapPoints(Layer(), GetGeoPoints(), FMapPoints, true, FMapBounds);
  double Sum = 0, SumX = 0, SumY = 0;
  for (size_t I = 0; I + 1 < FMapPoints.size(); ++I)
  {
    const TvxPointDouble& A = FMapPoints[I];
    const TvxPointDouble& B = FMapPoints[I + 1];
    const double Cross = A.X * B.Y - B.X * A.Y;
    Sum += Cross;
    SumX += (A.X + B.X) * Cross;
    SumY += (A.Y + B.Y) * Cross;
  }
  FMapArea = Sum / 2;
  FMapCenterPoint = FMapArea != 0 ? TvxPointDouble(SumX / (FMapArea * 6), SumY / (FMapArea * 6)) : vxNullPointDouble;
  ReserveIn(FScreenPoints, FMapPoints.get_allocator().Arena(), FMapPoints.size());
  FScreenPoints.resize(FMapPoints.size());
}

void TvxMapCustomPolygonViewInfo::CalculateScreenBounds()
{
  const TvxPointDouble Scale = Layer()->RenderScale();
  FScreenCenterPoint = MapPointToScreen(FMapCenterPoint);
  FMaxTitleSize = vxSizeDouble(FMapBounds.Width * Scale.X, FMapBounds.Height * Scale.Y);
  FCheckIntersections = false;
  FVisiblePolygons.clear();
  if (FScreenPoints.empty())
  {
    FBounds = QRect();
    return;
  }
  QPoint* Out = FScreenPoints.data();
  const TvxCustomMapItemLayer* L = Layer();
  int MinX = INT_MAX, MinY = INT_MAX, MaxX = INT_MIN, MaxY = INT_MIN;
  for (size_t I = 0; I < FMapPoints.size(); ++I)
  {
    const QPoint P = ScreenPoint(L, FMapPoints[I]);
    Out[I] = P;
    MinX = std::min(MinX, P.x());
    MinY = std::min(MinY, P.y());
    MaxX = std::max(MaxX, P.x());
    MaxY = std::max(MaxY, P.y());
  }
  FBounds = QRect(QPoint(MinX, MinY), QPoint(MaxX, MaxY));
  FCheckIntersections = CheckIntersectionsNeeded(FBounds);
  if (FCheckIntersections)
    CalculateVisiblePolygons(FScreenPoints, ClipBounds(), FVisiblePolygons);
}

void TvxMapCustomPolygonViewInfo::CalculateVisiblePolygons(std::span<const QPoint> APoints, const QRect& ARect,
                                                           std::vector<QPolygon>& APolygons)
{
  FClipSubject.resize(APoints.size());
  for (size_t I = 0; I < APoints.size(); ++I)
    FClipSubject[I] = TvxPointDouble(APoints[I].x(), APoints[I].y());
  // Inclusive edges, as the polyline clipper takes them.
  const double L = ARect.left(), T = ARect.top(), R = ARect.right(), B = ARect.bottom();
  const TvxPointDouble Clip[] = {{L, T}, {R, T}, {R, B}, {L, B}, {L, T}};
  vxClipPolygon(FClipSubject, Clip, FClipResult);
  APolygons.resize(FClipResult.size());
  for (size_t I = 0; I < FClipResult.size(); ++I)
  {
    const std::vector<TvxPointDouble>& Source = FClipResult[I];
    QPolygon& Target = APolygons[I];
    Target.resize(qsizetype(Source.size()));
    for (size_t J = 0; J < Source.size(); ++J)
      Target[qsizetype(J)] = QPoint(RoundToInt(Source[J].X), RoundToInt(Source[J].Y));
  }
}

bool TvxMapCustomPolygonViewInfo::DoCanBeVisible()
{
  if (FScreenPoints.empty())
    return false;
  const TvxCustomMapItemLayer* L = Layer();
  // A polygon of a pixel or less in either direction is not drawn.
  if (!(FMapBounds.Width * L->RenderScale().X > 1) || !(FMapBounds.Height * L->RenderScale().Y > 1))
    return false;
  const TvxRectDouble& V = L->ViewPort();
  return std::max(FMapBounds.Left, V.Left) < std::min(FMapBounds.Right(), V.Right()) &&
         std::max(FMapBounds.Top, V.Top) < std::min(FMapBounds.Bottom(), V.Bottom());
}

void TvxMapCustomPolygonViewInfo::AddToPath(QPainterPath& APath) const
{
  if (FCheckIntersections)
  {
    for (const QPolygon& Polygon : FVisiblePolygons)
      AddRing(APath, Polygon.constData(), Polygon.size());
  }
  else
    AddRing(APath, FScreenPoints.data(), qsizetype(FScreenPoints.size()));
}

QRect TvxMapCustomPolygonViewInfo::DoCalculateTitleBounds()
{
  const TvxMapItemTextViewInfo* Title = TitleElement();
  if (!Title || Title->Size().isEmpty())
    return {};
  QRect R = Title->ClientBounds();
  R.moveCenter(FScreenCenterPoint);
  return R;
}

bool TvxMapCustomPolygonViewInfo::IsTitleOutOfBounds()
{
  const TvxMapItemTextViewInfo* Title = TitleElement();
  if (!Title)
    return false;
  const QSize S = Title->Size();
  return FMaxTitleSize.Width < S.width() || FMaxTitleSize.Height < S.height();
}

// TvxMapPolylineViewInfo

void TvxMapPolylineViewInfo::DoCalculateCachedBounds()
{
  GeoPointsToMapPoints(Layer(), GetGeoPoints(), FMapPoints, false, FMapBounds);
  ReserveIn(FScreenPoints, FMapPoints.get_allocator().Arena(), FMapPoints.size());
  FScreenPoints.resize(FMapPoints.size());
}

void TvxMapPolylineViewInfo::CalculateScreenBounds()
{
  const TvxCustomMapItemLayer* L = Layer();
  int MinX = INT_MAX, MinY = INT_MAX, MaxX = INT_MIN, MaxY = INT_MIN;
  const auto Extend = [&](const QPoint& P) {
    MinX = std::min(MinX, P.x());
    MinY = std::min(MinY, P.y());
    MaxX = std::max(MaxX, P.x());
    MaxY = std::max(MaxY, P.y());
  };
  if (!(FCachedRenderScale == L->RenderScale()))
  {
    // A zoom: every point projected to the screen again, and a point that
    // lands on the pixel of the one before it is dropped.
    FScreenPoints.resize(FMapPoints.size());
    QPoint* Out = FScreenPoints.data();
    size_t Kept = 0;
    for (const TvxPointDouble& M : FMapPoints)
    {
      const QPoint P = ScreenPoint(L, M);
      if (Kept > 0 && Out[Kept - 1] == P)
        continue;
      Out[Kept++] = P;
      Extend(P);
    }
    if (Kept == 1)
      Kept = 0;
    FScreenPoints.resize(Kept);
  }
  else
  {
    // A pan: the stored pixels move by the change of the offset.
    const QPoint Shift(RoundToInt(FCachedRenderOffset.X - L->RenderOffset().X),
                       RoundToInt(FCachedRenderOffset.Y - L->RenderOffset().Y));
    for (QPoint& P : FScreenPoints)
    {
      P += Shift;
      Extend(P);
    }
  }
  FBounds = FScreenPoints.empty() ? QRect() : QRect(QPoint(MinX, MinY), QPoint(MaxX, MaxY));
  FCheckIntersections = CheckIntersectionsNeeded(FBounds);
  FVisiblePolylines.clear();
  if (FCheckIntersections)
    vxClipPolylineByRect(FScreenPoints, ClipBounds(), FVisiblePolylines);
}

bool TvxMapPolylineViewInfo::DoCanBeVisible()
{
  if (FMapPoints.empty())
    return false;
  // Closed comparisons: a line of no height or no width stays visible.
  const TvxRectDouble& V = Layer()->ViewPort();
  return std::max(FMapBounds.Left, V.Left) <= std::min(FMapBounds.Right(), V.Right()) &&
         std::max(FMapBounds.Top, V.Top) <= std::min(FMapBounds.Bottom(), V.Bottom());
}

void TvxMapPolylineViewInfo::AddToPath(QPainterPath& APath) const
{
  if (FCheckIntersections)
  {
    for (const std::vector<QPoint>& Polyline : FVisiblePolylines)
      AddPolyline(APath, Polyline.data(), qsizetype(Polyline.size()));
  }
  else
    AddPolyline(APath, FScreenPoints.data(), qsizetype(FScreenPoints.size()));
}

void TvxMapPolylineViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  QPainter& Canvas = APainter.Canvas();
  const int Width = BorderPenWidth();
  if (Width <= 0)
    return;
  Canvas.setPen(BorderPen(GetStyle(), Width));
  Canvas.setBrush(Qt::NoBrush);
  if (FCheckIntersections)
  {
    for (const std::vector<QPoint>& Polyline : FVisiblePolylines)
      Canvas.drawPolyline(Polyline.data(), int(Polyline.size()));
  }
  else if (!FScreenPoints.empty())
    Canvas.drawPolyline(FScreenPoints.data(), int(FScreenPoints.size()));
}

bool TvxMapPolylineViewInfo::PtInElement(const QPoint& APoint) const
{
  if (!TvxMapCustomMultiPointItemViewInfo::PtInElement(APoint))
    return false;
  QPainterPath Path;
  AddToPath(Path);
  return !Path.isEmpty() && IsOnOutline(Path, APoint, BorderPenWidth());
}

bool TvxMapPolylineViewInfo::IsIntersect(const QRect& ARect)
{
  if (!TvxMapCustomMultiPointItemViewInfo::IsIntersect(ARect))
    return false;
  std::vector<std::vector<QPoint>> Pieces;
  if (!FCheckIntersections)
  {
    vxClipPolylineByRect(FScreenPoints, ARect, Pieces);
    return !Pieces.empty();
  }
  for (const std::vector<QPoint>& Polyline : FVisiblePolylines)
  {
    vxClipPolylineByRect(Polyline, ARect, Pieces);
    if (!Pieces.empty())
      return true;
  }
  return false;
}

// TvxMapPolygonViewInfo

bool TvxMapPolygonViewInfo::CreatePath(QPainterPath& APath) const
{
  APath = QPainterPath();
  APath.setFillRule(Qt::OddEvenFill);
  AddToPath(APath);
  return !APath.isEmpty();
}

void TvxMapPolygonViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  QPainterPath Path;
  if (CreatePath(Path))
    PaintFilledPath(APainter.Canvas(), Path, GetStyle(), BorderPenWidth());
}

bool TvxMapPolygonViewInfo::PtInElement(const QPoint& APoint) const
{
  QPainterPath Path;
  return TvxMapCustomPolygonViewInfo::PtInElement(APoint) && CreatePath(Path) && Path.contains(QPointF(APoint));
}

bool TvxMapPolygonViewInfo::IsIntersect(const QRect& ARect)
{
  if (!TvxMapCustomPolygonViewInfo::IsIntersect(ARect))
    return false;
  QPainterPath Path;
  return !CreatePath(Path) || Path.intersects(QRectF(ARect));
}

// TvxMapPathSegmentPolygonViewInfo

TvxMapPathSegmentPolygonViewInfo::TvxMapPathSegmentPolygonViewInfo(TvxMapPath* APath, TvxMapPathSegment* ASegment)
  : TvxMapCustomPolygonViewInfo(APath), FSegment(ASegment)
{
}

TvxMapItemStyle& TvxMapPathSegmentPolygonViewInfo::GetStyle()
{
  return FItem->ViewInfo()->GetStyle();
}

int TvxMapPathSegmentPolygonViewInfo::GetMaxBorderWidth()
{
  return FItem->ViewInfo()->GetMaxBorderWidth();
}

const TvxMapControlGeoPointCollection* TvxMapPathSegmentPolygonViewInfo::GetGeoPoints() const
{
  return &FSegment->GeoPoints();
}

bool TvxMapPathSegmentPolygonViewInfo::IsOwnerVisible() const
{
  return FSegment->Visible();
}

TvxMapItemTextViewInfo* TvxMapPathSegmentPolygonViewInfo::TitleElement() const
{
  return FItem->ViewInfo()->GetTitle();
}

double TvxMapPathSegmentPolygonViewInfo::CalculatedMapArea()
{
  if (!FIsCachedBoundsValid)
    CalculateCachedBounds();
  return FMapArea;
}

// TvxMapPathSegmentPolylineViewInfo

TvxMapPathSegmentPolylineViewInfo::TvxMapPathSegmentPolylineViewInfo(TvxMapPath* APath,
                                                                     TvxMapPathSegment* ASegment)
  : TvxMapPolylineViewInfo(APath), FSegment(ASegment)
{
}

TvxMapItemStyle& TvxMapPathSegmentPolylineViewInfo::GetStyle()
{
  return FItem->ViewInfo()->GetStyle();
}

int TvxMapPathSegmentPolylineViewInfo::GetMaxBorderWidth()
{
  return FItem->ViewInfo()->GetMaxBorderWidth();
}

const TvxMapControlGeoPointCollection* TvxMapPathSegmentPolylineViewInfo::GetGeoPoints() const
{
  return &FSegment->GeoPoints();
}

bool TvxMapPathSegmentPolylineViewInfo::IsOwnerVisible() const
{
  return FSegment->Visible();
}

// TvxMapPathCustomViewInfo

template <class TSegmentViewInfo>
TvxMapPathCustomViewInfo<TSegmentViewInfo>::TvxMapPathCustomViewInfo(TvxMapPath* APath) : TvxMapItemViewInfo(APath)
{
}

template <class TSegmentViewInfo>
TvxMapPath* TvxMapPathCustomViewInfo<TSegmentViewInfo>::Path() const
{
  return static_cast<TvxMapPath*>(FItem);
}

template <class TSegmentViewInfo>
TSegmentViewInfo* TvxMapPathCustomViewInfo<TSegmentViewInfo>::SegmentViewInfo(int AIndex) const
{
  return static_cast<TSegmentViewInfo*>(Path()->Segments().Items(AIndex)->ViewInfo());
}

template <class TSegmentViewInfo>
void TvxMapPathCustomViewInfo<TSegmentViewInfo>::AddVisibleElements()
{
  const int Count = Path()->Segments().Count();
  for (int I = 0; I < Count; ++I)
    if (TSegmentViewInfo* Segment = SegmentViewInfo(I); Segment->CanBeVisible())
      AddVisibleElement(Segment);
}

template <class TSegmentViewInfo>
void TvxMapPathCustomViewInfo<TSegmentViewInfo>::CalculateBounds()
{
  FBounds = QRect();
  if (!Layer())
    return;
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
  {
    Child->CalculateBounds();
    FBounds = FBounds.united(Child->Bounds());
  }
  FDrawBounds = FBounds;
  if (!FBounds.isEmpty())
  {
    const int Width = ScaleWidth(GetStyle().BorderWidth());
    FBounds.adjust(-Width, -Width, Width, Width);
  }
  CalculateTitleBounds();
}

template <class TSegmentViewInfo>
void TvxMapPathCustomViewInfo<TSegmentViewInfo>::ClearCache()
{
  TvxMapItemViewInfo::ClearCache();
  const int Count = Path()->Segments().Count();
  for (int I = 0; I < Count; ++I)
    SegmentViewInfo(I)->ClearCache();
}

template <class TSegmentViewInfo>
void TvxMapPathCustomViewInfo<TSegmentViewInfo>::DoCalculateCachedBounds()
{
  // The path's caches go with a style change; the segments merge the same
  // styles and must follow.
  const int Count = Path()->Segments().Count();
  for (int I = 0; I < Count; ++I)
    SegmentViewInfo(I)->InvalidateStyles();
}

template <class TSegmentViewInfo>
bool TvxMapPathCustomViewInfo<TSegmentViewInfo>::DoCanBeVisible()
{
  const int Count = Path()->Segments().Count();
  for (int I = 0; I < Count; ++I)
    if (SegmentViewInfo(I)->CanBeVisible())
      return true;
  return false;
}

template <class TSegmentViewInfo>
TvxRectDouble TvxMapPathCustomViewInfo<TSegmentViewInfo>::DoGetMapBounds()
{
  TvxRectDouble Result;
  bool Found = false;
  const int Count = Path()->Segments().Count();
  for (int I = 0; I < Count; ++I)
  {
    if (!Path()->Segments().Items(I)->Visible())
      continue;
    const TvxRectDouble R = SegmentViewInfo(I)->GetMapBounds();
    Result = Found ? vxUnionRectDouble(Result, R) : R;
    Found = true;
  }
  return Result;
}

template class TvxMapPathCustomViewInfo<TvxMapPathSegmentPolygonViewInfo>;
template class TvxMapPathCustomViewInfo<TvxMapPathSegmentPolylineViewInfo>;

// TvxMapPathPolygonViewInfo

void TvxMapPathPolygonViewInfo::AddVisibleElements()
{
  FTitleSegmentViewInfo = nullptr;
  double MaxArea = 0;
  const int Count = Path()->Segments().Count();
  for (int I = 0; I < Count; ++I)
  {
    TvxMapPathSegmentPolygonViewInfo* Segment = SegmentViewInfo(I);
    const bool CanBeVisible = Segment->CanBeVisible();
    // Holes run the other way round: their negative area never wins.
    if (const double Area = Segment->CalculatedMapArea(); Area > MaxArea)
    {
      MaxArea = Area;
      FTitleSegmentViewInfo = CanBeVisible ? Segment : nullptr;
    }
    if (CanBeVisible)
      AddVisibleElement(Segment);
  }
}

void TvxMapPathPolygonViewInfo::SegmentViewInfoDestroying(TvxMapCustomMultiPointItemViewInfo* AViewInfo)
{
  if (FTitleSegmentViewInfo == AViewInfo)
    FTitleSegmentViewInfo = nullptr;
}

bool TvxMapPathPolygonViewInfo::CreatePath(QPainterPath& APath) const
{
  APath = QPainterPath();
  if (FVisibleElements.isEmpty())
    return false;
  APath.setFillRule(Qt::OddEvenFill);
  for (TvxMapControlElementViewInfo* Child : FVisibleElements)
    static_cast<const TvxMapPathSegmentPolygonViewInfo*>(Child)->AddToPath(APath);
  return true;
}

void TvxMapPathPolygonViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  QPainterPath Path;
  if (CreatePath(Path))
    PaintFilledPath(APainter.Canvas(), Path, GetStyle(), ScaleWidth(GetStyle().BorderWidth()));
}

bool TvxMapPathPolygonViewInfo::PtInElement(const QPoint& APoint) const
{
  QPainterPath Path;
  return TvxMapItemViewInfo::PtInElement(APoint) && CreatePath(Path) && Path.contains(QPointF(APoint));
}

bool TvxMapPathPolygonViewInfo::IsIntersect(const QRect& ARect)
{
  if (!TvxMapItemViewInfo::IsIntersect(ARect))
    return false;
  QPainterPath Path;
  return !CreatePath(Path) || Path.intersects(QRectF(ARect));
}

QRect TvxMapPathPolygonViewInfo::DoCalculateTitleBounds()
{
  return FTitleSegmentViewInfo ? FTitleSegmentViewInfo->TitleBounds() : QRect();
}

bool TvxMapPathPolygonViewInfo::IsTitleOutOfBounds()
{
  return FTitleSegmentViewInfo && FTitleSegmentViewInfo->TitleOutOfBounds();
}

// TvxMapPathPolylineViewInfo

void TvxMapPathPolylineViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->Paint(APainter);
}

bool TvxMapPathPolylineViewInfo::PtInElement(const QPoint& APoint) const
{
  if (!TvxMapItemViewInfo::PtInElement(APoint))
    return false;
  return std::any_of(FVisibleElements.cbegin(), FVisibleElements.cend(),
                     [&APoint](const TvxMapControlElementViewInfo* Child) { return Child->PtInElement(APoint); });
}

bool TvxMapPathPolylineViewInfo::IsIntersect(const QRect& ARect)
{
  if (!TvxMapItemViewInfo::IsIntersect(ARect))
    return false;
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    if (static_cast<TvxMapPathSegmentPolylineViewInfo*>(Child)->IsIntersect(ARect))
      return true;
  return false;
}
