#pragma once

// What every fuzz target needs once: an application without a screen
// (items measure text; the map control is a widget), the loaders
// registered, no network for icons, and a scratch folder for the readers
// that take a file name rather than bytes.

#include "vxMapControlHttpRequest.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace Fuzz
{

class TNoNetwork : public TvxHttpRequestHandler
{
protected:
  bool DoGet(const QUrl&, QIODevice&, int& AStatusCode) override
  {
    AStatusCode = 404;
    return false;
  }
};

// AWidgets: a QApplication, for targets that need a map control.
inline void Initialize(bool AWidgets = false)
{
  static int Argc = 1;
  static char Name[] = "fuzz";
  static char* Argv[] = {Name, nullptr};
  qputenv("QT_QPA_PLATFORM", "offscreen");
  // Warnings about bad input are expected by the thousand.
  qputenv("QT_LOGGING_RULES", "*.warning=false");
  static const std::unique_ptr<QGuiApplication> Application =
    AWidgets ? std::unique_ptr<QGuiApplication>(std::make_unique<QApplication>(Argc, Argv))
             : std::make_unique<QGuiApplication>(Argc, Argv);
  vxRegisterKmlFileLoader();
  vxRegisterShapeFileLoader();
  TvxHttpRequest::RegisterHandler([] { return std::make_unique<TNoNetwork>(); });
}

// A folder for the run, made on first use and removed at exit.
inline QDir& ScratchDir()
{
  static QTemporaryDir Dir(QDir::tempPath() + QStringLiteral("/mapwright-fuzz-XXXXXX"));
  static QDir Result = [] {
    if (!Dir.isValid())
      std::abort();
    return QDir(Dir.path());
  }();
  return Result;
}

// For readers that follow names in their input (layer files, custom
// images): the files the seeds name are found in the scratch folder. Give
// such a target absolute corpus paths.
inline void EnterScratchDir()
{
  QDir::setCurrent(ScratchDir().path());
}

inline QString WriteScratchFile(const QString& AName, const QByteArray& ABytes)
{
  const QString LPath = ScratchDir().filePath(AName);
  QFile LFile(LPath);
  if (!LFile.open(QIODevice::WriteOnly | QIODevice::Truncate) || LFile.write(ABytes) != ABytes.size())
    std::abort();
  return LPath;
}

inline QByteArray ReadScratchFile(const QString& APath)
{
  QFile LFile(APath);
  return LFile.open(QIODevice::ReadOnly) ? LFile.readAll() : QByteArray();
}

inline QByteArray Bytes(const uint8_t* AData, size_t ASize)
{
  return QByteArray(reinterpret_cast<const char*>(AData), qsizetype(ASize));
}

// A read-only device over the fuzzer's bytes, without a copy.
struct TInput
{
  QByteArray Bytes;
  QBuffer Device;
  TInput(const uint8_t* AData, size_t ASize)
    : Bytes(QByteArray::fromRawData(reinterpret_cast<const char*>(AData), qsizetype(ASize)))
  {
    Device.setBuffer(&Bytes);
    Device.open(QIODevice::ReadOnly);
  }
};

// An invariant the input broke: a crash the fuzzer keeps.
#define FUZZ_CHECK(condition)                                                                                          \
  do                                                                                                                   \
  {                                                                                                                    \
    if (!(condition))                                                                                                  \
    {                                                                                                                  \
      fprintf(stderr, "fuzz check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__);                             \
      std::abort();                                                                                                    \
    }                                                                                                                  \
  } while (false)

} // namespace Fuzz
