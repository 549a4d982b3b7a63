#include "vxMapControlShapeFileLoader.h"

#include "vxMapItemFileLayer.h"
#include "vxMapPointItems.h"

#include <QDate>
#include <QScopeGuard>

#include <algorithm>
#include <charconv>
#include <numeric>

namespace
{

// Closes an update bracket on every way out, failures included.
template <class T>
class TUpdateBracket
{
public:
  explicit TUpdateBracket(T& AObject) : FObject(AObject) { FObject.BeginUpdate(); }
  TUpdateBracket(const TUpdateBracket&) = delete;
  TUpdateBracket& operator=(const TUpdateBracket&) = delete;
  ~TUpdateBracket() { FObject.EndUpdate(); }

private:
  T& FObject;
};

class TConvertersScope
{
public:
  explicit TConvertersScope(TvxMapControlShapeFileLoader* ALoader)
  {
    vxShapeFileRecordsConverterFactory().InitializeConverters(ALoader);
  }
  TConvertersScope(const TConvertersScope&) = delete;
  TConvertersScope& operator=(const TConvertersScope&) = delete;
  ~TConvertersScope() { vxShapeFileRecordsConverterFactory().FinalizeConverters(); }
};

template <class TConverter>
std::unique_ptr<TvxMapControlShapeFileRecordConverter> CreateConverterOf(TvxMapControlShapeFileLoader* ALoader)
{
  return std::make_unique<TConverter>(ALoader);
}

template <class TPoint>
TvxMapControlGeoPoint Location(const TPoint& APoint)
{
  return TvxMapControlGeoPoint::Create(APoint.Y, APoint.X);
}

template <class TPoint>
void AppendLocations(std::span<const TPoint> APoints, int AFirst, int ACount,
                     TvxMapControlGeoPointCollection& ALocations)
{
  const TPoint* Points = APoints.subspan(size_t(AFirst), size_t(ACount)).data();
  ALocations.AddRange(size_t(ACount), [Points](size_t AIndex) { return Location(Points[AIndex]); });
}

// Text to numbers as Qt's conversions take them: blanks around the number
// and a leading '+' are accepted, anything else left over is not.
class TNumberText
{
public:
  explicit TNumberText(QStringView AText)
  {
    AText = AText.trimmed();
    if (AText.size() >= qsizetype(sizeof(FBuffer)))
      return;
    for (const QChar Char : AText)
    {
      if (Char.unicode() > 0x7F)
        return;
      FBuffer[FLength++] = char(Char.unicode());
    }
    if (FLength > 1 && FBuffer[0] == '+' && FBuffer[1] != '-' && FBuffer[1] != '+')
      FFirst = 1;
    FValid = FLength > FFirst;
  }

  template <class T>
  bool Parse(T& AValue) const
  {
    if (!FValid)
      return false;
    const auto [End, Error] = std::from_chars(FBuffer + FFirst, FBuffer + FLength, AValue);
    return Error == std::errc() && End == FBuffer + FLength;
  }

private:
  // A dBASE field holds at most 255 bytes.
  char FBuffer[256];
  int FLength = 0;
  int FFirst = 0;
  bool FValid = false;
};

[[noreturn]] void ConversionFailed(const TvxDbfFileField& AField, const QString& AText, const char* AType)
{
  throw EvxShapeFileLoadError(
    QStringLiteral("field %1: \"%2\" is not %3").arg(AField.FieldName(), AText, QLatin1String(AType)));
}

double ToFloat(const TvxDbfFileField& AField, const QString& AText)
{
  double Result = 0;
  if (!TNumberText(AText).Parse(Result))
    ConversionFailed(AField, AText, "a number");
  return Result;
}

qint32 ToInt32(const TvxDbfFileField& AField, const QString& AText)
{
  qint32 Result = 0;
  if (!TNumberText(AText).Parse(Result))
    ConversionFailed(AField, AText, "a 32-bit integer");
  return Result;
}

QDate ToDate(const TvxDbfFileField& AField, const QString& AText)
{
  // An empty date is the smallest date there is, 1 January 100.
  if (AText.isEmpty())
    return QDate(100, 1, 1);
  const QStringView Text(AText);
  qint32 Year = 0;
  qint32 Month = 0;
  qint32 Day = 0;
  const bool Parsed = TNumberText(Text.mid(0, 4)).Parse(Year) && TNumberText(Text.mid(4, 2)).Parse(Month) &&
                      TNumberText(Text.mid(6, 2)).Parse(Day);
  const QDate Result = Parsed && Year >= 1 ? QDate(Year, Month, Day) : QDate();
  if (!Result.isValid())
    ConversionFailed(AField, AText, "a date");
  return Result;
}

bool ToBool(const TvxDbfFileField& AField, const QString& AText)
{
  if (AText.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0)
    return true;
  if (AText.compare(QLatin1String("False"), Qt::CaseInsensitive) != 0)
    ConversionFailed(AField, AText, "a boolean");
  return false;
}

QVariant TypedValue(const TvxDbfFileField& AField, const QString& AText)
{
  switch (AField.FieldType())
  {
  case 'B':
  case 'F':
    return ToFloat(AField, AText);
  case 'D':
    return ToDate(AField, AText);
  case 'I':
    return ToInt32(AField, AText);
  case 'L':
    return ToBool(AField, AText);
  case 'N':
    if (AField.NumberOfDecimalPlaces() > 0)
      return ToFloat(AField, AText);
    if (AField.FieldLengthInBytes() <= 9)
      return ToInt32(AField, AText);
    // Wide enough for 64 bits, but converted as 32: larger values fail,
    // and the layer stays empty.
    return QVariant(qint64(ToInt32(AField, AText)));
  default:
    return AText;
  }
}

} // namespace

