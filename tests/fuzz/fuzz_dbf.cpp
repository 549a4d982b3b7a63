// A dBASE table alone, with the encoding its driver byte names.
#include "FuzzSupport.h"
#include "vxDbfFileInfo.h"

#include <exception>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  Fuzz::TInput Input(AData, ASize);
  TvxDbfFileInfo Info;
  try
  {
    Info.LoadFromStream(Input.Device);
  }
  catch (const std::exception&)
  {
  }
  return 0;
}
