// Calls of the flat interface that are not exported.
#pragma once

#include "trkapi/trkapi.h"

extern "C" {

// Distance of two samples of the recording block in force in whole milliseconds, toward zero; 0 without one.
int trk_get_sample_interval(_TRKFILE *handle);

// The same, not rounded; 0.0 without a recording block.
float trk_get_sample_interval_ex(_TRKFILE *handle);

// Sample rate of the recording block in force; 0.0 without one.
float trk_get_sample_per_second(_TRKFILE *handle);

// Filter level of the last start of a recording block that was decoded.
int get_filter_level_for_sample(_TRKFILE *handle);

// 1-based position of the item last delivered; 0 before the first.
int trk_get_element_index(_TRKFILE *handle);

// Bit 0: an input event was indexed; bit 1: some sample carries an input value.
int trk_get_input_data_availibity(_TRKFILE *handle);
}
