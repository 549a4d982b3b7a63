#include "vxMapControlGeometry.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <unordered_map>
#include <unordered_set>

namespace
{
// Edge parameters this close to an end count as a hit on the vertex.
constexpr double VertexTolerance = 1e-12;
// How far a vertex on the other polygon's edge, or on the ray of the
// point-in-polygon test, is moved: a tenth of a pixel is never seen.
constexpr double ShiftDistance = 0.1;

bool IsSame(double A, double B)
{
  return std::abs(A - B) <= VertexTolerance;
}

// Parameters of the crossing along both edges; false for parallel edges
// and for lines that meet outside either edge. NaN never crosses.
bool Intersect(const TvxEdge& ASubject, const TvxEdge& AClip, double& ASubjectAlpha, double& AClipAlpha)
{
  const TvxPointDouble& S0 = ASubject.StartPoint;
  const TvxPointDouble& S1 = ASubject.EndPoint;
  const TvxPointDouble& C0 = AClip.StartPoint;
  const TvxPointDouble& C1 = AClip.EndPoint;
  const double D = (C1.Y - C0.Y) * (S1.X - S0.X) - (C1.X - C0.X) * (S1.Y - S0.Y);
  if (D == 0)
    return false;
  ASubjectAlpha = ((C1.X - C0.X) * (S0.Y - C0.Y) - (S0.X - C0.X) * (C1.Y - C0.Y)) / D;
  if (!(ASubjectAlpha >= 0 && ASubjectAlpha <= 1))
    return false;
  AClipAlpha = ((S1.X - S0.X) * (S0.Y - C0.Y) - (S0.X - C0.X) * (S1.Y - S0.Y)) / D;
  return AClipAlpha >= 0 && AClipAlpha <= 1;
}

// A step of 0.1 from AVertex at right angles to AEdge, on which it lies.
TvxPointDouble ShiftedAcross(const TvxPointDouble& AVertex, const TvxEdge& AEdge)
{
  const TvxPointDouble& Other = AVertex == AEdge.StartPoint ? AEdge.EndPoint : AEdge.StartPoint;
  const double DeltaX = AVertex.X - Other.X;
  const double DeltaY = AVertex.Y - Other.Y;
  if (DeltaX == 0)
    return {AVertex.X - ShiftDistance, AVertex.Y};
  if (DeltaY == 0)
    return {AVertex.X, AVertex.Y - ShiftDistance};
  const double K = DeltaY / DeltaX;
  const double A = ShiftDistance / std::sqrt(K * K + 1);
  const double B = K * A;
  return {AVertex.X + B, AVertex.Y - A};
}

bool IsPtInPolygon(const TvxPointDouble& APoint, std::span<const TvxPointDouble> APoints)
{
  const size_t Count = APoints.size();
  if (Count < 3)
    return false;
  double MinX = APoints[0].X, MaxX = APoints[0].X, MinY = APoints[0].Y, MaxY = APoints[0].Y;
  for (const TvxPointDouble& Point : APoints)
  {
    MinX = std::min(MinX, Point.X);
    MaxX = std::max(MaxX, Point.X);
    MinY = std::min(MinY, Point.Y);
    MaxY = std::max(MaxY, Point.Y);
  }
  if (APoint.X < MinX || APoint.X > MaxX || APoint.Y < MinY || APoint.Y > MaxY)
    return false;
  const TvxEdge Ray{APoint, {std::max(MaxX, APoint.X) + 1, APoint.Y}};

  // A lifted vertex stays lifted for the edges after it: only the start of
  // the next edge and the closing point can be read again, so those two are
  // all the working copy needs.
  TvxPointDouble Start = APoints[0];
  TvxPointDouble Last = APoints[Count - 1];
  size_t Crossings = 0;
  for (size_t I = 0; I + 1 < Count; ++I)
  {
    TvxEdge Edge{Start, I + 2 == Count ? Last : APoints[I + 1]};
    const TvxPointDouble& A = Edge.StartPoint;
    const TvxPointDouble& B = Edge.EndPoint;
    if (A.Y == B.Y && A.Y == APoint.Y && APoint.X >= std::min(A.X, B.X) && APoint.X <= std::max(A.X, B.X))
      return true;
    double RayAlpha, EdgeAlpha;
    if (Intersect(Ray, Edge, RayAlpha, EdgeAlpha))
    {
      if (IsSame(RayAlpha, 0))
        return true;
      if (IsSame(EdgeAlpha, 0) || IsSame(EdgeAlpha, 1))
      {
        if (IsSame(EdgeAlpha, 0))
        {
          Edge.StartPoint.Y += ShiftDistance;
          if (I == 0)
            Last.Y = Edge.StartPoint.Y;
        }
        else
          Edge.EndPoint.Y += ShiftDistance;
        if (Intersect(Ray, Edge, RayAlpha, EdgeAlpha))
          ++Crossings;
      }
      else
        ++Crossings;
    }
    Start = Edge.EndPoint;
  }
  return Crossings % 2 == 1;
}

// A proper crossing of a subject edge and a clip edge: one vertex in each
// polygon, twins of each other.
struct TvxCrossing
{
  TvxPointDouble Point;
  double SubjectAlpha;
  double ClipAlpha;
  size_t SubjectEdge;
  size_t ClipEdge;
};

// Shifting is deterministic, so the retries go on for ever exactly when the
// vertices come back to positions they held after an earlier shift (a step
// lost to rounding at huge coordinates, or two edges passing a vertex back
// and forth). A running hash of all positions spots a repeat, and the moves
// since then confirm it bit for bit, so no input that ends is cut short.
class TvxShiftHistory
{
public:
  TvxShiftHistory(const std::vector<TvxPointDouble>& ASubject, const std::vector<TvxPointDouble>& AClip)
    : FLists{&ASubject, &AClip}
  {
    FSeen.emplace(FHash, 0);
  }

