#include "vxMapItem.h"

#include <algorithm>

#include "vxCustomMapItemLayer.h"
#include "vxMapControl.h"

#include <QDate>
#include <QDateTime>
#include <QFontMetrics>
#include <QLocale>
#include <QPainter>
#include <QTime>

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace
{

// Differs from every real render scale and offset, itself included.
constexpr TvxPointDouble NullRenderPoint{std::numeric_limits<double>::quiet_NaN(),
                                         std::numeric_limits<double>::quiet_NaN()};

// The painter values of an item that has no control yet.
TvxMapControlPainter& DefaultPainter()
{
  static TvxMapControlPainter Painter(nullptr);
  return Painter;
}

// The program's float text: up to 15 significant digits without trailing
// zeros, fixed from 1E-5 up to below 1E15, scientific outside.
QString FloatText(double AValue, const QLocale& ALocale)
{
  if (std::isnan(AValue))
    return QStringLiteral("NAN");
  if (std::isinf(AValue))
    return AValue > 0 ? QStringLiteral("INF") : QStringLiteral("-INF");
  char Buffer[64];
  const auto Chars =
    std::to_chars(Buffer, Buffer + sizeof Buffer, std::fabs(AValue), std::chars_format::scientific, 14);
  const std::string_view Text(Buffer, size_t(Chars.ptr - Buffer));
  const size_t E = Text.find('e');
  QString Digits;
  for (const char C : Text.substr(0, E))
    if (C != '.')
      Digits += QLatin1Char(C);
  while (Digits.size() > 1 && Digits.endsWith(QLatin1Char('0')))
    Digits.chop(1);
  if (Digits == QLatin1String("0"))
    return QStringLiteral("0"); // also for -0.0
  int Exponent = 0;
  std::string_view ExponentText = Text.substr(E + 1);
  if (!ExponentText.empty() && ExponentText.front() == '+')
    ExponentText.remove_prefix(1);
  std::from_chars(ExponentText.data(), ExponentText.data() + ExponentText.size(), Exponent);

  const QString Point = ALocale.decimalPoint();
  QString Result = std::signbit(AValue) ? QStringLiteral("-") : QString();
  if (Exponent >= 15 || Exponent < -5)
  {
    Result += Digits.front();
    if (Digits.size() > 1)
      Result += Point + Digits.mid(1);
    return Result + QLatin1Char('E') + QString::number(Exponent);
  }
  if (Exponent < 0)
    return Result + QLatin1Char('0') + Point + QString(-Exponent - 1, QLatin1Char('0')) + Digits;
  const qsizetype IntLength = Exponent + 1;
  Result += Digits.left(IntLength);
  if (Digits.size() < IntLength)
    Result += QString(IntLength - Digits.size(), QLatin1Char('0'));
  else if (Digits.size() > IntLength)
    Result += Point + Digits.mid(IntLength);
  return Result;
}

} // namespace

QString vxAttributeValueText(const QVariant& AValue)
{
  const QLocale Locale;
  switch (AValue.typeId())
  {
  case QMetaType::Double:
  case QMetaType::Float:
    return FloatText(AValue.toDouble(), Locale);
  case QMetaType::QDate:
    return Locale.toString(AValue.toDate(), QLocale::ShortFormat);
  case QMetaType::QDateTime:
    return Locale.toString(AValue.toDateTime(), QLocale::ShortFormat);
  case QMetaType::QTime:
    return Locale.toString(AValue.toTime(), QLocale::ShortFormat);
  default:
    return AValue.toString();
  }
}

QFont vxScaledItemFont(const QFont& AFont, double AScaleFactor)
{
  // Point sizes are taken at 96 DPI whatever the device, so that measuring
  // and drawing agree on screens, images and printers.
  QFont Result = AFont;
  const double Pixels = AFont.pixelSize() > 0 ? AFont.pixelSize() : AFont.pointSizeF() * 96.0 / 72.0;
  Result.setPixelSize(std::max(1, int(std::lround(Pixels * AScaleFactor))));
  return Result;
}

