#include "vxMapControl.h"

#include <QApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QWheelEvent>
#include <QWindow>

#include <cmath>

namespace
{
bool IsFinite(const TvxMapControlGeoPoint& APoint)
{
  return std::isfinite(APoint.Latitude) && std::isfinite(APoint.Longitude);
}
}

// The control

TvxCustomMapControl::TvxCustomMapControl(QWidget* AParent) : QWidget(AParent)
{
  FCenterPoint = std::make_unique<TvxMapControlGeoLocation>(this);
  FController = std::make_unique<TvxMapControlController>(this);
  FPainter = std::make_unique<TvxMapControlPainter>(this);
  FViewInfo = std::make_unique<TvxMapControlViewInfo>(this);
  FMapItemLayerSelectionController = std::make_unique<TvxMapControlSelectionController>(this);
  FNavigationPanel = std::make_unique<TvxMapControlNavigationPanel>(this);
  FAnimationController = std::make_unique<TvxMapControlAnimationController>(this);
  FOptionsBehavior = std::make_unique<TvxMapControlOptionsBehavior>(this);
  FLayers = std::make_unique<TvxMapLayers>(this);
  FInertiaController = std::make_unique<TvxMapControlInertialScrollingController>(this);
  FViewInfo->CreateElements();
  FCenterPoint->OnChanged = [this](TvxMapControlGeoLocation*) { CenterPointChanged(); };

  setAttribute(Qt::WA_OpaquePaintEvent);
  setMouseTracking(true);
  setFocusPolicy(Qt::WheelFocus);
  resize(400, 200);
  FScaleFactor = 1.0;
  CheckScaleFactor();
  Changed();
}

TvxCustomMapControl::~TvxCustomMapControl()
{
  FDestroying = true;
  FInertiaController.reset();
  FLayers.reset();
  FOptionsBehavior.reset();
  FAnimationController.reset();
  FNavigationPanel.reset();
  FMapItemLayerSelectionController.reset();
  FViewInfo.reset();
  FPainter.reset();
  FController.reset();
}

double TvxCustomMapControl::CheckZoomLevel(double AValue) const
{
  if (std::isnan(AValue))
    return FAnimationController ? FAnimationController->ZoomLevel() : MinZoomLevel;
  return std::clamp(AValue, MinZoomLevel, MaxZoomLevel);
}

bool TvxCustomMapControl::CanAnimate() const
{
  return FOptionsBehavior->Animation();
}

void TvxCustomMapControl::SetZoomLevel(double AValue)
{
  if (FLoading)
    FLoadedZoomLevel = AValue;
  else
    Zoom(AValue, CanAnimate());
}

void TvxCustomMapControl::Zoom(double AZoomLevel, bool AAnimated)
{
  Zoom(AZoomLevel, {width() / 2.0, height() / 2.0}, AAnimated, false);
}

void TvxCustomMapControl::ZoomAsync(double AZoomLevel)
{
  Zoom(AZoomLevel, {width() / 2.0, height() / 2.0}, true, true);
}

void TvxCustomMapControl::Zoom(double AZoomLevel, const TvxPointDouble& AAnchorPoint, bool AAnimated,
                               bool AIsAsyncMode)
{
  bool Allow = true;
  if (OnZoomLevelChanging)
    OnZoomLevelChanging(this, AZoomLevel, Allow);
  if (!Allow)
    return;
  const double Level = CheckZoomLevel(AZoomLevel);
  if (Level == FZoomLevel)
    return;
  FInertiaController->StopInertia();
  FZoomLevel = Level;
  // Before the window exists there is nothing to animate for: a start zoom
  // is applied at once, with one layout, rather than blocking for 500 ms.
  const bool Animated = AAnimated && !IsLocked() && testAttribute(Qt::WA_WState_Created);
  FAnimationController->Zoom(Level, AAnchorPoint, Animated, AIsAsyncMode);
  // An asynchronous animation reports when it ends.
  if (!(AIsAsyncMode && Animated))
    DoZoomLevelChanged();
}

