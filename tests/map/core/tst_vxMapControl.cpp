#include "ClockU.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapControlNavigationPanel.h"
#include "vxTestLayer.h"

#include <QApplication>
#include <QLineF>
#include <QScopeGuard>
#include <QTest>
#include <QWheelEvent>

#include <cmath>
#include <limits>
#include <numbers>

// The distance in pixels, with both points in the message.
#define VERIFY_NEAR_POINT(Actual, Expected, Tolerance)                                                      \
  QVERIFY2(QLineF((Actual), (Expected)).length() <= (Tolerance),                                            \
           qPrintable(QString::asprintf("(%.9g, %.9g) instead of (%.9g, %.9g)", QPointF(Actual).x(),        \
                                        QPointF(Actual).y(), QPointF(Expected).x(), QPointF(Expected).y())))

namespace
{
constexpr double Pi = std::numbers::pi;
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

TvxMapControlGeoPoint Geo(double ALatitude, double ALongitude)
{
  return TvxMapControlGeoPoint::Create(ALatitude, ALongitude);
}

bool IsFinite(const TvxMapControlGeoPoint& APoint)
{
  return std::isfinite(APoint.Latitude) && std::isfinite(APoint.Longitude);
}

// Spherical Mercator by the textbook formula, apart from the engine's own:
// the world is 0..1 on both axes, Y growing south.
TvxPointDouble MercatorUnit(const TvxMapControlGeoPoint& APoint)
{
  const double Phi = APoint.Latitude * Pi / 180;
  return {(APoint.Longitude + 180) / 360, 0.5 - std::log(std::tan(Pi / 4 + Phi / 2)) / (2 * Pi)};
}

TvxMapControlGeoPoint MercatorGeo(const TvxPointDouble& AUnit)
{
  return Geo(std::atan(std::sinh((0.5 - AUnit.Y) * 2 * Pi)) * 180 / Pi, AUnit.X * 360 - 180);
}

double WorldPixels(double AZoomLevel)
{
  return 256 * std::pow(2.0, AZoomLevel);
}

// Where a point shows, from nothing but the control's centre, level and size.
QPointF ExpectedScreen(const TvxCustomMapControl& AMap, const TvxMapControlGeoPoint& APoint)
{
  const TvxPointDouble C = MercatorUnit(AMap.ActualCenterPoint());
  const TvxPointDouble U = MercatorUnit(APoint);
  const double S = WorldPixels(AMap.ActualZoomLevel());
  return {(U.X - C.X) * S + AMap.width() / 2.0, (U.Y - C.Y) * S + AMap.height() / 2.0};
}

TvxMapControlGeoPoint ExpectedGeo(const TvxCustomMapControl& AMap, const QPointF& APoint)
{
  const TvxPointDouble C = MercatorUnit(AMap.ActualCenterPoint());
  const double S = WorldPixels(AMap.ActualZoomLevel());
  return MercatorGeo({C.X + (APoint.x() - AMap.width() / 2.0) / S, C.Y + (APoint.y() - AMap.height() / 2.0) / S});
}

void Wheel(TvxCustomMapControl& AMap, const QPointF& APoint, int ADelta)
{
  QWheelEvent Event(APoint, AMap.mapToGlobal(APoint), QPoint(), QPoint(0, ADelta), Qt::NoButton, Qt::NoModifier,
                    Qt::NoScrollPhase, false);
  QApplication::sendEvent(&AMap, &Event);
}

constexpr quint64 Bit(int AIndex)
{
  return quint64(1) << AIndex;
}

quint64 HitAt(TvxCustomMapControl& AMap, const QPoint& APoint)
{
  AMap.HitTest().Calculate(APoint);
  return AMap.HitTest().Flags();
}

// A point of the panel strip that no part of the panel covers.
QPoint EmptyPanelPoint(TvxCustomMapControl& AMap)
{
  const QRect R = AMap.ViewInfo().NavigationPanelViewInfo().Bounds();
  for (int X = R.right() - 1; X > R.left(); X -= 3)
    if (HitAt(AMap, {X, R.top() + 2}) == Bit(TvxMapControlHitTest::htNavigationPanel))
      return {X, R.top() + 2};
  return {};
}

// Presses, moves and releases; gives the drag mode seen while moving.
int DragThrough(TvxCustomMapControl& AMap, QPoint AFrom, QPoint ATo, Qt::KeyboardModifiers AShift = {})
{
  QTest::mousePress(&AMap, Qt::LeftButton, AShift, AFrom);
  QTest::mouseMove(&AMap, ATo);
  const int Mode = AMap.DragMode();
  QTest::mouseRelease(&AMap, Qt::LeftButton, AShift, ATo);
  return Mode;
}

// A map item that is its own element, a 10 x 10 box round a fixed pixel. A
// press selects it with the shift state of the press, as real items do.
struct TFakeItem : IvxMapItem, TvxMapControlElementViewInfo
{
  TFakeItem(TvxMapLayer* ALayer, QPoint APoint) : Layer(ALayer), Point(APoint)
  {
    SetController(&ALayer->MapControl()->Controller());
    SetBounds(QRect(APoint - QPoint(5, 5), QSize(10, 10)));
  }
  TvxMapLayer* ItemLayer() const override { return Layer; }
  bool ItemVisible() const override { return true; }
  TvxMapControlElementViewInfo* ItemViewInfo() const override { return const_cast<TFakeItem*>(this); }
  TvxRectDouble ItemMapBounds() const override { return {}; }
  int GetHitTestIndex() const override { return TvxMapControlHitTest::htMapItem; }
  void MouseDown(Qt::MouseButton, const QPoint&) override
  {
    Layer->MapControl()->Select(this, Layer->MapControl()->ShiftState(), true);
  }
  TvxMapLayer* Layer;
  QPoint Point;
};

struct TFakeItemLayer : TvxTestLayer
{
  struct TViewInfo : TvxTestLayerViewInfo
  {
    explicit TViewInfo(TFakeItemLayer* ALayer) : TvxTestLayerViewInfo(ALayer), Owner(ALayer) {}
    void AddVisibleElements() override
    {
      for (const auto& Item : Owner->Items)
        AddVisibleElement(Item.get());
    }
    TFakeItemLayer* Owner;
  };

