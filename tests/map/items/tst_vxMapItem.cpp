#include "GoldenImage.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapItemFileLayer.h"
#include "vxMapItemLayer.h"
#include "vxMapMultiPointItems.h"
#include "vxMapPointItems.h"

#include <QBuffer>
#include <QCursor>
#include <QDate>
#include <QLocale>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>

namespace
{

// A square of fixed pixel size on a location, so that these tests need no
// real item kind; it counts its map-unit calculations.
class TBoxItem;

class TBoxViewInfo : public TvxMapItemViewInfo
{
public:
  using TvxMapItemViewInfo::TvxMapItemViewInfo;
  int CachedBoundsCount = 0;
  int ScreenBoundsCount = 0;

protected:
  void DoCalculateCachedBounds() override;
  void CalculateScreenBounds() override;
  bool DoCanBeVisible() override { return FBounds.intersects(ViewPortBounds()); }
  TvxRectDouble DoGetMapBounds() override { return {FMapCenterPoint.X, FMapCenterPoint.Y, 0, 0}; }
  void DoPaint(TvxMapControlPainter& APainter) override
  {
    const TvxMapItemStyle& Style = GetStyle();
    APainter.Canvas().setPen(QPen(QColor::fromRgba(Style.BorderColor()), ScaleWidth(Style.BorderWidth())));
    APainter.Canvas().setBrush(QColor::fromRgba(Style.Color()));
    APainter.Canvas().drawRect(FDrawBounds);
  }
};

class TBoxItem : public TvxMapItem
{
public:
  using TvxMapItem::TvxMapItem;
  TvxMapControlGeoPoint Location;
  int Size = 20;
  bool IsPointer() const override { return false; }
  void SetLocation(const TvxMapControlGeoPoint& AValue)
  {
    Location = AValue;
    ViewInfo()->InvalidateCachedBounds();
    Changed();
  }
  TBoxViewInfo* Box() const { return static_cast<TBoxViewInfo*>(ViewInfo()); }

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override { return std::make_unique<TBoxViewInfo>(this); }
};

// The pointer kind must be known when the view info is made.
class TPinItem : public TBoxItem
{
public:
  using TBoxItem::TBoxItem;
  bool IsPointer() const override { return true; }
};

void TBoxViewInfo::DoCalculateCachedBounds()
{
  ++CachedBoundsCount;
  FMapCenterPoint = Layer()->GeoPointToMapUnit(static_cast<TBoxItem*>(Item())->Location);
}

void TBoxViewInfo::CalculateScreenBounds()
{
  ++ScreenBoundsCount;
  const TvxPointDouble P = Layer()->MapUnitToScreenPoint(FMapCenterPoint);
  const int S = static_cast<TBoxItem*>(Item())->Size;
  FScreenCenterPoint = QPoint(int(std::lround(P.X)), int(std::lround(P.Y)));
  FBounds = QRect(FScreenCenterPoint - QPoint(S / 2, S / 2), QSize(S, S));
  FMaxTitleSize = vxSizeDouble(S, S);
}

struct TMap
{
  TvxMapControl Control;
  TvxMapItemLayer* Layer;

  TMap()
  {
    Control.OptionsBehavior().SetAnimation(false);
    Control.NavigationPanel().SetVisible(false);
    Layer = Control.AddLayer<TvxMapItemLayer>();
    Control.resize(400, 300);
    Control.setAttribute(Qt::WA_DontShowOnScreen);
    Control.show();
    Control.SetCenterPoint(TvxMapControlGeoPoint::Create(0, 0));
    Control.SetZoomLevel(3);
  }

  TBoxItem* Add(double ALatitude, double ALongitude, bool APointer = false)
  {
    TBoxItem* Item = APointer ? Layer->AddItem<TPinItem>() : Layer->AddItem<TBoxItem>();
    Item->SetLocation(TvxMapControlGeoPoint::Create(ALatitude, ALongitude));
    return Item;
  }

  QPoint At(const TBoxItem* AItem) const { return AItem->ViewInfo()->Bounds().center(); }

  void Click(QPoint APoint, Qt::KeyboardModifiers AModifiers = Qt::NoModifier)
  {
    QMouseEvent Press(QEvent::MouseButtonPress, APoint, Control.mapToGlobal(APoint), Qt::LeftButton,
                      Qt::LeftButton, AModifiers);
    QApplication::sendEvent(&Control, &Press);
    QMouseEvent Release(QEvent::MouseButtonRelease, APoint, Control.mapToGlobal(APoint), Qt::LeftButton,
                        Qt::NoButton, AModifiers);
    QApplication::sendEvent(&Control, &Release);
  }

