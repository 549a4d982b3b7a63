#include "vxKmlElements.h"

#include <QXmlStreamReader>

#ifdef __GLIBC__
#include <malloc.h>
#endif
// clang says it builds with AddressSanitizer through __has_feature, gcc
// through __SANITIZE_ADDRESS__.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MAPWRIGHT_HAS_ASAN 1
#endif
#endif
#ifndef MAPWRIGHT_HAS_ASAN
#define MAPWRIGHT_HAS_ASAN 0
#endif
#if defined(__SANITIZE_ADDRESS__) || MAPWRIGHT_HAS_ASAN
#include <sanitizer/allocator_interface.h>
#endif

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace
{

constexpr std::array<const char*, kmlnNameCount> GKmlNames = {
  "Placemark",    "Style",        "StyleMap",       "Point",        "LineString",  "LinearRing",
  "outerBoundaryIs", "innerBoundaryIs", "Polygon", "MultiGeometry", "Icon",        "hotSpot",
  "IconStyle",    "LabelStyle",   "LineStyle",      "PolyStyle",    "BalloonStyle", "ItemIcon",
  "ListStyle",    "Pair",         "id",             "address",      "description", "name",
  "phoneNumber",  "styleUrl",     "coordinates",    "color",        "colorMode",   "scale",
  "heading",      "width",        "fill",           "outline",      "href",        "x",
  "y",            "xunits",       "yunits",         "bgColor",      "displayMode", "textColor",
  "text",         "listItemType", "iconItemMode",   "key"};

std::u16string_view ToStd(QStringView AText)
{
  return {AText.utf16(), size_t(AText.size())};
}

// The whitespace of a trim: every control character and the blank.
bool IsTrimmed(QChar AChar)
{
  return AChar.unicode() <= u' ';
}

QStringView Trimmed(QStringView AText)
{
  qsizetype Begin = 0;
  qsizetype End = AText.size();
  while (Begin < End && IsTrimmed(AText[Begin]))
    ++Begin;
  while (End > Begin && IsTrimmed(AText[End - 1]))
    --End;
  return AText.mid(Begin, End - Begin);
}

// A piece of the input for a message, short enough to read.
QString Quoted(QStringView AText)
{
  constexpr qsizetype MaxLength = 60;
  QString Result = AText.size() > MaxLength ? AText.left(MaxLength).toString() + QStringLiteral("...")
                                            : AText.toString();
  return QLatin1Char('"') + Result + QLatin1Char('"');
}

[[noreturn]] void RaiseConvertError(const QString& AMessage)
{
  throw EvxKmlConvertError(AMessage.toStdString());
}

int HexDigit(char16_t AChar)
{
  if (AChar >= u'0' && AChar <= u'9')
    return AChar - u'0';
  if (AChar >= u'a' && AChar <= u'f')
    return AChar - u'a' + 10;
  if (AChar >= u'A' && AChar <= u'F')
    return AChar - u'A' + 10;
  return -1;
}

} // namespace

QLatin1String vxKmlNameText(TvxKmlName AName)
{
  return AName >= 0 && AName < kmlnNameCount ? QLatin1String(GKmlNames[size_t(AName)]) : QLatin1String();
}

// Conversions

bool vxKmlTryStrToFloat(QStringView AText, double& AValue)
{
  const QStringView Text = Trimmed(AText);
  if (Text.isEmpty())
    return false;
  // Numbers are short; a long one still converts, through the heap.
  char Small[64];
  std::string Large;
  char* Buffer = Small;
  if (Text.size() > qsizetype(sizeof(Small)))
  {
    Large.resize(size_t(Text.size()));
    Buffer = Large.data();
  }
  for (qsizetype I = 0; I < Text.size(); ++I)
  {
    const char16_t Char = Text[I].unicode();
    if (Char > 0x7F)
      return false;
    Buffer[I] = char(Char);
  }
  // from_chars takes no plus, and would take "inf", "nan" and a second
  // sign: a digit or the point must follow the one sign.
  const char* Begin = Buffer;
  const char* const End = Buffer + Text.size();
  const bool Plus = *Begin == '+';
  if (Plus)
    ++Begin;
  const char* First = Begin;
  if (!Plus && First < End && *First == '-')
    ++First;
  if (First == End || !((*First >= '0' && *First <= '9') || *First == '.'))
    return false;
  double Value = 0;
  const auto [Ptr, Error] = std::from_chars(Begin, End, Value, std::chars_format::general);
  if (Error != std::errc() || Ptr != End)
    return false;
  AValue = Value;
  return true;
}

