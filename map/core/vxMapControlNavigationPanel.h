#pragma once

// The strip along the bottom of the map: scroll buttons, zoom track bar,
// distance scale and the coordinates under the mouse.

#include "vxMapControlElementViewInfo.h"

#include <QFont>
#include <QString>
#include <QTimer>
#include <functional>

class TvxCustomMapControl;
class TvxMapControlNavigationPanel;


class TvxMapControlNavigationPanelStyle
{
public:
  explicit TvxMapControlNavigationPanelStyle(TvxMapControlNavigationPanel* AOwner);

  quint32 Color() const { return FColor; }
  void SetColor(quint32 AValue) { SetValue(FColor, AValue); }
  quint32 ElementColor() const { return FElementColor; }
  void SetElementColor(quint32 AValue) { SetValue(FElementColor, AValue); }
  quint32 ElementHotColor() const { return FElementHotColor; }
  void SetElementHotColor(quint32 AValue) { SetValue(FElementHotColor, AValue); }
  quint32 ElementPressedColor() const { return FElementPressedColor; }
  void SetElementPressedColor(quint32 AValue) { SetValue(FElementPressedColor, AValue); }
  quint32 CoordinateTextColor() const { return FCoordinateTextColor; }
  void SetCoordinateTextColor(quint32 AValue) { SetValue(FCoordinateTextColor, AValue); }
  quint32 ScaleTextColor() const { return FScaleTextColor; }
  void SetScaleTextColor(quint32 AValue) { SetValue(FScaleTextColor, AValue); }
  const QFont& CoordinateFont() const { return FCoordinateFont; }
  void SetCoordinateFont(const QFont& AValue);
  const QFont& ScaleFont() const { return FScaleFont; }
  void SetScaleFont(const QFont& AValue);

  void ChangeScale(int AM, int AD);

private:
  void SetValue(quint32& AField, quint32 AValue);
  void Changed();

  TvxMapControlNavigationPanel* FOwner;
  quint32 FColor = vxMapControlDefaultAlphaColor;
  quint32 FElementColor = vxMapControlDefaultAlphaColor;
  quint32 FElementHotColor = vxMapControlDefaultAlphaColor;
  quint32 FElementPressedColor = vxMapControlDefaultAlphaColor;
  quint32 FCoordinateTextColor = vxMapControlDefaultColor;
  quint32 FScaleTextColor = vxMapControlDefaultColor;
  QFont FCoordinateFont;
  QFont FScaleFont;
};

class TvxMapControlNavigationPanel
{
public:
  explicit TvxMapControlNavigationPanel(TvxCustomMapControl* AMapControl);

  TvxCustomMapControl* MapControl() const { return FMapControl; }
  int Height() const { return FHeight; }
  void SetHeight(int AValue) { SetValue(FHeight, AValue); }
  bool ShowCoordinates() const { return FShowCoordinates; }
  void SetShowCoordinates(bool AValue) { SetValue(FShowCoordinates, AValue); }
  bool ShowKilometersScale() const { return FShowKilometersScale; }
  void SetShowKilometersScale(bool AValue) { SetValue(FShowKilometersScale, AValue); }
  bool ShowMilesScale() const { return FShowMilesScale; }
  void SetShowMilesScale(bool AValue) { SetValue(FShowMilesScale, AValue); }
  bool ShowScrollButtons() const { return FShowScrollButtons; }
  void SetShowScrollButtons(bool AValue) { SetValue(FShowScrollButtons, AValue); }
  bool ShowZoomTrackBar() const { return FShowZoomTrackBar; }
  void SetShowZoomTrackBar(bool AValue) { SetValue(FShowZoomTrackBar, AValue); }
  bool Visible() const { return FVisible; }
  void SetVisible(bool AValue) { SetValue(FVisible, AValue); }
  const QString& XCoordinateDisplayMask() const { return FXCoordinateDisplayMask; }
  void SetXCoordinateDisplayMask(const QString& AValue) { SetValue(FXCoordinateDisplayMask, AValue); }
  const QString& YCoordinateDisplayMask() const { return FYCoordinateDisplayMask; }
  void SetYCoordinateDisplayMask(const QString& AValue) { SetValue(FYCoordinateDisplayMask, AValue); }
  TvxMapControlNavigationPanelStyle& Style() { return FStyle; }
  const TvxMapControlNavigationPanelStyle& Style() const { return FStyle; }

