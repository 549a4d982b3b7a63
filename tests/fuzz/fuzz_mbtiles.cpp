// An MBTiles file, written from the input and opened through the provider
// as a base map would be: the header check, the metadata, the first tile,
// the credit line, then a few tiles fetched by the tile workers and decoded.
// Bad files end in LastError, never in a crash or a hang.
#include "FuzzSupport.h"
#include "vxMBTilesImageryDataProvider.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <vector>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize();
  Fuzz::ScratchDir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  // A new name for each input: connections are named after their file.
  static int Counter = 0;
  const QString LName = QStringLiteral("input%1.mbtiles").arg(++Counter);
  const QString LFile = Fuzz::WriteScratchFile(LName, Fuzz::Bytes(AData, ASize));
  {
    const std::unique_ptr<TvxMapControlImageTileProvider> LBase =
      vxCreateImageTileProvider<TvxMBTilesImageryDataProvider>(nullptr);
    auto* LProvider = static_cast<TvxMBTilesImageryDataProvider*>(LBase.get());
    LProvider->SetFileName(LFile);
    FUZZ_CHECK(LProvider->IsUsable() == LProvider->LastError().isEmpty());
    FUZZ_CHECK(!LProvider->Attribution().isEmpty());
    if (LProvider->IsUsable())
    {
      const TvxMBTilesInfo& LInfo = LProvider->Info();
      FUZZ_CHECK(0 <= LInfo.MinZoomLevel && LInfo.MinZoomLevel <= LInfo.MaxZoomLevel && LInfo.MaxZoomLevel <= 24);
      FUZZ_CHECK(LProvider->TileSource() != nullptr);
      TvxMapControlMultiScaleImage LImage{{}};
      std::vector<std::unique_ptr<TvxMapControlMultiScaleTile>> LSlots;
      const int LMax = LInfo.MaxZoomLevel, LMin = qMax(1, LInfo.MinZoomLevel);
      const int LLast = int((qint64(1) << LMax) - 1);
      for (const TvxMapControlTileIndex LIndex :
           {TvxMapControlTileIndex{0, 0, LMin}, TvxMapControlTileIndex{1, 0, LMin}, TvxMapControlTileIndex{0, 0, LMax},
            TvxMapControlTileIndex{LLast, LLast, LMax}})
      {
        LSlots.push_back(std::make_unique<TvxMapControlMultiScaleTile>(&LImage.Viewport(), 0, 0));
        LProvider->TileSource()->GetTileImageSource(LIndex, &LSlots.back()->Face());
      }
      LProvider->TileSource()->StartLoadTiles();
      const auto& LQueue = LProvider->TileSource()->LoadingQueueManager();
      const QDeadlineTimer LDeadline(20000);
      while (!(LQueue.AllThreadsPaused() && LQueue.QueueCount() == 0))
      {
        // A tile source that never finishes is a hang the fuzzer keeps.
        FUZZ_CHECK(!LDeadline.hasExpired());
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
      }
      QCoreApplication::processEvents();
      LSlots.clear();
    }
  }
  QFile::remove(LFile);
  return 0;
}
