#include "bulk/output_column.h"

namespace trk {

std::size_t OutputColumn::sizeOf(int type) {
    switch (type) {
    case TRK_TYPE_UINT8:
        return 1;
    case TRK_TYPE_UINT16:
        return 2;
    case TRK_TYPE_FLOAT:
    case TRK_TYPE_UINT32:
        return 4;
    case TRK_TYPE_DOUBLE:
    case TRK_TYPE_INT64:
        return 8;
    default:
        return 0;
    }
}

bool OutputColumn::holds(int type, const SampleColumn &column) {
    const int own = column.description.type;
    const bool isInteger = own != TRK_TYPE_FLOAT && own != TRK_TYPE_DOUBLE;
    switch (type) {
    case TRK_TYPE_FLOAT:
        return own == TRK_TYPE_FLOAT || own == TRK_TYPE_UINT8 || own == TRK_TYPE_UINT16;
    case TRK_TYPE_DOUBLE:
        return true;
    default:
        return isInteger && sizeOf(type) >= sizeOf(own);
    }
}

} // namespace trk