// TvxMapControlShapeFileLoader

TvxMapControlShapeFileLoader::TvxMapControlShapeFileLoader(TvxMapItemFileLayer* AOwner)
  : FMapItems(&AOwner->MapItems()), FOwner(AOwner)
{
}

void TvxMapControlShapeFileLoader::LoadFromStream(QIODevice& AShapes, QIODevice& ATable, QIODevice* ACodePage)
{
  // Only exactly "utf-8", in any case, names an encoding: a line break after
  // it, or any other name, leaves the choice to the table's driver byte.
  std::unique_ptr<TvxTextEncoding> Encoding;
  if (ACodePage)
  {
    QByteArray Storage;
    const QString Name = TvxTextEncoding::Default().Decode(vxDeviceBytes(*ACodePage, Storage));
    if (Name.compare(QLatin1String("utf-8"), Qt::CaseInsensitive) == 0)
      Encoding = TvxTextEncoding::Create(65001);
  }

  // Each point takes at least 16 bytes of the file, 16 in memory and 16 more
  // once projected for the map: twice the file's size is room for both.
  // Only what is used is ever backed by memory.
  const qint64 ShapesSize = AShapes.size();
  TvxShapeFileInfo Shapes;
  Shapes.LoadFromStream(AShapes);
  TvxDbfFileInfo Table;
  Table.LoadFromStream(ATable, std::move(Encoding));

  const auto& Rows = Table.Records();
  FTable = &Table;
  FPointArena = std::make_shared<TvxBulkArena>(size_t(std::max<qint64>(ShapesSize, 0)) * 2);
  // Both belong to this load only; the items keep the arena alive.
  const auto Reset = qScopeGuard([this] {
    FTable = nullptr;
    FPointArena.reset();
  });
  TUpdateBracket<TvxMapItems> Update(*FMapItems);
  TConvertersScope Converters(this);
  const TvxMapControlShapeFileRecordsConverterFactory& Factory = vxShapeFileRecordsConverterFactory();
  for (const std::unique_ptr<TvxShapeFileRecord>& Record : Shapes.Records())
  {
    TvxMapControlShapeFileRecordConverter* Converter = Factory.GetConverter(*Record);
    if (!Converter)
      continue;
    // Shapes meet rows by record number, not by position in the file.
    const qint64 Row = qint64(Record->RecordNumber()) - 1;
    if (Row < 0 || Row >= qint64(Rows.size()))
      throw EvxShapeFileLoadError(
        QStringLiteral("Record %1 has no row in the table of %2 rows").arg(Record->RecordNumber()).arg(Rows.size()));
    try
    {
      Converter->Convert(*Record, Rows[size_t(Row)]);
    }
    catch (const EvxShapeFileLoadError& E)
    {
      throw EvxShapeFileLoadError(
        QStringLiteral("Record %1: %2").arg(Record->RecordNumber()).arg(QString::fromUtf8(E.what())));
    }
  }
}

// TvxMapControlShapeFileRecordConverter

