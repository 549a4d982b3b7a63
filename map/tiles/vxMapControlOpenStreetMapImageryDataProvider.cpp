#include "vxMapControlOpenStreetMapImageryDataProvider.h"

#include <cmath>

namespace
{

void ReplaceFirst(QString& AText, QStringView APattern, const QString& AValue)
{
  const qsizetype Position = AText.indexOf(APattern);
  if (Position >= 0)
    AText.replace(Position, APattern.size(), AValue);
}

// The world at the deepest level, in pixels on each axis.
qint64 WorldSize()
{
  using TProvider = TvxMapControlOpenStreetMapImageryDataProvider;
  return std::llround(TProvider::CalculateTotalImageSize(TProvider::MaxZoomLevel));
}

} // namespace

TvxMapControlOpenStreetMapImageryDataProvider::TvxMapControlOpenStreetMapImageryDataProvider(
  TvxMapImageTileLayer* AOwner)
  : TvxMapControlImageTileProvider(AOwner),
    FSubdomains{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")},
    FUrlTemplate(QStringLiteral("https://[subdomain].tile.openstreetmap.org/[z]/[x]/[y].png"))
{
}

std::unique_ptr<TvxMapControlMultiScaleTileSource> TvxMapControlOpenStreetMapImageryDataProvider::CreateTileSource()
{
  return std::make_unique<TvxMapControlOpenStreetMapTileSource>(this);
}

TvxSizeDouble TvxMapControlOpenStreetMapImageryDataProvider::GetMapSizeInPixels(double AZoomLevel) const
{
  const double Size = CalculateTotalImageSize(AZoomLevel) * ScaleFactor();
  return vxSizeDouble(Size, Size);
}

void TvxMapControlOpenStreetMapImageryDataProvider::Update()
{
  UpdateTileSource();
  TvxMapControlImageTileProvider::Update();
}

double TvxMapControlOpenStreetMapImageryDataProvider::CalculateTotalImageSize(double AZoomLevel)
{
  return vxCalculateTotalImageSize(AZoomLevel, TileSize);
}

void TvxMapControlOpenStreetMapImageryDataProvider::SetSubdomains(const QStringList& AValue)
{
  FSubdomains = AValue;
  Update();
}

void TvxMapControlOpenStreetMapImageryDataProvider::SetUrlTemplate(const QString& AValue)
{
  if (FUrlTemplate == AValue)
    return;
  FUrlTemplate = AValue;
  Update();
}

TvxMapControlOpenStreetMapTileSource::TvxMapControlOpenStreetMapTileSource(
  TvxMapControlOpenStreetMapImageryDataProvider* AOwner)
  : TvxMapControlMultiScaleTileSource(AOwner, WorldSize(), WorldSize(),
                                      TvxMapControlOpenStreetMapImageryDataProvider::TileSize,
                                      TvxMapControlOpenStreetMapImageryDataProvider::TileSize),
    FProvider(AOwner)
{
}

QString TvxMapControlOpenStreetMapTileSource::GetTileByZoomLevel(int AZoomLevel, int ATilePositionX,
                                                                 int ATilePositionY)
{
  const QStringList& Subdomains = FProvider->Subdomains();
  // The rotation moves on for every tile, whether the template uses it or not.
  const QString Subdomain =
    Subdomains.isEmpty() ? QString() : Subdomains.at(GetSubdomainIndex(int(Subdomains.size())));
  QString Result = FProvider->UrlTemplate();
  ReplaceFirst(Result, u"[subdomain]", Subdomain);
  ReplaceFirst(Result, u"[z]", QString::number(AZoomLevel));
  ReplaceFirst(Result, u"[x]", QString::number(ATilePositionX));
  ReplaceFirst(Result, u"[y]", QString::number(ATilePositionY));
  return Result;
}

void vxRegisterOpenStreetMapImageryDataProvider(TvxMapControlImageryDataProviders& ARegistry)
{
  ARegistry.Register(QStringLiteral("OpenStreetMapImageryDataProvider"),
                     vxImageTileProviderClass<TvxMapControlOpenStreetMapImageryDataProvider>());
}