quint32 vxKmlHexToColor(QStringView AText)
{
  // Leading characters that are not digits are dropped: "#ff0000ff" reads
  // as "ff0000ff".
  qsizetype Start = 0;
  while (Start < AText.size() && HexDigit(AText[Start].unicode()) < 0)
    ++Start;
  const QStringView Digits = AText.mid(Start);
  if (Digits.isEmpty())
    return 0;
  if (Digits.size() > 8)
    return 0;
  std::array<int, 8> Values{};
  // Shorter than six digits: zeros on the left.
  const qsizetype Count = std::max<qsizetype>(Digits.size(), 6);
  const qsizetype Padding = Count - Digits.size();
  for (qsizetype I = 0; I < Digits.size(); ++I)
  {
    const int Value = HexDigit(Digits[I].unicode());
    if (Value < 0)
      RaiseConvertError(QStringLiteral("Invalid colour %1").arg(Quoted(AText)));
    Values[size_t(Padding + I)] = Value;
  }
  quint32 Alpha = 0xFF;
  qsizetype Pos = 0;
  if (Count == 7)
    Alpha = quint32(Values[size_t(Pos++)]);
  else if (Count == 8)
  {
    Alpha = quint32(Values[0] * 16 + Values[1]);
    Pos = 2;
  }
  std::array<quint32, 3> Bytes{};
  for (quint32& Byte : Bytes)
  {
    Byte = quint32(Values[size_t(Pos)] * 16 + Values[size_t(Pos + 1)]);
    Pos += 2;
  }
  // KML writes alpha, blue, green, red: swapping the outer colour bytes
  // gives ARGB.
  return (Alpha << 24) | (Bytes[2] << 16) | (Bytes[1] << 8) | Bytes[0];
}

// The XML tree

int TvxKmlXmlNode::NameId() const
{
  return FDocument ? FDocument->FNodes[size_t(FIndex)].Name : -1;
}

QStringView TvxKmlXmlNode::Name() const
{
  return FDocument ? FDocument->NameText(NameId()) : QStringView();
}

QStringView TvxKmlXmlNode::Text() const
{
  if (!FDocument)
    return {};
  const auto& Node = FDocument->FNodes[size_t(FIndex)];
  return FDocument->TextAt(Node.TextOffset, Node.TextLength);
}

bool TvxKmlXmlNode::HasAttribute(int ANameId) const
{
  if (!FDocument || ANameId < 0)
    return false;
  const auto& Node = FDocument->FNodes[size_t(FIndex)];
  for (int I = 0; I < Node.AttributeCount; ++I)
    if (FDocument->FAttributes[size_t(Node.FirstAttribute + I)].Name == ANameId)
      return true;
  return false;
}

QStringView TvxKmlXmlNode::Attribute(int ANameId) const
{
  if (!FDocument || ANameId < 0)
    return {};
  const auto& Node = FDocument->FNodes[size_t(FIndex)];
  for (int I = 0; I < Node.AttributeCount; ++I)
  {
    const auto& Attribute = FDocument->FAttributes[size_t(Node.FirstAttribute + I)];
    if (Attribute.Name == ANameId)
      return FDocument->TextAt(Attribute.Offset, Attribute.Length);
  }
  return {};
}

QStringView TvxKmlXmlNode::Attribute(QStringView AName) const
{
  return FDocument ? Attribute(FDocument->FindName(AName)) : QStringView();
}

bool TvxKmlXmlNode::HasChildNodes() const
{
  return FDocument && FDocument->FNodes[size_t(FIndex)].FirstChild >= 0;
}

TvxKmlXmlNode TvxKmlXmlNode::FirstChild() const
{
  if (!FDocument)
    return {};
  const int Child = FDocument->FNodes[size_t(FIndex)].FirstChild;
  return Child >= 0 ? TvxKmlXmlNode(FDocument, Child) : TvxKmlXmlNode();
}

TvxKmlXmlNode TvxKmlXmlNode::NextSibling() const
{
  if (!FDocument)
    return {};
  const int Sibling = FDocument->FNodes[size_t(FIndex)].NextSibling;
  return Sibling >= 0 ? TvxKmlXmlNode(FDocument, Sibling) : TvxKmlXmlNode();
}

TvxKmlXmlNode TvxKmlXmlNode::FindChild(int ANameId) const
{
  if (!FDocument || ANameId < 0)
    return {};
  const auto& Nodes = FDocument->FNodes;
  for (int Child = Nodes[size_t(FIndex)].FirstChild; Child >= 0; Child = Nodes[size_t(Child)].NextSibling)
    if (Nodes[size_t(Child)].Name == ANameId)
      return TvxKmlXmlNode(FDocument, Child);
  return {};
}

TvxKmlXmlNode TvxKmlXmlNode::FindChild(QStringView AName) const
{
  return FDocument ? FindChild(FDocument->FindName(AName)) : TvxKmlXmlNode();
}

TvxKmlXmlDocument::TvxKmlXmlDocument()
{
  for (const char* Name : GKmlNames)
    Intern(QString::fromLatin1(Name));
}

int TvxKmlXmlDocument::Intern(QStringView AName)
{
  if (const auto It = FNameIds.find(ToStd(AName)); It != FNameIds.end())
    return It->second;
  const int Id = int(FNames.size());
  FNames.emplace_back(ToStd(AName));
  FNameIds.emplace(std::u16string_view(FNames.back()), Id);
  return Id;
}

int TvxKmlXmlDocument::FindName(QStringView AName) const
{
  const auto It = FNameIds.find(ToStd(AName));
  return It != FNameIds.end() ? It->second : -1;
}

QStringView TvxKmlXmlDocument::NameText(int ANameId) const
{
  if (ANameId < 0 || ANameId >= int(FNames.size()))
    return {};
  const std::u16string& Name = FNames[size_t(ANameId)];
  return QStringView(Name.data(), qsizetype(Name.size()));
}

