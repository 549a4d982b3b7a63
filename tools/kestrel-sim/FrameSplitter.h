#pragma once

#include <QByteArray>
#include <QList>

// Cuts the byte stream from mapwright into messages. Mapwright ends each
// message with CR CR LF, but any mix of CR and LF is accepted, so empty
// pieces between separators are dropped. Bytes after the last separator
// wait for the next read.
class FrameSplitter
{
public:
  // Longest unfinished message kept; beyond it the partial text is dropped
  // so a peer that never sends a separator cannot grow the buffer forever.
  static constexpr qsizetype MaxPending = 64 * 1024;

  QList<QByteArray> feed(const QByteArray& bytes);

  // Unfinished text held for the next read.
  const QByteArray& pending() const { return FPending; }
  bool overflowed() const { return FOverflowed; }
  void clear();

private:
  QByteArray FPending;
  bool FOverflowed = false;
};
