#include "TestRegistry.h"
#include "vxMapControlGeometry.h"

#include <QPainterPath>
#include <QPolygon>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace
{
using TRing = std::vector<TvxPointDouble>;
using TRings = std::vector<TRing>;

// Clockwise on screen, as the items layer builds its viewport.
TRing RectRing(double L, double T, double R, double B)
{
  return {{L, T}, {R, T}, {R, B}, {L, B}, {L, T}};
}

// Summed over rings, each taken positive.
double ShoelaceArea(const TRings& ARings)
{
  double Area = 0;
  for (const TRing& Ring : ARings)
  {
    double Sum = 0;
    for (size_t I = 0; I < Ring.size(); ++I)
      Sum += Ring[I].X * Ring[(I + 1) % Ring.size()].Y - Ring[(I + 1) % Ring.size()].X * Ring[I].Y;
    Area += std::abs(Sum) / 2;
  }
  return Area;
}

QString Describe(const TRings& ARings)
{
  QString Text;
  for (const TRing& Ring : ARings)
    for (size_t I = 0; I < Ring.size(); ++I)
      Text += QStringLiteral("%1(%2,%3)").arg(I ? "" : " | ").arg(Ring[I].X).arg(Ring[I].Y);
  return Text;
}

// Clips to the rectangle and holds the result against QPainterPath. Shifted
// vertices move the outline by 0.1 along at most the rectangle's edges,
// hence an absolute slack beside the 1%.
void VerifyAgainstPainterPath(const TRing& ASubject, double L, double T, double R, double B, const QString& AName)
{
  TRings Result;
  vxClipPolygon(ASubject, RectRing(L, T, R, B), Result);
  for (const TRing& Ring : Result)
    for (const TvxPointDouble& P : Ring)
      QVERIFY2(Ring.front() == Ring.back() && P.X >= L - 0.11 && P.X <= R + 0.11 && P.Y >= T - 0.11 && P.Y <= B + 0.11,
               qPrintable(AName + QStringLiteral(": ") + Describe(Result)));
  QPolygonF Polygon;
  for (const TvxPointDouble& Point : ASubject)
    Polygon << QPointF(Point.X, Point.Y);
  QPainterPath Subject, Clip;
  Subject.setFillRule(Qt::OddEvenFill);
  Subject.addPolygon(Polygon);
  Clip.addRect(QRectF(QPointF(L, T), QPointF(R, B)));
  TRings TheirRings;
  for (const QPolygonF& Ring : Subject.intersected(Clip).toSubpathPolygons())
    for (TheirRings.emplace_back(); const QPointF& P : Ring)
      TheirRings.back().emplace_back(P.x(), P.y());
  const double Ours = ShoelaceArea(Result), Theirs = ShoelaceArea(TheirRings);
  QVERIFY2(std::abs(Ours - Theirs) <= 0.01 * std::max(Ours, Theirs) + 0.2 * ((R - L) + (B - T)),
           qPrintable(QStringLiteral("%1: area %2, QPainterPath %3; subject %4; result %5")
                        .arg(AName)
                        .arg(Ours)
                        .arg(Theirs)
                        .arg(Describe({ASubject}), Describe(Result))));
}

QPolygon Poly(std::initializer_list<QPoint> APoints)
{
  return QPolygon(QList<QPoint>(APoints));
}

// Length of a segment inside the closed rectangle (Liang-Barsky).
double ClippedLength(QPointF A, QPointF Z, const QRect& ARect)
{
  double T0 = 0, T1 = 1;
  const double DX = Z.x() - A.x(), DY = Z.y() - A.y();
  const double P[4] = {-DX, DX, -DY, DY};
  const double Q[4] = {A.x() - ARect.left(), ARect.right() - A.x(), A.y() - ARect.top(), ARect.bottom() - A.y()};
  for (int I = 0; I < 4; ++I)
  {
    if (P[I] == 0 && Q[I] < 0)
      return 0;
    if (P[I] != 0)
      (P[I] < 0 ? T0 : T1) = P[I] < 0 ? std::max(T0, Q[I] / P[I]) : std::min(T1, Q[I] / P[I]);
  }
  return T1 > T0 ? (T1 - T0) * std::hypot(DX, DY) : 0;
}
}

class TestVxMapControlGeometry : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void clipPolygonAgreesWithPainterPath();
  void clipPolygonWholePiecesAndShifts();
  void clipPolygonEndsOnBadInput();
  void pointInPolygon();
  void clipPolyline_data();
  void clipPolyline();
  void clipPolylineKeepsLengthInsideRect();
};

