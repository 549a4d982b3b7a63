#include "vxMapControlNavigationPanel.h"

#include "vxMapControl.h"

#include <QCoreApplication>
#include <QFontMetrics>
#include <QLocale>
#include <QRegularExpression>

#include <array>
#include <cmath>

namespace
{
QString Text(const char* AText)
{
  return QCoreApplication::translate("vxMapControl", AText);
}

QString svxMapControlWest() { return Text("W"); }
QString svxMapControlEast() { return Text("E"); }
QString svxMapControlSouth() { return Text("S"); }
QString svxMapControlNorth() { return Text("N"); }
QString svxMapControlKilometers() { return Text("km"); }
QString svxMapControlMeters() { return Text("m"); }
QString svxMapControlMiles() { return Text("mi"); }
QString svxMapControlFeet() { return Text("ft"); }

const QChar DegreeSign(176);

int MulDiv(int AValue, int AM, int AD)
{
  return AD == 0 ? AValue : int(std::lround(double(AValue) * AM / AD));
}

int Right(const QRect& ARect)
{
  return ARect.x() + ARect.width();
}

int Bottom(const QRect& ARect)
{
  return ARect.y() + ARect.height();
}

QSize TextSize(const QFont& AFont, const QString& AText)
{
  const QFontMetrics Metrics(AFont);
  return {Metrics.horizontalAdvance(AText), Metrics.height()};
}

QColor AlphaColor(quint32 AValue, const QColor& ADefault)
{
  return AValue == vxMapControlDefaultAlphaColor ? ADefault : QColor::fromRgba(AValue);
}

QColor WithoutAlpha(QColor AColor)
{
  AColor.setAlpha(255);
  return AColor;
}

QColor ElementColorByState(const TvxCustomMapControl* AControl, TvxMapControlElementState AState)
{
  const TvxMapControlNavigationPanelStyle& Style = AControl->NavigationPanel().Style();
  const TvxMapControlLookAndFeel& LookAndFeel = AControl->Painter().LookAndFeel();
  switch (AState)
  {
  case mcesHot:
    return AlphaColor(Style.ElementHotColor(), LookAndFeel.ElementHotColor);
  case mcesPressed:
    return AlphaColor(Style.ElementPressedColor(), LookAndFeel.ElementPressedColor);
  default:
    return AlphaColor(Style.ElementColor(), LookAndFeel.ElementColor);
  }
}

QColor TextColor(const TvxCustomMapControl* AControl, quint32 AValue)
{
  if (AValue != vxMapControlDefaultColor)
    return QColor::fromRgb(AValue);
  return WithoutAlpha(ElementColorByState(AControl, mcesNormal));
}
}

// Style and panel

TvxMapControlNavigationPanelStyle::TvxMapControlNavigationPanelStyle(TvxMapControlNavigationPanel* AOwner)
  : FOwner(AOwner)
{
  // Sizes 16 and 12 at 96 DPI.
  FCoordinateFont.setPixelSize(21);
  FScaleFont.setPixelSize(16);
}

void TvxMapControlNavigationPanelStyle::SetValue(quint32& AField, quint32 AValue)
{
  if (AField == AValue)
    return;
  AField = AValue;
  Changed();
}

void TvxMapControlNavigationPanelStyle::SetCoordinateFont(const QFont& AValue)
{
  if (FCoordinateFont == AValue)
    return;
  FCoordinateFont = AValue;
  Changed();
}

void TvxMapControlNavigationPanelStyle::SetScaleFont(const QFont& AValue)
{
  if (FScaleFont == AValue)
    return;
  FScaleFont = AValue;
  Changed();
}

void TvxMapControlNavigationPanelStyle::ChangeScale(int AM, int AD)
{
  for (QFont* Font : {&FCoordinateFont, &FScaleFont})
    if (Font->pixelSize() > 0)
      Font->setPixelSize(std::max(1, MulDiv(Font->pixelSize(), AM, AD)));
    else
      Font->setPointSizeF(Font->pointSizeF() * AM / AD);
  Changed();
}

void TvxMapControlNavigationPanelStyle::Changed()
{
  FOwner->Changed();
}

TvxMapControlNavigationPanel::TvxMapControlNavigationPanel(TvxCustomMapControl* AMapControl)
  : FMapControl(AMapControl), FStyle(this)
{
}

void TvxMapControlNavigationPanel::ChangeScale(int AM, int AD)
{
  FHeight = MulDiv(FHeight, AM, AD);
  FStyle.ChangeScale(AM, AD);
}

