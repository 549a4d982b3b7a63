#include "vxTestTileServer.h"

#include <QBuffer>
#include <QHash>
#include <QMutex>
#include <QPainter>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <array>
#include <future>
#include <optional>

// Everything the test's thread and the server thread share.
struct TvxTestTileServer::TState
{
  struct TPathRule
  {
    TRule Rule;
    int Remaining = -1; // requests left under the rule; -1 for all
  };

  // Guards every field below; taken alone, never nested.
  mutable QMutex Lock;
  int Delay = 0;
  QHash<QString, TPathRule> Rules;
  std::optional<TRule> DefaultRule;
  int RequestCount = 0;
  QHash<QString, int> PathCounts;
  QStringList Requests;
  int InService = 0;
  int MaxConcurrent = 0;
  int ConnectionCount = 0;
  QHash<quint64, QByteArray> Tiles;

  // Counts a request and picks its rule.
  TRule Begin(const QString& APath, int& ADelay)
  {
    QMutexLocker LLock(&Lock);
    ++RequestCount;
    ++PathCounts[APath];
    Requests.append(APath);
    MaxConcurrent = std::max(MaxConcurrent, ++InService);
    ADelay = Delay;
    const auto LRule = Rules.find(APath);
    if (LRule != Rules.end())
    {
      if (LRule->Remaining == 0)
        return TRule::Tile();
      if (LRule->Remaining > 0)
        --LRule->Remaining;
      return LRule->Rule;
    }
    return DefaultRule.value_or(TRule::Tile());
  }

  void End()
  {
    QMutexLocker LLock(&Lock);
    --InService;
  }
};

namespace
{
constexpr qsizetype MaxHeaderBytes = 16 * 1024;
constexpr int HugeSide = 30000;

quint64 TileKey(int AZoom, int AX, int AY)
{
  return quint64(AZoom) << 58 | quint64(AX) << 29 | quint64(AY);
}

QByteArray ReasonPhrase(int ACode)
{
  switch (ACode)
  {
  case 200: return "OK";
  case 400: return "Bad Request";
  case 403: return "Forbidden";
  case 404: return "Not Found";
  case 405: return "Method Not Allowed";
  case 429: return "Too Many Requests";
  case 431: return "Request Header Fields Too Large";
  case 500: return "Internal Server Error";
  case 502: return "Bad Gateway";
  case 503: return "Service Unavailable";
  default: return "Status";
  }
}

// "/z/x/y.png" inside the level's grid.
bool ParseTilePath(const QString& APath, int& AZoom, int& AX, int& AY)
{
  static const QRegularExpression LPattern(QStringLiteral("^/(\\d{1,2})/(\\d{1,10})/(\\d{1,10})\\.png$"));
  const QRegularExpressionMatch LMatch = LPattern.match(APath);
  if (!LMatch.hasMatch())
    return false;
  AZoom = LMatch.captured(1).toInt();
  const qint64 LX = LMatch.captured(2).toLongLong();
  const qint64 LY = LMatch.captured(3).toLongLong();
  if (AZoom > 29 || LX >= (qint64(1) << AZoom) || LY >= (qint64(1) << AZoom))
    return false;
  AX = int(LX);
  AY = int(LY);
  return true;
}

quint32 Crc32(const QByteArray& AData)
{
  static const std::array<quint32, 256> LTable = [] {
    std::array<quint32, 256> LResult{};
    for (quint32 I = 0; I < 256; ++I)
    {
      quint32 C = I;
      for (int K = 0; K < 8; ++K)
        C = C & 1 ? 0xEDB88320u ^ (C >> 1) : C >> 1;
      LResult[I] = C;
    }
    return LResult;
  }();
  quint32 LCrc = 0xFFFFFFFFu;
  for (const char C : AData)
    LCrc = LTable[(LCrc ^ quint8(C)) & 0xFF] ^ (LCrc >> 8);
  return LCrc ^ 0xFFFFFFFFu;
}

void AppendBigEndian(QByteArray& AOut, quint32 AValue)
{
  AOut.append(char(AValue >> 24)).append(char(AValue >> 16)).append(char(AValue >> 8)).append(char(AValue));
}

void AppendChunk(QByteArray& AOut, const char* AType, const QByteArray& AData)
{
  const QByteArray LTyped = QByteArray(AType, 4) + AData;
  AppendBigEndian(AOut, quint32(AData.size()));
  AOut.append(LTyped);
  AppendBigEndian(AOut, Crc32(LTyped));
}

// A zlib stream of ACount zero bytes, written by hand: one fixed-Huffman
// block of a literal zero and repeats of 258 at distance 1. Compressing the
// 112 MB with zlib would take seconds; this takes milliseconds.
QByteArray ZerosStream(quint64 ACount)
{
  QByteArray LOut("\x78\x01", 2);
  quint32 LBits = 0;
  int LBitCount = 0;
  const auto Put = [&](quint32 AValue, int ACountBits) {
    LBits |= AValue << LBitCount;
    LBitCount += ACountBits;
    while (LBitCount >= 8)
    {
      LOut.append(char(LBits & 0xFF));
      LBits >>= 8;
      LBitCount -= 8;
    }
  };
  // Huffman codes go most significant bit first.
  const auto PutCode = [&](quint32 ACode, int ALength) {
    quint32 LReversed = 0;
    for (int I = 0; I < ALength; ++I)
      LReversed |= ((ACode >> I) & 1) << (ALength - 1 - I);
    Put(LReversed, ALength);
  };
  Put(1, 1); // last block
  Put(1, 2); // fixed codes
  PutCode(0x30, 8); // literal 0
  const quint64 LRepeats = (ACount - 1) / 258;
  for (quint64 I = 0; I < LRepeats; ++I)
  {
    PutCode(0xC5, 8); // length 258
    PutCode(0, 5);    // distance 1
  }
  for (quint64 I = 0; I < (ACount - 1) % 258; ++I)
    PutCode(0x30, 8);
  PutCode(0, 7); // end of block
  if (LBitCount > 0)
    Put(0, 8 - LBitCount);
  AppendBigEndian(LOut, quint32((ACount % 65521) << 16 | 1)); // Adler-32 of zeros
  return LOut;
}

// One client connection; requests are served one at a time, in order.
class TConnection : public QObject
{
public:
  TConnection(TvxTestTileServer& AServer, TvxTestTileServer::TState& AState, QTcpSocket* ASocket, QObject* AParent)
    : QObject(AParent), FServer(AServer), FState(AState), FSocket(ASocket)
  {
    FSocket->setParent(this);
    connect(FSocket, &QTcpSocket::readyRead, this, &TConnection::ReadyRead);
    connect(FSocket, &QTcpSocket::disconnected, this, &TConnection::Dropped);
    ReadyRead();
  }

private:
  using TRule = TvxTestTileServer::TRule;

