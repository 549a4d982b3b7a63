#include "FeedServer.h"

#include <QTcpSocket>

FeedServer::FeedServer(QObject* parent) : QObject(parent)
{
  connect(&FServer, &QTcpServer::newConnection, this, &FeedServer::onNewConnection);
}

FeedServer::~FeedServer()
{
  // The sockets die with FServer, after the members they report to.
  const QList<QTcpSocket*> sockets = FServer.findChildren<QTcpSocket*>();
  for (QTcpSocket* s : sockets)
    s->disconnect(this);
}

bool FeedServer::listen(quint16 port, QString* error)
{
  if (FServer.listen(QHostAddress::LocalHost, port))
    return true;
  if (error)
    *error = FServer.errorString();
  return false;
}

quint16 FeedServer::port() const
{
  return FServer.serverPort();
}

bool FeedServer::isConnected() const
{
  return FSocket && FSocket->state() == QAbstractSocket::ConnectedState;
}

bool FeedServer::send(const QByteArray& frame)
{
  if (!isConnected())
    return false;
  FSocket->write(frame + '\r');
  Q_EMIT frameSent(frame);
  return true;
}

void FeedServer::dropClient()
{
  if (QTcpSocket* s = FSocket)
    s->disconnectFromHost();
}

void FeedServer::onNewConnection()
{
  while (QTcpSocket* socket = FServer.nextPendingConnection())
  {
    const bool replacing = !FSocket.isNull();
    if (replacing)
    {
      QTcpSocket* old = FSocket;
      old->disconnect(this);
      old->abort();
      old->deleteLater();
    }
    FSocket = socket;
    FSplitter.clear();
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(socket, &QTcpSocket::readyRead, this, &FeedServer::onReadyRead);
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] { onSocketDisconnected(socket); });
    Q_EMIT clientConnected(replacing);
    // Bytes may have come with the connection itself.
    if (socket->bytesAvailable() > 0)
      onReadyRead();
  }
}

void FeedServer::onReadyRead()
{
  if (!FSocket)
    return;
  const bool wasOver = FSplitter.overflowed();
  const QList<QByteArray> messages = FSplitter.feed(FSocket->readAll());
  if (FSplitter.overflowed() && !wasOver)
    Q_EMIT overlongMessage();
  for (const QByteArray& m : messages)
    Q_EMIT messageReceived(m);
}

void FeedServer::onSocketDisconnected(QTcpSocket* socket)
{
  socket->deleteLater();
  if (socket != FSocket)
    return;
  FSocket = nullptr;
  FSplitter.clear();
  Q_EMIT clientDisconnected();
}