void TvxMapControlNavigationPanel::Changed()
{
  FMapControl->Changed();
}

void TvxMapControlNavigationPanel::SetCoordinateFormatter(TCoordinateFormatter AFormatter, const QString& AWidestText)
{
  FCoordinateFormatter = std::move(AFormatter);
  FCoordinateWidestText = AWidestText;
  Changed();
}

// Coordinates text

namespace vxMapControlCoordinates
{
namespace
{
QString PatternToken(const QString& AContent)
{
  if (AContent == QLatin1String("CP"))
    return QStringLiteral("%0:s");
  static const QString Units = QStringLiteral("DMS");
  if (AContent.size() == 1 && Units.contains(AContent))
    return QStringLiteral("%%1:d").arg(Units.indexOf(AContent) + 1);
  static const QRegularExpression Decimal(QStringLiteral("^([DMS]):([1-9])$"));
  const QRegularExpressionMatch Match = Decimal.match(AContent);
  if (Match.hasMatch())
    return QStringLiteral("%%1:.%2f").arg(Units.indexOf(Match.captured(1)) + 4).arg(Match.captured(2));
  return {};
}
}

QString ParsePattern(const QString& APattern)
{
  if (!APattern.contains(QLatin1Char('{')))
    return APattern;
  QString Result;
  qsizetype I = 0;
  while (I < APattern.size())
  {
    const QChar C = APattern.at(I);
    if (C != QLatin1Char('{'))
    {
      Result += C;
      ++I;
      continue;
    }
    const qsizetype Close = APattern.indexOf(QLatin1Char('}'), I + 1);
    // A brace left open ends the pattern.
    if (Close < 0)
      break;
    Result += PatternToken(APattern.mid(I + 1, Close - I - 1).toUpper());
    I = Close + 1;
  }
  return Result;
}

QString FormatPattern(const QString& AFormat, const QString& ALetter, double AValue)
{
  const double V = std::abs(AValue);
  const double Minutes = (V - std::trunc(V)) * 60;
  const double Seconds = (Minutes - std::trunc(Minutes)) * 60;
  // A value no integer holds (NaN, say) shows as 0 in the integer fields
  // rather than being converted, which is undefined.
  const auto Whole = [](double AX) { return std::isfinite(AX) && AX < 9.0e18 ? qint64(std::trunc(AX)) : qint64(0); };
  const std::array<qint64, 3> Integers{Whole(V), Whole(Minutes), Whole(Seconds)};
  const std::array<double, 3> Floats{V, Minutes, Seconds};
  const QLocale Locale;

  // The format language of the masks: %[index:][-][width][.precision]type
  // with the types s, d and f over the seven arguments. A specifier that
  // does not fit its argument is shown as written.
  static const QRegularExpression Specifier(QStringLiteral("%(?:(\\d+):)?(-)?(\\d+)?(?:\\.(\\d+))?([sdfSDF])"));
  QString Result;
  qsizetype I = 0;
  int NextIndex = 0;
  while (I < AFormat.size())
  {
    const QChar C = AFormat.at(I);
    if (C != QLatin1Char('%'))
    {
      Result += C;
      ++I;
      continue;
    }
    if (I + 1 < AFormat.size() && AFormat.at(I + 1) == QLatin1Char('%'))
    {
      Result += QLatin1Char('%');
      I += 2;
      continue;
    }
    const QRegularExpressionMatch Match =
      Specifier.match(AFormat, I, QRegularExpression::NormalMatch, QRegularExpression::AnchorAtOffsetMatchOption);
    if (!Match.hasMatch())
    {
      Result += C;
      ++I;
      continue;
    }
    const int Index = Match.captured(1).isEmpty() ? NextIndex : Match.captured(1).toInt();
    NextIndex = Index + 1;
    const bool LeftAlign = !Match.captured(2).isEmpty();
    const int Width = Match.captured(3).toInt();
    const bool HasPrecision = !Match.captured(4).isEmpty();
    const int Precision = std::min(Match.captured(4).toInt(), 18);
    const QChar Type = Match.captured(5).at(0).toLower();
    QString Piece;
    bool Fits = true;
    if (Type == QLatin1Char('s') && Index == 0)
      Piece = HasPrecision ? ALetter.left(Precision) : ALetter;
    else if (Type == QLatin1Char('d') && Index >= 1 && Index <= 3)
    {
      Piece = QString::number(Integers[size_t(Index - 1)]);
      if (HasPrecision && Piece.size() < Precision)
        Piece = Piece.rightJustified(Precision, QLatin1Char('0'));
    }
    else if (Type == QLatin1Char('f') && Index >= 4 && Index <= 6)
      Piece = Locale.toString(Floats[size_t(Index - 4)], 'f', HasPrecision ? Precision : 2);
    else
      Fits = false;
    if (!Fits)
      Piece = Match.captured(0);
    else if (Piece.size() < Width)
      Piece = LeftAlign ? Piece.leftJustified(Width) : Piece.rightJustified(Width);
    Result += Piece;
    I = Match.capturedEnd(0);
  }
  return Result;
}

namespace
{
QString AxisText(const QString& APattern, const QString& ALetter, double AValue)
{
  if (!APattern.isEmpty())
    return FormatPattern(APattern, ALetter, AValue);
  return QLocale().toString(std::abs(AValue), 'f', 1) + DegreeSign + ALetter;
}
}

QString GeoPointToText(const TvxMapControlGeoPoint& APoint, const QString& AXPattern, const QString& AYPattern)
{
  // Exact zero counts as south and west.
  const QString LatitudeLetter = APoint.Latitude > 0 ? svxMapControlNorth() : svxMapControlSouth();
  const QString LongitudeLetter = APoint.Longitude > 0 ? svxMapControlEast() : svxMapControlWest();
  return AxisText(AYPattern, LatitudeLetter, APoint.Latitude) + QStringLiteral("    ") +
         AxisText(AXPattern, LongitudeLetter, APoint.Longitude);
}
}

