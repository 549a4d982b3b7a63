// Loads a generated large Shapefile (10,000 polygons with holes, 5,000,000
// vertices, the file of mapwright-bench-formats) into a file layer on a
// 1920 x 1080 map widget, and measures the load and the first layout that
// follows it apart. The load is the baseline: the layout is printed as a
// ratio to it. Beside the wall time, the CPU time in user and system mode
// and the page faults of each phase: on a virtual machine a first touch of
// memory can cost more than the arithmetic.
//
// The rounds share one process and so, after the first, memory the first
// faulted in. A user's first layer is a first round: --fresh N runs N more
// rounds each in a fresh process, as their own rows.
//
//   mapwright-bench-items-layout [--rounds N] [--records N] [--projection NAME] [--fresh N]

#include "BenchShapeFile.h"
#include "BenchStats.h"
#include "vxMapControl.h"
#include "vxMapControlProjections.h"
#include "vxMapControlShapeFileLoader.h"
#include "vxMapItemFileLayer.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtEndian>

#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <vector>

namespace
{
using namespace BenchData;

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
  Parser.addOption({QStringLiteral("fresh"), QStringLiteral("Rounds in a fresh process each (default 0)."),
                    QStringLiteral("n"), QStringLiteral("0")});
  // One round of this file in this process, its load and layout printed:
  // what each fresh round runs.
  Parser.addOption({QStringLiteral("once"), QStringLiteral("Load and lay out this Shapefile once."), QStringLiteral("file")});
  Parser.process(Application);

  vxRegisterShapeFileLoader();
  if (Parser.isSet(QStringLiteral("once")))
  {
    const TRound Round = RunOnce(Parser.value(QStringLiteral("once")), Parser.value(QStringLiteral("projection")));
    std::printf("%.3f %.3f\n", Round.Load, Round.Layout);
    return Round.Items < 0;
  }
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
  BenchRow("Shapefile load plus first layout", Load + Layout, "load alone", Load);

  std::vector<double> FreshLoad, FreshTotal;
  for (int Round = 0; Round < Parser.value(QStringLiteral("fresh")).toInt(); ++Round)
  {
    QProcess Child;
    QStringList Arguments = {QStringLiteral("--once"), FileName};
    if (Parser.isSet(QStringLiteral("projection")))
      Arguments << QStringLiteral("--projection") << Parser.value(QStringLiteral("projection"));
    Child.start(QCoreApplication::applicationFilePath(), Arguments);
    Child.waitForFinished(-1);
    const QList<QByteArray> Times = Child.readAllStandardOutput().trimmed().split(' ');
    if (Child.exitCode() != 0 || Times.size() != 2)
    {
      std::fprintf(stderr, "a fresh round failed\n");
      return 1;
    }
    FreshLoad.push_back(Times[0].toDouble());
    FreshTotal.push_back(Times[0].toDouble() + Times[1].toDouble());
  }
  if (!FreshLoad.empty())
  {
    std::printf("%zu rounds each in a fresh process: load %.1f ms, load plus first layout %.1f ms\n",
                FreshLoad.size(), Median(FreshLoad), Median(FreshTotal));
    BenchRow("Shapefile load plus first layout, fresh process", Median(FreshTotal), "load alone, fresh process",
             Median(FreshLoad));
  }
  return 0;
}