QSize vxMeasureItemText(const QFont& AFont, const QString& AText)
{
  const QFontMetrics Metrics(AFont);
  return {Metrics.horizontalAdvance(AText), Metrics.height()};
}

void vxDrawItemGlowText(QPainter& ACanvas, const QRect& ABounds, const QString& AText, const QFont& AFont,
                        const QColor& AColor, const QColor& AGlowColor)
{
  ACanvas.save();
  ACanvas.setRenderHint(QPainter::TextAntialiasing);
  ACanvas.setFont(AFont);
  const int Flags = Qt::AlignCenter | Qt::TextSingleLine;
  if (AGlowColor.alpha() > 0)
  {
    // A one-pixel halo keeps the text readable on any map.
    ACanvas.setPen(AGlowColor);
    for (int DX = -1; DX <= 1; ++DX)
      for (int DY = -1; DY <= 1; ++DY)
        if (DX != 0 || DY != 0)
          ACanvas.drawText(ABounds.translated(DX, DY), Flags, AText);
  }
  ACanvas.setPen(AColor);
  ACanvas.drawText(ABounds, Flags, AText);
  ACanvas.restore();
}

// TvxMapItemAttributes

void TvxMapItemAttributes::Notify()
{
  if (OnChanged)
    OnChanged(this);
}

namespace
{
template <class TIterator>
TIterator FindName(TIterator AFirst, TIterator ALast, const QString& AName)
{
  const TIterator It = std::lower_bound(
    AFirst, ALast, AName, [](const auto& AEntry, const QString& AKey) { return AEntry.first < AKey; });
  return It != ALast && It->first == AName ? It : ALast;
}
} // namespace

TvxMapItemAttributes::TEntries::const_iterator TvxMapItemAttributes::Find(const QString& AName) const
{
  return FindName(FItems.cbegin(), FItems.cend(), AName);
}

TvxMapItemAttributes::TEntries::iterator TvxMapItemAttributes::Find(const QString& AName)
{
  return FindName(FItems.begin(), FItems.end(), AName);
}

void TvxMapItemAttributes::Add(const QString& AName, const QVariant& AValue)
{
  // Names added in order, as a loader does, go on the end.
  const auto Place = FItems.empty() || FItems.back().first < AName
                       ? FItems.end()
                       : std::lower_bound(FItems.begin(), FItems.end(), AName,
                                          [](const TEntry& AEntry, const QString& AKey) { return AEntry.first < AKey; });
  if (Place == FItems.end() || Place->first != AName)
  {
    FItems.emplace(Place, AName, AValue);
    Notify();
    return;
  }
  // The old value leaves and the new one comes: two notifications.
  Place->second = AValue;
  Notify();
  Notify();
}

void TvxMapItemAttributes::GetNames(QStringList& ANames) const
{
  ANames.reserve(ANames.size() + qsizetype(FItems.size()));
  for (const TEntry& Entry : FItems)
    ANames.append(Entry.first);
}

void TvxMapItemAttributes::Remove(const QString& AName)
{
  const auto It = Find(AName);
  if (It == FItems.end())
    return;
  FItems.erase(It);
  Notify();
}

QVariant TvxMapItemAttributes::Value(const QString& AName) const
{
  const auto It = Find(AName);
  if (It == FItems.cend())
    throw EListError("Item not found");
  return It->second;
}

void TvxMapItemAttributes::SetValue(const QString& AName, const QVariant& AValue)
{
  const auto It = Find(AName);
  if (It == FItems.end())
    throw EListError("Item not found");
  It->second = AValue;
  Notify();
  Notify();
}

QString vxParseTextPattern(const QString& APattern, const TvxMapItemAttributes& AAttributes)
{
  QString Text = APattern;
  qsizetype Position = 0;
  for (;;)
  {
    const qsizetype Open = APattern.indexOf(QLatin1Char('{'), Position);
    if (Open < 0)
      break;
    const qsizetype Close = APattern.indexOf(QLatin1Char('}'), Open);
    if (Close < 0)
      break;
    const QString Name = APattern.mid(Open + 1, Close - Open - 1).trimmed();
    Position = Close;
    // "{ NAME }" finds NAME but then looks for "{NAME}": kept as it is.
    if (AAttributes.ContainsName(Name))
      Text.replace(QLatin1Char('{') + Name + QLatin1Char('}'), vxAttributeValueText(AAttributes.Value(Name)),
                   Qt::CaseInsensitive);
  }
  return Text;
}

