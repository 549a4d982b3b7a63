#include "vxDbfFileInfo.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <numeric>

namespace
{

struct TCodePageName
{
  int CodePage;
  const char* Name;
};

// ICU converters of the code pages that a table can name. The three old
// Macintosh pages have only these aliases in ICU; 1000 has no encoding.
constexpr TCodePageName CodePageNames[] = {
  {437, "ibm-437"},
  {737, "ibm-737"},
  {850, "ibm-850"},
  {852, "ibm-852"},
  {857, "ibm-857"},
  {861, "ibm-861"},
  {865, "ibm-865"},
  {866, "ibm-866"},
  {1250, "windows-1250"},
  {1251, "windows-1251"},
  {1252, "windows-1252"},
  {1253, "windows-1253"},
  {1254, "windows-1254"},
  {10006, "x-mac-greek"},
  {10007, "x-mac-cyrillic"},
  {10029, "x-mac-centraleurroman"},
  {65001, "UTF-8"},
};

struct TLanguageDriver
{
  quint8 Driver;
  int CodePage;
};

// Byte 29 of the header to a code page.
constexpr TLanguageDriver LanguageDrivers[] = {
  {0x01, 437},   {0x02, 850},   {0x03, 1252},  {0x04, 1000},  {0x64, 852},   {0x65, 865},   {0x66, 866},
  {0x67, 861},   {0x68, 852},   {0x69, 437},   {0x6A, 737},   {0x6B, 857},   {0x96, 10007}, {0x97, 10029},
  {0x98, 10006}, {0xC8, 1250},  {0xC9, 1251},  {0xCA, 1254},  {0xCB, 1253},
};

// Byte 0 of the file.
constexpr quint8 Versions[] = {0x02, 0x03, 0x30, 0x43, 0x83, 0x8B, 0xF5, 0xFB};

const char* IcuName(int ACodePage)
{
  for (const TCodePageName& Item : CodePageNames)
    if (Item.CodePage == ACodePage)
      return Item.Name;
  return nullptr;
}

int CodePageOfDriver(quint8 ADriver)
{
  for (const TLanguageDriver& Item : LanguageDrivers)
    if (Item.Driver == ADriver)
      return Item.CodePage;
  return 0;
}

// Values lose blanks and every control character at both ends.
bool IsTrimmed(char16_t AChar)
{
  return AChar <= u' ';
}

QByteArrayView TrimBytes(QByteArrayView ABytes)
{
  qsizetype First = 0;
  qsizetype Last = ABytes.size();
  while (First < Last && uchar(ABytes[First]) <= ' ')
    ++First;
  while (Last > First && uchar(ABytes[Last - 1]) <= ' ')
    --Last;
  return ABytes.sliced(First, Last - First);
}

QString TrimString(const QString& AText)
{
  qsizetype First = 0;
  qsizetype Last = AText.size();
  while (First < Last && IsTrimmed(AText[First].unicode()))
    ++First;
  while (Last > First && IsTrimmed(AText[Last - 1].unicode()))
    --Last;
  return First == 0 && Last == AText.size() ? AText : AText.sliced(First, Last - First);
}

} // namespace

// TvxTextEncoding

void TvxTextEncoding::TConverterCloser::operator()(UConverter* AConverter) const
{
  ucnv_close(AConverter);
}

TvxTextEncoding::~TvxTextEncoding() = default;

std::unique_ptr<TvxTextEncoding> TvxTextEncoding::Create(int ACodePage)
{
  const char* Name = IcuName(ACodePage);
  if (!Name)
    throw EvxEncodingError(QStringLiteral("Code page %1 has no encoding").arg(ACodePage).toStdString());
  return CreateByName(Name, ACodePage);
}

std::unique_ptr<TvxTextEncoding> TvxTextEncoding::CreateByName(const char* AName, int ACodePage)
{
  UErrorCode Error = U_ZERO_ERROR;
  std::unique_ptr<UConverter, TConverterCloser> Converter(ucnv_open(AName, &Error));
  if (U_FAILURE(Error) || !Converter)
    throw EvxEncodingError(QStringLiteral("No encoding named \"%1\"").arg(QLatin1String(AName)).toStdString());

  auto Result = std::make_unique<TvxTextEncoding>(TKey());
  Result->FCodePage = ACodePage;
  Error = U_ZERO_ERROR;
  Result->FName = QString::fromLatin1(ucnv_getName(Converter.get(), &Error));
  if (Result->FName == QLatin1String("UTF-8"))
  {
    Result->FKind = ekUtf8;
    return Result;
  }
  if (ucnv_getMaxCharSize(Converter.get()) == 1)
  {
    // Every byte decodes on its own: ask the converter once per byte.
    Result->FKind = ekSingleByte;
    for (int Byte = 0; Byte < 256; ++Byte)
    {
      const char Source = char(Byte);
      UChar Target[4];
      Error = U_ZERO_ERROR;
      const int32_t Length = ucnv_toUChars(Converter.get(), Target, 4, &Source, 1, &Error);
      const char16_t Char = U_SUCCESS(Error) && Length == 1 ? char16_t(Target[0]) : u'\uFFFD';
      Result->FTable[size_t(Byte)] = Char;
      Result->FTrimmable[size_t(Byte)] = IsTrimmed(Char);
    }
    return Result;
  }
  Result->FKind = ekConverter;
  Result->FConverter = std::move(Converter);
  return Result;
}

