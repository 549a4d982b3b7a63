#include "TestRegistry.h"
#include "vxMapControlProjections.h"
#include "vxMapUnitConverter.h"

#include <QRandomGenerator>
#include <QTest>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

#define COMPARE_NEAR(Actual, Expected, Epsilon)                                                             \
  QVERIFY2(std::abs((Actual) - (Expected)) <= (Epsilon),                                                    \
           qPrintable(QStringLiteral("%1 is not within %3 of %2")                                           \
                        .arg(Actual, 0, 'g', 17)                                                            \
                        .arg(Expected, 0, 'g', 17)                                                          \
                        .arg(Epsilon)))

namespace
{
constexpr double Pi = std::numbers::pi;

std::unique_ptr<TvxMapControlCustomProjection> Create(const QString& AName)
{
  auto Result = vxRegisteredMapProjections().Create(AName);
  if (!Result)
    qFatal("no projection %s", qPrintable(AName));
  return Result;
}

TvxPointDouble Forward(const TvxMapControlCustomProjection& AProjection, double ALatitude, double ALongitude)
{
  return AProjection.GeoPointToMapUnit(TvxMapControlGeoPoint::Create(ALatitude, ALongitude));
}

// Bit for bit, with any NaN equal to any other.
bool SameBits(double A, double B)
{
  return std::memcmp(&A, &B, sizeof(double)) == 0 || (std::isnan(A) && std::isnan(B));
}

// A built-in calculator with one slot changed: Y is the latitude itself.
class TFlatMercatorCalculator : public TvxMapControlSphericalMercatorProjectionCalculator
{
public:
  double GetMapUnitY(double ALatitude, double, double) const override { return ALatitude; }
};

class TFlatMercatorProjection : public TvxMapControlSphericalMercatorProjection
{
protected:
  std::unique_ptr<TvxMapControlProjectionCalculator> CreateProjectionCalculator() const override
  {
    return std::make_unique<TFlatMercatorCalculator>();
  }
};
}

class TestVxMapControlProjections : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void roundTrip_data();
  void roundTrip();
  void worldShape_data();
  void worldShape();
  void forwardClampsLatitude_data();
  void forwardClampsLatitude();
  void inverseEdgeCases();
  void sphericalMercatorMatchesEpsg3857();
  void sinusoidalKeepsSettledEdgeRule();
  void sizeConversion();
  void updateLockFiresOnce();
  void assignCopiesNumbersNotFormulas();
  void registry();
  void bulkGivesTheBitsOfSinglePoints();
};

void TestVxMapControlProjections::roundTrip_data()
{
  QTest::addColumn<QString>("name");
  QTest::addColumn<double>("latitude");
  QTest::addColumn<double>("longitude");
  const std::pair<const char*, double> Projections[] = {
    {"SphericalMercatorProjection", 85},   {"EllipticalMercatorProjection", 85},
    {"MillerProjection", 89.5},            {"EquirectangularProjection", 89.5},
    {"EqualAreaProjection", 89.5},         {"LambertCylindricalEqualAreaProjection", 89.5},
    {"BraunStereographicProjection", 89.5}, {"KavrayskiyProjection", 89.5},
    {"SinusoidalProjection", 89.5},        {"EPSG4326Projection", 90}};
  for (const auto& [Name, Limit] : Projections)
  {
    const std::pair<double, double> Points[] = {
      {0, 0}, {51.5, -0.1}, {-33.9, 151.2}, {12.25, -170}, {Limit, 179.9}, {-Limit, -179.9}};
    for (const auto& [Latitude, Longitude] : Points)
      QTest::addRow("%s %g,%g", Name, Latitude, Longitude) << QString::fromLatin1(Name) << Latitude << Longitude;
  }
}

void TestVxMapControlProjections::roundTrip()
{
  QFETCH(QString, name);
  QFETCH(double, latitude);
  QFETCH(double, longitude);
  const auto Projection = Create(name);
  const TvxMapControlGeoPoint Back = Projection->MapUnitToGeoPoint(Forward(*Projection, latitude, longitude));
  COMPARE_NEAR(Back.Latitude, latitude, 1e-6);
  COMPARE_NEAR(Back.Longitude, longitude, 1e-6);
}

