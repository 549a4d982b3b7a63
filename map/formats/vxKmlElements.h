#pragma once

// A read-only model of the part of KML that the map draws: placemarks with
// their geometry, styles and style maps. The root keeps three flat lists and
// resolves a placemark's style references; items are made from it by the
// loader. Nothing here writes KML.

#include <QHash>
#include <QIODevice>
#include <QLatin1String>
#include <QString>
#include <QStringView>

#include <deque>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// Content that cannot be read: malformed XML, or nesting past the limit.
class EvxKmlParseError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

// A number, colour or coordinate that does not convert.
class EvxKmlConvertError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

// A file that would take more memory to load than a load may have.
class EvxKmlTooLargeError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

// The memory one load may take: MinimumBudget, or BudgetFactor times the
// file if that is more. What the heap holds beyond its size at the start
// of the load is checked as the load goes on.
class TvxKmlMemoryGuard
{
public:
  // Tests lower these.
  static inline qint64 MinimumBudget = qint64(256) << 20;
  static inline int BudgetFactor = 10;

  // A size of 0 or less: the minimum.
  explicit TvxKmlMemoryGuard(qint64 AFileSize);
  qint64 Budget() const { return FBudget; }
  // Throws EvxKmlTooLargeError when the load holds more than the budget.
  void Check() const;
  // The heap in use by the process, in bytes.
  static qint64 HeapInUse();

private:
  qint64 FBudget;
  qint64 FStart;
};

// The names the model asks for. A document gives them these ids, so that a
// lookup by name is an integer compare; the first twenty are the elements
// of the factory, in its order.
enum TvxKmlName : int
{
  kmlnPlacemark,
  kmlnStyle,
  kmlnStyleMap,
  kmlnPoint,
  kmlnLineString,
  kmlnLinearRing,
  kmlnOuterBoundaryIs,
  kmlnInnerBoundaryIs,
  kmlnPolygon,
  kmlnMultiGeometry,
  kmlnIcon,
  kmlnHotSpot,
  kmlnIconStyle,
  kmlnLabelStyle,
  kmlnLineStyle,
  kmlnPolyStyle,
  kmlnBalloonStyle,
  kmlnItemIcon,
  kmlnListStyle,
  kmlnPair,
  kmlnId,
  kmlnAddress,
  kmlnDescription,
  kmlnName,
  kmlnPhoneNumber,
  kmlnStyleUrl,
  kmlnCoordinates,
  kmlnColor,
  kmlnColorMode,
  kmlnScale,
  kmlnHeading,
  kmlnWidth,
  kmlnFill,
  kmlnOutline,
  kmlnHref,
  kmlnX,
  kmlnY,
  kmlnXUnits,
  kmlnYUnits,
  kmlnBgColor,
  kmlnDisplayMode,
  kmlnTextColor,
  kmlnText,
  kmlnListItemType,
  kmlnIconItemMode,
  kmlnKey,
  kmlnNameCount
};

QLatin1String vxKmlNameText(TvxKmlName AName);

class TvxKmlXmlDocument;

// An element of a parsed document: a handle, cheap to copy, valid while
// its document lives.
class TvxKmlXmlNode
{
public:
  TvxKmlXmlNode() = default;

  bool IsNull() const { return FDocument == nullptr; }
  explicit operator bool() const { return FDocument != nullptr; }

  int NameId() const;
  QStringView Name() const;
  // The element's own character data; whitespace between child elements
  // is not part of it.
  QStringView Text() const;
  bool HasAttribute(int ANameId) const;
  // An absent attribute reads as empty text.
  QStringView Attribute(int ANameId) const;
  QStringView Attribute(QStringView AName) const;
  bool HasChildNodes() const;
  TvxKmlXmlNode FirstChild() const;
  TvxKmlXmlNode NextSibling() const;
  // The first child element of that exact name.
  TvxKmlXmlNode FindChild(int ANameId) const;
  TvxKmlXmlNode FindChild(QStringView AName) const;

private:
  friend class TvxKmlXmlDocument;
  TvxKmlXmlNode(const TvxKmlXmlDocument* ADocument, int AIndex) : FDocument(ADocument), FIndex(AIndex) {}

