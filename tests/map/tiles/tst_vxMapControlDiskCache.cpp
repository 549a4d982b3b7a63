#include "ClockU.h"
#include "TestRegistry.h"
#include "vxMapControlCacheOptions.h"
#include "vxMapControlDiskCache.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

namespace
{

QByteArray ReadAll(const QString& AFileName)
{
  QFile File(AFileName);
  return File.open(QIODevice::ReadOnly) ? File.readAll() : QByteArray();
}

void WriteAll(const QString& AFileName, const QByteArray& AData)
{
  QFile File(AFileName);
  if (!File.open(QIODevice::WriteOnly) || File.write(AData) != AData.size())
    qFatal("cannot write %s", qPrintable(AFileName));
}

// Installs a clock that stands still for the test's lifetime.
struct TClockScope
{
  TManualClock* Clock;
  explicit TClockScope(const QDateTime& ANow)
  {
    auto Manual = std::make_unique<TManualClock>(ANow);
    Clock = Manual.get();
    ::Clock::Set(std::move(Manual));
  }
  ~TClockScope() { ::Clock::Set(nullptr); }
};

} // namespace

class TestMapControlDiskCache : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // The options' rules: a memory limit of at least 1, notifications only on
  // a change, except the folder, which always notifies.
  void CacheOptions()
  {
    TvxMapControlCacheOptions Options;
    int Changes = 0;
    Options.OnChanged = [&Changes](TvxMapControlCacheOptions*) { ++Changes; };
    QCOMPARE(Options.MemoryLimit(), 128);
    QCOMPARE(Options.DiskLimit(), -1);
    Options.SetMemoryLimit(0);
    QCOMPARE(Options.MemoryLimit(), 1);
    Options.SetMemoryLimit(-5);
    Options.SetDiskLimit(-1);
    Options.SetDiskExpireTime(0);
    QCOMPARE(Changes, 1);
    Options.SetDiskFolder(QString());
    Options.SetDiskFolder(QString());
    QCOMPARE(Changes, 3);
  }

  // Names, times and sizes in the map file exactly as the format has them,
  // newest push first; a second cache over the folder reads them back.
  void RoundTripAndMapFileBytes()
  {
    QTemporaryDir Dir;
    const QDateTime Noon(QDate(2024, 1, 31), QTime(12, 0));
    TClockScope Clock(Noon);
    QCOMPARE(vxDateTimeToDays(Noon), 45322.5);
    QCOMPARE(vxDaysToDateTime(45322.5), Noon);
    {
      TvxMapControlDiskCache Cache(Dir.path() + QStringLiteral("/tiles"), -1, 0);
      Cache.Push("first", {19, 11, 5}, QStringLiteral("openstreet"));
      Clock.Clock->Advance(1000);
      Cache.Push("second!", {0, 1, 2}, QStringLiteral("arcgis"));
      QCOMPARE(Cache.CacheMap().Size(), 12);
    }
    const QString Root = Dir.path() + QStringLiteral("/tiles/");
    QCOMPARE(ReadAll(Root + QStringLiteral("openstreet_19_11_5.teramapcache")), QByteArray("first"));
    QCOMPARE(ReadAll(Root + QStringLiteral("vxcache.map")),
      QByteArray("arcgis_0_1_2.teramapcache:45322.5000115741:7\n"
                 "openstreet_19_11_5.teramapcache:45322.5:5\n"));

    TvxMapControlDiskCache Again(Dir.path() + QStringLiteral("/tiles/"), -1, 0);
    QVERIFY(Again.LocatedAt(Dir.path() + QStringLiteral("/tiles")));
    QCOMPARE(Again.CacheMap().Size(), 12);
    QString FileName;
    QVERIFY(Again.TryRetrieveFileName({19, 11, 5}, QStringLiteral("OpenStreet"), FileName));
    QCOMPARE(FileName, Root + QStringLiteral("openstreet_19_11_5.teramapcache"));
    QVERIFY(Again.TryRetrieveFileName({0, 1, 2}, QStringLiteral("arcgis"), FileName));
    // A file the map does not list is not used.
    WriteAll(Root + QStringLiteral("arcgis_9_9_9.teramapcache"), "stray");
    QVERIFY(!Again.TryRetrieveFileName({9, 9, 9}, QStringLiteral("arcgis"), FileName));
    QVERIFY(FileName.isEmpty());
    // A re-push adds a second line rather than replacing the first.
    Again.Push("third", {0, 1, 2}, QStringLiteral("arcgis"));
    QCOMPARE(ReadAll(Again.MapFileName()).count("arcgis_0_1_2"), 2);
  }

  // Eviction takes the oldest pushes until the folder is below its limit,
  // before the new file counts, whatever was used since; expiry deletes a
  // file by its age; a file deleted by hand drops out of the map.
  void EvictionExpiryAndLostFiles()
  {
    QTemporaryDir Dir;
    TClockScope Clock(QDateTime::currentDateTime());
    TvxMapControlDiskCache Cache(Dir.path(), 1, 0);
    const QByteArray Tile(400000, 'x');
    for (int X = 0; X < 3; ++X)
      Cache.Push(Tile, {X, 0, 3}, QStringLiteral("t"));
    QString FileName;
    QVERIFY(Cache.TryRetrieveFileName({0, 0, 3}, QStringLiteral("t"), FileName));
    // 1,200,000 bytes are over 1 MiB: the first push goes although just used.
    Cache.Push(Tile, {3, 0, 3}, QStringLiteral("t"));
    QVERIFY(!QFileInfo::exists(Dir.filePath(QStringLiteral("t_0_0_3.teramapcache"))));
    QVERIFY(!Cache.TryRetrieveFileName({0, 0, 3}, QStringLiteral("t"), FileName));
    QVERIFY(Cache.TryRetrieveFileName({1, 0, 3}, QStringLiteral("t"), FileName));
    QCOMPARE(Cache.CacheMap().Size(), 1200000);
    QCOMPARE(Cache.CacheMap().Count(), 3);

    // Deleted by hand: the item goes; the next push writes the map without it.
    QFile::remove(Dir.filePath(QStringLiteral("t_2_0_3.teramapcache")));
    QVERIFY(!Cache.TryRetrieveFileName({2, 0, 3}, QStringLiteral("t"), FileName));
    QCOMPARE(Cache.CacheMap().Size(), 800000);

    // A burst of pushes writes the map once, at the first; the rest follow
    // on the next flush.
    QCOMPARE(ReadAll(Cache.MapFileName()).count('\n'), 1);
    Cache.FlushMap();
    QCOMPARE(ReadAll(Cache.MapFileName()).count('\n'), 2);

    TvxMapControlDiskCache Expiring(Dir.path(), -1, 60000);
    QVERIFY(Expiring.TryRetrieveFileName({1, 0, 3}, QStringLiteral("t"), FileName));
    Clock.Clock->Advance(61000);
    QVERIFY(!Expiring.TryRetrieveFileName({1, 0, 3}, QStringLiteral("t"), FileName));
    QVERIFY(!QFileInfo::exists(Dir.filePath(QStringLiteral("t_1_0_3.teramapcache"))));

    // No limit: nothing is ever evicted.
    TvxMapControlDiskCache Unlimited(Dir.filePath(QStringLiteral("u")), -1, 0);
    for (int X = 0; X < 4; ++X)
      Unlimited.Push(Tile, {X, 0, 3}, QStringLiteral("u"));
    QCOMPARE(Unlimited.CacheMap().Size(), 1600000);
  }

  // Two caches over one folder, and the offline cache builder writing the
  // map file beside them: each flush keeps the others' lines whose tiles
  // are there, so no tile falls out of the map.
  void OtherWritersKeepTheirLines()
  {
    QTemporaryDir Dir;
    const QString Root = Dir.path() + QLatin1Char('/');
    TClockScope Clock(QDateTime(QDate(2024, 1, 31), QTime(12, 0)));
    TvxMapControlDiskCache Street(Dir.path(), -1, 0);
    TvxMapControlDiskCache Imagery(Dir.path(), -1, 0);
    Street.Push("street", {0, 0, 1}, QStringLiteral("osm"));
    Imagery.Push("imagery", {1, 1, 2}, QStringLiteral("arcgis"));

    // The builder's run: a tile file and its line, one line broken and one
    // for a file that is not there.
    QByteArray Map = ReadAll(Street.MapFileName());
    QVERIFY(Map.contains("osm_0_0_1") && Map.contains("arcgis_1_1_2"));
    WriteAll(Root + QStringLiteral("ArcGIS_NGW_5_6_7.teramapcache"), "built");
    Map += "ArcGIS_NGW_5_6_7.teramapcache:45322.4:5\nbroken\nArcGIS_NGW_9_9_9.teramapcache:45322.4:5\n";
    WriteAll(Street.MapFileName(), Map);

    Clock.Clock->Advance(2000);
    Street.Push("street2", {1, 0, 1}, QStringLiteral("osm"));
    Street.FlushMap();
    const QByteArray After = ReadAll(Street.MapFileName());
    for (const char* Name : {"osm_0_0_1", "osm_1_0_1", "arcgis_1_1_2", "ArcGIS_NGW_5_6_7"})
      QVERIFY2(After.contains(Name), Name);
    QVERIFY(!After.contains("ArcGIS_NGW_9_9_9") && !After.contains("broken"));
    QCOMPARE(After.count('\n'), 4);
    QString FileName;
    QVERIFY(Street.TryRetrieveFileName({5, 6, 7}, QStringLiteral("ArcGIS_NGW"), FileName));

    // Nothing to write: the file is left as it is.
    Street.FlushMap();
    QCOMPARE(ReadAll(Street.MapFileName()), After);
  }

  // The map keeps tile names as numbers and a shared prefix, and other
  // names whole: every kind comes back byte for byte, lookups ignore case,
  // and a name pushed twice shows its newest item until that goes. Random
  // pushes and removals against a plain list catch a lookup table that
  // loses entries when others leave it.
  void CompactMapAgreesWithPlainList()
  {
    QTemporaryDir Dir;
    TClockScope Clock(QDateTime(QDate(2024, 1, 31), QTime(12, 0)));
    const QByteArray Lines = "osm_1_2_3.teramapcache:45322.25:10\n"
                             "ArcGIS_NGW_5_6_7.teramapcache:45322.125:20\n"
                             "t_01_2_3.teramapcache:1:1\n"
                             "t_-1_2_3.teramapcache:1:2\n"
                             "t_1_2_-3.teramapcache:1:3\n"
                             "t_1_2_3.TERAMAPCACHE:1:4\n"
                             "t_99999999999_2_3.teramapcache:1:5\n"
                             "_1_2_3.teramapcache:1:6\n"
                             "plain name:1e-05:7\n"
                             ":0:8\n"
                             "OSM_1_2_3.teramapcache:45000:9\n";
    WriteAll(Dir.filePath(QStringLiteral("vxcache.map")), Lines);
    {
      TvxMapControlDiskCache Cache(Dir.path(), -1, 0);
      TvxMapControlDiskCacheMap& Map = Cache.CacheMap();
      QCOMPARE(Map.Count(), 11);
      QCOMPARE(Map.Size(), 75);
      // The first of two lines of a name is its newest; case plays no part.
      const auto Osm = Map.GetItem(QStringLiteral("OSM_1_2_3.TeraMapCache"));
      QCOMPARE(Map.Name(Osm), QStringLiteral("osm_1_2_3.teramapcache"));
      QCOMPARE(Map.ItemTime(Osm), 45322.25);
      QCOMPARE(Map.Name(Map.GetItem(QStringLiteral("t_1_2_3.teramapcache"))), QStringLiteral("t_1_2_3.TERAMAPCACHE"));
      QCOMPARE(Map.ItemSize(Map.GetItem(QStringLiteral("plain NAME"))), 7);
      QCOMPARE(Map.GetItem(QStringLiteral("t_1_2_3")), TvxMapControlDiskCacheMap::NoItem);
      Map.RemoveItem(Osm);
      QCOMPARE(Map.ItemSize(Map.GetItem(QStringLiteral("osm_1_2_3.teramapcache"))), 9);
      Map.SaveToFile(Cache.MapFileName());
    }
    QCOMPARE(ReadAll(Dir.filePath(QStringLiteral("vxcache.map"))), Lines.mid(Lines.indexOf('\n') + 1));

    TvxMapControlDiskCacheMap Map(nullptr);
    std::vector<std::pair<QString, qint32>> Plain; // newest first
    QRandomGenerator Random(7);
    for (int Step = 0; Step < 20000; ++Step)
    {
      const int Kind = Random.bounded(10);
      const QString Name = Kind == 0 ? QStringLiteral("Odd name %1").arg(Random.bounded(300))
                                     : vxMapControlTileFileName({int(Random.bounded(40)), int(Random.bounded(40)), 9},
                                                                Kind < 5 ? QStringLiteral("a") : QStringLiteral("B_b"));
      if (Random.bounded(3) == 0 && !Plain.empty())
      {
        const size_t Index = Random.bounded(quint32(Plain.size()));
        const QString Gone = Plain[Index].first;
        // The map's newest of the name is the plain list's first of it.
        const auto First = std::find_if(Plain.begin(), Plain.end(), [&](const auto& P) { return P.first == Gone; });
        QCOMPARE(Map.ItemSize(Map.GetItem(Gone.toUpper())), First->second);
        Map.RemoveItem(Map.GetItem(Gone));
        Plain.erase(First);
      }
      else
      {
        Map.PushItem(Name, Step);
        Plain.insert(Plain.begin(), {Name, Step});
      }
    }
    QCOMPARE(Map.Count(), int(Plain.size()));
    for (const auto& Entry : Plain)
    {
      const QString& Name = Entry.first;
      const auto First = std::find_if(Plain.begin(), Plain.end(), [&](const auto& P) { return P.first == Name; });
      QCOMPARE(Map.ItemSize(Map.GetItem(Name)), First->second);
    }
    // The oldest is the plain list's last.
    QCOMPARE(Map.ItemSize(Map.Oldest()), Plain.back().second);
  }

  // No folder: nothing written or found. A map with a broken line fails
  // with its line number; Windows line ends are read.
  void NoFolderAndBadMapFiles()
  {
    TvxMapControlDiskCache None(QString(), 1, 0);
    None.Push("x", {1, 1, 1}, QStringLiteral("p"));
    QString FileName;
    QVERIFY(!None.TryRetrieveFileName({1, 1, 1}, QStringLiteral("p"), FileName));
    QCOMPARE(None.CacheMap().Size(), 0);

    QTemporaryDir Dir;
    WriteAll(Dir.filePath(QStringLiteral("vxcache.map")), "a_1_2_3.teramapcache:45000.25:10\r\nb.teramapcache:45000:7\r\n");
    TvxMapControlDiskCache Windows(Dir.path(), -1, 0);
    QCOMPARE(Windows.CacheMap().Size(), 17);
    QCOMPARE(Windows.CacheMap().ItemTime(Windows.CacheMap().Newest()), 45000.25);

    for (const QByteArray& Bad : {QByteArray("a.teramapcache:45000\n"), QByteArray("ok:1:2\nbad:x:2\n"),
                                  QByteArray("\n"), QByteArray("a:1:2:3\n")})
    {
      WriteAll(Dir.filePath(QStringLiteral("vxcache.map")), Bad);
      try
      {
        TvxMapControlDiskCache Broken(Dir.path(), -1, 0);
        QFAIL(Bad.constData());
      }
      catch (const EvxDiskCacheError& E)
      {
        QVERIFY(QByteArray(E.what()).contains("Line "));
      }
    }
  }

  // A map line whose name is a path ("../x") made eviction delete that
  // file, wherever it was. Such a line now fails the load as any broken
  // line does (the tile source then sets the map aside), and a merge of
  // another writer's lines skips it.
  void cacheMapPathNameFinding()
  {
    QTemporaryDir Dir;
    const QString Root = Dir.filePath(QStringLiteral("cache"));
    QVERIFY(QDir().mkpath(Root + QStringLiteral("/sub")));
    const QString Outside = Dir.filePath(QStringLiteral("precious.teramapcache"));
    WriteAll(Outside, "keep");
    const QString Map = Root + QStringLiteral("/vxcache.map");
    for (const QByteArray& Name : {QByteArray("../precious.teramapcache"), QByteArray("sub/../../precious.teramapcache"),
                                   QByteArray("..\\precious.teramapcache"), QByteArray("..")})
    {
      WriteAll(Map, "a_1_1_1.teramapcache:45000:4\n" + Name + ":45000:2000000\n");
      try
      {
        TvxMapControlDiskCache Cache(Root, 1, 0);
        Cache.Push("tile", {1, 2, 3}, QStringLiteral("p"));
        QFAIL(Name.constData());
      }
      catch (const EvxDiskCacheError& E)
      {
        QVERIFY2(QByteArray(E.what()).contains("Line 2 "), E.what());
      }
    }

    QFile::remove(Map);
    TvxMapControlDiskCache Cache(Root, 1, 0);
    Cache.Push("tile", {1, 2, 3}, QStringLiteral("p"));
    WriteAll(Map, ReadAll(Map) + "../precious.teramapcache:45000:2000000\n");
    QCOMPARE(Cache.CacheMap().MergeFromFile(Map, Root + QLatin1Char('/')), 0);
    Cache.Push(QByteArray(1024, 'x'), {2, 2, 3}, QStringLiteral("p"));
    QVERIFY(QFileInfo::exists(Outside));
  }
};

MAPWRIGHT_TEST_CLASS(TestMapControlDiskCache)
#include "tst_vxMapControlDiskCache.moc"
