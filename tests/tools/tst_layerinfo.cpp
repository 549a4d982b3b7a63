#include "LayerInfo.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace
{

// Built from plain literals: moc does not read raw strings with quotes.
const char* const Kml =
  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
  "<kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document>\n"
  "<Style id=\"red\"><LineStyle><color>ff0000ff</color><width>2.5</width></LineStyle></Style>\n"
  "<Placemark><name>Gate &quot;A&quot;</name><Point><coordinates>-0.1278,51.50740000000001</coordinates></Point></Placemark>\n"
  "<Placemark><styleUrl>#red</styleUrl><LineString><coordinates>1,2 3,4</coordinates></LineString></Placemark>\n"
  "</Document></kml>\n";

QJsonObject Parse(const QByteArray& AJson)
{
  QJsonParseError Error;
  const QJsonDocument Document = QJsonDocument::fromJson(AJson, &Error);
  if (Error.error != QJsonParseError::NoError)
    qWarning("%s in %s", qPrintable(Error.errorString()), AJson.left(300).constData());
  return Document.object();
}

} // namespace

class TestLayerInfo : public QObject
{
  Q_OBJECT

  QTemporaryDir FDir;

  QString Write(const QString& AName, const QByteArray& AContent)
  {
    QFile File(FDir.filePath(AName));
    if (!File.open(QIODevice::WriteOnly) || File.write(AContent) != AContent.size())
      qFatal("cannot write %s", qPrintable(File.fileName()));
    return File.fileName();
  }

private Q_SLOTS:
  void initTestCase()
  {
    QVERIFY(FDir.isValid());
    vxRegisterKmlFileLoader();
    vxRegisterShapeFileLoader();
  }

  // Items in layer order with their class, geometry, text and style; text
  // escaped; coordinates that read back exactly.
  void KmlItemsAsJson()
  {
    const QString Name = Write(QStringLiteral("two.kml"), Kml);
    QByteArray Output, Errors;
    QCOMPARE(vxLayerInfoRun({Name}, Output, Errors), 0);
    QVERIFY(Errors.isEmpty());
    QVERIFY(Output.startsWith("{\"file\": "));
    const QJsonObject Root = Parse(Output);
    QCOMPARE(Root.value(QStringLiteral("file")).toString(), Name);
    QCOMPARE(Root.value(QStringLiteral("fileType")).toString(), QStringLiteral("KML"));
    QCOMPARE(Root.value(QStringLiteral("active")).toBool(), true);
    QVERIFY(!Root.contains(QStringLiteral("error")));
    const QJsonArray Items = Root.value(QStringLiteral("items")).toArray();
    QCOMPARE(Items.size(), 2);

    const QJsonObject Point = Items.at(0).toObject();
    QCOMPARE(Point.value(QStringLiteral("class")).toString(), QStringLiteral("TvxMapCustomElement"));
    QCOMPARE(Point.value(QStringLiteral("text")).toString(), QStringLiteral("Gate \"A\""));
    QCOMPARE(Point.value(QStringLiteral("location")).toArray().at(0).toDouble(), 51.50740000000001);
    QCOMPARE(Point.value(QStringLiteral("location")).toArray().at(1).toDouble(), -0.1278);
    QVERIFY(Point.value(QStringLiteral("imageSize")).isNull());
    QCOMPARE(Point.value(QStringLiteral("attributes")).toObject().size(), 0);
    QVERIFY(Point.value(QStringLiteral("style")).toObject().value(QStringLiteral("color")).isNull());

    const QJsonObject Line = Items.at(1).toObject();
    QCOMPARE(Line.value(QStringLiteral("class")).toString(), QStringLiteral("TvxMapPolyline"));
    QCOMPARE(Line.value(QStringLiteral("points")).toArray(), (QJsonArray{QJsonArray{2, 1}, QJsonArray{4, 3}}));
    const QJsonObject Style = Line.value(QStringLiteral("style")).toObject();
    QCOMPARE(Style.value(QStringLiteral("borderColor")).toString(), QStringLiteral("#FFFF0000"));
    QCOMPARE(Style.value(QStringLiteral("borderWidth")).toInt(), 3);
    QVERIFY(Style.value(QStringLiteral("color")).isNull());
  }