void TvxCustomMapControl::DoZoomLevelChanged()
{
  if (OnZoomLevelChanged)
    OnZoomLevelChanged(this);
}

void TvxCustomMapControl::ZoomIn()
{
  SetZoomLevel(ZoomLevel() + 1.0);
}

void TvxCustomMapControl::ZoomOut()
{
  SetZoomLevel(ZoomLevel() - 1.0);
}

void TvxCustomMapControl::ZoomToGeoRect(const TvxMapControlGeoRect& ARect)
{
  if (!BaseLayer() || !ARect.IsValid())
    return;
  BeginUpdate();
  ZoomToGeoRect(ARect, 0);
  SetZoomLevel(std::trunc(ZoomLevel()));
  EndUpdate();
}

void TvxCustomMapControl::ZoomToGeoRect(const TvxMapControlGeoRect& ARect, double APaddingFactor)
{
  TvxMapLayer* Base = BaseLayer();
  if (!Base)
    return;
  const TvxPointDouble TopLeft = Base->GeoPointToMapUnit(ARect.TopLeft(), true);
  const TvxPointDouble BottomRight = Base->GeoPointToMapUnit(ARect.BottomRight(), true);
  ZoomToRegion({TopLeft.X, TopLeft.Y, BottomRight.X - TopLeft.X, BottomRight.Y - TopLeft.Y}, APaddingFactor);
}

void TvxCustomMapControl::ZoomToFitItems(const TvxMapItemList& AItems, double APaddingFactor)
{
  bool Found = false;
  TvxRectDouble Bounds;
  for (IvxMapItem* Item : AItems)
  {
    if (!Item->ItemVisible() || !Item->ItemLayer() || !Item->ItemLayer()->IsActuallyVisible())
      continue;
    const TvxRectDouble R = Item->ItemMapBounds();
    Bounds = Found ? vxUnionRectDouble(Bounds, R) : R;
    Found = true;
  }
  if (Found)
    ZoomToRegion(Bounds, APaddingFactor);
}

void TvxCustomMapControl::ZoomToFitLayerItems(const QList<TvxMapLayer*>& ALayers, double APaddingFactor)
{
  TvxMapItemList Items;
  for (TvxMapLayer* Layer : ALayers)
    if (Layer && Layer->IsActuallyVisible())
      Layer->GetItems(Items);
  ZoomToFitItems(Items, APaddingFactor);
}

void TvxCustomMapControl::CalculateZoomAndCenterPointForRegion(const TvxRectDouble& AMapRect, double APaddingFactor,
                                                               double& AZoomLevel,
                                                               TvxMapControlGeoPoint& ACenterPoint) const
{
  AZoomLevel = ZoomLevel();
  ACenterPoint = ActualCenterPoint();
  TvxMapLayer* Base = BaseLayer();
  if (!Base || !(APaddingFactor >= 0 && APaddingFactor < 1))
    return;
  double Delta = 0;
  const QSize Pixels = Base->GetViewportInPixels();
  if (!AMapRect.IsEmpty() && !Pixels.isEmpty())
  {
    const TvxPointDouble TopLeft = Base->MapUnitToScreenPoint(AMapRect.TopLeft());
    const TvxPointDouble BottomRight = Base->MapUnitToScreenPoint(AMapRect.BottomRight());
    const double W = BottomRight.X - TopLeft.X;
    const double H = BottomRight.Y - TopLeft.Y;
    if (W / Pixels.width() < H / Pixels.height())
      Delta = std::log2(Pixels.height() * (1 - APaddingFactor) / H);
    else
      Delta = std::log2(Pixels.width() * (1 - APaddingFactor) / W);
    if (!std::isfinite(Delta))
      Delta = 0;
  }
  const TvxPointDouble Middle{AMapRect.Left + AMapRect.Width / 2, AMapRect.Top + AMapRect.Height / 2};
  ACenterPoint = Base->ScreenPointToGeoPoint(Base->MapUnitToScreenPoint(Middle));
  AZoomLevel = ZoomLevel() + Delta;
}

