#include "JournalFormatU.h"

#include <QFile>
#include <QIODevice>
#include <QRegularExpression>

namespace
{
const QString TimeFormat = QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz");

int HexValue(char c)
{
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}
}

namespace JournalFormat
{
QByteArray TimeText(const QDateTime& time)
{
  return time.toLocalTime().toString(TimeFormat).toLatin1();
}

std::optional<QDateTime> ParseTime(QByteArrayView text)
{
  if (text.size() != TimeLength)
    return std::nullopt;
  const QDateTime time = QDateTime::fromString(QString::fromLatin1(text), TimeFormat);
  if (!time.isValid())
    return std::nullopt;
  return time;
}

QByteArray Escape(QByteArrayView frame)
{
  static const char Hex[] = "0123456789ABCDEF";
  QByteArray out;
  out.reserve(frame.size() + 16);
  for (const char c : frame) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte == '\\') {
      out.append("\\\\");
    } else if (byte < 0x20 || byte > 0x7E) {
      out.append("\\x");
      out.append(Hex[byte >> 4]);
      out.append(Hex[byte & 0x0F]);
    } else {
      out.append(c);
    }
  }
  return out;
}

std::optional<QByteArray> Unescape(QByteArrayView text)
{
  QByteArray out;
  out.reserve(text.size());
  for (qsizetype i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte > 0x7E)
      return std::nullopt;
    if (byte != '\\') {
      out.append(char(byte));
      continue;
    }
    if (i + 1 < text.size() && text[i + 1] == '\\') {
      out.append('\\');
      ++i;
    } else if (i + 3 < text.size() && text[i + 1] == 'x' && HexValue(text[i + 2]) >= 0 &&
               HexValue(text[i + 3]) >= 0) {
      out.append(char(HexValue(text[i + 2]) * 16 + HexValue(text[i + 3])));
      i += 3;
    } else {
      return std::nullopt;
    }
  }
  return out;
}

QByteArray Line(const QDateTime& arrived, QByteArrayView frame)
{
  QByteArray line = TimeText(arrived);
  line.append(' ');
  line.append(Escape(frame));
  line.append('\n');
  return line;
}

TJournalContents Read(QIODevice& device)
{
  TJournalContents contents;
  int number = 0;
  while (!device.atEnd()) {
    QByteArray line = device.readLine();
    ++number;
    if (!line.endsWith('\n')) {
      // Only a crash in mid-write leaves a line without its end.
      contents.BrokenLines.append(number);
      break;
    }
    line.chop(1);
    if (line.endsWith('\r'))
      line.chop(1); // a journal that went through a DOS editor
    if (line.isEmpty())
      continue;
    const auto time =
      line.size() >= TimeLength ? ParseTime(QByteArrayView(line).first(TimeLength)) : std::nullopt;
    const bool separated = line.size() > TimeLength + 1 && line[TimeLength] == ' ';
    const auto frame = separated ? Unescape(QByteArrayView(line).sliced(TimeLength + 1)) : std::nullopt;
    if (!time || !frame || frame->trimmed().isEmpty()) {
      contents.BrokenLines.append(number);
      continue;
    }
    QDateTime arrived = *time;
    if (!contents.Entries.isEmpty() && arrived < contents.Entries.last().Arrived)
      arrived = contents.Entries.last().Arrived;
    contents.Entries.append({arrived, *frame, number});
  }
  return contents;
}

TJournalContents ReadFile(const QString& fileName)
{
  QFile file(fileName);
  if (!file.open(QIODevice::ReadOnly)) {
    TJournalContents contents;
    contents.Error = QStringLiteral("cannot read \"%1\": %2").arg(fileName, file.errorString());
    return contents;
  }
  return Read(file);
}

std::optional<QDateTime> ResolveTime(const QString& text, const QDateTime& start)
{
  const QString trimmed = text.trimmed();
  if (!start.isValid() || trimmed.isEmpty())
    return std::nullopt;

  static const QRegularExpression Seconds(QStringLiteral("^\\d+(\\.\\d+)?$"));
  if (Seconds.match(trimmed).hasMatch())
    return start.addMSecs(qint64(trimmed.toDouble() * 1000.0 + 0.5));

  if (const auto whole = ParseTime(trimmed.toLatin1()))
    return whole;
  for (const char* format : {"yyyy-MM-ddTHH:mm:ss", "yyyy-MM-ddTHH:mm"}) {
    const QDateTime time = QDateTime::fromString(trimmed, QLatin1String(format));
    if (time.isValid())
      return time;
  }

  for (const char* format : {"HH:mm:ss.zzz", "HH:mm:ss", "HH:mm"}) {
    const QTime time = QTime::fromString(trimmed, QLatin1String(format));
    if (!time.isValid())
      continue;
    // A journal may run past midnight: a time of day a minute or more before
    // the start is the next day's; within that minute it means the start.
    QDateTime moment(start.date(), time, start.timeSpec());
    if (moment.msecsTo(start) >= 60'000)
      moment = moment.addDays(1);
    return moment;
  }
  return std::nullopt;
}
}
