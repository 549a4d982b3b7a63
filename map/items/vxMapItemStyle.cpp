#include "vxMapItemStyle.h"

#include <QFontMetrics>

#include <algorithm>

namespace
{

// The application's font in bold, made once for each application font and
// shared: a copy costs a reference count, where setting bold on every
// style's own font would allocate a font of its own each time.
const QFont& DefaultStyleFont()
{
  thread_local QFont Base;
  thread_local QFont Bold;
  thread_local bool Made = false;
  const QFont Current;
  if (!Made || !Current.isCopyOf(Base))
  {
    Base = Current;
    Bold = Current;
    Bold.setBold(true);
    Made = true;
  }
  return Bold;
}

} // namespace

TvxCustomMapItemStyle::TvxCustomMapItemStyle(void* AOwner) : FOwner(AOwner), FFont(DefaultStyleFont())
{
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

TvxMapItemStylesHelper::TvxMapItemStylesHelper(void* AOwner)
  : FOwner(AOwner), FActualStates(TvxMapItemStylesHelper::GetActualStates()) // a constructor cannot ask a subclass
{
}

TvxMapControlElementStates TvxMapItemStylesHelper::GetActualStates() const
{
  return vxElementStateBit(mcesNormal) | vxElementStateBit(mcesHot) | vxElementStateBit(mcesSelected);
}

TvxMapItemStyle* TvxMapItemStylesHelper::Style(TvxMapControlElementState AState) const
{
  const int Index = int(AState);
  if (Index < 0 || Index >= StateCount || !(FActualStates & vxElementStateBit(AState)))
    return nullptr;
  std::unique_ptr<TvxMapItemStyle>& Result = FStyles[size_t(Index)];
  if (!Result)
  {
    // A new style sets nothing, so the maxima stay as they are.
    auto* Self = const_cast<TvxMapItemStylesHelper*>(this);
    Result = std::make_unique<TvxMapItemStyle>(Self);
    Result->OnChanged = [Self](TvxCustomMapItemStyle*) { Self->StyleChanged(); };
    FIsFontCacheValid = false;
  }
  return Result.get();
}

const TvxMapItemStyle* TvxMapItemStylesHelper::FindStyle(TvxMapControlElementState AState) const
{
  const int Index = int(AState);
  return Index >= 0 && Index < StateCount ? FStyles[size_t(Index)].get() : nullptr;
}

void TvxMapItemStylesHelper::CreateAllStyles() const
{
  for (int State = 0; State < StateCount; ++State)
    Style(TvxMapControlElementState(State));
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
    if (TvxMapItemStyle* S = Style(TvxMapControlElementState(State)))
      ACallback(TvxMapControlElementState(State), *S);
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
  // A style not made yet has the width of a new one.
  FMaxBorderWidth = 0;
  for (int State = 0; State < StateCount; ++State)
    if (FActualStates & vxElementStateBit(TvxMapControlElementState(State)))
    {
      const TvxMapItemStyle* S = FStyles[size_t(State)].get();
      FMaxBorderWidth = std::max(FMaxBorderWidth, S ? S->BorderWidth() : 1);
    }
  FIsCacheValid = true;
}

void TvxMapItemStylesHelper::CheckFontCache() const
{
  if (FIsFontCacheValid)
    return;
  // The answer is a font held by a style, so every style is made first.
  CreateAllStyles();
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
