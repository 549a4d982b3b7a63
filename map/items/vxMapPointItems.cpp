#include "vxMapPointItems.h"

#include "vxCustomMapItemLayer.h"
#include "vxMapControlViewInfo.h"

#include <QCoreApplication>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace
{

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr TvxPointDouble NoMapPoint{NaN, NaN};

// Far beyond any screen, yet a rectangle between two such values still has
// a width that fits an int.
constexpr double CoordinateLimit = double(1 << 29);

int ScreenCoordinate(double AValue)
{
  return int(std::lround(std::clamp(AValue, -CoordinateLimit, CoordinateLimit)));
}

bool IsFinite(const TvxPointDouble& APoint)
{
  return std::isfinite(APoint.X) && std::isfinite(APoint.Y);
}

// Pins that show the same picture (every person of one status and look)
// share one screen copy of it, converted once instead of once per pin.
// A few recent pictures of pin size only, so the ring holds little memory.
class TSharedPinPixmaps
{
public:
  static constexpr int MaxPixels = 128 * 128;

  static QPixmap Get(const QImage& AImage, const QSize& ASize)
  {
    if (ASize.width() * ASize.height() > MaxPixels)
      return Make(AImage, ASize);
    TSharedPinPixmaps& Ring = Instance();
    // Copies of one image share its key; a changed image gets a new one.
    const qint64 Key = AImage.cacheKey();
    for (const TEntry& Entry : Ring.FEntries)
      if (Entry.Key == Key && Entry.Size == ASize && !Entry.Pixmap.isNull())
        return Entry.Pixmap;
    TEntry& Entry = Ring.FEntries.at(Ring.FNext);
    Ring.FNext = (Ring.FNext + 1) % Ring.FEntries.size();
    Entry = {Key, ASize, Make(AImage, ASize)};
    return Entry.Pixmap;
  }

private:
  struct TEntry
  {
    qint64 Key = 0;
    QSize Size;
    QPixmap Pixmap;
  };

  static QPixmap Make(const QImage& AImage, const QSize& ASize)
  {
    return QPixmap::fromImage(
      ASize == AImage.size() ? AImage : AImage.scaled(ASize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
  }

  static TSharedPinPixmaps& Instance()
  {
    static TSharedPinPixmaps Ring;
    static const bool Registered = [] {
      // Pixmaps go with the application object, not after it.
      qAddPostRoutine([] { Instance().FEntries = {}; });
      return true;
    }();
    Q_UNUSED(Registered);
    return Ring;
  }

  std::array<TEntry, 32> FEntries;
  size_t FNext = 0;
};

// False for a point that has no place on the screen, such as one made from
// a NaN location.
bool RoundScreenPoint(const TvxPointDouble& APoint, QPoint& AResult)
{
  if (!IsFinite(APoint))
    return false;
  AResult = QPoint(ScreenCoordinate(APoint.X), ScreenCoordinate(APoint.Y));
  return true;
}

// An empty rectangle adds nothing, wherever it lies.
QRect Unite(const QRect& A, const QRect& B)
{
  if (A.isEmpty())
    return B;
  if (B.isEmpty())
    return A;
  return A.united(B);
}

QRect TranslatedOrEmpty(const QRect& ARect, const QPoint& AOffset)
{
  return ARect.isEmpty() ? QRect() : ARect.translated(AOffset);
}

// Through the layer's normalising projection: a location beyond a pole or
// the antimeridian shows where its clamped or wrapped point is. Only a
// location that still has no finite place (NaN) gives none.
TvxPointDouble LocationToMapUnit(const TvxMapItemViewInfo& AViewInfo, const TvxMapControlGeoPoint& ALocation)
{
  if (!AViewInfo.Layer())
    return NoMapPoint;
  const TvxPointDouble Result = AViewInfo.Layer()->GeoPointToMapUnit(ALocation);
  return IsFinite(Result) ? Result : NoMapPoint;
}

// The border is centred on the outline; an odd width is moved half a pixel
// out so that it covers whole pixels on both sides.
void DrawItemShape(QPainter& ACanvas, const QRect& ABounds, bool AEllipse, const TvxMapItemStyle& AStyle,
                   int ABorderWidth)
{
  const double Offset = ABorderWidth % 2 ? 0.5 : 0.0;
  const QRectF Outline = QRectF(ABounds).adjusted(-Offset, -Offset, Offset, Offset);
  ACanvas.save();
  ACanvas.setRenderHint(QPainter::Antialiasing);
  ACanvas.setBrush(QColor::fromRgba(AStyle.Color()));
  if (ABorderWidth > 0)
  {
    QPen Pen(QColor::fromRgba(AStyle.BorderColor()), ABorderWidth);
    Pen.setJoinStyle(Qt::MiterJoin);
    ACanvas.setPen(Pen);
  }
  else
    ACanvas.setPen(Qt::NoPen);
  if (AEllipse)
    ACanvas.drawEllipse(Outline);
  else
    ACanvas.drawRect(Outline);
  ACanvas.restore();
}

} // namespace

// TvxMapSinglePointItem

TvxMapSinglePointItem::TvxMapSinglePointItem(TvxMapItems* ACollection)
  : TvxMapItem(ACollection), FLocation(std::make_unique<TvxMapControlGeoLocation>(this))
{
  FLocation->OnChanged = [this](TvxMapControlGeoLocation*) { LocationChanged(); };
}

TvxMapSinglePointItem::~TvxMapSinglePointItem()
{
  FLocation->OnChanged = nullptr;
}

void TvxMapSinglePointItem::LocationChanged()
{
  if (ViewInfo())
    ViewInfo()->InvalidateCachedBounds();
  Changed();
}

void TvxMapSinglePointItem::DoAssign(const TvxMapItem& ASource)
{
  TvxMapItem::DoAssign(ASource);
  if (const auto* Source = dynamic_cast<const TvxMapSinglePointItem*>(&ASource))
    SetLocation(Source->Location());
}

// TvxMapDot

std::unique_ptr<TvxMapItemViewInfo> TvxMapDot::CreateViewInfo()
{
  return std::make_unique<TvxMapDotViewInfo>(this);
}

void TvxMapDot::SetShapeKind(TvxMapDotShapeKind AValue)
{
  if (FShapeKind == AValue)
    return;
  FShapeKind = AValue;
  Changed();
}

void TvxMapDot::SetSize(int AValue)
{
  if (FSize == AValue)
    return;
  FSize = AValue;
  if (ViewInfo())
    ViewInfo()->InvalidateCachedBounds();
  Changed();
}

void TvxMapDot::ChangeScale(int AM, int AD)
{
  TvxMapSinglePointItem::ChangeScale(AM, AD);
  if (AD != 0)
    SetSize(int(std::lround(double(FSize) * AM / AD)));
}

void TvxMapDot::DoAssign(const TvxMapItem& ASource)
{
  TvxMapSinglePointItem::DoAssign(ASource);
  if (const auto* Source = dynamic_cast<const TvxMapDot*>(&ASource))
  {
    SetShapeKind(Source->FShapeKind);
    SetSize(Source->FSize);
  }
}

// TvxMapPointer

std::unique_ptr<TvxMapItemViewInfo> TvxMapPointer::CreateViewInfo()
{
  return std::make_unique<TvxMapPointerViewInfo>(this);
}

TvxMapPointerViewInfo* TvxMapPointer::PointerViewInfo() const
{
  return static_cast<TvxMapPointerViewInfo*>(ViewInfo());
}

void TvxMapPointer::SetImage(const QImage& AValue)
{
  if (FImage.isNull() && AValue.isNull())
    return;
  if (FImage == AValue)
    return;
  FImage = AValue;
  ImageChanged();
}

void TvxMapPointer::SetImageOrigin(const TvxPointDouble& AValue)
{
  if (FImageOrigin == AValue)
    return;
  FImageOrigin = AValue;
  GeometryChanged();
}

void TvxMapPointer::SetImageVisible(bool AValue)
{
  if (FImageVisible == AValue)
    return;
  FImageVisible = AValue;
  GeometryChanged();
}

void TvxMapPointer::SetText(const QString& AValue)
{
  if (FText == AValue)
    return;
  FText = AValue;
  GeometryChanged();
}

bool TvxMapPointer::ShowsTitle() const
{
  return FText.isEmpty() && TitleOptions().Visibility() == mitvVisible && !TitleOptions().Text().isEmpty();
}

void TvxMapPointer::TitleOptionsChanged()
{
  TvxMapSinglePointItem::TitleOptionsChanged();
  GeometryChanged();
}

void TvxMapPointer::AttributesChanged()
{
  // Attributes a pointer does not show change nothing on the map: a feed
  // that restamps every person must not cost a layout.
  if (!ShowsTitle())
  {
    if (ViewInfo())
      ViewInfo()->InvalidateTitleSize();
    return;
  }
  TvxMapSinglePointItem::AttributesChanged();
  GeometryChanged();
}

void TvxMapPointer::GeometryChanged()
{
  if (ViewInfo())
    ViewInfo()->InvalidateCachedBounds();
  Changed();
}

void TvxMapPointer::ImageChanged()
{
  if (TvxMapPointerViewInfo* Info = PointerViewInfo())
  {
    Info->InvalidateCachedBounds();
    Info->InvalidateCachedImage();
  }
  Changed();
}

void TvxMapPointer::ChangeScale(int AM, int AD)
{
  TvxMapSinglePointItem::ChangeScale(AM, AD);
  if (TvxMapPointerViewInfo* Info = PointerViewInfo())
  {
    Info->InvalidateCachedBounds();
    Info->InvalidateCachedImage();
  }
}

void TvxMapPointer::DoAssign(const TvxMapItem& ASource)
{
  TvxMapSinglePointItem::DoAssign(ASource);
  if (const auto* Source = dynamic_cast<const TvxMapPointer*>(&ASource))
  {
    SetImage(Source->FImage);
    SetText(Source->FText);
    SetImageOrigin(Source->FImageOrigin);
    SetImageVisible(Source->FImageVisible);
  }
}

// TvxMapPushpin, TvxMapCustomElement

std::unique_ptr<TvxMapItemViewInfo> TvxMapPushpin::CreateViewInfo()
{
  return std::make_unique<TvxMapPushpinViewInfo>(this);
}

std::unique_ptr<TvxMapItemViewInfo> TvxMapCustomElement::CreateViewInfo()
{
  return std::make_unique<TvxMapCustomElementViewInfo>(this);
}

// TvxMapRectangle

std::unique_ptr<TvxMapItemViewInfo> TvxMapRectangle::CreateViewInfo()
{
  return std::make_unique<TvxMapRectangleViewInfo>(this);
}

void TvxMapRectangle::SetWidth(double AValue)
{
  if (FWidth == AValue)
    return;
  FWidth = AValue;
  SizeChanged();
}

void TvxMapRectangle::SetHeight(double AValue)
{
  if (FHeight == AValue)
    return;
  FHeight = AValue;
  SizeChanged();
}

void TvxMapRectangle::SizeChanged()
{
  if (ViewInfo())
    ViewInfo()->InvalidateCachedBounds();
  Changed();
}

void TvxMapRectangle::DoAssign(const TvxMapItem& ASource)
{
  TvxMapSinglePointItem::DoAssign(ASource);
  if (const auto* Source = dynamic_cast<const TvxMapRectangle*>(&ASource))
  {
    SetHeight(Source->FHeight);
    SetWidth(Source->FWidth);
  }
}

std::unique_ptr<TvxMapItemViewInfo> TvxMapEllipse::CreateViewInfo()
{
  return std::make_unique<TvxMapEllipseViewInfo>(this);
}

// TvxMapDotViewInfo

void TvxMapDotViewInfo::DoCalculateCachedBounds()
{
  FMapLocation = LocationToMapUnit(*this, Dot()->Location().GeoPoint());
  FMapCenterPoint = FMapLocation;
  const int Size = Dot()->Size();
  FRadius = Size / 2.0;
  FRelativeBounds = {-FRadius, -FRadius, double(Size), double(Size)};
}

void TvxMapDotViewInfo::CalculateScreenBounds()
{
  const TvxPointDouble P = Layer()->MapUnitToScreenPoint(FMapLocation);
  if (!IsFinite(P) || FRelativeBounds.IsEmpty())
  {
    FBounds = QRect();
    return;
  }
  const int Left = ScreenCoordinate(P.X + FRelativeBounds.Left);
  const int Top = ScreenCoordinate(P.Y + FRelativeBounds.Top);
  const int Right = ScreenCoordinate(P.X + FRelativeBounds.Right());
  const int Bottom = ScreenCoordinate(P.Y + FRelativeBounds.Bottom());
  FBounds = QRect(Left, Top, Right - Left, Bottom - Top);
  FScreenCenterPoint = QPoint(ScreenCoordinate(P.X), ScreenCoordinate(P.Y));
}

bool TvxMapDotViewInfo::DoCanBeVisible()
{
  return Dot()->Size() >= 1 && FBounds.intersects(ViewPortBounds());
}

TvxRectDouble TvxMapDotViewInfo::DoGetMapBounds()
{
  return {FMapLocation.X, FMapLocation.Y, 0, 0};
}

void TvxMapDotViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  if (FDrawBounds.isEmpty())
    return;
  const TvxMapItemStyle& Style = GetStyle();
  DrawItemShape(APainter.Canvas(), FDrawBounds, Dot()->ShapeKind() == mcskCircle, Style,
                ScaleWidth(Style.BorderWidth()));
}

// TvxMapPointerViewInfo

TvxPointDouble TvxMapPointerViewInfo::GetImageOrigin() const
{
  // The pin's tip stands on the location whatever the origin says.
  return Pointer()->HasImage() ? Pointer()->ImageOrigin() : TvxPointDouble(0.5, 1.0);
}

QPoint TvxMapPointerViewInfo::DoCalculateTextOffset()
{
  return {FRelativeImageRect.x() + FRelativeImageRect.width(), FRelativeImageRect.y()};
}

void TvxMapPointerViewInfo::CalculateRelativeTextRect()
{
  FRelativeTextRect = QRect();
  if (!FTextInfo || FTextInfo->ClientBounds().isEmpty())
    return;
  FRelativeTextRect = FTextInfo->ClientBounds();
  FRelativeTextRect.moveTopLeft(DoCalculateTextOffset());
}

void TvxMapPointerViewInfo::DoCalculateCachedBounds()
{
  const TvxMapPointer* Item = Pointer();
  FMapLocation = LocationToMapUnit(*this, Item->Location().GeoPoint());
  FMapCenterPoint = FMapLocation;
  FRelativeImageRect = QRect();
  if (Item->ImageVisible())
  {
    QSize Size;
    if (Item->HasImage())
      Size = QSize(ScaleWidth(Item->Image().width()), ScaleWidth(Item->Image().height()));
    else if (UsePushpinImageAsDefault())
      Size = Painter().MapControlGetMapPushpinSize(ScaleFactor());
    if (!Size.isEmpty())
    {
      const TvxPointDouble O = GetImageOrigin();
      FRelativeImageRect = QRect(QPoint(0, 0), Size);
      FRelativeImageRect.translate(-int(std::lround(O.X * Size.width())), -int(std::lround(O.Y * Size.height())));
    }
  }
  if (FTextInfo)
    FTextInfo->CalculateSize();
  CalculateRelativeTextRect();
  FRelativeBounds = Unite(FRelativeImageRect, FRelativeTextRect);
}

void TvxMapPointerViewInfo::CalculateScreenBounds()
{
  QPoint P;
  if (!RoundScreenPoint(Layer()->MapUnitToScreenPoint(FMapLocation), P))
  {
    FImageRect = QRect();
    FBounds = QRect();
    if (FTextInfo)
      FTextInfo->SetBounds(QRect());
    return;
  }
  FScreenCenterPoint = P;
  FImageRect = TranslatedOrEmpty(FRelativeImageRect, P);
  if (FTextInfo)
    FTextInfo->SetBounds(TranslatedOrEmpty(FRelativeTextRect, P));
  FBounds = TranslatedOrEmpty(FRelativeBounds, P);
}

bool TvxMapPointerViewInfo::DoCanBeVisible()
{
  return FBounds.width() >= 1 && FBounds.height() >= 1 && FBounds.intersects(ViewPortBounds());
}

TvxRectDouble TvxMapPointerViewInfo::DoGetMapBounds()
{
  return {FMapLocation.X, FMapLocation.Y, 0, 0};
}

bool TvxMapPointerViewInfo::CheckCachedImageCreated()
{
  if (FIsCachedImageValid)
    return !FCachedImage.isNull();
  // Tried once per image or scale change, whether it works or not.
  FIsCachedImageValid = true;
  FCachedImage = QPixmap();
  const QImage& Image = Pointer()->Image();
  const QSize Size(ScaleWidth(Image.width()), ScaleWidth(Image.height()));
  if (Image.isNull() || Size.isEmpty())
    return false;
  FCachedImage = TSharedPinPixmaps::Get(Image, Size);
  return !FCachedImage.isNull();
}

void TvxMapPointerViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  const TvxMapPointer* Item = Pointer();
  if (Item->ImageVisible() && !FImageRect.isEmpty())
  {
    QPainter& Canvas = APainter.Canvas();
    if (!Item->HasImage())
      APainter.DrawMapPushpin(FImageRect, ScaleFactor(), State());
    else if (CheckCachedImageCreated())
      Canvas.drawPixmap(FImageRect.topLeft(), FCachedImage);
    else
      Canvas.drawImage(FImageRect, Item->Image());
  }
  if (FTextInfo)
    FTextInfo->Paint(APainter);
}

