#include "FeedLinkU.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QPointer>
#include <QTcpSocket>

#include <algorithm>

#include <sys/ioctl.h>

namespace
{
// Frames already in hand are taken in one pass, so that the window lays out
// and paints once for all of them; a flood gives the event loop a turn
// after this long.
constexpr qint64 FramesPassBudgetMs = 40;

// Bytes the kernel holds for the socket, not yet taken by it.
int WaitingInKernel(const QTcpSocket& socket)
{
  int waiting = 0;
  if (socket.socketDescriptor() < 0 || ::ioctl(int(socket.socketDescriptor()), FIONREAD, &waiting) != 0)
    return 0;
  return waiting;
}
}

TFrameSplitter::TCut TFrameSplitter::Next(QString& frame)
{
  const qsizetype end = FBuffer.indexOf('\r');
  if (end > MaxFrameLength || (end < 0 && FBuffer.size() > MaxFrameLength))
    return TCut::Overlong;
  if (end < 0)
    return TCut::Partial;
  frame = TFeedLink::FrameText(FBuffer.left(end)).trimmed();
  FBuffer.remove(0, end + 1);
  return TCut::Frame;
}

void TFrameSplitter::ReadFrom(QIODevice& device, qint64 limit)
{
  const qint64 room = std::min(limit - FBuffer.size(), device.bytesAvailable());
  if (room <= 0)
    return;
  const qsizetype size = FBuffer.size();
  FBuffer.resize(size + room);
  const qint64 got = device.read(FBuffer.data() + size, room);
  FBuffer.resize(size + std::max<qint64>(got, 0));
}

void TFrameSplitter::ReleaseIfEmpty()
{
  if (FBuffer.isEmpty() && FBuffer.capacity() > 0)
    FBuffer = QByteArray(); // drained: a burst's memory goes back
}

TFeedLink::TFeedLink(QObject* parent)
  : QObject(parent)
{
  FConnectTimer.setSingleShot(true);
  FConnectTimer.setInterval(ConnectTimeoutMs);
  connect(&FConnectTimer, &QTimer::timeout, this, &TFeedLink::Failed);

  FSettleTimer.setSingleShot(true);
  FSettleTimer.setInterval(SettleAfterConnectMs);
  connect(&FSettleTimer, &QTimer::timeout, this, [this] {
    FConnecting = false;
    FActive = true;
    FPaused = false;
    Q_EMIT OnActiveChanged(true);
    SendPending();
    ProcessFrames();
  });

  FContinue.setSingleShot(true);
  FContinue.setInterval(0);
  connect(&FContinue, &QTimer::timeout, this, &TFeedLink::ProcessFrames);

  FSendTimer.setSingleShot(true);
  FSendTimer.setInterval(0);
  connect(&FSendTimer, &QTimer::timeout, this, &TFeedLink::SendPending);
}

TFeedLink::~TFeedLink() = default;

QString TFeedLink::FrameText(const QByteArray& raw)
{
  // The parent writes ASCII: then the bytes are the text as they stand.
  if (std::all_of(raw.cbegin(), raw.cend(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; }))
    return QString::fromLatin1(raw);
  QString text(raw.size(), Qt::Uninitialized);
  for (qsizetype i = 0; i < raw.size(); ++i) {
    const auto byte = static_cast<unsigned char>(raw[i]);
    text[i] = byte < 0x80 ? QChar(byte) : QLatin1Char('?');
  }
  return text;
}

QByteArray TFeedLink::OutboundBytes(const QString& text)
{
  QByteArray bytes;
  bytes.reserve(text.size() + 3);
  for (QChar c : text)
    bytes.append(c.unicode() < 0x80 ? static_cast<char>(c.unicode()) : '?');
  // The text gets a carriage return, and writing it as a line adds CR LF.
  bytes.append("\r\r\n");
  return bytes;
}

void TFeedLink::Run()
{
  if (FActive || FConnecting)
    return;
  FConnecting = true;
  FFrames.Clear();
  FSocket = new QTcpSocket(this);
  FSocket->setReadBufferSize(ReadLimit);
  connect(FSocket, &QTcpSocket::connected, this, &TFeedLink::Connected);
  connect(FSocket, &QTcpSocket::errorOccurred, this, &TFeedLink::Failed);
  connect(FSocket, &QTcpSocket::readyRead, this, &TFeedLink::ReadAvailable);
  connect(FSocket, &QTcpSocket::bytesWritten, this, [this] {
    if (FWaitingForParent && UnsentBytes() <= WriteLimit) {
      FWaitingForParent = false;
      if (!FContinue.isActive())
        FContinue.start();
    }
  });
  FSocket->connectToHost(QHostAddress(QHostAddress::LocalHost), static_cast<quint16>(FPort));
  FConnectTimer.start();
}

void TFeedLink::Connected()
{
  FConnectTimer.stop();
  FSettleTimer.start();
}

void TFeedLink::Failed()
{
  const bool wasActive = FActive;
  Drop();
  if (wasActive)
    Q_EMIT OnActiveChanged(false);
}

