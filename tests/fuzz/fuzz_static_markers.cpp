// StaticMarkers.xml through the store the window uses, on a map control
// without a window. A file that loads is saved as the close saves it; the
// saved file must load again and save to the same bytes, or the next start
// would lose what this one kept.
#include "FuzzSupport.h"
#include "ErrorsU.h"
#include "MarkerImagesU.h"
#include "StaticMarkersU.h"
#include "vxMapControl.h"
#include "vxMapItemLayer.h"

namespace
{
TvxMapControl* Map = nullptr;

bool Load(TvxMapItemLayer* ALayer, const QString& AFile)
{
  ALayer->MapItems().Clear();
  try
  {
    TStaticMarkers(Map, ALayer, nullptr, MarkerImageLists()).LoadStaticMarkersFromXML(AFile);
    return true;
  }
  catch (const EMapwrightError& E)
  {
    FUZZ_CHECK(E.Message().startsWith(QLatin1String("Error Reading Layers: ")));
    return false;
  }
}

QByteArray Save(TvxMapItemLayer* ALayer, const QString& AFile)
{
  TStaticMarkers(Map, ALayer, nullptr, MarkerImageLists()).SaveStaticMarkersToXml(AFile);
  return Fuzz::ReadScratchFile(AFile);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize(true);
  Fuzz::ScratchDir();
  static TvxMapControl Control;
  Map = &Control;
  Map->AddLayer<TvxMapItemLayer>()->SetName(QStringLiteral("KestrelStaticMarkers"));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  auto* LLayer = static_cast<TvxMapItemLayer*>(Map->Layers().Items(0));
  const QString LInput = Fuzz::WriteScratchFile(QStringLiteral("StaticMarkers.xml"), Fuzz::Bytes(AData, ASize));
  if (!Load(LLayer, LInput))
    return 0;
  const int LCount = LLayer->MapItems().Count();
  const QString LSaved = Fuzz::ScratchDir().filePath(QStringLiteral("Saved.xml"));
  const QByteArray LFirst = Save(LLayer, LSaved);
  FUZZ_CHECK(Load(LLayer, LSaved));
  FUZZ_CHECK(LLayer->MapItems().Count() == LCount);
  FUZZ_CHECK(Save(LLayer, LSaved) == LFirst);
  return 0;
}
