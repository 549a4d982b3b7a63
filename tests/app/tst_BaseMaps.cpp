// Base maps on a real map control with its four tile layers, the offline
// rule over a cache folder, the [Servers] section and the Azure key dialog.
// Layers start hidden and shown ones use a closed loopback port, so no tile
// load leaves the machine.

#include "ArcGISMapProviderU.h"
#include "AzureMapKeyU.h"
#include "BingMapKeyU.h"
#include "BaseMapsU.h"
#include "DialogsU.h"
#include "IniFileU.h"
#include "InternetProbeU.h"
#include "TestRegistry.h"
#include "vxAzureMapImageryDataProvider.h"
#include "vxMBTilesImageryDataProvider.h"
#include "vxMapControl.h"
#include "vxMapControlOpenStreetMapImageryDataProvider.h"
#include "vxMapImageTileLayer.h"
#include "vxTestMBTiles.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace
{
const TBaseMapFlags DefaultFlags = {true, true, true, true, true, true, false, false, false};
const QString Closed = QStringLiteral("http://127.0.0.1:9");

using TOsm = TvxMapControlOpenStreetMapImageryDataProvider;
using TAzure = TvxMapControlAzureMapImageryDataProvider;

// What base maps touch of the main form.
struct TForm
{
  TvxMapControl Map;
  QWidget Panel;
  QLabel* Attribution1 = new QLabel(&Panel);
  QLabel* Attribution2 = new QLabel(&Panel);
  QMenu Menu;
  TBaseMaps::TLayers Layers{Map.Layers().Add<TvxMapImageTileLayer>(), Map.Layers().Add<TvxMapImageTileLayer>(),
                            Map.Layers().Add<TvxMapImageTileLayer>(), Map.Layers().Add<TvxMapImageTileLayer>()};
  TBaseMaps BaseMaps{Layers, &Menu, Attribution1, Attribution2};
  QString Key;
  QString Answer; // of the key dialog
  int Asked = 0;

  explicit TForm(const TServerSettings& servers = {Closed + "/[z]/[x]/[y].png", Closed, Closed, {}, {}})
  {
    Menu.addAction(QStringLiteral("test"));
    Attribution1->move(4, 13);
    Attribution2->hide();
    Panel.hide();
    for (TvxMapImageTileLayer* layer : {Layers.OpenStreetMap, Layers.ArcGIS, Layers.Azure1, Layers.Azure2})
      layer->SetVisible(false);
    BaseMaps.SetUpLayers(servers);
  }
  ~TForm() { TArcGISMapProvider::SetServerOverride(QString()); }

  int Build(int index, const TBaseMapFlags& flags, const QString& key = {}, const QString& cacheDir = {})
  {
    Key = key;
    return BaseMaps.BuildMenu(index, flags, key, cacheDir, [this](QAction* entry) {
      BaseMaps.Click(entry, Key, [this] {
        ++Asked;
        return Answer;
      });
    });
  }
  QAction* Entry(int index) { return Menu.actions().at(index); }
  TAzure* Azure(TvxMapImageTileLayer* layer) { return layer->ProviderAs<TAzure>(); }
  // The visible layers with their ArcGIS row or Azure tileset, then the attribution.
  QString Showing()
  {
    QStringList shown;
    if (Layers.ArcGIS->Visible())
      shown << "ArcGIS " + Layers.ArcGIS->ProviderAs<TArcGISMapProvider>()->CachePrefix();
    if (Layers.OpenStreetMap->Visible())
      shown << "OSM";
    for (TvxMapImageTileLayer* layer : {Layers.Azure1, Layers.Azure2})
      if (layer->Visible())
        shown << "Azure " + vxAzureMapTilesetCachePrefix(Azure(layer)->Tileset());
    if (!Panel.isHidden())
      shown << Attribution1->text() + "@" + QString::number(Attribution1->y()) +
                 (Attribution2->isHidden() ? QString() : " + " + Attribution2->text());
    return shown.join(" | ");
  }
  // One character per entry: visible "1", hidden "0"; checked "x", or "-" when hidden.
  QString Marks()
  {
    QString marks;
    for (QAction* entry : Menu.actions())
      marks += QLatin1Char(entry->isChecked() ? (entry->isVisible() ? 'x' : '-') : (entry->isVisible() ? '1' : '0'));
    return marks;
  }
};

const QString Esri = QStringLiteral("Powered by Esri@5 + Sources: Esri, HERE, USGS...");
const QString Osm = QStringLiteral("© OpenStreetMap contributors@13");
const QString AzureMaps = QStringLiteral("© Microsoft Azure Maps@13");
} // namespace