  const TvxKmlXmlDocument* FDocument = nullptr;
  int FIndex = -1;
};

// The element tree of one XML text, in flat arrays: names are interned,
// texts share one buffer. Names compare exactly and prefixes are part of
// them, so "kml:Placemark" is not "Placemark".
class TvxKmlXmlDocument
{
public:
  // Deeper nesting fails like malformed XML; it bounds every recursion over
  // the tree.
  static constexpr int MaxDepth = 1024;
  // The XML reader checks the attributes of an element against each other,
  // in time that grows with the square of their count; an element with
  // more is refused before the reader sees it.
  static constexpr int MaxAttributes = 256;

  TvxKmlXmlDocument();
  TvxKmlXmlDocument(const TvxKmlXmlDocument&) = delete;
  TvxKmlXmlDocument& operator=(const TvxKmlXmlDocument&) = delete;

  // Throws EvxKmlParseError with the line and column of the fault, and
  // EvxKmlTooLargeError when a guard is given and the tree outgrows it.
  void Load(QIODevice& AStream, const TvxKmlMemoryGuard* AGuard = nullptr);
  TvxKmlXmlNode DocumentElement() const;
  // The id of a name met in the document or known to the model, else -1.
  int FindName(QStringView AName) const;
  QStringView NameText(int ANameId) const;

private:
  friend class TvxKmlXmlNode;

  struct TNode
  {
    int Name = -1;
    int FirstChild = -1;
    int NextSibling = -1;
    int FirstAttribute = 0;
    int AttributeCount = 0;
    qsizetype TextOffset = 0;
    qsizetype TextLength = 0;
  };
  struct TAttribute
  {
    int Name = -1;
    qsizetype Offset = 0;
    qsizetype Length = 0;
  };

  int Intern(QStringView AName);
  qsizetype AppendText(QStringView AText);
  QStringView TextAt(qsizetype AOffset, qsizetype ALength) const;

  std::vector<TNode> FNodes;
  std::vector<TAttribute> FAttributes;
  std::u16string FText;
  // A deque, so that the views the map keys hold never move.
  std::deque<std::u16string> FNames;
  std::unordered_map<std::u16string_view, int> FNameIds;
};

// Text conversions of the model, "." as the decimal separator. A float may
// have surrounding whitespace and a leading sign; "inf" and "nan" are not
// numbers here.
bool vxKmlTryStrToFloat(QStringView AText, double& AValue);
// KML's aabbggrr to ARGB; throws EvxKmlConvertError on a bad digit.
quint32 vxKmlHexToColor(QStringView AText);

enum TvxKmlUnits
{
  kmluFraction,
  kmluPixels,
  kmluInsetPixels
};

enum TvxKmlColorMode
{
  kcmNormal,
  kcmRandom
};

enum TvxKmlDisplayMode
{
  kdmDefault,
  kdmHide
};

enum TvxKmlListItemType
{
  kliCheck,
  kliCheckOffOnly,
  kliCheckHideChildren,
  kliRadioFolder
};

enum TvxKmlItemIconMode
{
  kiimOpen,
  kiimClosed,
  kiimError,
  kiimFetching0,
  kiimFetching1,
  kiimFetching2
};

enum TvxKmlStyleState
{
  kssNormal,
  kssHighlight
};

struct TvxKmlCoordinate
{
  double Altitude = 0;
  double Latitude = 0;
  double Longitude = 0;
};

class TvxKmlElement;
template <class T>
using TvxKmlElementList = std::vector<std::unique_ptr<T>>;

class TvxKmlElement
{
public:
  TvxKmlElement() = default;
  TvxKmlElement(const TvxKmlElement&) = delete;
  TvxKmlElement& operator=(const TvxKmlElement&) = delete;
  virtual ~TvxKmlElement() = default;

