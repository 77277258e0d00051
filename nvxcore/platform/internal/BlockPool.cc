#include "nvxcore/platform/internal/BlockPool.h"

#include <pthread.h>

#include <cstdlib>
#include <mutex>
#include <new>

namespace nvxcore {

namespace {

void* systemBlock(size_t size) {
  void* block = std::malloc(size);
  if (!block) throw std::bad_alloc();
  return block;
}

}  // namespace

#if defined(NVX_POOLS_OFF)

void* BlockPool::allocate(size_t size) { return systemBlock(size); }
void BlockPool::free(void* block, size_t) noexcept { std::free(block); }
void BlockPool::drain() noexcept {}

#else

const BlockPool::Limits BlockPool::kLimits;
constinit thread_local BlockPool::Magazine* BlockPool::tMagazine = nullptr;

namespace {

using Free = BlockPool::Free;
using List = BlockPool::List;
using Magazine = BlockPool::Magazine;

constexpr size_t kStockBytes = size_t{1} << 20;

struct Stock {
  std::mutex lock;
  List lists[BlockPool::kClassCount];
  size_t bytes;
};

constinit Stock gStock{};
constinit thread_local bool tEnded __attribute__((tls_model("initial-exec"))) = false;

void freeAll(Free* first) {
  while (first) {
    Free* next = first->next;
    std::free(first);
    first = next;
  }
}

void empty(Magazine& magazine) {
  for (List& list : magazine.lists) {
    freeAll(list.first);
    list = {};
  }
}

void endThread(void* magazine) {
  BlockPool::tMagazine = nullptr;
  tEnded = true;
  empty(*static_cast<Magazine*>(magazine));
  std::free(magazine);
}

Magazine* makeMagazine() {
  if (tEnded) return nullptr;
  static pthread_key_t key;
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  pthread_once(&once, [] { pthread_key_create(&key, endThread); });
  auto* magazine = static_cast<Magazine*>(std::calloc(1, sizeof(Magazine)));
  if (!magazine) return nullptr;
  pthread_setspecific(key, magazine);
  BlockPool::tMagazine = magazine;
  return magazine;
}

// Half of a full list to the stock, or to the system where the stock has enough.
void shed(size_t index) noexcept {
  List& list = BlockPool::tMagazine->lists[index];
  const size_t moved = list.count - list.count / 2;
  Free* const first = list.first;
  Free* last = first;
  for (size_t i = 1; i < moved; ++i) last = last->next;
  list.first = last->next;
  list.count -= moved;
  const size_t bytes = moved * BlockPool::sizeOfClass(index);
  {
    const std::lock_guard<std::mutex> hold(gStock.lock);
    List& stocked = gStock.lists[index];
    // One list of the stock at most fills one list of a thread.
    if (gStock.bytes + bytes <= kStockBytes && stocked.count + moved <= BlockPool::kLimits.of[index]) {
      last->next = stocked.first;
      stocked.first = first;
      stocked.count += moved;
      gStock.bytes += bytes;
      return;
    }
  }
  last->next = nullptr;
  freeAll(first);
}

}  // namespace

// What the stock has of a class, or one block of the system.
void* BlockPool::allocateElsewhere(size_t size) {
  if (size > kLargest) return systemBlock(size);
  const size_t index = classOf(size);
  if (Magazine* magazine = tMagazine ? tMagazine : makeMagazine()) {
    const std::lock_guard<std::mutex> hold(gStock.lock);
    List& stocked = gStock.lists[index];
    if (Free* block = stocked.first) {
      gStock.bytes -= stocked.count * sizeOfClass(index);
      magazine->lists[index] = {block->next, stocked.count - 1};
      stocked = {};
      return block;
    }
  }
  return systemBlock(sizeOfClass(index));
}

void BlockPool::freeElsewhere(void* block, size_t size) noexcept {
  if (size > kLargest || (!tMagazine && !makeMagazine())) return std::free(block);
  const size_t index = classOf(size);
  if (tMagazine->lists[index].count >= kLimits.of[index]) shed(index);
  free(block, size);
}

void BlockPool::drain() noexcept {
  if (tMagazine) empty(*tMagazine);
  const std::lock_guard<std::mutex> hold(gStock.lock);
  for (List& list : gStock.lists) {
    freeAll(list.first);
    list = {};
  }
  gStock.bytes = 0;
}

#endif

}  // namespace nvxcore
