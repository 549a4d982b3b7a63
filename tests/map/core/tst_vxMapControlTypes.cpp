#include "TestRegistry.h"
#include "vxMapControlProjections.h"
#include "vxMapControlTypes.h"
#include "vxMapUnitConverter.h"

#include <QLocale>
#include <QScopeGuard>
#include <QSet>
#include <QTest>

#include <cmath>
#include <limits>

#define COMPARE_NEAR(Actual, Expected, Epsilon)                                                             \
  QVERIFY2(std::abs((Actual) - (Expected)) <= (Epsilon),                                                    \
           qPrintable(QStringLiteral("%1 is not within %3 of %2")                                           \
                        .arg(Actual, 0, 'g', 17)                                                            \
                        .arg(Expected, 0, 'g', 17)                                                          \
                        .arg(Epsilon)))

namespace
{
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

// Hands points through unchanged (X is longitude, Y latitude), so that what
// the converter does before the projection shows in the result.
class TPassThroughCalculator : public TvxMapControlProjectionCalculator
{
public:
  double MaxLatitudeInternal() const override { return 1000; }
  double MaxLongitudeInternal() const override { return 1000; }
  double MinLatitudeInternal() const override { return -1000; }
  double MinLongitudeInternal() const override { return -1000; }
  double GetGeoPointLatitude(double AMapUnitY, double, double) const override { return AMapUnitY; }
  double GetGeoPointLongitude(double AMapUnitX, double, double) const override { return AMapUnitX; }
  double GetMapUnitX(double ALongitude, double, double) const override { return ALongitude; }
  double GetMapUnitY(double ALatitude, double, double) const override { return ALatitude; }
};

class TPassThroughProjection : public TvxMapControlCustomProjection
{
protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override
  {
    return std::make_unique<TPassThroughCalculator>();
  }
};
}

class TestVxMapControlTypes : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void sameValue_data();
  void sameValue();
  void geoPointValidity_data();
  void geoPointValidity();
  void geoRectValidityAndEquality();
  void valueTypeLayout();
  void textIgnoresLocale();
  void locationChangeRules();
  void tileIndexHashCoversAllFields();
  void normalisation_data();
  void normalisation();
  void converterWithoutProjectionOrWithNaN();
  void mapUnitToScreen_data();
  void mapUnitToScreen();
  void screenToMapUnit_data();
  void screenToMapUnit();
};

void TestVxMapControlTypes::sameValue_data()
{
  QTest::addColumn<double>("a");
  QTest::addColumn<double>("b");
  QTest::addColumn<bool>("same");
  QTest::newRow("identical") << 5.0 << 5.0 << true;
  QTest::newRow("1e-13 apart near zero") << 0.0 << 1e-13 << true;
  QTest::newRow("absolute floor is inclusive") << 0.0 << 1e-12 << true;
  QTest::newRow("2e-12 apart near zero") << 0.0 << 2e-12 << false;
  QTest::newRow("relative tolerance at 1e6") << 1e6 << 1e6 + 1e-7 << true;
  QTest::newRow("beyond relative tolerance at 1e6") << 1e6 << 1e6 + 1e-5 << false;
  QTest::newRow("NaN equals not even NaN") << NaN << NaN << false;
  QTest::newRow("NaN against a number") << NaN << 0.0 << false;
}

void TestVxMapControlTypes::sameValue()
{
  QFETCH(double, a);
  QFETCH(double, b);
  QFETCH(bool, same);
  QCOMPARE(vxSameValue(a, b), same);
  QCOMPARE(vxSameValue(b, a), same);
  QCOMPARE(TvxMapControlGeoPoint::Create(a, 1).IsEqual(TvxMapControlGeoPoint::Create(b, 1)), same);
  QCOMPARE(TvxMapControlGeoPoint::Create(1, a).IsEqual(TvxMapControlGeoPoint::Create(1, b)), same);
}

void TestVxMapControlTypes::geoPointValidity_data()
{
  QTest::addColumn<double>("latitude");
  QTest::addColumn<double>("longitude");
  QTest::addColumn<bool>("valid");
  QTest::newRow("north-east corner included") << 90.0 << 180.0 << true;
  QTest::newRow("south-west corner included") << -90.0 << -180.0 << true;
  QTest::newRow("just past the pole") << 90.0000001 << 0.0 << false;
  QTest::newRow("just past the antimeridian") << 0.0 << -180.0000001 << false;
  QTest::newRow("NaN latitude") << NaN << 0.0 << false;
  QTest::newRow("NaN longitude") << 0.0 << NaN << false;
  QTest::newRow("infinite latitude") << std::numeric_limits<double>::infinity() << 0.0 << false;
}

