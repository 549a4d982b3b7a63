#include "ShapeFileBuilder.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapControlShapeFileLoader.h"
#include "vxMapItemFileLayer.h"
#include "vxMapPointItems.h"

#include <QBuffer>
#include <QDate>
#include <QFile>
#include <QLocale>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <optional>

namespace
{

// A file layer on a map. Each load starts inactive and empty, as a load
// from files does.
struct TShapeLayer
{
  TvxMapControl Control;
  TvxMapItemFileLayer* Layer = Control.AddLayer<TvxMapItemFileLayer>();

  bool Load(QByteArray AShapes, QByteArray ATable, std::optional<QByteArray> ACodePage = std::nullopt)
  {
    QBuffer Shapes(&AShapes);
    QBuffer Table(&ATable);
    QBuffer CodePage;
    Shapes.open(QIODevice::ReadOnly);
    Table.open(QIODevice::ReadOnly);
    if (ACodePage)
    {
      CodePage.setData(*ACodePage);
      CodePage.open(QIODevice::ReadOnly);
    }
    Layer->SetActive(false);
    Layer->LoadShapeFileFromStream(Shapes, Table, ACodePage ? &CodePage : nullptr);
    return Layer->Active();
  }
  int Count() const { return Layer->MapItems().Count(); }
  template <class TItem = TvxMapItem>
  TItem* Item(int AIndex) const
  {
    return dynamic_cast<TItem*>(Layer->MapItems().Items(AIndex));
  }
  QVariant Attribute(int AIndex, const QString& AName) const { return Item(AIndex)->Attributes().Value(AName); }
};

// A segment's points as X (longitude) and Y (latitude).
QList<QPointF> SegmentPoints(const TvxMapPath* APath, int ASegment)
{
  QList<QPointF> Result;
  const TvxMapControlGeoPointCollection& Points = APath->Segments().Items(ASegment)->GeoPoints();
  for (int I = 0; I < Points.Count(); ++I)
    Result.append(QPointF(Points.Items(I)->Longitude(), Points.Items(I)->Latitude()));
  return Result;
}

// A table of one text column with as many rows as given.
QByteArray NameTable(const QList<QByteArray>& ANames)
{
  TDbfBuilder Builder;
  Builder.Field("NAME", 'C', 10);
  for (const QByteArray& Name : ANames)
    Builder.Row({Name});
  return Builder.Bytes();
}

} // namespace

