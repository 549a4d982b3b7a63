#include "MarkersU.h"

#include "DialogsU.h"
#include "ErrorsU.h"
#include "GlobalsU.h"
#include "MarkerImagesU.h"
#include "NumberTextU.h"
#include "StaticMarkersU.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

#include <QDesktopServices>
#include <QEvent>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIconEngine>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QButtonGroup>
#include <QStackedWidget>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

TfrmMarkers* frmMarkers = nullptr;

// Most of the category glyphs come from this collection; CREDITS.md lists the others.
const QString TfrmMarkers::IconCollectionUrl = QStringLiteral("https://pictogrammers.com/library/mdi/");

namespace
{
constexpr int RowHeight = 37;
constexpr int Columns = 3;

// A row without an image keeps an empty one of the list's size, so its
// caption lines up with the others.
QPixmap RowPixmap(const TMarkerImageList& images, int index)
{
  QPixmap pixmap = QPixmap::fromImage(images.Image(index));
  if (pixmap.isNull()) {
    pixmap = QPixmap(images.ImageSize());
    pixmap.fill(Qt::transparent);
  }
  return pixmap;
}

// The icon of a fixed category row: decoded from the image list when first
// measured or drawn, then the same as an icon made from the row's pixmap.
// The fixed lists never change, so the reference stays good.
class TDeferredRowIcon : public QIconEngine
{
public:
  TDeferredRowIcon(const TMarkerImageList& images, int index) : FImages(images), FIndex(index) {}

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override
  {
    Icon().paint(painter, rect, Qt::AlignCenter, mode, state);
  }
  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
  {
    return Icon().pixmap(size, 1.0, mode, state);
  }
  QSize actualSize(const QSize& size, QIcon::Mode mode, QIcon::State state) override
  {
    return Icon().actualSize(size, mode, state);
  }
  QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override
  {
    return Icon().availableSizes(mode, state);
  }
  QString key() const override { return QStringLiteral("TDeferredRowIcon"); }
  // Qt's engine idiom: the caller owns the copy.
  QIconEngine* clone() const override { return new TDeferredRowIcon(*this); }

private:
  const QIcon& Icon()
  {
    if (FIcon.isNull())
      FIcon = QIcon(RowPixmap(FImages, FIndex));
    return FIcon;
  }

  const TMarkerImageList& FImages;
  int FIndex;
  QIcon FIcon;
};

template <typename T>
T* Named(T* object, const char* name)
{
  object->setObjectName(QLatin1String(name));
  return object;
}

QFrame* Panel(QWidget* parent, const char* name)
{
  return Named(new QFrame(parent), name);
}

QString Attr(const TvxMapPushpin* pin, const QString& key)
{
  return TStaticMarkers::Text(pin, key);
}
}

TPageControl::TPageControl(QWidget* parent)
  : QWidget(parent)
{
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  FTabs = new QGridLayout();
  FTabs->setContentsMargins(0, 0, 0, 0);
  FTabs->setSpacing(0);
  layout->addLayout(FTabs);
  FPages = new QStackedWidget(this);
  FPages->setFrameShape(QFrame::StyledPanel);
  layout->addWidget(FPages, 1);
  FGroup = new QButtonGroup(this);
  FGroup->setExclusive(true);
  connect(FGroup, &QButtonGroup::idClicked, this, &TPageControl::setCurrentIndex);
}

int TPageControl::addTab(QWidget* page, const QString& caption)
{
  auto* button = new QToolButton(this);
  button->setText(caption);
  button->setCheckable(true);
  button->setAutoRaise(false);
  button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  button->setFocusPolicy(Qt::TabFocus);
  button->setStyleSheet(QStringLiteral("QToolButton:checked { font-weight: bold; }"));
  const int index = FPages->addWidget(page);
  FGroup->addButton(button, index);
  FButtons.append(button);
  if (index == 0)
    button->setChecked(true);
  FColumns = 0;
  ArrangeTabs();
  return index;
}

int TPageControl::count() const
{
  return FPages->count();
}

QWidget* TPageControl::widget(int index) const
{
  return FPages->widget(index);
}

int TPageControl::currentIndex() const
{
  return FPages->currentIndex();
}

QWidget* TPageControl::currentWidget() const
{
  return FPages->currentWidget();
}

