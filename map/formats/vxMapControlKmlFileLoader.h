#pragma once

// Turns the placemarks of a KML document into items of a file layer: a
// point becomes a custom element with its style's icon, a line a polyline,
// a polygon a path, and all polygons of one multi-geometry one path. Only
// the normal style is used. Icons are fetched over HTTP, once per URL and
// load, and kept on disk when a folder for them is set.

#include "vxKmlElements.h"

#include <QHash>
#include <QImage>

#include <map>
#include <memory>
#include <typeindex>
#include <utility>
#include <vector>

class QIODevice;
class TvxMapControlGeoPointCollection;
class TvxMapControlKmlFileLoader;
class TvxMapItemFileLayer;
class TvxMapItemStyle;
class TvxMapItems;
class TvxMapPath;

// The plain colour of "no colour", beside vxMapControlDefaultColor.
inline constexpr quint32 vxMapControlNoneColor = 0x1FFFFFFF;

class TvxMapControlCustomKmlGeometryConverter
{
public:
  explicit TvxMapControlCustomKmlGeometryConverter(TvxMapControlKmlFileLoader& ALoader) : FLoader(ALoader) {}
  TvxMapControlCustomKmlGeometryConverter(const TvxMapControlCustomKmlGeometryConverter&) = delete;
  TvxMapControlCustomKmlGeometryConverter& operator=(const TvxMapControlCustomKmlGeometryConverter&) = delete;
  virtual ~TvxMapControlCustomKmlGeometryConverter() = default;

  TvxMapControlKmlFileLoader& Loader() const { return FLoader; }
  // AGeometry is of the class the converter is registered for. The
  // highlighted style is passed along and not used.
  virtual void Convert(const TvxKmlPlacemark& APlacemark, const TvxKmlGeometry& AGeometry,
                       const TvxKmlStyle* AHighlightedStyle, const TvxKmlStyle* ANormalStyle) = 0;

  static void ConvertGeometryCoordinatesToGeoPoints(const TvxKmlCoordinatesGeometry& AGeometry,
                                                    TvxMapControlGeoPointCollection& AGeoPoints);
  // Line style first, then poly style, so that "outline" 0 wins over the
  // line's width.
  static void ConvertKmlStyleToMapStyle(const TvxKmlStyle* AStyle, TvxMapItemStyle& AMapStyle);
  static double GetIconHotSpotInFractions(double ASize, TvxKmlUnits AUnits, double AValue);
  // The style's ARGB as a plain colour (or vxMapControlNoneColor for 0,
  // vxMapControlDefaultColor for the "not set" value) and an alpha. In
  // random mode only channels of 255 get a random value, from 0 to 254.
  static void GetRealColorValueAndAlpha(const TvxKmlColorStyle& AStyle, quint32& AColor, quint8& AAlpha);
  // The reverse: an ARGB value, keeping "no colour" and "not set".
  static quint32 ColorWithAlpha(quint32 AColor, quint8 AAlpha);

protected:
  TvxMapControlKmlFileLoader& FLoader;
};

class TvxMapControlKmlPointConverter : public TvxMapControlCustomKmlGeometryConverter
{
public:
  // Past this a scaled icon is made smaller, keeping its shape: a scale is
  // not a way to ask for gigabytes.
  static constexpr int MaxScaledIconSize = 1024;
  // A hot spot is kept within this many image sizes of the image.
  static constexpr double MaxHotSpotFraction = 1000;

  using TvxMapControlCustomKmlGeometryConverter::TvxMapControlCustomKmlGeometryConverter;
  static std::type_index KmlElementClass() { return typeid(TvxKmlPoint); }
  void Convert(const TvxKmlPlacemark& APlacemark, const TvxKmlGeometry& AGeometry,
               const TvxKmlStyle* AHighlightedStyle, const TvxKmlStyle* ANormalStyle) override;

private:
  QImage ScaledIcon(const QString& AHref, const QImage& AImage, double AScale);

  // One scaled image per icon and scale, shared by every point that uses it.
  std::map<std::pair<QString, double>, QImage> FScaledIcons;
};

class TvxMapControlKmlLineStringConverter : public TvxMapControlCustomKmlGeometryConverter
{
public:
  using TvxMapControlCustomKmlGeometryConverter::TvxMapControlCustomKmlGeometryConverter;
  static std::type_index KmlElementClass() { return typeid(TvxKmlLineString); }
  void Convert(const TvxKmlPlacemark& APlacemark, const TvxKmlGeometry& AGeometry,
               const TvxKmlStyle* AHighlightedStyle, const TvxKmlStyle* ANormalStyle) override;
};

// A ring as an open line: not closed and not filled.
class TvxMapControlKmlLinearRingConverter : public TvxMapControlKmlLineStringConverter
{
public:
  using TvxMapControlKmlLineStringConverter::TvxMapControlKmlLineStringConverter;
  static std::type_index KmlElementClass() { return typeid(TvxKmlLinearRing); }
};

class TvxMapControlKmlPolygonConverter : public TvxMapControlCustomKmlGeometryConverter
{
public:
  using TvxMapControlCustomKmlGeometryConverter::TvxMapControlCustomKmlGeometryConverter;
  static std::type_index KmlElementClass() { return typeid(TvxKmlPolygon); }
  void Convert(const TvxKmlPlacemark& APlacemark, const TvxKmlGeometry& AGeometry,
               const TvxKmlStyle* AHighlightedStyle, const TvxKmlStyle* ANormalStyle) override;

  // The inner ring first, then the outer one: the fill rule does not mind,
  // and the title finds the outer ring by its area.
  static void AddRings(const TvxKmlPolygon& APolygon, TvxMapPath& APath);
};