void TvxMapControlShapeFileRecordConverter::CreateAttributes(TvxMapItem* AItem, const TvxDbfFileRecord& ARow)
{
  const auto& Fields = FLoader->Table()->Header().Fields();
  if (FTypedRow != &ARow)
  {
    FTypedRow = nullptr;
    FTypedValues.clear();
    FTypedValues.reserve(Fields.size());
    for (const std::unique_ptr<TvxDbfFileField>& Field : Fields)
      FTypedValues.push_back(TypedValue(*Field, ARow.Fields().Value(Field.get())));
    FTypedRow = &ARow;
  }
  if (FNameOrder.size() != Fields.size())
  {
    FNameOrder.resize(Fields.size());
    std::iota(FNameOrder.begin(), FNameOrder.end(), size_t(0));
    std::stable_sort(FNameOrder.begin(), FNameOrder.end(),
                     [&Fields](size_t A, size_t B) { return Fields[A]->FieldName() < Fields[B]->FieldName(); });
  }
  // Keys are the table's column names as they stand; a name that comes
  // twice keeps its last column, which the stable order adds last.
  TvxMapItemAttributes& Attributes = AItem->Attributes();
  Attributes.Reserve(int(Fields.size()));
  for (const size_t I : FNameOrder)
    Attributes.Add(Fields[I]->FieldName(), FTypedValues[I]);
}

// Points

std::type_index TvxMapControlShapeFilePointRecordConverter::GetRecordClass() const
{
  return typeid(TvxShapeFilePointRecord);
}

void TvxMapControlShapeFilePointRecordConverter::Convert(const TvxShapeFileRecord& ARecord,
                                                         const TvxDbfFileRecord& ARow)
{
  TvxMapDot* Dot = FLoader->MapItems().Add<TvxMapDot>();
  Dot->SetLocation(GetPointLocation(ARecord));
  CreateAttributes(Dot, ARow);
}

TvxMapControlGeoPoint TvxMapControlShapeFilePointRecordConverter::GetPointLocation(
  const TvxShapeFileRecord& ARecord) const
{
  return Location(static_cast<const TvxShapeFilePointRecord&>(ARecord).Point());
}

std::type_index TvxMapControlShapeFilePointMRecordConverter::GetRecordClass() const
{
  return typeid(TvxShapeFilePointMRecord);
}

TvxMapControlGeoPoint TvxMapControlShapeFilePointMRecordConverter::GetPointLocation(
  const TvxShapeFileRecord& ARecord) const
{
  return Location(static_cast<const TvxShapeFilePointMRecord&>(ARecord).Point());
}

// Multi-points

std::type_index TvxMapControlShapeFileMultiPointRecordConverter::GetRecordClass() const
{
  return typeid(TvxShapeFileMultiPointRecord);
}

void TvxMapControlShapeFileMultiPointRecordConverter::Convert(const TvxShapeFileRecord& ARecord,
                                                              const TvxDbfFileRecord& ARow)
{
  // A dot per point, each with a whole copy of the row.
  const int Count = GetPointCount(ARecord);
  for (int I = 0; I < Count; ++I)
  {
    TvxMapDot* Dot = FLoader->MapItems().Add<TvxMapDot>();
    Dot->SetLocation(GetPointLocation(ARecord, I));
    CreateAttributes(Dot, ARow);
  }
}

int TvxMapControlShapeFileMultiPointRecordConverter::GetPointCount(const TvxShapeFileRecord& ARecord) const
{
  return int(static_cast<const TvxShapeFileMultiPointRecord&>(ARecord).XY().Count());
}

TvxMapControlGeoPoint TvxMapControlShapeFileMultiPointRecordConverter::GetPointLocation(
  const TvxShapeFileRecord& ARecord, int AIndex) const
{
  return Location(static_cast<const TvxShapeFileMultiPointRecord&>(ARecord).XY().Point(AIndex));
}

std::type_index TvxMapControlShapeFileMultiPointMRecordConverter::GetRecordClass() const
{
  return typeid(TvxShapeFileMultiPointMRecord);
}

int TvxMapControlShapeFileMultiPointMRecordConverter::GetPointCount(const TvxShapeFileRecord& ARecord) const
{
  return int(static_cast<const TvxShapeFileMultiPointMRecord&>(ARecord).PointsM().size());
}

TvxMapControlGeoPoint TvxMapControlShapeFileMultiPointMRecordConverter::GetPointLocation(
  const TvxShapeFileRecord& ARecord, int AIndex) const
{
  return Location(static_cast<const TvxShapeFileMultiPointMRecord&>(ARecord).PointsM()[size_t(AIndex)]);
}

// Polylines and polygons

std::type_index TvxMapControlShapeFilePolylineRecordConverter::GetRecordClass() const
{
  return typeid(TvxShapeFilePolylineRecord);
}