void TPageControl::setCurrentIndex(int index)
{
  if (index < 0 || index >= FButtons.size())
    return;
  FPages->setCurrentIndex(index);
  FButtons.at(index)->setChecked(true);
}

void TPageControl::setCurrentWidget(QWidget* page)
{
  setCurrentIndex(FPages->indexOf(page));
}

QToolButton* TPageControl::tabButton(int index) const
{
  return FButtons.value(index);
}

void TPageControl::resizeEvent(QResizeEvent* event)
{
  QWidget::resizeEvent(event);
  ArrangeTabs();
}

void TPageControl::ArrangeTabs()
{
  // As many tabs to a row as fit by their widest caption.
  int widest = 1;
  for (const QToolButton* button : std::as_const(FButtons))
    widest = std::max(widest, button->sizeHint().width());
  const int columns = std::clamp(width() / widest, 1, std::max<int>(1, int(FButtons.size())));
  if (columns == FColumns)
    return;
  FColumns = columns;
  for (QToolButton* button : std::as_const(FButtons))
    FTabs->removeWidget(button);
  for (int i = 0; i < FButtons.size(); ++i)
    FTabs->addWidget(FButtons.at(i), i / columns, i % columns);
}

TfrmMarkers::TfrmMarkers(QWidget* parent)
  : TLazyDialog(parent)
{
  setObjectName(QStringLiteral("frmMarkers"));
  setWindowTitle(QStringLiteral("Markers"));
  setWindowFlag(Qt::WindowStaysOnTopHint, true);
  setModal(false);
  setMinimumSize(420, 642);
  resize(minimumSize());
}

TfrmMarkers::~TfrmMarkers()
{
  if (frmMarkers == this)
    frmMarkers = nullptr;
}

