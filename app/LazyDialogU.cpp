#include "LazyDialogU.h"

void TLazyDialog::EnsureControls()
{
  if (FControlsBuilt)
    return;
  FControlsBuilt = true;
  BuildControls();
}

void TLazyDialog::setVisible(bool visible)
{
  if (visible)
    EnsureControls();
  QDialog::setVisible(visible);
}
