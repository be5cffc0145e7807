#include "trkapi/trkapi.h"

#include "layout.h"
