#include "XmlFileU.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QXmlStreamWriter>

namespace
{
// XML 1.0 cannot hold most control characters; a pasted one must not make
// the file unreadable at the next start.
QString XmlSafe(const QString& text)
{
  QString result;
  result.reserve(text.size());
  for (qsizetype i = 0; i < text.size(); ++i) {
    const QChar c = text.at(i);
    if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
      result += c;
      result += text.at(++i);
      continue;
    }
    const char16_t u = c.unicode();
    const bool allowed = (u >= 0x20 && !c.isSurrogate() && u != 0xFFFE && u != 0xFFFF) || u == 0x9 || u == 0xA ||
                         u == 0xD;
    if (allowed)
      result += c;
  }
  return result;
}
}

namespace XmlFile
{
QDomDocument Read(const QString& fileName)
{
  QFile file(fileName);
  if (!file.open(QIODevice::ReadOnly))
    throw EMapwrightError(QStringLiteral("Cannot open \"%1\": %2").arg(QDir::toNativeSeparators(fileName),
                                                                      file.errorString()));
  QDomDocument document;
  QString message;
  int line = 0;
  int column = 0;
  if (!document.setContent(&file, &message, &line, &column))
    throw EMapwrightError(QStringLiteral("%1 (line %2, column %3)").arg(message).arg(line).arg(column));
  return document;
}

QDomElement ListOf(const QDomDocument& document, const QString& rootName, const QString& listName)
{
  const QDomElement root = document.documentElement();
  if (root.tagName() != rootName)
    throw EMapwrightError(QStringLiteral("Node \"%1\" not found").arg(rootName));
  return root.firstChildElement(listName);
}

void Write(const QString& fileName, const QString& rootName, const QString& listName, const QString& recordName,
           const std::vector<TAttributes>& records)
{
  QByteArray body;
  {
    QXmlStreamWriter writer(&body);
    writer.setAutoFormatting(false);
    writer.writeStartElement(rootName);
    writer.writeStartElement(listName);
    for (const TAttributes& attributes : records) {
      writer.writeStartElement(recordName);
      for (const auto& [name, value] : attributes)
        writer.writeAttribute(name, XmlSafe(value));
      writer.writeEndElement();
    }
    writer.writeEndElement();
    writer.writeEndElement();
  }
  // Built whole in memory and renamed into place: a crash never leaves half a file.
  const QByteArray bytes = QByteArrayLiteral("<?xml version=\"1.0\"?>") + body;
  QSaveFile file(fileName);
  if (!file.open(QIODevice::WriteOnly))
    throw EMapwrightError(QStringLiteral("Cannot create \"%1\": %2").arg(QDir::toNativeSeparators(fileName),
                                                                        file.errorString()));
  if (file.write(bytes) != bytes.size() || !file.commit())
    throw EMapwrightError(QStringLiteral("Cannot write \"%1\": %2").arg(QDir::toNativeSeparators(fileName),
                                                                       file.errorString()));
}
}
