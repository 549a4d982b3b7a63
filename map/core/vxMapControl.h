#pragma once

// The map widget: centre, zoom, the layer stack, the navigation panel, the
// selection, and the two motions (zoom animation and inertial scrolling).

#include "vxMapControlControllers.h"
#include "vxMapControlNavigationPanel.h"
#include "vxMapControlTypes.h"
#include "vxMapControlViewInfo.h"
#include "vxMapLayer.h"

#include <QPointer>
#include <QSet>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>


class TvxCustomMapControl : public QWidget
{
  Q_OBJECT

public:
  static constexpr double MinZoomLevel = 1.0;
  static constexpr double MaxZoomLevel = 20.0;

  explicit TvxCustomMapControl(QWidget* AParent = nullptr);
  ~TvxCustomMapControl() override;

  // Navigation.
  double ZoomLevel() const { return FZoomLevel; }
  void SetZoomLevel(double AValue);
  double ActualZoomLevel() const { return FAnimationController->ZoomLevel(); }
  TvxMapControlGeoLocation& CenterPoint() { return *FCenterPoint; }
  const TvxMapControlGeoLocation& CenterPoint() const { return *FCenterPoint; }
  void SetCenterPoint(const TvxMapControlGeoPoint& AValue) { FCenterPoint->SetGeoPoint(AValue); }
  TvxMapControlGeoPoint ActualCenterPoint() const { return FCenterPoint->GeoPoint(); }
  void Zoom(double AZoomLevel, bool AAnimated);
  void Zoom(double AZoomLevel, const TvxPointDouble& AAnchorPoint, bool AAnimated, bool AIsAsyncMode);
  void ZoomAsync(double AZoomLevel);
  void ZoomIn();
  void ZoomOut();
  void ZoomToGeoRect(const TvxMapControlGeoRect& ARect);
  void ZoomToGeoRect(const TvxMapControlGeoRect& ARect, double APaddingFactor);
  void ZoomToFitItems(const TvxMapItemList& AItems, double APaddingFactor);
  void ZoomToFitLayerItems(const QList<TvxMapLayer*>& ALayers, double APaddingFactor);
  void ZoomToRegion(const TvxRectDouble& AMapRect, double APaddingFactor);
  void ZoomToRegion(const QRect& AScreenRect);
  void CalculateZoomAndCenterPointForRegion(const TvxRectDouble& AMapRect, double APaddingFactor,
                                            double& AZoomLevel, TvxMapControlGeoPoint& ACenterPoint) const;
  void ScrollMap(double ADX, double ADY);
  TvxMapControlGeoPoint ScreenPointToGeoPoint(const TvxPointDouble& APoint) const;
  double GetKilometersScale(const TvxMapControlGeoPoint& ACenterPoint, double AScreenDistance) const;
  bool CanAnimate() const;
  double CheckZoomLevel(double AValue) const;
  double GetMaxZoomLevel() const { return MaxZoomLevel; }

  // Layers.
  TvxMapLayers& Layers() { return *FLayers; }
  const TvxMapLayers& Layers() const { return *FLayers; }
  template <class TLayer, class... TArgs>
  TLayer* AddLayer(TArgs&&... AArgs)
  {
    return FLayers->Add<TLayer>(std::forward<TArgs>(AArgs)...);
  }
  TvxMapLayer* BaseLayer() const { return FLayers->GetBaseLayer(); }

  // Updates.
  void BeginUpdate();
  void EndUpdate();
  // Closes a bracket as EndUpdate does but lays out at the paint it asks
  // for, or at the first hit test before it: brackets that come in bursts,
  // such as the feed's frames, then cost one layout between them.
  void EndUpdateLayoutLater();
  // Lays out now if a layout is owed and the map is not locked.
  void CheckViewInfo();
  bool IsLocked() const;
  void Changed();
  void LayersChanged() { Changed(); }
  void UpdateViewPort();
  void InvalidateViewPort() { FIsViewPortValid = false; }
  void CheckViewPort();
  void InvalidateRect(const QRect& ARect);
  bool IsViewInfoDirty() const { return FIsViewInfoDirty; }
  // Construction in steps, such as reading settings, runs as a load.
  void BeginLoading();
  void EndLoading();
  bool IsLoading() const { return FLoading; }
  bool IsDestroying() const { return FDestroying; }

  // Selection.
  void BeginSelection();
  void EndSelection();
  void Select(IvxMapItem* AItem, Qt::KeyboardModifiers AShift, bool ACheckSelectMode);
  void Deselect(IvxMapItem* AItem);
  // A dying item leaves the selection even if the changing event refuses.
  void MapItemDestroying(IvxMapItem* AItem);
  void ClearSelection();
  const TvxMapItemList& SelectedMapItems() const { return FMapItemLayerSelectionController->Selection(); }
  int SelectedMapItemCount() const { return int(SelectedMapItems().size()); }
  void SelectMapItemsInRegion(const QRect& ARegion);
  // Called by the selection controller; events owed are fired or recorded.
  bool DoSelectionChanging(IvxMapItem* AItem);
  void SelectionChanged();

  // Parts.
  TvxMapControlController& Controller() const { return *FController; }
  TvxMapControlPainter& Painter() const { return *FPainter; }
  TvxMapControlViewInfo& ViewInfo() const { return *FViewInfo; }
  TvxMapControlNavigationPanel& NavigationPanel() const { return *FNavigationPanel; }
  TvxMapControlOptionsBehavior& OptionsBehavior() const { return *FOptionsBehavior; }
  TvxMapControlAnimationController& AnimationController() const { return *FAnimationController; }
  TvxMapControlInertialScrollingController& InertiaController() const { return *FInertiaController; }
  TvxMapControlHitTest& HitTest() const { return FController->HitTest(); }

