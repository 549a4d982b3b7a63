#pragma once

// Value types every part of the map engine exchanges. Three coordinate
// spaces exist: geographic degrees, map units (the world is 0..1 on both
// axes, Y growing south) and screen points (floating client pixels).

#include <QHashFunctions>
#include <QString>
#include <QtGlobal>
#include <stdexcept>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <iterator>
#include <numbers>
#include <vector>

// A list asked for an index or a name it does not have.
class EListError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

struct TvxPointDouble
{
  double X = 0;
  double Y = 0;

  constexpr TvxPointDouble() = default;
  constexpr TvxPointDouble(double AX, double AY) : X(AX), Y(AY) {}

  friend constexpr bool operator==(const TvxPointDouble&, const TvxPointDouble&) = default;
};

inline constexpr TvxPointDouble vxNullPointDouble{};

// Height is stored first; the constructor function takes width first.
struct TvxSizeDouble
{
  double Height = 0;
  double Width = 0;

  friend constexpr bool operator==(const TvxSizeDouble&, const TvxSizeDouble&) = default;
};

constexpr TvxSizeDouble vxSizeDouble(double AWidth, double AHeight)
{
  TvxSizeDouble Result;
  Result.Width = AWidth;
  Result.Height = AHeight;
  return Result;
}

struct TvxRectDouble
{
  double Left = 0;
  double Top = 0;
  double Width = 0;
  double Height = 0;

  constexpr TvxRectDouble() = default;
  constexpr TvxRectDouble(double ALeft, double ATop, double AWidth, double AHeight)
    : Left(ALeft), Top(ATop), Width(AWidth), Height(AHeight)
  {
  }

  constexpr double Right() const { return Left + Width; }
  constexpr double Bottom() const { return Top + Height; }
  constexpr TvxPointDouble TopLeft() const { return {Left, Top}; }
  constexpr TvxPointDouble BottomRight() const { return {Right(), Bottom()}; }
  constexpr bool IsEmpty() const { return !(Width > 0) || !(Height > 0); }

  friend constexpr bool operator==(const TvxRectDouble&, const TvxRectDouble&) = default;
};

inline constexpr TvxRectDouble vxNullRectDouble{};

// The smallest rectangle holding both, empty ones included.
constexpr TvxRectDouble vxUnionRectDouble(const TvxRectDouble& A, const TvxRectDouble& B)
{
  const double Left = A.Left < B.Left ? A.Left : B.Left;
  const double Top = A.Top < B.Top ? A.Top : B.Top;
  const double Right = A.Right() > B.Right() ? A.Right() : B.Right();
  const double Bottom = A.Bottom() > B.Bottom() ? A.Bottom() : B.Bottom();
  return {Left, Top, Right - Left, Bottom - Top};
}

// The tolerance rule of every geographic comparison: equal when the
// difference is at most max(min(|a|, |b|) * 1e-12, 1e-12).
bool vxSameValue(double A, double B);

struct TvxMapControlGeoPoint
{
  double Latitude = 0;
  double Longitude = 0;

  // Latitude first, always.
  static constexpr TvxMapControlGeoPoint Create(double ALatitude, double ALongitude)
  {
    TvxMapControlGeoPoint Result;
    Result.Latitude = ALatitude;
    Result.Longitude = ALongitude;
    return Result;
  }

  bool IsEqual(const TvxMapControlGeoPoint& AOther) const;
  // Inside [-90, 90] x [-180, 180], bounds included; NaN is never valid.
  bool IsValid() const;
  // "lat,lon", shortest form, "." whatever the locale.
  QString AsString() const;
};