  // Writes the coordinates in place of the masks; an empty function gives
  // the masks back. The widest text the formatter can give sizes the
  // element, so that it keeps its size while the mouse moves.
  using TCoordinateFormatter = std::function<QString(const TvxMapControlGeoPoint&)>;
  const TCoordinateFormatter& CoordinateFormatter() const { return FCoordinateFormatter; }
  const QString& CoordinateWidestText() const { return FCoordinateWidestText; }
  void SetCoordinateFormatter(TCoordinateFormatter AFormatter, const QString& AWidestText);

  void ChangeScale(int AM, int AD);
  void Changed();

private:
  template <class T>
  void SetValue(T& AField, const T& AValue)
  {
    if (AField == AValue)
      return;
    AField = AValue;
    Changed();
  }

  TvxCustomMapControl* FMapControl;
  int FHeight = 80;
  bool FShowCoordinates = true;
  bool FShowKilometersScale = true;
  bool FShowMilesScale = true;
  bool FShowScrollButtons = true;
  bool FShowZoomTrackBar = true;
  bool FVisible = true;
  QString FXCoordinateDisplayMask;
  QString FYCoordinateDisplayMask;
  TCoordinateFormatter FCoordinateFormatter;
  QString FCoordinateWidestText;
  TvxMapControlNavigationPanelStyle FStyle;
};

// The text forms of the coordinates element, apart for testing.
namespace vxMapControlCoordinates
{
// Turns a mask such as "{CP}{D:6}°" into a format of seven arguments.
QString ParsePattern(const QString& APattern);
// Formats with the arguments: letter, whole degrees, whole minutes, whole
// seconds, degrees, minutes, seconds.
QString FormatPattern(const QString& AFormat, const QString& ALetter, double AValue);
QString GeoPointToText(const TvxMapControlGeoPoint& APoint, const QString& AXPattern, const QString& AYPattern);
}

// The ranges of the distance scale, apart for testing.
struct TvxMapControlScaleLengths
{
  QString MetersText;
  QString MetersMeasure;
  int KilometersLineWidth = 0;
  QString MilesText;
  QString MilesMeasure;
  int MilesLineWidth = 0;
};
TvxMapControlScaleLengths vxCalculateScaleLineLength(double AKilometersScale, int AMaxLineWidth);

class TvxMapControlNavigationPanelViewInfo;

class TvxMapControlCoordinatesViewInfo : public TvxMapControlUIElementViewInfo
{
public:
  using TvxMapControlUIElementViewInfo::TvxMapControlUIElementViewInfo;
  const QString& Text() const { return FText; }
  void SetText(const QString& AValue);
  void Initialize() override;
  void MouseMove(const QPoint& APoint) override;
  void Paint(TvxMapControlPainter& APainter) override;

protected:
  QSize DoCalculateSize() override;

private:
  QString TextAt(const QPoint& APoint) const;

  QString FXPattern;
  QString FYPattern;
  QString FText;
};

