#pragma once

// An item layer filled from a KML file or a Shapefile. The readers live in
// the formats library, which registers its loaders at start-up, so that this
// library never depends on it.

#include "vxCustomMapItemLayer.h"

#include <QIODevice>

#include <functional>
#include <stdexcept>

class TvxMapItemFileLayer;

enum TvxMapItemFileType
{
  miftKml,
  miftShape
};

// A file that cannot be opened or read.
class EFOpenError : public std::runtime_error
{
public:
  using std::runtime_error::runtime_error;
};

// A file that would take more memory to load than a load may have.
class EFTooLargeError : public EFOpenError
{
public:
  using EFOpenError::EFOpenError;
};

// The loaders by file type. A loader fills the layer's items and throws on
// bad content.
class TvxRegisteredMapItemFileLoaders
{
public:
  using TKmlLoader = std::function<void(TvxMapItemFileLayer&, QIODevice& AStream)>;
  using TShapeLoader =
    std::function<void(TvxMapItemFileLayer&, QIODevice& AShapes, QIODevice& ATable, QIODevice* ACodePage)>;

  void RegisterKmlLoader(TKmlLoader ALoader) { FKmlLoader = std::move(ALoader); }
  void RegisterShapeLoader(TShapeLoader ALoader) { FShapeLoader = std::move(ALoader); }
  const TKmlLoader& KmlLoader() const { return FKmlLoader; }
  const TShapeLoader& ShapeLoader() const { return FShapeLoader; }

private:
  TKmlLoader FKmlLoader;
  TShapeLoader FShapeLoader;
};

// The process-wide registry, filled on the main thread at start-up.
TvxRegisteredMapItemFileLoaders& vxRegisteredMapItemFileLoaders();

class TvxMapItemFileLayer : public TvxCustomMapItemLayer
{
public:
  explicit TvxMapItemFileLayer(TvxMapLayers* ACollection = nullptr);
  ~TvxMapItemFileLayer() override;

  bool Active() const { return FActive; }
  // Activating loads FileName; deactivating clears the items.
  void SetActive(bool AValue);
  const QString& FileName() const { return FFileName; }
  void SetFileName(const QString& AValue);
  TvxMapItemFileType FileType() const { return FFileType; }
  void SetFileType(TvxMapItemFileType AValue);

  // Bad content leaves the layer empty and inactive without a message; a
  // file that cannot be read, is no regular file, or is too large to load
  // throws EFOpenError.
  void LoadFromFile(const QString& AFileName);
  void LoadFromStream(QIODevice& AStream);
  void LoadShapeFileFromStream(QIODevice& AShapes, QIODevice& ATable);
  void LoadShapeFileFromStream(QIODevice& AShapes, QIODevice& ATable, QIODevice* ACodePage);

  // The failure the last load swallowed, empty after a good load, so that
  // tools can tell why a layer came up empty.
  const QString& LastError() const { return FLastError; }

  // A restore in steps keeps Active until it ends.
  void BeginRestore() { FRestoring = true; }
  void EndRestore();

private:
  // Loading and clearing on a change of Active; not the layer's own
  // activation, which follows membership of a control's stack.
  void ActivateFile();
  void DeactivateFile();
  template <class TLoad>
  void RunLoader(TLoad ALoad);

  bool FActive = false;
  bool FLoadedActive = false;
  QString FFileName;
  TvxMapItemFileType FFileType = miftKml;
  QString FLastError;
  bool FRestoring = false;
};
