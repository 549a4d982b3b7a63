#pragma once

// The main file (".shp") of a Shapefile, read into a list of record objects,
// one class per shape type. Every file is taken to be in degrees: X and Y
// are clamped to the globe as they are read, and no projection file is
// looked at. No index file is read either.

#include "vxByteStream.h"

#include <QByteArrayList>
#include <QIODevice>

#include <algorithm>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

enum TvxShapeFileRecordType
{
  sfrtNullShape = 0,
  sfrtPoint = 1,
  sfrtPolyLine = 3,
  sfrtPolygon = 5,
  sfrtMultiPoint = 8,
  sfrtPointZ = 11,
  sfrtPolyLineZ = 13,
  sfrtPolygonZ = 15,
  sfrtMultiPointZ = 18,
  sfrtPointM = 21,
  sfrtPolyLineM = 23,
  sfrtPolygonM = 25,
  sfrtMultiPointM = 28,
  sfrtMultiPatch = 31
};

struct TvxShapeFilePoint
{
  double X = 0;
  double Y = 0;
};

struct TvxShapeFilePointM
{
  double X = 0;
  double Y = 0;
  double M = 0;
};

struct TvxShapeFilePointZ
{
  double X = 0;
  double Y = 0;
  double Z = 0;
  double M = 0;
};

struct TvxShapeFilePointRange
{
  double Min = 0;
  double Max = 0;
};

struct TvxShapeFileBoundingBox
{
  TvxShapeFilePointRange XRange;
  TvxShapeFilePointRange YRange;
};

// The 100 bytes in front of the records. Stored, never checked.
struct TvxShapeFileHeader
{
  qint32 FileCode = 0;
  qint32 Empty1 = 0;
  qint32 Empty2 = 0;
  qint32 Empty3 = 0;
  qint32 Empty4 = 0;
  qint32 Empty5 = 0;
  qint32 FileLength = 0;
  qint32 Version = 0;
  qint32 ShapeType = 0;
  double Xmin = 0;
  double Ymin = 0;
  double Xmax = 0;
  double Ymax = 0;
  double Zmin = 0;
  double Zmax = 0;
  double Mmin = 0;
  double Mmax = 0;
};

// The Null shape, and the base of every record.
class TvxShapeFileRecord
{
public:
  explicit TvxShapeFileRecord(qint32 ARecordNumber) : FRecordNumber(ARecordNumber) {}
  TvxShapeFileRecord(const TvxShapeFileRecord&) = delete;
  TvxShapeFileRecord& operator=(const TvxShapeFileRecord&) = delete;
  virtual ~TvxShapeFileRecord() = default;

  // As the file has it: neither order nor gaps are checked.
  qint32 RecordNumber() const { return FRecordNumber; }
  virtual TvxShapeFileRecordType GetRecordType() const { return sfrtNullShape; }
  // Reads the content that follows the shape type.
  virtual void LoadFromStream(TvxByteStream&) {}

protected:
  qint32 FRecordNumber;
};

class TvxShapeFilePointRecord : public TvxShapeFileRecord
{
public:
  using TvxShapeFileRecord::TvxShapeFileRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPoint; }
  void LoadFromStream(TvxByteStream& AStream) override;
  const TvxShapeFilePoint& Point() const { return FPoint; }

private:
  TvxShapeFilePoint FPoint;
};

class TvxShapeFilePointMRecord : public TvxShapeFileRecord
{
public:
  using TvxShapeFileRecord::TvxShapeFileRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPointM; }
  void LoadFromStream(TvxByteStream& AStream) override;
  const TvxShapeFilePointM& Point() const { return FPoint; }

private:
  TvxShapeFilePointM FPoint;
};

class TvxShapeFilePointZRecord : public TvxShapeFileRecord
{
public:
  using TvxShapeFileRecord::TvxShapeFileRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPointZ; }
  void LoadFromStream(TvxByteStream& AStream) override;
  const TvxShapeFilePointZ& Point() const { return FPoint; }

private:
  TvxShapeFilePointZ FPoint;
};

class TvxShapeFileBoundedShpRecord : public TvxShapeFileRecord
{
public:
  using TvxShapeFileRecord::TvxShapeFileRecord;
  // Not clamped.
  const TvxShapeFileBoundingBox& BoundingBox() const { return FBoundingBox; }

protected:
  TvxShapeFileBoundingBox FBoundingBox;
};

