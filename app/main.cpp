// Mapwright: the map window of the Kestrel accountability programs.
// Usage: mapwright CONFIGDIR MODE [LATITUDE LONGITUDE]

#include "AzureMapKeyU.h"
#include "BingMapKeyU.h"
#include "BuildCacheU.h"
#include "ConfigU.h"
#include "DialogsU.h"
#include "GPSImageLegend.h"
#include "ImportLayerU.h"
#include "LayersU.h"
#include "MainU.h"
#include "MarkersU.h"
#include "SingleInstanceU.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"

#include <QApplication>
#include <QNetworkProxyFactory>
#include <cstdio>
#include <cstring>
#include <memory>

namespace
{
const char* const HelpText =
  "Usage: mapwright CONFIGDIR MODE [LATITUDE LONGITUDE]\n"
  "       mapwright --help | --version\n"
  "\n"
  "The map window of the Kestrel accountability programs. A parent program\n"
  "starts it and, over one TCP connection to 127.0.0.1, tells it where each\n"
  "tracked person is and in what state. Only one instance runs per user and\n"
  "executable: a second start brings the first window to the front.\n"
  "\n"
  "Arguments:\n"
  "  CONFIGDIR           The parent's configuration directory. The settings are\n"
  "                      in CONFIGDIR/Maps/Mapwright.ini, whose [Startup] TCPPort\n"
  "                      (default 3300) is the parent's port.\n"
  "  MODE                RunTime, Config, Put, Get or Test (exact case; any other\n"
  "                      word runs with no mode).\n"
  "  LATITUDE LONGITUDE  Where a Put or Get run puts its pin, in the user's number\n"
  "                      format (default: the start point of the settings).\n"
  "\n"
  "Options (each only as the sole argument):\n"
  "  --help              Print this help and exit.\n"
  "  --version           Print the version and exit.\n"
  "\n"
  "Example:\n"
  "  mapwright /srv/kestrel RunTime\n"
  "\n"
  "Exit codes:\n"
  "  0  The window closed, or the program ended at once after saying why, or a\n"
  "     running instance was brought to the front instead.\n"
  "  Any other end is a failure (without a display, Qt aborts).\n";

// Anything that escapes a handler ends in one plain box, and the program goes on.
class TApplication : public QApplication
{
public:
  using QApplication::QApplication;

  bool notify(QObject* receiver, QEvent* event) override
  {
    try {
      return QApplication::notify(receiver, event);
    } catch (...) {
      Dialogs::ReportCurrentFailure();
    }
    return false;
  }
};
}

int main(int argc, char* argv[])
{
  // Only alone: any other argument list is the parent's, whatever it holds.
  // Answered before the application exists, so that no display is needed.
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::fputs(HelpText, stdout);
    return 0;
  }
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::fputs("mapwright " MAPWRIGHT_VERSION "\n", stdout);
    return 0;
  }

  TApplication app(argc, argv);
  // No display name: Qt would append it to every caption.
  QApplication::setApplicationName(QStringLiteral("mapwright"));
  QApplication::setApplicationVersion(QStringLiteral(MAPWRIGHT_VERSION));
  QGuiApplication::setDesktopFileName(QStringLiteral("io.github.mapwright.Mapwright"));
  // The window ends the program when it closes, not when the last window goes.
  QApplication::setQuitOnLastWindowClosed(false);
  QNetworkProxyFactory::setUseSystemConfiguration(true);
  // The file layers find their readers here; the map engine's item library
  // knows no file format itself.
  vxRegisterKmlFileLoader();
  vxRegisterShapeFileLoader();

  if (qgetenv(Dialogs::EnvironmentVariable) == "stderr")
    Dialogs::Set(std::make_unique<TStderrDialogs>());

  TSingleInstance instance;
  if (!instance.Claim())
    return 0;

  QStringList arguments = QApplication::arguments();
  arguments.removeFirst();

  // Created once, in this order, and kept until the process ends.
  auto main = std::make_unique<TfrmMain>(arguments);
  auto layers = std::make_unique<TfrmLayers>();
  frmLayers = layers.get();
  auto importLayer = std::make_unique<TfrmImportLayer>();
  frmImportLayer = importLayer.get();
  auto markers = std::make_unique<TfrmMarkers>();
  frmMarkers = markers.get();
  auto bingKey = std::make_unique<TBingMapsKeyDialog>();
  BingMapsKeyDialog = bingKey.get();
  auto config = std::make_unique<TfrmConfig>();
  frmConfig = config.get();
  auto legend = std::make_unique<TFormGPSImageLegend>();
  FormGPSImageLegend = legend.get();
  auto buildCache = std::make_unique<TfrmBuildCache>();
  frmBuildCache = buildCache.get();
  auto azureKey = std::make_unique<TAzureMapsKeyDialog>();
  AzureMapsKeyDialog = azureKey.get();

  if (main->TerminateRequested())
    return 0;

  QObject::connect(&instance, &TSingleInstance::OnActivateRequested, main.get(), [form = main.get()] {
    if (form->isMinimized())
      form->showNormal();
    form->show();
    form->raise();
    form->activateWindow();
  });
  QObject::connect(main.get(), &TfrmMain::OnClosed, &app, &QCoreApplication::quit, Qt::QueuedConnection);

  main->show();
  const int code = QApplication::exec();

  // Forms that refer to each other go before the globals that point at them.
  AzureMapsKeyDialog = nullptr;
  frmBuildCache = nullptr;
  FormGPSImageLegend = nullptr;
  frmConfig = nullptr;
  BingMapsKeyDialog = nullptr;
  frmMarkers = nullptr;
  frmImportLayer = nullptr;
  frmLayers = nullptr;
  return code;
}
