// Files written by GDAL's ogr2ogr from Natural Earth, loaded through a real
// file layer and compared with GDAL's own reading of the same files (GeoJSON
// beside each). Differences allowed are the ones the loaders make on purpose:
// clamping to the geographic box, deleted records kept, altitude dropped, one
// hole per KML polygon, no attributes from KML, and values a 32-bit
// conversion refuses.

#include "GoldenImage.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"
#include "vxMapItemFileLayer.h"
#include "vxMapMultiPointItems.h"
#include "vxMapPointItems.h"

#include <QDate>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <algorithm>

namespace
{

using TRing = std::vector<TvxMapControlGeoPoint>;

QString SamplePath(const QString& AName)
{
  return QStringLiteral(MAPWRIGHT_GDAL_SAMPLES "/") + AName;
}

QJsonArray GdalFeatures(const QString& ABaseName)
{
  QFile File(SamplePath(ABaseName + QStringLiteral(".gdal.geojson")));
  if (!File.open(QIODevice::ReadOnly))
    return {};
  return QJsonDocument::fromJson(File.readAll()).object().value(QStringLiteral("features")).toArray();
}

// GDAL's position, clamped as our reader clamps; altitude dropped.
TvxMapControlGeoPoint Position(const QJsonValue& AValue)
{
  const QJsonArray Pair = AValue.toArray();
  return {std::clamp(Pair.at(1).toDouble(), -90.0, 90.0), std::clamp(Pair.at(0).toDouble(), -180.0, 180.0)};
}

TRing Ring(const QJsonValue& AValue)
{
  TRing Result;
  for (const QJsonValue& Value : AValue.toArray())
    Result.push_back(Position(Value));
  return Result;
}

TRing Ring(const TvxMapControlGeoPointCollection& APoints)
{
  TRing Result;
  for (int I = 0; I < APoints.Count(); ++I)
    Result.push_back(APoints.Items(I)->GeoPoint());
  return Result;
}

// GeoJSON keeps 15 significant digits of the file's doubles.
bool SameRing(const TRing& A, const TRing& B)
{
  if (A.size() != B.size())
    return false;
  for (size_t I = 0; I < A.size(); ++I)
    if (std::abs(A[I].Latitude - B[I].Latitude) > 1e-9 || std::abs(A[I].Longitude - B[I].Longitude) > 1e-9)
      return false;
  return true;
}

QString Describe(const TRing& ARing)
{
  if (ARing.empty())
    return QStringLiteral("empty ring");
  return QStringLiteral("%1 points from %2,%3").arg(ARing.size()).arg(ARing[0].Latitude).arg(ARing[0].Longitude);
}

std::vector<TRing> Segments(const TvxMapPath& APath)
{
  std::vector<TRing> Result;
  for (int I = 0; I < APath.Segments().Count(); ++I)
    Result.push_back(Ring(APath.Segments().Items(I)->GeoPoints()));
  return Result;
}

// The rings GDAL reads from a Shapefile polygon or line record, in file order.
std::vector<TRing> ShapeParts(const QJsonObject& AGeometry)
{
  std::vector<TRing> Result;
  const QString Type = AGeometry.value(QStringLiteral("type")).toString();
  const QJsonArray Coordinates = AGeometry.value(QStringLiteral("coordinates")).toArray();
  if (Type == QLatin1String("LineString"))
    Result.push_back(Ring(Coordinates));
  else if (Type == QLatin1String("MultiLineString") || Type == QLatin1String("Polygon"))
    for (const QJsonValue& Part : Coordinates)
      Result.push_back(Ring(Part));
  else if (Type == QLatin1String("MultiPolygon"))
    for (const QJsonValue& Polygon : Coordinates)
      for (const QJsonValue& Part : Polygon.toArray())
        Result.push_back(Ring(Part));
  return Result;
}

// Our reading keeps the file's ring order; GDAL may regroup rings into
// polygons. The path's fill does not depend on the order, so compare sets.
bool SameRingSet(std::vector<TRing> A, std::vector<TRing> B)
{
  const auto Less = [](const TRing& X, const TRing& Y) {
    if (X.size() != Y.size())
      return X.size() < Y.size();
    for (size_t I = 0; I < X.size(); ++I)
    {
      if (X[I].Latitude != Y[I].Latitude)
        return X[I].Latitude < Y[I].Latitude;
      if (X[I].Longitude != Y[I].Longitude)
        return X[I].Longitude < Y[I].Longitude;
    }
    return false;
  };
  if (A.size() != B.size())
    return false;
  std::sort(A.begin(), A.end(), Less);
  std::sort(B.begin(), B.end(), Less);
  for (size_t I = 0; I < A.size(); ++I)
    if (!SameRing(A[I], B[I]))
      return false;
  return true;
}

// Indexes of the records a dBASE table marks deleted; GDAL leaves them out.
std::vector<int> DeletedRecords(const QString& ATableName)
{
  QFile File(ATableName);
  if (!File.open(QIODevice::ReadOnly))
    return {};
  const QByteArray Data = File.readAll();
  if (Data.size() < 12)
    return {};
  const auto Word = [&](int AOffset) { return int(uchar(Data[AOffset])) | int(uchar(Data[AOffset + 1])) << 8; };
  const int Count = Word(4) | Word(6) << 16, HeaderLength = Word(8), RecordLength = Word(10);
  std::vector<int> Result;
  for (int I = 0; I < Count && HeaderLength + I * RecordLength < Data.size(); ++I)
    if (Data[HeaderLength + I * RecordLength] == '*')
      Result.push_back(I);
  return Result;
}

QString CompareAttributes(const TvxMapItem& AItem, const QJsonObject& AProperties)
{
  const TvxMapItemAttributes& Attributes = AItem.Attributes();
  if (Attributes.Count() != AProperties.size())
    return QStringLiteral("%1 attributes, GDAL %2").arg(Attributes.Count()).arg(AProperties.size());
  for (auto It = AProperties.begin(); It != AProperties.end(); ++It)
  {
    if (!Attributes.ContainsName(It.key()))
      return QStringLiteral("no attribute %1").arg(It.key());
    const QVariant Ours = Attributes.Value(It.key());
    const QJsonValue Theirs = It.value();
    bool Same = false;
    switch (Ours.typeId())
    {
    case QMetaType::Int:
    case QMetaType::LongLong:
      Same = Theirs.isDouble() && Ours.toLongLong() == Theirs.toInteger();
      break;
    case QMetaType::Double:
      Same = Theirs.isDouble() && std::abs(Ours.toDouble() - Theirs.toDouble()) <= 1e-12 * std::max(1.0, std::abs(Theirs.toDouble()));
      break;
    case QMetaType::QDate:
      Same = Ours.toDate().toString(QStringLiteral("yyyy-MM-dd")) == Theirs.toString();
      break;
    default:
      Same = Ours.toString() == Theirs.toString();
    }
    if (!Same)
      return QStringLiteral("%1: ours %2 (%3), GDAL %4")
        .arg(It.key(), Ours.toString(), QString::fromLatin1(Ours.typeName()), Theirs.toVariant().toString());
  }
  return {};
}

} // namespace

