// The tile cache's map file, vxcache.map, as a cache opens it and as
// another writer leaves it behind, followed by what a run does: look tiles
// up, push new ones under a limit of one megabyte, so that the sizes the map
// claims decide what is evicted, and flush, which merges the other writer's
// lines. Whatever the map says, nothing outside the cache folder is
// touched, and a map the cache wrote opens again with the same entries.
#include "FuzzSupport.h"
#include "vxMapControlDiskCache.h"

namespace
{
// Beside the cache folder, where a name such as "../x" would reach.
const QString Outside = QStringLiteral("outside.teramapcache");

bool OutsideIsThere()
{
  return QFileInfo::exists(Fuzz::ScratchDir().filePath(Outside));
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize();
  Fuzz::ScratchDir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  QDir(Fuzz::ScratchDir().filePath(QStringLiteral("cache"))).removeRecursively();
  Fuzz::ScratchDir().mkpath(QStringLiteral("cache/sub"));
  Fuzz::WriteScratchFile(Outside, "outside");
  Fuzz::WriteScratchFile(QStringLiteral("cache/a_1_2_3.teramapcache"), "tile");
  Fuzz::WriteScratchFile(QStringLiteral("cache/sub/b_1_2_3.teramapcache"), "tile");
  const QByteArray LInput = Fuzz::Bytes(AData, ASize);
  Fuzz::WriteScratchFile(QStringLiteral("cache/vxcache.map"), LInput);
  const QString LRoot = Fuzz::ScratchDir().filePath(QStringLiteral("cache"));

  size_t LCount = 0;
  try
  {
    TvxMapControlDiskCache LCache(LRoot, 1, 0);
    QString LFile;
    if (LCache.TryRetrieveFileName({1, 2, 3}, QStringLiteral("A"), LFile))
      FUZZ_CHECK(QFileInfo(LFile).isFile());
    const QByteArray LTile(1024, 'x');
    // The first push writes the map at once; then another writer puts the
    // input back, with one line more, for the flush to merge.
    LCache.Push(LTile, {0, 0, 20}, QStringLiteral("new"));
    Fuzz::WriteScratchFile(QStringLiteral("cache/vxcache.map"), LInput + "\nnew_9_9_9.teramapcache:1:1\n");
    LCache.Push(LTile, {1, 0, 20}, QStringLiteral("new"));
    LCache.Push(LTile, {2, 0, 20}, QStringLiteral("new"));
    LCache.FlushMap();
    LCount = size_t(LCache.CacheMap().Count());
  }
  catch (const EvxDiskCacheError&)
  {
    // The tile source sets such a map aside and starts the cache empty.
    FUZZ_CHECK(OutsideIsThere());
    return 0;
  }
  FUZZ_CHECK(OutsideIsThere());

  try
  {
    const TvxMapControlDiskCache LAgain(LRoot, 1, 0);
    FUZZ_CHECK(size_t(LAgain.CacheMap().Count()) == LCount);
  }
  catch (const EvxDiskCacheError& E)
  {
    fprintf(stderr, "%s\n", E.what());
    FUZZ_CHECK(!"the cache reads the map it wrote");
  }
  return 0;
}