void TfrmMarkers::SetUpImageListBox(QListWidget* list, const QSize& iconSize)
{
  // Three columns of 37-pixel rows that fill top to bottom, then across.
  list->setViewMode(QListView::ListMode);
  list->setFlow(QListView::TopToBottom);
  list->setWrapping(true);
  list->setResizeMode(QListView::Adjust);
  list->setUniformItemSizes(true);
  list->setIconSize(iconSize);
  list->setSelectionMode(QAbstractItemView::SingleSelection);
  list->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
  list->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

QListWidget* TfrmMarkers::AddTab(QWidget*& sheet, const QString& category)
{
  sheet = new QWidget(PageControl1);
  auto* layout = new QVBoxLayout(sheet);
  layout->setContentsMargins(2, 2, 2, 2);
  auto* list = new QListWidget(sheet);
  SetUpImageListBox(list, category == MarkerCategory::Misc ? QSize(32, 32) : QSize(32, 37));
  list->installEventFilter(this);
  layout->addWidget(list);
  PageControl1->addTab(sheet, category);
  connect(list, &QListWidget::itemClicked, this, [this, category] { RunHandler([&] { ListClick(category); }); });
  return list;
}

void TfrmMarkers::BuildControls()
{
  auto* root = new QVBoxLayout(this);
  root->setContentsMargins(4, 4, 4, 4);

  pnlTop = Panel(this, "pnlTop");
  auto* top = new QGridLayout(pnlTop);
  Label1 = Named(new QLabel(QStringLiteral("Title"), pnlTop), "Label1");
  edtTitle = Named(new QLineEdit(pnlTop), "edtTitle");
  Ima = Named(new QLabel(QStringLiteral("Images Selection"), pnlTop), "Ima");
  Image1 = Named(new QLabel(pnlTop), "Image1");
  // Its picture comes with the first showing (setVisible): the first image
  // read of a process also looks up Qt's image readers.
  Image1->setCursor(Qt::PointingHandCursor);
  Image1->setToolTip(tr("Where the marker images come from"));
  Image1->installEventFilter(this);
  top->addWidget(Label1, 0, 0);
  top->addWidget(edtTitle, 0, 1);
  top->addWidget(Ima, 1, 0, 1, 2);
  top->addWidget(Image1, 0, 2, 2, 1);
  root->addWidget(pnlTop);

  pnlImages = Panel(this, "pnlImages");
  auto* images = new QVBoxLayout(pnlImages);
  images->setContentsMargins(0, 0, 0, 0);
  PageControl1 = Named(new TPageControl(pnlImages), "PageControl1");
  lbIndustry = AddTab(TabSheet1, MarkerCategory::Industry);
  lbNature = AddTab(TabSheet2, MarkerCategory::Nature);
  lbTransportation = AddTab(TabSheet3, MarkerCategory::Transportation);
  lbPeople = AddTab(TabSheet4, MarkerCategory::People);
  lbMedia = AddTab(TabSheet5, MarkerCategory::Media);
  lbTourism = AddTab(TabSheet6, MarkerCategory::Tourism);
  lbMisc = AddTab(TabSheet7, MarkerCategory::Misc);
  lbCustom = AddTab(TabSheet8, MarkerCategory::Custom);
  const char* sheetNames[] = {"TabSheet1", "TabSheet2", "TabSheet3", "TabSheet4",
                              "TabSheet5", "TabSheet6", "TabSheet7", "TabSheet8"};
  const char* listNames[] = {"lbIndustry", "lbNature", "lbTransportation", "lbPeople",
                             "lbMedia",    "lbTourism", "lbMisc",          "lbCustom"};
  for (int i = 0; i < PageControl1->count(); ++i) {
    PageControl1->widget(i)->setObjectName(QLatin1String(sheetNames[i]));
    ListOf(MarkerCategory::TabOrder().at(i))->setObjectName(QLatin1String(listNames[i]));
  }
  for (const QString& category : MarkerCategory::TabOrder())
    if (category != MarkerCategory::Custom)
      FillList(ListOf(category), category);
  images->addWidget(PageControl1, 1);

  pnlSearch = Panel(pnlImages, "pnlSearch");
  auto* search = new QHBoxLayout(pnlSearch);
  search->setContentsMargins(0, 2, 0, 2);
  Label4 = Named(new QLabel(QStringLiteral("Find Image"), pnlSearch), "Label4");
  edtSearch = Named(new QLineEdit(pnlSearch), "edtSearch");
  btnSearch = Named(new QPushButton(tr("Search"), pnlSearch), "btnSearch");
  btnPrev = Named(new QPushButton(tr("Prev"), pnlSearch), "btnPrev");
  btnNext = Named(new QPushButton(tr("Next"), pnlSearch), "btnNext");
  for (QPushButton* button : {btnSearch, btnPrev, btnNext})
    button->setAutoDefault(false);
  edtSearch->installEventFilter(this);
  search->addWidget(Label4);
  search->addWidget(edtSearch, 1);
  search->addWidget(btnSearch);
  search->addWidget(btnPrev);
  search->addWidget(btnNext);
  images->addWidget(pnlSearch);
  root->addWidget(pnlImages, 1);

  pnlBottom = Panel(this, "pnlBottom");
  auto* bottom = new QGridLayout(pnlBottom);
  Label2 = Named(new QLabel(QStringLiteral("Latitude"), pnlBottom), "Label2");
  edtLatitude = Named(new QLineEdit(pnlBottom), "edtLatitude");
  Label3 = Named(new QLabel(QStringLiteral("Longitude"), pnlBottom), "Label3");
  edtLongitude = Named(new QLineEdit(pnlBottom), "edtLongitude");
  Notes = Named(new QLabel(QStringLiteral("Notes"), pnlBottom), "Notes");
  Memo1 = Named(new QPlainTextEdit(pnlBottom), "Memo1");
  Memo1->setFixedHeight(96);
  bottom->addWidget(Label2, 0, 0);
  bottom->addWidget(edtLatitude, 0, 1);
  bottom->addWidget(Label3, 1, 0);
  bottom->addWidget(edtLongitude, 1, 1);
  bottom->addWidget(Notes, 2, 0, Qt::AlignTop);
  bottom->addWidget(Memo1, 2, 1);
  edtLatitude->installEventFilter(this);
  edtLongitude->installEventFilter(this);
  edtTitle->installEventFilter(this);
  root->addWidget(pnlBottom);

  Panel2 = Panel(this, "Panel2");
  auto* buttons = new QHBoxLayout(Panel2);
  buttons->addStretch(1);
  btnOk = Named(new QPushButton(QStringLiteral("Save"), Panel2), "btnOk");
  btnCancel = Named(new QPushButton(QStringLiteral("Cancel"), Panel2), "btnCancel");
  btnOk->setAutoDefault(false);
  btnCancel->setAutoDefault(false);
  buttons->addWidget(btnOk);
  buttons->addWidget(btnCancel);
  root->addWidget(Panel2);

  connect(edtTitle, &QLineEdit::textChanged, this, &TfrmMarkers::edtTitleChange);
  connect(edtLatitude, &QLineEdit::textChanged, this, &TfrmMarkers::edtTitleChange);
  connect(edtLongitude, &QLineEdit::textChanged, this, &TfrmMarkers::edtTitleChange);
  connect(btnOk, &QPushButton::clicked, this, [this] { RunHandler([this] { btnOkClick(); }); });
  connect(btnCancel, &QPushButton::clicked, this, [this] { RunHandler([this] { btnCancelClick(); }); });
  connect(btnSearch, &QPushButton::clicked, this, [this] { RunHandler([this] { btnSearchClick(); }); });
  connect(btnNext, &QPushButton::clicked, this, [this] { RunHandler([this] { btnNextClick(); }); });
  connect(btnPrev, &QPushButton::clicked, this, [this] { RunHandler([this] { btnPrevClick(); }); });
  btnPrev->setEnabled(false);
  btnNext->setEnabled(false);
  btnOk->setEnabled(false);

  for (const auto& [caption, index] : std::as_const(FPendingCustomRows))
    AddCustomRow(caption, index);
  FPendingCustomRows.clear();
}

void TfrmMarkers::SetListRowImage(QListWidget* list, int row, const TMarkerImageList& images, int index)
{
  QListWidgetItem* item = list->item(row);
  item->setData(TfrmMarkers::ImageIndexRole, index);
  item->setIcon(QIcon(RowPixmap(images, index)));
}

void TfrmMarkers::FillList(QListWidget* list, const QString& category)
{
  const TMarkerImageList* images = MarkerImageLists().ByCategory(category);
  for (const TMarkerRow& row : FixedMarkerRows(category)) {
    list->addItem(row.Caption);
    QListWidgetItem* item = list->item(list->count() - 1);
    item->setData(TfrmMarkers::ImageIndexRole, row.ImageIndex);
    // The dialog is made at start; its hundreds of fixed images wait until
    // a row is first drawn. The icon takes ownership of its engine.
    item->setIcon(QIcon(new TDeferredRowIcon(*images, row.ImageIndex)));
  }
}

void TfrmMarkers::LayOutColumns(QListWidget* list)
{
  // The list's own width: a page that has not been shown yet has no
  // viewport size worth reading.
  const int width = std::max(60, list->contentsRect().width() / Columns);
  list->setGridSize(QSize(width, RowHeight));
}

QListWidget* TfrmMarkers::ListOf(const QString& category) const
{
  if (category == MarkerCategory::Industry)
    return lbIndustry;
  if (category == MarkerCategory::Nature)
    return lbNature;
  if (category == MarkerCategory::Transportation)
    return lbTransportation;
  if (category == MarkerCategory::People)
    return lbPeople;
  if (category == MarkerCategory::Media)
    return lbMedia;
  if (category == MarkerCategory::Tourism)
    return lbTourism;
  if (category == MarkerCategory::Misc)
    return lbMisc;
  if (category == MarkerCategory::Custom)
    return lbCustom;
  return nullptr;
}

void TfrmMarkers::RunHandler(const std::function<void()>& handler)
{
  Dialogs::RunReported(handler);
}

void TfrmMarkers::Show()
{
  if (CentreOn) {
    const QRect owner = CentreOn->frameGeometry();
    const QSize own = frameGeometry().size();
    move(owner.center().x() - own.width() / 2, owner.center().y() - own.height() / 2);
  }
  if (isVisible()) {
    // Shown again while open: the design's show step still runs.
    RunHandler([this] { FormShow(); });
    raise();
    return;
  }
  show();
  raise();
  activateWindow();
}

void TfrmMarkers::ShowForNewMarker(TvxCustomMapControl* map, TvxMapItemLayer* layer, QListWidget* list,
                                   const QString& title, double latitude, double longitude)
{
  EnsureControls();
  edtTitle->setText(title);
  MapControl = map;
  KestrelStaticMarkers = layer;
  lbStaticMarkers = list;
  edtLatitude->setText(NumberText::FloatToStr(latitude));
  edtLongitude->setText(NumberText::FloatToStr(longitude));
  EditMode = false;
  Show();
}

void TfrmMarkers::ShowForMarker(TvxCustomMapControl* map, TvxMapItemLayer* layer, QListWidget* list,
                                TvxMapPushpin* marker)
{
  EnsureControls();
  edtTitle->setText(Attr(marker, StaticMarkerKey::Title));
  edtLatitude->setText(Attr(marker, StaticMarkerKey::Latitude));
  edtLongitude->setText(Attr(marker, StaticMarkerKey::Longitude));
  Memo1->clear();
  Memo1->setPlainText(Attr(marker, StaticMarkerKey::Notes));
  MapControl = map;
  KestrelStaticMarkers = layer;
  KestrelStaticMarker = marker;
  lbStaticMarkers = list;
  EditMode = true;
  Show();
}

void TfrmMarkers::MoveMarker(double latitude, double longitude)
{
  EnsureControls();
  edtLatitude->setText(NumberText::FloatToStr(latitude));
  edtLongitude->setText(NumberText::FloatToStr(longitude));
  if (KestrelStaticMarker)
    KestrelStaticMarker->SetLocation(TvxMapControlGeoPoint::Create(latitude, longitude));
}

bool TfrmMarkers::OnMiscPage() const
{
  // Never shown, so on no page.
  return PageControl1 && PageControl1->currentWidget() == TabSheet7;
}

void TfrmMarkers::setVisible(bool visible)
{
  if (visible)
    EnsureControls();
  // Before the layout runs, so the picture counts in it.
  if (visible && Image1->pixmap().isNull())
    Image1->setPixmap(QPixmap::fromImage(MarkerImageLists().MiscImageList.Image(1)));
  TLazyDialog::setVisible(visible);
}

void TfrmMarkers::showEvent(QShowEvent* event)
{
  QDialog::showEvent(event);
  RunHandler([this] { FormShow(); });
  for (const QString& category : MarkerCategory::TabOrder())
    LayOutColumns(ListOf(category));
}

void TfrmMarkers::resizeEvent(QResizeEvent* event)
{
  QDialog::resizeEvent(event);
  FormResize();
}

void TfrmMarkers::leaveEvent(QEvent* event)
{
  QDialog::leaveEvent(event);
  FormMouseLeave();
}

bool TfrmMarkers::eventFilter(QObject* watched, QEvent* event)
{
  const QEvent::Type type = event->type();
  if (type == QEvent::KeyPress && (watched == edtLatitude || watched == edtLongitude)) {
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->matches(QKeySequence::Cut) || !CoordinateKeyAllowed(key->text()))
      return true;
  }
  if (type == QEvent::KeyPress && watched == edtSearch)
    edtSearchKeyDown(static_cast<QKeyEvent*>(event)->key());
  if (type == QEvent::FocusOut && !FInExit) {
    if (watched == edtTitle)
      RunHandler([this] { edtTitleExit(); });
    else if (watched == edtLatitude)
      RunHandler([this] { edtLatitudeExit(); });
    else if (watched == edtLongitude)
      RunHandler([this] { edtLongitudeExit(); });
  }
  if (type == QEvent::MouseButtonRelease && watched == Image1)
    Image1Click();
  if (type == QEvent::Resize || type == QEvent::Show) {
    for (const QString& category : MarkerCategory::TabOrder())
      if (watched == ListOf(category))
        LayOutColumns(ListOf(category));
  }
  return QDialog::eventFilter(watched, event);
}

