// A host process that has opened the log client for itself before it runs the server.
#include "kivo/om_log_client.h"

namespace {

__attribute__((constructor)) void OpenLogClient() {
    KivoOmLogClientInit("host", 4);
}

}  // namespace