  QImage Render()
  {
    QImage Image(Control.size(), QImage::Format_ARGB32);
    Control.render(&Image);
    return Image;
  }
};

} // namespace

class TestMapItem : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void attributesNotifyPerValueChange()
  {
    TvxMapItemAttributes Attributes;
    int Changes = 0;
    Attributes.OnChanged = [&Changes](TvxMapItemAttributes*) { ++Changes; };

    Attributes.Add("ID", 1);
    QCOMPARE(Changes, 1);
    // Replacing notifies twice: the old value leaves, the new one comes.
    Attributes.Add("ID", 2);
    QCOMPARE(Changes, 3);
    QCOMPARE(Attributes.Count(), 1);
    QCOMPARE(Attributes.Value("ID").toInt(), 2);
    Attributes.SetValue("ID", 3);
    QCOMPARE(Changes, 5);

    // Names are exact: "id" is another name.
    QVERIFY(!Attributes.ContainsName("id"));
    QVERIFY_THROWS_EXCEPTION(EListError, Attributes.Value("X"));
    try
    {
      Attributes.SetValue("X", 1);
      QFAIL("no error for an unknown name");
    }
    catch (const EListError& E)
    {
      QCOMPARE(QString(E.what()), QString("Item not found"));
    }
    QVERIFY(!Attributes.ContainsName("X"));
    QCOMPARE(Changes, 5);

    Attributes.Remove("nothing");
    QCOMPARE(Changes, 5);
    Attributes.Remove("ID");
    QCOMPARE(Changes, 6);

    // GetNames appends to what the list holds.
    Attributes.Add("A", QString("x"));
    Attributes.Add("B", QDate(2024, 1, 2));
    QStringList Names{"kept"};
    Attributes.GetNames(Names);
    QCOMPARE(Names.size(), 3);
    QCOMPARE(Names.first(), QString("kept"));

    // Names in any order of adding are found, replaced and removed, and
    // listed in name order.
    TvxMapItemAttributes Many;
    const QStringList Added = {"m", "c", "x", "a", "q", "C", "b", "z", "n", "d"};
    for (int I = 0; I < Added.size(); ++I)
      Many.Add(Added[I], I);
    for (int I = 0; I < Added.size(); ++I)
      QCOMPARE(Many.Value(Added[I]), QVariant(I));
    Many.Add("q", 40);
    Many.Remove("a");
    Many.Remove("zz");
    QVERIFY(!Many.ContainsName("a") && !Many.ContainsName("zz") && Many.ContainsName("z"));
    QCOMPARE(Many.Value("q"), QVariant(40));
    QCOMPARE(Many.Count(), Added.size() - 1);
    QStringList Listed;
    Many.GetNames(Listed);
    QCOMPARE(Listed, QStringList({"C", "b", "c", "d", "m", "n", "q", "x", "z"}));
  }

  void textPatternLanguage_data()
  {
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("expected");
    QTest::newRow("known and unknown") << "{NAME} - {UNKNOWN}" << "A - {UNKNOWN}";
    QTest::newRow("lookup is exact") << "{name}" << "{name}";
    QTest::newRow("replacement ignores case") << "{NAME} and {name}" << "A and A";
    QTest::newRow("no closing brace") << "a{b" << "a{b";
    QTest::newRow("blanks inside braces stay") << "{ NAME }" << "{ NAME }";
    // Names are found in the pattern only, but replaced in the text.
    QTest::newRow("value with braces not expanded") << "{BRACES}" << "{NAME}";
    QTest::newRow("later names replace inside values") << "{BRACES}/{NAME}" << "A/A";
    QTest::newRow("numbers, dates and booleans") << "{N};{F};{D};{B}" << "7;2.5;1 Mar 2024;true";
    QTest::newRow("empty pattern") << "" << "";
  }

  void textPatternLanguage()
  {
    QFETCH(QString, pattern);
    TvxMapItemAttributes Attributes;
    Attributes.Add("NAME", QString("A"));
    Attributes.Add("BRACES", QString("{NAME}"));
    Attributes.Add("N", 7);
    Attributes.Add("F", 2.5);
    Attributes.Add("D", QDate(2024, 3, 1));
    Attributes.Add("B", true);
    // Values are written in the user's locale: here the C locale.
    const QLocale Before;
    QLocale::setDefault(QLocale::c());
    const QString Text = vxParseTextPattern(pattern, Attributes);
    QLocale::setDefault(Before);
    QTEST(Text, "expected");
  }

  void stylesMergeInThreeChains()
  {
    TMap Map;
    TBoxItem* Item = Map.Add(0, 0);
    TvxMapItemViewInfo* ViewInfo = Item->ViewInfo();

    // Nothing set anywhere: the painter's values.
    QCOMPARE(ViewInfo->GetStyle(mcesNormal).Color(), 0xFFD7D7D7u);
    QCOMPARE(ViewInfo->GetStyle(mcesSelected).BorderColor(), 0xFFFFFFFFu);
    QCOMPARE(ViewInfo->GetStyle(mcesHot).BorderWidth(), 1);
    QCOMPARE(ViewInfo->GetStyle(mcesNormal).TextGlowColor(), 0xFFFFFFFFu);

    // The layer sets only the selected fill, as the marker layers do.
    Map.Layer->ItemStyleSelected().SetColor(0xFF00FF00);
    Map.Layer->ItemStyle().SetBorderColor(0xFF0000FF);
    QCOMPARE(ViewInfo->GetStyle(mcesSelected).Color(), 0xFF00FF00u);
    QCOMPARE(ViewInfo->GetStyle(mcesSelected).BorderColor(), 0xFFFFFFFFu);
    QCOMPARE(ViewInfo->GetStyle(mcesNormal).Color(), 0xFFD7D7D7u);
    QCOMPARE(ViewInfo->GetStyle(mcesNormal).BorderColor(), 0xFF0000FFu);
    // Hot never falls back to normal.
    QCOMPARE(ViewInfo->GetStyle(mcesHot).BorderColor(), 0xFFFFFFFFu);

    // The item beats the layer until its value is taken out again.
    Item->StyleSelected().SetColor(0xFFFF0000);
    QCOMPARE(ViewInfo->GetStyle(mcesSelected).Color(), 0xFFFF0000u);
    Item->StyleSelected().SetColor(vxMapControlDefaultAlphaColor);
    QCOMPARE(ViewInfo->GetStyle(mcesSelected).Color(), 0xFF00FF00u);

    // A width set back to its first value stays assigned.
    Map.Layer->ItemStyle().SetBorderWidth(4);
    Item->Style().SetBorderWidth(2);
    Item->Style().SetBorderWidth(1);
    QCOMPARE(ViewInfo->GetStyle(mcesNormal).BorderWidth(), 1);

    // Fonts: an assigned font wins; the largest of the states sizes titles.
    QFont Big("DejaVu Sans");
    Big.setPixelSize(30);
    Item->StyleHot().SetFont(Big);
    QCOMPARE(ViewInfo->GetStyle(mcesHot).Font().pixelSize(), 30);
    QCOMPARE(ViewInfo->GetMaxSizeFont().pixelSize(), 30);
  }

  void hotAndSelectedBordersStayInsideBounds()
  {
    TMap Map;
    TBoxItem* Item = Map.Add(0, 0);
    Map.Layer->ItemStyleHot().SetBorderWidth(9);
    Map.Control.Changed();
    const QRect Bounds = Item->ViewInfo()->Bounds();
    QCOMPARE(Item->ViewInfo()->DrawBounds().size(), QSize(20, 20));
    // Ceil(9 / 2) on every side, for the widest border of the three states.
    QCOMPARE(Bounds, Item->ViewInfo()->DrawBounds().adjusted(-5, -5, 5, 5));
    Item->ViewInfo()->SetState(mcesHot);
    QImage Image = Map.Render();
    const QRect Outside = Bounds.adjusted(-2, -2, 2, 2);
    const QRgb Background = Image.pixel(5, 5);
    for (int X = Outside.left(); X <= Outside.right(); ++X)
    {
      QCOMPARE(Image.pixel(X, Outside.top()), Background);
      QCOMPARE(Image.pixel(X, Outside.bottom()), Background);
    }
  }

  void cachesFollowTheInvalidationTable()
  {
    TMap Map;
    TBoxItem* Item = Map.Add(10, 10);
    TBoxViewInfo* Box = Item->Box();
    const int Cached = Box->CachedBoundsCount;
    const int Screen = Box->ScreenBoundsCount;

    // A pan or a zoom re-projects nothing; they recalculate screen bounds.
    Map.Control.ScrollMap(30, 10);
    Map.Control.SetZoomLevel(4);
    QCOMPARE(Box->CachedBoundsCount, Cached);
    QVERIFY(Box->ScreenBoundsCount > Screen);

    // A relayout with nothing moved does no screen work either.
    const int ScreenAfter = Box->ScreenBoundsCount;
    Map.Control.Changed();
    QCOMPARE(Box->ScreenBoundsCount, ScreenAfter);

    // Attributes touch only the title size.
    Item->Attributes().Add("X", 1);
    QVERIFY(Box->IsCachedBoundsValid());
    QCOMPARE(Box->CachedBoundsCount, Cached);

    // A style re-projects (kept as it stands), a geometry change too.
    Item->Style().SetColor(0xFF123456);
    QCOMPARE(Box->CachedBoundsCount, Cached + 1);
    Item->SetLocation(TvxMapControlGeoPoint::Create(11, 11));
    QCOMPARE(Box->CachedBoundsCount, Cached + 2);

    // A new projection re-projects every item, in or out of view.
    TBoxItem* Far = Map.Add(-60, 170);
    const int FarCached = Far->Box()->CachedBoundsCount;
    Map.Layer->SetProjectionClassName("EllipticalMercatorProjection");
    QVERIFY(Map.Layer->Projection() != nullptr);
    QCOMPARE(Box->CachedBoundsCount, Cached + 3);
    QCOMPARE(Far->Box()->CachedBoundsCount, FarCached + 1);

    // An unknown projection leaves the layer without one, and empty.
    Map.Layer->SetProjectionClassName("NoSuchProjection");
    QVERIFY(Map.Layer->Projection() == nullptr);
    QVERIFY(Map.Layer->ProjectionClassName().isEmpty());
    QVERIFY(!Map.Layer->IsActuallyVisible());
  }

  void titleVisibilityAndText()
  {
    TMap Map;
    TBoxItem* Item = Map.Add(0, 0);
    Item->Attributes().Add("NAME", QString("W"));
    Map.Layer->ItemTitleOptions().SetText("{NAME}");
    Map.Control.Changed();
    TvxMapItemTextViewInfo* Title = Item->ViewInfo()->GetTitle();
    QVERIFY(Title);
    QCOMPARE(Title->Text(), QString("W"));
    QVERIFY(!Title->Bounds().isEmpty());
    QCOMPARE(Title->Bounds().center(), Item->ViewInfo()->ScreenCenterPoint());
    QVERIFY(Map.Layer->ItemViewInfo()->ItemTitles().contains(Title));

    // Too wide for the shape: hidden under auto, shown when visible.
    Item->Attributes().Add("NAME", QString("A title far wider than the box"));
    Map.Control.Changed();
    QVERIFY(Title->Bounds().isEmpty());
    Item->TitleOptions().SetVisibility(mitvVisible);
    Map.Control.Changed();
    QVERIFY(!Title->Bounds().isEmpty());
    // Hidden on the layer beats visible on the item.
    Map.Layer->ItemTitleOptions().SetVisibility(mitvHidden);
    Map.Control.Changed();
    QVERIFY(Title->Bounds().isEmpty());

    // The item's own pattern comes before the layer's.
    Map.Layer->ItemTitleOptions().SetVisibility(mitvAuto);
    Item->TitleOptions().SetText("X");
    Map.Control.Changed();
    QCOMPARE(Title->Text(), QString("X"));

    // Pointers have no title of their own.
    TBoxItem* Pointer = Map.Add(5, 5, true);
    Map.Control.Changed();
    QVERIFY(!Pointer->ViewInfo()->HasTitle());
    QVERIFY(!Pointer->ViewInfo()->GetTitle());
  }

  void hintsThroughItemLayerAndEvent()
  {
    TMap Map;
    TBoxItem* Item = Map.Add(0, 0);
    Item->Attributes().Add("ID", QString("7"));
    Map.Layer->SetItemHint("Person {ID}");
    QCOMPARE(Item->ViewInfo()->GetHint(), QString("Person 7"));
    TvxMapItem* Asked = nullptr;
    Map.Layer->OnGetItemHint = [&Asked](TvxCustomMapItemLayer*, TvxMapItem* AItem, QString& AText) {
      Asked = AItem;
      AText += " ({ID})";
    };
    QCOMPARE(Item->ViewInfo()->GetHint(), QString("Person 7 (7)"));
    QCOMPARE(Asked, Item);
    // The item's own hint skips the layer and its event.
    Asked = nullptr;
    Item->SetHint("Mine {ID}");
    QCOMPARE(Item->ViewInfo()->GetHint(), QString("Mine 7"));
    QVERIFY(!Asked);
  }

  void assignLeavesAttributesAndTitle()
  {
    TMap Map;
    TBoxItem* Source = Map.Add(0, 0);
    TBoxItem* Target = Map.Add(1, 1);
    Source->Attributes().Add("A", 1);
    Source->TitleOptions().SetText("source");
    Source->SetHint("hint");
    Source->StyleHot().SetColor(0xFF112233);
    Source->SetVisible(false);
    Target->Attributes().Add("B", 2);
    Target->TitleOptions().SetText("target");
    Target->Assign(*Source);
    QCOMPARE(Target->Hint(), QString("hint"));
    QCOMPARE(Target->StyleHot().Color(), 0xFF112233u);
    QVERIFY(Target->StyleHot().IsAssigned(mcsvColor));
    QVERIFY(!Target->Visible());
    QVERIFY(!Target->Attributes().ContainsName("A"));
    QVERIFY(Target->Attributes().ContainsName("B"));
    QCOMPARE(Target->TitleOptions().Text(), QString("target"));
  }

  void selectionRules()
  {
    TMap Map;
    TBoxItem* A = Map.Add(0, -20);
    TBoxItem* B = Map.Add(0, 0);
    TBoxItem* C = Map.Add(0, 20);
    int Changed = 0;
    Map.Control.OnSelectionChanged = [&Changed](TvxCustomMapControl*) { ++Changed; };

    Map.Click(Map.At(A));
    QVERIFY(A->Selected());
    QCOMPARE(Changed, 1);
    // Ctrl adds and toggles.
    Map.Click(Map.At(B), Qt::ControlModifier);
    QCOMPARE(Map.Control.SelectedMapItemCount(), 2);
    QCOMPARE(Changed, 2);
    // A plain click on a selected item keeps the selection as it is.
    Map.Click(Map.At(A));
    QCOMPARE(Map.Control.SelectedMapItemCount(), 2);
    Map.Click(Map.At(B), Qt::ControlModifier);
    QVERIFY(!B->Selected());
    // A plain click elsewhere selects that one alone, with one event.
    Changed = 0;
    Map.Click(Map.At(C));
    QVERIFY(C->Selected() && !A->Selected());
    QCOMPARE(Changed, 1);
    // A click on the empty map clears.
    Map.Click(QPoint(5, 5));
    QCOMPARE(Map.Control.SelectedMapItemCount(), 0);

    // A refused item stays out; a refused deselection stays in.
    Map.Control.OnSelectionChanging = [B](TvxCustomMapControl*, IvxMapItem* AItem, bool& AAllow) {
      AAllow = AItem != B;
    };
    B->SetSelected(true);
    QVERIFY(!B->Selected());
    Map.Control.OnSelectionChanging = nullptr;
    B->SetSelected(true);
    Map.Control.OnSelectionChanging = [](TvxCustomMapControl*, IvxMapItem*, bool& AAllow) { AAllow = false; };
    Map.Control.ClearSelection();
    QVERIFY(B->Selected());
    Map.Control.OnSelectionChanging = nullptr;

    // Region: all items met, with Ctrl; under single mode the last one alone.
    Map.Control.SelectMapItemsInRegion(Map.Control.rect());
    QCOMPARE(Map.Control.SelectedMapItemCount(), 3);
    Map.Control.OptionsBehavior().SetMapItemSelectMode(mismSingle);
    Map.Control.SelectMapItemsInRegion(Map.Control.rect());
    QCOMPARE(Map.Control.SelectedMapItemCount(), 1);
    QVERIFY(C->Selected());
    // Nothing is selectable under none, by the user.
    Map.Control.ClearSelection();
    Map.Control.OptionsBehavior().SetMapItemSelectMode(mismNone);
    Map.Click(Map.At(A));
    QCOMPARE(Map.Control.SelectedMapItemCount(), 0);

    // A dying item leaves the selection even if the event refuses.
    Map.Control.OptionsBehavior().SetMapItemSelectMode(mismExtended);
    A->SetSelected(true);
    Map.Control.OnSelectionChanging = [](TvxCustomMapControl*, IvxMapItem*, bool& AAllow) { AAllow = false; };
    Map.Layer->MapItems().Remove(A);
    QCOMPARE(Map.Control.SelectedMapItemCount(), 0);
    Map.Control.OnSelectionChanging = nullptr;
  }

  void hotTrackingAndForbiddenStates()
  {
    TMap Map;
    TBoxItem* Item = Map.Add(0, 0);
    Item->ViewInfo()->SetState(mcesPressed);
    QCOMPARE(Item->ViewInfo()->State(), mcesNormal);
    Item->ViewInfo()->SetState(mcesHot);
    QCOMPARE(Item->ViewInfo()->State(), mcesHot);
    Item->ViewInfo()->SetState(mcesNormal);
    Map.Layer->SetAllowHotTrack(false);
    QMouseEvent Move(QEvent::MouseMove, Map.At(Item), Map.Control.mapToGlobal(Map.At(Item)), Qt::NoButton,
                     Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(&Map.Control, &Move);
    QCOMPARE(Item->ViewInfo()->State(), mcesNormal);
    // Nothing outside the visible map can be hit.
    Item->Size = 2000;
    Item->SetLocation(Item->Location);
    QVERIFY(!Item->ViewInfo()->PtInElement(QPoint(-5, 10)));
    QVERIFY(Item->ViewInfo()->PtInElement(QPoint(5, 10)));
  }

  void renderedWithoutWindowNothingTurnsHot()
  {
    // The headless renderer never shows its control: wherever the system's
    // cursor is, no item may take the hot look.
    TvxMapControl Control;
    Control.resize(300, 200);
    auto* Layer = Control.AddLayer<TvxMapItemLayer>();
    auto* Item = Layer->AddItem<TBoxItem>();
    Item->Size = 1000;
    Item->SetLocation(TvxMapControlGeoPoint::Create(0, 0));
    QCursor::setPos(Control.mapToGlobal(QPoint(150, 100)));
    Control.Changed();
    QCOMPARE(Item->ViewInfo()->State(), mcesNormal);
  }

  void paintOrderInBands()
  {
    TMap Map;
    // A pointer added before a shape still paints above it.
    TBoxItem* Pointer = Map.Add(0, 0, true);
    Pointer->Style().SetColor(0xFFFF0000);
    TBoxItem* Shape = Map.Add(0, 0);
    Shape->Size = 40;
    Shape->SetLocation(Shape->Location);
    Shape->Style().SetColor(0xFF0000FF);
    Map.Control.Changed();
    const TvxMapItemLayerViewInfo* ViewInfo = Map.Layer->ItemViewInfo();
    QCOMPARE(ViewInfo->LastNonPointerItemIndex(), 0);
    QCOMPARE(ViewInfo->VisibleElements().last(), Pointer->ViewInfo());
    const QPoint Centre = Map.At(Shape);
    QCOMPARE(QColor(Map.Render().pixel(Centre)), QColor(Qt::red));

    // Hot over selected over normal, whatever the item order.
    TBoxItem* Hot = Map.Add(10, 30);
    TBoxItem* Selected1 = Map.Add(10, 30);
    TBoxItem* Selected2 = Map.Add(10, 30);
    Hot->Style().SetColor(0xFF00FF00);
    Hot->StyleHot().SetColor(0xFF00FF00);
    Selected1->StyleSelected().SetColor(0xFFFFFF00);
    Selected2->StyleSelected().SetColor(0xFF00FFFF);
    Selected1->SetSelected(true);
    Selected2->SetSelected(true);
    Map.Control.Changed();
    QCOMPARE(QColor(Map.Render().pixel(Map.At(Hot))), QColor(Qt::cyan));
    Hot->ViewInfo()->SetState(mcesHot);
    QCOMPARE(QColor(Map.Render().pixel(Map.At(Hot))), QColor(Qt::green));
  }

  void bandOrderGolden()
  {
    // Real items: a pushpin and a title added before the polygons still
    // lie above them; the hot polygon lies above the selected one although
    // it comes first.
    TMap Map;
    Map.Control.resize(240, 160);
    for (TvxMapControlElementState State : {mcesNormal, mcesHot, mcesSelected})
      Map.Layer->ItemStyles().Style(State)->SetFont(vxPinnedFont(12));
    Map.Layer->ItemStyle().SetColor(0xFF7FA7D0);
    Map.Layer->ItemStyleHot().SetColor(0xFFE0A040);
    Map.Layer->ItemStyleSelected().SetColor(0xFF50A050);
    Map.Layer->ItemStyleSelected().SetBorderColor(0xFF205020);
    Map.Layer->ItemStyleSelected().SetBorderWidth(3);
    auto* Pin = Map.Layer->AddItem<TvxMapPushpin>();
    Pin->SetLocation(TvxMapControlGeoPoint::Create(0, 0));
    Pin->SetText("1");
    auto Square = [&Map](double ALatitude, double ALongitude, const QString& ATitle) {
      auto* Polygon = Map.Layer->AddItem<TvxMapPolygon>();
      const double D = 6;
      Polygon->GeoPoints().AddRange({TvxMapControlGeoPoint::Create(ALatitude + D, ALongitude - D),
                                     TvxMapControlGeoPoint::Create(ALatitude + D, ALongitude + D),
                                     TvxMapControlGeoPoint::Create(ALatitude - D, ALongitude + D),
                                     TvxMapControlGeoPoint::Create(ALatitude - D, ALongitude - D)});
      Polygon->TitleOptions().SetText(ATitle);
      return Polygon;
    };
    TvxMapPolygon* Hot = Square(-3, -8, "Hot");
    TvxMapPolygon* Selected = Square(3, 2, "Sel");
    Square(-2, 10, "N");
    Selected->SetSelected(true);
    Hot->ViewInfo()->SetState(mcesHot);
    QImage Image(Map.Control.size(), QImage::Format_ARGB32);
    Image.fill(Qt::white);
    Map.Control.render(&Image);
    const QString Failure = vxCheckGoldenImage(Image, MAPWRIGHT_GOLDEN_DIR, "band_order");
    if (Failure == "written")
      QSKIP("golden image written");
    QVERIFY2(Failure.isEmpty(), qPrintable(Failure));
  }

  void mapSizeAndZoomToFit()
  {
    TMap Map;
    QCOMPARE(Map.Layer->GetMapSizeInPixels(0.5), vxSizeDouble(256, 256));
    QCOMPARE(Map.Layer->GetMapSizeInPixels(1), vxSizeDouble(512, 512));
    QCOMPARE(Map.Layer->GetMapSizeInPixels(3), vxSizeDouble(2048, 2048));

    TBoxItem* A = Map.Add(40, -10);
    TBoxItem* B = Map.Add(30, 20);
    TBoxItem* Hidden = Map.Add(-70, 150);
    Hidden->SetVisible(false);
    TvxMapItemList Items{A, B, Hidden};
    TvxRectDouble Bounds;
    QVERIFY(TvxMapItemsZoomHelper::CalculateMapBounds(Items, Bounds));
    const TvxPointDouble PA = Map.Layer->GeoPointToMapUnit(A->Location);
    const TvxPointDouble PB = Map.Layer->GeoPointToMapUnit(B->Location);
    QCOMPARE(Bounds.Left, PA.X);
    QCOMPARE(Bounds.Top, PA.Y);
    QCOMPARE(Bounds.Right(), PB.X);
    QCOMPARE(Bounds.Bottom(), PB.Y);
    Map.Control.ZoomToFitLayerItems({Map.Layer}, 0.1);
    QVERIFY(Map.Control.rect().contains(Map.At(A)));
    QVERIFY(Map.Control.rect().contains(Map.At(B)));
    QVERIFY(Map.Control.ZoomLevel() > 3);
    TvxMapItemList None{Hidden};
    QVERIFY(!TvxMapItemsZoomHelper::CalculateMapBounds(None, Bounds));
  }

  void removingItemsWhileLocked()
  {
    // A paint while updates are held must not meet a removed item.
    TMap Map;
    for (int I = 0; I < 20; ++I)
      Map.Add(I, I, I % 2 == 0);
    Map.Layer->ItemTitleOptions().SetText("t");
    Map.Control.Changed();
    Map.Control.BeginUpdate();
    Map.Layer->MapItems().Delete(3);
    Map.Layer->MapItems().Delete(0);
    Map.Render();
    Map.Layer->MapItems().Clear();
    Map.Render();
    Map.Control.EndUpdate();
    QCOMPARE(Map.Layer->ItemViewInfo()->VisibleElements().size(), 0);
  }
};

