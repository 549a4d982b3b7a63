#pragma once

// The layer kind that holds vector items: its own projection, styles, title
// options and hint for all its items, and the fixed paint order of shapes,
// then titles, then pointers.

#include "vxMapItem.h"

#include <QSize>

class TvxCustomMapItemLayer;

class TvxMapItemLayerViewInfo : public TvxMapLayerViewInfo
{
public:
  explicit TvxMapItemLayerViewInfo(TvxCustomMapItemLayer* ALayer);

  TvxCustomMapItemLayer* ItemLayer() const;
  int LastNonPointerItemIndex() const { return FLastNonPointerItemIndex; }
  const QList<TvxMapControlElementViewInfo*>& ItemTitles() const { return FItemTitles; }

  // Items lay themselves out in CalculateBounds; there is nothing to size.
  void CalculateSize() override {}
  void Paint(TvxMapControlPainter& APainter) override;
  // Drops every reference to the elements of an item that goes.
  void ItemRemoving(TvxMapItem* AItem);
  void ItemsClearing();

protected:
  void AddVisibleElements() override;

private:
  void PaintBand(TvxMapControlPainter& APainter, const QList<TvxMapControlElementViewInfo*>& AElements,
                 qsizetype AFirst, qsizetype ALast, QList<TvxMapControlElementViewInfo*>& ASelected);

  int FLastNonPointerItemIndex = -1;
  QList<TvxMapControlElementViewInfo*> FSelectedElements;
  QList<TvxMapControlElementViewInfo*> FSelectedPointers;
  QList<TvxMapControlElementViewInfo*> FSelectedTitles;
  QList<TvxMapControlElementViewInfo*> FItemTitles;
};

class TvxCustomMapItemLayer : public TvxMapLayer
{
public:
  explicit TvxCustomMapItemLayer(TvxMapLayers* ACollection = nullptr);
  ~TvxCustomMapItemLayer() override;

  bool AllowHotTrack() const { return FAllowHotTrack; }
  void SetAllowHotTrack(bool AValue);
  const QSize& InitialMapSize() const { return FInitialMapSize; }
  void SetInitialMapSize(const QSize& AValue);
  const QString& ItemHint() const { return FItemHint; }
  void SetItemHint(const QString& AValue) { FItemHint = AValue; }
  TvxMapItemStylesHelper& ItemStyles() const { return *FItemStyles; }
  TvxMapItemStyle& ItemStyle() const { return *FItemStyles->Style(mcesNormal); }
  TvxMapItemStyle& ItemStyleHot() const { return *FItemStyles->Style(mcesHot); }
  TvxMapItemStyle& ItemStyleSelected() const { return *FItemStyles->Style(mcesSelected); }
  TvxMapItemStyle* GetStyle(TvxMapControlElementState AState) const { return FItemStyles->Style(AState); }
  TvxMapItemTitleOptions& ItemTitleOptions() const { return *FItemTitleOptions; }
  TvxMapItems& MapItems() const { return *FMapItems; }
  template <class TItem>
  TItem* AddItem()
  {
    return FMapItems->Add<TItem>();
  }
  TvxMapItemLayerViewInfo* ItemViewInfo() const { return static_cast<TvxMapItemLayerViewInfo*>(ViewInfo()); }

  // The projection of this layer's map units; any registered class by name.
  TvxMapControlCustomProjection* Projection() const { return FProjection.get(); }
  QString ProjectionClassName() const;
  // An unknown name leaves the layer without a projection.
  void SetProjectionClassName(const QString& AValue);

  // Called with the layer, the item and the hint so far, which it may change.
  std::function<void(TvxCustomMapItemLayer*, TvxMapItem*, QString&)> OnGetItemHint;
  QString GetItemHint(TvxMapItem* AItem) const;

  // TvxMapLayer
  void ChangeScale(int AM, int AD) override;
  TvxMapControlCustomProjection* GetMapProjection() const override { return FProjection.get(); }
  TvxSizeDouble GetMapSizeInPixels(double AZoomLevel) const override;
  bool IsItemLayer() const override { return true; }
  void GetItems(TvxMapItemList& AList) const override;
  void GetItemsInRegion(const QRect& ARect, TvxMapItemList& AList) const override;

  // The layer needs laying out again.
  void Changed();

protected:
  std::unique_ptr<TvxMapLayerViewInfo> CreateViewInfo() override;
  void DoAssign(const TvxMapLayer& ASource) override;
  virtual void MapItemsChanged();
  virtual void ProjectionChanged();
  void ItemStyleChanged();
  void ItemTitleOptionsChanged();

private:
  bool FAllowHotTrack = true;
  std::unique_ptr<TvxMapItems> FMapItems;
  std::unique_ptr<TvxMapControlCustomProjection> FProjection;
  QSize FInitialMapSize{512, 512};
  QString FItemHint;
  std::unique_ptr<TvxMapItemStylesHelper> FItemStyles;
  std::unique_ptr<TvxMapItemTitleOptions> FItemTitleOptions;
};

using TvxCustomMapItemLayerList = QList<TvxCustomMapItemLayer*>;
