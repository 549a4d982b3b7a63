#include "Render.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
  // The control is a widget, but it is never shown.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication Application(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Mapwright"));
  QApplication::setApplicationVersion(QStringLiteral(MAPWRIGHT_VERSION));
  vxRegisterKmlFileLoader();
  vxRegisterShapeFileLoader();

  QByteArray Errors;
  const int Result = vxRenderRun(Application.arguments().mid(1), Errors);
  std::fwrite(Errors.constData(), 1, size_t(Errors.size()), stderr);
  return Result;
}
