#include "vxMapItemStyle.h"

#include <QFontMetrics>

TvxCustomMapItemStyle::TvxCustomMapItemStyle(void* AOwner) : FOwner(AOwner)
{
  FFont.setBold(true);
}

void TvxCustomMapItemStyle::Changed()
{
  if (OnChanged)
    OnChanged(this);
}

void TvxCustomMapItemStyle::SetAssignedValues(TvxMapItemStyleValues AValue)
{
  if (FAssignedValues == AValue)
    return;
  FAssignedValues = AValue;
  Changed();
}

void TvxCustomMapItemStyle::SetColorValue(quint32& AField, quint32 AValue, TvxMapItemStyleValue AFlag)
{
  if (AField == AValue)
    return;
  AField = AValue;
  // Setting the "not set" colour takes the value back out of the style.
  if (AValue != vxMapControlDefaultAlphaColor)
    FAssignedValues |= vxStyleValueBit(AFlag);
  else
    FAssignedValues &= ~vxStyleValueBit(AFlag);
  Changed();
}

void TvxCustomMapItemStyle::SetBorderWidth(int AValue)
{
  if (FBorderWidth == AValue)
    return;
  FBorderWidth = AValue;
  // Any number is a real width, so the flag is never cleared again.
  FAssignedValues |= vxStyleValueBit(mcsvBorderWidth);
  Changed();
}

void TvxCustomMapItemStyle::SetFont(const QFont& AValue)
{
  FFont = AValue;
  FAssignedValues |= vxStyleValueBit(mcsvFont);
  Changed();
}

void TvxCustomMapItemStyle::SetFontColor(quint32 AValue)
{
  if (FFontColor == AValue)
    return;
  FFontColor = AValue;
  FAssignedValues |= vxStyleValueBit(mcsvFont);
  Changed();
}

void TvxCustomMapItemStyle::DoAssign(const TvxCustomMapItemStyle& ASource)
{
  // Through the setters, so only values that differ count as set here.
  SetBorderColor(ASource.BorderColor());
  SetBorderWidth(ASource.BorderWidth());
  SetColor(ASource.Color());
  // The colour travels with the font, in one change.
  FFontColor = ASource.FFontColor;
  SetFont(ASource.Font());
  SetTextColor(ASource.TextColor());
  SetTextGlowColor(ASource.TextGlowColor());
}

TvxMapItemStylesHelper::TvxMapItemStylesHelper(void* AOwner) : FOwner(AOwner)
{
  // The base set of states: a constructor cannot ask a subclass.
  const TvxMapControlElementStates States = TvxMapItemStylesHelper::GetActualStates();
  for (int State = 0; State < StateCount; ++State)
    if (States & vxElementStateBit(TvxMapControlElementState(State)))
    {
      FStyles[size_t(State)] = std::make_unique<TvxMapItemStyle>(this);
      FStyles[size_t(State)]->OnChanged = [this](TvxCustomMapItemStyle*) { StyleChanged(); };
    }
}

TvxMapControlElementStates TvxMapItemStylesHelper::GetActualStates() const
{
  return vxElementStateBit(mcesNormal) | vxElementStateBit(mcesHot) | vxElementStateBit(mcesSelected);
}

TvxMapItemStyle* TvxMapItemStylesHelper::Style(TvxMapControlElementState AState) const
{
  const int Index = int(AState);
  return Index >= 0 && Index < StateCount ? FStyles[size_t(Index)].get() : nullptr;
}

void TvxMapItemStylesHelper::SetStyle(TvxMapControlElementState AState, const TvxCustomMapItemStyle& AValue)
{
  if (TvxMapItemStyle* Target = Style(AState))
    Target->Assign(AValue);
}

void TvxMapItemStylesHelper::EnumActualStyles(
  const std::function<void(TvxMapControlElementState, TvxMapItemStyle&)>& ACallback) const
{
  for (int State = 0; State < StateCount; ++State)
    if (FStyles[size_t(State)])
      ACallback(TvxMapControlElementState(State), *FStyles[size_t(State)]);
}

void TvxMapItemStylesHelper::StyleChanged()
{
  FIsCacheValid = false;
  FIsFontCacheValid = false;
  if (OnChanged)
    OnChanged(this);
}

void TvxMapItemStylesHelper::CheckCache() const
{
  if (FIsCacheValid)
    return;
  FMaxBorderWidth = 0;
  for (const auto& Style : FStyles)
    if (Style && Style->BorderWidth() > FMaxBorderWidth)
      FMaxBorderWidth = Style->BorderWidth();
  FIsCacheValid = true;
}

void TvxMapItemStylesHelper::CheckFontCache() const
{
  if (FIsFontCacheValid)
    return;
  FMaxSizeFont = nullptr;
  int MaxHeight = 0;
  for (const auto& Style : FStyles)
  {
    if (!Style)
      continue;
    // Strictly greater: the first of equally tall fonts wins.
    const int Height = QFontMetrics(Style->Font()).size(Qt::TextSingleLine, QStringLiteral("Wg")).height();
    if (Height > MaxHeight || !FMaxSizeFont)
    {
      MaxHeight = std::max(MaxHeight, Height);
      FMaxSizeFont = &Style->Font();
    }
  }
  FIsFontCacheValid = true;
}

int TvxMapItemStylesHelper::GetMaxBorderWidth() const
{
  CheckCache();
  return FMaxBorderWidth;
}

const QFont& TvxMapItemStylesHelper::GetMaxSizeFont() const
{
  CheckFontCache();
  return *FMaxSizeFont;
}
