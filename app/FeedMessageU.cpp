#include "FeedMessageU.h"

#include "ErrorsU.h"
#include "NumberTextU.h"

#include <QXmlStreamReader>

namespace
{
// The attributes in the order ID, NAME, LOCATION, STATUS, LAT, LON,
// FIXSTATUS, FIXRADIUS, INIT; `value` gives an attribute's text, empty
// when it is missing. LAT and LON in the user's locale; throws
// EConvertError for a LAT, LON or FIXRADIUS that is missing or no number.
template <typename Value>
TLiveMarkerReport ReadLiveMarkerReport(const Value& value, const QString& decimalPoint)
{
  TLiveMarkerReport report;
  report.Id = value(QLatin1String("ID"));
  report.Name = value(QLatin1String("NAME"));
  report.Location = value(QLatin1String("LOCATION"));
  report.Status = value(QLatin1String("STATUS"));
  report.Lat = NumberText::StrToFloat(value(QLatin1String("LAT")), decimalPoint);
  report.Lon = NumberText::StrToFloat(value(QLatin1String("LON")), decimalPoint);
  report.FixStatus = value(QLatin1String("FIXSTATUS"));
  report.Radius = NumberText::StrToInt(value(QLatin1String("FIXRADIUS")));
  report.Init = value(QLatin1String("INIT")) == QLatin1String("TRUE");
  return report;
}

// What a frame's elements mean, whichever reader found them: the root, the
// first System and the first LiveMarkers under it, and their children.
class TFrameContent
{
public:
  TFeedMessage Message;

  // A start tag at `depth` (the root is 1); `value` as for ReadLiveMarkerReport.
  template <typename Value>
  void Element(int depth, QStringView name, const Value& value)
  {
    if (depth == 2) {
      FSection = TSection::None;
      if (name == QLatin1String("System") && !FSystemSeen) {
        FSystemSeen = true;
        FSection = TSection::System;
      } else if (name == QLatin1String("LiveMarkers") && !FLiveSeen) {
        FLiveSeen = true;
        FSection = TSection::Live;
      }
    } else if (depth == 3 && FSection == TSection::System) {
      Message.Commands << value(QLatin1String("COMMAND"));
    } else if (depth == 3 && FSection == TSection::Live) {
      Message.HasLiveMarkers = true;
      if (!FReportsFailed) {
        try {
          Message.Reports.push_back(ReadLiveMarkerReport(value, FDecimalPoint));
        } catch (const EConvertError& e) {
          // The reports before the bad one still count.
          Message.ReportFailure = e.Message();
          FReportsFailed = true;
        }
      }
    }
  }

private:
  enum class TSection { None, System, Live };
  const QString FDecimalPoint = QLocale().decimalPoint(); // one question to the locale per frame
  TSection FSection = TSection::None;
  bool FSystemSeen = false;
  bool FLiveSeen = false;
  bool FReportsFailed = false;
};

const QString RootName = QStringLiteral("KestrelMapData");

// A quick reader for the plain XML a parent writes: ASCII names, quoted
// values with the five predefined entities, whitespace and text between
// elements. It takes a frame only when it can tell the frame is well-formed
// and means what the stream reader would read; anything else (a declaration,
// a comment, a character reference, a control character, a name beyond
// ASCII, a duplicate attribute, any error) it leaves to the stream reader,
// which then gives the same result or the parser's own message.
class TPlainFrameReader
{
public:
  explicit TPlainFrameReader(QStringView text) : FAt(text.utf16()), FEnd(text.utf16() + text.size()) {}

