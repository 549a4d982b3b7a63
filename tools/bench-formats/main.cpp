// Loads a generated large Shapefile (polygons with holes, a table of text,
// integer, float and date fields) and a KML of placemarks into file layers,
// and runs GDAL's reading of the same files in the same rounds, when the
// baseline program was built. Each load and each raw read runs in a fresh
// process, as a user meets them: a process that has loaded before reuses
// memory the first load had to fault in.

#include "BenchShapeFile.h"
#include "BenchStats.h"
#include "vxLargeBlock.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"
#include "vxMapItemFileLayer.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QFile>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtEndian>

#include <cmath>
#include <cstdio>

namespace
{

using namespace BenchData;

QByteArray Coordinates(const std::vector<TPoint>& APoints)
{
  QByteArray Text;
  for (const TPoint& P : APoints)
    Text += QByteArray::number(P.X, 'f', 7) + ',' + QByteArray::number(P.Y, 'f', 7) + ",0 ";
  Text.chop(1);
  return Text;
}

// Placemarks in folders: points, lines of 20 vertices, polygons of 30 and
// 10; shared styles and a style map, as GIS tools write them.
bool WriteKml(const QString& AName, int APlacemarks)
{
  QRandomGenerator Random(11);
  QByteArray Kml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kml xmlns=\"http://www.opengis.net/kml/2.2\">\n<Document>\n";
  for (int S = 0; S < 10; ++S)
    Kml += "<Style id=\"s" + QByteArray::number(S) + "\"><IconStyle><scale>1.1</scale></IconStyle>"
      "<LabelStyle><color>ff00ffff</color></LabelStyle><LineStyle><color>ff0000ff</color><width>2</width></LineStyle>"
      "<PolyStyle><color>7f00ff00</color></PolyStyle></Style>\n";
  Kml += "<StyleMap id=\"m\"><Pair><key>normal</key><styleUrl>#s1</styleUrl></Pair>"
         "<Pair><key>highlight</key><styleUrl>#s2</styleUrl></Pair></StyleMap>\n";
  std::vector<TPoint> Points;
  for (int P = 0; P < APlacemarks; ++P)
  {
    if (P % 1000 == 0)
      Kml += (P ? "</Folder>\n" : "") + QByteArray("<Folder><name>Folder ") + QByteArray::number(P / 1000) + "</name>\n";
    const double X = -170 + 340 * Random.generateDouble(), Y = -80 + 160 * Random.generateDouble();
    Kml += "<Placemark><name>Place " + QByteArray::number(P) + "</name><description>Generated place number " +
      QByteArray::number(P) + "</description><styleUrl>" + (P % 7 ? "#s" + QByteArray::number(P % 10) : "#m") +
      "</styleUrl>\n";
    Points.clear();
    const int Kind = P % 20;
    if (Kind < 12)
      Kml += "<Point><coordinates>" + Coordinates({{X, Y}}) + "</coordinates></Point>";
    else if (Kind < 17)
    {
      for (int I = 0; I < 20; ++I)
        Points.push_back({X + I * 0.01, Y + 0.02 * Random.generateDouble()});
      Kml += "<LineString><coordinates>" + Coordinates(Points) + "</coordinates></LineString>";
    }
    else
    {
      Ring(Points, X, Y, 0.5, 30, Random);
      Kml += "<Polygon><outerBoundaryIs><LinearRing><coordinates>" + Coordinates(Points) +
        "</coordinates></LinearRing></outerBoundaryIs>";
      Points.clear();
      Ring(Points, X, Y, 0.1, 10, Random);
      Kml += "<innerBoundaryIs><LinearRing><coordinates>" + Coordinates(Points) +
        "</coordinates></LinearRing></innerBoundaryIs></Polygon>";
    }
    Kml += "\n</Placemark>\n";
  }
  Kml += "</Folder>\n</Document>\n</kml>\n";
  return WriteFile(AName, Kml);
}

// Milliseconds to load the file into a new layer; the item count out.
double LoadOnce(const QString& AName, TvxMapItemFileType AType, int& AItems)
{
  TvxMapItemFileLayer Layer;
  Layer.SetFileType(AType);
  QElapsedTimer Timer;
  Timer.start();
  Layer.LoadFromFile(AName);
  const double Ms = Timer.nsecsElapsed() / 1e6;
  AItems = Layer.Active() ? Layer.MapItems().Count() : -1;
  if (!Layer.Active())
    std::fprintf(stderr, "load failed: %s\n", qPrintable(Layer.LastError()));
  return Ms;
}

// Milliseconds of one raw read of the files.
double RawOnce(const QStringList& ANames)
{
  QElapsedTimer Timer;
  Timer.start();
  for (const QString& Name : ANames)
  {
    QFile File(Name);
    if (File.open(QIODevice::ReadOnly))
      File.readAll();
  }
  return Timer.nsecsElapsed() / 1e6;
}

// Milliseconds of one read of the files into large blocks, as a file layer
// reads a big Shapefile.
double RawLargeOnce(const QStringList& ANames)
{
  QElapsedTimer Timer;
  Timer.start();
  std::vector<TvxLargeBlock> Blocks;
  for (const QString& Name : ANames)
  {
    QFile File(Name);
    if (!File.open(QIODevice::ReadOnly))
      continue;
    TvxLargeBlock& Block = Blocks.emplace_back(size_t(File.size()));
    File.read(reinterpret_cast<char*>(Block.Data()), qint64(Block.Size()));
  }
  return Timer.nsecsElapsed() / 1e6;
}

// This program again, running one measurement; its milliseconds, or -1.
double ChildOnce(const QStringList& AArguments)
{
  QProcess Process;
  Process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
  Process.start(QCoreApplication::applicationFilePath(), AArguments);
  Process.waitForFinished(-1);
  bool Ok = false;
  const double Ms = Process.readAllStandardOutput().trimmed().toDouble(&Ok);
  return Ok && Process.exitCode() == 0 ? Ms : -1;
}

// The GDAL program's milliseconds per file, in the order given.
std::vector<double> GdalOnce(const QString& AProgram, const QStringList& AFiles)
{
  QProcess Process;
  Process.start(AProgram, AFiles);
  Process.waitForFinished(-1);
  std::vector<double> Result;
  for (const QByteArray& Line : Process.readAllStandardOutput().split('\n'))
  {
    const QList<QByteArray> Parts = Line.split(' ');
    if (Parts.size() == 3)
      Result.push_back(Parts[1].toDouble());
  }
  return Result;
}

} // namespace

