#pragma once

// Items that hang on one geographic location: dots and markers of constant
// pixel size, which keep their geometry relative to the location so that a
// pan costs one conversion, and rectangles and ellipses measured in
// kilometres on the ground.

#include "vxMapItem.h"

#include <QImage>
#include <QPixmap>

// Location is the one geographic point of the item.
class TvxMapSinglePointItem : public TvxMapItem
{
public:
  explicit TvxMapSinglePointItem(TvxMapItems* ACollection);
  ~TvxMapSinglePointItem() override;

  const TvxMapControlGeoLocation& Location() const { return *FLocation; }
  TvxMapControlGeoLocation& Location() { return *FLocation; }
  // Assigned into the existing location, so its change event fires.
  void SetLocation(const TvxMapControlGeoLocation& AValue) { FLocation->Assign(AValue); }
  void SetLocation(const TvxMapControlGeoPoint& AValue) { FLocation->SetGeoPoint(AValue); }

protected:
  void DoAssign(const TvxMapItem& ASource) override;
  virtual void LocationChanged();

private:
  std::unique_ptr<TvxMapControlGeoLocation> FLocation;
};

enum TvxMapDotShapeKind
{
  mcskCircle,
  mcskRectangle
};

class TvxMapDot : public TvxMapSinglePointItem
{
public:
  explicit TvxMapDot(TvxMapItems* ACollection) : TvxMapSinglePointItem(ACollection) {}

  TvxMapDotShapeKind ShapeKind() const { return FShapeKind; }
  void SetShapeKind(TvxMapDotShapeKind AValue);
  // The diameter in pixels.
  int Size() const { return FSize; }
  void SetSize(int AValue);

  void ChangeScale(int AM, int AD) override;
  bool IsPointer() const override { return true; }

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
  void DoAssign(const TvxMapItem& ASource) override;

private:
  TvxMapDotShapeKind FShapeKind = mcskCircle;
  int FSize = 5;
};

class TvxMapPointerViewInfo;

// An image anchored on the location with a text beside it. Without an image
// the built-in pin stands on the location.
class TvxMapPointer : public TvxMapSinglePointItem
{
public:
  explicit TvxMapPointer(TvxMapItems* ACollection) : TvxMapSinglePointItem(ACollection) {}

  // A null image means that none is assigned.
  const QImage& Image() const { return FImage; }
  void SetImage(const QImage& AValue);
  bool HasImage() const { return !FImage.isNull(); }
  // The anchor inside the image, as fractions of its width and height.
  const TvxPointDouble& ImageOrigin() const { return FImageOrigin; }
  void SetImageOrigin(const TvxPointDouble& AValue);
  bool ImageVisible() const { return FImageVisible; }
  void SetImageVisible(bool AValue);
  const QString& Text() const { return FText; }
  void SetText(const QString& AValue);
  // A pointer has no title, unless it has no text of its own and its own
  // title options are set visible with a pattern: then the pattern, read
  // against its attributes, shows below its image.
  bool ShowsTitle() const;

  TvxMapPointerViewInfo* PointerViewInfo() const;
  void ChangeScale(int AM, int AD) override;
  bool IsPointer() const override { return true; }

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
  void DoAssign(const TvxMapItem& ASource) override;
  virtual void ImageChanged();
  // Text, origin and visibility move the geometry but keep the image cache.
  void GeometryChanged();
  // A shown title is text of the geometry too.
  void TitleOptionsChanged() override;
  void AttributesChanged() override;

private:
  QImage FImage;
  TvxPointDouble FImageOrigin{0.5, 0.5};
  bool FImageVisible = true;
  QString FText;
};

// The program's markers: the built-in pin with its text inside the head.
class TvxMapPushpin : public TvxMapPointer
{
public:
  explicit TvxMapPushpin(TvxMapItems* ACollection) : TvxMapPointer(ACollection) {}

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
};

// A pointer on a rounded panel that shows when hot or selected.
class TvxMapCustomElement : public TvxMapPointer
{
public:
  explicit TvxMapCustomElement(TvxMapItems* ACollection) : TvxMapPointer(ACollection) {}

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
};

// Width and height are kilometres on the ground; the location is the
// top-left corner and the shape hangs down and to the east from it.
class TvxMapRectangle : public TvxMapSinglePointItem
{
public:
  explicit TvxMapRectangle(TvxMapItems* ACollection) : TvxMapSinglePointItem(ACollection) {}

  double Width() const { return FWidth; }
  void SetWidth(double AValue);
  double Height() const { return FHeight; }
  void SetHeight(double AValue);

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
  void DoAssign(const TvxMapItem& ASource) override;
  void SizeChanged();

private:
  double FHeight = 0;
  double FWidth = 0;
};

class TvxMapEllipse : public TvxMapRectangle
{
public:
  explicit TvxMapEllipse(TvxMapItems* ACollection) : TvxMapRectangle(ACollection) {}

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override;
};

