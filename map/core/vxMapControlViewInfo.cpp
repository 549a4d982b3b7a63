#include "vxMapControlViewInfo.h"

#include "vxMapControl.h"
#include "vxMapControlNavigationPanel.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <QToolTip>

#include <cmath>

// Hit test

void TvxMapControlHitTest::Clear()
{
  FFlags = 0;
  FHitObject = nullptr;
}

void TvxMapControlHitTest::SetBitState(int ABit, bool AValue)
{
  if (ABit < 0 || ABit >= 64)
    return;
  if (AValue)
    FFlags |= quint64(1) << ABit;
  else
    FFlags &= ~(quint64(1) << ABit);
}

void TvxMapControlHitTest::Calculate(const QPoint& APoint)
{
  FHitPoint = APoint;
  Clear();
  // A layout left for the paint is owed before anything is hit.
  FController->MapControl()->CheckViewInfo();
  FController->MapControl()->ViewInfo().CalculateHitTest(*this);
}

// Controller

TvxMapControlController::TvxMapControlController(TvxCustomMapControl* AMapControl)
  : FMapControl(AMapControl), FHitTest(std::make_unique<TvxMapControlHitTest>(this))
{
  FShowHintTimer.setSingleShot(true);
  QObject::connect(&FShowHintTimer, &QTimer::timeout, [this] { ShowHint(); });
}

TvxMapControlController::~TvxMapControlController()
{
  HideHint();
}

int TvxMapControlController::HintPause() const
{
  return QApplication::style()->styleHint(QStyle::SH_ToolTip_WakeUpDelay);
}

int TvxMapControlController::HintReshowPause() const
{
  // A hint that is up already moves on at once, as the platform's do.
  return 0;
}

void TvxMapControlController::SetHotElement(TvxMapControlElementViewInfo* AValue)
{
  if (FHotElement == AValue)
    return;
  TvxMapControlElementViewInfo* Old = FHotElement;
  FHotElement = AValue;
  // A selected element keeps its state through hover and press.
  if (Old && Old->State() != mcesSelected)
    Old->SetState(Old == FPressedElement ? mcesPressed : mcesNormal);
  if (AValue && AValue->State() != mcesSelected && AValue != FPressedElement)
    AValue->SetState(mcesHot);
}

void TvxMapControlController::SetPressedElement(TvxMapControlElementViewInfo* AValue)
{
  if (FPressedElement == AValue)
    return;
  TvxMapControlElementViewInfo* Old = FPressedElement;
  FPressedElement = AValue;
  if (Old && Old->State() != mcesSelected)
    Old->SetState(Old == FHotElement ? mcesHot : mcesNormal);
  if (AValue && AValue->State() != mcesSelected)
    AValue->SetState(mcesPressed);
}

void TvxMapControlController::CheckHotElement(const QPoint& APoint)
{
  if (!FMapControl->ClientBounds().contains(APoint))
  {
    SetHotElement(nullptr);
    return;
  }
  FHitTest->Calculate(APoint);
  SetHotElement(FHitTest->HitObject());
}

void TvxMapControlController::ElementDestroying(TvxMapControlElementViewInfo* AElement)
{
  if (FHitTest->HitObject() == AElement)
    FHitTest->SetHitObject(nullptr);
  if (FHintElement == AElement || FHintCandidate == AElement)
  {
    HideHint();
    FHintCandidate = nullptr;
  }
  if (FPressedElement == AElement)
    FPressedElement = nullptr;
  if (FHotElement == AElement)
    FHotElement = nullptr;
}

void TvxMapControlController::DoMouseDown(Qt::MouseButton AButton, const QPoint& APoint)
{
  HideHint();
  // A tap on a touch screen presses without a move before it.
  if (!FMapControl->IsDragging())
    CheckHotElement(APoint);
  FHitTest->Calculate(APoint);
  SetPressedElement(FHitTest->HitObject());
  if (FPressedElement)
    FPressedElement->MouseDown(AButton, APoint);
}

