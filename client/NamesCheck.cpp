// The client's public header repeats the service's bus names so that, once installed, it
// stands alone; this unit holds them equal to the names the service is built with.
#include <string_view>

#include "SysSrvNames.h"
#include "syssrv-client.h"

static_assert(std::string_view(SYS_SRV_BUS_NAME) == SYSSRV_BUS_NAME,
              "syssrv-client.h: SYS_SRV_BUS_NAME differs from the service's bus name");
static_assert(std::string_view(SYS_SRV_OBJECT_PATH) == SYSSRV_OBJECT_PATH,
              "syssrv-client.h: SYS_SRV_OBJECT_PATH differs from the service's object path");
static_assert(std::string_view(SYS_SRV_INTERFACE) == SYSSRV_INTERFACE,
              "syssrv-client.h: SYS_SRV_INTERFACE differs from the service's interface");
