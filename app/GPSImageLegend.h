#pragma once

#include <QList>
#include <QWidget>
#include <utility>

class QLabel;
class QScrollBar;

// GPS Image Legend: what each live marker picture means. Created once at
// start, in the start-up order, and kept until the process ends; the main
// window places and shows it.
class TFormGPSImageLegend : public QWidget
{
  Q_OBJECT

public:
  explicit TFormGPSImageLegend(QWidget* parent = nullptr);

  // The strip of legend entries, wider than the window; scrolled sideways.
  QWidget* Panel5 = nullptr;
  QScrollBar* UserDisplayScrollBar = nullptr;

public Q_SLOTS:
  void UserDisplayScrollBarScroll(int position);

protected:
  void resizeEvent(QResizeEvent* event) override;
  void showEvent(QShowEvent* event) override;

private:
  void PlaceScrollBar();
  void DrawPictures();

  // Pictures with the image they show, until the first showing draws them.
  QList<std::pair<QLabel*, int>> FUndrawn;
};

extern TFormGPSImageLegend* FormGPSImageLegend;