// Every polygon of one placemark, at any depth, goes into one path; each
// point and line is an item of its own.
class TvxMapControlKmlMultiGeometryConverter : public TvxMapControlCustomKmlGeometryConverter
{
public:
  using TvxMapControlCustomKmlGeometryConverter::TvxMapControlCustomKmlGeometryConverter;
  static std::type_index KmlElementClass() { return typeid(TvxKmlMultiGeometry); }
  void Convert(const TvxKmlPlacemark& APlacemark, const TvxKmlGeometry& AGeometry,
               const TvxKmlStyle* AHighlightedStyle, const TvxKmlStyle* ANormalStyle) override;

private:
  void AddToPath(const TvxKmlPolygon& APolygon) { TvxMapControlKmlPolygonConverter::AddRings(APolygon, *FPath); }

  // This converter is shared by the nested multi-geometries of a placemark;
  // the path ends with the outermost one.
  int FNestedLevel = 0;
  TvxMapPath* FPath = nullptr;
};

// Converter classes by KML class, and the instances of one load.
class TvxMapControlKmlElementConverterFactory
{
public:
  using TConverterClass = std::unique_ptr<TvxMapControlCustomKmlGeometryConverter> (*)(TvxMapControlKmlFileLoader&);
  struct TItem
  {
    std::type_index FKmlElementClass;
    TConverterClass FConverterClass;
  };

  // The registered classes, filled once on first use.
  static const TvxMapControlKmlElementConverterFactory& Instance();

  TvxMapControlKmlElementConverterFactory() = default;
  // Copies the classes, never the instances.
  TvxMapControlKmlElementConverterFactory(const TvxMapControlKmlElementConverterFactory& ASource)
    : FItems(ASource.FItems)
  {
  }
  TvxMapControlKmlElementConverterFactory& operator=(const TvxMapControlKmlElementConverterFactory&) = delete;

  template <class TConverter>
  void Register()
  {
    FItems.push_back({TConverter::KmlElementClass(), [](TvxMapControlKmlFileLoader& ALoader) {
                        return std::unique_ptr<TvxMapControlCustomKmlGeometryConverter>(
                          std::make_unique<TConverter>(ALoader));
                      }});
  }
  int Count() const { return int(FItems.size()); }

  void InitializeConverters(TvxMapControlKmlFileLoader& ALoader);
  void FinalizeConverters() { FConvertersCache.clear(); }
  // The converter for the geometry's exact class; null for none.
  TvxMapControlCustomKmlGeometryConverter* GetConverter(const TvxKmlGeometry* AGeometry) const;

private:
  std::vector<TItem> FItems;
  std::vector<std::pair<std::type_index, std::unique_ptr<TvxMapControlCustomKmlGeometryConverter>>> FConvertersCache;
};

class TvxMapControlKmlFileLoader
{
public:
  // An icon larger than this is taken for a failed fetch.
  static constexpr qint64 MaxIconBytes = 8 * 1024 * 1024;

  explicit TvxMapControlKmlFileLoader(TvxMapItemFileLayer& AOwner);
  TvxMapControlKmlFileLoader(const TvxMapControlKmlFileLoader&) = delete;
  TvxMapControlKmlFileLoader& operator=(const TvxMapControlKmlFileLoader&) = delete;
  ~TvxMapControlKmlFileLoader();

  // Throws on bad content; the layer's guard clears what was made. A load
  // that would hold more memory than TvxKmlMemoryGuard allows the stream's
  // size throws EFTooLargeError, which the layer passes on.
  void LoadFromStream(QIODevice& AStream);

  TvxMapItemFileLayer& Owner() const { return FOwner; }
  TvxMapItems& MapItems() const { return FMapItems; }
  const TvxMapControlKmlElementConverterFactory& Converters() const { return FConverters; }

  // The icon of an http or https URL, asked for once per load: from the
  // disk cache, else from the network unless the URL or its host failed
  // lately (see vxSetKmlIconRetryInterval). A null image when it cannot be
  // had, and the point shows the built-in pin.
  QImage GetIcon(const QString& AHref);

private:
  void LoadGuarded(QIODevice& AStream);
  static QImage LoadIcon(const QString& AHref);

  TvxMapItemFileLayer& FOwner;
  TvxMapItems& FMapItems;
  TvxMapControlKmlElementConverterFactory FConverters;
  // By URL, case folded: the same icon spelled otherwise is one fetch. A
  // failure is a null image.
  QHash<QString, QImage> FIcons;
};

// The folder that keeps fetched icons between runs, one file per URL, read
// before any fetch; empty (the default) keeps none. Process-wide.
void vxSetKmlIconCacheDir(const QString& ADir);
QString vxKmlIconCacheDir();
// The file of a URL in that folder (empty without a folder).
QString vxKmlIconCacheFileName(const QString& AHref);

// An icon fetch ends when no byte has come for this long, connecting
// included, so that a host that never answers costs one short wait.
inline constexpr int vxKmlIconDefaultTimeoutMs = 3000;
void vxSetKmlIconTimeout(int AMilliseconds);
int vxKmlIconTimeout();

// A URL that failed, and every URL of a host that could not be reached, is
// not fetched again for this long, across loads.
inline constexpr int vxKmlIconDefaultRetryIntervalMs = 5 * 60 * 1000;
void vxSetKmlIconRetryInterval(int AMilliseconds);
// Forgets those failures: the next load tries again.
void vxForgetKmlIconFailures();

// Builds the factories and registers the KML loader with the file layers.
// Call once at start-up, on the main thread.
void vxRegisterKmlFileLoader();
