#pragma once

#include <QDialog>
#include <QString>

class QLabel;
class QLineEdit;
class QPushButton;

// Asks for the Azure Maps key when an Azure base map is chosen without one.
// Created once at start and kept until the process ends, so the edit keeps
// what was typed between openings.
class TAzureMapsKeyDialog : public QDialog
{
  Q_OBJECT

public:
  explicit TAzureMapsKeyDialog(QWidget* parent = nullptr);

  // The key taken by OK; Cancel leaves it as it is.
  QString AzureMapKey;

  QLabel* Label1 = nullptr;
  QLineEdit* edtMapKey = nullptr;
  QLabel* Label2 = nullptr;
  QLabel* lblAzureLink = nullptr;
  QPushButton* btnOk = nullptr;
  QPushButton* btnCancel = nullptr;

  void FormShow();
  void edtMapKeyChange();
  void btnOkClick();
  void lblAzureLinkClick();

  // The page the link opens.
  static QString AccountUrl();

protected:
  void showEvent(QShowEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;
};

extern TAzureMapsKeyDialog* AzureMapsKeyDialog;

// Clears the dialog's key, runs it through the dialogs seam and returns the
// key it took: empty when cancelled.
QString AskAzureMapsKey(TAzureMapsKeyDialog& dialog);