class TestGdalFiles : public QObject
{
  Q_OBJECT

private:
  // Loads the file and returns the layer; fails the test if it did not load.
  std::unique_ptr<TvxMapItemFileLayer> Load(const QString& AFileName, TvxMapItemFileType AType)
  {
    auto Layer = std::make_unique<TvxMapItemFileLayer>();
    Layer->SetFileType(AType);
    Layer->LoadFromFile(SamplePath(AFileName));
    return Layer;
  }

  // Shapefiles: one item per shape (points of a multi-point each their own
  // dot), rows by record number, deleted records kept.
  void CompareShapeFile(const QString& ABaseName)
  {
    auto Layer = Load(ABaseName + QStringLiteral(".shp"), miftShape);
    QVERIFY2(Layer->Active(), qPrintable(Layer->LastError()));
    const QJsonArray Features = GdalFeatures(ABaseName);
    QVERIFY(!Features.isEmpty());
    const std::vector<int> Deleted = DeletedRecords(SamplePath(ABaseName + QStringLiteral(".dbf")));

    int ItemIndex = 0, Record = 0;
    for (const QJsonValue& Value : Features)
    {
      while (std::find(Deleted.begin(), Deleted.end(), Record) != Deleted.end())
      {
        // A deleted record still makes its item.
        QVERIFY(ItemIndex < Layer->MapItems().Count());
        ++ItemIndex;
        ++Record;
      }
      const QJsonObject Feature = Value.toObject();
      const QJsonObject Geometry = Feature.value(QStringLiteral("geometry")).toObject();
      const QJsonObject Properties = Feature.value(QStringLiteral("properties")).toObject();
      const QString Type = Geometry.value(QStringLiteral("type")).toString();
      const QString Where = QStringLiteral("%1 record %2").arg(ABaseName).arg(Record + 1);
      QVERIFY2(ItemIndex < Layer->MapItems().Count(), qPrintable(Where + QStringLiteral(": no item")));

      if (Type == QLatin1String("Point") || Type == QLatin1String("MultiPoint"))
      {
        const QJsonArray Points = Type == QLatin1String("Point")
          ? QJsonArray{Geometry.value(QStringLiteral("coordinates"))}
          : Geometry.value(QStringLiteral("coordinates")).toArray();
        for (const QJsonValue& Point : Points)
        {
          auto* Dot = dynamic_cast<TvxMapDot*>(Layer->MapItems().Items(ItemIndex++));
          QVERIFY2(Dot, qPrintable(Where + QStringLiteral(": not a dot")));
          QVERIFY2(SameRing({Dot->Location().GeoPoint()}, {Position(Point)}), qPrintable(Where));
          const QString Difference = CompareAttributes(*Dot, Properties);
          QVERIFY2(Difference.isEmpty(), qPrintable(Where + QStringLiteral(": ") + Difference));
        }
      }
      else
      {
        auto* Path = dynamic_cast<TvxMapPath*>(Layer->MapItems().Items(ItemIndex++));
        QVERIFY2(Path, qPrintable(Where + QStringLiteral(": not a path")));
        const bool Polygonal = Type.endsWith(QLatin1String("Polygon"));
        QCOMPARE(Path->SegmentType(), Polygonal ? mstPolygon : mstPolyline);
        const std::vector<TRing> Ours = Segments(*Path), Theirs = ShapeParts(Geometry);
        QVERIFY2(SameRingSet(Ours, Theirs),
          qPrintable(Where + QStringLiteral(": %1 segments, GDAL %2").arg(Ours.size()).arg(Theirs.size())));
        const QString Difference = CompareAttributes(*Path, Properties);
        QVERIFY2(Difference.isEmpty(), qPrintable(Where + QStringLiteral(": ") + Difference));
      }
      ++Record;
    }
    QCOMPARE(ItemIndex + int(std::count_if(Deleted.begin(), Deleted.end(), [&](int R) { return R >= Record; })),
      Layer->MapItems().Count());
  }

