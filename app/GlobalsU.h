#pragma once

#include <QString>
#include <memory>
#include <vector>

// One user image of the "Custom" marker category.
struct TCustomImageRec
{
  QString FileName;      // full path of the image file
  QString Caption;       // text shown beside the image
  bool NewEntry = false; // added in the configuration dialog, not yet committed
  bool Delete = false;   // marked for removal in the configuration dialog
};

// Rows of caption text, each owning its image record.
class TCustomImageInfoList
{
public:
  int Count() const { return static_cast<int>(FRows.size()); }
  const QString& Strings(int index) const { return FRows.at(index).Caption; }
  TCustomImageRec& Objects(int index) { return *FRows.at(index).Rec; }
  const TCustomImageRec& Objects(int index) const { return *FRows.at(index).Rec; }

  int AddObject(const QString& caption, std::unique_ptr<TCustomImageRec> rec);
  void Delete(int index);
  void Clear() { FRows.clear(); }

  // Appends a record when the file exists; an image whose file is gone
  // drops out quietly, and with it from the next save.
  void AddItem(const QString& FileName, const QString& Caption, bool NewEntry);
  // Frees the records from the last to the first, then empties the list.
  void ClearItems();

private:
  struct TRow
  {
    QString Caption;
    std::unique_ptr<TCustomImageRec> Rec;
  };
  std::vector<TRow> FRows;
};

// Process-wide paths, set once during start-up. Empty until set; an empty
// ConfigDir means no configuration is at hand and nothing is loaded or saved.
namespace Globals
{
extern QString AppDir;
extern QString ConfigDir;
extern QString MarkerDir;
extern QString CacheDir;
extern QString LayersConfigFileName;
extern QString StaticMarkersConfigFileName;
extern QString CustomMarkersConfigFileName;
// Owned by the main form; null before its start-up ends and after it is destroyed.
extern TCustomImageInfoList* CustomImageInfoList;

// Clears every path; start-up begins from here.
void ResetPaths();

// Joins a directory and a relative path written with backslashes, the way
// the parent and the stored data write them, into a native path.
QString JoinPath(const QString& dir, const QString& relative);
}