void TestVxMapControlProjections::worldShape_data()
{
  // The north edge depends on each class's own default ScaleY.
  QTest::addColumn<QString>("name");
  QTest::addColumn<double>("northLatitude");
  QTest::addColumn<double>("northY");
  QTest::newRow("spherical Mercator") << "SphericalMercatorProjection" << 85.05112878 << 0.0;
  QTest::newRow("elliptical Mercator") << "EllipticalMercatorProjection" << 85.08405905 << 0.0;
  QTest::newRow("Miller") << "MillerProjection" << 90.0 << 0.1;
  QTest::newRow("equirectangular") << "EquirectangularProjection" << 90.0 << 0.25;
  QTest::newRow("equal area") << "EqualAreaProjection" << 90.0 << 0.5 - 1 / Pi;
  QTest::newRow("Lambert") << "LambertCylindricalEqualAreaProjection" << 90.0 << 0.5 - 1 / (2 * Pi);
  QTest::newRow("Braun") << "BraunStereographicProjection" << 90.0 << 0.5 - 1 / Pi;
  QTest::newRow("Kavrayskiy") << "KavrayskiyProjection" << 90.0 << 0.25;
  QTest::newRow("sinusoidal") << "SinusoidalProjection" << 90.0 << 0.25;
  QTest::newRow("EPSG:4326") << "EPSG4326Projection" << 90.0 << 0.0;
}

void TestVxMapControlProjections::worldShape()
{
  QFETCH(QString, name);
  QFETCH(double, northLatitude);
  QFETCH(double, northY);
  const auto Projection = Create(name);
  const TvxPointDouble Centre = Forward(*Projection, 0, 0);
  COMPARE_NEAR(Centre.X, 0.5, 1e-12);
  COMPARE_NEAR(Centre.Y, 0.5, 1e-12);
  COMPARE_NEAR(Forward(*Projection, 0, -180).X, 0.0, 1e-12);
  COMPARE_NEAR(Forward(*Projection, 0, 180).X, 1.0, 1e-12);
  COMPARE_NEAR(Forward(*Projection, northLatitude, 0).Y, northY, 1e-9);
  COMPARE_NEAR(Forward(*Projection, -northLatitude, 0).Y, 1 - northY, 1e-9);
}

void TestVxMapControlProjections::forwardClampsLatitude_data()
{
  QTest::addColumn<QString>("name");
  QTest::addColumn<double>("beyond");
  QTest::addColumn<double>("limit");
  const char* const Names[] = {"MillerProjection",      "EquirectangularProjection", "EqualAreaProjection",
                               "LambertCylindricalEqualAreaProjection", "BraunStereographicProjection",
                               "KavrayskiyProjection",  "SinusoidalProjection",      "EPSG4326Projection"};
  QTest::newRow("SphericalMercatorProjection 90") << "SphericalMercatorProjection" << 90.0 << 85.05112878;
  QTest::newRow("SphericalMercatorProjection -90") << "SphericalMercatorProjection" << -90.0 << -85.05112878;
  for (const char* Name : Names)
  {
    QTest::addRow("%s 95", Name) << QString::fromLatin1(Name) << 95.0 << 90.0;
    QTest::addRow("%s -120", Name) << QString::fromLatin1(Name) << -120.0 << -90.0;
  }
}

void TestVxMapControlProjections::forwardClampsLatitude()
{
  QFETCH(QString, name);
  QFETCH(double, beyond);
  QFETCH(double, limit);
  const auto Projection = Create(name);
  const TvxPointDouble Clamped = Forward(*Projection, beyond, 30);
  const TvxPointDouble AtLimit = Forward(*Projection, limit, 30);
  COMPARE_NEAR(Clamped.X, AtLimit.X, 1e-12);
  COMPARE_NEAR(Clamped.Y, AtLimit.Y, 1e-12);
}

