#include "vxMapItemFileLayer.h"

#include "vxLargeBlock.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <exception>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Opens a regular file for reading. A FIFO or a device would block the
// open, or never end; they are refused before anything waits on them.
void OpenRegularFile(QFile& AFile, const QString& AFileName)
{
  const QByteArray Path = QFile::encodeName(AFileName);
  const int Handle = ::open(Path.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (Handle < 0)
    throw EFOpenError(QStringLiteral("Cannot open file \"%1\". %2").arg(AFileName, qt_error_string(errno)).toStdString());
  struct stat Status;
  if (::fstat(Handle, &Status) != 0 || !S_ISREG(Status.st_mode))
  {
    ::close(Handle);
    throw EFOpenError(
      QStringLiteral("Cannot open file \"%1\". It is not a regular file.").arg(AFileName).toStdString());
  }
  ::fcntl(Handle, F_SETFL, ::fcntl(Handle, F_GETFL) & ~O_NONBLOCK);
  if (!AFile.open(Handle, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
  {
    ::close(Handle);
    throw EFOpenError(QStringLiteral("Cannot open file \"%1\". %2").arg(AFileName, AFile.errorString()).toStdString());
  }
}

// A whole file in memory. A big one goes to a large block (see
// TvxLargeBlock), which Bytes only points into: it lives as long as this.
struct TWholeFile
{
  TvxLargeBlock Block;
  QByteArray Bytes;
};

void ReadWholeFile(const QString& AFileName, TWholeFile& AFile)
{
  QFile File;
  OpenRegularFile(File, AFileName);
  // No more than the size it had when opened, should it grow meanwhile.
  const qint64 Size = File.size();
  if (Size >= qint64(TvxLargeBlock::MappedFrom))
  {
    AFile.Block = TvxLargeBlock(size_t(Size));
    auto* Data = reinterpret_cast<char*>(AFile.Block.Data());
    qint64 Read = 0;
    while (Read < Size)
    {
      const qint64 Count = File.read(Data + Read, Size - Read);
      if (Count <= 0)
        break;
      Read += Count;
    }
    AFile.Bytes = QByteArray::fromRawData(Data, qsizetype(Read));
  }
  else
    AFile.Bytes = File.read(Size);
  if (File.error() != QFileDevice::NoError)
    throw EFOpenError(QStringLiteral("Cannot read file \"%1\". %2").arg(AFileName, File.errorString()).toStdString());
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
    // Read as it parses: no copy of the whole file in memory.
    QFile Stream;
    OpenRegularFile(Stream, FFileName);
    try
    {
      LoadFromStream(Stream);
    }
    catch (const EFTooLargeError& E)
    {
      throw EFTooLargeError(
        QStringLiteral("Cannot load file \"%1\". %2").arg(FFileName, QString::fromUtf8(E.what())).toStdString());
    }
    return;
  }
  const QString ShapesName = ChangeFileExt(FFileName, QStringLiteral(".shp"));
  const QString TableName = ChangeFileExt(FFileName, QStringLiteral(".dbf"));
  const QString CodePageName = ChangeFileExt(FFileName, QStringLiteral(".cpg"));
  if (!QFileInfo::exists(ShapesName) || !QFileInfo::exists(TableName))
    return;
  TWholeFile Shapes, Table;
  ReadWholeFile(ShapesName, Shapes);
  ReadWholeFile(TableName, Table);
  QBuffer ShapesStream(&Shapes.Bytes);
  QBuffer TableStream(&Table.Bytes);
  ShapesStream.open(QIODevice::ReadOnly);
  TableStream.open(QIODevice::ReadOnly);
  if (QFileInfo::exists(CodePageName))
  {
    TWholeFile CodePage;
    ReadWholeFile(CodePageName, CodePage);
    QBuffer CodePageStream(&CodePage.Bytes);
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
  catch (const EFTooLargeError& E)
  {
    // Not the content's fault: the file is more than this program reads,
    // and whoever loads it is told.
    FLastError = QString::fromUtf8(E.what());
    MapItems().Clear();
    MapItems().EndUpdate();
    throw;
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
