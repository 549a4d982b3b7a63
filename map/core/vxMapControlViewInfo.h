#pragma once

// The calculated layout of the whole control, its hit test, the controller
// that routes the mouse to elements, and the painter that draws them.

#include "vxMapControlElementViewInfo.h"

#include <QColor>
#include <QFont>
#include <QList>
#include <QMargins>
#include <QPoint>
#include <QRect>
#include <QTimer>

#include <memory>

class QPainter;
class TvxCustomMapControl;
class TvxMapControlNavigationPanelViewInfo;

class TvxMapControlHitTest
{
public:
  // Bit numbers are the elements' hit-test indexes.
  enum : int
  {
    htNavigationPanel = 1,
    htScrollButtons = 2,
    htZoomTrackBar = 3,
    htZoomInButton = 4,
    htZoomOutButton = 5,
    htZoomTrackBarThumb = 6,
    htZoomTrackBarScale = 7,
    htMapItem = 8,
    htLayers = 9
  };

  explicit TvxMapControlHitTest(TvxMapControlController* AController) : FController(AController) {}

  void Calculate(const QPoint& APoint);
  void Clear();

  bool GetBitState(int ABit) const { return ABit >= 0 && ABit < 64 && (FFlags >> ABit) & 1u; }
  void SetBitState(int ABit, bool AValue);
  quint64 Flags() const { return FFlags; }
  const QPoint& HitPoint() const { return FHitPoint; }
  TvxMapControlElementViewInfo* HitObject() const { return FHitObject; }
  void SetHitObject(TvxMapControlElementViewInfo* AValue) { FHitObject = AValue; }

  bool HitAtNavigationPanel() const { return GetBitState(htNavigationPanel); }
  bool HitAtScrollButtons() const { return GetBitState(htScrollButtons); }
  bool HitAtZoomTrackBar() const { return GetBitState(htZoomTrackBar); }
  bool HitAtZoomTrackBarThumb() const { return GetBitState(htZoomTrackBarThumb); }
  bool HitAtMapItem() const { return GetBitState(htMapItem); }
  bool HitAtLayers() const { return GetBitState(htLayers); }

private:
  TvxMapControlController* FController;
  TvxMapControlElementViewInfo* FHitObject = nullptr;
  quint64 FFlags = 0;
  QPoint FHitPoint;
};

// Routes the mouse to elements: hot and pressed states, clicks and hints.
class TvxMapControlController
{
public:
  explicit TvxMapControlController(TvxCustomMapControl* AMapControl);
  virtual ~TvxMapControlController();

  TvxCustomMapControl* MapControl() const { return FMapControl; }
  TvxMapControlHitTest& HitTest() { return *FHitTest; }
  TvxMapControlElementViewInfo* HotElement() const { return FHotElement; }
  TvxMapControlElementViewInfo* PressedElement() const { return FPressedElement; }
  TvxMapControlElementViewInfo* HintElement() const { return FHintElement; }
  bool IsHintVisible() const { return FHintVisible; }
  void SetHotElement(TvxMapControlElementViewInfo* AValue);
  void SetPressedElement(TvxMapControlElementViewInfo* AValue);
  void CheckHotElement(const QPoint& APoint);
  void ElementDestroying(TvxMapControlElementViewInfo* AElement);
  void HideHint();

  virtual void DoMouseDown(Qt::MouseButton AButton, const QPoint& APoint);
  virtual void DoMouseLeave();
  virtual void DoMouseMove(const QPoint& APoint);
  virtual void DoMouseUp(Qt::MouseButton AButton, const QPoint& APoint);
  virtual void CheckHint();

  // The pause before a hint shows; the platform's by default.
  int HintPause() const;
  int HintReshowPause() const;

private:
  void ShowHint();

  TvxCustomMapControl* FMapControl;
  std::unique_ptr<TvxMapControlHitTest> FHitTest;
  TvxMapControlElementViewInfo* FHintElement = nullptr;
  TvxMapControlElementViewInfo* FHotElement = nullptr;
  TvxMapControlElementViewInfo* FPressedElement = nullptr;
  TvxMapControlElementViewInfo* FHintCandidate = nullptr;
  QTimer FShowHintTimer;
  bool FHintVisible = false;
};

// The theme colours the control falls back to where its own are unset.
struct TvxMapControlLookAndFeel
{
  QColor ContentColor{0xE6, 0xE4, 0xE0};
  QColor PanelColor{255, 255, 255, 0xB4};
  QColor ElementColor{0x5A, 0x5A, 0x5A, 0xE6};
  QColor ElementHotColor{0x1F, 0x6F, 0xC5, 0xF0};
  QColor ElementPressedColor{0x0B, 0x3D, 0x7A, 0xFF};
  QColor ElementDisabledColor{0xA0, 0xA0, 0xA0, 0xC0};
  QColor SelectionFillColor{0x33, 0x99, 0xFF, 0x40};
  QColor SelectionOutlineColor{0x33, 0x99, 0xFF, 0xFF};
};

// Draws what the view infos calculated; it decides nothing.
class TvxMapControlPainter
{
public:
  explicit TvxMapControlPainter(TvxCustomMapControl* AMapControl) : FMapControl(AMapControl) {}
  virtual ~TvxMapControlPainter() = default;

  TvxCustomMapControl* MapControl() const { return FMapControl; }
  const TvxMapControlLookAndFeel& LookAndFeel() const { return FLookAndFeel; }
  void SetLookAndFeel(const TvxMapControlLookAndFeel& AValue) { FLookAndFeel = AValue; }

