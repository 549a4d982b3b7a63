// Shell tests make real windows whose tile layers would fetch from public
// servers. The tile pipeline follows the system's proxy settings, so every
// request that is not for loopback is sent to a proxy that refuses at
// once: no test reaches the internet.

#include <QNetworkProxyFactory>

namespace
{
const bool Installed = [] {
  for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"})
    qputenv(name, "http://127.0.0.1:9");
  qputenv("no_proxy", "localhost,127.0.0.1,::1");
  qputenv("NO_PROXY", "localhost,127.0.0.1,::1");
  QNetworkProxyFactory::setUseSystemConfiguration(true);
  return true;
}();
}
