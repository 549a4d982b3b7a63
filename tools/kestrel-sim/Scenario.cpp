#include "Scenario.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringList>
#include <QXmlStreamReader>

#include <cmath>
#include <optional>

namespace
{
const QStringList Commands{"SHUTDOWN", "MINIMIZE", "MAXIMIZE", "RESTORE"};

bool isAscii(const QString& text)
{
  for (QChar c : text)
    if (c.unicode() > 0x7E || (c.unicode() < 0x20 && c != QLatin1Char('\t')))
      return false;
  return true;
}

// The scenario file is the same in every locale: numbers use ".".
std::optional<double> readNumber(const QString& text)
{
  bool ok = false;
  const double value = QLocale::c().toDouble(text, &ok);
  if (!ok || !std::isfinite(value))
    return std::nullopt;
  return value;
}

class Parser
{
public:
  explicit Parser(Scenario& scenario) : S(scenario) {}

  void line(int number, const QString& rawLine)
  {
    const QString text = rawLine.trimmed();
    if (text.isEmpty() || text.startsWith(QLatin1Char('#')))
      return;
    Number = number;

    static const QRegularExpression blank(QStringLiteral("\\s"));
    const qsizetype timeEnd = text.indexOf(blank);
    const QString timeText = timeEnd < 0 ? text : text.left(timeEnd);
    const QString rest = timeEnd < 0 ? QString() : text.mid(timeEnd).trimmed();
    const qsizetype wordEnd = rest.indexOf(blank);
    const QString word = wordEnd < 0 ? rest : rest.left(wordEnd);
    const QString args = wordEnd < 0 ? QString() : rest.mid(wordEnd).trimmed();

    if (EndSeen)
      return error(QStringLiteral("nothing may follow the \"end\" line"));

    const bool relative = timeText.startsWith(QLatin1Char('+'));
    const qint64 t = Scenario::parseTime(relative ? timeText.mid(1) : timeText);
    if (t < 0)
      return error(QStringLiteral("\"%1\" is no time; write seconds (12.5), m:ss.s or +seconds").arg(timeText));
    const qint64 at = relative ? LastMs + t : t;
    if (at < LastMs)
      return error(QStringLiteral("time %1 is before the line above it").arg(timeText));
    // A readable time counts for the order even when the rest of the line is bad.
    LastMs = at;

    if (word == QLatin1String("marker"))
      marker(at, args);
    else if (word == QLatin1String("raw"))
      raw(at, args);
    else if (word == QLatin1String("command"))
      command(at, args);
    else if (word == QLatin1String("end"))
    {
      if (!args.isEmpty())
        return error(QStringLiteral("\"end\" takes nothing after it"));
      EndSeen = true;
      S.lengthMs = at;
    }
    else if (word.isEmpty())
      return error(QStringLiteral("a time needs a word after it: marker, raw, command or end"));
    else
      return error(QStringLiteral("unknown word \"%1\"; expected marker, raw, command or end").arg(word));
  }

  void finish()
  {
    if (!EndSeen && !S.frames.isEmpty())
      S.lengthMs = S.frames.last().atMs;
  }

private:
  void error(const QString& message) { S.errors.append({Number, message}); }