int main(int argc, char* argv[])
{
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication Application(argc, argv);
  QCommandLineParser Parser;
  Parser.setApplicationDescription(QStringLiteral("Load times of a large Shapefile and a KML beside GDAL's."));
  Parser.addHelpOption();
  Parser.addOption({QStringLiteral("rounds"), QStringLiteral("Rounds (default 5)."), QStringLiteral("n"), QStringLiteral("5")});
  Parser.addOption({QStringLiteral("records"), QStringLiteral("Polygons of 500 vertices (default 10000)."), QStringLiteral("n"), QStringLiteral("10000")});
  Parser.addOption({QStringLiteral("placemarks"), QStringLiteral("KML placemarks (default 20000)."), QStringLiteral("n"), QStringLiteral("20000")});
  Parser.addOption({QStringLiteral("keep"), QStringLiteral("Write the files to this folder and keep them."), QStringLiteral("dir")});
  // One measurement in this process, its milliseconds printed: what each
  // round runs in a fresh process.
  Parser.addOption({QStringLiteral("load-shp"), QStringLiteral("Load this Shapefile once."), QStringLiteral("file")});
  Parser.addOption({QStringLiteral("load-kml"), QStringLiteral("Load this KML once."), QStringLiteral("file")});
  Parser.addOption({QStringLiteral("raw"), QStringLiteral("Read these files (comma-separated) once."), QStringLiteral("files")});
  Parser.addOption({QStringLiteral("raw-large"), QStringLiteral("Read these files (comma-separated) once into large blocks."),
                    QStringLiteral("files")});
  Parser.process(Application);

  vxRegisterKmlFileLoader();
  vxRegisterShapeFileLoader();

  // The program has its fonts loaded long before any layer: so has each
  // measuring process, so that a KML load does not pay for the first one.
  QFontMetrics(QGuiApplication::font()).horizontalAdvance(QStringLiteral("Place 1"));
  int Items = 0;
  if (Parser.isSet(QStringLiteral("load-shp")))
  {
    const double Ms = LoadOnce(Parser.value(QStringLiteral("load-shp")), miftShape, Items);
    std::printf("%.3f\n", Ms);
    return Items < 0;
  }
  if (Parser.isSet(QStringLiteral("load-kml")))
  {
    const double Ms = LoadOnce(Parser.value(QStringLiteral("load-kml")), miftKml, Items);
    std::printf("%.3f\n", Ms);
    return Items < 0;
  }
  if (Parser.isSet(QStringLiteral("raw")))
  {
    std::printf("%.3f\n", RawOnce(Parser.value(QStringLiteral("raw")).split(QLatin1Char(','))));
    return 0;
  }
  if (Parser.isSet(QStringLiteral("raw-large")))
  {
    std::printf("%.3f\n", RawLargeOnce(Parser.value(QStringLiteral("raw-large")).split(QLatin1Char(','))));
    return 0;
  }

  QTemporaryDir Temporary;
  const QString Dir = Parser.isSet(QStringLiteral("keep")) ? Parser.value(QStringLiteral("keep")) : Temporary.path();
  const QString ShapeName = Dir + QStringLiteral("/bench.shp"), KmlName = Dir + QStringLiteral("/bench.kml");
  const int Records = Parser.value(QStringLiteral("records")).toInt();
  if (!WriteShapeFile(Dir + QStringLiteral("/bench"), Records) ||
      !WriteKml(KmlName, Parser.value(QStringLiteral("placemarks")).toInt()))
  {
    std::fprintf(stderr, "cannot write the files in %s\n", qPrintable(Dir));
    return 1;
  }
  std::printf("Shapefile: %d polygons, %d vertices, %.1f MB; KML: %s placemarks, %.1f MB\n", Records, Records * 500,
    QFile(ShapeName).size() / 1e6, qPrintable(Parser.value(QStringLiteral("placemarks"))), QFile(KmlName).size() / 1e6);
  int ShapeItems = 0, KmlItems = 0;
  // Item counts from this process, once: the rounds' children print times.
  LoadOnce(ShapeName, miftShape, ShapeItems);
  LoadOnce(KmlName, miftKml, KmlItems);

  const QString GdalProgram = QCoreApplication::applicationDirPath() + QStringLiteral("/mapwright-bench-formats-gdal");
  const bool HaveGdal = QFile::exists(GdalProgram);
  std::vector<double> Shape, Kml, GdalShape, GdalKml, Raw, RawLarge;
  const QString RawFiles = ShapeName + QLatin1Char(',') + Dir + QStringLiteral("/bench.dbf");
  for (int Round = 0; Round < Parser.value(QStringLiteral("rounds")).toInt(); ++Round)
  {
    const double RawMs = ChildOnce({QStringLiteral("--raw"), RawFiles});
    const double RawLargeMs = ChildOnce({QStringLiteral("--raw-large"), RawFiles});
    const double ShapeMs = ChildOnce({QStringLiteral("--load-shp"), ShapeName});
    const double KmlMs = ChildOnce({QStringLiteral("--load-kml"), KmlName});
    if (RawMs < 0 || RawLargeMs < 0 || ShapeMs < 0 || KmlMs < 0)
    {
      std::fprintf(stderr, "a measuring process failed\n");
      return 1;
    }
    Raw.push_back(RawMs);
    RawLarge.push_back(RawLargeMs);
    Shape.push_back(ShapeMs);
    Kml.push_back(KmlMs);
    if (HaveGdal)
    {
      const std::vector<double> Times = GdalOnce(GdalProgram, {ShapeName, KmlName});
      if (Times.size() == 2)
      {
        GdalShape.push_back(Times[0]);
        GdalKml.push_back(Times[1]);
      }
    }
  }
  std::printf("items: %d from the Shapefile, %d from the KML\n", ShapeItems, KmlItems);
  std::printf("%-34s %10s %10s %8s\n", "median ms", "Mapwright", "GDAL", "ratio");
  const auto Row = [](const char* AName, double AOurs, double ATheirs) {
    if (ATheirs > 0)
      std::printf("%-34s %10.1f %10.1f %8.2f\n", AName, AOurs, ATheirs, AOurs / ATheirs);
    else
      std::printf("%-34s %10.1f %10s %8s\n", AName, AOurs, "-", "-");
  };
  Row("Shapefile load", Median(Shape), Median(GdalShape));
  Row("KML load", Median(Kml), Median(GdalKml));
  Row("raw read of .shp and .dbf", Median(Raw), 0);
  Row("the same into large blocks", Median(RawLarge), 0);
  if (HaveGdal)
  {
    BenchRow("Shapefile load", Median(Shape), "GDAL 3.6", Median(GdalShape));
    BenchRow("KML load", Median(Kml), "GDAL 3.6", Median(GdalKml));
  }
  BenchRow("Shapefile load against its bytes", Median(Shape), "raw read of .shp and .dbf", Median(Raw));
  // The load reads a big file into large blocks: against that read too, so
  // that what the parsing costs shows apart from how the bytes are read.
  BenchRow("Shapefile load against its bytes", Median(Shape), "raw read into large blocks", Median(RawLarge));
  if (!HaveGdal)
    std::printf("(GDAL baseline not built: install libgdal-dev and configure again)\n");
  return 0;
}