void TestVxMapControlGeometry::clipPolygonAgreesWithPainterPath()
{
  // Rings sorted by angle round a centre inside them are simple whatever
  // their radii. Moving a vertex along its ray keeps them so: that is how
  // vertices are put on the rectangle's lines, and two in a row give an
  // edge along one.
  QRandomGenerator Random(20240611);
  for (int Case = 0; Case < 400; ++Case)
  {
    const double L = Random.bounded(300), T = Random.bounded(300);
    const double R = L + 50 + Random.bounded(400), B = T + 50 + Random.bounded(400);
    const double Half = std::hypot(R - L, B - T) / 2;
    const int Kind = Case % 4;  // crossing, inside, outside, containing
    const double MinRadius = Kind == 3 ? Half + 1 : 1;
    const double MaxRadius = Kind == 1 ? std::min(R - L, B - T) / 2 - 1 : Kind == 2 ? 100 : 2 * Half;
    const double CX = std::round((L + R) / 2 + (Kind == 0 ? Random.bounded(200) - 100 : Kind == 2 ? Half + 120 : 0));
    const double CY = std::round((T + B) / 2 + (Kind == 0 ? Random.bounded(200) - 100 : 0));
    const bool OnLines = Case % 8 < 4;
    std::vector<std::pair<double, TvxPointDouble>> Vertices;
    for (int I = 0, Count = 3 + Random.bounded(40); I < Count; ++I)
    {
      // The first three keep every gap between angles under half a turn.
      const double Angle = I < 3 ? (I + Random.bounded(0.5)) * 2 * std::numbers::pi / 3
                                 : Random.bounded(2 * std::numbers::pi);
      const double DX = std::cos(Angle), DY = std::sin(Angle);
      const double Radius = MinRadius + Random.bounded(MaxRadius - MinRadius);
      TvxPointDouble Point(CX + Radius * DX, CY + Radius * DY);
      // Onto the line of side L, R, T or B, if its ray gets there; exactly
      // on it, not a rounding away.
      const int Side = OnLines ? Random.bounded(6) : 4;
      const double Line = Side == 0 ? L : Side == 1 ? R : Side == 2 ? T : B;
      const double Reach = Side < 2 ? (Line - CX) / DX : Side < 4 ? (Line - CY) / DY : -1;
      if (Reach > 0 && Reach < 3 * Half)
        Point = Side < 2 ? TvxPointDouble(Line, CY + Reach * DY) : TvxPointDouble(CX + Reach * DX, Line);
      Vertices.emplace_back(std::atan2(DY, DX), Point);
    }
    if (OnLines)
      for (const TvxPointDouble& Corner : RectRing(L, T, R, B))
        if (Random.bounded(3) == 0 && (Corner.X != CX || Corner.Y != CY))
          Vertices.emplace_back(std::atan2(Corner.Y - CY, Corner.X - CX), Corner);
    std::sort(Vertices.begin(), Vertices.end(), [](const auto& A, const auto& B) { return A.first < B.first; });
    TRing Subject;
    for (const auto& Vertex : Vertices)
      Subject.push_back(Vertex.second);
    Subject.push_back(Subject.front());
    VerifyAgainstPainterPath(Subject, L, T, R, B, QStringLiteral("case %1").arg(Case));
    if (QTest::currentTestFailed())
      return;
  }

  const TRing Degenerate[] = {
    RectRing(0, 0, 100, 100),                             // the clip itself
    {{0, 0}, {0, 100}, {100, 100}, {100, 0}, {0, 0}},     // the clip reversed
    RectRing(0, -50, 100, 0),                             // sharing the top edge from outside
    RectRing(20, 0, 60, 40),                              // on part of the top edge from inside
    RectRing(0, -20, 50, 120),                            // along the left edge and beyond
    {{-50, 50}, {50, -50}, {150, 150}, {-50, 50}},        // a clip corner on a subject edge
    {{-50, -50}, {150, 150}, {-50, 150}, {-50, -50}},     // an edge through two corners
    {{50, 0}, {100, 50}, {50, 100}, {0, 50}, {50, 0}},    // a vertex on each edge
    {{-20, 50}, {-20, 50}, {50, -20}, {120, 50}, {120, 50}, {50, 120}, {-20, 50}},  // repeated points
  };
  for (const TRing& Subject : Degenerate)
    VerifyAgainstPainterPath(Subject, 0, 0, 100, 100, Describe({Subject}));
}

