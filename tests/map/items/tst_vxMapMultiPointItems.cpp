#include "GoldenImage.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapControlProjections.h"
#include "vxMapItemLayer.h"
#include "vxMapMultiPointItems.h"

#include <QApplication>
#include <QMouseEvent>
#include <QTest>

#include <cmath>
#include <limits>
#include <set>

namespace
{
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

constexpr quint32 Fill = 0xFF6FA8DC;
constexpr quint32 Border = 0xFF1F4E79;

TvxMapControlGeoPoint Geo(double ALatitude, double ALongitude)
{
  return TvxMapControlGeoPoint::Create(ALatitude, ALongitude);
}

// Spherical Mercator that counts the projections of watched latitudes, so
// that the layer's own look-ups of the centre do not count.
class TCountingProjection : public TvxMapControlSphericalMercatorProjection
{
public:
  static inline int Calls = 0;
  static inline std::set<double> Watched;

  QString PersistedName() const override { return QStringLiteral("CountingMercator"); }
  TvxPointDouble GeoPointToMapUnit(const TvxMapControlGeoPoint& AGeoPoint) const override
  {
    if (Watched.count(AGeoPoint.Latitude))
      ++Calls;
    return TvxMapControlSphericalMercatorProjection::GeoPointToMapUnit(AGeoPoint);
  }
  void GeoPointsToMapUnits(std::span<const TvxMapControlGeoPoint> AGeoPoints, std::span<TvxPointDouble> AMapUnits,
                           bool ANormalize) const override
  {
    for (const TvxMapControlGeoPoint& P : AGeoPoints)
      if (Watched.count(P.Latitude))
        ++Calls;
    TvxMapControlSphericalMercatorProjection::GeoPointsToMapUnits(AGeoPoints, AMapUnits, ANormalize);
  }
};

// An item layer alone on a white 240 x 160 map centred on (0, 0).
struct TMap
{
  TvxMapControl Control;
  TvxMapItemLayer* Layer;