void TestVxMapControlTypes::geoPointValidity()
{
  QFETCH(double, latitude);
  QFETCH(double, longitude);
  QFETCH(bool, valid);
  QCOMPARE(TvxMapControlGeoPoint::Create(latitude, longitude).IsValid(), valid);
}

void TestVxMapControlTypes::geoRectValidityAndEquality()
{
  const auto Rect = TvxMapControlGeoRect::Create(10, -20, -10, 20);
  QVERIFY(Rect.IsValid());
  QVERIFY(!TvxMapControlGeoRect::Create(10, -20, 10, 20).IsValid());          // no height
  QVERIFY(!TvxMapControlGeoRect::Create(10, 20, -10, 20).IsValid());          // no width
  QVERIFY(!TvxMapControlGeoRect::Create(10, 170, -10, -170).IsValid());       // across the antimeridian
  QVERIFY(!TvxMapControlGeoRect::Create(90.5, -20, -10, 20).IsValid());       // corner off the globe
  QVERIFY(!TvxMapControlGeoRect::Create(NaN, -20, -10, 20).IsValid());

  QCOMPARE(Rect.TopLeft().Latitude, 10.0);
  QCOMPARE(Rect.BottomRight().Longitude, 20.0);
  QVERIFY(Rect.IsEqual(TvxMapControlGeoRect::Create(10, -20, -10 + 1e-13, 20)));
  QVERIFY(!Rect.IsEqual(TvxMapControlGeoRect::Create(10, -20, -10, 20 + 1e-9)));
  QVERIFY(!Rect.IsEqual(TvxMapControlGeoRect::Create(10 + 1e-9, -20, -10, 20)));
}

void TestVxMapControlTypes::valueTypeLayout()
{
  // The size record stores height first while its maker takes width first.
  const TvxSizeDouble Size = vxSizeDouble(3, 4);
  QCOMPARE(Size.Width, 3.0);
  QCOMPARE(Size.Height, 4.0);
  const TvxSizeDouble Raw{1, 2};
  QCOMPARE(Raw.Height, 1.0);

  const TvxRectDouble Rect(0.25, 0.5, 0.5, 0.25);
  QCOMPARE(Rect.BottomRight(), TvxPointDouble(0.75, 0.75));
  QVERIFY(!Rect.IsEmpty());
  QVERIFY(TvxRectDouble(0, 0, 1, 0).IsEmpty());
  QVERIFY(TvxRectDouble(0, 0, NaN, 1).IsEmpty());
  QVERIFY(vxNullRectDouble.IsEmpty());
}

void TestVxMapControlTypes::textIgnoresLocale()
{
  const QLocale Saved;
  const auto Restore = qScopeGuard([&] { QLocale::setDefault(Saved); });
  QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
  QCOMPARE(QLocale().decimalPoint(), QStringLiteral(","));

  QCOMPARE(TvxMapControlGeoPoint::Create(1.5, -2.25).AsString(), QStringLiteral("1.5,-2.25"));
  // Shortest form that reads back exactly, and no group separators.
  QCOMPARE(TvxMapControlGeoPoint::Create(0.1 + 0.2, 1234567.25).AsString(),
           QStringLiteral("0.30000000000000004,1234567.25"));
  QCOMPARE(TvxMapControlGeoRect::Create(-33.5, 151.125, -33.75, 151.25).AsString(),
           QStringLiteral("-33.75,151.125,-33.5,151.25"));
}

void TestVxMapControlTypes::locationChangeRules()
{
  TvxMapControlGeoLocation Location;
  int Fired = 0;
  Location.OnChanged = [&](TvxMapControlGeoLocation*) { ++Fired; };
  Location.SetGeoPoint(TvxMapControlGeoPoint::Create(10, 20));
  QCOMPARE(Fired, 1);

  // The point path uses the tolerance rule, the component paths compare exactly.
  Location.SetGeoPoint(TvxMapControlGeoPoint::Create(10 + 1e-13, 20));
  QCOMPARE(Fired, 1);
  Location.SetLatitude(10 + 1e-13);
  QCOMPARE(Fired, 2);
  Location.SetLatitude(10 + 1e-13);
  Location.SetLongitude(20);
  QCOMPARE(Fired, 2);

  TvxMapControlGeoLocation Other;
  Other.SetGeoPoint(TvxMapControlGeoPoint::Create(10, 20));
  Location.Assign(Other);
  QCOMPARE(Fired, 2);
  QCOMPARE(Location.Latitude(), 10 + 1e-13);

  TvxMapControlGeoRectPersistent Rect;
  int RectFired = 0;
  Rect.OnChanged = [&](TvxMapControlGeoRectPersistent*) { ++RectFired; };
  Rect.SetGeoRect(TvxMapControlGeoRect::Create(1e-13, 0, 0, 0));
  QCOMPARE(RectFired, 0);
  Rect.SetNorthLatitude(1e-13);
  QCOMPARE(RectFired, 1);
}