bool TfrmMarkers::CoordinateKeyAllowed(const QString& text)
{
  // Keys without a character (arrows, Home, Delete) never reach the filter
  // of the character keys; copy, paste and backspace are the controls let in.
  if (text.isEmpty() || text == QStringLiteral("\x7f"))
    return true;
  if (text.size() != 1)
    return false;
  const char16_t c = text.at(0).unicode();
  return c == 3 || c == 22 || c == 8 || c == '.' || c == '-' || (c >= '0' && c <= '9');
}

// ---------------------------------------------------------------------------

void TfrmMarkers::FormShow()
{
  if (!KestrelStaticMarkers)
    return;
  if (!EditMode) {
    MarkerHoldTitle = edtTitle->text();
    auto* pin = KestrelStaticMarkers->MapItems().Add<TvxMapPushpin>();
    pin->SetTag(StaticMarkerTag);
    KestrelStaticMarker = pin;
    pin->SetImage(MarkerImageLists().MiscImageList.Image(1));
    TStaticMarkers::SetMarkerName(pin, edtTitle->text());
    pin->SetLocation(TvxMapControlGeoPoint::Create(NumberText::StrToFloat(edtLatitude->text()),
                                                   NumberText::StrToFloat(edtLongitude->text())));
    TvxMapItemAttributes& attributes = pin->Attributes();
    attributes.Add(StaticMarkerKey::Title, edtTitle->text());
    attributes.Add(StaticMarkerKey::Latitude, edtLatitude->text());
    attributes.Add(StaticMarkerKey::Longitude, edtLongitude->text());
    attributes.Add(StaticMarkerKey::ImageCategory, MarkerCategory::Misc);
    attributes.Add(StaticMarkerKey::ImageIndex, QStringLiteral("1"));
    attributes.Add(StaticMarkerKey::Notes, QString());
    pin->SetHint(edtTitle->text());
    Memo1->clear();
    PageControl1->setCurrentIndex(0);
  } else if (KestrelStaticMarker) {
    MarkerHoldTitle = Attr(KestrelStaticMarker, StaticMarkerKey::Title);
    MarkerHoldLatitude = Attr(KestrelStaticMarker, StaticMarkerKey::Latitude);
    MarkerHoldLongitude = Attr(KestrelStaticMarker, StaticMarkerKey::Longitude);
    MarkerHoldImageCategory = Attr(KestrelStaticMarker, StaticMarkerKey::ImageCategory);
    MarkerHoldImageIndex = Attr(KestrelStaticMarker, StaticMarkerKey::ImageIndex);
    MarkerHoldNotes = Attr(KestrelStaticMarker, StaticMarkerKey::Notes);
    MarkerHoldImage = KestrelStaticMarker->Image();
  }

  edtSearch->clear();
  SearchList.clear();
  btnPrev->setEnabled(false);
  btnNext->setEnabled(false);

  if (!KestrelStaticMarker)
    return;
  const QString category = Attr(KestrelStaticMarker, StaticMarkerKey::ImageCategory);
  const QString index = Attr(KestrelStaticMarker, StaticMarkerKey::ImageIndex);
  for (int tab = 0; tab < MarkerCategory::TabOrder().size(); ++tab) {
    if (category != MarkerCategory::TabOrder().at(tab))
      continue;
    PageControl1->setCurrentIndex(tab);
    QListWidget* list = ListOf(category);
    list->clearSelection();
    list->setCurrentRow(-1);
    for (int row = 0; row < list->count(); ++row) {
      if (QString::number(list->item(row)->data(TfrmMarkers::ImageIndexRole).toInt()) == index) {
        list->setCurrentRow(row);
        list->scrollToItem(list->item(row));
        break;
      }
    }
    break;
  }
}

