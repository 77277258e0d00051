#pragma once

namespace nvxcore {

/// Sets libcurl and OpenSSL up for the process, once. Any thread.
///
/// Neither is ever torn down by the library: transfers may be in flight when the process leaves. Where the
/// host does so, the threads that drive them stop before.
void useCurlLibrary();

}  // namespace nvxcore
