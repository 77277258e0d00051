#pragma once

namespace nvxcore {

/// Sets libcurl and OpenSSL up for the process, once. Any thread.
///
/// Neither is ever torn down: transfers may be in flight when the process leaves, and the thread that drives
/// them runs until its very end.
void useCurlLibrary();

}  // namespace nvxcore
