#include "IniFileU.h"

#include "NumberTextU.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStringDecoder>

namespace
{
const QByteArray Utf8Bom("\xEF\xBB\xBF");
const qsizetype MaxValueLength = 2047;

enum class TLineKind { Other, Section, Key };

// Sorts a line and gives the section or key name it carries.
TLineKind Classify(const QString& line, QString* name)
{
  const QString t = line.trimmed();
  if (t.startsWith(u'['))
  {
    const qsizetype close = t.lastIndexOf(u']');
    if (close < 0)
      return TLineKind::Other;
    *name = t.mid(1, close - 1).trimmed();
    return TLineKind::Section;
  }
  if (t.startsWith(u';'))
    return TLineKind::Other;
  const qsizetype equals = t.indexOf(u'=');
  if (equals < 0)
    return TLineKind::Other;
  *name = t.left(equals).trimmed();
  return name->isEmpty() ? TLineKind::Other : TLineKind::Key;
}

bool SameName(const QString& a, const QString& b)
{
  return a.compare(b, Qt::CaseInsensitive) == 0;
}

QString ValueOf(const QString& keyLine)
{
  QString value = keyLine.mid(keyLine.indexOf(u'=') + 1).trimmed();
  if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') && value.back() == value.front())
    value = value.mid(1, value.size() - 2);
  value.truncate(MaxValueLength);
  return value;
}

// A line break inside a value would start a new line in the file, and so
// could make up keys or sections of its own.
QString OneLine(QString text)
{
  text.replace(QLatin1String("\r\n"), QLatin1String(" "));
  text.replace(u'\r', u' ');
  text.replace(u'\n', u' ');
  return text;
}

bool ReadsAsUtf8(const QByteArray& bytes)
{
  QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
  const QString text = decoder(bytes); // the decoder works when its result is taken
  return !decoder.hasError();
}

bool FitsLatin1(const QString& text)
{
  for (QChar c : text)
    if (c.unicode() > 0xFF)
      return false;
  return true;
}
}

TIniFile::TIniFile(QString fileName)
  : FFileName(std::move(fileName)), FLineEnd(QStringLiteral("\r\n"))
{
  QFile file(FFileName);
  if (!file.open(QIODevice::ReadOnly))
    return;
  QByteArray bytes = file.readAll();
  file.close();

  if (bytes.startsWith(Utf8Bom))
  {
    FBom = true;
    bytes.remove(0, Utf8Bom.size());
  }
  QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
  QString text = decoder(bytes);
  if (decoder.hasError())
  {
    FLatin1 = true;
    text = QString::fromLatin1(bytes);
  }

  qsizetype start = 0;
  bool lineEndSeen = false;
  for (qsizetype i = 0; i < text.size(); ++i)
  {
    const QChar c = text.at(i);
    if (c != u'\r' && c != u'\n')
      continue;
    FLines.append(text.mid(start, i - start));
    const bool crlf = c == u'\r' && i + 1 < text.size() && text.at(i + 1) == u'\n';
    if (!lineEndSeen)
    {
      // The first line end sets the style for the whole file.
      FLineEnd = crlf ? QStringLiteral("\r\n") : QString(c);
      lineEndSeen = true;
    }
    if (crlf)
      ++i;
    start = i + 1;
  }
  if (start < text.size())
  {
    FLines.append(text.mid(start));
    FFinalLineEnd = false;
  }
}

TIniFile::TSpan TIniFile::FindSection(const QString& section) const
{
  TSpan span;
  QString name;
  for (qsizetype i = 0; i < FLines.size(); ++i)
  {
    if (Classify(FLines[i], &name) != TLineKind::Section)
      continue;
    if (span.Header >= 0)
    {
      span.End = i;
      return span;
    }
    if (SameName(name, section))
      span.Header = i;
  }
  span.End = FLines.size();
  return span;
}

