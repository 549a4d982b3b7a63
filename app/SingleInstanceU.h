#pragma once

#include <QObject>
#include <QString>
#include <memory>

class QLocalServer;
class QLockFile;

// One running process per executable and user runtime directory
// (XDG_RUNTIME_DIR). The first process holds a lock file and listens on a
// local socket beside it; a later one finds the lock taken, asks the first
// to come to the front through the socket, and ends.
class TSingleInstance : public QObject
{
  Q_OBJECT

public:
  // `key` names the instance; by default it is derived from the executable's path.
  explicit TSingleInstance(QString key = QString(), QObject* parent = nullptr);
  ~TSingleInstance() override;

  // True when this process is the one that runs. When another runs, it is
  // asked to come to the front (waiting up to `waitMs` for it to take the
  // request) and false is returned.
  bool Claim(int waitMs = 2000);

  QString LockFileName() const;
  QString ServerName() const;

Q_SIGNALS:
  // A later start asked this instance to come to the front.
  void OnActivateRequested();

private:
  void AcceptConnections();

  QString FBasePath;
  std::unique_ptr<QLockFile> FLock;
  std::unique_ptr<QLocalServer> FServer;
};
