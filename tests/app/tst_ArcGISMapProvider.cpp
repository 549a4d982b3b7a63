#include "ArcGISMapProviderU.h"
#include "TestRegistry.h"

#include <QTest>

namespace
{

const QString Services = QStringLiteral("https://services.arcgisonline.com/ArcGIS/rest/services/");

std::unique_ptr<TArcGISMapProvider> MakeProvider()
{
  std::unique_ptr<TvxMapControlImageTileProvider> Provider = vxCreateImageTileProvider<TArcGISMapProvider>(nullptr);
  return std::unique_ptr<TArcGISMapProvider>(static_cast<TArcGISMapProvider*>(Provider.release()));
}

struct TServerOverrideScope
{
  explicit TServerOverrideScope(const QString& AServer) { TArcGISMapProvider::SetServerOverride(AServer); }
  ~TServerOverrideScope() { TArcGISMapProvider::SetServerOverride(QString()); }
};

} // namespace

class TestArcGISMapProvider : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // A new provider shows the first row; the service takes level, row, column.
  void CatalogueAndTileUrls()
  {
    auto Provider = MakeProvider();
    QStringList Names;
    for (const auto& [Name, Row] : Provider->BaseMaps())
      Names.append(Name);
    QCOMPARE(Names, QStringList({QStringLiteral("World Imagery"), QStringLiteral("World Street Map"),
                                 QStringLiteral("World Topo"), QStringLiteral("Nat Geo World"),
                                 QStringLiteral("USA Topo")}));
    QCOMPARE(Provider->BaseMaps().at(3).second->URL, Services + QStringLiteral("NatGeo_World_Map/MapServer/tile/"));

    QCOMPARE(Provider->URL(), Services + QStringLiteral("World_Imagery/MapServer/tile/"));
    QCOMPARE(ArcGISStreamServerURL, Provider->URL());
    QCOMPARE(Provider->TileSource()->TilePrefix(), QStringLiteral("ArcGIS_"));
    QCOMPARE(Provider->TileSource()->MaxZoomLevel(), 18);
    QCOMPARE(Provider->TileSource()->GetTileByZoomLevel(0, 0, 0), Provider->URL() + QStringLiteral("0/0/0"));
    QCOMPARE(Provider->TileSource()->GetTileByZoomLevel(5, 9, 12), Provider->URL() + QStringLiteral("5/12/9"));
    QCOMPARE(Provider->MaxParallelConnectionCount(), 30);
  }

  // A row's zoom limit and prefix reach the new tile source; a bad index
  // throws before anything moves.
  void ChangeBaseMap()
  {
    auto Provider = MakeProvider();
    int Changes = 0;
    Provider->OnChanged = [&Changes] { ++Changes; };
    Provider->ChangeBaseMap(4);
    QCOMPARE(Changes, 1);
    const QString UsaTopo = Services + QStringLiteral("USA_Topo_Maps/MapServer/tile/");
    QCOMPARE(Provider->URL(), UsaTopo);
    QCOMPARE(Provider->MaxZoomLevel(), 15);
    QCOMPARE(Provider->TileSource()->MaxZoomLevel(), 15);
    QCOMPARE(Provider->TileSource()->ImageWidth(), Q_INT64_C(8388608));
    QCOMPARE(Provider->TileSource()->TilePrefix(), QStringLiteral("ArcGIS_UT"));
    QCOMPARE(Provider->TileSource()->GetTileByZoomLevel(2, 1, 3), UsaTopo + QStringLiteral("2/3/1"));

    const TvxMapControlMultiScaleTileSource* Source = Provider->TileSource();
    for (int Index : {5, -1})
    {
      try
      {
        Provider->ChangeBaseMap(Index);
        QFAIL("no error");
      }
      catch (const EListError& E)
      {
        QCOMPARE(QString::fromLatin1(E.what()), QStringLiteral("List index out of bounds (%1)").arg(Index));
      }
    }
    QCOMPARE(Changes, 1);
    QCOMPARE(Provider->TileSource(), Source);
    QCOMPARE(Provider->URL(), UsaTopo);
    QCOMPARE(ArcGISStreamServerURL, UsaTopo);
    QCOMPARE(Provider->MaxZoomLevel(), 15);
    QCOMPARE(Provider->CachePrefix(), QStringLiteral("UT"));

    Provider->ChangeBaseMap(3);
    QCOMPARE(Provider->TileSource()->MaxZoomLevel(), 16);
    QCOMPARE(Provider->TileSource()->TilePrefix(), QStringLiteral("ArcGIS_NGW"));
  }

  // Below level 1 the world shrinks linearly from 512 pixels.
  void TotalImageSize()
  {
    auto Provider = MakeProvider();
    QCOMPARE(Provider->CalculateTotalImageSize(0.5), 256.0);
    QCOMPARE(Provider->CalculateTotalImageSize(0.25), 128.0);
    QCOMPARE(Provider->CalculateTotalImageSize(1), 512.0);
    QCOMPARE(Provider->CalculateTotalImageSize(3), 2048.0);
    QCOMPARE(Provider->GetMapSizeInPixels(3), vxSizeDouble(2048, 2048));
  }

  // A site's own server replaces the public host in providers made later.
  // The tile URL is shared: the newest provider's row drives the older one too.
  void ServerOverride()
  {
    auto Public = MakeProvider();
    Public->ChangeBaseMap(2);
    TServerOverrideScope Scope(QStringLiteral("http://127.0.0.1:8080"));
    auto Local = MakeProvider();
    QCOMPARE(Local->URL(), QStringLiteral("http://127.0.0.1:8080/ArcGIS/rest/services/World_Imagery/MapServer/tile/"));
    QCOMPARE(Local->TileSource()->GetTileByZoomLevel(1, 0, 1), Local->URL() + QStringLiteral("1/1/0"));
    QCOMPARE(Public->URL(), Services + QStringLiteral("World_Topo_Map/MapServer/tile/"));
    QVERIFY(Public->TileSource()->GetTileByZoomLevel(1, 0, 1).startsWith(QStringLiteral("http://127.0.0.1:8080/")));
  }
};

MAPWRIGHT_TEST_CLASS(TestArcGISMapProvider)
#include "tst_ArcGISMapProvider.moc"