void TfrmMarkers::FormResize()
{
  if (pnlBottom && Memo1)
    Memo1->setFixedWidth(std::max(0, pnlBottom->width() - 128));
}

void TfrmMarkers::FormMouseLeave()
{
  if (OnMouseLeave)
    OnMouseLeave();
}

void TfrmMarkers::edtTitleChange()
{
  btnOk->setEnabled(!edtTitle->text().isEmpty() && !edtLatitude->text().isEmpty() &&
                    !edtLongitude->text().isEmpty());
}

void TfrmMarkers::edtSearchKeyDown(int key)
{
  if (key == Qt::Key_Return || key == Qt::Key_Enter)
    btnSearch->click();
}

void TfrmMarkers::btnOkClick()
{
  if (!KestrelStaticMarker)
    return;
  TvxMapItemAttributes& attributes = KestrelStaticMarker->Attributes();
  const QString title = edtTitle->text();
  attributes.Add(StaticMarkerKey::Latitude, edtLatitude->text());
  attributes.Add(StaticMarkerKey::Longitude, edtLongitude->text());
  attributes.Add(StaticMarkerKey::Title, title);
  TStaticMarkers::SetMarkerName(KestrelStaticMarker, title);
  attributes.Add(StaticMarkerKey::Notes, Memo1->toPlainText());
  KestrelStaticMarker->SetHint(title);
  if (lbStaticMarkers) {
    if (EditMode) {
      for (int row = 0; row < lbStaticMarkers->count(); ++row)
        if (lbStaticMarkers->item(row)->text() == MarkerHoldTitle)
          lbStaticMarkers->item(row)->setText(title);
    } else {
      lbStaticMarkers->addItem(title);
    }
  }
  close();
}