  // KML: a point is a custom element with the placemark's name, a line a
  // polyline, the polygons of a placemark one path of inner-then-outer rings
  // with at most one hole each. No attributes.
  void CompareKml(const QString& ABaseName)
  {
    auto Layer = Load(ABaseName + QStringLiteral(".kml"), miftKml);
    QVERIFY2(Layer->Active(), qPrintable(Layer->LastError()));
    const QJsonArray Features = GdalFeatures(ABaseName);
    QVERIFY(!Features.isEmpty());
    int ItemIndex = 0;
    for (const QJsonValue& Value : Features)
    {
      const QJsonObject Feature = Value.toObject();
      const QJsonObject Geometry = Feature.value(QStringLiteral("geometry")).toObject();
      const QString Type = Geometry.value(QStringLiteral("type")).toString();
      const QJsonArray Coordinates = Geometry.value(QStringLiteral("coordinates")).toArray();
      const QString Name = Feature.value(QStringLiteral("properties")).toObject().value(QStringLiteral("Name")).toString();
      const QString Where = QStringLiteral("%1 placemark %2").arg(ABaseName, Name);
      QVERIFY2(ItemIndex < Layer->MapItems().Count(), qPrintable(Where + QStringLiteral(": no item")));
      TvxMapItem* Item = Layer->MapItems().Items(ItemIndex);
      QCOMPARE(Item->Attributes().Count(), 0);

      if (Type == QLatin1String("Point"))
      {
        auto* Element = dynamic_cast<TvxMapCustomElement*>(Item);
        QVERIFY2(Element, qPrintable(Where));
        QCOMPARE(Element->Text(), Name);
        QVERIFY2(SameRing({Element->Location().GeoPoint()}, {Position(QJsonValue(Coordinates))}), qPrintable(Where));
        ++ItemIndex;
      }
      else if (Type == QLatin1String("LineString") || Type == QLatin1String("MultiLineString"))
      {
        const QJsonArray Lines = Type == QLatin1String("LineString") ? QJsonArray{QJsonValue(Coordinates)} : Coordinates;
        for (const QJsonValue& Line : Lines)
        {
          auto* Polyline = dynamic_cast<TvxMapPolyline*>(Layer->MapItems().Items(ItemIndex++));
          QVERIFY2(Polyline, qPrintable(Where));
          QVERIFY2(SameRing(Ring(Polyline->GeoPoints()), Ring(Line)), qPrintable(Where));
        }
      }
      else
      {
        auto* Path = dynamic_cast<TvxMapPath*>(Item);
        QVERIFY2(Path, qPrintable(Where));
        QCOMPARE(Path->SegmentType(), mstPolygon);
        // Wrapped through QJsonValue: gcc and clang read QJsonArray{array} as
        // a one-element list and as a copy respectively.
        const QJsonArray Polygons = Type == QLatin1String("Polygon") ? QJsonArray{QJsonValue(Coordinates)} : Coordinates;
        std::vector<TRing> Expected;
        for (const QJsonValue& Polygon : Polygons)
        {
          const QJsonArray Rings = Polygon.toArray();
          if (Rings.size() > 1)
            Expected.push_back(Ring(Rings.at(1)));
          Expected.push_back(Ring(Rings.at(0)));
        }
        const std::vector<TRing> Ours = Segments(*Path);
        QVERIFY2(Ours.size() == Expected.size(), qPrintable(Where + QStringLiteral(": %1 segments, GDAL %2").arg(Ours.size()).arg(Expected.size())));
        for (size_t I = 0; I < Ours.size(); ++I)
          QVERIFY2(SameRing(Ours[I], Expected[I]),
            qPrintable(Where + QStringLiteral(": segment %1: %2, GDAL %3").arg(I).arg(Describe(Ours[I]), Describe(Expected[I]))));
        ++ItemIndex;
      }
    }
    QCOMPARE(ItemIndex, Layer->MapItems().Count());
  }

private Q_SLOTS:
  void initTestCase()
  {
    vxRegisterKmlFileLoader();
    vxRegisterShapeFileLoader();
  }