  virtual void Parse(const TvxKmlXmlNode& ANode);
  virtual QLatin1String GetParseName() const { return QLatin1String(); }

protected:
  static std::unique_ptr<TvxKmlElement> CreateAndParseElement(const TvxKmlXmlNode& ANode, TvxKmlName AName);
  // The first of the names that has a child, not the first child in the document.
  static std::unique_ptr<TvxKmlElement> CreateAndParseElement(const TvxKmlXmlNode& ANode,
                                                              std::initializer_list<TvxKmlName> ANames);
  static TvxKmlElementList<TvxKmlElement> CreateAndParseElements(const TvxKmlXmlNode& ANode, TvxKmlName AName);
  static TvxKmlElementList<TvxKmlElement> CreateAndParseElements(const TvxKmlXmlNode& ANode,
                                                                 std::initializer_list<TvxKmlName> ANames);
  template <class T>
  static std::unique_ptr<T> CreateAndParse(const TvxKmlXmlNode& ANode)
  {
    return Downcast<T>(CreateAndParseElement(ANode, T::ParseName));
  }
  template <class T>
  static std::unique_ptr<T> Downcast(std::unique_ptr<TvxKmlElement> AElement)
  {
    if (auto* Result = dynamic_cast<T*>(AElement.get()))
    {
      AElement.release();
      return std::unique_ptr<T>(Result);
    }
    return nullptr;
  }

  static bool ParseBooleanElement(const TvxKmlXmlNode& ANode, TvxKmlName AName, bool ADefault);
  // ADefault plays no part: an absent attribute is empty text, and empty
  // text is a conversion error. Kept so, deliberately.
  static double ParseDoubleAttribute(const TvxKmlXmlNode& ANode, TvxKmlName AName, double ADefault);
  static double ParseDoubleElement(const TvxKmlXmlNode& ANode, TvxKmlName AName, double ADefault);
  static QString ParseStringAttribute(const TvxKmlXmlNode& ANode, TvxKmlName AName);
  static QString ParseStringElement(const TvxKmlXmlNode& ANode, TvxKmlName AName,
                                    const QString& ADefault = QString());
  static QStringView ElementText(const TvxKmlXmlNode& ANode, TvxKmlName AName);
  // The index of the word the text equals exactly, else ADefault.
  static int ParseEnumText(QStringView AText, std::initializer_list<const char*> AWords, int ADefault);
};

class TvxKmlObject : public TvxKmlElement
{
public:
  void Parse(const TvxKmlXmlNode& ANode) override;
  const QString& ID() const { return FID; }

protected:
  QString FID;
};

class TvxKmlStyleSelector;

class TvxKmlFeature : public TvxKmlObject
{
public:
  void Parse(const TvxKmlXmlNode& ANode) override;
  const QString& Address() const { return FAddress; }
  const QString& Description() const { return FDescription; }
  const QString& Name() const { return FName; }
  const QString& PhoneNumber() const { return FPhoneNumber; }
  const TvxKmlStyleSelector* StyleSelector() const { return FStyleSelector.get(); }
  const QString& StyleUri() const { return FStyleUri; }

protected:
  QString FAddress;
  QString FDescription;
  QString FName;
  QString FPhoneNumber;
  std::unique_ptr<TvxKmlStyleSelector> FStyleSelector;
  QString FStyleUri;
};

class TvxKmlGeometry;

class TvxKmlPlacemark : public TvxKmlFeature
{
public:
  static constexpr TvxKmlName ParseName = kmlnPlacemark;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  const TvxKmlGeometry* Geometry() const { return FGeometry.get(); }

protected:
  std::unique_ptr<TvxKmlGeometry> FGeometry;
};

class TvxKmlGeometry : public TvxKmlObject
{
};

class TvxKmlCoordinatesGeometry : public TvxKmlGeometry
{
public:
  void Parse(const TvxKmlXmlNode& ANode) override;
  const std::vector<TvxKmlCoordinate>& Coordinates() const { return FCoordinates; }

protected:
  // Tuples are split on the blank only; the altitude is never read.
  void ParseCoordinates(QStringView AText);
  static TvxKmlCoordinate ParseTuple(QStringView ATuple);

  std::vector<TvxKmlCoordinate> FCoordinates;
};

