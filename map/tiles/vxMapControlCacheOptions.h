#pragma once

// How a tile provider caches: memory for decoded tiles, and the disk folder
// with its size and age limits.

#include <QString>

#include <functional>

class TvxMapControlCacheOptions
{
public:
  static constexpr int DefaultMemoryLimit = 128;

  // MiB of decoded tiles; below 1 becomes 1.
  int MemoryLimit() const { return FMemoryLimit; }
  void SetMemoryLimit(int AValue);
  // MiB of tile files; below 1 means no limit.
  int DiskLimit() const { return FDiskLimit; }
  void SetDiskLimit(int AValue);
  // Milliseconds a tile file stays usable; 0 means for ever.
  qint64 DiskExpireTime() const { return FDiskExpireTime; }
  void SetDiskExpireTime(qint64 AValue);
  // Empty means no disk cache. Every write notifies, even of the same
  // folder, so that a provider can reopen a folder that was changed by hand.
  const QString& DiskFolder() const { return FDiskFolder; }
  void SetDiskFolder(const QString& AValue);

  void Assign(const TvxMapControlCacheOptions& ASource);

  std::function<void(TvxMapControlCacheOptions*)> OnChanged;

private:
  void Changed();

  int FMemoryLimit = DefaultMemoryLimit;
  int FDiskLimit = -1;
  qint64 FDiskExpireTime = 0;
  QString FDiskFolder;
};
