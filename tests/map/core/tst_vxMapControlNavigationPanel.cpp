#include "GoldenImage.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxTestLayer.h"

#include <limits>
#include <QDir>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QImage>
#include <QLocale>
#include <QMouseEvent>
#include <QTest>

namespace
{
QFont PinnedFont(int APixelSize)
{
  return vxPinnedFont(APixelSize);
}

// A map as the tests see it: one test layer, no animation, pinned fonts.
struct TMap
{
  TvxMapControl Control;
  TvxTestLayer* Layer;

  explicit TMap(QSize ASize, bool AWithLayer = true)
  {
    Control.OptionsBehavior().SetAnimation(false);
    Control.NavigationPanel().Style().SetCoordinateFont(PinnedFont(21));
    Control.NavigationPanel().Style().SetScaleFont(PinnedFont(16));
    Layer = AWithLayer ? Control.AddLayer<TvxTestLayer>() : nullptr;
    Control.resize(ASize);
    // Shown (offscreen), so that resizes reach the control as they happen.
    Control.setAttribute(Qt::WA_DontShowOnScreen);
    Control.show();
  }

  TvxMapControlNavigationPanelViewInfo& Panel() const { return Control.ViewInfo().NavigationPanelViewInfo(); }
  bool Shows(const TvxMapControlElementViewInfo& AElement) const { return Panel().Contains(&AElement); }

  void MoveMouse(QPoint APoint)
  {
    QMouseEvent Event(QEvent::MouseMove, APoint, Control.mapToGlobal(APoint), Qt::NoButton, Qt::NoButton,
                      Qt::NoModifier);
    QApplication::sendEvent(&Control, &Event);
  }
};

int Right(const QRect& ARect)
{
  return ARect.x() + ARect.width();
}

}

