#ifndef APP_CFG_KEY_CHANGE_H
#define APP_CFG_KEY_CHANGE_H

#include "app_cfg_mgr.h"
#include "app_cfg_wire.h"

namespace SystemServer {

// Rewrites an item's default, configuration file and backup, in this order, in the encryption of the request.
// The default keeps its own values. Returns the status of the reply for the connection of this descriptor.
// Throws when a file could not be read or written; what was rewritten until then stays so.
uint16_t ChangeEncryption(AppCfgMgr& manager, const AppCfgCryptoUpdateReq& request, int connFd);

} // namespace SystemServer

#endif