class TestBaseMaps : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void MenuAtStart()
  {
    TForm Form;
    TBaseMapFlags Flags = DefaultFlags;
    Flags[bmWorldTopo] = false;
    Flags[bmAzureHybrid] = true;
    // An unoffered start entry keeps its check mark and its map.
    QCOMPARE(Form.Build(bmWorldTopo, Flags), 2);
    QStringList Captions;
    for (QAction* Entry : Form.Menu.actions())
      Captions << Entry->text() + "=" + Entry->data().toString();
    QCOMPARE(Captions, QStringList({"World Imagery=0", "World Street Map=1", "World Topo=2", "Nat Geo World=3",
                                    "USA Topo=4", "OpenStreetMap=5", "Azure Imagery=6", "Azure Hybrid=7",
                                    "Azure Road=8"}));
    QCOMPARE(Form.Marks(), QStringLiteral("11-111010"));
    QCOMPARE(Form.Showing(), "ArcGIS WT | " + Esri);

    // Azure without a key starts on World Imagery; an Azure entry is checked
    // only when offered.
    TForm Hybrid;
    QCOMPARE(Hybrid.Build(bmAzureHybrid, Flags), 0);
    QCOMPARE(Hybrid.Marks(), QStringLiteral("1101110x0"));
    QCOMPARE(Hybrid.Showing(), "ArcGIS WI | " + Esri);
    QCOMPARE(Hybrid.Build(bmAzureHybrid, DefaultFlags), 0);
    QCOMPARE(Hybrid.BaseMaps.CheckedIndex(), -1);

    // Only an Azure start with a key gives the Azure layers the cache folder.
    QTemporaryDir Cache;
    TForm Road;
    QCOMPARE(Road.Build(bmAzureRoad, DefaultFlags, "k1", Cache.path()), 8);
    QCOMPARE(Road.Showing(), "Azure Road | " + AzureMaps);
    for (TvxMapImageTileLayer* Layer : {Road.Layers.OpenStreetMap, Road.Layers.ArcGIS, Road.Layers.Azure1, Road.Layers.Azure2})
      QCOMPARE(Layer->Provider()->CacheOptions().DiskFolder(), Cache.path());

    // A broken index shows no map and fails nothing.
    for (int Index : {-1, 12})
    {
      TForm Broken;
      QCOMPARE(Broken.Build(Index, DefaultFlags), Index);
      QCOMPARE(Broken.Showing(), QString());
      QCOMPARE(Broken.Marks(), QStringLiteral("111111000"));
    }
  }

  void Clicks()
  {
    TForm Form;
    TBaseMapFlags Flags;
    Flags.fill(true);
    Form.Build(bmWorldImagery, Flags);
    Form.Entry(bmOpenStreetMap)->trigger();
    QCOMPARE(Form.Showing(), "OSM | " + Osm);

    // No key given: only the check mark moves.
    Form.Entry(bmAzureHybrid)->trigger();
    QCOMPARE(Form.Asked, 1);
    QCOMPARE(Form.Marks(), QStringLiteral("1111111x1"));
    QCOMPARE(Form.Showing(), "OSM | " + Osm);

    Form.Answer = QStringLiteral("key-1");
    Form.Entry(bmAzureHybrid)->trigger();
    QCOMPARE(Form.Key, QStringLiteral("key-1"));
    QCOMPARE(Form.Azure(Form.Layers.Azure1)->AzureKey(), QStringLiteral("key-1"));
    QCOMPARE(Form.Showing(), "Azure Satellite | Azure HybridRoad | " + AzureMaps);
    Form.Entry(bmAzureRoad)->trigger();
    QCOMPARE(Form.Asked, 2);
    QCOMPARE(Form.Showing(), "Azure Road | " + AzureMaps);
    Form.Entry(bmUSATopo)->trigger();
    QCOMPARE(Form.Showing(), "ArcGIS UT | " + Esri);
    QCOMPARE(Form.Marks(), QStringLiteral("1111x1111"));
  }

  void OfflineMenu()
  {
    QTemporaryDir Cache;
    QVERIFY(QFile(Cache.filePath("ArcGIS_WT_1_2_3.teramapcache")).open(QIODevice::WriteOnly));
    QVERIFY(QFile(Cache.filePath("ArcGIS_NGW_1_2_3.teramapcache")).open(QIODevice::WriteOnly));
    QVERIFY(QDir(Cache.path()).mkdir("ArcGIS_WI_1_2_3.teramapcache"));
    QVERIFY(FindCachedFiles(Cache.path(), "arcgis_w?_*.TERAMAPCACHE"));
    QVERIFY(!FindCachedFiles(Cache.path(), "ArcGIS_WI*"));
    QVERIFY(!FindCachedFiles(Cache.path(), "ArcGIS_WT"));

    // Only hidden, never shown: Nat Geo is cached but not offered. The map
    // on screen stays.
    TForm Form;
    TBaseMapFlags Flags = DefaultFlags;
    Flags[bmNatGeo] = false;
    Form.Build(bmWorldImagery, Flags, {}, Cache.path());
    Form.BaseMaps.SetCachedBaseMapsOnly(Flags, Cache.path());
    QCOMPARE(Form.Marks(), QStringLiteral("-01000000"));
    QCOMPARE(Form.BaseMaps.FirstVisibleEntry(), Form.Entry(bmWorldTopo));
    QCOMPARE(Form.Showing(), "ArcGIS WI | " + Esri);

    // An offered Azure map without tiles is looked up past the end of the
    // menu, after the rows before it were done.
    for (int Row : {bmAzureImagery, bmAzureRoad})
    {
      Flags = DefaultFlags;
      Flags[size_t(Row)] = true;
      Form.Build(bmWorldImagery, Flags);
      QString Error;
      try
      {
        Form.BaseMaps.SetCachedBaseMapsOnly(Flags, Cache.path());
      }
      catch (const EListError& E)
      {
        Error = QString::fromLatin1(E.what());
      }
      QCOMPARE(Error, QStringLiteral("List index out of bounds (%1)").arg(Row + 3));
      QCOMPARE(Form.Marks().left(Row + 1), "-01100" + QString(Row - 6, '0') + "1");
    }
  }

  void Servers()
  {
    QTemporaryDir Dir;
    auto Read = [&Dir](const QByteArray& text) {
      QFile File(Dir.filePath("settings.ini"));
      if (File.open(QIODevice::WriteOnly))
        File.write(text);
      File.close();
      return TServerSettings::Read(TIniFile(File.fileName()));
    };

    TServerSettings Public = Read("[Startup]\nBaseMapIdx=0\n");
    QCOMPARE(Public.ProbeTargets(), InternetProbe::DefaultTargets());
    TServerSettings Site = Read("[Servers]\nOpenStreetMapUrl=http://tiles.local/[z]/[x]/[y].png\n"
                                "ArcGISServer=HTTP://arcgis.local:8080/\nAzureMapsServer=https://azure.local\n"
                                "ProbeUrl2=http://probe.local/\n");
    QCOMPARE(Site.ProbeTargets(), QStringList({"http://probe.local/"}));
    for (bool Own : {false, true})
    {
      TForm Form(Own ? Site : Public);
      auto* Street = Form.Layers.OpenStreetMap->ProviderAs<TOsm>();
      QCOMPARE(Street->UrlTemplate(), Own ? Site.OpenStreetMapUrl : "https://[subdomain].tile.openstreetmap.org/[z]/[x]/[y].png");
      QCOMPARE(Street->Subdomains(), QStringList({"a", "b", "c"}));
      QCOMPARE(Form.Layers.ArcGIS->ProviderAs<TArcGISMapProvider>()->URL(),
               (Own ? "HTTP://arcgis.local:8080" : "https://services.arcgisonline.com") + QStringLiteral("/ArcGIS/rest/services/World_Imagery/MapServer/tile/"));
      QCOMPARE(Form.Azure(Form.Layers.Azure1)->Server(), Own ? "https://azure.local" : "https://atlas.microsoft.com");
    }

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("ArcGISServer ignored"));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("ProbeUrl1 ignored"));
    TServerSettings Junk = Read("[Servers]\nArcGISServer=arcgis.local\nProbeUrl1=ftp://probe.local\n"
                                "ProbeUrl2=https://probe.local\n");
    QCOMPARE(Junk.ArcGISServer, QString());
    QCOMPARE(Junk.ProbeTargets(), QStringList({"https://probe.local"}));
  }

  // An MBTiles file behind the OpenStreetMap entry: named relative to the
  // INI's folder with either slash, credited by the file (else by its
  // name), offered offline while the file is there.
  void SiteFile()
  {
    QTemporaryDir Dir, Cache;
    QVERIFY(QDir(Dir.path()).mkdir("maps"));
    const QString Site = Dir.filePath("maps/site.mbtiles");
    {
      QImage Tile(256, 256, QImage::Format_RGB32);
      Tile.fill(Qt::darkGreen);
      QByteArray Png;
      QBuffer Buffer(&Png);
      Buffer.open(QIODevice::WriteOnly);
      Tile.save(&Buffer, "PNG");
      TvxTestMBTiles File(Site);
      File.SetMetadata("attribution", "<a href='https://example.org'>&copy; Example Site</a>");
      QVERIFY2(File.AddTile(1, 0, 0, Png), qPrintable(File.Error()));
    }
    auto Read = [&Dir](const QByteArray& text) {
      QFile File(Dir.filePath("Mapwright.ini"));
      if (File.open(QIODevice::WriteOnly))
        File.write(text);
      File.close();
      return TServerSettings::Read(TIniFile(File.fileName()));
    };
    const TServerSettings Settings = Read("[Servers]\nOpenStreetMapUrl=MBTiles: maps\\site.mbtiles\n");
    QCOMPARE(Settings.OpenStreetMapFile(), Site);
    QCOMPARE(Read("[Servers]\nOpenStreetMapUrl=mbtiles:" + Site.toUtf8() + "\n").OpenStreetMapFile(), Site);
    QCOMPARE(Read("[Servers]\nOpenStreetMapUrl=http://tiles.local/[z]/[x]/[y].png\n").OpenStreetMapFile(), QString());
    QTest::ignoreMessage(QtWarningMsg, "[Servers] OpenStreetMapUrl ignored: \"mbtiles:\" names no file");
    QCOMPARE(Read("[Servers]\nOpenStreetMapUrl=mbtiles:\n").OpenStreetMapUrl, QString());

    {
      TForm Form(Settings);
      QVERIFY(Form.Layers.OpenStreetMap->ProviderAs<TvxMBTilesImageryDataProvider>()->IsUsable());
      Form.Build(bmWorldImagery, DefaultFlags, {}, Cache.path());
      Form.Entry(bmOpenStreetMap)->trigger();
      QCOMPARE(Form.Showing(), QStringLiteral("OSM | © Example Site@13"));
      Form.BaseMaps.SetCachedBaseMapsOnly(DefaultFlags, Cache.path());
      QCOMPARE(Form.Marks(), QStringLiteral("00000x000"));
    }

    // A credit too long for one line goes over two.
    {
      TvxTestMBTiles File(Site);
      File.SetMetadata("attribution", "© OpenStreetMap contributors, ODbL; NASA Blue Marble");
    }
    {
      TForm Form(Settings);
      Form.Build(bmOpenStreetMap, DefaultFlags, {}, Cache.path());
      const QString Long = QStringLiteral("© OpenStreetMap contributors, ODbL; NASA Blue Marble");
      // As the window has them.
      QFont Small = Form.Attribution1->font();
      Small.setPixelSize(11);
      for (QLabel* Label : {Form.Attribution1, Form.Attribution2})
      {
        Label->setFont(Small);
        Label->setFixedWidth(189);
      }
      Form.Entry(bmWorldImagery)->trigger();
      Form.Entry(bmOpenStreetMap)->trigger();
      QCOMPARE(Form.Attribution1->y(), 5);
      QVERIFY(!Form.Attribution2->isHidden());
      QCOMPARE(Form.Attribution1->text() + " " + Form.Attribution2->text(), Long);
      QVERIFY(Form.Attribution1->fontMetrics().horizontalAdvance(Form.Attribution1->text()) <= 189);
      QCOMPARE(Form.Attribution2->toolTip(), Long);
    }

    // A file that is not there warns once, draws nothing, is credited by
    // its name and is not offered offline.
    QVERIFY(QFile::remove(Site));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^MBTiles file \".*/maps/site.mbtiles\" was not found$"));
    TForm Missing(Settings);
    Missing.Build(bmOpenStreetMap, DefaultFlags, {}, Cache.path());
    QCOMPARE(Missing.Showing(), QStringLiteral("OSM | site.mbtiles@13"));
    QVERIFY(!Missing.Layers.OpenStreetMap->Provider()->TileSource());
    Missing.BaseMaps.SetCachedBaseMapsOnly(DefaultFlags, Cache.path());
    QCOMPARE(Missing.Marks(), QStringLiteral("00000-000"));
    QVERIFY(Missing.BaseMaps.BaseMapFileProblem().endsWith("was not found"));
  }

  // OK needs a key, Cancel gives none, and the edit keeps its text.
  void AzureKeyDialog()
  {
    auto Owned = std::make_unique<TRecordingDialogs>();
    TRecordingDialogs& Seam = *Owned;
    Dialogs::Set(std::move(Owned));
    TAzureMapsKeyDialog Dialog;
    QList<bool> OkAtShow;
    auto User = [&OkAtShow](const QString& typed, bool ok) {
      return [&OkAtShow, typed, ok](QDialog& D) {
        auto& Key = static_cast<TAzureMapsKeyDialog&>(D);
        Key.show();
        OkAtShow << Key.btnOk->isEnabled();
        QTest::keyClicks(Key.edtMapKey, typed);
        QTest::mouseClick(ok ? Key.btnOk : Key.btnCancel, Qt::LeftButton);
        return Key.result();
      };
    };
    Seam.OnExecute = User("abc", true);
    QCOMPARE(AskAzureMapsKey(Dialog), QStringLiteral("abc"));
    Seam.OnExecute = User({}, false);
    QCOMPARE(AskAzureMapsKey(Dialog), QString());
    QCOMPARE(Dialog.edtMapKey->text(), QStringLiteral("abc"));
    QCOMPARE(OkAtShow, QList<bool>({false, true}));
    QCOMPARE(Seam.Executed, QStringList({"Azure Map Key", "Azure Map Key"}));

    // The kept Bing dialog: its own field, and a link that shows its address.
    TBingMapsKeyDialog Bing;
    QStringList Opened;
    Bing.OnOpenUrl = [&Opened](const QString& Url) { Opened << Url; };
    Bing.show();
    QVERIFY(!Bing.btnOk->isEnabled());
    QTest::keyClicks(Bing.edtMapKey, "xyz");
    QTest::mouseClick(Bing.lblBingLink, Qt::LeftButton);
    QTest::mouseClick(Bing.btnOk, Qt::LeftButton);
    QCOMPARE(Bing.bingMapKey, QStringLiteral("xyz"));
    QCOMPARE(Bing.result(), int(QDialog::Accepted));
    QCOMPARE(Opened, QStringList({Bing.lblBingLink->text()}));
    QVERIFY(Bing.lblBingLink->text().startsWith("https://"));
    QCOMPARE(Dialog.AzureMapKey, QString());
  }

  void cleanup() { Dialogs::Set(nullptr); }
};

MAPWRIGHT_TEST_CLASS(TestBaseMaps)
#include "tst_BaseMaps.moc"