  explicit TFakeItemLayer(TvxMapLayers* ACollection) : TvxTestLayer(ACollection) {}
  TFakeItem* AddItem(QPoint APoint)
  {
    Items.push_back(std::make_unique<TFakeItem>(this, APoint));
    MapControl()->Changed();
    return Items.back().get();
  }
  bool IsItemLayer() const override { return true; }
  void GetItemsInRegion(const QRect& ARegion, TvxMapItemList& AItems) const override
  {
    for (const auto& Item : Items)
      if (ARegion.contains(Item->Point))
        AItems.append(Item.get());
  }
  std::unique_ptr<TvxMapLayerViewInfo> CreateViewInfo() override { return std::make_unique<TViewInfo>(this); }
  std::vector<std::unique_ptr<TFakeItem>> Items;
};

// 640 x 480 with one layer at level 5; no animation, no inertia.
template <class TLayer = TvxTestLayer>
TLayer* Prepare(TvxCustomMapControl& AMap)
{
  AMap.resize(640, 480);
  AMap.OptionsBehavior().SetAnimation(false);
  AMap.OptionsBehavior().SetInertialScrolling(false);
  TLayer* Layer = AMap.AddLayer<TLayer>();
  AMap.Zoom(5, false);
  return Layer;
}
}

class TestMapControl : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void viewportFollowsCentreZoomAndSize();
  void zoomKeepsPointUnderAnchor();
  void dragPansWithTheCursor();
  void modifiedDragSelectsOrZoomsRegion();
  void inertiaNeedsSpeedThenCoasts();
  void zoomEventsAndRefusals();
  void selection();
  void hitTestBits();
  void baseLayerAndEmptyMap();
  void degenerateInputIsHarmless();
};

void TestMapControl::viewportFollowsCentreZoomAndSize()
{
  TvxMapControl Map;
  TvxTestLayer* Layer = Prepare(Map);
  const struct { double Latitude, Longitude, Zoom; int Width, Height; } Cases[] = {
    {0, 0, 1, 400, 200},
    {48.8566, 2.3522, 5, 640, 480},
    {-33.87, 151.21, 7.3, 801, 333},
    // Near the antimeridian the viewport hangs over the world's edge.
    {60, 179.5, 3, 640, 480},
  };
  for (const auto& Case : Cases)
  {
    Map.resize(Case.Width, Case.Height);
    Map.Zoom(Case.Zoom, false);
    Map.SetCenterPoint(Geo(Case.Latitude, Case.Longitude));
    const TvxPointDouble C = MercatorUnit(Geo(Case.Latitude, Case.Longitude));
    const double S = WorldPixels(Case.Zoom);
    const TvxRectDouble& V = Layer->ViewPort();
    QVERIFY(std::abs(V.Left - (C.X - Case.Width / S / 2)) < 1e-12);
    QVERIFY(std::abs(V.Top - (C.Y - Case.Height / S / 2)) < 1e-12);
    QVERIFY(std::abs(V.Width - Case.Width / S) < 1e-12);
    QVERIFY(std::abs(V.Height - Case.Height / S) < 1e-12);
    QVERIFY(std::abs(Layer->RenderScale().X - S) < S * 1e-12);
  }
  QVERIFY(Layer->ViewPort().Right() > 1);

  // Beyond the world's edge a screen point maps to the edge.
  Map.Zoom(1, false);
  Map.SetCenterPoint(Geo(0, 0));
  QCOMPARE(Map.ScreenPointToGeoPoint({0, 100}).Longitude, -180.0);

  // A resize alone moves the viewport's edges.
  Map.show();
  QVERIFY(QTest::qWaitForWindowExposed(&Map));
  Map.resize(1024, 300);
  QTRY_VERIFY(std::abs(Layer->ViewPort().Width - 1024 / WorldPixels(1)) < 1e-12);
  QVERIFY(std::abs(Layer->ViewPort().Height - 300 / WorldPixels(1)) < 1e-12);
}

