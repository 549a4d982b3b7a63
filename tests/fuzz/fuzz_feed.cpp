// The feed: bytes as the parent sends them, cut into frames by the link's
// splitter, each frame read as the window reads it. The first byte sets
// how the bytes are cut into arrivals; the frames must not depend on it.
#include "FuzzSupport.h"
#include "ErrorsU.h"
#include "FeedLinkU.h"
#include "FeedMessageU.h"

#include <cmath>

namespace
{
struct TFrames
{
  QStringList Texts;
  bool Overlong = false;
};

// The link's loop without the socket: read what came, hand over frames
// until none is whole, stop for good at an overlong one.
TFrames Split(const QByteArray& ABytes, qsizetype AArrival)
{
  TFrames LResult;
  TFrameSplitter LSplitter;
  for (qsizetype LAt = 0; LAt < ABytes.size() && !LResult.Overlong; LAt += AArrival)
  {
    LSplitter.Append(ABytes.mid(LAt, AArrival));
    for (;;)
    {
      QString LText;
      const TFrameSplitter::TCut LCut = LSplitter.Next(LText);
      if (LCut == TFrameSplitter::TCut::Overlong)
        LResult.Overlong = true;
      if (LCut != TFrameSplitter::TCut::Frame)
        break;
      FUZZ_CHECK(LText.size() <= TFrameSplitter::MaxFrameLength);
      FUZZ_CHECK(!LText.contains(QLatin1Char('\r')));
      if (!LText.isEmpty())
        LResult.Texts << LText;
    }
  }
  return LResult;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  if (ASize < 1)
    return 0;
  const QByteArray LBytes = Fuzz::Bytes(AData + 1, ASize - 1);
  const TFrames LWhole = Split(LBytes, qMax<qsizetype>(1, LBytes.size()));
  const TFrames LPieces = Split(LBytes, 1 + AData[0] % 64);
  // An overlong frame drops the link, wherever the arrivals were cut; the
  // frames before it are the same either way.
  FUZZ_CHECK(LWhole.Overlong == LPieces.Overlong);
  FUZZ_CHECK(LWhole.Texts == LPieces.Texts);

  for (const QString& LText : LWhole.Texts)
  {
    // A frame the quick reader takes reads as the stream reader reads it.
    TFeedMessage LPlain;
    if (ReadPlainFeedMessage(LText, LPlain))
    {
      const TFeedMessage LStreamed = ReadFeedMessageStreamed(LText);
      FUZZ_CHECK(LPlain.Commands == LStreamed.Commands && LPlain.HasLiveMarkers == LStreamed.HasLiveMarkers &&
                 LPlain.ReportFailure == LStreamed.ReportFailure && LPlain.Reports.size() == LStreamed.Reports.size());
      for (size_t LAt = 0; LAt < LPlain.Reports.size(); ++LAt)
      {
        const TLiveMarkerReport& A = LPlain.Reports[LAt];
        const TLiveMarkerReport& B = LStreamed.Reports[LAt];
        FUZZ_CHECK(A.Id == B.Id && A.Name == B.Name && A.Location == B.Location && A.Status == B.Status &&
                   A.Lat == B.Lat && A.Lon == B.Lon && A.FixStatus == B.FixStatus && A.Radius == B.Radius &&
                   A.Init == B.Init);
      }
    }
    try
    {
      const TFeedMessage LMessage = ReadFeedMessage(LText);
      // The map projects what it is given: only numbers reach it.
      for (const TLiveMarkerReport& LReport : LMessage.Reports)
        FUZZ_CHECK(std::isfinite(LReport.Lat) && std::isfinite(LReport.Lon));
    }
    catch (const EMapwrightError& E)
    {
      FUZZ_CHECK(!E.Message().isEmpty());
    }
  }
  return 0;
}
