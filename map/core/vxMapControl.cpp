#include "vxMapControl.h"

#include "ClockU.h"

#include <QApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QThread>
#include <QWheelEvent>
#include <QWindow>

#include <cmath>

namespace
{
qint64 NowMSecs()
{
  return Clock::Now().toMSecsSinceEpoch();
}

bool IsFinite(const TvxMapControlGeoPoint& APoint)
{
  return std::isfinite(APoint.Latitude) && std::isfinite(APoint.Longitude);
}
}

// Options

void TvxMapControlOptionsBehavior::SetMapItemSelectMode(TvxMapItemSelectMode AValue)
{
  if (FMapItemSelectMode == AValue)
    return;
  FMapItemSelectMode = AValue;
  FMapControl->ClearSelection();
}

void TvxMapControlOptionsBehavior::SetScrolling(bool AValue)
{
  if (FScrolling == AValue)
    return;
  FScrolling = AValue;
  FMapControl->Changed();
}

void TvxMapControlOptionsBehavior::SetZooming(bool AValue)
{
  if (FZooming == AValue)
    return;
  FZooming = AValue;
  FMapControl->Changed();
}

// Zoom animation

TvxMapControlAnimationController::TvxMapControlAnimationController(TvxCustomMapControl* AMapControl)
  : FMapControl(AMapControl)
{
}

TvxMapControlAnimationController::~TvxMapControlAnimationController()
{
  StopZoomAnimation();
}

bool TvxMapControlAnimationController::IsAnimating() const
{
  return FZoomAnimation && FZoomAnimation->state() == QAbstractAnimation::Running;
}

void TvxMapControlAnimationController::Zoom(double ANewLevel, const TvxPointDouble& AAnchorPoint, bool AAnimated,
                                            bool AIsAsyncMode)
{
  FNewLevel = ANewLevel;
  FAnchorPoint = AAnchorPoint;
  FAnimated = AAnimated;
  FIsAsyncMode = AIsAsyncMode;
  if (FAnimated)
    StartZoomAnimation();
  else
  {
    StopZoomAnimation();
    DoZoom(FNewLevel);
  }
}

void TvxMapControlAnimationController::StopZoomAnimation()
{
  if (!FZoomAnimation)
    return;
  // Abandoned where it stood: no end, no event.
  FZoomAnimation->disconnect();
  FZoomAnimation->stop();
  FZoomAnimation.reset();
}

void TvxMapControlAnimationController::StartZoomAnimation()
{
  FZoomAnimationAnchorPoint = FAnchorPoint;
  FZoomAnimationStartLevel = FZoomLevel;
  FZoomPositionScale = (FNewLevel - FZoomLevel) / ZoomAnimationLength;
  // The new motion continues from the level shown now, which makes repeated
  // wheel clicks feel continuous.
  StopZoomAnimation();

  if (!FIsAsyncMode)
  {
    QElapsedTimer Elapsed;
    Elapsed.start();
    for (;;)
    {
      const double Position =
        std::min<double>(ZoomAnimationLength, Elapsed.elapsed() * double(ZoomAnimationLength) / ZoomAnimationDuration);
      DoZoomAnimation(Position);
      if (Position >= ZoomAnimationLength)
        break;
      // Painting is done by DoZoom; a short rest keeps the loop from spinning.
      QThread::msleep(5);
    }
    return;
  }

  FZoomAnimation = std::make_unique<QVariantAnimation>();
  FZoomAnimation->setDuration(ZoomAnimationDuration);
  FZoomAnimation->setStartValue(0.0);
  FZoomAnimation->setEndValue(double(ZoomAnimationLength));
  FZoomAnimation->setEasingCurve(QEasingCurve::Linear);
  QObject::connect(FZoomAnimation.get(), &QVariantAnimation::valueChanged, FZoomAnimation.get(),
                   [this](const QVariant& AValue) { DoZoomAnimation(AValue.toDouble()); });
  QObject::connect(FZoomAnimation.get(), &QAbstractAnimation::finished, FZoomAnimation.get(), [this] {
    // The last step may have been skipped by the timer.
    DoZoomAnimation(ZoomAnimationLength);
    FMapControl->DoZoomLevelChanged();
  });
  FZoomAnimation->start();
}

