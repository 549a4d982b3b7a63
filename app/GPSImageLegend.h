#pragma once

#include <QWidget>

// GPS Image Legend. Created once at start, in the start-up order, and kept until the
// process ends; its content arrives with the work that needs it.
class TFormGPSImageLegend : public QWidget
{
  Q_OBJECT

public:
  explicit TFormGPSImageLegend(QWidget* parent = nullptr);
};

extern TFormGPSImageLegend* FormGPSImageLegend;
