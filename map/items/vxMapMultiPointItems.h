#pragma once

// Items made of lists of geographic points: the open polyline, the closed
// polygon, and the path, which holds several rings or lines as one item (a
// polygon with holes, a line in several parts). Points are projected into
// map units once per geometry change; zoom and pan only touch screen points.

#include "vxCustomMapItemLayer.h"
#include "vxLargeBlock.h"
#include "vxMapItem.h"

#include <QPainterPath>
#include <QPolygon>

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <span>
#include <vector>

class TvxMapControlGeoPointCollection;
class TvxMapCustomMultiPointItemViewInfo;
class TvxMapPath;
class TvxMapPathSegment;
class TvxMapPathSegments;

// A point of a collection, reached by its position. The collection holds
// the points themselves, 16 bytes each, as files bring millions of them;
// this is a handle on one, valid until the collection shrinks.
class TvxMapControlGeoPointItem
{
public:
  TvxMapControlGeoPointItem(TvxMapControlGeoPointCollection* ACollection, int AIndex)
    : FCollection(ACollection), FIndex(AIndex)
  {
  }

  TvxMapControlGeoPointCollection* Collection() const { return FCollection; }
  int Index() const { return FIndex; }

  const TvxMapControlGeoPoint& GeoPoint() const;
  // Compared by the tolerance rule.
  void SetGeoPoint(const TvxMapControlGeoPoint& AValue);
  double Latitude() const { return GeoPoint().Latitude; }
  double Longitude() const { return GeoPoint().Longitude; }
  // These two compare exactly.
  void SetLatitude(double AValue);
  void SetLongitude(double AValue);
  void Assign(const TvxMapControlGeoPointItem& ASource);

  // Items(I)->Latitude() reads as it would for an item held by pointer.
  TvxMapControlGeoPointItem* operator->() { return this; }
  const TvxMapControlGeoPointItem* operator->() const { return this; }

private:
  TvxMapControlGeoPoint& Point() const;
  void Changed() const;

  TvxMapControlGeoPointCollection* FCollection;
  int FIndex;
};

class TvxMapControlGeoPointCollection
{
public:
  TvxMapControlGeoPointCollection()
    : FUpdates([this] {
        if (OnChanged)
          OnChanged(this);
      })
  {
  }
  TvxMapControlGeoPointCollection(const TvxMapControlGeoPointCollection&) = delete;
  TvxMapControlGeoPointCollection& operator=(const TvxMapControlGeoPointCollection&) = delete;
  ~TvxMapControlGeoPointCollection();

  int Count() const { return int(FPoints.size()); }
  // Throws std::out_of_range outside the collection.
  TvxMapControlGeoPointItem Items(int AIndex);
  const TvxMapControlGeoPointItem Items(int AIndex) const;
  // -1 for an item of another collection or past the end.
  int IndexOf(const TvxMapControlGeoPointItem& AItem) const;
  // All points in one block, for bulk work such as projection.
  std::span<const TvxMapControlGeoPoint> GeoPoints() const { return FPoints; }

  TvxMapControlGeoPointItem Add();
  TvxMapControlGeoPointItem Add(const TvxMapControlGeoPoint& AGeoPoint);
  // Appends, with one change notification for all.
  void AddRange(std::span<const TvxMapControlGeoPoint> AGeoPoints);
  void AddRange(std::initializer_list<TvxMapControlGeoPoint> AGeoPoints)
  {
    AddRange(std::span<const TvxMapControlGeoPoint>(AGeoPoints.begin(), AGeoPoints.size()));
  }
  // Appends ACount points, the I-th being AMake(I), with one change
  // notification: the file loaders' way in for millions of points, built in
  // place in one pass with no copy in between.
  template <class TMake>
  void AddRange(size_t ACount, const TMake& AMake);
  void Delete(int AIndex);
  void Clear();
  void Assign(const TvxMapControlGeoPointCollection& ASource);

  // Points from now on go to AArena, the ones already here with them: a
  // loader's millions of points in a few large blocks (see TvxLargeBlock).
  void UseArena(const std::shared_ptr<TvxBulkArena>& AArena);
  std::shared_ptr<TvxBulkArena> Arena() const { return FPoints.get_allocator().Arena(); }

  void BeginUpdate() { FUpdates.BeginUpdate(); }
  void EndUpdate() { FUpdates.EndUpdate(); }
  // Fires OnChanged, or remembers to when the last update bracket closes.
  void Changed() { FUpdates.Changed(); }

  std::function<void(TvxMapControlGeoPointCollection*)> OnChanged;

private:
  friend class TvxMapControlGeoPointItem;

  std::vector<TvxMapControlGeoPoint, TvxBulkAllocator<TvxMapControlGeoPoint>> FPoints;
  TvxUpdateCounter FUpdates;
};