QString TvxMapPointerViewInfo::GetText()
{
  const TvxMapPointer* Item = Pointer();
  return Item->ShowsTitle() ? vxParseTextPattern(Item->TitleOptions().Text(), Item->Attributes()) : Item->Text();
}

// TvxMapPushpinViewInfo

QPoint TvxMapPushpinViewInfo::DoCalculateTextOffset()
{
  // A title goes centred below the pin.
  if (Pointer()->ShowsTitle())
  {
    const QRect& Client = FTextInfo->ClientBounds();
    return {FRelativeImageRect.center().x() - Client.width() / 2 - Client.x(), FRelativeImageRect.bottom() + 1 - Client.y()};
  }
  // Centred on the text origin inside the pin's head.
  const QPoint Origin = FRelativeImageRect.topLeft() + Painter().MapControlGetMapPushpinTextOrigin(ScaleFactor());
  const QRect& Client = FTextInfo->ClientBounds();
  return Origin - QPoint(Client.x() + Client.width() / 2, Client.y() + Client.height() / 2);
}

quint32 TvxMapPushpinViewInfo::GetTextColor() const
{
  return Painter().MapControlMapPushpinTextColor();
}

quint32 TvxMapPushpinViewInfo::GetTextGlowColor() const
{
  return Painter().MapControlMapPushpinTextGlowColor();
}

