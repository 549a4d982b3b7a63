#pragma once

// The small HTTP layer of the map engine: one blocking GET per handler, used
// by tile downloads on worker threads and by KML icon fetches on the main
// thread. Every request names the application in its User-Agent, as public
// tile servers ask.

#include <QIODevice>
#include <QList>
#include <QSslError>
#include <QString>
#include <QUrl>

class QNetworkAccessManager;

#include <atomic>
#include <functional>
#include <memory>

// "Mapwright/<version>", or the application's own name and version when set.
QString vxHttpUserAgent();

class TvxHttpRequestHandler
{
public:
  virtual ~TvxHttpRequestHandler() = default;

  // Fetches AUri into AContent. True only for status 200; AStatusCode is the
  // response's status or -1 without a response. Never throws.
  bool Get(const QString& AUri, QIODevice& AContent, int& AStatusCode);

  bool HasErrors() const { return FHasErrors; }
  bool IsCancelled() const { return FIsCancelled; }
  // May be called from any thread while Get runs.
  void Cancel() { FIsCancelled = true; }
  // Asked while a GET waits, even when no data comes; true cancels it.
  // Called on the thread that runs Get.
  void SetOnCheckCancel(std::function<bool()> AHandler) { FOnCheckCancel = std::move(AHandler); }

  bool EncodeUri() const { return FEncodeUri; }
  void SetEncodeUri(bool AValue) { FEncodeUri = AValue; }

protected:
  virtual bool DoGet(const QUrl& AUrl, QIODevice& AContent, int& AStatusCode) = 0;
  // Raises the cancel flag if the check asks for it; true when cancelled.
  bool CheckCancel();

private:
  bool FHasErrors = false;
  std::atomic<bool> FIsCancelled = false;
  bool FEncodeUri = true;
  std::function<bool()> FOnCheckCancel;
};

// The handler on Qt Network: the platform's proxy settings, the client's
// default timeouts (60 s), certificate checks open to the application.
class TvxMapControlHttpRequest : public TvxHttpRequestHandler
{
public:
  // Return true to accept a certificate the platform refused.
  using TValidateServerCertificate = std::function<bool(const QList<QSslError>&)>;

  void SetOnValidateServerCertificate(TValidateServerCertificate AHandler)
  {
    FOnValidateServerCertificate = std::move(AHandler);
  }

  static constexpr int DefaultTimeoutMs = 60000;
  // Process-wide transfer timeout; tests shorten it.
  static int Timeout();
  static void SetTimeout(int AMilliseconds);

  // While alive, requests on this thread share one manager, so that a
  // worker keeps its connections open from tile to tile.
  class TThreadManagerScope
  {
  public:
    TThreadManagerScope();
    ~TThreadManagerScope();
    TThreadManagerScope(const TThreadManagerScope&) = delete;
    TThreadManagerScope& operator=(const TThreadManagerScope&) = delete;

  private:
    std::unique_ptr<QNetworkAccessManager> FManager;
  };

protected:
  bool DoGet(const QUrl& AUrl, QIODevice& AContent, int& AStatusCode) override;

private:
  TValidateServerCertificate FOnValidateServerCertificate;
};

// The generic fetch: handlers by registration, the last registered wins, so
// that an application (or a test) can put its own transport in.
class TvxHttpRequest
{
public:
  using THandlerFactory = std::function<std::unique_ptr<TvxHttpRequestHandler>()>;

  static void RegisterHandler(THandlerFactory AFactory);
  static void UnregisterHandler();
  static std::unique_ptr<TvxHttpRequestHandler> CreateHandler();

  // True when the content arrived with status 200.
  static bool GetContent(const QString& AUri, QIODevice& AStream);
};