  explicit TMap(double AZoomLevel = 4)
  {
    Control.OptionsBehavior().SetAnimation(false);
    Control.OptionsBehavior().SetInertialScrolling(false);
    Control.NavigationPanel().SetVisible(false);
    Control.SetColor(Qt::white);
    Control.resize(240, 160);
    Control.setAttribute(Qt::WA_DontShowOnScreen);
    Control.show();
    Layer = Control.AddLayer<TvxMapItemLayer>();
    Control.SetZoomLevel(AZoomLevel);
    Control.SetCenterPoint(Geo(0, 0));
    Layer->ItemStyle().SetColor(Fill);
    Layer->ItemStyle().SetBorderColor(Border);
    Layer->ItemStyle().SetBorderWidth(2);
    // The mouse is parked off the map, so that no item turns hot under it.
    const QPoint Away(-50, -50);
    QMouseEvent Event(QEvent::MouseMove, Away, Control.mapToGlobal(Away), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(&Control, &Event);
  }

  // The geographic point under a pixel of the present view.
  TvxMapControlGeoPoint At(QPoint APoint) const
  {
    return Control.ScreenPointToGeoPoint({double(APoint.x()), double(APoint.y())});
  }
  std::vector<TvxMapControlGeoPoint> Line(std::initializer_list<QPoint> APoints) const
  {
    std::vector<TvxMapControlGeoPoint> Result;
    for (QPoint P : APoints)
      Result.push_back(At(P));
    return Result;
  }
  // Clockwise on the screen, so of positive area; reversed, a hole. The
  // first point comes again at the end, as in the files.
  std::vector<TvxMapControlGeoPoint> Ring(QRect R, bool AReversed = false) const
  {
    const QPoint TL = R.topLeft(), TR(R.left() + R.width(), R.top());
    const QPoint BR(R.left() + R.width(), R.top() + R.height()), BL(R.left(), R.top() + R.height());
    return AReversed ? Line({TL, BL, BR, TR, TL}) : Line({TL, TR, BR, BL, TL});
  }
  template <class TItem>
  TItem* Add(const std::vector<TvxMapControlGeoPoint>& APoints)
  {
    TItem* Item = Layer->AddItem<TItem>();
    Item->GeoPoints().AddRange(APoints);
    return Item;
  }
  TvxMapPath* AddPath(std::initializer_list<std::vector<TvxMapControlGeoPoint>> ASegments,
                      TvxMapPathSegmentType AType = mstPolygon)
  {
    auto* Path = Layer->AddItem<TvxMapPath>();
    Path->SetSegmentType(AType);
    for (const auto& Points : ASegments)
      Path->Segments().Add()->GeoPoints().AddRange(Points);
    return Path;
  }

  bool IsListed(const TvxMapItem* AItem) const
  {
    return Layer->ItemViewInfo()->VisibleElements().contains(AItem->ViewInfo());
  }
  TvxMapControlElementViewInfo* HitAt(QPoint APoint) const
  {
    Control.HitTest().Calculate(APoint);
    return Control.HitTest().HitObject();
  }
  QList<IvxMapItem*> InRegion(QRect ARect) const
  {
    TvxMapItemList Items;
    Layer->GetItemsInRegion(ARect, Items);
    return Items;
  }
  QImage Render()
  {
    QImage Image(Control.size(), QImage::Format_ARGB32);
    Control.render(&Image);
    return Image;
  }
};

bool SameColor(QRgb AActual, quint32 AExpected)
{
  return std::abs(qRed(AActual) - qRed(AExpected)) <= 8 && std::abs(qGreen(AActual) - qGreen(AExpected)) <= 8 &&
         std::abs(qBlue(AActual) - qBlue(AExpected)) <= 8;
}

QPoint ScreenOf(const TvxMapLayer* ALayer, const TvxPointDouble& AMapPoint)
{
  const TvxPointDouble P = ALayer->MapUnitToScreenPoint(AMapPoint);
  return {qRound(P.X), qRound(P.Y)};
}

// The screen points a view info should hold, projected afresh from its map points.
QList<QPoint> Reprojected(const TvxMapLayer* ALayer, const TvxMapCustomMultiPointItemViewInfo* AViewInfo)
{
  QList<QPoint> Result;
  for (const TvxPointDouble& M : AViewInfo->MapPoints())
    Result.append(ScreenOf(ALayer, M));
  return Result;
}

template <class TPoints>
QList<QPoint> Points(const TPoints& APoints)
{
  return QList<QPoint>(APoints.cbegin(), APoints.cend());
}
} // namespace

class TestMapMultiPointItems : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void geoPointCollection();
  void panAndZoomReprojectNothing();
  void clippingThreshold();
  void degenerateShapes();
  void pointsBeyondTheWorldWrapOrClamp();
  void holesAndHitTests();
  void hiddenSegmentOfPolylines();
  void titleAndSegmentType();
  void looksInEachState();
  void ownStyleSetAfterLayoutReachesTheSegments();
};

void TestMapMultiPointItems::geoPointCollection()
{
  TvxMapControlGeoPointCollection Points;
  int Changes = 0;
  Points.OnChanged = [&Changes](TvxMapControlGeoPointCollection*) { ++Changes; };
  Points.AddRange({Geo(1, 2), Geo(3, 4)});
  QCOMPARE(Changes, 1);
  Points.AddRange({Geo(5, 6), Geo(7, 8), Geo(9, 10)});
  QCOMPARE(Changes, 2);
  QCOMPARE(Points.Count(), 5);
  for (int I = 0; I < 5; ++I)
    QCOMPARE(Points.Items(I)->Latitude(), 1.0 + 2 * I);

  // The point setter forgives float noise; the coordinate setters do not.
  TvxMapControlGeoPointItem Item = Points.Items(2);
  Item->SetGeoPoint(Geo(5 + 5e-13, 6));
  QCOMPARE(Changes, 2);
  QCOMPARE(Item->Latitude(), 5.0);
  Item->SetLatitude(5 + 5e-13);
  QCOMPARE(Changes, 3);
  Item->SetLongitude(6);
  QCOMPARE(Changes, 3);

  TvxMapControlGeoPointCollection Copy;
  int CopyChanges = 0;
  Copy.OnChanged = [&CopyChanges](TvxMapControlGeoPointCollection*) { ++CopyChanges; };
  Copy.Add(Geo(50, 50));
  Copy.Assign(Points);
  QCOMPARE(CopyChanges, 2);
  QCOMPARE(Copy.Count(), 5);
  QCOMPARE(Copy.Items(4)->Longitude(), 10.0);

  // Moved to an arena, the points stay and new ones go there; a copy made
  // from them is the copy's own.
  auto Arena = std::make_shared<TvxBulkArena>(4096);
  Points.UseArena(Arena);
  QCOMPARE(Points.Count(), 5);
  QCOMPARE(Points.Items(4)->Longitude(), 10.0);
  QCOMPARE(Arena->Used(), 5 * sizeof(TvxMapControlGeoPoint));
  Points.AddRange(3, [](size_t AIndex) { return Geo(20 + double(AIndex), 0); });
  QVERIFY(Arena->Used() >= 8 * sizeof(TvxMapControlGeoPoint));
  Copy.Assign(Points);
  Arena.reset();
  Points.Clear();
  QCOMPARE(Copy.Count(), 8);
  QCOMPARE(Copy.Items(7)->Latitude(), 22.0);
}

