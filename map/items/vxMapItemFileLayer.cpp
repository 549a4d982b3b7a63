#include "vxMapItemFileLayer.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>

#include <exception>

namespace
{

QByteArray ReadWholeFile(const QString& AFileName)
{
  QFile File(AFileName);
  if (!File.open(QIODevice::ReadOnly))
    throw EFOpenError(QStringLiteral("Cannot open file \"%1\". %2").arg(AFileName, File.errorString()).toStdString());
  QByteArray Data = File.readAll();
  if (File.error() != QFileDevice::NoError)
    throw EFOpenError(QStringLiteral("Cannot read file \"%1\". %2").arg(AFileName, File.errorString()).toStdString());
  return Data;
}

// The name with its last extension replaced, as the sidecar files are named.
QString ChangeFileExt(const QString& AFileName, const QString& AExtension)
{
  const qsizetype Slash = std::max(AFileName.lastIndexOf(QLatin1Char('/')), AFileName.lastIndexOf(QLatin1Char('\\')));
  const qsizetype Dot = AFileName.lastIndexOf(QLatin1Char('.'));
  return (Dot > Slash ? AFileName.left(Dot) : AFileName) + AExtension;
}

} // namespace

TvxRegisteredMapItemFileLoaders& vxRegisteredMapItemFileLoaders()
{
  static TvxRegisteredMapItemFileLoaders Registry;
  return Registry;
}

TvxMapItemFileLayer::TvxMapItemFileLayer(TvxMapLayers* ACollection) : TvxCustomMapItemLayer(ACollection)
{
}

TvxMapItemFileLayer::~TvxMapItemFileLayer() = default;

void TvxMapItemFileLayer::SetActive(bool AValue)
{
  if (FRestoring)
  {
    FLoadedActive = AValue;
    return;
  }
  if (FActive == AValue)
    return;
  FActive = AValue;
  if (AValue)
    ActivateFile();
  else
    DeactivateFile();
}

void TvxMapItemFileLayer::EndRestore()
{
  if (!FRestoring)
    return;
  FRestoring = false;
  SetActive(FLoadedActive);
}

void TvxMapItemFileLayer::SetFileName(const QString& AValue)
{
  if (FFileName == AValue)
    return;
  FFileName = AValue;
  if (!FRestoring)
    SetActive(false);
}

void TvxMapItemFileLayer::SetFileType(TvxMapItemFileType AValue)
{
  if (FFileType == AValue)
    return;
  FFileType = AValue;
  if (!FRestoring)
    SetActive(false);
}

void TvxMapItemFileLayer::ActivateFile()
{
  // Active is already true here; a load that fails sets it back.
  FActive = false;
  LoadFromFile(QString());
}

void TvxMapItemFileLayer::DeactivateFile()
{
  MapItems().Clear();
}

void TvxMapItemFileLayer::LoadFromFile(const QString& AFileName)
{
  SetActive(false);
  if (!AFileName.isEmpty())
    FFileName = AFileName;
  // The file type decides; the extension plays no part.
  if (FFileType == miftKml)
  {
    QByteArray Data = ReadWholeFile(FFileName);
    QBuffer Stream(&Data);
    Stream.open(QIODevice::ReadOnly);
    LoadFromStream(Stream);
    return;
  }
  const QString ShapesName = ChangeFileExt(FFileName, QStringLiteral(".shp"));
  const QString TableName = ChangeFileExt(FFileName, QStringLiteral(".dbf"));
  const QString CodePageName = ChangeFileExt(FFileName, QStringLiteral(".cpg"));
  if (!QFileInfo::exists(ShapesName) || !QFileInfo::exists(TableName))
    return;
  QByteArray Shapes = ReadWholeFile(ShapesName);
  QByteArray Table = ReadWholeFile(TableName);
  QBuffer ShapesStream(&Shapes);
  QBuffer TableStream(&Table);
  ShapesStream.open(QIODevice::ReadOnly);
  TableStream.open(QIODevice::ReadOnly);
  if (QFileInfo::exists(CodePageName))
  {
    QByteArray CodePage = ReadWholeFile(CodePageName);
    QBuffer CodePageStream(&CodePage);
    CodePageStream.open(QIODevice::ReadOnly);
    LoadShapeFileFromStream(ShapesStream, TableStream, &CodePageStream);
  }
  else
    LoadShapeFileFromStream(ShapesStream, TableStream, nullptr);
}

template <class TLoad>
void TvxMapItemFileLayer::RunLoader(TLoad ALoad)
{
  // Bad content gives no message: an empty, inactive layer, and the text of
  // what went wrong for whoever asks.
  FLastError.clear();
  MapItems().BeginUpdate();
  try
  {
    ALoad();
    FActive = true;
  }
  catch (const std::exception& E)
  {
    FLastError = QString::fromUtf8(E.what());
    MapItems().Clear();
  }
  catch (...)
  {
    FLastError = QStringLiteral("Unknown error");
    MapItems().Clear();
  }
  MapItems().EndUpdate();
}

void TvxMapItemFileLayer::LoadFromStream(QIODevice& AStream)
{
  if (FFileType != miftKml)
    return;
  RunLoader([&] {
    const auto& Loader = vxRegisteredMapItemFileLoaders().KmlLoader();
    if (!Loader)
      throw std::runtime_error("No KML loader is registered");
    Loader(*this, AStream);
  });
}

void TvxMapItemFileLayer::LoadShapeFileFromStream(QIODevice& AShapes, QIODevice& ATable)
{
  LoadShapeFileFromStream(AShapes, ATable, nullptr);
}

void TvxMapItemFileLayer::LoadShapeFileFromStream(QIODevice& AShapes, QIODevice& ATable, QIODevice* ACodePage)
{
  FFileType = miftShape;
  RunLoader([&] {
    const auto& Loader = vxRegisteredMapItemFileLoaders().ShapeLoader();
    if (!Loader)
      throw std::runtime_error("No Shapefile loader is registered");
    Loader(*this, AShapes, ATable, ACodePage);
  });
}
