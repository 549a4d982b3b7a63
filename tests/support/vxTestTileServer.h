#pragma once

// A tile server on 127.0.0.1 for tests and benchmarks. Its tiles draw their
// own z/x/y on a fill colour per level, so a picture shows which tile landed
// where. It runs on a thread of its own: the code it serves blocks the main
// thread while it waits for its workers, and the workers make blocking
// requests.
//
// HTTP/1.1 with keep-alive, GET of /z/x/y.png only. Faults are switched per
// path while it runs, from any thread: status codes, garbage, cut-off bodies,
// silence, absurd image sizes and dropped connections.

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QString>
#include <QStringList>

#include <memory>

class QThread;

class TvxTestTileServer
{
public:
  // What the server does with a request.
  struct TRule
  {
    enum TKind
    {
      rkTile,      // the real tile, or 404 for a path that is none
      rkStatus,    // Code with a short text body
      rkGarbage,   // 200 with printable random bytes
      rkTruncated, // 200, the full PNG's length, half of it, then close
      rkHang,      // never answers; the connection stays open
      rkHugeImage, // 200 with a valid PNG of 30000 x 30000
      rkClose      // closes the connection without answering
    };

    TKind Kind = rkTile;
    int Code = 200;

    static TRule Tile() { return {rkTile, 200}; }
    static TRule Status(int ACode) { return {rkStatus, ACode}; }
    static TRule Garbage() { return {rkGarbage, 200}; }
    static TRule Truncated() { return {rkTruncated, 200}; }
    static TRule Hang() { return {rkHang, 0}; }
    static TRule HugeImage() { return {rkHugeImage, 200}; }
    static TRule Close() { return {rkClose, 0}; }
  };

  explicit TvxTestTileServer(int ATileSize = 256);
  TvxTestTileServer(const TvxTestTileServer&) = delete;
  TvxTestTileServer& operator=(const TvxTestTileServer&) = delete;
  // Stops the thread; open connections are dropped.
  ~TvxTestTileServer();

  // Returns once the server listens on a free port; false if it cannot.
  bool Start();
  // Drops every connection. Rules and counters stay; Start listens again,
  // on a new port.
  void Stop();
  bool IsRunning() const { return FPort != 0; }

  quint16 Port() const { return FPort; }
  // "http://127.0.0.1:PORT/[z]/[x]/[y].png"
  QString UrlTemplate() const;
  QString TileUrl(int AZoom, int AX, int AY) const;
  static QString TilePath(int AZoom, int AX, int AY);

  // Switches; thread-safe, effective for the next request.
  // Added before each answer, without holding up other connections.
  void SetDelay(int AMilliseconds);
  void SetRule(const QString& APath, TRule ARule);
  // The rule for the first ATimes requests of the path, then the real tile,
  // whatever the default rule says.
  void FailTimes(const QString& APath, int ATimes, TRule ARule);
  // For every path without a rule of its own.
  void SetDefaultRule(TRule ARule);
  // Back to real tiles everywhere, without delay.
  void ClearRules();

  // Accounting; thread-safe.
  int RequestCount() const;
  int RequestCount(const QString& APath) const;
  // Paths in the order the requests arrived.
  QStringList Requests() const;
  // The most requests in service at once, delayed and hanging ones included.
  int MaxConcurrent() const;
  int ConnectionCount() const;
  void ResetCounters();

  // The tile as served: the level's colour, a darker 1-px border and the
  // text "z/x/y" in the middle.
  static QColor LevelColor(int AZoom);
  static QImage TileImage(int AZoom, int AX, int AY, int ASize = 256);
  // The encoded tile, made once per tile; thread-safe.
  QByteArray TilePng(int AZoom, int AX, int AY) const;
  // A valid 1-bit grey PNG of 30000 x 30000 pixels in some 700 KB; made once.
  static QByteArray HugePng();

  int TileSize() const { return FTileSize; }

  // Shared with the server thread; defined beside it.
  struct TState;

private:
  int FTileSize;
  quint16 FPort = 0;
  std::unique_ptr<TState> FState;
  std::unique_ptr<QThread> FThread;
};
