#include "GlobalsU.h"

#include <QDir>
#include <QFileInfo>

int TCustomImageInfoList::AddObject(const QString& caption, std::unique_ptr<TCustomImageRec> rec)
{
  FRows.push_back({caption, std::move(rec)});
  return Count() - 1;
}

void TCustomImageInfoList::Delete(int index)
{
  FRows.erase(FRows.begin() + index);
}

void TCustomImageInfoList::AddItem(const QString& FileName, const QString& Caption, bool NewEntry)
{
  if (!QFileInfo::exists(FileName))
    return;
  auto rec = std::make_unique<TCustomImageRec>();
  rec->FileName = FileName;
  rec->Caption = Caption;
  rec->NewEntry = NewEntry;
  AddObject(Caption, std::move(rec));
}

void TCustomImageInfoList::ClearItems()
{
  while (!FRows.empty())
    FRows.pop_back();
}

namespace Globals
{
QString AppDir;
QString ConfigDir;
QString MarkerDir;
QString CacheDir;
QString LayersConfigFileName;
QString StaticMarkersConfigFileName;
QString CustomMarkersConfigFileName;
TCustomImageInfoList* CustomImageInfoList = nullptr;

void ResetPaths()
{
  AppDir.clear();
  ConfigDir.clear();
  MarkerDir.clear();
  CacheDir.clear();
  LayersConfigFileName.clear();
  StaticMarkersConfigFileName.clear();
  CustomMarkersConfigFileName.clear();
}

QString JoinPath(const QString& dir, const QString& relative)
{
  QString rel = relative;
  rel.replace(QLatin1Char('\\'), QLatin1Char('/'));
  QString base = dir;
  if (!base.isEmpty() && !base.endsWith(QLatin1Char('/')))
    base += QLatin1Char('/');
  return QDir::cleanPath(base + rel);
}
}
