#include "JournalU.h"

#include "ClockU.h"
#include "IniFileU.h"
#include "JournalFormatU.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <unistd.h>

namespace
{
const QString Suffix = QStringLiteral(".journal");
}

TJournalSettings TJournalSettings::Read(const TIniFile& ini)
{
  const QString section = QStringLiteral("Journal");
  TJournalSettings settings;
  settings.Enabled = ini.ReadBool(section, QStringLiteral("Enabled"), true);
  const int megabytes = ini.ReadInteger(section, QStringLiteral("MaxTotalMB"), int(settings.MaxTotalMB));
  if (megabytes > 0)
    settings.MaxTotalMB = megabytes;
  return settings;
}

TJournal::TJournal(QObject* parent)
  : QObject(parent)
{
  FFlushTimer.setSingleShot(true);
  FFlushTimer.setInterval(FlushIntervalMs);
  connect(&FFlushTimer, &QTimer::timeout, this, &TJournal::Flush);
}

TJournal::~TJournal()
{
  OnStopped = nullptr; // the window may be going; a last failure has no one to tell
  Flush();
}

QString TJournal::NewFileName(const QString& dir, const QDateTime& time)
{
  const QString stem = QDir(dir).filePath(time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd_HH-mm-ss")));
  QString name = stem + Suffix;
  for (int n = 2; QFileInfo::exists(name); ++n)
    name = stem + QLatin1Char('-') + QString::number(n) + Suffix;
  return name;
}

QStringList TJournal::Rotate(const QString& dir, qint64 maxTotalBytes, const QString& keep)
{
  QFileInfoList files = QDir(dir).entryInfoList({QLatin1Char('*') + Suffix}, QDir::Files);
  // Names sort by start time; the modification time would not survive a copy.
  std::sort(files.begin(), files.end(),
            [](const QFileInfo& a, const QFileInfo& b) { return a.fileName() < b.fileName(); });
  qint64 total = 0;
  for (const QFileInfo& file : files)
    total += file.size();
  const QString kept = QFileInfo(keep).absoluteFilePath();
  QStringList removed;
  for (const QFileInfo& file : files) {
    if (total <= maxTotalBytes)
      break;
    if (file.absoluteFilePath() == kept)
      continue;
    if (QFile::remove(file.absoluteFilePath())) {
      total -= file.size();
      removed.append(file.absoluteFilePath());
    }
  }
  return removed;
}

bool TJournal::Start(const QString& dir, qint64 maxTotalBytes)
{
  if (!QDir().mkpath(dir)) {
    Stop(QStringLiteral("Journal off: cannot make the folder \"%1\".").arg(QDir::toNativeSeparators(dir)));
    return false;
  }
  FDir = dir;
  FMaxTotalBytes = maxTotalBytes;
  const QString name = NewFileName(dir, Clock::Now());
  auto file = std::make_unique<QFile>(name);
  // Unbuffered: each flush is one write of whole lines, nothing held back by Qt.
  if (!file->open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered)) {
    Stop(QStringLiteral("Journal off: cannot write \"%1\": %2.")
           .arg(QDir::toNativeSeparators(name), file->errorString()));
    return false;
  }
  FFileName = name;
  Rotate(dir, maxTotalBytes, name);
  FDevice = std::move(file);
  return true;
}

void TJournal::Start(std::unique_ptr<QIODevice> device)
{
  auto* file = qobject_cast<QFile*>(device.get());
  FFileName = file ? file->fileName() : QString();
  FDevice = std::move(device);
}

void TJournal::Append(QByteArrayView frame)
{
  if (!FDevice)
    return;
  FPending += JournalFormat::Line(Clock::Now(), frame);
  if (!FFlushTimer.isActive())
    FFlushTimer.start();
}

void TJournal::Flush()
{
  FFlushTimer.stop();
  if (!FDevice || FPending.isEmpty())
    return;
  const QByteArray lines = std::exchange(FPending, {});
  const qint64 written = FDevice->write(lines);
  bool ok = written == lines.size();
  if (auto* file = qobject_cast<QFileDevice*>(FDevice.get())) {
    ok = ok && file->flush();
    // On disk too, so that a machine that goes down loses no more than a process that dies.
    if (ok && file->handle() >= 0)
      ::fdatasync(file->handle());
  }
  if (!ok) {
    const QString reason = FDevice->errorString();
    const QString where = FFileName.isEmpty() ? QString() : QStringLiteral(" \"%1\"").arg(QDir::toNativeSeparators(FFileName));
    Stop(QStringLiteral("Journal stopped: cannot write%1: %2. The map goes on without it.").arg(where, reason));
    return;
  }
  FSinceRotate += written;
  if (!FDir.isEmpty() && FSinceRotate >= RotateEveryBytes) {
    FSinceRotate = 0;
    Rotate(FDir, FMaxTotalBytes, FFileName);
  }
}

void TJournal::Stop(const QString& message)
{
  FFlushTimer.stop();
  FPending.clear();
  FDevice.reset();
  if (OnStopped)
    OnStopped(message);
}
