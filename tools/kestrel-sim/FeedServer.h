#pragma once

#include "FrameSplitter.h"

#include <QObject>
#include <QPointer>
#include <QTcpServer>

class QTcpSocket;

// The parent's end of the feed link: listens on 127.0.0.1 and serves one
// connection at a time. A newer connection replaces the older one, since
// a restarted mapwright connects again before the old socket has closed.
class FeedServer : public QObject
{
  Q_OBJECT

public:
  explicit FeedServer(QObject* parent = nullptr);
  ~FeedServer() override;

  // Port 0 picks a free one; port() tells which.
  bool listen(quint16 port, QString* error = nullptr);
  quint16 port() const;

  bool isConnected() const;
  // Sends one frame followed by its CR; false when no connection is up.
  bool send(const QByteArray& frame);
  void dropClient();

Q_SIGNALS:
  void clientConnected(bool replacedOlder);
  void clientDisconnected();
  void messageReceived(const QByteArray& message);
  void frameSent(const QByteArray& frame);
  // Mapwright sent more than FrameSplitter::MaxPending bytes without an end.
  void overlongMessage();

private:
  void onNewConnection();
  void onReadyRead();
  void onSocketDisconnected(QTcpSocket* socket);

  QTcpServer FServer;
  QPointer<QTcpSocket> FSocket;
  FrameSplitter FSplitter;
};
