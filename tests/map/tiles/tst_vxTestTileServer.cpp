#include "TestRegistry.h"
#include "vxTestTileServer.h"

#include <QBuffer>
#include <QImageReader>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

namespace
{

struct TFetched
{
  int Status = -1;
  QNetworkReply::NetworkError Error = QNetworkReply::NoError;
  QByteArray Body;
};

TFetched Fetch(QNetworkAccessManager& AManager, const QString& AUrl, int ATimeoutMs = 5000)
{
  QNetworkRequest Request{QUrl(AUrl)};
  Request.setTransferTimeout(ATimeoutMs);
  const std::unique_ptr<QNetworkReply> Reply(AManager.get(Request));
  QSignalSpy Finished(Reply.get(), &QNetworkReply::finished);
  if (!Reply->isFinished() && !Finished.wait(ATimeoutMs + 2000))
    return {};
  return {Reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), Reply->error(),
          Reply->isOpen() ? Reply->readAll() : QByteArray()};
}

} // namespace

class TestTestTileServer : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // What the tile tests lean on: real tiles on one kept-alive connection,
  // faults per path that a decoder must refuse, and delays served side by
  // side rather than one after the other.
  void ServesTilesAndFaults()
  {
    TvxTestTileServer Server;
    QVERIFY(Server.Start());
    QNetworkAccessManager Manager;

    const TFetched Tile = Fetch(Manager, Server.TileUrl(3, 2, 5));
    QCOMPARE(Tile.Status, 200);
    const QImage Image = QImage::fromData(Tile.Body);
    QCOMPARE(Image.size(), QSize(256, 256));
    QCOMPARE(Image.pixelColor(4, 4), TvxTestTileServer::LevelColor(3));
    QVERIFY(Image.pixelColor(0, 0) != TvxTestTileServer::LevelColor(3));
    QVERIFY(TvxTestTileServer::LevelColor(4) != TvxTestTileServer::LevelColor(3));
    QCOMPARE(Fetch(Manager, Server.TileUrl(3, 8, 0)).Status, 404);

    const QString Flaky = TvxTestTileServer::TilePath(4, 1, 1);
    Server.FailTimes(Flaky, 1, TvxTestTileServer::TRule::Status(404));
    QCOMPARE(Fetch(Manager, Server.TileUrl(4, 1, 1)).Status, 404);
    QCOMPARE(Fetch(Manager, Server.TileUrl(4, 1, 1)).Status, 200);
    QCOMPARE(Server.RequestCount(Flaky), 2);
    QCOMPARE(Server.RequestCount(), 4);
    QCOMPARE(Server.ConnectionCount(), 1);

    Server.SetRule(TvxTestTileServer::TilePath(5, 0, 0), TvxTestTileServer::TRule::Garbage());
    const TFetched Garbage = Fetch(Manager, Server.TileUrl(5, 0, 0));
    QCOMPARE(Garbage.Status, 200);
    QVERIFY(!Garbage.Body.isEmpty());
    QVERIFY(QImage::fromData(Garbage.Body).isNull());

    Server.SetRule(TvxTestTileServer::TilePath(5, 0, 1), TvxTestTileServer::TRule::Truncated());
    const TFetched Truncated = Fetch(Manager, Server.TileUrl(5, 0, 1));
    QVERIFY(Truncated.Error != QNetworkReply::NoError);
    QVERIFY(Truncated.Body.size() < Server.TilePng(5, 0, 1).size());
    QVERIFY(QImage::fromData(Truncated.Body).isNull());

    Server.SetRule(TvxTestTileServer::TilePath(5, 0, 2), TvxTestTileServer::TRule::HugeImage());
    const TFetched Huge = Fetch(Manager, Server.TileUrl(5, 0, 2));
    QCOMPARE(Huge.Status, 200);
    QByteArray HugeBytes = Huge.Body;
    QBuffer HugeBuffer(&HugeBytes);
    QImageReader HugeReader(&HugeBuffer, "png");
    QCOMPARE(HugeReader.size(), QSize(30000, 30000));

    Server.SetRule(TvxTestTileServer::TilePath(5, 0, 3), TvxTestTileServer::TRule::Close());
    QCOMPARE(Fetch(Manager, Server.TileUrl(5, 0, 3)).Error, QNetworkReply::RemoteHostClosedError);
    Server.SetRule(TvxTestTileServer::TilePath(5, 0, 4), TvxTestTileServer::TRule::Hang());
    QCOMPARE(Fetch(Manager, Server.TileUrl(5, 0, 4), 300).Error, QNetworkReply::OperationCanceledError);

    Server.SetDefaultRule(TvxTestTileServer::TRule::Status(503));
    QCOMPARE(Fetch(Manager, Server.TileUrl(6, 0, 0)).Status, 503);
    QCOMPARE(Fetch(Manager, Server.TileUrl(4, 1, 1)).Status, 200);

    // Four at once, each held 200 ms: all four in service together.
    Server.ClearRules();
    Server.SetDelay(200);
    Server.ResetCounters();
    std::vector<std::unique_ptr<QNetworkReply>> Replies;
    for (int X = 0; X < 4; ++X)
      Replies.emplace_back(Manager.get(QNetworkRequest(QUrl(Server.TileUrl(2, X, 0)))));
    for (const auto& Reply : Replies)
      QTRY_VERIFY_WITH_TIMEOUT(Reply->isFinished(), 5000);
    QCOMPARE(Server.MaxConcurrent(), 4);
    QCOMPARE(Server.RequestCount(), 4);
    for (const auto& Reply : Replies)
      QCOMPARE(QImage::fromData(Reply->readAll()).pixelColor(4, 4), TvxTestTileServer::LevelColor(2));
  }
};

MAPWRIGHT_TEST_CLASS(TestTestTileServer)
#include "tst_vxTestTileServer.moc"