  // Points with text, 9- and 18-digit integers, floats and a date; lines and
  // polygons (South Africa with the hole of Lesotho), their M variants, a
  // multi-point file, the table encodings UTF-8 (.cpg), 1252 (driver byte)
  // and the system's (a driver byte outside the table), and a deleted record.
  void ShapeFilesReadAsGdalReadsThem()
  {
    for (const char* Name :
      {"places", "places_deleted", "multipoints", "borders", "borders_m", "countries", "countries_m"})
    {
      CompareShapeFile(QString::fromLatin1(Name));
      if (QTest::currentTestFailed())
        return;
    }
    // The table's encoding reached the names: 1252 by the driver byte.
    auto Borders = Load(QStringLiteral("borders.shp"), miftShape);
    bool Found = false;
    for (int I = 0; I < Borders->MapItems().Count(); ++I)
      Found |= Borders->MapItems().Items(I)->Attributes().Value(QStringLiteral("name")).toString() ==
        QStringLiteral("C\u00f4te d'Ivoire");
    QVERIFY(Found);
  }

  // A projected file lands on the edges of the geographic box, a PolygonZ
  // file makes no items, and a 64-bit value beyond 32 bits fails the load.
  void ShapeFilesWhereWeDifferOnPurpose()
  {
    CompareShapeFile(QStringLiteral("countries_3857"));

    auto ZLayer = Load(QStringLiteral("countries_z.shp"), miftShape);
    QCOMPARE(ZLayer->MapItems().Count(), 0);
    QVERIFY(!GdalFeatures(QStringLiteral("countries_z")).isEmpty());

    auto BigLayer = Load(QStringLiteral("places_big.shp"), miftShape);
    QVERIFY(!BigLayer->Active());
    QCOMPARE(BigLayer->MapItems().Count(), 0);
    QVERIFY(!BigLayer->LastError().isEmpty());
    QCOMPARE(GdalFeatures(QStringLiteral("places_big")).size(), GdalFeatures(QStringLiteral("places")).size());
  }

