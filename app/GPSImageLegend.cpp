#include "GPSImageLegend.h"

#include "StatusImagesU.h"

#include <QLabel>
#include <QScrollBar>

TFormGPSImageLegend* FormGPSImageLegend = nullptr;

namespace
{
constexpr int EntryWidth = 73;
constexpr int PictureWidth = 54;
constexpr int PictureHeight = 43;
constexpr int StripHeight = 92;

// Selected set first, then the others, each as online, offline, alarm,
// evac, roll call, par, no signal.
constexpr int LegendOrder[] = {0, 1, 3, 5, 2, 6, 4, 7, 8, 10, 12, 9, 13, 11};
} // namespace

TFormGPSImageLegend::TFormGPSImageLegend(QWidget* parent)
  : QWidget(parent)
{
  setObjectName(QStringLiteral("FormGPSImageLegend"));
  setWindowTitle(tr("GPS Image Legend"));
  // A floating tool window that stays above the map; closing is the only
  // button it needs.
  setWindowFlags(Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                 Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint);
  QPalette black = palette();
  black.setColor(QPalette::Window, Qt::black);
  setPalette(black);
  setAutoFillBackground(true);

  Panel5 = new QWidget(this);
  Panel5->setObjectName(QStringLiteral("Panel5"));
  Panel5->setGeometry(0, 0, 1044, StripHeight);

  QFont captionFont(QStringLiteral("Arial"));
  captionFont.setPointSize(8);
  QPalette white = palette();
  white.setColor(QPalette::WindowText, Qt::white);

  int left = 0;
  for (const int index : LegendOrder) {
    auto* entry = new QWidget(Panel5);
    entry->setObjectName(QStringLiteral("LegendEntry%1").arg(index));
    entry->setGeometry(left, 0, EntryWidth, StripHeight);
    left += EntryWidth;

    auto* picture = new QLabel(entry);
    picture->setObjectName(QStringLiteral("LegendPicture%1").arg(index));
    picture->setGeometry((EntryWidth - PictureWidth) / 2, 2, PictureWidth, PictureHeight);
    // Drawn at the first showing: most runs never open the legend.
    FUndrawn.append({picture, index});

    auto* caption = new QLabel(TLiveImageList::LegendCaption(index), entry);
    caption->setObjectName(QStringLiteral("LegendCaption%1").arg(index));
    caption->setGeometry(0, PictureHeight + 4, EntryWidth, StripHeight - PictureHeight - 4);
    caption->setFont(captionFont);
    caption->setPalette(white);
    caption->setWordWrap(true);
    caption->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
  }

  UserDisplayScrollBar = new QScrollBar(Qt::Horizontal, this);
  UserDisplayScrollBar->setObjectName(QStringLiteral("UserDisplayScrollBar"));
  UserDisplayScrollBar->setRange(1, 1050);
  UserDisplayScrollBar->setSingleStep(5);
  UserDisplayScrollBar->setPageStep(10);
  connect(UserDisplayScrollBar, &QScrollBar::valueChanged, this, &TFormGPSImageLegend::UserDisplayScrollBarScroll);

  setMaximumHeight(150);
  resize(760, 111);
  // A hidden window gets its resize event only when first shown.
  PlaceScrollBar();
}

void TFormGPSImageLegend::UserDisplayScrollBarScroll(int position)
{
  Panel5->move(-position, Panel5->y());
}

void TFormGPSImageLegend::showEvent(QShowEvent* event)
{
  DrawPictures();
  QWidget::showEvent(event);
}

void TFormGPSImageLegend::DrawPictures()
{
  for (const auto& [picture, index] : FUndrawn)
    picture->setPixmap(QPixmap::fromImage(TLiveImageList::Draw(index, QSize(PictureWidth, PictureHeight))));
  FUndrawn.clear();
}

void TFormGPSImageLegend::resizeEvent(QResizeEvent* event)
{
  QWidget::resizeEvent(event);
  PlaceScrollBar();
}

// The scroll bar runs along the bottom edge, whatever the width.
void TFormGPSImageLegend::PlaceScrollBar()
{
  const int barHeight = UserDisplayScrollBar->sizeHint().height();
  UserDisplayScrollBar->setGeometry(0, height() - barHeight, width(), barHeight);
}
