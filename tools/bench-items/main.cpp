// Frames of the map widget at 1920 x 1080 full of items: 10,000 pushpins
// with images, and a set of paths holding 1,000,000 vertices, each panned,
// zoomed, and (the paths) zoomed so far in that every shape is clipped.
// Beside each, a baseline in the same run paints the same things straight
// with QPainter from precomputed positions, so the ratio is what the engine
// adds to raw painting.
//
//   mapwright-bench-items [--rounds N] [--frames N]

#include "BenchStats.h"
#include "vxMapControl.h"
#include "vxMapItemLayer.h"
#include "vxMapMultiPointItems.h"
#include "vxMapPointItems.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QRandomGenerator>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

namespace
{
const QSize ViewSize(1920, 1080);
constexpr int PushpinCount = 10000;
constexpr int PathCount = 1000;
constexpr int VerticesPerPath = 1000;

// Milliseconds per frame of a round of frames.
double Time(int AFrames, const std::function<void(int)>& AFrame)
{
  QElapsedTimer Timer;
  Timer.start();
  for (int Frame = 0; Frame < AFrames; ++Frame)
    AFrame(Frame);
  return Timer.nsecsElapsed() / 1e6 / AFrames;
}

// The status-marker look: a rounded square with a pointer, 32 x 37.
QImage MarkerImage()
{
  QImage Image(32, 37, QImage::Format_ARGB32_Premultiplied);
  Image.fill(Qt::transparent);
  QPainter Canvas(&Image);
  Canvas.setRenderHint(QPainter::Antialiasing);
  Canvas.setBrush(QColor(30, 140, 60));
  Canvas.setPen(QPen(Qt::white, 2));
  Canvas.drawRoundedRect(QRectF(2, 2, 28, 26), 5, 5);
  const QPointF Tip[3] = {{11, 28}, {21, 28}, {16, 36}};
  Canvas.drawPolygon(Tip, 3);
  return Image;
}

struct TScene
{
  TvxMapControl Map;
  TvxMapItemLayer* Layer = nullptr;
  QImage Image{ViewSize, QImage::Format_ARGB32_Premultiplied};

  TScene()
  {
    Map.OptionsBehavior().SetAnimation(false);
    Map.NavigationPanel().SetVisible(false);
    Map.resize(ViewSize);
    Layer = Map.AddLayer<TvxMapItemLayer>();
  }

  void Show(const TvxMapControlGeoPoint& ACenter, double AZoom)
  {
    Map.SetZoomLevel(AZoom);
    Map.SetCenterPoint(ACenter);
  }

  void Render() { Map.render(&Image); }