void TvxCustomMapControl::ZoomToRegion(const TvxRectDouble& AMapRect, double APaddingFactor)
{
  double Level;
  TvxMapControlGeoPoint Center;
  CalculateZoomAndCenterPointForRegion(AMapRect, APaddingFactor, Level, Center);
  DoSetCenterPoint(Center, false);
  SetZoomLevel(Level);
}

void TvxCustomMapControl::ZoomToRegion(const QRect& AScreenRect)
{
  TvxMapLayer* Base = BaseLayer();
  if (AScreenRect.isEmpty() || !Base)
    return;
  const TvxPointDouble TopLeft = Base->ScreenPointToMapUnit({double(AScreenRect.left()), double(AScreenRect.top())});
  const TvxPointDouble BottomRight = Base->ScreenPointToMapUnit(
    {double(AScreenRect.x() + AScreenRect.width()), double(AScreenRect.y() + AScreenRect.height())});
  double Level;
  TvxMapControlGeoPoint Center;
  CalculateZoomAndCenterPointForRegion(
    {TopLeft.X, TopLeft.Y, BottomRight.X - TopLeft.X, BottomRight.Y - TopLeft.Y}, 0, Level, Center);
  DoSetCenterPoint(Center, true);
  SetZoomLevel(std::trunc(Level));
}

void TvxCustomMapControl::ScrollMap(double ADX, double ADY)
{
  TvxMapLayer* Base = BaseLayer();
  if (!Base)
    return;
  CheckViewPort();
  DoSetCenterPoint(Base->Move(ActualCenterPoint(), {ADX, ADY}), true);
}

TvxMapControlGeoPoint TvxCustomMapControl::ScreenPointToGeoPoint(const TvxPointDouble& APoint) const
{
  const TvxMapLayer* Base = BaseLayer();
  return Base ? Base->ScreenPointToGeoPoint(APoint) : TvxMapControlGeoPoint();
}

double TvxCustomMapControl::GetKilometersScale(const TvxMapControlGeoPoint& ACenterPoint,
                                               double AScreenDistance) const
{
  const TvxMapLayer* Base = BaseLayer();
  return Base ? Base->GetKilometersScale(ACenterPoint, AScreenDistance) : 0;
}

void TvxCustomMapControl::DoSetCenterPoint(const TvxMapControlGeoPoint& AValue, bool ACheckAllow)
{
  if (!IsFinite(AValue) || AValue.IsEqual(ActualCenterPoint()))
    return;
  if (!ACheckAllow)
  {
    FCenterPoint->SetGeoPoint(AValue);
    return;
  }
  TvxMapControlGeoPoint NewCenter = AValue;
  bool Allow = true;
  if (OnCenterPointChanging)
    OnCenterPointChanging(this, NewCenter, Allow);
  if (!Allow || !IsFinite(NewCenter) || NewCenter.IsEqual(ActualCenterPoint()))
    return;
  FCenterPoint->SetGeoPoint(NewCenter);
  if (OnCenterPointChanged)
    OnCenterPointChanged(this);
}

void TvxCustomMapControl::CenterPointChanged()
{
  if (!IsFinite(FCenterPoint->GeoPoint()))
  {
    // A centre that is not a number would poison every layout after it.
    FCenterPoint->SetGeoPoint(TvxMapControlGeoPoint());
    return;
  }
  UpdateViewPort();
  Changed();
}

// Updates

void TvxCustomMapControl::BeginUpdate()
{
  ++FLockCount;
}

void TvxCustomMapControl::EndUpdate()
{
  // A bracket in which nothing changed costs no layout.
  if (FLockCount > 0 && --FLockCount == 0 && FIsViewInfoDirty)
    Changed();
}

