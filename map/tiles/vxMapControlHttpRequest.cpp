#include "vxMapControlHttpRequest.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QMutex>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <mutex>
#include <vector>

QString vxHttpUserAgent()
{
  QString LName = QCoreApplication::applicationName();
  if (LName.isEmpty() || !QCoreApplication::instance())
    LName = QStringLiteral("Mapwright");
  QString LVersion = QCoreApplication::applicationVersion();
  if (LVersion.isEmpty())
    LVersion = QStringLiteral(MAPWRIGHT_VERSION);
  return LName + QLatin1Char('/') + LVersion;
}

bool TvxHttpRequestHandler::CheckCancel()
{
  if (!FIsCancelled && FOnCheckCancel && FOnCheckCancel())
    FIsCancelled = true;
  return FIsCancelled;
}

bool TvxHttpRequestHandler::Get(const QString& AUri, QIODevice& AContent, int& AStatusCode)
{
  FIsCancelled = false;
  AStatusCode = -1;
  const QUrl LUrl = FEncodeUri ? QUrl(AUri, QUrl::TolerantMode) : QUrl::fromEncoded(AUri.toUtf8());
  try
  {
    FHasErrors = !DoGet(LUrl, AContent, AStatusCode);
  }
  catch (...)
  {
    FHasErrors = true;
  }
  return !FHasErrors && !FIsCancelled;
}

namespace
{
// The platform's proxy configuration, read once for the process.
void UseSystemProxyOnce()
{
  static std::once_flag LOnce;
  std::call_once(LOnce, [] { QNetworkProxyFactory::setUseSystemConfiguration(true); });
}
} // namespace

namespace
{
std::atomic<int> GTimeout = TvxMapControlHttpRequest::DefaultTimeoutMs;
thread_local QNetworkAccessManager* GThreadManager = nullptr;
} // namespace

int TvxMapControlHttpRequest::Timeout()
{
  return GTimeout.load();
}

void TvxMapControlHttpRequest::SetTimeout(int AMilliseconds)
{
  GTimeout.store(AMilliseconds > 0 ? AMilliseconds : DefaultTimeoutMs);
}

TvxMapControlHttpRequest::TThreadManagerScope::TThreadManagerScope()
  : FManager(std::make_unique<QNetworkAccessManager>())
{
  GThreadManager = FManager.get();
}

TvxMapControlHttpRequest::TThreadManagerScope::~TThreadManagerScope()
{
  GThreadManager = nullptr;
}

bool TvxMapControlHttpRequest::DoGet(const QUrl& AUrl, QIODevice& AContent, int& AStatusCode)
{
  AStatusCode = -1;
  const QString LScheme = AUrl.scheme().toLower();
  if (!AUrl.isValid() || (LScheme != QLatin1String("http") && LScheme != QLatin1String("https")))
    return false;
  UseSystemProxyOnce();

  // A manager belongs to the thread that made it: the thread's shared one,
  // or one for this request.
  std::unique_ptr<QNetworkAccessManager> LOwnManager;
  QNetworkAccessManager* LManager = GThreadManager;
  if (!LManager)
  {
    LOwnManager = std::make_unique<QNetworkAccessManager>();
    LManager = LOwnManager.get();
  }
  QNetworkRequest LRequest(AUrl);
  LRequest.setHeader(QNetworkRequest::UserAgentHeader, vxHttpUserAgent());
  LRequest.setTransferTimeout(Timeout());
  LRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);

  QEventLoop LLoop;
  std::unique_ptr<QNetworkReply> LReply(LManager->get(LRequest));
  QObject::connect(LReply.get(), &QNetworkReply::sslErrors, LReply.get(), [this, &LReply](const QList<QSslError>& AErrors) {
    if (FOnValidateServerCertificate && FOnValidateServerCertificate(AErrors))
      LReply->ignoreSslErrors();
  });
  QObject::connect(LReply.get(), &QNetworkReply::readyRead, LReply.get(), [this, &LReply, &AContent] {
    if (CheckCancel())
    {
      LReply->abort();
      return;
    }
    AContent.write(LReply->readAll());
  });
  QObject::connect(LReply.get(), &QNetworkReply::finished, &LLoop, &QEventLoop::quit);
  // A silent server sends nothing to react to: look at the cancel check now
  // and then, so that a request nobody wants any more ends at once.
  QTimer LCancelPoll;
  QObject::connect(&LCancelPoll, &QTimer::timeout, LReply.get(), [this, &LReply] {
    if (CheckCancel())
      LReply->abort();
  });
  LCancelPoll.start(50);
  if (!LReply->isFinished())
    LLoop.exec(QEventLoop::ExcludeUserInputEvents);

  if (!IsCancelled() && LReply->isOpen())
    AContent.write(LReply->readAll());
  const QVariant LStatus = LReply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
  AStatusCode = LStatus.isValid() ? LStatus.toInt() : -1;
  return AStatusCode == 200 && LReply->error() == QNetworkReply::NoError;
}

namespace
{
// Guards the handler registry; taken alone, never nested.
QMutex GHandlersLock;
std::vector<TvxHttpRequest::THandlerFactory>& Handlers()
{
  static std::vector<TvxHttpRequest::THandlerFactory> LHandlers;
  return LHandlers;
}
} // namespace

void TvxHttpRequest::RegisterHandler(THandlerFactory AFactory)
{
  QMutexLocker LLock(&GHandlersLock);
  Handlers().push_back(std::move(AFactory));
}

void TvxHttpRequest::UnregisterHandler()
{
  QMutexLocker LLock(&GHandlersLock);
  if (!Handlers().empty())
    Handlers().pop_back();
}

std::unique_ptr<TvxHttpRequestHandler> TvxHttpRequest::CreateHandler()
{
  {
    QMutexLocker LLock(&GHandlersLock);
    if (!Handlers().empty())
      return Handlers().back()();
  }
  return std::make_unique<TvxMapControlHttpRequest>();
}

bool TvxHttpRequest::GetContent(const QString& AUri, QIODevice& AStream)
{
  int LStatus = -1;
  return CreateHandler()->Get(AUri, AStream, LStatus);
}
