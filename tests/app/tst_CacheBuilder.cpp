// The offline cache builder's arithmetic, its runs against the loopback
// tile server, which serves deterministic 2048-byte bodies for every path,
// and the dialog over it.

#include "BuildCacheU.h"
#include "CacheBuilderU.h"
#include "DialogsU.h"
#include "GlobalsU.h"
#include "TestRegistry.h"
#include "vxTestTileServer.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include <cmath>

namespace
{
// At every level from 1 to 18 inside one tile.
const TCacheArea OneTileArea{40.0006, -79.9900, 40.0003, -79.9896};
// Level 2: rows 1..2, columns 1..3; level 3: rows 3..4, columns 2..6.
const TCacheArea SmallArea{40, -90, -40, 90};

// Server paths of SmallArea up to level 3, in the order of a run: z/y/x.
QStringList SmallAreaPaths()
{
  return {"/1/0/0", "/1/0/1", "/1/1/0", "/1/1/1", "/2/1/1", "/2/1/2", "/2/1/3", "/2/2/1", "/2/2/2", "/2/2/3",
          "/3/3/2", "/3/3/3", "/3/3/4", "/3/3/5", "/3/3/6", "/3/4/2", "/3/4/3", "/3/4/4", "/3/4/5", "/3/4/6"};
}

QByteArray ReadAll(const QString& APath)
{
  QFile File(APath);
  return File.open(QIODevice::ReadOnly) ? File.readAll() : QByteArray();
}

void Write(const QString& APath, const QByteArray& AContent)
{
  QFile File(APath);
  if (!File.open(QIODevice::WriteOnly) || File.write(AContent) != AContent.size())
    qFatal("cannot write %s", qPrintable(APath));
}

const QString CancelQuestion = QStringLiteral("Are you sure you want to Cancel the download?");

// The dialog over a scratch cache folder, its dialogs recorded; the global
// folder and the dialogs come back at the end.
struct TDialogRig
{
  QTemporaryDir Dir;
  QString SavedCacheDir = Globals::CacheDir;
  std::unique_ptr<TDialogs> SavedDialogs;
  TRecordingDialogs* Recorder = nullptr;
  TfrmBuildCache Form;

  TDialogRig()
  {
    auto Owned = std::make_unique<TRecordingDialogs>();
    Recorder = Owned.get();
    SavedDialogs = Dialogs::Set(std::move(Owned));
    Globals::CacheDir = Dir.path();
  }

  ~TDialogRig()
  {
    Dialogs::Set(std::move(SavedDialogs));
    Globals::CacheDir = SavedCacheDir;
  }

  // Opens the dialog for the area as the main form does, plays the user and
  // closes it if the play left it open; the result code.
  int Open(const TCacheArea& AArea, qint32 AMaxZoom, quint16 APort, const std::function<void()>& APlay)
  {
    Recorder->OnExecute = [&](QDialog& ADialog) {
      ADialog.show();
      APlay();
      if (ADialog.isVisible())
        ADialog.done(QDialog::Rejected);
      return ADialog.result();
    };
    return Form.ShowForArea(AArea.TopLeftLat, AArea.TopLeftLon, AArea.BottomRightLat, AArea.BottomRightLon,
                            QStringLiteral("http://127.0.0.1:%1/").arg(APort), QStringLiteral("ArcGIS_NGW"),
                            AMaxZoom);
  }
};
} // namespace

class TestCacheBuilder : public QObject
{
  Q_OBJECT

  std::unique_ptr<TvxTestTileServer> FServer;

  TCacheBuilder::TSettings Settings(const QString& ADir, qint32 AMaxZoom = 3) const
  {
    TCacheBuilder::TSettings S;
    S.Area = SmallArea;
    S.ProviderURL = QStringLiteral("http://127.0.0.1:%1/").arg(FServer->Port());
    S.ProviderFilePrefix = QStringLiteral("ArcGIS_NGW");
    S.ProviderMaxZoom = AMaxZoom;
    S.CacheDir = ADir;
    return S;
  }

private Q_SLOTS:
  void initTestCase()
  {
    FServer = std::make_unique<TvxTestTileServer>();
    QVERIFY(FServer->Start());
  }

