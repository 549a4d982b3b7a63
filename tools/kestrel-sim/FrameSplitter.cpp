#include "FrameSplitter.h"

QList<QByteArray> FrameSplitter::feed(const QByteArray& bytes)
{
  QList<QByteArray> messages;
  qsizetype start = 0;
  for (qsizetype i = 0; i < bytes.size(); ++i)
  {
    const char c = bytes.at(i);
    if (c != '\r' && c != '\n')
      continue;
    FPending.append(bytes.constData() + start, i - start);
    start = i + 1;
    const QByteArray message = FPending.trimmed();
    FPending.clear();
    if (!message.isEmpty())
      messages.append(message);
  }
  FPending.append(bytes.constData() + start, bytes.size() - start);
  if (FPending.size() > MaxPending)
  {
    FPending.clear();
    FOverflowed = true;
  }
  return messages;
}

void FrameSplitter::clear()
{
  FPending.clear();
  FOverflowed = false;
}