void TvxMapControlController::DoMouseMove(const QPoint& APoint)
{
  if (FMapControl->IsDragging())
    return;
  CheckHotElement(APoint);
  // The coordinates follow the mouse anywhere on the map.
  TvxMapControlCoordinatesViewInfo& Coordinates =
    FMapControl->ViewInfo().NavigationPanelViewInfo().CoordinatesViewInfo();
  Coordinates.MouseMove(APoint);
  TvxMapControlElementViewInfo* Target = FPressedElement ? FPressedElement : FHotElement;
  if (Target && Target != &Coordinates)
    Target->MouseMove(APoint);
  CheckHint();
}

void TvxMapControlController::DoMouseUp(Qt::MouseButton AButton, const QPoint& APoint)
{
  FHitTest->Calculate(APoint);
  TvxMapControlElementViewInfo* Pressed = FPressedElement;
  if (!Pressed)
    return;
  Pressed->MouseUp(AButton, APoint);
  // The element may have gone, or another taken its place, in MouseUp.
  if (FPressedElement != Pressed)
    return;
  SetPressedElement(nullptr);
  if (FHotElement == Pressed)
    Pressed->Click();
}

void TvxMapControlController::DoMouseLeave()
{
  HideHint();
  FHintCandidate = nullptr;
  SetHotElement(nullptr);
}

void TvxMapControlController::CheckHint()
{
  if (FHintCandidate == FHotElement)
    return;
  FHintCandidate = FHotElement;
  const bool WasVisible = FHintVisible;
  HideHint();
  if (FHotElement && (!FHotElement->GetHint().isEmpty() || !FHotElement->GetScreenTip().isEmpty()))
    FShowHintTimer.start(WasVisible ? HintReshowPause() : HintPause());
}

void TvxMapControlController::ShowHint()
{
  TvxMapControlElementViewInfo* Element = FHintCandidate;
  if (!Element || Element != FHotElement)
    return;
  const QString Tip = Element->GetScreenTip();
  const QString Hint = Element->GetHint();
  const QString Text = Tip.isEmpty() ? Hint : Hint.isEmpty() ? Tip : Tip + QLatin1Char('\n') + Hint;
  if (Text.isEmpty())
    return;
  FHintElement = Element;
  FHintVisible = true;
  QToolTip::showText(FMapControl->mapToGlobal(FMapControl->MousePos()), Text, FMapControl);
}

void TvxMapControlController::HideHint()
{
  FShowHintTimer.stop();
  if (FHintVisible)
  {
    FHintVisible = false;
    QToolTip::hideText();
  }
  FHintElement = nullptr;
}

// Painter

void TvxMapControlPainter::BeginPaint(QPainter& ACanvas)
{
  FCanvas = &ACanvas;
}

void TvxMapControlPainter::EndPaint()
{
  FCanvas = nullptr;
}

void TvxMapControlPainter::DrawBackground(const QRect& ABounds, const QColor& AColor)
{
  Canvas().fillRect(ABounds, AColor.isValid() ? AColor : FLookAndFeel.ContentColor);
}

quint32 TvxMapControlPainter::MapControlShapeColor(TvxMapControlElementState) const
{
  return 0xFFD7D7D7;
}

quint32 TvxMapControlPainter::MapControlShapeBorderColor(TvxMapControlElementState) const
{
  return 0xFFFFFFFF;
}

int TvxMapControlPainter::MapControlShapeBorderWidth(TvxMapControlElementState) const
{
  return 1;
}

QSize TvxMapControlPainter::MapControlGetMapPushpinSize(double AScaleFactor) const
{
  return {int(std::lround(35 * AScaleFactor)), int(std::lround(44 * AScaleFactor))};
}

QPoint TvxMapControlPainter::MapControlGetMapPushpinTextOrigin(double AScaleFactor) const
{
  return {int(std::lround(17 * AScaleFactor)), int(std::lround(17 * AScaleFactor))};
}

QMargins TvxMapControlPainter::MapControlMapCustomElementSelectionOffset(double AScaleFactor) const
{
  const int M = int(std::lround(14 * AScaleFactor));
  return {M, M, M, M};
}

void TvxMapControlPainter::DrawMapPushpin(const QRect& ABounds, double, TvxMapControlElementState)
{
  // Loaded once; the pin is the same for every state.
  static const QImage Pin(QStringLiteral(":/mapwright/map/vxMapPushpin.png"));
  Canvas().drawImage(ABounds, Pin);
}

