#include "vxCustomMapItemLayer.h"

#include "vxMapControl.h"
#include "vxMapControlProjections.h"

#include <QPainter>

#include <cmath>

// TvxMapItemLayerViewInfo

TvxMapItemLayerViewInfo::TvxMapItemLayerViewInfo(TvxCustomMapItemLayer* ALayer) : TvxMapLayerViewInfo(ALayer)
{
}

TvxCustomMapItemLayer* TvxMapItemLayerViewInfo::ItemLayer() const
{
  return static_cast<TvxCustomMapItemLayer*>(FLayer);
}

void TvxMapItemLayerViewInfo::AddVisibleElements()
{
  FLastNonPointerItemIndex = -1;
  FItemTitles.clear();
  // All shapes in item order, then all pointers in item order; the pointers
  // wait in a scratch list so that no insertion shifts the list.
  FSelectedPointers.clear();
  const TvxMapItems& Items = ItemLayer()->MapItems();
  for (int I = 0; I < Items.Count(); ++I)
  {
    TvxMapItem* Item = Items.Items(I);
    TvxMapItemViewInfo* ViewInfo = Item->ViewInfo();
    if (!ViewInfo->CanBeVisible())
      continue;
    if (Item->IsPointer())
      FSelectedPointers.append(ViewInfo);
    else
    {
      AddVisibleElement(ViewInfo);
      ++FLastNonPointerItemIndex;
    }
    if (ViewInfo->HasTitle() && ViewInfo->GetTitle())
      FItemTitles.append(ViewInfo->GetTitle());
  }
  for (TvxMapControlElementViewInfo* Pointer : std::as_const(FSelectedPointers))
    AddVisibleElement(Pointer);
  FSelectedPointers.clear();
}

void TvxMapItemLayerViewInfo::ItemRemoving(TvxMapItem* AItem)
{
  TvxMapItemViewInfo* ViewInfo = AItem->ViewInfo();
  if (!ViewInfo)
    return;
  const qsizetype Index = FVisibleElements.indexOf(ViewInfo);
  if (Index >= 0)
  {
    RemoveVisibleElement(ViewInfo);
    if (Index <= FLastNonPointerItemIndex)
      --FLastNonPointerItemIndex;
  }
  if (ViewInfo->GetTitle())
    FItemTitles.removeOne(ViewInfo->GetTitle());
}

void TvxMapItemLayerViewInfo::ItemsClearing()
{
  ClearVisibleElements();
  FItemTitles.clear();
  FLastNonPointerItemIndex = -1;
}

void TvxMapItemLayerViewInfo::PaintBand(TvxMapControlPainter& APainter,
                                        const QList<TvxMapControlElementViewInfo*>& AElements, qsizetype AFirst,
                                        qsizetype ALast, QList<TvxMapControlElementViewInfo*>& ASelected)
{
  TvxMapControlElementViewInfo* Hot = nullptr;
  for (qsizetype I = AFirst; I <= ALast; ++I)
  {
    TvxMapControlElementViewInfo* Element = AElements.at(I);
    const TvxMapControlElementState State = Element->State();
    if (State == mcesSelected)
      ASelected.append(Element);
    else if (State == mcesHot)
      Hot = Element;
    else
      Element->Paint(APainter);
  }
  // Hot over selected over normal, in every band.
  for (TvxMapControlElementViewInfo* Element : std::as_const(ASelected))
    Element->Paint(APainter);
  if (Hot)
    Hot->Paint(APainter);
}

void TvxMapItemLayerViewInfo::Paint(TvxMapControlPainter& APainter)
{
  FSelectedElements.clear();
  FSelectedPointers.clear();
  FSelectedTitles.clear();
  QPainter& Canvas = APainter.Canvas();
  Canvas.save();
  Canvas.setRenderHint(QPainter::Antialiasing);
  Canvas.setRenderHint(QPainter::SmoothPixmapTransform);
  PaintBand(APainter, FVisibleElements, 0, FLastNonPointerItemIndex, FSelectedElements);
  PaintBand(APainter, FItemTitles, 0, FItemTitles.size() - 1, FSelectedTitles);
  PaintBand(APainter, FVisibleElements, FLastNonPointerItemIndex + 1, FVisibleElements.size() - 1,
            FSelectedPointers);
  Canvas.restore();
}

// TvxCustomMapItemLayer

TvxCustomMapItemLayer::TvxCustomMapItemLayer(TvxMapLayers* ACollection) : TvxMapLayer(ACollection)
{
  FMapItems = std::make_unique<TvxMapItems>(this);
  FMapItems->OnChanged = [this](TvxMapItems*) { MapItemsChanged(); };
  FItemStyles = std::make_unique<TvxMapItemStylesHelper>(this);
  FItemStyles->OnChanged = [this](TvxMapItemStylesHelper*) { ItemStyleChanged(); };
  FItemTitleOptions = std::make_unique<TvxMapItemTitleOptions>();
  FItemTitleOptions->OnChanged = [this](TvxMapItemTitleOptions*) { ItemTitleOptionsChanged(); };
  FProjection = std::make_unique<TvxMapControlSphericalMercatorProjection>();
  FProjection->OnChanged = [this](TvxMapControlCustomProjection*) { ProjectionChanged(); };
}