void TvxMapControlShapeFilePolylineRecordConverter::Convert(const TvxShapeFileRecord& ARecord,
                                                            const TvxDbfFileRecord& ARow)
{
  // Part starts come from the file: each must lie within the points. A part
  // that starts before the one in front of it is just empty.
  const int PointCount = GetPointCount(ARecord);
  const int PartCount = GetPartCount(ARecord);
  for (int I = 0; I < PartCount; ++I)
    if (const int Part = GetPart(ARecord, I); Part < 0 || Part > PointCount)
      throw EvxShapeFileLoadError(
        QStringLiteral("part %1 starts at point %2, outside the %3 points").arg(I).arg(Part).arg(PointCount));

  TvxMapPath* Path = FLoader->MapItems().Add<TvxMapPath>();
  Path->SetSegmentType(GetSegmentType());
  TvxMapPathSegments& Segments = Path->Segments();
  TUpdateBracket<TvxMapPathSegments> Update(Segments);
  for (int I = 0; I < PartCount; ++I)
  {
    const int First = GetPart(ARecord, I);
    const int Next = I + 1 < PartCount ? GetPart(ARecord, I + 1) : PointCount;
    TvxMapControlGeoPointCollection& Points = Segments.Add()->GeoPoints();
    Points.UseArena(FLoader->PointArena());
    if (Next > First)
      AddPointLocations(ARecord, First, Next - First, Points);
  }
  CreateAttributes(Path, ARow);
}

int TvxMapControlShapeFilePolylineRecordConverter::GetPointCount(const TvxShapeFileRecord& ARecord) const
{
  return int(static_cast<const TvxShapeFilePolylineRecord&>(ARecord).XY().Count());
}

TvxMapControlGeoPoint TvxMapControlShapeFilePolylineRecordConverter::GetPointLocation(
  const TvxShapeFileRecord& ARecord, int AIndex) const
{
  return Location(static_cast<const TvxShapeFilePolylineRecord&>(ARecord).XY().Point(AIndex));
}

int TvxMapControlShapeFilePolylineRecordConverter::GetPartCount(const TvxShapeFileRecord& ARecord) const
{
  return int(static_cast<const TvxShapeFilePolylineRecord&>(ARecord).Parts().size());
}

int TvxMapControlShapeFilePolylineRecordConverter::GetPart(const TvxShapeFileRecord& ARecord, int AIndex) const
{
  return static_cast<const TvxShapeFilePolylineRecord&>(ARecord).Parts()[size_t(AIndex)];
}

void TvxMapControlShapeFilePolylineRecordConverter::AddPointLocations(
  const TvxShapeFileRecord& ARecord, int AFirst, int ACount, TvxMapControlGeoPointCollection& ALocations) const
{
  // Straight from the file's bytes into the segment: one pass over them.
  const TvxShapeFileXYBlock& Points = static_cast<const TvxShapeFilePolylineRecord&>(ARecord).XY();
  ALocations.AddRange(size_t(ACount), [&Points, AFirst](size_t AIndex) {
    return Location(Points.Point(AFirst + qint32(AIndex)));
  });
}

std::type_index TvxMapControlShapeFilePolylineMRecordConverter::GetRecordClass() const
{
  return typeid(TvxShapeFilePolylineMRecord);
}

int TvxMapControlShapeFilePolylineMRecordConverter::GetPointCount(const TvxShapeFileRecord& ARecord) const
{
  return int(static_cast<const TvxShapeFilePolylineMRecord&>(ARecord).PointsM().size());
}

TvxMapControlGeoPoint TvxMapControlShapeFilePolylineMRecordConverter::GetPointLocation(
  const TvxShapeFileRecord& ARecord, int AIndex) const
{
  return Location(static_cast<const TvxShapeFilePolylineMRecord&>(ARecord).PointsM()[size_t(AIndex)]);
}

int TvxMapControlShapeFilePolylineMRecordConverter::GetPartCount(const TvxShapeFileRecord& ARecord) const
{
  return int(static_cast<const TvxShapeFilePolylineMRecord&>(ARecord).Parts().size());
}

int TvxMapControlShapeFilePolylineMRecordConverter::GetPart(const TvxShapeFileRecord& ARecord, int AIndex) const
{
  return static_cast<const TvxShapeFilePolylineMRecord&>(ARecord).Parts()[size_t(AIndex)];
}

void TvxMapControlShapeFilePolylineMRecordConverter::AddPointLocations(
  const TvxShapeFileRecord& ARecord, int AFirst, int ACount, TvxMapControlGeoPointCollection& ALocations) const
{
  AppendLocations(static_cast<const TvxShapeFilePolylineMRecord&>(ARecord).PointsM(), AFirst, ACount, ALocations);
}