  void ReadyRead()
  {
    FBuffer.append(FSocket->readAll());
    Next();
  }

  // Takes the next complete request out of the buffer and starts serving it.
  void Next()
  {
    if (FBusy || FClosing)
      return;
    while (FBuffer.startsWith("\r\n"))
      FBuffer.remove(0, 2);
    const qsizetype LEnd = FBuffer.indexOf("\r\n\r\n");
    if (LEnd < 0)
    {
      if (FBuffer.size() > MaxHeaderBytes)
        Reject(431);
      return;
    }
    const QList<QByteArray> LLines = FBuffer.left(LEnd).split('\n');
    const QList<QByteArray> LRequestLine = LLines.first().trimmed().split(' ');
    if (LRequestLine.size() != 3 || !LRequestLine[2].startsWith("HTTP/1."))
      return Reject(400);
    QByteArray LConnection;
    qint64 LBodyLength = 0;
    for (qsizetype I = 1; I < LLines.size(); ++I)
    {
      const qsizetype LColon = LLines[I].indexOf(':');
      if (LColon <= 0)
        return Reject(400);
      const QByteArray LName = LLines[I].left(LColon).trimmed().toLower();
      const QByteArray LValue = LLines[I].mid(LColon + 1).trimmed().toLower();
      if (LName == "connection")
        LConnection = LValue;
      else if (LName == "content-length")
        LBodyLength = LValue.toLongLong();
      else if (LName == "transfer-encoding")
        return Reject(400);
    }
    // A body, though a GET has none, must be read past before the next request.
    if (LBodyLength < 0 || LBodyLength > MaxHeaderBytes)
      return Reject(400);
    if (FBuffer.size() < LEnd + 4 + LBodyLength)
      return;
    FBuffer.remove(0, LEnd + 4 + LBodyLength);

    FKeepAlive = LRequestLine[2] == "HTTP/1.1" ? !LConnection.contains("close") : LConnection.contains("keep-alive");
    QString LPath = QString::fromLatin1(LRequestLine[1]);
    if (!LPath.startsWith(QLatin1Char('/')))
    {
      // Absolute form: drop the scheme and the authority.
      const qsizetype LSlash = LPath.indexOf(QLatin1Char('/'), LPath.indexOf(QLatin1String("//")) + 2);
      LPath = LSlash < 0 ? QStringLiteral("/") : LPath.mid(LSlash);
    }
    LPath = LPath.left(LPath.indexOf(QLatin1Char('?')));

    FBusy = true;
    int LDelay = 0;
    const TRule LRule = FState.Begin(LPath, LDelay);
    if (LRequestLine[0] != "GET")
      return Respond(405, "text/plain", "GET only\n");
    if (LDelay <= 0)
      return Answer(LPath, LRule);
    QTimer::singleShot(LDelay, this, [this, LPath, LRule] { Answer(LPath, LRule); });
  }