  // Before a vertex of list AList (0 subject, 1 clip) changes.
  void Moving(int AList, size_t AIndex, const TvxPointDouble& ANewPoint)
  {
    const TvxPointDouble& Old = (*FLists[AList])[AIndex];
    FHash += VertexHash(AList, AIndex, ANewPoint) - VertexHash(AList, AIndex, Old);
    FMoves.push_back({AList, AIndex, Old});
  }

  // After one shift; true if the positions repeat an earlier state.
  bool IsRepeating()
  {
    const auto [Begin, End] = FSeen.equal_range(FHash);
    for (auto It = Begin; It != End; ++It)
      if (IsSameAsAfter(It->second))
        return true;
    FSeen.emplace(FHash, FMoves.size());
    return false;
  }

private:
  struct TMove
  {
    int List;
    size_t Index;
    TvxPointDouble Old;
  };

  static std::uint64_t Mix(std::uint64_t A)
  {
    A += 0x9E3779B97F4A7C15ULL;
    A = (A ^ (A >> 30)) * 0xBF58476D1CE4E5B9ULL;
    A = (A ^ (A >> 27)) * 0x94D049BB133111EBULL;
    return A ^ (A >> 31);
  }

  static std::uint64_t VertexHash(int AList, size_t AIndex, const TvxPointDouble& APoint)
  {
    const std::uint64_t Key = Mix(static_cast<std::uint64_t>(AIndex) * 2 + static_cast<std::uint64_t>(AList));
    return Mix(Mix(Key ^ std::bit_cast<std::uint64_t>(APoint.X)) ^ std::bit_cast<std::uint64_t>(APoint.Y));
  }

  static bool IsSameBits(const TvxPointDouble& A, const TvxPointDouble& B)
  {
    return std::bit_cast<std::uint64_t>(A.X) == std::bit_cast<std::uint64_t>(B.X) &&
           std::bit_cast<std::uint64_t>(A.Y) == std::bit_cast<std::uint64_t>(B.Y);
  }