MAPWRIGHT_TEST_CLASS(TestMapItem)

class TestMapItemFileLayer : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void cleanup()
  {
    vxRegisteredMapItemFileLoaders().RegisterKmlLoader(nullptr);
    vxRegisteredMapItemFileLoaders().RegisterShapeLoader(nullptr);
  }

  void loadingFrame()
  {
    TMap Map;
    auto* Layer = Map.Control.AddLayer<TvxMapItemFileLayer>();
    QString Seen;
    vxRegisteredMapItemFileLoaders().RegisterKmlLoader([&Seen](TvxMapItemFileLayer& ALayer, QIODevice& AStream) {
      Seen = QString::fromUtf8(AStream.readAll());
      if (Seen == "bad")
      {
        ALayer.AddItem<TBoxItem>();
        throw std::runtime_error("broken at line 3");
      }
      ALayer.AddItem<TBoxItem>();
      ALayer.AddItem<TBoxItem>();
    });

    QTemporaryDir Dir;
    const QString Good = Dir.filePath("good.whatever");
    QFile File(Good);
    QVERIFY(File.open(QIODevice::WriteOnly));
    File.write("good");
    File.close();

    // The file type decides, not the extension.
    Layer->LoadFromFile(Good);
    QCOMPARE(Seen, QString("good"));
    QVERIFY(Layer->Active());
    QCOMPARE(Layer->MapItems().Count(), 2);
    QVERIFY(Layer->LastError().isEmpty());

    // Bad content: empty, inactive, no exception, the reason kept.
    QByteArray Bad("bad");
    QBuffer Stream(&Bad);
    Stream.open(QIODevice::ReadOnly);
    Layer->SetActive(false);
    Layer->LoadFromStream(Stream);
    QVERIFY(!Layer->Active());
    QCOMPARE(Layer->MapItems().Count(), 0);
    QCOMPARE(Layer->LastError(), QString("broken at line 3"));

    // Active loads FileName; a new FileName unloads.
    Layer->SetActive(true);
    QCOMPARE(Layer->MapItems().Count(), 2);
    Layer->SetFileName(Dir.filePath("other.kml"));
    QVERIFY(!Layer->Active());
    QCOMPARE(Layer->MapItems().Count(), 0);
    // A file that cannot be read throws out of the activation.
    QVERIFY_THROWS_EXCEPTION(EFOpenError, Layer->SetActive(true));
    QVERIFY(!Layer->Active());
    Layer->SetFileName(QString());
    QVERIFY_THROWS_EXCEPTION(EFOpenError, Layer->SetActive(true));

    // A stream load on a Shapefile layer does nothing.
    Layer->SetFileType(miftShape);
    Stream.seek(0);
    Layer->LoadFromStream(Stream);
    QVERIFY(!Layer->Active());
  }

  void shapeFilesNeedBothParts()
  {
    TMap Map;
    auto* Layer = Map.Control.AddLayer<TvxMapItemFileLayer>();
    QStringList Parts;
    vxRegisteredMapItemFileLoaders().RegisterShapeLoader(
      [&Parts](TvxMapItemFileLayer& ALayer, QIODevice& AShapes, QIODevice& ATable, QIODevice* ACodePage) {
        Parts = {QString::fromUtf8(AShapes.readAll()), QString::fromUtf8(ATable.readAll()),
                 ACodePage ? QString::fromUtf8(ACodePage->readAll()) : QString("none")};
        ALayer.AddItem<TBoxItem>();
      });
    QTemporaryDir Dir;
    auto Write = [&Dir](const QString& AName, const QByteArray& AData) {
      QFile File(Dir.filePath(AName));
      QVERIFY(File.open(QIODevice::WriteOnly));
      File.write(AData);
    };
    Write("roads.shp", "S");
    Layer->SetFileType(miftShape);
    // Without the table: a quiet return.
    Layer->LoadFromFile(Dir.filePath("roads.SHP.shp"));
    Layer->LoadFromFile(Dir.filePath("roads.shp"));
    QVERIFY(!Layer->Active());
    QVERIFY(Parts.isEmpty());
    Write("roads.dbf", "D");
    // Any extension names the set: it is replaced.
    Layer->LoadFromFile(Dir.filePath("roads.anything"));
    QVERIFY(Layer->Active());
    QCOMPARE(Parts, QStringList({"S", "D", "none"}));
    Write("roads.cpg", "utf-8");
    Layer->LoadFromFile(Dir.filePath("roads.shp"));
    QCOMPARE(Parts, QStringList({"S", "D", "utf-8"}));
    QCOMPARE(Layer->MapItems().Count(), 1);
  }
};

MAPWRIGHT_TEST_CLASS(TestMapItemFileLayer)

#include "tst_vxMapItem.moc"
