#pragma once

// Turns the records of a Shapefile and the rows of its dBASE table into
// items of a file layer: a dot per point, one path per line or polygon with
// a segment per part, each item with its row as attributes. Z records and
// MultiPatch make nothing.

#include "vxDbfFileInfo.h"
#include "vxMapMultiPointItems.h"
#include "vxShapeFileInfo.h"

#include <QIODevice>
#include <QVariant>

#include <memory>
#include <stdexcept>
#include <typeindex>
#include <unordered_map>
#include <vector>

class TvxMapItem;
class TvxMapItemFileLayer;
class TvxMapItems;

// Content that cannot become items: a row that is missing, a part outside
// its record, a value that does not convert to its field's type.
class EvxShapeFileLoadError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
  explicit EvxShapeFileLoadError(const QString& AMessage) : std::runtime_error(AMessage.toStdString()) {}
};

class TvxMapControlShapeFileLoader
{
public:
  explicit TvxMapControlShapeFileLoader(TvxMapItemFileLayer* AOwner);

  // ACodePage, the ".cpg" file, may be null. Throws on bad content and
  // leaves the items made so far for the layer to clear.
  void LoadFromStream(QIODevice& AShapes, QIODevice& ATable, QIODevice* ACodePage);

  TvxMapItemFileLayer* Owner() const { return FOwner; }
  TvxMapItems& MapItems() const { return *FMapItems; }
  // The table being loaded; null between loads.
  const TvxDbfFileInfo* Table() const { return FTable; }
  // Where the points of one load go, all together; null between loads.
  const std::shared_ptr<TvxBulkArena>& PointArena() const { return FPointArena; }

private:
  TvxMapItems* FMapItems;
  TvxMapItemFileLayer* FOwner;
  const TvxDbfFileInfo* FTable = nullptr;
  std::shared_ptr<TvxBulkArena> FPointArena;
};

// Makes the items of one record class.
class TvxMapControlShapeFileRecordConverter
{
public:
  explicit TvxMapControlShapeFileRecordConverter(TvxMapControlShapeFileLoader* ALoader) : FLoader(ALoader) {}
  TvxMapControlShapeFileRecordConverter(const TvxMapControlShapeFileRecordConverter&) = delete;
  TvxMapControlShapeFileRecordConverter& operator=(const TvxMapControlShapeFileRecordConverter&) = delete;
  virtual ~TvxMapControlShapeFileRecordConverter() = default;

  // The exact record class taken; the record is of this class in Convert.
  virtual std::type_index GetRecordClass() const = 0;
  virtual void Convert(const TvxShapeFileRecord& ARecord, const TvxDbfFileRecord& ARow) = 0;
  // The row's values as attributes, typed by their fields' letters.
  void CreateAttributes(TvxMapItem* AItem, const TvxDbfFileRecord& ARow);

protected:
  TvxMapControlShapeFileLoader* FLoader;

private:
  // A multi-point record gives every dot the same row: typed once.
  const TvxDbfFileRecord* FTypedRow = nullptr;
  std::vector<QVariant> FTypedValues;
  // The table's columns by name, stable: attributes taken in this order go
  // on the end of the item's sorted list.
  std::vector<size_t> FNameOrder;
};

using TvxMapControlShapeFileRecordConverterClass =
  std::unique_ptr<TvxMapControlShapeFileRecordConverter> (*)(TvxMapControlShapeFileLoader* ALoader);

class TvxMapControlShapeFilePointRecordConverter : public TvxMapControlShapeFileRecordConverter
{
public:
  using TvxMapControlShapeFileRecordConverter::TvxMapControlShapeFileRecordConverter;
  std::type_index GetRecordClass() const override;
  void Convert(const TvxShapeFileRecord& ARecord, const TvxDbfFileRecord& ARow) override;

protected:
  virtual TvxMapControlGeoPoint GetPointLocation(const TvxShapeFileRecord& ARecord) const;
};

// M values are dropped, as by every M converter.
class TvxMapControlShapeFilePointMRecordConverter : public TvxMapControlShapeFilePointRecordConverter
{
public:
  using TvxMapControlShapeFilePointRecordConverter::TvxMapControlShapeFilePointRecordConverter;
  std::type_index GetRecordClass() const override;

protected:
  TvxMapControlGeoPoint GetPointLocation(const TvxShapeFileRecord& ARecord) const override;
};

class TvxMapControlShapeFileMultiPointRecordConverter : public TvxMapControlShapeFileRecordConverter
{
public:
  using TvxMapControlShapeFileRecordConverter::TvxMapControlShapeFileRecordConverter;
  std::type_index GetRecordClass() const override;
  void Convert(const TvxShapeFileRecord& ARecord, const TvxDbfFileRecord& ARow) override;

protected:
  virtual int GetPointCount(const TvxShapeFileRecord& ARecord) const;
  virtual TvxMapControlGeoPoint GetPointLocation(const TvxShapeFileRecord& ARecord, int AIndex) const;
};

