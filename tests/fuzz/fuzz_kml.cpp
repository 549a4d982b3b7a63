// A KML document through a file layer: the XML tree, the model, the loader.
#include "FuzzSupport.h"
#include "vxMapItemFileLayer.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  Fuzz::TInput Input(AData, ASize);
  TvxMapItemFileLayer Layer;
  Layer.LoadFromStream(Input.Device);
  // A failed load leaves nothing behind.
  if (!Layer.LastError().isEmpty() && Layer.MapItems().Count() != 0)
    __builtin_trap();
  return 0;
}
