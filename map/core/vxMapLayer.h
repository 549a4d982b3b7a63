#pragma once

// The layer stack: every layer shows one part of the world through its own
// projection and map size; the first actually visible layer, the base
// layer, decides the view of the whole control.

#include "vxMapControlElementViewInfo.h"
#include "vxMapControlTypes.h"
#include "vxMapUnitConverter.h"

#include <QList>
#include <QString>

#include <memory>
#include <vector>

class TvxCustomMapControl;
class TvxMapControlCustomProjection;
class TvxMapLayer;
class TvxMapLayers;

// What the control's selection and zoom-to-fit need of a map item; the item
// library implements it, so that this library never depends on items.
class IvxMapItem
{
public:
  virtual ~IvxMapItem() = default;
  virtual TvxMapLayer* ItemLayer() const = 0;
  virtual bool ItemVisible() const = 0;
  // The element whose state shows the selection.
  virtual TvxMapControlElementViewInfo* ItemViewInfo() const = 0;
  virtual TvxRectDouble ItemMapBounds() const = 0;
};

using TvxMapItemList = QList<IvxMapItem*>;

class TvxMapLayerViewInfo : public TvxMapControlElementViewInfo
{
public:
  explicit TvxMapLayerViewInfo(TvxMapLayer* ALayer) : FLayer(ALayer) {}
  TvxMapLayer* Layer() const { return FLayer; }
  void Invalidate() override;

protected:
  TvxMapLayer* FLayer;
};

class TvxMapLayersViewInfo : public TvxMapControlElementViewInfo
{
public:
  explicit TvxMapLayersViewInfo(TvxMapLayers* ALayers) : FLayers(ALayers) {}
  int GetHitTestIndex() const override { return 9; }
  void CalculateBounds() override;
  // A press on the map clears the selection; items act on their own presses.
  void MouseDown(Qt::MouseButton AButton, const QPoint& APoint) override;

protected:
  void AddVisibleElements() override;

private:
  TvxMapLayers* FLayers;
};

class TvxMapLayer
{
public:
  explicit TvxMapLayer(TvxMapLayers* ACollection = nullptr);
  TvxMapLayer(const TvxMapLayer&) = delete;
  TvxMapLayer& operator=(const TvxMapLayer&) = delete;
  virtual ~TvxMapLayer();

  const QString& Name() const { return FName; }
  void SetName(const QString& AValue) { FName = AValue; }
  bool Visible() const { return FVisible; }
  void SetVisible(bool AValue);
  TvxMapLayers* Collection() const { return FCollection; }
  int Index() const;
  TvxCustomMapControl* MapControl() const;
  void Assign(const TvxMapLayer& ASource);
  // Activation follows membership of a control's stack.
  void Activate() { DoActivate(); }
  void Deactivate() { DoDeactivate(); }

  TvxMapLayerViewInfo* ViewInfo() const;
  const TvxRectDouble& ViewPort() const { return FViewPort; }
  const TvxPointDouble& RenderScale() const { return FRenderScale; }
  const TvxPointDouble& RenderOffset() const { return FRenderOffset; }

