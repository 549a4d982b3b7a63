// mapwright-cache as a process: count output, a build against the loopback
// tile server, and a declined question.

#include "vxTestTileServer.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace
{
struct TRun
{
  int Code = -1;
  QString Out;
  QString Err;
};

TRun Run(const QStringList& AArgs, const QByteArray& AInput = {}, const QString& ADir = {})
{
  QProcess Process;
  if (!ADir.isEmpty())
    Process.setWorkingDirectory(ADir);
  Process.start(QStringLiteral(CACHE_EXE), AArgs);
  Process.write(AInput);
  Process.closeWriteChannel();
  if (!Process.waitForFinished(60000))
    Process.kill();
  return {Process.exitStatus() == QProcess::NormalExit ? Process.exitCode() : -1,
          QString::fromUtf8(Process.readAllStandardOutput()), QString::fromUtf8(Process.readAllStandardError())};
}
} // namespace

class TestCacheTool : public QObject
{
  Q_OBJECT

  TvxTestTileServer FServer;

  QString Url() const { return QStringLiteral("http://127.0.0.1:%1/").arg(FServer.Port()); }

private Q_SLOTS:
  void initTestCase()
  {
    QVERIFY(FServer.Start());
    FServer.SetDefaultRule(TvxTestTileServer::TRule::Garbage());
  }

  void CountAndArguments()
  {
    TRun R = Run({"count", "--area", "40.0006,-79.9900,40.0003,-79.9896", "--max-zoom", "18"});
    QCOMPARE(R.Code, 0);
    QCOMPARE(R.Out, QString("Tiles needed: 21\n"));

    R = Run({"count", "--area=60,-170,-60,170", "--max-zoom=10"});
    QCOMPARE(R.Out, QString("Tiles needed: 555,864\n"));

    QTemporaryDir Dir;
    R = Run({"count", "--area", "40,-90,-40,90", "--max-zoom", "4", "--dir", Dir.path(), "--prefix", "P"});
    QCOMPARE(R.Out, QString("Tiles needed: 56\nAlready cached: 0\nEstimated download: unknown\n"));

    for (const QStringList& Bad : {QStringList{"count", "--max-zoom", "3"}, QStringList{"count", "--area", "1,2,3"},
                                   QStringList{"build", "--area", "1,2,3,4", "--max-zoom", "3"},
                                   QStringList{"count", "--area", "1,2,3,4", "--max-zoom", "x"}, QStringList{"fetch"}})
      QCOMPARE(Run(Bad).Code, 2);

    R = Run({"--help"});
    QCOMPARE(R.Code, 0);
    QVERIFY(R.Out.startsWith("Usage: mapwright-cache count "));
    QVERIFY(R.Out.contains("Example:"));
    R = Run({"build", "--version"});
    QCOMPARE(R.Code, 0);
    QCOMPARE(R.Out, QStringLiteral("mapwright-cache " MAPWRIGHT_VERSION "\n"));
  }

  // A build with --yes in the working folder, then the declined question.
  void BuildAndDecline()
  {
    QTemporaryDir Dir;
    FServer.ResetCounters();
    TRun R = Run({"build", "--area", "40,-90,-40,90", "--max-zoom", "3", "--url", Url(), "--prefix", "ArcGIS_T", "--yes"},
                 {}, Dir.path());
    QCOMPARE(R.Code, 0);
    QVERIFY(R.Out.contains("20 of 20 tiles\n"));
    QVERIFY(R.Out.endsWith("Finished building offline tile cache.\n"));
    QCOMPARE(FServer.RequestCount(), 20);
    QVERIFY(QFile::exists(Dir.filePath("ArcGIS_T_6_4_3.teramapcache")));
    QFile Map(Dir.filePath("vxcache.map"));
    QVERIFY(Map.open(QIODevice::ReadOnly));
    QCOMPARE(Map.readAll().count('\n'), 20);

    R = Run({"count", "--area", "40,-90,-40,90", "--max-zoom", "4", "--dir", Dir.path(), "--prefix", "ArcGIS_T"});
    QCOMPARE(R.Out, QString("Tiles needed: 56\nAlready cached: 20\nEstimated download: about 72.0 KB\n"));

    FServer.SetRule("/3/3/4", TvxTestTileServer::TRule::Status(404));
    QFile::remove(Dir.filePath("ArcGIS_T_4_3_3.teramapcache"));
    R = Run({"build", "--area", "40,-90,-40,90", "--max-zoom", "3", "--url", Url(), "--prefix", "ArcGIS_T", "--dir",
             Dir.path()});
    QCOMPARE(R.Code, 0);
    QVERIFY(R.Out.contains("Some errors were reported during tile download!"));

    FServer.ResetCounters();
    for (const QByteArray& Answer : {QByteArray("n\n"), QByteArray(""), QByteArray("maybe\n")})
    {
      R = Run({"build", "--area", "60,-170,-60,170", "--max-zoom", "10", "--url", Url(), "--prefix", "ArcGIS_T",
               "--dir", Dir.path()},
              Answer);
      QCOMPARE(R.Code, 1);
      QVERIFY(R.Out.contains("Are you sure you want to continue?"));
    }
    QCOMPARE(FServer.RequestCount(), 0);
  }
};

QTEST_GUILESS_MAIN(TestCacheTool)
#include "tst_cache.moc"
