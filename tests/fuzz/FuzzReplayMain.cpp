// Stands in for libFuzzer's main where there is none (g++): runs each file
// named, or each file of each folder named, through the target once, so
// that the sanitizer build replays the corpus. Options ("-runs=0") are
// accepted for libFuzzer's sake and ignored.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize);

namespace
{
bool Run(const std::filesystem::path& APath)
{
  std::ifstream LFile(APath, std::ios::binary);
  if (!LFile)
  {
    std::fprintf(stderr, "cannot read %s\n", APath.c_str());
    return false;
  }
  const std::vector<char> LBytes((std::istreambuf_iterator<char>(LFile)), std::istreambuf_iterator<char>());
  // A copy of exactly the input's size, so that ASan sees any read past its end.
  std::vector<uint8_t> LData(LBytes.begin(), LBytes.end());
  LLVMFuzzerTestOneInput(LData.data(), LData.size());
  return true;
}
} // namespace

int main(int argc, char** argv)
{
  LLVMFuzzerInitialize(&argc, &argv);
  std::vector<std::filesystem::path> LFiles;
  for (int I = 1; I < argc; ++I)
  {
    const std::string LArg = argv[I];
    if (LArg.starts_with('-'))
      continue;
    std::error_code LError;
    if (std::filesystem::is_directory(LArg, LError))
    {
      for (const auto& LEntry : std::filesystem::directory_iterator(LArg))
        if (LEntry.is_regular_file())
          LFiles.push_back(LEntry.path());
    }
    else
      LFiles.push_back(LArg);
  }
  std::sort(LFiles.begin(), LFiles.end());
  if (LFiles.empty())
  {
    std::fprintf(stderr, "usage: %s FILE_OR_FOLDER...\n", argv[0]);
    return 2;
  }
  for (const auto& LPath : LFiles)
  {
    if (!Run(LPath))
      return 2;
  }
  std::printf("%zu inputs replayed\n", LFiles.size());
  return 0;
}