  void Answer(const QString& APath, const TRule& ARule)
  {
    switch (ARule.Kind)
    {
    case TRule::rkTile:
    {
      int LZoom = 0, LX = 0, LY = 0;
      if (!ParseTilePath(APath, LZoom, LX, LY))
        return Respond(404, "text/plain", "no such tile\n");
      return Respond(200, "image/png", FServer.TilePng(LZoom, LX, LY));
    }
    case TRule::rkStatus:
      return Respond(ARule.Code, "text/plain", QByteArray::number(ARule.Code) + ' ' + ReasonPhrase(ARule.Code) + '\n');
    case TRule::rkGarbage:
    {
      // Printable, so that no image format claims it; seeded by the path,
      // so that a run repeats.
      QRandomGenerator LRandom(qHash(APath));
      QByteArray LBytes(2048, Qt::Uninitialized);
      for (char& C : LBytes)
        C = char(' ' + LRandom.bounded(95));
      return Respond(200, "image/png", LBytes);
    }
    case TRule::rkTruncated:
    {
      int LZoom = 0, LX = 0, LY = 0;
      const QByteArray LPng =
        ParseTilePath(APath, LZoom, LX, LY) ? FServer.TilePng(LZoom, LX, LY) : FServer.TilePng(0, 0, 0);
      FSocket->write(Head(200, "image/png", LPng.size(), false));
      FSocket->write(LPng.left(LPng.size() / 2));
      return Close();
    }
    case TRule::rkHang:
      return; // in service until the client goes
    case TRule::rkHugeImage:
      return Respond(200, "image/png", TvxTestTileServer::HugePng());
    case TRule::rkClose:
      return Close();
    }
  }

  QByteArray Head(int ACode, const QByteArray& AType, qsizetype ALength, bool AKeepAlive) const
  {
    return "HTTP/1.1 " + QByteArray::number(ACode) + ' ' + ReasonPhrase(ACode) + "\r\nContent-Type: " + AType +
      "\r\nContent-Length: " + QByteArray::number(ALength) + "\r\nConnection: " +
      (AKeepAlive ? "keep-alive" : "close") + "\r\n\r\n";
  }

  void Respond(int ACode, const QByteArray& AType, const QByteArray& ABody)
  {
    FSocket->write(Head(ACode, AType, ABody.size(), FKeepAlive) + ABody);
    if (!FKeepAlive)
      return Close();
    EndService();
    Next();
  }

  // A request too broken to answer in order; the connection ends with it.
  void Reject(int ACode)
  {
    FKeepAlive = false;
    FSocket->write(Head(ACode, "text/plain", 0, false));
    Close();
  }

  void Close()
  {
    EndService();
    FClosing = true;
    // Sends what is written first.
    FSocket->disconnectFromHost();
  }

  void EndService()
  {
    if (FBusy)
      FState.End();
    FBusy = false;
  }

  void Dropped()
  {
    EndService();
    FClosing = true;
    deleteLater();
  }