template <class TMake>
void TvxMapControlGeoPointCollection::AddRange(size_t ACount, const TMake& AMake)
{
  if (ACount == 0)
    return;
  vxAppendMade(FPoints, ACount, AMake);
  Changed();
}

class TvxMapCustomMultiPointItem : public TvxMapItem
{
public:
  explicit TvxMapCustomMultiPointItem(TvxMapItems* ACollection);
  ~TvxMapCustomMultiPointItem() override;

  TvxMapControlGeoPointCollection& GeoPoints() const { return *FGeoPoints; }

protected:
  void DoAssign(const TvxMapItem& ASource) override;
  virtual void GeoPointsChanged();

private:
  std::unique_ptr<TvxMapControlGeoPointCollection> FGeoPoints;
};

class TvxMapPolyline : public TvxMapCustomMultiPointItem
{
public:
  using TvxMapCustomMultiPointItem::TvxMapCustomMultiPointItem;

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
};

class TvxMapPolygon : public TvxMapCustomMultiPointItem
{
public:
  using TvxMapCustomMultiPointItem::TvxMapCustomMultiPointItem;

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
};

enum TvxMapPathSegmentType
{
  mstPolygon,
  mstPolyline
};

// One ring or line of a path, with a view info of the path's kind.
class TvxMapPathSegment
{
public:
  explicit TvxMapPathSegment(TvxMapPathSegments* ACollection);
  TvxMapPathSegment(const TvxMapPathSegment&) = delete;
  TvxMapPathSegment& operator=(const TvxMapPathSegment&) = delete;
  ~TvxMapPathSegment();

  TvxMapPathSegments* Collection() const { return FCollection; }
  TvxMapPath* Path() const;
  int Index() const;
  TvxMapControlGeoPointCollection& GeoPoints() const { return *FGeoPoints; }
  bool Visible() const { return FVisible; }
  void SetVisible(bool AValue);
  TvxMapCustomMultiPointItemViewInfo* ViewInfo() const { return FViewInfo.get(); }
  void Assign(const TvxMapPathSegment& ASource);

private:
  friend class TvxMapPathSegments;
  void RecreateViewInfo();
  void DestroyViewInfo();
  void GeoPointsChanged();
  void Changed();

  TvxMapPathSegments* FCollection;
  std::unique_ptr<TvxMapControlGeoPointCollection> FGeoPoints;
  std::unique_ptr<TvxMapCustomMultiPointItemViewInfo> FViewInfo;
  bool FVisible = true;
};

class TvxMapPathSegments
{
public:
  explicit TvxMapPathSegments(TvxMapPath* APath)
    : FPath(APath), FUpdates([this] {
        if (OnChanged)
          OnChanged(this);
      })
  {
  }
  TvxMapPathSegments(const TvxMapPathSegments&) = delete;
  TvxMapPathSegments& operator=(const TvxMapPathSegments&) = delete;
  ~TvxMapPathSegments();

  TvxMapPath* Path() const { return FPath; }
  int Count() const { return int(FItems.size()); }
  TvxMapPathSegment* Items(int AIndex) const { return FItems.at(size_t(AIndex)).get(); }
  int IndexOf(const TvxMapPathSegment* ASegment) const;
  TvxMapPathSegment* Add();
  void Delete(int AIndex);
  void Clear();
  void Assign(const TvxMapPathSegments& ASource);
  // Every segment gets a new view info of the path's present kind.
  void RecreateViewInfos();

  void BeginUpdate() { FUpdates.BeginUpdate(); }
  void EndUpdate() { FUpdates.EndUpdate(); }
  void Changed() { FUpdates.Changed(); }

  std::function<void(TvxMapPathSegments*)> OnChanged;

private:
  TvxMapPath* FPath;
  std::vector<std::unique_ptr<TvxMapPathSegment>> FItems;
  TvxUpdateCounter FUpdates;
};

class TvxMapPath : public TvxMapItem
{
public:
  explicit TvxMapPath(TvxMapItems* ACollection);
  ~TvxMapPath() override;

  TvxMapPathSegments& Segments() const { return *FSegments; }
  TvxMapPathSegmentType SegmentType() const { return FSegmentType; }
  // A change rebuilds the view infos of the path and of every segment.
  void SetSegmentType(TvxMapPathSegmentType AValue);

  std::unique_ptr<TvxMapCustomMultiPointItemViewInfo> CreateSegmentViewInfo(TvxMapPathSegment* ASegment);

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
  void DoAssign(const TvxMapItem& ASource) override;
  void RecreateViewInfos();

private:
  friend class TvxMapPathSegment;
  // The path's view info may point at a segment's view info for the title.
  void SegmentViewInfoDestroying(TvxMapCustomMultiPointItemViewInfo* AViewInfo);