void TestMapMultiPointItems::panAndZoomReprojectNothing()
{
  vxRegisteredMapProjections().Register(QStringLiteral("CountingMercator|Counting"), [] {
    return std::unique_ptr<TvxMapControlCustomProjection>(std::make_unique<TCountingProjection>());
  });
  TMap Map;
  Map.Layer->SetProjectionClassName(QStringLiteral("CountingMercator"));
  QCOMPARE(Map.Layer->ProjectionClassName(), QStringLiteral("CountingMercator"));

  // No point on the rows that the centre passes through (80 and 57).
  std::vector<TvxMapControlGeoPoint> Zigzag;
  for (int I = 0; I < 40; ++I)
    Zigzag.push_back(Map.At({10 + 5 * I, I % 2 ? 40 : 70}));
  auto Square = Map.Ring({30, 90, 60, 40});
  auto Outer = Map.Ring({120, 90, 100, 60});
  auto Hole = Map.Ring({140, 100, 30, 20}, true);
  TCountingProjection::Watched.clear();
  for (const auto* List : {&Zigzag, &Square, &Outer, &Hole})
    for (const TvxMapControlGeoPoint& P : *List)
      TCountingProjection::Watched.insert(P.Latitude);
  TCountingProjection::Calls = 0;

  auto* Polyline = Map.Add<TvxMapPolyline>(Zigzag);
  auto* Polygon = Map.Add<TvxMapPolygon>(Square);
  auto* Path = Map.AddPath({Outer, Hole});
  QVERIFY(Map.IsListed(Polyline) && Map.IsListed(Polygon) && Map.IsListed(Path));
  // Each point is projected exactly once.
  QCOMPARE(TCountingProjection::Calls, 40 + 5 + 5 + 5);

  auto* Line = static_cast<TvxMapCustomMultiPointItemViewInfo*>(Polyline->ViewInfo());
  const auto* Ring = static_cast<TvxMapPathPolygonViewInfo*>(Path->ViewInfo())->SegmentViewInfo(0);
  const QPoint* Storage = Line->ScreenPoints().data();
  const QList<QPoint> Before = Points(Line->ScreenPoints());
  const QList<QPoint> RingBefore = Points(Ring->ScreenPoints());
  QCOMPARE(Before, Reprojected(Map.Layer, Line));

  TCountingProjection::Calls = 0;
  Map.Control.ScrollMap(37, -23);
  QCOMPARE(TCountingProjection::Calls, 0);
  QList<QPoint> Moved = Before;
  for (QPoint& P : Moved)
    P -= QPoint(37, -23);
  QCOMPARE(Points(Line->ScreenPoints()), Moved);
  QCOMPARE(Points(Line->ScreenPoints()), Reprojected(Map.Layer, Line));
  QCOMPARE(Ring->ScreenPoints().front(), RingBefore.first() - QPoint(37, -23));

  Map.Control.SetZoomLevel(5);
  QCOMPARE(TCountingProjection::Calls, 0);
  QCOMPARE(Points(Line->ScreenPoints()), Reprojected(Map.Layer, Line));
  QCOMPARE(Points(Ring->ScreenPoints()), Reprojected(Map.Layer, Ring));
  QVERIFY(Line->ScreenPoints().data() == Storage);

  // A geometry change projects that item again, and nothing else.
  Polyline->GeoPoints().Items(3)->SetLongitude(Zigzag[3].Longitude + 1);
  QCOMPARE(TCountingProjection::Calls, 40);
  QCOMPARE(Points(Line->ScreenPoints()), Reprojected(Map.Layer, Line));

  // Points a loader put in an arena are projected into it too, once: moving
  // a point projects again into the same room.
  auto Arena = std::make_shared<TvxBulkArena>(1 << 16);
  auto* Loaded = Map.Layer->AddItem<TvxMapPath>();
  TvxMapControlGeoPointCollection& LoadedRing = Loaded->Segments().Add()->GeoPoints();
  LoadedRing.UseArena(Arena);
  LoadedRing.AddRange(Outer);
  QVERIFY(Map.IsListed(Loaded));
  const auto* LoadedView = static_cast<TvxMapPathPolygonViewInfo*>(Loaded->ViewInfo())->SegmentViewInfo(0);
  QCOMPARE(LoadedView->MapPoints().get_allocator().Arena(), Arena);
  QCOMPARE(LoadedView->ScreenPoints().get_allocator().Arena(), Arena);
  QCOMPARE(LoadedView->MapPoints().size(), Outer.size() + 1);
  const size_t Used = Arena->Used();
  LoadedRing.Items(1)->SetLongitude(Outer[1].Longitude + 1);
  QVERIFY(Map.IsListed(Loaded));
  QCOMPARE(Arena->Used(), Used);
  QCOMPARE(Points(LoadedView->ScreenPoints()), Reprojected(Map.Layer, LoadedView));
}