class TvxKmlPoint : public TvxKmlCoordinatesGeometry
{
public:
  static constexpr TvxKmlName ParseName = kmlnPoint;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
};

class TvxKmlLineString : public TvxKmlCoordinatesGeometry
{
public:
  static constexpr TvxKmlName ParseName = kmlnLineString;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
};

class TvxKmlLinearRing : public TvxKmlCoordinatesGeometry
{
public:
  static constexpr TvxKmlName ParseName = kmlnLinearRing;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
};

class TvxKmlLinearRingContainer : public TvxKmlElement
{
public:
  void Parse(const TvxKmlXmlNode& ANode) override;
  const TvxKmlLinearRing* LinearRing() const { return FLinearRing.get(); }

protected:
  std::unique_ptr<TvxKmlLinearRing> FLinearRing;
};

class TvxKmlOuterBoundaryIs : public TvxKmlLinearRingContainer
{
public:
  static constexpr TvxKmlName ParseName = kmlnOuterBoundaryIs;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
};

class TvxKmlInnerBoundaryIs : public TvxKmlLinearRingContainer
{
public:
  static constexpr TvxKmlName ParseName = kmlnInnerBoundaryIs;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
};

// At most one hole: only the first inner boundary is read.
class TvxKmlPolygon : public TvxKmlGeometry
{
public:
  static constexpr TvxKmlName ParseName = kmlnPolygon;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  const TvxKmlOuterBoundaryIs* OuterBoundaryIs() const { return FOuterBoundaryIs.get(); }
  const TvxKmlInnerBoundaryIs* InnerBoundaryIs() const { return FInnerBoundaryIs.get(); }

protected:
  std::unique_ptr<TvxKmlOuterBoundaryIs> FOuterBoundaryIs;
  std::unique_ptr<TvxKmlInnerBoundaryIs> FInnerBoundaryIs;
};

class TvxKmlMultiGeometry : public TvxKmlGeometry
{
public:
  static constexpr TvxKmlName ParseName = kmlnMultiGeometry;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  const TvxKmlElementList<TvxKmlGeometry>& Geometries() const { return FGeometries; }

protected:
  TvxKmlElementList<TvxKmlGeometry> FGeometries;
};

class TvxKmlStyleSelector : public TvxKmlObject
{
};

class TvxKmlSubStyle : public TvxKmlObject
{
protected:
  static quint32 ParseColorElement(const TvxKmlXmlNode& ANode, TvxKmlName AName, quint32 ADefault);
};

class TvxKmlColorStyle : public TvxKmlSubStyle
{
public:
  void Parse(const TvxKmlXmlNode& ANode) override;
  quint32 Color() const { return FColor; }
  TvxKmlColorMode ColorMode() const { return FColorMode; }

protected:
  quint32 FColor = 0xFFFFFFFF;
  TvxKmlColorMode FColorMode = kcmNormal;
};

class TvxKmlIcon : public TvxKmlElement
{
public:
  static constexpr TvxKmlName ParseName = kmlnIcon;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  const QString& HRef() const { return FHRef; }

protected:
  QString FHRef;
};

class TvxKmlHotSpot : public TvxKmlElement
{
public:
  static constexpr TvxKmlName ParseName = kmlnHotSpot;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  // Throws when "x" or "y" is missing or bad.
  void Parse(const TvxKmlXmlNode& ANode) override;
  double X() const { return FX; }
  double Y() const { return FY; }
  TvxKmlUnits XUnits() const { return FXUnits; }
  TvxKmlUnits YUnits() const { return FYUnits; }

protected:
  double FX = 0;
  double FY = 0;
  TvxKmlUnits FXUnits = kmluFraction;
  TvxKmlUnits FYUnits = kmluFraction;
};

class TvxKmlIconStyle : public TvxKmlColorStyle
{
public:
  static constexpr TvxKmlName ParseName = kmlnIconStyle;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  double Scale() const { return FScale; }
  double Heading() const { return FHeading; }
  const TvxKmlIcon* Icon() const { return FIcon.get(); }
  const TvxKmlHotSpot* HotSpot() const { return FHotSpot.get(); }

protected:
  double FScale = 1.0;
  double FHeading = 0.0;
  std::unique_ptr<TvxKmlIcon> FIcon;
  std::unique_ptr<TvxKmlHotSpot> FHotSpot;
};