class TvxMapDotViewInfo : public TvxMapItemViewInfo
{
public:
  explicit TvxMapDotViewInfo(TvxMapDot* AItem) : TvxMapItemViewInfo(AItem) {}

  TvxMapDot* Dot() const { return static_cast<TvxMapDot*>(FItem); }

protected:
  void CalculateScreenBounds() override;
  void DoCalculateCachedBounds() override;
  bool DoCanBeVisible() override;
  TvxRectDouble DoGetMapBounds() override;
  void DoPaint(TvxMapControlPainter& APainter) override;

private:
  TvxPointDouble FMapLocation;
  double FRadius = 0;
  TvxRectDouble FRelativeBounds;
};

class TvxMapPointerViewInfo : public TvxMapItemViewInfo
{
public:
  explicit TvxMapPointerViewInfo(TvxMapPointer* AItem) : TvxMapItemViewInfo(AItem) {}

  TvxMapPointer* Pointer() const { return static_cast<TvxMapPointer*>(FItem); }
  const QRect& ImageRect() const { return FImageRect; }
  const QRect& RelativeImageRect() const { return FRelativeImageRect; }
  const QRect& RelativeTextRect() const { return FRelativeTextRect; }
  const QRect& RelativeBounds() const { return FRelativeBounds; }
  // The device-ready copy of the image; null until painted or when it
  // could not be made.
  const QPixmap& CachedImage() const { return FCachedImage; }
  bool IsCachedImageValid() const { return FIsCachedImageValid; }
  // The old copy goes at once; a new one is made at the next paint.
  void InvalidateCachedImage()
  {
    FIsCachedImageValid = false;
    FCachedImage = QPixmap();
  }

  QString GetText() override;
  bool HasTitle() const override { return false; }

protected:
  virtual void CalculateRelativeTextRect();
  virtual QPoint DoCalculateTextOffset();
  virtual TvxPointDouble GetImageOrigin() const;
  virtual bool UsePushpinImageAsDefault() const { return Pointer()->ImageVisible(); }

  // The pointer paints its own text element.
  bool HasText() const override { return true; }
  void CalculateScreenBounds() override;
  void DoCalculateCachedBounds() override;
  bool DoCanBeVisible() override;
  TvxRectDouble DoGetMapBounds() override;
  void DoPaint(TvxMapControlPainter& APainter) override;
  // Makes the cache once per image or scale change; false when it failed.
  bool CheckCachedImageCreated();

  QPixmap FCachedImage;
  QRect FImageRect;
  bool FIsCachedImageValid = false;
  QRect FRelativeImageRect;
  QRect FRelativeTextRect;
  QRect FRelativeBounds;
  TvxPointDouble FMapLocation;
};

class TvxMapPushpinViewInfo : public TvxMapPointerViewInfo
{
public:
  explicit TvxMapPushpinViewInfo(TvxMapPushpin* AItem) : TvxMapPointerViewInfo(AItem) {}

  quint32 GetTextColor() const override;
  quint32 GetTextGlowColor() const override;

protected:
  QPoint DoCalculateTextOffset() override;
};

class TvxMapCustomElementViewInfo : public TvxMapPointerViewInfo
{
public:
  explicit TvxMapCustomElementViewInfo(TvxMapCustomElement* AItem) : TvxMapPointerViewInfo(AItem) {}

protected:
  void DoCalculateCachedBounds() override;
  void DoPaint(TvxMapControlPainter& APainter) override;
};

class TvxMapRectangleViewInfo : public TvxMapItemViewInfo
{
public:
  explicit TvxMapRectangleViewInfo(TvxMapRectangle* AItem) : TvxMapItemViewInfo(AItem) {}

  TvxMapRectangle* Rectangle() const { return static_cast<TvxMapRectangle*>(FItem); }
  const TvxRectDouble& MapBounds() const { return FMapBounds; }
  // What is really drawn: the bounds cut to the screen and its border.
  const QRect& VisibleRect() const { return FVisibleRect; }

protected:
  void CalculateScreenBounds() override;
  void DoCalculateCachedBounds() override;
  bool DoCanBeVisible() override;
  TvxRectDouble DoGetMapBounds() override { return FMapBounds; }
  bool IsBoundsScalable() const override { return true; }
  void DoPaint(TvxMapControlPainter& APainter) override;

  TvxRectDouble FMapBounds;
  TvxPointDouble FMapPoint1;
  TvxPointDouble FMapPoint2;
  QRect FVisibleRect;
};

class TvxMapEllipseViewInfo : public TvxMapRectangleViewInfo
{
public:
  explicit TvxMapEllipseViewInfo(TvxMapEllipse* AItem) : TvxMapRectangleViewInfo(AItem) {}

  bool PtInElement(const QPoint& APoint) const override;

protected:
  void DoPaint(TvxMapControlPainter& APainter) override;
};