class TvxMapControlScaleViewInfo : public TvxMapControlUIElementViewInfo
{
public:
  using TvxMapControlUIElementViewInfo::TvxMapControlUIElementViewInfo;
  bool IsKilometersVisible() const { return FIsKilometersVisible; }
  bool IsMilesVisible() const { return FIsMilesVisible; }
  const QString& MetersText() const { return FMetersText; }
  const QString& MilesText() const { return FMilesText; }
  int KilometersLineWidth() const { return FKilometersLineWidth; }
  int MilesLineWidth() const { return FMilesLineWidth; }
  const QRect& KilometersTextBounds() const { return FKilometersTextBounds; }
  const QRect& MilesTextBounds() const { return FMilesTextBounds; }
  const QRect& ScaleBounds() const { return FScaleBounds; }
  void CalculateBounds() override;
  void Paint(TvxMapControlPainter& APainter) override;

protected:
  QSize DoCalculateSize() override;

private:
  bool FIsKilometersVisible = false;
  bool FIsMilesVisible = false;
  QRect FKilometersTextBounds;
  QSize FKilometersTextSize;
  int FKilometersLineWidth = 0;
  QString FMetersMeasure;
  QString FMetersText;
  QString FMilesText;
  QRect FMilesTextBounds;
  QSize FMilesTextSize;
  int FMilesLineWidth = 0;
  QString FMilesMeasure;
  QRect FScaleBounds;
  QSize FScaleSize;
};

class TvxMapControlScrollButtonsViewInfo : public TvxMapControlUIElementViewInfo
{
public:
  explicit TvxMapControlScrollButtonsViewInfo(TvxMapControlViewInfo* AViewInfo);
  int GetHitTestIndex() const override { return 2; }
  const QPoint& Center() const { return FCenter; }
  const QPoint& ScaleDelta() const { return FScaleDelta; }
  bool IsScrolling() const { return FScrollTimer.isActive(); }
  void CalculateBounds() override;
  void Invalidate() override;
  void MouseDown(Qt::MouseButton AButton, const QPoint& APoint) override;
  void MouseMove(const QPoint& APoint) override;
  void MouseUp(Qt::MouseButton AButton, const QPoint& APoint) override;
  void Paint(TvxMapControlPainter& APainter) override;
  // One step of the repeat, as the timer does it.
  void ScrollTimerTick();

protected:
  QSize DoCalculateSize() override;

private:
  QPoint FCenter;
  QPoint FScaleDelta;
  QTimer FScrollTimer;
};

class TvxMapControlZoomTrackBarViewInfo;

class TvxMapControlZoomTrackBarPartViewInfo : public TvxMapControlUIElementViewInfo
{
public:
  TvxMapControlZoomTrackBarPartViewInfo(TvxMapControlViewInfo* AViewInfo, TvxMapControlZoomTrackBarViewInfo* ATrackBar)
    : TvxMapControlUIElementViewInfo(AViewInfo), FTrackBar(ATrackBar)
  {
  }
  const QRect& DrawBounds() const { return FDrawBounds; }
  void SetDrawBounds(const QRect& AValue) { FDrawBounds = AValue; }

protected:
  TvxMapControlZoomTrackBarViewInfo* FTrackBar;
  QRect FDrawBounds;
};

class TvxMapControlZoomTrackBarScaleViewInfo : public TvxMapControlZoomTrackBarPartViewInfo
{
public:
  using TvxMapControlZoomTrackBarPartViewInfo::TvxMapControlZoomTrackBarPartViewInfo;
  int GetHitTestIndex() const override { return 7; }
  void MouseDown(Qt::MouseButton AButton, const QPoint& APoint) override;
  void Paint(TvxMapControlPainter& APainter) override;
};

class TvxMapControlZoomTrackBarThumbViewInfo : public TvxMapControlZoomTrackBarPartViewInfo
{
public:
  using TvxMapControlZoomTrackBarPartViewInfo::TvxMapControlZoomTrackBarPartViewInfo;
  int GetHitTestIndex() const override { return 6; }
  void MouseMove(const QPoint& APoint) override;
  void Paint(TvxMapControlPainter& APainter) override;
};