  void init()
  {
    FServer->ClearRules();
    FServer->SetDefaultRule(TvxTestTileServer::TRule::Garbage());
    FServer->ResetCounters();
  }

  void TileArithmetic()
  {
    QCOMPARE(CalcTiles(OneTileArea, 18), 21);
    QCOMPARE(CalcTiles(OneTileArea, 15), 18);
    QCOMPARE(CalcTiles(OneTileArea, 1), 4);
    QCOMPARE(CalcTiles(SmallArea, 3), 20);

    QVERIFY(!CacheBuilder::AsksLargeCountQuestion(1000));
    QVERIFY(CacheBuilder::AsksLargeCountQuestion(1001));

    QCOMPARE(AddThousandSeparator("123", ','), QString("123"));
    QCOMPARE(AddThousandSeparator("1000", ','), QString("1,000"));
    QCOMPARE(AddThousandSeparator("1234567", ','), QString("1,234,567"));

    // Just south of a row border at level 18, full pi would give row 99241.
    const double Lat = 40.0002706;
    const double FullPi = std::floor(std::pow(2.0, 18) *
                                     (1 - std::log(std::tan(M_PI * Lat / 180) + 1 / std::cos(M_PI * Lat / 180)) / M_PI) / 2);
    QCOMPARE(FullPi, 99241.0);
    QCOMPARE(GetTileY(Lat, 0, 18), 99242);

    // Not clamped: the poles and the antimeridian fall outside the grid.
    QCOMPARE(GetTileX(0, 180, 2), 4);
    QVERIFY(GetTileY(89.99, 0, 2) < 0);
    QCOMPARE(GetTileX(0, -180, 3), 0);

    QCOMPARE(CacheBuilder::TileFileName("ArcGIS_NGW", 9, 12, 5), QString("ArcGIS_NGW_9_12_5.teramapcache"));
  }

  // Order, one request at a time, names, lines after the existing ones, and
  // a second run that adds nothing.
  void RunFetchesInOrderAndRepeatsNothing()
  {
    QTemporaryDir Dir;
    QVERIFY(Dir.isValid());
    const QByteArray Before = "Old_1_1_1.teramapcache:46000.5:10\nbroken line\n\nno:time:x\n";
    Write(Dir.filePath("vxcache.map"), Before);
    FServer->SetDelay(15);

    TCacheBuilder Builder(Settings(Dir.path()));
    QList<qint32> Done;
    Builder.SetProgress([&](qint32 ADone, qint32 ATotal) {
      QCOMPARE(ATotal, 20);
      Done << ADone;
    });
    const TCacheBuildResult Result = Builder.Run();
    QVERIFY(!Result.Cancelled);
    QCOMPARE(Result.Message, QString("Finished building offline tile cache."));
    QVERIFY(Result.SaveError.isEmpty());
    QCOMPARE(FServer->Requests(), SmallAreaPaths());
    QCOMPARE(FServer->MaxConcurrent(), 1);
    QCOMPARE(Done.size(), 20);
    QCOMPARE(Done.last(), 20);

    const QByteArray Map = ReadAll(Dir.filePath("vxcache.map"));
    QVERIFY(Map.startsWith(Before));
    const QList<QByteArray> Added = Map.mid(Before.size()).split('\n');
    QCOMPARE(Added.size(), 21); // and the final newline
    QVERIFY(Added.last().isEmpty());
    const QList<QByteArray> First = Added[0].split(':');
    QCOMPARE(First.size(), 3);
    QCOMPARE(First[0], QByteArray("ArcGIS_NGW_0_0_1.teramapcache"));
    bool TimeOk = false;
    QVERIFY(First[1].toDouble(&TimeOk) > 40000 && TimeOk);
    QVERIFY(!First[1].contains(','));
    QCOMPARE(First[2], QByteArray("2048"));
    QVERIFY(Added[4].startsWith("ArcGIS_NGW_1_1_2.teramapcache:"));
    QVERIFY(Added[19].startsWith("ArcGIS_NGW_6_4_3.teramapcache:"));
    QCOMPARE(QFileInfo(Dir.filePath("ArcGIS_NGW_6_4_3.teramapcache")).size(), 2048);

    FServer->ResetCounters();
    TCacheBuilder Again(Settings(Dir.path()));
    QCOMPARE(Again.Run().Message, QString("Finished building offline tile cache."));
    QCOMPARE(FServer->RequestCount(), 0);
    QCOMPARE(ReadAll(Dir.filePath("vxcache.map")), Map);

    // The folder's figures for one more level: 36 new tiles of 2048 bytes.
    const CacheBuilder::TEstimate E = CacheBuilder::Estimate(SmallArea, 4, Dir.path(), "ArcGIS_NGW");
    QCOMPARE(E.TileCount, 56);
    QCOMPARE(E.Cached, 20);
    QCOMPARE(E.EstimatedBytes, qint64(36 * 2048));
    QCOMPARE(CacheBuilder::FormatEstimate(E.EstimatedBytes), QString("about 72.0 KB"));
  }