// Scale ranges

namespace
{
constexpr std::array<double, 23> KilometersScaleRanges{10000, 5000, 2500, 1000, 500,  250,   200,  100,
                                                      50,    25,   20,   10,   5,    2.5,   1,    0.5,
                                                      0.25,  0.2,  0.1,  0.05, 0.025, 0.01, 0.005};
constexpr std::array<double, 23> MilesScaleRanges = KilometersScaleRanges;
constexpr std::array<double, 14> FootsScaleRanges{5000, 2500, 1000, 500, 250, 200, 100, 50, 25, 20, 10, 5, 2, 1};

template <size_t N>
bool FirstRange(const std::array<double, N>& ARanges, double AValue, double& ARange)
{
  for (double Range : ARanges)
    if (Range <= AValue)
    {
      ARange = Range;
      return true;
    }
  return false;
}

QString WholeText(double AValue)
{
  // Truncated on purpose: the range 2.5 reads 2 while its line keeps 2.5.
  return QString::number(qint64(std::trunc(AValue)));
}
}

TvxMapControlScaleLengths vxCalculateScaleLineLength(double AKilometersScale, int AMaxLineWidth)
{
  TvxMapControlScaleLengths Result;
  double Range = 0;
  if (FirstRange(KilometersScaleRanges, AKilometersScale, Range))
  {
    Result.KilometersLineWidth = int(std::lround(AMaxLineWidth * Range / AKilometersScale));
    double Value = Range;
    if (Range >= 1)
      Result.MetersMeasure = svxMapControlKilometers();
    else
    {
      Result.MetersMeasure = svxMapControlMeters();
      Value = Range * 1000;
    }
    Result.MetersText = WholeText(Value);
  }
  const double Miles = AKilometersScale * 0.621371192;
  if (Miles >= 1)
  {
    if (!FirstRange(MilesScaleRanges, Miles, Range))
      return Result;
    Result.MilesLineWidth = int(std::lround(AMaxLineWidth * Range / Miles));
    Result.MilesMeasure = svxMapControlMiles();
  }
  else
  {
    const double Feet = Miles * 5280;
    if (!FirstRange(FootsScaleRanges, Feet, Range))
      return Result;
    Result.MilesLineWidth = int(std::lround(AMaxLineWidth * Range / Feet));
    Result.MilesMeasure = svxMapControlFeet();
  }
  Result.MilesText = WholeText(Range);
  return Result;
}

// Coordinates element

void TvxMapControlCoordinatesViewInfo::Initialize()
{
  TvxMapControlUIElementViewInfo::Initialize();
  const TvxMapControlNavigationPanel& Panel = MapControl()->NavigationPanel();
  FXPattern = Panel.XCoordinateDisplayMask().isEmpty()
                ? QString()
                : vxMapControlCoordinates::ParsePattern(Panel.XCoordinateDisplayMask());
  FYPattern = Panel.YCoordinateDisplayMask().isEmpty()
                ? QString()
                : vxMapControlCoordinates::ParsePattern(Panel.YCoordinateDisplayMask());
  FText = TextAt(MapControl()->MousePos());
}

