#include "vxMapControlKmlFileLoader.h"

#include "vxMapControlHttpRequest.h"
#include "vxMapItemFileLayer.h"
#include "vxMapMultiPointItems.h"
#include "vxMapPointItems.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QUrl>

#include <algorithm>
#include <cmath>

namespace
{

// A memory stream that refuses to grow past a limit, so that a server
// cannot fill the memory with an "icon".
class TBoundedBuffer : public QBuffer
{
public:
  explicit TBoundedBuffer(qint64 ALimit) : FLimit(ALimit) {}
  bool Overflowed() const { return FOverflowed; }

protected:
  qint64 writeData(const char* AData, qint64 ALength) override
  {
    if (FOverflowed || size() + ALength > FLimit)
    {
      FOverflowed = true;
      return -1;
    }
    return QBuffer::writeData(AData, ALength);
  }

private:
  qint64 FLimit;
  bool FOverflowed = false;
};

// A border no wider than this; KML allows any width, a painter does not.
constexpr int MaxBorderWidth = 100;

// What every icon load of the process shares.
struct TIconState
{
  QMutex Lock;
  QString CacheDir;
  int TimeoutMs = vxKmlIconDefaultTimeoutMs;
  int RetryIntervalMs = vxKmlIconDefaultRetryIntervalMs;
  // Since when a case-folded URL, or a "scheme://host:port", fails; the
  // interval is applied when asked, so a new one holds at once.
  QHash<QString, QElapsedTimer> FailedUrls;
  QHash<QString, QElapsedTimer> FailedHosts;
};

TIconState& IconState()
{
  static TIconState State;
  return State;
}

QString HostKey(const QUrl& AUrl)
{
  const QString Scheme = AUrl.scheme().toLower();
  return Scheme + QLatin1String("://") + AUrl.host().toLower() + QLatin1Char(':') +
         QString::number(AUrl.port(Scheme == QLatin1String("https") ? 443 : 80));
}

bool IsResting(const QString& AUrlKey, const QString& AHostKey)
{
  TIconState& State = IconState();
  QMutexLocker Lock(&State.Lock);
  const auto Resting = [&State](QHash<QString, QElapsedTimer>& AFailures, const QString& AKey) {
    const auto It = AFailures.find(AKey);
    if (It == AFailures.end())
      return false;
    if (State.RetryIntervalMs > 0 && !It->hasExpired(State.RetryIntervalMs))
      return true;
    AFailures.erase(It);
    return false;
  };
  return Resting(State.FailedUrls, AUrlKey) || Resting(State.FailedHosts, AHostKey);
}

void NoteFailure(QHash<QString, QElapsedTimer> TIconState::*AFailures, const QString& AKey)
{
  TIconState& State = IconState();
  QMutexLocker Lock(&State.Lock);
  QElapsedTimer Since;
  Since.start();
  (State.*AFailures).insert(AKey, Since);
}

enum class TIconFetch
{
  Done,
  // A response came, but no icon: this URL fails, the host may serve others.
  NoIcon,
  // No response at all: refused, not found, silent or cut off.
  Unreachable
};

TIconFetch FetchIconBytes(const QString& AHref, QByteArray& ABytes)
{
  TBoundedBuffer Content(TvxMapControlKmlFileLoader::MaxIconBytes);
  Content.open(QIODevice::WriteOnly);
  const std::unique_ptr<TvxHttpRequestHandler> Handler = TvxHttpRequest::CreateHandler();
  // The helper's own timeout is made for tiles on workers; this fetch holds
  // up the main thread, so it gives up after a short silence.
  const int Timeout = vxKmlIconTimeout();
  QElapsedTimer Silence;
  Silence.start();
  qint64 Received = 0;
  Handler->SetOnCheckCancel([&] {
    if (Content.Overflowed())
      return true;
    if (Content.size() != Received)
    {
      Received = Content.size();
      Silence.restart();
    }
    return Silence.hasExpired(Timeout);
  });
  int Status = -1;
  const bool Fetched = Handler->Get(AHref, Content, Status);
  if (Fetched && !Content.Overflowed())
  {
    ABytes = Content.data();
    return TIconFetch::Done;
  }
  return Status < 0 && !Content.Overflowed() ? TIconFetch::Unreachable : TIconFetch::NoIcon;
}

QImage ReadCachedIcon(const QString& AFileName)
{
  QFile File(AFileName);
  QImage Image;
  if (File.open(QIODevice::ReadOnly) && File.size() <= TvxMapControlKmlFileLoader::MaxIconBytes)
    Image.loadFromData(File.readAll());
  return Image;
}

// Whole or not at all: a half-written file would be read as an icon later.
void WriteCachedIcon(const QString& AFileName, const QByteArray& ABytes)
{
  QDir().mkpath(QFileInfo(AFileName).absolutePath());
  QSaveFile File(AFileName);
  if (File.open(QIODevice::WriteOnly) && File.write(ABytes) == ABytes.size())
    File.commit();
}

} // namespace

