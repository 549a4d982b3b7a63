#pragma once

// A read cursor over bytes held elsewhere, shared by the Shapefile and
// dBASE readers. Every read checks what is left, so that damaged files fail
// with a text instead of reading past the end.

#include <QBuffer>
#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QtEndian>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>

// Reading past the end, or a count that cannot fit in what is left.
class EvxReadError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
  explicit EvxReadError(const QString& AMessage) : std::runtime_error(AMessage.toStdString()) {}
};

class TvxByteStream
{
public:
  TvxByteStream() = default;
  explicit TvxByteStream(QByteArrayView AData) : FData(AData.data()), FSize(AData.size()) {}

  qsizetype Position() const { return FPosition; }
  qsizetype Size() const { return FSize; }
  qsizetype Remaining() const { return FSize - FPosition; }
  bool AtEnd() const { return FPosition >= FSize; }

  // Throws unless ACount bytes are left.
  void Require(qint64 ACount) const
  {
    if (ACount < 0 || ACount > Remaining())
      throw EvxReadError(QStringLiteral("unexpected end of data at byte %1 (%2 bytes needed, %3 left)")
                           .arg(FPosition)
                           .arg(ACount)
                           .arg(Remaining()));
  }
  // The next ACount bytes, which stay valid as long as the data does.
  const uchar* Read(qint64 ACount)
  {
    Require(ACount);
    const uchar* Result = reinterpret_cast<const uchar*>(FData) + FPosition;
    FPosition += qsizetype(ACount);
    return Result;
  }
  void Skip(qint64 ACount) { Read(ACount); }
  void Seek(qsizetype APosition) { FPosition = std::clamp<qsizetype>(APosition, 0, FSize); }

  quint8 ReadByte() { return *Read(1); }
  quint16 ReadUInt16LE()
  {
    const uchar* P = Read(2);
    return quint16(P[0] | (P[1] << 8));
  }
  quint32 ReadUInt32LE() { return UInt32LE(Read(4)); }
  qint32 ReadInt32LE() { return qint32(UInt32LE(Read(4))); }
  qint32 ReadInt32BE()
  {
    const uchar* P = Read(4);
    return qint32(quint32(P[3]) | (quint32(P[2]) << 8) | (quint32(P[1]) << 16) | (quint32(P[0]) << 24));
  }
  double ReadDoubleLE() { return DoubleLE(Read(8)); }

  static quint32 UInt32LE(const uchar* P)
  {
    return quint32(P[0]) | (quint32(P[1]) << 8) | (quint32(P[2]) << 16) | (quint32(P[3]) << 24);
  }
  static double DoubleLE(const uchar* P)
  {
    // One load on a little-endian machine: millions of coordinates come
    // through here.
    quint64 Bits;
    std::memcpy(&Bits, P, sizeof Bits);
    return std::bit_cast<double>(qFromLittleEndian(Bits));
  }

private:
  const char* FData = nullptr;
  qsizetype FSize = 0;
  qsizetype FPosition = 0;
};

// The bytes of a device from its position to its end. The file layer hands
// over QBuffers holding whole files, whose data is used in place; anything
// else is read into AStorage.
inline QByteArrayView vxDeviceBytes(QIODevice& ADevice, QByteArray& AStorage)
{
  if (const auto* Buffer = qobject_cast<const QBuffer*>(&ADevice); Buffer && Buffer->isReadable())
  {
    const QByteArray& Data = Buffer->data();
    const qsizetype Start = std::clamp<qsizetype>(qsizetype(Buffer->pos()), 0, Data.size());
    return QByteArrayView(Data).sliced(Start);
  }
  AStorage = ADevice.readAll();
  return AStorage;
}
