// What the service refuses although it may be a good document: one that is beyond a limit, or that could not
// be written so that it loads again.
#ifndef ACM_LIMIT_H
#define ACM_LIMIT_H

#include <Poco/Exception.h>

namespace SystemServer {

// Unlike a file that cannot be parsed, one that is refused so is never replaced by a copy. The message names
// the limit.
POCO_DECLARE_EXCEPTION_CODE(, AcmLimitException, Poco::DataException, 0)

} // namespace SystemServer

#endif
