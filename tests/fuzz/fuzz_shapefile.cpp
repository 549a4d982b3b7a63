// A Shapefile and its table through a file layer. The first two bytes give
// the length of the table; the table follows, then the shapes.
#include "FuzzSupport.h"
#include "vxMapItemFileLayer.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  if (ASize < 2)
    return 0;
  const size_t TableSize = std::min(ASize - 2, size_t(AData[0] | AData[1] << 8));
  Fuzz::TInput Table(AData + 2, TableSize);
  Fuzz::TInput Shapes(AData + 2 + TableSize, ASize - 2 - TableSize);
  TvxMapItemFileLayer Layer;
  Layer.LoadShapeFileFromStream(Shapes.Device, Table.Device);
  if (!Layer.LastError().isEmpty() && Layer.MapItems().Count() != 0)
    __builtin_trap();
  return 0;
}
