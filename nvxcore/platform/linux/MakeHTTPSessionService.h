#pragma once

#include <memory>

namespace nvxcore {

class HTTPSessionService;

/// The HTTP session service for this system. Called while the platform settles: it must neither ask for the
/// platform in force nor start a thread before its first session.
std::shared_ptr<HTTPSessionService> makeHTTPSessionService();

}  // namespace nvxcore