void TestMapMultiPointItems::clippingThreshold()
{
  TMap Map(6);
  // Square in the middle of the map: 5000 pixels are still drawn whole.
  auto* Whole = Map.Add<TvxMapPolygon>(Map.Ring({120 - 2500, 80 - 2500, 5000, 5000}));
  auto* Wide = Map.Add<TvxMapPolygon>(Map.Ring({120 - 2500, 80 - 2500, 5001, 5000}));
  auto* Short = Map.Add<TvxMapPolyline>(Map.Line({{120 - 2500, 70}, {120 + 2500, 70}}));
  auto* Long = Map.Add<TvxMapPolyline>(Map.Line({{120 - 2500, 90}, {120 + 2501, 90}}));
  const auto ViewInfo = [](TvxMapItem* AItem) {
    return static_cast<TvxMapCustomMultiPointItemViewInfo*>(AItem->ViewInfo());
  };
  QVERIFY(!ViewInfo(Whole)->CheckIntersections());
  QVERIFY(!ViewInfo(Short)->CheckIntersections());
  QVERIFY(ViewInfo(Wide)->CheckIntersections());
  QVERIFY(ViewInfo(Long)->CheckIntersections());

  // Clipped to the view with room for the 2-pixel border.
  const QRect Room(-2, -2, 244, 164);
  const auto& Polygons = static_cast<TvxMapCustomPolygonViewInfo*>(Wide->ViewInfo())->VisiblePolygons();
  QCOMPARE(Polygons.size(), size_t(1));
  for (QPoint P : Polygons.front())
    QVERIFY2(Room.contains(P), qPrintable(QStringLiteral("%1, %2").arg(P.x()).arg(P.y())));
  const auto& Polylines = static_cast<TvxMapPolylineViewInfo*>(Long->ViewInfo())->VisiblePolylines();
  QCOMPARE(Polylines.size(), size_t(1));
  QCOMPARE(Polylines.front(), (std::vector<QPoint>{{-2, 90}, {241, 90}}));

  Whole->SetVisible(false);
  Short->SetVisible(false);
  Long->SetVisible(false);
  const QImage Image = Map.Render();
  for (QPoint P : {QPoint(1, 1), QPoint(120, 80), QPoint(238, 158)})
    QVERIFY(SameColor(Image.pixel(P), Fill));
  // A click anywhere on the view lands in the clipped polygon.
  QCOMPARE(Map.HitAt({5, 150}), Wide->ViewInfo());
}

