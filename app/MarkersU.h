#pragma once

// The marker editor: title, position, notes and image of one static
// marker. It stays open beside the map without modality, so that a click
// on the map can move the marker; the marker is live on the map the whole
// time and Cancel puts it back.

#include "LazyDialogU.h"

#include <QImage>
#include <QList>
#include <functional>

class QButtonGroup;
class QFrame;
class QGridLayout;
class QStackedWidget;
class QToolButton;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class TMarkerImageList;
class TvxCustomMapControl;
class TvxMapItemLayer;
class TvxMapPushpin;

// One hit of the image search: a category and a row of its list.
struct TSearchResult
{
  QString ListName;
  int ListIndex = 0;
};

// Pages with their tabs in as many rows as the width needs, so that all
// eight categories stay in sight at the dialog's smallest size.
class TPageControl : public QWidget
{
  Q_OBJECT

public:
  explicit TPageControl(QWidget* parent = nullptr);

  int addTab(QWidget* page, const QString& caption);
  int count() const;
  QWidget* widget(int index) const;
  int currentIndex() const;
  QWidget* currentWidget() const;
  void setCurrentIndex(int index);
  void setCurrentWidget(QWidget* page);
  QToolButton* tabButton(int index) const;

protected:
  void resizeEvent(QResizeEvent* event) override;

private:
  void ArrangeTabs();

  QGridLayout* FTabs = nullptr;
  QButtonGroup* FGroup = nullptr;
  QStackedWidget* FPages = nullptr;
  QList<QToolButton*> FButtons;
  int FColumns = 0;
};

class TfrmMarkers : public TLazyDialog
{
  Q_OBJECT

public:
  explicit TfrmMarkers(QWidget* parent = nullptr);
  ~TfrmMarkers() override;

  // The controls below are made at the first showing or use: every reader
  // from outside the public methods calls EnsureControls first.

  // Handed over by the main form before showing.
  TvxCustomMapControl* MapControl = nullptr;
  TvxMapItemLayer* KestrelStaticMarkers = nullptr;
  TvxMapPushpin* KestrelStaticMarker = nullptr; // made here when adding
  QListWidget* lbStaticMarkers = nullptr;
  bool EditMode = false;
  // The window the dialog opens centred on.
  QWidget* CentreOn = nullptr;
  // The mouse left the dialog: the next mouse-up on the map counts.
  std::function<void()> OnMouseLeave;
  // Opens the icon collection's page; replaced in tests.
  std::function<void(const QString& url)> OnOpenUrl;

  // What Cancel and the title check go back to.
  QString MarkerHoldTitle;
  QString MarkerHoldNotes;
  QString MarkerHoldLatitude;
  QString MarkerHoldLongitude;
  QString MarkerHoldImageCategory;
  QString MarkerHoldImageIndex;
  QImage MarkerHoldImage;

  QList<TSearchResult> SearchList;
  int SearchIndex = -1;

  // The public page of the icon collections the images come from.
  static const QString IconCollectionUrl;

  // Shows without modality; FormShow runs on every showing.
  void Show();
  void setVisible(bool visible) override;
  // What the main form hands over: for a new marker the proposed title and
  // the clicked point, for an existing one the pushpin.
  void ShowForNewMarker(TvxCustomMapControl* map, TvxMapItemLayer* layer, QListWidget* list, const QString& title,
                        double latitude, double longitude);
  void ShowForMarker(TvxCustomMapControl* map, TvxMapItemLayer* layer, QListWidget* list, TvxMapPushpin* marker);
  // A click on the map while the dialog shows: the boxes and the marker follow.
  void MoveMarker(double latitude, double longitude);
  bool OnMiscPage() const;

