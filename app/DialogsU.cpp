#include "DialogsU.h"

#include "ErrorsU.h"

#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <cstdio>

namespace
{
std::unique_ptr<TDialogs>& Current()
{
  static std::unique_ptr<TDialogs> dialogs = std::make_unique<TWidgetDialogs>();
  return dialogs;
}

void PrintLine(const QString& kind, const QString& text)
{
  const QByteArray line = QStringLiteral("mapwright: %1: %2\n").arg(kind, text).toLocal8Bit();
  std::fputs(line.constData(), stderr);
  std::fflush(stderr);
}

QString Caption()
{
  return QApplication::applicationDisplayName();
}
}

namespace Dialogs
{
TDialogs& Get()
{
  return *Current();
}

std::unique_ptr<TDialogs> Set(std::unique_ptr<TDialogs> dialogs)
{
  if (!dialogs)
    dialogs = std::make_unique<TWidgetDialogs>();
  std::swap(dialogs, Current());
  return dialogs;
}
}

void TWidgetDialogs::ShowMessage(const QString& text)
{
  QMessageBox box(QMessageBox::NoIcon, Caption(), text, QMessageBox::Ok, QApplication::activeWindow());
  box.exec();
}

bool TWidgetDialogs::Question(const QString& caption, const QString& text, bool defaultYes)
{
  const auto answer = QMessageBox::question(QApplication::activeWindow(), caption, text,
                                            QMessageBox::Yes | QMessageBox::No,
                                            defaultYes ? QMessageBox::Yes : QMessageBox::No);
  return answer == QMessageBox::Yes;
}

std::optional<QString> TWidgetDialogs::InputBox(const QString& caption, const QString& prompt,
                                                const QString& defaultText)
{
  bool ok = false;
  const QString text = QInputDialog::getText(QApplication::activeWindow(), caption, prompt,
                                             QLineEdit::Normal, defaultText, &ok);
  if (!ok)
    return std::nullopt;
  return text;
}

QString TWidgetDialogs::OpenFileName(const QString& caption, const QString& dir, const QString& filter)
{
  return QFileDialog::getOpenFileName(QApplication::activeWindow(), caption, dir, filter);
}

QString TWidgetDialogs::SaveFileName(const QString& caption, const QString& dir, const QString& filter)
{
  return QFileDialog::getSaveFileName(QApplication::activeWindow(), caption, dir, filter);
}

QString TWidgetDialogs::FolderName(const QString& caption, const QString& dir)
{
  return QFileDialog::getExistingDirectory(QApplication::activeWindow(), caption, dir);
}

int TWidgetDialogs::Execute(QDialog& dialog)
{
  return dialog.exec();
}

void TStderrDialogs::ShowMessage(const QString& text)
{
  PrintLine(QStringLiteral("message"), text);
}

bool TStderrDialogs::Question(const QString&, const QString& text, bool defaultYes)
{
  PrintLine(QStringLiteral("question"), text + (defaultYes ? QStringLiteral(" [yes]") : QStringLiteral(" [no]")));
  return defaultYes;
}

std::optional<QString> TStderrDialogs::InputBox(const QString&, const QString& prompt,
                                                const QString& defaultText)
{
  PrintLine(QStringLiteral("input"), prompt + QStringLiteral(" [") + defaultText + QLatin1Char(']'));
  return defaultText;
}

QString TStderrDialogs::OpenFileName(const QString& caption, const QString&, const QString&)
{
  PrintLine(QStringLiteral("open file"), caption + QStringLiteral(" [cancelled]"));
  return {};
}

QString TStderrDialogs::SaveFileName(const QString& caption, const QString&, const QString&)
{
  PrintLine(QStringLiteral("save file"), caption + QStringLiteral(" [cancelled]"));
  return {};
}

QString TStderrDialogs::FolderName(const QString& caption, const QString&)
{
  PrintLine(QStringLiteral("folder"), caption + QStringLiteral(" [cancelled]"));
  return {};
}

int TStderrDialogs::Execute(QDialog& dialog)
{
  const QByteArray line = QStringLiteral("mapwright: %1\n").arg(dialog.windowTitle()).toLocal8Bit();
  std::fputs(line.constData(), stderr);
  std::fflush(stderr);
  return QDialog::Rejected;
}

bool TRecordingDialogs::Question(const QString&, const QString& text, bool defaultYes)
{
  Questions << text;
  return QuestionAnswers.isEmpty() ? defaultYes : QuestionAnswers.takeFirst();
}

std::optional<QString> TRecordingDialogs::InputBox(const QString&, const QString& prompt,
                                                   const QString& defaultText)
{
  Prompts << prompt;
  return InputAnswers.isEmpty() ? std::optional<QString>(defaultText) : InputAnswers.takeFirst();
}

int TRecordingDialogs::Execute(QDialog& dialog)
{
  Executed << dialog.windowTitle();
  return OnExecute ? OnExecute(dialog) : int(QDialog::Rejected);
}

void Dialogs::RunReported(const std::function<void()>& handler)
{
  try {
    handler();
  } catch (const EMapwrightError& e) {
    Get().ShowMessage(e.Message());
  } catch (const std::exception& e) {
    Get().ShowMessage(QString::fromUtf8(e.what()));
  }
}
