#include "TestRegistry.h"
#include "vxLargeBlock.h"

#include <QTest>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

class TestVxLargeBlock : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void blocks();
  void arena();
  void vectorsOverAnArena();
};

void TestVxLargeBlock::blocks()
{
  TvxLargeBlock Empty;
  QCOMPARE(Empty.Size(), size_t(0));
  QVERIFY(!Empty.Data());

  TvxLargeBlock Small(1000);
  QVERIFY(!Small.IsMapped());
  std::memset(Small.Data(), 1, Small.Size());

  // A big one must start on a 2 MB boundary, or no huge page can back it,
  // and all of an odd size must be writable.
  const size_t Size = (size_t(5) << 20) + 12345;
  TvxLargeBlock Big(Size);
  QCOMPARE(Big.Size(), Size);
#if defined(__linux__)
  QVERIFY(Big.IsMapped());
  QCOMPARE(reinterpret_cast<uintptr_t>(Big.Data()) % (uintptr_t(2) << 20), uintptr_t(0));
#endif
  std::memset(Big.Data(), 0xA5, Size);
  QCOMPARE(Big.Data()[Size - 1], std::byte(0xA5));

  // Moves hand the memory over once; the one moved from owns nothing.
  std::byte* const Data = Big.Data();
  TvxLargeBlock Moved(std::move(Big));
  QCOMPARE(Moved.Data(), Data);
  QVERIFY(!Big.Data());
  Small = std::move(Moved);
  QCOMPARE(Small.Data(), Data);
  QCOMPARE(Small.Size(), Size);
  QCOMPARE(Small.Data()[0], std::byte(0xA5));
}

void TestVxLargeBlock::arena()
{
  // Parts are aligned as asked, never overlap, and go on past the expected
  // size into further blocks, including one bigger than the growth step.
  TvxBulkArena Arena(100);
  std::vector<std::pair<std::byte*, size_t>> Parts;
  size_t Asked = 0;
  for (const auto& [Size, Alignment] : std::vector<std::pair<size_t, size_t>>{
         {3, 1}, {16, 8}, {40, 16}, {1, 1}, {64, 8}, {size_t(3) << 20, 8}, {24, 8}, {7, 4}})
  {
    auto* Part = static_cast<std::byte*>(Arena.Allocate(Size, Alignment));
    QCOMPARE(reinterpret_cast<uintptr_t>(Part) % Alignment, uintptr_t(0));
    std::memset(Part, int(Parts.size()), Size);
    Parts.emplace_back(Part, Size);
    Asked += Size;
  }
  QCOMPARE(Arena.Used(), Asked);
  for (size_t I = 0; I < Parts.size(); ++I)
  {
    const auto [Part, Size] = Parts[I];
    QVERIFY(std::all_of(Part, Part + Size, [I](std::byte AByte) { return AByte == std::byte(I); }));
  }
  std::sort(Parts.begin(), Parts.end());
  for (size_t I = 1; I < Parts.size(); ++I)
    QVERIFY(Parts[I - 1].first + Parts[I - 1].second <= Parts[I].first);

  // More expected than can be had still serves what is asked.
  TvxBulkArena Greedy(size_t(1) << 60);
  QVERIFY(Greedy.Allocate(64, 8));
  QCOMPARE(Greedy.Used(), size_t(64));
}

void TestVxLargeBlock::vectorsOverAnArena()
{
  using TVector = std::vector<double, TvxBulkAllocator<double>>;
  auto Arena = std::make_shared<TvxBulkArena>(1024);
  TVector Shared{TvxBulkAllocator<double>(Arena)};
  Shared.assign({1, 2, 3});
  // Growing past what it had reallocates inside the arena and keeps values.
  for (int I = 0; I < 1000; ++I)
    Shared.push_back(I);
  QCOMPARE(Shared[2], 3.0);
  QCOMPARE(Shared.back(), 999.0);
  QVERIFY(Arena->Used() >= 1003 * sizeof(double));

  // A copy lives on the heap; a move takes the arena along, and the arena
  // outlives every vector that uses it, not the one who made it.
  TVector Copy(Shared);
  QVERIFY(!Copy.get_allocator().Arena());
  TVector Heap;
  Heap = std::move(Shared);
  QCOMPARE(Heap.get_allocator().Arena(), Arena);
  const std::weak_ptr<TvxBulkArena> Watch = Arena;
  Arena.reset();
  QVERIFY(!Watch.expired());
  QCOMPARE(Heap[1002], 999.0);
  Heap = TVector();
  QVERIFY(Watch.expired());
  QCOMPARE(Copy[1002], 999.0);
}

MAPWRIGHT_TEST_CLASS(TestVxLargeBlock)

#include "tst_vxLargeBlock.moc"
