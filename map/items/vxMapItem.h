#pragma once

// What every map item shares: the item with its attributes, styles and
// title options, the collection a layer owns, and the view info that keeps
// everything computed about the item in three caches (map units, screen
// units, styles and title).

#include "vxMapItemStyle.h"
#include "vxMapLayer.h"

#include <QImage>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

class QPainter;
class TvxCustomMapControl;
class TvxCustomMapItemLayer;
class TvxMapItem;
class TvxMapItems;
class TvxMapItemTextViewInfo;
class TvxMapItemViewInfo;

enum TvxMapItemTitleVisibility
{
  mitvAuto,
  mitvVisible,
  mitvHidden
};

// Name/value pairs of an item: empty, integer, float, string, boolean or
// date values, kept in name order.
class TvxMapItemAttributes
{
public:
  // Adds or overwrites; the only way to create a name.
  void Add(const QString& AName, const QVariant& AValue);
  bool ContainsName(const QString& AName) const { return Find(AName) != FItems.end(); }
  // Appends, in name order, without clearing the list first.
  void GetNames(QStringList& ANames) const;
  // Room for this many names, for a caller about to add them all.
  void Reserve(int ACount) { FItems.reserve(size_t(ACount)); }
  void Remove(const QString& AName);
  int Count() const { return int(FItems.size()); }
  // Both throw EListError("Item not found") for an unknown name.
  QVariant Value(const QString& AName) const;
  // The value, or null for an unknown name.
  const QVariant* FindValue(const QString& AName) const
  {
    const auto It = Find(AName);
    return It == FItems.end() ? nullptr : &It->second;
  }
  void SetValue(const QString& AName, const QVariant& AValue);

  // One call per value notification: a replaced value notifies twice.
  std::function<void(TvxMapItemAttributes*)> OnChanged;

private:
  using TEntry = std::pair<QString, QVariant>;
  using TEntries = std::vector<TEntry>;

  void Notify();
  TEntries::const_iterator Find(const QString& AName) const;
  TEntries::iterator Find(const QString& AName);

  // Sorted by name. Items hold a handful of names and layers hold many items:
  // a hash table per item cost a few kilobytes each, this a few dozen bytes
  // per name, and a lookup is a binary search.
  TEntries FItems;
};

// An attribute value as hint or title text, in the user's locale (QLocale()):
// floats with its decimal separator, no group separators and the shortest
// form of up to 15 significant digits ("2,5", "1E20"); dates and times in its
// short format; integers as plain digits; anything else as QVariant has it.
QString vxAttributeValueText(const QVariant& AValue);

// The title pattern "{NAME}" expanded against the attributes. The pattern is
// scanned and the text changed, so values holding braces stay as they are;
// the name is looked up exactly and replaced ignoring case.
QString vxParseTextPattern(const QString& APattern, const TvxMapItemAttributes& AAttributes);

// Item text: point sizes at 96 DPI, times the control's scale factor.
QFont vxScaledItemFont(const QFont& AFont, double AScaleFactor);
QSize vxMeasureItemText(const QFont& AFont, const QString& AText);
// Text centred in the rectangle, with a one-pixel halo in the glow colour.
void vxDrawItemGlowText(QPainter& ACanvas, const QRect& ABounds, const QString& AText, const QFont& AFont,
                        const QColor& AColor, const QColor& AGlowColor);

class TvxMapItemTitleOptions
{
public:
  const QString& Text() const { return FText; }
  void SetText(const QString& AValue);
  TvxMapItemTitleVisibility Visibility() const { return FVisibility; }
  void SetVisibility(TvxMapItemTitleVisibility AValue);
  void Assign(const TvxMapItemTitleOptions& ASource);

  std::function<void(TvxMapItemTitleOptions*)> OnChanged;

private:
  void Changed();

  QString FText;
  TvxMapItemTitleVisibility FVisibility = mitvAuto;
};

// A component name that is no identifier.
class EvxComponentNameError : public std::invalid_argument
{
public:
  using std::invalid_argument::invalid_argument;
};