  bool Read(TFrameContent& content)
  {
    SkipBlanks();
    if (FAt == FEnd || *FAt != u'<')
      return false;
    int depth = 0;
    do {
      if (FAt == FEnd)
        return false; // an element left open
      if (*FAt != u'<') {
        if (!SkipText())
          return false;
        continue;
      }
      if (FEnd - FAt < 2)
        return false;
      if (FAt[1] == u'/') {
        FAt += 2;
        const QStringView name = Name();
        SkipBlanks();
        if (name.isEmpty() || FAt == FEnd || *FAt != u'>' || FOpen.empty() || name != FOpen.back())
          return false;
        ++FAt;
        FOpen.pop_back();
        --depth;
        continue;
      }
      ++FAt;
      const QStringView name = Name();
      bool empty = false;
      if (name.isEmpty() || !Attributes(empty))
        return false;
      ++depth;
      // Another root, or a nesting no frame of a parent has: the stream reader's.
      if ((depth == 1 && name != RootName) || depth > MaxDepth)
        return false;
      content.Element(depth, name, [this](QLatin1String wanted) { return Value(wanted); });
      if (empty)
        --depth;
      else
        FOpen.push_back(name);
    } while (depth > 0);
    SkipBlanks();
    return FAt == FEnd;
  }

private:
  struct TAttribute
  {
    QStringView Name;
    QStringView Raw;
    bool Entities = false;
  };

  static constexpr int MaxDepth = 64;

  static bool IsBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; }
  static bool IsNameStart(char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'_'; }
  static bool IsNameChar(char16_t c) { return IsNameStart(c) || (c >= u'0' && c <= u'9') || c == u'-' || c == u'.'; }
  // Characters taken as they stand; no control character, no surrogate,
  // no non-character.
  static bool IsPlain(char16_t c) { return c >= 0x20 && (c < 0xD800 || (c >= 0xE000 && c < 0xFFFE)); }

  // The predefined entity at `at` ('&'): its character and length, or 0.
  static int Entity(const char16_t* at, const char16_t* end, char16_t& c)
  {
    static const struct
    {
      QLatin1String Text;
      char16_t Char;
    } entities[] = {{QLatin1String("&amp;"), u'&'},
                    {QLatin1String("&lt;"), u'<'},
                    {QLatin1String("&gt;"), u'>'},
                    {QLatin1String("&quot;"), u'"'},
                    {QLatin1String("&apos;"), u'\''}};
    const QStringView rest(at, end);
    for (const auto& entity : entities)
      if (rest.startsWith(entity.Text)) {
        c = entity.Char;
        return int(entity.Text.size());
      }
    return 0;
  }

  void SkipBlanks()
  {
    while (FAt != FEnd && IsBlank(*FAt))
      ++FAt;
  }

  QStringView Name()
  {
    const char16_t* start = FAt;
    if (FAt == FEnd || !IsNameStart(*FAt))
      return {};
    while (FAt != FEnd && IsNameChar(*FAt))
      ++FAt;
    return QStringView(start, FAt);
  }

  // Text between tags, up to the next '<'.
  bool SkipText()
  {
    if (FOpen.empty())
      return false; // text outside the root
    for (; FAt != FEnd && *FAt != u'<'; ++FAt) {
      char16_t c;
      if (*FAt == u'&') {
        const int length = Entity(FAt, FEnd, c);
        if (length == 0)
          return false;
        FAt += length - 1;
      } else if (*FAt == u']' && QStringView(FAt, FEnd).startsWith(QLatin1String("]]>"))) {
        return false;
      } else if (!IsPlain(*FAt) && !IsBlank(*FAt)) {
        return false;
      }
    }
    return FAt != FEnd;
  }

