#pragma once

#include <QDialog>

// Bing Maps Key. Created once at start, in the start-up order, and kept until the
// process ends; its content arrives with the work that needs it.
class TBingMapsKeyDialog : public QDialog
{
  Q_OBJECT

public:
  explicit TBingMapsKeyDialog(QWidget* parent = nullptr);
};

extern TBingMapsKeyDialog* BingMapsKeyDialog;