void TestMapControl::zoomKeepsPointUnderAnchor()
{
  TvxMapControl Map;
  Prepare(Map);
  Map.SetCenterPoint(Geo(20, 10));
  const struct { double From, To; QPointF Anchor; } Steps[] = {
    {1, 3, {320, 240}}, {3, 7.5, {50.5, 60}}, {7.5, 4, {600, 400}}, {4, 12, {10, 470}}, {12, 13.25, {633, 7}},
  };
  for (const auto& Step : Steps)
  {
    Map.Zoom(Step.From, false);
    const TvxMapControlGeoPoint Grabbed = ExpectedGeo(Map, Step.Anchor);
    Map.Zoom(Step.To, {Step.Anchor.x(), Step.Anchor.y()}, false, false);
    QCOMPARE(Map.ActualZoomLevel(), Step.To);
    VERIFY_NEAR_POINT(ExpectedScreen(Map, Grabbed), Step.Anchor, 0.5);
  }

  // The wheel zooms by delta / 120, fractions included, about the mouse.
  Map.Zoom(6, false);
  const struct { int Delta; QPointF Anchor; double Level; } Clicks[] = {
    {120, {100, 100}, 7}, {60, {500, 90}, 7.5}, {-60, {321, 400}, 7}, {-240, {20, 300}, 5},
  };
  for (const auto& Click : Clicks)
  {
    const TvxMapControlGeoPoint Grabbed = ExpectedGeo(Map, Click.Anchor);
    Wheel(Map, Click.Anchor, Click.Delta);
    QCOMPARE(Map.ZoomLevel(), Click.Level);
    QCOMPARE(Map.ActualZoomLevel(), Click.Level);
    VERIFY_NEAR_POINT(ExpectedScreen(Map, Grabbed), Click.Anchor, 0.5);
  }
  Map.OptionsBehavior().SetZooming(false);
  Wheel(Map, {100, 100}, 120);
  QCOMPARE(Map.ZoomLevel(), 5.0);
}

void TestMapControl::dragPansWithTheCursor()
{
  TvxMapControl Map;
  Prepare(Map);
  Map.SetCenterPoint(Geo(40, -3));
  Map.show();
  QVERIFY(QTest::qWaitForWindowExposed(&Map));
  int Moves = 0;
  Map.OnCenterPointChanged = [&Moves](TvxCustomMapControl*) { ++Moves; };

  const QPoint Start(300, 200);
  const TvxMapControlGeoPoint Grabbed = ExpectedGeo(Map, Start);
  QTest::mousePress(&Map, Qt::LeftButton, {}, Start);
  for (const QPoint& P : {QPoint(340, 230), QPoint(100, 50), QPoint(310, 210)})
  {
    QTest::mouseMove(&Map, P);
    QCOMPARE(Map.DragMode(), 1);
    VERIFY_NEAR_POINT(ExpectedScreen(Map, Grabbed), P, 0.5);
  }
  QCOMPARE(Moves, 3);

  // Refused: the map stands still, but the drag goes on.
  const TvxMapControlGeoPoint Held = Map.ActualCenterPoint();
  Map.OnCenterPointChanging = [](TvxCustomMapControl*, TvxMapControlGeoPoint&, bool& AAllow) { AAllow = false; };
  QTest::mouseMove(&Map, QPoint(200, 100));
  QVERIFY(Map.ActualCenterPoint().IsEqual(Held));
  QCOMPARE(Map.DragMode(), 1);
  QCOMPARE(Moves, 3);
  Map.OnCenterPointChanging = nullptr;
  QTest::mouseMove(&Map, QPoint(250, 120));
  VERIFY_NEAR_POINT(ExpectedScreen(Map, Grabbed), QPointF(250, 120), 0.5);
  QTest::mouseRelease(&Map, Qt::LeftButton, {}, QPoint(250, 120));
  QCOMPARE(Map.DragMode(), 0);

  // A drag that starts on the panel does not pan, nor one with scrolling off.
  const TvxMapControlGeoPoint Before = Map.ActualCenterPoint();
  const QPoint OnPanel = EmptyPanelPoint(Map);
  QVERIFY(!OnPanel.isNull());
  QCOMPARE(DragThrough(Map, OnPanel, OnPanel - QPoint(80, 150)), 0);
  Map.OptionsBehavior().SetScrolling(false);
  QCOMPARE(DragThrough(Map, Start, Start + QPoint(60, 60)), 0);
  QVERIFY(Map.ActualCenterPoint().IsEqual(Before));
}