  // Geometry, relative to the present viewport.
  TvxPointDouble GeoPointToMapUnit(const TvxMapControlGeoPoint& APoint, bool AShouldNormalize = true) const;
  // Many points in one call; AMapUnits holds at least as many as AGeoPoints.
  void GeoPointsToMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                           bool AShouldNormalize = true) const;
  TvxMapControlGeoPoint MapUnitToGeoPoint(const TvxPointDouble& AUnit, bool AShouldNormalize = true) const;
  // The fast path of every item point: no converter, no projection.
  TvxPointDouble MapUnitToScreenPoint(const TvxPointDouble& AUnit) const
  {
    return {AUnit.X * FRenderScale.X - FRenderOffset.X, AUnit.Y * FRenderScale.Y - FRenderOffset.Y};
  }
  TvxPointDouble ScreenPointToMapUnit(const TvxPointDouble& APoint) const;
  TvxPointDouble GeoPointToScreenPoint(const TvxMapControlGeoPoint& APoint) const;
  TvxMapControlGeoPoint ScreenPointToGeoPoint(const TvxPointDouble& APoint) const;
  TvxSizeDouble GeoToKilometersSize(const TvxMapControlGeoPoint& AAnchorPoint, const TvxSizeDouble& ASize) const;
  TvxSizeDouble KilometersToGeoSize(const TvxMapControlGeoPoint& AAnchorPoint, const TvxSizeDouble& ASize) const;
  double GetKilometersScale(const TvxMapControlGeoPoint& ACenterPoint, double AScreenDistance) const;
  TvxRectDouble CalculateViewport(const TvxMapControlGeoPoint& ACenterPoint, const QSize& AViewportInPixels,
                                  double AZoomLevel) const;

  QSize GetViewportInPixels() const;
  double ZoomLevel() const;
  TvxMapControlGeoPoint CenterPoint() const;
  double ScaleFactor() const;

  void Invalidate();
  void InvalidateRect(const QRect& ARect);
  void InvalidateViewPort();

  virtual void ChangeScale(int AM, int AD);
  virtual TvxMapControlCustomProjection* GetMapProjection() const { return nullptr; }
  virtual TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const = 0;
  virtual bool IsActuallyVisible() const;
  virtual TvxMapControlGeoPoint Move(const TvxMapControlGeoPoint& ACenterPoint, const TvxPointDouble& AOffset) const;
  virtual TvxMapControlGeoPoint MoveAndZoom(const TvxMapControlGeoPoint& ACenterPoint,
                                            const TvxPointDouble& AAnchorPoint, double ACurrentZoomLevel,
                                            double ANewZoomLevel) const;
  virtual void UpdateViewport();

  // Item queries; a layer without items has none.
  virtual bool IsItemLayer() const { return false; }
  virtual void GetItems(TvxMapItemList&) const {}
  virtual void GetItemsInRegion(const QRect&, TvxMapItemList&) const {}

protected:
  virtual void DoActivate() {}
  virtual void DoAssign(const TvxMapLayer& ASource);
  virtual void DoDeactivate() {}
  virtual std::unique_ptr<TvxMapLayerViewInfo> CreateViewInfo();

  void SetViewPort(const TvxRectDouble& AValue);
  void CalculateRenderParameters();

private:
  friend class TvxMapLayers;

  QString FName;
  TvxMapLayers* FCollection = nullptr;
  TvxPointDouble FRenderScale;
  TvxPointDouble FRenderOffset;
  mutable std::unique_ptr<TvxMapLayerViewInfo> FViewInfo;
  TvxRectDouble FViewPort;
  bool FVisible = true;
};

class TvxMapLayers
{
public:
  explicit TvxMapLayers(TvxCustomMapControl* AMapControl);
  TvxMapLayers(const TvxMapLayers&) = delete;
  TvxMapLayers& operator=(const TvxMapLayers&) = delete;
  ~TvxMapLayers();

  TvxCustomMapControl* MapControl() const { return FMapControl; }
  int Count() const { return int(FItems.size()); }
  TvxMapLayer* Items(int AIndex) const { return FItems.at(size_t(AIndex)).get(); }
  int IndexOf(const TvxMapLayer* ALayer) const;
  TvxMapLayer* GetBaseLayer() const;
  TvxMapLayersViewInfo& ViewInfo() const { return *FViewInfo; }

  // Adds at the end (the top of the stack) and returns the layer.
  template <class TLayer, class... TArgs>
  TLayer* Add(TArgs&&... AArgs)
  {
    auto Layer = std::make_unique<TLayer>(this, std::forward<TArgs>(AArgs)...);
    TLayer* Result = Layer.get();
    Insert(Count(), std::move(Layer));
    return Result;
  }
  TvxMapLayer* Insert(int AIndex, std::unique_ptr<TvxMapLayer> ALayer);
  void Delete(int AIndex);
  void Clear();
  void Move(int AFrom, int ATo);

  void BeginUpdate();
  void EndUpdate();
  void Changed();
  void UpdateViewPort();
  void ChangeScale(int AM, int AD);

private:
  QString UniqueName() const;

  TvxCustomMapControl* FMapControl;
  std::vector<std::unique_ptr<TvxMapLayer>> FItems;
  std::unique_ptr<TvxMapLayersViewInfo> FViewInfo;
  int FLockCount = 0;
  bool FChanged = false;
  int FScaleM = 1;
  int FScaleD = 1;
};
