#pragma once

// What every fuzz target needs once: a GUI application without a screen
// (items measure text), the loaders registered, and no network for icons.

#include "vxMapControlHttpRequest.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"

#include <QBuffer>
#include <QGuiApplication>

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

inline void Initialize()
{
  static int Argc = 1;
  static char Name[] = "fuzz";
  static char* Argv[] = {Name, nullptr};
  qputenv("QT_QPA_PLATFORM", "offscreen");
  static QGuiApplication Application(Argc, Argv);
  vxRegisterKmlFileLoader();
  vxRegisterShapeFileLoader();
  TvxHttpRequest::RegisterHandler([] { return std::make_unique<TNoNetwork>(); });
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

} // namespace Fuzz