// TvxMapItemTitleOptions

void TvxMapItemTitleOptions::Changed()
{
  if (OnChanged)
    OnChanged(this);
}

void TvxMapItemTitleOptions::SetText(const QString& AValue)
{
  if (FText == AValue)
    return;
  FText = AValue;
  Changed();
}

void TvxMapItemTitleOptions::SetVisibility(TvxMapItemTitleVisibility AValue)
{
  if (FVisibility == AValue)
    return;
  FVisibility = AValue;
  Changed();
}

void TvxMapItemTitleOptions::Assign(const TvxMapItemTitleOptions& ASource)
{
  SetText(ASource.FText);
  SetVisibility(ASource.FVisibility);
}

// TvxMapItem

TvxMapItem::TvxMapItem(TvxMapItems* ACollection)
  : FCollection(ACollection), FLayer(ACollection ? ACollection->Layer() : nullptr)
{
  FAttributes = std::make_unique<TvxMapItemAttributes>();
  FAttributes->OnChanged = [this](TvxMapItemAttributes*) { AttributesChanged(); };
  FStyles = std::make_unique<TvxMapItemStylesHelper>(this);
  FStyles->OnChanged = [this](TvxMapItemStylesHelper*) { StyleChanged(); };
  FTitleOptions = std::make_unique<TvxMapItemTitleOptions>();
  FTitleOptions->OnChanged = [this](TvxMapItemTitleOptions*) { TitleOptionsChanged(); };
}

TvxMapItem::~TvxMapItem()
{
  // A dying item leaves the selection, whatever the selection event says.
  if (TvxCustomMapControl* Control = GetMapControl(); Control && !Control->IsDestroying())
    Control->MapItemDestroying(this);
  FAttributes->OnChanged = nullptr;
  FStyles->OnChanged = nullptr;
  FTitleOptions->OnChanged = nullptr;
  FTitleOptions.reset();
  FViewInfo.reset();
  FStyles.reset();
  FAttributes.reset();
}

bool TvxMapItem::IsValidName(const QString& AValue)
{
  if (AValue.isEmpty())
    return true;
  if (AValue.at(0).isDigit())
    return false;
  return std::all_of(AValue.begin(), AValue.end(),
                     [](QChar c) { return c == QLatin1Char('_') || c.isLetterOrNumber(); });
}

void TvxMapItem::SetName(const QString& AValue)
{
  if (!IsValidName(AValue))
    throw EvxComponentNameError(QStringLiteral("Component name \"%1\" is not valid").arg(AValue).toStdString());
  FName = AValue;
}

void TvxMapItem::InitializeViewInfo()
{
  FViewInfo = CreateViewInfo();
  FViewInfo->Create();
}

void TvxMapItem::RecreateViewInfo()
{
  if (FLayer)
    FLayer->ItemViewInfo()->ItemRemoving(this);
  const TvxMapControlElementState State = FViewInfo ? FViewInfo->State() : mcesNormal;
  FViewInfo.reset();
  InitializeViewInfo();
  if (State == mcesSelected)
    FViewInfo->SetState(mcesSelected);
}

std::unique_ptr<TvxMapItemViewInfo> TvxMapItem::CreateViewInfo()
{
  return std::make_unique<TvxMapItemViewInfo>(this);
}

TvxMapLayer* TvxMapItem::ItemLayer() const
{
  return FLayer;
}

TvxMapControlElementViewInfo* TvxMapItem::ItemViewInfo() const
{
  return FViewInfo.get();
}

TvxCustomMapControl* TvxMapItem::GetMapControl() const
{
  return FLayer ? FLayer->MapControl() : nullptr;
}