class TvxKmlLabelStyle : public TvxKmlColorStyle
{
public:
  static constexpr TvxKmlName ParseName = kmlnLabelStyle;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  double Scale() const { return FScale; }

protected:
  double FScale = 1.0;
};

class TvxKmlLineStyle : public TvxKmlColorStyle
{
public:
  static constexpr TvxKmlName ParseName = kmlnLineStyle;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  double Width() const { return FWidth; }

protected:
  double FWidth = 1.0;
};

class TvxKmlPolyStyle : public TvxKmlColorStyle
{
public:
  static constexpr TvxKmlName ParseName = kmlnPolyStyle;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  bool Fill() const { return FFill; }
  bool Outline() const { return FOutline; }

protected:
  bool FFill = true;
  bool FOutline = true;
};

class TvxKmlBalloonStyle : public TvxKmlSubStyle
{
public:
  static constexpr TvxKmlName ParseName = kmlnBalloonStyle;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  quint32 BgColor() const { return FBgColor; }
  TvxKmlDisplayMode DisplayMode() const { return FDisplayMode; }
  quint32 TextColor() const { return FTextColor; }
  const QString& Text() const { return FText; }

protected:
  quint32 FBgColor = 0xFFFFFFFF;
  TvxKmlDisplayMode FDisplayMode = kdmDefault;
  quint32 FTextColor = 0xFF000000;
  QString FText;
};

class TvxKmlItemIcon : public TvxKmlObject
{
public:
  static constexpr TvxKmlName ParseName = kmlnItemIcon;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  TvxKmlItemIconMode ItemIconMode() const { return FItemIconMode; }
  const QString& Href() const { return FHref; }

protected:
  TvxKmlItemIconMode FItemIconMode = kiimOpen;
  QString FHref;
};

class TvxKmlListStyle : public TvxKmlSubStyle
{
public:
  static constexpr TvxKmlName ParseName = kmlnListStyle;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  quint32 BgColor() const { return FBgColor; }
  const TvxKmlElementList<TvxKmlItemIcon>& ItemIconList() const { return FItemIconList; }
  TvxKmlListItemType ListItemType() const { return FListItemType; }

protected:
  quint32 FBgColor = 0xFFFFFFFF;
  TvxKmlElementList<TvxKmlItemIcon> FItemIconList;
  TvxKmlListItemType FListItemType = kliCheck;
};

class TvxKmlStyle : public TvxKmlStyleSelector
{
public:
  static constexpr TvxKmlName ParseName = kmlnStyle;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  const TvxKmlIconStyle* IconStyle() const { return FIconStyle.get(); }
  const TvxKmlLabelStyle* LabelStyle() const { return FLabelStyle.get(); }
  const TvxKmlLineStyle* LineStyle() const { return FLineStyle.get(); }
  const TvxKmlPolyStyle* PolyStyle() const { return FPolyStyle.get(); }
  const TvxKmlBalloonStyle* BalloonStyle() const { return FBalloonStyle.get(); }
  const TvxKmlListStyle* ListStyle() const { return FListStyle.get(); }

protected:
  std::unique_ptr<TvxKmlIconStyle> FIconStyle;
  std::unique_ptr<TvxKmlLabelStyle> FLabelStyle;
  std::unique_ptr<TvxKmlLineStyle> FLineStyle;
  std::unique_ptr<TvxKmlPolyStyle> FPolyStyle;
  std::unique_ptr<TvxKmlBalloonStyle> FBalloonStyle;
  std::unique_ptr<TvxKmlListStyle> FListStyle;
};

class TvxKmlPair : public TvxKmlObject
{
public:
  static constexpr TvxKmlName ParseName = kmlnPair;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  TvxKmlStyleState Key() const { return FKey; }
  const QString& StyleUrl() const { return FStyleUrl; }
  const TvxKmlStyle* Style() const { return FStyle.get(); }

protected:
  TvxKmlStyleState FKey = kssNormal;
  QString FStyleUrl;
  std::unique_ptr<TvxKmlStyle> FStyle;
};