qsizetype TIniFile::FindKey(const TSpan& span, const QString& key) const
{
  QString name;
  for (qsizetype i = span.Header + 1; span.Header >= 0 && i < span.End; ++i)
    if (Classify(FLines[i], &name) == TLineKind::Key && SameName(name, key))
      return i;
  return -1;
}

bool TIniFile::SectionExists(const QString& section) const
{
  return FindSection(section).Header >= 0;
}

bool TIniFile::ValueExists(const QString& section, const QString& key) const
{
  return FindKey(FindSection(section), key) >= 0;
}

QString TIniFile::ReadString(const QString& section, const QString& key, const QString& defaultValue) const
{
  const qsizetype line = FindKey(FindSection(section), key);
  return line < 0 ? defaultValue : ValueOf(FLines[line]);
}

int TIniFile::ReadInteger(const QString& section, const QString& key, int defaultValue) const
{
  // TryStrToInt reads the "0x" form as well.
  return NumberText::TryStrToInt(ReadString(section, key, QString())).value_or(defaultValue);
}

bool TIniFile::ReadBool(const QString& section, const QString& key, bool defaultValue) const
{
  return ReadInteger(section, key, defaultValue ? 1 : 0) != 0;
}

double TIniFile::ReadFloat(const QString& section, const QString& key, double defaultValue) const
{
  return NumberText::TryStrToFloat(ReadString(section, key, QString()), QLocale()).value_or(defaultValue);
}

void TIniFile::WriteString(const QString& section, const QString& key, const QString& value)
{
  const QString text = OneLine(value);
  const TSpan span = FindSection(section);
  if (span.Header < 0)
  {
    FLines << u'[' + section + u']' << key + u'=' + text;
    FModified = true;
    return;
  }

  const qsizetype existing = FindKey(span, key);
  if (existing >= 0)
  {
    QString name;
    Classify(FLines[existing], &name);
    const QString line = name + u'=' + text;
    if (FLines[existing] != line)
    {
      FLines[existing] = line;
      FModified = true;
    }
    return;
  }

  // After the section's last key, so its trailing comments and blank lines
  // stay ahead of the next section.
  qsizetype at = span.Header + 1;
  QString name;
  for (qsizetype i = at; i < span.End; ++i)
    if (Classify(FLines[i], &name) == TLineKind::Key)
      at = i + 1;
  FLines.insert(at, key + u'=' + text);
  FModified = true;
}

void TIniFile::WriteInteger(const QString& section, const QString& key, int value)
{
  WriteString(section, key, QString::number(value));
}

void TIniFile::WriteBool(const QString& section, const QString& key, bool value)
{
  WriteString(section, key, value ? QStringLiteral("1") : QStringLiteral("0"));
}

void TIniFile::WriteFloat(const QString& section, const QString& key, double value)
{
  WriteString(section, key, NumberText::FloatToStr(value, QLocale()));
}

bool TIniFile::UpdateFile(QString* error)
{
  if (!FModified)
    return true;

  const QString text = Text();
  QByteArray bytes = FBom ? Utf8Bom : QByteArray();
  // A Latin-1 file stays Latin-1 unless a written value cannot be put in it,
  // or the write removed the last bytes that made it no UTF-8: the next
  // read would then take its other accented letters for UTF-8.
  bytes += FLatin1 && FitsLatin1(text) && !ReadsAsUtf8(text.toLatin1()) ? text.toLatin1() : text.toUtf8();

  // QSaveFile writes beside the file and renames over it only once all is
  // written, so a failure at any step leaves the old file as it was.
  QSaveFile file(FFileName);
  if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
  {
    if (error)
      *error = QStringLiteral("Cannot save the settings file \"%1\": %2")
                 .arg(QDir::toNativeSeparators(FFileName), file.errorString());
    return false;
  }
  FModified = false;
  return true;
}

QString TIniFile::Text() const
{
  QString text = FLines.join(FLineEnd);
  if (FFinalLineEnd && !FLines.isEmpty())
    text += FLineEnd;
  return text;
}