  // A cancel inside a row finishes that row; a failing tile is reported.
  void CancelAndFailures()
  {
    {
      QTemporaryDir Dir;
      TCacheBuilder Builder(Settings(Dir.path()));
      Builder.SetProgress([&](qint32 ADone, qint32) {
        if (ADone == 5)
          Builder.Cancel();
      });
      const TCacheBuildResult Result = Builder.Run();
      QVERIFY(Result.Cancelled);
      QVERIFY(Result.Message.isEmpty());
      QCOMPARE(FServer->Requests(), SmallAreaPaths().mid(0, 7));
      const QList<QByteArray> Lines = ReadAll(Dir.filePath("vxcache.map")).trimmed().split('\n');
      QCOMPARE(Lines.size(), 7);
      QVERIFY(Lines[6].startsWith("ArcGIS_NGW_3_1_2.teramapcache:"));
    }

    FServer->ResetCounters();
    {
      QTemporaryDir Dir;
      FServer->SetRule("/2/1/2", TvxTestTileServer::TRule::Status(404));
      FServer->SetRule("/1/0/0", TvxTestTileServer::TRule::Status(500));
      TCacheBuilder Builder(Settings(Dir.path()));
      const TCacheBuildResult Result = Builder.Run();
      QCOMPARE(FServer->RequestCount(), 20);
      QVERIFY(Result.Message.startsWith("Some errors were reported during tile download! Your tile cache might not "
                                        "be complete. ("));
      QVERIFY(Result.Message.endsWith(')'));
      QVERIFY(Result.LastError.contains("Not Found"));
      QVERIFY(!QFile::exists(Dir.filePath("ArcGIS_NGW_2_1_2.teramapcache")));
      const QByteArray Map = ReadAll(Dir.filePath("vxcache.map"));
      QVERIFY(!Map.contains("ArcGIS_NGW_2_1_2."));
      QVERIFY(!Map.contains("ArcGIS_NGW_0_0_1."));
      QCOMPARE(Map.count('\n'), 18);
    }

    // Only a level-1 failure: dropped, not reported.
    FServer->ClearRules();
    FServer->SetDefaultRule(TvxTestTileServer::TRule::Garbage());
    FServer->SetRule("/1/1/1", TvxTestTileServer::TRule::Close());
    {
      QTemporaryDir Dir;
      TCacheBuilder Builder(Settings(Dir.path()));
      QCOMPARE(Builder.Run().Message, QString("Finished building offline tile cache."));
    }

    // A server that never answers fails the tile after the time-out and the
    // run goes on.
    FServer->ClearRules();
    FServer->SetDefaultRule(TvxTestTileServer::TRule::Garbage());
    FServer->SetRule("/2/1/2", TvxTestTileServer::TRule::Hang());
    FServer->ResetCounters();
    {
      QTemporaryDir Dir;
      TCacheBuilder::TSettings S = Settings(Dir.path(), 2);
      S.TransferTimeoutMs = 200;
      TCacheBuilder Builder(S);
      QElapsedTimer Clock;
      Clock.start();
      const TCacheBuildResult Result = Builder.Run();
      QVERIFY(Clock.elapsed() < 10000);
      QCOMPARE(FServer->RequestCount(), 10);
      QVERIFY(Result.Message.startsWith("Some errors were reported"));
      QVERIFY(Result.LastError.startsWith("No answer from http://127.0.0.1:"));
      QVERIFY(!QFile::exists(Dir.filePath("ArcGIS_NGW_2_1_2.teramapcache")));
      QVERIFY(QFile::exists(Dir.filePath("ArcGIS_NGW_3_2_2.teramapcache")));
    }
  }