void TestMapControl::modifiedDragSelectsOrZoomsRegion()
{
  TvxMapControl Map;
  TFakeItemLayer* Layer = Prepare<TFakeItemLayer>(Map);
  Map.show();
  QVERIFY(QTest::qWaitForWindowExposed(&Map));
  TFakeItem* Inside1 = Layer->AddItem({220, 170});
  TFakeItem* Inside2 = Layer->AddItem({330, 250});
  Map.Select(Layer->AddItem({420, 120}), {}, true);
  int Changes = 0;
  Map.OnSelectionChanged = [&Changes](TvxCustomMapControl*) { ++Changes; };

  // Dragged up and left, the band is still corner to corner with the far
  // edges excluded, clipped to the client area; the map does not move.
  const TvxMapControlGeoPoint Centre = Map.ActualCenterPoint();
  const QPoint From(350, 260), To(200, 150);
  QTest::mousePress(&Map, Qt::LeftButton, Qt::ShiftModifier, From);
  QTest::mouseMove(&Map, To);
  QCOMPARE(Map.DragMode(), 2);
  QCOMPARE(Map.SelectedRegionBounds(), QRect(200, 150, 150, 110));
  QTest::mouseMove(&Map, QPoint(-40, 700));
  QCOMPARE(Map.SelectedRegionBounds(), QRect(0, 260, 350, 220));
  QTest::mouseMove(&Map, To);
  QTest::mouseRelease(&Map, Qt::LeftButton, Qt::ShiftModifier, To);
  QCOMPARE(Map.DragMode(), 0);
  QVERIFY(Map.SelectedRegionBounds().isEmpty());
  QVERIFY(Map.ActualCenterPoint().IsEqual(Centre));
  QCOMPARE(Map.SelectedMapItems(), (TvxMapItemList{Inside1, Inside2}));
  // One event for the press on the map that cleared, one for the band.
  QCOMPARE(Changes, 2);

  // Shift and Ctrl: zoom to the band, whole levels only.
  const TvxMapControlGeoPoint Middle = ExpectedGeo(Map, QPointF(275, 205));
  QCOMPARE(DragThrough(Map, To, From, Qt::ShiftModifier | Qt::ControlModifier), 3);
  QCOMPARE(Map.ZoomLevel(), 7.0);
  const TvxPointDouble Got = MercatorUnit(Map.ActualCenterPoint());
  const TvxPointDouble Want = MercatorUnit(Middle);
  QVERIFY(std::hypot(Got.X - Want.X, Got.Y - Want.Y) * WorldPixels(5) <= 0.5);
  // A band of exactly a quarter of the view is two whole levels.
  QCOMPARE(DragThrough(Map, {100, 100}, {260, 220}, Qt::ShiftModifier | Qt::ControlModifier), 3);
  QCOMPARE(Map.ZoomLevel(), 9.0);

  // Without the extended mode Shift alone pans.
  Map.OptionsBehavior().SetMapItemSelectMode(mismMultiple);
  QCOMPARE(DragThrough(Map, {300, 200}, {340, 230}, Qt::ShiftModifier), 1);
}

void TestMapControl::inertiaNeedsSpeedThenCoasts()
{
  auto* Time = new TManualClock(QDateTime(QDate(2024, 5, 1), QTime(12, 0), Qt::UTC));
  std::unique_ptr<TClock> System = Clock::Set(std::unique_ptr<TClock>(Time));
  const auto Restore = qScopeGuard([&System] { Clock::Set(std::move(System)); });
  TvxMapControl Map;
  Prepare(Map);
  Map.OptionsBehavior().SetInertialScrolling(true);
  Map.show();
  QVERIFY(QTest::qWaitForWindowExposed(&Map));
  TvxMapControlInertialScrollingController& Inertia = Map.InertiaController();

  // Five moves by AStep every 10 ms, then the mouse rests for some ticks.
  const auto Drag = [&](QPoint AStep, int AStillTicks) {
    QPoint P(100, 60);
    QTest::mousePress(&Map, Qt::LeftButton, {}, P);
    P += 2 * AStep;
    QTest::mouseMove(&Map, P);
    for (int I = 0; I < 5; ++I)
    {
      Time->Advance(10);
      QTest::mouseMove(&Map, P += AStep);
    }
    for (int I = 0; I < AStillTicks; ++I)
    {
      Time->Advance(10);
      Inertia.TrackSpeedTimer();
    }
    QTest::mouseRelease(&Map, Qt::LeftButton, {}, P);
  };

  Drag({10, 0}, 0);
  QVERIFY(Inertia.IsInertiaRunning());
  QCOMPARE(Inertia.Speed().X, 1000.0);
  QCOMPARE(Inertia.Speed().Y, 0.0);
  // A press stops it, and so does a zoom.
  QTest::mousePress(&Map, Qt::LeftButton, {}, {300, 300});
  QVERIFY(!Inertia.IsInertiaRunning());
  QVERIFY(!Inertia.IsActive());
  QTest::mouseRelease(&Map, Qt::LeftButton, {}, {300, 300});
  QVERIFY(!Inertia.IsInertiaRunning());
  Drag({10, 0}, 0);
  Map.Zoom(6, false);
  QVERIFY(!Inertia.IsInertiaRunning());

  // Four resting ticks leave one moving sample of five; five leave none.
  Drag({10, 0}, 4);
  QVERIFY(Inertia.IsInertiaRunning());
  QCOMPARE(Inertia.Speed().X, 200.0);
  Drag({10, 0}, 5);
  QVERIFY(!Inertia.IsInertiaRunning());
  QVERIFY(!Inertia.IsActive());

  // A drag with no time passing has no sample at all; a click is no drag.
  QCOMPARE(DragThrough(Map, {200, 200}, {260, 240}), 1);
  QVERIFY(!Inertia.IsInertiaRunning());
  const TvxMapControlGeoPoint Before = Map.ActualCenterPoint();
  QVERIFY(IsFinite(Before));
  QTest::mousePress(&Map, Qt::LeftButton, {}, {200, 200});
  Time->Advance(50);
  QTest::mouseRelease(&Map, Qt::LeftButton, {}, {200, 200});
  QVERIFY(!Inertia.IsInertiaRunning());
  QVERIFY(Map.ActualCenterPoint().IsEqual(Before));

  // Down and to the right at (600, 800) px/s: the map goes on that way,
  // slowing by 1500 px/s^2, at t offset by (600 t - 450 t^2, 800 t - 600 t^2)
  // rounded, and stops after 1000 / 1500 s.
  Drag({6, 8}, 0);
  QVERIFY(Inertia.IsInertiaRunning());
  QVERIFY(std::abs(Inertia.InertiaTime() - 1000.0 / 1500) < 1e-12);
  QVERIFY(std::abs(Inertia.Deceleration().X + 900) < 1e-9);
  QVERIFY(std::abs(Inertia.Deceleration().Y + 1200) < 1e-9);
  const TvxMapControlGeoPoint Released = Map.ActualCenterPoint();
  const struct { int Msecs; QPointF Offset; } Ticks[] = {{120, {66, 87}}, {400, {168, 224}}, {600, {198, 264}}};
  int Elapsed = 0;
  for (const auto& Tick : Ticks)
  {
    Time->Advance(Tick.Msecs - Elapsed);
    Elapsed = Tick.Msecs;
    Inertia.InertiaTimer();
    QVERIFY(Inertia.IsInertiaRunning());
    VERIFY_NEAR_POINT(ExpectedScreen(Map, Released), QPointF(320, 240) + Tick.Offset, 0.5);
  }
  const TvxMapControlGeoPoint Last = Map.ActualCenterPoint();
  Time->Advance(700 - Elapsed);
  Inertia.InertiaTimer();
  QVERIFY(!Inertia.IsInertiaRunning());
  QVERIFY(!Inertia.IsActive());
  QVERIFY(Map.ActualCenterPoint().IsEqual(Last));

  Map.OptionsBehavior().SetInertialScrolling(false);
  Drag({10, 0}, 0);
  QVERIFY(!Inertia.IsInertiaRunning());
  QVERIFY(!Inertia.IsActive());
}

