#include "vxMapControlControllers.h"

#include "ClockU.h"
#include "vxMapControl.h"

#include <QThread>

#include <cmath>

namespace
{
qint64 NowMSecs()
{
  return Clock::Now().toMSecsSinceEpoch();
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
