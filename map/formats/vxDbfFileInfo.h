#pragma once

// The attribute table (".dbf") of a Shapefile: the field descriptors, and
// every value as a trimmed Unicode string. Typing the values is the
// loader's business.

#include "vxByteStream.h"

#include <QIODevice>
#include <QString>

#include <array>
#include <memory>
#include <vector>

struct UConverter;

// "Unsupported Dbf File Format" and "Incorrect Dbf File Format".
class EvxDbfFileError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

// A code page that has no converter here.
class EvxEncodingError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

// Text in one code page. Table values are decoded millions of times, so
// UTF-8 goes through Qt's decoder and single-byte code pages through a
// table of 256 characters built once from the ICU converter; only other
// code pages call the converter per value.
class TvxTextEncoding
{
  struct TKey
  {
    explicit TKey() = default;
  };

public:
  // Made only by the functions below.
  explicit TvxTextEncoding(TKey) {}
  // Throws EvxEncodingError for a code page without an encoding, such as
  // 1000 of the dBASE driver table.
  static std::unique_ptr<TvxTextEncoding> Create(int ACodePage);
  // By ICU converter name.
  static std::unique_ptr<TvxTextEncoding> CreateByName(const char* AName, int ACodePage = 0);
  // The system's default encoding: the code set of the user's locale as ICU
  // reads it, which is UTF-8 on the Linux desktops this runs on.
  static const TvxTextEncoding& Default();

  TvxTextEncoding(const TvxTextEncoding&) = delete;
  TvxTextEncoding& operator=(const TvxTextEncoding&) = delete;
  ~TvxTextEncoding();

  // 0 when made by name.
  int CodePage() const { return FCodePage; }
  // ICU's canonical name of the converter.
  const QString& Name() const { return FName; }
  bool IsUtf8() const { return FKind == ekUtf8; }

  QString Decode(QByteArrayView ABytes) const;
  // Decoded without leading and trailing blanks and control characters
  // (everything up to U+0020), in one pass and one allocation.
  QString DecodeTrimmed(QByteArrayView ABytes) const;

private:
  enum TKind
  {
    ekUtf8,
    ekSingleByte,
    ekConverter
  };
  struct TConverterCloser
  {
    void operator()(UConverter* AConverter) const;
  };

  QString DecodeWithConverter(QByteArrayView ABytes) const;

  TKind FKind = ekUtf8;
  int FCodePage = 0;
  QString FName;
  std::array<char16_t, 256> FTable{};
  // Single-byte code pages whose table maps a byte to a character up to the
  // blank, so that trimming can look at the bytes.
  std::array<bool, 256> FTrimmable{};
  std::unique_ptr<UConverter, TConverterCloser> FConverter;
};

// One 32-byte field descriptor.
class TvxDbfFileField
{
public:
  // The name is decoded with AEncoding up to its first NUL.
  void LoadFromStream(TvxByteStream& AStream, const TvxTextEncoding& AEncoding);

  // The position in the table's list of fields.
  int Index() const { return FIndex; }
  const QString& FieldName() const { return FFieldName; }
  char FieldType() const { return char(FFieldType); }
  int FieldLengthInBytes() const { return FFieldLengthInBytes; }
  int NumberOfDecimalPlaces() const { return FNumberOfDecimalPlaces; }
  quint8 FieldFlags() const { return FFieldFlags; }
  quint8 AutoIncrementStepValue() const { return FAutoIncrementStepValue; }

private:
  friend class TvxDbfFileInfo;

  int FIndex = 0;
  QString FFieldName;
  quint8 FFieldType = 0;
  quint8 FFieldLengthInBytes = 0;
  quint8 FNumberOfDecimalPlaces = 0;
  quint8 FFieldFlags = 0;
  quint8 FAutoIncrementStepValue = 0;
};

class TvxDbfFileHeader
{
public:
  const std::vector<std::unique_ptr<TvxDbfFileField>>& Fields() const { return FFields; }
  qint32 RecordsOffset() const { return FRecordsOffset; }
  qint32 RecordLength() const { return FRecordLength; }
  qint32 RecordCount() const { return FRecordCount; }

private:
  friend class TvxDbfFileInfo;

  std::vector<std::unique_ptr<TvxDbfFileField>> FFields;
  qint32 FRecordsOffset = 0;
  qint32 FRecordLength = 0;
  qint32 FRecordCount = 0;
};

// A row's values by field. Keyed by the field's index, so only for the
// fields of one table; a field not added reads as an empty string.
class TvxDbfFileRecordValues
{
public:
  // Adds or overwrites.
  void AddField(const TvxDbfFileField* AField, QString AValue);
  const QString& Value(const TvxDbfFileField* AField) const;
  int Count() const { return int(FValues.size()); }
  void Reserve(int ACount) { FValues.reserve(size_t(ACount)); }

private:
  std::vector<QString> FValues;
};

class TvxDbfFileRecord
{
public:
  TvxDbfFileRecordValues& Fields() { return FFields; }
  const TvxDbfFileRecordValues& Fields() const { return FFields; }
  void AddField(const TvxDbfFileField* AField, QString AValue) { FFields.AddField(AField, std::move(AValue)); }

private:
  TvxDbfFileRecordValues FFields;
};

class TvxDbfFileInfo
{
public:
  TvxDbfFileInfo();
  TvxDbfFileInfo(const TvxDbfFileInfo&) = delete;
  TvxDbfFileInfo& operator=(const TvxDbfFileInfo&) = delete;
  ~TvxDbfFileInfo();

  // Reads the stream from its position to its end. AEncoding may be null;
  // the table owns it from here on, and it wins over the driver byte.
  // Throws EvxDbfFileError for a bad header and EvxReadError when the
  // records end early.
  void LoadFromStream(QIODevice& AStream, std::unique_ptr<TvxTextEncoding> AEncoding = nullptr);
  void LoadFromBytes(QByteArrayView AData, std::unique_ptr<TvxTextEncoding> AEncoding = nullptr);

  // The encoding in force, or the system default.
  const TvxTextEncoding& GetEncoding() const;
  // Null while the system default is in force.
  const TvxTextEncoding* Encoding() const { return FEncoding.get(); }
  const TvxDbfFileHeader& Header() const { return FHeader; }
  const std::vector<TvxDbfFileRecord>& Records() const { return FRecords; }

private:
  void LoadHeader(TvxByteStream& AStream);
  void ReadHeader(TvxByteStream& AStream);
  void LoadRecords(TvxByteStream& AStream);

  std::unique_ptr<TvxTextEncoding> FEncoding;
  TvxDbfFileHeader FHeader;
  std::vector<TvxDbfFileRecord> FRecords;
};