void vxSetKmlIconCacheDir(const QString& ADir)
{
  TIconState& State = IconState();
  QMutexLocker Lock(&State.Lock);
  State.CacheDir = ADir;
}

QString vxKmlIconCacheDir()
{
  TIconState& State = IconState();
  QMutexLocker Lock(&State.Lock);
  return State.CacheDir;
}

QString vxKmlIconCacheFileName(const QString& AHref)
{
  const QString Dir = vxKmlIconCacheDir();
  if (Dir.isEmpty())
    return {};
  const QByteArray Hash =
    QCryptographicHash::hash(AHref.trimmed().toCaseFolded().toUtf8(), QCryptographicHash::Sha256).toHex();
  return QDir(Dir).filePath(QString::fromLatin1(Hash) + QLatin1String(".icon"));
}

void vxSetKmlIconTimeout(int AMilliseconds)
{
  TIconState& State = IconState();
  QMutexLocker Lock(&State.Lock);
  State.TimeoutMs = AMilliseconds > 0 ? AMilliseconds : vxKmlIconDefaultTimeoutMs;
}

int vxKmlIconTimeout()
{
  TIconState& State = IconState();
  QMutexLocker Lock(&State.Lock);
  return State.TimeoutMs;
}

void vxSetKmlIconRetryInterval(int AMilliseconds)
{
  TIconState& State = IconState();
  QMutexLocker Lock(&State.Lock);
  State.RetryIntervalMs = AMilliseconds >= 0 ? AMilliseconds : vxKmlIconDefaultRetryIntervalMs;
}

void vxForgetKmlIconFailures()
{
  TIconState& State = IconState();
  QMutexLocker Lock(&State.Lock);
  State.FailedUrls.clear();
  State.FailedHosts.clear();
}

// The converter base

void TvxMapControlCustomKmlGeometryConverter::ConvertGeometryCoordinatesToGeoPoints(
  const TvxKmlCoordinatesGeometry& AGeometry, TvxMapControlGeoPointCollection& AGeoPoints)
{
  // One change for all points, made where they stay.
  const auto& Coordinates = AGeometry.Coordinates();
  AGeoPoints.AddRange(size_t(Coordinates.size()), [&Coordinates](size_t AIndex) {
    const TvxKmlCoordinate& Coordinate = Coordinates[AIndex];
    return TvxMapControlGeoPoint::Create(Coordinate.Latitude, Coordinate.Longitude);
  });
}

void TvxMapControlCustomKmlGeometryConverter::ConvertKmlStyleToMapStyle(const TvxKmlStyle* AStyle,
                                                                        TvxMapItemStyle& AMapStyle)
{
  if (!AStyle)
    return;
  quint32 Color = 0;
  quint8 Alpha = 0;
  if (const TvxKmlLineStyle* LineStyle = AStyle->LineStyle())
  {
    GetRealColorValueAndAlpha(*LineStyle, Color, Alpha);
    AMapStyle.SetBorderColor(ColorWithAlpha(Color, Alpha));
    AMapStyle.SetBorderWidth(int(std::clamp(std::ceil(LineStyle->Width()), 0.0, double(MaxBorderWidth))));
  }
  if (const TvxKmlPolyStyle* PolyStyle = AStyle->PolyStyle())
  {
    GetRealColorValueAndAlpha(*PolyStyle, Color, Alpha);
    if (!PolyStyle->Outline())
      AMapStyle.SetBorderWidth(0);
    if (!PolyStyle->Fill())
      Alpha = 0;
    AMapStyle.SetColor(ColorWithAlpha(Color, Alpha));
  }
}

double TvxMapControlCustomKmlGeometryConverter::GetIconHotSpotInFractions(double ASize, TvxKmlUnits AUnits,
                                                                          double AValue)
{
  switch (AUnits)
  {
  case kmluPixels:
    return AValue / ASize;
  case kmluInsetPixels:
    return 1 - AValue / ASize;
  default:
    return AValue;
  }
}

