#include "LayerInfo.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"

#include <QGuiApplication>

#include <cstdio>

namespace
{
int Run(const QStringList& AArguments)
{
  QByteArray Output, Errors;
  const int Result = vxLayerInfoRun(AArguments, Output, Errors);
  std::fwrite(Output.constData(), 1, size_t(Output.size()), stdout);
  std::fwrite(Errors.constData(), 1, size_t(Errors.size()), stderr);
  return Result;
}
}

int main(int argc, char* argv[])
{
  // With one of these anywhere, the arguments are answered before a file is
  // loaded, so no application is needed (nor its warnings).
  QStringList Arguments;
  for (int I = 1; I < argc; ++I)
    Arguments << QString::fromLocal8Bit(argv[I]);
  for (const char* Option : {"--help", "-h", "--version"})
    if (Arguments.contains(QLatin1String(Option)))
      return Run(Arguments);

  // Items measure their text with fonts, which needs a GUI application; no
  // window is ever shown.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication Application(argc, argv);
  QGuiApplication::setApplicationName(QStringLiteral("Mapwright"));
  QGuiApplication::setApplicationVersion(QStringLiteral(MAPWRIGHT_VERSION));
  vxRegisterKmlFileLoader();
  vxRegisterShapeFileLoader();
  return Run(Application.arguments().mid(1));
}