const TvxTextEncoding& TvxTextEncoding::Default()
{
  static const std::unique_ptr<TvxTextEncoding> Encoding = [] {
    try
    {
      return CreateByName(ucnv_getDefaultName());
    }
    catch (const EvxEncodingError&)
    {
      return CreateByName("UTF-8");
    }
  }();
  return *Encoding;
}

QString TvxTextEncoding::Decode(QByteArrayView ABytes) const
{
  switch (FKind)
  {
  case ekUtf8:
    return QString::fromUtf8(ABytes);
  case ekSingleByte:
  {
    QString Result(ABytes.size(), Qt::Uninitialized);
    char16_t* Target = reinterpret_cast<char16_t*>(Result.data());
    for (const char Byte : ABytes)
      *Target++ = FTable[uchar(Byte)];
    return Result;
  }
  case ekConverter:
    break;
  }
  return DecodeWithConverter(ABytes);
}

QString TvxTextEncoding::DecodeTrimmed(QByteArrayView ABytes) const
{
  switch (FKind)
  {
  case ekUtf8:
    // Bytes below 0x80 are never part of a longer sequence.
    return QString::fromUtf8(TrimBytes(ABytes));
  case ekSingleByte:
  {
    qsizetype First = 0;
    qsizetype Last = ABytes.size();
    while (First < Last && FTrimmable[uchar(ABytes[First])])
      ++First;
    while (Last > First && FTrimmable[uchar(ABytes[Last - 1])])
      --Last;
    if (First == Last)
      return QString();
    return Decode(ABytes.sliced(First, Last - First));
  }
  case ekConverter:
    break;
  }
  return TrimString(DecodeWithConverter(ABytes));
}

QString TvxTextEncoding::DecodeWithConverter(QByteArrayView ABytes) const
{
  if (ABytes.isEmpty())
    return QString();
  // No byte gives more than two UTF-16 units.
  QString Result(ABytes.size() * 2 + 1, Qt::Uninitialized);
  UErrorCode Error = U_ZERO_ERROR;
  const int32_t Length = ucnv_toUChars(FConverter.get(), reinterpret_cast<UChar*>(Result.data()),
                                       int32_t(Result.size()), ABytes.data(), int32_t(ABytes.size()), &Error);
  if (U_FAILURE(Error))
    return QString(ABytes.size(), QChar(0xFFFD));
  Result.truncate(Length);
  return Result;
}

// TvxDbfFileField

void TvxDbfFileField::LoadFromStream(TvxByteStream& AStream, const TvxTextEncoding& AEncoding)
{
  const uchar* P = AStream.Read(32);
  const char* Name = reinterpret_cast<const char*>(P);
  // Eleven bytes without a NUL are a name of eleven characters.
  FFieldName = AEncoding.Decode(QByteArrayView(Name, std::find(Name, Name + 11, '\0') - Name));
  FFieldType = P[11];
  FFieldLengthInBytes = P[16];
  FNumberOfDecimalPlaces = P[17];
  FFieldFlags = P[18];
  FAutoIncrementStepValue = P[23];
}

// TvxDbfFileRecordValues

void TvxDbfFileRecordValues::AddField(const TvxDbfFileField* AField, QString AValue)
{
  const size_t Index = size_t(AField->Index());
  if (Index >= FValues.size())
    FValues.resize(Index + 1);
  FValues[Index] = std::move(AValue);
}

const QString& TvxDbfFileRecordValues::Value(const TvxDbfFileField* AField) const
{
  static const QString Empty;
  const size_t Index = size_t(AField->Index());
  return Index < FValues.size() ? FValues[Index] : Empty;
}

// TvxDbfFileInfo

TvxDbfFileInfo::TvxDbfFileInfo() = default;

TvxDbfFileInfo::~TvxDbfFileInfo() = default;

const TvxTextEncoding& TvxDbfFileInfo::GetEncoding() const
{
  return FEncoding ? *FEncoding : TvxTextEncoding::Default();
}

