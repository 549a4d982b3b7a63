#include "vxTestMBTiles.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <atomic>

TvxTestMBTiles::TvxTestMBTiles(const QString& AFileName, bool ATables)
{
  static std::atomic<int> LCount = 0;
  FConnection = QStringLiteral("vxTestMBTiles%1").arg(++LCount);
  QSqlDatabase LDatabase = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), FConnection);
  LDatabase.setDatabaseName(AFileName);
  LDatabase.open();
  // Stops at the first failure, which Error() then tells.
  Exec(QStringLiteral("BEGIN")) &&
    (!ATables ||
     (Exec(QStringLiteral("CREATE TABLE metadata (name TEXT, value TEXT)")) &&
      Exec(QStringLiteral("CREATE TABLE tiles (zoom_level INTEGER, tile_column INTEGER, tile_row INTEGER, "
                          "tile_data BLOB)")) &&
      Exec(QStringLiteral("CREATE UNIQUE INDEX tile_index ON tiles (zoom_level, tile_column, tile_row)"))));
}

TvxTestMBTiles::~TvxTestMBTiles()
{
  // Fails harmlessly when a test committed already.
  Exec(QStringLiteral("COMMIT"));
  {
    QSqlDatabase LDatabase = QSqlDatabase::database(FConnection, false);
    LDatabase.close();
  }
  QSqlDatabase::removeDatabase(FConnection);
}

bool TvxTestMBTiles::Exec(const QString& ASql, const QVariantList& AValues)
{
  QSqlQuery LQuery(QSqlDatabase::database(FConnection, false));
  LQuery.prepare(ASql);
  for (const QVariant& LValue : AValues)
    LQuery.addBindValue(LValue);
  if (LQuery.exec())
    return true;
  FError = LQuery.lastError().text();
  return false;
}