qsizetype TvxKmlXmlDocument::AppendText(QStringView AText)
{
  const qsizetype Offset = qsizetype(FText.size());
  FText.append(ToStd(AText));
  return Offset;
}

QStringView TvxKmlXmlDocument::TextAt(qsizetype AOffset, qsizetype ALength) const
{
  return QStringView(FText.data() + AOffset, ALength);
}

TvxKmlXmlNode TvxKmlXmlDocument::DocumentElement() const
{
  return FNodes.empty() ? TvxKmlXmlNode() : TvxKmlXmlNode(this, 0);
}

// Memory guard

TvxKmlMemoryGuard::TvxKmlMemoryGuard(qint64 AFileSize)
  : FBudget(std::max(MinimumBudget, AFileSize > 0 ? AFileSize * BudgetFactor : 0)), FStart(HeapInUse())
{
}

qint64 TvxKmlMemoryGuard::HeapInUse()
{
#if defined(__SANITIZE_ADDRESS__) || MAPWRIGHT_HAS_ASAN
  // The sanitizer's allocator stands in for glibc's and keeps its own count.
  return qint64(__sanitizer_get_current_allocated_bytes());
#elif defined(__GLIBC__)
  // Live allocations only: what the load holds, not what it freed.
  const struct mallinfo2 Info = mallinfo2();
  return qint64(Info.uordblks + Info.hblkhd);
#else
  return 0;
#endif
}

void TvxKmlMemoryGuard::Check() const
{
  if (HeapInUse() - FStart > FBudget)
    throw EvxKmlTooLargeError(
      QStringLiteral("Loading it would take more than %1 MB of memory.").arg(FBudget >> 20).toStdString());
}

namespace
{

// Counts the attributes of each start tag in the raw bytes, before the XML
// reader sees them. It knows comments, CDATA sections, processing
// instructions, declarations and quoted values, which is all that can hide
// an "=" outside a start tag.
class TAttributeScanner
{
public:
  // False when a start tag has more than AMax attributes.
  bool Scan(QByteArrayView AData, int AMax)
  {
    for (const char Char : AData)
    {
      switch (FState)
      {
      case sText:
        if (Char == '<')
          FState = sOpen;
        break;
      case sOpen:
        if (Char == '!')
        {
          FState = sBang;
          FBang.clear();
        }
        else if (Char == '?')
          FState = sInstruction;
        else if (Char == '/')
          FState = sEndTag;
        else
        {
          FState = sStartTag;
          FQuote = 0;
          FCount = 0;
        }
        FRun = 0;
        break;
      case sStartTag:
        if (FQuote)
        {
          if (Char == FQuote)
            FQuote = 0;
        }
        else if (Char == '"' || Char == '\'')
          FQuote = Char;
        else if (Char == '=')
        {
          if (++FCount > AMax)
            return false;
        }
        else if (Char == '>')
          FState = sText;
        break;
      case sEndTag:
        if (Char == '>')
          FState = sText;
        break;
      case sBang:
        FBang += Char;
        if (FBang == "--")
          FState = sComment;
        else if (FBang == "[CDATA[")
          FState = sData;
        else if (!QByteArrayView("--").startsWith(FBang) && !QByteArrayView("[CDATA[").startsWith(FBang))
        {
          FState = sDeclaration;
          FDepth = 0;
          FQuote = 0;
          if (Char == '>')
            FState = sText;
        }
        break;
      case sComment:
        if (Char == '>' && FRun >= 2)
          FState = sText;
        FRun = Char == '-' ? FRun + 1 : 0;
        break;
      case sData:
        if (Char == '>' && FRun >= 2)
          FState = sText;
        FRun = Char == ']' ? FRun + 1 : 0;
        break;
      case sInstruction:
        if (Char == '>' && FRun >= 1)
          FState = sText;
        FRun = Char == '?' ? 1 : 0;
        break;
      case sDeclaration:
        // A document type with its internal subset: nested markup and
        // quoted literals.
        if (FQuote)
        {
          if (Char == FQuote)
            FQuote = 0;
        }
        else if (Char == '"' || Char == '\'')
          FQuote = Char;
        else if (Char == '<')
          ++FDepth;
        else if (Char == '>' && FDepth-- == 0)
          FState = sText;
        break;
      }
    }
    return true;
  }

private:
  enum TState
  {
    sText,
    sOpen,
    sStartTag,
    sEndTag,
    sBang,
    sComment,
    sData,
    sInstruction,
    sDeclaration
  };
  TState FState = sText;
  char FQuote = 0;
  int FCount = 0;
  int FRun = 0;
  int FDepth = 0;
  QByteArray FBang;
};

} // namespace