  // Typed attributes of a real Shapefile, keys sorted; a path's segments.
  void ShapeFileAttributesAsJson()
  {
    QByteArray Output, Errors;
    QCOMPARE(vxLayerInfoRun({QStringLiteral(MAPWRIGHT_GDAL_SAMPLES "/places.SHP"), QStringLiteral("--type"),
                               QStringLiteral("shape")},
               Output, Errors),
      0);
    // The extension decides in any case, so the same without --type.
    QByteArray Same, SameErrors;
    vxLayerInfoRun({QStringLiteral(MAPWRIGHT_GDAL_SAMPLES "/places.SHP")}, Same, SameErrors);
    QCOMPARE(Same, Output);

    const QJsonObject Root = Parse(Output);
    QCOMPARE(Root.value(QStringLiteral("fileType")).toString(), QStringLiteral("Shape"));
    const QJsonObject Fiji = Root.value(QStringLiteral("items")).toArray().at(0).toObject();
    QCOMPARE(Fiji.value(QStringLiteral("class")).toString(), QStringLiteral("TvxMapDot"));
    const QJsonObject Attributes = Fiji.value(QStringLiteral("attributes")).toObject();
    QCOMPARE(Attributes.keys(),
      (QStringList{"area", "bigcode", "code", "name", "odd", "surveyed"}));
    QCOMPARE(Attributes.value(QStringLiteral("name")).toString(), QStringLiteral("Fiji"));
    QVERIFY(Attributes.value(QStringLiteral("code")).isDouble());
    QCOMPARE(Attributes.value(QStringLiteral("code")).toInt(), 242);
    QCOMPARE(Attributes.value(QStringLiteral("bigcode")).toInt(), 242);
    QCOMPARE(Attributes.value(QStringLiteral("surveyed")).toString(), QStringLiteral("2024-01-31"));
    QVERIFY(Attributes.value(QStringLiteral("area")).toDouble() > 1);
    const int KeysAt = Output.indexOf("\"attributes\": {\"area\"");
    QVERIFY(KeysAt > 0);

    Output.clear();
    QCOMPARE(vxLayerInfoRun({QStringLiteral(MAPWRIGHT_GDAL_SAMPLES "/countries.shp")}, Output, Errors), 0);
    const QJsonObject Path = Parse(Output).value(QStringLiteral("items")).toArray().at(0).toObject();
    QCOMPARE(Path.value(QStringLiteral("class")).toString(), QStringLiteral("TvxMapPath"));
    QCOMPARE(Path.value(QStringLiteral("segmentType")).toString(), QStringLiteral("polygon"));
    QVERIFY(Path.value(QStringLiteral("segments")).toArray().at(0).toArray().size() > 3);
  }

  // A file that was read but whose content failed: exit 0, inactive, the
  // reason. A file that cannot be read: exit 2 and a message.
  void FailuresAreExplained()
  {
    QByteArray Output, Errors;
    const QString Broken = Write(QStringLiteral("broken.kml"), "<kml><Placemark><Point><coordinates>1,x</coordinates>");
    QCOMPARE(vxLayerInfoRun({Broken}, Output, Errors), 0);
    const QJsonObject Root = Parse(Output);
    QCOMPARE(Root.value(QStringLiteral("active")).toBool(), false);
    QVERIFY(!Root.value(QStringLiteral("error")).toString().isEmpty());
    QCOMPARE(Root.value(QStringLiteral("items")).toArray().size(), 0);

    Output.clear();
    QCOMPARE(vxLayerInfoRun({FDir.filePath(QStringLiteral("missing.kml"))}, Output, Errors), 2);
    QVERIFY(Output.isEmpty());
    QVERIFY(Errors.contains("missing.kml"));

    Errors.clear();
    const QString Lonely = Write(QStringLiteral("lonely.shp"), QByteArray(100, '\0'));
    QCOMPARE(vxLayerInfoRun({Lonely}, Output, Errors), 2);
    QVERIFY(Errors.contains(".dbf"));

    Errors.clear();
    QCOMPARE(vxLayerInfoRun({Lonely, QStringLiteral("--type"), QStringLiteral("gpx")}, Output, Errors), 2);
    QVERIFY(Errors.contains("usage"));
  }

  // The real program: JSON on standard output, exit codes.
  void ProgramRuns()
  {
    QProcess Process;
    Process.start(QStringLiteral(LAYERINFO_EXE), {Write(QStringLiteral("run.kml"), Kml)});
    QVERIFY(Process.waitForFinished(30000));
    QCOMPARE(Process.exitCode(), 0);
    QCOMPARE(Parse(Process.readAllStandardOutput()).value(QStringLiteral("items")).toArray().size(), 2);

    Process.start(QStringLiteral(LAYERINFO_EXE), {FDir.filePath(QStringLiteral("none.kml"))});
    QVERIFY(Process.waitForFinished(30000));
    QCOMPARE(Process.exitCode(), 2);
    QVERIFY(Process.readAllStandardOutput().isEmpty());
    QVERIFY(!Process.readAllStandardError().isEmpty());

    Process.start(QStringLiteral(LAYERINFO_EXE), {QStringLiteral("--version")});
    QVERIFY(Process.waitForFinished(30000));
    QCOMPARE(Process.exitCode(), 0);
    QCOMPARE(Process.readAllStandardOutput(), QByteArray("mapwright-layerinfo " MAPWRIGHT_VERSION "\n"));
  }
};

QTEST_MAIN(TestLayerInfo)
#include "tst_layerinfo.moc"
