#pragma once

#include <QDialog>
#include <QString>
#include <functional>

class QLabel;
class QLineEdit;
class QPushButton;

// A small fixed dialog that asks for one map service key, with a link to
// the page that tells how to get one. Created once at start and kept until
// the process ends, so the edit keeps what was typed between openings.
class TMapKeyDialog : public QDialog
{
  Q_OBJECT

public:
  struct TTexts
  {
    QString ObjectName;
    QString Caption;
    QString Prompt;
    QString LinkName; // the link label's object name
    QString LinkText;
    QString Url;
  };

  explicit TMapKeyDialog(const TTexts& texts, QWidget* parent = nullptr);

  QLabel* Label1 = nullptr;
  QLineEdit* edtMapKey = nullptr;
  QLabel* Label2 = nullptr;
  QLabel* LinkLabel = nullptr;
  QPushButton* btnOk = nullptr;
  QPushButton* btnCancel = nullptr;

  // Opens a page in the browser; replaced in tests.
  std::function<void(const QString& url)> OnOpenUrl;

  void FormShow();
  void edtMapKeyChange();
  void btnOkClick();
  void LinkClick();
  const QString& Url() const { return FTexts.Url; }

protected:
  // Where OK puts the key.
  virtual void TakeKey(const QString& key) = 0;
  void showEvent(QShowEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

private:
  TTexts FTexts;
};

// Asks for the Azure Maps key when an Azure base map is chosen without one.
class TAzureMapsKeyDialog : public TMapKeyDialog
{
  Q_OBJECT

public:
  explicit TAzureMapsKeyDialog(QWidget* parent = nullptr);

  // The key taken by OK; Cancel leaves it as it is.
  QString AzureMapKey;
  QLabel* lblAzureLink = nullptr;

  void lblAzureLinkClick() { LinkClick(); }

  // The page the link opens, here and in the configuration dialog.
  static QString AccountUrl();

protected:
  void TakeKey(const QString& key) override { AzureMapKey = key; }
};

extern TAzureMapsKeyDialog* AzureMapsKeyDialog;

// Clears the dialog's key, runs it through the dialogs seam and returns the
// key it took: empty when cancelled.
QString AskAzureMapsKey(TAzureMapsKeyDialog& dialog);

// Opens a web page in the default browser; nothing on a screenless platform.
void OpenWebPage(const QString& url);
// Dresses a plain label as a link to `url`: underlined, blue, the hand
// cursor, the address as its hint. Its text stays the caption.
void StyleAsLink(QLabel* label, const QString& url);