void TvxKmlXmlDocument::Load(QIODevice& AStream, const TvxKmlMemoryGuard* AGuard)
{
  FNodes.clear();
  FAttributes.clear();
  FText.clear();
  // Input that is all in memory tells its size: room for the usual share
  // of elements and text, so that the arrays rarely grow.
  if (const qint64 Size = AStream.isSequential() ? 0 : AStream.size() - AStream.pos(); Size > 0)
  {
    FNodes.reserve(size_t(Size / 64));
    FText.reserve(size_t(Size / 2));
  }

  // An open element: where its text starts, and whether it had children,
  // after which whitespace is layout and not text.
  struct TOpen
  {
    explicit TOpen(int ANode) : Node(ANode) {}
    int Node;
    int LastChild = -1;
    bool HasChild = false;
    bool OnlyWhitespace = true;
    bool IsMixed = false;
    std::u16string Mixed;
  };
  std::vector<TOpen> Open;
  Open.reserve(32);

  QXmlStreamReader Reader;
  // Prefixes stay part of the names.
  Reader.setNamespaceProcessing(false);
  const auto Fail = [&Reader](const QString& AMessage) {
    throw EvxKmlParseError(QStringLiteral("Malformed XML at line %1, column %2: %3")
                             .arg(Reader.lineNumber())
                             .arg(Reader.columnNumber())
                             .arg(AMessage)
                             .toStdString());
  };

  // The reader gets the bytes a piece at a time, each scanned first; the
  // guard looks at the heap after each piece and every so many tokens.
  constexpr qint64 PieceSize = 1 << 20;
  constexpr int TokensPerCheck = 1 << 16;
  TAttributeScanner Scanner;
  const auto Feed = [&]() -> bool {
    const QByteArray Piece = AStream.read(PieceSize);
    if (Piece.isEmpty())
      return false;
    if (!Scanner.Scan(Piece, MaxAttributes))
      throw EvxKmlParseError(
        QStringLiteral("Unsupported XML: an element has more than %1 attributes").arg(MaxAttributes).toStdString());
    Reader.addData(Piece);
    if (AGuard)
      AGuard->Check();
    return true;
  };
  Feed();
  int Tokens = 0;

  for (;;)
  {
    const QXmlStreamReader::TokenType Token = Reader.readNext();
    if (Reader.hasError())
    {
      if (Reader.error() == QXmlStreamReader::PrematureEndOfDocumentError && Feed())
        continue;
      break;
    }
    if (Token == QXmlStreamReader::EndDocument)
      break;
    if (AGuard && ++Tokens == TokensPerCheck)
    {
      Tokens = 0;
      AGuard->Check();
    }
    switch (Token)
    {
    case QXmlStreamReader::StartElement:
    {
      if (int(Open.size()) >= MaxDepth)
        Fail(QStringLiteral("elements are nested deeper than %1 levels").arg(MaxDepth));
      const int Index = int(FNodes.size());
      if (!Open.empty())
      {
        TOpen& Parent = Open.back();
        if (Parent.LastChild < 0)
          FNodes[size_t(Parent.Node)].FirstChild = Index;
        else
          FNodes[size_t(Parent.LastChild)].NextSibling = Index;
        Parent.LastChild = Index;
        if (!Parent.HasChild)
        {
          Parent.HasChild = true;
          // Indentation before the first child is not text; it is the last
          // thing in the buffer, so it can go.
          TNode& ParentNode = FNodes[size_t(Parent.Node)];
          if (Parent.OnlyWhitespace && ParentNode.TextLength > 0)
          {
            FText.resize(size_t(ParentNode.TextOffset));
            ParentNode.TextLength = 0;
          }
        }
      }
      else if (Index > 0)
        Fail(QStringLiteral("more than one root element"));
      TNode Node;
      Node.Name = Intern(Reader.qualifiedName());
      const QXmlStreamAttributes Attributes = Reader.attributes();
      Node.FirstAttribute = int(FAttributes.size());
      Node.AttributeCount = int(Attributes.size());
      for (const QXmlStreamAttribute& Attribute : Attributes)
      {
        const QStringView Value = Attribute.value();
        FAttributes.push_back({Intern(Attribute.qualifiedName()), AppendText(Value), Value.size()});
      }
      Node.TextOffset = qsizetype(FText.size());
      FNodes.push_back(Node);
      Open.emplace_back(Index);
      break;
    }
    case QXmlStreamReader::Characters:
    {
      if (Open.empty())
        break;
      TOpen& Top = Open.back();
      TNode& Node = FNodes[size_t(Top.Node)];
      const QStringView Text = Reader.text();
      const bool Whitespace = Reader.isWhitespace();
      if (!Top.HasChild)
      {
        // Nothing else was appended since the element began, so its text
        // stays in one piece.
        AppendText(Text);
        Node.TextLength += Text.size();
        Top.OnlyWhitespace = Top.OnlyWhitespace && Whitespace;
      }
      else if (!Whitespace)
      {
        // Text after a child: gathered aside and stored whole at the end.
        if (!Top.IsMixed)
        {
          Top.IsMixed = true;
          Top.Mixed.assign(FText, size_t(Node.TextOffset), size_t(Node.TextLength));
        }
        Top.Mixed.append(ToStd(Text));
      }
      break;
    }
    case QXmlStreamReader::EndElement:
    {
      if (Open.empty())
        break;
      TOpen& Top = Open.back();
      if (Top.IsMixed)
      {
        TNode& Node = FNodes[size_t(Top.Node)];
        Node.TextOffset = qsizetype(FText.size());
        Node.TextLength = qsizetype(Top.Mixed.size());
        FText.append(Top.Mixed);
      }
      Open.pop_back();
      break;
    }
    default:
      break;
    }
  }
  if (Reader.hasError())
    Fail(Reader.errorString());
  if (FNodes.empty())
    Fail(QStringLiteral("the document has no root element"));
}

