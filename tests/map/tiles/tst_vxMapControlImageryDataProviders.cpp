#include "TestRegistry.h"
#include "vxAzureMapImageryDataProvider.h"
#include "vxMapControlOpenStreetMapImageryDataProvider.h"
#include "vxMapImageTileLayer.h"

#include <QTest>
#include <QThread>

namespace
{

template <class TProvider>
std::unique_ptr<TProvider> MakeProvider()
{
  std::unique_ptr<TvxMapControlImageTileProvider> Provider = vxCreateImageTileProvider<TProvider>(nullptr);
  return std::unique_ptr<TProvider>(static_cast<TProvider*>(Provider.release()));
}

QString Tile(TvxMapControlImageTileProvider& AProvider, int AZoomLevel, int AX, int AY)
{
  return AProvider.TileSource()->GetTileByZoomLevel(AZoomLevel, AX, AY);
}

const QString AzureTile = QStringLiteral("https://atlas.microsoft.com/map/tile?api-version=2024-04-01");

} // namespace

class TestMapControlImageryDataProviders : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // The subdomain turns over a, b, c from b on; each placeholder is replaced
  // once, by exact case; a template or a list without subdomains still works.
  void OpenStreetMapTemplate()
  {
    auto Provider = MakeProvider<TvxMapControlOpenStreetMapImageryDataProvider>();
    int Changes = 0;
    Provider->OnChanged = [&Changes] { ++Changes; };
    QCOMPARE(Tile(*Provider, 5, 9, 12), QStringLiteral("https://b.tile.openstreetmap.org/5/9/12.png"));
    QCOMPARE(Tile(*Provider, 5, 9, 12), QStringLiteral("https://c.tile.openstreetmap.org/5/9/12.png"));
    QCOMPARE(Tile(*Provider, 5, 9, 12), QStringLiteral("https://a.tile.openstreetmap.org/5/9/12.png"));
    QCOMPARE(Provider->TileSource()->TilePrefix(), QStringLiteral("openstreet"));

    Provider->SetUrlTemplate(QStringLiteral("http://h/[z]/[x]/[y]/[Z][z][x][y].png?s=[subdomain][subdomain]"));
    QCOMPARE(Changes, 1);
    // A new source: its rotation starts again.
    QCOMPARE(Tile(*Provider, 5, 9, 12), QStringLiteral("http://h/5/9/12/[Z][z][x][y].png?s=b[subdomain]"));
    Provider->SetUrlTemplate(Provider->UrlTemplate());
    QCOMPARE(Changes, 1);

    Provider->SetSubdomains({});
    QCOMPARE(Changes, 2);
    QCOMPARE(Tile(*Provider, 1, 0, 1), QStringLiteral("http://h/1/0/1/[Z][z][x][y].png?s=[subdomain]"));

    Provider->SetSubdomains({QStringLiteral("[z]")});
    Provider->SetUrlTemplate(QStringLiteral("http://h/[z]/[x]/[y]"));
    QCOMPARE(Tile(*Provider, 7, 3, 4), QStringLiteral("http://h/7/3/4"));
  }

  // Both public services share the world's geometry: 256-pixel tiles to
  // level 19, a linear size below level 1.
  void WorldSizes()
  {
    auto OpenStreetMap = MakeProvider<TvxMapControlOpenStreetMapImageryDataProvider>();
    auto Azure = MakeProvider<TvxMapControlAzureMapImageryDataProvider>();
    Azure->SetAzureKey(QStringLiteral("key"));
    for (TvxMapControlImageTileProvider* Provider : {static_cast<TvxMapControlImageTileProvider*>(OpenStreetMap.get()),
                                                     static_cast<TvxMapControlImageTileProvider*>(Azure.get())})
    {
      QCOMPARE(Provider->TileSource()->ImageWidth(), Q_INT64_C(134217728));
      QCOMPARE(Provider->TileSource()->ImageHeight(), Q_INT64_C(134217728));
      QCOMPARE(Provider->TileSource()->TileSize(), QSize(256, 256));
      QCOMPARE(Provider->TileSource()->MaxZoomLevel(), 19);
      QCOMPARE(Provider->ScaleFactor(), 1.0);
      QCOMPARE(Provider->GetMapSizeInPixels(0.5), vxSizeDouble(128, 128));
      QCOMPARE(Provider->GetMapSizeInPixels(1), vxSizeDouble(512, 512));
      QCOMPARE(Provider->GetMapSizeInPixels(3), vxSizeDouble(2048, 2048));
    }
  }

  void ConnectionCounts()
  {
    auto OpenStreetMap = MakeProvider<TvxMapControlOpenStreetMapImageryDataProvider>();
    QCOMPARE(OpenStreetMap->MaxParallelConnectionCount(), 2);
    OpenStreetMap->SetMaxParallelConnectionCount(0);
    QCOMPARE(OpenStreetMap->MaxParallelConnectionCount(), 1);
    OpenStreetMap->SetMaxParallelConnectionCount(31);
    QCOMPARE(OpenStreetMap->MaxParallelConnectionCount(), 30);
    auto Azure = MakeProvider<TvxMapControlAzureMapImageryDataProvider>();
    QCOMPARE(Azure->MaxParallelConnectionCount(), qBound(1, 2 * QThread::idealThreadCount(), 30));
  }

  // Parameters keep the order they were first set in; names and values are
  // percent-encoded so that '+', '&' and '=' stay data.
  void AzureQueryAndUrlText()
  {
    TvxAzureMapTileQueryParams Params;
    QCOMPARE(Params.ZoomLevel(), 1);
    QCOMPARE(Params.TileSize(), 256);
    QCOMPARE(Params.LocalizedMapView(), TvxAzureMapLocalizedMapView::Auto);
    QVERIFY(!Params.UTCTimeStamp().isValid());
    Params.SetXCoord(3);
    Params.SetParam(QStringLiteral("a+b&c=d"), QStringLiteral("1 2+3&4/ä"));
    Params.SetLocalizedMapView(TvxAzureMapLocalizedMapView::IN);
    Params.SetXCoord(4);
    Params.SetParam(QStringLiteral("zoom"), QStringLiteral("deep"));
    QCOMPARE(Params.XCoord(), 4);
    QCOMPARE(Params.ZoomLevel(), 1);
    QCOMPARE(Params.LocalizedMapView(), TvxAzureMapLocalizedMapView::IN);

    // Taken as UTC whatever the value's zone says.
    Params.SetUTCTimeStamp(QDateTime(QDate(2024, 5, 1), QTime(12, 30), Qt::OffsetFromUTC, 7200));
    QCOMPARE(Params.GetParam(QStringLiteral("timeStamp")), QStringLiteral("2024-05-01T12:30:00.000Z"));
    QCOMPARE(Params.UTCTimeStamp(), QDateTime(QDate(2024, 5, 1), QTime(12, 30), Qt::UTC));

    TvxAzureMapApiUrl Url;
    Url.Scheme = QStringLiteral("http");
    Url.Host = QStringLiteral("127.0.0.1");
    Url.Port = 8080;
    Url.Path = QStringLiteral("/map/tile");
    Url.Params = Params;
    QCOMPARE(Url.Text(), QStringLiteral("http://127.0.0.1:8080/map/tile?x=4&a%2Bb%26c%3Dd=1%202%2B3%264%2F%C3%A4"
                                        "&view=IN&zoom=deep&timeStamp=2024-05-01T12%3A30%3A00.000Z"));
  }

  // What the provider sends: view only when not Auto, language and time only
  // when set, never the tile size; zoom, x and y last, replaced per tile.
  void AzureTileUrls()
  {
    auto Provider = MakeProvider<TvxMapControlAzureMapImageryDataProvider>();
    int Changes = 0;
    Provider->OnChanged = [&Changes] { ++Changes; };
    QVERIFY(!Provider->TileSource());
    Provider->SetAzureKey(QStringLiteral("k+y&z"));
    QCOMPARE(Changes, 1);
    QVERIFY(Provider->TileSource());
    QCOMPARE(Provider->TileSource()->TilePrefix(), QStringLiteral("azure_Road"));
    QCOMPARE(Tile(*Provider, 5, 9, 12),
             AzureTile + QStringLiteral("&subscription-key=k%2By%26z&tilesetId=microsoft.base.road&zoom=5&x=9&y=12"));
    QCOMPARE(Tile(*Provider, 6, 1, 2),
             AzureTile + QStringLiteral("&subscription-key=k%2By%26z&tilesetId=microsoft.base.road&zoom=6&x=1&y=2"));

    // Batched: one rebuild, one notification.
    Provider->BeginUpdate();
    Provider->SetLocalizedMapView(TvxAzureMapLocalizedMapView::Unified);
    Provider->SetTileset(TvxAzureMapTileset::Satellite);
    Provider->SetLanguage(QStringLiteral("en-US"));
    Provider->SetUTCTimeStamp(QDateTime(QDate(2024, 5, 1), QTime(23, 59, 58, 7), Qt::UTC));
    QCOMPARE(Changes, 1);
    QCOMPARE(Provider->TileSource()->TilePrefix(), QStringLiteral("azure_Road"));
    Provider->EndUpdate();
    QCOMPARE(Changes, 2);
    QCOMPARE(Provider->TileSource()->TilePrefix(), QStringLiteral("azure_Satellite"));
    QCOMPARE(Tile(*Provider, 3, 0, 7),
             AzureTile + QStringLiteral("&subscription-key=k%2By%26z&view=Unified&tilesetId=microsoft.imagery"
                                        "&language=en-US&timeStamp=2024-05-01T23%3A59%3A58.007Z&zoom=3&x=0&y=7"));
    Provider->BeginUpdate();
    Provider->SetTileset(TvxAzureMapTileset::Satellite);
    Provider->EndUpdate();
    QCOMPARE(Changes, 2);

    Provider->SetTileset(TvxAzureMapTileset::WeatherInfrared);
    QCOMPARE(Provider->TileSource()->TilePrefix(), QStringLiteral("azure_WeatherInfrared"));
    Provider->SetServer(QStringLiteral("http://tiles.example.test:8080"));
    QVERIFY(Tile(*Provider, 1, 0, 0).startsWith(QStringLiteral("http://tiles.example.test:8080/map/tile?api-version=")));
    Provider->SetServer(QString());
    QCOMPARE(Provider->Server(), QStringLiteral("https://atlas.microsoft.com"));
    Provider->SetAzureKey(QString());
    QVERIFY(!Provider->TileSource());
    QCOMPARE(Changes, 6);
  }

  // The names a settings file refers to, and a layer with no key: no source,
  // so nothing to paint or request, until the key comes.
  void RegistryAndLayer()
  {
    TvxMapControlImageryDataProviders& Registry = vxMapControlImageryDataProviders();
    QVERIFY(Registry.FindClass(QStringLiteral("OpenStreetMapImageryDataProvider")) ==
            vxImageTileProviderClass<TvxMapControlOpenStreetMapImageryDataProvider>());
    QCOMPARE(Registry.FindName(vxImageTileProviderClass<TvxMapControlAzureMapImageryDataProvider>()),
             QStringLiteral("AzureMapImageryDataProvider"));

    TvxMapImageTileLayer Layer;
    QVERIFY(Layer.SetProviderClassName(QStringLiteral("AzureMapImageryDataProvider")));
    auto* Azure = Layer.ProviderAs<TvxMapControlAzureMapImageryDataProvider>();
    QVERIFY(Azure);
    QVERIFY(!Layer.MultiScaleImage().Source());
    Azure->SetAzureKey(QStringLiteral("key"));
    QVERIFY(Azure->TileSource());
    QCOMPARE(Layer.MultiScaleImage().Source(), Azure->TileSource());
  }
};

MAPWRIGHT_TEST_CLASS(TestMapControlImageryDataProviders)
#include "tst_vxMapControlImageryDataProviders.moc"
