#include "Render.h"

#include "ArcGISMapProviderU.h"
#include "BaseMapsU.h"
#include "ClockU.h"
#include "ErrorsU.h"
#include "FeedMessageU.h"
#include "GlobalsU.h"
#include "IniFileU.h"
#include "JournalFormatU.h"
#include "LiveMarkersU.h"
#include "TrailsU.h"
#include "MarkerImagesU.h"
#include "StaticMarkersU.h"
#include "LayerCatalogU.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxAzureMapImageryDataProvider.h"
#include "vxMBTilesImageryDataProvider.h"
#include "vxMapItemLayer.h"
#include "vxMapControl.h"
#include "vxMapControlMultiScaleTile.h"
#include "vxMapControlOpenStreetMapImageryDataProvider.h"
#include "vxMapImageTileLayer.h"
#include "vxMapItemFileLayer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QThread>

#include <algorithm>
#include <cmath>
#include <exception>
#include <optional>

namespace
{

struct TLayerArgument
{
  QString FileName;
  std::optional<quint32> Fill;
  std::optional<quint32> Border;
  std::optional<int> Width;
};

struct TRenderArguments
{
  QSize Size;
  bool HasCenter = false;
  double Latitude = 0;
  double Longitude = 0;
  bool HasZoom = false;
  double Zoom = 0;
  QString Out;
  QString Config;
  QString Tiles;
  QString TileCache;
  QString TilePrefix;
  QList<TLayerArgument> Layers;
  QString Frames;
  QString At;
  bool Navigation = true;
  double Wait = 10;
};

// A tile that the cache does not hold becomes a file: URL naming no file,
// which fails at once: a configuration's base map never goes to the network.
const QString NoTileUri = QStringLiteral("file:");
const QString MBTilesScheme = QStringLiteral("mbtiles:");

// Tiles by URL template under a cache prefix of the renderer's choice, so
// that it can read a cache filled under another provider's name.
class TRenderTileProvider : public TvxMapControlOpenStreetMapImageryDataProvider
{
public:
  using TvxMapControlOpenStreetMapImageryDataProvider::TvxMapControlOpenStreetMapImageryDataProvider;
  std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource() override;
  // Empty for the OpenStreetMap provider's own.
  QString Prefix;
};

class TRenderTileSource : public TvxMapControlOpenStreetMapTileSource
{
public:
  explicit TRenderTileSource(TRenderTileProvider* AOwner)
    : TvxMapControlOpenStreetMapTileSource(AOwner), FOwner(AOwner)
  {
  }
  QString TilePrefix() const override
  {
    return FOwner->Prefix.isEmpty() ? TvxMapControlOpenStreetMapTileSource::TilePrefix() : FOwner->Prefix;
  }

private:
  TRenderTileProvider* FOwner;
};

std::unique_ptr<TvxMapControlMultiScaleTileSource> TRenderTileProvider::CreateTileSource()
{
  return std::make_unique<TRenderTileSource>(this);
}

// The program's ArcGIS base maps, for their tile names and their deepest
// level (NatGeo and USA Topo stop short of the others), from the cache only.
class TCachedArcGISTileSource : public TArcGISMapTileSource
{
public:
  using TArcGISMapTileSource::TArcGISMapTileSource;
  QString GetTileByZoomLevel(int, int, int) override { return NoTileUri; }
};

class TCachedArcGISProvider : public TArcGISMapProvider
{
public:
  using TArcGISMapProvider::TArcGISMapProvider;
  std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource() override
  {
    // The world at the deepest level, as the ArcGIS provider makes it.
    const qint64 LSize = std::llround(std::ldexp(double(StreamTileSize()), MaxZoomLevel()));
    return std::make_unique<TCachedArcGISTileSource>(this, LSize, LSize, StreamTileSize(), StreamTileSize());
  }
};

// What a configuration directory shows at start, read as the main window
// reads it.
struct TConfiguration
{
  QString MapsDir;
  double Latitude = 0;
  double Longitude = 0;
  double Zoom = 0;
  int BaseMapIdx = 0;
  QString AzureKey;
  // The site's MBTiles file behind the OpenStreetMap entry, if any.
  QString OpenStreetMapFile;
};

bool ReadConfiguration(const QString& ADir, TConfiguration& AResult, QString& AError)
{
  if (!QFileInfo(ADir).isDir())
  {
    AError = QStringLiteral("no configuration directory \"%1\"").arg(ADir);
    return false;
  }
  AResult.MapsDir = Globals::JoinPath(ADir, QStringLiteral("Maps"));
  if (!QFileInfo(AResult.MapsDir).isDir())
  {
    AError = QStringLiteral("\"%1\" has no Maps directory").arg(ADir);
    return false;
  }
  // Of [Servers] only a file of tiles counts: other tiles come from the
  // cache, whose file names do not depend on the server.
  const TIniFile LIni(Globals::JoinPath(AResult.MapsDir, QStringLiteral("Mapwright.ini")));
  AResult.OpenStreetMapFile = TServerSettings::Read(LIni).OpenStreetMapFile();
  const QString LStartup = QStringLiteral("Startup");
  AResult.Latitude = LIni.ReadFloat(LStartup, QStringLiteral("StartLat"), 41.313337);
  AResult.Longitude = LIni.ReadFloat(LStartup, QStringLiteral("StartLon"), -80.338731);
  AResult.Zoom = LIni.ReadFloat(LStartup, QStringLiteral("StartZoom"), 3);
  AResult.BaseMapIdx = LIni.ReadInteger(LStartup, QStringLiteral("BaseMapIdx"), 0);
  AResult.AzureKey = LIni.ReadString(QStringLiteral("AzureMaps"), QStringLiteral("MapKey"), QString());
  return true;
}

// A tile layer over an MBTiles file; null, with what is wrong with the
// file, when it cannot serve.
TvxMapImageTileLayer* AddFileLayer(TvxMapControl& AControl, const QString& AFileName, QString& AError)
{
  auto* LLayer = AControl.AddLayer<TvxMapImageTileLayer>();
  LLayer->SetProviderClass(vxImageTileProviderClass<TvxMBTilesImageryDataProvider>());
  auto* LProvider = LLayer->ProviderAs<TvxMBTilesImageryDataProvider>();
  LProvider->SetFileName(AFileName);
  AError = LProvider->LastError();
  return AError.isEmpty() ? LLayer : nullptr;
}

// The base map at a catalogue position, as the window's base map menu shows
// it at start, drawn from the cache folder alone, or from the site's file
// of tiles: an Azure map without a key gives way to the first, and a
// position outside the catalogue shows none. Returns its tile layers; none,
// with the reason, when the site's file cannot serve.
QList<TvxMapImageTileLayer*> AddCachedBaseMap(TvxMapControl& AControl, const TConfiguration& AConfig,
                                              QList<int>& ASlots, QString& AError)
{
  // An absent folder stays absent: the disk cache would make it.
  const QString LCache = Globals::JoinPath(AConfig.MapsDir, QStringLiteral("MapCache"));
  const QString LFolder = QFileInfo(LCache).isDir() ? LCache : QString();
  int LIndex = AConfig.BaseMapIdx;
  if (LIndex >= bmAzureImagery && LIndex <= bmAzureRoad && AConfig.AzureKey.isEmpty())
    LIndex = bmWorldImagery;

  QList<TvxMapImageTileLayer*> LLayers;
  if (LIndex >= bmWorldImagery && LIndex < bmOpenStreetMap)
  {
    auto* LLayer = AControl.AddLayer<TvxMapImageTileLayer>();
    LLayer->SetProviderClass(vxImageTileProviderClass<TCachedArcGISProvider>());
    auto* LProvider = LLayer->ProviderAs<TCachedArcGISProvider>();
    LProvider->ChangeBaseMap(LIndex);
    LProvider->CacheOptions().SetDiskFolder(LFolder);
    LLayers << LLayer;
    ASlots = {1};
    return LLayers;
  }
  // Named as the Azure tile source names its files.
  const auto LAzure = [](TvxAzureMapTileset ASet) {
    return QStringLiteral("azure_") + vxAzureMapTilesetCachePrefix(ASet);
  };
  QStringList LPrefixes;
  // The window's tile layers: OpenStreetMap, ArcGIS, Azure 1, Azure 2.
  ASlots = LIndex == bmOpenStreetMap ? QList<int>{0} : LIndex == bmAzureHybrid ? QList<int>{2, 3} : QList<int>{2};
  if (LIndex == bmOpenStreetMap && !AConfig.OpenStreetMapFile.isEmpty())
  {
    if (TvxMapImageTileLayer* LLayer = AddFileLayer(AControl, AConfig.OpenStreetMapFile, AError))
      LLayers << LLayer;
    return LLayers;
  }
  if (LIndex == bmOpenStreetMap)
    LPrefixes << QString();
  else if (LIndex == bmAzureImagery)
    LPrefixes << LAzure(TvxAzureMapTileset::Satellite);
  else if (LIndex == bmAzureHybrid)
    LPrefixes << LAzure(TvxAzureMapTileset::Satellite) << LAzure(TvxAzureMapTileset::HybridRoad);
  else if (LIndex == bmAzureRoad)
    LPrefixes << LAzure(TvxAzureMapTileset::Road);
  for (const QString& LPrefix : std::as_const(LPrefixes))
  {
    auto* LLayer = AControl.AddLayer<TvxMapImageTileLayer>();
    LLayer->SetProviderClass(vxImageTileProviderClass<TRenderTileProvider>());
    auto* LProvider = LLayer->ProviderAs<TRenderTileProvider>();
    LProvider->Prefix = LPrefix;
    // The template first: a new template makes a new tile source, which
    // would read a large cache map a second time.
    LProvider->SetUrlTemplate(NoTileUri);
    LProvider->CacheOptions().SetDiskFolder(LFolder);
    LLayers << LLayer;
  }
  return LLayers;
}

// The configuration's static markers on their own layer, through the
// window's store. The custom images come first: markers may show them.
bool AddStaticMarkers(TvxMapControl& AControl, const TConfiguration& AConfig, QString& AError)
{
  auto* LLayer = AControl.AddLayer<TvxMapItemLayer>();
  LLayer->SetName(QStringLiteral("KestrelStaticMarkers"));
  const QString LCustomFile =
    Globals::JoinPath(AConfig.MapsDir, QStringLiteral("CustomMarkerImages\\CustomMarkers.xml"));
  const QString LStaticFile = Globals::JoinPath(AConfig.MapsDir, QStringLiteral("Layers\\StaticMarkers.xml"));
  try
  {
    TCustomImageInfoList LCustom;
    if (QFileInfo::exists(LCustomFile))
      TStaticMarkers::LoadCustomMarkerInfoFromXML(LCustomFile, LCustom);
    // Without the file this empties the process's list of custom images.
    TStaticMarkers::RefreshCustomImages(LCustom, MarkerImageLists().CustomImageList, nullptr);
    if (QFileInfo::exists(LStaticFile))
      TStaticMarkers(&AControl, LLayer, nullptr, MarkerImageLists()).LoadStaticMarkersFromXML(LStaticFile);
  }
  catch (const EMapwrightError& E)
  {
    AError = E.Message();
    return false;
  }
  return true;
}

bool ParseColour(const QString& AText, quint32& AValue)
{
  static const QRegularExpression LPattern(QStringLiteral("^#[0-9A-Fa-f]{8}$"));
  if (!LPattern.match(AText).hasMatch())
    return false;
  AValue = AText.mid(1).toUInt(nullptr, 16);
  return true;
}

// FILE[:fill=#AARRGGBB][:border=#AARRGGBB][:width=N]; the file name may
// itself hold colons, so options are found by their names.
bool ParseLayer(const QString& AText, TLayerArgument& ALayer, QString& AError)
{
  static const QRegularExpression LOption(QStringLiteral(":(fill|border|width)="));
  const QRegularExpressionMatch LFirst = LOption.match(AText);
  ALayer.FileName = LFirst.hasMatch() ? AText.left(LFirst.capturedStart()) : AText;
  if (ALayer.FileName.isEmpty())
  {
    AError = QStringLiteral("--layer needs a file name");
    return false;
  }
  if (!LFirst.hasMatch())
    return true;
  const QStringList LOptions = AText.mid(LFirst.capturedStart() + 1).split(QLatin1Char(':'));
  for (const QString& LOptionText : LOptions)
  {
    const QString LName = LOptionText.section(QLatin1Char('='), 0, 0);
    const QString LValue = LOptionText.section(QLatin1Char('='), 1);
    quint32 LColour = 0;
    bool LOk = false;
    if (LName == QLatin1String("fill") && ParseColour(LValue, LColour))
      ALayer.Fill = LColour;
    else if (LName == QLatin1String("border") && ParseColour(LValue, LColour))
      ALayer.Border = LColour;
    else if (LName == QLatin1String("width") && (ALayer.Width = LValue.toInt(&LOk), LOk) && *ALayer.Width >= 0 &&
             *ALayer.Width <= 100)
      ;
    else
    {
      AError = QStringLiteral("bad layer option \"%1\" (fill=#AARRGGBB, border=#AARRGGBB, width=0..100)")
                 .arg(LOptionText);
      return false;
    }
  }
  return true;
}

bool ParseArguments(const QStringList& AArguments, TRenderArguments& AResult, QString& AError)
{
  bool LHasSize = false;
  for (int I = 0; I < AArguments.size(); ++I)
  {
    const QString& LName = AArguments[I];
    if (LName == QLatin1String("--no-navigation"))
    {
      AResult.Navigation = false;
      continue;
    }
    static const QStringList LWithValue = {QStringLiteral("--size"),      QStringLiteral("--center"),
                                           QStringLiteral("--zoom"),      QStringLiteral("--out"),
                                           QStringLiteral("--tiles"),     QStringLiteral("--tile-cache"),
                                           QStringLiteral("--tile-prefix"), QStringLiteral("--layer"),
                                           QStringLiteral("--wait"),      QStringLiteral("--frames"),
                                           QStringLiteral("--config"),    QStringLiteral("--at")};
    if (!LWithValue.contains(LName))
    {
      AError = QStringLiteral("unknown argument \"%1\"").arg(LName);
      return false;
    }
    if (I + 1 >= AArguments.size())
    {
      AError = QStringLiteral("%1 needs a value").arg(LName);
      return false;
    }
    const QString LValue = AArguments[++I];
    bool LOk = true;
    if (LName == QLatin1String("--size"))
    {
      static const QRegularExpression LPattern(QStringLiteral("^(\\d{1,5})x(\\d{1,5})$"));
      const QRegularExpressionMatch LMatch = LPattern.match(LValue);
      AResult.Size = LMatch.hasMatch() ? QSize(LMatch.captured(1).toInt(), LMatch.captured(2).toInt()) : QSize();
      LOk = AResult.Size.width() >= 1 && AResult.Size.height() >= 1 && AResult.Size.width() <= 16384 &&
            AResult.Size.height() <= 16384;
      LHasSize = true;
    }
    else if (LName == QLatin1String("--center"))
    {
      const QStringList LParts = LValue.split(QLatin1Char(','));
      bool LOkLat = false, LOkLon = false;
      if (LParts.size() == 2)
      {
        AResult.Latitude = LParts[0].trimmed().toDouble(&LOkLat);
        AResult.Longitude = LParts[1].trimmed().toDouble(&LOkLon);
      }
      LOk = LOkLat && LOkLon && std::abs(AResult.Latitude) <= 90 && std::abs(AResult.Longitude) <= 180;
      AResult.HasCenter = true;
    }
    else if (LName == QLatin1String("--zoom"))
    {
      AResult.Zoom = LValue.toDouble(&LOk);
      LOk = LOk && AResult.Zoom >= TvxCustomMapControl::MinZoomLevel && AResult.Zoom <= TvxCustomMapControl::MaxZoomLevel;
      AResult.HasZoom = true;
    }
    else if (LName == QLatin1String("--out"))
      AResult.Out = LValue;
    else if (LName == QLatin1String("--tiles"))
    {
      const QString LScheme = LValue.section(QLatin1Char(':'), 0, 0).toLower();
      LOk = LScheme == QLatin1String("http") || LScheme == QLatin1String("https") || LScheme == QLatin1String("file") ||
            (LScheme == QLatin1String("mbtiles") && LValue.size() > MBTilesScheme.size());
      AResult.Tiles = LValue;
    }
    else if (LName == QLatin1String("--tile-cache"))
      AResult.TileCache = LValue;
    else if (LName == QLatin1String("--tile-prefix"))
      AResult.TilePrefix = LValue;
    else if (LName == QLatin1String("--layer"))
    {
      TLayerArgument LLayer;
      if (!ParseLayer(LValue, LLayer, AError))
        return false;
      AResult.Layers.append(LLayer);
    }
    else if (LName == QLatin1String("--frames"))
      AResult.Frames = LValue;
    else if (LName == QLatin1String("--at"))
      AResult.At = LValue;
    else if (LName == QLatin1String("--config"))
      AResult.Config = LValue;
    else if (LName == QLatin1String("--wait"))
    {
      AResult.Wait = LValue.toDouble(&LOk);
      LOk = LOk && AResult.Wait >= 0 && AResult.Wait <= 3600;
    }
    if (!LOk)
    {
      AError = QStringLiteral("bad value \"%1\" for %2").arg(LValue, LName);
      return false;
    }
  }
  const bool LHasView = !AResult.Config.isEmpty() || (AResult.HasCenter && AResult.HasZoom);
  if (!LHasSize || !LHasView || AResult.Out.isEmpty())
  {
    AError = QStringLiteral("usage: mapwright-render --size WxH --out FILE.png "
                            "(--center LAT,LON --zoom Z | --config DIR [--center LAT,LON] [--zoom Z]) "
                            "[--tiles URL_TEMPLATE|mbtiles:FILE] [--tile-cache DIR] [--tile-prefix PREFIX] "
                            "[--layer FILE[:fill=#AARRGGBB][:border=#AARRGGBB][:width=N]]... "
                            "[--frames FILE [--at TIME]] [--no-navigation] [--wait SECONDS]");
    return false;
  }
  if (!AResult.At.isEmpty() && AResult.Frames.isEmpty())
  {
    AError = QStringLiteral("--at needs --frames");
    return false;
  }
  return true;
}

// A journal of the window, as opposed to a file of bare frames: its first
// line begins with a time stamp.
bool IsJournal(const QString& AFileName)
{
  QFile LFile(AFileName);
  if (!LFile.open(QIODevice::ReadOnly))
    return false;
  const QByteArray LFirst = LFile.readLine(JournalFormat::TimeLength + 2);
  return LFirst.size() > JournalFormat::TimeLength && LFirst[JournalFormat::TimeLength] == ' ' &&
         JournalFormat::ParseTime(QByteArrayView(LFirst).first(JournalFormat::TimeLength)).has_value();
}

// Feeds a journal's frames up to a moment (its end without one) through the
// live marker store and the trails, with the clock at each frame's arrival,
// then ages the store as the window would at that moment and draws the
// selected person's trail. Broken lines and failing frames are reported by
// line number; the rest count. False with the reason for a file that cannot
// be read or a moment that is no time.
bool FeedJournal(TLiveMarkers& AStore, TTrails& ATrails, const QString& AFileName, const QString& AAt,
                 QByteArray& AErrors, QString& AError)
{
  const TJournalContents LJournal = JournalFormat::ReadFile(AFileName);
  if (!LJournal.Error.isEmpty())
  {
    AError = LJournal.Error;
    return false;
  }
  for (int LLine : LJournal.BrokenLines)
    AErrors += "mapwright-render: journal line " + QByteArray::number(LLine) + ": broken line, skipped\n";
  if (LJournal.Entries.isEmpty())
    return true;
  QDateTime LAt = LJournal.Entries.last().Arrived;
  if (!AAt.isEmpty())
  {
    const auto LResolved = JournalFormat::ResolveTime(AAt, LJournal.Start());
    if (!LResolved)
    {
      AError = QStringLiteral("bad value \"%1\" for --at (a time of day, a date and time as the journal "
                              "writes it, or seconds from its start)").arg(AAt);
      return false;
    }
    LAt = *LResolved;
  }

  auto LClock = std::make_unique<TManualClock>(LJournal.Start());
  TManualClock* LTime = LClock.get();
  std::unique_ptr<TClock> LOldClock = Clock::Set(std::move(LClock));
  const auto LRestoreClock = qScopeGuard([&LOldClock] { Clock::Set(std::move(LOldClock)); });
  for (const TJournalEntry& LEntry : LJournal.Entries)
  {
    if (LEntry.Arrived > LAt)
      break;
    LTime->SetNow(LEntry.Arrived);
    try
    {
      const TFeedMessage LMessage = ReadFeedMessage(QString::fromLatin1(LEntry.Frame));
      if (!LMessage.HasLiveMarkers)
        continue;
      ATrails.Record(LMessage.Reports, LEntry.Arrived);
      AStore.ApplyReports(LMessage, {});
    }
    catch (const EMapwrightError& E)
    {
      AErrors += "mapwright-render: journal line " + QByteArray::number(LEntry.Line) + ": " + E.Message().toUtf8() + '\n';
    }
  }
  LTime->SetNow(LAt);
  AStore.AgePass(LAt);
  ATrails.Show(AStore.SelectedLiveMarker ? AStore.CurrentUserID : QString(), LAt);
  return true;
}

// Feeds the frames of a file, one document per line, through the live
// marker store as the window does. A frame that fails is reported with its
// line number and the rest go on, as in the window. False when the file
// cannot be read.
bool FeedFrames(TLiveMarkers& AStore, const QString& AFileName, QByteArray& AErrors)
{
  QFile LFile(AFileName);
  if (!LFile.open(QIODevice::ReadOnly))
    return false;
  int LLine = 0;
  while (!LFile.atEnd())
  {
    ++LLine;
    const QString LText = QString::fromUtf8(LFile.readLine()).trimmed();
    if (LText.isEmpty())
      continue;
    try
    {
      const TFeedMessage LMessage = ReadFeedMessage(LText);
      if (LMessage.HasLiveMarkers)
        AStore.ApplyReports(LMessage, {});
    }
    catch (const EMapwrightError& E)
    {
      AErrors += "mapwright-render: frames line " + QByteArray::number(LLine) + ": " + E.Message().toUtf8() + '\n';
    }
  }
  return true;
}

// Loads one file layer; false with the reason when it gives nothing.
bool LoadLayer(TvxMapItemFileLayer& ALayer, const TLayerArgument& AArgument, QString& AError)
{
  ALayer.SetFileType(AArgument.FileName.endsWith(QLatin1String(".shp"), Qt::CaseInsensitive) ? miftShape : miftKml);
  if (AArgument.Fill)
    ALayer.ItemStyle().SetColor(*AArgument.Fill);
  if (AArgument.Border)
    ALayer.ItemStyle().SetBorderColor(*AArgument.Border);
  if (AArgument.Width)
    ALayer.ItemStyle().SetBorderWidth(*AArgument.Width);
  try
  {
    ALayer.LoadFromFile(AArgument.FileName);
  }
  catch (const std::exception& E)
  {
    AError = QString::fromUtf8(E.what());
    return false;
  }
  if (!ALayer.LastError().isEmpty())
  {
    AError = ALayer.LastError();
    return false;
  }
  if (!ALayer.Active())
  {
    AError = QStringLiteral("cannot read it (a Shapefile needs its .dbf beside it)");
    return false;
  }
  return true;
}

} // namespace

