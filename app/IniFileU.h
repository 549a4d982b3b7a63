#pragma once

#include <QString>
#include <QStringList>

// A settings file with the semantics of Windows private profiles.
//
// The file is read once when the object is made; a missing or unreadable
// file reads as empty. Section and key names compare without regard to
// case; the first of duplicate sections or keys wins. A value is the text
// after the first "=", with blanks around it removed and one pair of
// matching surrounding quotes (" or ') stripped, and is cut to 2047
// characters (a 2048-character buffer with its terminator).
//
// Writes change one key at a time in the text held in memory, so unknown
// sections, unknown keys, comments, blank lines and their order survive; a
// new key goes after the last key line of its section, a new section at the
// end of the file. UpdateFile() writes the whole text to a temporary file
// and renames it into place, so a crash or a full disk during a save never
// leaves a truncated file. The line ending of an existing file is kept
// (CR LF for a new one).
class TIniFile
{
public:
  explicit TIniFile(QString fileName);

  const QString& FileName() const { return FFileName; }

  bool SectionExists(const QString& section) const;
  bool ValueExists(const QString& section, const QString& key) const;

  QString ReadString(const QString& section, const QString& key, const QString& defaultValue) const;
  // Decimal, or hexadecimal when the value begins "0x"; unreadable gives the default.
  int ReadInteger(const QString& section, const QString& key, int defaultValue) const;
  // Read as an integer: any value other than 0 is true.
  bool ReadBool(const QString& section, const QString& key, bool defaultValue) const;
  // In the user's locale; empty or unreadable gives the default.
  double ReadFloat(const QString& section, const QString& key, double defaultValue) const;

  void WriteString(const QString& section, const QString& key, const QString& value);
  void WriteInteger(const QString& section, const QString& key, int value);
  void WriteBool(const QString& section, const QString& key, bool value); // "1" or "0"
  void WriteFloat(const QString& section, const QString& key, double value); // NumberText::FloatToStr

  // Saves the text if anything was written since the last save. Returns
  // false and sets *error on failure; the file on disk is then unchanged.
  bool UpdateFile(QString* error = nullptr);

  // The whole text as it would be saved; for tests.
  QString Text() const;

private:
  struct TSpan
  {
    qsizetype Header = -1; // -1: no such section
    qsizetype End = 0;     // one past its last line
  };

  TSpan FindSection(const QString& section) const;
  qsizetype FindKey(const TSpan& span, const QString& key) const;

  QString FFileName;
  QStringList FLines;          // without line ends
  QString FLineEnd;
  bool FFinalLineEnd = true;   // the text ends with a line end
  bool FBom = false;           // the file began with a UTF-8 byte order mark
  bool FLatin1 = false;        // the file was not valid UTF-8
  bool FModified = false;
};