void TestVxMapControlGeometry::clipPolygonWholePiecesAndShifts()
{
  const TRing Clip = RectRing(0, 0, 100, 100);
  TRings Result{{{1, 1}}};

  const TRing Inner{{20, 20}, {80, 30}, {50, 70}, {20, 20}};
  vxClipPolygon(Inner, Clip, Result);
  QVERIFY2(Result == TRings{Inner}, qPrintable(Describe(Result)));
  vxClipPolygon(RectRing(-50, -50, 150, 150), Clip, Result);
  QVERIFY2(Result == TRings{Clip}, qPrintable(Describe(Result)));
  vxClipPolygon(RectRing(200, 200, 300, 300), Clip, Result);
  QVERIFY(Result.empty());

  // Two legs down through the top edge: two pieces of 20 x 50.
  vxClipPolygon(TRing{{10, -50}, {90, -50}, {90, 50}, {70, 50}, {70, -20}, {30, -20}, {30, 50}, {10, 50}, {10, -50}},
                Clip, Result);
  QCOMPARE(Result.size(), size_t(2));
  QVERIFY2(std::abs(ShoelaceArea({Result[0]}) - 1000) < 1e-6 && std::abs(ShoelaceArea({Result[1]}) - 1000) < 1e-6,
           qPrintable(Describe(Result)));

  // A vertex on the right edge moves 0.1 left, in; on the left edge 0.1
  // left, out. A first vertex takes its closing twin along.
  vxClipPolygon(TRing{{100, 50}, {20, 80}, {20, 20}, {100, 50}}, Clip, Result);
  QVERIFY2(Result == (TRings{{{99.9, 50}, {20, 80}, {20, 20}, {99.9, 50}}}), qPrintable(Describe(Result)));
  vxClipPolygon(TRing{{-50, 20}, {0, 50}, {-50, 80}, {-50, 20}}, Clip, Result);
  QVERIFY(Result.empty());

  // On the top edge it moves up, out, and the tip is cut off at the edge.
  vxClipPolygon(TRing{{20, 50}, {50, 0}, {80, 50}, {20, 50}}, Clip, Result);
  QCOMPARE(Result.size(), size_t(1));
  QCOMPARE(std::count_if(Result[0].begin() + 1, Result[0].end(), [](const auto& P) { return std::abs(P.Y) < 1e-9; }),
           2);
  QVERIFY2(ShoelaceArea(Result) > 1500 && ShoelaceArea(Result) < 1503.01, qPrintable(Describe(Result)));
}

void TestVxMapControlGeometry::clipPolygonEndsOnBadInput()
{
  constexpr double NaN = std::numeric_limits<double>::quiet_NaN(), Inf = std::numeric_limits<double>::infinity();
  const TRing Clip = RectRing(0, 0, 100, 100);
  TRings Result;
  const TRing Cases[] = {
    {{50, 50}},
    {{0, 0}, {NaN, 50}, {100, 100}, {0, 100}, {0, 0}},
    {{-1e308, -1e308}, {1e308, -1e308}, {1e308, 1e308}, {-1e308, -1e308}},
    {{-Inf, 50}, {Inf, 50}, {50, Inf}, {-Inf, 50}},
    {{-50, 50}, {150, 60}, {50, -50}, {60, 150}, {-50, 50}},
    {{-20, 20}, {120, 20}, {120, 80}, {-20, 80}},  // not closed
  };
  for (const TRing& Subject : Cases)
  {
    vxClipPolygon(Subject, Clip, Result);
    vxClipPolygon(Clip, Subject, Result);
  }
  // An empty input clears what the output held.
  Result = {Clip};
  vxClipPolygon({}, Clip, Result);
  QVERIFY(Result.empty());

  // At 1e17 a step of 0.1 is lost to rounding: the vertex on the edge never
  // moves, the shifts would repeat for ever, and the result is empty.
  vxClipPolygon(TRing{{2e16, 2e16}, {1e17, 5e16}, {2e16, 8e16}, {2e16, 2e16}}, RectRing(0, 0, 1e17, 1e17), Result);
  QVERIFY(Result.empty());

  // Ten thousand teeth touching the top edge all move, and the pass still
  // ends: a shift does not start the whole pass over.
  TRing Comb;
  for (int I = 0; I <= 20000; ++I)
    Comb.emplace_back(I * 0.005, I % 2 ? 0 : 50);
  Comb.insert(Comb.end(), {{100, 150}, {0, 150}, Comb.front()});
  vxClipPolygon(Comb, Clip, Result);
  QCOMPARE(Result.size(), size_t(1));
}

