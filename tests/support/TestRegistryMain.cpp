#include "TestRegistry.h"

#include <QApplication>
#include <QTest>

std::vector<std::pair<const char*, TestRegistry::TFactory>>& TestRegistry::Classes()
{
  static std::vector<std::pair<const char*, TFactory>> classes;
  return classes;
}

// Runs every registered class; "-class NAME" picks one, other arguments go
// to each class as Qt Test reads them (a test function name, -v2, ...).
int main(int argc, char** argv)
{
  QApplication app(argc, argv);
  QStringList args = app.arguments();
  QString only;
  const qsizetype classArg = args.indexOf(QStringLiteral("-class"));
  if (classArg >= 0 && classArg + 1 < args.size())
  {
    only = args.at(classArg + 1);
    args.remove(classArg, 2);
  }
  int failures = 0;
  for (const auto& [name, factory] : TestRegistry::Classes())
  {
    if (!only.isEmpty() && only != QLatin1String(name))
      continue;
    const std::unique_ptr<QObject> test = factory();
    failures += QTest::qExec(test.get(), args);
  }
  return failures == 0 ? 0 : 1;
}
