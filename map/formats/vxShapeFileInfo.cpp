#include "vxShapeFileInfo.h"

#include "vxMapControlTypes.h"

#include <algorithm>

namespace
{

template <class TRecord>
std::unique_ptr<TvxShapeFileRecord> CreateRecordOf(qint32 ARecordNumber)
{
  return std::make_unique<TRecord>(ARecordNumber);
}

// Point arrays of X and Y, read without a call per point.
template <class TPoint>
void ReadXY(TvxByteStream& AStream, qint32 ACount, std::vector<TPoint>& APoints)
{
  TvxShapeFileReader::CheckCount(AStream, ACount, "point count", 16);
  const uchar* P = AStream.Read(qint64(ACount) * 16);
  const auto LDecode = [P](size_t AIndex) {
    const TvxShapeFilePoint Point = TvxShapeFileXYBlock::Decode(P + AIndex * 16);
    TPoint Result;
    Result.X = Point.X;
    Result.Y = Point.Y;
    return Result;
  };
  APoints.clear();
  vxAppendMade(APoints, size_t(ACount), LDecode);
}

template <class TPoint, double TPoint::*Value>
void ReadValues(TvxByteStream& AStream, std::vector<TPoint>& APoints)
{
  const uchar* P = AStream.Read(qint64(APoints.size()) * 8);
  for (TPoint& Point : APoints)
  {
    Point.*Value = TvxByteStream::DoubleLE(P);
    P += 8;
  }
}

} // namespace

// TvxShapeFileReader

double TvxShapeFileReader::ReadPointX(TvxByteStream& AStream)
{
  return std::clamp(AStream.ReadDoubleLE(), -180.0, 180.0);
}

double TvxShapeFileReader::ReadPointY(TvxByteStream& AStream)
{
  return std::clamp(AStream.ReadDoubleLE(), -90.0, 90.0);
}

TvxShapeFilePoint TvxShapeFileReader::ReadPoint(TvxByteStream& AStream)
{
  TvxShapeFilePoint Result;
  Result.X = ReadPointX(AStream);
  Result.Y = ReadPointY(AStream);
  return Result;
}

TvxShapeFileBoundingBox TvxShapeFileReader::ReadBoundingBox(TvxByteStream& AStream)
{
  TvxShapeFileBoundingBox Result;
  Result.XRange.Min = ReadDouble(AStream);
  Result.YRange.Min = ReadDouble(AStream);
  Result.XRange.Max = ReadDouble(AStream);
  Result.YRange.Max = ReadDouble(AStream);
  return Result;
}

TvxShapeFilePointRange TvxShapeFileReader::ReadRange(TvxByteStream& AStream)
{
  TvxShapeFilePointRange Result;
  Result.Min = ReadDouble(AStream);
  Result.Max = ReadDouble(AStream);
  return Result;
}

void TvxShapeFileReader::CheckCount(const TvxByteStream& AStream, qint32 ACount, const char* AWhat,
                                    qint64 ABytesEach)
{
  if (ACount < 0)
    throw EvxReadError(QStringLiteral("negative %1 %2").arg(QLatin1String(AWhat)).arg(ACount));
  if (qint64(ACount) * ABytesEach > AStream.Remaining())
    throw EvxReadError(
      QStringLiteral("%1 %2 exceeds the %3 bytes left").arg(QLatin1String(AWhat)).arg(ACount).arg(AStream.Remaining()));
}

qint32 TvxShapeFileReader::ReadCount(TvxByteStream& AStream, const char* AWhat, qint64 ABytesEach)
{
  const qint32 Result = ReadIntLE(AStream);
  CheckCount(AStream, Result, AWhat, ABytesEach);
  return Result;
}

void TvxShapeFileReader::ReadParts(TvxByteStream& AStream, qint32 ACount, std::vector<qint32>& AParts)
{
  CheckCount(AStream, ACount, "part count", 4);
  AParts.resize(size_t(ACount));
  const uchar* P = AStream.Read(qint64(ACount) * 4);
  for (qint32& Part : AParts)
  {
    Part = qint32(TvxByteStream::UInt32LE(P));
    P += 4;
  }
}

void TvxShapeFileReader::ReadPartTypes(TvxByteStream& AStream, qint32 ACount, std::vector<quint8>& APartTypes)
{
  CheckCount(AStream, ACount, "part count", 4);
  APartTypes.resize(size_t(ACount));
  for (quint8& PartType : APartTypes)
    PartType = quint8(ReadIntLE(AStream));
}

