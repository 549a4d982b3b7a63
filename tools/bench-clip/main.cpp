// Measures the clipping of very large shapes to a 1920 x 1080 viewport: a
// polygon and a polyline of 1,000,000 integer screen points each, as the
// items layer hands them over at a high zoom. The baseline is
// QPainterPath::intersected on the same points (odd-even fill; it treats
// the polyline as closed, so for it the figure is a cost reference only).
//
//   mapwright-bench-clip [--points N] [--runs N]

#include "BenchStats.h"
#include "vxMapControlGeometry.h"

#include <QCoreApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QPainterPath>
#include <QRandomGenerator>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <vector>

namespace
{
const QRect Viewport(0, 0, 1920, 1080);

// A ring around the viewport's centre whose radius swings in and out of
// it, with every thousandth point a spike a million pixels out. Rounded to
// whole pixels, so that vertices land on the viewport's edges as they do
// for real.
std::vector<TvxPointDouble> MakePolygon(int ACount)
{
  std::vector<TvxPointDouble> Points;
  Points.reserve(ACount + 1);
  const QPointF Centre = QRectF(Viewport).center();
  for (int I = 0; I < ACount; ++I)
  {
    const double Angle = 2 * std::numbers::pi * I / ACount;
    double Radius = 1300 + 900 * std::sin(9 * Angle) + 250 * std::sin(97 * Angle);
    if (I % 1000 == 500)
      Radius = 1e6;
    Points.emplace_back(std::round(Centre.x() + Radius * std::cos(Angle)),
                        std::round(Centre.y() + Radius * std::sin(Angle)));
  }
  Points.push_back(Points.front());
  return Points;
}

// A random walk that wanders in and out of the viewport.
std::vector<QPoint> MakePolyline(int ACount)
{
  QRandomGenerator Random(42);
  std::vector<QPoint> Points;
  Points.reserve(ACount);
  double X = Viewport.center().x(), Y = Viewport.center().y(), Heading = 0;
  for (int I = 0; I < ACount; ++I)
  {
    Heading += Random.bounded(0.6) - 0.3;
    X += 8 * std::cos(Heading);
    Y += 8 * std::sin(Heading);
    // Pulled back towards the centre, so that it keeps crossing the edges.
    Heading += 0.02 * std::sin(std::atan2(Viewport.center().y() - Y, Viewport.center().x() - X) - Heading);
    Points.emplace_back(qRound(X), qRound(Y));
  }
  return Points;
}

QPainterPath PathOf(const QPolygonF& APolygon)
{
  QPainterPath Path;
  Path.setFillRule(Qt::OddEvenFill);
  Path.addPolygon(APolygon);
  return Path;
}

template<typename F>
double MedianMs(int ARuns, F&& ARun)
{
  std::vector<double> Times;
  for (int I = 0; I < ARuns; ++I)
  {
    QElapsedTimer Timer;
    Timer.start();
    ARun();
    Times.push_back(Timer.nsecsElapsed() / 1e6);
  }
  return Median(Times);
}

// Shoelace over every ring, so that both results can be seen to agree.
double Area(const std::vector<std::vector<TvxPointDouble>>& ARings)
{
  double Total = 0;
  for (const std::vector<TvxPointDouble>& Ring : ARings)
  {
    double Sum = 0;
    for (size_t I = 0; I < Ring.size(); ++I)
      Sum += Ring[I].X * Ring[(I + 1) % Ring.size()].Y - Ring[(I + 1) % Ring.size()].X * Ring[I].Y;
    Total += std::abs(Sum) / 2;
  }
  return Total;
}

double Area(const QPainterPath& APath)
{
  std::vector<std::vector<TvxPointDouble>> Rings;
  for (const QPolygonF& Polygon : APath.toSubpathPolygons())
  {
    Rings.emplace_back();
    for (const QPointF& Point : Polygon)
      Rings.back().emplace_back(Point.x(), Point.y());
  }
  return Area(Rings);
}

size_t CountPoints(const auto& ALists)
{
  size_t Count = 0;
  for (const auto& List : ALists)
    Count += List.size();
  return Count;
}
}