class TestMapControlShapeFileLoader : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void initTestCase() { vxRegisterShapeFileLoader(); }

  void pointsWithTypedAttributes()
  {
    TDbfBuilder Table;
    Table.Field("NAME", 'C', 12)
      .Field("POP", 'N', 9)
      .Field("BIG", 'N', 12)
      .Field("AREA", 'N', 8, 2)
      .Field("RATIO", 'F', 10)
      .Field("WEIGHT", 'B', 8)
      .Field("CODE", 'I', 6)
      .Field("OK", 'L', 1)
      .Field("DAY", 'D', 8)
      .Field("NODAY", 'D', 8)
      .Field("NOTE", 'M', 10)
      .Field("POP", 'C', 4);
    Table.Row({"Oslo", "12345", "-2147483648", "454.03", "+1.5e3", "0.25", "-7", "Y", "20240131", "", "17", "many"});
    Table.Row({"Bergen", "0", "0", "0", "0", "0", "0", "N", "19991231", "", "", "few"});
    TShapeLayer Map;
    Map.Layer->SetItemHint("{POP}");
    QVERIFY(Map.Load(TShpBuilder().Point(1, 10.75, 59.9).Record(2, 21, TBytes().Double(5).Double(60).Double(3)).Bytes(),
                     Table.Bytes()));
    QCOMPARE(Map.Count(), 2);
    const auto* Dot = Map.Item<TvxMapDot>(0);
    QVERIFY(Dot);
    QCOMPARE(Dot->Location().Latitude(), 59.9);
    QCOMPARE(Dot->Location().Longitude(), 10.75);
    QCOMPARE(Map.Item<TvxMapDot>(1)->Location().Latitude(), 60.0);

    // Typed by the field letters; an empty date is the smallest date there
    // is, 1 January 100.
    const QStringList Names = {"NAME", "POP", "BIG", "AREA", "RATIO", "WEIGHT", "CODE", "OK", "DAY", "NODAY", "NOTE"};
    // POP comes twice: the last column's value is the one kept.
    const QVariantList Expected = {QString("Oslo"), QString("many"), qint64(-2147483648LL), 454.03,
                                   1500.0,          0.25,       -7,                    true,
                                   QDate(2024, 1, 31), QDate(100, 1, 1), QString("17")};
    QCOMPARE(Dot->Attributes().Count(), Names.size());
    for (int I = 0; I < Names.size(); ++I)
    {
      const QVariant Value = Map.Attribute(0, Names[I]);
      QCOMPARE(Value.metaType(), Expected[I].metaType());
      QCOMPARE(Value, Expected[I]);
    }
    QCOMPARE(Map.Attribute(1, "OK"), QVariant(false));
    QCOMPARE(Map.Attribute(1, "DAY"), QVariant(QDate(1999, 12, 31)));
    QCOMPARE(vxParseTextPattern(Map.Layer->ItemHint(), Dot->Attributes()), QString("many"));
    QStringList Sorted = Names;
    Sorted.sort();
    QStringList Listed;
    Dot->Attributes().GetNames(Listed);
    QCOMPARE(Listed, Sorted);
  }

  void hintsAndTitlesInTheUserLocale()
  {
    TDbfBuilder Table;
    Table.Field("NAME", 'C', 6)
      .Field("AREA", 'N', 12, 5)
      .Field("RATIO", 'F', 20)
      .Field("WEIGHT", 'B', 20)
      .Field("POP", 'N', 9)
      .Field("DAY", 'D', 8);
    Table.Row({"Oslo", "454.03", "1500", "0.1", "12345", "20240131"});
    Table.Row({"Tiny", "-0.5", "1e20", "0.000001", "-7", "19991231"});
    Table.Row({"Edge", "0.00001", "0.30000000000000004", "123456789012345", "0", "20240131"});
    TShapeLayer Map;
    const QString Pattern = "{NAME}|{AREA}|{RATIO}|{WEIGHT}|{POP}|{DAY}";
    Map.Layer->SetItemHint(Pattern);
    Map.Layer->ItemTitleOptions().SetText(Pattern);
    QVERIFY(Map.Load(TShpBuilder().Point(1, 1, 1).Point(2, 2, 2).Point(3, 3, 3).Bytes(), Table.Bytes()));
    QCOMPARE(Map.Count(), 3);
    const auto Texts = [&Map] {
      QStringList Result;
      for (int I = 0; I < Map.Count(); ++I)
      {
        TvxMapItemViewInfo* ViewInfo = Map.Item(I)->ViewInfo();
        // The hint and the title read values alike.
        if (ViewInfo->GetText() != ViewInfo->GetHint())
          return QStringList{ViewInfo->GetText(), ViewInfo->GetHint()};
        Result << ViewInfo->GetHint();
      }
      return Result;
    };

    // Decimal comma without grouping, at most 15 significant digits, and the
    // locale's short date.
    const QLocale Before;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    const QStringList German = Texts();
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const QStringList American = Texts();
    QLocale::setDefault(Before);
    QCOMPARE(German, QStringList({"Oslo|454,03|1500|0,1|12345|31.01.24", "Tiny|-0,5|1E20|1E-6|-7|31.12.99",
                                  "Edge|0,00001|0,3|123456789012345|0|31.01.24"}));
    QCOMPARE(American, QStringList({"Oslo|454.03|1500|0.1|12345|1/31/24", "Tiny|-0.5|1E20|1E-6|-7|12/31/99",
                                    "Edge|0.00001|0.3|123456789012345|0|1/31/24"}));
  }

  void valuesThatDoNotConvertFailTheLoad_data()
  {
    QTest::addColumn<char>("Type");
    QTest::addColumn<int>("Length");
    QTest::addColumn<int>("Decimals");
    QTest::addColumn<QByteArray>("Text");
    QTest::addColumn<QVariant>("Value");
    const QVariant Fails;
    QTest::newRow("empty N") << 'N' << 9 << 0 << QByteArray() << Fails;
    QTest::newRow("empty I") << 'I' << 6 << 0 << QByteArray() << Fails;
    QTest::newRow("empty F") << 'F' << 10 << 0 << QByteArray() << Fails;
    QTest::newRow("empty N with decimals") << 'N' << 10 << 2 << QByteArray() << Fails;
    QTest::newRow("wide N beyond 32 bits") << 'N' << 10 << 0 << QByteArray("3000000000") << Fails;
    QTest::newRow("wide N within 32 bits") << 'N' << 10 << 0 << QByteArray("2147483647")
                                           << QVariant(qint64(2147483647));
    QTest::newRow("plus sign") << 'N' << 9 << 0 << QByteArray("+42") << QVariant(42);
    QTest::newRow("two signs") << 'N' << 9 << 0 << QByteArray("+-42") << Fails;
    QTest::newRow("trailing letters") << 'N' << 9 << 0 << QByteArray("12a") << Fails;
    QTest::newRow("fraction in an integer") << 'I' << 9 << 0 << QByteArray("1.5") << Fails;
    QTest::newRow("decimal comma") << 'N' << 9 << 2 << QByteArray("1,5") << Fails;
    QTest::newRow("number overflow") << 'F' << 9 << 0 << QByteArray("1e999") << Fails;
    QTest::newRow("month 13") << 'D' << 8 << 0 << QByteArray("20241301") << Fails;
    QTest::newRow("year 0") << 'D' << 8 << 0 << QByteArray("00000101") << Fails;
    QTest::newRow("short date") << 'D' << 8 << 0 << QByteArray("2024") << Fails;
    QTest::newRow("letters in a date") << 'D' << 8 << 0 << QByteArray("2024Jan1") << Fails;
  }

  void valuesThatDoNotConvertFailTheLoad()
  {
    QFETCH(char, Type);
    QFETCH(int, Length);
    QFETCH(int, Decimals);
    QFETCH(QByteArray, Text);
    QFETCH(QVariant, Value);
    TDbfBuilder Table;
    Table.Field("NAME", 'C', 4).Field("POP", Type, Length, Decimals);
    // The first row converts; the second holds the value under test.
    Table.Row({"a", Type == 'D' ? "20000101" : "1"}).Row({"b", Text});
    TShapeLayer Map;
    const bool Loaded = Map.Load(TShpBuilder().Point(1, 1, 1).Point(2, 2, 2).Bytes(), Table.Bytes());
    if (Value.isValid())
    {
      QVERIFY2(Loaded, qPrintable(Map.Layer->LastError()));
      QCOMPARE(Map.Attribute(1, "POP"), Value);
      return;
    }
    // The whole layer goes, the first dot with it.
    QVERIFY(!Loaded);
    QCOMPARE(Map.Count(), 0);
    QVERIFY2(Map.Layer->LastError().startsWith(QString("Record 2: field POP: \"%1\" is not ").arg(Text.constData())),
             qPrintable(Map.Layer->LastError()));
  }

  void rowsFollowRecordNumbers()
  {
    TShapeLayer Map;
    // Numbers, not positions, pick the rows; a deleted row is a row.
    TDbfBuilder Table;
    Table.Field("NAME", 'C', 10).Row({"first"}).Row({"second"}, true).Row({"third"}).Row({"spare"});
    QVERIFY(Map.Load(TShpBuilder().Point(2, 0, 0).Point(1, 0, 0).Point(3, 0, 0).Point(2, 0, 0).Bytes(),
                     Table.Bytes()));
    QStringList Names;
    for (int I = 0; I < Map.Count(); ++I)
      Names << Map.Attribute(I, "NAME").toString();
    QCOMPARE(Names, QStringList({"second", "first", "third", "second"}));

    // A shape without a row ends the load; the layer is left empty.
    QVERIFY(!Map.Load(TShpBuilder().Point(1, 0, 0).Point(4, 0, 0).Bytes(), NameTable({"a", "b", "c"})));
    QCOMPARE(Map.Count(), 0);
    QCOMPARE(Map.Layer->LastError(), QString("Record 4 has no row in the table of 3 rows"));
    QVERIFY(!Map.Load(TShpBuilder().Point(0, 0, 0).Bytes(), NameTable({"a"})));
    // Null shapes need no row.
    QVERIFY(Map.Load(TShpBuilder().Null(5).Point(1, 0, 0).Bytes(), NameTable({"a"})));
    QCOMPARE(Map.Count(), 1);
  }

  void multiPointsGiveADotPerPoint()
  {
    TShapeLayer Map;
    TDbfBuilder Table;
    Table.Field("NAME", 'C', 6).Field("POP", 'N', 4).Row({"a", "1"}).Row({"b", "2"});
    const QByteArray Shapes = TShpBuilder()
                                .Record(1, 8, MultiPointContent({{1, 2}, {3, 4}, {5, 6}}))
                                .Record(2, 28, TBytes().Bytes(MultiPointContent({{7, 8}, {9, 10}})).Values({0, 0}))
                                .Bytes();
    QVERIFY(Map.Load(Shapes, Table.Bytes()));
    QCOMPARE(Map.Count(), 5);
    for (int I = 0; I < 5; ++I)
    {
      const auto* Dot = Map.Item<TvxMapDot>(I);
      QVERIFY(Dot);
      QCOMPARE(Dot->Location().Longitude(), 1.0 + 2 * I);
      QCOMPARE(Dot->Location().Latitude(), 2.0 + 2 * I);
      QCOMPARE(Dot->Attributes().Count(), 2);
      QCOMPARE(Map.Attribute(I, "POP"), QVariant(I < 3 ? 1 : 2));
    }
  }

  void pathsHaveASegmentPerPart()
  {
    const QList<QPointF> Outer = {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}};
    const QList<QPointF> Hole = {{4, 4}, {4, 6}, {6, 6}, {4, 4}};
    const QList<QPointF> Both = Outer + Hole;
    const QList<double> M = QList<double>(Both.size(), 1.0);
    const QByteArray Shapes = TShpBuilder()
                                .Record(1, 5, PolyContent({0, 5}, Both))
                                .Record(2, 3, PolyContent({0, 5}, Both))
                                .Record(3, 23, TBytes().Bytes(PolyContent({0, 5}, Both)).Values(M))
                                .Record(4, 25, TBytes().Bytes(PolyContent({0, 5}, Both)).Values(M))
                                .Bytes();
    TShapeLayer Map;
    QVERIFY(Map.Load(Shapes, NameTable({"a", "b", "c", "d"})));
    QCOMPARE(Map.Count(), 4);
    const QList<TvxMapPathSegmentType> Types = {mstPolygon, mstPolyline, mstPolyline, mstPolygon};
    for (int I = 0; I < 4; ++I)
    {
      const auto* Path = Map.Item<TvxMapPath>(I);
      QVERIFY(Path);
      QCOMPARE(Path->SegmentType(), Types[I]);
      // The hole is a plain segment: the alternate fill makes it hollow.
      QCOMPARE(Path->Segments().Count(), 2);
      QCOMPARE(SegmentPoints(Path, 0), Outer);
      QCOMPARE(SegmentPoints(Path, 1), Hole);
      QCOMPARE(Map.Attribute(I, "NAME"), QVariant(QString(QChar('a' + I))));
    }
  }

  void partsAreChecked()
  {
    const QList<QPointF> Points = {{0, 0}, {1, 1}, {2, 2}, {3, 3}};
    TShapeLayer Map;
    // A part before the one in front of it is empty, as is one at the end.
    QVERIFY(Map.Load(TShpBuilder().Record(1, 3, PolyContent({0, 3, 1, 4}, Points)).Bytes(), NameTable({"a"})));
    const auto* Path = Map.Item<TvxMapPath>(0);
    QCOMPARE(Path->Segments().Count(), 4);
    QCOMPARE(SegmentPoints(Path, 0), Points.mid(0, 3));
    QCOMPARE(Path->Segments().Items(1)->GeoPoints().Count(), 0);
    QCOMPARE(SegmentPoints(Path, 2), Points.mid(1, 3));
    QCOMPARE(Path->Segments().Items(3)->GeoPoints().Count(), 0);

    QVERIFY(!Map.Load(TShpBuilder().Record(1, 3, PolyContent({0, -1}, Points)).Bytes(), NameTable({"a"})));
    QCOMPARE(Map.Layer->LastError(), QString("Record 1: part 1 starts at point -1, outside the 4 points"));
    QVERIFY(!Map.Load(TShpBuilder().Record(1, 5, PolyContent({5}, Points)).Bytes(), NameTable({"a"})));
    QCOMPARE(Map.Count(), 0);
  }

  void recordsThatMakeNoItems()
  {
    TShapeLayer Map;
    QVERIFY(Map.Load(TShpBuilder().Null(1).Null(2).Bytes(), NameTable({"a", "b"})));
    QCOMPARE(Map.Count(), 0);
    // Z records have no converter; a PolygonZ without M values loads.
    const QList<QPointF> Points = {{0, 0}, {1, 0}, {0, 1}, {0, 0}};
    const QByteArray Shapes = TShpBuilder()
                                .Record(1, 15, TBytes().Bytes(PolyContent({0}, Points)).Values({1, 2, 3, 4}))
                                .Record(2, 11, TBytes().Double(1).Double(2).Double(3).Double(4))
                                .Record(3, 18, TBytes().Bytes(MultiPointContent({{5, 6}})).Values({1}).Values({2}))
                                .Bytes();
    QVERIFY(Map.Load(Shapes, NameTable({"a", "b", "c"})));
    QCOMPARE(Map.Count(), 0);
    QVERIFY(Map.Layer->LastError().isEmpty());
  }

  void codePageFile()
  {
    // Code page 1252 by the driver byte, UTF-8 bytes in the row.
    const QByteArray Table = TDbfBuilder().Driver(0x03).Field("NAME", 'C', 6).Row({"Caf\xC3\xA9"}).Bytes();
    const QByteArray Shapes = TShpBuilder().Point(1, 0, 0).Bytes();
    const QString Utf8 = QString::fromUtf8("Café");
    const QString Windows = QString::fromUtf8("CafÃ©");
    const QList<std::pair<std::optional<QByteArray>, QString>> Cases = {
      {std::nullopt, Windows},      {QByteArray("UTF-8"), Utf8}, {QByteArray("utf-8"), Utf8},
      {QByteArray("UTF-8\n"), Windows}, {QByteArray("UTF-8\r\n"), Windows}, {QByteArray("1252"), Windows},
      {QByteArray(" UTF-8"), Windows},
    };

    TShapeLayer Map;
    for (const auto& [CodePage, Name] : Cases)
    {
      QVERIFY(Map.Load(Shapes, Table, CodePage));
      QCOMPARE(Map.Attribute(0, "NAME").toString(), Name);
    }

    // The same through the files, as the program loads a layer.
    QTemporaryDir Dir;
    auto Write = [&Dir](const QString& AName, const QByteArray& AData) {
      QFile File(Dir.filePath(AName));
      QVERIFY(File.open(QIODevice::WriteOnly));
      File.write(AData);
    };
    Write("places.shp", Shapes);
    Write("places.dbf", Table);
    Map.Layer->SetFileType(miftShape);
    Map.Layer->LoadFromFile(Dir.filePath("places.shp"));
    QVERIFY(Map.Layer->Active());
    QCOMPARE(Map.Attribute(0, "NAME").toString(), Windows);
    Write("places.cpg", "UTF-8");
    Map.Layer->LoadFromFile(Dir.filePath("places.shp"));
    QCOMPARE(Map.Attribute(0, "NAME").toString(), Utf8);
    Write("places.cpg", "UTF-8\n");
    Map.Layer->LoadFromFile(Dir.filePath("places.shp"));
    QCOMPARE(Map.Attribute(0, "NAME").toString(), Windows);
  }

  void bigFilesFromDiskReadAsFromMemory()
  {
    // Beyond 2 MB a file is read into a large block and the points go to
    // one arena: the items must be the ones the same bytes give from memory,
    // must stay valid once the load is over, and must take edits.
    QList<QPointF> Ring;
    for (int I = 0; I < 40000; ++I)
      Ring.append(QPointF(I * 1e-4, std::sin(I * 1e-3)));
    Ring.append(Ring.first());
    TShpBuilder Builder;
    QList<QByteArray> Names;
    for (int Record = 1; Record <= 4; ++Record)
    {
      Builder.Record(Record, Record % 2 ? 5 : 3, PolyContent({0, 10000}, Ring));
      Names.append(QByteArray::number(Record));
    }
    const QByteArray Shapes = Builder.Bytes();
    QVERIFY(Shapes.size() > (2 << 20));
    const QByteArray Table = NameTable(Names);

    QTemporaryDir Dir;
    auto Write = [&Dir](const QString& AName, const QByteArray& AData) {
      QFile File(Dir.filePath(AName));
      return File.open(QIODevice::WriteOnly) && File.write(AData) == AData.size();
    };
    QVERIFY(Write("big.shp", Shapes) && Write("big.dbf", Table));
    TShapeLayer FromMemory, FromDisk;
    QVERIFY(FromMemory.Load(Shapes, Table));
    FromDisk.Layer->SetFileType(miftShape);
    FromDisk.Layer->LoadFromFile(Dir.filePath("big.shp"));
    QVERIFY2(FromDisk.Layer->Active(), qPrintable(FromDisk.Layer->LastError()));
    QCOMPARE(FromDisk.Count(), 4);
    for (int I = 0; I < 4; ++I)
    {
      const auto* Path = FromDisk.Item<TvxMapPath>(I);
      QCOMPARE(Path->Segments().Count(), 2);
      for (int Segment = 0; Segment < 2; ++Segment)
        QCOMPARE(SegmentPoints(Path, Segment), SegmentPoints(FromMemory.Item<TvxMapPath>(I), Segment));
      QCOMPARE(FromDisk.Attribute(I, "NAME"), FromMemory.Attribute(I, "NAME"));
    }
    TvxMapControlGeoPointCollection& Edited = FromDisk.Item<TvxMapPath>(2)->Segments().Items(1)->GeoPoints();
    Edited.Add(TvxMapControlGeoPoint::Create(45, 9));
    Edited.Delete(0);
    QCOMPARE(Edited.Count(), 30001);
    QCOMPARE(Edited.Items(0)->Longitude(), Ring[10001].x());
    QCOMPARE(Edited.Items(30000)->Latitude(), 45.0);
    FromDisk.Layer->MapItems().Delete(0);
    QCOMPARE(SegmentPoints(FromDisk.Item<TvxMapPath>(0), 0), SegmentPoints(FromMemory.Item<TvxMapPath>(1), 0));

    // Cut inside the last record on disk: the reason a cut in memory gives.
    const QByteArray Cut = Shapes.left(Shapes.size() - 100);
    QVERIFY(Write("big.shp", Cut));
    QVERIFY(!FromMemory.Load(Cut, Table));
    FromDisk.Layer->LoadFromFile(Dir.filePath("big.shp"));
    QVERIFY(!FromDisk.Layer->Active());
    QCOMPARE(FromDisk.Count(), 0);
    QCOMPARE(FromDisk.Layer->LastError(), FromMemory.Layer->LastError());
  }

  void badFilesLeaveTheLayerEmpty()
  {
    TShapeLayer Map;
    const QByteArray Table = NameTable({"a", "b", "c"});
    const QByteArray Good = TShpBuilder()
                              .Point(1, 1, 2)
                              .Record(2, 5, PolyContent({0}, {{0, 0}, {1, 0}, {0, 1}, {0, 0}}))
                              .Record(3, 8, MultiPointContent({{5, 6}, {7, 8}}))
                              .Bytes();
    QVERIFY(Map.Load(Good, Table));
    QCOMPARE(Map.Count(), 4);

    // Cut anywhere, the shapes never crash the load; cut inside a record
    // they give an empty, inactive layer and a reason.
    for (qsizetype Size = 0; Size < Good.size(); ++Size)
    {
      if (Map.Load(Good.left(Size), Table))
        continue;
      QCOMPARE(Map.Count(), 0);
      QVERIFY(!Map.Layer->LastError().isEmpty());
    }
    QVERIFY(!Map.Load(Good, TDbfBuilder().Version(0x04).Field("NAME", 'C', 4).Row({"a"}).Bytes()));
    QCOMPARE(Map.Layer->LastError(), QString("Unsupported Dbf File Format"));
    QVERIFY(!Map.Load(Good, TDbfBuilder().Driver(0x04).Field("NAME", 'C', 4).Row({"a"}).Bytes()));
    QCOMPARE(Map.Layer->LastError(), QString("Incorrect Dbf File Format"));
    TBytes Huge;
    Huge.Box(0, 0, 1, 1).IntLE(1).IntLE(0x7FFFFFFF).IntLE(0);
    QVERIFY(!Map.Load(TShpBuilder().Record(12, 3, Huge).Bytes(), Table));
    QVERIFY(Map.Layer->LastError().contains("point count 2147483647 exceeds"));

    // Bytes overwritten at random in either file: items or a reason, never
    // a crash.
    QRandomGenerator Random(2024);
    for (int Round = 0; Round < 3000; ++Round)
    {
      QByteArray Shapes = Good;
      QByteArray Rows = Table;
      QByteArray& Target = Round % 3 ? Shapes : Rows;
      for (int I = 0; I < 3; ++I)
        Target[Random.bounded(Target.size())] = char(Random.bounded(256));
      if (!Map.Load(Shapes, Rows))
        QVERIFY(Map.Count() == 0 && !Map.Layer->LastError().isEmpty());
    }
  }
};

MAPWRIGHT_TEST_CLASS(TestMapControlShapeFileLoader)

#include "tst_vxMapControlShapeFileLoader.moc"