void TestVxMapControlTypes::tileIndexHashCoversAllFields()
{
  QSet<size_t> Hashes;
  for (int Level = 0; Level < 4; ++Level)
    for (int Y = 0; Y < 8; ++Y)
      for (int X = 0; X < 8; ++X)
        Hashes.insert(qHash(TvxMapControlTileIndex{X, Y, Level}));
  QCOMPARE(Hashes.size(), 4 * 8 * 8);
  QVERIFY(!vxMapControlTileIndexIsEqual({1, 2, 3}, {2, 1, 3}));
  QVERIFY(!vxMapControlTileIndexIsEqual({1, 2, 3}, vxMapControlInvalidTileIndex));
}

void TestVxMapControlTypes::normalisation_data()
{
  QTest::addColumn<double>("latitude");
  QTest::addColumn<double>("longitude");
  QTest::addColumn<bool>("normalise");
  QTest::addColumn<double>("expectedLatitude");
  QTest::addColumn<double>("expectedLongitude");
  QTest::newRow("360 wraps to 0") << 0.0 << 360.0 << true << 0.0 << 0.0;
  QTest::newRow("190 wraps to -170") << 0.0 << 190.0 << true << 0.0 << -170.0;
  QTest::newRow("-190 wraps to 170") << 0.0 << -190.0 << true << 0.0 << 170.0;
  QTest::newRow("two turns and a bit") << 0.0 << 730.0 << true << 0.0 << 10.0;
  QTest::newRow("latitude 91 clamps to 90") << 91.0 << 0.0 << true << 90.0 << 0.0;
  QTest::newRow("latitude -91 clamps to -90") << -91.0 << 10.0 << true << -90.0 << 10.0;
  QTest::newRow("unchanged without normalising") << 91.0 << 190.0 << false << 91.0 << 190.0;
}

void TestVxMapControlTypes::normalisation()
{
  QFETCH(double, latitude);
  QFETCH(double, longitude);
  QFETCH(bool, normalise);
  QFETCH(double, expectedLatitude);
  QFETCH(double, expectedLongitude);
  const TPassThroughProjection Projection;
  const TvxPointDouble Unit =
    TvxMapUnitConverter::GeoPointToMapUnit(TvxMapControlGeoPoint::Create(latitude, longitude), &Projection, normalise);
  COMPARE_NEAR(Unit.Y, expectedLatitude, 1e-9);
  COMPARE_NEAR(Unit.X, expectedLongitude, 1e-9);
}

void TestVxMapControlTypes::converterWithoutProjectionOrWithNaN()
{
  const auto Geo = TvxMapControlGeoPoint::Create(45, 45);
  QCOMPARE(TvxMapUnitConverter::GeoPointToMapUnit(Geo, nullptr, true), vxNullPointDouble);
  const TvxMapControlGeoPoint Back = TvxMapUnitConverter::MapUnitToGeoPoint({0.3, 0.3}, nullptr, true);
  QCOMPARE(Back.Latitude, 0.0);
  QCOMPARE(Back.Longitude, 0.0);

  // Map units are clamped to the world only when asked to.
  const TPassThroughProjection PassThrough;
  const TvxMapControlGeoPoint Clamped = TvxMapUnitConverter::MapUnitToGeoPoint({1.5, -0.2}, &PassThrough, true);
  QCOMPARE(Clamped.Longitude, 1.0);
  QCOMPARE(Clamped.Latitude, 0.0);
  QCOMPARE(TvxMapUnitConverter::MapUnitToGeoPoint({1.5, -0.2}, &PassThrough, false).Latitude, -0.2);

  // NaN is neither clamped into a plausible edge nor a crash.
  const TvxPointDouble NaNUnit = TvxMapUnitConverter::GeoPointToMapUnit({NaN, NaN}, &PassThrough, true);
  QVERIFY(std::isnan(NaNUnit.X) && std::isnan(NaNUnit.Y));
  QVERIFY(std::isnan(TvxMapUnitConverter::ScreenPointToMapUnit({NaN, 0}, {0, 0, 1, 1}, {256, 256}).X));

  const auto InRangeOrNaN = [](double AValue, double ALimit) {
    return std::isnan(AValue) || (AValue >= -ALimit && AValue <= ALimit);
  };
  const TvxMapControlGeoPoint NaNPoints[] = {{NaN, NaN}, {NaN, 10}, {10, NaN}};
  const TvxPointDouble NaNUnits[] = {{NaN, NaN}, {NaN, 0.5}, {0.5, NaN}};
  for (const QString& Name : vxRegisteredMapProjections().Names())
  {
    const auto Projection = vxRegisteredMapProjections().Create(Name);
    for (const bool Normalise : {false, true})
    {
      for (const auto& Point : NaNPoints)
      {
        const TvxPointDouble Unit = TvxMapUnitConverter::GeoPointToMapUnit(Point, Projection.get(), Normalise);
        QVERIFY2(!std::isinf(Unit.X) && !std::isinf(Unit.Y), qPrintable(Name));
      }
      for (const auto& Unit : NaNUnits)
      {
        const TvxMapControlGeoPoint Point = TvxMapUnitConverter::MapUnitToGeoPoint(Unit, Projection.get(), Normalise);
        QVERIFY2(InRangeOrNaN(Point.Latitude, 90) && InRangeOrNaN(Point.Longitude, 180), qPrintable(Name));
      }
    }
  }
}

