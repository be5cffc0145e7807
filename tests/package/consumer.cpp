#include <trkapi/trkapi.h>

#include <iostream>

int main() {
    int error = 0;
    CONFIG config{MISSING_DATA, MISSING_DATA};
    if (trk_open_file_ex("no-such-file.trk", TRK_OPEN_CHECK, TRK_EVENTS_ALL, 1, &config, &error) != nullptr ||
        error != -1) {
        return 1;
    }
    std::cout << "version " << trk_get_version() << '\n';
}