int TvxMapItem::Index() const
{
  return FCollection ? FCollection->IndexOf(this) : -1;
}

void TvxMapItem::SetIndex(int AValue)
{
  if (FCollection)
    FCollection->Move(Index(), AValue);
}

void TvxMapItem::SetStyle(TvxMapControlElementState AState, const TvxCustomMapItemStyle& AValue)
{
  FStyles->SetStyle(AState, AValue);
}

void TvxMapItem::SetVisible(bool AValue)
{
  if (FVisible == AValue)
    return;
  FVisible = AValue;
  Changed();
}

bool TvxMapItem::Selected() const
{
  return FViewInfo && FViewInfo->State() == mcesSelected;
}

void TvxMapItem::SetSelected(bool AValue)
{
  TvxCustomMapControl* Control = GetMapControl();
  if (!Control)
    return;
  if (AValue)
    Control->Select(this, {}, true);
  else
    Control->Deselect(this);
}

void TvxMapItem::SelectionChanged(Qt::KeyboardModifiers AShift)
{
  if (TvxCustomMapControl* Control = GetMapControl())
    Control->Select(this, AShift, true);
}

void TvxMapItem::Assign(const TvxMapItem& ASource)
{
  if (FCollection)
    FCollection->BeginUpdate();
  DoAssign(ASource);
  if (FCollection)
    FCollection->EndUpdate();
}

void TvxMapItem::DoAssign(const TvxMapItem& ASource)
{
  SetHint(ASource.FHint);
  SetScreenTip(ASource.FScreenTip);
  for (TvxMapControlElementState State : {mcesNormal, mcesHot, mcesSelected})
    SetStyle(State, *ASource.GetStyle(State));
  SetVisible(ASource.FVisible);
}

QString TvxMapItem::GetHint() const
{
  if (!FHint.isEmpty() || !FLayer)
    return FHint;
  return FLayer->GetItemHint(const_cast<TvxMapItem*>(this));
}

void TvxMapItem::InvalidateStylesInfo()
{
  if (FViewInfo)
    FViewInfo->InvalidateStyles();
  Changed();
}

void TvxMapItem::InvalidateTitleInfo()
{
  if (FViewInfo)
    FViewInfo->InvalidateTitleSize();
  Changed();
}

TvxRectDouble TvxMapItem::GetMapBounds() const
{
  return FViewInfo ? FViewInfo->GetMapBounds() : TvxRectDouble();
}

void TvxMapItem::ChangeScale(int, int)
{
  if (FViewInfo)
    FViewInfo->InvalidateTitleSize();
}

void TvxMapItem::AttributesChanged()
{
  if (FViewInfo)
    FViewInfo->InvalidateTitleSize();
  Changed();
}

void TvxMapItem::StyleChanged()
{
  InvalidateStylesInfo();
}

void TvxMapItem::TitleOptionsChanged()
{
  InvalidateTitleInfo();
}

void TvxMapItem::Changed(bool)
{
  if (FCollection)
    FCollection->Changed();
}

// TvxMapItems

TvxMapItems::~TvxMapItems()
{
  Clear();
}

int TvxMapItems::IndexOf(const TvxMapItem* AItem) const
{
  for (size_t I = 0; I < FItems.size(); ++I)
    if (FItems[I].get() == AItem)
      return int(I);
  return -1;
}

void TvxMapItems::Insert(std::unique_ptr<TvxMapItem> AItem)
{
  TvxMapItem* Item = AItem.get();
  FItems.push_back(std::move(AItem));
  Item->InitializeViewInfo();
  Changed();
}

void TvxMapItems::Delete(int AIndex)
{
  if (AIndex < 0 || AIndex >= Count())
    return;
  std::unique_ptr<TvxMapItem> Item = std::move(FItems[size_t(AIndex)]);
  if (FLayer)
    FLayer->ItemViewInfo()->ItemRemoving(Item.get());
  FItems.erase(FItems.begin() + AIndex);
  Item.reset();
  Changed();
}