void TestMapControl::zoomEventsAndRefusals()
{
  TvxMapControl Map;
  TvxTestLayer* Layer = Prepare(Map);
  Map.show();
  QVERIFY(QTest::qWaitForWindowExposed(&Map));
  int Changed = 0;
  Map.OnZoomLevelChanged = [&Changed](TvxCustomMapControl*) { ++Changed; };
  Map.SetZoomLevel(20);
  Map.ZoomIn();
  Map.SetZoomLevel(25);
  QCOMPARE(Map.ZoomLevel(), 20.0);
  QCOMPARE(Map.ActualZoomLevel(), 20.0);
  QCOMPARE(Changed, 1);
  Map.SetZoomLevel(1);
  Map.ZoomOut();
  Map.SetZoomLevel(-3);
  QCOMPARE(Map.ActualZoomLevel(), 1.0);
  QCOMPARE(Changed, 2);
  Map.SetZoomLevel(3.5);
  QCOMPARE(Map.ActualZoomLevel(), 3.5);
  QCOMPARE(Changed, 3);

  // A refusal changes nothing: levels, centre, events.
  Map.SetCenterPoint(Geo(30, 40));
  double Asked = 0;
  Map.OnZoomLevelChanging = [&Asked](TvxCustomMapControl*, double ALevel, bool& AAllow) {
    Asked = ALevel;
    AAllow = false;
  };
  Map.ZoomIn();
  QCOMPARE(Asked, 4.5);
  Wheel(Map, {10, 10}, 120);
  QCOMPARE(Map.ZoomLevel(), 3.5);
  QCOMPARE(Map.ActualZoomLevel(), 3.5);
  QVERIFY(Map.ActualCenterPoint().IsEqual(Geo(30, 40)));
  QCOMPARE(Changed, 3);
  Map.OnZoomLevelChanging = nullptr;

  // While locked a zoom, even an asynchronous one, applies at once; the
  // layout waits for the end of the update.
  Map.OptionsBehavior().SetAnimation(true);
  const int Layouts = Layer->TestViewInfo()->CalculateCount();
  Map.BeginUpdate();
  Map.ZoomAsync(8);
  QCOMPARE(Map.ActualZoomLevel(), 8.0);
  QVERIFY(!Map.AnimationController().IsAnimating());
  QCOMPARE(Changed, 4);
  Map.Zoom(9, true);
  QCOMPARE(Map.ActualZoomLevel(), 9.0);
  QCOMPARE(Changed, 5);
  Map.SetCenterPoint(Geo(31, 41));
  QCOMPARE(Layer->TestViewInfo()->CalculateCount(), Layouts);
  Map.EndUpdate();
  QCOMPARE(Layer->TestViewInfo()->CalculateCount(), Layouts + 1);
  // A bracket in which nothing changed lays nothing out.
  Map.BeginUpdate();
  Map.SetCenterPoint(Geo(31, 41));
  Map.EndUpdate();
  QCOMPARE(Layer->TestViewInfo()->CalculateCount(), Layouts + 1);

  // Before its window exists the control counts as locked for a zoom: an
  // animated one is applied at once, with one layout instead of a tick's
  // layout each (the start zoom of the main window).
  {
    TvxMapControl Hidden;
    TvxTestLayer* HiddenLayer = Prepare(Hidden);
    Hidden.OptionsBehavior().SetAnimation(true);
    int HiddenChanged = 0;
    Hidden.OnZoomLevelChanged = [&HiddenChanged](TvxCustomMapControl*) { ++HiddenChanged; };
    const int Before = HiddenLayer->TestViewInfo()->CalculateCount();
    Hidden.SetZoomLevel(12);
    QCOMPARE(Hidden.ActualZoomLevel(), 12.0);
    QVERIFY(!Hidden.AnimationController().IsAnimating());
    QCOMPARE(HiddenChanged, 1);
    QCOMPARE(HiddenLayer->TestViewInfo()->CalculateCount(), Before + 1);
    Hidden.ZoomAsync(14);
    QCOMPARE(Hidden.ActualZoomLevel(), 14.0);
    QCOMPARE(HiddenChanged, 2);
  }

  // Asynchronous: one report, at the end.
  Map.Zoom(4, false);
  Changed = 0;
  Map.ZoomAsync(6);
  QCOMPARE(Map.ZoomLevel(), 6.0);
  QVERIFY(Map.AnimationController().IsAnimating());
  QCOMPARE(Changed, 0);
  QTRY_COMPARE_WITH_TIMEOUT(Changed, 1, 10000);
  QCOMPARE(Map.ActualZoomLevel(), 6.0);
  QTest::qWait(100);
  QCOMPARE(Changed, 1);

  // Superseded at once: only the second reports.
  Changed = 0;
  Map.ZoomAsync(3);
  Map.ZoomAsync(8);
  QTRY_VERIFY_WITH_TIMEOUT(!Map.AnimationController().IsAnimating(), 10000);
  QCOMPARE(Map.ActualZoomLevel(), 8.0);
  QCOMPARE(Changed, 1);

  // A second wheel click mid-way goes on from the level shown towards the
  // new target; the point under the mouse stays there throughout.
  Changed = 0;
  const QPointF Anchor(150, 120);
  const TvxMapControlGeoPoint Grabbed = ExpectedGeo(Map, Anchor);
  Wheel(Map, Anchor, 120);
  QTRY_VERIFY_WITH_TIMEOUT(Map.ActualZoomLevel() > 8, 10000);
  const double Shown = Map.ActualZoomLevel();
  QVERIFY(Shown < 9);
  Wheel(Map, Anchor, 120);
  QCOMPARE(Map.ZoomLevel(), 10.0);
  QCOMPARE(Map.AnimationController().ZoomAnimationStartLevel(), Shown);
  QCOMPARE(Map.AnimationController().NewLevel(), 10.0);
  QTRY_VERIFY_WITH_TIMEOUT(!Map.AnimationController().IsAnimating(), 10000);
  QCOMPARE(Map.ActualZoomLevel(), 10.0);
  QCOMPARE(Changed, 1);
  VERIFY_NEAR_POINT(ExpectedScreen(Map, Grabbed), Anchor, 0.5);
}