void TestVxMapControlTypes::mapUnitToScreen_data()
{
  QTest::addColumn<TvxPointDouble>("unit");
  QTest::addColumn<TvxRectDouble>("viewport");
  QTest::addColumn<TvxPointDouble>("expected");
  const TvxRectDouble Zoomed(0.25, 0.25, 0.5, 0.5);
  QTest::newRow("centre of a zoomed viewport") << TvxPointDouble(0.5, 0.5) << Zoomed << TvxPointDouble(400, 300);
  QTest::newRow("outside the viewport is not clamped") << TvxPointDouble(0, 1) << Zoomed << TvxPointDouble(-400, 900);
  QTest::newRow("zero-width viewport") << TvxPointDouble(0.5, 0.5) << TvxRectDouble(0.25, 0.25, 0, 0.5)
                                       << vxNullPointDouble;
  QTest::newRow("zero-height viewport") << TvxPointDouble(0.5, 0.5) << TvxRectDouble(0.25, 0.25, 0.5, 0)
                                        << vxNullPointDouble;
}

void TestVxMapControlTypes::mapUnitToScreen()
{
  QFETCH(TvxPointDouble, unit);
  QFETCH(TvxRectDouble, viewport);
  QFETCH(TvxPointDouble, expected);
  const TvxPointDouble Screen = TvxMapUnitConverter::MapUnitToScreenPoint(unit, viewport, QSize(800, 600));
  COMPARE_NEAR(Screen.X, expected.X, 1e-9);
  COMPARE_NEAR(Screen.Y, expected.Y, 1e-9);
}

void TestVxMapControlTypes::screenToMapUnit_data()
{
  QTest::addColumn<TvxPointDouble>("screen");
  QTest::addColumn<TvxRectDouble>("viewport");
  QTest::addColumn<QSize>("pixels");
  QTest::addColumn<TvxPointDouble>("expected");
  QTest::newRow("inverse of the centre") << TvxPointDouble(400, 300) << TvxRectDouble(0.25, 0.25, 0.5, 0.5)
                                         << QSize(800, 600) << TvxPointDouble(0.5, 0.5);
  QTest::newRow("beyond the top-left edge") << TvxPointDouble(-10, -10) << TvxRectDouble(0, 0, 1, 1)
                                            << QSize(256, 256) << TvxPointDouble(0, 0);
  QTest::newRow("beyond the bottom-right edge") << TvxPointDouble(1000, 1000) << TvxRectDouble(0.5, 0.5, 0.5, 0.5)
                                                << QSize(256, 256) << TvxPointDouble(1, 1);
  QTest::newRow("no pixels") << TvxPointDouble(10, 10) << TvxRectDouble(0.25, 0.25, 0.5, 0.5) << QSize(0, 256)
                             << vxNullPointDouble;
}

void TestVxMapControlTypes::screenToMapUnit()
{
  QFETCH(TvxPointDouble, screen);
  QFETCH(TvxRectDouble, viewport);
  QFETCH(QSize, pixels);
  QFETCH(TvxPointDouble, expected);
  const TvxPointDouble Unit = TvxMapUnitConverter::ScreenPointToMapUnit(screen, viewport, pixels);
  COMPARE_NEAR(Unit.X, expected.X, 1e-12);
  COMPARE_NEAR(Unit.Y, expected.Y, 1e-12);
}

MAPWRIGHT_TEST_CLASS(TestVxMapControlTypes)

#include "tst_vxMapControlTypes.moc"