  std::unique_ptr<TvxMapPathSegments> FSegments;
  TvxMapPathSegmentType FSegmentType = mstPolygon;
};

// View infos

class TvxMapCustomMultiPointItemViewInfo : public TvxMapItemViewInfo
{
public:
  using TvxMapItemViewInfo::TvxMapItemViewInfo;

  // Bounds in map units; (1, 1, -1, -1) without points, which a union ignores.
  const TvxRectDouble& MapBounds() const { return FMapBounds; }
  // Kept where the item's geo points are: beside them in a loader's arena.
  using TMapPoints = std::vector<TvxPointDouble, TvxBulkAllocator<TvxPointDouble>>;
  using TScreenPoints = std::vector<QPoint, TvxBulkAllocator<QPoint>>;
  const TMapPoints& MapPoints() const { return FMapPoints; }
  const TScreenPoints& ScreenPoints() const { return FScreenPoints; }
  // The shape is bigger than the clippers' threshold and is drawn clipped.
  bool CheckIntersections() const { return FCheckIntersections; }
  virtual const TvxMapControlGeoPointCollection* GetGeoPoints() const;

  // Beyond this many pixels in either direction a shape is clipped to the
  // view before it reaches the painter.
  static constexpr int MaxUnclippedSize = 5000;

  // Every point goes through the layer's normalising projection, so that a
  // latitude beyond a pole is clamped and a longitude beyond the antimeridian
  // wrapped. Fewer than two points, or any point that still projects to no
  // finite place (NaN), give no map points at all.
  static void GeoPointsToMapPoints(const TvxCustomMapItemLayer* ALayer,
                                   const TvxMapControlGeoPointCollection* AGeoPoints,
                                   TMapPoints& AMapPoints, bool AClosed, TvxRectDouble& ABounds);
  static bool CheckIntersectionsNeeded(const QRect& ABounds);

protected:
  TvxRectDouble DoGetMapBounds() override { return FMapBounds; }
  bool IsBoundsScalable() const override { return true; }
  int BorderPenWidth() const;
  // The viewport in pixels with room for the border.
  QRect ClipBounds() const;
  QPoint MapPointToScreen(const TvxPointDouble& APoint) const;

  TvxRectDouble FMapBounds{1, 1, -1, -1};
  TMapPoints FMapPoints;
  // Reused from frame to frame; polylines cut it to the kept points.
  TScreenPoints FScreenPoints;
  bool FCheckIntersections = false;
};

class TvxMapCustomPolygonViewInfo : public TvxMapCustomMultiPointItemViewInfo
{
public:
  using TvxMapCustomMultiPointItemViewInfo::TvxMapCustomMultiPointItemViewInfo;

  // Signed: positive for rings clockwise on the screen.
  double MapArea() const { return FMapArea; }
  const std::vector<QPolygon>& VisiblePolygons() const { return FVisiblePolygons; }
  // The rings as they are drawn now.
  void AddToPath(QPainterPath& APath) const;

protected:
  void CalculateScreenBounds() override;
  void DoCalculateCachedBounds() override;
  bool DoCanBeVisible() override;
  QRect DoCalculateTitleBounds() override;
  bool IsTitleOutOfBounds() override;
  // The title placed on this shape: its own, or its path's.
  virtual TvxMapItemTextViewInfo* TitleElement() const { return GetTitle(); }
  void CalculateVisiblePolygons(std::span<const QPoint> APoints, const QRect& ARect, std::vector<QPolygon>& APolygons);

  double FMapArea = 0;
  std::vector<QPolygon> FVisiblePolygons;

private:
  std::vector<TvxPointDouble> FClipSubject;
  std::vector<std::vector<TvxPointDouble>> FClipResult;
};

class TvxMapPolylineViewInfo : public TvxMapCustomMultiPointItemViewInfo
{
public:
  using TvxMapCustomMultiPointItemViewInfo::TvxMapCustomMultiPointItemViewInfo;

  const std::vector<std::vector<QPoint>>& VisiblePolylines() const { return FVisiblePolylines; }
  bool HasTitle() const override { return false; }
  bool IsIntersect(const QRect& ARect) override;
  bool PtInElement(const QPoint& APoint) const override;
  void AddToPath(QPainterPath& APath) const;

protected:
  void CalculateScreenBounds() override;
  void DoCalculateCachedBounds() override;
  bool DoCanBeVisible() override;
  void DoPaint(TvxMapControlPainter& APainter) override;

  std::vector<std::vector<QPoint>> FVisiblePolylines;
};

class TvxMapPolygonViewInfo : public TvxMapCustomPolygonViewInfo
{
public:
  using TvxMapCustomPolygonViewInfo::TvxMapCustomPolygonViewInfo;