void TestMapMultiPointItems::degenerateShapes()
{
  TMap Map(1);
  // Two points within one pixel: listed, but nothing to draw or hit.
  const TvxMapControlGeoPoint Dot = Map.At({60, 40});
  auto* Tiny = Map.Add<TvxMapPolyline>({Dot, Geo(Dot.Latitude + 0.01, Dot.Longitude + 0.01)});
  auto* Flat = Map.Add<TvxMapPolyline>(Map.Line({{20, 100}, {200, 100}}));
  auto* FlatPolygon = Map.Add<TvxMapPolygon>(Map.Line({{20, 130}, {120, 130}, {200, 130}}));
  QVERIFY(static_cast<TvxMapPolylineViewInfo*>(Tiny->ViewInfo())->ScreenPoints().empty());
  QVERIFY(Tiny->ViewInfo()->Bounds().isEmpty());
  QVERIFY(Map.IsListed(Tiny));
  QVERIFY(Map.IsListed(Flat));
  QVERIFY(!Map.IsListed(FlatPolygon));

  // Bad input of every kind: nothing listed, nothing drawn, no bounds.
  const TvxMapControlGeoPoint A = Map.At({30, 20}), B = Map.At({200, 30}), C = Map.At({100, 150});
  QList<TvxMapItem*> Bad = {
    Map.Add<TvxMapPolyline>({}),
    Map.Add<TvxMapPolyline>({A}),
    Map.Add<TvxMapPolygon>({A, B, Geo(NaN, 10), C}),
    Map.Add<TvxMapPolyline>({A, Geo(10, NaN)}),
    Map.Add<TvxMapPolygon>({A, B, Geo(NaN, 370), C}),
    Map.AddPath({{A}, {A, B, Geo(NaN, NaN)}}),
    Map.AddPath({{}, {Geo(-91, NaN), B}}, mstPolyline),
  };
  for (TvxMapItem* Item : Bad)
  {
    QVERIFY(!Map.IsListed(Item));
    const TvxRectDouble R = Item->GetMapBounds();
    QVERIFY(R.IsEmpty());
  }

  const QImage Image = Map.Render();
  for (int Y = 0; Y < Image.height(); ++Y)
    for (int X = 0; X < Image.width(); ++X)
      if (std::abs(Y - 100) > 2 || X < 17 || X > 203)
        QVERIFY2(Image.pixel(X, Y) == qRgb(255, 255, 255), qPrintable(QStringLiteral("%1, %2").arg(X).arg(Y)));
  // The flat line itself is drawn.
  QVERIFY(SameColor(Image.pixel(110, 100), Border));
  QCOMPARE(Map.HitAt({110, 100}), Flat->ViewInfo());
  for (QPoint P : {QPoint(60, 40), QPoint(100, 130), QPoint(100, 60)})
  {
    Map.HitAt(P);
    QVERIFY(!Map.Control.HitTest().HitAtMapItem());
  }
}

