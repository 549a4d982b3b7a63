#include "LayerInfo.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"

#include <QGuiApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
  // Items measure their text with fonts, which needs a GUI application; no
  // window is ever shown.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication Application(argc, argv);
  QGuiApplication::setApplicationName(QStringLiteral("Mapwright"));
  QGuiApplication::setApplicationVersion(QStringLiteral(MAPWRIGHT_VERSION));
  vxRegisterKmlFileLoader();
  vxRegisterShapeFileLoader();

  QByteArray Output, Errors;
  const int Result = vxLayerInfoRun(Application.arguments().mid(1), Output, Errors);
  std::fwrite(Output.constData(), 1, size_t(Output.size()), stdout);
  std::fwrite(Errors.constData(), 1, size_t(Errors.size()), stderr);
  return Result;
}
