// Loads a generated large Shapefile (10,000 polygons with holes, 5,000,000
// vertices, the file of mapwright-bench-formats) into a file layer on a
// 1920 x 1080 map widget, and measures the load and the first layout that
// follows it apart. The load is the baseline: the layout is printed as a
// ratio to it. Beside the wall time, the CPU time in user and system mode
// and the page faults of each phase: on a virtual machine a first touch of
// memory can cost more than the arithmetic.
//
//   mapwright-bench-items-layout [--rounds N] [--records N] [--projection NAME]

#include "BenchStats.h"
#include "vxMapControl.h"
#include "vxMapControlProjections.h"
#include "vxMapControlShapeFileLoader.h"
#include "vxMapItemFileLayer.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtEndian>

#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <vector>

namespace
{
template <class T>
void Put(QByteArray& AData, T AValue, bool ABigEndian)
{
  char Bytes[sizeof(T)];
  if (ABigEndian)
    qToBigEndian(AValue, Bytes);
  else
    qToLittleEndian(AValue, Bytes);
  AData.append(Bytes, sizeof(T));
}

void PutField(QByteArray& AData, const QByteArray& AText, int AWidth, bool ARight)
{
  const QByteArray Text = AText.left(AWidth);
  const QByteArray Pad(AWidth - Text.size(), ' ');
  AData += ARight ? Pad + Text : Text + Pad;
}

bool WriteFile(const QString& AName, const QByteArray& AData)
{
  QFile File(AName);
  return File.open(QIODevice::WriteOnly) && File.write(AData) == AData.size();
}

struct TPoint
{
  double X, Y;
};

// A closed ring round a centre whose radius wobbles.
void Ring(std::vector<TPoint>& APoints, double AX, double AY, double ARadius, int ACount, QRandomGenerator& ARandom)
{
  for (int I = 0; I < ACount - 1; ++I)
  {
    const double Angle = 2 * M_PI * I / (ACount - 1), R = ARadius * (0.8 + 0.4 * ARandom.generateDouble());
    APoints.push_back({AX + R * std::cos(Angle), AY + R * std::sin(Angle)});
  }
  APoints.push_back(APoints[APoints.size() - size_t(ACount - 1)]);
}

// The same file as mapwright-bench-formats writes: polygons of 400 outer
// and 100 inner vertices, and a table of text, integer, float and date.
bool WriteShapeFile(const QString& ABaseName, int ARecords)
{
  QRandomGenerator Random(7);
  const auto Header = [](QByteArray& AData, qint64 ALength) {
    Put<qint32>(AData, 9994, true);
    for (int I = 0; I < 5; ++I)
      Put<qint32>(AData, 0, true);
    Put<qint32>(AData, qint32(ALength / 2), true);
    Put<qint32>(AData, 1000, false);
    Put<qint32>(AData, 5, false);
    for (double V : {-180.0, -90.0, 180.0, 90.0, 0.0, 0.0, 0.0, 0.0})
      Put(AData, V, false);
  };
  QByteArray Records, Index;
  std::vector<TPoint> Points;
  for (int N = 1; N <= ARecords; ++N)
  {
    const double X = -170 + 340 * Random.generateDouble(), Y = -80 + 160 * Random.generateDouble();
    Points.clear();
    Ring(Points, X, Y, 2.0, 400, Random);
    Ring(Points, X, Y, 0.5, 100, Random);
    const qint32 Content = 4 + 32 + 4 + 4 + 2 * 4 + qint32(Points.size()) * 16;
    Put<qint32>(Index, qint32((100 + Records.size()) / 2), true);
    Put<qint32>(Index, Content / 2, true);
    Put<qint32>(Records, N, true);
    Put<qint32>(Records, Content / 2, true);
    Put<qint32>(Records, 5, false);
    for (double V : {X - 2.4, Y - 2.4, X + 2.4, Y + 2.4})
      Put(Records, V, false);
    Put<qint32>(Records, 2, false);
    Put<qint32>(Records, qint32(Points.size()), false);
    Put<qint32>(Records, 0, false);
    Put<qint32>(Records, 400, false);
    for (const TPoint& P : Points)
    {
      Put(Records, P.X, false);
      Put(Records, P.Y, false);
    }
  }
  QByteArray Shapes, IndexFile;
  Header(Shapes, 100 + Records.size());
  Shapes += Records;
  Header(IndexFile, 100 + Index.size());
  IndexFile += Index;

  struct TField
  {
    const char* Name;
    char Type;
    int Length, Decimals;
  };
  const TField Fields[] = {{"NAME", 'C', 24, 0}, {"POP", 'N', 9, 0}, {"AREA", 'N', 19, 8}, {"SURVEYED", 'D', 8, 0}};
  const int RecordLength = 1 + 24 + 9 + 19 + 8, HeaderLength = 32 + 4 * 32 + 1;
  QByteArray Table;
  Table += char(0x03);
  Table += QByteArray("\x7e\x0b\x15", 3);
  Put<qint32>(Table, ARecords, false);
  Put<qint16>(Table, qint16(HeaderLength), false);
  Put<qint16>(Table, qint16(RecordLength), false);
  Table += QByteArray(17, '\0');
  Table += char(0x03);
  Table += QByteArray(2, '\0');
  for (const TField& Field : Fields)
  {
    QByteArray Descriptor(32, '\0');
    Descriptor.replace(0, int(qstrlen(Field.Name)), Field.Name);
    Descriptor[11] = Field.Type;
    Descriptor[16] = char(Field.Length);
    Descriptor[17] = char(Field.Decimals);
    Table += Descriptor;
  }
  Table += char(0x0D);
  for (int N = 1; N <= ARecords; ++N)
  {
    Table += ' ';
    PutField(Table, "Zone " + QByteArray::number(N) + " caf\xe9", 24, false);
    PutField(Table, QByteArray::number(Random.bounded(1000000)), 9, true);
    PutField(Table, QByteArray::number(Random.generateDouble() * 10000, 'f', 8), 19, true);
    PutField(Table, QByteArray::number(19900101 + Random.bounded(30) * 10000 + Random.bounded(12) * 100 +
                                       Random.bounded(28)),
             8, false);
  }
  Table += char(0x1A);
  return WriteFile(ABaseName + QStringLiteral(".shp"), Shapes) &&
         WriteFile(ABaseName + QStringLiteral(".shx"), IndexFile) &&
         WriteFile(ABaseName + QStringLiteral(".dbf"), Table);
}

struct TUsage
{
  double User = 0;
  double System = 0;
  double Faults = 0;