void TvxMapControlAnimationController::DoZoomAnimation(double APosition)
{
  // The end lands on the target exactly: a level a hair below a whole one
  // would truncate a whole level lower in a later zoom to a region.
  if (APosition >= ZoomAnimationLength)
    DoZoom(FNewLevel);
  else
    DoZoom(FZoomAnimationStartLevel + APosition * FZoomPositionScale);
}

void TvxMapControlAnimationController::DoZoom(double ALevel)
{
  const double Level = FMapControl->CheckZoomLevel(ALevel);
  if (Level == FZoomLevel)
    return;
  FMapControl->BeginUpdate();
  TvxMapControlGeoPoint NewCenter = FMapControl->ActualCenterPoint();
  if (TvxMapLayer* Base = FMapControl->BaseLayer())
  {
    FMapControl->CheckViewPort();
    NewCenter = Base->MoveAndZoom(NewCenter, FAnchorPoint, FZoomLevel, Level);
  }
  FZoomLevel = Level;
  FMapControl->InvalidateViewPort();
  FMapControl->DoSetCenterPoint(NewCenter, true);
  FMapControl->CheckViewPort();
  FMapControl->EndUpdate();
  if (!FIsAsyncMode && !FMapControl->IsLocked())
    FMapControl->RepaintNow();
}

// Inertial scrolling

void TvxMapControlInertialScrollingController::TInertiaCalculator::AddItem(const TvxPointDouble& AValue)
{
  FItems.append(AValue);
  while (FItems.size() > FCapacity)
    FItems.removeFirst();
}

TvxPointDouble TvxMapControlInertialScrollingController::TInertiaCalculator::GetValue() const
{
  if (FItems.isEmpty())
    return vxNullPointDouble;
  TvxPointDouble Sum;
  for (const TvxPointDouble& Item : FItems)
  {
    Sum.X += Item.X;
    Sum.Y += Item.Y;
  }
  return {Sum.X / FItems.size(), Sum.Y / FItems.size()};
}

TvxMapControlInertialScrollingController::TvxMapControlInertialScrollingController(TvxCustomMapControl* AMapControl)
  : FMapControl(AMapControl)
{
  FTimer.setInterval(TimerInterval);
  FTimer.setSingleShot(false);
  QObject::connect(&FTimer, &QTimer::timeout, [this] {
    if (FInertiaRunning)
      InertiaTimer();
    else
      TrackSpeedTimer();
  });
}

void TvxMapControlInertialScrollingController::StartTrackSpeed()
{
  FTimer.stop();
  FInertiaRunning = false;
  FInertiaCalculator.Clear();
  FSpeedCalculator.Prepare(NowMSecs(), FMapControl->MousePos());
  FTimer.start();
}

void TvxMapControlInertialScrollingController::CheckSpeedValue()
{
  const qint64 Now = NowMSecs();
  const double Seconds = (Now - FSpeedCalculator.FLastTime) / 1000.0;
  if (Seconds > 0)
  {
    const QPoint Pos = FMapControl->MousePos();
    const QPoint Delta = Pos - FSpeedCalculator.FLastPos;
    FInertiaCalculator.AddItem({Delta.x() / Seconds, Delta.y() / Seconds});
    FSpeedCalculator.FLastPos = Pos;
  }
  FSpeedCalculator.FLastTime = Now;
}

void TvxMapControlInertialScrollingController::TrackSpeedTimer()
{
  FTimer.stop();
  CheckSpeedValue();
  FTimer.start();
}

