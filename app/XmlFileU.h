#pragma once

// The program's own XML files (markers, custom images, layers): one root,
// one list element under it, and one element per record with attributes
// only. Written whole with a version-only declaration and no indentation.

#include "ErrorsU.h"

#include <QDomDocument>
#include <QDomElement>
#include <QString>
#include <exception>
#include <utility>
#include <vector>

namespace XmlFile
{
using TAttributes = std::vector<std::pair<QString, QString>>;

// Throws EMapwrightError when the file cannot be read or is no XML.
QDomDocument Read(const QString& fileName);
// The root, which must have this name (else the XML layer's node-not-found
// error), and its first child of the list name: null when there is none.
QDomElement ListOf(const QDomDocument& document, const QString& rootName, const QString& listName);
// Writes root, list and records, attributes in the order given, through a
// temporary file renamed into place. Throws EMapwrightError.
void Write(const QString& fileName, const QString& rootName, const QString& listName, const QString& recordName,
           const std::vector<TAttributes>& records);

// Runs a load or save; whatever fails comes out as one EMapwrightError with
// the routine's fixed prefix before the underlying text.
template <class F>
void WithPrefix(const QString& prefix, F&& body)
{
  try {
    body();
  } catch (const EMapwrightError& e) {
    throw EMapwrightError(prefix + e.Message());
  } catch (const std::exception& e) {
    throw EMapwrightError(prefix + QString::fromUtf8(e.what()));
  }
}
}
