#pragma once

// Fixtures of the shell tests: a parent program on loopback, a settings
// file in a scratch folder, and readers of the live marker layer.

#include "LiveMarkersU.h"
#include "MainU.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// A parent on loopback that takes one connection and keeps what it receives.
class TLoopbackParent
{
public:
  TLoopbackParent() { QVERIFY(FServer.listen(QHostAddress::LocalHost)); }

  int Port() const { return FServer.serverPort(); }

  bool WaitForPeer(int ms = 3000)
  {
    // The event loop may have taken the connection already.
    if (!FPeer && (FServer.hasPendingConnections() || FServer.waitForNewConnection(ms)))
      FPeer.reset(FServer.nextPendingConnection());
    return FPeer != nullptr;
  }

  void Send(const QByteArray& bytes)
  {
    FPeer->write(bytes);
    FPeer->flush();
  }

  QByteArray Received() const { return FPeer ? FReceived + FPeer->readAll() : FReceived; }

  // Pumps events until the peer has sent `bytes` in all.
  bool WaitForBytes(qsizetype count, int ms = 3000)
  {
    return QTest::qWaitFor([&] {
      if (FPeer)
        FReceived += FPeer->readAll();
      return FReceived.size() >= count;
    }, ms);
  }

  QByteArray FReceived;
  QTcpServer FServer;
  std::unique_ptr<QTcpSocket> FPeer;
};

inline QString WriteIni(const QTemporaryDir& dir, const QString& text)
{
  QDir(dir.path()).mkpath(QStringLiteral("Maps"));
  QFile file(dir.filePath(QStringLiteral("Maps/Mapwright.ini")));
  if (file.open(QIODevice::WriteOnly))
    file.write(text.toUtf8());
  return dir.path();
}

// The people on the live marker layer.
inline int PersonCount(TfrmMain& form)
{
  int count = 0;
  const TvxMapItems& items = form.KestrelLiveMarkers->MapItems();
  for (int i = 0; i < items.Count(); ++i)
    count += dynamic_cast<TvxMapPushpin*>(items.Items(i)) != nullptr;
  return count;
}

inline QString Attr(TvxMapPushpin* pin, const char* key)
{
  return pin ? TLiveMarkers::Text(pin, QLatin1String(key)) : QStringLiteral("<no marker>");
}

inline QByteArray ReadAll(const QString& fileName)
{
  QFile file(fileName);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Makes the folder too.
inline void WriteAll(const QString& fileName, const QByteArray& bytes)
{
  QDir().mkpath(QFileInfo(fileName).path());
  QFile file(fileName);
  QVERIFY(file.open(QIODevice::WriteOnly));
  file.write(bytes);
}

inline bool SameImage(const QImage& a, const QImage& b)
{
  return a.convertToFormat(QImage::Format_ARGB32) == b.convertToFormat(QImage::Format_ARGB32);
}