QString TvxMapControlCoordinatesViewInfo::TextAt(const QPoint& APoint) const
{
  const TvxMapControlGeoPoint Point = MapControl()->ScreenPointToGeoPoint({double(APoint.x()), double(APoint.y())});
  if (const auto& Formatter = MapControl()->NavigationPanel().CoordinateFormatter())
    return Formatter(Point);
  return vxMapControlCoordinates::GeoPointToText(Point, FXPattern, FYPattern);
}

void TvxMapControlCoordinatesViewInfo::SetText(const QString& AValue)
{
  if (FText == AValue)
    return;
  FText = AValue;
  Invalidate();
}

void TvxMapControlCoordinatesViewInfo::MouseMove(const QPoint& APoint)
{
  SetText(TextAt(APoint));
}

QSize TvxMapControlCoordinatesViewInfo::DoCalculateSize()
{
  const TvxMapControlNavigationPanel& Panel = MapControl()->NavigationPanel();
  const QFont& Font = Panel.Style().CoordinateFont();
  if (Panel.CoordinateFormatter())
    return TextSize(Font, Panel.CoordinateWidestText());
  if (FXPattern.isEmpty() && FYPattern.isEmpty())
  {
    const QSize Numbers = TextSize(Font, QStringLiteral("00.0") + DegreeSign + QStringLiteral("    000.0") + DegreeSign);
    const QSize West = TextSize(Font, svxMapControlWest());
    const QSize East = TextSize(Font, svxMapControlEast());
    const QSize South = TextSize(Font, svxMapControlSouth());
    const QSize North = TextSize(Font, svxMapControlNorth());
    const int Width = Numbers.width() + std::max(West.width(), East.width()) + std::max(South.width(), North.width());
    const int Height = std::max({Numbers.height(), West.height(), East.height(), South.height(), North.height()});
    return {Width, Height};
  }
  // The widest of the four extremes, so the element keeps its size while
  // the mouse moves.
  QSize Result;
  for (double Latitude : {89.725, -89.725})
    for (double Longitude : {179.725, -179.725})
    {
      const QSize Size = TextSize(
        Font, vxMapControlCoordinates::GeoPointToText(TvxMapControlGeoPoint::Create(Latitude, Longitude), FXPattern,
                                                      FYPattern));
      Result = Result.expandedTo(Size);
    }
  return Result;
}

void TvxMapControlCoordinatesViewInfo::Paint(TvxMapControlPainter& APainter)
{
  const TvxMapControlNavigationPanelStyle& Style = MapControl()->NavigationPanel().Style();
  APainter.DrawCoordinatesInfo(FBounds, FText, Style.CoordinateFont(),
                               TextColor(MapControl(), Style.CoordinateTextColor()));
}

// Scale element

QSize TvxMapControlScaleViewInfo::DoCalculateSize()
{
  TvxCustomMapControl* Control = MapControl();
  const TvxMapControlNavigationPanel& Panel = Control->NavigationPanel();
  const int MaxWidth = ScaleValue(130);
  const TvxMapControlScaleLengths Lengths =
    vxCalculateScaleLineLength(Control->GetKilometersScale(Control->ActualCenterPoint(), MaxWidth), MaxWidth);
  FMetersText = Lengths.MetersText;
  FMetersMeasure = Lengths.MetersMeasure;
  FKilometersLineWidth = Lengths.KilometersLineWidth;
  FMilesText = Lengths.MilesText;
  FMilesMeasure = Lengths.MilesMeasure;
  FMilesLineWidth = Lengths.MilesLineWidth;
  FIsKilometersVisible = Panel.ShowKilometersScale() && !FMetersText.isEmpty();
  FIsMilesVisible = Panel.ShowMilesScale() && !FMilesText.isEmpty();

  const QFont& Font = Panel.Style().ScaleFont();
  const auto Label = [&Font](QString& AText, const QString& AMeasure, int ALineWidth) {
    const QString Full = AText + QLatin1Char(' ') + AMeasure;
    if (TextSize(Font, Full).width() < ALineWidth)
      AText = Full;
    return TextSize(Font, AText);
  };
  FKilometersTextSize = FIsKilometersVisible ? Label(FMetersText, FMetersMeasure, FKilometersLineWidth) : QSize();
  FMilesTextSize = FIsMilesVisible ? Label(FMilesText, FMilesMeasure, FMilesLineWidth) : QSize();
  if (!FIsKilometersVisible && !FIsMilesVisible)
  {
    FScaleSize = QSize();
    return {};
  }
  const int LineWidth =
    std::max(FIsKilometersVisible ? FKilometersLineWidth : 0, FIsMilesVisible ? FMilesLineWidth : 0);
  FScaleSize = QSize(LineWidth, ScaleValue(FIsKilometersVisible && FIsMilesVisible ? 15 : 9));
  const int Width = std::max({FKilometersTextSize.width(), FMilesTextSize.width(), FScaleSize.width()});
  return {Width, FKilometersTextSize.height() + FMilesTextSize.height() + FScaleSize.height()};
}

