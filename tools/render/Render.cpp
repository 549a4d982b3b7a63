#include "Render.h"

#include "ErrorsU.h"
#include "FeedMessageU.h"
#include "LiveMarkersU.h"
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
#include <QThread>

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
  double Latitude = 0;
  double Longitude = 0;
  double Zoom = 0;
  QString Out;
  QString Tiles;
  QString TileCache;
  QString TilePrefix;
  QList<TLayerArgument> Layers;
  QString Frames;
  bool Navigation = true;
  double Wait = 10;
};

// The tile prefix is the renderer's choice, so that it can read a cache
// filled under another provider's name.
QString GRenderTilePrefix;

class TRenderTileSource : public TvxMapControlOpenStreetMapTileSource
{
public:
  using TvxMapControlOpenStreetMapTileSource::TvxMapControlOpenStreetMapTileSource;
  QString TilePrefix() const override
  {
    return GRenderTilePrefix.isEmpty() ? TvxMapControlOpenStreetMapTileSource::TilePrefix() : GRenderTilePrefix;
  }
};

class TRenderTileProvider : public TvxMapControlOpenStreetMapImageryDataProvider
{
public:
  using TvxMapControlOpenStreetMapImageryDataProvider::TvxMapControlOpenStreetMapImageryDataProvider;
  std::unique_ptr<TvxMapControlMultiScaleTileSource> CreateTileSource() override
  {
    return std::make_unique<TRenderTileSource>(this);
  }
};

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
  bool LHasSize = false, LHasCenter = false, LHasZoom = false;
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
                                           QStringLiteral("--wait"),      QStringLiteral("--frames")};
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
      LHasCenter = true;
    }
    else if (LName == QLatin1String("--zoom"))
    {
      AResult.Zoom = LValue.toDouble(&LOk);
      LOk = LOk && AResult.Zoom >= TvxCustomMapControl::MinZoomLevel && AResult.Zoom <= TvxCustomMapControl::MaxZoomLevel;
      LHasZoom = true;
    }
    else if (LName == QLatin1String("--out"))
      AResult.Out = LValue;
    else if (LName == QLatin1String("--tiles"))
    {
      const QString LScheme = LValue.section(QLatin1Char(':'), 0, 0).toLower();
      LOk = LScheme == QLatin1String("http") || LScheme == QLatin1String("https") || LScheme == QLatin1String("file");
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
  if (!LHasSize || !LHasCenter || !LHasZoom || AResult.Out.isEmpty())
  {
    AError = QStringLiteral("usage: mapwright-render --size WxH --center LAT,LON --zoom Z --out FILE.png "
                            "[--tiles URL_TEMPLATE] [--tile-cache DIR] [--tile-prefix PREFIX] "
                            "[--layer FILE[:fill=#AARRGGBB][:border=#AARRGGBB][:width=N]]... "
                            "[--frames FILE] [--no-navigation] [--wait SECONDS]");
    return false;
  }
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

  TvxMapControl LControl;
  LControl.resize(LArgs.Size);
  LControl.NavigationPanel().SetVisible(LArgs.Navigation);
  LControl.BeginUpdate();
  TvxMapImageTileLayer* LTiles = nullptr;
  if (!LArgs.Tiles.isEmpty())
  {
    GRenderTilePrefix = LArgs.TilePrefix;
    LTiles = LControl.AddLayer<TvxMapImageTileLayer>();
    LTiles->SetProviderClass(vxImageTileProviderClass<TRenderTileProvider>());
    auto* LProvider = LTiles->ProviderAs<TRenderTileProvider>();
    LProvider->CacheOptions().SetDiskFolder(LArgs.TileCache);
    LProvider->SetUrlTemplate(LArgs.Tiles);
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
  LControl.SetCenterPoint({LArgs.Latitude, LArgs.Longitude});
  LControl.SetZoomLevel(LArgs.Zoom);
  LControl.EndUpdate();

  // Live markers above everything else, as in the window.
  std::unique_ptr<TLiveMarkers> LLive;
  if (!LArgs.Frames.isEmpty())
  {
    auto* LLayer = LControl.AddLayer<TvxMapItemLayer>();
    LLayer->SetName(QStringLiteral("KestrelLiveMarkers"));
    LLive = std::make_unique<TLiveMarkers>(&LControl, LLayer);
    if (!FeedFrames(*LLive, LArgs.Frames, AErrors))
    {
      AErrors += "mapwright-render: cannot read frames \"" + LArgs.Frames.toUtf8() + "\"\n";
      return 2;
    }
  }

  // Tiles arrive through the event loop; wait for every slot or the limit.
  QElapsedTimer LTimer;
  LTimer.start();
  // A tile that failed will not come: no use waiting for it.
  while (LTiles && !LTiles->IsSettled() && LTimer.elapsed() < qint64(LArgs.Wait * 1000))
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
  if (LTiles && !LTiles->IsReady())
    AErrors += LTiles->IsSettled()
                 ? "mapwright-render: some tiles failed to load; written without them\n"
                 : "mapwright-render: not every tile arrived within the wait; written as it stood\n";
  return 0;
}