// Elements

void TvxKmlElement::Parse(const TvxKmlXmlNode&)
{
}

std::unique_ptr<TvxKmlElement> TvxKmlElement::CreateAndParseElement(const TvxKmlXmlNode& ANode, TvxKmlName AName)
{
  const TvxKmlXmlNode Child = ANode.FindChild(AName);
  if (!Child)
    return nullptr;
  std::unique_ptr<TvxKmlElement> Result = TvxKmlElementsFactory::Instance().CreateElementByName(Child.Name());
  if (Result)
    Result->Parse(Child);
  return Result;
}

std::unique_ptr<TvxKmlElement> TvxKmlElement::CreateAndParseElement(const TvxKmlXmlNode& ANode,
                                                                    std::initializer_list<TvxKmlName> ANames)
{
  for (TvxKmlName Name : ANames)
    if (ANode.FindChild(Name))
      return CreateAndParseElement(ANode, Name);
  return nullptr;
}

TvxKmlElementList<TvxKmlElement> TvxKmlElement::CreateAndParseElements(const TvxKmlXmlNode& ANode, TvxKmlName AName)
{
  return CreateAndParseElements(ANode, {AName});
}

TvxKmlElementList<TvxKmlElement> TvxKmlElement::CreateAndParseElements(const TvxKmlXmlNode& ANode,
                                                                       std::initializer_list<TvxKmlName> ANames)
{
  TvxKmlElementList<TvxKmlElement> Result;
  const TvxKmlElementsFactory& Factory = TvxKmlElementsFactory::Instance();
  for (TvxKmlXmlNode Child = ANode.FirstChild(); Child; Child = Child.NextSibling())
  {
    const int Name = Child.NameId();
    if (std::find(ANames.begin(), ANames.end(), Name) == ANames.end())
      continue;
    if (std::unique_ptr<TvxKmlElement> Element = Factory.CreateElementByName(Child.Name()))
    {
      Element->Parse(Child);
      Result.push_back(std::move(Element));
    }
  }
  return Result;
}

QStringView TvxKmlElement::ElementText(const TvxKmlXmlNode& ANode, TvxKmlName AName)
{
  return ANode.FindChild(AName).Text();
}

bool TvxKmlElement::ParseBooleanElement(const TvxKmlXmlNode& ANode, TvxKmlName AName, bool ADefault)
{
  const TvxKmlXmlNode Child = ANode.FindChild(AName);
  if (!Child)
    return ADefault;
  const QStringView Text = Trimmed(Child.Text());
  if (Text.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0)
    return true;
  if (Text.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0)
    return false;
  // Any number converts: zero is false.
  double Value = 0;
  return vxKmlTryStrToFloat(Text, Value) ? Value != 0 : ADefault;
}

double TvxKmlElement::ParseDoubleAttribute(const TvxKmlXmlNode& ANode, TvxKmlName AName, double)
{
  const QStringView Text = ANode.Attribute(AName);
  double Value = 0;
  if (!vxKmlTryStrToFloat(Text, Value))
    RaiseConvertError(QStringLiteral("Invalid number %1 in attribute \"%2\" of \"%3\"")
                        .arg(Quoted(Text), vxKmlNameText(AName), ANode.Name().toString()));
  return Value;
}

double TvxKmlElement::ParseDoubleElement(const TvxKmlXmlNode& ANode, TvxKmlName AName, double ADefault)
{
  const TvxKmlXmlNode Child = ANode.FindChild(AName);
  double Value = 0;
  return Child && vxKmlTryStrToFloat(Child.Text(), Value) ? Value : ADefault;
}

QString TvxKmlElement::ParseStringAttribute(const TvxKmlXmlNode& ANode, TvxKmlName AName)
{
  return ANode.Attribute(AName).toString();
}

QString TvxKmlElement::ParseStringElement(const TvxKmlXmlNode& ANode, TvxKmlName AName, const QString& ADefault)
{
  const TvxKmlXmlNode Child = ANode.FindChild(AName);
  return Child ? Child.Text().toString() : ADefault;
}

int TvxKmlElement::ParseEnumText(QStringView AText, std::initializer_list<const char*> AWords, int ADefault)
{
  int Index = 0;
  for (const char* Word : AWords)
  {
    if (AText == QLatin1String(Word))
      return Index;
    ++Index;
  }
  return ADefault;
}

void TvxKmlObject::Parse(const TvxKmlXmlNode& ANode)
{
  FID = ParseStringAttribute(ANode, kmlnId);
}

void TvxKmlFeature::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlObject::Parse(ANode);
  FAddress = ParseStringElement(ANode, kmlnAddress);
  FDescription = ParseStringElement(ANode, kmlnDescription);
  FName = ParseStringElement(ANode, kmlnName);
  FPhoneNumber = ParseStringElement(ANode, kmlnPhoneNumber);
  FStyleSelector = Downcast<TvxKmlStyleSelector>(CreateAndParseElement(ANode, {kmlnStyle, kmlnStyleMap}));
  FStyleUri = ParseStringElement(ANode, kmlnStyleUrl);
}