void TvxMapItems::Move(int AFrom, int ATo)
{
  if (AFrom < 0 || AFrom >= Count())
    return;
  ATo = std::clamp(ATo, 0, Count() - 1);
  if (AFrom == ATo)
    return;
  auto Item = std::move(FItems[size_t(AFrom)]);
  FItems.erase(FItems.begin() + AFrom);
  FItems.insert(FItems.begin() + ATo, std::move(Item));
  Changed();
}

void TvxMapItems::Clear()
{
  if (FItems.empty())
    return;
  if (FLayer)
    FLayer->ItemViewInfo()->ItemsClearing();
  BeginUpdate();
  while (!FItems.empty())
  {
    std::unique_ptr<TvxMapItem> Item = std::move(FItems.back());
    FItems.pop_back();
    Item.reset();
  }
  Changed();
  EndUpdate();
}

void TvxMapItems::ChangeScale(int AM, int AD)
{
  for (const auto& Item : FItems)
    Item->ChangeScale(AM, AD);
}


// TvxCustomMapItemViewInfo

QRect TvxCustomMapItemViewInfo::GetVisibleBounds() const
{
  return FBounds.intersected(ViewPortBounds());
}

void TvxCustomMapItemViewInfo::Paint(TvxMapControlPainter& APainter)
{
  // The paint device clips to the map; an element outside it draws nothing.
  if (!GetVisibleBounds().isEmpty())
    DoPaint(APainter);
}

// TvxMapItemViewInfo

TvxMapItemViewInfo::TvxMapItemViewInfo(TvxMapItem* AItem)
  : FItem(AItem), FCachedRenderScale(NullRenderPoint), FCachedRenderOffset(NullRenderPoint)
{
}

TvxMapItemViewInfo::~TvxMapItemViewInfo()
{
  FTextInfo.reset();
}

void TvxMapItemViewInfo::Create()
{
  TvxCustomMapControl* Control = FItem->GetMapControl();
  if (Control)
    SetController(&Control->Controller());
  if (HasText())
  {
    FTextInfo = std::make_unique<TvxMapItemTextViewInfo>(this);
    if (Control)
      FTextInfo->SetController(&Control->Controller());
  }
}

TvxCustomMapItemLayer* TvxMapItemViewInfo::Layer() const
{
  return FItem->Layer();
}

double TvxMapItemViewInfo::ScaleFactor() const
{
  return Layer() ? Layer()->ScaleFactor() : 1.0;
}

int TvxMapItemViewInfo::ScaleWidth(int AValue) const
{
  return int(std::lround(AValue * ScaleFactor()));
}

QRect TvxMapItemViewInfo::ViewPortBounds() const
{
  return Layer() ? QRect(QPoint(0, 0), Layer()->GetViewportInPixels()) : QRect();
}

void TvxMapItemViewInfo::InvalidateCachedBounds()
{
  FIsCachedBoundsValid = false;
}

void TvxMapItemViewInfo::InvalidateStyles()
{
  FIsCachedBoundsValid = false;
  FIsStylesValid = false;
}

void TvxMapItemViewInfo::InvalidateTitleSize()
{
  FIsTitleSizeValid = false;
}

void TvxMapItemViewInfo::ClearCache()
{
  FIsCachedBoundsValid = false;
  FIsStylesValid = false;
  FIsTitleSizeValid = false;
  TvxCustomMapItemViewInfo::ClearCache();
}

void TvxMapItemViewInfo::CalculateCachedBounds()
{
  DoCalculateCachedBounds();
  FIsCachedBoundsValid = true;
  // The screen geometry depends on what was just computed.
  FCachedRenderScale = NullRenderPoint;
  FCachedRenderOffset = NullRenderPoint;
}