// TvxMapCustomElementViewInfo

void TvxMapCustomElementViewInfo::DoCalculateCachedBounds()
{
  TvxMapPointerViewInfo::DoCalculateCachedBounds();
  // Room for the panel round the content; no content, no panel.
  if (!FRelativeBounds.isEmpty())
    FRelativeBounds = FRelativeBounds.marginsAdded(Painter().MapControlMapCustomElementSelectionOffset(ScaleFactor()));
}

void TvxMapCustomElementViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  APainter.DrawMapCustomElementBackground(FBounds, State());
  TvxMapPointerViewInfo::DoPaint(APainter);
}

// TvxMapRectangleViewInfo

void TvxMapRectangleViewInfo::DoCalculateCachedBounds()
{
  // The corner and the size are taken from the normalised location, as the
  // location itself is projected.
  const TvxMapControlGeoPoint Location = vxNormalizedGeoPoint(Rectangle()->Location().GeoPoint());
  FMapPoint1 = LocationToMapUnit(*this, Location);
  FMapPoint2 = NoMapPoint;
  if (IsFinite(FMapPoint1))
  {
    const TvxSizeDouble Size =
      Layer()->KilometersToGeoSize(Location, vxSizeDouble(Rectangle()->Width(), Rectangle()->Height()));
    // The corner is not wrapped round the antimeridian: a rectangle that
    // crosses it keeps its width instead of turning inside out.
    const TvxMapControlGeoPoint Corner = TvxMapControlGeoPoint::Create(
      std::clamp(Location.Latitude - Size.Height, -90.0, 90.0), Location.Longitude + Size.Width);
    FMapPoint2 = Layer()->GeoPointToMapUnit(Corner, false);
  }
  FMapBounds = {FMapPoint1.X, FMapPoint1.Y, FMapPoint2.X - FMapPoint1.X, FMapPoint2.Y - FMapPoint1.Y};
  FMapCenterPoint = {(FMapPoint1.X + FMapPoint2.X) / 2, (FMapPoint1.Y + FMapPoint2.Y) / 2};
}