// The unit converter's normalisation: latitude clamped to [-90, 90],
// longitude wrapped round the circle into (-180, 180]. Longitudes already in
// [-180, 180] are kept as they are: the trip through sine and cosine would
// only add rounding, and -180 stays -180 either way. NaN stays NaN.
inline TvxMapControlGeoPoint vxNormalizedGeoPoint(const TvxMapControlGeoPoint& APoint)
{
  TvxMapControlGeoPoint Result;
  Result.Latitude = std::clamp(APoint.Latitude, -90.0, 90.0);
  Result.Longitude = APoint.Longitude;
  if (!(Result.Longitude >= -180 && Result.Longitude <= 180))
  {
    const double A = Result.Longitude * (std::numbers::pi / 180);
    Result.Longitude = std::atan2(std::sin(A), std::cos(A)) * (180 / std::numbers::pi);
  }
  return Result;
}

struct TvxMapControlGeoRect
{
  double Top = 0;     // north latitude
  double Left = 0;    // west longitude
  double Bottom = 0;  // south latitude
  double Right = 0;   // east longitude

  static constexpr TvxMapControlGeoRect Create(double ANorth, double AWest, double ASouth, double AEast)
  {
    TvxMapControlGeoRect Result;
    Result.Top = ANorth;
    Result.Left = AWest;
    Result.Bottom = ASouth;
    Result.Right = AEast;
    return Result;
  }

  double NorthLatitude() const { return Top; }
  double WestLongitude() const { return Left; }
  double SouthLatitude() const { return Bottom; }
  double EastLongitude() const { return Right; }
  void SetNorthLatitude(double AValue) { Top = AValue; }
  void SetWestLongitude(double AValue) { Left = AValue; }
  void SetSouthLatitude(double AValue) { Bottom = AValue; }
  void SetEastLongitude(double AValue) { Right = AValue; }

  TvxMapControlGeoPoint TopLeft() const { return TvxMapControlGeoPoint::Create(Top, Left); }
  TvxMapControlGeoPoint BottomRight() const { return TvxMapControlGeoPoint::Create(Bottom, Right); }

  bool IsEqual(const TvxMapControlGeoRect& AOther) const;
  // Both corners valid, north strictly above south, east strictly right of
  // west: empty rectangles and ones across the antimeridian are invalid.
  bool IsValid() const;
  // "south,west,north,east".
  QString AsString() const;
};

struct TvxMapControlTileIndex
{
  qint32 X = 0;
  qint32 Y = 0;
  qint32 Level = 0;

  friend constexpr bool operator==(const TvxMapControlTileIndex&, const TvxMapControlTileIndex&) = default;
};

inline constexpr TvxMapControlTileIndex vxMapControlInvalidTileIndex{-1, -1, -1};

inline bool vxMapControlTileIndexIsEqual(const TvxMapControlTileIndex& A, const TvxMapControlTileIndex& B)
{
  return A == B;
}

// Covers all three fields, so neighbouring tiles of all levels spread well.
inline size_t qHash(const TvxMapControlTileIndex& AIndex, size_t ASeed = 0) noexcept
{
  return qHashMulti(ASeed, AIndex.X, AIndex.Y, AIndex.Level);
}

// Max is exclusive on X and Y, Min inclusive.
struct TvxMapControlTileRange
{
  TvxMapControlTileIndex Max;
  TvxMapControlTileIndex Min;
};

// An observable geographic point, such as the control's centre.
class TvxMapControlGeoLocation
{
public:
  explicit TvxMapControlGeoLocation(void* AOwner = nullptr) : FOwner(AOwner) {}

  void* Owner() const { return FOwner; }

  const TvxMapControlGeoPoint& GeoPoint() const { return FGeoPoint; }
  // Compared by the tolerance rule.
  void SetGeoPoint(const TvxMapControlGeoPoint& AValue);
  double Latitude() const { return FGeoPoint.Latitude; }
  double Longitude() const { return FGeoPoint.Longitude; }
  // These two compare exactly, unlike SetGeoPoint; both paths are kept.
  void SetLatitude(double AValue);
  void SetLongitude(double AValue);
  void Assign(const TvxMapControlGeoLocation& ASource) { SetGeoPoint(ASource.GeoPoint()); }

  std::function<void(TvxMapControlGeoLocation*)> OnChanged;

private:
  void Changed();

  void* FOwner;
  TvxMapControlGeoPoint FGeoPoint;
};

