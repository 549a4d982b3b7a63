#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>

class QDialog;
class QWidget;

// Every message box, question, input box and file dialog of the program
// goes through this one seam, so that tests can record the texts and script
// the answers.
class TDialogs
{
public:
  virtual ~TDialogs() = default;

  // A plain box with the text and one OK button.
  virtual void ShowMessage(const QString& text) = 0;
  // Yes or no; `defaultYes` is the answer an unattended run takes.
  virtual bool Question(const QString& caption, const QString& text, bool defaultYes) = 0;
  // Text input; nullopt when cancelled.
  virtual std::optional<QString> InputBox(const QString& caption, const QString& prompt,
                                          const QString& defaultText) = 0;
  // File and folder choosers; empty when cancelled.
  virtual QString OpenFileName(const QString& caption, const QString& dir, const QString& filter) = 0;
  virtual QString SaveFileName(const QString& caption, const QString& dir, const QString& filter) = 0;
  virtual QString FolderName(const QString& caption, const QString& dir) = 0;
  // Runs one of the program's own dialogs modally; the QDialog result code.
  virtual int Execute(QDialog& dialog) = 0;
};

namespace Dialogs
{
TDialogs& Get();
// Replaces the dialogs; null restores the on-screen ones. Returns the old.
std::unique_ptr<TDialogs> Set(std::unique_ptr<TDialogs> dialogs);

// Runs an event handler; a failure of any kind that escapes it is shown in
// the general failure box, its text and one OK button, and the program goes
// on. False when a failure was shown.
bool RunReported(const std::function<void()>& handler);

// The text of the failure being handled; only inside a catch block. The
// program's own message, a library's what(), or for anything else a plain
// sentence, since such a throw carries no text.
QString CurrentFailureText();
// Shows CurrentFailureText() in the general failure box.
void ReportCurrentFailure();

// The window that on-screen message boxes belong to when no modal dialog
// is up, so that a box never ends up behind the map.
void SetMainWindow(QWidget* window);
// Told when an on-screen message box or question opens (true) and closes.
void SetOnMessageBox(std::function<void(bool open)> handler);

// The environment variable that switches a real process to TStderrDialogs
// when it holds "stderr"; read once by main() and nowhere else.
inline constexpr const char* EnvironmentVariable = "MAPWRIGHT_DIALOGS";
}

// Dialogs on screen, parented to the active window.
class TWidgetDialogs : public TDialogs
{
public:
  void ShowMessage(const QString& text) override;
  bool Question(const QString& caption, const QString& text, bool defaultYes) override;
  std::optional<QString> InputBox(const QString& caption, const QString& prompt,
                                  const QString& defaultText) override;
  QString OpenFileName(const QString& caption, const QString& dir, const QString& filter) override;
  QString SaveFileName(const QString& caption, const QString& dir, const QString& filter) override;
  QString FolderName(const QString& caption, const QString& dir) override;
  int Execute(QDialog& dialog) override;
};

// For unattended runs: prints each dialog to standard error, one line
// beginning "mapwright: ", and takes the default answer.
class TStderrDialogs : public TDialogs
{
public:
  void ShowMessage(const QString& text) override;
  bool Question(const QString& caption, const QString& text, bool defaultYes) override;
  std::optional<QString> InputBox(const QString& caption, const QString& prompt,
                                  const QString& defaultText) override;
  QString OpenFileName(const QString& caption, const QString& dir, const QString& filter) override;
  QString SaveFileName(const QString& caption, const QString& dir, const QString& filter) override;
  QString FolderName(const QString& caption, const QString& dir) override;
  // Prints the window title and cancels.
  int Execute(QDialog& dialog) override;
};

// Records every dialog and answers from scripted queues; for tests.
class TRecordingDialogs : public TDialogs
{
public:
  QStringList Messages;           // texts of ShowMessage, in order
  QStringList Questions;          // texts of Question
  QStringList Prompts;            // prompts of InputBox
  QList<bool> QuestionAnswers;    // taken from the front; default answer when empty
  QList<std::optional<QString>> InputAnswers;
  QStringList FileAnswers;        // for the three choosers
  QStringList Executed;           // window titles of Execute
  // Plays the user of an executed dialog; without it the dialog is cancelled.
  std::function<int(QDialog&)> OnExecute;

  void ShowMessage(const QString& text) override { Messages << text; }
  bool Question(const QString& caption, const QString& text, bool defaultYes) override;
  std::optional<QString> InputBox(const QString& caption, const QString& prompt,
                                  const QString& defaultText) override;
  QString OpenFileName(const QString&, const QString&, const QString&) override { return NextFile(); }
  QString SaveFileName(const QString&, const QString&, const QString&) override { return NextFile(); }
  QString FolderName(const QString&, const QString&) override { return NextFile(); }
  int Execute(QDialog& dialog) override;

private:
  QString NextFile() { return FileAnswers.isEmpty() ? QString() : FileAnswers.takeFirst(); }
};
