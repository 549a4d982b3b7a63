#pragma once

#include <QString>
#include <QByteArray>
#include <exception>

// The program's failures are exceptions that carry the text the user sees.
class EMapwrightError : public std::exception
{
public:
  explicit EMapwrightError(QString message)
    : FMessage(std::move(message)), FUtf8(FMessage.toUtf8()) {}

  const QString& Message() const noexcept { return FMessage; }
  const char* what() const noexcept override { return FUtf8.constData(); }

private:
  QString FMessage;
  QByteArray FUtf8;
};

// A text that does not convert to the number asked for.
class EConvertError : public EMapwrightError
{
public:
  using EMapwrightError::EMapwrightError;
};