  TvxTestTileServer& FServer;
  TvxTestTileServer::TState& FState;
  QTcpSocket* FSocket;
  QByteArray FBuffer;
  bool FBusy = false;
  bool FClosing = false;
  bool FKeepAlive = true;
};

// Lives and dies on the server thread, with every connection.
class TServerCore : public QObject
{
public:
  TServerCore(TvxTestTileServer& AServer, TvxTestTileServer::TState& AState) : FServer(AServer), FState(AState)
  {
    connect(&FListener, &QTcpServer::newConnection, this, &TServerCore::Accept);
  }

  quint16 Listen() { return FListener.listen(QHostAddress::LocalHost, 0) ? FListener.serverPort() : 0; }

private:
  void Accept()
  {
    while (QTcpSocket* LSocket = FListener.nextPendingConnection())
    {
      {
        QMutexLocker LLock(&FState.Lock);
        ++FState.ConnectionCount;
      }
      LSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
      new TConnection(FServer, FState, LSocket, this);
    }
  }

  TvxTestTileServer& FServer;
  TvxTestTileServer::TState& FState;
  QTcpServer FListener;
};

class TServerThread : public QThread
{
public:
  TServerThread(TvxTestTileServer& AServer, TvxTestTileServer::TState& AState, std::promise<quint16> AListening)
    : FServer(AServer), FState(AState), FListening(std::move(AListening))
  {
  }

protected:
  void run() override
  {
    TServerCore LCore(FServer, FState);
    const quint16 LPort = LCore.Listen();
    FListening.set_value(LPort);
    if (LPort != 0)
      exec();
  }

private:
  TvxTestTileServer& FServer;
  TvxTestTileServer::TState& FState;
  std::promise<quint16> FListening;
};
} // namespace

TvxTestTileServer::TvxTestTileServer(int ATileSize) : FTileSize(ATileSize), FState(std::make_unique<TState>())
{
}

TvxTestTileServer::~TvxTestTileServer()
{
  Stop();
}

bool TvxTestTileServer::Start()
{
  if (FThread)
    return true;
  std::promise<quint16> LListening;
  std::future<quint16> LPort = LListening.get_future();
  FThread = std::make_unique<TServerThread>(*this, *FState, std::move(LListening));
  FThread->start();
  FPort = LPort.get();
  if (FPort == 0)
  {
    FThread->wait();
    FThread.reset();
  }
  return FPort != 0;
}

void TvxTestTileServer::Stop()
{
  if (!FThread)
    return;
  FThread->quit();
  FThread->wait();
  FThread.reset();
  FPort = 0;
  QMutexLocker LLock(&FState->Lock);
  FState->InService = 0;
}

QString TvxTestTileServer::UrlTemplate() const
{
  return QStringLiteral("http://127.0.0.1:%1/[z]/[x]/[y].png").arg(FPort);
}

QString TvxTestTileServer::TileUrl(int AZoom, int AX, int AY) const
{
  return QStringLiteral("http://127.0.0.1:%1").arg(FPort) + TilePath(AZoom, AX, AY);
}

QString TvxTestTileServer::TilePath(int AZoom, int AX, int AY)
{
  return QStringLiteral("/%1/%2/%3.png").arg(AZoom).arg(AX).arg(AY);
}

void TvxTestTileServer::SetDelay(int AMilliseconds)
{
  QMutexLocker LLock(&FState->Lock);
  FState->Delay = AMilliseconds;
}

void TvxTestTileServer::SetRule(const QString& APath, TRule ARule)
{
  QMutexLocker LLock(&FState->Lock);
  FState->Rules.insert(APath, {ARule, -1});
}

void TvxTestTileServer::FailTimes(const QString& APath, int ATimes, TRule ARule)
{
  QMutexLocker LLock(&FState->Lock);
  FState->Rules.insert(APath, {ARule, std::max(0, ATimes)});
}

void TvxTestTileServer::SetDefaultRule(TRule ARule)
{
  QMutexLocker LLock(&FState->Lock);
  FState->DefaultRule = ARule;
}

void TvxTestTileServer::ClearRules()
{
  QMutexLocker LLock(&FState->Lock);
  FState->Rules.clear();
  FState->DefaultRule.reset();
  FState->Delay = 0;
}

int TvxTestTileServer::RequestCount() const
{
  QMutexLocker LLock(&FState->Lock);
  return FState->RequestCount;
}

int TvxTestTileServer::RequestCount(const QString& APath) const
{
  QMutexLocker LLock(&FState->Lock);
  return FState->PathCounts.value(APath);
}