void TvxMapControlInertialScrollingController::StopTrackSpeed()
{
  FTimer.stop();
  FSpeed = FInertiaCalculator.GetValue();
  const double S = std::hypot(FSpeed.X, FSpeed.Y);
  if (S > 0 && std::isfinite(S))
  {
    FDeceleration = {-DecelerationRate * FSpeed.X / S, -DecelerationRate * FSpeed.Y / S};
    FInertiaTime = S / DecelerationRate;
    FStartCenterPoint = FMapControl->ActualCenterPoint();
    FStartInertiaTime = NowMSecs();
    FInertiaRunning = true;
    FTimer.start();
  }
}

void TvxMapControlInertialScrollingController::InertiaTimer()
{
  FTimer.stop();
  const double T = (NowMSecs() - FStartInertiaTime) / 1000.0;
  TvxMapLayer* Base = FMapControl->BaseLayer();
  if (T < FInertiaTime && Base)
  {
    const TvxPointDouble Offset{-std::round(T * T * FDeceleration.X / 2 + FSpeed.X * T),
                                -std::round(T * T * FDeceleration.Y / 2 + FSpeed.Y * T)};
    FMapControl->DoSetCenterPoint(Base->Move(FStartCenterPoint, Offset), true);
    FTimer.start();
  }
  else
    FInertiaRunning = false;
}

void TvxMapControlInertialScrollingController::StopInertia()
{
  FTimer.stop();
  FInertiaRunning = false;
}

// Selection

void TvxMapControlSelectionController::Select(IvxMapItem* AItem, Qt::KeyboardModifiers AShift)
{
  if (AShift & Qt::ControlModifier)
  {
    if (IsSelected(AItem))
      Deselect(AItem);
    else
      AddSelection(AItem);
  }
  else if (!IsSelected(AItem))
  {
    FMapControl->BeginSelection();
    ClearSelection();
    AddSelection(AItem);
    FMapControl->EndSelection();
  }
}

void TvxMapControlSelectionController::AddSelection(IvxMapItem* AItem)
{
  if (!FMapControl->DoSelectionChanging(AItem))
    return;
  if (TvxMapControlElementViewInfo* ViewInfo = AItem->ItemViewInfo())
    ViewInfo->SetState(mcesSelected);
  FSelection.append(AItem);
  FMapControl->SelectionChanged();
}

void TvxMapControlSelectionController::Deselect(IvxMapItem* AItem)
{
  if (!IsSelected(AItem))
    return;
  if (!FMapControl->DoSelectionChanging(AItem))
    return;
  if (TvxMapControlElementViewInfo* ViewInfo = AItem->ItemViewInfo())
    ViewInfo->SetState(mcesNormal);
  FSelection.removeOne(AItem);
  FMapControl->SelectionChanged();
}

void TvxMapControlSelectionController::ClearSelection()
{
  FMapControl->BeginSelection();
  for (qsizetype I = FSelection.size() - 1; I >= 0; --I)
    if (I < FSelection.size())
      Deselect(FSelection.at(I));
  FMapControl->EndSelection();
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
  const bool Animated = AAnimated && !IsLocked();
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
    if (!Found)
      Bounds = R;
    else
    {
      const double Left = std::min(Bounds.Left, R.Left);
      const double Top = std::min(Bounds.Top, R.Top);
      const double Right = std::max(Bounds.Right(), R.Right());
      const double Bottom = std::max(Bounds.Bottom(), R.Bottom());
      Bounds = {Left, Top, Right - Left, Bottom - Top};
    }
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
  if (FLockCount > 0 && --FLockCount == 0)
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
}

void TvxCustomMapControl::mouseMoveEvent(QMouseEvent* AEvent)
{
  const QPoint P = AEvent->position().toPoint();
  RememberMousePos(P);
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
}

void TvxCustomMapControl::mouseDoubleClickEvent(QMouseEvent* AEvent)
{
  mousePressEvent(AEvent);
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

void TvxCustomMapControl::leaveEvent(QEvent* AEvent)
{
  if (FDragMode == 0)
    FHasMousePos = false;
  FController->DoMouseLeave();
  QWidget::leaveEvent(AEvent);
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
