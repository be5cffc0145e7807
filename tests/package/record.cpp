#include <trkwriter/recorder.h>

int main() {
    trkwriter::Recorder recorder("package.trk");
    recorder.message(1, "GO");
    recorder.finish();
}
