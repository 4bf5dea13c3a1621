// The refusal of a document that may be well-formed, but is beyond a limit or could not be saved so that it
// loads again.
#ifndef ACM_LIMIT_H
#define ACM_LIMIT_H

#include <Poco/Exception.h>

namespace SystemServer {

// A file that is refused in this way is never overwritten by a copy, unlike one that cannot be parsed. The
// message names the limit.
POCO_DECLARE_EXCEPTION_CODE(, AcmLimitException, Poco::DataException, 0)

} // namespace SystemServer

#endif