void TvxMapRectangleViewInfo::CalculateScreenBounds()
{
  QPoint A;
  QPoint B;
  if (!RoundScreenPoint(Layer()->MapUnitToScreenPoint(FMapPoint1), A) ||
      !RoundScreenPoint(Layer()->MapUnitToScreenPoint(FMapPoint2), B))
  {
    FBounds = QRect();
    FVisibleRect = QRect();
    FMaxTitleSize = {};
    return;
  }
  FMaxTitleSize = vxSizeDouble(B.x() - A.x(), B.y() - A.y());
  FBounds = QRect(A, QSize(B.x() - A.x(), B.y() - A.y()));
  FScreenCenterPoint = QPoint(A.x() + (B.x() - A.x()) / 2, A.y() + (B.y() - A.y()) / 2);
  // The widest border of all states, so that no state shows a border at
  // the screen's edge: the cut is not redone when the state changes.
  const int Border = ScaleWidth(GetMaxBorderWidth());
  FVisibleRect = FBounds.intersected(ViewPortBounds().adjusted(-Border, -Border, Border, Border));
}

bool TvxMapRectangleViewInfo::DoCanBeVisible()
{
  const TvxPointDouble& Scale = Layer()->RenderScale();
  const TvxRectDouble& View = Layer()->ViewPort();
  // NaN fails every comparison, so a broken rectangle is never shown.
  return FMapBounds.Width * Scale.X > 1 && FMapBounds.Height * Scale.Y > 1 && FMapBounds.Left < View.Right() &&
         FMapBounds.Right() > View.Left && FMapBounds.Top < View.Bottom() && FMapBounds.Bottom() > View.Top;
}

void TvxMapRectangleViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  if (FVisibleRect.isEmpty())
    return;
  const TvxMapItemStyle& Style = GetStyle();
  DrawItemShape(APainter.Canvas(), FVisibleRect, false, Style, ScaleWidth(Style.BorderWidth()));
}

// TvxMapEllipseViewInfo

void TvxMapEllipseViewInfo::DoPaint(TvxMapControlPainter& APainter)
{
  if (FDrawBounds.isEmpty())
    return;
  const TvxMapItemStyle& Style = GetStyle();
  DrawItemShape(APainter.Canvas(), FDrawBounds, true, Style, ScaleWidth(Style.BorderWidth()));
}

bool TvxMapEllipseViewInfo::PtInElement(const QPoint& APoint) const
{
  if (!TvxMapRectangleViewInfo::PtInElement(APoint))
    return false;
  const double A = FBounds.width() / 2.0;
  const double B = FBounds.height() / 2.0;
  // Pixel centres against the ellipse inscribed in the bounds.
  const double DX = APoint.x() + 0.5 - (FBounds.x() + A);
  const double DY = APoint.y() + 0.5 - (FBounds.y() + B);
  return DX * DX / (A * A) + DY * DY / (B * B) <= 1;
}
