# How all of our own targets are compiled: link trkapi_options PRIVATE.
add_library(trkapi_options INTERFACE)
target_compile_features(trkapi_options INTERFACE cxx_std_20)

target_compile_options(trkapi_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wcast-align -Wformat=2 -Wundef -Wvla
    -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wno-missing-field-initializers -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes -Wmissing-prototypes>
    # g++ 12 takes the value of an empty std::optional for uninitialised; clang and the sanitizers stand in.
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op -Wno-restrict -Wno-maybe-uninitialized>
    $<$<CXX_COMPILER_ID:Clang>:-Wconditional-uninitialized>)

# Velocities come out bit for bit the same in every build: no fused operations, no reordering. Nothing reads
# errno after a maths call.
target_compile_options(trkapi_options INTERFACE -ffp-contract=off -fno-math-errno -fno-semantic-interposition)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(TRKAPI_SANITIZE)
    # Programs that link the library need these to link, too.
    set(trkapi_sanitizer_flags -fsanitize=${TRKAPI_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # For C programs: the library needs the C++ half of the sanitizer's run time.
        list(APPEND trkapi_sanitizer_flags -fsanitize-link-c++-runtime -lstdc++)
    endif()
    add_compile_options(-fsanitize=${TRKAPI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(${trkapi_sanitizer_flags})
endif()