void TvxShapeFileReader::ReadPoints(TvxByteStream& AStream, qint32 ACount, std::vector<TvxShapeFilePoint>& APoints)
{
  ReadXY(AStream, ACount, APoints);
}

TvxShapeFileXYBlock TvxShapeFileReader::ReadXYBlock(TvxByteStream& AStream, qint32 ACount)
{
  CheckCount(AStream, ACount, "point count", 16);
  return {AStream.Read(qint64(ACount) * 16), ACount};
}

void TvxShapeFileReader::ReadPointsM(TvxByteStream& AStream, qint32 ACount, std::vector<TvxShapeFilePointM>& APoints)
{
  ReadXY(AStream, ACount, APoints);
}

void TvxShapeFileReader::ReadPointsZ(TvxByteStream& AStream, qint32 ACount, std::vector<TvxShapeFilePointZ>& APoints)
{
  ReadXY(AStream, ACount, APoints);
}

void TvxShapeFileReader::ReadMPointsM(TvxByteStream& AStream, std::vector<TvxShapeFilePointM>& APoints)
{
  ReadValues<TvxShapeFilePointM, &TvxShapeFilePointM::M>(AStream, APoints);
}

void TvxShapeFileReader::ReadMPointsZ(TvxByteStream& AStream, std::vector<TvxShapeFilePointZ>& APoints)
{
  ReadValues<TvxShapeFilePointZ, &TvxShapeFilePointZ::M>(AStream, APoints);
}

void TvxShapeFileReader::ReadZPointsZ(TvxByteStream& AStream, std::vector<TvxShapeFilePointZ>& APoints)
{
  ReadValues<TvxShapeFilePointZ, &TvxShapeFilePointZ::Z>(AStream, APoints);
}

// Records

std::span<const TvxShapeFilePoint> TvxShapeFileCustomMultiPointRecord::Points() const
{
  if (!FIsPointsDecoded)
  {
    FPoints.reserve(size_t(FXY.Count()));
    for (qint32 I = 0; I < FXY.Count(); ++I)
      FPoints.push_back(FXY.Point(I));
    FIsPointsDecoded = true;
  }
  return FPoints;
}

void TvxShapeFilePointRecord::LoadFromStream(TvxByteStream& AStream)
{
  FPoint = TvxShapeFileReader::ReadPoint(AStream);
}

void TvxShapeFilePointMRecord::LoadFromStream(TvxByteStream& AStream)
{
  FPoint.X = TvxShapeFileReader::ReadPointX(AStream);
  FPoint.Y = TvxShapeFileReader::ReadPointY(AStream);
  FPoint.M = TvxShapeFileReader::ReadDouble(AStream);
}

void TvxShapeFilePointZRecord::LoadFromStream(TvxByteStream& AStream)
{
  FPoint.X = TvxShapeFileReader::ReadPointX(AStream);
  FPoint.Y = TvxShapeFileReader::ReadPointY(AStream);
  FPoint.Z = TvxShapeFileReader::ReadDouble(AStream);
  FPoint.M = TvxShapeFileReader::ReadDouble(AStream);
}

void TvxShapeFileCustomMultiPointMRecord::LoadPoints(TvxByteStream& AStream)
{
  // The M block is always there for this reader.
  TvxShapeFileReader::ReadPointsM(AStream, FPointCount, FPointsM);
  FMRange = TvxShapeFileReader::ReadRange(AStream);
  TvxShapeFileReader::ReadMPointsM(AStream, FPointsM);
}

void TvxShapeFileCustomMultiPointZRecord::LoadPoints(TvxByteStream& AStream)
{
  TvxShapeFileReader::ReadPointsZ(AStream, FPointCount, FPointsZ);
  FZRange = TvxShapeFileReader::ReadRange(AStream);
  TvxShapeFileReader::ReadZPointsZ(AStream, FPointsZ);
  FMRange = TvxShapeFileReader::ReadRange(AStream);
  TvxShapeFileReader::ReadMPointsZ(AStream, FPointsZ);
}

void TvxShapeFilePolylineRecord::LoadFromStream(TvxByteStream& AStream)
{
  FBoundingBox = TvxShapeFileReader::ReadBoundingBox(AStream);
  const qint32 PartCount = TvxShapeFileReader::ReadCount(AStream, "part count", 4);
  const qint32 PointCount = TvxShapeFileReader::ReadCount(AStream, "point count", 16);
  TvxShapeFileReader::ReadParts(AStream, PartCount, FParts);
  FXY = TvxShapeFileReader::ReadXYBlock(AStream, PointCount);
}

