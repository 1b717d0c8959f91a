/* examples/list_modules.c - example: lists the modules on this machine with their versions.
 * SPDX-License-Identifier: MIT */
#include <lib_tavu_2.h>
#include <stdio.h>

int main(void) {
    int found = 0;
    for (int port = 0; port < TAVU_PORT_CNT; ++port) {
        if (TAVUOpenDevice(port) != TAVU_SUCCESS) {
            continue; /* no such device node, in use, or nothing that answers */
        }
        VER_INFO version = {{0}, {0}, {0}};
        if (TAVUShowVer(port, &version) == TAVU_SUCCESS) {
            printf("port %d: firmware %s, build %s, library %s\n", port, version.fw, version.model,
                   version.api);
            ++found;
        } else {
            printf("port %d: a module answers, but not with its version\n", port);
        }
        TAVUCloseDevice(port);
    }
    printf("%d module%s found\n", found, found == 1 ? "" : "s");
    return found > 0 ? 0 : 1;
}