void TestMapControl::selection()
{
  TvxMapControl Map;
  TFakeItemLayer* Layer = Prepare<TFakeItemLayer>(Map);
  Map.show();
  QVERIFY(QTest::qWaitForWindowExposed(&Map));
  TFakeItem* A = Layer->AddItem({100, 100});
  TFakeItem* B = Layer->AddItem({200, 150});
  TFakeItem* C = Layer->AddItem({500, 300});
  int Changes = 0;
  Map.OnSelectionChanged = [&Changes](TvxCustomMapControl*) { ++Changes; };

  Map.Select(A, {}, true);
  Map.Select(B, Qt::ControlModifier, true);
  QCOMPARE(Map.SelectedMapItems(), (TvxMapItemList{A, B}));
  QCOMPARE(A->State(), mcesSelected);
  Map.Select(A, Qt::ControlModifier, true);
  QCOMPARE(Map.SelectedMapItems(), TvxMapItemList{B});
  QCOMPARE(A->State(), mcesNormal);
  QCOMPARE(Changes, 3);
  Map.Select(A, Qt::ControlModifier, true);
  // A plain select of a selected item keeps the rest, silently.
  Map.Select(A, {}, true);
  QCOMPARE(Map.SelectedMapItems(), (TvxMapItemList{B, A}));
  QCOMPARE(Changes, 4);
  // A plain select of another replaces all, in one event.
  Map.Select(C, {}, true);
  QCOMPARE(Map.SelectedMapItems(), TvxMapItemList{C});
  QCOMPARE(B->State(), mcesNormal);
  QCOMPARE(Changes, 5);

  // Refusals hold both ways.
  Map.OnSelectionChanging = [B, C](TvxCustomMapControl*, IvxMapItem* AItem, bool& AAllow) {
    AAllow = AItem != B && AItem != C;
  };
  Map.Select(B, Qt::ControlModifier, true);
  Map.Deselect(C);
  Map.Select(C, Qt::ControlModifier, true);
  QCOMPARE(Map.SelectedMapItems(), TvxMapItemList{C});
  QCOMPARE(C->State(), mcesSelected);
  QCOMPARE(Changes, 5);
  Map.OnSelectionChanging = nullptr;

  // Changing the mode clears; none refuses the user but not the program.
  Map.OptionsBehavior().SetMapItemSelectMode(mismNone);
  QVERIFY(Map.SelectedMapItems().isEmpty());
  QCOMPARE(Changes, 6);
  Map.Select(A, {}, true);
  QVERIFY(Map.SelectedMapItems().isEmpty());
  Map.Select(A, {}, false);
  QCOMPARE(Map.SelectedMapItems(), TvxMapItemList{A});

  // Single drops Ctrl: each select replaces.
  Map.OptionsBehavior().SetMapItemSelectMode(mismSingle);
  QVERIFY(Map.SelectedMapItems().isEmpty());
  Map.Select(A, Qt::ControlModifier, true);
  Map.Select(B, Qt::ControlModifier, true);
  QCOMPARE(Map.SelectedMapItems(), TvxMapItemList{B});
  Map.Select(nullptr, {}, true);
  QCOMPARE(Map.SelectedMapItems(), TvxMapItemList{B});

  // Batches report once, and only when something changed.
  Map.OptionsBehavior().SetMapItemSelectMode(mismExtended);
  Changes = 0;
  Map.BeginSelection();
  Map.BeginSelection();
  for (TFakeItem* Item : {A, B, C})
    Map.Select(Item, Qt::ControlModifier, true);
  Map.EndSelection();
  QCOMPARE(Changes, 0);
  Map.EndSelection();
  QCOMPARE(Changes, 1);
  Map.BeginSelection();
  Map.Select(A, {}, true);
  Map.EndSelection();
  QCOMPARE(Changes, 1);

  Map.ClearSelection();
  QVERIFY(Map.SelectedMapItems().isEmpty());
  QCOMPARE(Changes, 2);
  Map.ClearSelection();
  QCOMPARE(Changes, 2);
  Map.Select(C, {}, true);
  Map.SelectMapItemsInRegion(QRect(50, 50, 200, 150));
  QCOMPARE(Map.SelectedMapItems(), (TvxMapItemList{A, B}));
  QCOMPARE(C->State(), mcesNormal);
  QCOMPARE(Changes, 4);

  // A Ctrl click on an item adds to the selection: the press goes to the
  // item, not to the map beneath it. A click on the empty map clears.
  QTest::mouseClick(&Map, Qt::LeftButton, Qt::ControlModifier, C->Point);
  QCOMPARE(Map.SelectedMapItems(), (TvxMapItemList{A, B, C}));
  QCOMPARE(Changes, 5);
  QTest::mouseClick(&Map, Qt::LeftButton, {}, QPoint(400, 60));
  QVERIFY(Map.SelectedMapItems().isEmpty());
  QCOMPARE(Changes, 6);
}

