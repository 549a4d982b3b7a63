#pragma once

// The laid-out elements of the map control: every drawable thing keeps its
// computed size, bounds, state and visible children in one of these.

#include "vxMapControlTypes.h"

#include <QList>
#include <QPoint>
#include <QRect>
#include <QSize>

class TvxCustomMapControl;
class TvxMapControlController;
class TvxMapControlHitTest;
class TvxMapControlPainter;
class TvxMapControlViewInfo;

// A set of element states, one bit per state.
using TvxMapControlElementStates = unsigned;

constexpr TvxMapControlElementStates vxElementStateBit(TvxMapControlElementState AState)
{
  return 1u << unsigned(AState);
}

class TvxMapControlElementViewInfo
{
public:
  TvxMapControlElementViewInfo() = default;
  TvxMapControlElementViewInfo(const TvxMapControlElementViewInfo&) = delete;
  TvxMapControlElementViewInfo& operator=(const TvxMapControlElementViewInfo&) = delete;
  virtual ~TvxMapControlElementViewInfo();

  const QRect& Bounds() const { return FBounds; }
  // Places the element; CalculateBounds then lays out what is inside.
  void SetBounds(const QRect& ABounds) { FBounds = ABounds; }
  const QSize& Size() const { return FSize; }
  TvxMapControlElementState State() const { return GetState(); }
  // Forbidden and unchanged states are ignored; anything else repaints.
  void SetState(TvxMapControlElementState AValue);
  const QList<TvxMapControlElementViewInfo*>& VisibleElements() const { return FVisibleElements; }
  TvxMapControlElementViewInfo* Parent() const { return FParent; }
  bool IsVisible() const { return GetIsVisible(); }

  // The controller told when this element goes, so that no hot, pressed or
  // hint reference outlives it.
  void SetController(TvxMapControlController* AController) { FController = AController; }
  TvxMapControlController* Controller() const { return FController; }

  virtual void CalculateBounds();
  virtual void CalculateSize();
  virtual void ClearCache();
  virtual void Click() {}
  virtual QString GetHint() const { return {}; }
  virtual bool GetHitTest(TvxMapControlHitTest& AHitTest);
  virtual QString GetScreenTip() const { return {}; }
  virtual void Initialize();
  virtual bool IsElementVisible() const { return GetIsVisible(); }
  virtual void MouseDown(Qt::MouseButton AButton, const QPoint& APoint);
  virtual void MouseMove(const QPoint& APoint);
  virtual void MouseUp(Qt::MouseButton AButton, const QPoint& APoint);
  virtual void Paint(TvxMapControlPainter& APainter);
  virtual void Invalidate() {}
  virtual int GetHitTestIndex() const { return 0; }
  virtual bool PtInElement(const QPoint& APoint) const { return FBounds.contains(APoint); }

protected:
  virtual void AddVisibleElements() {}
  virtual QSize DoCalculateSize() { return {}; }
  virtual void DoElementDestroying();
  virtual TvxMapControlElementStates GetForbiddenStates() const { return 0; }
  virtual bool GetIsVisible() const { return true; }
  virtual TvxMapControlElementState GetState() const { return FState; }
  virtual void InitializeVisibleElements();
  virtual bool IsCapture() const { return false; }
  virtual void SetHitTest(TvxMapControlHitTest& AHitTest);

  void AddVisibleElement(TvxMapControlElementViewInfo* AElement);
  void RemoveVisibleElement(TvxMapControlElementViewInfo* AElement);
  void ClearVisibleElements();

  QRect FBounds;
  QSize FSize;
  TvxMapControlElementState FState = mcesNormal;
  QList<TvxMapControlElementViewInfo*> FVisibleElements;

private:
  TvxMapControlElementViewInfo* FParent = nullptr;
  TvxMapControlController* FController = nullptr;
};

// An element of the control's own interface (the panel and its parts).
class TvxMapControlUIElementViewInfo : public TvxMapControlElementViewInfo
{
public:
  explicit TvxMapControlUIElementViewInfo(TvxMapControlViewInfo* AViewInfo);

  TvxMapControlViewInfo* ViewInfo() const { return FViewInfo; }
  TvxCustomMapControl* MapControl() const;
  TvxMapControlPainter& Painter() const;
  double ScaleFactor() const;
  // A length at 96 DPI, in client pixels.
  int ScaleValue(int AValue) const;

  void Invalidate() override;

protected:
  bool IsCapture() const override;

  TvxMapControlViewInfo* FViewInfo;
};