class TvxShapeFileBoundedMShpRecord : public TvxShapeFileBoundedShpRecord
{
public:
  using TvxShapeFileBoundedShpRecord::TvxShapeFileBoundedShpRecord;
  const TvxShapeFilePointRange& MRange() const { return FMRange; }

protected:
  TvxShapeFilePointRange FMRange;
};

class TvxShapeFileBoundedZShpRecord : public TvxShapeFileBoundedMShpRecord
{
public:
  using TvxShapeFileBoundedMShpRecord::TvxShapeFileBoundedMShpRecord;
  const TvxShapeFilePointRange& ZRange() const { return FZRange; }

protected:
  TvxShapeFilePointRange FZRange;
};

// X and Y of points, 16 bytes each, as they stand in the bytes of the file
// info that owns the record: read once, where they are wanted, with no copy
// in between.
class TvxShapeFileXYBlock
{
public:
  TvxShapeFileXYBlock() = default;
  TvxShapeFileXYBlock(const uchar* AData, qint32 ACount) : FData(AData), FCount(ACount) {}
  qint32 Count() const { return FCount; }
  // Clamped to [-180, 180] and [-90, 90].
  TvxShapeFilePoint Point(qint32 AIndex) const { return Decode(FData + qsizetype(AIndex) * 16); }
  static TvxShapeFilePoint Decode(const uchar* AData);

private:
  const uchar* FData = nullptr;
  qint32 FCount = 0;
};

inline TvxShapeFilePoint TvxShapeFileXYBlock::Decode(const uchar* AData)
{
  TvxShapeFilePoint Result;
#if defined(__SSE2__) && Q_BYTE_ORDER == Q_LITTLE_ENDIAN
  // X and Y clamped together, one maximum and one minimum instruction.
  // Both give their second operand when one is NaN, so the point goes
  // second: a NaN stays NaN, as with std::clamp.
  const __m128d Point = _mm_loadu_pd(reinterpret_cast<const double*>(AData));
  const __m128d Clamped = _mm_min_pd(_mm_set_pd(90.0, 180.0), _mm_max_pd(_mm_set_pd(-90.0, -180.0), Point));
  double XY[2];
  _mm_storeu_pd(XY, Clamped);
  Result.X = XY[0];
  Result.Y = XY[1];
#else
  Result.X = std::clamp(TvxByteStream::DoubleLE(AData), -180.0, 180.0);
  Result.Y = std::clamp(TvxByteStream::DoubleLE(AData + 8), -90.0, 90.0);
#endif
  return Result;
}

class TvxShapeFileCustomMultiPointRecord : public TvxShapeFileBoundedShpRecord
{
public:
  using TvxShapeFileBoundedShpRecord::TvxShapeFileBoundedShpRecord;
  // Decoded on the first call; a loader that only passes the points on
  // reads XY() instead.
  std::span<const TvxShapeFilePoint> Points() const;
  const TvxShapeFileXYBlock& XY() const { return FXY; }

protected:
  TvxShapeFileXYBlock FXY;

private:
  mutable std::vector<TvxShapeFilePoint> FPoints;
  mutable bool FIsPointsDecoded = false;
};

class TvxShapeFileCustomMultiPointMRecord : public TvxShapeFileBoundedMShpRecord
{
public:
  using TvxShapeFileBoundedMShpRecord::TvxShapeFileBoundedMShpRecord;
  qint32 PointCount() const { return FPointCount; }
  std::span<const TvxShapeFilePointM> PointsM() const { return FPointsM; }

protected:
  // X and Y of FPointCount points, the M range, the M values.
  void LoadPoints(TvxByteStream& AStream);

  qint32 FPointCount = 0;
  std::vector<TvxShapeFilePointM> FPointsM;
};

class TvxShapeFileCustomMultiPointZRecord : public TvxShapeFileBoundedZShpRecord
{
public:
  using TvxShapeFileBoundedZShpRecord::TvxShapeFileBoundedZShpRecord;
  qint32 PointCount() const { return FPointCount; }
  std::span<const TvxShapeFilePointZ> PointsZ() const { return FPointsZ; }

protected:
  // X and Y of FPointCount points, the Z range and values, the M range and
  // values.
  void LoadPoints(TvxByteStream& AStream);

