// CustomMarkers.xml as start-up reads it: the records, then the images they
// name, fitted into the Custom image list. The scratch folder holds a.png,
// b.png (no image) and c.png (a large one) for the seeds to name. A file
// that loads saves and loads again to the same bytes.
#include "FuzzSupport.h"
#include "ErrorsU.h"
#include "GlobalsU.h"
#include "MarkerImagesU.h"
#include "StaticMarkersU.h"

#include <QImage>

namespace
{
bool Load(TCustomImageInfoList& AList, const QString& AFile)
{
  try
  {
    TStaticMarkers::LoadCustomMarkerInfoFromXML(AFile, AList);
    return true;
  }
  catch (const EMapwrightError& E)
  {
    FUZZ_CHECK(E.Message().startsWith(QLatin1String("Error Reading Custom Markers: ")));
    return false;
  }
}

QByteArray Save(const TCustomImageInfoList& AList, const QString& AFile)
{
  TStaticMarkers::SaveCustomMarkerInfoToXml(AFile, AList);
  return Fuzz::ReadScratchFile(AFile);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize(true);
  Fuzz::EnterScratchDir();
  QImage LImage(16, 16, QImage::Format_ARGB32);
  LImage.fill(Qt::red);
  LImage.save(Fuzz::ScratchDir().filePath(QStringLiteral("a.png")), "PNG");
  Fuzz::WriteScratchFile(QStringLiteral("b.png"), "not a PNG");
  QImage LLarge(300, 40, QImage::Format_RGB32);
  LLarge.fill(Qt::blue);
  LLarge.save(Fuzz::ScratchDir().filePath(QStringLiteral("c.png")), "PNG");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  const QString LSaved = Fuzz::ScratchDir().filePath(QStringLiteral("Saved.xml"));
  // A name in the input must not find the last input's saved file.
  QFile::remove(LSaved);
  const QString LInput = Fuzz::WriteScratchFile(QStringLiteral("CustomMarkers.xml"), Fuzz::Bytes(AData, ASize));
  TCustomImageInfoList LList;
  if (!Load(LList, LInput))
    return 0;
  TMarkerImageList& LImages = MarkerImageLists().CustomImageList;
  int LRows = 0;
  TStaticMarkers::RefreshCustomImages(LList, LImages, [&](const QString&, int AIndex) {
    FUZZ_CHECK(AIndex == LRows++);
    FUZZ_CHECK(LImages.Image(AIndex).size() == LImages.ImageSize());
  });
  FUZZ_CHECK(LRows <= LList.Count());

  const QByteArray LFirst = Save(LList, LSaved);
  TCustomImageInfoList LAgain;
  FUZZ_CHECK(Load(LAgain, LSaved));
  FUZZ_CHECK(LAgain.Count() == LList.Count());
  FUZZ_CHECK(Save(LAgain, LSaved) == LFirst);
  return 0;
}
