#include "GoldenImage.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QSet>
#include <QTest>

#include <cmath>
#include <limits>

namespace
{
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
const QColor Background(0x9D, 0xB4, 0xA0);

TvxMapControlGeoPoint Geo(double ALatitude, double ALongitude)
{
  return TvxMapControlGeoPoint::Create(ALatitude, ALongitude);
}

// A framed square, so that both its placement and its scaling show.
QImage MarkerImage(int ASize, QColor AColor)
{
  QImage Image(ASize, ASize, QImage::Format_ARGB32_Premultiplied);
  Image.fill(Qt::transparent);
  QPainter Canvas(&Image);
  Canvas.setRenderHint(QPainter::Antialiasing);
  Canvas.setPen(QPen(AColor.darker(180), 2));
  Canvas.setBrush(AColor);
  Canvas.drawRoundedRect(QRectF(1, 1, ASize - 2, ASize - 2), 4, 4);
  return Image;
}

// An item layer alone on an offscreen control, without the panel.
struct TMap
{
  TvxMapControl Control;
  TvxMapItemLayer* Layer;

  explicit TMap(QSize ASize = QSize(400, 300), double AZoomLevel = 5)
  {
    Control.OptionsBehavior().SetAnimation(false);
    Control.NavigationPanel().SetVisible(false);
    Control.SetColor(Background);
    Layer = Control.AddLayer<TvxMapItemLayer>();
    for (TvxMapControlElementState State : {mcesNormal, mcesHot, mcesSelected})
      Layer->GetStyle(State)->SetFont(vxPinnedFont(12));
    Control.resize(ASize);
    Control.setAttribute(Qt::WA_DontShowOnScreen);
    Control.show();
    Control.SetCenterPoint(Geo(0, 0));
    Control.SetZoomLevel(AZoomLevel);
  }

  TvxMapControlGeoPoint GeoAt(QPointF APoint) const { return Control.ScreenPointToGeoPoint({APoint.x(), APoint.y()}); }
  bool Shows(TvxMapItem* AItem) const { return Layer->ItemViewInfo()->VisibleElements().contains(AItem->ViewInfo()); }
  QImage Render()
  {
    QImage Image(Control.size(), QImage::Format_ARGB32);
    Control.render(&Image);
    return Image;
  }
  QImage Filled(QColor AColor = Background) const
  {
    QImage Image(Control.size(), QImage::Format_ARGB32);
    Image.fill(AColor);
    return Image;
  }
  void Mouse(QEvent::Type AType, QPoint APoint, Qt::MouseButtons AButtons = Qt::NoButton)
  {
    const Qt::MouseButton Button = AType == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent Event(AType, APoint, Control.mapToGlobal(APoint), Button, AButtons, Qt::NoModifier);
    QApplication::sendEvent(&Control, &Event);
  }
  TvxMapControlElementViewInfo* HitAt(QPoint APoint)
  {
    Control.HitTest().Calculate(APoint);
    return Control.HitTest().HitObject();
  }
};

template <class TItem>
TItem* AddAt(TMap& AMap, QPointF APoint)
{
  TItem* Item = AMap.Layer->AddItem<TItem>();
  Item->SetLocation(AMap.GeoAt(APoint));
  return Item;
}

QRect TextBounds(TvxMapItem* AItem)
{
  return AItem->ViewInfo()->GetTitle()->Bounds();
}
}