  // Every vertex moved since then is back where it was: its position at
  // that time is the old point of its first move after it.
  bool IsSameAsAfter(size_t AMoveCount) const
  {
    std::unordered_set<std::uint64_t> Checked;
    for (size_t I = AMoveCount; I < FMoves.size(); ++I)
    {
      const TMove& Move = FMoves[I];
      if (!Checked.insert(static_cast<std::uint64_t>(Move.Index) * 2 + static_cast<std::uint64_t>(Move.List)).second)
        continue;
      if (!IsSameBits(Move.Old, (*FLists[Move.List])[Move.Index]))
        return false;
    }
    return true;
  }

  const std::vector<TvxPointDouble>* FLists[2];
  std::vector<TMove> FMoves;
  std::unordered_multimap<std::uint64_t, size_t> FSeen;
  std::uint64_t FHash = 0;
};

// One polygon's ring as the walk sees it: the input vertices in order, and
// the crossings on its edges in order along it. Between two crossings lie
// the input vertices of the edges between theirs. The ring is not closed
// on itself: past the last vertex comes the first, which is its twin.
struct TvxVertices
{
  std::vector<TvxPointDouble> Points;
  std::vector<size_t> Order;     // crossing ids along the ring
  std::vector<size_t> Position;  // by crossing id: index into Order
  std::vector<char> IsEnter;     // by crossing id
};

class TvxPolygonClipper
{
public:
  TvxPolygonClipper(std::span<const TvxPointDouble> ASubject, std::span<const TvxPointDouble> AClip)
  {
    FSubject.Points.assign(ASubject.begin(), ASubject.end());
    FClip.Points.assign(AClip.begin(), AClip.end());
  }

  // False if shifting vertices never settles.
  bool CalculateIntersections();
  void MarkEntryAndExitPoints(bool& ASubjectInside, bool& AClipInside);
  void BuildPolygons(bool ASubjectInside, std::vector<std::vector<TvxPointDouble>>& APolygons, bool AClipInside);

private:
  size_t ShiftVertex(std::vector<TvxPointDouble>& AList, int AListId, size_t AIndex, const TvxEdge& AEdge,
                     TvxShiftHistory& AHistory);
  void Order(TvxVertices& AVertices, bool ASubject);
  size_t Walk(const TvxVertices& AVertices, bool ASubject, size_t ACrossing, std::vector<TvxPointDouble>& APolygon) const;

  size_t EdgeOf(bool ASubject, size_t ACrossing) const
  {
    return ASubject ? FCrossings[ACrossing].SubjectEdge : FCrossings[ACrossing].ClipEdge;
  }

