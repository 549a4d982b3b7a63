#pragma once

#include <QDialog>

// Azure Maps Key. Created once at start, in the start-up order, and kept until the
// process ends; its content arrives with the work that needs it.
class TAzureMapsKeyDialog : public QDialog
{
  Q_OBJECT

public:
  explicit TAzureMapsKeyDialog(QWidget* parent = nullptr);
};

extern TAzureMapsKeyDialog* AzureMapsKeyDialog;