int main(int argc, char** argv)
{
  QCoreApplication App(argc, argv);
  QCommandLineParser Parser;
  Parser.setApplicationDescription(QStringLiteral("Clipping of large shapes to the viewport, beside QPainterPath."));
  Parser.addHelpOption();
  const QCommandLineOption PointsOption(QStringLiteral("points"), QStringLiteral("Points per shape."),
                                        QStringLiteral("N"), QStringLiteral("1000000"));
  const QCommandLineOption RunsOption(QStringLiteral("runs"), QStringLiteral("Runs per figure."), QStringLiteral("N"),
                                      QStringLiteral("7"));
  Parser.addOption(PointsOption);
  Parser.addOption(RunsOption);
  Parser.process(App);
  const int Count = std::max(3, Parser.value(PointsOption).toInt());
  const int Runs = std::max(1, Parser.value(RunsOption).toInt());

  const std::vector<TvxPointDouble> Polygon = MakePolygon(Count);
  const std::vector<QPoint> Polyline = MakePolyline(Count);
  const QRectF Rect(Viewport);
  const std::vector<TvxPointDouble> Clip{{Rect.left(), Rect.top()},
                                         {Rect.right(), Rect.top()},
                                         {Rect.right(), Rect.bottom()},
                                         {Rect.left(), Rect.bottom()},
                                         {Rect.left(), Rect.top()}};
  QPolygonF PolygonF, PolylineF;
  for (const TvxPointDouble& Point : Polygon)
    PolygonF << QPointF(Point.X, Point.Y);
  for (const QPoint& Point : Polyline)
    PolylineF << QPointF(Point);
  QPainterPath ClipPath;
  ClipPath.addRect(Rect);

  std::vector<std::vector<TvxPointDouble>> Polygons;
  std::vector<std::vector<QPoint>> Polylines;
  QPainterPath PolygonResult, PolylineResult;
  const double PolygonMs = MedianMs(Runs, [&] { vxClipPolygon(Polygon, Clip, Polygons); });
  const double PolygonQtMs = MedianMs(Runs, [&] { PolygonResult = PathOf(PolygonF).intersected(ClipPath); });
  const double PolylineMs = MedianMs(Runs, [&] { vxClipPolylineByRect(Polyline, Viewport, Polylines); });
  const double PolylineQtMs = MedianMs(Runs, [&] { PolylineResult = PathOf(PolylineF).intersected(ClipPath); });

  std::printf("%d points, %dx%d viewport, median of %d runs\n", Count, Viewport.width(), Viewport.height(), Runs);
  std::printf("polygon   vxClipPolygon %10.2f ms  (%zu rings, %zu points, area %.0f)\n", PolygonMs, Polygons.size(),
              CountPoints(Polygons), Area(Polygons));
  std::printf("          QPainterPath  %10.2f ms  (%d elements, area %.0f)\n", PolygonQtMs, PolygonResult.elementCount(),
              Area(PolygonResult));
  std::printf("          ratio         %10.3f\n", PolygonMs / PolygonQtMs);
  std::printf("polyline  vxClipPolylineByRect %10.2f ms  (%zu pieces, %zu points)\n", PolylineMs, Polylines.size(),
              CountPoints(Polylines));
  std::printf("          QPainterPath         %10.2f ms  (%d elements)\n", PolylineQtMs,
              PolylineResult.elementCount());
  std::printf("          ratio                %10.3f\n", PolylineMs / PolylineQtMs);
  BenchRow("clip a 1M-point polygon", PolygonMs, "QPainterPath::intersected", PolygonQtMs);
  BenchRow("clip a 1M-point polyline", PolylineMs, "QPainterPath::intersected", PolylineQtMs);
  return 0;
}