void TestVxMapControlGeometry::pointInPolygon()
{
  const TRing Square = RectRing(0, 0, 100, 100);
  const TRing Reversed{{0, 0}, {0, 100}, {100, 100}, {100, 0}, {0, 0}};
  const TRing Diamond{{50, 0}, {100, 50}, {50, 100}, {0, 50}, {50, 0}};
  const TRing Notched{{0, 0}, {100, 0}, {100, 100}, {50, 50}, {0, 100}, {0, 0}};  // tip up at (50, 50)

  QVERIFY(vxIsPtInPolygon({30, 40}, Square) && !vxIsPtInPolygon({130, 40}, Square));
  QVERIFY(vxIsPtInPolygon({100, 40}, Square) && vxIsPtInPolygon({0, 40}, Reversed));  // vertical edges
  QVERIFY(vxIsPtInPolygon({40, 0}, Square) && vxIsPtInPolygon({100, 100}, Square));  // edge, vertex
  // The ray meets the right end of this edge first and lifts it by 0.1; the
  // edge is then read 0.1 lower, with the inside below: the point is out.
  QVERIFY(!vxIsPtInPolygon({40, 0}, Reversed));
  // Rays through a vertex count it once, or not at all where they graze.
  QVERIFY(vxIsPtInPolygon({20, 50}, Diamond) && !vxIsPtInPolygon({40, 0}, Diamond));
  QVERIFY(vxIsPtInPolygon({20, 50}, Notched) && !vxIsPtInPolygon({50, 90}, Notched));
  QVERIFY(!vxIsPtInPolygon({50, 50}, TRing{{0, 0}, {100, 100}}));
  QVERIFY(!vxIsPtInPolygon({std::numeric_limits<double>::quiet_NaN(), 50}, Square));
}

void TestVxMapControlGeometry::clipPolyline_data()
{
  QTest::addColumn<QPolygon>("points");
  QTest::addColumn<QList<QPolygon>>("expected");
  using Lines = QList<QPolygon>;
  constexpr int Min = std::numeric_limits<int>::min(), Max = std::numeric_limits<int>::max();

  // The rectangle is (10, 20) to (110, 80), corners inclusive.
  QTest::newRow("all inside") << Poly({{20, 30}, {50, 40}, {100, 70}}) << Lines{Poly({{20, 30}, {50, 40}, {100, 70}})};
  QTest::newRow("all outside") << Poly({{0, 0}, {200, 0}, {200, 10}}) << Lines{};
  QTest::newRow("lone point inside") << Poly({{50, 50}}) << Lines{};
  QTest::newRow("on the border is inside") << Poly({{110, 80}, {10, 50}}) << Lines{Poly({{110, 80}, {10, 50}})};
  // A piece with both ends outside runs left to right, whatever the travel.
  QTest::newRow("through, diagonal") << Poly({{120, 90}, {0, 30}}) << Lines{Poly({{10, 35}, {100, 80}})};
  QTest::newRow("through, from below") << Poly({{40, 100}, {100, 0}}) << Lines{Poly({{52, 80}, {88, 20}})};
  QTest::newRow("leaves and comes back")
    << Poly({{50, 50}, {50, 0}, {0, 50}, {200, 50}, {200, 70}, {100, 70}})
    << Lines{Poly({{50, 50}, {50, 20}}), Poly({{10, 40}, {30, 20}}), Poly({{10, 50}, {110, 50}}),
             Poly({{110, 70}, {100, 70}})};
  QTest::newRow("exit clamped to the bottom") << Poly({{20, 70}, {0, 100}}) << Lines{Poly({{20, 70}, {13, 80}})};
  QTest::newRow("halves round to even") << Poly({{0, 28}, {20, 29}}) << Lines{Poly({{10, 28}, {20, 29}})};
  QTest::newRow("touching from outside") << Poly({{0, 30}, {10, 30}, {0, 40}}) << Lines{};
  QTest::newRow("along the border, outside to outside") << Poly({{10, 0}, {10, 100}}) << Lines{};
  QTest::newRow("in through a border point") << Poly({{0, 50}, {10, 50}, {50, 50}}) << Lines{Poly({{10, 50}, {50, 50}})};
  QTest::newRow("across from a border point") << Poly({{50, 20}, {70, 120}}) << Lines{Poly({{50, 20}, {62, 80}})};
  QTest::newRow("across to a border point") << Poly({{200, 30}, {10, 60}}) << Lines{Poly({{110, 44}, {10, 60}})};
  // The line meets the left side at y 79.8, rounded onto the bottom line; the
  // chord then starts where the line meets that line, at x 5.5.
  QTest::newRow("chord near a corner") << Poly({{123, 75}, {-18, 81}}) << Lines{Poly({{6, 80}, {110, 76}})};
  // By the left side the line has fallen 0.4, which rounds to no fall, so
  // its chord across the top right corner is lost.
  QTest::newRow("chord from just left of the rectangle") << Poly({{9, -7}, {144, 46}}) << Lines{};
  QTest::newRow("int range") << Poly({{Min, Min}, {Max, Max}, {Max, 50}, {Min, 50}})
                             << Lines{Poly({{20, 20}, {80, 80}}), Poly({{10, 50}, {110, 50}})};
}