  void marker(qint64 at, const QString& args)
  {
    QStringList f = args.split(QLatin1Char('|'));
    for (QString& field : f)
      field = field.trimmed();
    if (f.size() != 8 && f.size() != 9)
      return error(QStringLiteral("a marker line has 8 or 9 fields split by \"|\", found %1").arg(f.size()));

    MarkerReport r;
    r.id = f[0];
    r.name = f[1];
    r.location = f[2];
    r.status = f[3];
    r.fixStatus = f[6];
    if (r.id.isEmpty())
      return error(QStringLiteral("the ID field is empty"));

    const auto lat = readNumber(f[4]);
    const auto lon = readNumber(f[5]);
    if (!lat || std::abs(*lat) > 90)
      return error(QStringLiteral("LAT \"%1\" is no latitude (use \".\" for decimals)").arg(f[4]));
    if (!lon || std::abs(*lon) > 180)
      return error(QStringLiteral("LON \"%1\" is no longitude (use \".\" for decimals)").arg(f[5]));
    r.lat = *lat;
    r.lon = *lon;

    bool ok = false;
    r.fixRadius = f[7].toInt(&ok);
    if (!ok)
      return error(QStringLiteral("FIXRADIUS \"%1\" is no whole number").arg(f[7]));

    const QString init = f.size() == 9 ? f[8] : QString();
    if (init == QLatin1String("TRUE"))
      r.init = true;
    else if (!init.isEmpty() && init != QLatin1String("FALSE"))
      return error(QStringLiteral("INIT is TRUE or FALSE, not \"%1\"").arg(init));

    // Reports of one time travel together, as a parent sends them.
    if (!S.frames.isEmpty() && !S.frames.last().isRaw() && S.frames.last().atMs == at)
      S.frames.last().reports.append(r);
    else
      S.frames.append({at, Number, {r}, {}});
  }

  void raw(qint64 at, const QString& args)
  {
    if (args.isEmpty())
      return error(QStringLiteral("\"raw\" needs the frame text after it"));
    if (!isAscii(args))
      return error(QStringLiteral("a raw frame must be ASCII; write other characters as &#NNN;"));
    S.frames.append({at, Number, {}, args.toLatin1()});
  }

  void command(qint64 at, const QString& args)
  {
    if (!Commands.contains(args))
      return error(QStringLiteral("command is one of %1, not \"%2\"").arg(Commands.join(QStringLiteral(", ")), args));
    S.frames.append({at, Number, {}, KestrelFrame::command(args)});
  }

  Scenario& S;
  int Number = 0;
  qint64 LastMs = 0;
  bool EndSeen = false;
};
} // namespace

QString ScenarioError::toString() const
{
  return line > 0 ? QStringLiteral("line %1: %2").arg(line).arg(message) : message;
}

qint64 Scenario::parseTime(const QString& text)
{
  static const QRegularExpression form(QStringLiteral("^(?:(?:(\\d+):)?(\\d+):)?(\\d+(?:\\.\\d+)?)$"));
  const QRegularExpressionMatch m = form.match(text);
  if (!m.hasMatch())
    return -1;
  const bool hasMinutes = m.hasCaptured(2);
  const bool hasHours = m.hasCaptured(1);
  const double seconds = QLocale::c().toDouble(m.captured(3));
  const qint64 minutes = hasMinutes ? m.captured(2).toLongLong() : 0;
  const qint64 hours = hasHours ? m.captured(1).toLongLong() : 0;
  if ((hasMinutes && seconds >= 60) || (hasHours && minutes >= 60) || seconds > 1e9)
    return -1;
  return (hours * 3600 + minutes * 60) * 1000 + std::llround(seconds * 1000);
}

Scenario Scenario::parse(const QString& text)
{
  Scenario s;
  Parser parser(s);
  const QStringList lines = text.split(QLatin1Char('\n'));
  for (int i = 0; i < lines.size(); ++i)
    parser.line(i + 1, lines[i]);
  parser.finish();
  return s;
}

Scenario Scenario::load(const QString& fileName)
{
  QFile file(fileName);
  if (!file.open(QIODevice::ReadOnly))
  {
    Scenario s;
    s.errors.append({0, QStringLiteral("cannot read %1: %2").arg(fileName, file.errorString())});
    return s;
  }
  return parse(QString::fromUtf8(file.readAll()));
}

int Scenario::reportCount() const
{
  int n = 0;
  for (const ScenarioFrame& f : frames)
    n += f.reports.size();
  return n;
}

