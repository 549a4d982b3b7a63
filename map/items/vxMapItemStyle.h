#pragma once

// The look of map items by state: what an item or a layer really sets, and
// the helper that holds one style per state of its owner.

#include "vxMapControlElementViewInfo.h"
#include "vxMapControlTypes.h"

#include <QFont>

#include <array>
#include <functional>
#include <memory>

enum TvxMapItemStyleValue
{
  mcsvColor,
  mcsvBorderWidth,
  mcsvBorderColor,
  mcsvFont,
  mcsvTextColor,
  mcsvTextGlowColor
};

// A set of style values, one bit each in the order above.
using TvxMapItemStyleValues = unsigned;

constexpr TvxMapItemStyleValues vxStyleValueBit(TvxMapItemStyleValue AValue)
{
  return 1u << unsigned(AValue);
}

class TvxCustomMapItemStyle
{
public:
  explicit TvxCustomMapItemStyle(void* AOwner = nullptr);
  TvxCustomMapItemStyle(const TvxCustomMapItemStyle&) = delete;
  TvxCustomMapItemStyle& operator=(const TvxCustomMapItemStyle&) = delete;
  virtual ~TvxCustomMapItemStyle() = default;

  void* Owner() const { return FOwner; }
  void Assign(const TvxCustomMapItemStyle& ASource) { DoAssign(ASource); }

  TvxMapItemStyleValues AssignedValues() const { return FAssignedValues; }
  bool IsAssigned(TvxMapItemStyleValue AValue) const { return FAssignedValues & vxStyleValueBit(AValue); }
  void SetAssignedValues(TvxMapItemStyleValues AValue);

  quint32 BorderColor() const { return FBorderColor; }
  void SetBorderColor(quint32 AValue) { SetColorValue(FBorderColor, AValue, mcsvBorderColor); }
  int BorderWidth() const { return FBorderWidth; }
  void SetBorderWidth(int AValue);
  quint32 Color() const { return FColor; }
  void SetColor(quint32 AValue) { SetColorValue(FColor, AValue, mcsvColor); }
  const QFont& Font() const { return FFont; }
  // Any font given counts as set, even one equal to the present font.
  void SetFont(const QFont& AValue);
  // The font's own colour, a plain colour (vxMapControlDefaultColor when
  // untouched). Text is drawn with TextColor; a change only marks the font
  // as set, as touching any property of the font does.
  quint32 FontColor() const { return FFontColor; }
  void SetFontColor(quint32 AValue);
  quint32 TextColor() const { return FTextColor; }
  void SetTextColor(quint32 AValue) { SetColorValue(FTextColor, AValue, mcsvTextColor); }
  quint32 TextGlowColor() const { return FTextGlowColor; }
  void SetTextGlowColor(quint32 AValue) { SetColorValue(FTextGlowColor, AValue, mcsvTextGlowColor); }

  std::function<void(TvxCustomMapItemStyle*)> OnChanged;

protected:
  virtual void DoAssign(const TvxCustomMapItemStyle& ASource);
  void Changed();

private:
  void SetColorValue(quint32& AField, quint32 AValue, TvxMapItemStyleValue AFlag);

  void* FOwner;
  TvxMapItemStyleValues FAssignedValues = 0;
  quint32 FBorderColor = vxMapControlDefaultAlphaColor;
  int FBorderWidth = 1;
  quint32 FColor = vxMapControlDefaultAlphaColor;
  QFont FFont;
  quint32 FFontColor = vxMapControlDefaultColor;
  quint32 FTextColor = vxMapControlDefaultAlphaColor;
  quint32 FTextGlowColor = vxMapControlDefaultAlphaColor;
};

class TvxMapItemStyle : public TvxCustomMapItemStyle
{
public:
  using TvxCustomMapItemStyle::TvxCustomMapItemStyle;
};

// One style for each actual state of the owner: normal, hot and selected.
class TvxMapItemStylesHelper
{
public:
  static constexpr int StateCount = 5;

  explicit TvxMapItemStylesHelper(void* AOwner = nullptr);
  TvxMapItemStylesHelper(const TvxMapItemStylesHelper&) = delete;
  TvxMapItemStylesHelper& operator=(const TvxMapItemStylesHelper&) = delete;
  virtual ~TvxMapItemStylesHelper() = default;

  void* Owner() const { return FOwner; }
  // The states that have a style; the others answer null.
  virtual TvxMapControlElementStates GetActualStates() const;
  // A style is made on first asking: most items never set one of their own,
  // and a large layer holds hundreds of thousands of helpers.
  TvxMapItemStyle* Style(TvxMapControlElementState AState) const;
  // Null while nobody has asked for the style: nothing is set in it then.
  const TvxMapItemStyle* FindStyle(TvxMapControlElementState AState) const;
  // Assigns into the existing style of that state.
  void SetStyle(TvxMapControlElementState AState, const TvxCustomMapItemStyle& AValue);
  void EnumActualStyles(const std::function<void(TvxMapControlElementState, TvxMapItemStyle&)>& ACallback) const;
  int GetMaxBorderWidth() const;
  // The font whose sample text is tallest, so that a title keeps its size
  // whatever the state.
  const QFont& GetMaxSizeFont() const;

  std::function<void(TvxMapItemStylesHelper*)> OnChanged;

private:
  // Apart, because measuring the fonts costs far more than the widths, and
  // every layout asks for the width of every item, few for the font.
  void CheckCache() const;
  void CheckFontCache() const;
  void CreateAllStyles() const;
  void StyleChanged();

  void* FOwner;
  mutable bool FIsCacheValid = false;
  mutable bool FIsFontCacheValid = false;
  mutable int FMaxBorderWidth = 0;
  mutable const QFont* FMaxSizeFont = nullptr;
  // Which states have a style at all, fixed at construction.
  TvxMapControlElementStates FActualStates = 0;
  mutable std::array<std::unique_ptr<TvxMapItemStyle>, StateCount> FStyles;
};
