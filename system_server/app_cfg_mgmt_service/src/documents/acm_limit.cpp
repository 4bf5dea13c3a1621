#include "acm_limit.h"

namespace SystemServer {

POCO_IMPLEMENT_EXCEPTION(AcmLimitException, Poco::DataException, "Beyond a limit")

} // namespace SystemServer
