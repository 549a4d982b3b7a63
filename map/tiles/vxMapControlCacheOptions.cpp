#include "vxMapControlCacheOptions.h"

#include <algorithm>

void TvxMapControlCacheOptions::SetMemoryLimit(int AValue)
{
  AValue = std::max(AValue, 1);
  if (FMemoryLimit == AValue)
    return;
  FMemoryLimit = AValue;
  Changed();
}

void TvxMapControlCacheOptions::SetDiskLimit(int AValue)
{
  if (FDiskLimit == AValue)
    return;
  FDiskLimit = AValue;
  Changed();
}

void TvxMapControlCacheOptions::SetDiskExpireTime(qint64 AValue)
{
  if (FDiskExpireTime == AValue)
    return;
  FDiskExpireTime = AValue;
  Changed();
}

void TvxMapControlCacheOptions::SetDiskFolder(const QString& AValue)
{
  FDiskFolder = AValue;
  Changed();
}

void TvxMapControlCacheOptions::Assign(const TvxMapControlCacheOptions& ASource)
{
  if (&ASource == this)
    return;
  FMemoryLimit = ASource.FMemoryLimit;
  FDiskLimit = ASource.FDiskLimit;
  FDiskExpireTime = ASource.FDiskExpireTime;
  FDiskFolder = ASource.FDiskFolder;
  Changed();
}

void TvxMapControlCacheOptions::Changed()
{
  if (OnChanged)
    OnChanged(this);
}