void TvxShapeFileMultiPointRecord::LoadFromStream(TvxByteStream& AStream)
{
  FBoundingBox = TvxShapeFileReader::ReadBoundingBox(AStream);
  const qint32 PointCount = TvxShapeFileReader::ReadCount(AStream, "point count", 16);
  FXY = TvxShapeFileReader::ReadXYBlock(AStream, PointCount);
}

void TvxShapeFilePolylineMRecord::LoadFromStream(TvxByteStream& AStream)
{
  FBoundingBox = TvxShapeFileReader::ReadBoundingBox(AStream);
  const qint32 PartCount = TvxShapeFileReader::ReadCount(AStream, "part count", 4);
  FPointCount = TvxShapeFileReader::ReadCount(AStream, "point count", 16);
  TvxShapeFileReader::ReadParts(AStream, PartCount, FParts);
  LoadPoints(AStream);
}

void TvxShapeFileMultiPointMRecord::LoadFromStream(TvxByteStream& AStream)
{
  FBoundingBox = TvxShapeFileReader::ReadBoundingBox(AStream);
  FPointCount = TvxShapeFileReader::ReadCount(AStream, "point count", 16);
  LoadPoints(AStream);
}

void TvxShapeFilePolylineZRecord::LoadFromStream(TvxByteStream& AStream)
{
  FBoundingBox = TvxShapeFileReader::ReadBoundingBox(AStream);
  const qint32 PartCount = TvxShapeFileReader::ReadCount(AStream, "part count", 4);
  FPointCount = TvxShapeFileReader::ReadCount(AStream, "point count", 16);
  TvxShapeFileReader::ReadParts(AStream, PartCount, FParts);
  ReadPartInfo(AStream, PartCount);
  // The count again, where the format has the first X: see the class.
  FPointCount = TvxShapeFileReader::ReadCount(AStream, "point count", 16);
  LoadPoints(AStream);
}

void TvxShapeFileMultiPatchRecord::ReadPartInfo(TvxByteStream& AStream, qint32 APartCount)
{
  TvxShapeFileReader::ReadPartTypes(AStream, APartCount, FPartTypes);
}

void TvxShapeFileMultiPointZRecord::LoadFromStream(TvxByteStream& AStream)
{
  FBoundingBox = TvxShapeFileReader::ReadBoundingBox(AStream);
  FPointCount = TvxShapeFileReader::ReadCount(AStream, "point count", 16);
  LoadPoints(AStream);
}

// TvxShapeFileRecordsFactory

void TvxShapeFileRecordsFactory::RegisterRecords()
{
  Register(sfrtNullShape, CreateRecordOf<TvxShapeFileRecord>);
  Register(sfrtPoint, CreateRecordOf<TvxShapeFilePointRecord>);
  Register(sfrtPolyLine, CreateRecordOf<TvxShapeFilePolylineRecord>);
  Register(sfrtPolygon, CreateRecordOf<TvxShapeFilePolygonRecord>);
  Register(sfrtMultiPoint, CreateRecordOf<TvxShapeFileMultiPointRecord>);
  Register(sfrtPointZ, CreateRecordOf<TvxShapeFilePointZRecord>);
  Register(sfrtPolyLineZ, CreateRecordOf<TvxShapeFilePolylineZRecord>);
  Register(sfrtPolygonZ, CreateRecordOf<TvxShapeFilePolygonZRecord>);
  Register(sfrtMultiPointZ, CreateRecordOf<TvxShapeFileMultiPointZRecord>);
  Register(sfrtPointM, CreateRecordOf<TvxShapeFilePointMRecord>);
  Register(sfrtPolyLineM, CreateRecordOf<TvxShapeFilePolylineMRecord>);
  Register(sfrtPolygonM, CreateRecordOf<TvxShapeFilePolygonMRecord>);
  Register(sfrtMultiPointM, CreateRecordOf<TvxShapeFileMultiPointMRecord>);
  Register(sfrtMultiPatch, CreateRecordOf<TvxShapeFileMultiPatchRecord>);
}

std::unique_ptr<TvxShapeFileRecord> TvxShapeFileRecordsFactory::CreateRecord(qint32 AType, qint32 ARecordNumber) const
{
  const auto It = FItems.find(AType);
  if (It == FItems.end())
    return nullptr;
  return It->second(ARecordNumber);
}

