#include <gtest/gtest.h>

#include <string>

#include "nvxcore/connection/DASHDataInputProvider.h"
#include "nvxcore/connection/JavaDataInputPBSupport.h"
#include "nvxcore/transport/transforms/NVXx_HTKNSDataZlib.h"
#include "tests/message/memory/CountingAllocator.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::testing {
namespace {

class SubdataMemoryTest : public NVXTest {};

TEST_F(SubdataMemoryTest, ALengthThatNothingStandsBehindTakesNoMemory) {
  if (!allocationsAreCounted()) GTEST_SKIP() << "the sanitizer has the allocator";
  expectConsoleLine("Needed ");
  for (const std::string& length : {std::string("\x80\0\0\0", 4), std::string("\x7F\xFF\xFF\xFF"),
                                    std::string("\x80\0\0\1", 4), std::string("\0\1\0\0", 4)}) {
    DASHDataInputProvider provider;
    provider.AddData(Data::copy(length + std::string(1000, 'x')));
    provider.DoneAdding();
    utils::JavaDataInput input(&provider);
    dash::JavaDataInputPBSupport support(&input);
    resetAllocationPeak();
    const size_t before = allocationCount().bytes;
    Error error;
    EXPECT_THROW(support.DataForSubdata(&error), utils::DataInputProvider::NotEnoughDataException);
    EXPECT_LT(allocationCount().peakBytes - before, 4096u);
  }
}

TEST_F(SubdataMemoryTest, WhatInflatesTakesNoMoreThanTheLimitAsksFor) {
  if (!allocationsAreCounted()) GTEST_SKIP() << "the sanitizer has the allocator";
  const std::string zeros(64 << 20, '\0');
  const Data bomb = NVXx_htk_dataByGzippingBytes(zeros.data(), zeros.size(), 9);
  constexpr size_t kLimit = 1 << 20;
  NVXx_htk_setInflatedLengthLimit(kLimit);
  resetAllocationPeak();
  const size_t before = allocationCount().bytes;
  Error error;
  EXPECT_FALSE(NVXx_htk_dataByInflatingData(bomb, &error));
  EXPECT_TRUE(error.is(NVXx_HTKNSDataZlibErrorDomain, kHTKNSDataZlibErrorFailed));
  // zlib's own state takes some 40 KB.
  EXPECT_LT(allocationCount().peakBytes - before, kLimit + (100 << 10));
  NVXx_htk_setInflatedLengthLimit(size_t{256} << 20);
}

}  // namespace
}  // namespace nvxcore::testing
