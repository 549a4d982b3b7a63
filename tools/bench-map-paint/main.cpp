// Measures what one tick of the zoom animation costs at 1920 x 1080 with six
// layers: the layout the control recalculates and the paint of the result.
// The baseline paints the same lines straight onto the same image, so the
// ratio is the engine's own cost over raw painting.
//
//   mapwright-bench-map-paint [--rounds N] [--ticks N]

#include "BenchStats.h"
#include "vxMapControl.h"
#include "vxTestLayer.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace
{
constexpr int LayerCount = 6;
const QSize ViewSize(1920, 1080);

// The level of tick I of an animation from 3 to 5.
double LevelAt(int ATick, int ATicks)
{
  return 3.0 + 2.0 * ATick / std::max(1, ATicks - 1);
}

// Microseconds per tick, through the control.
double ControlRound(TvxMapControl& AMap, QImage& AImage, int ATicks)
{
  QElapsedTimer Timer;
  Timer.start();
  for (int Tick = 0; Tick < ATicks; ++Tick)
  {
    AMap.AnimationController().DoZoom(LevelAt(Tick, ATicks));
    AMap.render(&AImage);
  }
  return Timer.nsecsElapsed() / 1000.0 / ATicks;
}

// Microseconds per tick, painting the lines the layers hold directly.
double RawRound(const std::vector<QList<QLineF>>& ALines, QImage& AImage, int ATicks)
{
  QElapsedTimer Timer;
  Timer.start();
  for (int Tick = 0; Tick < ATicks; ++Tick)
  {
    QPainter Canvas(&AImage);
    Canvas.setRenderHint(QPainter::Antialiasing);
    Canvas.fillRect(AImage.rect(), QColor(0xE6, 0xE4, 0xE0));
    // Scaled about the centre as the level changes, like the real zoom.
    const double Factor = std::pow(2.0, LevelAt(Tick, ATicks) - 3.0);
    Canvas.translate(ViewSize.width() / 2.0, ViewSize.height() / 2.0);
    Canvas.scale(Factor, Factor);
    Canvas.translate(-ViewSize.width() / 2.0, -ViewSize.height() / 2.0);
    for (const QList<QLineF>& Lines : ALines)
    {
      Canvas.setPen(QPen(QColor(40, 90, 160), 1.0 / Factor));
      Canvas.drawLines(Lines);
    }
  }
  return Timer.nsecsElapsed() / 1000.0 / ATicks;
}
}

int main(int argc, char** argv)
{
  qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
  QApplication App(argc, argv);
  QCommandLineParser Parser;
  Parser.addHelpOption();
  Parser.addOption({"rounds", "Rounds of each measurement (default 7).", "N", "7"});
  Parser.addOption({"ticks", "Animation ticks per round (default 50).", "N", "50"});
  Parser.process(App);
  const int Rounds = std::max(1, Parser.value("rounds").toInt());
  const int Ticks = std::max(2, Parser.value("ticks").toInt());

  TvxMapControl Map;
  Map.OptionsBehavior().SetAnimation(false);
  Map.resize(ViewSize);
  std::vector<TvxTestLayer*> Layers;
  for (int I = 0; I < LayerCount; ++I)
  {
    TvxTestLayer* Layer = Map.AddLayer<TvxTestLayer>(QColor::fromHsv(I * 60, 200, 180));
    Layer->SetMarks({TvxMapControlGeoPoint::Create(47.37 + I, 8.54 + I), TvxMapControlGeoPoint::Create(40.4 - I, -3.7)});
    Layers.push_back(Layer);
  }
  Map.SetCenterPoint(TvxMapControlGeoPoint::Create(46, 5));
  Map.AnimationController().DoZoom(3);
  Map.Changed();

  std::vector<QList<QLineF>> Lines;
  for (int I = 0; I < LayerCount; ++I)
  {
    QList<QLineF> LayerLines;
    for (int Longitude = -180; Longitude <= 180; Longitude += 10)
    {
      const TvxPointDouble A = Layers[0]->GeoPointToScreenPoint(TvxMapControlGeoPoint::Create(85, Longitude));
      const TvxPointDouble B = Layers[0]->GeoPointToScreenPoint(TvxMapControlGeoPoint::Create(-85, Longitude));
      LayerLines.append(QLineF(A.X, A.Y, B.X, B.Y));
    }
    for (int Latitude = -80; Latitude <= 80; Latitude += 10)
    {
      const TvxPointDouble A = Layers[0]->GeoPointToScreenPoint(TvxMapControlGeoPoint::Create(Latitude, -180));
      const TvxPointDouble B = Layers[0]->GeoPointToScreenPoint(TvxMapControlGeoPoint::Create(Latitude, 180));
      LayerLines.append(QLineF(A.X, A.Y, B.X, B.Y));
    }
    Lines.push_back(LayerLines);
  }

  QImage Image(ViewSize, QImage::Format_ARGB32_Premultiplied);
  std::vector<double> ControlTimes;
  std::vector<double> RawTimes;
  // Side by side, alternating, so that both see the same machine state.
  for (int Round = 0; Round < Rounds; ++Round)
  {
    ControlTimes.push_back(ControlRound(Map, Image, Ticks));
    RawTimes.push_back(RawRound(Lines, Image, Ticks));
  }
  const double Control = Median(ControlTimes);
  const double Raw = Median(RawTimes);
  std::printf("map widget 1920x1080, %d layers, %d rounds of %d zoom ticks\n", LayerCount, Rounds, Ticks);
  std::printf("layout + paint per tick: median %.0f us (%.1f ticks/s)\n", Control, 1e6 / Control);
  std::printf("raw QPainter baseline:   median %.0f us\n", Raw);
  std::printf("ratio control / baseline: %.2f\n", Raw > 0 ? Control / Raw : 0.0);
  BenchRow("zoom tick: layout and paint, 6 layers", Control / 1000.0, "QPainter straight", Raw / 1000.0);
  return 0;
}