bool TvxCustomMapControl::IsLocked() const
{
  return FLockCount > 0 || FLoading || FDestroying;
}

void TvxCustomMapControl::Changed()
{
  if (IsLocked() || !FViewInfo)
  {
    FIsViewInfoDirty = true;
    return;
  }
  FViewInfo->Calculate();
  update();
  FIsViewInfoDirty = false;
}

void TvxCustomMapControl::UpdateViewPort()
{
  if (FLoading || !FLayers)
    return;
  for (int I = 0; I < FLayers->Count(); ++I)
    if (FLayers->Items(I)->Visible())
      FLayers->Items(I)->UpdateViewport();
  FIsViewPortValid = true;
  // A new viewport is laid out, also when only the update's end asks.
  FIsViewInfoDirty = true;
}

void TvxCustomMapControl::CheckViewPort()
{
  if (!FIsViewPortValid)
    UpdateViewPort();
}

void TvxCustomMapControl::InvalidateRect(const QRect& ARect)
{
  update(ARect);
}

void TvxCustomMapControl::RepaintNow()
{
  repaint();
}

void TvxCustomMapControl::BeginLoading()
{
  FLoading = true;
  FLoadedZoomLevel = FZoomLevel;
}

void TvxCustomMapControl::EndLoading()
{
  if (!FLoading)
    return;
  FLoading = false;
  UpdateViewPort();
  SetZoomLevel(FLoadedZoomLevel);
  if (FIsViewInfoDirty)
    Changed();
}

void TvxCustomMapControl::SetColor(const QColor& AValue)
{
  if (FColor == AValue)
    return;
  FColor = AValue;
  Changed();
}

int TvxCustomMapControl::ScaleValue(int AValue) const
{
  return int(std::lround(AValue * FScaleFactor));
}

void TvxCustomMapControl::ChangeScale(int AM, int AD)
{
  if (AM == AD || AM <= 0 || AD <= 0)
    return;
  FScaleFactor = FScaleFactor * AM / AD;
  BeginUpdate();
  FNavigationPanel->ChangeScale(AM, AD);
  FLayers->ChangeScale(AM, AD);
  FViewInfo->ClearCache();
  EndUpdate();
}

void TvxCustomMapControl::CheckScaleFactor()
{
  // Qt's logical pixels already carry the device pixel ratio; the logical
  // DPI says how large the user wants the interface.
  const double NewFactor = logicalDpiX() / 96.0;
  const int M = int(std::lround(NewFactor * 96));
  const int D = int(std::lround(FScaleFactor * 96));
  if (M > 0 && D > 0 && M != D)
    ChangeScale(M, D);
}

// Selection

void TvxCustomMapControl::BeginSelection()
{
  ++FLockSelectionChangedEventCount;
}

void TvxCustomMapControl::EndSelection()
{
  if (FLockSelectionChangedEventCount > 0 && --FLockSelectionChangedEventCount == 0 && FSelectionChangedEventOccurs)
    SelectionChanged();
}

bool TvxCustomMapControl::DoSelectionChanging(IvxMapItem* AItem)
{
  bool Allow = true;
  if (OnSelectionChanging)
    OnSelectionChanging(this, AItem, Allow);
  return Allow;
}

void TvxCustomMapControl::SelectionChanged()
{
  if (FDestroying)
    return;
  if (FLockSelectionChangedEventCount > 0)
  {
    FSelectionChangedEventOccurs = true;
    return;
  }
  FSelectionChangedEventOccurs = false;
  if (OnSelectionChanged)
    OnSelectionChanged(this);
}

void TvxCustomMapControl::Select(IvxMapItem* AItem, Qt::KeyboardModifiers AShift, bool ACheckSelectMode)
{
  if (!AItem)
    return;
  if (ACheckSelectMode)
  {
    if (FOptionsBehavior->MapItemSelectMode() == mismNone)
      return;
    if (FOptionsBehavior->MapItemSelectMode() == mismSingle)
      AShift = Qt::NoModifier;
  }
  FMapItemLayerSelectionController->Select(AItem, AShift);
}