  TvxVertices FSubject;
  TvxVertices FClip;
  std::vector<TvxCrossing> FCrossings;  // in the order they were found
};

// Moves a vertex off AEdge and keeps the ring closed. Returns the first
// subject edge whose crossings no longer hold.
size_t TvxPolygonClipper::ShiftVertex(std::vector<TvxPointDouble>& AList, int AListId, size_t AIndex,
                                      const TvxEdge& AEdge, TvxShiftHistory& AHistory)
{
  const TvxPointDouble Point = ShiftedAcross(AList[AIndex], AEdge);
  const size_t Twin = AIndex == 0 ? AList.size() - 1 : AIndex == AList.size() - 1 ? 0 : AIndex;
  AHistory.Moving(AListId, AIndex, Point);
  AList[AIndex] = Point;
  if (Twin != AIndex)
  {
    AHistory.Moving(AListId, Twin, Point);
    AList[Twin] = Point;
  }
  // A clip vertex, or the first subject vertex with its twin, changes edges
  // met from the start; any other subject vertex only its own two edges.
  if (AListId != 0 || Twin != AIndex)
    return 0;
  return AIndex == 0 ? 0 : AIndex - 1;
}

// Each shift would clear all crossings and start over. Crossings of the
// edges before the ones a shift touches come out the same again, in the
// same order, so the pass resumes at the first touched subject edge with
// those kept: the same result without a full pass per shifted vertex.
bool TvxPolygonClipper::CalculateIntersections()
{
  std::vector<TvxPointDouble>& Subject = FSubject.Points;
  std::vector<TvxPointDouble>& Clip = FClip.Points;
  TvxShiftHistory History(Subject, Clip);
  size_t SubjectEdge = 0;
  while (SubjectEdge + 1 < Subject.size())
  {
    const TvxEdge S{Subject[SubjectEdge], Subject[SubjectEdge + 1]};
    size_t Resume = SubjectEdge + 1;
    for (size_t ClipEdge = 0; ClipEdge + 1 < Clip.size(); ++ClipEdge)
    {
      const TvxEdge C{Clip[ClipEdge], Clip[ClipEdge + 1]};
      double SubjectAlpha, ClipAlpha;
      if (!Intersect(S, C, SubjectAlpha, ClipAlpha))
        continue;
      if (IsSame(SubjectAlpha, 0))
        Resume = ShiftVertex(Subject, 0, SubjectEdge, C, History);
      else if (IsSame(SubjectAlpha, 1))
        Resume = ShiftVertex(Subject, 0, SubjectEdge + 1, C, History);
      else if (IsSame(ClipAlpha, 0))
        Resume = ShiftVertex(Clip, 1, ClipEdge, S, History);
      else if (IsSame(ClipAlpha, 1))
        Resume = ShiftVertex(Clip, 1, ClipEdge + 1, S, History);
      else
      {
        const TvxPointDouble Point(S.StartPoint.X + (S.EndPoint.X - S.StartPoint.X) * SubjectAlpha,
                                   S.StartPoint.Y + (S.EndPoint.Y - S.StartPoint.Y) * SubjectAlpha);
        FCrossings.push_back({Point, SubjectAlpha, ClipAlpha, SubjectEdge, ClipEdge});
        continue;
      }
      if (History.IsRepeating())
        return false;
      while (!FCrossings.empty() && FCrossings.back().SubjectEdge >= Resume)
        FCrossings.pop_back();
      break;
    }
    SubjectEdge = Resume;
  }
  return true;
}

// Crossings on one edge go in by their position along it; equal positions
// keep the order in which they were found.
void TvxPolygonClipper::Order(TvxVertices& AVertices, bool ASubject)
{
  AVertices.Order.resize(FCrossings.size());
  std::iota(AVertices.Order.begin(), AVertices.Order.end(), size_t(0));
  std::stable_sort(AVertices.Order.begin(), AVertices.Order.end(), [&](size_t A, size_t B) {
    const TvxCrossing& CA = FCrossings[A];
    const TvxCrossing& CB = FCrossings[B];
    if (ASubject)
      return CA.SubjectEdge != CB.SubjectEdge ? CA.SubjectEdge < CB.SubjectEdge : CA.SubjectAlpha < CB.SubjectAlpha;
    return CA.ClipEdge != CB.ClipEdge ? CA.ClipEdge < CB.ClipEdge : CA.ClipAlpha < CB.ClipAlpha;
  });
  AVertices.Position.resize(FCrossings.size());
  for (size_t I = 0; I < AVertices.Order.size(); ++I)
    AVertices.Position[AVertices.Order[I]] = I;
}

void TvxPolygonClipper::MarkEntryAndExitPoints(bool& ASubjectInside, bool& AClipInside)
{
  ASubjectInside = IsPtInPolygon(FSubject.Points.front(), FClip.Points);
  AClipInside = IsPtInPolygon(FClip.Points.front(), FSubject.Points);
  if (FCrossings.empty())
    return;
  Order(FSubject, true);
  Order(FClip, false);
  for (TvxVertices* Vertices : {&FSubject, &FClip})
  {
    bool IsEnter = !(Vertices == &FSubject ? ASubjectInside : AClipInside);
    Vertices->IsEnter.resize(FCrossings.size());
    for (const size_t Crossing : Vertices->Order)
    {
      Vertices->IsEnter[Crossing] = IsEnter;
      IsEnter = !IsEnter;
    }
  }
}

// Appends the points from ACrossing to the next crossing along the ring,
// forward if the ring enters the other polygon there, else backward; the
// ring's ends wrap round. Returns that next crossing.
size_t TvxPolygonClipper::Walk(const TvxVertices& AVertices, bool ASubject, size_t ACrossing,
                               std::vector<TvxPointDouble>& APolygon) const
{
  const std::vector<TvxPointDouble>& Points = AVertices.Points;
  const size_t Count = AVertices.Order.size();
  const size_t Position = AVertices.Position[ACrossing];
  const size_t Edge = EdgeOf(ASubject, ACrossing);
  size_t Next;
  if (AVertices.IsEnter[ACrossing])
  {
    Next = AVertices.Order[(Position + 1) % Count];
    const size_t NextEdge = EdgeOf(ASubject, Next);
    if (Position + 1 < Count)
      APolygon.insert(APolygon.end(), Points.begin() + Edge + 1, Points.begin() + NextEdge + 1);
    else
    {
      APolygon.insert(APolygon.end(), Points.begin() + Edge + 1, Points.end());
      APolygon.insert(APolygon.end(), Points.begin(), Points.begin() + NextEdge + 1);
    }
  }
  else
  {
    Next = AVertices.Order[(Position + Count - 1) % Count];
    const size_t NextEdge = EdgeOf(ASubject, Next);
    if (Position > 0)
      APolygon.insert(APolygon.end(), Points.rend() - Edge - 1, Points.rend() - NextEdge - 1);
    else
    {
      APolygon.insert(APolygon.end(), Points.rend() - Edge - 1, Points.rend());
      APolygon.insert(APolygon.end(), Points.rbegin(), Points.rend() - NextEdge - 1);
    }
  }
  APolygon.push_back(FCrossings[Next].Point);
  return Next;
}

void TvxPolygonClipper::BuildPolygons(bool ASubjectInside, std::vector<std::vector<TvxPointDouble>>& APolygons,
                                      bool AClipInside)
{
  std::vector<char> IsProcessed(FCrossings.size(), false);
  // Crossings are only ever marked, so the first unprocessed one along the
  // subject never moves back.
  size_t First = 0;
  for (;;)
  {
    while (First < FSubject.Order.size() && IsProcessed[FSubject.Order[First]])
      ++First;
    if (First == FSubject.Order.size())
      break;
    size_t Crossing = FSubject.Order[First];
    std::vector<TvxPointDouble> Polygon{FCrossings[Crossing].Point};
    bool InSubject = true;
    do
    {
      IsProcessed[Crossing] = true;
      Crossing = Walk(InSubject ? FSubject : FClip, InSubject, Crossing, Polygon);
      InSubject = !InSubject;
    } while (!IsProcessed[Crossing]);
    APolygons.push_back(std::move(Polygon));
  }
  if (!APolygons.empty())
    return;
  if (ASubjectInside)
    APolygons.push_back(std::move(FSubject.Points));
  else if (AClipInside)
    APolygons.push_back(std::move(FClip.Points));
}

// Integer rounding of crossing points, halves to even; outside the int
// range it saturates instead of being undefined.
int ToInt(double AValue)
{
  constexpr double Min = std::numeric_limits<int>::min();
  constexpr double Max = std::numeric_limits<int>::max();
  if (!(AValue > Min))
    return std::numeric_limits<int>::min();
  if (!(AValue < Max))
    return std::numeric_limits<int>::max();
  return static_cast<int>(AValue);
}

QPoint ToPoint(const TvxPointDouble& APoint)
{
  return {ToInt(APoint.X), ToInt(APoint.Y)};
}

// The two-point line through a pair of points, read from a base point.
// Doubles keep the products of far-off integer points exact enough and
// free of overflow.
struct TvxLine
{
  TvxPointDouble Base;
  double DeltaX;
  double DeltaY;