  // The canvas of the paint in progress; painting outside one is a fault.
  QPainter& Canvas() const { return *FCanvas; }
  bool IsPainting() const { return FCanvas != nullptr; }
  void BeginPaint(QPainter& ACanvas);
  void EndPaint();

  virtual void DrawCoordinatesInfo(const QRect& ABounds, const QString& AText, const QFont& AFont,
                                   const QColor& AColor);
  virtual void DrawNavigationPanel(const QRect& ABounds, const QColor& AColor);
  // Line rectangles and mark positions are calculated by the scale element.
  virtual void DrawScale(const QRect& AScaleBounds, int AKilometersLineWidth, int AMilesLineWidth,
                         bool AKilometersVisible, bool AMilesVisible, const QColor& ALineColor, int AMarkThickness,
                         int ALineThickness);
  virtual void DrawScaleText(const QRect& ABounds, const QString& AText, const QFont& AFont, const QColor& AColor);
  virtual void DrawScrollButtons(const QRect& ABounds, const QPoint& ACenter, const QColor& AColor, double AScale);
  virtual void DrawSelectedRegion(const QRect& ABounds);
  virtual void DrawZoomTrackBarBackground(const QRect& ABounds);
  virtual void DrawZoomTrackBarZoomButtonBackground(const QRect& ABounds, const QColor& AColor, double AScale);
  virtual void DrawZoomTrackBarZoomButtonIcon(const QRect& ABounds, bool AZoomIn, const QColor& AColor,
                                              double AScale);
  virtual void DrawZoomTrackBarScale(const QRect& ABounds, const QRect& AThumbBounds, const QColor& AColor);
  virtual void DrawZoomTrackBarThumbnail(const QRect& ABounds, const QColor& AColor);
  virtual void DrawBackground(const QRect& ABounds, const QColor& AColor);

  // The skin's values for map items; a state other than normal and selected
  // takes the highlighted value. Widths are at 96 DPI.
  virtual quint32 MapControlShapeColor(TvxMapControlElementState AState) const;
  virtual quint32 MapControlShapeBorderColor(TvxMapControlElementState AState) const;
  virtual int MapControlShapeBorderWidth(TvxMapControlElementState AState) const;
  virtual quint32 MapControlMapCustomElementTextColor() const { return 0xFF000000; }
  virtual quint32 MapControlMapCustomElementTextGlowColor() const { return 0xFFFFFFFF; }
  virtual quint32 MapControlMapPushpinTextColor() const { return 0xFF000000; }
  virtual quint32 MapControlMapPushpinTextGlowColor() const { return 0xFFFFFFFF; }
  // The built-in pin: its size and the centre of its text, scaled.
  virtual QSize MapControlGetMapPushpinSize(double AScaleFactor) const;
  virtual QPoint MapControlGetMapPushpinTextOrigin(double AScaleFactor) const;
  virtual QMargins MapControlMapCustomElementSelectionOffset(double AScaleFactor) const;
  // The built-in pin stretched into the rectangle.
  virtual void DrawMapPushpin(const QRect& ABounds, double AScaleFactor, TvxMapControlElementState AState);
  // The rounded panel behind a custom element, by state.
  virtual void DrawMapCustomElementBackground(const QRect& ABounds, TvxMapControlElementState AState);

private:
  TvxCustomMapControl* FMapControl;
  TvxMapControlLookAndFeel FLookAndFeel;
  QPainter* FCanvas = nullptr;
};

// The rubber band of a region selection or zoom.
class TvxMapControlSelectedRegionViewInfo : public TvxMapControlUIElementViewInfo
{
public:
  using TvxMapControlUIElementViewInfo::TvxMapControlUIElementViewInfo;
  void Paint(TvxMapControlPainter& APainter) override;
};

class TvxMapControlViewInfo
{
public:
  explicit TvxMapControlViewInfo(TvxCustomMapControl* AMapControl);
  TvxMapControlViewInfo(const TvxMapControlViewInfo&) = delete;
  TvxMapControlViewInfo& operator=(const TvxMapControlViewInfo&) = delete;
  virtual ~TvxMapControlViewInfo();

  TvxCustomMapControl* MapControl() const { return FMapControl; }
  TvxMapControlPainter& Painter() const;
  const QRect& Bounds() const { return FBounds; }
  const QList<TvxMapControlElementViewInfo*>& VisibleElements() const { return FVisibleElements; }
  TvxMapControlNavigationPanelViewInfo& NavigationPanelViewInfo() const { return *FNavigationPanelViewInfo; }
  TvxMapControlSelectedRegionViewInfo& SelectedRegionViewInfo() const { return *FSelectedRegionViewInfo; }

  virtual void Calculate();
  virtual void ClearCache();
  virtual void Paint(QPainter& ACanvas);
  bool CalculateHitTest(TvxMapControlHitTest& AHitTest);
  // The only place the elements are made; called once by the control.
  void CreateElements();

protected:
  virtual void AddVisibleElements();
  virtual void CalculateElementBounds();
  virtual void CalculateElements();
  virtual void CalculateElementSizes();
  virtual void InitializeElements();
  virtual void DrawElements(TvxMapControlPainter& APainter);

  TvxCustomMapControl* FMapControl;
  QRect FBounds;
  std::unique_ptr<TvxMapControlNavigationPanelViewInfo> FNavigationPanelViewInfo;
  std::unique_ptr<TvxMapControlSelectedRegionViewInfo> FSelectedRegionViewInfo;
  QList<TvxMapControlElementViewInfo*> FVisibleElements;
};