void TestMapMultiPointItems::pointsBeyondTheWorldWrapOrClamp()
{
  // Near the antimeridian, each shape beside its twin made of the wrapped or
  // clamped points: the same map points, the same pixels, and drawn.
  TMap Map;
  Map.Control.SetCenterPoint(Geo(0, -165));
  const auto Turned = [&Map](QPoint APoint, double ATurns) {
    const TvxMapControlGeoPoint P = Map.At(APoint);
    return Geo(P.Latitude, P.Longitude + 360 * ATurns);
  };
  // A line across longitude 190, one of the pair 0-360 files hold.
  auto* Line = Map.Add<TvxMapPolyline>({Turned({20, 20}, 1), Turned({220, 20}, 1)});
  QVERIFY(Line->GeoPoints().Items(0)->Longitude() < 190 && Line->GeoPoints().Items(1)->Longitude() > 190);
  auto* LineTwin = Map.Add<TvxMapPolyline>(Map.Line({{20, 20}, {220, 20}}));
  // A triangle whose apex lies beyond the north pole reaches the map's edge.
  const double ApexLongitude = Map.At({70, 0}).Longitude;
  auto* Triangle = Map.Add<TvxMapPolygon>(Map.Line({{30, 150}, {110, 150}}));
  Triangle->GeoPoints().Add(Geo(95, ApexLongitude));
  auto* TriangleTwin = Map.Add<TvxMapPolygon>(Map.Line({{30, 150}, {110, 150}}));
  TriangleTwin->GeoPoints().Add(Geo(90, ApexLongitude));
  // A ring of a path with corners two turns to the west and one to the east.
  std::vector<TvxMapControlGeoPoint> Ring = Map.Ring({140, 60, 80, 80});
  Ring[1] = Turned({220, 60}, -2);
  Ring[2] = Turned({220, 140}, 1);
  auto* Path = Map.AddPath({Ring});
  auto* PathTwin = Map.AddPath({Map.Ring({140, 60, 80, 80})});

  const auto Shape = [](TvxMapItem* AItem) -> const TvxMapCustomMultiPointItemViewInfo* {
    if (dynamic_cast<TvxMapPath*>(AItem))
      return static_cast<TvxMapPathPolygonViewInfo*>(AItem->ViewInfo())->SegmentViewInfo(0);
    return static_cast<TvxMapCustomMultiPointItemViewInfo*>(AItem->ViewInfo());
  };
  const std::pair<TvxMapItem*, TvxMapItem*> Pairs[] = {{Line, LineTwin}, {Triangle, TriangleTwin}, {Path, PathTwin}};
  for (const auto& [Item, Twin] : Pairs)
  {
    QVERIFY(Map.IsListed(Item));
    const auto& Units = Shape(Item)->MapPoints();
    const auto& Expected = Shape(Twin)->MapPoints();
    QCOMPARE(Units.size(), Expected.size());
    for (size_t I = 0; I < Units.size(); ++I)
      QVERIFY(std::abs(Units[I].X - Expected[I].X) < 1e-12 && std::abs(Units[I].Y - Expected[I].Y) < 1e-12);
    QCOMPARE(Points(Shape(Item)->ScreenPoints()), Points(Shape(Twin)->ScreenPoints()));
    QCOMPARE(Item->ViewInfo()->Bounds(), Twin->ViewInfo()->Bounds());
    Twin->SetVisible(false);
  }
  // The apex stands on the top edge of the map, far above the view.
  QVERIFY(Triangle->ViewInfo()->Bounds().top() < -1000);
  QVERIFY(std::abs(Triangle->GetMapBounds().Top) < 1e-9);

  const QImage Image = Map.Render();
  QVERIFY(SameColor(Image.pixel(120, 20), Border));
  QVERIFY(SameColor(Image.pixel(70, 130), Fill));
  QVERIFY(SameColor(Image.pixel(180, 100), Fill));
}

void TestMapMultiPointItems::holesAndHitTests()
{
  TMap Map;
  // Both rings run the same way round: only the fill rule makes the hole.
  auto* Path = Map.AddPath({Map.Ring({40, 30, 160, 100}), Map.Ring({90, 60, 60, 40})});
  QCOMPARE(Map.HitAt({60, 50}), Path->ViewInfo());
  QVERIFY(Map.HitAt({120, 80}) != Path->ViewInfo());
  QVERIFY(Map.HitAt({20, 20}) != Path->ViewInfo());
  const QImage Image = Map.Render();
  QVERIFY(SameColor(Image.pixel(60, 50), Fill));
  QVERIFY(SameColor(Image.pixel(120, 80), qRgb(255, 255, 255)));
  // A region wholly in the hole selects nothing; one over its edge does.
  QVERIFY(Map.InRegion({110, 70, 10, 10}).isEmpty());
  QCOMPARE(Map.InRegion({80, 55, 20, 20}), QList<IvxMapItem*>{Path});

  // A plain polygon is hit inside its outline, not merely inside its bounds.
  Path->SetVisible(false);
  auto* Triangle = Map.Add<TvxMapPolygon>(Map.Line({{40, 30}, {200, 30}, {40, 130}}));
  QCOMPARE(Map.HitAt({60, 50}), Triangle->ViewInfo());
  QVERIFY(Map.HitAt({180, 110}) != Triangle->ViewInfo());
  QVERIFY(Map.InRegion({170, 100, 20, 20}).isEmpty());
  QCOMPARE(Map.InRegion({50, 40, 20, 20}), QList<IvxMapItem*>{Triangle});
}