  // A folder that does not exist: every tile fails, nothing is made, and
  // the cache elsewhere is untouched.
  void MissingFolder()
  {
    QTemporaryDir Dir;
    const QByteArray Before = "ArcGIS_NGW_0_0_1.teramapcache:46000.25:7\n";
    Write(Dir.filePath("vxcache.map"), Before);
    const QString Missing = Dir.filePath("no/such/folder");
    TCacheBuilder Builder(Settings(Missing, 2));
    const TCacheBuildResult Result = Builder.Run();
    QVERIFY(!Result.Cancelled);
    QVERIFY(Result.Message.startsWith("Some errors were reported"));
    QVERIFY(Result.Message.contains("no/such/folder"));
    QVERIFY(!Result.SaveError.isEmpty());
    QVERIFY(!QDir(Missing).exists());
    QCOMPARE(ReadAll(Dir.filePath("vxcache.map")), Before);
  }

  // What the dialog shows and allows before a run: the count, the folder's
  // figures, the folder picker, and a large count declined.
  void DialogBeforeARun()
  {
    TDialogRig Rig;
    TfrmBuildCache& F = Rig.Form;
    Write(Rig.Dir.filePath("ArcGIS_NGW_0_0_1.teramapcache"), QByteArray(2048, 'x'));
    Write(Rig.Dir.filePath("ArcGIS_NGW_2_1_2.teramapcache"), QByteArray(2048, 'x'));
    const QString Other = Rig.Dir.filePath("other");
    const QString Have2 = "2 of them are in the folder already; about 5.5 MB to download.";

    const int Result = Rig.Open(SmallArea, 7, FServer->Port(), [&] {
      QCOMPARE(F.edtTilesCount->text(), QString("2,800"));
      QVERIFY(F.btnOk->isEnabled());
      QVERIFY(F.pnlProgress->isHidden());
      QCOMPARE(F.edtCacheDir->text(), Rig.Dir.path());
      QCOMPARE(F.lblCached->text(), Have2);

      Rig.Recorder->QuestionAnswers = {false};
      F.btnOk->click();
      QCOMPARE(Rig.Recorder->Questions, QStringList{CacheBuilder::LargeCountQuestion});
      QVERIFY(F.isVisible());
      QVERIFY(!F.Downloading);
      QVERIFY(F.btnOk->isEnabled());
      QVERIFY(F.pnlProgress->isHidden());

      // A cancelled picker keeps the folder; the figures follow the folder.
      Rig.Recorder->FileAnswers = {Other, QString()};
      F.SpeedButton1->click();
      QCOMPARE(F.edtCacheDir->text(), Other);
      QCOMPARE(F.lblCached->text(), QString("None of them are in the folder yet; the download size is unknown."));
      F.SpeedButton1->click();
      QCOMPARE(F.edtCacheDir->text(), Other);
      F.edtCacheDir->setText(Rig.Dir.path());
      QTRY_COMPARE(F.lblCached->text(), Have2);
      F.edtCacheDir->setText(Other);
      F.btnCancel->click();
      QVERIFY(!F.isVisible());
    });
    QCOMPARE(Result, int(QDialog::Rejected));
    QCOMPARE(FServer->RequestCount(), 0);
    QVERIFY(Rig.Recorder->Messages.isEmpty());
    QVERIFY(!QFile::exists(Rig.Dir.filePath("vxcache.map")));

    // A view across the antimeridian counts below one; each showing starts
    // from the global folder again.
    Rig.Open({40, 90, -40, -90}, 3, FServer->Port(), [&] {
      QCOMPARE(F.edtTilesCount->text(), QString("-4"));
      QVERIFY(!F.btnOk->isEnabled());
      QCOMPARE(F.edtCacheDir->text(), Rig.Dir.path());
    });
  }