void TvxMapControlPainter::DrawMapCustomElementBackground(const QRect& ABounds, TvxMapControlElementState AState)
{
  QColor Fill = Qt::transparent;
  QColor Border = Qt::transparent;
  if (AState == mcesHot || AState == mcesPressed)
  {
    Fill = QColor::fromRgba(0x5AFFFFFF);
    Border = QColor::fromRgba(0x5A000000);
  }
  else if (AState == mcesSelected)
  {
    Fill = QColor::fromRgba(0x80FFFFFF);
    Border = QColor::fromRgba(0x80000000);
  }
  if (Fill.alpha() == 0 && Border.alpha() == 0)
    return;
  QPainter& C = Canvas();
  C.save();
  C.setRenderHint(QPainter::Antialiasing);
  C.setPen(QPen(Border, 1));
  C.setBrush(Fill);
  // The border of width 1 lies inside the bounds.
  C.drawRoundedRect(QRectF(ABounds).adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
  C.restore();
}

void TvxMapControlPainter::DrawNavigationPanel(const QRect& ABounds, const QColor& AColor)
{
  Canvas().fillRect(ABounds, AColor);
}

void TvxMapControlPainter::DrawCoordinatesInfo(const QRect& ABounds, const QString& AText, const QFont& AFont,
                                               const QColor& AColor)
{
  QPainter& C = Canvas();
  C.save();
  C.setFont(AFont);
  C.setPen(AColor);
  C.drawText(ABounds, Qt::AlignCenter | Qt::TextSingleLine, AText);
  C.restore();
}

void TvxMapControlPainter::DrawScaleText(const QRect& ABounds, const QString& AText, const QFont& AFont,
                                         const QColor& AColor)
{
  QPainter& C = Canvas();
  C.save();
  C.setFont(AFont);
  C.setPen(AColor);
  C.drawText(ABounds, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, AText);
  C.restore();
}

void TvxMapControlPainter::DrawScale(const QRect& AScaleBounds, int AKilometersLineWidth, int AMilesLineWidth,
                                     bool AKilometersVisible, bool AMilesVisible, const QColor& ALineColor,
                                     int AMarkThickness, int ALineThickness)
{
  QPainter& C = Canvas();
  const int MarkThickness = AMarkThickness;
  const int LineThickness = ALineThickness;
  const int Left = AScaleBounds.left();
  const int Top = AScaleBounds.top();
  const int Bottom = AScaleBounds.top() + AScaleBounds.height();
  const bool Both = AKilometersVisible && AMilesVisible;
  const int LineTop = Both ? Top + (AScaleBounds.height() - LineThickness) / 2 : Bottom - LineThickness;
  const int LineWidth = std::max(AKilometersVisible ? AKilometersLineWidth : 0, AMilesVisible ? AMilesLineWidth : 0);
  C.fillRect(QRect(Left, LineTop, LineWidth, LineThickness), ALineColor);
  C.fillRect(QRect(Left, Top, MarkThickness, Bottom - Top), ALineColor);
  if (AKilometersVisible)
  {
    const int X = Left + AKilometersLineWidth - MarkThickness;
    const int MarkBottom = Both ? LineTop + LineThickness : Bottom;
    C.fillRect(QRect(X, Top, MarkThickness, MarkBottom - Top), ALineColor);
  }
  if (AMilesVisible)
  {
    const int X = Left + AMilesLineWidth - MarkThickness;
    const int MarkTop = Both ? LineTop : Top;
    C.fillRect(QRect(X, MarkTop, MarkThickness, Bottom - MarkTop), ALineColor);
  }
}

void TvxMapControlPainter::DrawScrollButtons(const QRect& ABounds, const QPoint& ACenter, const QColor& AColor,
                                             double AScale)
{
  QPainter& C = Canvas();
  C.save();
  const double PenWidth = 3 * AScale;
  C.setPen(QPen(AColor, PenWidth));
  C.setBrush(Qt::NoBrush);
  const QRectF Circle = QRectF(ABounds).adjusted(PenWidth / 2 + 1, PenWidth / 2 + 1, -PenWidth / 2 - 1,
                                                 -PenWidth / 2 - 1);
  C.drawEllipse(Circle);
  // Four arrows, 15 from the centre, each in a box of 20 x 20.
  const double Distance = 15 * AScale;
  const double Half = 10 * AScale;
  const double Arrow = 4 * AScale;
  C.setPen(Qt::NoPen);
  C.setBrush(AColor);
  const struct
  {
    double DX, DY;
  } Directions[] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
  for (const auto& D : Directions)
  {
    const QPointF BoxCenter(ACenter.x() + D.DX * Distance + 1, ACenter.y() + D.DY * Distance + 1);
    if (!QRectF(BoxCenter.x() - Half, BoxCenter.y() - Half, 2 * Half, 2 * Half).isValid())
      continue;
    const QPointF Tip(BoxCenter.x() + D.DX * Arrow, BoxCenter.y() + D.DY * Arrow);
    const QPointF Side1(BoxCenter.x() - D.DX * Arrow + D.DY * Arrow, BoxCenter.y() - D.DY * Arrow + D.DX * Arrow);
    const QPointF Side2(BoxCenter.x() - D.DX * Arrow - D.DY * Arrow, BoxCenter.y() - D.DY * Arrow - D.DX * Arrow);
    const QPointF Triangle[] = {Tip, Side1, Side2};
    C.drawPolygon(Triangle, 3);
  }
  C.restore();
}

void TvxMapControlPainter::DrawSelectedRegion(const QRect& ABounds)
{
  QPainter& C = Canvas();
  C.save();
  C.setClipRect(ABounds);
  C.setBrush(FLookAndFeel.SelectionFillColor);
  C.setPen(QPen(FLookAndFeel.SelectionOutlineColor, 1.0));
  C.drawRect(QRectF(ABounds).adjusted(0.5, 0.5, -0.5, -0.5));
  C.restore();
}

void TvxMapControlPainter::DrawZoomTrackBarBackground(const QRect&)
{
  // The track bar has no background of its own; the panel shows through.
}

void TvxMapControlPainter::DrawZoomTrackBarZoomButtonBackground(const QRect& ABounds, const QColor& AColor,
                                                                double AScale)
{
  QPainter& C = Canvas();
  C.save();
  const double PenWidth = 2 * AScale;
  C.setPen(QPen(AColor, PenWidth));
  C.setBrush(Qt::NoBrush);
  C.drawEllipse(QRectF(ABounds).adjusted(PenWidth / 2, PenWidth / 2, -PenWidth / 2, -PenWidth / 2));
  C.restore();
}

void TvxMapControlPainter::DrawZoomTrackBarZoomButtonIcon(const QRect& ABounds, bool AZoomIn, const QColor& AColor,
                                                          double AScale)
{
  QPainter& C = Canvas();
  C.save();
  const QPointF Center = QRectF(ABounds).center();
  const double Long = 13 * AScale;
  const double Short = 3 * AScale;
  QPainterPath Path;
  Path.setFillRule(Qt::WindingFill);
  Path.addRect(Center.x() - Long / 2, Center.y() - Short / 2, Long, Short);
  if (AZoomIn)
    Path.addRect(Center.x() - Short / 2, Center.y() - Long / 2, Short, Long);
  C.setPen(QPen(AColor, 1.0));
  C.setBrush(AColor);
  C.drawPath(Path.simplified());
  C.restore();
}

void TvxMapControlPainter::DrawZoomTrackBarScale(const QRect& ABounds, const QRect& AThumbBounds,
                                                 const QColor& AColor)
{
  QPainter& C = Canvas();
  C.save();
  // The scale passes beneath the thumb.
  QRegion Clip(ABounds);
  Clip -= QRegion(AThumbBounds);
  C.setClipRegion(Clip, Qt::IntersectClip);
  C.fillRect(ABounds, AColor);
  C.restore();
}

void TvxMapControlPainter::DrawZoomTrackBarThumbnail(const QRect& ABounds, const QColor& AColor)
{
  Canvas().fillRect(ABounds, AColor);
}

// Selected region

void TvxMapControlSelectedRegionViewInfo::Paint(TvxMapControlPainter& APainter)
{
  FBounds = MapControl()->SelectedRegionBounds();
  if (!FBounds.isEmpty())
    APainter.DrawSelectedRegion(FBounds);
}

// The root

TvxMapControlViewInfo::TvxMapControlViewInfo(TvxCustomMapControl* AMapControl) : FMapControl(AMapControl)
{
}

TvxMapControlViewInfo::~TvxMapControlViewInfo() = default;

TvxMapControlPainter& TvxMapControlViewInfo::Painter() const
{
  return FMapControl->Painter();
}

void TvxMapControlViewInfo::CreateElements()
{
  FNavigationPanelViewInfo = std::make_unique<TvxMapControlNavigationPanelViewInfo>(this);
  FSelectedRegionViewInfo = std::make_unique<TvxMapControlSelectedRegionViewInfo>(this);
}

void TvxMapControlViewInfo::Calculate()
{
  FBounds = FMapControl->ClientBounds();
  FVisibleElements.clear();
  AddVisibleElements();
  CalculateElements();
  // The element under the mouse turns hot after a layout; with the mouse
  // elsewhere (or a control rendered without a window) none is.
  if (!FMapControl->IsDragging())
    FMapControl->Controller().CheckHotElement(FMapControl->IsMouseOver() ? FMapControl->MousePos()
                                                                          : QPoint(-1, -1));
}

void TvxMapControlViewInfo::AddVisibleElements()
{
  if (FBounds.isEmpty())
    return;
  if (FMapControl->Layers().Count() > 0)
    FVisibleElements.append(&FMapControl->Layers().ViewInfo());
  FVisibleElements.append(FSelectedRegionViewInfo.get());
  if (FMapControl->NavigationPanel().Visible())
    FVisibleElements.append(FNavigationPanelViewInfo.get());
}

void TvxMapControlViewInfo::CalculateElements()
{
  InitializeElements();
  CalculateElementSizes();
  CalculateElementBounds();
}

void TvxMapControlViewInfo::InitializeElements()
{
  FMapControl->Layers().ViewInfo().SetBounds(FBounds);
  for (TvxMapControlElementViewInfo* Element : std::as_const(FVisibleElements))
    Element->Initialize();
}

void TvxMapControlViewInfo::CalculateElementSizes()
{
  for (TvxMapControlElementViewInfo* Element : std::as_const(FVisibleElements))
    Element->CalculateSize();
}

void TvxMapControlViewInfo::CalculateElementBounds()
{
  const QSize PanelSize = FNavigationPanelViewInfo->Size();
  FNavigationPanelViewInfo->SetBounds(
    QRect(FBounds.left(), FBounds.top() + FBounds.height() - PanelSize.height(), FBounds.width(), PanelSize.height()));
  FSelectedRegionViewInfo->SetBounds(FMapControl->SelectedRegionBounds());
  for (TvxMapControlElementViewInfo* Element : std::as_const(FVisibleElements))
    Element->CalculateBounds();
}

void TvxMapControlViewInfo::ClearCache()
{
  for (TvxMapControlElementViewInfo* Element : std::as_const(FVisibleElements))
    Element->ClearCache();
}

void TvxMapControlViewInfo::Paint(QPainter& ACanvas)
{
  TvxMapControlPainter& P = Painter();
  P.BeginPaint(ACanvas);
  P.DrawBackground(FBounds.isEmpty() ? FMapControl->ClientBounds() : FBounds, FMapControl->Color());
  DrawElements(P);
  P.EndPaint();
}

void TvxMapControlViewInfo::DrawElements(TvxMapControlPainter& APainter)
{
  for (TvxMapControlElementViewInfo* Element : std::as_const(FVisibleElements))
    Element->Paint(APainter);
}

bool TvxMapControlViewInfo::CalculateHitTest(TvxMapControlHitTest& AHitTest)
{
  for (qsizetype I = FVisibleElements.size() - 1; I >= 0; --I)
    if (FVisibleElements.at(I)->GetHitTest(AHitTest))
      return true;
  return false;
}