void TestMapControl::hitTestBits()
{
  using H = TvxMapControlHitTest;
  TvxMapControl Map;
  TFakeItemLayer* Layer = Prepare<TFakeItemLayer>(Map);
  Map.show();
  QVERIFY(QTest::qWaitForWindowExposed(&Map));
  TFakeItem* Item = Layer->AddItem({430, 120});
  TvxMapControlNavigationPanelViewInfo& Panel = Map.ViewInfo().NavigationPanelViewInfo();
  TvxMapControlZoomTrackBarViewInfo& Bar = Panel.ZoomTrackBarViewInfo();
  TvxMapControlScrollButtonsViewInfo& Scroll = Panel.ScrollButtonsViewInfo();
  QVERIFY(Panel.Contains(&Bar));
  QVERIFY(Panel.Contains(&Scroll));

  // The thumb lies on the scale and wins; the scale answers beside it.
  const QRect Thumb = Bar.ThumbViewInfo().Bounds();
  const QRect Scale = Bar.ScaleViewInfo().Bounds();
  QVERIFY(Scale.contains(Thumb.center()));
  const quint64 InBar = Bit(H::htNavigationPanel) | Bit(H::htZoomTrackBar);
  QCOMPARE(HitAt(Map, Thumb.center()), InBar | Bit(H::htZoomTrackBarThumb));
  QCOMPARE(Map.HitTest().HitObject(), &Bar.ThumbViewInfo());
  const QPoint OffThumb(Thumb.center().x() < Scale.center().x() ? Scale.right() - 1 : Scale.left() + 1,
                        Scale.center().y());
  QCOMPARE(HitAt(Map, OffThumb), InBar | Bit(H::htZoomTrackBarScale));
  QCOMPARE(HitAt(Map, Bar.ZoomInButtonViewInfo().Bounds().center()), InBar | Bit(H::htZoomInButton));
  QCOMPARE(HitAt(Map, Bar.ZoomOutButtonViewInfo().Bounds().center()), InBar | Bit(H::htZoomOutButton));
  QCOMPARE(HitAt(Map, Scroll.Bounds().center()), Bit(H::htNavigationPanel) | Bit(H::htScrollButtons));

  QCOMPARE(HitAt(Map, {320, 60}), Bit(H::htLayers));
  QCOMPARE(Map.HitTest().HitObject(), &Map.Layers().ViewInfo());
  QCOMPARE(HitAt(Map, Item->Point), Bit(H::htLayers) | Bit(H::htMapItem));
  QCOMPARE(Map.HitTest().HitObject(), Item->ItemViewInfo());

  // Without the panel its strip is map.
  Map.NavigationPanel().SetVisible(false);
  QCOMPARE(HitAt(Map, Thumb.center()), Bit(H::htLayers));
}