void TvxMapControlScaleViewInfo::CalculateBounds()
{
  int Top = FBounds.top();
  const int Left = FBounds.left();
  FKilometersTextBounds = QRect();
  FMilesTextBounds = QRect();
  if (FIsKilometersVisible)
  {
    FKilometersTextBounds = QRect(QPoint(Left, Top), FKilometersTextSize);
    Top += FKilometersTextSize.height();
  }
  else if (FIsMilesVisible)
  {
    FMilesTextBounds = QRect(QPoint(Left, Top), FMilesTextSize);
    Top += FMilesTextSize.height();
  }
  FScaleBounds = QRect(QPoint(Left, Top), FScaleSize);
  if (FIsKilometersVisible && FIsMilesVisible)
    FMilesTextBounds = QRect(QPoint(Left, Bottom(FScaleBounds)), FMilesTextSize);
  TvxMapControlUIElementViewInfo::CalculateBounds();
}

void TvxMapControlScaleViewInfo::Paint(TvxMapControlPainter& APainter)
{
  if (!FIsKilometersVisible && !FIsMilesVisible)
    return;
  const TvxMapControlNavigationPanelStyle& Style = MapControl()->NavigationPanel().Style();
  const QColor LineColor = WithoutAlpha(ElementColorByState(MapControl(), mcesNormal));
  APainter.DrawScale(FScaleBounds, FKilometersLineWidth, FMilesLineWidth, FIsKilometersVisible, FIsMilesVisible,
                     LineColor, ScaleValue(2), ScaleValue(3));
  const QColor Color = TextColor(MapControl(), Style.ScaleTextColor());
  if (FIsKilometersVisible)
    APainter.DrawScaleText(FKilometersTextBounds, FMetersText, Style.ScaleFont(), Color);
  if (FIsMilesVisible)
    APainter.DrawScaleText(FMilesTextBounds, FMilesText, Style.ScaleFont(), Color);
}

// Scroll buttons

TvxMapControlScrollButtonsViewInfo::TvxMapControlScrollButtonsViewInfo(TvxMapControlViewInfo* AViewInfo)
  : TvxMapControlUIElementViewInfo(AViewInfo)
{
  FScrollTimer.setInterval(200);
  QObject::connect(&FScrollTimer, &QTimer::timeout, [this] { ScrollTimerTick(); });
}

QSize TvxMapControlScrollButtonsViewInfo::DoCalculateSize()
{
  return {ScaleValue(58), ScaleValue(58)};
}

void TvxMapControlScrollButtonsViewInfo::CalculateBounds()
{
  FCenter = QPoint(FBounds.x() + FBounds.width() / 2, FBounds.y() + FBounds.height() / 2);
  TvxMapControlUIElementViewInfo::CalculateBounds();
}

void TvxMapControlScrollButtonsViewInfo::Invalidate()
{
  MapControl()->InvalidateRect(FBounds.adjusted(-1, -1, 1, 1));
}

void TvxMapControlScrollButtonsViewInfo::MouseDown(Qt::MouseButton, const QPoint& APoint)
{
  // The distance from the centre is the speed.
  FScaleDelta = APoint - FCenter;
  ScrollTimerTick();
  FScrollTimer.start();
}

void TvxMapControlScrollButtonsViewInfo::MouseMove(const QPoint& APoint)
{
  if (IsCapture())
    FScaleDelta = APoint - FCenter;
}

void TvxMapControlScrollButtonsViewInfo::MouseUp(Qt::MouseButton, const QPoint&)
{
  FScrollTimer.stop();
}