void TvxCustomMapControl::Deselect(IvxMapItem* AItem)
{
  if (FMapItemLayerSelectionController)
    FMapItemLayerSelectionController->Deselect(AItem);
}

void TvxCustomMapControl::MapItemDestroying(IvxMapItem* AItem)
{
  if (!FMapItemLayerSelectionController)
    return;
  Deselect(AItem);
  if (FMapItemLayerSelectionController->Remove(AItem))
    SelectionChanged();
}

void TvxCustomMapControl::ClearSelection()
{
  if (FMapItemLayerSelectionController)
    FMapItemLayerSelectionController->ClearSelection();
}

void TvxCustomMapControl::SelectMapItemsInRegion(const QRect& ARegion)
{
  BeginSelection();
  ClearSelection();
  for (int I = 0; I < FLayers->Count(); ++I)
  {
    TvxMapLayer* Layer = FLayers->Items(I);
    if (!Layer->IsItemLayer())
      continue;
    TvxMapItemList Items;
    Layer->GetItemsInRegion(ARegion, Items);
    for (IvxMapItem* Item : std::as_const(Items))
      Select(Item, Qt::ControlModifier, true);
  }
  EndSelection();
}

// Painting and input

void TvxCustomMapControl::paintEvent(QPaintEvent*)
{
  if (FIsViewInfoDirty && !IsLocked())
  {
    FViewInfo->Calculate();
    FIsViewInfoDirty = false;
  }
  QPainter Canvas(this);
  Canvas.setRenderHint(QPainter::Antialiasing);
  Canvas.setRenderHint(QPainter::SmoothPixmapTransform);
  FViewInfo->Paint(Canvas);
}

void TvxCustomMapControl::resizeEvent(QResizeEvent* AEvent)
{
  QWidget::resizeEvent(AEvent);
  UpdateViewPort();
  Changed();
}

QPoint TvxCustomMapControl::MousePos() const
{
  // The last position the mouse events told is exact; the system's cursor
  // serves when the mouse is elsewhere.
  return FHasMousePos ? FMousePos : mapFromGlobal(QCursor::pos());
}

bool TvxCustomMapControl::IsMouseOver() const
{
  return FHasMousePos || (isVisible() && underMouse());
}

void TvxCustomMapControl::RememberMousePos(const QPoint& APoint)
{
  FMousePos = APoint;
  FHasMousePos = true;
}

void TvxCustomMapControl::mousePressEvent(QMouseEvent* AEvent)
{
  FInertiaController->StopInertia();
  FShift = AEvent->modifiers();
  const QPoint P = AEvent->position().toPoint();
  RememberMousePos(P);
  if (AEvent->button() == Qt::LeftButton)
  {
    FMouseDown = true;
    FDragRefused = false;
    FMouseDownPos = P;
  }
  FController->DoMouseDown(AEvent->button(), P);
  if (OnMouseDown)
    OnMouseDown(this, AEvent->button(), AEvent->modifiers(), P.x(), P.y());
}

void TvxCustomMapControl::mouseMoveEvent(QMouseEvent* AEvent)
{
  const QPoint P = AEvent->position().toPoint();
  RememberMousePos(P);
  if (OnMouseMove)
    OnMouseMove(this, AEvent->modifiers(), P.x(), P.y());
  if (FDragMode != 0)
  {
    bool Accepted = false;
    DragAndDrop(P, Accepted);
    return;
  }
  if (FMouseDown && (AEvent->buttons() & Qt::LeftButton) && !FDragRefused &&
      (P - FMouseDownPos).manhattanLength() >= QApplication::startDragDistance())
  {
    if (StartDragAndDrop(FMouseDownPos))
    {
      bool Accepted = false;
      DragAndDrop(P, Accepted);
      return;
    }
    FDragRefused = true;
  }
  FController->DoMouseMove(P);
}

