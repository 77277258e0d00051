#include "nvxcore/platform/internal/BlockPool.h"

#include <pthread.h>

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define NVX_POOLS_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define NVX_POOLS_OFF 1
#endif
#endif

namespace nvxcore {

namespace {

void* systemBlock(size_t size) {
  void* block = std::malloc(size);
  if (!block) throw std::bad_alloc();
  return block;
}

#if !defined(NVX_POOLS_OFF)

struct Free {
  Free* next;
};

// Steps of 16 bytes up to 512, then of 32: what a step wastes counts where messages are empty and many.
constexpr size_t kFineStep = 16;
constexpr size_t kFineLimit = 512;
constexpr size_t kFineCount = kFineLimit / kFineStep;
constexpr size_t kCoarseStep = 32;
constexpr size_t kLargest = 8192 + 64;  // a page-sized string with its header fits
constexpr size_t kClassCount = kFineCount + (kLargest - kFineLimit) / kCoarseStep;

inline size_t classOf(size_t size) {
  if (size <= kFineLimit) return (size - 1) / kFineStep;
  return kFineCount + (size - kFineLimit - 1) / kCoarseStep;
}

inline size_t sizeOfClass(size_t index) {
  if (index < kFineCount) return (index + 1) * kFineStep;
  return kFineLimit + (index - kFineCount + 1) * kCoarseStep;
}

// A list is halved when it holds more than this, through the central stock.
constexpr size_t kListBytes = size_t{64} << 10;
constexpr size_t kStockBytes = size_t{1} << 20;

struct List {
  Free* first;
  size_t bytes;
};

struct Magazine {
  List lists[kClassCount];
};

struct Stock {
  std::mutex lock;
  List lists[kClassCount];
  size_t bytes;
};

// Plain, without a guard at each use: all zero is empty.
constinit Stock gStock{};
constinit thread_local Magazine* tMagazine __attribute__((tls_model("initial-exec"))) = nullptr;
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
  tMagazine = nullptr;
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
  tMagazine = magazine;
  return magazine;
}

// What the stock has of a class, or one block of the system.
void* refill(size_t index) {
  Magazine* magazine = tMagazine ? tMagazine : makeMagazine();
  if (magazine) {
    const std::lock_guard<std::mutex> hold(gStock.lock);
    List& stocked = gStock.lists[index];
    if (Free* block = stocked.first) {
      // One list of the stock at most fills one list of a thread.
      gStock.bytes -= stocked.bytes;
      List& list = magazine->lists[index];
      list.first = block->next;
      list.bytes = stocked.bytes - sizeOfClass(index);
      stocked = {};
      return block;
    }
  }
  return systemBlock(sizeOfClass(index));
}

void shed(size_t index) noexcept {
  List& list = tMagazine->lists[index];
  const size_t size = sizeOfClass(index);
  Free* last = list.first;
  size_t moved = size;
  while (moved < kListBytes / 2) {
    last = last->next;
    moved += size;
  }
  Free* first = list.first;
  list.first = last->next;
  list.bytes -= moved;
  {
    const std::lock_guard<std::mutex> hold(gStock.lock);
    List& stocked = gStock.lists[index];
    if (gStock.bytes + moved <= kStockBytes && stocked.bytes + moved <= kListBytes) {
      last->next = stocked.first;
      stocked.first = first;
      stocked.bytes += moved;
      gStock.bytes += moved;
      return;
    }
  }
  last->next = nullptr;
  freeAll(first);
}

#endif

}  // namespace

#if defined(NVX_POOLS_OFF)

void* BlockPool::allocate(size_t size) { return systemBlock(size); }
void BlockPool::free(void* block, size_t) noexcept { std::free(block); }
void BlockPool::drain() noexcept {}

#else

void* BlockPool::allocate(size_t size) {
  if (size > kLargest) [[unlikely]]
    return systemBlock(size);
  const size_t index = classOf(size);
  if (Magazine* magazine = tMagazine) [[likely]] {
    List& list = magazine->lists[index];
    if (Free* block = list.first) [[likely]] {
      list.first = block->next;
      list.bytes -= sizeOfClass(index);
      return block;
    }
  }
  return refill(index);
}

void BlockPool::free(void* block, size_t size) noexcept {
  if (size > kLargest) [[unlikely]]
    return std::free(block);
  Magazine* magazine = tMagazine ? tMagazine : makeMagazine();
  if (!magazine) [[unlikely]]
    return std::free(block);
  const size_t index = classOf(size);
  List& list = magazine->lists[index];
  auto* free = static_cast<Free*>(block);
  free->next = list.first;
  list.first = free;
  list.bytes += sizeOfClass(index);
  if (list.bytes > kListBytes) [[unlikely]]
    shed(index);
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
