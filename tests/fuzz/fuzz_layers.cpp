// Layers.xml through the window's layer catalogue, on a map control with
// the window's stack and no window. The scratch folder holds a.kml and
// b.kml for the seeds to name. A file that loads is saved as the close
// saves it; the saved file must load again and save the same layers (the
// order may move: the stacking arithmetic is the design's).
#include "FuzzSupport.h"
#include "ErrorsU.h"
#include "LayerCatalogU.h"
#include "vxMapControl.h"
#include "vxMapImageTileLayer.h"
#include "vxMapItemLayer.h"

#include <QDomDocument>

namespace
{
std::unique_ptr<TvxMapControl> NewMap()
{
  auto LMap = std::make_unique<TvxMapControl>();
  LMap->resize(400, 300);
  for (const char* LName : {"OpenStreetMapLayer", "ArcGISMapLayer", "AzureMapsLayer1", "AzureMapsLayer2"})
    LMap->AddLayer<TvxMapImageTileLayer>()->SetName(QLatin1String(LName));
  LMap->AddLayer<TvxMapItemLayer>()->SetName(LayerNames::StaticMarkers);
  LMap->AddLayer<TvxMapItemLayer>()->SetName(LayerNames::LiveMarkers);
  return LMap;
}

bool Load(TvxMapControl& AMap, const QString& AFile)
{
  try
  {
    TLayerCatalog(&AMap).LoadLayersFromXML(AFile);
    return true;
  }
  catch (const EMapwrightError& E)
  {
    FUZZ_CHECK(E.Message().startsWith(QLatin1String("Error Reading Layers: ")));
    return false;
  }
}

// The saved layers, each as its attributes, in sorted order.
QStringList Save(TvxMapControl& AMap, const QString& AFile)
{
  TLayerCatalog(&AMap).SaveLayersToXml(AFile);
  QDomDocument LDocument;
  FUZZ_CHECK(LDocument.setContent(Fuzz::ReadScratchFile(AFile)));
  QStringList LLayers;
  const QDomNodeList LNodes = LDocument.elementsByTagName(QStringLiteral("Layer"));
  for (int I = 0; I < LNodes.count(); ++I)
  {
    const QDomNamedNodeMap LAttributes = LNodes.at(I).attributes();
    QStringList LParts;
    for (int J = 0; J < LAttributes.count(); ++J)
      LParts << LAttributes.item(J).nodeName() + u'=' + LAttributes.item(J).nodeValue();
    LParts.sort();
    LLayers << LParts.join(u'\n');
  }
  LLayers.sort();
  return LLayers;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize(true);
  Fuzz::EnterScratchDir();
  const QByteArray LKml =
    "<?xml version=\"1.0\"?><kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document>"
    "<Placemark><name>P</name><Point><coordinates>8.5,47.3,0</coordinates></Point></Placemark>"
    "<Placemark><name>L</name><LineString><coordinates>8.5,47.3 8.6,47.4</coordinates></LineString></Placemark>"
    "</Document></kml>";
  Fuzz::WriteScratchFile(QStringLiteral("a.kml"), LKml);
  Fuzz::WriteScratchFile(QStringLiteral("b.kml"), LKml);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  const QString LSaved = Fuzz::ScratchDir().filePath(QStringLiteral("Saved.xml"));
  // A name in the input must not find the last input's saved file.
  QFile::remove(LSaved);
  const QString LInput = Fuzz::WriteScratchFile(QStringLiteral("Layers.xml"), Fuzz::Bytes(AData, ASize));
  const std::unique_ptr<TvxMapControl> LMap = NewMap();
  if (!Load(*LMap, LInput))
    return 0;
  const QStringList LFirst = Save(*LMap, LSaved);

  const std::unique_ptr<TvxMapControl> LAgain = NewMap();
  FUZZ_CHECK(Load(*LAgain, LSaved));
  FUZZ_CHECK(Save(*LAgain, LSaved) == LFirst);
  return 0;
}