TvxCustomMapItemLayer::~TvxCustomMapItemLayer()
{
  // Items reach their layer and its view info while they go.
  FMapItems->OnChanged = nullptr;
  FMapItems.reset();
}

std::unique_ptr<TvxMapLayerViewInfo> TvxCustomMapItemLayer::CreateViewInfo()
{
  return std::make_unique<TvxMapItemLayerViewInfo>(this);
}

void TvxCustomMapItemLayer::Changed()
{
  if (Collection())
    Collection()->Changed();
}

void TvxCustomMapItemLayer::SetAllowHotTrack(bool AValue)
{
  if (FAllowHotTrack == AValue)
    return;
  FAllowHotTrack = AValue;
  Changed();
}

void TvxCustomMapItemLayer::SetInitialMapSize(const QSize& AValue)
{
  if (FInitialMapSize == AValue)
    return;
  FInitialMapSize = AValue;
  InvalidateViewPort();
  if (Collection())
    Collection()->UpdateViewPort();
  Changed();
}

QString TvxCustomMapItemLayer::ProjectionClassName() const
{
  return FProjection ? FProjection->PersistedName() : QString();
}

void TvxCustomMapItemLayer::SetProjectionClassName(const QString& AValue)
{
  if (FProjection && FProjection->PersistedName() == AValue)
    return;
  if (!FProjection && AValue.isEmpty())
    return;
  FProjection = AValue.isEmpty() ? nullptr : vxRegisteredMapProjections().Create(AValue);
  if (FProjection)
    FProjection->OnChanged = [this](TvxMapControlCustomProjection*) { ProjectionChanged(); };
  ProjectionChanged();
}

void TvxCustomMapItemLayer::ProjectionChanged()
{
  // Every item is projected again, and only now.
  for (int I = 0; I < FMapItems->Count(); ++I)
    FMapItems->Items(I)->ViewInfo()->ClearCache();
  InvalidateViewPort();
  if (Collection())
    Collection()->UpdateViewPort();
  Changed();
}

void TvxCustomMapItemLayer::MapItemsChanged()
{
  Changed();
}

void TvxCustomMapItemLayer::ItemStyleChanged()
{
  FMapItems->BeginUpdate();
  for (int I = 0; I < FMapItems->Count(); ++I)
    FMapItems->Items(I)->InvalidateStylesInfo();
  FMapItems->EndUpdate();
  Changed();
}

void TvxCustomMapItemLayer::ItemTitleOptionsChanged()
{
  FMapItems->BeginUpdate();
  for (int I = 0; I < FMapItems->Count(); ++I)
    FMapItems->Items(I)->InvalidateTitleInfo();
  FMapItems->EndUpdate();
  Changed();
}

QString TvxCustomMapItemLayer::GetItemHint(TvxMapItem* AItem) const
{
  QString Text = FItemHint;
  if (OnGetItemHint)
    OnGetItemHint(const_cast<TvxCustomMapItemLayer*>(this), AItem, Text);
  return Text;
}

TvxSizeDouble TvxCustomMapItemLayer::GetMapSizeInPixels(double AZoomLevel) const
{
  const double W = FInitialMapSize.width();
  const double H = FInitialMapSize.height();
  if (AZoomLevel < 1)
    return vxSizeDouble(W * AZoomLevel, H * AZoomLevel);
  const double Factor = std::pow(2.0, AZoomLevel - 1);
  return vxSizeDouble(W * Factor, H * Factor);
}

void TvxCustomMapItemLayer::GetItems(TvxMapItemList& AList) const
{
  for (int I = 0; I < FMapItems->Count(); ++I)
    AList.append(FMapItems->Items(I));
}

void TvxCustomMapItemLayer::GetItemsInRegion(const QRect& ARect, TvxMapItemList& AList) const
{
  // Only what is laid out now: the visible list of the last calculation.
  for (TvxMapControlElementViewInfo* Element : ItemViewInfo()->VisibleElements())
  {
    auto* ViewInfo = static_cast<TvxMapItemViewInfo*>(Element);
    if (ViewInfo->IsIntersect(ARect))
      AList.append(ViewInfo->Item());
  }
}

void TvxCustomMapItemLayer::ChangeScale(int AM, int AD)
{
  TvxMapLayer::ChangeScale(AM, AD);
  FInitialMapSize = QSize(int(std::lround(double(FInitialMapSize.width()) * AM / AD)),
                          int(std::lround(double(FInitialMapSize.height()) * AM / AD)));
  FMapItems->ChangeScale(AM, AD);
}

void TvxCustomMapItemLayer::DoAssign(const TvxMapLayer& ASource)
{
  TvxMapLayer::DoAssign(ASource);
  const auto* Source = dynamic_cast<const TvxCustomMapItemLayer*>(&ASource);
  if (!Source)
    return;
  SetAllowHotTrack(Source->FAllowHotTrack);
  SetInitialMapSize(Source->FInitialMapSize);
  for (TvxMapControlElementState State : {mcesNormal, mcesHot, mcesSelected})
    FItemStyles->SetStyle(State, *Source->GetStyle(State));
  FItemTitleOptions->Assign(*Source->FItemTitleOptions);
  SetProjectionClassName(Source->ProjectionClassName());
  if (FProjection && Source->FProjection)
    FProjection->Assign(*Source->FProjection);
}