class TvxMapItem : public IvxMapItem
{
public:
  explicit TvxMapItem(TvxMapItems* ACollection);
  TvxMapItem(const TvxMapItem&) = delete;
  TvxMapItem& operator=(const TvxMapItem&) = delete;
  ~TvxMapItem() override;

  // IvxMapItem
  TvxMapLayer* ItemLayer() const override;
  bool ItemVisible() const override { return FVisible; }
  TvxMapControlElementViewInfo* ItemViewInfo() const override;
  TvxRectDouble ItemMapBounds() const override { return GetMapBounds(); }

  TvxMapItems* Collection() const { return FCollection; }
  TvxCustomMapItemLayer* Layer() const { return FLayer; }
  TvxCustomMapControl* GetMapControl() const;
  int Index() const;
  // Moves the item within its collection; the others shift to make room.
  void SetIndex(int AValue);
  TvxMapItemViewInfo* ViewInfo() const { return FViewInfo.get(); }

  // The component name: empty, or an identifier (letters, digits and
  // underscores, not beginning with a digit). Anything else throws
  // EvxComponentNameError and leaves the name as it was.
  const QString& Name() const { return FName; }
  void SetName(const QString& AValue);
  static bool IsValidName(const QString& AValue);
  // Free for the owner; the program tells its marker kinds by it.
  int Tag() const { return FTag; }
  void SetTag(int AValue) { FTag = AValue; }

  TvxMapItemAttributes& Attributes() { return *FAttributes; }
  const TvxMapItemAttributes& Attributes() const { return *FAttributes; }
  const QString& Hint() const { return FHint; }
  void SetHint(const QString& AValue) { FHint = AValue; }
  // Rich text shown as the item's tip where a screen tip is wanted.
  const QString& ScreenTip() const { return FScreenTip; }
  void SetScreenTip(const QString& AValue) { FScreenTip = AValue; }
  TvxMapItemStylesHelper& Styles() const { return *FStyles; }
  TvxMapItemStyle& Style() const { return *FStyles->Style(mcesNormal); }
  TvxMapItemStyle& StyleHot() const { return *FStyles->Style(mcesHot); }
  TvxMapItemStyle& StyleSelected() const { return *FStyles->Style(mcesSelected); }
  TvxMapItemStyle* GetStyle(TvxMapControlElementState AState) const { return FStyles->Style(AState); }
  // Null while the item has no style of its own for the state.
  const TvxMapItemStyle* FindStyle(TvxMapControlElementState AState) const { return FStyles->FindStyle(AState); }
  void SetStyle(TvxMapControlElementState AState, const TvxCustomMapItemStyle& AValue);
  TvxMapItemTitleOptions& TitleOptions() const { return *FTitleOptions; }
  bool Visible() const { return FVisible; }
  void SetVisible(bool AValue);
  bool Selected() const;
  void SetSelected(bool AValue);

  void Assign(const TvxMapItem& ASource);
  // The item's hint, or the layer's with its event having the last word.
  QString GetHint() const;
  void InvalidateStylesInfo();
  void InvalidateTitleInfo();
  TvxRectDouble GetMapBounds() const;
  virtual void ChangeScale(int AM, int AD);
  // Pointers keep their pixel size and paint above shapes; they have no
  // title of their own.
  virtual bool IsPointer() const { return false; }
  void SelectionChanged(Qt::KeyboardModifiers AShift);
  // Tells the layer that this item needs laying out again.
  void Changed(bool AAllItems = false);

protected:
  virtual std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo();
  // Copies hint, screen tip, the three styles and Visible; deliberately not
  // the attributes and not the title options.
  virtual void DoAssign(const TvxMapItem& ASource);
  // Destroys the view info and creates it again from CreateViewInfo.
  void RecreateViewInfo();

  virtual void AttributesChanged();
  virtual void StyleChanged();
  virtual void TitleOptionsChanged();

private:
  friend class TvxMapItems;
  // The second step of construction: the view info of the most derived
  // class, which a constructor cannot make.
  void InitializeViewInfo();

