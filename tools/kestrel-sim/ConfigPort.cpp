#include "ConfigPort.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QSaveFile>

#include <optional>

namespace
{
struct Line
{
  qsizetype begin = 0;
  qsizetype end = 0;  // end of the text, before the line end
  qsizetype next = 0; // start of the next line
};

QList<Line> splitLines(const QByteArray& text)
{
  QList<Line> lines;
  qsizetype begin = 0;
  while (begin < text.size())
  {
    const qsizetype lf = text.indexOf('\n', begin);
    Line l;
    l.begin = begin;
    l.next = lf < 0 ? text.size() : lf + 1;
    l.end = lf < 0 ? text.size() : lf;
    if (l.end > l.begin && text.at(l.end - 1) == '\r')
      --l.end;
    lines.append(l);
    begin = l.next;
  }
  return lines;
}

QByteArray content(const QByteArray& text, const Line& l, bool first)
{
  QByteArray c = text.mid(l.begin, l.end - l.begin);
  if (first && c.startsWith("\xEF\xBB\xBF"))
    c.remove(0, 3);
  return c.trimmed();
}

bool isComment(const QByteArray& c)
{
  return c.startsWith(';') || c.startsWith('#');
}

// The section name of a header line, or an empty optional.
std::optional<QByteArray> sectionName(const QByteArray& c)
{
  if (!c.startsWith('['))
    return std::nullopt;
  const qsizetype close = c.indexOf(']');
  if (close < 0)
    return std::nullopt;
  return c.mid(1, close - 1).trimmed();
}

bool sameName(const QByteArray& a, const char* b)
{
  return a.compare(b, Qt::CaseInsensitive) == 0;
}
} // namespace

namespace ConfigPort
{
QString iniPath(const QString& configDir)
{
  return QDir(configDir).filePath(QStringLiteral("Maps/Mapwright.ini"));
}

QByteArray withPort(const QByteArray& text, int port)
{
  const QByteArray eol = text.contains("\r\n") ? "\r\n" : text.contains('\n') ? "\n" : "\r\n";
  const QByteArray keyLine = "TCPPort=" + QByteArray::number(port);
  const QList<Line> lines = splitLines(text);

  // The first [Startup] counts, as the reader takes the first of duplicates.
  qsizetype section = -1;
  qsizetype lastKey = -1;
  for (qsizetype i = 0; i < lines.size(); ++i)
  {
    const QByteArray c = content(text, lines[i], i == 0);
    if (const auto name = sectionName(c))
    {
      if (section >= 0)
        break;
      if (sameName(*name, "Startup"))
        section = lastKey = i;
      continue;
    }
    if (section < 0 || c.isEmpty() || isComment(c))
      continue;
    const qsizetype eq = c.indexOf('=');
    if (eq < 0)
      continue;
    lastKey = i;
    if (!sameName(c.left(eq).trimmed(), "TCPPort"))
      continue;

    // Replace the value only; the key's spelling and the blanks after "=" stay.
    const Line& l = lines[i];
    const qsizetype rawEq = text.indexOf('=', l.begin);
    qsizetype valueStart = rawEq + 1;
    while (valueStart < l.end && (text.at(valueStart) == ' ' || text.at(valueStart) == '\t'))
      ++valueStart;
    return text.left(valueStart) + QByteArray::number(port) + text.mid(l.end);
  }

  if (section < 0)
  {
    QByteArray out = text;
    if (!out.isEmpty() && !out.endsWith('\n'))
      out += eol;
    return out + "[Startup]" + eol + keyLine + eol;
  }
  const Line& after = lines[lastKey];
  QByteArray insert = keyLine + eol;
  if (after.next == after.end) // the last line of the file has no line end
    insert.prepend(eol);
  return text.left(after.next) + insert + text.mid(after.next);
}

bool write(const QString& configDir, int port, QString* error)
{
  auto fail = [error](const QString& message) {
    if (error)
      *error = message;
    return false;
  };
  const QString path = iniPath(configDir);
  if (!QDir().mkpath(QFileInfo(path).absolutePath()))
    return fail(QStringLiteral("cannot make %1").arg(QFileInfo(path).absolutePath()));

  QByteArray text;
  QFile in(path);
  if (in.exists())
  {
    if (!in.open(QIODevice::ReadOnly))
      return fail(QStringLiteral("cannot read %1: %2").arg(path, in.errorString()));
    text = in.readAll();
    in.close();
  }
  const QByteArray updated = withPort(text, port);
  if (updated == text)
    return true;

  QSaveFile out(path);
  if (!out.open(QIODevice::WriteOnly) || out.write(updated) != updated.size() || !out.commit())
    return fail(QStringLiteral("cannot write %1: %2").arg(path, out.errorString()));
  return true;
}
} // namespace ConfigPort