  static TUsage Now()
  {
    rusage Usage{};
    getrusage(RUSAGE_SELF, &Usage);
    const auto Ms = [](const timeval& ATime) { return ATime.tv_sec * 1e3 + ATime.tv_usec / 1e3; };
    return {Ms(Usage.ru_utime), Ms(Usage.ru_stime), double(Usage.ru_minflt + Usage.ru_majflt)};
  }
  TUsage operator-(const TUsage& AOther) const
  {
    return {User - AOther.User, System - AOther.System, Faults - AOther.Faults};
  }
};

struct TRound
{
  double Load = 0;
  double Layout = 0;
  TUsage LoadUsage, LayoutUsage;
  int Items = 0;
};

// A fresh widget and layer each round, so that every layout is a first one.
TRound RunOnce(const QString& AFileName, const QString& AProjection)
{
  TvxMapControl Map;
  Map.OptionsBehavior().SetAnimation(false);
  Map.NavigationPanel().SetVisible(false);
  Map.resize(1920, 1080);
  Map.SetZoomLevel(3);
  Map.SetCenterPoint(TvxMapControlGeoPoint::Create(0, 0));
  auto* Layer = Map.AddLayer<TvxMapItemFileLayer>();
  if (!AProjection.isEmpty())
    Layer->SetProjectionClassName(AProjection);
  Layer->SetFileType(miftShape);
  TRound Result;
  Map.BeginUpdate();
  QElapsedTimer Timer;
  TUsage Start = TUsage::Now();
  Timer.start();
  Layer->LoadFromFile(AFileName);
  Result.Load = Timer.nsecsElapsed() / 1e6;
  Result.LoadUsage = TUsage::Now() - Start;
  Start = TUsage::Now();
  Timer.restart();
  Map.EndUpdate();
  Result.Layout = Timer.nsecsElapsed() / 1e6;
  Result.LayoutUsage = TUsage::Now() - Start;
  Result.Items = Layer->Active() ? Layer->MapItems().Count() : -1;
  if (!Layer->Active())
    std::fprintf(stderr, "load failed: %s\n", qPrintable(Layer->LastError()));
  return Result;
}
} // namespace