TvxShapeFileRecordsFactory& vxShapeFileRecordsFactory()
{
  static TvxShapeFileRecordsFactory Factory;
  return Factory;
}

// TvxShapeFileInfo

void TvxShapeFileInfo::LoadFromStream(QIODevice& AStream)
{
  if (const auto* Buffer = qobject_cast<const QBuffer*>(&AStream); Buffer && Buffer->isReadable())
  {
    // Shared, not copied: the file layer hands over whole files this way.
    FData.append(Buffer->data());
    const QByteArrayView Data = FData.constLast();
    Load(Data.sliced(std::clamp<qsizetype>(qsizetype(Buffer->pos()), 0, Data.size())));
    return;
  }
  FData.append(AStream.readAll());
  Load(FData.constLast());
}

void TvxShapeFileInfo::LoadFromBytes(QByteArrayView AData)
{
  FData.append(AData.toByteArray());
  Load(FData.constLast());
}

void TvxShapeFileInfo::Load(QByteArrayView AData)
{
  TvxByteStream Stream(AData);
  LoadHeader(Stream);
  LoadRecords(Stream);
}

void TvxShapeFileInfo::LoadHeader(TvxByteStream& AStream)
{
  if (AStream.Remaining() < 100)
    throw EvxReadError(QStringLiteral("The Shapefile has %1 bytes, fewer than its 100-byte header").arg(AStream.Remaining()));
  FHeader.FileCode = TvxShapeFileReader::ReadIntBE(AStream);
  FHeader.Empty1 = TvxShapeFileReader::ReadIntBE(AStream);
  FHeader.Empty2 = TvxShapeFileReader::ReadIntBE(AStream);
  FHeader.Empty3 = TvxShapeFileReader::ReadIntBE(AStream);
  FHeader.Empty4 = TvxShapeFileReader::ReadIntBE(AStream);
  FHeader.Empty5 = TvxShapeFileReader::ReadIntBE(AStream);
  FHeader.FileLength = TvxShapeFileReader::ReadIntBE(AStream);
  FHeader.Version = TvxShapeFileReader::ReadIntLE(AStream);
  FHeader.ShapeType = TvxShapeFileReader::ReadIntLE(AStream);
  FHeader.Xmin = TvxShapeFileReader::ReadDouble(AStream);
  FHeader.Ymin = TvxShapeFileReader::ReadDouble(AStream);
  FHeader.Xmax = TvxShapeFileReader::ReadDouble(AStream);
  FHeader.Ymax = TvxShapeFileReader::ReadDouble(AStream);
  FHeader.Zmin = TvxShapeFileReader::ReadDouble(AStream);
  FHeader.Zmax = TvxShapeFileReader::ReadDouble(AStream);
  FHeader.Mmin = TvxShapeFileReader::ReadDouble(AStream);
  FHeader.Mmax = TvxShapeFileReader::ReadDouble(AStream);
}

void TvxShapeFileInfo::LoadRecords(TvxByteStream& AStream)
{
  while (!AStream.AtEnd())
    LoadRecord(AStream);
}

void TvxShapeFileInfo::LoadRecord(TvxByteStream& AStream)
{
  const qsizetype Start = AStream.Position();
  qint32 RecordNumber = 0;
  try
  {
    RecordNumber = TvxShapeFileReader::ReadIntBE(AStream);
    const qint32 ContentLength = TvxShapeFileReader::ReadIntBE(AStream);
    const qint32 ShapeType = TvxShapeFileReader::ReadIntLE(AStream);
    std::unique_ptr<TvxShapeFileRecord> Record = vxShapeFileRecordsFactory().CreateRecord(ShapeType, RecordNumber);
    if (!Record)
    {
      // Unknown types are skipped by their length. A length that would step
      // back could loop for ever; one past the end just ends the records.
      const qint64 Skip = qint64(ContentLength) * 2 - 4;
      if (Skip < 0)
        throw EvxReadError(QStringLiteral("content length %1 words of shape type %2 is too short")
                             .arg(ContentLength)
                             .arg(ShapeType));
      AStream.Seek(qsizetype(std::min<qint64>(AStream.Position() + Skip, AStream.Size())));
      return;
    }
    // The content length plays no further part: reading goes on wherever the
    // record stops.
    Record->LoadFromStream(AStream);
    FRecords.push_back(std::move(Record));
  }
  catch (const EvxReadError& E)
  {
    throw EvxReadError(QStringLiteral("Record %1 at byte %2: %3").arg(RecordNumber).arg(Start).arg(QString::fromUtf8(E.what())));
  }
}