void TvxKmlPlacemark::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlFeature::Parse(ANode);
  // By this order of names, not by the order in the document.
  FGeometry = Downcast<TvxKmlGeometry>(
    CreateAndParseElement(ANode, {kmlnLineString, kmlnPoint, kmlnPolygon, kmlnMultiGeometry}));
}

void TvxKmlCoordinatesGeometry::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlGeometry::Parse(ANode);
  ParseCoordinates(ElementText(ANode, kmlnCoordinates));
}

void TvxKmlCoordinatesGeometry::ParseCoordinates(QStringView AText)
{
  FCoordinates.clear();
  const QStringView Text = Trimmed(AText);
  if (Text.isEmpty())
    return;
  // One tuple per blank at most, so the count is known before anything
  // is stored.
  FCoordinates.reserve(size_t(Text.count(QLatin1Char(' ')) + 1));
  qsizetype Pos = 0;
  const qsizetype End = Text.size();
  while (Pos < End)
  {
    // Only the blank separates; any other whitespace stays in the tuple.
    qsizetype Blank = Text.indexOf(QLatin1Char(' '), Pos);
    if (Blank < 0)
      Blank = End;
    FCoordinates.push_back(ParseTuple(Text.mid(Pos, Blank - Pos)));
    Pos = Blank + 1;
    while (Pos < End && IsTrimmed(Text[Pos]))
      ++Pos;
  }
}

TvxKmlCoordinate TvxKmlCoordinatesGeometry::ParseTuple(QStringView ATuple)
{
  TvxKmlCoordinate Result;
  const auto Convert = [ATuple](QStringView AText) {
    double Value = 0;
    if (!vxKmlTryStrToFloat(AText, Value))
      RaiseConvertError(QStringLiteral("Invalid coordinate %1").arg(Quoted(ATuple)));
    return Value;
  };
  const qsizetype Comma = ATuple.indexOf(QLatin1Char(','));
  if (Comma < 0)
  {
    Result.Latitude = Convert(ATuple);
    return Result;
  }
  Result.Longitude = Convert(ATuple.left(Comma));
  const qsizetype Second = ATuple.indexOf(QLatin1Char(','), Comma + 1);
  Result.Latitude = Convert(ATuple.mid(Comma + 1, (Second < 0 ? ATuple.size() : Second) - Comma - 1));
  return Result;
}

void TvxKmlLinearRingContainer::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlElement::Parse(ANode);
  FLinearRing = CreateAndParse<TvxKmlLinearRing>(ANode);
}

void TvxKmlPolygon::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlGeometry::Parse(ANode);
  FOuterBoundaryIs = CreateAndParse<TvxKmlOuterBoundaryIs>(ANode);
  FInnerBoundaryIs = CreateAndParse<TvxKmlInnerBoundaryIs>(ANode);
}

void TvxKmlMultiGeometry::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlGeometry::Parse(ANode);
  for (auto& Element : CreateAndParseElements(ANode, {kmlnPoint, kmlnLineString, kmlnPolygon, kmlnMultiGeometry}))
    if (auto Geometry = Downcast<TvxKmlGeometry>(std::move(Element)))
      FGeometries.push_back(std::move(Geometry));
}

quint32 TvxKmlSubStyle::ParseColorElement(const TvxKmlXmlNode& ANode, TvxKmlName AName, quint32 ADefault)
{
  const QStringView Text = ElementText(ANode, AName);
  return Text.isEmpty() ? ADefault : vxKmlHexToColor(Text);
}

void TvxKmlColorStyle::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlSubStyle::Parse(ANode);
  FColor = ParseColorElement(ANode, kmlnColor, 0xFFFFFFFF);
  FColorMode = TvxKmlColorMode(ParseEnumText(ElementText(ANode, kmlnColorMode), {"normal", "random"}, kcmNormal));
}

void TvxKmlIcon::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlElement::Parse(ANode);
  FHRef = ParseStringElement(ANode, kmlnHref);
}

void TvxKmlHotSpot::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlElement::Parse(ANode);
  FX = ParseDoubleAttribute(ANode, kmlnX, 0.5);
  FY = ParseDoubleAttribute(ANode, kmlnY, 0.5);
  const auto Units = [&ANode](TvxKmlName AName) {
    switch (ParseEnumText(ANode.Attribute(AName), {"pixels", "insetPixels", "fraction"}, -1))
    {
    case 0:
      return kmluPixels;
    case 1:
      return kmluInsetPixels;
    default:
      return kmluFraction;
    }
  };
  FXUnits = Units(kmlnXUnits);
  FYUnits = Units(kmlnYUnits);
}

void TvxKmlIconStyle::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlColorStyle::Parse(ANode);
  FScale = ParseDoubleElement(ANode, kmlnScale, 1.0);
  FHeading = ParseDoubleElement(ANode, kmlnHeading, 0.0);
  FIcon = CreateAndParse<TvxKmlIcon>(ANode);
  FHotSpot = CreateAndParse<TvxKmlHotSpot>(ANode);
}

void TvxKmlLabelStyle::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlColorStyle::Parse(ANode);
  FScale = ParseDoubleElement(ANode, kmlnScale, 1.0);
}

void TvxKmlLineStyle::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlColorStyle::Parse(ANode);
  FWidth = ParseDoubleElement(ANode, kmlnWidth, 1.0);
}