class TvxKmlStyleMap : public TvxKmlStyleSelector
{
public:
  static constexpr TvxKmlName ParseName = kmlnStyleMap;
  QLatin1String GetParseName() const override { return vxKmlNameText(ParseName); }
  void Parse(const TvxKmlXmlNode& ANode) override;
  const TvxKmlElementList<TvxKmlPair>& Pairs() const { return FPairs; }

protected:
  TvxKmlElementList<TvxKmlPair> FPairs;
};

// The document as three flat lists. Folders, documents and any unknown
// wrapper are walked through; a placemark is not, so a style inside one is
// not a shared style.
class TvxKmlRoot : public TvxKmlElement
{
public:
  // Loads the XML from the stream and parses it; throws on bad content, and
  // when a guard is given and the load outgrows it.
  void Parse(QIODevice& AStream, const TvxKmlMemoryGuard* AGuard = nullptr);
  void Parse(const TvxKmlXmlDocument& ADocument);
  void Parse(const TvxKmlXmlNode& ANode) override;

  const TvxKmlElementList<TvxKmlStyle>& Styles() const { return FStyles; }
  const TvxKmlElementList<TvxKmlStyleMap>& StyleMaps() const { return FStyleMaps; }
  const TvxKmlElementList<TvxKmlPlacemark>& Placemarks() const { return FPlacemarks; }

  // Both results start null; a reference that is not found stays null.
  void ResolveElementStyles(const TvxKmlFeature& AElement, const TvxKmlStyle*& ANormal,
                            const TvxKmlStyle*& AHighlighted) const;
  // The first shared style with that id.
  const TvxKmlStyle* ResolveStyleByUrl(const QString& AUrl) const;
  // A style first; else the last style map with that id.
  void ResolveStylesByUrl(const QString& AUrl, const TvxKmlStyle*& ANormal, const TvxKmlStyle*& AHighlighted) const;
  // A pair that points at another style map is not followed.
  void ResolveStyleMapStyles(const TvxKmlStyleMap& AStyleMap, const TvxKmlStyle*& ANormal,
                             const TvxKmlStyle*& AHighlighted) const;
  // Every "#" removed, so "file.kml#id" looks for "file.kmlid".
  static QString GetStyleIDFromUrl(const QString& AUrl);

private:
  void BuildStyleIndex() const;

  TvxKmlElementList<TvxKmlStyle> FStyles;
  TvxKmlElementList<TvxKmlStyleMap> FStyleMaps;
  TvxKmlElementList<TvxKmlPlacemark> FPlacemarks;
  const TvxKmlMemoryGuard* FGuard = nullptr;
  int FParsedCount = 0;
  // Lookups by id instead of a walk of the lists per placemark, with the
  // same answers: the first style, the last style map.
  mutable QHash<QString, const TvxKmlStyle*> FStyleIndex;
  mutable QHash<QString, const TvxKmlStyleMap*> FStyleMapIndex;
  mutable bool FIsStyleIndexValid = false;
};

using TvxKmlElementClass = std::unique_ptr<TvxKmlElement> (*)();

struct TvxKmlElementFactoryItem
{
  QString FElementName;
  TvxKmlElementClass FElementType = nullptr;
};

// Element classes by element name, filled once on first use.
class TvxKmlElementsFactory
{
public:
  static TvxKmlElementsFactory& Instance();

  int Count() const { return int(FItems.size()); }
  const TvxKmlElementFactoryItem& Items(int AIndex) const { return FItems.at(size_t(AIndex)); }
  // Exact match; null when the name is not registered.
  TvxKmlElementClass GetElementClassByName(QStringView AName) const;
  std::unique_ptr<TvxKmlElement> CreateElementByName(QStringView AName) const;

private:
  TvxKmlElementsFactory() { RegisterElements(); }
  void RegisterElements();
  template <class T>
  void RegisterElement();

  std::vector<TvxKmlElementFactoryItem> FItems;
};