void TvxMapItemViewInfo::CalculateBounds()
{
  TvxCustomMapItemLayer* L = Layer();
  if (!L)
    return;
  if (!FIsCachedBoundsValid)
    CalculateCachedBounds();
  if (FCachedRenderScale == L->RenderScale() && FCachedRenderOffset == L->RenderOffset())
  {
    CalculateTitleBounds();
    return;
  }
  CalculateScreenBounds();
  FDrawBounds = FBounds;
  // The widest border of all states, so no state draws outside the bounds.
  // An empty shape stays empty: it has nothing to frame.
  if (!FBounds.isEmpty())
  {
    const int Margin = int(std::ceil(GetMaxBorderWidth() * ScaleFactor() / 2));
    FBounds.adjust(-Margin, -Margin, Margin, Margin);
  }
  FCachedRenderScale = L->RenderScale();
  FCachedRenderOffset = L->RenderOffset();
  CalculateTitleBounds();
}

bool TvxMapItemViewInfo::CanBeVisible()
{
  if (!IsOwnerVisible() || !Layer())
    return false;
  // Map-scaled shapes are judged in map units, without touching a point.
  if (NeedCalculateScreenBoundsToDetermineVisibility())
    CalculateBounds();
  else if (!FIsCachedBoundsValid)
    CalculateCachedBounds();
  return DoCanBeVisible();
}

bool TvxMapItemViewInfo::IsOwnerVisible() const
{
  return FItem->Visible();
}

TvxRectDouble TvxMapItemViewInfo::GetMapBounds()
{
  if (!FIsCachedBoundsValid)
    CalculateCachedBounds();
  return DoGetMapBounds();
}

bool TvxMapItemViewInfo::HasTitle() const
{
  return !FItem->IsPointer();
}

TvxMapItemTitleVisibility TvxMapItemViewInfo::TitleVisibility() const
{
  const TvxMapItemTitleVisibility Own = FItem->TitleOptions().Visibility();
  const TvxMapItemTitleVisibility Shared = Layer() ? Layer()->ItemTitleOptions().Visibility() : mitvAuto;
  if (Own == mitvHidden || Shared == mitvHidden)
    return mitvHidden;
  if (Own == mitvVisible || Shared == mitvVisible)
    return mitvVisible;
  return mitvAuto;
}

void TvxMapItemViewInfo::CalculateTitleBounds()
{
  if (!HasTitle() || !FTextInfo)
    return;
  const TvxMapItemTitleVisibility Visibility = TitleVisibility();
  if (Visibility == mitvHidden)
  {
    FTextInfo->SetBounds(QRect());
    return;
  }
  if (!FIsTitleSizeValid)
  {
    FTextInfo->CalculateSize();
    FIsTitleSizeValid = true;
  }
  if (Visibility == mitvAuto && IsTitleOutOfBounds())
  {
    FTextInfo->SetBounds(QRect());
    return;
  }
  FTextInfo->SetBounds(DoCalculateTitleBounds());
}

bool TvxMapItemViewInfo::IsTitleOutOfBounds()
{
  if (!FTextInfo)
    return false;
  const QSize S = FTextInfo->Size();
  return FMaxTitleSize.Width < S.width() || FMaxTitleSize.Height < S.height();
}

QRect TvxMapItemViewInfo::DoCalculateTitleBounds()
{
  if (!FTextInfo || FTextInfo->Size().isEmpty())
    return {};
  QRect R = FTextInfo->ClientBounds();
  R.moveCenter(FScreenCenterPoint);
  return R;
}

void TvxMapItemViewInfo::UpdateStyles()
{
  if (!FStyles)
    FStyles = std::make_unique<TvxMapItemStylesHelper>(nullptr);
  FStyles->EnumActualStyles(
    [this](TvxMapControlElementState AState, TvxMapItemStyle& AStyle) { MergeStyles(AState, AStyle); });
  FIsStylesValid = true;
  FIsTitleSizeValid = false;
}

TvxMapItemStyle& TvxMapItemViewInfo::GetStyle(TvxMapControlElementState AState)
{
  if (!FIsStylesValid)
    UpdateStyles();
  // Pressed and disabled have no style of their own.
  TvxMapItemStyle* Style = FStyles->Style(AState);
  return Style ? *Style : *FStyles->Style(AState == mcesSelected ? mcesSelected : mcesHot);
}

