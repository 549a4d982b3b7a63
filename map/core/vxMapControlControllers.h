#pragma once

// What drives the map widget besides its layout: the options, the zoom
// animation, inertial scrolling and the selection of map items.

#include "vxMapControlTypes.h"
#include "vxMapLayer.h"

#include <QElapsedTimer>
#include <QList>
#include <QPoint>
#include <QTimer>
#include <QVariantAnimation>

#include <memory>

class TvxCustomMapControl;

enum TvxMapItemSelectMode
{
  mismNone,
  mismSingle,
  mismMultiple,
  mismExtended
};

class TvxMapControlOptionsBehavior
{
public:
  explicit TvxMapControlOptionsBehavior(TvxCustomMapControl* AMapControl) : FMapControl(AMapControl) {}

  bool Animation() const { return FAnimation; }
  void SetAnimation(bool AValue) { FAnimation = AValue; }
  bool InertialScrolling() const { return FInertialScrolling; }
  void SetInertialScrolling(bool AValue) { FInertialScrolling = AValue; }
  TvxMapItemSelectMode MapItemSelectMode() const { return FMapItemSelectMode; }
  void SetMapItemSelectMode(TvxMapItemSelectMode AValue);
  bool Scrolling() const { return FScrolling; }
  void SetScrolling(bool AValue);
  bool Zooming() const { return FZooming; }
  void SetZooming(bool AValue);

private:
  TvxCustomMapControl* FMapControl;
  bool FAnimation = true;
  bool FInertialScrolling = true;
  TvxMapItemSelectMode FMapItemSelectMode = mismExtended;
  bool FScrolling = true;
  bool FZooming = true;
};

class TvxMapControlAnimationController
{
public:
  static constexpr int ZoomAnimationDuration = 500;
  static constexpr int ZoomAnimationLength = 100;

  explicit TvxMapControlAnimationController(TvxCustomMapControl* AMapControl);
  ~TvxMapControlAnimationController();

  // The level now shown, fractional while an animation runs.
  double ZoomLevel() const { return FZoomLevel; }
  bool IsAnimating() const;
  double ZoomAnimationStartLevel() const { return FZoomAnimationStartLevel; }
  double NewLevel() const { return FNewLevel; }

  void Zoom(double ANewLevel, const TvxPointDouble& AAnchorPoint, bool AAnimated, bool AIsAsyncMode);
  void DoZoom(double ALevel);
  void DoZoomAnimation(double APosition);
  void StopZoomAnimation();

private:
  void StartZoomAnimation();

  TvxCustomMapControl* FMapControl;
  bool FIsAsyncMode = false;
  std::unique_ptr<QVariantAnimation> FZoomAnimation;
  TvxPointDouble FZoomAnimationAnchorPoint;
  double FZoomAnimationStartLevel = 1.0;
  double FZoomLevel = 1.0;
  double FZoomPositionScale = 0;
  double FNewLevel = 1.0;
  TvxPointDouble FAnchorPoint;
  bool FAnimated = false;
};

class TvxMapControlInertialScrollingController
{
public:
  static constexpr int TimerInterval = 10;
  static constexpr double DecelerationRate = 1500;

  // The mean of the last five speed samples.
  class TInertiaCalculator
  {
  public:
    void AddItem(const TvxPointDouble& AValue);
    void Clear() { FItems.clear(); }
    TvxPointDouble GetValue() const;
    int Count() const { return int(FItems.size()); }

  private:
    int FCapacity = 5;
    QList<TvxPointDouble> FItems;
  };

  class TSpeedCalculator
  {
  public:
    void Prepare(qint64 ATime, const QPoint& APos)
    {
      FLastTime = ATime;
      FLastPos = APos;
    }
    QPoint FLastPos;
    qint64 FLastTime = 0;
  };

  explicit TvxMapControlInertialScrollingController(TvxCustomMapControl* AMapControl);

  void StartTrackSpeed();
  void CheckSpeedValue();
  void StopTrackSpeed();
  void StopInertia();
  bool IsActive() const { return FTimer.isActive(); }
  bool IsInertiaRunning() const { return FInertiaRunning; }
  const TvxPointDouble& Speed() const { return FSpeed; }
  const TvxPointDouble& Deceleration() const { return FDeceleration; }
  double InertiaTime() const { return FInertiaTime; }
  const TInertiaCalculator& InertiaCalculator() const { return FInertiaCalculator; }
  // The two ticks of the one timer; public so that a test can step them.
  void TrackSpeedTimer();
  void InertiaTimer();

private:
  TvxCustomMapControl* FMapControl;
  TvxPointDouble FDeceleration;
  TInertiaCalculator FInertiaCalculator;
  double FInertiaTime = 0;
  TvxPointDouble FSpeed;
  TSpeedCalculator FSpeedCalculator;
  TvxMapControlGeoPoint FStartCenterPoint;
  qint64 FStartInertiaTime = 0;
  QTimer FTimer;
  bool FInertiaRunning = false;
};

class TvxMapControlSelectionController
{
public:
  explicit TvxMapControlSelectionController(TvxCustomMapControl* AMapControl) : FMapControl(AMapControl) {}

  const TvxMapItemList& Selection() const { return FSelection; }
  bool IsSelected(IvxMapItem* AItem) const { return FSelection.contains(AItem); }
  void Select(IvxMapItem* AItem, Qt::KeyboardModifiers AShift);
  void AddSelection(IvxMapItem* AItem);
  void Deselect(IvxMapItem* AItem);
  // Takes the item out without asking; true if it was selected.
  bool Remove(IvxMapItem* AItem) { return FSelection.removeOne(AItem); }
  void ClearSelection();

private:
  TvxCustomMapControl* FMapControl;
  TvxMapItemList FSelection;
};