  qint32 FPointCount = 0;
  std::vector<TvxShapeFilePointZ> FPointsZ;
};

class TvxShapeFilePolylineRecord : public TvxShapeFileCustomMultiPointRecord
{
public:
  using TvxShapeFileCustomMultiPointRecord::TvxShapeFileCustomMultiPointRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPolyLine; }
  void LoadFromStream(TvxByteStream& AStream) override;
  // The index of the first point of each part, as the file has it.
  std::span<const qint32> Parts() const { return FParts; }

protected:
  std::vector<qint32> FParts;
};

class TvxShapeFilePolygonRecord : public TvxShapeFilePolylineRecord
{
public:
  using TvxShapeFilePolylineRecord::TvxShapeFilePolylineRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPolygon; }
};

class TvxShapeFileMultiPointRecord : public TvxShapeFileCustomMultiPointRecord
{
public:
  using TvxShapeFileCustomMultiPointRecord::TvxShapeFileCustomMultiPointRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtMultiPoint; }
  void LoadFromStream(TvxByteStream& AStream) override;
};

class TvxShapeFilePolylineMRecord : public TvxShapeFileCustomMultiPointMRecord
{
public:
  using TvxShapeFileCustomMultiPointMRecord::TvxShapeFileCustomMultiPointMRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPolyLineM; }
  void LoadFromStream(TvxByteStream& AStream) override;
  std::span<const qint32> Parts() const { return FParts; }

protected:
  std::vector<qint32> FParts;
};

class TvxShapeFilePolygonMRecord : public TvxShapeFilePolylineMRecord
{
public:
  using TvxShapeFilePolylineMRecord::TvxShapeFilePolylineMRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPolygonM; }
};

// Read as a PolyLineM on purpose: the Z block is taken for the M block and
// an M block after it is left unread, so only files without M load.
class TvxShapeFilePolygonZRecord : public TvxShapeFilePolylineMRecord
{
public:
  using TvxShapeFilePolylineMRecord::TvxShapeFilePolylineMRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPolygonZ; }
};

class TvxShapeFileMultiPointMRecord : public TvxShapeFileCustomMultiPointMRecord
{
public:
  using TvxShapeFileCustomMultiPointMRecord::TvxShapeFileCustomMultiPointMRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtMultiPointM; }
  void LoadFromStream(TvxByteStream& AStream) override;
};

// Reads the point count a second time after the part information, where the
// format has none: kept as it is, so valid files of this type fail.
class TvxShapeFilePolylineZRecord : public TvxShapeFileCustomMultiPointZRecord
{
public:
  using TvxShapeFileCustomMultiPointZRecord::TvxShapeFileCustomMultiPointZRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtPolyLineZ; }
  void LoadFromStream(TvxByteStream& AStream) override;
  std::span<const qint32> Parts() const { return FParts; }

protected:
  // What follows the part starts; nothing here.
  virtual void ReadPartInfo(TvxByteStream&, qint32) {}

  std::vector<qint32> FParts;
};

class TvxShapeFileMultiPatchRecord : public TvxShapeFilePolylineZRecord
{
public:
  using TvxShapeFilePolylineZRecord::TvxShapeFilePolylineZRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtMultiPatch; }
  std::span<const quint8> PartTypes() const { return FPartTypes; }

protected:
  void ReadPartInfo(TvxByteStream& AStream, qint32 APartCount) override;

private:
  std::vector<quint8> FPartTypes;
};

class TvxShapeFileMultiPointZRecord : public TvxShapeFileCustomMultiPointZRecord
{
public:
  using TvxShapeFileCustomMultiPointZRecord::TvxShapeFileCustomMultiPointZRecord;
  TvxShapeFileRecordType GetRecordType() const override { return sfrtMultiPointZ; }
  void LoadFromStream(TvxByteStream& AStream) override;
};

// A record class as the factory keeps it: how to make one.
using TvxShapeFileRecordClass = std::unique_ptr<TvxShapeFileRecord> (*)(qint32 ARecordNumber);