  // Handlers, as the form wires them.
  void FormShow();
  void FormResize();
  void FormMouseLeave();
  void edtTitleChange();
  void edtSearchKeyDown(int key);
  void btnOkClick();
  void btnCancelClick();
  void ListClick(const QString& category);
  void edtTitleExit();
  void edtLatitudeExit();
  void edtLongitudeExit();
  void btnSearchClick();
  void ShowSearchItem(const TSearchResult& result);
  void btnNextClick();
  void btnPrevClick();
  void Image1Click();
  // Rebuilds the Custom tab from the custom image records.
  void RefreshCustomStaticMarkers();

  // The image list boxes, here and in the configuration dialog: three
  // columns of 37-pixel rows, each row bound to an image by index.
  static constexpr int ImageIndexRole = Qt::UserRole;
  static void SetUpImageListBox(QListWidget* list, const QSize& iconSize);
  static void SetListRowImage(QListWidget* list, int row, const TMarkerImageList& images, int index);
  static void LayOutColumns(QListWidget* list);
  // Binds the last row of the Custom tab to another image, until the next
  // refresh of the tab.
  void SetLastCustomRowImage(int index);

  // The list of a category's tab; null for unknown texts.
  QListWidget* ListOf(const QString& category) const;
  // Whether the key filter of the coordinate boxes lets this text through.
  static bool CoordinateKeyAllowed(const QString& text);

  // Controls, named as in the design.
  QFrame* pnlTop = nullptr;
  QLabel* Label1 = nullptr;
  QLineEdit* edtTitle = nullptr;
  QLabel* Ima = nullptr;
  QLabel* Image1 = nullptr;
  QFrame* pnlImages = nullptr;
  TPageControl* PageControl1 = nullptr;
  QWidget* TabSheet1 = nullptr;
  QWidget* TabSheet2 = nullptr;
  QWidget* TabSheet3 = nullptr;
  QWidget* TabSheet4 = nullptr;
  QWidget* TabSheet5 = nullptr;
  QWidget* TabSheet6 = nullptr;
  QWidget* TabSheet7 = nullptr;
  QWidget* TabSheet8 = nullptr;
  QListWidget* lbIndustry = nullptr;
  QListWidget* lbNature = nullptr;
  QListWidget* lbTransportation = nullptr;
  QListWidget* lbPeople = nullptr;
  QListWidget* lbMedia = nullptr;
  QListWidget* lbTourism = nullptr;
  QListWidget* lbMisc = nullptr;
  QListWidget* lbCustom = nullptr;
  QFrame* pnlSearch = nullptr;
  QLabel* Label4 = nullptr;
  QLineEdit* edtSearch = nullptr;
  QPushButton* btnSearch = nullptr;
  QPushButton* btnPrev = nullptr;
  QPushButton* btnNext = nullptr;
  QFrame* pnlBottom = nullptr;
  QLabel* Label2 = nullptr;
  QLineEdit* edtLatitude = nullptr;
  QLabel* Label3 = nullptr;
  QLineEdit* edtLongitude = nullptr;
  QLabel* Notes = nullptr;
  QPlainTextEdit* Memo1 = nullptr;
  QFrame* Panel2 = nullptr;
  QPushButton* btnOk = nullptr;
  QPushButton* btnCancel = nullptr;

protected:
  void showEvent(QShowEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void leaveEvent(QEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

private:
  void BuildControls() override;
  // A row of the Custom tab, or of the rows waiting for the tab to be made.
  void AddCustomRow(const QString& caption, int index);
  QListWidget* AddTab(QWidget*& sheet, const QString& category);
  void FillList(QListWidget* list, const QString& category);
  // Runs a handler; what escapes it is shown in the general failure box.
  void RunHandler(const std::function<void()>& handler);
  // Geographic point of the marker with one coordinate replaced.
  void SetMarkerCoordinate(bool latitude, double value);
  // The exit check of a coordinate box: a number moves the marker, other
  // text gets the message and the focus back.
  void CoordinateExit(QLineEdit* edit, bool latitude, const QString& message);
  bool FInExit = false;
  // The Custom tab's rows while its list does not exist yet.
  QList<std::pair<QString, int>> FPendingCustomRows;
};

extern TfrmMarkers* frmMarkers;