  TvxLine(const TvxPointDouble& ABase, const TvxPointDouble& AOther)
    : Base(ABase), DeltaX(AOther.X - ABase.X), DeltaY(AOther.Y - ABase.Y)
  {
  }

  double YAt(double X) const { return std::nearbyint(Base.Y + (X - Base.X) * (DeltaY / DeltaX)); }
  double XAt(double Y) const { return std::nearbyint(Base.X + (Y - Base.Y) * (DeltaX / DeltaY)); }
};

class TvxPolylineClipper
{
public:
  explicit TvxPolylineClipper(const QRect& ARect)
    : L(ARect.left()), T(ARect.top()), R(ARect.right()), B(ARect.bottom())
  {
  }

  bool IsInside(const TvxPointDouble& P) const { return L <= P.X && P.X <= R && T <= P.Y && P.Y <= B; }
  bool IsOnBorder(const TvxPointDouble& P) const { return P.X == L || P.X == R || P.Y == T || P.Y == B; }

  // Both ends at or beyond one side: the segment at most touches.
  bool IsOnOneSide(const TvxPointDouble& P, const TvxPointDouble& Q) const
  {
    return (L >= P.X && L >= Q.X) || (R <= P.X && R <= Q.X) || (T >= P.Y && T >= Q.Y) || (B <= P.Y && B <= Q.Y);
  }