std::type_index TvxMapControlShapeFilePolygonRecordConverter::GetRecordClass() const
{
  return typeid(TvxShapeFilePolygonRecord);
}

std::type_index TvxMapControlShapeFilePolygonMRecordConverter::GetRecordClass() const
{
  return typeid(TvxShapeFilePolygonMRecord);
}

int TvxMapControlShapeFilePolygonMRecordConverter::GetPointCount(const TvxShapeFileRecord& ARecord) const
{
  return int(static_cast<const TvxShapeFilePolygonMRecord&>(ARecord).PointsM().size());
}

TvxMapControlGeoPoint TvxMapControlShapeFilePolygonMRecordConverter::GetPointLocation(
  const TvxShapeFileRecord& ARecord, int AIndex) const
{
  return Location(static_cast<const TvxShapeFilePolygonMRecord&>(ARecord).PointsM()[size_t(AIndex)]);
}

int TvxMapControlShapeFilePolygonMRecordConverter::GetPartCount(const TvxShapeFileRecord& ARecord) const
{
  return int(static_cast<const TvxShapeFilePolygonMRecord&>(ARecord).Parts().size());
}

int TvxMapControlShapeFilePolygonMRecordConverter::GetPart(const TvxShapeFileRecord& ARecord, int AIndex) const
{
  return static_cast<const TvxShapeFilePolygonMRecord&>(ARecord).Parts()[size_t(AIndex)];
}

void TvxMapControlShapeFilePolygonMRecordConverter::AddPointLocations(
  const TvxShapeFileRecord& ARecord, int AFirst, int ACount, TvxMapControlGeoPointCollection& ALocations) const
{
  AppendLocations(static_cast<const TvxShapeFilePolygonMRecord&>(ARecord).PointsM(), AFirst, ACount, ALocations);
}

// TvxMapControlShapeFileRecordsConverterFactory

void TvxMapControlShapeFileRecordsConverterFactory::RegisterConverters()
{
  FItems.clear();
  Register(CreateConverterOf<TvxMapControlShapeFilePointRecordConverter>);
  Register(CreateConverterOf<TvxMapControlShapeFilePointMRecordConverter>);
  Register(CreateConverterOf<TvxMapControlShapeFileMultiPointRecordConverter>);
  Register(CreateConverterOf<TvxMapControlShapeFileMultiPointMRecordConverter>);
  Register(CreateConverterOf<TvxMapControlShapeFilePolylineRecordConverter>);
  Register(CreateConverterOf<TvxMapControlShapeFilePolylineMRecordConverter>);
  Register(CreateConverterOf<TvxMapControlShapeFilePolygonRecordConverter>);
  Register(CreateConverterOf<TvxMapControlShapeFilePolygonMRecordConverter>);
}

void TvxMapControlShapeFileRecordsConverterFactory::InitializeConverters(TvxMapControlShapeFileLoader* ALoader)
{
  FConvertersCache.clear();
  for (const TvxMapControlShapeFileRecordConverterClass Class : FItems)
  {
    std::unique_ptr<TvxMapControlShapeFileRecordConverter> Converter = Class(ALoader);
    const std::type_index RecordClass = Converter->GetRecordClass();
    FConvertersCache[RecordClass] = std::move(Converter);
  }
}

TvxMapControlShapeFileRecordConverter* TvxMapControlShapeFileRecordsConverterFactory::GetConverter(
  const TvxShapeFileRecord& ARecord) const
{
  const auto It = FConvertersCache.find(std::type_index(typeid(ARecord)));
  return It == FConvertersCache.end() ? nullptr : It->second.get();
}

TvxMapControlShapeFileRecordsConverterFactory& vxShapeFileRecordsConverterFactory()
{
  static TvxMapControlShapeFileRecordsConverterFactory Factory;
  return Factory;
}

void vxRegisterShapeFileLoader()
{
  vxShapeFileRecordsFactory().RegisterRecords();
  vxShapeFileRecordsConverterFactory().RegisterConverters();
  vxRegisteredMapItemFileLoaders().RegisterShapeLoader(
    [](TvxMapItemFileLayer& ALayer, QIODevice& AShapes, QIODevice& ATable, QIODevice* ACodePage) {
      TvxMapControlShapeFileLoader Loader(&ALayer);
      Loader.LoadFromStream(AShapes, ATable, ACodePage);
    });
}