void TestMapMultiPointItems::hiddenSegmentOfPolylines()
{
  TMap Map;
  Map.Layer->ItemStyle().SetBorderWidth(4);
  auto* Path = Map.AddPath({Map.Line({{30, 40}, {210, 40}}), Map.Line({{30, 70}, {210, 140}})}, mstPolyline);
  TvxMapPathSegment* Diagonal = Path->Segments().Items(1);
  const auto* First =
    static_cast<TvxMapCustomMultiPointItemViewInfo*>(Path->Segments().Items(0)->ViewInfo());

  // On the line within half the border width; not a few pixels off it.
  QCOMPARE(Map.HitAt({120, 41}), Path->ViewInfo());
  QVERIFY(Map.HitAt({120, 46}) != Path->ViewInfo());
  QCOMPARE(Map.HitAt({120, 105}), Path->ViewInfo());
  // Inside the bounds of both, touching neither line.
  QVERIFY(Map.InRegion({180, 75, 20, 20}).isEmpty());
  QCOMPARE(Map.InRegion({110, 95, 20, 20}), QList<IvxMapItem*>{Path});
  const TvxRectDouble Both = Path->GetMapBounds();
  QVERIFY(Both.Bottom() > First->MapBounds().Bottom());

  Diagonal->SetVisible(false);
  const QImage Image = Map.Render();
  QVERIFY(SameColor(Image.pixel(120, 40), Border));
  QVERIFY(SameColor(Image.pixel(120, 105), qRgb(255, 255, 255)));
  QVERIFY(Map.HitAt({120, 105}) != Path->ViewInfo());
  QVERIFY(Map.InRegion({110, 95, 20, 20}).isEmpty());
  QCOMPARE(Path->GetMapBounds(), First->MapBounds());

  Diagonal->SetVisible(true);
  QCOMPARE(Path->GetMapBounds(), Both);

  // A wider border reaches the segments too: the point 6 pixels off is on it.
  Map.Layer->ItemStyle().SetBorderWidth(14);
  QCOMPARE(Map.HitAt({120, 46}), Path->ViewInfo());
}

void TestMapMultiPointItems::titleAndSegmentType()
{
  TMap Map;
  Map.Layer->ItemStyle().SetFont(vxPinnedFont(12));
  // A small ring, a big one, and a reversed one larger than both round them.
  auto* Path = Map.AddPath(
    {Map.Ring({20, 20, 40, 40}), Map.Ring({80, 30, 120, 100}), Map.Ring({5, 5, 230, 150}, true)});
  Path->TitleOptions().SetText(QStringLiteral("Title"));
  Path->TitleOptions().SetVisibility(mitvVisible);
  auto* ViewInfo = static_cast<TvxMapPathPolygonViewInfo*>(Path->ViewInfo());
  QCOMPARE(ViewInfo->TitleSegmentViewInfo(), ViewInfo->SegmentViewInfo(1));
  QVERIFY(ViewInfo->SegmentViewInfo(2)->MapArea() < 0);
  const TvxPointDouble TL = Map.Layer->GeoPointToMapUnit(Map.At({80, 30}));
  const TvxPointDouble BR = Map.Layer->GeoPointToMapUnit(Map.At({200, 130}));
  const QPoint Centroid = ScreenOf(Map.Layer, {(TL.X + BR.X) / 2, (TL.Y + BR.Y) / 2});
  const QRect Title = ViewInfo->GetTitle()->Bounds();
  QVERIFY(!Title.isEmpty());
  QVERIFY2((Title.center() - Centroid).manhattanLength() <= 1,
           qPrintable(QStringLiteral("%1, %2").arg(Title.center().x()).arg(Title.center().y())));
  QCOMPARE(Map.Layer->ItemViewInfo()->ItemTitles().size(), 1);

  // The largest ring hidden: no title at all, not the next one's.
  Path->Segments().Items(1)->SetVisible(false);
  QVERIFY(!ViewInfo->TitleSegmentViewInfo());
  QVERIFY(ViewInfo->GetTitle()->Bounds().isEmpty());
  Path->Segments().Items(1)->SetVisible(true);

  QImage Image = Map.Render();
  QVERIFY(SameColor(Image.pixel(70, 140), Fill));
  Path->SetSegmentType(mstPolyline);
  QVERIFY(dynamic_cast<TvxMapPathPolylineViewInfo*>(Path->ViewInfo()));
  for (int I = 0; I < Path->Segments().Count(); ++I)
    QVERIFY(dynamic_cast<TvxMapPathSegmentPolylineViewInfo*>(Path->Segments().Items(I)->ViewInfo()));
  QVERIFY(Map.Layer->ItemViewInfo()->ItemTitles().isEmpty());
  Image = Map.Render();
  QVERIFY(SameColor(Image.pixel(70, 140), qRgb(255, 255, 255)));
  QVERIFY(SameColor(Image.pixel(80, 80), Border));
  QCOMPARE(Map.HitAt({80, 80}), Path->ViewInfo());
}