  // False when there is nothing to draw.
  bool CreatePath(QPainterPath& APath) const;
  bool IsIntersect(const QRect& ARect) override;
  bool PtInElement(const QPoint& APoint) const override;

protected:
  void DoPaint(TvxMapControlPainter& APainter) override;
};

// A segment is no item: it reaches the layer through its path, draws in the
// path's style and state, and is hit-tested through the path.
class TvxMapPathSegmentPolygonViewInfo : public TvxMapCustomPolygonViewInfo
{
public:
  TvxMapPathSegmentPolygonViewInfo(TvxMapPath* APath, TvxMapPathSegment* ASegment);

  TvxMapPathSegment* Segment() const { return FSegment; }
  int GetHitTestIndex() const override { return 0; }
  using TvxMapCustomPolygonViewInfo::GetStyle;
  TvxMapItemStyle& GetStyle() override;
  // The path's merged styles serve all its segments.
  int GetMaxBorderWidth() override;
  bool HasTitle() const override { return false; }
  const TvxMapControlGeoPointCollection* GetGeoPoints() const override;
  // The area with the map-unit geometry brought up to date first.
  double CalculatedMapArea();
  // The path's title placed on this ring.
  QRect TitleBounds() { return DoCalculateTitleBounds(); }
  bool TitleOutOfBounds() { return IsTitleOutOfBounds(); }

protected:
  bool IsOwnerVisible() const override;
  TvxMapItemTextViewInfo* TitleElement() const override;

private:
  TvxMapPathSegment* FSegment;
};

class TvxMapPathSegmentPolylineViewInfo : public TvxMapPolylineViewInfo
{
public:
  TvxMapPathSegmentPolylineViewInfo(TvxMapPath* APath, TvxMapPathSegment* ASegment);

  TvxMapPathSegment* Segment() const { return FSegment; }
  int GetHitTestIndex() const override { return 0; }
  using TvxMapPolylineViewInfo::GetStyle;
  TvxMapItemStyle& GetStyle() override;
  // The path's merged styles serve all its segments.
  int GetMaxBorderWidth() override;
  const TvxMapControlGeoPointCollection* GetGeoPoints() const override;

protected:
  bool IsOwnerVisible() const override;

private:
  TvxMapPathSegment* FSegment;
};

// The path's own view info; its visible children are the segment view infos.
template <class TSegmentViewInfo>
class TvxMapPathCustomViewInfo : public TvxMapItemViewInfo
{
public:
  explicit TvxMapPathCustomViewInfo(TvxMapPath* APath);

  TvxMapPath* Path() const;
  TSegmentViewInfo* SegmentViewInfo(int AIndex) const;
  void CalculateBounds() override;
  void ClearCache() override;

protected:
  void AddVisibleElements() override;
  void DoCalculateCachedBounds() override;
  bool DoCanBeVisible() override;
  TvxRectDouble DoGetMapBounds() override;
  bool IsBoundsScalable() const override { return true; }
};

extern template class TvxMapPathCustomViewInfo<TvxMapPathSegmentPolygonViewInfo>;
extern template class TvxMapPathCustomViewInfo<TvxMapPathSegmentPolylineViewInfo>;

class TvxMapPathPolygonViewInfo : public TvxMapPathCustomViewInfo<TvxMapPathSegmentPolygonViewInfo>
{
public:
  using TvxMapPathCustomViewInfo::TvxMapPathCustomViewInfo;

  // The visible ring of the largest positive area, if any.
  TvxMapPathSegmentPolygonViewInfo* TitleSegmentViewInfo() const { return FTitleSegmentViewInfo; }
  // All rings in one path, so that rings inside rings are holes.
  bool CreatePath(QPainterPath& APath) const;
  bool IsIntersect(const QRect& ARect) override;
  bool PtInElement(const QPoint& APoint) const override;
  void SegmentViewInfoDestroying(TvxMapCustomMultiPointItemViewInfo* AViewInfo);

protected:
  void AddVisibleElements() override;
  QRect DoCalculateTitleBounds() override;
  bool IsTitleOutOfBounds() override;
  void DoPaint(TvxMapControlPainter& APainter) override;

private:
  TvxMapPathSegmentPolygonViewInfo* FTitleSegmentViewInfo = nullptr;
};

class TvxMapPathPolylineViewInfo : public TvxMapPathCustomViewInfo<TvxMapPathSegmentPolylineViewInfo>
{
public:
  using TvxMapPathCustomViewInfo::TvxMapPathCustomViewInfo;

  bool HasTitle() const override { return false; }
  bool IsIntersect(const QRect& ARect) override;
  bool PtInElement(const QPoint& APoint) const override;

protected:
  void DoPaint(TvxMapControlPainter& APainter) override;
};