class TestNavigationPanel : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void initTestCase()
  {
    QVERIFY2(QFontDatabase::hasFamily(QStringLiteral("DejaVu Sans")),
             "the pinned font DejaVu Sans (fonts-dejavu-core) is missing");
  }

  void layoutWithoutTextElements_data()
  {
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<bool>("hasScrollButtons");
    QTest::addColumn<QPoint>("scrollButtonsAt");
    QTest::addColumn<bool>("hasTrackBar");
    QTest::addColumn<QPoint>("trackBarAt");

    // Offsets 15/5/30/5, spacing 15, buttons 58, track bar 216 x 33.
    QTest::newRow("both fit, buttons push the bar right") << 400 << 80 << true << QPoint(15, 11) << true << QPoint(88, 23);
    QTest::newRow("bar fits, no room left for the buttons") << 290 << 80 << false << QPoint() << true << QPoint(15, 23);
    QTest::newRow("bar too wide, buttons alone") << 250 << 80 << true << QPoint(15, 11) << false << QPoint();
    QTest::newRow("exactly as wide as the bar is not enough") << 261 << 80 << true << QPoint(15, 11) << false << QPoint();
    QTest::newRow("a 50 pixel panel is too low for the buttons") << 400 << 50 << false << QPoint() << true << QPoint(15, 8);
  }

  void layoutWithoutTextElements()
  {
    QFETCH(int, width);
    QFETCH(int, height);
    TMap Map(QSize(width, 300));
    Map.Control.NavigationPanel().SetShowCoordinates(false);
    Map.Control.NavigationPanel().SetShowKilometersScale(false);
    Map.Control.NavigationPanel().SetShowMilesScale(false);
    Map.Control.NavigationPanel().SetHeight(height);

    const QRect Panel = Map.Panel().Bounds();
    QCOMPARE(Panel, QRect(0, 300 - height, width, height));
    const QPoint Origin = Panel.topLeft();
    QFETCH(bool, hasScrollButtons);
    QFETCH(bool, hasTrackBar);
    QCOMPARE(Map.Shows(Map.Panel().ScrollButtonsViewInfo()), hasScrollButtons);
    QCOMPARE(Map.Shows(Map.Panel().ZoomTrackBarViewInfo()), hasTrackBar);
    if (hasScrollButtons)
    {
      QFETCH(QPoint, scrollButtonsAt);
      QCOMPARE(Map.Panel().ScrollButtonsViewInfo().Bounds(), QRect(Origin + scrollButtonsAt, QSize(58, 58)));
    }
    if (hasTrackBar)
    {
      QFETCH(QPoint, trackBarAt);
      QCOMPARE(Map.Panel().ZoomTrackBarViewInfo().Bounds(), QRect(Origin + trackBarAt, QSize(216, 33)));
    }
  }

  void layoutWithTextElements()
  {
    // Wide: every element, the scale at the right-hand end and the
    // coordinates moved left of it.
    {
      TMap Map(QSize(1000, 400));
      auto& Coordinates = Map.Panel().CoordinatesViewInfo();
      auto& Scale = Map.Panel().ScaleViewInfo();
      QVERIFY(Map.Shows(Coordinates) && Map.Shows(Scale));
      QCOMPARE(Right(Scale.Bounds()), 1000 - 30);
      QCOMPARE(Right(Coordinates.Bounds()), Scale.Bounds().x() - 15);
      QVERIFY(Right(Map.Panel().ZoomTrackBarViewInfo().Bounds()) < Coordinates.Bounds().x());
      for (const TvxMapControlElementViewInfo* Element : Map.Panel().VisibleElements())
        QVERIFY(Map.Panel().Bounds().contains(Element->Bounds()));
    }
    // Coordinates too wide for the panel: dropped, while the track bar and
    // the scale still place by the rules.
    {
      TMap Map(QSize(700, 400));
      Map.Control.NavigationPanel().Style().SetCoordinateFont(PinnedFont(80));
      auto& Scale = Map.Panel().ScaleViewInfo();
      QVERIFY(!Map.Shows(Map.Panel().CoordinatesViewInfo()));
      QVERIFY(Map.Shows(Map.Panel().ZoomTrackBarViewInfo()));
      QVERIFY(Map.Shows(Scale));
      QCOMPARE(Right(Scale.Bounds()), 700 - 30);
    }
    // No visible layer: no scale; options remove what they govern.
    {
      TMap Map(QSize(1000, 400), false);
      QVERIFY(!Map.Shows(Map.Panel().ScaleViewInfo()));
      QVERIFY(Map.Shows(Map.Panel().CoordinatesViewInfo()));
      Map.Control.OptionsBehavior().SetScrolling(false);
      QVERIFY(!Map.Shows(Map.Panel().ScrollButtonsViewInfo()));
      Map.Control.OptionsBehavior().SetZooming(false);
      QVERIFY(!Map.Shows(Map.Panel().ZoomTrackBarViewInfo()));
      Map.Control.NavigationPanel().SetVisible(false);
      QVERIFY(!Map.Control.ViewInfo().VisibleElements().contains(&Map.Panel()));
    }
  }

  void trackBarThumbAndClicks()
  {
    TMap Map(QSize(800, 400));
    auto& Bar = Map.Panel().ZoomTrackBarViewInfo();
    const QRect Scale = Bar.ScaleViewInfo().Bounds();
    QCOMPARE(Bar.PixelsPerScaleInterval(), 7);
    // Level 1 sits half an interval in; level 4 three intervals on.
    QCOMPARE(Bar.ThumbViewInfo().Bounds().x(), Scale.x() + 3 - 5);
    Map.Control.SetZoomLevel(4);
    QCOMPARE(Bar.ThumbViewInfo().Bounds().x(), Scale.x() + 21 + 3 - 5);

    // A press on the scale sets round(offset / interval), without the +1 of
    // the thumb's own position.
    Bar.SetZoomLevelByThumbPosition(Scale.x() + 7 * 6);
    QCOMPARE(Map.Control.ZoomLevel(), 6.0);
    Bar.SetZoomLevelByThumbPosition(Scale.x() + 7 * 6 + 3);
    QCOMPARE(Map.Control.ZoomLevel(), 6.0);
    Bar.SetZoomLevelByThumbPosition(Scale.x());
    QCOMPARE(Map.Control.ZoomLevel(), 1.0);

    // The buttons click through the controller.
    const QPoint In = Bar.ZoomInButtonViewInfo().Bounds().center();
    // No move before the press, as with a tap on a touch screen.
    QTest::mouseClick(&Map.Control, Qt::LeftButton, {}, In);
    QCOMPARE(Map.Control.ZoomLevel(), 2.0);
    const QPoint Out = Bar.ZoomOutButtonViewInfo().Bounds().center();
    Map.MoveMouse(Out);
    QTest::mouseClick(&Map.Control, Qt::LeftButton, {}, Out);
    QCOMPARE(Map.Control.ZoomLevel(), 1.0);
  }

  void scrollButtonsScrollByTheirDistanceFromTheCentre()
  {
    TMap Map(QSize(800, 400));
    Map.Control.SetZoomLevel(5);
    auto& Buttons = Map.Panel().ScrollButtonsViewInfo();
    const QPoint Press = Buttons.Center() + QPoint(20, 0);
    const double Before = Map.Control.ActualCenterPoint().Longitude;
    QTest::mousePress(&Map.Control, Qt::LeftButton, {}, Press);
    QVERIFY(Buttons.IsScrolling());
    const double Step = Map.Control.ActualCenterPoint().Longitude - Before;
    // 20 pixels at level 5: 360 degrees over 8192 pixels.
    QVERIFY2(std::abs(Step - 20 * 360.0 / 8192) < 1e-6, qPrintable(QString::number(Step)));
    Buttons.ScrollTimerTick();
    QVERIFY(std::abs(Map.Control.ActualCenterPoint().Longitude - Before - 2 * Step) < 1e-6);
    // A pressed button never starts a pan of the map.
    QTest::mouseMove(&Map.Control, Press + QPoint(0, 10));
    QCOMPARE(Map.Control.DragMode(), 0);
    QTest::mouseRelease(&Map.Control, Qt::LeftButton, {}, Press + QPoint(0, 10));
    QVERIFY(!Buttons.IsScrolling());
  }

  void coordinateText_data()
  {
    QTest::addColumn<QString>("mask");
    QTest::addColumn<double>("latitude");
    QTest::addColumn<double>("longitude");
    QTest::addColumn<QString>("expected");

    const QString Deg(QChar(176));
    QTest::newRow("no mask") << QString() << 47.26 << -8.54 << "47.3" + Deg + "N    8.5" + Deg + "W";
    QTest::newRow("zero is south and west") << QString() << 0.0 << 0.0 << "0.0" + Deg + "S    0.0" + Deg + "W";
    QTest::newRow("window mask") << "{CP}{D:6}" + Deg << 47.123456789 << 8.5
                                 << "N47.123457" + Deg + "    E8.500000" + Deg;
    QTest::newRow("window mask at zero") << "{CP}{D:6}" + Deg << 0.0 << 0.0
                                         << "S0.000000" + Deg + "    W0.000000" + Deg;
    QTest::newRow("degrees minutes seconds") << "{D}" + Deg + "{M}'{S}\"{CP}" << 47.5083 << -122.25
                                             << "47" + Deg + "30'29\"N    122" + Deg + "15'0\"W";
    QTest::newRow("lower case and decimal minutes") << "{cp} {d} {m:2}" << -33.5125 << 151.2
                                                    << "S 33 30.75    E 151 12.00";
    QTest::newRow("unknown braces vanish") << "{X}{CP}{Q:3}" << 10.0 << 20.0 << "N    E";
    QTest::newRow("an open brace ends the mask") << "{CP}{D" << 10.0 << 20.0 << "N    E";
    QTest::newRow("a mask without braces stands whole") << "Lat" << 10.0 << 20.0 << "Lat    Lat";
  }

  void coordinateText()
  {
    QFETCH(QString, mask);
    QFETCH(double, latitude);
    QFETCH(double, longitude);
    const QString Pattern = mask.isEmpty() ? QString() : vxMapControlCoordinates::ParsePattern(mask);
    QTEST(vxMapControlCoordinates::GeoPointToText(TvxMapControlGeoPoint::Create(latitude, longitude), Pattern,
                                                  Pattern),
          "expected");
  }

  // A position that is no number (a marker's unreadable text) once went
  // through an integer conversion, which UBSan reported: now the whole
  // fields read 0 and the text is still made.
  void coordinateTextNanFinding()
  {
    const QString Deg(QChar(176));
    const QString Pattern = vxMapControlCoordinates::ParsePattern("{D}" + Deg + "{M}'{S}\"{CP}");
    const double NaN = std::numeric_limits<double>::quiet_NaN();
    const QString Text =
      vxMapControlCoordinates::GeoPointToText(TvxMapControlGeoPoint::Create(NaN, 1e300), Pattern, Pattern);
    QVERIFY2(Text.startsWith("0" + Deg + "0'0\""), qPrintable(Text));
  }

  void coordinatesFollowTheMouseAndKeepTheirSize()
  {
    TMap Map(QSize(800, 400));
    const QString Deg(QChar(176));
    Map.Control.NavigationPanel().SetXCoordinateDisplayMask("{CP}{D:6}" + Deg);
    Map.Control.NavigationPanel().SetYCoordinateDisplayMask("{CP}{D:6}" + Deg);
    auto& Coordinates = Map.Panel().CoordinatesViewInfo();
    const QSize Size = Coordinates.Size();
    // The centre of the view is the centre point (0, 0).
    Map.MoveMouse(QPoint(400, 200));
    QCOMPARE(Coordinates.Text(), "S0.000000" + Deg + "    W0.000000" + Deg);
    // Over the panel too, and the element keeps its size.
    Map.MoveMouse(QPoint(400 + 128, 380));
    QVERIFY2(Coordinates.Text().endsWith("E90.000000" + Deg), qPrintable(Coordinates.Text()));
    Map.Control.Changed();
    QCOMPARE(Coordinates.Size(), Size);
  }

  // A formatter takes the masks' place at once: the text goes through it,
  // the widest text sizes the element whatever the mouse does, and an
  // empty formatter gives the masks back, size and all.
  void coordinateFormatterStandsInForTheMasks()
  {
    // Wide enough for the scale beside the wider text.
    TMap Map(QSize(1200, 400));
    const QString Deg(QChar(176));
    TvxMapControlNavigationPanel& Panel = Map.Control.NavigationPanel();
    Panel.SetXCoordinateDisplayMask("{CP}{D:6}" + Deg);
    Panel.SetYCoordinateDisplayMask("{CP}{D:6}" + Deg);
    auto& Coordinates = Map.Panel().CoordinatesViewInfo();
    const QSize MaskSize = Coordinates.Size();
    Map.MoveMouse(QPoint(600 + 128, 200));

    const QString Widest = QStringLiteral("grid WWWWWWWWWWWWWWWWWWWWWWWW");
    Panel.SetCoordinateFormatter(
      [](const TvxMapControlGeoPoint& APoint) { return QStringLiteral("grid %1 %2").arg(APoint.Latitude).arg(APoint.Longitude); },
      Widest);
    QCOMPARE(Coordinates.Text(), QStringLiteral("grid 0 90"));
    const QSize Size = Coordinates.Size();
    QCOMPARE(Size.width(), QFontMetrics(Panel.Style().CoordinateFont()).horizontalAdvance(Widest));
    QVERIFY(Size.width() > MaskSize.width());
    QCOMPARE(Right(Coordinates.Bounds()), Map.Panel().ScaleViewInfo().Bounds().x() - 15);

    Map.MoveMouse(QPoint(600, 200));
    QCOMPARE(Coordinates.Text(), QStringLiteral("grid 0 0"));
    Map.Control.Changed();
    QCOMPARE(Coordinates.Size(), Size);

    Panel.SetCoordinateFormatter(nullptr, QString());
    QCOMPARE(Coordinates.Text(), "S0.000000" + Deg + "    W0.000000" + Deg);
    QCOMPARE(Coordinates.Size(), MaskSize);
  }

  void scaleRanges_data()
  {
    QTest::addColumn<double>("kilometres");
    QTest::addColumn<QString>("metersText");
    QTest::addColumn<int>("kilometersWidth");
    QTest::addColumn<QString>("milesText");
    QTest::addColumn<QString>("milesMeasure");
    QTest::addColumn<int>("milesWidth");

    QTest::newRow("thousands") << 1000.0 << "1000" << 130 << "500" << "mi" << 105;
    QTest::newRow("2.5 reads 2, its line stays") << 3.0 << "2" << 108 << "1" << "mi" << 70;
    QTest::newRow("metres and feet") << 0.3 << "250" << 108 << "500" << "ft" << 66;
    QTest::newRow("below the smallest metric range") << 0.004 << "" << 0 << "10" << "ft" << 99;
    QTest::newRow("beyond the largest range") << 20000.0 << "10000" << 65 << "10000" << "mi" << 105;
    QTest::newRow("no scale at all") << 0.0 << "" << 0 << "" << "" << 0;
    QTest::newRow("not a number") << qQNaN() << "" << 0 << "" << "" << 0;
  }

  void scaleRanges()
  {
    QFETCH(double, kilometres);
    const TvxMapControlScaleLengths Lengths = vxCalculateScaleLineLength(kilometres, 130);
    QTEST(Lengths.MetersText, "metersText");
    QTEST(Lengths.KilometersLineWidth, "kilometersWidth");
    QTEST(Lengths.MilesText, "milesText");
    QTEST(Lengths.MilesMeasure, "milesMeasure");
    QTEST(Lengths.MilesLineWidth, "milesWidth");
  }

  void scaleElementLabels()
  {
    TMap Map(QSize(800, 400));
    Map.Control.SetCenterPoint(TvxMapControlGeoPoint::Create(0, 10));
    Map.Control.SetZoomLevel(4);
    auto& Scale = Map.Panel().ScaleViewInfo();
    QVERIFY(Scale.IsKilometersVisible() && Scale.IsMilesVisible());
    // 130 pixels at level 4 on the equator cover 1016 km: the 1000 range.
    QCOMPARE(Scale.MetersText(), QString("1000 km"));
    QCOMPARE(Scale.MilesText(), QString("500 mi"));
    QVERIFY(Scale.MilesTextBounds().y() > Scale.ScaleBounds().y());
    Map.Control.NavigationPanel().SetShowMilesScale(false);
    QVERIFY(!Scale.IsMilesVisible());
    QCOMPARE(Scale.ScaleBounds().height(), 9);
  }

  void goldenImage()
  {
    TMap Map(QSize(840, 400));
    Map.Layer->SetMarks({TvxMapControlGeoPoint::Create(47.37, 8.54), TvxMapControlGeoPoint::Create(51.5, -0.12),
                         TvxMapControlGeoPoint::Create(40.42, -3.7)});
    const QString Deg(QChar(176));
    Map.Control.NavigationPanel().SetXCoordinateDisplayMask("{CP}{D:6}" + Deg);
    Map.Control.NavigationPanel().SetYCoordinateDisplayMask("{CP}{D:6}" + Deg);
    Map.Control.SetCenterPoint(TvxMapControlGeoPoint::Create(46, 5));
    Map.Control.SetZoomLevel(4.5);
    Map.MoveMouse(QPoint(320, 150));

    QImage Actual(Map.Control.size(), QImage::Format_ARGB32);
    Map.Control.render(&Actual);
    const QString Failure = vxCheckGoldenImage(Actual, QStringLiteral(MAPWRIGHT_GOLDEN_DIR), "map_control");
    if (Failure == "written")
      QSKIP("golden image written");
    QVERIFY2(Failure.isEmpty(), qPrintable(Failure));
  }
};

MAPWRIGHT_TEST_CLASS(TestNavigationPanel)

#include "tst_vxMapControlNavigationPanel.moc"