class TestMapPointItems : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void pointersStandOnTheirLocation()
  {
    // The built-in pin travels inside the library.
    QCOMPARE(QImage(QStringLiteral(":/mapwright/map/vxMapPushpin.png")).size(), QSize(35, 44));
    TMap Map;
    const QPoint P(200, 150);

    // The pin's tip is its anchor, whatever ImageOrigin holds; its text is
    // centred on the head.
    auto* Pin = AddAt<TvxMapPushpin>(Map, P);
    Pin->SetText(QStringLiteral("7"));
    for (const TvxPointDouble Origin : {TvxPointDouble(0.5, 0.5), TvxPointDouble(0, 0), TvxPointDouble(1, 0.2)})
    {
      Pin->SetImageOrigin(Origin);
      const QRect R = Pin->PointerViewInfo()->ImageRect();
      QCOMPARE(R.size(), QSize(35, 44));
      QCOMPARE(R.y() + R.height(), P.y());
      QVERIFY(std::abs(R.x() + R.width() / 2.0 - P.x()) <= 0.5);
      QVERIFY((TextBounds(Pin).center() - (R.topLeft() + QPoint(17, 17))).manhattanLength() <= 2);
    }

    // With no text and its own title set visible, the title pattern shows
    // centred below the pin and follows the attributes; the text wins.
    Pin->SetText(QString());
    Pin->SetImageOrigin({0.5, 0.5});
    Pin->Attributes().Add(QStringLiteral("NAME"), QStringLiteral("Alex Morgan"));
    Pin->TitleOptions().SetText(QStringLiteral("{NAME}"));
    QVERIFY(TextBounds(Pin).isEmpty());
    Pin->TitleOptions().SetVisibility(mitvVisible);
    const QRect Head = Pin->PointerViewInfo()->ImageRect();
    QRect Title = TextBounds(Pin);
    QCOMPARE(Title.top(), Head.bottom() + 1);
    QVERIFY(std::abs(Title.center().x() - Head.center().x()) <= 1);
    const int Wide = Title.width();
    Pin->Attributes().Add(QStringLiteral("NAME"), QStringLiteral("Al"));
    QVERIFY(TextBounds(Pin).width() < Wide);
    QVERIFY(Pin->ViewInfo()->Bounds().contains(TextBounds(Pin)));
    Pin->SetText(QStringLiteral("7"));
    QVERIFY((TextBounds(Pin).center() - (Head.topLeft() + QPoint(17, 17))).manhattanLength() <= 2);
    Pin->TitleOptions().SetVisibility(mitvAuto);

    // Attributes a pin does not show (the feed restamps them on every
    // report) ask for no layout; a shown title follows them, as above.
    Map.Control.BeginUpdate();
    Pin->Attributes().SetValue(QStringLiteral("NAME"), QStringLiteral("Alexandra Morgan"));
    QVERIFY(!Map.Control.IsViewInfoDirty());
    Pin->SetText(QString());
    Pin->TitleOptions().SetVisibility(mitvVisible);
    Map.Control.EndUpdate();
    const int Longer = TextBounds(Pin).width();
    QVERIFY(Longer > Wide);
    Map.Control.BeginUpdate();
    Pin->Attributes().SetValue(QStringLiteral("NAME"), QStringLiteral("Al"));
    QVERIFY(Map.Control.IsViewInfoDirty());
    Map.Control.EndUpdate();
    QVERIFY(TextBounds(Pin).width() < Longer);
    Pin->SetText(QStringLiteral("7"));
    Pin->TitleOptions().SetVisibility(mitvAuto);

    // An image is centred by default and the text starts at its top-right.
    auto* Pointer = AddAt<TvxMapPointer>(Map, P);
    Pointer->SetImage(MarkerImage(20, Qt::blue).copy(0, 0, 20, 10));
    QCOMPARE(Pointer->PointerViewInfo()->ImageRect(), QRect(190, 145, 20, 10));
    Pointer->SetImageOrigin({0, 1});
    Pointer->SetText(QStringLiteral("Quay"));
    QCOMPARE(Pointer->PointerViewInfo()->ImageRect(), QRect(200, 140, 20, 10));
    QCOMPARE(TextBounds(Pointer).topLeft(), QPoint(220, 140));

    // Without its image only the text shows, its top-left on the location;
    // with no text either there is nothing left to show.
    Pointer->SetImageVisible(false);
    QCOMPARE(TextBounds(Pointer).topLeft(), P);
    QVERIFY(Map.Shows(Pointer));
    Pointer->SetText(QString());
    QVERIFY(!Map.Shows(Pointer));
    QVERIFY(Pointer->ViewInfo()->Bounds().isEmpty());

    // The custom element keeps room for its panel round the content.
    auto* Element = AddAt<TvxMapCustomElement>(Map, P);
    Element->SetImage(MarkerImage(20, Qt::red));
    QCOMPARE(Element->ViewInfo()->Bounds(), QRect(190, 140, 20, 20).adjusted(-15, -15, 15, 15));
    Element->SetImageVisible(false);
    QVERIFY(!Map.Shows(Element));
  }

  void dotsAndBadInput()
  {
    TMap Map;
    auto* Dot = AddAt<TvxMapDot>(Map, QPointF(100.2, 80.2));
    QCOMPARE(Dot->ViewInfo()->DrawBounds(), QRect(98, 78, 5, 5));
    Dot->SetSize(4);
    Dot->ChangeScale(3, 2);
    QCOMPARE(Dot->ViewInfo()->DrawBounds().size(), QSize(6, 6));
    Dot->SetSize(0);
    QVERIFY(!Map.Shows(Dot));

    // None of these has anything to draw, and none may trip the paint.
    AddAt<TvxMapPointer>(Map, QPoint(100, 50))->SetImageVisible(false);
    AddAt<TvxMapRectangle>(Map, QPoint(150, 50));
    AddAt<TvxMapEllipse>(Map, QPoint(200, 50))->SetWidth(500);
    AddAt<TvxMapRectangle>(Map, QPoint(250, 50))->SetWidth(NaN);
    for (const TvxMapControlGeoPoint Location : {Geo(NaN, 0), Geo(10, NaN), Geo(NaN, 500)})
    {
      auto* Pin = Map.Layer->AddItem<TvxMapPushpin>();
      Pin->SetText(QStringLiteral("x"));
      Pin->SetLocation(Location);
      Map.Layer->AddItem<TvxMapDot>()->SetLocation(Location);
      auto* Box = Map.Layer->AddItem<TvxMapRectangle>();
      Box->SetLocation(Location);
      Box->SetWidth(100);
      Box->SetHeight(100);
    }
    QVERIFY(Map.Layer->ItemViewInfo()->VisibleElements().isEmpty());
    QCOMPARE(Map.Render(), Map.Filled());
  }

  void locationsBeyondTheWorldWrapOrClamp()
  {
    // Near the antimeridian, each item beside its twin at the wrapped or
    // clamped location: the same place on the screen, and drawn.
    TMap Map;
    Map.Control.SetCenterPoint(Geo(0, -170));
    const auto Shifted = [&Map](QPoint APoint, double ATurns) {
      const TvxMapControlGeoPoint P = Map.GeoAt(APoint);
      return Geo(P.Latitude, P.Longitude + 360 * ATurns);
    };
    auto* Dot = Map.Layer->AddItem<TvxMapDot>();
    Dot->SetLocation(Shifted({100, 80}, 1));
    QVERIFY(Dot->Location().GeoPoint().Longitude > 180);
    auto* DotTwin = AddAt<TvxMapDot>(Map, QPoint(100, 80));
    auto* Pin = Map.Layer->AddItem<TvxMapPushpin>();
    Pin->SetLocation(Shifted({300, 150}, -2));
    auto* PinTwin = AddAt<TvxMapPushpin>(Map, QPoint(300, 150));
    // A rectangle keeps its size: its far corner comes from the wrapped
    // location, not from the one beyond the antimeridian.
    auto* Box = Map.Layer->AddItem<TvxMapRectangle>();
    Box->SetLocation(Shifted({150, 200}, 1));
    auto* BoxTwin = AddAt<TvxMapRectangle>(Map, QPoint(150, 200));
    for (TvxMapRectangle* Item : {Box, BoxTwin})
    {
      Item->SetWidth(500);
      Item->SetHeight(200);
    }
    const std::pair<TvxMapItem*, TvxMapItem*> Pairs[] = {{Dot, DotTwin}, {Pin, PinTwin}, {Box, BoxTwin}};
    for (const auto& [Item, Twin] : Pairs)
    {
      QVERIFY(Map.Shows(Item));
      QVERIFY(!Item->ViewInfo()->Bounds().isEmpty());
      QCOMPARE(Item->ViewInfo()->Bounds(), Twin->ViewInfo()->Bounds());
    }

    // A pole beyond the pole: the top edge of the map, as the pole itself.
    TMap North(QSize(400, 300), 1);
    North.Control.SetCenterPoint(Geo(70, 20));
    auto* Polar = North.Layer->AddItem<TvxMapDot>();
    Polar->SetLocation(Geo(100, 20));
    auto* PolarTwin = North.Layer->AddItem<TvxMapDot>();
    PolarTwin->SetLocation(Geo(90, 20));
    QVERIFY(North.Shows(Polar));
    QCOMPARE(Polar->ViewInfo()->Bounds(), PolarTwin->ViewInfo()->Bounds());

    // Only the items beyond the world drawn: the same pixels as the twins.
    for (auto [Item, Twin] : Pairs)
      Twin->SetVisible(false);
    const QImage Beyond = Map.Render();
    for (auto [Item, Twin] : Pairs)
    {
      Item->SetVisible(false);
      Twin->SetVisible(true);
    }
    QCOMPARE(Map.Render(), Beyond);
    QVERIFY(Beyond != Map.Filled());
  }

  void shapesHangFromTheirCorner()
  {
    TMap Map(QSize(200, 120), 7);
    auto* Box = AddAt<TvxMapRectangle>(Map, QPoint(40, 30));
    Box->SetWidth(100);
    QVERIFY(!Map.Shows(Box));
    Box->SetHeight(50);
    // Down and to the east of the location, twice as wide as high: a
    // conformal projection keeps small shapes true. 111.2 km make a degree,
    // 32768 pixels the world at level 7.
    const QRect R = Box->ViewInfo()->DrawBounds();
    QCOMPARE(R.topLeft(), QPoint(40, 30));
    QVERIFY(std::abs(double(R.width()) / R.height() - 2) < 0.05);
    QVERIFY(std::abs(R.width() - 100 / 111.2 * 32768 / 360) <= 2);

    // A corner of the bounds is inside a rectangle, outside an ellipse.
    auto* Ellipse = AddAt<TvxMapEllipse>(Map, QPoint(40, 30));
    Ellipse->SetWidth(100);
    Ellipse->SetHeight(50);
    QCOMPARE(Map.HitAt(R.topLeft() + QPoint(1, 1)), Box->ViewInfo());
    QCOMPARE(Map.HitAt(R.center()), Ellipse->ViewInfo());
    Map.Layer->MapItems().Remove(Box);
    QVERIFY(Map.HitAt(R.topLeft() + QPoint(1, 1)) != Ellipse->ViewInfo());
    QVERIFY(Map.HitAt(R.bottomRight() - QPoint(1, 1)) != Ellipse->ViewInfo());
    Map.Layer->MapItems().Remove(Ellipse);

    // A rectangle far larger than the screen is drawn only where it shows,
    // with its border just beyond the edges. The offscreen cursor may rest
    // on it, and only the normal look is wanted.
    Map.Layer->SetAllowHotTrack(false);
    auto* Huge = Map.Layer->AddItem<TvxMapRectangle>();
    Huge->SetLocation(Geo(4, -4));
    Huge->SetWidth(1000);
    Huge->SetHeight(1000);
    Huge->Style().SetColor(0xFF3080C0);
    Huge->Style().SetBorderColor(0xFFFF0000);
    Huge->Style().SetBorderWidth(3);
    QVERIFY(Huge->ViewInfo()->Bounds().contains(QRect(0, 0, 200, 120)));
    QCOMPARE(static_cast<TvxMapRectangleViewInfo*>(Huge->ViewInfo())->VisibleRect(), QRect(-3, -3, 206, 126));
    QCOMPARE(Map.Render(), Map.Filled(QColor::fromRgba(0xFF3080C0)));
  }

  void imageCacheFollowsImageAndScale()
  {
    TMap Map;
    auto* Pointer = AddAt<TvxMapPointer>(Map, QPoint(200, 150));
    Pointer->SetImage(MarkerImage(16, Qt::green));
    QSet<qint64> Builds;
    auto Paint = [&] {
      const QImage Image = Map.Render();
      Builds.insert(Pointer->PointerViewInfo()->CachedImage().cacheKey());
      return Image;
    };

    // Moving the marker or changing its text reuses the cache, and what is
    // drawn is the image, where the item now stands.
    Paint();
    Pointer->SetLocation(Map.GeoAt(QPoint(100, 100)));
    QCOMPARE(Paint().pixelColor(100, 100), QColor(Qt::green));
    Pointer->SetText(QStringLiteral("moved"));
    Paint();
    QCOMPARE(Builds.size(), 1);

    // Another pointer of the same image shares that copy; one whose copy of
    // the image was painted over shows its own pixels.
    auto* Twin = AddAt<TvxMapPointer>(Map, QPoint(300, 60));
    Twin->SetImage(Pointer->Image());
    QImage Repainted = Pointer->Image();
    Repainted.fill(Qt::blue);
    auto* Other = AddAt<TvxMapPointer>(Map, QPoint(60, 60));
    Other->SetImage(Repainted);
    const QImage Three = Paint();
    QCOMPARE(Twin->PointerViewInfo()->CachedImage().cacheKey(), Pointer->PointerViewInfo()->CachedImage().cacheKey());
    QCOMPARE(Three.pixelColor(300, 60), QColor(Qt::green));
    QCOMPARE(Three.pixelColor(60, 60), QColor(Qt::blue));
    Map.Layer->MapItems().Remove(Twin);
    Map.Layer->MapItems().Remove(Other);

    // A new image or a new scale makes a new one, of the scaled size.
    Pointer->SetImage(MarkerImage(16, Qt::yellow));
    QCOMPARE(Paint().pixelColor(100, 100), QColor(Qt::yellow));
    Map.Control.ChangeScale(2, 1);
    Paint();
    QCOMPARE(Builds.size(), 3);
    QCOMPARE(Pointer->PointerViewInfo()->CachedImage().size(), QSize(32, 32));

    // An image too small to survive the scale leaves no cache and no paint.
    Map.Control.ChangeScale(1, 8);
    QImage Speck(1, 1, QImage::Format_ARGB32);
    Speck.fill(Qt::red);
    Pointer->SetImage(Speck);
    Pointer->SetText(QString());
    QCOMPARE(Paint(), Map.Filled());
    QVERIFY(Pointer->PointerViewInfo()->CachedImage().isNull());
  }

  void hoverAndClickChangeTheState()
  {
    TMap Map;
    auto* Pin = AddAt<TvxMapPushpin>(Map, QPoint(200, 150));
    const QPoint Head = Pin->PointerViewInfo()->ImageRect().topLeft() + QPoint(17, 17);
    Map.Mouse(QEvent::MouseMove, Head);
    QCOMPARE(Pin->ViewInfo()->State(), mcesHot);
    Map.Mouse(QEvent::MouseButtonPress, Head, Qt::LeftButton);
    Map.Mouse(QEvent::MouseButtonRelease, Head);
    QVERIFY(Pin->Selected());
    QCOMPARE(Map.Control.SelectedMapItemCount(), 1);
    // A press on the bare map clears the selection.
    Map.Mouse(QEvent::MouseButtonPress, QPoint(20, 20), Qt::LeftButton);
    QVERIFY(!Pin->Selected());
  }

  void goldenImages()
  {
    // Normal, hot and selected from left to right, told apart by the
    // layer's colours.
    const auto Row = [](const char* AName, QSize ASize, double AZoomLevel, auto AAdd) {
      TMap Map(ASize, AZoomLevel);
      TvxMapItemLayer& L = *Map.Layer;
      L.ItemStyle().SetColor(0xFFE8E0C8);
      L.ItemStyle().SetBorderColor(0xFF505050);
      L.ItemStyleHot().SetColor(0xFFFFD27A);
      L.ItemStyleHot().SetBorderColor(0xFFC06000);
      L.ItemStyleHot().SetBorderWidth(2);
      L.ItemStyleHot().SetTextColor(0xFF8A3B00);
      L.ItemStyleSelected().SetColor(0xFF6FA8DC);
      L.ItemStyleSelected().SetBorderColor(0xFF0B3D7A);
      L.ItemStyleSelected().SetBorderWidth(3);
      L.ItemStyleSelected().SetTextColor(0xFF0B3D7A);
      QList<TvxMapItem*> Items;
      for (int I = 0; I < 3; ++I)
        Items << AAdd(Map, I);
      Items[1]->ViewInfo()->SetState(mcesHot);
      Items[2]->SetSelected(true);
      const QString Failure = vxCheckGoldenImage(Map.Render(), QStringLiteral(MAPWRIGHT_GOLDEN_DIR), AName);
      QVERIFY2(Failure.isEmpty() || Failure == QStringLiteral("written"), qPrintable(Failure));
    };

    for (const TvxMapDotShapeKind Kind : {mcskCircle, mcskRectangle})
      Row(Kind == mcskCircle ? "dot_circles" : "dot_squares", QSize(200, 120), 5, [Kind](TMap& AMap, int I) {
        auto* Dot = AddAt<TvxMapDot>(AMap, QPoint(33 + 67 * I, 60));
        Dot->SetSize(14);
        Dot->SetShapeKind(Kind);
        return Dot;
      });
    Row("pointers", QSize(200, 120), 5, [](TMap& AMap, int I) {
      auto* Pointer = AddAt<TvxMapPointer>(AMap, QPoint(20 + 67 * I, 60));
      Pointer->SetImage(MarkerImage(20, QColor(0x2E, 0x7D, 0x32)));
      Pointer->SetText(QString::number(I + 1));
      return Pointer;
    });
    Row("pushpins", QSize(200, 120), 5, [](TMap& AMap, int I) {
      auto* Pin = AddAt<TvxMapPushpin>(AMap, QPoint(33 + 67 * I, 85));
      Pin->SetText(QString::number(12 + I));
      return Pin;
    });
    Row("custom_elements", QSize(240, 120), 5, [](TMap& AMap, int I) {
      auto* Element = AddAt<TvxMapCustomElement>(AMap, QPoint(30 + 75 * I, 60));
      Element->SetImage(MarkerImage(16, QColor(0xC6, 0x28, 0x28)));
      Element->SetText(QStringLiteral("Inn"));
      return Element;
    });
    const auto Shape = [](auto* AShape, int I) {
      AShape->SetWidth(135);
      AShape->SetHeight(150);
      AShape->TitleOptions().SetText(QStringLiteral("S%1").arg(I + 1));
      return AShape;
    };
    Row("rectangles", QSize(200, 120), 6,
        [&](TMap& AMap, int I) { return Shape(AddAt<TvxMapRectangle>(AMap, QPoint(8 + 65 * I, 30)), I); });
    Row("ellipses", QSize(200, 120), 6,
        [&](TMap& AMap, int I) { return Shape(AddAt<TvxMapEllipse>(AMap, QPoint(8 + 65 * I, 30)), I); });
  }
};

MAPWRIGHT_TEST_CLASS(TestMapPointItems)

#include "tst_vxMapPointItems.moc"
