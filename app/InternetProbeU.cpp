#include "InternetProbeU.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QtConcurrent/QtConcurrentRun>
#include <memory>

namespace
{
constexpr int ReadTimeoutMs = 2000;

QStringList& CurrentTargets()
{
  static QStringList targets = InternetProbe::DefaultTargets();
  return targets;
}

std::function<bool()>& CurrentProbe()
{
  static std::function<bool()> probe;
  return probe;
}

// One GET; the HTTP status, or 0 when no answer came.
int StatusOf(QNetworkAccessManager& nam, const QString& target)
{
  QNetworkRequest request{QUrl(target)};
  request.setTransferTimeout(ReadTimeoutMs);
  request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
  request.setHeader(QNetworkRequest::UserAgentHeader,
                    QStringLiteral("Mapwright/" MAPWRIGHT_VERSION));
  if (request.url().scheme() == QLatin1String("https")) {
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.setProtocol(QSsl::TlsV1_2);
    request.setSslConfiguration(ssl);
  }
  std::unique_ptr<QNetworkReply> reply(nam.get(request));
  QEventLoop loop;
  QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
  if (!reply->isFinished())
    loop.exec();
  return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}
}

namespace InternetProbe
{
QStringList DefaultTargets()
{
  return {QStringLiteral("https://www.openstreetmap.org/"), QStringLiteral("https://www.google.com/")};
}

void SetTargets(const QStringList& targets)
{
  CurrentTargets() = targets;
}

QStringList Targets()
{
  return CurrentTargets();
}

void SetProbe(std::function<bool()> probe)
{
  CurrentProbe() = std::move(probe);
}

bool ProbeTargets(const QStringList& targets)
{
  // The worker has its own event loop for the replies; the caller only waits.
  auto future = QtConcurrent::run([targets] {
    QNetworkAccessManager nam;
    bool connected = false;
    for (const QString& target : targets) {
      const int status = StatusOf(nam, target);
      if (status == 0)
        continue; // refused, timed out, no HTTP at all
      if (status >= 400 && status <= 505)
        continue;
      connected = true;
      break;
    }
    return connected;
  });
  future.waitForFinished();
  return future.result();
}
}

bool GetInternetConnectionStatus()
{
  if (const auto& probe = CurrentProbe())
    return probe();
  return InternetProbe::ProbeTargets(CurrentTargets());
}
