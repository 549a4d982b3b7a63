// Measures how long the map widget takes, at 1920 x 1080 and level 12, from
// the first layout until every slot of its tile layer shows its tile: from
// the disk cache, and from a loopback server that holds each tile 50 ms with
// 2 and with 30 connections. The baseline decodes the same tiles' PNG bytes
// on one core, so each ratio is the pipeline's cost over bare decoding.
//
//   mapwright-bench-tiles [--rounds N] [--zoom Z] [--delay MS]

#include "BenchStats.h"
#include "vxMapControl.h"
#include "vxMapControlOpenStreetMapImageryDataProvider.h"
#include "vxMapImageTileLayer.h"
#include "vxTestTileServer.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace
{
const QSize ViewSize(1920, 1080);
const TvxMapControlGeoPoint City = TvxMapControlGeoPoint::Create(47.3769, 8.5417);
constexpr int ReadyCapMs = 60000;

// What every provider of a round is made with: set before the layer makes
// it, so that no tile is asked for anywhere else first.
struct TSetup
{
  QString UrlTemplate;
  QString CacheFolder;
  int Connections = 2;
};
TSetup GSetup;

// The OpenStreetMap provider pointed at the loopback server from its
// construction on, so that no tile source ever holds the public template.
class TBenchTileProvider : public TvxMapControlOpenStreetMapImageryDataProvider
{
public:
  explicit TBenchTileProvider(TvxMapImageTileLayer* AOwner) : TvxMapControlOpenStreetMapImageryDataProvider(AOwner)
  {
    FCacheOptions->SetDiskFolder(GSetup.CacheFolder);
    SetUrlTemplate(GSetup.UrlTemplate);
  }
};

struct TLoad
{
  double Ms = 0;
  bool Ready = false;
};

// One fresh widget and provider; milliseconds from the layout until the
// layer is ready, or the cap.
TLoad LoadView(int AZoom)
{
  TvxMapControl Map;
  Map.OptionsBehavior().SetAnimation(false);
  Map.NavigationPanel().SetVisible(false);
  Map.resize(ViewSize);
  Map.BeginUpdate();
  auto* Layer = Map.AddLayer<TvxMapImageTileLayer>();
  Layer->SetProviderClass(vxImageTileProviderClass<TBenchTileProvider>());
  Layer->Provider()->SetMaxParallelConnectionCount(GSetup.Connections);
  Map.SetCenterPoint(City);
  Map.SetZoomLevel(AZoom);

  // Workers hand tiles over through the event queue; the tick bounds the
  // wait when nothing comes.
  QTimer Tick;
  Tick.start(5);
  QElapsedTimer Timer;
  Timer.start();
  Map.EndUpdate();
  while (!Layer->IsReady() && Timer.elapsed() < ReadyCapMs)
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  return {Timer.nsecsElapsed() / 1e6, Layer->IsReady()};
}

// Milliseconds to decode every tile once, on this thread.
double DecodeRound(const std::vector<QByteArray>& ATiles)
{
  QElapsedTimer Timer;
  Timer.start();
  int Decoded = 0;
  for (const QByteArray& Png : ATiles)
  {
    QImage Image;
    Decoded += Image.loadFromData(Png) ? 1 : 0;
  }
  const double Ms = Timer.nsecsElapsed() / 1e6;
  if (Decoded != int(ATiles.size()))
    std::fprintf(stderr, "only %d of %zu tiles decoded\n", Decoded, ATiles.size());
  return Ms;
}

struct TSeries
{
  explicit TSeries(const char* AName) : Name(AName) {}

  const char* Name;
  std::vector<double> Ms;
  int NotReady = 0;
  int Requests = 0;
  int MaxConcurrent = 0;
  int Connections = 0;

  void Add(const TLoad& ALoad)
  {
    Ms.push_back(ALoad.Ms);
    NotReady += ALoad.Ready ? 0 : 1;
  }
};
} // namespace