int main(int argc, char* argv[])
{
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication Application(argc, argv);
  QCommandLineParser Parser;
  Parser.setApplicationDescription(QStringLiteral("Load and first layout of a large Shapefile on the map widget."));
  Parser.addHelpOption();
  Parser.addOption({QStringLiteral("rounds"), QStringLiteral("Rounds (default 5)."), QStringLiteral("n"), QStringLiteral("5")});
  Parser.addOption({QStringLiteral("records"), QStringLiteral("Polygons of 500 vertices (default 10000)."),
                    QStringLiteral("n"), QStringLiteral("10000")});
  Parser.addOption({QStringLiteral("projection"), QStringLiteral("The layer's projection by name (default its own)."),
                    QStringLiteral("name")});
  Parser.process(Application);

  vxRegisterShapeFileLoader();
  QTemporaryDir Dir;
  const int Records = Parser.value(QStringLiteral("records")).toInt();
  if (!Dir.isValid() || !WriteShapeFile(Dir.path() + QStringLiteral("/bench"), Records))
  {
    std::fprintf(stderr, "cannot write the Shapefile\n");
    return 1;
  }
  const QString FileName = Dir.path() + QStringLiteral("/bench.shp");
  std::printf("Shapefile: %d polygons, %d vertices, %.1f MB; map widget 1920x1080 at level 3\n", Records,
              Records * 500, QFile(FileName).size() / 1e6);

  std::vector<TRound> Rounds;
  for (int Round = 0; Round < std::max(1, Parser.value(QStringLiteral("rounds")).toInt()); ++Round)
    Rounds.push_back(RunOnce(FileName, Parser.value(QStringLiteral("projection"))));
  const auto Of = [&Rounds](auto AField) {
    std::vector<double> Values;
    for (const TRound& R : Rounds)
      Values.push_back(AField(R));
    return Median(Values);
  };
  const double Load = Of([](const TRound& R) { return R.Load; });
  const double Layout = Of([](const TRound& R) { return R.Layout; });
  std::printf("items: %d, median of %zu rounds\n", Rounds.back().Items, Rounds.size());
  std::printf("%-24s %10s %8s %10s %10s %12s\n", "median", "wall ms", "ratio", "user ms", "system ms", "page faults");
  std::printf("%-24s %10.1f %8.2f %10.1f %10.1f %12.0f\n", "load (baseline)", Load, 1.0,
              Of([](const TRound& R) { return R.LoadUsage.User; }),
              Of([](const TRound& R) { return R.LoadUsage.System; }),
              Of([](const TRound& R) { return R.LoadUsage.Faults; }));
  std::printf("%-24s %10.1f %8.2f %10.1f %10.1f %12.0f\n", "first layout", Layout, Layout / Load,
              Of([](const TRound& R) { return R.LayoutUsage.User; }),
              Of([](const TRound& R) { return R.LayoutUsage.System; }),
              Of([](const TRound& R) { return R.LayoutUsage.Faults; }));
  return 0;
}
