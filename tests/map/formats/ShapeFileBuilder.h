#pragma once

// Shapefile and dBASE bytes put together by hand, so that each test shows
// the one rule it is about.

#include <QByteArray>
#include <QList>
#include <QPointF>

#include <algorithm>
#include <bit>

// Bytes in either order.
class TBytes
{
public:
  // Little-endian unless ABigEndian.
  TBytes& Int(quint64 AValue, int ASize, bool ABigEndian = false)
  {
    for (int I = 0; I < ASize; ++I)
      FData.append(char((AValue >> (8 * (ABigEndian ? ASize - 1 - I : I))) & 0xFF));
    return *this;
  }
  TBytes& IntLE(qint32 AValue) { return Int(quint32(AValue), 4); }
  TBytes& IntBE(qint32 AValue) { return Int(quint32(AValue), 4, true); }
  TBytes& Double(double AValue) { return Int(std::bit_cast<quint64>(AValue), 8); }
  TBytes& Bytes(const QByteArray& AData)
  {
    FData.append(AData);
    return *this;
  }
  TBytes& Box(double AXMin, double AYMin, double AXMax, double AYMax)
  {
    return Double(AXMin).Double(AYMin).Double(AXMax).Double(AYMax);
  }
  TBytes& Points(const QList<QPointF>& APoints)
  {
    for (const QPointF& Point : APoints)
      Double(Point.x()).Double(Point.y());
    return *this;
  }
  // A range and one value per point, as the M and Z blocks are.
  TBytes& Values(const QList<double>& AValues)
  {
    const auto [Min, Max] = std::minmax_element(AValues.begin(), AValues.end());
    Double(AValues.isEmpty() ? 0 : *Min).Double(AValues.isEmpty() ? 0 : *Max);
    for (double Value : AValues)
      Double(Value);
    return *this;
  }
  const QByteArray& Data() const { return FData; }
  operator const QByteArray&() const { return FData; }

private:
  QByteArray FData;
};

// Content of the multi-point types: box, part count, point count, part
// starts, and points.
inline TBytes PolyContent(const QList<qint32>& AParts, const QList<QPointF>& APoints)
{
  TBytes Result;
  Result.Box(-1, -2, 3, 4).IntLE(qint32(AParts.size())).IntLE(qint32(APoints.size()));
  for (qint32 Part : AParts)
    Result.IntLE(Part);
  Result.Points(APoints);
  return Result;
}

inline TBytes MultiPointContent(const QList<QPointF>& APoints)
{
  TBytes Result;
  Result.Box(-1, -2, 3, 4).IntLE(qint32(APoints.size())).Points(APoints);
  return Result;
}

class TShpBuilder
{
public:
  TShpBuilder& FileCode(qint32 AValue)
  {
    FFileCode = AValue;
    return *this;
  }
  // A record whose content length is the content's, unless given in words.
  TShpBuilder& Record(qint32 ANumber, qint32 AType, const QByteArray& AContent, qint32 AContentWords = -1)
  {
    FRecords.IntBE(ANumber)
      .IntBE(AContentWords >= 0 ? AContentWords : qint32((AContent.size() + 4) / 2))
      .IntLE(AType)
      .Bytes(AContent);
    return *this;
  }
  TShpBuilder& Null(qint32 ANumber) { return Record(ANumber, 0, {}); }
  TShpBuilder& Point(qint32 ANumber, double AX, double AY)
  {
    return Record(ANumber, 1, TBytes().Double(AX).Double(AY));
  }
  // The end of the records so far, for cutting files at record boundaries.
  qsizetype Size() const { return 100 + FRecords.Data().size(); }

  QByteArray Bytes() const
  {
    TBytes Header;
    Header.IntBE(FFileCode).IntBE(0).IntBE(0).IntBE(0).IntBE(0).IntBE(0).IntBE(qint32(Size() / 2));
    Header.IntLE(1000).IntLE(1).Box(-180, -90, 180, 90).Double(0).Double(0).Double(0).Double(0);
    return Header.Data() + FRecords.Data();
  }

private:
  qint32 FFileCode = 9994;
  TBytes FRecords;
};

struct TDbfField
{
  QByteArray Name;
  char Type = 'C';
  int Length = 10;
  int Decimals = 0;
};

class TDbfBuilder
{
public:
  TDbfBuilder& Version(quint8 AValue)
  {
    FVersion = AValue;
    return *this;
  }
  TDbfBuilder& Driver(quint8 AValue)
  {
    FDriver = AValue;
    return *this;
  }
  TDbfBuilder& Field(const QByteArray& AName, char AType, int ALength, int ADecimals = 0)
  {
    FFields.append({AName, AType, ALength, ADecimals});
    return *this;
  }
  // Values are padded with blanks to their field's length: numbers on the
  // left, text on the right.
  TDbfBuilder& Row(const QList<QByteArray>& AValues, bool ADeleted = false)
  {
    QByteArray Row(1, ADeleted ? '*' : ' ');
    for (qsizetype I = 0; I < FFields.size(); ++I)
    {
      const TDbfField& Field = FFields[I];
      const QByteArray Value = I < AValues.size() ? AValues[I].left(Field.Length) : QByteArray();
      const QByteArray Padding(Field.Length - Value.size(), ' ');
      Row += QByteArray("NFIB").contains(Field.Type) ? Padding + Value : Value + Padding;
    }
    FRows.append(Row);
    return *this;
  }
  int RecordLength() const
  {
    int Result = 1;
    for (const TDbfField& Field : FFields)
      Result += Field.Length;
    return Result;
  }
  // The header and descriptors up to and with the 0x0D.
  QByteArray Header() const
  {
    TBytes Result;
    Result.Int(FVersion, 1).Int(0x1F017C, 3).Int(quint32(FRows.size()), 4);
    Result.Int(quint16(32 + 32 * FFields.size() + 1), 2).Int(quint16(RecordLength()), 2);
    Result.Bytes(QByteArray(17, '\0')).Int(FDriver, 1).Bytes(QByteArray(2, '\0'));
    for (const TDbfField& Field : FFields)
    {
      Result.Bytes(Field.Name.left(11).leftJustified(11, '\0')).Int(uchar(Field.Type), 1).Bytes(QByteArray(4, '\0'));
      Result.Int(uchar(Field.Length), 1).Int(uchar(Field.Decimals), 1).Bytes(QByteArray(14, '\0'));
    }
    return Result.Bytes("\x0D");
  }
  QByteArray Bytes(bool AEndMarker = true) const
  {
    QByteArray Result = Header();
    for (const QByteArray& Row : FRows)
      Result += Row;
    if (AEndMarker)
      Result += '\x1A';
    return Result;
  }

private:
  quint8 FVersion = 0x03;
  quint8 FDriver = 0x00;
  QList<TDbfField> FFields;
  QList<QByteArray> FRows;
};