void TvxMapControlScrollButtonsViewInfo::ScrollTimerTick()
{
  MapControl()->ScrollMap(FScaleDelta.x(), FScaleDelta.y());
}

void TvxMapControlScrollButtonsViewInfo::Paint(TvxMapControlPainter& APainter)
{
  APainter.DrawScrollButtons(FBounds, FCenter, ElementColorByState(MapControl(), State()), ScaleFactor());
}

// Zoom track bar

void TvxMapControlZoomTrackBarScaleViewInfo::MouseDown(Qt::MouseButton, const QPoint& APoint)
{
  FTrackBar->SetZoomLevelByThumbPosition(APoint.x());
}

void TvxMapControlZoomTrackBarScaleViewInfo::Paint(TvxMapControlPainter& APainter)
{
  APainter.DrawZoomTrackBarScale(FDrawBounds, FTrackBar->ThumbViewInfo().DrawBounds(),
                                 ElementColorByState(MapControl(), State()));
}

void TvxMapControlZoomTrackBarThumbViewInfo::MouseMove(const QPoint& APoint)
{
  if (IsCapture())
    FTrackBar->SetZoomLevelByThumbPosition(APoint.x());
}

void TvxMapControlZoomTrackBarThumbViewInfo::Paint(TvxMapControlPainter& APainter)
{
  APainter.DrawZoomTrackBarThumbnail(FDrawBounds, ElementColorByState(MapControl(), State()));
}

void TvxMapControlZoomTrackBarZoomButtonViewInfo::Click()
{
  FTrackBar->ZoomBy(FZoomIn ? 1.0 : -1.0);
}

void TvxMapControlZoomTrackBarZoomButtonViewInfo::Paint(TvxMapControlPainter& APainter)
{
  const QColor Color = ElementColorByState(MapControl(), State());
  APainter.DrawZoomTrackBarZoomButtonBackground(FDrawBounds, Color, ScaleFactor());
  APainter.DrawZoomTrackBarZoomButtonIcon(FDrawBounds, FZoomIn, Color, ScaleFactor());
}

TvxMapControlZoomTrackBarViewInfo::TvxMapControlZoomTrackBarViewInfo(TvxMapControlViewInfo* AViewInfo)
  : TvxMapControlUIElementViewInfo(AViewInfo),
    FZoomOut(std::make_unique<TvxMapControlZoomTrackBarZoomButtonViewInfo>(AViewInfo, this, false)),
    FZoomIn(std::make_unique<TvxMapControlZoomTrackBarZoomButtonViewInfo>(AViewInfo, this, true)),
    FScale(std::make_unique<TvxMapControlZoomTrackBarScaleViewInfo>(AViewInfo, this)),
    FThumb(std::make_unique<TvxMapControlZoomTrackBarThumbViewInfo>(AViewInfo, this))
{
}

TvxMapControlZoomTrackBarViewInfo::~TvxMapControlZoomTrackBarViewInfo() = default;

void TvxMapControlZoomTrackBarViewInfo::AddVisibleElements()
{
  // The thumb last, so that it wins the hit test over the scale beneath.
  AddVisibleElement(FZoomOut.get());
  AddVisibleElement(FZoomIn.get());
  AddVisibleElement(FScale.get());
  AddVisibleElement(FThumb.get());
}

QSize TvxMapControlZoomTrackBarViewInfo::DoCalculateSize()
{
  return {2 * ScaleValue(33) + ScaleValue(140) + 2 * ScaleValue(5), ScaleValue(33)};
}