  QColor Color() const { return FColor; }
  void SetColor(const QColor& AValue);
  QRect ClientBounds() const { return rect(); }

  // 96-DPI lengths of the on-map interface pass through this factor.
  double ScaleFactor() const { return FScaleFactor; }
  int ScaleValue(int AValue) const;
  void ChangeScale(int AM, int AD);

  // Drag state.
  int DragMode() const { return FDragMode; }
  bool IsDragging() const { return FDragMode != 0; }
  const QRect& SelectedRegionBounds() const { return FSelectedRegionBounds; }
  const QPoint& MouseDownPos() const { return FMouseDownPos; }
  Qt::KeyboardModifiers ShiftState() const { return FShift; }
  // The mouse position in client coordinates, read from the system.
  QPoint MousePos() const;
  // Whether the mouse is over the map now; a hidden control never has it.
  bool IsMouseOver() const;

  // Events, as handlers the owner assigns.
  std::function<void(TvxCustomMapControl*, TvxMapControlGeoPoint&, bool&)> OnCenterPointChanging;
  std::function<void(TvxCustomMapControl*)> OnCenterPointChanged;
  std::function<void(TvxCustomMapControl*, double, bool&)> OnZoomLevelChanging;
  std::function<void(TvxCustomMapControl*)> OnZoomLevelChanged;
  std::function<void(TvxCustomMapControl*, IvxMapItem*, bool&)> OnSelectionChanging;
  std::function<void(TvxCustomMapControl*)> OnSelectionChanged;
  // The mouse, after the control has done its own part; positions are client pixels.
  std::function<void(TvxCustomMapControl*, Qt::MouseButton, Qt::KeyboardModifiers, int, int)> OnMouseDown;
  std::function<void(TvxCustomMapControl*, Qt::KeyboardModifiers, int, int)> OnMouseMove;
  std::function<void(TvxCustomMapControl*, Qt::MouseButton, Qt::KeyboardModifiers, int, int)> OnMouseUp;
  std::function<void(TvxCustomMapControl*)> OnDblClick;
  std::function<void(TvxCustomMapControl*)> OnMouseEnter;
  std::function<void(TvxCustomMapControl*)> OnMouseLeave;

  // Used by the motions and the panel.
  void DoSetCenterPoint(const TvxMapControlGeoPoint& AValue, bool ACheckAllow);
  void DoZoomLevelChanged();
  void RepaintNow();

protected:
  void paintEvent(QPaintEvent* AEvent) override;
  void resizeEvent(QResizeEvent* AEvent) override;
  void mousePressEvent(QMouseEvent* AEvent) override;
  void mouseMoveEvent(QMouseEvent* AEvent) override;
  void mouseReleaseEvent(QMouseEvent* AEvent) override;
  void mouseDoubleClickEvent(QMouseEvent* AEvent) override;
  void wheelEvent(QWheelEvent* AEvent) override;
  void keyPressEvent(QKeyEvent* AEvent) override;
  void keyReleaseEvent(QKeyEvent* AEvent) override;
  void enterEvent(QEnterEvent* AEvent) override;
  void leaveEvent(QEvent* AEvent) override;
  void showEvent(QShowEvent* AEvent) override;
  void changeEvent(QEvent* AEvent) override;

  virtual bool StartDragAndDrop(const QPoint& APoint);
  virtual void DragAndDrop(const QPoint& APoint, bool& AAccepted);
  virtual void EndDragAndDrop(bool AAccepted);

private:
  void CenterPointChanged();
  void CalculateViewInfo();
  void CheckScaleFactor();
  void ScrollByArrowKeys();
  void RememberMousePos(const QPoint& APoint);

  std::unique_ptr<TvxMapControlAnimationController> FAnimationController;
  std::unique_ptr<TvxMapControlGeoLocation> FCenterPoint;
  QColor FColor;
  std::unique_ptr<TvxMapControlController> FController;
  int FDragMode = 0;
  bool FIsViewInfoDirty = true;
  bool FCalculating = false; // a layout is under way
  bool FIsViewPortValid = false;
  std::unique_ptr<TvxMapLayers> FLayers;
  double FLoadedZoomLevel = 1.0;
  int FLockCount = 0;
  int FLockSelectionChangedEventCount = 0;
  bool FSelectionChangedEventOccurs = false;
  std::unique_ptr<TvxMapControlSelectionController> FMapItemLayerSelectionController;
  std::unique_ptr<TvxMapControlNavigationPanel> FNavigationPanel;
  std::unique_ptr<TvxMapControlOptionsBehavior> FOptionsBehavior;
  std::unique_ptr<TvxMapControlPainter> FPainter;
  QRect FSelectedRegionBounds;
  Qt::KeyboardModifiers FShift;
  TvxMapControlGeoPoint FStartCenterPoint;
  std::unique_ptr<TvxMapControlViewInfo> FViewInfo;
  double FZoomLevel = 1.0;
  std::unique_ptr<TvxMapControlInertialScrollingController> FInertiaController;

  bool FLoading = false;
  bool FDestroying = false;
  double FScaleFactor = 1.0;
  QPoint FMouseDownPos;
  bool FMouseDown = false;
  bool FDragRefused = false;
  QSet<int> FArrowKeys;
  QPoint FMousePos;
  bool FHasMousePos = false;
};

// The published form of the control.
class TvxMapControl : public TvxCustomMapControl
{
  Q_OBJECT

public:
  using TvxCustomMapControl::TvxCustomMapControl;
};
