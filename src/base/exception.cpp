#include "base/exception.h"

#include <cstdarg>
#include <cstdio>

namespace trk {

TRKException::TRKException(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text_.data(), text_.size(), format, arguments);
    va_end(arguments);
}

void throwException(const char *text) { throw std::make_unique<TRKException>("%s", text).release(); }

} // namespace trk
