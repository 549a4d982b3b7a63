#pragma once

#include <QByteArray>
#include <QString>

// Puts the feed port into a configuration directory: key TCPPort of
// section [Startup] in Maps/Mapwright.ini. Mapwright keeps its own settings
// in the same file, so every other byte of it stays as it was.
namespace ConfigPort
{
QString iniPath(const QString& configDir);

// The INI text with TCPPort set. An existing key keeps its spelling and
// place; a missing key goes after the last key of [Startup]; a missing
// section is added at the end. Line ends follow the file (CR LF if new).
QByteArray withPort(const QByteArray& iniText, int port);

// Makes configDir/Maps when missing and saves the file whole or not at all.
bool write(const QString& configDir, int port, QString* error = nullptr);
}