void TestVxMapControlProjections::inverseEdgeCases()
{
  // Spherical Mercator: the top-left corner of the map is its limit.
  const auto Mercator = Create("SphericalMercatorProjection");
  const TvxMapControlGeoPoint TopLeft = Mercator->MapUnitToGeoPoint({0, 0});
  COMPARE_NEAR(TopLeft.Latitude, 85.05112878, 1e-6);
  COMPARE_NEAR(TopLeft.Longitude, -180.0, 1e-9);

  // Elliptical Mercator clamps at a fixed 89 degrees and never leaves the map.
  const auto Elliptical = Create("EllipticalMercatorProjection");
  QCOMPARE(Forward(*Elliptical, 90, 0).Y, 0.0);
  QCOMPARE(Forward(*Elliptical, -90, 0).Y, 1.0);
  Elliptical->SetScaleY(-0.05);
  QCOMPARE(Forward(*Elliptical, 90, 0).Y, Forward(*Elliptical, 89, 0).Y);
  QVERIFY(Forward(*Elliptical, 88.9, 0).Y > Forward(*Elliptical, 89, 0).Y);

  // Sinusoidal: Y past 0.75 reads as 0.75, the south pole.
  const auto Sinusoidal = Create("SinusoidalProjection");
  const TvxMapControlGeoPoint PastSouth = Sinusoidal->MapUnitToGeoPoint({0.6, 0.9});
  const TvxMapControlGeoPoint South = Sinusoidal->MapUnitToGeoPoint({0.6, 0.75});
  COMPARE_NEAR(South.Latitude, -90.0, 1e-12);
  QCOMPARE(PastSouth.Latitude, South.Latitude);
  QCOMPARE(PastSouth.Longitude, South.Longitude);

  // EPSG:4326 clamps both axes of the inverse, and (90, -180) is the origin.
  const auto Plain = Create("EPSG4326Projection");
  const TvxMapControlGeoPoint Outside = Plain->MapUnitToGeoPoint({1.5, -0.5});
  QCOMPARE(Outside.Latitude, 90.0);
  QCOMPARE(Outside.Longitude, 180.0);
  QCOMPARE(Forward(*Plain, 90, -180), TvxPointDouble(0, 0));

  // Kavrayskiy: far beyond the outline the longitude is the edge on its side.
  const auto Kavrayskiy = Create("KavrayskiyProjection");
  const TvxMapControlGeoPoint FarEast = Kavrayskiy->MapUnitToGeoPoint({0.6, -1});
  QCOMPARE(FarEast.Latitude, 90.0);
  QCOMPARE(FarEast.Longitude, 180.0);
  QCOMPARE(Kavrayskiy->MapUnitToGeoPoint({0.4, -1}).Longitude, -180.0);

  for (const char* Name : {"MillerProjection", "EqualAreaProjection", "BraunStereographicProjection"})
  {
    const auto Projection = Create(QString::fromLatin1(Name));
    COMPARE_NEAR(Projection->MapUnitToGeoPoint({0.5, -5}).Latitude, 90.0, 1e-12);
    COMPARE_NEAR(Projection->MapUnitToGeoPoint({0.5, 5}).Latitude, -90.0, 1e-12);
  }
}

void TestVxMapControlProjections::sphericalMercatorMatchesEpsg3857()
{
  const double R = 6378137;
  const double WorldWidth = 2 * Pi * R;
  const auto Projection = Create("SphericalMercatorProjection");
  for (double Latitude = -85; Latitude <= 85; Latitude += 5)
    for (double Longitude = -180; Longitude <= 180; Longitude += 15)
    {
      const double Lambda = Longitude * Pi / 180;
      const double Phi = Latitude * Pi / 180;
      const double X = R * Lambda;
      const double Y = R * std::log(std::tan(Pi / 4 + Phi / 2));
      const TvxPointDouble Unit = Forward(*Projection, Latitude, Longitude);
      COMPARE_NEAR(Unit.X, X / WorldWidth + 0.5, 1e-9);
      COMPARE_NEAR(Unit.Y, 0.5 - Y / WorldWidth, 1e-9);
    }
}

void TestVxMapControlProjections::sinusoidalKeepsSettledEdgeRule()
{
  // With a power-of-two scale a equals c exactly on the equator at one
  // radian east; the rule then answers an edge instead of 57.3 degrees.
  const auto Sinusoidal = Create("SinusoidalProjection");
  Sinusoidal->SetScaleX(0.125);
  QCOMPARE(Sinusoidal->MapUnitToGeoPoint({0.625, 0.5}).Longitude, -180.0);
  COMPARE_NEAR(Sinusoidal->MapUnitToGeoPoint({0.625 + 1e-9, 0.5}).Longitude, 180 / Pi, 1e-6);
}

void TestVxMapControlProjections::sizeConversion()
{
  const auto Projection = Create("SphericalMercatorProjection");
  const auto Anchor = TvxMapControlGeoPoint::Create(60, 10);
  const TvxSizeDouble Kilometres = Projection->GeoToKilometersSize(Anchor, vxSizeDouble(2, 1));
  COMPARE_NEAR(Kilometres.Width, 111.2, 1e-9);
  COMPARE_NEAR(Kilometres.Height, 111.2, 1e-9);
  const TvxSizeDouble Degrees = Projection->KilometersToGeoSize(Anchor, vxSizeDouble(111.2, 222.4));
  COMPARE_NEAR(Degrees.Width, 2.0, 1e-9);
  COMPARE_NEAR(Degrees.Height, 2.0, 1e-9);
}