  // GDAL's KML and LIBKML writers: polygons with holes in multi-geometries,
  // lines, points, coordinates one per line with altitudes.
  void KmlFilesReadAsGdalReadsThem()
  {
    for (const char* Name : {"countries_kml", "countries_libkml", "borders_kml", "places_libkml", "places_z_kml"})
    {
      CompareKml(QString::fromLatin1(Name));
      if (QTest::currentTestFailed())
        return;
    }
    // The KML writer's own style: red outline, no fill.
    auto Layer = Load(QStringLiteral("countries_kml.kml"), miftKml);
    QVERIFY(Layer->MapItems().Count() > 0);
    const TvxMapItemStyle& Style = Layer->MapItems().Items(0)->Style();
    QCOMPARE(Style.BorderColor(), 0xFFFF0000u);
    QCOMPARE(Style.Color() >> 24, 0u);
  }

  // The whole path onto a map: Africa and Europe's countries up to F with
  // South Africa hollow round Lesotho, their borders from the KML writer in
  // its red, and the places as dots.
  void RealFilesOnTheMapGolden()
  {
    TvxMapControl Control;
    Control.OptionsBehavior().SetAnimation(false);
    Control.NavigationPanel().SetVisible(false);
    Control.resize(360, 300);
    Control.setAttribute(Qt::WA_DontShowOnScreen);
    Control.show();
    const auto AddFile = [&Control](const char* AName, TvxMapItemFileType AType) {
      auto* Layer = Control.AddLayer<TvxMapItemFileLayer>();
      Layer->SetFileType(AType);
      Layer->SetFileName(SamplePath(QString::fromLatin1(AName)));
      Layer->SetActive(true);
      return Layer;
    };
    TvxMapItemFileLayer* Countries = AddFile("countries.shp", miftShape);
    Countries->ItemStyle().SetColor(0xFFB8D8A8);
    Countries->ItemStyle().SetBorderColor(0xFF406040);
    TvxMapItemFileLayer* Borders = AddFile("borders_kml.kml", miftKml);
    TvxMapItemFileLayer* Places = AddFile("places.shp", miftShape);
    Places->ItemStyle().SetColor(0xFF2040C0);
    QVERIFY(Countries->Active() && Borders->Active() && Places->Active());
    Control.SetCenterPoint(TvxMapControlGeoPoint::Create(5, 15));
    Control.SetZoomLevel(2.2);

    QImage Image(Control.size(), QImage::Format_ARGB32);
    Image.fill(Qt::white);
    Control.render(&Image);
    const QString Failure = vxCheckGoldenImage(Image, MAPWRIGHT_GOLDEN_DIR, "gdal_files");
    if (Failure == "written")
      QSKIP("golden image written");
    QVERIFY2(Failure.isEmpty(), qPrintable(Failure));
  }
};

MAPWRIGHT_TEST_CLASS(TestGdalFiles)
#include "tst_GdalFiles.moc"
