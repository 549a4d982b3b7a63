#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <type_traits>
#include <vector>

// Memory of tens of megabytes filled once and then read: a whole file read
// for parsing, the vertices of a big layer. Where the kernel has 2 MB pages
// they are asked for, so that filling 80 MB takes forty page faults instead
// of twenty thousand; on a virtual machine, where each fault costs tens of
// microseconds, that is most of the time a big Shapefile takes to load.
// Small sizes come from the ordinary heap.
class TvxLargeBlock
{
public:
  TvxLargeBlock() = default;
  // Throws std::bad_alloc when the memory cannot be had.
  explicit TvxLargeBlock(size_t ASize);
  TvxLargeBlock(TvxLargeBlock&& AOther) noexcept;
  TvxLargeBlock& operator=(TvxLargeBlock&& AOther) noexcept;
  TvxLargeBlock(const TvxLargeBlock&) = delete;
  TvxLargeBlock& operator=(const TvxLargeBlock&) = delete;
  ~TvxLargeBlock();

  std::byte* Data() const { return FData; }
  size_t Size() const { return FSize; }
  // Whether the block was mapped on its own with 2 MB pages advised.
  bool IsMapped() const { return FMapped != 0; }

  // The size from which a block is mapped on its own.
  static constexpr size_t MappedFrom = size_t(2) << 20;

private:
  void Release() noexcept;

  std::unique_ptr<std::byte[]> FHeap;
  std::byte* FData = nullptr;
  size_t FSize = 0;
  void* FMapBase = nullptr;
  size_t FMapped = 0;
};

// Hands out parts of large blocks and takes nothing back until the last
// user lets go of it: for points loaded together and dropped together. What
// a collection frees while editing stays in the arena till then.
class TvxBulkArena
{
public:
  // AExpected is what the first block holds: address space only, until used.
  explicit TvxBulkArena(size_t AExpected);
  TvxBulkArena(const TvxBulkArena&) = delete;
  TvxBulkArena& operator=(const TvxBulkArena&) = delete;

  // Throws std::bad_alloc.
  void* Allocate(size_t ASize, size_t AAlignment);
  size_t Used() const;

private:
  mutable std::mutex FLock;
  std::vector<TvxLargeBlock> FBlocks;
  size_t FExpected;
  size_t FOffset = 0;
  size_t FUsed = 0;
};

// A standard allocator over an arena, or over the heap when it has none.
// Containers that take another one's contents take its arena with them.
template <class T>
class TvxBulkAllocator
{
public:
  using value_type = T;
  using propagate_on_container_move_assignment = std::true_type;
  using propagate_on_container_swap = std::true_type;

  TvxBulkAllocator() noexcept = default;
  explicit TvxBulkAllocator(std::shared_ptr<TvxBulkArena> AArena) noexcept : FArena(std::move(AArena)) {}
  template <class U>
  TvxBulkAllocator(const TvxBulkAllocator<U>& AOther) noexcept : FArena(AOther.Arena())
  {
  }

  T* allocate(size_t ACount)
  {
    if (ACount > size_t(-1) / sizeof(T))
      throw std::bad_array_new_length();
    if (FArena)
      return static_cast<T*>(FArena->Allocate(ACount * sizeof(T), alignof(T)));
    return std::allocator<T>().allocate(ACount);
  }
  void deallocate(T* APointer, size_t ACount) noexcept
  {
    if (!FArena)
      std::allocator<T>().deallocate(APointer, ACount);
  }

  // A copied container starts on the heap: only a loader decides to share.
  TvxBulkAllocator select_on_container_copy_construction() const { return {}; }

  const std::shared_ptr<TvxBulkArena>& Arena() const noexcept { return FArena; }

  template <class U>
  bool operator==(const TvxBulkAllocator<U>& AOther) const noexcept
  {
    return FArena == AOther.Arena();
  }

private:
  std::shared_ptr<TvxBulkArena> FArena;
};