void TvxMapControlZoomTrackBarViewInfo::CalculateBounds()
{
  const int ButtonWidth = ScaleValue(33);
  const int ButtonHeight = ScaleValue(33);
  const int Offset = ScaleValue(5);
  const int ScaleWidth = ScaleValue(140);
  const int ScaleHeight = ScaleValue(20);
  const int ThumbWidth = ScaleValue(11);
  const int ThumbHeight = ScaleValue(20);
  const int Inset = ScaleValue(2);
  const auto CentredTop = [this](int AHeight) { return FBounds.y() + (FBounds.height() - AHeight) / 2; };

  FZoomOut->SetBounds(QRect(FBounds.x(), CentredTop(ButtonHeight), ButtonWidth, ButtonHeight));
  FZoomIn->SetBounds(QRect(Right(FBounds) - ButtonWidth, CentredTop(ButtonHeight), ButtonWidth, ButtonHeight));
  const QRect ScaleBounds(Right(FZoomOut->Bounds()) + Offset, CentredTop(ScaleHeight), ScaleWidth, ScaleHeight);
  FScale->SetBounds(ScaleBounds);
  FPixelsPerScaleInterval = ScaleWidth / int(MapControl()->GetMaxZoomLevel());
  // From the target level, so the thumb jumps at once while the zoom moves.
  const int ThumbLeft = int(std::lround((MapControl()->ZoomLevel() - 1) * FPixelsPerScaleInterval)) +
                        ScaleBounds.x() + FPixelsPerScaleInterval / 2 - ThumbWidth / 2;
  FThumb->SetBounds(QRect(ThumbLeft, CentredTop(ThumbHeight), ThumbWidth, ThumbHeight));

  FZoomOut->SetDrawBounds(FZoomOut->Bounds().adjusted(Inset, Inset, -Inset, -Inset));
  FZoomIn->SetDrawBounds(FZoomIn->Bounds().adjusted(Inset, Inset, -Inset, -Inset));
  const int BarHeight = ScaleValue(3);
  FScale->SetDrawBounds(
    QRect(ScaleBounds.x(), ScaleBounds.y() + (ScaleBounds.height() - BarHeight) / 2, ScaleBounds.width(), BarHeight));
  FThumb->SetDrawBounds(FThumb->Bounds().adjusted(Inset, 0, -Inset, 0));
  TvxMapControlUIElementViewInfo::CalculateBounds();
}

void TvxMapControlZoomTrackBarViewInfo::SetZoomLevelByThumbPosition(int AX)
{
  if (FPixelsPerScaleInterval <= 0)
    return;
  // No +1 here, unlike the thumb's own position: kept as it stands.
  const double Level = std::round(double(AX - FScale->Bounds().x()) / FPixelsPerScaleInterval);
  TvxCustomMapControl* Control = MapControl();
  if (Control->CanAnimate())
    Control->ZoomAsync(Level);
  else
    Control->Zoom(Level, false);
}

void TvxMapControlZoomTrackBarViewInfo::ZoomBy(double ADelta)
{
  TvxCustomMapControl* Control = MapControl();
  if (Control->CanAnimate())
    Control->ZoomAsync(Control->ZoomLevel() + ADelta);
  else
    Control->Zoom(Control->ZoomLevel() + ADelta, false);
}

void TvxMapControlZoomTrackBarViewInfo::Paint(TvxMapControlPainter& APainter)
{
  APainter.DrawZoomTrackBarBackground(FBounds);
  TvxMapControlUIElementViewInfo::Paint(APainter);
}

// The panel

TvxMapControlNavigationPanelViewInfo::TvxMapControlNavigationPanelViewInfo(TvxMapControlViewInfo* AViewInfo)
  : TvxMapControlUIElementViewInfo(AViewInfo),
    FCoordinatesViewInfo(std::make_unique<TvxMapControlCoordinatesViewInfo>(AViewInfo)),
    FScaleViewInfo(std::make_unique<TvxMapControlScaleViewInfo>(AViewInfo)),
    FScrollButtonsViewInfo(std::make_unique<TvxMapControlScrollButtonsViewInfo>(AViewInfo)),
    FZoomTrackBarViewInfo(std::make_unique<TvxMapControlZoomTrackBarViewInfo>(AViewInfo))
{
}

TvxMapControlNavigationPanelViewInfo::~TvxMapControlNavigationPanelViewInfo() = default;

void TvxMapControlNavigationPanelViewInfo::AddVisibleElements()
{
  const TvxCustomMapControl* Control = MapControl();
  const TvxMapControlNavigationPanel& Panel = Control->NavigationPanel();
  const TvxMapControlOptionsBehavior& Options = Control->OptionsBehavior();
  if (Panel.ShowScrollButtons() && Options.Scrolling())
    AddVisibleElement(FScrollButtonsViewInfo.get());
  if (Panel.ShowZoomTrackBar() && Options.Zooming())
    AddVisibleElement(FZoomTrackBarViewInfo.get());
  if ((Panel.ShowKilometersScale() || Panel.ShowMilesScale()) && Control->BaseLayer())
    AddVisibleElement(FScaleViewInfo.get());
  if (Panel.ShowCoordinates())
    AddVisibleElement(FCoordinatesViewInfo.get());
}

QSize TvxMapControlNavigationPanelViewInfo::DoCalculateSize()
{
  return {MapControl()->width(), MapControl()->NavigationPanel().Height()};
}