void TestMapMultiPointItems::looksInEachState()
{
  TMap Map;
  TvxMapItemStyle& Hot = Map.Layer->ItemStyleHot();
  TvxMapItemStyle& Selected = Map.Layer->ItemStyleSelected();
  Hot.SetColor(0xFFFFD966);
  Hot.SetBorderColor(0xFFBF9000);
  Hot.SetBorderWidth(3);
  Selected.SetColor(0xFFE06666);
  Selected.SetBorderColor(0xFF990000);
  Selected.SetBorderWidth(3);
  for (TvxMapItemStyle* Style : {&Map.Layer->ItemStyle(), &Hot, &Selected})
    Style->SetFont(vxPinnedFont(12));

  // Normal, hot and selected, left to right.
  const auto Check = [&Map](const QString& AName, const std::function<TvxMapItem*(int)>& AAdd) {
    Map.Layer->MapItems().Clear();
    TvxMapItem* Items[3];
    for (int I = 0; I < 3; ++I)
      Items[I] = AAdd(40 + 80 * I);
    Items[1]->ViewInfo()->SetState(mcesHot);
    Items[2]->SetSelected(true);
    QCOMPARE(Items[1]->ViewInfo()->State(), mcesHot);
    QVERIFY(Items[2]->Selected());
    const QString Failure = vxCheckGoldenImage(Map.Render(), QStringLiteral(MAPWRIGHT_GOLDEN_DIR), AName);
    QVERIFY2(Failure.isEmpty() || Failure == QStringLiteral("written"), qPrintable(Failure));
  };
  Check(QStringLiteral("shape_polyline"), [&Map](int X) {
    return Map.Add<TvxMapPolyline>(Map.Line({{X - 30, 120}, {X - 15, 40}, {X, 100}, {X + 15, 30}, {X + 30, 130}}));
  });
  Check(QStringLiteral("shape_polygon"), [&Map](int X) {
    auto* Polygon =
      Map.Add<TvxMapPolygon>(Map.Line({{X - 10, 30}, {X + 32, 50}, {X + 25, 125}, {X - 28, 120}, {X - 32, 60}}));
    Polygon->TitleOptions().SetText(QStringLiteral("Lake"));
    return Polygon;
  });
  Check(QStringLiteral("shape_path"), [&Map](int X) {
    TvxMapPath* Path = Map.AddPath({Map.Ring({X - 32, 30, 64, 100}), Map.Ring({X - 16, 40, 32, 30}, true)});
    Path->TitleOptions().SetText(QStringLiteral("Isle"));
    return Path;
  });
}

void TestMapMultiPointItems::ownStyleSetAfterLayoutReachesTheSegments()
{
  // An item takes its layer's look and has no style of its own until one is
  // asked for; one set after the first layout still reaches every segment,
  // which draws and sizes itself by its path's merged style.
  TMap Map;
  TvxMapPath* Path = Map.AddPath({Map.Ring({60, 40, 120, 80}), Map.Ring({100, 60, 40, 40}, true)});
  Map.Render();
  QVERIFY(!Path->FindStyle(mcesNormal) && !Path->FindStyle(mcesHot) && !Path->FindStyle(mcesSelected));
  const TvxMapCustomMultiPointItemViewInfo* Outer = Path->Segments().Items(0)->ViewInfo();
  QCOMPARE(Outer->Bounds().width() - Outer->DrawBounds().width(), 2);

  Path->Style().SetBorderWidth(9);
  Path->Style().SetColor(0xFF00AA00);
  const QImage Image = Map.Render();
  QCOMPARE(Outer->Bounds().width() - Outer->DrawBounds().width(), 10);
  QVERIFY(SameColor(Image.pixel(70, 50), 0xFF00AA00));
  QVERIFY(SameColor(Image.pixel(120, 80), 0xFFFFFFFF));
}

MAPWRIGHT_TEST_CLASS(TestMapMultiPointItems)
#include "tst_vxMapMultiPointItems.moc"