  // Screen position of a point at the present view, through the layer.
  QPointF ToScreen(const TvxMapControlGeoPoint& APoint) const
  {
    const TvxPointDouble P = Layer->GeoPointToScreenPoint(APoint);
    return {P.X, P.Y};
  }
};

struct TResult
{
  const char* Name;
  double Engine;
  double Baseline;
};

void Print(const TResult& AResult)
{
  std::printf("%-34s engine %8.2f ms   baseline %8.2f ms   ratio %5.2f\n", AResult.Name, AResult.Engine,
              AResult.Baseline, AResult.Baseline > 0 ? AResult.Engine / AResult.Baseline : 0.0);
  BenchRow(AResult.Name, AResult.Engine, "QPainter straight", AResult.Baseline);
}

// Pans go right and back so that the view stays over the data.
double PanOffset(int AFrame)
{
  return (AFrame % 2 == 0) ? 7.0 : -7.0;
}

double ZoomAt(double AFrom, double ATo, int AFrame, int AFrames)
{
  return AFrom + (ATo - AFrom) * AFrame / std::max(1, AFrames - 1);
}

void BenchPushpins(int ARounds, int AFrames)
{
  TScene Scene;
  const QImage Marker = MarkerImage();
  QRandomGenerator Random(7);
  std::vector<TvxMapControlGeoPoint> Locations;
  Scene.Map.BeginUpdate();
  for (int I = 0; I < PushpinCount; ++I)
  {
    const auto Location =
      TvxMapControlGeoPoint::Create(40 + Random.bounded(15.0), -5 + Random.bounded(30.0));
    Locations.push_back(Location);
    auto* Pin = Scene.Layer->AddItem<TvxMapPushpin>();
    Pin->SetLocation(Location);
    Pin->SetImage(Marker);
    Pin->SetText(QString::number(I % 100));
  }
  Scene.Map.EndUpdate();
  const auto Centre = TvxMapControlGeoPoint::Create(47.5, 10);

  // The baseline draws the same pixmap at positions projected per frame, as
  // any client must after a view change, without layout or text.
  const QPixmap Pixmap = QPixmap::fromImage(Marker);
  auto Baseline = [&](int) {
    QPainter Canvas(&Scene.Image);
    Canvas.fillRect(Scene.Image.rect(), QColor(0xE6, 0xE4, 0xE0));
    for (const TvxMapControlGeoPoint& Location : Locations)
    {
      const QPointF P = Scene.ToScreen(Location);
      Canvas.drawPixmap(QPointF(P.x() - 16, P.y() - 18.5), Pixmap);
    }
  };

  std::vector<double> Pan, PanBase, Zoom, ZoomBase;
  for (int Round = 0; Round < ARounds; ++Round)
  {
    Scene.Show(Centre, 5);
    Pan.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.ScrollMap(PanOffset(AFrame), 3);
      Scene.Render();
    }));
    Scene.Show(Centre, 5);
    PanBase.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.ScrollMap(PanOffset(AFrame), 3);
      Baseline(AFrame);
    }));
    Scene.Show(Centre, 5);
    Zoom.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.SetZoomLevel(ZoomAt(5, 7, AFrame, AFrames));
      Scene.Render();
    }));
    Scene.Show(Centre, 5);
    ZoomBase.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.SetZoomLevel(ZoomAt(5, 7, AFrame, AFrames));
      Baseline(AFrame);
    }));
  }
  std::printf("%d pushpins with 32x37 images and text\n", PushpinCount);
  Print({"  pan frame, pushpins", Median(Pan), Median(PanBase)});
  Print({"  zoom frame (levels 5 to 7)", Median(Zoom), Median(ZoomBase)});
}

// A ring of VerticesPerPath points round a centre, its radius wobbling so
// that neighbouring vertices are distinct at every level.
std::vector<TvxMapControlGeoPoint> Ring(double ALatitude, double ALongitude, double ARadius, QRandomGenerator& ARandom)
{
  std::vector<TvxMapControlGeoPoint> Points;
  Points.reserve(VerticesPerPath);
  for (int I = 0; I < VerticesPerPath; ++I)
  {
    const double A = 2 * M_PI * I / VerticesPerPath;
    const double R = ARadius * (0.85 + ARandom.bounded(0.3));
    Points.push_back(TvxMapControlGeoPoint::Create(ALatitude + R * std::sin(A), ALongitude + R * std::cos(A)));
  }
  return Points;
}