void TvxMapControlNavigationPanelViewInfo::CalculateBounds()
{
  const int Spacing = ScaleValue(15);
  QRect Available = FBounds.adjusted(ScaleValue(15), ScaleValue(5), -ScaleValue(30), -ScaleValue(5));
  // Strictly wider and strictly taller, or the element leaves the panel.
  const auto IsEnoughSpace = [&Available](const TvxMapControlElementViewInfo* AElement) {
    return Available.width() > AElement->Size().width() && Available.height() > AElement->Size().height();
  };
  const auto CentredTop = [&Available](const TvxMapControlElementViewInfo* AElement) {
    return Available.y() + (Available.height() - AElement->Size().height()) / 2;
  };
  const auto Place = [this, &IsEnoughSpace](TvxMapControlElementViewInfo* AElement) {
    if (!FVisibleElements.contains(AElement))
      return false;
    if (IsEnoughSpace(AElement))
      return true;
    RemoveVisibleElement(AElement);
    return false;
  };
  const auto SetRight = [](QRect& ARect, int ARight) { ARect.setWidth(ARight - ARect.x()); };
  const auto SetLeft = [](QRect& ARect, int ALeft) {
    const int RightEdge = ARect.x() + ARect.width();
    ARect.setX(ALeft);
    ARect.setWidth(RightEdge - ALeft);
  };

  TvxMapControlCoordinatesViewInfo* Coordinates = FCoordinatesViewInfo.get();
  TvxMapControlZoomTrackBarViewInfo* TrackBar = FZoomTrackBarViewInfo.get();
  TvxMapControlScrollButtonsViewInfo* ScrollButtons = FScrollButtonsViewInfo.get();
  TvxMapControlScaleViewInfo* Scale = FScaleViewInfo.get();

  const bool HasCoordinates = Place(Coordinates);
  if (HasCoordinates)
  {
    Coordinates->SetBounds(QRect(QPoint(Right(Available) - Coordinates->Size().width(), CentredTop(Coordinates)),
                                 Coordinates->Size()));
    SetRight(Available, Coordinates->Bounds().x() - Spacing);
  }
  const bool HasTrackBar = Place(TrackBar);
  if (HasTrackBar)
  {
    TrackBar->SetBounds(QRect(QPoint(Available.x(), CentredTop(TrackBar)), TrackBar->Size()));
    SetLeft(Available, Right(TrackBar->Bounds()) + Spacing);
  }
  if (Place(ScrollButtons))
  {
    const int Top = CentredTop(ScrollButtons);
    if (HasTrackBar)
    {
      ScrollButtons->SetBounds(QRect(QPoint(TrackBar->Bounds().x(), Top), ScrollButtons->Size()));
      TrackBar->SetBounds(TrackBar->Bounds().translated(ScrollButtons->Size().width() + Spacing, 0));
      SetLeft(Available, Right(TrackBar->Bounds()) + Spacing);
    }
    else
    {
      ScrollButtons->SetBounds(QRect(QPoint(Available.x(), Top), ScrollButtons->Size()));
      SetLeft(Available, Right(ScrollButtons->Bounds()) + Spacing);
    }
  }
  if (Place(Scale))
  {
    const int Top = CentredTop(Scale);
    if (HasCoordinates)
    {
      // The scale takes the right-hand end; the coordinates move left.
      const int ScaleLeft = Right(Coordinates->Bounds()) - Scale->Size().width();
      Scale->SetBounds(QRect(QPoint(ScaleLeft, Top), Scale->Size()));
      Coordinates->SetBounds(Coordinates->Bounds().translated(-(Scale->Size().width() + Spacing), 0));
      SetRight(Available, Coordinates->Bounds().x());
    }
    else
    {
      Scale->SetBounds(QRect(QPoint(Right(Available) - Scale->Size().width(), Top), Scale->Size()));
      SetRight(Available, Scale->Bounds().x());
    }
  }
  TvxMapControlUIElementViewInfo::CalculateBounds();
}

void TvxMapControlNavigationPanelViewInfo::Paint(TvxMapControlPainter& APainter)
{
  const TvxMapControlNavigationPanelStyle& Style = MapControl()->NavigationPanel().Style();
  APainter.DrawNavigationPanel(FBounds, AlphaColor(Style.Color(), APainter.LookAndFeel().PanelColor));
  TvxMapControlUIElementViewInfo::Paint(APainter);
}