  TvxMapItems* FCollection;
  QString FName;
  int FTag = 0;
  std::unique_ptr<TvxMapItemAttributes> FAttributes;
  QString FHint;
  TvxCustomMapItemLayer* FLayer;
  std::unique_ptr<TvxMapItemStylesHelper> FStyles;
  std::unique_ptr<TvxMapItemViewInfo> FViewInfo;
  QString FScreenTip;
  std::unique_ptr<TvxMapItemTitleOptions> FTitleOptions;
  bool FVisible = true;
};

// The items of one layer, in paint order within their band.
class TvxMapItems
{
public:
  explicit TvxMapItems(TvxCustomMapItemLayer* ALayer)
    : FLayer(ALayer), FUpdates([this] {
        if (OnChanged)
          OnChanged(this);
      })
  {
  }
  TvxMapItems(const TvxMapItems&) = delete;
  TvxMapItems& operator=(const TvxMapItems&) = delete;
  ~TvxMapItems();

  TvxCustomMapItemLayer* Layer() const { return FLayer; }
  int Count() const { return int(FItems.size()); }
  TvxMapItem* Items(int AIndex) const { return FItems.at(size_t(AIndex)).get(); }
  int IndexOf(const TvxMapItem* AItem) const;

  template <class TItem>
  TItem* Add()
  {
    auto Item = std::make_unique<TItem>(this);
    TItem* Result = Item.get();
    Insert(std::move(Item));
    return Result;
  }
  void Delete(int AIndex);
  void Remove(TvxMapItem* AItem) { Delete(IndexOf(AItem)); }
  // Indexes outside the list are clamped to it.
  void Move(int AFrom, int ATo);
  void Clear();
  void ChangeScale(int AM, int AD);

  void BeginUpdate() { FUpdates.BeginUpdate(); }
  void EndUpdate() { FUpdates.EndUpdate(); }
  void Changed() { FUpdates.Changed(); }

  std::function<void(TvxMapItems*)> OnChanged;

private:
  void Insert(std::unique_ptr<TvxMapItem> AItem);

  TvxCustomMapItemLayer* FLayer;
  std::vector<std::unique_ptr<TvxMapItem>> FItems;
  TvxUpdateCounter FUpdates;
};

// An element of an item layer: paints only where it meets the map.
class TvxCustomMapItemViewInfo : public TvxMapControlElementViewInfo
{
public:
  void Paint(TvxMapControlPainter& APainter) override;
  virtual QRect GetVisibleBounds() const;

protected:
  virtual void DoPaint(TvxMapControlPainter&) {}
  virtual QRect ViewPortBounds() const = 0;
};

class TvxMapItemViewInfo : public TvxCustomMapItemViewInfo
{
public:
  explicit TvxMapItemViewInfo(TvxMapItem* AItem);
  ~TvxMapItemViewInfo() override;
  // The second step of construction, where virtual answers are known.
  virtual void Create();

  TvxMapItem* Item() const { return FItem; }
  TvxCustomMapItemLayer* Layer() const;
  double ScaleFactor() const;
  // The control's painter, or one with the default values.
  TvxMapControlPainter& Painter() const;
  // A width at 96 DPI in client pixels.
  int ScaleWidth(int AValue) const;
  QRect ViewPortBounds() const override;

  // Layout.
  void CalculateBounds() override;
  bool CanBeVisible();
  void ClearCache() override;
  virtual bool HasTitle() const;
  virtual bool IsIntersect(const QRect& ARect);
  TvxRectDouble GetMapBounds();
  TvxMapItemTextViewInfo* GetTitle() const { return FTextInfo.get(); }
  const QRect& DrawBounds() const { return FDrawBounds; }
  const QPoint& ScreenCenterPoint() const { return FScreenCenterPoint; }
  const TvxPointDouble& MapCenterPoint() const { return FMapCenterPoint; }
  const TvxSizeDouble& MaxTitleSize() const { return FMaxTitleSize; }

  // The three caches and their invalidation.
  bool IsCachedBoundsValid() const { return FIsCachedBoundsValid; }
  bool IsStylesValid() const { return FIsStylesValid; }
  bool IsTitleSizeValid() const { return FIsTitleSizeValid; }
  void InvalidateCachedBounds();
  void InvalidateStyles();
  void InvalidateTitleSize();

