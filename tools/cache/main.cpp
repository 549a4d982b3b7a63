// mapwright-cache: counts or fetches an area's tiles into an offline cache
// folder, with the same logic as the window.

#include "CacheBuilderU.h"

#include <QCoreApplication>
#include <QDir>
#include <QStringList>
#include <QTextStream>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <optional>
#include <string>

#include <unistd.h>

namespace
{
enum TExitCode
{
  ecDone = 0,
  ecDeclined = 1,
  ecBadArguments = 2,
  ecMapFileError = 3
};

volatile std::sig_atomic_t Interrupted = 0;

void OnInterrupt(int)
{
  Interrupted = 1;
}

const char* const Usage =
  "Usage: mapwright-cache count --area TOPLAT,LEFTLON,BOTTOMLAT,RIGHTLON --max-zoom N\n"
  "                             [--dir DIR --prefix PREFIX]\n"
  "       mapwright-cache build --area TOPLAT,LEFTLON,BOTTOMLAT,RIGHTLON --max-zoom N\n"
  "                             --url TILE_BASE_URL --prefix PREFIX [--dir DIR] [--yes]\n"
  "       mapwright-cache --help | --version\n"
  "\n"
  "count prints the tiles needed for levels 1 to N; with --dir and --prefix also\n"
  "how many are in the folder already and an estimate of the download size.\n"
  "build fetches them one at a time from TILE_BASE_URL + zoom/y/x into DIR\n"
  "(default: the current folder) as PREFIX_x_y_zoom.teramapcache and adds their\n"
  "lines to DIR/vxcache.map. Above 1000 tiles it asks first unless --yes.\n"
  "Ctrl-C stops at the end of the current row; the map file is still saved.\n"
  "\n"
  "Options:\n"
  "  --area TOPLAT,LEFTLON,BOTTOMLAT,RIGHTLON\n"
  "                       The area's corners, in degrees.\n"
  "  --max-zoom N         The highest level, 1 to 30.\n"
  "  --url TILE_BASE_URL  Where build fetches from.\n"
  "  --prefix PREFIX      The name prefix of the tile files.\n"
  "  --dir DIR            The cache folder.\n"
  "  -y, --yes            Build without asking above 1000 tiles.\n"
  "  -h, --help           Print this help and exit.\n"
  "  --version            Print the version and exit.\n"
  "\n"
  "Example:\n"
  "  mapwright-cache build --area 43.70,-79.45,43.62,-79.33 --max-zoom 15 \\\n"
  "    --url https://tiles.example.com/tile/ --prefix ArcGIS_Street --dir ~/MapCache\n"
  "\n"
  "Exit codes:\n"
  "  0  Done (failed tiles are reported in the message).\n"
  "  1  Declined or cancelled.\n"
  "  2  Bad arguments.\n"
  "  3  The map file could not be written.\n";

struct TArguments
{
  QString Command;
  std::optional<TCacheArea> Area;
  qint32 MaxZoom = -1;
  QString Url;
  QString Prefix;
  QString Dir;
  bool DirGiven = false;
  bool Yes = false;
  bool Help = false;
  bool Version = false;
};

std::optional<TCacheArea> ParseArea(const QString& AText)
{
  const QStringList Parts = AText.split(QLatin1Char(','));
  if (Parts.size() != 4)
    return std::nullopt;
  double Values[4];
  for (int I = 0; I < 4; ++I)
  {
    bool Ok = false;
    Values[I] = Parts[I].trimmed().toDouble(&Ok);
    if (!Ok)
      return std::nullopt;
  }
  return TCacheArea{Values[0], Values[1], Values[2], Values[3]};
}

// Empty on success, else what is wrong.
QString Parse(const QStringList& AArgs, TArguments& AResult)
{
  for (qsizetype I = 1; I < AArgs.size(); ++I)
  {
    QString Name = AArgs[I];
    std::optional<QString> Value;
    if (Name.startsWith(QLatin1String("--")) && Name.contains(QLatin1Char('=')))
    {
      Value = Name.mid(Name.indexOf(QLatin1Char('=')) + 1);
      Name = Name.left(Name.indexOf(QLatin1Char('=')));
    }
    auto Take = [&]() -> std::optional<QString> {
      if (Value)
        return Value;
      if (I + 1 >= AArgs.size())
        return std::nullopt;
      return AArgs[++I];
    };
    if (Name == QLatin1String("--help") || Name == QLatin1String("-h"))
      AResult.Help = true;
    else if (Name == QLatin1String("--version"))
      AResult.Version = true;
    else if (Name == QLatin1String("--yes") || Name == QLatin1String("-y"))
      AResult.Yes = true;
    else if (Name == QLatin1String("--area"))
    {
      const std::optional<QString> V = Take();
      if (!V || !(AResult.Area = ParseArea(*V)))
        return QStringLiteral("--area needs TOPLAT,LEFTLON,BOTTOMLAT,RIGHTLON");
    }
    else if (Name == QLatin1String("--max-zoom"))
    {
      const std::optional<QString> V = Take();
      bool Ok = false;
      AResult.MaxZoom = V ? V->toInt(&Ok) : -1;
      if (!Ok || AResult.MaxZoom < 1 || AResult.MaxZoom > 30)
        return QStringLiteral("--max-zoom needs a level from 1 to 30");
    }
    else if (Name == QLatin1String("--url") || Name == QLatin1String("--prefix") || Name == QLatin1String("--dir"))
    {
      const std::optional<QString> V = Take();
      if (!V || V->isEmpty())
        return Name + QStringLiteral(" needs a value");
      (Name == QLatin1String("--url") ? AResult.Url : Name == QLatin1String("--prefix") ? AResult.Prefix : AResult.Dir) = *V;
      AResult.DirGiven = AResult.DirGiven || Name == QLatin1String("--dir");
    }
    else if (!Name.startsWith(QLatin1Char('-')) && AResult.Command.isEmpty())
      AResult.Command = Name;
    else
      return QStringLiteral("unknown argument: ") + AArgs[I];
  }
  if (AResult.Help || AResult.Version)
    return {};
  if (AResult.Command != QLatin1String("count") && AResult.Command != QLatin1String("build"))
    return QStringLiteral("the first argument must be count or build");
  if (!AResult.Area)
    return QStringLiteral("--area is required");
  if (AResult.MaxZoom < 1)
    return QStringLiteral("--max-zoom is required");
  if (AResult.Command == QLatin1String("build") && (AResult.Url.isEmpty() || AResult.Prefix.isEmpty()))
    return QStringLiteral("build needs --url and --prefix");
  if (AResult.Command == QLatin1String("count") && AResult.DirGiven != !AResult.Prefix.isEmpty())
    return QStringLiteral("count needs --dir and --prefix together");
  return {};
}

int Count(const TArguments& AArgs, QTextStream& AOut)
{
  if (AArgs.Prefix.isEmpty())
  {
    AOut << "Tiles needed: "
         << AddThousandSeparator(QString::number(CalcTiles(*AArgs.Area, AArgs.MaxZoom)), QLatin1Char(',')) << '\n';
    return ecDone;
  }
  const CacheBuilder::TEstimate E = CacheBuilder::Estimate(*AArgs.Area, AArgs.MaxZoom, AArgs.Dir, AArgs.Prefix);
  AOut << "Tiles needed: " << AddThousandSeparator(QString::number(E.TileCount), QLatin1Char(',')) << '\n'
       << "Already cached: " << AddThousandSeparator(QString::number(E.Cached), QLatin1Char(',')) << '\n'
       << "Estimated download: " << CacheBuilder::FormatEstimate(E.EstimatedBytes) << '\n';
  return ecDone;
}

int Build(const TArguments& AArgs, QTextStream& AOut)
{
  TCacheBuilder::TSettings Settings;
  Settings.Area = *AArgs.Area;
  Settings.ProviderURL = AArgs.Url;
  Settings.ProviderFilePrefix = AArgs.Prefix;
  Settings.ProviderMaxZoom = AArgs.MaxZoom;
  Settings.CacheDir = AArgs.Dir.isEmpty() ? QDir::currentPath() : AArgs.Dir;
  TCacheBuilder Builder(Settings);

  AOut << "Tiles needed: " << AddThousandSeparator(QString::number(Builder.TileCount()), QLatin1Char(',')) << '\n';
  if (CacheBuilder::AsksLargeCountQuestion(Builder.TileCount()) && !AArgs.Yes)
  {
    AOut << CacheBuilder::LargeCountQuestion << " [y/N] " << Qt::flush;
    std::string Line;
    std::getline(std::cin, Line);
    const QString Answer = QString::fromStdString(Line).trimmed().toLower();
    if (Answer != QLatin1String("y") && Answer != QLatin1String("yes"))
      return ecDeclined;
  }

  const bool Terminal = ::isatty(::fileno(stdout)) != 0;
  std::signal(SIGINT, OnInterrupt);
  Builder.SetProgress([&](qint32 ADone, qint32 ATotal) {
    if (Interrupted)
      Builder.Cancel();
    const QString Text = QStringLiteral("%1 of %2 tiles")
                           .arg(AddThousandSeparator(QString::number(ADone), QLatin1Char(',')),
                                AddThousandSeparator(QString::number(ATotal), QLatin1Char(',')));
    if (Terminal)
      AOut << '\r' << Text << "\x1b[K" << Qt::flush;
    else
      AOut << Text << '\n' << Qt::flush;
  });
  const TCacheBuildResult Result = Builder.Run();
  std::signal(SIGINT, SIG_DFL);
  if (Terminal)
    AOut << '\n';

  if (!Result.SaveError.isEmpty())
  {
    QTextStream(stderr) << Result.SaveError << '\n';
    if (!Result.Cancelled)
      AOut << Result.Message << '\n';
    return ecMapFileError;
  }
  if (Result.Cancelled)
  {
    AOut << "Cancelled; the map file holds the tiles fetched so far.\n";
    return ecDeclined;
  }
  AOut << Result.Message << '\n';
  return ecDone;
}
} // namespace

int main(int argc, char* argv[])
{
  QCoreApplication App(argc, argv);
  QTextStream Out(stdout);
  TArguments Args;
  const QString Error = Parse(App.arguments(), Args);
  if (Args.Version)
  {
    Out << "mapwright-cache " MAPWRIGHT_VERSION "\n";
    return ecDone;
  }
  if (Args.Help)
  {
    Out << Usage;
    return ecDone;
  }
  if (!Error.isEmpty())
  {
    QTextStream(stderr) << "mapwright-cache: " << Error << "\n\n" << Usage;
    return ecBadArguments;
  }
  return Args.Command == QLatin1String("count") ? Count(Args, Out) : Build(Args, Out);
}
