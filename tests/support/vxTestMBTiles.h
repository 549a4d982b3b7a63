#pragma once

// Writes MBTiles files for tests and benchmarks through Qt's SQLite driver:
// the usual tables, or none for a test that wants another schema. Tiles go
// in by their XYZ row and are stored by the file's south-up row. Everything
// is one transaction, committed at the end.

#include <QByteArray>
#include <QString>
#include <QVariantList>

class TvxTestMBTiles
{
public:
  explicit TvxTestMBTiles(const QString& AFileName, bool ATables = true);
  TvxTestMBTiles(const TvxTestMBTiles&) = delete;
  TvxTestMBTiles& operator=(const TvxTestMBTiles&) = delete;
  ~TvxTestMBTiles();

  // A statement with AValues bound to its "?"; false with Error() set.
  bool Exec(const QString& ASql, const QVariantList& AValues = {});
  bool SetMetadata(const QString& AName, const QString& AValue)
  {
    return Exec(QStringLiteral("INSERT INTO metadata VALUES (?, ?)"), {AName, AValue});
  }
  bool AddTile(int AZoom, int AX, int AY, const QByteArray& AData)
  {
    return Exec(QStringLiteral("INSERT INTO tiles VALUES (?, ?, ?, ?)"), {AZoom, AX, (1 << AZoom) - 1 - AY, AData});
  }
  const QString& Error() const { return FError; }

private:
  QString FConnection;
  QString FError;
};