  // Styles merged from item, layer and painter, by state.
  virtual TvxMapItemStyle& GetStyle();
  TvxMapItemStyle& GetStyle(TvxMapControlElementState AState);
  virtual int GetMaxBorderWidth();
  const QFont& GetMaxSizeFont();
  void UpdateStyles();
  virtual QString GetText();
  virtual quint32 GetTextColor() const;
  virtual quint32 GetTextGlowColor() const;

  // Interaction.
  QString GetHint() const override;
  QString GetScreenTip() const override;
  int GetHitTestIndex() const override { return 8; }
  void Invalidate() override;
  void MouseDown(Qt::MouseButton AButton, const QPoint& APoint) override;
  bool PtInElement(const QPoint& APoint) const override;

protected:
  void CalculateCachedBounds();
  void CalculateTitleBounds();
  virtual void CalculateScreenBounds() {}
  virtual void DoCalculateCachedBounds() {}
  virtual QRect DoCalculateTitleBounds();
  virtual bool DoCanBeVisible() { return true; }
  virtual TvxRectDouble DoGetMapBounds() { return {}; }
  virtual bool HasText() const { return HasTitle(); }
  virtual bool IsBoundsScalable() const { return false; }
  virtual bool IsOwnerVisible() const;
  virtual bool IsTitleOutOfBounds();
  virtual bool NeedCalculateScreenBoundsToDetermineVisibility() const { return !IsBoundsScalable(); }
  // The effective title visibility of item and layer: hidden wins.
  TvxMapItemTitleVisibility TitleVisibility() const;
  void MergeStyles(TvxMapControlElementState AState, TvxMapItemStyle& AStyle);
  virtual quint32 GetColor(TvxMapControlElementState AState) const;
  virtual quint32 GetBorderColor(TvxMapControlElementState AState) const;
  virtual int GetBorderWidth(TvxMapControlElementState AState) const;

  TvxMapControlElementStates GetForbiddenStates() const override;

  QRect FDrawBounds;
  bool FIsCachedBoundsValid = false;
  bool FIsStylesValid = false;
  bool FIsTitleSizeValid = false;
  TvxMapItem* FItem;
  TvxPointDouble FCachedRenderScale;
  TvxPointDouble FCachedRenderOffset;
  TvxPointDouble FMapCenterPoint;
  TvxSizeDouble FMaxTitleSize;
  QPoint FScreenCenterPoint;
  // Made at the first merge: path segments borrow their path's and never
  // need one.
  std::unique_ptr<TvxMapItemStylesHelper> FStyles;
  std::unique_ptr<TvxMapItemTextViewInfo> FTextInfo;
};

// The title as an element of its own, so that a layer paints all titles in
// a band above all shapes. Its text is drawn once into a bitmap.
class TvxMapItemTextViewInfo : public TvxCustomMapItemViewInfo
{
public:
  explicit TvxMapItemTextViewInfo(TvxMapItemViewInfo* AMapItemViewInfo);

  TvxMapItemViewInfo* MapItemViewInfo() const { return FMapItemViewInfo; }
  const QRect& ClientBounds() const { return FClientBounds; }
  const QString& Text() const { return FText; }
  bool IsCacheTextValid() const { return FIsCacheTextValid; }
  QRect ViewPortBounds() const override { return FMapItemViewInfo->ViewPortBounds(); }

protected:
  QSize DoCalculateSize() override;
  void DoPaint(TvxMapControlPainter& APainter) override;
  TvxMapControlElementState GetState() const override { return FMapItemViewInfo->State(); }

private:
  QImage FCachedText;
  TvxMapControlElementState FCachedState = mcesNormal;
  QRect FClientBounds;
  bool FIsCacheTextValid = false;
  TvxMapItemViewInfo* FMapItemViewInfo;
  QString FText;
};

class TvxMapItemsZoomHelper
{
public:
  // The union of the map bounds of the visible items of visible layers.
  static bool CalculateMapBounds(const TvxMapItemList& AItems, TvxRectDouble& ABounds);
};
