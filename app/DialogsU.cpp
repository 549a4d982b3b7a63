#include "DialogsU.h"

#include "ErrorsU.h"

#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPointer>
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

// The program sets no display name (Qt would append it to every window's
// caption), and the application name is the lower-case command.
QString Caption()
{
  const QString name = QApplication::applicationDisplayName();
  return name.isEmpty() || name == QApplication::applicationName() ? QStringLiteral("Mapwright") : name;
}

QPointer<QWidget>& MainWindow()
{
  static QPointer<QWidget> window;
  return window;
}

std::function<void(bool)>& OnMessageBox()
{
  static std::function<void(bool)> handler;
  return handler;
}

// The modal dialog on top, else the main window, else whatever is active.
QWidget* Owner()
{
  if (QWidget* modal = QApplication::activeModalWidget())
    return modal;
  if (MainWindow())
    return MainWindow();
  return QApplication::activeWindow();
}

// Brackets a box for whoever shows that something waits on it.
struct TBoxOpen
{
  TBoxOpen()
  {
    if (OnMessageBox())
      OnMessageBox()(true);
  }
  ~TBoxOpen()
  {
    if (OnMessageBox())
      OnMessageBox()(false);
  }
};
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
void SetMainWindow(QWidget* window)
{
  MainWindow() = window;
}

void SetOnMessageBox(std::function<void(bool open)> handler)
{
  OnMessageBox() = std::move(handler);
}
}

void TWidgetDialogs::ShowMessage(const QString& text)
{
  const TBoxOpen open;
  QMessageBox box(QMessageBox::NoIcon, Caption(), text, QMessageBox::Ok, Owner());
  box.exec();
}

bool TWidgetDialogs::Question(const QString& caption, const QString& text, bool defaultYes)
{
  const TBoxOpen open;
  const auto answer = QMessageBox::question(Owner(), caption, text,
                                            QMessageBox::Yes | QMessageBox::No,
                                            defaultYes ? QMessageBox::Yes : QMessageBox::No);
  return answer == QMessageBox::Yes;
}

std::optional<QString> TWidgetDialogs::InputBox(const QString& caption, const QString& prompt,
                                                const QString& defaultText)
{
  bool ok = false;
  const QString text = QInputDialog::getText(Owner(), caption, prompt,
                                             QLineEdit::Normal, defaultText, &ok);
  if (!ok)
    return std::nullopt;
  return text;
}

QString TWidgetDialogs::OpenFileName(const QString& caption, const QString& dir, const QString& filter)
{
  return QFileDialog::getOpenFileName(Owner(), caption, dir, filter);
}

QString TWidgetDialogs::SaveFileName(const QString& caption, const QString& dir, const QString& filter)
{
  return QFileDialog::getSaveFileName(Owner(), caption, dir, filter);
}

QString TWidgetDialogs::FolderName(const QString& caption, const QString& dir)
{
  return QFileDialog::getExistingDirectory(Owner(), caption, dir);
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

bool Dialogs::RunReported(const std::function<void()>& handler)
{
  try {
    handler();
    return true;
  } catch (...) {
    ReportCurrentFailure();
    return false;
  }
}

QString Dialogs::CurrentFailureText()
{
  try {
    throw;
  } catch (const EMapwrightError& e) {
    return e.Message();
  } catch (const std::exception& e) {
    return QString::fromUtf8(e.what());
  } catch (...) {
    return QStringLiteral("An unexpected failure occurred.");
  }
}

void Dialogs::ReportCurrentFailure()
{
  Get().ShowMessage(CurrentFailureText());
}
