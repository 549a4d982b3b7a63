// Start-up loads of a KML layer whose placemarks use icons from a web server:
// the server down (connection refused), silent (a loopback listener whose
// queue is full, so connecting never completes), up, and down again after
// an online load that filled the icon disk cache. Each load runs in a fresh
// process, as at start-up; with --baseline, the same loads of another build
// run in turns with these.

#include "BenchStats.h"
#include "vxMapControlHttpRequest.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapItemFileLayer.h"
#include "vxMapPointItems.h"
#include "vxTestTileServer.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <optional>

namespace
{

std::atomic<int> GAttempts = 0;

// The program's transport, counting what reaches it.
class TCountingRequest : public TvxMapControlHttpRequest
{
protected:
  bool DoGet(const QUrl& AUrl, QIODevice& AContent, int& AStatusCode) override
  {
    ++GAttempts;
    return TvxMapControlHttpRequest::DoGet(AUrl, AContent, AStatusCode);
  }
};

// A port on 127.0.0.1 where nothing listens.
quint16 ClosedPort()
{
  QTcpServer Server;
  Server.listen(QHostAddress::LocalHost, 0);
  const quint16 Port = Server.serverPort();
  Server.close();
  return Port;
}

// A listener with a backlog of none, filled by one connection that is never
// accepted: the kernel drops every further SYN, as a host behind a dead
// route would.
class TSilentHost
{
public:
  TSilentHost()
  {
    FListener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in Address{};
    Address.sin_family = AF_INET;
    Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t Length = sizeof Address;
    if (FListener < 0 || bind(FListener, reinterpret_cast<sockaddr*>(&Address), Length) != 0 ||
        listen(FListener, 0) != 0 || getsockname(FListener, reinterpret_cast<sockaddr*>(&Address), &Length) != 0)
      return;
    FPort = ntohs(Address.sin_port);
    FFiller = socket(AF_INET, SOCK_STREAM, 0);
    if (FFiller < 0 || ::connect(FFiller, reinterpret_cast<sockaddr*>(&Address), Length) != 0)
      FPort = 0;
  }
  ~TSilentHost()
  {
    for (const int Socket : {FFiller, FListener})
      if (Socket >= 0)
        close(Socket);
  }
  TSilentHost(const TSilentHost&) = delete;
  TSilentHost& operator=(const TSilentHost&) = delete;

  quint16 Port() const { return FPort; }

private:
  int FListener = -1;
  int FFiller = -1;
  quint16 FPort = 0;
};

// APlacemarks points whose styles use AIcons different icon URLs in turn.
bool WriteKml(const QString& AName, int APlacemarks, const QStringList& AIcons)
{
  QByteArray Kml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kml xmlns=\"http://www.opengis.net/kml/2.2\">\n<Document>\n";
  for (int I = 0; I < AIcons.size(); ++I)
    Kml += "<Style id=\"s" + QByteArray::number(I) + "\"><IconStyle><Icon><href>" + AIcons[I].toUtf8() +
      "</href></Icon></IconStyle></Style>\n";
  for (int P = 0; P < APlacemarks; ++P)
    Kml += "<Placemark><name>Place " + QByteArray::number(P) + "</name><styleUrl>#s" +
      QByteArray::number(P % AIcons.size()) + "</styleUrl><Point><coordinates>" + QByteArray::number(P % 360 - 180) +
      "," + QByteArray::number(P % 170 - 85) + "</coordinates></Point></Placemark>\n";
  Kml += "</Document>\n</kml>\n";
  QFile File(AName);
  return File.open(QIODevice::WriteOnly) && File.write(Kml) == Kml.size();
}

// The child: one load, "RESULT <ms> <fetch attempts> <points with an icon>".
int LoadOnce(const QString& AKml, const QString& ACacheDir)
{
  vxRegisterKmlFileLoader();
  vxSetKmlIconCacheDir(ACacheDir);
  TvxHttpRequest::RegisterHandler([] { return std::make_unique<TCountingRequest>(); });
  TvxMapItemFileLayer Layer;
  Layer.SetFileType(miftKml);
  QElapsedTimer Timer;
  Timer.start();
  Layer.LoadFromFile(AKml);
  const double Ms = Timer.nsecsElapsed() / 1e6;
  int Icons = 0;
  for (int I = 0; I < Layer.MapItems().Count(); ++I)
    if (const auto* Item = dynamic_cast<const TvxMapCustomElement*>(Layer.MapItems().Items(I)); Item && Item->HasImage())
      ++Icons;
  std::printf("RESULT %.3f %d %d %d\n", Ms, GAttempts.load(), Icons, Layer.MapItems().Count());
  return Layer.Active() ? 0 : 1;
}

struct TResult
{
  double Ms = 0;
  int Attempts = 0;
  int Icons = 0;
};

std::optional<TResult> RunChild(const QString& AProgram, const QString& AKml, const QString& ACacheDir)
{
  QProcess Process;
  QStringList Arguments{QStringLiteral("--child"), AKml};
  if (!ACacheDir.isEmpty())
    Arguments << QStringLiteral("--cache-dir") << ACacheDir;
  Process.start(AProgram, Arguments);
  Process.waitForFinished(-1);
  for (const QByteArray& Line : Process.readAllStandardOutput().split('\n'))
    if (const QList<QByteArray> Parts = Line.split(' '); Parts.size() == 5 && Parts[0] == "RESULT")
      return TResult{Parts[1].toDouble(), Parts[2].toInt(), Parts[3].toInt()};
  std::fprintf(stderr, "%s gave no result: %s\n", qPrintable(AProgram), Process.readAllStandardError().constData());
  return std::nullopt;
}

struct TSeries
{
  std::vector<double> Ms;
  TResult Last;
  void Add(const std::optional<TResult>& AResult)
  {
    if (!AResult)
      return;
    Ms.push_back(AResult->Ms);
    Last = *AResult;
  }
};

} // namespace