namespace KestrelFrame
{
QByteArray escapeAttribute(const QString& value)
{
  QByteArray out;
  out.reserve(value.size());
  for (const char32_t c : value.toUcs4())
  {
    switch (c)
    {
    case '&': out += "&amp;"; break;
    case '<': out += "&lt;"; break;
    case '>': out += "&gt;"; break;
    case '"': out += "&quot;"; break;
    default:
      // The link carries ASCII only; a reference survives it.
      if (c < 0x20 || c > 0x7E)
        out += "&#" + QByteArray::number(quint32(c)) + ';';
      else
        out += char(c);
    }
  }
  return out;
}

QString formatCoordinate(double degrees, const QLocale& locale)
{
  QLocale l(locale);
  l.setNumberOptions(QLocale::OmitGroupSeparator);
  // Shortest text that reads back as the same double: never fewer
  // decimals than the scenario gave, and no rounding of the position.
  return l.toString(degrees, 'f', QLocale::FloatingPointShortest);
}

QByteArray markers(const QList<MarkerReport>& reports, const QLocale& locale)
{
  QByteArray out = "<KestrelMapData><LiveMarkers>";
  for (const MarkerReport& r : reports)
  {
    out += "<Marker ID=\"" + escapeAttribute(r.id) + "\" NAME=\"" + escapeAttribute(r.name) + "\" LOCATION=\"" +
           escapeAttribute(r.location) + "\" STATUS=\"" + escapeAttribute(r.status) + "\" LAT=\"" +
           escapeAttribute(formatCoordinate(r.lat, locale)) + "\" LON=\"" +
           escapeAttribute(formatCoordinate(r.lon, locale)) + "\" FIXSTATUS=\"" + escapeAttribute(r.fixStatus) +
           "\" FIXRADIUS=\"" + QByteArray::number(r.fixRadius) + "\" INIT=\"" + (r.init ? "TRUE" : "FALSE") +
           "\"></Marker>";
  }
  out += "</LiveMarkers></KestrelMapData>";
  return out;
}

QByteArray command(const QString& command)
{
  return "<KestrelMapData><System><Command COMMAND=\"" + escapeAttribute(command) + "\"/></System></KestrelMapData>";
}

QString describe(const QByteArray& frame)
{
  QXmlStreamReader xml(frame);
  QStringList parts;
  QString section;
  QStringList items;
  auto flush = [&] {
    if (!section.isEmpty())
      parts.append(section == QLatin1String("LiveMarkers")
                       ? QStringLiteral("LiveMarkers %1: %2").arg(items.size()).arg(items.join(QStringLiteral(", ")))
                       : QStringLiteral("%1 %2").arg(section, items.join(QLatin1Char(' '))));
    section.clear();
    items.clear();
  };
  int depth = 0;
  while (!xml.atEnd())
  {
    const auto token = xml.readNext();
    if (token == QXmlStreamReader::StartElement)
    {
      ++depth;
      if (depth == 2)
      {
        flush();
        section = xml.name().toString();
      }
      else if (depth == 3)
      {
        const auto a = xml.attributes();
        items.append(section == QLatin1String("LiveMarkers")
                         ? QStringLiteral("%1 %2").arg(a.value(QLatin1String("ID")), a.value(QLatin1String("STATUS"))).trimmed()
                         : a.value(QLatin1String("COMMAND")).toString());
      }
    }
    else if (token == QXmlStreamReader::EndElement)
      --depth;
  }
  flush();
  const QString size = QStringLiteral(" (%1 bytes)").arg(frame.size());
  if (xml.hasError() || parts.isEmpty())
  {
    const QString text = QString::fromLatin1(frame);
    return (text.size() > 100 ? text.left(100) + QStringLiteral("...") : text) + size;
  }
  QString summary = parts.join(QStringLiteral("; "));
  if (summary.size() > 160)
    summary = summary.left(157) + QStringLiteral("...");
  return summary + size;
}
} // namespace KestrelFrame
