#pragma once

#include <QDialog>

// Markers. Created once at start, in the start-up order, and kept until the
// process ends; its content arrives with the work that needs it.
class TfrmMarkers : public QDialog
{
  Q_OBJECT

public:
  explicit TfrmMarkers(QWidget* parent = nullptr);
};

extern TfrmMarkers* frmMarkers;