void TfrmMarkers::btnCancelClick()
{
  if (KestrelStaticMarkers && KestrelStaticMarker) {
    if (EditMode) {
      TvxMapPushpin* pin = KestrelStaticMarker;
      TvxMapItemAttributes& attributes = pin->Attributes();
      TStaticMarkers::SetMarkerName(pin, MarkerHoldTitle);
      attributes.Add(StaticMarkerKey::Title, MarkerHoldTitle);
      TvxMapControlGeoPoint point = pin->Location().GeoPoint();
      attributes.Add(StaticMarkerKey::Latitude, MarkerHoldLatitude);
      // Held texts were numbers when the marker was made or loaded.
      if (const auto lat = NumberText::TryStrToFloat(MarkerHoldLatitude))
        point.Latitude = *lat;
      pin->SetLocation(point);
      attributes.Add(StaticMarkerKey::Longitude, MarkerHoldLongitude);
      if (const auto lon = NumberText::TryStrToFloat(MarkerHoldLongitude))
        point.Longitude = *lon;
      pin->SetLocation(point);
      attributes.Add(StaticMarkerKey::ImageCategory, MarkerHoldImageCategory);
      attributes.Add(StaticMarkerKey::ImageIndex, MarkerHoldImageIndex);
      attributes.Add(StaticMarkerKey::Notes, MarkerHoldNotes);
      pin->SetImage(MarkerHoldImage);
    } else {
      // By the edit's text, not the held title: an edited title matches
      // nothing and the new pin stays, without a row. Kept as designed.
      TvxMapItems& items = KestrelStaticMarkers->MapItems();
      const int count = items.Count();
      const QString title = edtTitle->text();
      for (int i = count - 1; i >= 0; --i) {
        if (TStaticMarkers::Text(items.Items(i), StaticMarkerKey::Title) != title)
          continue;
        if (items.Items(i) == KestrelStaticMarker)
          KestrelStaticMarker = nullptr;
        items.Delete(i);
      }
    }
  }
  hide();
}

