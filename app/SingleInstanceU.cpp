#include "SingleInstanceU.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QStandardPaths>

namespace
{
const QByteArray ActivateRequest = QByteArrayLiteral("activate\n");

QString DefaultKey()
{
  const QString exe = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
  const QByteArray hash = QCryptographicHash::hash(exe.toUtf8(), QCryptographicHash::Sha1).toHex().left(16);
  return QStringLiteral("mapwright-") + QString::fromLatin1(hash);
}
}

TSingleInstance::TSingleInstance(QString key, QObject* parent)
  : QObject(parent)
{
  if (key.isEmpty())
    key = DefaultKey();
  QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  if (dir.isEmpty())
    dir = QDir::tempPath();
  FBasePath = QDir(dir).filePath(key);
}

TSingleInstance::~TSingleInstance() = default;

QString TSingleInstance::LockFileName() const
{
  return FBasePath + QStringLiteral(".lock");
}

QString TSingleInstance::ServerName() const
{
  return FBasePath + QStringLiteral(".socket");
}

bool TSingleInstance::Claim(int waitMs)
{
  FLock = std::make_unique<QLockFile>(LockFileName());
  // A lock left by a crashed process is taken over after a check of its pid.
  FLock->setStaleLockTime(0);
  if (FLock->tryLock(0)) {
    FServer = std::make_unique<QLocalServer>();
    FServer->setSocketOptions(QLocalServer::UserAccessOption);
    QLocalServer::removeServer(ServerName()); // a socket file left by a crash
    if (FServer->listen(ServerName()))
      connect(FServer.get(), &QLocalServer::newConnection, this, &TSingleInstance::AcceptConnections);
    return true;
  }
  FLock.reset();

  QLocalSocket socket;
  socket.connectToServer(ServerName());
  if (socket.waitForConnected(waitMs)) {
    socket.write(ActivateRequest);
    socket.waitForBytesWritten(waitMs);
    socket.disconnectFromServer();
    if (socket.state() != QLocalSocket::UnconnectedState)
      socket.waitForDisconnected(waitMs);
  }
  return false;
}

void TSingleInstance::AcceptConnections()
{
  while (QLocalSocket* socket = FServer->nextPendingConnection()) {
    socket->setParent(this);
    connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
      if (socket->readAll().contains(ActivateRequest.trimmed()))
        Q_EMIT OnActivateRequested();
    });
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
  }
}
