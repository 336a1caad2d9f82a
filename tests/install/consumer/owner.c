/* An owner of somebody else's, in C: says why it cannot join the bus. */
#include <stdio.h>

#include <kivo/om_inspect_engine_client.h>
#include <kivo/os_msg.h>

int main(void) {
    const uint32_t result = OsProcAttach("owner");
    puts(OsMsgResultText(result));
    return result == OS_MSG_OK ? (int)InspectClientInit("owner_task") : 0;
}
