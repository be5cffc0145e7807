#include <trkapi/trkapi.h>

#include <stdio.h>

int main(void) {
    int error = 0;
    if (trk_open_file("no-such-file.trk", TRK_OPEN_CHECK, TRK_EVENTS_ALL, 1, &error) != NULL || error != -1)
        return 1;
    printf("version %s\n", trk_get_version());
    return 0;
}