int main(int argc, char* argv[])
{
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication Application(argc, argv);
  QCommandLineParser Parser;
  Parser.setApplicationDescription(QStringLiteral("Start-up loads of a KML layer whose icon server is down or up."));
  Parser.addHelpOption();
  Parser.addPositionalArgument(QStringLiteral("kml"), QStringLiteral("With --child: the file to load."));
  Parser.addOption({QStringLiteral("rounds"), QStringLiteral("Loads per case (default 5)."), QStringLiteral("n"), QStringLiteral("5")});
  Parser.addOption({QStringLiteral("placemarks"), QStringLiteral("Points (default 200)."), QStringLiteral("n"), QStringLiteral("200")});
  Parser.addOption({QStringLiteral("icons"), QStringLiteral("Different icon URLs (default 1)."), QStringLiteral("n"), QStringLiteral("1")});
  Parser.addOption({QStringLiteral("baseline"), QStringLiteral("Another build of this program, run in turns."), QStringLiteral("program")});
  Parser.addOption({QStringLiteral("no-silent"), QStringLiteral("Skip the silent host (never run for the baseline).")});
  Parser.addOption({QStringLiteral("child"), QStringLiteral("Load the file once and print the result.")});
  Parser.addOption({QStringLiteral("cache-dir"), QStringLiteral("With --child: the icon disk cache."), QStringLiteral("dir")});
  Parser.process(Application);

  if (Parser.isSet(QStringLiteral("child")))
    return LoadOnce(Parser.positionalArguments().value(0), Parser.value(QStringLiteral("cache-dir")));

  const int Rounds = Parser.value(QStringLiteral("rounds")).toInt();
  const int Placemarks = Parser.value(QStringLiteral("placemarks")).toInt();
  const int IconCount = std::max(1, Parser.value(QStringLiteral("icons")).toInt());
  const QString Ours = QCoreApplication::applicationFilePath();
  const QString Baseline = Parser.value(QStringLiteral("baseline"));
  QTemporaryDir Dir;

  TvxTestTileServer Server(32);
  TSilentHost Silent;
  if (!Server.Start() || Silent.Port() == 0)
  {
    std::fprintf(stderr, "cannot start the loopback hosts\n");
    return 1;
  }
  const auto Icons = [IconCount](quint16 APort) {
    QStringList Result;
    for (int I = 0; I < IconCount; ++I)
      Result << QStringLiteral("http://127.0.0.1:%1/icons/pin%2.png").arg(APort).arg(I);
    return Result;
  };
  // Real tiles of the server as icons; the server moves to a new port each
  // time it starts again.
  const auto OnlineKml = [&] {
    QStringList Result;
    for (int I = 0; I < IconCount; ++I)
      Result << Server.TileUrl(8, I % 256, I / 256);
    const QString Name = Dir.filePath(QStringLiteral("online-%1.kml").arg(Server.Port()));
    return WriteKml(Name, Placemarks, Result) ? Name : QString();
  };
  enum TKind
  {
    ckRefused,
    ckOnline,
    ckSilent,
    ckCached
  };
  const QString RefusedKml = Dir.filePath(QStringLiteral("refused.kml"));
  const QString SilentKml = Dir.filePath(QStringLiteral("silent.kml"));
  if (!WriteKml(RefusedKml, Placemarks, Icons(ClosedPort())) || !WriteKml(SilentKml, Placemarks, Icons(Silent.Port())))
    return 1;
  std::vector<std::pair<TKind, const char*>> Cases{
    {ckRefused, "server down (refused)"}, {ckOnline, "server up"}, {ckSilent, "server silent (SYN dropped)"},
    {ckCached, "server down, icons on disk"}};
  if (Parser.isSet(QStringLiteral("no-silent")))
    Cases.erase(Cases.begin() + 2);

  std::printf("%d placemarks, %d icon URL(s), %d rounds, each load in a fresh process\n", Placemarks, IconCount, Rounds);
  std::printf("%-30s %10s %8s %6s %12s %8s %6s %8s\n", "case", "median ms", "fetches", "icons", "baseline ms",
              "fetches", "icons", "ratio");
  for (const auto& [Kind, Name] : Cases)
  {
    TSeries New, Old;
    for (int Round = 0; Round < Rounds; ++Round)
    {
      for (const QString& Program : {Ours, Baseline})
      {
        // The baseline waits out the transfer timeout, 60 s, per placemark.
        if (Program.isEmpty() || (Kind == ckSilent && Program != Ours))
          continue;
        QString Kml = Kind == ckRefused ? RefusedKml : Kind == ckSilent ? SilentKml : OnlineKml();
        QString CacheDir;
        if (Kind == ckCached)
        {
          // Filled by a load while the server is up, then read with it down.
          CacheDir = Dir.filePath(QStringLiteral("icons-%1-%2").arg(Program == Ours).arg(Round));
          RunChild(Program, Kml, CacheDir);
          Server.Stop();
        }
        (Program == Ours ? New : Old).Add(RunChild(Program, Kml, CacheDir));
        if (Kind == ckCached && !Server.Start())
          return 1;
      }
    }
    std::printf("%-30s %10.2f %8d %6d", Name, Median(New.Ms), New.Last.Attempts, New.Last.Icons);
    if (!Old.Ms.empty())
      std::printf(" %12.2f %8d %6d %8.4f", Median(Old.Ms), Old.Last.Attempts, Old.Last.Icons,
                  Median(New.Ms) / Median(Old.Ms));
    std::printf("\n");
    std::fflush(stdout);
  }
  return 0;
}