void TestMapControl::baseLayerAndEmptyMap()
{
  TvxMapControl Map;
  // Wide enough for every part of the panel, the scale included.
  Map.resize(1000, 480);
  TvxMapControlNavigationPanelViewInfo& Panel = Map.ViewInfo().NavigationPanelViewInfo();
  const auto StackChildren = [&Map] { return Map.Layers().ViewInfo().VisibleElements(); };

  // No layer: background and panel, no scale, and nothing to move.
  Map.Changed();
  QVERIFY(!Map.BaseLayer());
  QVERIFY(!Map.ViewInfo().VisibleElements().contains(&Map.Layers().ViewInfo()));
  QVERIFY(Map.ViewInfo().VisibleElements().contains(&Panel));
  QVERIFY(!Panel.Contains(&Panel.ScaleViewInfo()));
  QVERIFY(Panel.Contains(&Panel.ZoomTrackBarViewInfo()));
  QCOMPARE(Map.GetKilometersScale(Geo(10, 10), 100), 0.0);
  Map.ScrollMap(50, 50);
  QVERIFY(Map.ActualCenterPoint().IsEqual(Geo(0, 0)));

  TvxTestLayer* Bottom = Map.AddLayer<TvxTestLayer>();
  TvxTestLayer* Top = Map.AddLayer<TvxTestLayer>(QColor(Qt::red));
  QCOMPARE(Map.BaseLayer(), Bottom);
  QCOMPARE(StackChildren(), (QList<TvxMapControlElementViewInfo*>{Bottom->ViewInfo(), Top->ViewInfo()}));
  QVERIFY(Panel.Contains(&Panel.ScaleViewInfo()));
  Bottom->SetVisible(false);
  QCOMPARE(Map.BaseLayer(), Top);
  QCOMPARE(StackChildren(), QList<TvxMapControlElementViewInfo*>{Top->ViewInfo()});
  // A layer shown again has the view of the moment, not a stale one.
  Map.Zoom(4, false);
  Map.SetCenterPoint(Geo(-20, 60));
  Bottom->SetVisible(true);
  QCOMPARE(Map.BaseLayer(), Bottom);
  QCOMPARE(Bottom->ViewPort(), Top->ViewPort());

  Bottom->SetHasProjection(false);
  QCOMPARE(Map.BaseLayer(), Top);
  QCOMPARE(StackChildren(), QList<TvxMapControlElementViewInfo*>{Top->ViewInfo()});
  Top->SetVisible(false);
  QVERIFY(!Map.BaseLayer());
  QVERIFY(StackChildren().isEmpty());
  QVERIFY(!Panel.Contains(&Panel.ScaleViewInfo()));
  Map.Zoom(6, false);
  QCOMPARE(Map.ActualZoomLevel(), 6.0);
  QVERIFY(Map.ActualCenterPoint().IsEqual(Geo(-20, 60)));
}

void TestMapControl::degenerateInputIsHarmless()
{
  TvxMapControl Map;
  TvxTestLayer* Layer = Prepare(Map);

  // A control of no size lays out nothing and has an empty viewport.
  Map.resize(0, 0);
  Map.Zoom(6, false);
  QVERIFY(Map.ViewInfo().VisibleElements().isEmpty());
  QCOMPARE(Layer->ViewPort(), vxNullRectDouble);
  Map.ZoomToRegion(TvxRectDouble{0.4, 0.4, 0.1, 0.1}, 0.1);
  Map.ScrollMap(30, 30);
  QVERIFY(IsFinite(Map.ActualCenterPoint()));

  Map.resize(640, 480);
  Map.SetCenterPoint(Geo(NaN, NaN));
  QVERIFY(IsFinite(Map.ActualCenterPoint()));
  Map.SetCenterPoint(Geo(10, NaN));
  Map.Zoom(NaN, false);
  Map.Zoom(5, {NaN, NaN}, false, false);
  Map.ScrollMap(NaN, 0);
  QVERIFY(std::isfinite(Map.ZoomLevel()) && std::isfinite(Map.ActualZoomLevel()));
  QVERIFY(IsFinite(Map.ActualCenterPoint()));

  Map.Zoom(6, false);
  Map.SetCenterPoint(Geo(10, 20));
  const auto Unchanged = [&Map] { return Map.ZoomLevel() == 6 && Map.ActualCenterPoint().IsEqual(Geo(10, 20)); };
  Map.ZoomToRegion(QRect(100, 100, 0, 0));
  Map.ZoomToRegion(QRect(100, 100, 0, 50));
  Map.ZoomToGeoRect(TvxMapControlGeoRect::Create(10, 20, 10, 30));
  Map.ZoomToGeoRect(TvxMapControlGeoRect::Create(NaN, 20, 10, 30));
  Map.ZoomToRegion(TvxRectDouble{0.2, 0.2, 0.1, 0.1}, 1.0);
  Map.ZoomToRegion(TvxRectDouble{0.2, 0.2, 0.1, 0.1}, NaN);
  Map.ZoomToFitItems({}, 0.1);
  QVERIFY(Unchanged());
  // A point-sized region centres on the point and keeps the level.
  Map.ZoomToRegion(TvxRectDouble{0.3, 0.35, 0, 0}, 0);
  QCOMPARE(Map.ZoomLevel(), 6.0);
  const TvxPointDouble Centre = MercatorUnit(Map.ActualCenterPoint());
  QVERIFY(std::abs(Centre.X - 0.3) < 1e-9);
  QVERIFY(std::abs(Centre.Y - 0.35) < 1e-9);
}

MAPWRIGHT_TEST_CLASS(TestMapControl)

#include "tst_vxMapControl.moc"