void TestVxMapControlProjections::updateLockFiresOnce()
{
  TvxMapControlSphericalMercatorProjection Projection;
  int Fired = 0;
  Projection.OnChanged = [&](TvxMapControlCustomProjection*) { ++Fired; };
  QVERIFY(!Projection.IsScaleXStored() && !Projection.IsScaleYStored() && !Projection.IsOffsetXStored());

  Projection.BeginUpdate();
  Projection.SetScaleX(0.2);
  Projection.SetScaleY(-0.2);
  QCOMPARE(Fired, 0);
  Projection.EndUpdate();
  QCOMPARE(Fired, 1);
  QVERIFY(Projection.IsScaleXStored() && Projection.IsScaleYStored());

  Projection.BeginUpdate();
  Projection.BeginUpdate();
  Projection.SetOffsetX(0.25);
  Projection.EndUpdate();
  QCOMPARE(Fired, 1);
  Projection.EndUpdate();
  QCOMPARE(Fired, 2);

  // Nothing changed: no event, also not from a stray EndUpdate.
  Projection.BeginUpdate();
  Projection.SetOffsetX(0.25);
  Projection.EndUpdate();
  Projection.EndUpdate();
  QCOMPARE(Fired, 2);

  // The conversions use the current values.
  QCOMPARE(Forward(Projection, 0, 0), TvxPointDouble(0.25, 0.5));

  // Unlocked, every write fires; back at the default, nothing is stored.
  Projection.SetScaleX(1 / (2 * Pi));
  Projection.SetOffsetX(0.5);
  QCOMPARE(Fired, 4);
  QVERIFY(!Projection.IsScaleXStored() && !Projection.IsOffsetXStored());

  const TvxMapControlCustomProjection Bare;
  QVERIFY(!Bare.ProjectionCalculator());
  QCOMPARE(Forward(Bare, 10, 10), vxNullPointDouble);
  QCOMPARE(Bare.MapUnitToGeoPoint({0.2, 0.2}).Latitude, 0.0);
}

void TestVxMapControlProjections::assignCopiesNumbersNotFormulas()
{
  TvxMapControlMillerProjection Source;
  Source.SetOffsetX(0.3);
  TvxMapControlSphericalMercatorProjection Target;
  int Fired = 0;
  Target.OnChanged = [&](TvxMapControlCustomProjection*) { ++Fired; };

  Target.Assign(Source);
  QCOMPARE(Fired, 1);
  QCOMPARE(Target.OffsetX(), 0.3);
  QCOMPARE(Target.ScaleY(), Source.ScaleY());
  // Miller's default ScaleY is not Mercator's, so the target now stores it.
  QVERIFY(!Source.IsScaleYStored());
  QVERIFY(Target.IsScaleYStored());
  QVERIFY(!Target.IsScaleXStored());
  QCOMPARE(Target.PersistedName(), QStringLiteral("SphericalMercatorProjection"));
  QCOMPARE(Forward(Target, 0, 0).X, 0.3);

  Target.Assign(Source);
  QCOMPARE(Fired, 1);
}

void TestVxMapControlProjections::registry()
{
  const QStringList Expected = {"SphericalMercatorProjection|Spherical Mercator",
                                "EllipticalMercatorProjection|Elliptical Mercator",
                                "MillerProjection|Miller Cylindrical",
                                "EquirectangularProjection|Equirectangular",
                                "EqualAreaProjection|Equal Area",
                                "LambertCylindricalEqualAreaProjection|Lambert Cylindrical Equal Area",
                                "BraunStereographicProjection|Braun Stereographic",
                                "KavrayskiyProjection|Kavrayskiy VII",
                                "SinusoidalProjection|Sinusoidal",
                                "EPSG4326Projection|EPSG:4326"};
  TvxRegisteredMapProjections& Registry = vxRegisteredMapProjections();
  QCOMPARE(Registry.Names().mid(0, 10), Expected);
  for (const QString& Key : Expected)
  {
    const auto Projection = Registry.Create(Key);
    QVERIFY2(Projection && Projection->ProjectionCalculator(), qPrintable(Key));
    QCOMPARE(Projection->PersistedName() + QLatin1Char('|') + Projection->Caption(), Key);
    QCOMPARE(Registry.Create(Projection->PersistedName())->Caption(), Projection->Caption());
  }
  QVERIFY(!Registry.Create(QStringLiteral("Spherical Mercator")));
  QVERIFY(!Registry.Create(QString()));

  // A new class goes to the end; registering its key again replaces it.
  const QString Key = QStringLiteral("TestProjection|Test");
  Registry.Register(Key, [] { return std::make_unique<TvxMapControlEPSG4326Projection>(); });
  const int Count = Registry.Count();
  Registry.Register(Key, [] { return std::make_unique<TvxMapControlMillerProjection>(); });
  QCOMPARE(Registry.Count(), Count);
  QCOMPARE(Registry.Names().last(), Key);
  QCOMPARE(Registry.Create(QStringLiteral("TestProjection"))->PersistedName(), QStringLiteral("MillerProjection"));
}