class TvxMapControlGeoRectPersistent
{
public:
  explicit TvxMapControlGeoRectPersistent(void* AOwner = nullptr) : FOwner(AOwner) {}

  void* Owner() const { return FOwner; }

  const TvxMapControlGeoRect& GeoRect() const { return FGeoRect; }
  void SetGeoRect(const TvxMapControlGeoRect& AValue);
  double NorthLatitude() const { return FGeoRect.Top; }
  double WestLongitude() const { return FGeoRect.Left; }
  double SouthLatitude() const { return FGeoRect.Bottom; }
  double EastLongitude() const { return FGeoRect.Right; }
  void SetNorthLatitude(double AValue);
  void SetWestLongitude(double AValue);
  void SetSouthLatitude(double AValue);
  void SetEastLongitude(double AValue);
  void Assign(const TvxMapControlGeoRectPersistent& ASource) { SetGeoRect(ASource.GeoRect()); }

  std::function<void(TvxMapControlGeoRectPersistent*)> OnChanged;

private:
  void SetField(double& AField, double AValue);

  void* FOwner;
  TvxMapControlGeoRect FGeoRect;
};

// Nested update brackets of a collection: changes inside them fire once,
// when the outermost one closes.
class TvxUpdateCounter
{
public:
  explicit TvxUpdateCounter(std::function<void()> AFire) : FFire(std::move(AFire)) {}

  void BeginUpdate() { ++FLockCount; }
  void EndUpdate()
  {
    if (--FLockCount == 0 && FChanged)
      Changed();
  }
  bool IsLocked() const { return FLockCount > 0; }
  void Changed()
  {
    if (FLockCount > 0)
    {
      FChanged = true;
      return;
    }
    FChanged = false;
    FFire();
  }

private:
  std::function<void()> FFire;
  int FLockCount = 0;
  bool FChanged = false;
};

// Colours are 32-bit ARGB. Alpha colours use this value for "not set" (it
// can never be a real colour); plain colours use the other.
inline constexpr quint32 vxMapControlDefaultAlphaColor = 0x00010203;
inline constexpr quint32 vxMapControlDefaultColor = 0x20000000;

// Element states of everything laid out on the control.
enum TvxMapControlElementState
{
  mcesNormal,
  mcesHot,
  mcesPressed,
  mcesSelected,
  mcesDisabled
};

// The values AMake(0) .. AMake(N - 1) as a range a vector takes in one go:
// its size is known at once, and each value is made where it is to stay,
// with no fill or copy first.
template <class T, class TMake>
class TvxMadeIterator
{
public:
  using iterator_category = std::random_access_iterator_tag;
  using value_type = T;
  using difference_type = std::ptrdiff_t;
  using pointer = void;
  using reference = T;

  TvxMadeIterator(const TMake* AMake, size_t AIndex) : FMake(AMake), FIndex(AIndex) {}
  T operator*() const { return (*FMake)(FIndex); }
  TvxMadeIterator& operator++()
  {
    ++FIndex;
    return *this;
  }
  TvxMadeIterator& operator--()
  {
    --FIndex;
    return *this;
  }
  TvxMadeIterator& operator+=(difference_type AOffset)
  {
    FIndex = size_t(difference_type(FIndex) + AOffset);
    return *this;
  }
  difference_type operator-(const TvxMadeIterator& AOther) const
  {
    return difference_type(FIndex) - difference_type(AOther.FIndex);
  }
  bool operator==(const TvxMadeIterator& AOther) const { return FIndex == AOther.FIndex; }

private:
  const TMake* FMake;
  size_t FIndex;
};

// Appends AMake(0) .. AMake(ACount - 1) to AVector.
template <class T, class TAllocator, class TMake>
void vxAppendMade(std::vector<T, TAllocator>& AVector, size_t ACount, const TMake& AMake)
{
  AVector.insert(AVector.end(), TvxMadeIterator<T, TMake>(&AMake, 0), TvxMadeIterator<T, TMake>(&AMake, ACount));
}