void TvxMapControlCustomKmlGeometryConverter::GetRealColorValueAndAlpha(const TvxKmlColorStyle& AStyle,
                                                                        quint32& AColor, quint8& AAlpha)
{
  const quint32 Argb = AStyle.Color();
  AAlpha = quint8(Argb >> 24);
  if (Argb == 0)
  {
    AColor = vxMapControlNoneColor;
    return;
  }
  if (Argb == vxMapControlDefaultAlphaColor)
  {
    AColor = vxMapControlDefaultColor;
    return;
  }
  AColor = Argb & 0x00FFFFFF;
  if (AStyle.ColorMode() != kcmRandom)
    return;
  // Deliberately not KML's random value below each channel: only a full
  // channel changes, the others stay.
  for (const int Shift : {0, 8, 16})
    if (((AColor >> Shift) & 0xFF) == 0xFF)
      AColor = (AColor & ~(0xFFu << Shift)) | (quint32(QRandomGenerator::global()->bounded(255)) << Shift);
}

quint32 TvxMapControlCustomKmlGeometryConverter::ColorWithAlpha(quint32 AColor, quint8 AAlpha)
{
  if (AColor == vxMapControlNoneColor)
    return 0;
  if (AColor == vxMapControlDefaultColor)
    return vxMapControlDefaultAlphaColor;
  return (quint32(AAlpha) << 24) | (AColor & 0x00FFFFFF);
}

// Points

void TvxMapControlKmlPointConverter::Convert(const TvxKmlPlacemark& APlacemark, const TvxKmlGeometry& AGeometry,
                                             const TvxKmlStyle*, const TvxKmlStyle* ANormalStyle)
{
  const auto& Point = static_cast<const TvxKmlPoint&>(AGeometry);
  if (Point.Coordinates().empty())
    return;
  auto* Item = FLoader.MapItems().Add<TvxMapCustomElement>();
  const TvxKmlCoordinate& Location = Point.Coordinates().front();
  Item->SetLocation(TvxMapControlGeoPoint::Create(Location.Latitude, Location.Longitude));
  Item->SetText(APlacemark.Name());
  if (!ANormalStyle)
    return;
  const TvxKmlIconStyle* IconStyle = ANormalStyle->IconStyle();
  if (IconStyle && IconStyle->Icon())
  {
    const QString& Href = IconStyle->Icon()->HRef();
    QImage Image = FLoader.GetIcon(Href);
    if (!Image.isNull() && std::abs(IconStyle->Scale() - 1.0) > 1e-12)
      Image = ScaledIcon(Href, Image, IconStyle->Scale());
    // A failed fetch leaves no image, and the built-in pin shows.
    Item->SetImage(Image);
    const TvxKmlHotSpot* HotSpot = IconStyle->HotSpot();
    if (HotSpot && Image.width() != 0 && Image.height() != 0)
    {
      const auto Fraction = [](double AValue) {
        return std::clamp(AValue, -MaxHotSpotFraction, MaxHotSpotFraction);
      };
      // KML counts from the bottom left, the image origin from the top left.
      Item->SetImageOrigin(
        {Fraction(GetIconHotSpotInFractions(Image.width(), HotSpot->XUnits(), HotSpot->X())),
         1 - Fraction(GetIconHotSpotInFractions(Image.height(), HotSpot->YUnits(), HotSpot->Y()))});
    }
  }
  if (const TvxKmlLabelStyle* LabelStyle = ANormalStyle->LabelStyle())
  {
    // Only the font takes it: the text is drawn in the merged text colour.
    quint32 Color = 0;
    quint8 Alpha = 0;
    GetRealColorValueAndAlpha(*LabelStyle, Color, Alpha);
    Item->Style().SetFontColor(Color);
  }
}

