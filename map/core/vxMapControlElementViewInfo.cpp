#include "vxMapControlElementViewInfo.h"

#include "vxMapControl.h"
#include "vxMapControlViewInfo.h"

#include <cmath>

TvxMapControlElementViewInfo::~TvxMapControlElementViewInfo()
{
  DoElementDestroying();
  // Neither the parent's list nor the children may keep a dangling link.
  if (FParent)
    FParent->FVisibleElements.removeOne(this);
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->FParent = nullptr;
}

void TvxMapControlElementViewInfo::DoElementDestroying()
{
  if (FController)
    FController->ElementDestroying(this);
}

void TvxMapControlElementViewInfo::SetState(TvxMapControlElementState AValue)
{
  if (GetForbiddenStates() & vxElementStateBit(AValue))
    return;
  if (FState == AValue)
    return;
  FState = AValue;
  Invalidate();
}

void TvxMapControlElementViewInfo::AddVisibleElement(TvxMapControlElementViewInfo* AElement)
{
  if (AElement->FParent)
    AElement->FParent->FVisibleElements.removeOne(AElement);
  AElement->FParent = this;
  FVisibleElements.append(AElement);
}

void TvxMapControlElementViewInfo::RemoveVisibleElement(TvxMapControlElementViewInfo* AElement)
{
  if (FVisibleElements.removeOne(AElement))
    AElement->FParent = nullptr;
}

void TvxMapControlElementViewInfo::ClearVisibleElements()
{
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->FParent = nullptr;
  FVisibleElements.clear();
}

void TvxMapControlElementViewInfo::Initialize()
{
  ClearVisibleElements();
  AddVisibleElements();
  InitializeVisibleElements();
}

void TvxMapControlElementViewInfo::InitializeVisibleElements()
{
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->Initialize();
}

void TvxMapControlElementViewInfo::CalculateSize()
{
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->CalculateSize();
  FSize = DoCalculateSize();
}

void TvxMapControlElementViewInfo::CalculateBounds()
{
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->CalculateBounds();
}

void TvxMapControlElementViewInfo::ClearCache()
{
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->ClearCache();
}

bool TvxMapControlElementViewInfo::GetHitTest(TvxMapControlHitTest& AHitTest)
{
  bool Result = false;
  if (GetHitTestIndex() != 0 && PtInElement(AHitTest.HitPoint()))
  {
    SetHitTest(AHitTest);
    Result = true;
  }
  // Deeper and later elements win; the bits of their parents stay set.
  for (qsizetype I = FVisibleElements.size() - 1; I >= 0; --I)
    if (FVisibleElements.at(I)->GetHitTest(AHitTest))
      return true;
  return Result;
}

void TvxMapControlElementViewInfo::SetHitTest(TvxMapControlHitTest& AHitTest)
{
  AHitTest.SetBitState(GetHitTestIndex(), true);
  AHitTest.SetHitObject(this);
}

void TvxMapControlElementViewInfo::MouseDown(Qt::MouseButton, const QPoint&)
{
}

void TvxMapControlElementViewInfo::MouseMove(const QPoint&)
{
}

void TvxMapControlElementViewInfo::MouseUp(Qt::MouseButton, const QPoint&)
{
}

void TvxMapControlElementViewInfo::Paint(TvxMapControlPainter& APainter)
{
  for (TvxMapControlElementViewInfo* Child : std::as_const(FVisibleElements))
    Child->Paint(APainter);
}

TvxMapControlUIElementViewInfo::TvxMapControlUIElementViewInfo(TvxMapControlViewInfo* AViewInfo)
  : FViewInfo(AViewInfo)
{
  SetController(&AViewInfo->MapControl()->Controller());
}

TvxCustomMapControl* TvxMapControlUIElementViewInfo::MapControl() const
{
  return FViewInfo->MapControl();
}

TvxMapControlPainter& TvxMapControlUIElementViewInfo::Painter() const
{
  return FViewInfo->Painter();
}

double TvxMapControlUIElementViewInfo::ScaleFactor() const
{
  return MapControl()->ScaleFactor();
}

int TvxMapControlUIElementViewInfo::ScaleValue(int AValue) const
{
  return MapControl()->ScaleValue(AValue);
}

void TvxMapControlUIElementViewInfo::Invalidate()
{
  MapControl()->InvalidateRect(FBounds);
}

bool TvxMapControlUIElementViewInfo::IsCapture() const
{
  return MapControl()->Controller().PressedElement() == this;
}