void TvxDbfFileInfo::LoadFromStream(QIODevice& AStream, std::unique_ptr<TvxTextEncoding> AEncoding)
{
  QByteArray Storage;
  LoadFromBytes(vxDeviceBytes(AStream, Storage), std::move(AEncoding));
}

void TvxDbfFileInfo::LoadFromBytes(QByteArrayView AData, std::unique_ptr<TvxTextEncoding> AEncoding)
{
  FEncoding = std::move(AEncoding);
  TvxByteStream Stream(AData);
  LoadHeader(Stream);
  LoadRecords(Stream);
}

void TvxDbfFileInfo::LoadHeader(TvxByteStream& AStream)
{
  const quint8 Version = AStream.ReadByte();
  if (std::find(std::begin(Versions), std::end(Versions), Version) == std::end(Versions))
    throw EvxDbfFileError("Unsupported Dbf File Format");
  try
  {
    ReadHeader(AStream);
  }
  catch (const std::exception&)
  {
    throw EvxDbfFileError("Incorrect Dbf File Format");
  }
}

void TvxDbfFileInfo::ReadHeader(TvxByteStream& AStream)
{
  AStream.Skip(3);
  FHeader.FRecordCount = qint32(AStream.ReadUInt32LE());
  FHeader.FRecordsOffset = AStream.ReadUInt16LE();
  FHeader.FRecordLength = AStream.ReadUInt16LE();
  AStream.Skip(17);
  // A caller's encoding wins over the driver byte; an unknown byte leaves
  // the system default.
  const int CodePage = CodePageOfDriver(AStream.ReadByte());
  if (!FEncoding && CodePage != 0)
    FEncoding = TvxTextEncoding::Create(CodePage);
  AStream.Skip(2);
  // The descriptors run to a 0x0D. The records follow it directly, whatever
  // the header's records offset says.
  while (AStream.ReadByte() != 0x0D)
  {
    AStream.Seek(AStream.Position() - 1);
    auto Field = std::make_unique<TvxDbfFileField>();
    Field->FIndex = int(FHeader.FFields.size());
    Field->LoadFromStream(AStream, GetEncoding());
    FHeader.FFields.push_back(std::move(Field));
  }
}

void TvxDbfFileInfo::LoadRecords(TvxByteStream& AStream)
{
  // Read as unsigned: no count stands for "none".
  const quint32 Count = quint32(FHeader.FRecordCount);
  if (Count == 0)
    return;
  const qint64 Length = FHeader.FRecordLength;
  const qint64 FieldsLength = std::accumulate(FHeader.FFields.begin(), FHeader.FFields.end(), qint64(0),
                                              [](qint64 ASum, const std::unique_ptr<TvxDbfFileField>& AField) {
                                                return ASum + AField->FieldLengthInBytes();
                                              });
  if (FieldsLength + 1 > Length)
    throw EvxReadError(QStringLiteral("A record of %1 bytes cannot hold the deletion flag and fields of %2 bytes")
                         .arg(Length)
                         .arg(FieldsLength));
  if (qint64(Count) * Length > AStream.Remaining())
    throw EvxReadError(QStringLiteral("%1 records of %2 bytes exceed the %3 bytes left after the header")
                         .arg(Count)
                         .arg(Length)
                         .arg(AStream.Remaining()));

  static const QString True = QStringLiteral("True");
  static const QString False = QStringLiteral("False");
  const TvxTextEncoding& Encoding = GetEncoding();
  const int FieldCount = int(FHeader.FFields.size());
  FRecords.resize(Count);
  for (TvxDbfFileRecord& Record : FRecords)
  {
    // The deletion flag is not looked at: deleted rows keep the row numbers
    // in step with the shapes.
    const char* P = reinterpret_cast<const char*>(AStream.Read(Length)) + 1;
    Record.Fields().Reserve(FieldCount);
    for (const std::unique_ptr<TvxDbfFileField>& Field : FHeader.FFields)
    {
      const QByteArrayView Bytes(P, Field->FieldLengthInBytes());
      P += Bytes.size();
      if (Field->FieldType() == 'L')
      {
        // Logical values are not trimmed: " T" is false.
        const QString Text = Encoding.Decode(Bytes);
        const bool IsTrue = Text.compare(QLatin1String("T"), Qt::CaseInsensitive) == 0 ||
                            Text.compare(QLatin1String("Y"), Qt::CaseInsensitive) == 0;
        Record.AddField(Field.get(), IsTrue ? True : False);
      }
      else
        Record.AddField(Field.get(), Encoding.DecodeTrimmed(Bytes));
    }
  }
}