// Record classes by shape type number, filled once at start-up.
class TvxShapeFileRecordsFactory
{
public:
  void Register(qint32 AType, TvxShapeFileRecordClass AClass) { FItems[AType] = AClass; }
  // The fourteen classes of the format's types.
  void RegisterRecords();
  // Null for a type that is not registered.
  std::unique_ptr<TvxShapeFileRecord> CreateRecord(qint32 AType, qint32 ARecordNumber) const;

private:
  std::unordered_map<qint32, TvxShapeFileRecordClass> FItems;
};

TvxShapeFileRecordsFactory& vxShapeFileRecordsFactory();

// The read operations of the records. Counts are checked against the bytes
// left before anything is allocated, so a damaged count fails at once.
class TvxShapeFileReader
{
public:
  static double ReadDouble(TvxByteStream& AStream) { return AStream.ReadDoubleLE(); }
  static qint32 ReadIntBE(TvxByteStream& AStream) { return AStream.ReadInt32BE(); }
  static qint32 ReadIntLE(TvxByteStream& AStream) { return AStream.ReadInt32LE(); }
  // Clamped to [-180, 180] and [-90, 90].
  static double ReadPointX(TvxByteStream& AStream);
  static double ReadPointY(TvxByteStream& AStream);
  static TvxShapeFilePoint ReadPoint(TvxByteStream& AStream);
  // In file order: X minimum, Y minimum, X maximum, Y maximum; not clamped.
  static TvxShapeFileBoundingBox ReadBoundingBox(TvxByteStream& AStream);
  static TvxShapeFilePointRange ReadRange(TvxByteStream& AStream);
  // A count of items of ABytesEach bytes that are to follow: negative, or
  // more than the bytes left can hold, fails.
  static qint32 ReadCount(TvxByteStream& AStream, const char* AWhat, qint64 ABytesEach);
  static void CheckCount(const TvxByteStream& AStream, qint32 ACount, const char* AWhat, qint64 ABytesEach);
  static void ReadParts(TvxByteStream& AStream, qint32 ACount, std::vector<qint32>& AParts);
  // One int32 per part, kept as a byte.
  static void ReadPartTypes(TvxByteStream& AStream, qint32 ACount, std::vector<quint8>& APartTypes);
  static void ReadPoints(TvxByteStream& AStream, qint32 ACount, std::vector<TvxShapeFilePoint>& APoints);
  // Checks and steps over the points, leaving them in the bytes.
  static TvxShapeFileXYBlock ReadXYBlock(TvxByteStream& AStream, qint32 ACount);
  // X and Y of each point.
  static void ReadPointsM(TvxByteStream& AStream, qint32 ACount, std::vector<TvxShapeFilePointM>& APoints);
  static void ReadPointsZ(TvxByteStream& AStream, qint32 ACount, std::vector<TvxShapeFilePointZ>& APoints);
  // The M, or Z, value of each point already read.
  static void ReadMPointsM(TvxByteStream& AStream, std::vector<TvxShapeFilePointM>& APoints);
  static void ReadMPointsZ(TvxByteStream& AStream, std::vector<TvxShapeFilePointZ>& APoints);
  static void ReadZPointsZ(TvxByteStream& AStream, std::vector<TvxShapeFilePointZ>& APoints);
};

class TvxShapeFileInfo
{
public:
  // Reads the stream from its position to its end; throws EvxReadError when
  // the data ends early or holds a count that cannot be. The records keep
  // their points in the bytes, which the file info holds for as long as it
  // lives: a QBuffer's array is shared, anything else is read or copied.
  void LoadFromStream(QIODevice& AStream);
  void LoadFromBytes(QByteArrayView AData);

  const TvxShapeFileHeader& Header() const { return FHeader; }
  const std::vector<std::unique_ptr<TvxShapeFileRecord>>& Records() const { return FRecords; }

private:
  void LoadHeader(TvxByteStream& AStream);
  void LoadRecords(TvxByteStream& AStream);
  void LoadRecord(TvxByteStream& AStream);

  void Load(QByteArrayView AData);

  // Every load's bytes, as records of each still point into them.
  QByteArrayList FData;
  TvxShapeFileHeader FHeader;
  std::vector<std::unique_ptr<TvxShapeFileRecord>> FRecords;
};