void TfrmMarkers::ListClick(const QString& category)
{
  QListWidget* list = ListOf(category);
  const QList<QListWidgetItem*> selected = list->selectedItems();
  if (selected.isEmpty() || !KestrelStaticMarker)
    return;
  const int index = selected.first()->data(TfrmMarkers::ImageIndexRole).toInt();
  KestrelStaticMarker->Attributes().Add(StaticMarkerKey::ImageCategory, category);
  KestrelStaticMarker->Attributes().Add(StaticMarkerKey::ImageIndex, index);
  KestrelStaticMarker->SetImage(MarkerImageLists().ByCategory(category)->Image(index));
}

void TfrmMarkers::edtTitleExit()
{
  if (edtTitle->text() == MarkerHoldTitle || !lbStaticMarkers)
    return;
  for (int row = 0; row < lbStaticMarkers->count(); ++row) {
    if (lbStaticMarkers->item(row)->text() != edtTitle->text())
      continue;
    FInExit = true;
    Dialogs::Get().ShowMessage(QStringLiteral("This Marker Title Already Exists!  Please Choose a Unique Name."));
    edtTitle->setText(MarkerHoldTitle);
    edtTitle->setFocus();
    FInExit = false;
    return;
  }
}

void TfrmMarkers::SetMarkerCoordinate(bool latitude, double value)
{
  if (!KestrelStaticMarker)
    return;
  TvxMapControlGeoPoint point = KestrelStaticMarker->Location().GeoPoint();
  (latitude ? point.Latitude : point.Longitude) = value;
  KestrelStaticMarker->SetLocation(point);
}