void TvxCustomMapControl::mouseReleaseEvent(QMouseEvent* AEvent)
{
  const QPoint P = AEvent->position().toPoint();
  RememberMousePos(P);
  if (AEvent->button() == Qt::LeftButton)
  {
    FMouseDown = false;
    if (FDragMode != 0)
      EndDragAndDrop(true);
  }
  FController->DoMouseUp(AEvent->button(), P);
  if (OnMouseUp)
    OnMouseUp(this, AEvent->button(), AEvent->modifiers(), P.x(), P.y());
}

void TvxCustomMapControl::mouseDoubleClickEvent(QMouseEvent* AEvent)
{
  mousePressEvent(AEvent);
  if (OnDblClick)
    OnDblClick(this);
}

bool TvxCustomMapControl::StartDragAndDrop(const QPoint& APoint)
{
  HitTest().Calculate(APoint);
  if (HitTest().HitAtNavigationPanel() || !BaseLayer())
    return false;
  const bool Shift = FShift & Qt::ShiftModifier;
  const bool Ctrl = FShift & Qt::ControlModifier;
  if (FOptionsBehavior->MapItemSelectMode() == mismExtended && Shift && !Ctrl)
    FDragMode = 2;
  else if (FOptionsBehavior->Zooming() && Shift && Ctrl)
    FDragMode = 3;
  else if (FOptionsBehavior->Scrolling())
  {
    FDragMode = 1;
    FStartCenterPoint = ActualCenterPoint();
    if (FOptionsBehavior->InertialScrolling())
      FInertiaController->StartTrackSpeed();
  }
  else
    return false;
  // What was pressed is not clicked once the mouse drags the map.
  FController->SetPressedElement(nullptr);
  FController->HideHint();
  setCursor(Qt::SizeAllCursor);
  return true;
}

void TvxCustomMapControl::DragAndDrop(const QPoint& APoint, bool& AAccepted)
{
  AAccepted = (FDragMode == 1 && FOptionsBehavior->Scrolling()) || FDragMode == 2 || FDragMode == 3;
  const QPoint Offset = FMouseDownPos - APoint;
  if (FDragMode == 1)
  {
    if (TvxMapLayer* Base = BaseLayer())
    {
      // Always measured from the start, so that errors do not add up.
      DoSetCenterPoint(Base->Move(FStartCenterPoint, {double(Offset.x()), double(Offset.y())}), true);
      RepaintNow();
      if (FOptionsBehavior->InertialScrolling())
        FInertiaController->CheckSpeedValue();
    }
  }
  else if (FDragMode == 2 || FDragMode == 3)
  {
    const QRect Old = FSelectedRegionBounds;
    // From corner to corner, right and bottom excluded: a drag of 200 pixels
    // is a region 200 wide.
    const QRect Region(std::min(FMouseDownPos.x(), APoint.x()), std::min(FMouseDownPos.y(), APoint.y()),
                       std::abs(APoint.x() - FMouseDownPos.x()), std::abs(APoint.y() - FMouseDownPos.y()));
    FSelectedRegionBounds = Region.intersected(ClientBounds());
    InvalidateRect(Old.adjusted(-1, -1, 1, 1));
    InvalidateRect(FSelectedRegionBounds.adjusted(-1, -1, 1, 1));
  }
}

void TvxCustomMapControl::EndDragAndDrop(bool)
{
  const QRect Region = FSelectedRegionBounds;
  const int Mode = FDragMode;
  FSelectedRegionBounds = QRect();
  FDragMode = 0;
  unsetCursor();
  InvalidateRect(Region.adjusted(-1, -1, 1, 1));
  if (Mode == 2)
    SelectMapItemsInRegion(Region);
  else if (Mode == 3)
    ZoomToRegion(Region);
  else if (BaseLayer() && FOptionsBehavior->InertialScrolling())
    FInertiaController->StopTrackSpeed();
  else
    // Inertia switched off during the pan: the speed tracking ends too.
    FInertiaController->StopInertia();
}