void TvxKmlPolyStyle::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlColorStyle::Parse(ANode);
  FFill = ParseBooleanElement(ANode, kmlnFill, true);
  FOutline = ParseBooleanElement(ANode, kmlnOutline, true);
}

void TvxKmlBalloonStyle::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlSubStyle::Parse(ANode);
  FBgColor = ParseColorElement(ANode, kmlnBgColor, 0xFFFFFFFF);
  FDisplayMode =
    TvxKmlDisplayMode(ParseEnumText(ElementText(ANode, kmlnDisplayMode), {"default", "hide"}, kdmDefault));
  FTextColor = ParseColorElement(ANode, kmlnTextColor, 0xFF000000);
  FText = ParseStringElement(ANode, kmlnText);
}

void TvxKmlItemIcon::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlObject::Parse(ANode);
  FItemIconMode = TvxKmlItemIconMode(ParseEnumText(
    ElementText(ANode, kmlnIconItemMode), {"open", "closed", "error", "fetching0", "fetching1", "fetching2"},
    kiimOpen));
  FHref = ParseStringElement(ANode, kmlnHref);
}

void TvxKmlListStyle::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlSubStyle::Parse(ANode);
  FBgColor = ParseColorElement(ANode, kmlnBgColor, 0xFFFFFFFF);
  for (auto& Element : CreateAndParseElements(ANode, kmlnItemIcon))
    if (auto Icon = Downcast<TvxKmlItemIcon>(std::move(Element)))
      FItemIconList.push_back(std::move(Icon));
  FListItemType = TvxKmlListItemType(ParseEnumText(
    ElementText(ANode, kmlnListItemType), {"check", "checkOffOnly", "checkHideChildren", "radioFolder"}, kliCheck));
}

void TvxKmlStyle::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlStyleSelector::Parse(ANode);
  FIconStyle = CreateAndParse<TvxKmlIconStyle>(ANode);
  FLabelStyle = CreateAndParse<TvxKmlLabelStyle>(ANode);
  FLineStyle = CreateAndParse<TvxKmlLineStyle>(ANode);
  FPolyStyle = CreateAndParse<TvxKmlPolyStyle>(ANode);
  FBalloonStyle = CreateAndParse<TvxKmlBalloonStyle>(ANode);
  FListStyle = CreateAndParse<TvxKmlListStyle>(ANode);
}

void TvxKmlPair::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlObject::Parse(ANode);
  FKey = TvxKmlStyleState(ParseEnumText(ElementText(ANode, kmlnKey), {"normal", "highlight"}, kssNormal));
  FStyleUrl = ParseStringElement(ANode, kmlnStyleUrl);
  FStyle = CreateAndParse<TvxKmlStyle>(ANode);
}

void TvxKmlStyleMap::Parse(const TvxKmlXmlNode& ANode)
{
  TvxKmlStyleSelector::Parse(ANode);
  for (auto& Element : CreateAndParseElements(ANode, kmlnPair))
    if (auto Pair = Downcast<TvxKmlPair>(std::move(Element)))
      FPairs.push_back(std::move(Pair));
}

// The root

void TvxKmlRoot::Parse(QIODevice& AStream, const TvxKmlMemoryGuard* AGuard)
{
  TvxKmlXmlDocument Document;
  Document.Load(AStream, AGuard);
  FGuard = AGuard;
  try
  {
    Parse(Document);
  }
  catch (...)
  {
    FGuard = nullptr;
    throw;
  }
  FGuard = nullptr;
}

void TvxKmlRoot::Parse(const TvxKmlXmlDocument& ADocument)
{
  Parse(ADocument.DocumentElement());
}

void TvxKmlRoot::Parse(const TvxKmlXmlNode& ANode)
{
  FIsStyleIndexValid = false;
  const TvxKmlElementsFactory& Factory = TvxKmlElementsFactory::Instance();
  for (TvxKmlXmlNode Child = ANode.FirstChild(); Child; Child = Child.NextSibling())
  {
    const int Name = Child.NameId();
    if (Name != kmlnStyle && Name != kmlnStyleMap && Name != kmlnPlacemark)
    {
      // Any other element is a wrapper; the depth limit of the document
      // bounds this recursion.
      Parse(Child);
      continue;
    }
    std::unique_ptr<TvxKmlElement> Element = Factory.CreateElementByName(Child.Name());
    if (!Element)
      continue;
    Element->Parse(Child);
    if (FGuard && (++FParsedCount & 1023) == 0)
      FGuard->Check();
    if (Name == kmlnStyle)
    {
      if (auto Style = Downcast<TvxKmlStyle>(std::move(Element)))
        FStyles.push_back(std::move(Style));
    }
    else if (Name == kmlnStyleMap)
    {
      if (auto StyleMap = Downcast<TvxKmlStyleMap>(std::move(Element)))
        FStyleMaps.push_back(std::move(StyleMap));
    }
    else if (auto Placemark = Downcast<TvxKmlPlacemark>(std::move(Element)))
      FPlacemarks.push_back(std::move(Placemark));
  }
}