int vxRenderRun(const QStringList& AArguments, QByteArray& AErrors)
{
  TRenderArguments LArgs;
  QString LError;
  if (!ParseArguments(AArguments, LArgs, LError))
  {
    AErrors += "mapwright-render: " + LError.toUtf8() + '\n';
    return 2;
  }

  TConfiguration LConfig;
  if (!LArgs.Config.isEmpty() && !ReadConfiguration(LArgs.Config, LConfig, LError))
  {
    AErrors += "mapwright-render: " + LError.toUtf8() + '\n';
    return 2;
  }

  // The window's stack: base map, static markers, layers, live markers.
  TvxMapControl LControl;
  LControl.resize(LArgs.Size);
  LControl.NavigationPanel().SetVisible(LArgs.Navigation);
  LControl.BeginUpdate();
  QList<TvxMapImageTileLayer*> LTiles;
  if (LArgs.Tiles.startsWith(MBTilesScheme, Qt::CaseInsensitive))
  {
    TvxMapImageTileLayer* LLayer = AddFileLayer(LControl, LArgs.Tiles.mid(MBTilesScheme.size()), LError);
    if (!LLayer)
    {
      AErrors += "mapwright-render: " + LError.toUtf8() + '\n';
      return 2;
    }
    LTiles << LLayer;
  }
  else if (!LArgs.Tiles.isEmpty())
  {
    auto* LLayer = LControl.AddLayer<TvxMapImageTileLayer>();
    LLayer->SetProviderClass(vxImageTileProviderClass<TRenderTileProvider>());
    auto* LProvider = LLayer->ProviderAs<TRenderTileProvider>();
    LProvider->Prefix = LArgs.TilePrefix;
    // The template first, so that the cache map is read once.
    LProvider->SetUrlTemplate(LArgs.Tiles);
    LProvider->CacheOptions().SetDiskFolder(LArgs.TileCache);
    LTiles << LLayer;
  }
  else if (!LArgs.Config.isEmpty())
  {
    QList<int> LSlots;
    LTiles = AddCachedBaseMap(LControl, LConfig, LSlots, LError);
    if (!LError.isEmpty())
    {
      AErrors += "mapwright-render: " + LError.toUtf8() + '\n';
      return 2;
    }
    // The window's four tile layers, the base map in its own places and
    // the others hidden, so that the layer catalogue's arithmetic on
    // indices stacks the layers as the window does.
    for (int LSlot = 0; LSlot < 4; ++LSlot)
    {
      if (!LSlots.contains(LSlot))
      {
        auto* LSpare = LControl.AddLayer<TvxMapImageTileLayer>();
        LSpare->SetVisible(false);
        LControl.Layers().Move(LSpare->Index(), LSlot);
      }
    }
  }
  std::unique_ptr<TLiveMarkers> LLive;
  if (!LArgs.Config.isEmpty())
  {
    if (!AddStaticMarkers(LControl, LConfig, LError))
    {
      AErrors += "mapwright-render: " + LError.toUtf8() + '\n';
      return 2;
    }
    auto* LLiveLayer = LControl.AddLayer<TvxMapItemLayer>();
    LLiveLayer->SetName(LayerNames::LiveMarkers);
    LLive = std::make_unique<TLiveMarkers>(&LControl, LLiveLayer);
    const QString LLayersFile = Globals::JoinPath(LConfig.MapsDir, QStringLiteral("Layers\\Layers.xml"));
    // Icons the window fetched for KML layers, read from where it keeps them.
    vxSetKmlIconCacheDir(Globals::JoinPath(LConfig.MapsDir, QStringLiteral("MapCache\\Icons")));
    try
    {
      TLayerCatalog LCatalog(&LControl);
      if (QFileInfo::exists(LLayersFile))
        LCatalog.LoadLayersFromXML(LLayersFile);
    }
    catch (const EMapwrightError& E)
    {
      AErrors += "mapwright-render: " + E.Message().toUtf8() + '\n';
      return 2;
    }
  }
  for (const TLayerArgument& LArgument : std::as_const(LArgs.Layers))
  {
    auto* LLayer = LControl.AddLayer<TvxMapItemFileLayer>();
    if (!LoadLayer(*LLayer, LArgument, LError))
    {
      AErrors += "mapwright-render: layer \"" + LArgument.FileName.toUtf8() + "\": " + LError.toUtf8() + '\n';
      return 2;
    }
  }
  LControl.SetCenterPoint({LArgs.HasCenter ? LArgs.Latitude : LConfig.Latitude,
                           LArgs.HasCenter ? LArgs.Longitude : LConfig.Longitude});
  LControl.SetZoomLevel(LArgs.HasZoom ? LArgs.Zoom : LConfig.Zoom);
  LControl.EndUpdate();

  // Live markers above everything else without a configuration; with
  // one, where the catalogue put them.
  if (!LArgs.Frames.isEmpty())
  {
    if (!LLive)
    {
      auto* LLayer = LControl.AddLayer<TvxMapItemLayer>();
      LLayer->SetName(LayerNames::LiveMarkers);
      LLive = std::make_unique<TLiveMarkers>(&LControl, LLayer);
    }
    if (!LArgs.At.isEmpty() || IsJournal(LArgs.Frames))
    {
      TTrails LTrails(LLive->Layer());
      if (!FeedJournal(*LLive, LTrails, LArgs.Frames, LArgs.At, AErrors, LError))
      {
        AErrors += "mapwright-render: " + LError.toUtf8() + '\n';
        return 2;
      }
    }
    else if (!FeedFrames(*LLive, LArgs.Frames, AErrors))
    {
      AErrors += "mapwright-render: cannot read frames \"" + LArgs.Frames.toUtf8() + "\"\n";
      return 2;
    }
  }

  // Tiles arrive through the event loop; wait for every slot or the limit.
  // A tile that failed will not come: no use waiting for it.
  const auto LAll = [&LTiles](bool (TvxMapImageTileLayer::*ATest)() const) {
    return std::all_of(LTiles.cbegin(), LTiles.cend(),
                       [ATest](const TvxMapImageTileLayer* ALayer) { return (ALayer->*ATest)(); });
  };
  QElapsedTimer LTimer;
  LTimer.start();
  while (!LAll(&TvxMapImageTileLayer::IsSettled) && LTimer.elapsed() < qint64(LArgs.Wait * 1000))
  {
    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    QThread::msleep(5);
  }

  QImage LImage(LArgs.Size, QImage::Format_ARGB32_Premultiplied);
  LImage.fill(Qt::white);
  LControl.render(&LImage);
  if (!LImage.save(LArgs.Out, "PNG"))
  {
    AErrors += "mapwright-render: cannot write \"" + LArgs.Out.toUtf8() + "\"\n";
    return 2;
  }
  if (!LAll(&TvxMapImageTileLayer::IsSettled))
    AErrors += "mapwright-render: not every tile arrived within the wait; written as it stood\n";
  else if (!LAll(&TvxMapImageTileLayer::IsReady))
    AErrors += LArgs.Tiles.isEmpty() ? "mapwright-render: some tiles are not in the cache; written without them\n"
                                     : "mapwright-render: some tiles failed to load; written without them\n";
  return 0;
}