  // Where the segment from outside point Q comes in to strictly inside P.
  TvxPointDouble EntryPoint(const TvxPointDouble& P, const TvxPointDouble& Q) const
  {
    const TvxLine Line(P, Q);
    if (Line.DeltaX == 0)
      return {Q.X, T > Q.Y ? T : B};
    if (Line.DeltaY == 0)
      return {L > Q.X ? L : R, Q.Y};
    if (Q.X > R)
      return ClampedToTopBottom(Line, R);
    if (Q.X < L)
      return ClampedToTopBottom(Line, L);
    const double Y = T > Q.Y ? T : B;
    return {Line.XAt(Y), Y};
  }

  // Where the segment from strictly inside Q leaves towards outside P.
  TvxPointDouble ExitPoint(const TvxPointDouble& Q, const TvxPointDouble& P) const
  {
    const TvxLine Line(Q, P);
    if (Line.DeltaX == 0)
      return {P.X, T > P.Y ? T : B};
    if (Line.DeltaY == 0)
      return {P.X < L ? L : R, P.Y};
    if (P.X > R)
      return ClampedToTopBottom(Line, R);
    if (P.X >= L)
    {
      const double Y = T > P.Y ? T : B;
      return {Line.XAt(Y), Y};
    }
    return ClampedToTopBottom(Line, L);
  }

  // The other end of the chord from border point F towards AOther.
  TvxPointDouble FarSidePoint(const TvxPointDouble& F, const TvxPointDouble& AOther) const
  {
    const TvxLine Line(F, AOther);
    if (Line.DeltaX == 0)
      return {F.X, T == F.Y ? B : T};
    if (Line.DeltaY == 0)
      return {R == F.X ? L : R, F.Y};
    if (T == F.Y || B == F.Y)
    {
      const double Y = T == F.Y ? B : T;
      TvxPointDouble E(Line.XAt(Y), Y);
      if (E.X > R)
        E = {R, Line.YAt(R)};
      if (E.X < L)
        E = {L, Line.YAt(L)};
      return E;
    }
    return ClampedToTopBottom(Line, L == F.X ? R : L);
  }

  // The chord of a segment whose ends are both outside. Its two points are
  // ordered by the geometry, not by the direction of travel.
  bool CrossingChord(const TvxPointDouble& Q, const TvxPointDouble& P, TvxPointDouble& AFirst,
                     TvxPointDouble& ASecond) const
  {
    if (IsOnOneSide(P, Q))
      return false;
    if (P.X == Q.X)
    {
      AFirst = {Q.X, T};
      ASecond = {Q.X, B};
      return true;
    }
    if (P.Y == Q.Y)
    {
      AFirst = {L, Q.Y};
      ASecond = {R, Q.Y};
      return true;
    }
    const bool PIsLeft = P.X < Q.X;
    const TvxPointDouble& A = PIsLeft ? P : Q;
    const TvxPointDouble& Z = PIsLeft ? Q : P;
    const TvxLine Line(A, Z);
    const auto Leaving = [&](double Y) {
      const TvxPointDouble E(Line.XAt(Y), Y);
      return E.X > R ? TvxPointDouble(R, Line.YAt(R)) : E;
    };
    if (A.X < L)
    {
      AFirst = {L, Line.YAt(L)};
      if (AFirst.Y <= T)
      {
        if (!(AFirst.Y > A.Y))
          return false;
        AFirst = {Line.XAt(T), T};
        ASecond = Leaving(B);
        return AFirst.X < R;
      }
      if (AFirst.Y < B)
      {
        ASecond = Leaving(A.Y > Z.Y ? T : B);
        return true;
      }
      if (!(AFirst.Y < A.Y))
        return false;
      AFirst = {Line.XAt(B), B};
      ASecond = Leaving(T);
      return AFirst.X < R;
    }
    if (A.Y >= T)
    {
      AFirst = {Line.XAt(B), B};
      ASecond = Leaving(T);
      return AFirst.X < R;
    }
    AFirst = {Line.XAt(T), T};
    ASecond = Leaving(B);
    return AFirst.X < R;
  }

private:
  TvxPointDouble ClampedToTopBottom(const TvxLine& ALine, double X) const
  {
    const double Y = ALine.YAt(X);
    if (Y < T)
      return {ALine.XAt(T), T};
    if (Y > B)
      return {ALine.XAt(B), B};
    return {X, Y};
  }

