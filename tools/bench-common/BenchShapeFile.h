#pragma once

// The large Shapefile the format and layout benchmarks share: 10,000
// polygons of 400 outer and 100 inner vertices with a table of text,
// integer, float and date fields, written the same way for both.

#include <QByteArray>
#include <QFile>
#include <QRandomGenerator>
#include <QString>
#include <QtEndian>

#include <cmath>
#include <vector>

namespace BenchData
{
inline void PutBE(QByteArray& AData, qint32 AValue)
{
  char Bytes[4];
  qToBigEndian(AValue, Bytes);
  AData.append(Bytes, 4);
}
inline void PutLE(QByteArray& AData, qint32 AValue)
{
  char Bytes[4];
  qToLittleEndian(AValue, Bytes);
  AData.append(Bytes, 4);
}
inline void PutDouble(QByteArray& AData, double AValue)
{
  char Bytes[8];
  qToLittleEndian(AValue, Bytes);
  AData.append(Bytes, 8);
}
inline void PutField(QByteArray& AData, const QByteArray& AText, int AWidth, bool ARight)
{
  const QByteArray Text = AText.left(AWidth);
  const QByteArray Pad(AWidth - Text.size(), ' ');
  AData += ARight ? Pad + Text : Text + Pad;
}

inline bool WriteFile(const QString& AName, const QByteArray& AData)
{
  QFile File(AName);
  return File.open(QIODevice::WriteOnly) && File.write(AData) == AData.size();
}

struct TPoint
{
  double X, Y;
};

// A ring round a centre whose radius wobbles, closed.
inline void Ring(std::vector<TPoint>& APoints, double AX, double AY, double ARadius, int ACount, QRandomGenerator& ARandom)
{
  for (int I = 0; I < ACount - 1; ++I)
  {
    const double Angle = 2 * M_PI * I / (ACount - 1), R = ARadius * (0.8 + 0.4 * ARandom.generateDouble());
    APoints.push_back({AX + R * std::cos(Angle), AY + R * std::sin(Angle)});
  }
  APoints.push_back(APoints[APoints.size() - size_t(ACount - 1)]);
}

// Polygons of 400 outer and 100 inner vertices; .shp, .shx and .dbf.
inline bool WriteShapeFile(const QString& ABaseName, int ARecords)
{
  QRandomGenerator Random(7);
  QByteArray Shapes, Index, Table;
  const auto Header = [](QByteArray& AData, qint64 ALength) {
    PutBE(AData, 9994);
    for (int I = 0; I < 5; ++I)
      PutBE(AData, 0);
    PutBE(AData, qint32(ALength / 2));
    PutLE(AData, 1000);
    PutLE(AData, 5);
    for (double V : {-180.0, -90.0, 180.0, 90.0, 0.0, 0.0, 0.0, 0.0})
      PutDouble(AData, V);
  };
  QByteArray Records;
  std::vector<TPoint> Points;
  for (int N = 1; N <= ARecords; ++N)
  {
    const double X = -170 + 340 * Random.generateDouble(), Y = -80 + 160 * Random.generateDouble();
    Points.clear();
    Ring(Points, X, Y, 2.0, 400, Random);
    Ring(Points, X, Y, 0.5, 100, Random);
    const qint32 Content = 4 + 32 + 4 + 4 + 2 * 4 + qint32(Points.size()) * 16;
    PutBE(Index, qint32((100 + Records.size()) / 2));
    PutBE(Index, Content / 2);
    PutBE(Records, N);
    PutBE(Records, Content / 2);
    PutLE(Records, 5);
    for (double V : {X - 2.4, Y - 2.4, X + 2.4, Y + 2.4})
      PutDouble(Records, V);
    PutLE(Records, 2);
    PutLE(Records, qint32(Points.size()));
    PutLE(Records, 0);
    PutLE(Records, 400);
    for (const TPoint& P : Points)
    {
      PutDouble(Records, P.X);
      PutDouble(Records, P.Y);
    }
  }
  Header(Shapes, 100 + Records.size());
  Shapes += Records;
  QByteArray IndexFile;
  Header(IndexFile, 100 + Index.size());
  IndexFile += Index;

  // NAME C(24), POP N(9), AREA N(19,8), SURVEYED D(8).
  struct TField
  {
    const char* Name;
    char Type;
    int Length, Decimals;
  };
  const TField Fields[] = {{"NAME", 'C', 24, 0}, {"POP", 'N', 9, 0}, {"AREA", 'N', 19, 8}, {"SURVEYED", 'D', 8, 0}};
  const int RecordLength = 1 + 24 + 9 + 19 + 8, HeaderLength = 32 + 4 * 32 + 1;
  Table += char(0x03);
  Table += QByteArray("\x7e\x0b\x15", 3);
  PutLE(Table, ARecords);
  Table += char(HeaderLength & 0xFF);
  Table += char(HeaderLength >> 8);
  Table += char(RecordLength & 0xFF);
  Table += char(RecordLength >> 8);
  Table += QByteArray(17, '\0');
  Table += char(0x03);
  Table += QByteArray(2, '\0');
  for (const TField& Field : Fields)
  {
    QByteArray Descriptor(32, '\0');
    Descriptor.replace(0, int(qstrlen(Field.Name)), Field.Name);
    Descriptor[11] = Field.Type;
    Descriptor[16] = char(Field.Length);
    Descriptor[17] = char(Field.Decimals);
    Table += Descriptor;
  }
  Table += char(0x0D);
  for (int N = 1; N <= ARecords; ++N)
  {
    Table += ' ';
    PutField(Table, "Zone " + QByteArray::number(N) + " caf\xe9", 24, false);
    PutField(Table, QByteArray::number(Random.bounded(1000000)), 9, true);
    PutField(Table, QByteArray::number(Random.generateDouble() * 10000, 'f', 8), 19, true);
    PutField(Table, QByteArray::number(19900101 + Random.bounded(30) * 10000 + Random.bounded(12) * 100 + Random.bounded(28)), 8, false);
  }
  Table += char(0x1A);
  return WriteFile(ABaseName + QStringLiteral(".shp"), Shapes) &&
    WriteFile(ABaseName + QStringLiteral(".shx"), IndexFile) &&
    WriteFile(ABaseName + QStringLiteral(".dbf"), Table);
}
} // namespace BenchData