void TvxKmlRoot::BuildStyleIndex() const
{
  if (FIsStyleIndexValid)
    return;
  FStyleIndex.clear();
  FStyleMapIndex.clear();
  FStyleIndex.reserve(qsizetype(FStyles.size()));
  for (const auto& Style : FStyles)
    if (!FStyleIndex.contains(Style->ID()))
      FStyleIndex.insert(Style->ID(), Style.get());
  for (const auto& StyleMap : FStyleMaps)
    FStyleMapIndex.insert(StyleMap->ID(), StyleMap.get());
  FIsStyleIndexValid = true;
}

QString TvxKmlRoot::GetStyleIDFromUrl(const QString& AUrl)
{
  QString Result = AUrl;
  Result.remove(QLatin1Char('#'));
  return Result;
}

const TvxKmlStyle* TvxKmlRoot::ResolveStyleByUrl(const QString& AUrl) const
{
  BuildStyleIndex();
  return FStyleIndex.value(GetStyleIDFromUrl(AUrl), nullptr);
}

void TvxKmlRoot::ResolveStylesByUrl(const QString& AUrl, const TvxKmlStyle*& ANormal,
                                    const TvxKmlStyle*& AHighlighted) const
{
  ANormal = nullptr;
  AHighlighted = nullptr;
  if (const TvxKmlStyle* Style = ResolveStyleByUrl(AUrl))
  {
    ANormal = Style;
    return;
  }
  if (const TvxKmlStyleMap* StyleMap = FStyleMapIndex.value(GetStyleIDFromUrl(AUrl), nullptr))
    ResolveStyleMapStyles(*StyleMap, ANormal, AHighlighted);
}

void TvxKmlRoot::ResolveStyleMapStyles(const TvxKmlStyleMap& AStyleMap, const TvxKmlStyle*& ANormal,
                                       const TvxKmlStyle*& AHighlighted) const
{
  ANormal = nullptr;
  AHighlighted = nullptr;
  const auto Resolve = [this, &AStyleMap](TvxKmlStyleState AKey) -> const TvxKmlStyle* {
    for (const auto& Pair : AStyleMap.Pairs())
      if (Pair->Key() == AKey)
        return Pair->Style() ? Pair->Style() : ResolveStyleByUrl(Pair->StyleUrl());
    return nullptr;
  };
  ANormal = Resolve(kssNormal);
  AHighlighted = Resolve(kssHighlight);
}

void TvxKmlRoot::ResolveElementStyles(const TvxKmlFeature& AElement, const TvxKmlStyle*& ANormal,
                                      const TvxKmlStyle*& AHighlighted) const
{
  ANormal = nullptr;
  AHighlighted = nullptr;
  if (const TvxKmlStyleSelector* Selector = AElement.StyleSelector())
  {
    if (const auto* Style = dynamic_cast<const TvxKmlStyle*>(Selector))
      ANormal = Style;
    else if (const auto* StyleMap = dynamic_cast<const TvxKmlStyleMap*>(Selector))
      ResolveStyleMapStyles(*StyleMap, ANormal, AHighlighted);
  }
  else if (!AElement.StyleUri().isEmpty())
    ResolveStylesByUrl(AElement.StyleUri(), ANormal, AHighlighted);
}

// The factory

TvxKmlElementsFactory& TvxKmlElementsFactory::Instance()
{
  static TvxKmlElementsFactory Factory;
  return Factory;
}

template <class T>
void TvxKmlElementsFactory::RegisterElement()
{
  FItems.push_back({vxKmlNameText(T::ParseName), [] { return std::unique_ptr<TvxKmlElement>(std::make_unique<T>()); }});
}

void TvxKmlElementsFactory::RegisterElements()
{
  RegisterElement<TvxKmlPlacemark>();
  RegisterElement<TvxKmlStyle>();
  RegisterElement<TvxKmlStyleMap>();
  RegisterElement<TvxKmlPoint>();
  RegisterElement<TvxKmlLineString>();
  RegisterElement<TvxKmlLinearRing>();
  RegisterElement<TvxKmlOuterBoundaryIs>();
  RegisterElement<TvxKmlInnerBoundaryIs>();
  RegisterElement<TvxKmlPolygon>();
  RegisterElement<TvxKmlMultiGeometry>();
  RegisterElement<TvxKmlIcon>();
  RegisterElement<TvxKmlHotSpot>();
  RegisterElement<TvxKmlIconStyle>();
  RegisterElement<TvxKmlLabelStyle>();
  RegisterElement<TvxKmlLineStyle>();
  RegisterElement<TvxKmlPolyStyle>();
  RegisterElement<TvxKmlBalloonStyle>();
  RegisterElement<TvxKmlItemIcon>();
  RegisterElement<TvxKmlListStyle>();
  RegisterElement<TvxKmlPair>();
}

TvxKmlElementClass TvxKmlElementsFactory::GetElementClassByName(QStringView AName) const
{
  for (const TvxKmlElementFactoryItem& Item : FItems)
    if (Item.FElementName.size() == AName.size() && Item.FElementName == AName)
      return Item.FElementType;
  return nullptr;
}

std::unique_ptr<TvxKmlElement> TvxKmlElementsFactory::CreateElementByName(QStringView AName) const
{
  const TvxKmlElementClass Class = GetElementClassByName(AName);
  return Class ? Class() : nullptr;
}