class TvxMapControlShapeFileMultiPointMRecordConverter : public TvxMapControlShapeFileMultiPointRecordConverter
{
public:
  using TvxMapControlShapeFileMultiPointRecordConverter::TvxMapControlShapeFileMultiPointRecordConverter;
  std::type_index GetRecordClass() const override;

protected:
  int GetPointCount(const TvxShapeFileRecord& ARecord) const override;
  TvxMapControlGeoPoint GetPointLocation(const TvxShapeFileRecord& ARecord, int AIndex) const override;
};

class TvxMapControlShapeFilePolylineRecordConverter : public TvxMapControlShapeFileRecordConverter
{
public:
  using TvxMapControlShapeFileRecordConverter::TvxMapControlShapeFileRecordConverter;
  std::type_index GetRecordClass() const override;
  void Convert(const TvxShapeFileRecord& ARecord, const TvxDbfFileRecord& ARow) override;

protected:
  virtual int GetPointCount(const TvxShapeFileRecord& ARecord) const;
  virtual TvxMapControlGeoPoint GetPointLocation(const TvxShapeFileRecord& ARecord, int AIndex) const;
  virtual int GetPartCount(const TvxShapeFileRecord& ARecord) const;
  virtual int GetPart(const TvxShapeFileRecord& ARecord, int AIndex) const;
  virtual TvxMapPathSegmentType GetSegmentType() const { return mstPolyline; }
  // The points from AFirst on, appended to the segment's points at once:
  // one call per part rather than per point, and no copy in between.
  virtual void AddPointLocations(const TvxShapeFileRecord& ARecord, int AFirst, int ACount,
                                 TvxMapControlGeoPointCollection& ALocations) const;
};

class TvxMapControlShapeFilePolylineMRecordConverter : public TvxMapControlShapeFilePolylineRecordConverter
{
public:
  using TvxMapControlShapeFilePolylineRecordConverter::TvxMapControlShapeFilePolylineRecordConverter;
  std::type_index GetRecordClass() const override;

protected:
  int GetPointCount(const TvxShapeFileRecord& ARecord) const override;
  TvxMapControlGeoPoint GetPointLocation(const TvxShapeFileRecord& ARecord, int AIndex) const override;
  int GetPartCount(const TvxShapeFileRecord& ARecord) const override;
  int GetPart(const TvxShapeFileRecord& ARecord, int AIndex) const override;
  void AddPointLocations(const TvxShapeFileRecord& ARecord, int AFirst, int ACount,
                         TvxMapControlGeoPointCollection& ALocations) const override;
};

// Rings are plain segments whatever their direction: the path's alternate
// fill makes holes of those inside others.
class TvxMapControlShapeFilePolygonRecordConverter : public TvxMapControlShapeFilePolylineRecordConverter
{
public:
  using TvxMapControlShapeFilePolylineRecordConverter::TvxMapControlShapeFilePolylineRecordConverter;
  std::type_index GetRecordClass() const override;

protected:
  TvxMapPathSegmentType GetSegmentType() const override { return mstPolygon; }
};

class TvxMapControlShapeFilePolygonMRecordConverter : public TvxMapControlShapeFilePolygonRecordConverter
{
public:
  using TvxMapControlShapeFilePolygonRecordConverter::TvxMapControlShapeFilePolygonRecordConverter;
  std::type_index GetRecordClass() const override;

protected:
  int GetPointCount(const TvxShapeFileRecord& ARecord) const override;
  TvxMapControlGeoPoint GetPointLocation(const TvxShapeFileRecord& ARecord, int AIndex) const override;
  int GetPartCount(const TvxShapeFileRecord& ARecord) const override;
  int GetPart(const TvxShapeFileRecord& ARecord, int AIndex) const override;
  void AddPointLocations(const TvxShapeFileRecord& ARecord, int AFirst, int ACount,
                         TvxMapControlGeoPointCollection& ALocations) const override;
};

// The converter classes, filled once at start-up, and during one load a
// converter of each by record class. Loads are synchronous on the main
// thread, so they never overlap.
class TvxMapControlShapeFileRecordsConverterFactory
{
public:
  void Register(TvxMapControlShapeFileRecordConverterClass AClass) { FItems.push_back(AClass); }
  // The eight converters.
  void RegisterConverters();
  void InitializeConverters(TvxMapControlShapeFileLoader* ALoader);
  void FinalizeConverters() { FConvertersCache.clear(); }
  // Null for a record class that makes no items.
  TvxMapControlShapeFileRecordConverter* GetConverter(const TvxShapeFileRecord& ARecord) const;

private:
  std::vector<TvxMapControlShapeFileRecordConverterClass> FItems;
  std::unordered_map<std::type_index, std::unique_ptr<TvxMapControlShapeFileRecordConverter>> FConvertersCache;
};

TvxMapControlShapeFileRecordsConverterFactory& vxShapeFileRecordsConverterFactory();

// Fills the record and converter factories and registers the loader with
// the file layers. Called once at start-up, on the main thread.
void vxRegisterShapeFileLoader();