TvxMapItemStyle& TvxMapItemViewInfo::GetStyle()
{
  return GetStyle(State());
}

int TvxMapItemViewInfo::GetMaxBorderWidth()
{
  if (!FIsStylesValid)
    UpdateStyles();
  return FStyles->GetMaxBorderWidth();
}

const QFont& TvxMapItemViewInfo::GetMaxSizeFont()
{
  if (!FIsStylesValid)
    UpdateStyles();
  return FStyles->GetMaxSizeFont();
}

TvxMapControlPainter& TvxMapItemViewInfo::Painter() const
{
  TvxCustomMapControl* Control = FItem->GetMapControl();
  return Control ? Control->Painter() : DefaultPainter();
}

quint32 TvxMapItemViewInfo::GetColor(TvxMapControlElementState AState) const
{
  return Painter().MapControlShapeColor(AState);
}

quint32 TvxMapItemViewInfo::GetBorderColor(TvxMapControlElementState AState) const
{
  return Painter().MapControlShapeBorderColor(AState);
}

int TvxMapItemViewInfo::GetBorderWidth(TvxMapControlElementState AState) const
{
  return Painter().MapControlShapeBorderWidth(AState);
}

quint32 TvxMapItemViewInfo::GetTextColor() const
{
  return Painter().MapControlMapCustomElementTextColor();
}

quint32 TvxMapItemViewInfo::GetTextGlowColor() const
{
  return Painter().MapControlMapCustomElementTextGlowColor();
}

void TvxMapItemViewInfo::MergeStyles(TvxMapControlElementState AState, TvxMapItemStyle& AStyle)
{
  // Normal, hot and selected are separate chains: item, layer, painter.
  // Styles nobody asked for set nothing: they are looked at, not made.
  const TvxMapItemStyle* I = FItem->FindStyle(AState);
  const TvxMapItemStyle* L = Layer() ? Layer()->ItemStyles().FindStyle(AState) : nullptr;
  auto Pick = [&](TvxMapItemStyleValue AFlag, quint32 (TvxCustomMapItemStyle::*AGet)() const, quint32 ADefault) {
    quint32 Value = vxMapControlDefaultAlphaColor;
    if (I && I->IsAssigned(AFlag))
      Value = (I->*AGet)();
    else if (L && L->IsAssigned(AFlag))
      Value = (L->*AGet)();
    return Value == vxMapControlDefaultAlphaColor ? ADefault : Value;
  };
  AStyle.SetColor(Pick(mcsvColor, &TvxCustomMapItemStyle::Color, GetColor(AState)));
  if (I && I->IsAssigned(mcsvBorderWidth))
    AStyle.SetBorderWidth(I->BorderWidth());
  else if (L && L->IsAssigned(mcsvBorderWidth))
    AStyle.SetBorderWidth(L->BorderWidth());
  else
    AStyle.SetBorderWidth(GetBorderWidth(AState));
  AStyle.SetBorderColor(Pick(mcsvBorderColor, &TvxCustomMapItemStyle::BorderColor, GetBorderColor(AState)));
  if (I && I->IsAssigned(mcsvFont))
    AStyle.SetFont(I->Font());
  else if (L && L->IsAssigned(mcsvFont))
    AStyle.SetFont(L->Font());
  AStyle.SetTextColor(Pick(mcsvTextColor, &TvxCustomMapItemStyle::TextColor, GetTextColor()));
  AStyle.SetTextGlowColor(Pick(mcsvTextGlowColor, &TvxCustomMapItemStyle::TextGlowColor, GetTextGlowColor()));
}

QString TvxMapItemViewInfo::GetText()
{
  QString Pattern = FItem->TitleOptions().Text();
  if (Pattern.isEmpty() && Layer())
    Pattern = Layer()->ItemTitleOptions().Text();
  if (Pattern.isEmpty())
    return {};
  return vxParseTextPattern(Pattern, FItem->Attributes());
}

QString TvxMapItemViewInfo::GetHint() const
{
  const QString Hint = FItem->GetHint();
  return Hint.isEmpty() ? Hint : vxParseTextPattern(Hint, FItem->Attributes());
}

