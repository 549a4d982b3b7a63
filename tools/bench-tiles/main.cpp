// Measures how long the map widget takes, at 1920 x 1080 and level 12, from
// the first layout until every slot of its tile layer shows its tile: from
// the disk cache, and from a loopback server that holds each tile 50 ms with
// 2 and with 30 connections. The baseline decodes the same tiles' PNG bytes
// on one core, so each ratio is the pipeline's cost over bare decoding.
//
// With --mbtiles the view, at level 3 unless told otherwise, is filled from
// an MBTiles file by one worker and by the provider's default count, against
// the same baseline.
//
//   mapwright-bench-tiles [--rounds N] [--zoom Z] [--delay MS] [--mbtiles]

#include "BenchStats.h"
#include "vxMBTilesImageryDataProvider.h"
#include "vxMapControl.h"
#include "vxMapControlOpenStreetMapImageryDataProvider.h"
#include "vxMapImageTileLayer.h"
#include "vxTestMBTiles.h"
#include "vxTestTileServer.h"

#include <QApplication>
#include <QBuffer>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
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

void ServerLayer(TvxMapImageTileLayer& ALayer)
{
  ALayer.SetProviderClass(vxImageTileProviderClass<TBenchTileProvider>());
  ALayer.Provider()->SetMaxParallelConnectionCount(GSetup.Connections);
}

// One fresh widget whose tile layer ASetUp gives its provider; milliseconds
// from the layout until the layer is ready, or the cap. AHeld, if given,
// receives the tiles the layer holds then.
TLoad LoadView(int AZoom, const std::function<void(TvxMapImageTileLayer&)>& ASetUp = ServerLayer,
               QList<TvxMapControlTileIndex>* AHeld = nullptr)
{
  TvxMapControl Map;
  Map.OptionsBehavior().SetAnimation(false);
  Map.NavigationPanel().SetVisible(false);
  Map.resize(ViewSize);
  Map.BeginUpdate();
  auto* Layer = Map.AddLayer<TvxMapImageTileLayer>();
  ASetUp(*Layer);
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
  const TLoad Result{Timer.nsecsElapsed() / 1e6, Layer->IsReady()};
  if (AHeld && Layer->Provider()->TileSource())
    *AHeld = Layer->Provider()->TileSource()->Storage().Indexes();
  return Result;
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

QByteArray TilePng(int AZoom, int AX, int AY)
{
  QByteArray Png;
  QBuffer Buffer(&Png);
  Buffer.open(QIODevice::WriteOnly);
  TvxTestTileServer::TileImage(AZoom, AX, AY).save(&Buffer, "PNG");
  return Png;
}

// The view filled from an MBTiles file of the test server's tiles, every
// level down to one below the view's, beside decoding the tiles the view
// held on one core.
int RunMBTiles(int ARounds, int AZoom)
{
  QTemporaryDir Root;
  const QString FileName = Root.filePath(QStringLiteral("bench.mbtiles"));
  QHash<TvxMapControlTileIndex, QByteArray> Pngs;
  {
    TvxTestMBTiles File(FileName);
    File.SetMetadata(QStringLiteral("format"), QStringLiteral("png"));
    File.SetMetadata(QStringLiteral("minzoom"), QStringLiteral("1"));
    File.SetMetadata(QStringLiteral("maxzoom"), QString::number(AZoom + 1));
    for (int Z = 1; Z <= AZoom + 1; ++Z)
      for (int X = 0; X < 1 << Z; ++X)
        for (int Y = 0; Y < 1 << Z; ++Y)
        {
          const QByteArray& Png = Pngs[{X, Y, Z}] = TilePng(Z, X, Y);
          if (!File.AddTile(Z, X, Y, Png))
          {
            std::fprintf(stderr, "cannot write %s: %s\n", qPrintable(FileName), qPrintable(File.Error()));
            return 1;
          }
        }
  }
  const int Default = TvxMBTilesImageryDataProvider(nullptr).GetDefaultMaxParallelConnectionCount();
  const auto FileLayer = [&FileName](int AWorkers) {
    return [&FileName, AWorkers](TvxMapImageTileLayer& ALayer) {
      ALayer.SetProviderClass(vxImageTileProviderClass<TvxMBTilesImageryDataProvider>());
      ALayer.ProviderAs<TvxMBTilesImageryDataProvider>()->SetFileName(FileName);
      ALayer.Provider()->SetMaxParallelConnectionCount(AWorkers);
    };
  };

  QList<TvxMapControlTileIndex> Held;
  if (!LoadView(AZoom, FileLayer(Default), &Held).Ready || Held.isEmpty())
  {
    std::fprintf(stderr, "the warm-up view never got ready\n");
    return 1;
  }
  std::vector<QByteArray> Tiles;
  for (const TvxMapControlTileIndex& Index : std::as_const(Held))
    Tiles.push_back(Pngs.value(Index));

  TSeries One("MBTiles, 1 worker");
  const QByteArray ManyName = QStringLiteral("MBTiles, %1 workers").arg(Default).toUtf8();
  TSeries Many(ManyName.constData());
  std::vector<double> Decode;
  for (int Round = 0; Round < ARounds; ++Round)
  {
    One.Add(LoadView(AZoom, FileLayer(1)));
    Many.Add(LoadView(AZoom, FileLayer(Default)));
    Decode.push_back(DecodeRound(Tiles));
  }

  const double Baseline = Median(Decode);
  std::printf("map widget %dx%d at level %d from an MBTiles file of %lld tiles (levels 1-%d): %zu tiles of "
              "256 px in view, %d rounds\n",
              ViewSize.width(), ViewSize.height(), AZoom, qlonglong(Pngs.size()), AZoom + 1, Tiles.size(), ARounds);
  std::printf("%-26s %10s %7s %10s\n", "until the layer is ready", "median ms", "ratio", "not ready");
  for (const TSeries* Series : {&One, &Many})
    std::printf("%-26s %10.2f %7.2f %10d\n", Series->Name, Median(Series->Ms),
                Baseline > 0 ? Median(Series->Ms) / Baseline : 0.0, Series->NotReady);
  std::printf("%-26s %10.2f %7.2f\n", "decode only, one core", Baseline, 1.0);
  for (const TSeries* Series : {&One, &Many})
    BenchRow(Series->Name, Median(Series->Ms), "decode only, one core", Baseline);
  return 0;
}
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
  Parser.addOption({"mbtiles", "Fill the view from an MBTiles file instead (level 3 unless --zoom, at most 5)."});
  Parser.process(App);
  const int Rounds = std::max(1, Parser.value("rounds").toInt());
  if (Parser.isSet("mbtiles"))
    return RunMBTiles(Rounds, Parser.isSet("zoom") ? std::clamp(Parser.value("zoom").toInt(), 1, 5) : 3);
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
  for (const TSeries* Series : {&Disk, &Net2, &Net30})
    BenchRow(Series->Name, Median(Series->Ms), "decode only, one core", Baseline);
  return 0;
}