QImage TvxMapControlKmlPointConverter::ScaledIcon(const QString& AHref, const QImage& AImage, double AScale)
{
  const std::pair<QString, double> Key(AHref.toCaseFolded(), AScale);
  if (const auto It = FScaledIcons.find(Key); It != FScaledIcons.end())
    return It->second;
  double Width = std::nearbyint(AImage.width() * AScale);
  double Height = std::nearbyint(AImage.height() * AScale);
  QImage Result;
  if (Width >= 1 && Height >= 1)
  {
    if (const double Larger = std::max(Width, Height); Larger > MaxScaledIconSize)
    {
      Width = std::max(1.0, std::round(Width * MaxScaledIconSize / Larger));
      Height = std::max(1.0, std::round(Height * MaxScaledIconSize / Larger));
    }
    Result = AImage.scaled(int(Width), int(Height), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  }
  FScaledIcons.emplace(Key, Result);
  return Result;
}

// Lines and rings

void TvxMapControlKmlLineStringConverter::Convert(const TvxKmlPlacemark&, const TvxKmlGeometry& AGeometry,
                                                  const TvxKmlStyle*, const TvxKmlStyle* ANormalStyle)
{
  auto* Item = FLoader.MapItems().Add<TvxMapPolyline>();
  ConvertGeometryCoordinatesToGeoPoints(static_cast<const TvxKmlCoordinatesGeometry&>(AGeometry), Item->GeoPoints());
  ConvertKmlStyleToMapStyle(ANormalStyle, Item->Style());
}

// Polygons

void TvxMapControlKmlPolygonConverter::AddRings(const TvxKmlPolygon& APolygon, TvxMapPath& APath)
{
  APath.Segments().BeginUpdate();
  if (const TvxKmlInnerBoundaryIs* Inner = APolygon.InnerBoundaryIs(); Inner && Inner->LinearRing())
    ConvertGeometryCoordinatesToGeoPoints(*Inner->LinearRing(), APath.Segments().Add()->GeoPoints());
  if (const TvxKmlOuterBoundaryIs* Outer = APolygon.OuterBoundaryIs(); Outer && Outer->LinearRing())
    ConvertGeometryCoordinatesToGeoPoints(*Outer->LinearRing(), APath.Segments().Add()->GeoPoints());
  APath.Segments().EndUpdate();
}

void TvxMapControlKmlPolygonConverter::Convert(const TvxKmlPlacemark&, const TvxKmlGeometry& AGeometry,
                                               const TvxKmlStyle*, const TvxKmlStyle* ANormalStyle)
{
  auto* Path = FLoader.MapItems().Add<TvxMapPath>();
  Path->SetSegmentType(mstPolygon);
  AddRings(static_cast<const TvxKmlPolygon&>(AGeometry), *Path);
  ConvertKmlStyleToMapStyle(ANormalStyle, Path->Style());
}

// Multi-geometries

void TvxMapControlKmlMultiGeometryConverter::Convert(const TvxKmlPlacemark& APlacemark,
                                                     const TvxKmlGeometry& AGeometry,
                                                     const TvxKmlStyle* AHighlightedStyle,
                                                     const TvxKmlStyle* ANormalStyle)
{
  // The level drops and the path ends also when a child throws.
  struct TLevel
  {
    TvxMapControlKmlMultiGeometryConverter& Converter;
    explicit TLevel(TvxMapControlKmlMultiGeometryConverter& AConverter) : Converter(AConverter)
    {
      ++Converter.FNestedLevel;
    }
    ~TLevel()
    {
      if (--Converter.FNestedLevel == 0)
        Converter.FPath = nullptr;
    }
  } Level(*this);

  for (const auto& Child : static_cast<const TvxKmlMultiGeometry&>(AGeometry).Geometries())
  {
    TvxMapControlCustomKmlGeometryConverter* Converter = FLoader.Converters().GetConverter(Child.get());
    if (!Converter)
      continue;
    if (const auto* Polygon = dynamic_cast<const TvxKmlPolygon*>(Child.get()))
    {
      if (!FPath)
      {
        FPath = FLoader.MapItems().Add<TvxMapPath>();
        FPath->SetSegmentType(mstPolygon);
        ConvertKmlStyleToMapStyle(ANormalStyle, FPath->Style());
      }
      AddToPath(*Polygon);
    }
    else
      Converter->Convert(APlacemark, *Child, AHighlightedStyle, ANormalStyle);
  }
}

// The converter factory

const TvxMapControlKmlElementConverterFactory& TvxMapControlKmlElementConverterFactory::Instance()
{
  static const TvxMapControlKmlElementConverterFactory Factory = [] {
    TvxMapControlKmlElementConverterFactory Result;
    Result.Register<TvxMapControlKmlPointConverter>();
    Result.Register<TvxMapControlKmlLineStringConverter>();
    Result.Register<TvxMapControlKmlLinearRingConverter>();
    Result.Register<TvxMapControlKmlPolygonConverter>();
    Result.Register<TvxMapControlKmlMultiGeometryConverter>();
    return Result;
  }();
  return Factory;
}

void TvxMapControlKmlElementConverterFactory::InitializeConverters(TvxMapControlKmlFileLoader& ALoader)
{
  FConvertersCache.clear();
  FConvertersCache.reserve(FItems.size());
  for (const TItem& Item : FItems)
    FConvertersCache.emplace_back(Item.FKmlElementClass, Item.FConverterClass(ALoader));
}

TvxMapControlCustomKmlGeometryConverter*
TvxMapControlKmlElementConverterFactory::GetConverter(const TvxKmlGeometry* AGeometry) const
{
  if (!AGeometry)
    return nullptr;
  const std::type_index Class(typeid(*AGeometry));
  for (const auto& [KmlClass, Converter] : FConvertersCache)
    if (KmlClass == Class)
      return Converter.get();
  return nullptr;
}

// The loader

TvxMapControlKmlFileLoader::TvxMapControlKmlFileLoader(TvxMapItemFileLayer& AOwner)
  : FOwner(AOwner), FMapItems(AOwner.MapItems()), FConverters(TvxMapControlKmlElementConverterFactory::Instance())
{
}

TvxMapControlKmlFileLoader::~TvxMapControlKmlFileLoader() = default;

void TvxMapControlKmlFileLoader::LoadFromStream(QIODevice& AStream)
{
  try
  {
    LoadGuarded(AStream);
  }
  catch (const EvxKmlTooLargeError& E)
  {
    // Told to the user, unlike bad content.
    throw EFTooLargeError(E.what());
  }
}

void TvxMapControlKmlFileLoader::LoadGuarded(QIODevice& AStream)
{
  const TvxKmlMemoryGuard Guard(AStream.isSequential() ? 0 : AStream.size());
  TvxKmlRoot Root;
  Root.Parse(AStream, &Guard);

  // Icons and converters live for this load only, and the update bracket
  // closes, whatever happens.
  struct TLoad
  {
    TvxMapControlKmlFileLoader& Loader;
    explicit TLoad(TvxMapControlKmlFileLoader& ALoader) : Loader(ALoader)
    {
      Loader.FMapItems.BeginUpdate();
      Loader.FConverters.InitializeConverters(Loader);
      Loader.FIcons.clear();
    }
    ~TLoad()
    {
      Loader.FIcons.clear();
      Loader.FConverters.FinalizeConverters();
      Loader.FMapItems.EndUpdate();
    }
  } Load(*this);

  int Count = 0;
  for (const auto& Placemark : Root.Placemarks())
  {
    if ((++Count & 1023) == 0)
      Guard.Check();
    const TvxKmlStyle* Normal = nullptr;
    const TvxKmlStyle* Highlighted = nullptr;
    Root.ResolveElementStyles(*Placemark, Normal, Highlighted);
    if (TvxMapControlCustomKmlGeometryConverter* Converter = FConverters.GetConverter(Placemark->Geometry()))
      Converter->Convert(*Placemark, *Placemark->Geometry(), Highlighted, Normal);
  }
}

QImage TvxMapControlKmlFileLoader::GetIcon(const QString& AHref)
{
  const QString Key = AHref.toCaseFolded();
  if (const auto It = FIcons.constFind(Key); It != FIcons.cend())
    return *It;
  // A failure is kept too: one try per URL and load.
  const QImage Image = LoadIcon(AHref);
  FIcons.insert(Key, Image);
  return Image;
}

QImage TvxMapControlKmlFileLoader::LoadIcon(const QString& AHref)
{
  // A path inside the document or on disk fails like an unreachable host.
  const QString Href = AHref.trimmed();
  if (!Href.startsWith(QLatin1String("http://"), Qt::CaseInsensitive) &&
      !Href.startsWith(QLatin1String("https://"), Qt::CaseInsensitive))
    return {};
  const QString FileName = vxKmlIconCacheFileName(Href);
  if (!FileName.isEmpty())
    if (QImage Cached = ReadCachedIcon(FileName); !Cached.isNull())
      return Cached;

  const QString UrlKey = Href.toCaseFolded();
  const QString Host = HostKey(QUrl(Href, QUrl::TolerantMode));
  if (IsResting(UrlKey, Host))
    return {};
  QByteArray Bytes;
  switch (FetchIconBytes(Href, Bytes))
  {
  case TIconFetch::Unreachable:
    NoteFailure(&TIconState::FailedHosts, Host);
    return {};
  case TIconFetch::NoIcon:
    NoteFailure(&TIconState::FailedUrls, UrlKey);
    return {};
  case TIconFetch::Done:
    break;
  }
  // A body that is no image counts as a failed fetch.
  QImage Image;
  Image.loadFromData(Bytes);
  if (Image.isNull())
    NoteFailure(&TIconState::FailedUrls, UrlKey);
  else if (!FileName.isEmpty())
    WriteCachedIcon(FileName, Bytes);
  return Image;
}

void vxRegisterKmlFileLoader()
{
  TvxKmlElementsFactory::Instance();
  TvxMapControlKmlElementConverterFactory::Instance();
  vxRegisteredMapItemFileLoaders().RegisterKmlLoader([](TvxMapItemFileLayer& ALayer, QIODevice& AStream) {
    TvxMapControlKmlFileLoader(ALayer).LoadFromStream(AStream);
  });
}