void TestVxMapControlGeometry::clipPolyline()
{
  QFETCH(QPolygon, points);
  QFETCH(QList<QPolygon>, expected);
  std::vector<std::vector<QPoint>> Result{{{1, 1}}};
  vxClipPolylineByRect(points, QRect(QPoint(10, 20), QPoint(110, 80)), Result);
  QList<QPolygon> Actual;
  for (const std::vector<QPoint>& Polyline : Result)
    Actual << QPolygon(QList<QPoint>(Polyline.begin(), Polyline.end()));
  QCOMPARE(Actual, expected);
}

// Pieces lie in the rectangle and keep the length an exact clipper keeps,
// up to rounding. Left out are segments along a border line, which only
// touch, and those whose chord is decided on rounded crossings as in the two
// "chord" rows: passing within a pixel of a corner, or with the left end
// within a pixel's fall of the left side.
void TestVxMapControlGeometry::clipPolylineKeepsLengthInsideRect()
{
  const QRect Rect(QPoint(10, 20), QPoint(110, 80));
  const auto IsLeftOut = [&](QPoint A, QPoint Z) {
    if (A.x() > Z.x())
      std::swap(A, Z);
    if (A.x() == Z.x())
      return A.x() == Rect.left() || A.x() == Rect.right();
    if (A.y() == Z.y() && (A.y() == Rect.top() || A.y() == Rect.bottom()))
      return true;
    const double Slope = double(Z.y() - A.y()) / (Z.x() - A.x());
    if (A.x() < Rect.left() && std::abs((Rect.left() - A.x()) * Slope) <= 1)
      return true;
    for (const QPoint C : {Rect.topLeft(), Rect.topRight(), Rect.bottomLeft(), Rect.bottomRight()})
      if ((A.x() <= C.x() && C.x() <= Z.x() && std::abs(A.y() + (C.x() - A.x()) * Slope - C.y()) <= 1) ||
          (std::min(A.y(), Z.y()) <= C.y() && C.y() <= std::max(A.y(), Z.y()) && Z.y() != A.y() &&
           std::abs(A.x() + (C.y() - A.y()) / Slope - C.x()) <= 1))
        return true;
    return false;
  };
  QRandomGenerator Random(7);
  for (int Case = 0; Case < 300; ++Case)
  {
    QPolygon Points{QPoint(Random.bounded(-60, 180), Random.bounded(-40, 140))};
    double Expected = 0, Tolerance = 1e-9;
    for (int Count = Random.bounded(60); Count > 0; --Count)
    {
      const QPoint A = Points.back(), Z(Random.bounded(-60, 180), Random.bounded(-40, 140));
      if (IsLeftOut(A, Z))
        continue;
      Points << Z;
      Expected += ClippedLength(A, Z, Rect);
      Tolerance += !Rect.contains(A) + !Rect.contains(Z);
    }
    std::vector<std::vector<QPoint>> Result;
    vxClipPolylineByRect(Points, Rect, Result);
    double Actual = 0;
    for (const std::vector<QPoint>& Polyline : Result)
      for (size_t I = 0; I < Polyline.size(); ++I)
      {
        QVERIFY2(Polyline.size() >= 2 && Rect.contains(Polyline[I]), qPrintable(QString::number(Case)));
        Actual += I ? std::hypot(Polyline[I].x() - Polyline[I - 1].x(), Polyline[I].y() - Polyline[I - 1].y()) : 0;
      }
    QVERIFY2(std::abs(Actual - Expected) <= Tolerance,
             qPrintable(QStringLiteral("case %1: length %2, expected %3").arg(Case).arg(Actual).arg(Expected)));
  }
}

MAPWRIGHT_TEST_CLASS(TestVxMapControlGeometry)

#include "tst_vxMapControlGeometry.moc"