void TestVxMapControlProjections::bulkGivesTheBitsOfSinglePoints()
{
  // A spread over and beyond the world, the limits and the seams themselves,
  // and values no coordinate should have.
  constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
  constexpr double Inf = std::numeric_limits<double>::infinity();
  std::vector<TvxMapControlGeoPoint> Points;
  QRandomGenerator Random(5);
  for (int I = 0; I < 3000; ++I)
    Points.push_back(TvxMapControlGeoPoint::Create(-100 + 200 * Random.generateDouble(),
                                                   -600 + 1200 * Random.generateDouble()));
  for (double Latitude : {-90.0, -89.0, -85.05112878, -0.0, 0.0, 85.08405905, 89.5, 90.0, 95.0, NaN, Inf})
    for (double Longitude : {-540.0, -190.0, -180.0, -0.0, 0.0, 180.0, 190.0, 359.0, 360.0, NaN, -Inf})
      Points.push_back(TvxMapControlGeoPoint::Create(Latitude, Longitude));

  QStringList Names = vxRegisteredMapProjections().Names().mid(0, 10);
  Names.append(QStringLiteral("Flat"));
  for (const QString& Name : Names)
    for (const bool Moved : {false, true})
      for (const bool Normalise : {false, true})
      {
        std::unique_ptr<TvxMapControlCustomProjection> Projection =
          Name == QLatin1String("Flat") ? std::make_unique<TFlatMercatorProjection>() : Create(Name);
        if (Moved)
        {
          Projection->SetOffsetX(0.3);
          Projection->SetOffsetY(0.6);
          Projection->SetScaleX(0.2);
          Projection->SetScaleY(-0.1);
        }
        std::vector<TvxPointDouble> Bulk(Points.size(), {-7, -7});
        TvxMapUnitConverter::GeoPointsToMapUnits(Points, Bulk, Projection.get(), Normalise);
        for (size_t I = 0; I < Points.size(); ++I)
        {
          const TvxPointDouble One = TvxMapUnitConverter::GeoPointToMapUnit(Points[I], Projection.get(), Normalise);
          QVERIFY2(SameBits(One.X, Bulk[I].X) && SameBits(One.Y, Bulk[I].Y),
                   qPrintable(QStringLiteral("%1 %2 %3: %4 gives %5,%6 and %7,%8")
                                .arg(Name)
                                .arg(Moved)
                                .arg(Normalise)
                                .arg(Points[I].AsString())
                                .arg(One.X, 0, 'g', 17)
                                .arg(One.Y, 0, 'g', 17)
                                .arg(Bulk[I].X, 0, 'g', 17)
                                .arg(Bulk[I].Y, 0, 'g', 17)));
        }
      }

  // The changed slot is kept in bulk too.
  const TFlatMercatorProjection Flat;
  std::vector<TvxPointDouble> Bulk(2);
  TvxMapUnitConverter::GeoPointsToMapUnits(
    std::vector{TvxMapControlGeoPoint::Create(12, 10), TvxMapControlGeoPoint::Create(95, 190)}, Bulk, &Flat, true);
  QCOMPARE(Bulk[0].Y, 12.0);
  QCOMPARE(Bulk[1].Y, 90.0);
  COMPARE_NEAR(Bulk[1].X, Forward(Flat, 0, -170).X, 1e-15);

  // Without a projection, the null point.
  TvxMapUnitConverter::GeoPointsToMapUnits(Points, Bulk, nullptr, true);
  QCOMPARE(Bulk[0], vxNullPointDouble);
  QCOMPARE(Bulk[1], vxNullPointDouble);
}

MAPWRIGHT_TEST_CLASS(TestVxMapControlProjections)

#include "tst_vxMapControlProjections.moc"