  // A full run, a run cancelled from the dialog, and a run into a folder
  // that does not exist; each ends with the dialog accepted.
  void DialogRuns()
  {
    TDialogRig Rig;
    TfrmBuildCache& F = Rig.Form;

    QCOMPARE(Rig.Open(SmallArea, 3, FServer->Port(), [&] { F.btnOk->click(); }), int(QDialog::Accepted));
    QCOMPARE(Rig.Recorder->Messages, QStringList{"Finished building offline tile cache."});
    QVERIFY(Rig.Recorder->Questions.isEmpty());
    QCOMPARE(FServer->Requests(), SmallAreaPaths());
    QCOMPARE(ReadAll(Rig.Dir.filePath("vxcache.map")).count('\n'), 20);
    QVERIFY(QFile::exists(Rig.Dir.filePath("ArcGIS_NGW_6_4_3.teramapcache")));
    QCOMPARE(F.ProgressBar->value(), 20);
    F.edtCacheDir->setText(Rig.Dir.path() + "/");
    QTRY_COMPARE(F.lblCached->text(), QString("All of them are in the folder already; nothing to download."));

    // Escape during the run is asked about and declined, Cancel confirmed:
    // the run ends with its row, keeps the map file and says nothing.
    QTemporaryDir Second;
    Globals::CacheDir = Second.path();
    Rig.Recorder->Messages.clear();
    Rig.Recorder->QuestionAnswers = {false, true};
    FServer->ResetCounters();
    FServer->SetDelay(30);
    bool SeenRunning = false;
    QTimer User;
    User.setInterval(2);
    connect(&User, &QTimer::timeout, [&] {
      if (FServer->RequestCount() < 6)
        return;
      User.stop();
      const QCursor* Cursor = QApplication::overrideCursor();
      SeenRunning = F.Downloading && F.pnlProgress->isVisible() && !F.btnOk->isEnabled() &&
                    !F.edtCacheDir->isEnabled() && !F.SpeedButton1->isEnabled() && Cursor &&
                    Cursor->shape() == Qt::WaitCursor;
      F.reject();
      SeenRunning = SeenRunning && F.isVisible() && F.Downloading;
      F.btnCancel->click();
    });
    User.start();
    QCOMPARE(Rig.Open(SmallArea, 3, FServer->Port(), [&] { F.btnOk->click(); }), int(QDialog::Accepted));
    QVERIFY(SeenRunning);
    QCOMPARE(Rig.Recorder->Questions, QStringList({CancelQuestion, CancelQuestion}));
    QVERIFY(Rig.Recorder->Messages.isEmpty());
    QCOMPARE(FServer->Requests(), SmallAreaPaths().mid(0, 7));
    QCOMPARE(ReadAll(Second.filePath("vxcache.map")).count('\n'), 7);
    QVERIFY(!QApplication::overrideCursor());

    // A missing folder: every tile fails, both failures are told, nothing
    // is made.
    FServer->ClearRules();
    FServer->SetDefaultRule(TvxTestTileServer::TRule::Garbage());
    const QString Missing = Second.filePath("no/such/folder");
    Rig.Recorder->FileAnswers = {Missing};
    QCOMPARE(Rig.Open(SmallArea, 2, FServer->Port(), [&] {
      F.SpeedButton1->click();
      F.btnOk->click();
    }), int(QDialog::Accepted));
    QCOMPARE(Rig.Recorder->Messages.size(), 2);
    QVERIFY(Rig.Recorder->Messages[0].startsWith("Some errors were reported"));
    QVERIFY(Rig.Recorder->Messages[0].contains("no/such/folder"));
    QVERIFY(Rig.Recorder->Messages[1].contains("could not be saved"));
    QVERIFY(Rig.Recorder->Messages[1].contains("no/such/folder/vxcache.map"));
    QVERIFY(!QDir(Second.filePath("no")).exists());
  }

  void cleanupTestCase() { FServer.reset(); }
};

MAPWRIGHT_TEST_CLASS(TestCacheBuilder)
#include "tst_CacheBuilder.moc"
