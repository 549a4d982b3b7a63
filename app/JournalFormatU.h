#pragma once

// The journal's line format, shared by the window that writes it and the
// tools that read it back. One line per frame:
//
//   2026-11-23T15:04:05.250 <KestrelMapData>...</KestrelMapData>
//
// the local arrival time to the millisecond, one space, and the frame's
// bytes with a backslash written as "\\" and every byte outside printable
// ASCII (CR, LF, tab and the rest) as "\xHH", so that any frame fits one
// line and a line holds nothing but printable ASCII.

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <optional>

class QIODevice;

struct TJournalEntry
{
  QDateTime Arrived;
  QByteArray Frame;
  int Line = 0;
};

struct TJournalContents
{
  QList<TJournalEntry> Entries;
  // Lines that could not be read, 1-based; the rest still count.
  QList<int> BrokenLines;
  // Set when the file itself could not be read.
  QString Error;

  // The first frame's time, where "seconds from the start" count from.
  QDateTime Start() const { return Entries.isEmpty() ? QDateTime() : Entries.first().Arrived; }
};

namespace JournalFormat
{
inline constexpr int TimeLength = 23; // yyyy-MM-ddTHH:mm:ss.zzz

QByteArray TimeText(const QDateTime& time);
std::optional<QDateTime> ParseTime(QByteArrayView text);

QByteArray Escape(QByteArrayView frame);
// Null when the text has a bad escape or a byte that escaping never writes.
std::optional<QByteArray> Unescape(QByteArrayView text);

// One whole line, with its line feed.
QByteArray Line(const QDateTime& arrived, QByteArrayView frame);

// Reads every line. A line that is broken (bad time, bad escape, empty
// frame, or the unfinished last line a crash can leave) is counted in
// BrokenLines. A time earlier than the line before, after the clock was
// set back, is taken as that earlier line's, so replay never goes back.
TJournalContents Read(QIODevice& device);
TJournalContents ReadFile(const QString& fileName);

// A moment of a journal from a command line: a time of day as the journal
// writes it ("15:04:05", "15:04:05.250" or "15:04"), taken at or after the
// journal's start; a whole date and time as written
// ("2026-11-23T15:04:05.250"); or seconds from the start ("90", "90.5").
// Null when the text is none of these.
std::optional<QDateTime> ResolveTime(const QString& text, const QDateTime& start);
}
