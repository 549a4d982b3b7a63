#include "vxLargeBlock.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace
{

constexpr size_t HugePage = size_t(2) << 20;
// What an arena adds when its expected size runs out.
constexpr size_t ArenaGrowth = size_t(2) << 20;

size_t RoundUp(size_t AValue, size_t AMultiple)
{
  if (AValue > size_t(-1) - (AMultiple - 1))
    throw std::bad_alloc();
  return (AValue + AMultiple - 1) / AMultiple * AMultiple;
}

} // namespace

// TvxLargeBlock

TvxLargeBlock::TvxLargeBlock(size_t ASize) : FSize(ASize)
{
  if (ASize == 0)
    return;
#if defined(__linux__)
  if (ASize >= MappedFrom)
  {
    // One page more than needed, so that the block can start on a 2 MB
    // boundary: a huge page can only back an aligned 2 MB of addresses.
    const size_t Length = RoundUp(ASize, HugePage);
    const size_t Asked = Length + HugePage;
    void* Base = mmap(nullptr, Asked, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (Base == MAP_FAILED)
      throw std::bad_alloc();
    const auto Start = reinterpret_cast<uintptr_t>(Base);
    const uintptr_t Aligned = (Start + HugePage - 1) & ~uintptr_t(HugePage - 1);
    if (Aligned > Start)
      munmap(Base, Aligned - Start);
    if (const uintptr_t End = Start + Asked, AlignedEnd = Aligned + Length; End > AlignedEnd)
      munmap(reinterpret_cast<void*>(AlignedEnd), End - AlignedEnd);
    FMapBase = reinterpret_cast<void*>(Aligned);
    FMapped = Length;
    FData = static_cast<std::byte*>(FMapBase);
    // Only advice: with the kernel's transparent huge pages off, 4 KB pages
    // serve as before.
    madvise(FMapBase, FMapped, MADV_HUGEPAGE);
    return;
  }
#endif
  FHeap = std::make_unique_for_overwrite<std::byte[]>(ASize);
  FData = FHeap.get();
}

TvxLargeBlock::TvxLargeBlock(TvxLargeBlock&& AOther) noexcept
  : FHeap(std::move(AOther.FHeap)), FData(std::exchange(AOther.FData, nullptr)), FSize(std::exchange(AOther.FSize, 0)),
    FMapBase(std::exchange(AOther.FMapBase, nullptr)), FMapped(std::exchange(AOther.FMapped, 0))
{
}

TvxLargeBlock& TvxLargeBlock::operator=(TvxLargeBlock&& AOther) noexcept
{
  if (&AOther != this)
  {
    Release();
    FHeap = std::move(AOther.FHeap);
    FData = std::exchange(AOther.FData, nullptr);
    FSize = std::exchange(AOther.FSize, 0);
    FMapBase = std::exchange(AOther.FMapBase, nullptr);
    FMapped = std::exchange(AOther.FMapped, 0);
  }
  return *this;
}

TvxLargeBlock::~TvxLargeBlock()
{
  Release();
}

void TvxLargeBlock::Release() noexcept
{
#if defined(__linux__)
  if (FMapped)
    munmap(FMapBase, FMapped);
#endif
  FHeap.reset();
  FData = nullptr;
  FSize = 0;
  FMapBase = nullptr;
  FMapped = 0;
}

// TvxBulkArena

TvxBulkArena::TvxBulkArena(size_t AExpected) : FExpected(AExpected)
{
}

void* TvxBulkArena::Allocate(size_t ASize, size_t AAlignment)
{
  const std::lock_guard Lock(FLock);
  if (!FBlocks.empty())
  {
    const TvxLargeBlock& Block = FBlocks.back();
    const size_t Offset = RoundUp(FOffset, AAlignment);
    if (Offset <= Block.Size() && ASize <= Block.Size() - Offset)
    {
      FOffset = Offset + ASize;
      FUsed += ASize;
      return Block.Data() + Offset;
    }
  }
  // A new block; the rest of the last one stays unused. Blocks come from
  // the allocator aligned for any type.
  const size_t Wanted = RoundUp(std::max<size_t>(ASize, 1), alignof(std::max_align_t));
  const size_t Size = std::max(Wanted, FBlocks.empty() ? FExpected : ArenaGrowth);
  try
  {
    FBlocks.emplace_back(Size);
  }
  catch (const std::bad_alloc&)
  {
    // The expected size may be more than can be had at once; what is asked
    // for now may still be.
    if (Size == Wanted)
      throw;
    FBlocks.emplace_back(Wanted);
  }
  FOffset = ASize;
  FUsed += ASize;
  return FBlocks.back().Data();
}

size_t TvxBulkArena::Used() const
{
  const std::lock_guard Lock(FLock);
  return FUsed;
}
