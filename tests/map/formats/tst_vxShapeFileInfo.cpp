#include "ShapeFileBuilder.h"
#include "TestRegistry.h"
#include "vxShapeFileInfo.h"

#include <QBuffer>
#include <QTest>

namespace
{

std::unique_ptr<TvxShapeFileInfo> Read(const QByteArray& AData)
{
  auto Result = std::make_unique<TvxShapeFileInfo>();
  Result->LoadFromBytes(AData);
  return Result;
}

// The failure text of reading, or an empty string if it read.
QString Failure(const QByteArray& AData)
{
  try
  {
    Read(AData);
  }
  catch (const EvxReadError& E)
  {
    return QString::fromUtf8(E.what());
  }
  return QString();
}

template <class TRecord>
const TRecord& As(const TvxShapeFileInfo& AInfo, size_t AIndex)
{
  const auto* Result = dynamic_cast<const TRecord*>(AInfo.Records().at(AIndex).get());
  if (!Result)
    throw std::logic_error("record of another class");
  return *Result;
}

} // namespace

class TestShapeFileInfo : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void initTestCase() { vxShapeFileRecordsFactory().RegisterRecords(); }

  void pointsAreClampedToTheGlobe()
  {
    // A wrong file code is read all the same; numbers keep their file order.
    const auto Info = Read(TShpBuilder()
                             .FileCode(0)
                             .Point(1, 200, -100)
                             .Null(7)
                             .Record(2, 21, TBytes().Double(-500).Double(95).Double(1234.5))
                             .Record(9, 11, TBytes().Double(10).Double(20).Double(-8848).Double(3))
                             .Bytes());
    QCOMPARE(Info->Records().size(), size_t(4));
    QCOMPARE(As<TvxShapeFilePointRecord>(*Info, 0).Point().X, 180.0);
    QCOMPARE(As<TvxShapeFilePointRecord>(*Info, 0).Point().Y, -90.0);
    QCOMPARE(Info->Records()[1]->GetRecordType(), sfrtNullShape);
    QCOMPARE(Info->Records()[1]->RecordNumber(), 7);
    // M and Z are not clamped.
    const TvxShapeFilePointM& PointM = As<TvxShapeFilePointMRecord>(*Info, 2).Point();
    QCOMPARE(QList<double>({PointM.X, PointM.Y, PointM.M}), QList<double>({-180, 90, 1234.5}));
    const TvxShapeFilePointZ& PointZ = As<TvxShapeFilePointZRecord>(*Info, 3).Point();
    QCOMPARE(QList<double>({PointZ.Z, PointZ.M}), QList<double>({-8848, 3}));
  }

  void multiPointRecords()
  {
    const QList<QPointF> Ring = {{0, 0}, {10, 0}, {10, 10}, {0, 0}, {2, 2}, {3, 2}, {2, 2}};
    const QList<double> M = {1, 2, 3, 4, 5, 6, 7};
    const QByteArray Data =
      TShpBuilder()
        .Record(1, 3, PolyContent({0, 4}, Ring))
        .Record(2, 5, TBytes().Box(-500, -100, 500, 100).IntLE(1).IntLE(2).IntLE(0).Points({{190, 95}, {-190, -95}}))
        .Record(3, 8, MultiPointContent({{1, 2}, {3, 4}}))
        .Record(4, 23, TBytes().Bytes(PolyContent({0}, Ring.mid(0, 3))).Values({7, 8, 9}))
        .Record(5, 25, TBytes().Bytes(PolyContent({0, 4}, Ring)).Values(M))
        .Record(6, 28, TBytes().Bytes(MultiPointContent({{5, 6}})).Values({-1}))
        .Record(7, 18, TBytes().Bytes(MultiPointContent({{5, 6}, {7, 8}})).Values({100, 200}).Values({1, 2}))
        .Bytes();
    const auto Info = Read(Data);
    QCOMPARE(Info->Records().size(), size_t(7));

    const auto& Line = As<TvxShapeFilePolylineRecord>(*Info, 0);
    QCOMPARE(std::vector<qint32>(Line.Parts().begin(), Line.Parts().end()), std::vector<qint32>({0, 4}));
    QCOMPARE(Line.Points()[5].X, 3.0);
    // Boxes are not clamped; the points are.
    const auto& Polygon = As<TvxShapeFilePolygonRecord>(*Info, 1);
    QCOMPARE(Polygon.BoundingBox().XRange.Min, -500.0);
    QCOMPARE(Polygon.BoundingBox().YRange.Max, 100.0);
    QCOMPARE(Polygon.Points()[0].X, 180.0);
    QCOMPARE(Polygon.Points()[1].Y, -90.0);
    QCOMPARE(As<TvxShapeFileMultiPointRecord>(*Info, 2).Points()[1].Y, 4.0);
    const auto& LineM = As<TvxShapeFilePolylineMRecord>(*Info, 3);
    QCOMPARE(LineM.MRange().Max, 9.0);
    QCOMPARE(LineM.PointsM()[2].M, 9.0);
    QCOMPARE(LineM.PointsM()[2].X, 10.0);
    QCOMPARE(As<TvxShapeFilePolygonMRecord>(*Info, 4).PointsM()[6].M, 7.0);
    QCOMPARE(As<TvxShapeFileMultiPointMRecord>(*Info, 5).PointsM()[0].M, -1.0);
    const TvxShapeFilePointZ& PointZ = As<TvxShapeFileMultiPointZRecord>(*Info, 6).PointsZ()[1];
    QCOMPARE(QList<double>({PointZ.X, PointZ.Z, PointZ.M}), QList<double>({7, 200, 2}));
  }

  void zRecordsReadAsKept()
  {
    const QList<QPointF> Points = {{1.1, 2}, {3, 4}};
    // PolyLineZ and MultiPatch as this reader has them: the point count a
    // second time after the part information.
    auto ZContent = [&Points](const QList<qint32>& APartTypes) {
      TBytes Result;
      Result.Box(0, 0, 5, 5).IntLE(1).IntLE(2).IntLE(0);
      for (qint32 PartType : APartTypes)
        Result.IntLE(PartType);
      Result.IntLE(2).Points(Points).Values({10, 20}).Values({30, 40});
      return Result;
    };
    auto Info = Read(TShpBuilder().Record(1, 13, ZContent({})).Record(2, 31, ZContent({5})).Point(3, 1, 1).Bytes());
    QCOMPARE(Info->Records().size(), size_t(3));
    const auto& LineZ = As<TvxShapeFilePolylineZRecord>(*Info, 0);
    QCOMPARE(LineZ.PointsZ()[1].Z, 20.0);
    QCOMPARE(LineZ.PointsZ()[1].M, 40.0);
    const auto& Patch = As<TvxShapeFileMultiPatchRecord>(*Info, 1);
    QCOMPARE(Patch.GetRecordType(), sfrtMultiPatch);
    QCOMPARE(std::vector<quint8>(Patch.PartTypes().begin(), Patch.PartTypes().end()), std::vector<quint8>({5}));
    QCOMPARE(Patch.PointsZ()[0].X, 1.1);

    // A PolyLineZ as the format has it: the low half of the first X, 1.1,
    // is taken for a count and the load fails.
    TBytes Standard;
    Standard.Box(0, 0, 5, 5).IntLE(1).IntLE(2).IntLE(0).Points(Points).Values({10, 20}).Values({30, 40});
    QVERIFY(Failure(TShpBuilder().Record(1, 13, Standard).Bytes()).contains("point count"));

    // A PolygonZ is read as a PolyLineM: its Z values stand in for M, and
    // without an M block the next record is read in step.
    const QByteArray PolygonZ = TBytes().Bytes(PolyContent({0}, Points)).Values({10, 20});
    Info = Read(TShpBuilder().Record(1, 15, PolygonZ).Point(2, 7, 8).Bytes());
    QCOMPARE(Info->Records().size(), size_t(2));
    const auto& AsM = As<TvxShapeFilePolylineMRecord>(*Info, 0);
    QCOMPARE(AsM.GetRecordType(), sfrtPolygonZ);
    QCOMPARE(AsM.PointsM()[1].M, 20.0);
    QCOMPARE(As<TvxShapeFilePointRecord>(*Info, 1).Point().X, 7.0);
    // With an M block the reader is out of step and the next "record" is
    // read from the M values.
    const QByteArray WithM = TBytes().Bytes(PolygonZ).Values({1.5, 2.5});
    QVERIFY(!Failure(TShpBuilder().Record(1, 15, WithM).Point(2, 7, 8).Bytes()).isEmpty());
  }

  void unknownTypesAreSkippedByLength()
  {
    const QByteArray Unknown = TBytes().Double(1).Double(2);
    // 10 words: the type and 16 bytes more.
    auto Info = Read(TShpBuilder().Record(1, 99, Unknown, 10).Point(2, 5, 6).Bytes());
    QCOMPARE(Info->Records().size(), size_t(1));
    QCOMPARE(Info->Records()[0]->RecordNumber(), 2);
    // One that reaches past the end ends the records quietly.
    Info = Read(TShpBuilder().Point(1, 5, 6).Record(2, 99, Unknown, 1000).Bytes());
    QCOMPARE(Info->Records().size(), size_t(1));
    // One too short to hold its type would step back, and loop for ever.
    QVERIFY(Failure(TShpBuilder().Record(4, 99, {}, 1).Bytes()).startsWith("Record 4 at byte 100: "));
  }

  void shortAndTruncatedFilesFail()
  {
    QVERIFY(Failure({}).contains("100-byte header"));
    QVERIFY(!Failure(QByteArray(99, '\0')).isEmpty());
    QCOMPARE(Read(QByteArray(100, '\0'))->Records().size(), size_t(0));

    TShpBuilder Builder;
    QList<qsizetype> Ends = {Builder.Size()};
    Builder.Null(1);
    Ends << Builder.Size();
    Builder.Point(2, 1, 2);
    Ends << Builder.Size();
    Builder.Record(3, 5, PolyContent({0}, {{0, 0}, {1, 0}, {0, 1}, {0, 0}}));
    Ends << Builder.Size();
    Builder.Record(4, 28, TBytes().Bytes(MultiPointContent({{5, 6}})).Values({-1}));
    Ends << Builder.Size();
    Builder.Record(5, 11, TBytes().Double(1).Double(2).Double(3).Double(4));
    Ends << Builder.Size();
    const QByteArray Data = Builder.Bytes();
    QCOMPARE(Data.size(), Ends.last());

    // Cut anywhere: a file cut between records is a shorter file, a file
    // cut inside one fails with a text.
    for (qsizetype Size = 0; Size < Data.size(); ++Size)
    {
      const QString Text = Failure(Data.left(Size));
      if (Ends.contains(Size))
      {
        QVERIFY2(Text.isEmpty(), qPrintable(Text));
        QCOMPARE(Read(Data.left(Size))->Records().size(), size_t(Ends.indexOf(Size)));
      }
      else
        QVERIFY2(!Text.isEmpty(), qPrintable(QString::number(Size)));
    }

    // The stream form reads from the device's position on.
    QByteArray Shifted = QByteArray("xyz") + Data;
    QBuffer Buffer(&Shifted);
    QVERIFY(Buffer.open(QIODevice::ReadOnly));
    Buffer.seek(3);
    TvxShapeFileInfo Info;
    Info.LoadFromStream(Buffer);
    QCOMPARE(Info.Records().size(), size_t(5));
  }

  void pointsOutliveTheBytesTheyCameFrom()
  {
    // Records read their points from the bytes as they were loaded, which
    // the file info holds: what becomes of the caller's array afterwards,
    // or of a first load's bytes at a second load, changes nothing.
    QByteArray Data =
      TShpBuilder().Record(1, 5, PolyContent({0, 3}, {{1, 2}, {200, -100}, {3, 4}, {5, 6}, {7, 8}})).Bytes();
    TvxShapeFileInfo Info;
    {
      QBuffer Buffer(&Data);
      QVERIFY(Buffer.open(QIODevice::ReadWrite));
      Info.LoadFromStream(Buffer);
      Buffer.seek(0);
      Buffer.write(QByteArray(Data.size(), '\xFF'));
    }
    Data = QByteArray();
    Info.LoadFromBytes(TShpBuilder().Record(2, 8, MultiPointContent({{9, 10}})).Bytes());
    QCOMPARE(Info.Records().size(), size_t(2));
    const auto& Polygon = static_cast<const TvxShapeFilePolygonRecord&>(*Info.Records()[0]);
    QCOMPARE(Polygon.XY().Count(), 5);
    QCOMPARE(Polygon.XY().Point(1).X, 180.0);
    QCOMPARE(Polygon.XY().Point(1).Y, -90.0);
    QCOMPARE(Polygon.XY().Point(4).Y, 8.0);
    QCOMPARE(Polygon.Points().size(), size_t(5));
    QCOMPARE(Polygon.Points()[3].X, 5.0);
    QCOMPARE(Polygon.Parts()[1], 3);
    QCOMPARE(static_cast<const TvxShapeFileMultiPointRecord&>(*Info.Records()[1]).Points()[0].Y, 10.0);
  }

  void damagedCountsFailAtOnce()
  {
    // A count bigger than the file fails before anything is allocated.
    TBytes Huge;
    Huge.Box(0, 0, 1, 1).IntLE(1).IntLE(0x7FFFFFFF).IntLE(0).Points({{1, 1}});
    QCOMPARE(Failure(TShpBuilder().Record(12, 3, Huge).Bytes()),
             QString("Record 12 at byte 100: point count 2147483647 exceeds the 20 bytes left"));
    TBytes Parts;
    Parts.Box(0, 0, 1, 1).IntLE(1000000).IntLE(2).IntLE(0).Points({{1, 1}, {2, 2}});
    QCOMPARE(Failure(TShpBuilder().Record(12, 5, Parts).Bytes()),
             QString("Record 12 at byte 100: part count 1000000 exceeds the 40 bytes left"));
    TBytes Negative;
    Negative.Box(0, 0, 1, 1).IntLE(-1).IntLE(0);
    QVERIFY(Failure(TShpBuilder().Record(3, 23, Negative).Bytes()).contains("negative part count -1"));
    QVERIFY(Failure(TShpBuilder().Record(3, 8, TBytes().Box(0, 0, 1, 1).IntLE(0x40000000)).Bytes())
              .contains("point count 1073741824"));
    // The M block is always read: a PolyLineM without one runs off the end.
    QVERIFY(!Failure(TShpBuilder().Record(1, 23, PolyContent({0}, {{1, 1}, {2, 2}})).Bytes()).isEmpty());
  }
};

MAPWRIGHT_TEST_CLASS(TestShapeFileInfo)

#include "tst_vxShapeFileInfo.moc"