  // The attributes after a tag's name, to its '>' or "/>".
  bool Attributes(bool& empty)
  {
    FAttributes.clear();
    for (;;) {
      const char16_t* before = FAt;
      SkipBlanks();
      if (FAt == FEnd)
        return false;
      if (*FAt == u'>') {
        ++FAt;
        return true;
      }
      if (*FAt == u'/') {
        if (FEnd - FAt < 2 || FAt[1] != u'>')
          return false;
        FAt += 2;
        empty = true;
        return true;
      }
      if (FAt == before)
        return false; // an attribute right after a name or a value
      TAttribute attribute;
      attribute.Name = Name();
      // Names starting "xml" are reserved, and namespaces are the stream reader's.
      if (attribute.Name.isEmpty() || attribute.Name.startsWith(QLatin1String("xml"), Qt::CaseInsensitive))
        return false;
      SkipBlanks();
      if (FAt == FEnd || *FAt != u'=')
        return false;
      ++FAt;
      SkipBlanks();
      if (FAt == FEnd || (*FAt != u'"' && *FAt != u'\''))
        return false;
      const char16_t quote = *FAt++;
      const char16_t* start = FAt;
      for (; FAt != FEnd && *FAt != quote; ++FAt) {
        char16_t c;
        if (*FAt == u'&') {
          const int length = Entity(FAt, FEnd, c);
          if (length == 0)
            return false;
          attribute.Entities = true;
          FAt += length - 1;
        } else if (*FAt == u'<' || !IsPlain(*FAt)) {
          // Tabs and line ends in a value are the stream reader's: it
          // turns them into spaces.
          return false;
        }
      }
      if (FAt == FEnd)
        return false;
      attribute.Raw = QStringView(start, FAt);
      ++FAt;
      for (const TAttribute& other : FAttributes)
        if (other.Name == attribute.Name)
          return false;
      FAttributes.push_back(attribute);
    }
  }

  QString Value(QLatin1String name)
  {
    for (const TAttribute& attribute : FAttributes) {
      if (attribute.Name != name)
        continue;
      if (!attribute.Entities)
        return attribute.Raw.toString();
      QString text;
      text.reserve(attribute.Raw.size());
      const char16_t* const end = attribute.Raw.utf16() + attribute.Raw.size();
      for (const char16_t* at = attribute.Raw.utf16(); at != end; ++at) {
        char16_t c = *at;
        if (c == u'&')
          at += Entity(at, end, c) - 1;
        text += QChar(c);
      }
      return text;
    }
    return {};
  }

  const char16_t* FAt;
  const char16_t* FEnd;
  std::vector<QStringView> FOpen;
  std::vector<TAttribute> FAttributes;
};
}

bool ReadPlainFeedMessage(const QString& text, TFeedMessage& message)
{
  TFrameContent content;
  if (!TPlainFrameReader(text).Read(content))
    return false;
  message = std::move(content.Message);
  return true;
}

// One pass of a stream reader, without building a document: the whole frame
// is still read to its end before anything counts, so a frame that is no
// well-formed XML changes nothing, as with a document parser.
TFeedMessage ReadFeedMessageStreamed(const QString& text)
{
  QXmlStreamReader reader(text);
  // Names as written, prefixes included, as a parser without namespaces sees them.
  reader.setNamespaceProcessing(false);
  TFrameContent content;
  bool rootSeen = false;
  bool otherRoot = false;
  const auto value = [&reader](QLatin1String name) { return reader.attributes().value(name).toString(); };
  while (!reader.atEnd()) {
    if (reader.readNext() != QXmlStreamReader::StartElement)
      continue;
    if (!rootSeen) {
      rootSeen = true;
      if (reader.qualifiedName() != RootName) {
        // The document must be whole before its root counts against it.
        otherRoot = true;
        while (!reader.atEnd())
          reader.readNext();
        break;
      }
      continue;
    }
    // A child of the root and its children; anything deeper is skipped.
    content.Element(2, reader.qualifiedName(), value);
    while (reader.readNextStartElement()) {
      content.Element(3, reader.qualifiedName(), value);
      reader.skipCurrentElement();
    }
  }
  if (reader.hasError())
    throw EMapwrightError(QStringLiteral("%1 (line %2, column %3)")
                            .arg(reader.errorString())
                            .arg(reader.lineNumber())
                            .arg(reader.columnNumber()));
  if (!rootSeen || otherRoot)
    throw EMapwrightError(QStringLiteral("Node \"KestrelMapData\" not found"));
  return std::move(content.Message);
}

TFeedMessage ReadFeedMessage(const QString& text)
{
  TFeedMessage message;
  if (ReadPlainFeedMessage(text, message))
    return message;
  return ReadFeedMessageStreamed(text);
}