QStringList TvxTestTileServer::Requests() const
{
  QMutexLocker LLock(&FState->Lock);
  return FState->Requests;
}

int TvxTestTileServer::MaxConcurrent() const
{
  QMutexLocker LLock(&FState->Lock);
  return FState->MaxConcurrent;
}

int TvxTestTileServer::ConnectionCount() const
{
  QMutexLocker LLock(&FState->Lock);
  return FState->ConnectionCount;
}

void TvxTestTileServer::ResetCounters()
{
  QMutexLocker LLock(&FState->Lock);
  FState->RequestCount = 0;
  FState->PathCounts.clear();
  FState->Requests.clear();
  // Requests still in service count towards the next maximum.
  FState->MaxConcurrent = FState->InService;
  FState->ConnectionCount = 0;
}

QColor TvxTestTileServer::LevelColor(int AZoom)
{
  // Neighbouring levels differ in hue and lightness, so that a tile from the
  // wrong level stands out.
  static const QRgb LColors[] = {0xE6194B, 0x3CB44B, 0xFFE119, 0x4363D8, 0xF58231, 0x911EB4, 0x46F0F0, 0xF032E6,
                                 0xBCF60C, 0xFABEBE, 0x008080, 0xE6BEFF, 0x9A6324, 0xFFFAC8, 0x800000, 0xAAFFC3,
                                 0x808000, 0xFFD8B1, 0x000075, 0x808080, 0x469990, 0xDCBEFF, 0xA9A9A9, 0x1B5E20};
  constexpr int LCount = int(std::size(LColors));
  return QColor(LColors[((AZoom % LCount) + LCount) % LCount]);
}

QImage TvxTestTileServer::TileImage(int AZoom, int AX, int AY, int ASize)
{
  QImage LImage(ASize, ASize, QImage::Format_RGB32);
  const QColor LFill = LevelColor(AZoom);
  LImage.fill(LFill.darker(160));
  QPainter LPainter(&LImage);
  LPainter.fillRect(1, 1, ASize - 2, ASize - 2, LFill);
  // The same glyphs on every machine, so that pictures of tiles compare.
  QFont LFont(QStringLiteral("DejaVu Sans"));
  LFont.setHintingPreference(QFont::PreferNoHinting);
  LFont.setPixelSize(std::max(6, ASize / 12));
  LPainter.setFont(LFont);
  LPainter.setPen(LFill.lightness() < 128 ? Qt::white : Qt::black);
  LPainter.drawText(LImage.rect(), Qt::AlignCenter, QStringLiteral("%1/%2/%3").arg(AZoom).arg(AX).arg(AY));
  return LImage;
}

QByteArray TvxTestTileServer::TilePng(int AZoom, int AX, int AY) const
{
  const quint64 LKey = TileKey(AZoom, AX, AY);
  {
    QMutexLocker LLock(&FState->Lock);
    const auto LFound = FState->Tiles.constFind(LKey);
    if (LFound != FState->Tiles.constEnd())
      return *LFound;
  }
  // Encoded outside the lock; two threads may both encode the same tile.
  QByteArray LPng;
  QBuffer LBuffer(&LPng);
  LBuffer.open(QIODevice::WriteOnly);
  TileImage(AZoom, AX, AY, FTileSize).save(&LBuffer, "PNG");
  QMutexLocker LLock(&FState->Lock);
  FState->Tiles.insert(LKey, LPng);
  return LPng;
}

QByteArray TvxTestTileServer::HugePng()
{
  static const QByteArray LPng = [] {
    QByteArray LOut("\x89PNG\r\n\x1A\n", 8);
    QByteArray LHeader;
    AppendBigEndian(LHeader, HugeSide);
    AppendBigEndian(LHeader, HugeSide);
    LHeader.append("\x01\x00\x00\x00\x00", 5); // 1 bit, grey, deflate, no filter, not interlaced
    AppendChunk(LOut, "IHDR", LHeader);
    // Each row: filter byte 0, then the bits of black pixels.
    const quint64 LRowBytes = 1 + (HugeSide + 7) / 8;
    AppendChunk(LOut, "IDAT", ZerosStream(LRowBytes * HugeSide));
    AppendChunk(LOut, "IEND", {});
    return LOut;
  }();
  return LPng;
}