class TvxMapControlZoomTrackBarZoomButtonViewInfo : public TvxMapControlZoomTrackBarPartViewInfo
{
public:
  TvxMapControlZoomTrackBarZoomButtonViewInfo(TvxMapControlViewInfo* AViewInfo,
                                              TvxMapControlZoomTrackBarViewInfo* ATrackBar, bool AZoomIn)
    : TvxMapControlZoomTrackBarPartViewInfo(AViewInfo, ATrackBar), FZoomIn(AZoomIn)
  {
  }
  int GetHitTestIndex() const override { return FZoomIn ? 4 : 5; }
  void Click() override;
  void Paint(TvxMapControlPainter& APainter) override;

private:
  bool FZoomIn;
};

class TvxMapControlZoomTrackBarViewInfo : public TvxMapControlUIElementViewInfo
{
public:
  explicit TvxMapControlZoomTrackBarViewInfo(TvxMapControlViewInfo* AViewInfo);
  ~TvxMapControlZoomTrackBarViewInfo() override;
  int GetHitTestIndex() const override { return 3; }
  int PixelsPerScaleInterval() const { return FPixelsPerScaleInterval; }
  TvxMapControlZoomTrackBarScaleViewInfo& ScaleViewInfo() const { return *FScale; }
  TvxMapControlZoomTrackBarThumbViewInfo& ThumbViewInfo() const { return *FThumb; }
  TvxMapControlZoomTrackBarZoomButtonViewInfo& ZoomInButtonViewInfo() const { return *FZoomIn; }
  TvxMapControlZoomTrackBarZoomButtonViewInfo& ZoomOutButtonViewInfo() const { return *FZoomOut; }
  void CalculateBounds() override;
  void Paint(TvxMapControlPainter& APainter) override;
  void SetZoomLevelByThumbPosition(int AX);
  void ZoomBy(double ADelta);

protected:
  void AddVisibleElements() override;
  QSize DoCalculateSize() override;

private:
  int FPixelsPerScaleInterval = 0;
  std::unique_ptr<TvxMapControlZoomTrackBarZoomButtonViewInfo> FZoomOut;
  std::unique_ptr<TvxMapControlZoomTrackBarZoomButtonViewInfo> FZoomIn;
  std::unique_ptr<TvxMapControlZoomTrackBarScaleViewInfo> FScale;
  std::unique_ptr<TvxMapControlZoomTrackBarThumbViewInfo> FThumb;
};

class TvxMapControlNavigationPanelViewInfo : public TvxMapControlUIElementViewInfo
{
public:
  explicit TvxMapControlNavigationPanelViewInfo(TvxMapControlViewInfo* AViewInfo);
  ~TvxMapControlNavigationPanelViewInfo() override;
  int GetHitTestIndex() const override { return 1; }
  TvxMapControlCoordinatesViewInfo& CoordinatesViewInfo() const { return *FCoordinatesViewInfo; }
  TvxMapControlScaleViewInfo& ScaleViewInfo() const { return *FScaleViewInfo; }
  TvxMapControlScrollButtonsViewInfo& ScrollButtonsViewInfo() const { return *FScrollButtonsViewInfo; }
  TvxMapControlZoomTrackBarViewInfo& ZoomTrackBarViewInfo() const { return *FZoomTrackBarViewInfo; }
  bool Contains(const TvxMapControlElementViewInfo* AElement) const { return FVisibleElements.contains(AElement); }
  void CalculateBounds() override;
  void Paint(TvxMapControlPainter& APainter) override;

protected:
  void AddVisibleElements() override;
  QSize DoCalculateSize() override;

private:
  std::unique_ptr<TvxMapControlCoordinatesViewInfo> FCoordinatesViewInfo;
  std::unique_ptr<TvxMapControlScaleViewInfo> FScaleViewInfo;
  std::unique_ptr<TvxMapControlScrollButtonsViewInfo> FScrollButtonsViewInfo;
  std::unique_ptr<TvxMapControlZoomTrackBarViewInfo> FZoomTrackBarViewInfo;
};