QString TvxMapItemViewInfo::GetScreenTip() const
{
  return FItem->ScreenTip();
}

void TvxMapItemViewInfo::Invalidate()
{
  TvxCustomMapItemLayer* L = Layer();
  if (!L)
    return;
  QRect R = FBounds;
  if (HasTitle() && FTextInfo)
    R = R.united(FTextInfo->Bounds());
  L->InvalidateRect(R.intersected(ViewPortBounds()));
}

void TvxMapItemViewInfo::MouseDown(Qt::MouseButton, const QPoint&)
{
  FItem->SelectionChanged(FItem->GetMapControl() ? FItem->GetMapControl()->ShiftState() : Qt::NoModifier);
}

bool TvxMapItemViewInfo::PtInElement(const QPoint& APoint) const
{
  // Nothing outside the visible map can be hit.
  return TvxCustomMapItemViewInfo::PtInElement(APoint) && ViewPortBounds().contains(APoint);
}

bool TvxMapItemViewInfo::IsIntersect(const QRect& ARect)
{
  return ARect.intersects(FBounds);
}

TvxMapControlElementStates TvxMapItemViewInfo::GetForbiddenStates() const
{
  TvxMapControlElementStates Result =
    TvxCustomMapItemViewInfo::GetForbiddenStates() | vxElementStateBit(mcesPressed) | vxElementStateBit(mcesDisabled);
  if (Layer() && !Layer()->AllowHotTrack())
    Result |= vxElementStateBit(mcesHot);
  return Result;
}

// TvxMapItemTextViewInfo

TvxMapItemTextViewInfo::TvxMapItemTextViewInfo(TvxMapItemViewInfo* AMapItemViewInfo)
  : FMapItemViewInfo(AMapItemViewInfo)
{
}

QSize TvxMapItemTextViewInfo::DoCalculateSize()
{
  FText = FMapItemViewInfo->GetText();
  FIsCacheTextValid = false;
  if (FText.isEmpty())
  {
    FClientBounds = QRect();
    return {};
  }
  const QFont Font = vxScaledItemFont(FMapItemViewInfo->GetMaxSizeFont(), FMapItemViewInfo->ScaleFactor());
  const QSize Text = vxMeasureItemText(Font, FText);
  // Room for the glow on both sides.
  FClientBounds = QRect(0, 0, Text.width() + 4, Text.height());
  return FClientBounds.size();
}

void TvxMapItemTextViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  if (FBounds.isEmpty())
    return;
  const TvxMapControlElementState State = GetState();
  if (!FIsCacheTextValid || State != FCachedState || FCachedText.size() != FBounds.size())
  {
    TvxMapItemStyle& Style = FMapItemViewInfo->GetStyle(State);
    FCachedText = QImage(FBounds.size(), QImage::Format_ARGB32_Premultiplied);
    FCachedText.fill(Qt::transparent);
    QPainter Canvas(&FCachedText);
    vxDrawItemGlowText(Canvas, FClientBounds.translated(-FClientBounds.topLeft()), FText,
                       vxScaledItemFont(Style.Font(), FMapItemViewInfo->ScaleFactor()),
                       QColor::fromRgba(Style.TextColor()), QColor::fromRgba(Style.TextGlowColor()));
    FIsCacheTextValid = true;
    FCachedState = State;
  }
  APainter.Canvas().drawImage(FBounds.topLeft(), FCachedText);
}

// TvxMapItemsZoomHelper

bool TvxMapItemsZoomHelper::CalculateMapBounds(const TvxMapItemList& AItems, TvxRectDouble& ABounds)
{
  bool Found = false;
  for (IvxMapItem* Item : AItems)
  {
    if (!Item->ItemVisible() || !Item->ItemLayer() || !Item->ItemLayer()->IsActuallyVisible())
      continue;
    const TvxRectDouble R = Item->ItemMapBounds();
    ABounds = Found ? vxUnionRectDouble(ABounds, R) : R;
    Found = true;
  }
  return Found;
}
