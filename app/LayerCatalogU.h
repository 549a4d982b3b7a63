#pragma once

// The layer catalogue: the site's imported KML and Shapefile layers with
// their colours, visibility and hint attribute, and the stacking order of
// the two fixed marker layers, kept in Layers.xml. Between load and save
// the catalogue is the map's own layer collection. No window here: the
// main form, the Layers dialog and the renderer share this code.

#include <QList>
#include <QString>
#include <optional>

class TUnloadedFiles;
class TvxCustomMapControl;
class TvxCustomMapItemLayer;
class TvxMapItem;
class TvxMapItemFileLayer;
class TvxMapLayer;

namespace LayerNames
{
inline const QString StaticMarkers = QStringLiteral("KestrelStaticMarkers");
inline const QString LiveMarkers = QStringLiteral("KestrelLiveMarkers");
// The pseudo attribute on a file layer's first item that names its hint attribute.
inline const QString MapHint = QStringLiteral("MAPHINT");
bool IsFixed(const QString& name);
}

// Colours in the program's XML files: the decimal text of 0x00BBGGRR.
namespace LayerColour
{
// "197121" for the colour that is not set; other colours lose their alpha.
QString ToText(quint32 argb);
// Null for an empty text; "197121" is the colour that is not set; any
// other text must be a decimal integer and gets alpha 255. Throws
// EConvertError for anything else.
std::optional<quint32> FromText(const QString& text);
// The system colour value of an ARGB colour, and back with alpha 255.
quint32 ToSystem(quint32 argb);
quint32 FromSystem(quint32 bgr);
}

class TLayerCatalog
{
public:
  explicit TLayerCatalog(TvxCustomMapControl* AMap);

  TvxCustomMapControl* Map() const { return FMap; }

  // The first layer from index 3 up with this name; lookups never start
  // below, as the design has it.
  TvxMapLayer* FindLayer(const QString& name) const;
  // Moves a layer to the index; indices beyond the stack go to its ends.
  void SetLayerIndex(TvxMapLayer* layer, int index) const;
  // Names are identifiers; anything else throws EvxComponentNameError and
  // keeps the old name.
  static void SetLayerName(TvxMapLayer* layer, const QString& name);
  // The file layers from index 3 up, in stack order.
  QList<TvxMapItemFileLayer*> FileLayers() const;

  // Layers.xml. Load failures come out as "Error Reading Layers: ...",
  // save failures as "Error Reading Connections: ...".
  void LoadLayersFromXML(const QString& fileName);
  void SaveLayersToXml(const QString& fileName, TUnloadedFiles* unloaded = nullptr) const;

  // The hint of a file layer's item: the value of the attribute its first
  // item's MAPHINT names, or nothing.
  static void LayerGetItemHint(TvxCustomMapItemLayer* Sender, TvxMapItem* Item, QString& AHint);
  // Gives every file layer from index 3 up the hint event above.
  void AttachHintEvents() const;
  // Sets the layer's hint attribute and MAPHINT on its first item, if any.
  static void SetHintAttribute(TvxMapItemFileLayer* layer, const QString& attribute);

  // Zooms to fit the items of the marker layers and every file layer.
  void ZoomToLayers() const;
  static constexpr double ZoomPadding = 0.15;

private:
  TvxCustomMapControl* FMap;
};