void TvxCustomMapControl::wheelEvent(QWheelEvent* AEvent)
{
  const int Delta = AEvent->angleDelta().y();
  if (Delta == 0 || !FOptionsBehavior->Zooming() || FDragMode != 0)
  {
    QWidget::wheelEvent(AEvent);
    return;
  }
  AEvent->accept();
  // A float division: a fine-grained wheel zooms by fractions.
  const double Level = Delta / 120.0 + ZoomLevel();
  const QPointF P = AEvent->position();
  Zoom(Level, {P.x(), P.y()}, CanAnimate(), true);
}

void TvxCustomMapControl::ScrollByArrowKeys()
{
  if (FArrowKeys.contains(Qt::Key_Left))
    ScrollMap(-50, 0);
  if (FArrowKeys.contains(Qt::Key_Right))
    ScrollMap(50, 0);
  if (FArrowKeys.contains(Qt::Key_Up))
    ScrollMap(0, -50);
  if (FArrowKeys.contains(Qt::Key_Down))
    ScrollMap(0, 50);
}

void TvxCustomMapControl::keyPressEvent(QKeyEvent* AEvent)
{
  const int Key = AEvent->key();
  if (FDragMode != 0 && (Key == Qt::Key_Shift || Key == Qt::Key_Control))
  {
    // A modifier pressed during a drag does not end it.
    AEvent->accept();
    return;
  }
  switch (Key)
  {
  case Qt::Key_Left:
  case Qt::Key_Right:
  case Qt::Key_Up:
  case Qt::Key_Down:
    if (FOptionsBehavior->Scrolling())
    {
      FArrowKeys.insert(Key);
      ScrollByArrowKeys();
      AEvent->accept();
      return;
    }
    break;
  case Qt::Key_Plus:
  case Qt::Key_Minus:
    if ((AEvent->modifiers() & Qt::KeypadModifier) && FOptionsBehavior->Zooming())
    {
      if (Key == Qt::Key_Plus)
        ZoomIn();
      else
        ZoomOut();
      AEvent->accept();
      return;
    }
    break;
  default:
    break;
  }
  QWidget::keyPressEvent(AEvent);
}

void TvxCustomMapControl::keyReleaseEvent(QKeyEvent* AEvent)
{
  if (!AEvent->isAutoRepeat())
    FArrowKeys.remove(AEvent->key());
  if (FDragMode != 0 && (AEvent->key() == Qt::Key_Shift || AEvent->key() == Qt::Key_Control))
  {
    AEvent->accept();
    return;
  }
  QWidget::keyReleaseEvent(AEvent);
}

void TvxCustomMapControl::enterEvent(QEnterEvent* AEvent)
{
  QWidget::enterEvent(AEvent);
  if (OnMouseEnter)
    OnMouseEnter(this);
}

void TvxCustomMapControl::leaveEvent(QEvent* AEvent)
{
  if (FDragMode == 0)
    FHasMousePos = false;
  FController->DoMouseLeave();
  QWidget::leaveEvent(AEvent);
  if (OnMouseLeave)
    OnMouseLeave(this);
}

void TvxCustomMapControl::showEvent(QShowEvent* AEvent)
{
  QWidget::showEvent(AEvent);
  if (QWindow* Window = window()->windowHandle())
    connect(Window, &QWindow::screenChanged, this, &TvxCustomMapControl::CheckScaleFactor, Qt::UniqueConnection);
  CheckScaleFactor();
}

void TvxCustomMapControl::changeEvent(QEvent* AEvent)
{
  QWidget::changeEvent(AEvent);
  if (AEvent->type() == QEvent::FontChange || AEvent->type() == QEvent::StyleChange)
    Changed();
}