void BenchPaths(int ARounds, int AFrames)
{
  TScene Scene;
  Scene.Layer->ItemStyle().SetColor(0x803070C0);
  Scene.Layer->ItemStyle().SetBorderColor(0xFF103060);
  QRandomGenerator Random(11);
  std::vector<std::vector<TvxMapControlGeoPoint>> Rings;
  Scene.Map.BeginUpdate();
  // 40 x 25 shapes over central Europe, each a ring of 1000 vertices.
  for (int I = 0; I < PathCount; ++I)
  {
    const double Latitude = 42 + (I / 40) * 0.5;
    const double Longitude = 0 + (I % 40) * 0.5;
    Rings.push_back(Ring(Latitude, Longitude, 0.2, Random));
    auto* Path = Scene.Layer->AddItem<TvxMapPath>();
    Path->Segments().Add()->GeoPoints().AddRange(Rings.back());
  }
  Scene.Map.EndUpdate();
  const auto Centre = TvxMapControlGeoPoint::Create(48, 10);

  // The baseline fills the same rings with QPainter, projected per frame.
  auto Baseline = [&](int) {
    QPainter Canvas(&Scene.Image);
    Canvas.setRenderHint(QPainter::Antialiasing);
    Canvas.fillRect(Scene.Image.rect(), QColor(0xE6, 0xE4, 0xE0));
    Canvas.setPen(QPen(QColor(0x10, 0x30, 0x60), 1));
    Canvas.setBrush(QColor(0x30, 0x70, 0xC0, 0x80));
    QPolygonF Polygon;
    for (const auto& Ring : Rings)
    {
      Polygon.clear();
      for (const TvxMapControlGeoPoint& Point : Ring)
        Polygon.append(Scene.ToScreen(Point));
      Canvas.drawPolygon(Polygon, Qt::OddEvenFill);
    }
  };

  std::vector<double> Pan, PanBase, Zoom, ZoomBase, Deep, DeepBase;
  // From level 14.5 a ring is about 6600 pixels across: every one in view
  // is clipped.
  const double DeepLevel = 14.5;
  const auto DeepCentre = TvxMapControlGeoPoint::Create(Rings[500].front().Latitude, Rings[500].front().Longitude);
  for (int Round = 0; Round < ARounds; ++Round)
  {
    Scene.Show(Centre, 6);
    Pan.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.ScrollMap(PanOffset(AFrame), 3);
      Scene.Render();
    }));
    Scene.Show(Centre, 6);
    PanBase.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.ScrollMap(PanOffset(AFrame), 3);
      Baseline(AFrame);
    }));
    Scene.Show(Centre, 6);
    Zoom.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.SetZoomLevel(ZoomAt(6, 7, AFrame, AFrames));
      Scene.Render();
    }));
    Scene.Show(Centre, 6);
    ZoomBase.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.SetZoomLevel(ZoomAt(6, 7, AFrame, AFrames));
      Baseline(AFrame);
    }));
    Scene.Show(DeepCentre, DeepLevel);
    Deep.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.SetZoomLevel(ZoomAt(DeepLevel, DeepLevel + 0.5, AFrame, AFrames));
      Scene.Render();
    }));
    Scene.Show(DeepCentre, DeepLevel);
    DeepBase.push_back(Time(AFrames, [&](int AFrame) {
      Scene.Map.SetZoomLevel(ZoomAt(DeepLevel, DeepLevel + 0.5, AFrame, AFrames));
      Baseline(AFrame);
    }));
  }
  std::printf("%d paths of %d vertices (%d vertices)\n", PathCount, VerticesPerPath, PathCount * VerticesPerPath);
  Print({"  pan frame, paths", Median(Pan), Median(PanBase)});
  Print({"  zoom frame (levels 6 to 7)", Median(Zoom), Median(ZoomBase)});
  Print({"  zoom frame, shapes > 5000 px", Median(Deep), Median(DeepBase)});
  if (!qEnvironmentVariableIsEmpty("MAPWRIGHT_BENCH_SNAPSHOT"))
  {
    Scene.Show(DeepCentre, DeepLevel);
    Scene.Render();
    Scene.Image.save(qEnvironmentVariable("MAPWRIGHT_BENCH_SNAPSHOT") + "-deep.png");
    Scene.Show(Centre, 6);
    Scene.Render();
    Scene.Image.save(qEnvironmentVariable("MAPWRIGHT_BENCH_SNAPSHOT") + "-paths.png");
  }
}
} // namespace

int main(int argc, char** argv)
{
  qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
  QApplication App(argc, argv);
  QCommandLineParser Parser;
  Parser.addHelpOption();
  Parser.addOption({"rounds", "Rounds of each measurement (default 5).", "N", "5"});
  Parser.addOption({"frames", "Frames per round (default 20).", "N", "20"});
  Parser.process(App);
  const int Rounds = std::max(1, Parser.value("rounds").toInt());
  const int Frames = std::max(2, Parser.value("frames").toInt());
  std::printf("map widget %dx%d, median of %d rounds of %d frames, milliseconds per frame\n", ViewSize.width(),
              ViewSize.height(), Rounds, Frames);
  BenchPushpins(Rounds, Frames);
  BenchPaths(Rounds, Frames);
  return 0;
}
