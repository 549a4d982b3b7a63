#pragma once

// The journal of a run: every frame the parent sends, with the time it
// arrived, appended to one file per start under Maps/Journal. Lines wait
// in memory at most a second and go out whole, in one write, so that a
// crash loses at most the last second and never leaves a broken line
// before the end. The first failed write stops the journal with one
// message; the map goes on without it.

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <functional>
#include <memory>

class QIODevice;
class TIniFile;

// [Journal] of Mapwright.ini, read only: absent keys keep the defaults.
struct TJournalSettings
{
  bool Enabled = true;
  qint64 MaxTotalMB = 200;

  static TJournalSettings Read(const TIniFile& ini);
};

class TJournal : public QObject
{
  Q_OBJECT

public:
  static constexpr int FlushIntervalMs = 1000;
  // Older journals are looked at again after this many bytes were written.
  static constexpr qint64 RotateEveryBytes = 1024 * 1024;

  explicit TJournal(QObject* parent = nullptr);
  ~TJournal() override; // what is still waiting is written

  // A new file in `dir`, named by the clock's date and time, after older
  // journals were removed, oldest first, so that all of them together stay
  // within `maxTotalBytes`. False, with the one message, when the folder or
  // the file cannot be made.
  bool Start(const QString& dir, qint64 maxTotalBytes);
  // Writes to an open device instead of a file of its own.
  void Start(std::unique_ptr<QIODevice> device);

  // Keeps one frame, stamped with the clock's now; written within a second.
  void Append(QByteArrayView frame);
  // Writes what is waiting now.
  void Flush();

  bool Active() const { return FDevice != nullptr; }
  QString FileName() const { return FFileName; }

  // Told once, with the message, when the journal stops on a failure.
  std::function<void(const QString&)> OnStopped;

  // "2026-11-23_15-04-05.journal", or with "-2", "-3"... when taken.
  static QString NewFileName(const QString& dir, const QDateTime& time);
  // Removes the oldest journal files of `dir` but `keep` while they
  // together pass `maxTotalBytes`. Returns the names removed.
  static QStringList Rotate(const QString& dir, qint64 maxTotalBytes, const QString& keep);

private:
  void Stop(const QString& message);

  std::unique_ptr<QIODevice> FDevice;
  QString FDir;
  QString FFileName;
  qint64 FMaxTotalBytes = 0;
  qint64 FSinceRotate = 0;
  QByteArray FPending;
  QTimer FFlushTimer;
};
