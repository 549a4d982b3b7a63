#pragma once

#include <QDialog>

// A dialog that makes its controls at its first showing or use, not with the
// window: the main window makes its dialogs at start, and most are opened
// late or never.
class TLazyDialog : public QDialog
{
  Q_OBJECT

public:
  using QDialog::QDialog;

  // Makes the controls once; every public method that reads them calls
  // this first.
  void EnsureControls();
  void setVisible(bool visible) override;

protected:
  virtual void BuildControls() = 0;

private:
  bool FControlsBuilt = false;
};