  const double L, T, R, B;
};

// A polyline that got no further than one point is reused.
std::vector<QPoint>& StartPolyline(std::vector<std::vector<QPoint>>& APolylines)
{
  if (APolylines.empty() || APolylines.back().size() > 1)
    APolylines.emplace_back();
  else
    APolylines.back().clear();
  return APolylines.back();
}
}

void vxClipPolygon(std::span<const TvxPointDouble> ASubject, std::span<const TvxPointDouble> AClip,
                   std::vector<std::vector<TvxPointDouble>>& APolygons)
{
  APolygons.clear();
  if (ASubject.empty() || AClip.empty())
    return;
  TvxPolygonClipper Clipper(ASubject, AClip);
  if (!Clipper.CalculateIntersections())
    return;
  bool SubjectInside, ClipInside;
  Clipper.MarkEntryAndExitPoints(SubjectInside, ClipInside);
  Clipper.BuildPolygons(SubjectInside, APolygons, ClipInside);
}

bool vxIsPtInPolygon(const TvxPointDouble& APoint, std::span<const TvxPointDouble> APolygon)
{
  return IsPtInPolygon(APoint, APolygon);
}

void vxClipPolylineByRect(std::span<const QPoint> APoints, const QRect& ARect,
                          std::vector<std::vector<QPoint>>& APolylines)
{
  APolylines.clear();
  const TvxPolylineClipper Clipper(ARect);
  bool PreviousInside = false;
  bool PreviousOnBorder = false;
  TvxPointDouble Q;
  for (size_t I = 0; I < APoints.size(); ++I)
  {
    const TvxPointDouble P(APoints[I].x(), APoints[I].y());
    const bool Inside = Clipper.IsInside(P);
    const bool OnBorder = Inside && Clipper.IsOnBorder(P);
    if (Inside && PreviousInside)
      APolylines.back().push_back(APoints[I]);
    else if (Inside)
    {
      std::vector<QPoint>& Polyline = StartPolyline(APolylines);
      if (I > 0 && !OnBorder)
        Polyline.push_back(ToPoint(Clipper.EntryPoint(P, Q)));
      else if (I > 0 && !Clipper.IsOnOneSide(P, Q))
        Polyline.push_back(ToPoint(Clipper.FarSidePoint(P, Q)));
      Polyline.push_back(APoints[I]);
    }
    else if (PreviousInside)
    {
      if (!PreviousOnBorder)
        APolylines.back().push_back(ToPoint(Clipper.ExitPoint(Q, P)));
      else if (!Clipper.IsOnOneSide(P, Q))
        APolylines.back().push_back(ToPoint(Clipper.FarSidePoint(Q, P)));
    }
    else if (I > 0)
    {
      TvxPointDouble First, Second;
      if (Clipper.CrossingChord(Q, P, First, Second))
      {
        std::vector<QPoint>& Polyline = StartPolyline(APolylines);
        Polyline.push_back(ToPoint(First));
        Polyline.push_back(ToPoint(Second));
      }
    }
    PreviousInside = Inside;
    PreviousOnBorder = OnBorder;
    Q = P;
  }
  if (!APolylines.empty() && APolylines.back().size() <= 1)
    APolylines.pop_back();
}
