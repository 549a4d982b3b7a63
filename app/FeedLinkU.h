#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>
#include <functional>

class QIODevice;
class QTcpSocket;

// Cuts the parent's bytes into frames at each carriage return, however the
// bytes arrive. A frame, finished or not, longer than the limit ends the
// link, so that a parent that never sends a carriage return cannot grow the
// buffer without end.
class TFrameSplitter
{
public:
  static constexpr qsizetype MaxFrameLength = 16384;

  enum class TCut { Frame, Partial, Overlong };

  void Append(const QByteArray& bytes) { FBuffer += bytes; }
  // Reads from the device what it has, up to `limit` bytes held in all.
  void ReadFrom(QIODevice& device, qint64 limit);
  void Clear() { FBuffer = QByteArray(); }
  // An empty buffer gives its memory back.
  void ReleaseIfEmpty();
  bool HasFrame() const { return FBuffer.contains('\r'); }
  qsizetype Size() const { return FBuffer.size(); }
  qsizetype Capacity() const { return FBuffer.capacity(); }
  // Frame: the first frame is taken off the buffer, its text trimmed (and
  // possibly empty) in `frame`. Partial: no carriage return yet. Overlong:
  // the first frame is too long; the buffer stays as it is.
  TCut Next(QString& frame);

private:
  QByteArray FBuffer;
};

// The link to the parent program: a TCP client to 127.0.0.1 that takes
// frames ended by a carriage return and sends short texts ended by
// CR CR LF. It runs on the main thread on socket events, so an idle link
// costs nothing. Frames are handed over one at a time in arrival order,
// each to its end before the next, also when the handler opens a nested
// event loop (a message box); while one is handled nothing is read or sent.
class TFeedLink : public QObject
{
  Q_OBJECT

public:
  static constexpr int MaxFrameLength = int(TFrameSplitter::MaxFrameLength);
  // The link reads ahead no more than the longest frame, its terminator and
  // this margin; the rest waits in the kernel, whose full window makes a
  // flooding parent wait instead of this process grow.
  static constexpr int ReadAheadMargin = 16384;
  static constexpr qint64 ReadLimit = MaxFrameLength + 1 + ReadAheadMargin;
  // Replies the parent has not read yet, beyond what the kernel holds: past
  // this the link takes no further frame until the parent reads, so a parent
  // that sends and never reads cannot grow this process either.
  static constexpr qint64 WriteLimit = 1 << 20;
  static constexpr int ConnectTimeoutMs = 5000;
  static constexpr int SettleAfterConnectMs = 300;

  explicit TFeedLink(QObject* parent = nullptr);
  ~TFeedLink() override;

  void SetPort(int port) { FPort = port; }
  int Port() const { return FPort; }

  // Starts one connection attempt and returns at once; does nothing while
  // an attempt is under way or the link is up. A failed attempt is silent.
  void Run();

  // Up: connected and exchanging frames. Clearing it drops the link.
  bool Active() const { return FActive; }
  void SetActive(bool active);

  // While paused the link neither reads nor writes; frames wait in the socket.
  bool Paused() const { return FPaused; }
  // A frame is in the handler's hands; the next ones wait until it returns.
  bool Delivering() const { return FDelivering; }
  void SetPaused(bool paused);

  // The one outbound slot: the last text assigned before the link takes it
  // is the one that leaves, a few milliseconds later, while the link is up.
  QString OutMessage() const { return FOutMessage; }
  void SetOutMessage(const QString& text);
  // Sends the slot now if the link can, waiting up to `waitMs` for the bytes to leave.
  void FlushOutMessage(int waitMs);

  bool Connecting() const { return FConnecting; }
  // Bytes taken from the kernel and not yet handed over, in the link's own
  // buffer and the socket's.
  qint64 BufferedBytes() const;
  // Memory the link's own buffer holds, used or not.
  qint64 BufferCapacity() const { return FFrames.Capacity(); }
  // Bytes written and not yet taken by the kernel.
  qint64 UnsentBytes() const;

  // Receives each trimmed, non-empty frame.
  std::function<void(const QString&)> OnTCPDataReceived;

  // Wire forms: bytes above 0x7F become "?" both ways.
  static QString FrameText(const QByteArray& raw);
  static QByteArray OutboundBytes(const QString& text);

Q_SIGNALS:
  void OnActiveChanged(bool active);

private:
  void Connected();
  void Failed();
  void Drop();
  void ReadAvailable();
  void TopUp();
  bool PullWaiting();
  void ProcessFrames();
  void SendPending();
  void ScheduleSend();

  int FPort = 3300;
  bool FActive = false;
  bool FPaused = false;
  bool FConnecting = false;
  bool FDelivering = false;
  bool FPulling = false; // the pass itself reads from the kernel
  bool FWaitingForParent = false; // too many replies unread
  quint64 FGeneration = 0; // bumped whenever a socket is dropped
  QString FOutMessage;
  TFrameSplitter FFrames;
  QTcpSocket* FSocket = nullptr; // child of this; dropped sockets are deleted later
  QTimer FConnectTimer;
  QTimer FSettleTimer;
  QTimer FSendTimer;
  QTimer FContinue;
};