void TFeedLink::Drop()
{
  FConnectTimer.stop();
  FSettleTimer.stop();
  FContinue.stop();
  FConnecting = false;
  FActive = false;
  FPaused = false;
  FWaitingForParent = false;
  FFrames.Clear();
  ++FGeneration;
  if (FSocket) {
    QTcpSocket* socket = FSocket;
    FSocket = nullptr;
    socket->disconnect(this);
    socket->disconnectFromHost(); // lets bytes already written leave
    socket->deleteLater();
  }
}

void TFeedLink::SetActive(bool active)
{
  if (active == FActive)
    return;
  if (!active) {
    Failed();
    return;
  }
  // Only a connection makes the link active.
}

void TFeedLink::SetPaused(bool paused)
{
  FPaused = paused;
  if (!paused) {
    SendPending();
    ProcessFrames();
  }
}

void TFeedLink::SetOutMessage(const QString& text)
{
  FOutMessage = text;
  ScheduleSend();
}

void TFeedLink::ScheduleSend()
{
  if (!FSendTimer.isActive())
    FSendTimer.start();
}

void TFeedLink::SendPending()
{
  if (!FActive || FPaused || FDelivering || !FSocket || FOutMessage.isEmpty())
    return;
  FOutMessage = FOutMessage.trimmed();
  FSocket->write(OutboundBytes(FOutMessage));
  FSocket->flush();
  FOutMessage.clear();
}

void TFeedLink::FlushOutMessage(int waitMs)
{
  FSendTimer.stop();
  SendPending();
  if (FSocket && FSocket->bytesToWrite() > 0)
    FSocket->waitForBytesWritten(waitMs);
}

qint64 TFeedLink::UnsentBytes() const
{
  return FSocket ? FSocket->bytesToWrite() : 0;
}

qint64 TFeedLink::BufferedBytes() const
{
  return FFrames.Size() + (FSocket ? FSocket->bytesAvailable() : 0);
}

void TFeedLink::ReadAvailable()
{
  TopUp();
  if (!FPulling)
    ProcessFrames();
}

void TFeedLink::TopUp()
{
  if (FSocket)
    FFrames.ReadFrom(*FSocket, ReadLimit);
}

bool TFeedLink::PullWaiting()
{
  // The socket takes from the kernel only when its notifier fires, a turn
  // of the event loop later, and the window paints in that turn. Bytes that
  // wait there already came with this burst. Asked only when the kernel has
  // some and the socket none, so the wait neither blocks nor times out.
  if (!FSocket || FSocket->bytesAvailable() > 0 || WaitingInKernel(*FSocket) <= 0)
    return false;
  const quint64 generation = FGeneration;
  FPulling = true;
  const bool got = FSocket->waitForReadyRead(0);
  FPulling = false;
  return got && generation == FGeneration;
}

void TFeedLink::ProcessFrames()
{
  if (FDelivering)
    return; // the frame in hand finishes first; its caller goes on afterwards
  QElapsedTimer pass;
  pass.start();
  while (FActive && !FPaused) {
    if (UnsentBytes() > WriteLimit) {
      FWaitingForParent = true; // on again once the parent has read
      return;
    }
    QString text;
    TFrameSplitter::TCut cut = FFrames.Next(text);
    if (cut == TFrameSplitter::TCut::Partial) {
      // The socket does not signal again for bytes that came while a frame
      // was handled, nor for those it held back while its buffer was full.
      TopUp();
      cut = FFrames.Next(text);
      if (cut == TFrameSplitter::TCut::Partial && pass.elapsed() < FramesPassBudgetMs && PullWaiting())
        continue;
      if (!FActive)
        return; // the pull found the link broken
    }
    if (cut == TFrameSplitter::TCut::Overlong) {
      Failed();
      return;
    }
    if (cut == TFrameSplitter::TCut::Partial) {
      FFrames.ReleaseIfEmpty();
      return;
    }
    if (text.isEmpty() || !OnTCPDataReceived)
      continue;

    // What was assigned before this frame leaves before it, as a pulse
    // would between two reads: the frame's own reply must not replace it.
    SendPending();
    const QPointer<TFeedLink> self(this);
    const quint64 generation = FGeneration;
    FDelivering = true;
    try {
      OnTCPDataReceived(text);
    } catch (...) {
      // The handler reports its own failures; one that escapes all the
      // same must not stall the frames behind it.
    }
    if (!self)
      return;
    FDelivering = false;
    if (generation != FGeneration)
      return; // the link went down while the frame was handled
    SendPending();
    // Each frame is handled to its end before the next is read; those that
    // came together go on in this pass, the rest after a turn of the loop.
    const bool more = FFrames.HasFrame() || (FSocket && (FSocket->bytesAvailable() > 0 || WaitingInKernel(*FSocket) > 0));
    if (more && pass.elapsed() < FramesPassBudgetMs)
      continue;
    if (!FContinue.isActive())
      FContinue.start();
    return;
  }
}