void TfrmMarkers::CoordinateExit(QLineEdit* edit, bool latitude, const QString& message)
{
  if (edit->text().isEmpty())
    return;
  if (const auto value = NumberText::TryStrToFloat(edit->text())) {
    SetMarkerCoordinate(latitude, *value);
    return;
  }
  FInExit = true;
  Dialogs::Get().ShowMessage(message);
  edit->setFocus();
  FInExit = false;
}

void TfrmMarkers::edtLatitudeExit()
{
  CoordinateExit(edtLatitude, true, QStringLiteral("Invalid Latitude Value!"));
}

void TfrmMarkers::edtLongitudeExit()
{
  CoordinateExit(edtLongitude, false, QStringLiteral("Invalid Longitude Value!"));
}

void TfrmMarkers::btnSearchClick()
{
  const QString text = edtSearch->text();
  SearchList.clear();
  btnPrev->setEnabled(false);
  btnNext->setEnabled(false);
  if (text.isEmpty())
    return;
  const QString wanted = text.toUpper();
  for (const QString& category : MarkerCategory::TabOrder()) {
    const QListWidget* list = ListOf(category);
    for (int row = 0; row < list->count(); ++row)
      if (list->item(row)->text().toUpper().contains(wanted))
        SearchList.append({category, row});
  }
  SearchIndex = -1;
  if (SearchList.isEmpty())
    return;
  ShowSearchItem(SearchList.first());
  SearchIndex = 0;
  btnPrev->setEnabled(false);
  btnNext->setEnabled(SearchList.size() > 1);
}

void TfrmMarkers::ShowSearchItem(const TSearchResult& result)
{
  const int tab = int(MarkerCategory::TabOrder().indexOf(result.ListName));
  if (tab < 0)
    return;
  PageControl1->setCurrentIndex(tab);
  QListWidget* list = ListOf(result.ListName);
  // Selecting by code fires no click: the marker keeps its image.
  list->setCurrentRow(result.ListIndex);
  list->scrollToItem(list->item(result.ListIndex));
}

void TfrmMarkers::btnNextClick()
{
  ++SearchIndex;
  btnPrev->setEnabled(SearchIndex > 0);
  btnNext->setEnabled(SearchIndex < SearchList.size() - 1);
  if (SearchIndex >= 0 && SearchIndex < SearchList.size())
    ShowSearchItem(SearchList.at(SearchIndex));
}

void TfrmMarkers::btnPrevClick()
{
  --SearchIndex;
  btnPrev->setEnabled(SearchIndex > 0);
  btnNext->setEnabled(SearchIndex < SearchList.size() - 1);
  if (SearchIndex >= 0 && SearchIndex < SearchList.size())
    ShowSearchItem(SearchList.at(SearchIndex));
}

void TfrmMarkers::Image1Click()
{
  if (OnOpenUrl)
    OnOpenUrl(IconCollectionUrl);
  else
    QDesktopServices::openUrl(QUrl(IconCollectionUrl));
}

void TfrmMarkers::AddCustomRow(const QString& caption, int index)
{
  if (!lbCustom) {
    FPendingCustomRows.append({caption, index});
    return;
  }
  lbCustom->addItem(caption);
  SetListRowImage(lbCustom, lbCustom->count() - 1, MarkerImageLists().CustomImageList, index);
}

void TfrmMarkers::RefreshCustomStaticMarkers()
{
  // The image list is the static markers' own and always follows the
  // records; the tab's rows may wait until the dialog is first made.
  FPendingCustomRows.clear();
  if (lbCustom)
    lbCustom->clear();
  TMarkerImageList& images = MarkerImageLists().CustomImageList;
  if (!Globals::CustomImageInfoList) {
    images.Clear();
    return;
  }
  TStaticMarkers::RefreshCustomImages(*Globals::CustomImageInfoList, images,
                                      [this](const QString& caption, int index) { AddCustomRow(caption, index); });
  if (lbCustom)
    lbCustom->update();
}

void TfrmMarkers::SetLastCustomRowImage(int index)
{
  if (!lbCustom) {
    if (!FPendingCustomRows.isEmpty())
      FPendingCustomRows.last().second = index;
    return;
  }
  if (lbCustom->count() > 0)
    SetListRowImage(lbCustom, lbCustom->count() - 1, MarkerImageLists().CustomImageList, index);
}