int main(int argc, char** argv)
{
  qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
  QApplication App(argc, argv);
  QCommandLineParser Parser;
  Parser.addHelpOption();
  Parser.addOption({"rounds", "Rounds of each measurement (default 5).", "N", "5"});
  Parser.addOption({"zoom", "Zoom level of the view (default 12).", "Z", "12"});
  Parser.addOption({"delay", "Milliseconds the server holds each tile (default 50).", "MS", "50"});
  Parser.process(App);
  const int Rounds = std::max(1, Parser.value("rounds").toInt());
  const int Zoom = std::clamp(Parser.value("zoom").toInt(), 1, 19);
  const int Delay = std::max(0, Parser.value("delay").toInt());

  TvxTestTileServer Server;
  QTemporaryDir Root;
  if (!Server.Start() || !Root.isValid())
  {
    std::fprintf(stderr, "cannot start the tile server or make a temporary folder\n");
    return 1;
  }
  GSetup.UrlTemplate = Server.UrlTemplate();

  // The warm-up fills the cache folder of the disk rounds and tells which
  // tiles the view needs.
  GSetup.CacheFolder = Root.filePath(QStringLiteral("warm"));
  GSetup.Connections = 8;
  if (!LoadView(Zoom).Ready)
  {
    std::fprintf(stderr, "the warm-up view never got ready\n");
    return 1;
  }
  std::vector<QByteArray> Tiles;
  for (const QString& Path : Server.Requests())
  {
    const QStringList Parts = QString(Path).remove(QLatin1String(".png")).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (Parts.size() == 3)
      Tiles.push_back(Server.TilePng(Parts[0].toInt(), Parts[1].toInt(), Parts[2].toInt()));
  }

  TSeries Disk("disk cache, 2 workers");
  TSeries Net2("server, 2 connections");
  TSeries Net30("server, 30 connections");
  std::vector<double> Decode;
  // Interleaved, so that every measurement sees the same machine state.
  for (int Round = 0; Round < Rounds; ++Round)
  {
    Server.ClearRules();
    Server.SetDefaultRule(TvxTestTileServer::TRule::Status(404));
    Server.ResetCounters();
    GSetup.CacheFolder = Root.filePath(QStringLiteral("warm"));
    GSetup.Connections = 2;
    Disk.Add(LoadView(Zoom));
    Disk.Requests += Server.RequestCount();

    for (TSeries* Series : {&Net2, &Net30})
    {
      Server.ClearRules();
      Server.SetDelay(Delay);
      Server.ResetCounters();
      GSetup.Connections = Series == &Net2 ? 2 : 30;
      GSetup.CacheFolder = Root.filePath(QStringLiteral("round%1-%2").arg(Round).arg(GSetup.Connections));
      Series->Add(LoadView(Zoom));
      Series->Requests += Server.RequestCount();
      Series->MaxConcurrent = std::max(Series->MaxConcurrent, Server.MaxConcurrent());
      Series->Connections = std::max(Series->Connections, Server.ConnectionCount());
    }
    Decode.push_back(DecodeRound(Tiles));
  }

  const double Baseline = Median(Decode);
  std::printf("map widget %dx%d at level %d: %zu tiles of 256 px, %d rounds, server delay %d ms per tile\n",
              ViewSize.width(), ViewSize.height(), Zoom, Tiles.size(), Rounds, Delay);
  // Requests per round, and the most the server saw at once and connected.
  std::printf("%-26s %10s %7s %9s %8s %6s %10s\n", "until the layer is ready", "median ms", "ratio", "requests",
              "at once", "conns", "not ready");
  for (const TSeries* Series : {&Disk, &Net2, &Net30})
    std::printf("%-26s %10.1f %7.1f %9.1f %8d %6d %10d\n", Series->Name, Median(Series->Ms),
                Baseline > 0 ? Median(Series->Ms) / Baseline : 0.0, double(Series->Requests) / Rounds,
                Series->MaxConcurrent, Series->Connections, Series->NotReady);
  std::printf("%-26s %10.1f %7.1f\n", "decode only, one core", Baseline, 1.0);
  return 0;
}
